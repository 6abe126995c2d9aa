#include "cconnection.h"

#include "changelog.h"
#include "citem.h"
#include "crecordset.h"
#include "currency.h"
#include "livefiles.h"
#include "postgreshandle.h"

#include <QAtomicInt>
#include <QDate>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSet>
#include <QSqlDriver>
#include <QSqlError>
#include <QUrl>
#include <QUrlQuery>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

QAtomicInt s_connectionCounter;

int defaultStatementTimeout()
{
    bool ok = false;
    const int fromEnvironment = qEnvironmentVariableIntValue("QUILLON_STATEMENT_TIMEOUT_MS", &ok);
    return ok && fromEnvironment > 0 ? fromEnvironment : 30000;
}

std::atomic<int> s_statementTimeout {0};

// The server cancels a slow statement itself; the client waits a little longer before it cuts the connection, so
// that a live server's own, cleaner refusal comes first.
std::chrono::milliseconds clientLimit()
{
    const int server = CConnection::statementTimeout();
    return std::chrono::milliseconds(server + qMax(1000, server / 10));
}

QString describe(const QSqlError &error)
{
    // SQLite's SQLITE_FULL (a full disk, or a size limit the file reached), PostgreSQL's disk_full.
    if (error.nativeErrorCode() == u"13"_s || error.nativeErrorCode() == u"53100"_s
        || error.databaseText().contains(u"database or disk is full"_s)) {
        return u"磁盘已满,数据没有保存。"_s;
    }
    if (error.nativeErrorCode() == u"57014"_s && error.databaseText().contains(u"statement timeout"_s)) {
        return u"数据库服务器执行超过 "_s + QString::number(CConnection::statementTimeout() / 1000.0)
            + u" 秒,已取消,数据没有改变"_s;
    }
    // A lock held by another seat beyond the wait limit: PostgreSQL's lock_not_available, SQLite's busy.
    const QString code = error.nativeErrorCode();
    if (code == u"55P03"_s || code == u"5"_s || code == u"517"_s) {
        return u"数据正被其他用户修改,请稍后再试"_s + u" ("_s + error.databaseText().trimmed() + u")"_s;
    }
    QString text = error.databaseText().trimmed();
    const QString driver = error.driverText().trimmed();
    if (text.isEmpty()) {
        text = driver;
    } else if (!driver.isEmpty() && !text.contains(driver)) {
        text = driver + u": "_s + text;
    }
    return text.isEmpty() ? u"未知的数据库错误"_s : text;
}

// SQLite turns decimal text in a NUMERIC column into a double once its first 15 digits survive, which loses the
// rest. Amount columns therefore take no affinity: amounts of up to 15 digits are bound as doubles (numeric, and
// printed back exactly), longer ones as text, which is kept as written.
#define SQLITE_AMOUNT "/* DECIMAL(19,4) */"

struct TableDdl
{
    const char *name;
    const char *sqlite;
    const char *postgresql;
    const char *indexes; // ';'-separated, the same on both engines
};

