#include "changefeed.h"

#include "cconnection.h"
#include "postgreshandle.h"

#include <QSqlDriver>
#include <QSqlQuery>

#include <libpq-fe.h>

using namespace Qt::StringLiterals;

namespace {

constexpr qint64 kPruneEveryMs = 60 * 60 * 1000;
constexpr qint64 kRetryEveryMs = 2000;

// Clears a flag when the scope ends, however it ends.
struct BusyScope
{
    explicit BusyScope(bool &flag)
        : flag(flag)
    {
        flag = true;
    }
    ~BusyScope() { flag = false; }
    Q_DISABLE_COPY_MOVE(BusyScope)
    bool &flag;
};

} // namespace

ChangeFeed::ChangeFeed(const std::shared_ptr<CConnection> &connection, QObject *parent)
    : QObject(parent)
    , m_connection(connection)
{
    m_timer.setInterval(100);
    connect(&m_timer, &QTimer::timeout, this, &ChangeFeed::tick);
}

ChangeFeed::~ChangeFeed()
{
    stop();
}

void ChangeFeed::setInterval(int milliseconds)
{
    m_timer.setInterval(milliseconds);
}

bool ChangeFeed::start(QString *error)
{
    stop();
    const auto fail = [&](const QString &message) {
        if (error) {
            *error = message;
        }
        return false;
    };
    if (!m_connection || !m_connection->isOpen()) {
        return fail(u"没有数据库连接"_s);
    }
    try {
        if (!ChangeLog::isInstalled(*m_connection)) {
            try {
                ChangeLog::ensure(*m_connection);
            } catch (const DbError &) {
                // A database opened read-only keeps what it has; with a change table it is still followed.
            }
        }
        if (!m_connection->hasTable(QString::fromLatin1(ChangeLog::kTable))) {
            return fail(u"数据库中没有变更记录表 T_ChangeLog,无法获知其他用户的修改"_s);
        }
        m_position = ChangeLog::lastSeq(*m_connection);
        m_commits = m_connection->commitCount();
        if (m_connection->engine() == CConnection::Engine::SQLite) {
            m_dataVersion = -1;
            sqliteChanged();
        } else {
            listen();
        }
    } catch (const DbError &e) {
        return fail(e.message());
    }
    try {
        ChangeLog::prune(*m_connection);
    } catch (const DbError &) {
        // Another seat prunes; a read-only one never does.
    }
    m_sincePrune.start();
    m_active = true;
    m_lost = false;
    m_pending = false;
    m_timer.start();
    return true;
}

void ChangeFeed::stop()
{
    m_timer.stop();
    if (m_active && m_connection && m_connection->engine() == CConnection::Engine::PostgreSQL
        && m_connection->isOpen()) {
        QSqlDriver *driver = m_connection->database().driver();
        disconnect(driver, nullptr, this, nullptr);
        driver->unsubscribeFromNotification(QString::fromLatin1(ChangeLog::kChannel));
    }
    m_active = false;
}

void ChangeFeed::listen()
{
    QSqlDriver *driver = m_connection->database().driver();
    const QString channel = QString::fromLatin1(ChangeLog::kChannel);
    if (!driver->subscribedToNotifications().contains(channel) && !driver->subscribeToNotification(channel)) {
        throw DbError(u"无法订阅数据库通知 "_s + channel);
    }
    disconnect(driver, nullptr, this, nullptr);
    connect(driver, &QSqlDriver::notification, this,
            [this](const QString &name, QSqlDriver::NotificationSource source, const QVariant &) {
                // Our own commits are in the lists already.
                if (name == QLatin1StringView(ChangeLog::kChannel) && source != QSqlDriver::SelfSource) {
                    m_pending = true;
                    tick();
                }
            });
}

void ChangeFeed::poll()
{
    m_pending = true;
    tick();
}

