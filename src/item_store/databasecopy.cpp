#include "databasecopy.h"
#include "postgreshandle.h"
#include "sqlitehandle.h"

#include "cconnection.h"
#include "changelog.h"
#include "citem.h"
#include "currency.h"
#include "keyid.h"
#include "sqlvalue.h"

#include <QDate>
#include <QDateTime>
#include <QSet>
#include <QSqlDriver>
#include <QSqlError>
#include <QSqlField>
#include <QSqlQuery>
#include <QSqlRecord>
#include <cmath>
#include <limits>
#include <memory>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <libpq-fe.h>
#include <mutex>
#include <sqlite3.h>
#include <sys/socket.h>
#include <thread>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

constexpr int kPageRows = 20000;
constexpr int kBatchRows = 200;

// Text: a text column of T_Item, whose missing value is stored as '' as the program stores it.
enum class Kind { Plain, Text, Amount, Date, Flag, Int32, Int16 };

Kind kindOf(const QString &column)
{
    static const QSet<QString> amounts {u"f_owewarring"_s, u"f_owestop"_s, u"f_price1"_s, u"f_price2"_s,
                                        u"f_price3"_s,     u"f_price4"_s,  u"f_price"_s,  u"f_amount"_s};
    static const QSet<QString> dates {u"f_date"_s, u"f_time1"_s, u"f_time2"_s};
    const QString lower = column.toLower();
    if (amounts.contains(lower)) {
        return Kind::Amount;
    }
    if (dates.contains(lower)) {
        return Kind::Date;
    }
    if (lower == u"f_isspecial"_s) {
        return Kind::Flag;
    }
    static const QSet<QString> int32 {u"f_id"_s,        u"f_parentid"_s, u"f_tag1"_s,     u"f_tag2"_s,
                                      u"f_tag3"_s,      u"f_tag4"_s,     u"f_tag5"_s,     u"f_tag6"_s,
                                      u"f_orderbyid"_s, u"f_goodsid"_s,  u"f_clientid"_s, u"f_clienttypeid"_s};
    if (int32.contains(lower)) {
        return Kind::Int32;
    }
    if (lower == u"f_itemtypeid"_s) {
        return Kind::Int16;
    }
    return Kind::Plain;
}

// A whole number of the program's 32- or 16-bit columns; anything else is refused, not cut to size (a key above
// 2^31 would otherwise take the key counter with it).
qint64 integerOf(const QVariant &value, Kind kind)
{
    const qint64 low = kind == Kind::Int16 ? std::numeric_limits<qint16>::min() : std::numeric_limits<qint32>::min();
    const qint64 high = kind == Kind::Int16 ? std::numeric_limits<qint16>::max() : std::numeric_limits<qint32>::max();
    bool ok = false;
    qint64 n = 0;
    switch (value.typeId()) {
    case QMetaType::Bool:
        n = value.toBool() ? 1 : 0;
        ok = true;
        break;
    case QMetaType::Int:
    case QMetaType::LongLong:
    case QMetaType::Short:
        n = value.toLongLong();
        ok = true;
        break;
    case QMetaType::UInt:
    case QMetaType::ULongLong:
        ok = value.toULongLong() <= quint64(std::numeric_limits<qint64>::max());
        n = ok ? qint64(value.toULongLong()) : high + 1;
        ok = true;
        break;
    case QMetaType::Double:
    case QMetaType::Float: {
        const double d = value.toDouble();
        ok = std::isfinite(d) && std::trunc(d) == d;
        n = ok && std::abs(d) < 9e18 ? qint64(d) : high + 1;
        break;
    }
    default:
        n = value.toString().trimmed().toLongLong(&ok);
        break;
    }
    if (!ok) {
        throw DbError(u"["_s + value.toString() + u"] 不是整数"_s);
    }
    if (n < low || n > high) {
        throw DbError(u"["_s + value.toString() + u"] 超出了 "_s + (kind == Kind::Int16 ? u"16"_s : u"32"_s)
                      + u" 位整数的范围"_s);
    }
    return n;
}