// Column order of T_Item is the order in which an item is read and written.
constexpr TableDdl kTables[] = {
    {"T_Item",
     "CREATE TABLE T_Item (F_ID INTEGER NOT NULL PRIMARY KEY, F_ItemNo TEXT, F_ItemName TEXT, F_ItemTypeID "
     "SMALLINT NOT NULL DEFAULT 0, F_Standard TEXT, F_Spell TEXT, F_ParentID INTEGER NOT NULL DEFAULT 0, "
     "F_Remark TEXT, F_LimitUp REAL NOT NULL DEFAULT 0, F_LimitDown REAL NOT NULL DEFAULT 0, F_Address "
     "TEXT, F_Tel1 TEXT, F_Tel2 TEXT, F_Tel3 TEXT, F_LinkMen TEXT, F_PostCode TEXT, F_Tag1 INTEGER NOT "
     "NULL DEFAULT 0, F_Tag2 INTEGER NOT NULL DEFAULT 0, F_Tag3 INTEGER NOT NULL DEFAULT 0, F_OweWarring " SQLITE_AMOUNT
     " NOT NULL DEFAULT 0, F_OweStop " SQLITE_AMOUNT " NOT NULL DEFAULT 0, F_Bank TEXT, F_BankAccount TEXT, "
     "F_OrderByID INTEGER NOT NULL DEFAULT 0, F_Date DATE, F_IsSpecial BOOLEAN NOT NULL DEFAULT 0, "
     "F_ArtificialPerson TEXT, F_IRDNumber TEXT, F_Price1 " SQLITE_AMOUNT ", F_Price2 " SQLITE_AMOUNT
     ", F_Price3 " SQLITE_AMOUNT ", "
     "F_Price4 " SQLITE_AMOUNT ", F_PackageAmount REAL DEFAULT 1, F_Time1 DATETIME, F_Time2 DATETIME, F_Tag4 INTEGER "
     "NOT NULL DEFAULT 0, F_Tag5 INTEGER NOT NULL DEFAULT 0, F_Tag6 INTEGER NOT NULL DEFAULT 0)",
     "CREATE TABLE T_Item (F_ID INTEGER NOT NULL PRIMARY KEY, F_ItemNo TEXT, F_ItemName TEXT, F_ItemTypeID "
     "SMALLINT NOT NULL DEFAULT 0, F_Standard TEXT, F_Spell TEXT, F_ParentID INTEGER NOT NULL DEFAULT 0, "
     "F_Remark TEXT, F_LimitUp REAL NOT NULL DEFAULT 0, F_LimitDown REAL NOT NULL DEFAULT 0, F_Address "
     "TEXT, F_Tel1 TEXT, F_Tel2 TEXT, F_Tel3 TEXT, F_LinkMen TEXT, F_PostCode TEXT, F_Tag1 INTEGER NOT "
     "NULL DEFAULT 0, F_Tag2 INTEGER NOT NULL DEFAULT 0, F_Tag3 INTEGER NOT NULL DEFAULT 0, F_OweWarring "
     "NUMERIC(19,4) NOT NULL DEFAULT 0, F_OweStop NUMERIC(19,4) NOT NULL DEFAULT 0, F_Bank TEXT, "
     "F_BankAccount TEXT, F_OrderByID INTEGER NOT NULL DEFAULT 0, F_Date DATE, F_IsSpecial BOOLEAN NOT "
     "NULL DEFAULT FALSE, F_ArtificialPerson TEXT, F_IRDNumber TEXT, F_Price1 NUMERIC(19,4), F_Price2 "
     "NUMERIC(19,4), F_Price3 NUMERIC(19,4), F_Price4 NUMERIC(19,4), F_PackageAmount REAL DEFAULT 1, "
     "F_Time1 TIMESTAMP(0), F_Time2 TIMESTAMP(0), F_Tag4 INTEGER NOT NULL DEFAULT 0, F_Tag5 INTEGER NOT "
     "NULL DEFAULT 0, F_Tag6 INTEGER NOT NULL DEFAULT 0)",
     "CREATE INDEX IX_Item_Type_No ON T_Item (F_ItemTypeID, F_ItemNo, F_ItemName);"
     "CREATE INDEX IX_Item_Type_Name ON T_Item (F_ItemTypeID, F_ItemName);"
     "CREATE INDEX IX_Item_Parent ON T_Item (F_ParentID);"
     "CREATE INDEX IX_Item_Tag1 ON T_Item (F_Tag1);"
     "CREATE INDEX IX_Item_Tag2 ON T_Item (F_Tag2);"
     "CREATE INDEX IX_Item_Tag3 ON T_Item (F_Tag3);"
     "CREATE INDEX IX_Item_Tag4 ON T_Item (F_Tag4)"},
    {"T_KeyID", "CREATE TABLE T_KeyID (F_TableName VARCHAR(64) NOT NULL PRIMARY KEY, F_MaxID INTEGER NOT NULL)",
     "CREATE TABLE T_KeyID (F_TableName VARCHAR(64) NOT NULL PRIMARY KEY, F_MaxID INTEGER NOT NULL)", ""},
    {"T_GoodsPrice",
     "CREATE TABLE T_GoodsPrice (F_ID INTEGER NOT NULL PRIMARY KEY, F_GoodsID INTEGER NOT NULL DEFAULT 0, "
     "F_ClientID INTEGER NOT NULL DEFAULT 0, F_ClientTypeID INTEGER NOT NULL DEFAULT 0, "
     "F_Price " SQLITE_AMOUNT " DEFAULT 0)",
     "CREATE TABLE T_GoodsPrice (F_ID INTEGER NOT NULL PRIMARY KEY, F_GoodsID INTEGER NOT NULL DEFAULT 0, "
     "F_ClientID INTEGER NOT NULL DEFAULT 0, F_ClientTypeID INTEGER NOT NULL DEFAULT 0, "
     "F_Price NUMERIC(19,4) DEFAULT 0)",
     "CREATE INDEX IX_GoodsPrice_Goods ON T_GoodsPrice (F_GoodsID, F_ClientID, F_ClientTypeID)"},
    {"T_GoodsInOutList",
     "CREATE TABLE T_GoodsInOutList (F_ID INTEGER NOT NULL PRIMARY KEY, F_GoodsID INTEGER NOT NULL DEFAULT 0, "
     "F_Amount " SQLITE_AMOUNT " DEFAULT 0, F_Price " SQLITE_AMOUNT " DEFAULT 0, F_Date DATE)",
     "CREATE TABLE T_GoodsInOutList (F_ID INTEGER NOT NULL PRIMARY KEY, F_GoodsID INTEGER NOT NULL DEFAULT 0, "
     "F_Amount NUMERIC(19,4) DEFAULT 0, F_Price NUMERIC(19,4) DEFAULT 0, F_Date DATE)",
     "CREATE INDEX IX_GoodsInOutList_Goods ON T_GoodsInOutList (F_GoodsID)"},
};

} // namespace