void ChangeFeed::tick()
{
    if (!m_active || m_busy || !m_connection) {
        return;
    }
    if (m_connection->transactionDepth() > 0) {
        // The seat is in the middle of its own work (a question asked inside a save); the next tick looks.
        return;
    }
    if (m_lost) {
        if (m_sinceRetry.elapsed() >= kRetryEveryMs) {
            m_sinceRetry.start();
            if (reconnect()) {
                m_lost = false;
                Q_EMIT restored();
                m_pending = true;
            }
        }
        if (m_lost) {
            return;
        }
    }
    // The seat's own commits: writes that passed by its lists (another collection, a copy) reach them as any
    // other seat's would, at the next look; what the lists hold already is left alone.
    const quint64 commits = m_connection->commitCount();
    bool look = m_pending || commits != m_commits;
    m_commits = commits;
    try {
        look = (m_connection->engine() == CConnection::Engine::SQLite ? sqliteChanged() : postgresNotified()) || look;
        if (look) {
            read();
        }
    } catch (const DbError &e) {
        m_lost = true;
        m_pending = true;
        m_sinceRetry.start();
        Q_EMIT connectionLost(e.message());
        return;
    }
    if (m_sincePrune.elapsed() >= kPruneEveryMs) {
        m_sincePrune.start();
        try {
            ChangeLog::prune(*m_connection);
        } catch (const DbError &) { }
    }
}

bool ChangeFeed::sqliteChanged()
{
    // Changes when another connection commits to the file; our own commits leave it.
    QSqlQuery q = m_connection->Select(u"PRAGMA data_version"_s);
    if (!CConnection::next(q)) {
        throw DbError(u"无法读取数据库版本"_s);
    }
    const qint64 version = q.value(0).toLongLong();
    const bool changed = m_dataVersion >= 0 && version != m_dataVersion;
    m_dataVersion = version;
    return changed;
}

bool ChangeFeed::postgresNotified()
{
    PGconn *pg = postgresHandle(*m_connection);
    if (!pg) {
        throw DbError(u"与数据库服务器的连接已断开"_s);
    }
    // Notices the driver read along with a result wait in libpq's queue without waking anybody.
    if (PQconsumeInput(pg) == 0 || PQstatus(pg) != CONNECTION_OK) {
        throw DbError(u"与数据库服务器的连接已断开: "_s + QString::fromUtf8(PQerrorMessage(pg)).trimmed());
    }
    bool notified = false;
    const int self = PQbackendPID(pg);
    while (PGnotify *notice = PQnotifies(pg)) {
        if (notice->be_pid != self && qstrcmp(notice->relname, ChangeLog::kChannel) == 0) {
            notified = true;
        }
        PQfreemem(notice);
    }
    return notified;
}

bool ChangeFeed::reconnect()
{
    try {
        if (m_connection->engine() == CConnection::Engine::PostgreSQL) {
            if (!m_connection->Reopen()) {
                return false;
            }
            listen();
        }
        ChangeLog::lastSeq(*m_connection);
        return true;
    } catch (const DbError &) {
        return false;
    }
}

void ChangeFeed::read()
{
    BusyScope busy(m_busy);
    m_pending = false;
    QList<ItemChange> changes = ChangeLog::read(*m_connection, m_position, kBatchLimit + 2);
    // The row of our position comes back first unless the rows after it were pruned; with no position yet the
    // table must start at its first row.
    bool missed = false;
    if (m_position > 0) {
        if (changes.isEmpty() || changes.first().seq != m_position) {
            missed = true;
        } else {
            changes.removeFirst();
        }
    } else if (!changes.isEmpty() && changes.first().seq != 1) {
        missed = true;
    }
    if (missed || changes.size() > kBatchLimit) {
        m_position = ChangeLog::lastSeq(*m_connection);
        Q_EMIT reloadNeeded();
        return;
    }
    if (changes.isEmpty()) {
        return;
    }
    m_position = changes.last().seq;
    Q_EMIT changed(changes);
}