// The date a value means, or NULL for an empty text; a form that does not say one day for certain is refused.
std::optional<QDateTime> dateOf(const QVariant &value)
{
    if (value.isNull()
        || ((value.typeId() == QMetaType::QString || value.typeId() == QMetaType::QByteArray)
            && value.toString().trimmed().isEmpty())) {
        return std::nullopt;
    }
    const std::optional<QDateTime> when = SqlValue::certainDateTime(value);
    if (!when) {
        throw DbError(u"["_s + value.toString()
                      + u"] 不是能确定的日期(日月顺序不明或是一个数字);请改成 2024-01-05 这样的形式"_s);
    }
    return when;
}

// Which value a refusal is about, for the user to find it.
QString whereIn(const QString &table, const QVariant &key, const QString &column)
{
    // A server folds the names to lower case; the user knows them as the program spells them.
    QString name = column;
    for (const CItem::Column &known : CItem::columns()) {
        if (known.name.compare(column, Qt::CaseInsensitive) == 0) {
            name = known.name;
        }
    }
    for (const QString &known : {u"F_GoodsID"_s, u"F_ClientID"_s, u"F_ClientTypeID"_s, u"F_Price"_s, u"F_Amount"_s}) {
        if (known.compare(column, Qt::CaseInsensitive) == 0) {
            name = known;
        }
    }
    return u"表 "_s + table + u" 中 F_ID 为 "_s + key.toString() + u" 的行, "_s + name + u" 列: "_s;
}

// A value read from the source as the value it means, in the target's form.
QVariant carry(const QVariant &value, Kind kind, const CConnection &to)
{
    if (value.isNull()) {
        // Older programs left empty texts NULL, which the engines sort at opposite ends of a list.
        return kind == Kind::Text ? QVariant(QString(u""_s)) : value;
    }
    switch (kind) {
    case Kind::Amount: {
        std::optional<Currency> amount;
        if (value.typeId() == QMetaType::QString || value.typeId() == QMetaType::QByteArray) {
            amount = Currency::fromString(value.toString().trimmed());
        } else {
            amount = Currency::fromDouble(value.toDouble());
        }
        if (!amount) {
            throw DbError(u"无法识别的金额: "_s + value.toString());
        }
        return to.toSqlValue(QVariant::fromValue(*amount));
    }
    case Kind::Date: {
        const std::optional<QDateTime> when = dateOf(value);
        if (!when) {
            return QVariant();
        }
        return when->time() == QTime(0, 0) ? to.toSqlValue(when->date()) : to.toSqlValue(*when);
    }
    case Kind::Int32:
    case Kind::Int16:
        return QVariant(integerOf(value, kind));
    case Kind::Flag:
        return to.toSqlValue(value.typeId() == QMetaType::Bool ? value.toBool() : value.toLongLong() != 0);
    case Kind::Text:
    case Kind::Plain:
        break;
    }
    return value;
}

QString insertStatement(const QString &table, const QStringList &columns, int rows)
{
    const QString one = u"("_s + QString(u",?"_s).repeated(int(columns.size())).mid(1) + u")"_s;
    QString sql = u"INSERT INTO "_s + table + u" ("_s + columns.join(u',') + u") VALUES "_s;
    sql.reserve(sql.size() + rows * (one.size() + 1));
    for (int r = 0; r < rows; ++r) {
        if (r > 0) {
            sql += u',';
        }
        sql += one;
    }
    return sql;
}

// Backslash, tab and line ends escaped as COPY's text format wants them.
void appendEscaped(QByteArray &out, const char *text, int length)
{
    for (int i = 0; i < length; ++i) {
        const char c = text[i];
        switch (c) {
        case '\\':
            out += "\\\\";
            break;
        case '\t':
            out += "\\t";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        default:
            out += c;
        }
    }
}

// COPY's text format of a value already in the target's form.
void appendCopyText(QByteArray &out, const QVariant &value)
{
    if (value.isNull()) {
        out += "\\N";
        return;
    }
    switch (value.typeId()) {
    case QMetaType::Bool:
        out += value.toBool() ? 't' : 'f';
        return;
    case QMetaType::Int:
    case QMetaType::LongLong:
    case QMetaType::UInt:
    case QMetaType::ULongLong:
        out += QByteArray::number(value.toLongLong());
        return;
    case QMetaType::Double:
    case QMetaType::Float:
        out += QByteArray::number(value.toDouble(), 'g', 17);
        return;
    case QMetaType::QDate:
        out += value.toDate().toString(Qt::ISODate).toLatin1();
        return;
    case QMetaType::QDateTime:
        out += value.toDateTime().toString(u"yyyy-MM-dd HH:mm:ss.zzz"_s).toLatin1();
        return;
    default:
        break;
    }
    const QByteArray text = value.toString().toUtf8();
    appendEscaped(out, text.constData(), int(text.size()));
}