namespace {

// libpq's connection keywords that a URL may add after "?" (host, port, database, user and password come from the
// URL itself; replication connections are not for this program).
const QSet<QString> &postgresOptions()
{
    static const QSet<QString> names {
        u"application_name"_s,
        u"channel_binding"_s,
        u"client_encoding"_s,
        u"connect_timeout"_s,
        u"fallback_application_name"_s,
        u"gssencmode"_s,
        u"gsslib"_s,
        u"hostaddr"_s,
        u"keepalives"_s,
        u"keepalives_count"_s,
        u"keepalives_idle"_s,
        u"keepalives_interval"_s,
        u"krbsrvname"_s,
        u"options"_s,
        u"passfile"_s,
        u"requirepeer"_s,
        u"service"_s,
        u"ssl_max_protocol_version"_s,
        u"ssl_min_protocol_version"_s,
        u"sslcert"_s,
        u"sslcompression"_s,
        u"sslcrl"_s,
        u"sslcrldir"_s,
        u"sslkey"_s,
        u"sslmode"_s,
        u"sslpassword"_s,
        u"sslrootcert"_s,
        u"sslsni"_s,
        u"target_session_attrs"_s,
        u"tcp_user_timeout"_s,
    };
    return names;
}

} // namespace

QString DatabaseUrl::masked(const QString &url)
{
    // user:password@ → user:***@. A mistyped URL is shown too, so nothing about it is trusted: the password may
    // hold '/', '#', '@' or ':' unescaped, the scheme may be misspelt or lack its "//". Everything after the user
    // name up to the last '@' goes; a '@' further on (in an option) only hides more than needed.
    QString shown = url;
    const qsizetype at = shown.lastIndexOf(u'@');
    if (at >= 0) {
        qsizetype start = shown.indexOf(u':');
        if (start < 0 || start > at) {
            start = 0;
        } else {
            ++start;
            while (start < at && shown.at(start) == u'/') {
                ++start;
            }
        }
        const QString userInfo = shown.mid(start, at - start);
        const qsizetype colon = userInfo.indexOf(u':');
        if (colon >= 0) {
            shown = shown.left(start) + userInfo.left(colon) + u":***"_s + shown.mid(at);
        }
    }
    static const QRegularExpression option(u"([?&]sslpassword=)[^&]*"_s);
    return shown.replace(option, u"\\1***"_s);
}

DatabaseUrl DatabaseUrl::parse(const QString &url)
{
    DatabaseUrl result;
    const QString trimmed = url.trimmed();
    if (trimmed.startsWith(u"sqlite:"_s, Qt::CaseInsensitive)) {
        result.engine = Engine::SQLite;
        QString rest = trimmed.mid(7);
        const qsizetype q = rest.indexOf(u'?');
        if (q >= 0) {
            const QUrlQuery query(rest.mid(q + 1));
            const auto items = query.queryItems(QUrl::FullyDecoded);
            for (const auto &[key, value] : items) {
                if (key != u"mode"_s || (value != u"ro"_s && value != u"rw"_s)) {
                    result.error = u"SQLite 地址只认识 ?mode=ro 或 ?mode=rw,不认识: "_s + key + u'=' + value;
                    result.engine = Engine::Invalid;
                    return result;
                }
                result.readOnly = value == u"ro"_s;
            }
            rest.truncate(q);
        }
        if (rest == u":memory:"_s) {
            result.databaseName = rest;
        } else if (rest.startsWith(u"//"_s)) {
            // sqlite:///abs/path.db: an empty authority followed by an absolute path.
            const QString path = QUrl::fromPercentEncoding(rest.mid(2).toUtf8());
            if (!path.startsWith(u'/')) {
                result.error = u"SQLite 地址必须是 sqlite:///绝对路径 或 sqlite:相对路径: "_s + masked(url);
                result.engine = Engine::Invalid;
                return result;
            }
            result.databaseName = path;
        } else {
            result.databaseName = QDir::current().absoluteFilePath(QUrl::fromPercentEncoding(rest.toUtf8()));
        }
        if (result.databaseName.isEmpty() || result.databaseName == u"/"_s) {
            result.error = u"数据库地址缺少文件名: "_s + masked(url);
            result.engine = Engine::Invalid;
        }
        return result;
    }
    if (trimmed.startsWith(u"postgresql://"_s, Qt::CaseInsensitive)
        || trimmed.startsWith(u"postgres://"_s, Qt::CaseInsensitive)) {
        const QUrl parsed(trimmed, QUrl::StrictMode);
        if (!parsed.isValid() || parsed.host().isEmpty()) {
            result.error = u"无效的 PostgreSQL 地址: "_s + masked(url);
            return result;
        }
        result.engine = Engine::PostgreSQL;
        result.host = parsed.host();
        result.port = parsed.port(5432);
        result.user = parsed.userName();
        result.password = parsed.password();
        result.databaseName = parsed.path().mid(1);
        if (result.databaseName.isEmpty()) {
            result.databaseName = result.user.isEmpty() ? u"postgres"_s : result.user;
        }
        const auto items = QUrlQuery(parsed).queryItems(QUrl::FullyDecoded);
        QStringList options;
        for (const auto &[key, value] : items) {
            if (!postgresOptions().contains(key)) {
                result.error = u"不认识的 PostgreSQL 连接选项: "_s + key;
                result.engine = Engine::Invalid;
                return result;
            }
            if (value.contains(u';')) {
                // The driver separates options by ';', so it cannot pass one on.
                result.error = u"PostgreSQL 连接选项的值不能含有分号: "_s + key;
                result.engine = Engine::Invalid;
                return result;
            }
            QString quoted = value;
            quoted.replace(u"\\"_s, u"\\\\"_s).replace(u"'"_s, u"\\'"_s);
            options.append(key + u"='"_s + quoted + u'\'');
        }
        result.options = options.join(u';');
        return result;
    }
    result.error = u"不支持的数据库地址(应为 sqlite: 或 postgresql://): "_s + masked(url);
    return result;
}

namespace {

// An SQLite file this process cannot change: the file itself, or the folder where its journal would go, refuses
// writing (a CD, a read-only mount, another user's files).
bool sqliteFileIsWritable(const QString &path)
{
    const QByteArray file = QFile::encodeName(path);
    const QByteArray folder = QFile::encodeName(QFileInfo(path).absolutePath());
    return ::access(file.constData(), W_OK) == 0 && ::access(folder.constData(), W_OK) == 0;
}

bool onReadOnlyFileSystem(const QString &path)
{
    struct statvfs info
    {
    };
    return ::statvfs(QFile::encodeName(path).constData(), &info) == 0 && (info.f_flag & ST_RDONLY) != 0;
}

} // namespace

// libpq waits for a server's answer without a limit of its own, and a frozen server process still has a live
// socket (its kernel answers the keepalives). When one exchange takes longer than the limit, this thread shuts the
// socket down, so that the waiting call returns with an error.
class StatementWatchdog
{
public:
    StatementWatchdog() = default;
    ~StatementWatchdog()
    {
        if (m_thread.joinable()) {
            {
                const std::lock_guard lock(m_mutex);
                m_stop = true;
            }
            m_wake.notify_all();
            m_thread.join();
        }
    }
    Q_DISABLE_COPY_MOVE(StatementWatchdog)

    void arm(PGconn *pg, std::chrono::milliseconds limit)
    {
        {
            const std::lock_guard lock(m_mutex);
            m_pg = pg;
            m_deadline = Clock::now() + limit;
            m_armed = pg != nullptr;
            m_expired = false;
            if (!m_thread.joinable()) {
                m_thread = std::thread([this] { watch(); });
            }
        }
        m_wake.notify_all();
    }
    void disarm()
    {
        const std::lock_guard lock(m_mutex);
        m_armed = false;
    }
    bool expired() const { return m_expired.load(); }

private:
    using Clock = std::chrono::steady_clock;
    void watch()
    {
        std::unique_lock lock(m_mutex);
        while (!m_stop) {
            if (m_armed && Clock::now() >= m_deadline) {
                // Marked first: the waiting call returns as soon as the socket is down, and looks at the mark.
                m_expired = true;
                m_armed = false;
                ::shutdown(PQsocket(m_pg), SHUT_RDWR);
            } else if (m_armed) {
                m_wake.wait_until(lock, m_deadline);
            } else {
                m_wake.wait(lock);
            }
        }
    }

    std::mutex m_mutex;
    std::condition_variable m_wake;
    PGconn *m_pg = nullptr;
    Clock::time_point m_deadline;
    bool m_armed = false;
    bool m_stop = false;
    std::atomic<bool> m_expired {false};
    std::thread m_thread;
};

void CConnection::setStatementTimeout(int milliseconds)
{
    s_statementTimeout = milliseconds > 0 ? milliseconds : 0;
}

int CConnection::statementTimeout()
{
    const int set = s_statementTimeout.load();
    return set > 0 ? set : defaultStatementTimeout();
}

template<typename F>
auto CConnection::watched(F &&exchange) const
{
    if (m_engine != Engine::PostgreSQL || m_watchDepth > 0) {
        return exchange();
    }
    PGconn *pg = postgresHandle(const_cast<CConnection &>(*this));
    if (!pg) {
        return exchange();
    }
    if (!m_watchdog) {
        m_watchdog = std::make_unique<StatementWatchdog>();
    }
    const std::chrono::milliseconds limit = clientLimit();
    m_watchdog->arm(pg, limit);
    ++m_watchDepth;
    struct Done
    {
        const CConnection &connection;
        ~Done()
        {
            --connection.m_watchDepth;
            connection.m_watchdog->disarm();
        }
    } done {*this};
    const auto stalled = [&] {
        return DbError(u"数据库服务器 "_s + QString::number(limit.count() / 1000.0)
                       + u" 秒没有响应,已断开与它的连接,这次操作没有完成,数据没有改变;请检查服务器或网络后重新连接"_s);
    };
    try {
        auto result = exchange();
        if (m_watchdog->expired()) {
            throw stalled();
        }
        return result;
    } catch (const DbError &) {
        if (m_watchdog->expired()) {
            throw stalled();
        }
        throw;
    }
}

CConnection::CConnection(const QString &connectionName, const QString &url, Engine engine)
    : m_connectionName(connectionName)
    , m_url(url)
    , m_engine(engine)
{ }