// Streams rows into a table with COPY ... FROM STDIN, the fastest way into PostgreSQL.
// A server that stops answering (a frozen backend, a host that vanished behind a live TCP peer) would leave a
// copy waiting for ever: libpq has no time limit of its own. Every step of the copy re-arms this watchdog; when a
// step takes longer than its limit, the sockets are shut down, so the waiting call returns with an error.
class StallWatchdog
{
public:
    StallWatchdog(std::vector<PGconn *> connections, std::chrono::milliseconds limit)
        : m_connections(std::move(connections))
        , m_limit(limit)
    {
        if (m_connections.empty() || m_limit.count() <= 0) {
            return;
        }
        m_deadline = Clock::now() + m_limit;
        m_thread = std::thread([this] { watch(); });
    }
    ~StallWatchdog()
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
    Q_DISABLE_COPY_MOVE(StallWatchdog)

    /// Starts a new step, which may take the limit plus `extra` (for steps that grow with the data).
    void step(std::chrono::milliseconds extra = std::chrono::milliseconds(0))
    {
        const std::lock_guard lock(m_mutex);
        m_deadline = Clock::now() + m_limit + extra;
    }
    bool expired() const { return m_expired.load(); }
    std::chrono::milliseconds limit() const { return m_limit; }

private:
    using Clock = std::chrono::steady_clock;
    void watch()
    {
        std::unique_lock lock(m_mutex);
        while (!m_stop) {
            if (Clock::now() >= m_deadline) {
                m_expired = true;
                for (PGconn *pg : m_connections) {
                    ::shutdown(PQsocket(pg), SHUT_RDWR);
                }
                return;
            }
            m_wake.wait_until(lock, m_deadline);
        }
    }

    std::vector<PGconn *> m_connections;
    std::chrono::milliseconds m_limit;
    std::mutex m_mutex;
    std::condition_variable m_wake;
    Clock::time_point m_deadline;
    bool m_stop = false;
    std::atomic<bool> m_expired {false};
    std::thread m_thread;
};

class CopyIn
{
public:
    CopyIn(PGconn *pg, const QString &table, const QStringList &columns, StallWatchdog &watchdog)
        : m_pg(pg)
        , m_watchdog(watchdog)
    {
        const QByteArray sql = (u"COPY "_s + table + u" ("_s + columns.join(u',') + u") FROM STDIN"_s).toUtf8();
        PGresult *result = PQexec(pg, sql.constData());
        const bool ok = PQresultStatus(result) == PGRES_COPY_IN;
        const QString error = QString::fromUtf8(PQresultErrorMessage(result));
        PQclear(result);
        if (!ok) {
            throw DbError(u"COPY 失败: "_s + error);
        }
        m_buffer.reserve(1 << 20);
    }
    ~CopyIn()
    {
        if (!m_finished) {
            // Abandon the copy, so the connection is usable for the rollback.
            PQputCopyEnd(m_pg, "abandoned");
            while (PGresult *result = PQgetResult(m_pg)) {
                PQclear(result);
            }
        }
    }
    Q_DISABLE_COPY_MOVE(CopyIn)