std::shared_ptr<CConnection> CConnection::Open(const QString &url, QString *errorMessage)
{
    const DatabaseUrl where = DatabaseUrl::parse(url);
    if (where.engine == Engine::Invalid) {
        if (errorMessage) {
            *errorMessage = where.error;
        }
        return {};
    }
    const QString name = u"quillon-"_s + QString::number(s_connectionCounter.fetchAndAddRelaxed(1));
    const QString driver = where.engine == Engine::SQLite ? u"QSQLITE"_s : u"QPSQL"_s;
    if (!QSqlDatabase::isDriverAvailable(driver)) {
        if (errorMessage) {
            *errorMessage = u"缺少数据库驱动 "_s + driver;
        }
        return {};
    }
    std::shared_ptr<CConnection> connection(new CConnection(name, url, where.engine));
    connection->m_readOnly = where.readOnly;
    const bool sqliteFile =
        where.engine == Engine::SQLite && where.databaseName != u":memory:"_s && QFileInfo::exists(where.databaseName);
    if (where.engine == Engine::SQLite && !sqliteFile && !where.readOnly && where.databaseName != u":memory:"_s) {
        // A new database file is its owner's alone, whatever the host's umask lets through (SQLite would create it
        // readable by everyone, and its journal files take the file's permissions).
        const int fd = ::open(QFile::encodeName(where.databaseName).constData(),
                              O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR);
        if (fd >= 0) {
            ::close(fd);
        }
    }
    if (sqliteFile && !where.readOnly && !sqliteFileIsWritable(where.databaseName)) {
        connection->m_readOnly = true;
        connection->m_notice = u"数据库文件所在位置不可写,已以只读方式打开,不能保存修改: "_s + where.databaseName;
    }
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(driver, name);
        db.setDatabaseName(where.databaseName);
        if (where.engine == Engine::SQLite) {
            // About ten seconds for another seat's write to finish, then a clear refusal instead of a long wait.
            QString options = u"QSQLITE_BUSY_TIMEOUT=10000"_s;
            if (connection->m_readOnly) {
                options += u";QSQLITE_OPEN_READONLY"_s;
            }
            if (connection->m_readOnly && sqliteFile && onReadOnlyFileSystem(where.databaseName)) {
                // Nothing can change a file on read-only media, and a WAL database could not be read there at all
                // (its shared-memory file cannot be created): tell SQLite so.
                options += u";QSQLITE_OPEN_URI"_s;
                db.setDatabaseName(QUrl::fromLocalFile(where.databaseName).toString(QUrl::FullyEncoded)
                                   + u"?immutable=1"_s);
            }
            db.setConnectOptions(options);
        } else {
            db.setHostName(where.host);
            db.setPort(where.port);
            db.setUserName(where.user);
            db.setPassword(where.password);
            // Keepalives find a server that went away while a statement waits for it.
            // The URL's own options come last so that they win over these defaults.
            QString options = u"connect_timeout=10;keepalives=1;keepalives_idle=30;keepalives_interval=10;"
                              "keepalives_count=3"_s;
            if (!where.options.isEmpty()) {
                options += u';' + where.options;
            }
            db.setConnectOptions(options);
        }
        if (!db.open()) {
            if (errorMessage) {
                QString reason = describe(db.lastError());
                if (!where.password.isEmpty()) {
                    reason.replace(where.password, u"***"_s);
                }
                *errorMessage = u"无法打开数据库 "_s + DatabaseUrl::masked(url) + u": "_s + reason;
            }
            return {};
        }
    }
    connection->m_memory = where.databaseName == u":memory:"_s;
    if (where.engine == Engine::SQLite && !connection->m_memory) {
        connection->m_liveFile = where.databaseName;
        LiveFiles::add(connection->m_liveFile);
    }
    connection->setUp();
    return connection;
}

void CConnection::setUp()
{
    try {
        if (m_engine == Engine::SQLite) {
            if (!m_memory && !m_readOnly) {
                // WAL lets readers go on while a writer commits.
                Select(u"PRAGMA journal_mode=WAL"_s);
            }
            // FULL syncs the log at every commit: a save the user saw succeed survives a power cut, not only a
            // crashed program.
            Execute(u"PRAGMA synchronous=FULL"_s);
        } else {
            Execute(u"SET client_min_messages TO WARNING"_s);
            // A writer behind another seat's lock gives up after about ten seconds with a clear message.
            Execute(u"SET lock_timeout = '10s'"_s);
            Execute(u"SET statement_timeout = "_s + QString::number(statementTimeout()));
        }
    } catch (const DbError &) {
        // A read-only file cannot switch its journal; it still serves reads.
    }
}

bool CConnection::Reopen(QString *errorMessage)
{
    if (!QSqlDatabase::contains(m_connectionName)) {
        if (errorMessage) {
            *errorMessage = u"数据库连接已关闭"_s;
        }
        return false;
    }
    m_statements.clear();
    m_leased.clear();
    m_tableRecords.clear();
    m_layouts.clear();
    m_depth = 0;
    m_rollbackOnly = false;
    QSqlDatabase db = database();
    db.close();
    if (!db.open()) {
        if (errorMessage) {
            QString reason = describe(db.lastError());
            if (!db.password().isEmpty()) {
                reason.replace(db.password(), u"***"_s);
            }
            *errorMessage = u"无法重新连接数据库 "_s + DatabaseUrl::masked(m_url) + u": "_s + reason;
        }
        return false;
    }
    setUp();
    return true;
}

bool CConnection::sameDatabaseAs(CConnection &other)
{
    if (this == &other) {
        return true;
    }
    if (m_engine != other.m_engine || !isOpen() || !other.isOpen()) {
        return false;
    }
    if (m_engine == Engine::SQLite) {
        const QString mine = database().databaseName();
        const QString theirs = other.database().databaseName();
        if (mine == u":memory:"_s || theirs == u":memory:"_s) {
            return false;
        }
        struct stat a
        {
        };
        struct stat b
        {
        };
        auto fileOf = [](const QString &name) {
            // A read-only open on read-only media names the file as a file: URI.
            return name.startsWith(u"file:"_s) ? QUrl(name).toLocalFile() : name;
        };
        return ::stat(QFile::encodeName(fileOf(mine)).constData(), &a) == 0
            && ::stat(QFile::encodeName(fileOf(theirs)).constData(), &b) == 0 && a.st_dev == b.st_dev
            && a.st_ino == b.st_ino;
    }
    // A server lists the sessions of its databases: if the other connection sees this one's session (the same
    // process started at the same moment) in its own database, both reach the same database. Needs no rights.
    try {
        QSqlQuery me = Select(u"SELECT pg_backend_pid(), CAST(backend_start AS TEXT) FROM pg_stat_activity "
                              "WHERE pid = pg_backend_pid()"_s);
        if (!next(me)) {
            return false;
        }
        QSqlQuery seen = other.Select(u"SELECT COUNT(*) FROM pg_stat_activity WHERE pid = ? AND "
                                      "CAST(backend_start AS TEXT) = ? AND datname = current_database()"_s,
                                      {me.value(0), me.value(1)});
        return next(seen) && seen.value(0).toInt() > 0;
    } catch (const DbError &) {
        return false;
    }
}

bool CConnection::next(QSqlQuery &query)
{
    if (query.next()) {
        return true;
    }
    if (query.lastError().isValid()) {
        throw DbError(u"读取数据时出错: "_s + describe(query.lastError()));
    }
    return false;
}

CConnection::~CConnection()
{
    Close();
}

QSqlDatabase CConnection::database() const
{
    return QSqlDatabase::database(m_connectionName, false);
}

bool CConnection::isOpen() const
{
    return QSqlDatabase::contains(m_connectionName) && database().isOpen();
}

void CConnection::Close()
{
    if (!QSqlDatabase::contains(m_connectionName)) {
        return;
    }
    m_statements.clear();
    m_leased.clear();
    {
        QSqlDatabase db = database();
        if (db.isOpen()) {
            if (m_depth > 0) {
                db.rollback();
            }
            db.close();
        }
    }
    m_depth = 0;
    m_tableRecords.clear();
    m_layouts.clear();
    QSqlDatabase::removeDatabase(m_connectionName);
    if (!m_liveFile.isEmpty()) {
        LiveFiles::remove(m_liveFile);
        m_liveFile.clear();
    }
}

QSqlQuery CConnection::prepare(const QString &sql, const QVariantList &params, bool forwardOnly)
{
    if (!isOpen()) {
        throw DbError(u"数据库连接已关闭"_s);
    }
    QSqlQuery query(database());
    query.setForwardOnly(forwardOnly);
    // SQLite keeps amounts of up to 15 digits as doubles, which print back exactly; longer ones are text anyway.
    query.setNumericalPrecisionPolicy(m_engine == Engine::SQLite ? QSql::LowPrecisionDouble : QSql::HighPrecision);
    if (params.isEmpty()) {
        return query;
    }
    if (!watched([&] { return query.prepare(sql); })) {
        throw DbError(describe(query.lastError()) + u"\n"_s + sql);
    }
    for (const QVariant &param : params) {
        query.addBindValue(toSqlValue(param));
    }
    return query;
}

int CConnection::Execute(const QString &sql, const QVariantList &params)
{
    if (m_depth == 0) {
        ++m_commits; // counted before running: a statement that fails may still have written nothing, no harm
    }
    if (params.isEmpty()) {
        QSqlQuery query = prepare(sql, params);
        if (!watched([&] { return query.exec(sql); })) {
            throw DbError(describe(query.lastError()));
        }
        return query.numRowsAffected();
    }
    return watched([&] { return cachedStatement(sql, params).numRowsAffected(); });
}

QSqlQuery &CConnection::cachedStatement(const QString &sql, const QVariantList &params)
{
    if (!isOpen()) {
        throw DbError(u"数据库连接已关闭"_s);
    }
    // Statements are kept prepared: a save runs the same few statements again and again, and on a server every
    // fresh preparation is a round trip of its own (and its release another).
    auto cached = m_statements.find(sql);
    if (cached == m_statements.end()) {
        if (m_statements.size() >= 64) {
            m_statements.clear();
        }
        cached = m_statements.insert(sql, prepare(sql, params));
    }
    QSqlQuery &query = *cached;
    bind(query, params);
    if (!query.exec()) {
        const QString message = describe(query.lastError());
        m_statements.erase(cached);
        throw DbError(message);
    }
    return query;
}

void CConnection::bind(QSqlQuery &query, const QVariantList &params) const
{
    for (qsizetype i = 0; i < params.size(); ++i) {
        query.bindValue(int(i), toSqlValue(params.at(i)));
    }
}