    void addRow(const QVariantList &values)
    {
        for (qsizetype i = 0; i < values.size(); ++i) {
            if (i > 0) {
                m_buffer += '\t';
            }
            appendCopyText(m_buffer, values.at(i));
        }
        m_buffer += '\n';
        if (m_buffer.size() >= (1 << 20)) {
            send();
        }
    }
    /// One row already in COPY's text form, without the line end.
    void addLine(const QByteArray &line)
    {
        m_buffer += line;
        m_buffer += '\n';
        if (m_buffer.size() >= (1 << 20)) {
            send();
        }
    }
    void finish()
    {
        send();
        m_finished = true;
        if (PQputCopyEnd(m_pg, nullptr) != 1) {
            throw DbError(u"COPY 失败: "_s + QString::fromUtf8(PQerrorMessage(m_pg)));
        }
        QString error;
        while (PGresult *result = PQgetResult(m_pg)) {
            if (PQresultStatus(result) != PGRES_COMMAND_OK) {
                error = QString::fromUtf8(PQresultErrorMessage(result));
            }
            PQclear(result);
        }
        if (!error.isEmpty()) {
            throw DbError(u"COPY 失败: "_s + error);
        }
    }

private:
    void send()
    {
        m_watchdog.step();
        if (!m_buffer.isEmpty() && PQputCopyData(m_pg, m_buffer.constData(), int(m_buffer.size())) != 1) {
            throw DbError(u"COPY 失败: "_s + QString::fromUtf8(PQerrorMessage(m_pg)));
        }
        m_buffer.truncate(0); // keeps the allocation for the next block
    }

    PGconn *m_pg;
    StallWatchdog &m_watchdog;
    QByteArray m_buffer;
    bool m_finished = false;
};

// The secondary indexes of a table as name and creating statement.
QList<QPair<QString, QString>> secondaryIndexes(CConnection &connection, const QString &table)
{
    QList<QPair<QString, QString>> indexes;
    QSqlQuery q = connection.engine() == CConnection::Engine::PostgreSQL
        ? connection.Select(u"SELECT indexname, indexdef FROM pg_indexes WHERE schemaname = current_schema() "
                            "AND tablename = ? AND indexname NOT IN (SELECT conname FROM pg_constraint)"_s,
                            {table.toLower()})
        : connection.Select(u"SELECT name, sql FROM sqlite_master WHERE type = 'index' AND lower(tbl_name) = ? "
                            "AND sql IS NOT NULL"_s,
                            {table.toLower()});
    while (CConnection::next(q)) {
        indexes.append({q.value(0).toString(), q.value(1).toString()});
    }
    return indexes;
}

// SQLite to PostgreSQL, the move of a growing shop: rows go from SQLite's own cursor straight into COPY text,
// without the cost of a QVariant per value.
qint64 streamSqliteToCopy(sqlite3 *db, const QString &select, const QVariantList &params, const QList<Kind> &kinds,
                          CopyIn &copy, const CConnection &to, const QString &table, const QStringList &columns,
                          qsizetype keyColumn)
{
    // A value of the column as a variant, for the checks of the unusual cases.
    auto variantOf = [](sqlite3_stmt *statement, int c) -> QVariant {
        switch (sqlite3_column_type(statement, c)) {
        case SQLITE_INTEGER:
            return QVariant(qint64(sqlite3_column_int64(statement, c)));
        case SQLITE_FLOAT:
            return QVariant(sqlite3_column_double(statement, c));
        case SQLITE_NULL:
            return QVariant();
        default:
            return QVariant(QString::fromUtf8(reinterpret_cast<const char *>(sqlite3_column_text(statement, c)),
                                              sqlite3_column_bytes(statement, c)));
        }
    };
    sqlite3_stmt *statement = nullptr;
    const QByteArray sql = select.toUtf8();
    if (sqlite3_prepare_v2(db, sql.constData(), int(sql.size()), &statement, nullptr) != SQLITE_OK) {
        throw DbError(QString::fromUtf8(sqlite3_errmsg(db)));
    }
    const std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt *)> guard(statement, sqlite3_finalize);
    for (qsizetype i = 0; i < params.size(); ++i) {
        const QVariant &param = params.at(i);
        const int index = int(i) + 1;
        if (param.typeId() == QMetaType::QString) {
            const QByteArray text = param.toString().toUtf8();
            sqlite3_bind_text(statement, index, text.constData(), int(text.size()), SQLITE_TRANSIENT);
        } else {
            sqlite3_bind_int64(statement, index, param.toLongLong());
        }
    }
    QByteArray row;
    qint64 rows = 0;
    int step;
    while ((step = sqlite3_step(statement)) == SQLITE_ROW) {
        row.truncate(0);
        for (int c = 0; c < kinds.size(); ++c) {
            if (c > 0) {
                row += '\t';
            }
            const int type = sqlite3_column_type(statement, c);
            if (type == SQLITE_NULL) {
                if (kinds[c] != Kind::Text) {
                    row += "\\N";
                }
                continue;
            }
            const Kind kind = kinds[c];
            if (kind == Kind::Date || ((kind == Kind::Int32 || kind == Kind::Int16) && type != SQLITE_INTEGER)
                || ((kind == Kind::Int32 || kind == Kind::Int16)
                    && (sqlite3_column_int64(statement, c) < std::numeric_limits<qint32>::min()
                        || sqlite3_column_int64(statement, c) > std::numeric_limits<qint32>::max()
                        || kind == Kind::Int16))) {
                try {
                    appendCopyText(row, carry(variantOf(statement, c), kind, to));
                } catch (const DbError &e) {
                    throw DbError(whereIn(table, variantOf(statement, int(keyColumn)), columns[c]) + e.message());
                }
                continue;
            }
            if (kind == Kind::Flag) {
                row += sqlite3_column_int64(statement, c) != 0 ? 't' : 'f';
            } else if (type == SQLITE_INTEGER) {
                row += QByteArray::number(sqlite3_column_int64(statement, c));
            } else if (type == SQLITE_FLOAT) {
                const double value = sqlite3_column_double(statement, c);
                if (kind == Kind::Amount) {
                    const std::optional<Currency> amount = Currency::fromDouble(value);
                    if (!amount) {
                        throw DbError(u"无法识别的金额: "_s + QString::number(value));
                    }
                    row += amount->toString().toLatin1();
                } else {
                    row += QByteArray::number(value, 'g', 17);
                }
            } else {
                const auto *text = reinterpret_cast<const char *>(sqlite3_column_text(statement, c));
                appendEscaped(row, text, sqlite3_column_bytes(statement, c));
            }
        }
        copy.addLine(row);
        ++rows;
    }
    if (step != SQLITE_DONE) {
        throw DbError(QString::fromUtf8(sqlite3_errmsg(db)));
    }
    return rows;
}