void CConnection::noteWrite(const QString &sql)
{
    // A statement that returns rows may write too (an insert returning its row): anything but a query counts.
    if (m_depth == 0 && !QStringView(sql).trimmed().startsWith(u"select", Qt::CaseInsensitive)) {
        ++m_commits;
    }
}

QSqlQuery CConnection::SelectPrepared(const QString &sql, const QVariantList &params)
{
    noteWrite(sql);
    if (params.isEmpty()) {
        return Select(sql);
    }
    if (!isOpen()) {
        throw DbError(u"数据库连接已关闭"_s);
    }
    // The statement leaves the cache while its rows are read, so that nobody runs it under the reader's feet.
    auto cached = m_leased.find(sql);
    // On a server the rows come whole, not one by one: a result left half read would hold back the messages
    // behind it on the connection (the notices of other seats among them) while the statement waits in the cache.
    QSqlQuery query =
        cached == m_leased.end() ? prepare(sql, params, m_engine != Engine::PostgreSQL) : std::move(*cached);
    if (cached != m_leased.end()) {
        m_leased.erase(cached);
    }
    bind(query, params);
    if (!watched([&] { return query.exec(); })) {
        throw DbError(describe(query.lastError()));
    }
    return query;
}

void CConnection::Recycle(const QString &sql, QSqlQuery &&query)
{
    if (!isOpen() || query.lastQuery().isEmpty()) {
        return;
    }
    query.finish();
    if (m_leased.size() >= 32) {
        m_leased.clear();
    }
    m_leased.insert(sql, std::move(query));
}

std::shared_ptr<const ColumnLayout> CConnection::tableLayout(const QString &table) const
{
    const QString key = u"table:"_s + table.toLower();
    auto it = m_layouts.constFind(key);
    if (it != m_layouts.constEnd()) {
        return *it;
    }
    auto layout = std::make_shared<const ColumnLayout>(requireTable(table));
    m_layouts.insert(key, layout);
    return layout;
}

QSqlQuery CConnection::Select(const QString &sql, const QVariantList &params)
{
    noteWrite(sql);
    QSqlQuery query = prepare(sql, params);
    const bool ok = watched([&] { return params.isEmpty() ? query.exec(sql) : query.exec(); });
    if (!ok) {
        throw DbError(describe(query.lastError()));
    }
    return query;
}

QSqlRecord CConnection::requireTable(const QString &table) const
{
    QSqlRecord columns = tableRecord(table);
    if (!columns.isEmpty()) {
        return columns;
    }
    // The driver's look-up says only that it found nothing, also when it waited in vain behind another seat's lock:
    // the table itself says why.
    QSqlQuery probe(database());
    if (!watched([&] { return probe.exec(u"SELECT * FROM "_s + table + u" WHERE 1=0"_s); })) {
        const QSqlError error = probe.lastError();
        // A failed statement spoils a server's transaction for any further look, so the error alone decides.
        if (error.nativeErrorCode() == u"42P01"_s || error.databaseText().contains(u"no such table"_s)) {
            throw DbError(u"数据表不存在: "_s + table);
        }
        throw DbError(describe(error));
    }
    columns = probe.record();
    if (columns.isEmpty()) {
        throw DbError(u"数据表不存在: "_s + table);
    }
    return columns;
}

QSqlRecord CConnection::tableRecord(const QString &table) const
{
    if (!isOpen()) {
        return {};
    }
    const QString key = table.toLower();
    const auto cached = m_tableRecords.constFind(key);
    if (cached != m_tableRecords.constEnd()) {
        return *cached;
    }
    QSqlDatabase db = database();
    QSqlRecord record = watched([&] { return db.record(table); });
    if (record.isEmpty() && m_engine == Engine::PostgreSQL) {
        // Unquoted names are folded to lower case by PostgreSQL.
        record = watched([&] { return db.record(key); });
    }
    if (!record.isEmpty()) {
        m_tableRecords.insert(key, record);
    }
    return record;
}

std::shared_ptr<const ColumnLayout> CConnection::columnLayout(const QString &sql, const QSqlQuery &query) const
{
    auto it = m_layouts.constFind(sql);
    if (it != m_layouts.constEnd()) {
        return *it;
    }
    if (m_layouts.size() > 256) {
        m_layouts.clear();
    }
    auto layout = std::make_shared<const ColumnLayout>(query.record());
    m_layouts.insert(sql, layout);
    return layout;
}

bool CConnection::hasTable(const QString &table) const
{
    if (!isOpen()) {
        return false;
    }
    const QStringList tables = watched([&] { return database().tables(QSql::Tables); });
    for (const QString &name : tables) {
        if (name.compare(table, Qt::CaseInsensitive) == 0) {
            return true;
        }
    }
    return false;
}

void CConnection::BeginTrans()
{
    if (m_depth == 0) {
        m_rollbackOnly = false;
        Execute(m_engine == Engine::SQLite ? u"BEGIN IMMEDIATE"_s : u"BEGIN"_s);
    }
    ++m_depth;
}

void CConnection::CommitTrans()
{
    if (m_depth <= 0) {
        throw DbError(u"没有可提交的事务"_s);
    }
    if (--m_depth > 0) {
        return;
    }
    if (m_rollbackOnly) {
        m_rollbackOnly = false;
        try {
            Execute(u"ROLLBACK"_s);
        } catch (const DbError &) { }
        throw DbError(u"事务中的一步已失败,全部修改已撤销"_s);
    }
    try {
        Execute(u"COMMIT"_s);
    } catch (const DbError &) {
        try {
            Execute(u"ROLLBACK"_s);
        } catch (const DbError &) { }
        throw;
    }
}

void CConnection::RollbackTrans()
{
    if (m_depth <= 0) {
        return;
    }
    if (--m_depth > 0) {
        m_rollbackOnly = true;
        return;
    }
    m_rollbackOnly = false;
    try {
        Execute(u"ROLLBACK"_s);
    } catch (const DbError &) {
        // The server may already have ended the transaction (lost connection); nothing is left to undo.
    }
}

void CConnection::EnsureSchema()
{
    QList<const TableDdl *> missing;
    for (const TableDdl &table : kTables) {
        if (!hasTable(QString::fromLatin1(table.name))) {
            missing.append(&table);
        }
    }
    if (!missing.isEmpty()) {
        m_tableRecords.clear();
        m_layouts.clear();
        m_statements.clear();
        m_leased.clear();
        CTransaction transaction(*this);
        // Several programs may create a new database at once: look again once this one holds the write lock
        // (SQLite's BEGIN IMMEDIATE) or the schema lock (PostgreSQL's advisory lock), so only the first creates
        // the tables.
        if (m_engine == Engine::PostgreSQL) {
            Select(u"SELECT pg_advisory_xact_lock(7114301)"_s);
        }
        missing.clear();
        for (const TableDdl &table : kTables) {
            if (!hasTable(QString::fromLatin1(table.name))) {
                missing.append(&table);
            }
        }
        for (const TableDdl *t : std::as_const(missing)) {
            const TableDdl &table = *t;
            Execute(QString::fromLatin1(m_engine == Engine::SQLite ? table.sqlite : table.postgresql));
            const QStringList indexes = QString::fromLatin1(table.indexes).split(u';', Qt::SkipEmptyParts);
            for (const QString &index : indexes) {
                Execute(index);
            }
        }
        transaction.Commit();
    }
    if (!m_readOnly) {
        // Saves look names up in the table (no two items of a kind share one); a table made by an older version
        // gets the index once.
        if (hasTable(u"T_Item"_s)) {
            try {
                Execute(u"CREATE INDEX IF NOT EXISTS IX_Item_Type_Name ON T_Item (F_ItemTypeID, F_ItemName)"_s);
            } catch (const DbError &) {
                // Without it the look-ups are slower, not wrong (a role that may not create indexes).
            }
        }
        ChangeLog::ensure(*this);
    }
}

QVariant CConnection::toSqlValue(const QVariant &value) const
{
    if (value.isNull()) {
        return value;
    }
    switch (value.metaType().id()) {
    case QMetaType::QDate:
        return value.toDate().toString(u"yyyy-MM-dd"_s);
    case QMetaType::QDateTime:
        return value.toDateTime().toString(u"yyyy-MM-dd HH:mm:ss"_s);
    case QMetaType::Bool:
        if (m_engine == Engine::SQLite) {
            return value.toBool() ? 1 : 0;
        }
        return value;
    default:
        break;
    }
    if (value.metaType() == QMetaType::fromType<Currency>()) {
        const Currency amount = value.value<Currency>();
        if (m_engine == Engine::SQLite) {
            const qint64 scaled = amount.scaled();
            constexpr qint64 fifteenDigits = Q_INT64_C(999999999999999);
            if (scaled <= fifteenDigits && scaled >= -fifteenDigits) {
                return amount.toDouble();
            }
        }
        return amount.toFixed(4);
    }
    return value;
}

CTransaction::CTransaction(CConnection &connection)
    : m_connection(connection)
{
    m_connection.BeginTrans();
}

CTransaction::~CTransaction()
{
    if (!m_done) {
        m_connection.RollbackTrans();
    }
}

void CTransaction::Commit()
{
    m_done = true;
    m_connection.CommitTrans();
}

// PostgreSQL sorts by the database's collation (a shop's server is usually linguistic: a10, A2, B0, b1), so its
// ORDER BY is told to compare text columns by code point, with missing values first as SQLite puts them.
QString CConnection::inStoredOrder(const QString &sql) const
{
    if (m_engine != Engine::PostgreSQL) {
        return sql;
    }
    static const QRegularExpression orderBy(u"\\border\\s+by\\s+"_s, QRegularExpression::CaseInsensitiveOption);
    QRegularExpressionMatch last;
    for (auto it = orderBy.globalMatch(sql); it.hasNext();) {
        last = it.next();
    }
    if (!last.hasMatch()) {
        return sql;
    }
    QStringList terms;
    for (const QString &term : sql.mid(last.capturedEnd()).split(u',')) {
        const QString column = term.trimmed();
        const int index = CItem::columnIndex(column);
        if (index < 0) {
            return sql; // an expression or a direction: left as written
        }
        const bool text = CItem::columns()[std::size_t(index)].type == CItem::ColumnType::Text;
        terms.append(column + (text ? u" COLLATE \"C\""_s : QString()) + u" NULLS FIRST"_s);
    }
    return sql.left(last.capturedEnd()) + terms.join(u',');
}