qint64 copyTable(CConnection &from, CConnection &to, const DatabaseCopy::Table &table,
                 const DatabaseCopy::Progress &progress, StallWatchdog &watchdog)
{
    const QSqlRecord source = from.tableRecord(table.name);
    const QSqlRecord target = to.tableRecord(table.name);
    if (source.isEmpty()) {
        throw DbError(u"源数据库中没有表 "_s + table.name);
    }
    if (target.isEmpty()) {
        throw DbError(u"目标数据库中没有表 "_s + table.name);
    }
    // The columns both sides have, in the source's order.
    QStringList columns;
    QList<Kind> kinds;
    for (int i = 0; i < source.count(); ++i) {
        const QString name = source.fieldName(i);
        for (int k = 0; k < target.count(); ++k) {
            if (target.fieldName(k).compare(name, Qt::CaseInsensitive) == 0) {
                columns.append(target.fieldName(k));
                Kind kind = kindOf(name);
                if (kind == Kind::Plain && table.name.compare(u"T_Item"_s, Qt::CaseInsensitive) == 0) {
                    const int column = CItem::columnIndex(name);
                    if (column >= 0 && CItem::columns()[std::size_t(column)].type == CItem::ColumnType::Text) {
                        kind = Kind::Text;
                    }
                }
                kinds.append(kind);
                break;
            }
        }
    }
    qsizetype keyColumn = -1;
    for (qsizetype i = 0; i < columns.size(); ++i) {
        if (columns[i].compare(u"F_ID"_s, Qt::CaseInsensitive) == 0) {
            keyColumn = i;
        }
    }
    if (keyColumn < 0) {
        throw DbError(u"表 "_s + table.name + u" 没有 F_ID 列"_s);
    }

    const QString condition = table.where.isEmpty() ? QString() : u" AND ("_s + table.where + u")"_s;
    to.Execute(u"DELETE FROM "_s + table.name + (table.where.isEmpty() ? QString() : u" WHERE "_s + table.where),
               table.params);
    // A whole table loads several times faster without its secondary indexes, which are built again at the end
    // (inside the same transaction, so a failure brings them back as they were).
    QList<QPair<QString, QString>> indexes;
    if (table.where.isEmpty()) {
        indexes = secondaryIndexes(to, table.name);
        for (const auto &[name, definition] : std::as_const(indexes)) {
            to.Execute(u"DROP INDEX "_s + name);
        }
    }

    // PostgreSQL takes the rows through COPY; other engines through multi-row INSERT statements.
    std::unique_ptr<CopyIn> copyIn;
    if (PGconn *pg = postgresHandle(to)) {
        copyIn = std::make_unique<CopyIn>(pg, table.name, columns, watchdog);
    }
    // The end of either path: rows flushed, indexes back, keys reseeded.
    auto finish = [&](qint64 rows) {
        // Building the indexes again takes time in proportion to the rows.
        watchdog.step(std::chrono::milliseconds(rows / 10));
        if (copyIn) {
            copyIn->finish();
        }
        for (const auto &[name, definition] : std::as_const(indexes)) {
            to.Execute(definition);
        }
        Module1::ReseedKeyID(to, table.name);
        if (progress) {
            progress(table.name, rows);
        }
        return rows;
    };
    QSqlQuery insertFull(to.database());
    if (!copyIn && !insertFull.prepare(insertStatement(table.name, columns, kBatchRows))) {
        throw DbError(insertFull.lastError().text());
    }
    QVariantList pending;
    pending.reserve(kBatchRows * columns.size());
    qint64 copied = 0;
    auto flush = [&](int rows) {
        if (copyIn) {
            copyIn->addRow(pending);
            pending.clear();
            return;
        }
        QSqlQuery partial(to.database());
        QSqlQuery &insert = rows == kBatchRows ? insertFull : partial;
        if (rows != kBatchRows && !partial.prepare(insertStatement(table.name, columns, rows))) {
            throw DbError(partial.lastError().text());
        }
        for (qsizetype i = 0; i < pending.size(); ++i) {
            insert.bindValue(int(i), pending.at(i));
        }
        if (!insert.exec()) {
            throw DbError(u"写入表 "_s + table.name + u" 失败: "_s + insert.lastError().text());
        }
        pending.clear();
    };

    if (sqlite3 *source = sqliteHandle(from); source && copyIn) {
        const qint64 rows = streamSqliteToCopy(source,
                                               u"SELECT "_s + columns.join(u',') + u" FROM "_s + table.name
                                                   + (table.where.isEmpty() ? QString() : u" WHERE "_s + table.where)
                                                   + u" ORDER BY F_ID"_s,
                                               table.params, kinds, *copyIn, to, table.name, columns, keyColumn);
        return finish(rows);
    }

    // Pages in key order: neither engine has to hold the whole table in memory.
    const QString select = u"SELECT "_s + columns.join(u',') + u" FROM "_s + table.name + u" WHERE F_ID >= ?"_s
        + condition + u" ORDER BY F_ID LIMIT "_s + QString::number(kPageRows);
    // Keys are 32-bit: the bound must fit the column's type on PostgreSQL.
    qint64 nextKey = std::numeric_limits<qint32>::min();
    for (;;) {
        watchdog.step();
        QSqlQuery page(from.database());
        page.setForwardOnly(true);
        if (from.engine() == CConnection::Engine::PostgreSQL) {
            // NUMERIC as exact text: an amount of 19 digits does not survive a double.
            page.setNumericalPrecisionPolicy(QSql::HighPrecision);
        }
        if (!page.prepare(select)) {
            throw DbError(page.lastError().text());
        }
        page.addBindValue(nextKey);
        for (const QVariant &param : table.params) {
            page.addBindValue(from.toSqlValue(param));
        }
        if (!page.exec()) {
            throw DbError(u"读取表 "_s + table.name + u" 失败: "_s + page.lastError().text());
        }
        int rowsInPage = 0;
        while (CConnection::next(page)) {
            ++rowsInPage;
            for (qsizetype c = 0; c < columns.size(); ++c) {
                try {
                    pending.append(carry(page.value(int(c)), kinds[c], to));
                } catch (const DbError &e) {
                    throw DbError(whereIn(table.name, page.value(int(keyColumn)), columns[c]) + e.message());
                }
            }
            nextKey = page.value(int(keyColumn)).toLongLong() + 1;
            ++copied;
            if (copyIn) {
                flush(1);
            } else if (pending.size() == kBatchRows * columns.size()) {
                flush(kBatchRows);
            }
        }
        if (rowsInPage < kPageRows) {
            break;
        }
        if (progress) {
            progress(table.name, copied);
        }
    }
    if (!pending.isEmpty()) {
        flush(int(pending.size() / columns.size()));
    }
    return finish(copied);
}

} // namespace

DatabaseCopy::Result DatabaseCopy::copy(CConnection &from, CConnection &to, const QList<Table> &tables,
                                        const Progress &progress, std::chrono::milliseconds stallLimit)
{
    Result result;
    if (from.sameDatabaseAs(to)) {
        // Copying a database onto itself would delete what it is about to read (and on a server waits for its
        // own lock for ever).
        result.error = u"源数据库和目标数据库是同一个数据库"_s;
        return result;
    }
    std::vector<PGconn *> servers;
    for (CConnection *connection : {&from, &to}) {
        if (PGconn *pg = postgresHandle(*connection)) {
            servers.push_back(pg);
        }
    }
    StallWatchdog watchdog(servers, stallLimit);
    // A copy of a large store runs single statements (COPY, DELETE) longer than a save's limit; its own watchdog
    // looks after a server that stops answering.
    struct NoStatementLimit
    {
        std::vector<CConnection *> connections;
        explicit NoStatementLimit(std::initializer_list<CConnection *> all)
        {
            for (CConnection *connection : all) {
                if (postgresHandle(*connection)) {
                    try {
                        connection->Execute(u"SET statement_timeout = 0"_s);
                        connections.push_back(connection);
                    } catch (const DbError &) {
                        // The copy reports what is wrong with the connection.
                    }
                }
            }
        }
        ~NoStatementLimit()
        {
            for (CConnection *connection : connections) {
                try {
                    connection->Execute(u"SET statement_timeout = "_s
                                        + QString::number(CConnection::statementTimeout()));
                } catch (const DbError &) {
                    // A failed transaction takes the setting back with it.
                }
            }
        }
        Q_DISABLE_COPY_MOVE(NoStatementLimit)
    } noStatementLimit {&from, &to};
    try {
        CTransaction transaction(to);
        // The change triggers would note every copied row; seats are told once to reload instead. The
        // triggers come back inside the same transaction, so a failure leaves them as they were.
        bool noted = false;
        for (const Table &table : tables) {
            const bool suspended = ChangeLog::suspendTriggers(to, table.name);
            result.rows.append({table.name, copyTable(from, to, table, progress, watchdog)});
            if (suspended) {
                ChangeLog::restoreTriggers(to, table.name);
                noted = true;
            }
        }
        if (noted) {
            ChangeLog::noteReload(to, 0);
        }
        watchdog.step();
        transaction.Commit();
        result.ok = true;
    } catch (const DbError &e) {
        result.error = e.message();
        result.rows.clear();
    }
    if (watchdog.expired()) {
        result.ok = false;
        result.rows.clear();
        result.error = u"数据库服务器 "_s + QString::number(watchdog.limit().count() / 1000.0)
            + u" 秒没有应答,复制已中止,目标数据库保持原样"_s;
    }
    return result;
}

DatabaseCopy::Result DatabaseCopy::copyTables(CConnection &from, CConnection &to, const QStringList &tables)
{
    QList<Table> list;
    for (const QString &table : tables) {
        list.append({table, QString(), {}});
    }
    return copy(from, to, list);
}

qint64 DatabaseCopy::rowsIn(CConnection &connection, const QStringList &tables)
{
    qint64 rows = 0;
    for (const QString &table : tables) {
        if (!connection.hasTable(table)) {
            continue;
        }
        QSqlQuery q = connection.Select(u"SELECT COUNT(*) FROM "_s + table);
        if (CConnection::next(q)) {
            rows += q.value(0).toLongLong();
        }
    }
    return rows;
}

QStringList DatabaseCopy::MasterTables()
{
    return {QStringLiteral("T_Item"), QStringLiteral("T_GoodsPrice"), QStringLiteral("T_GoodsInOutList")};
}
