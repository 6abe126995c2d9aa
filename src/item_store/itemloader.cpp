#include "itemloader.h"

#include "cconnection.h"
#include "crecordset.h"
#include "dberror.h"
#include "itemrowsource.h"
#include "postgreshandle.h"

#include <QByteArrayView>
#include <QCoreApplication>
#include <QDate>
#include <QDateTime>
#include <QElapsedTimer>
#include <QLoggingCategory>
#include <QSqlDatabase>
#include <QThread>
#include <QTimer>
#include <QtNumeric>

#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

// "quillon.load.debug=true" in QT_LOGGING_RULES tells how each list was read and how long it took.
Q_LOGGING_CATEGORY(lcLoad, "quillon.load", QtWarningMsg)

constexpr qint64 kReportEveryMs = 50;
constexpr qint64 kFirstReportAfter = 1024;
constexpr int kBatchRows = 1024;
constexpr std::size_t kBatchesInFlight = 8;
constexpr std::size_t kItemColumns = 38;

using Positions = std::array<int, kItemColumns>;

// Positions of the item's columns among a statement's columns: a name given twice counts where it comes last, as
// the driver's cursor does.
template<typename NameOf>
Positions mapColumns(int count, NameOf nameOf)
{
    Positions positions;
    positions.fill(-1);
    for (int c = 0; c < count; ++c) {
        const int column = CItem::columnIndex(nameOf(c));
        if (column >= 0 && std::size_t(column) < positions.size()) {
            positions[std::size_t(column)] = c;
        }
    }
    return positions;
}

// A PostgreSQL timestamp's text as Qt's driver reads it: the wall-clock time, with the zone when the text has one.
QDateTime postgresDateTime(QString text)
{
    if (text.size() < 10) {
        return QDateTime();
    }
    const QChar sign = text.at(text.size() - 3);
    if (sign == u'+' || sign == u'-') {
        text += u":00"_s;
    }
    return QDateTime::fromString(text, Qt::ISODate);
}

// One column of a row as the engine delivered it, kept until a decoder makes the item's value of it.
struct RawCell
{
    // Date and DateTime: the text of a PostgreSQL date or timestamp; Bool: integer 0 or 1 of a boolean.
    enum Kind : quint8 { Null, Integer, Real, Text, Blob, Bool, Date, DateTime } kind = Null;
    qint64 integer = 0; // Integer
    double real = 0; // Real
    quint32 offset = 0; // Text, Blob: bytes in the batch
    quint32 size = 0;
};

// Rows read from the engine and, once decoded, their items. Text bytes of all rows share one buffer.
struct RawBatch
{
    enum class State { Filled, Decoding, Decoded } state = State::Filled;
    int rows = 0;
    std::vector<RawCell> cells; // kItemColumns a row
    std::string bytes;
    std::vector<CItemPtr> items;
    ItemLoader::Partial partial;
};

// A stored row in the values Qt's SQLite driver makes of it: integers as qint64, reals as double, texts as
// QString, blobs as QByteArray, NULL as a null QString.
class RawRow final : public CItem::RowSource
{
public:
    RawRow(const RawBatch &batch, const Positions &positions)
        : m_batch(batch)
        , m_positions(positions)
    { }
    void moveTo(int row) { m_cells = m_batch.cells.data() + std::size_t(row) * kItemColumns; }

    bool has(int column) const override { return m_positions[std::size_t(column)] >= 0; }
    Cell cell(int column, char16_t (&buffer)[kAsciiCapacity]) override
    {
        const RawCell &raw = m_cells[column];
        Cell cell;
        switch (raw.kind) {
        case RawCell::Null:
            cell.kind = Cell::Null;
            break;
        case RawCell::Integer:
        case RawCell::Bool:
            cell.kind = Cell::Integer;
            cell.integer = raw.integer;
            break;
        case RawCell::Real:
            cell.kind = Cell::Real;
            cell.real = raw.real;
            break;
        case RawCell::Date:
        case RawCell::DateTime:
        case RawCell::Text: {
            // Amounts and dates are short ASCII texts: widened in place, no string is made of them.
            if (raw.size > quint32(kAsciiCapacity)) {
                break;
            }
            const auto *text = reinterpret_cast<const unsigned char *>(m_batch.bytes.data() + raw.offset);
            for (quint32 i = 0; i < raw.size; ++i) {
                if (text[i] >= 0x80) {
                    return cell;
                }
                buffer[i] = char16_t(text[i]);
            }
            cell.kind = Cell::Ascii;
            cell.ascii = QStringView(buffer, qsizetype(raw.size));
            break;
        }
        default:
            break;
        }
        return cell;
    }
    QString text(int column) override
    {
        const RawCell &raw = m_cells[column];
        switch (raw.kind) {
        case RawCell::Null:
            return QString();
        case RawCell::Integer:
            return QString::number(raw.integer);
        case RawCell::Real:
            return QVariant(raw.real).toString();
        case RawCell::Bool:
        case RawCell::Date:
        case RawCell::DateTime:
            return value(column).toString();
        default:
            // Texts and blobs alike: a blob's bytes read as UTF-8, as the driver's QByteArray would.
            return QString::fromUtf8(m_batch.bytes.data() + raw.offset, qsizetype(raw.size));
        }
    }
    QVariant value(int column) override
    {
        const RawCell &raw = m_cells[column];
        switch (raw.kind) {
        case RawCell::Null:
            return QVariant(QMetaType::fromType<QString>());
        case RawCell::Integer:
            return QVariant(qlonglong(raw.integer));
        case RawCell::Real:
            return QVariant(raw.real);
        case RawCell::Blob:
            return QVariant(QByteArray(m_batch.bytes.data() + raw.offset, qsizetype(raw.size)));
        case RawCell::Bool:
            return QVariant(raw.integer != 0);
        case RawCell::Date:
            return QVariant(QDate::fromString(latin1(raw), Qt::ISODate));
        case RawCell::DateTime:
            return QVariant(postgresDateTime(latin1(raw)));
        case RawCell::Text:
            break;
        }
        return QVariant(QString::fromUtf8(m_batch.bytes.data() + raw.offset, qsizetype(raw.size)));
    }

private:
    QString latin1(const RawCell &raw) const
    {
        return QString::fromLatin1(m_batch.bytes.data() + raw.offset, qsizetype(raw.size));
    }

    const RawBatch &m_batch;
    const Positions &m_positions;
    const RawCell *m_cells = nullptr;
};

void decode(RawBatch &batch, const Positions &positions, const ItemLoader::Join &join)
{
    RawRow row(batch, positions);
    batch.items.reserve(std::size_t(batch.rows));
    for (int r = 0; r < batch.rows; ++r) {
        row.moveTo(r);
        auto item = CItem::create();
        QString error;
        if (!ItemLoader::read(*item, row, &error)) {
            batch.partial.note(item->F_ID(), error);
        }
        if (join) {
            join(*item);
        }
        batch.items.push_back(std::move(item));
    }
}

struct SqliteReader
{
    sqlite3 *db = nullptr;
    sqlite3_stmt *stmt = nullptr;
    ~SqliteReader()
    {
        sqlite3_finalize(stmt);
        sqlite3_close(db);
    }
};

// Reading and decoding at once: one thread steps the statement and copies each row as it is stored, decoders
// (helper threads, the reading thread when it is ahead and the caller while it waits) make items of whole batches,
// and the caller takes the batches back in order. The engine's part and the items' part of a load cost about the
// same, so the two run side by side.
class Pipeline
{
public:
    // `fill(batch)` reads up to kBatchRows rows into the batch and says whether any rows are left; it runs on the
    // reading thread and may throw DbError.
    using Fill = std::function<bool(RawBatch &batch)>;

    Pipeline(const Positions &positions, const ItemLoader::Join &join)
        : m_positions(positions)
        , m_join(join)
    { }

    ~Pipeline() { stop(); }

    void start(Fill fill)
    {
        m_threads.emplace_back([this, fill = std::move(fill)] { read(fill); });
        const int helpers = std::clamp(QThread::idealThreadCount() - 1, 1, 3);
        for (int i = 0; i < helpers; ++i) {
            m_threads.emplace_back([this] { help(); });
        }
    }

    // Hands every decoded batch to `take`, in order, then reads into it again. Decodes while it waits, and calls
    // `idle` (without the lock) about every 50 ms that brings nothing, e.g. while the engine sorts before the first
    // row. Throws DbError for a failed read, and whatever `take` or `idle` throws.
    template<typename Take, typename Idle>
    void drain(Take take, Idle idle)
    {
        while (std::unique_ptr<RawBatch> batch = next(idle)) {
            take(*batch);
            recycle(std::move(batch));
        }
    }

    void stop()
    {
        {
            std::lock_guard lock(m_mutex);
            m_stopping = true;
        }
        m_changed.notify_all();
        for (std::thread &thread : m_threads) {
            thread.join();
        }
        m_threads.clear();
    }

private:
    // The next decoded batch in order, or null when all were taken; see drain().
    template<typename Idle>
    std::unique_ptr<RawBatch> next(Idle idle)
    {
        std::unique_lock lock(m_mutex);
        for (;;) {
            if (m_readDone && !m_error.isEmpty()) {
                throw DbError(m_error);
            }
            if (!m_batches.empty() && m_batches.front()->state == RawBatch::State::Decoded) {
                std::unique_ptr<RawBatch> batch = std::move(m_batches.front());
                m_batches.pop_front();
                m_changed.notify_all();
                return batch;
            }
            if (m_batches.empty() && m_readDone) {
                return {};
            }
            if (!decodeOne(lock)
                && m_changed.wait_for(lock, std::chrono::milliseconds(kReportEveryMs)) == std::cv_status::timeout) {
                lock.unlock();
                idle();
                lock.lock();
            }
        }
    }

    // Takes a batch whose items were taken back, for reading into again: its buffers stay allocated, so the
    // reading thread neither allocates nor touches fresh memory for every batch.
    void recycle(std::unique_ptr<RawBatch> batch)
    {
        batch->state = RawBatch::State::Filled;
        batch->rows = 0;
        batch->cells.clear();
        batch->bytes.clear();
        batch->items.clear();
        batch->partial = ItemLoader::Partial();
        std::lock_guard lock(m_mutex);
        m_spare.push_back(std::move(batch));
    }

    std::unique_ptr<RawBatch> spareBatch()
    {
        {
            std::lock_guard lock(m_mutex);
            if (!m_spare.empty()) {
                std::unique_ptr<RawBatch> batch = std::move(m_spare.back());
                m_spare.pop_back();
                return batch;
            }
        }
        auto batch = std::make_unique<RawBatch>();
        batch->cells.reserve(kBatchRows * kItemColumns);
        return batch;
    }

    void read(const Fill &fill)
    {
        QString error;
        try {
            bool more = true;
            while (more) {
                std::unique_ptr<RawBatch> batch = spareBatch();
                more = fill(*batch);
                std::unique_lock lock(m_mutex);
                // Ahead of the decoders: lend them a hand instead of reading on.
                while (!m_stopping && m_batches.size() >= kBatchesInFlight) {
                    if (!decodeOne(lock)) {
                        m_changed.wait(lock);
                    }
                }
                if (m_stopping) {
                    break;
                }
                if (batch->rows > 0) {
                    m_batches.push_back(std::move(batch));
                }
                m_changed.notify_all();
            }
        } catch (const DbError &e) {
            error = e.message();
        } catch (const std::exception &e) {
            error = QString::fromLocal8Bit(e.what());
        }
        std::lock_guard lock(m_mutex);
        m_readDone = true;
        m_error = error;
        m_changed.notify_all();
    }

    void help()
    {
        std::unique_lock lock(m_mutex);
        while (!m_stopping && !(m_readDone && (m_batches.empty() || !m_error.isEmpty()))) {
            if (!decodeOne(lock)) {
                m_changed.wait(lock);
            }
        }
    }

    // Decodes the first batch nobody decodes yet, with the lock released meanwhile; false when there was none.
    bool decodeOne(std::unique_lock<std::mutex> &lock)
    {
        for (const std::unique_ptr<RawBatch> &batch : m_batches) {
            if (batch->state != RawBatch::State::Filled) {
                continue;
            }
            RawBatch *taken = batch.get();
            taken->state = RawBatch::State::Decoding;
            lock.unlock();
            decode(*taken, m_positions, m_join);
            lock.lock();
            taken->state = RawBatch::State::Decoded;
            m_changed.notify_all();
            return true;
        }
        return false;
    }

    const Positions &m_positions;
    const ItemLoader::Join &m_join;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<std::unique_ptr<RawBatch>> m_batches;
    std::vector<std::unique_ptr<RawBatch>> m_spare;
    bool m_readDone = false;
    bool m_stopping = false;
    QString m_error;
    std::vector<std::thread> m_threads;
};

} // namespace

// The items read so far, the rows that could not be read whole, and the progress reports.
class ItemLoader::Rows
{
public:
    Rows(Partial &partial, const Progress &progress, const Join &join)
        : join(join)
        , m_partial(partial)
        , m_progress(progress)
    {
        m_sinceReport.start();
    }

    // Adds an item filled by `fill(item, error)`, which says whether every column was read.
    template<typename Fill>
    void add(Fill fill)
    {
        auto item = CItem::create();
        QString error;
        if (!fill(*item, &error)) {
            m_partial.note(item->F_ID(), error);
        }
        if (join) {
            join(*item);
        }
        items.push_back(std::move(item));
        if (m_progress && qint64(items.size()) % kFirstReportAfter == 0) {
            report();
        }
    }

    // Takes a decoded batch's items.
    void take(RawBatch &batch)
    {
        if (batch.partial.count > 0) {
            if (m_partial.count == 0) {
                m_partial.first = batch.partial.first;
            }
            m_partial.count += batch.partial.count;
        }
        items.insert(items.end(), std::make_move_iterator(batch.items.begin()),
                     std::make_move_iterator(batch.items.end()));
        if (m_progress && qint64(items.size()) >= kFirstReportAfter) {
            report();
        }
    }

    // Reports while no rows arrive, so that a caller's window stays alive through a long wait for the first one.
    void idle()
    {
        if (m_progress) {
            m_reported = true;
            report();
        }
    }

    std::vector<CItemPtr> items;
    const Join &join;

private:
    void report()
    {
        if (m_reported && m_sinceReport.elapsed() < kReportEveryMs) {
            return;
        }
        m_reported = true;
        m_sinceReport.restart();
        if (!m_progress(qint64(items.size()))) {
            throw Cancelled();
        }
    }

    Partial &m_partial;
    const Progress &m_progress;
    QElapsedTimer m_sinceReport;
    bool m_reported = false;
};

ItemLoader::ItemLoader(CConnection &connection)
    : m_connection(connection)
{ }

std::vector<CItemPtr> ItemLoader::load(const QString &sql, Partial &partial, const Progress &progress, const Join &join)
{
    QElapsedTimer timer;
    timer.start();
    partial = Partial();
    Rows rows(partial, progress, join);
    // The engines' own readers can be turned off, to compare them with the driver's.
    const bool throughDriver = qEnvironmentVariableIntValue("QUILLON_LOAD_THROUGH_DRIVER") != 0;
    const QString statement = m_connection.inStoredOrder(sql);
    if (throughDriver || !(loadSqlite(statement, rows) || loadPostgres(statement, rows))) {
        m_path = Path::Driver;
        loadThroughDriver(statement, rows);
    }
    static constexpr const char *kPathNames[] = {"the driver", "sqlite3", "libpq"};
    qCDebug(lcLoad, "%zu rows through %s in %lld ms: %s", rows.items.size(), kPathNames[int(m_path)],
            qint64(timer.elapsed()), qUtf8Printable(statement));
    return std::move(rows.items);
}

bool ItemLoader::loadSqlite(const QString &sql, Rows &rows)
{
    // A reading connection of its own to the same file: it sees what the program's connection sees outside a
    // transaction. Inside one, or for a database in memory, the driver reads.
    if (m_connection.engine() != CConnection::Engine::SQLite || m_connection.transactionDepth() > 0) {
        return false;
    }
    const QString name = m_connection.database().databaseName();
    if (name.isEmpty() || name == u":memory:"_s || name.contains(u"mode=memory"_s)) {
        return false;
    }
    SqliteReader reader;
    // The connection is used by the reading thread alone, so SQLite need not guard every call with its mutex.
    const int flags = SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX | (name.startsWith(u"file:"_s) ? SQLITE_OPEN_URI : 0);
    if (sqlite3_open_v2(name.toUtf8().constData(), &reader.db, flags, nullptr) != SQLITE_OK) {
        return false;
    }
    sqlite3_busy_timeout(reader.db, 10000);
    const QByteArray statement = sql.toUtf8();
    if (sqlite3_prepare_v2(reader.db, statement.constData(), int(statement.size()), &reader.stmt, nullptr)
        != SQLITE_OK) {
        // Whatever keeps the statement from running here, the driver reports it in its own words.
        return false;
    }
    const Positions positions = mapColumns(sqlite3_column_count(reader.stmt), [&](int c) {
        return QString::fromUtf8(sqlite3_column_name(reader.stmt, c));
    });
    sqlite3_stmt *stmt = reader.stmt;
    auto fill = [&](RawBatch &batch) {
        while (batch.rows < kBatchRows) {
            const int rc = sqlite3_step(stmt);
            if (rc == SQLITE_DONE) {
                return false;
            }
            if (rc != SQLITE_ROW) {
                throw DbError(QString::fromUtf8(sqlite3_errmsg(reader.db)) + u"\n"_s + sql);
            }
            for (std::size_t i = 0; i < kItemColumns; ++i) {
                RawCell cell;
                const int c = positions[i];
                // One call per column reaches the stored value; the value_* calls on it skip the statement's
                // checks and lock that every column_* call repeats. Safe here: this thread alone uses the
                // connection, and the value is read before the next step.
                sqlite3_value *value = c < 0 ? nullptr : sqlite3_column_value(stmt, c);
                switch (value ? sqlite3_value_type(value) : SQLITE_NULL) {
                case SQLITE_NULL:
                    break;
                case SQLITE_INTEGER:
                    cell.kind = RawCell::Integer;
                    cell.integer = sqlite3_value_int64(value);
                    break;
                case SQLITE_FLOAT:
                    cell.kind = RawCell::Real;
                    cell.real = sqlite3_value_double(value);
                    break;
                case SQLITE_BLOB: {
                    cell.kind = RawCell::Blob;
                    const void *blob = sqlite3_value_blob(value);
                    cell.size = quint32(sqlite3_value_bytes(value));
                    cell.offset = quint32(batch.bytes.size());
                    batch.bytes.append(static_cast<const char *>(blob), cell.size);
                    break;
                }
                default: {
                    cell.kind = RawCell::Text;
                    // The text pointer first: asking for the size first could leave a converted copy behind.
                    const auto *text = reinterpret_cast<const char *>(sqlite3_value_text(value));
                    cell.size = quint32(sqlite3_value_bytes(value));
                    cell.offset = quint32(batch.bytes.size());
                    batch.bytes.append(text, cell.size);
                    break;
                }
                }
                batch.cells.push_back(cell);
            }
            ++batch.rows;
        }
        return true;
    };
    m_path = Path::SQLite;
    Pipeline pipeline(positions, rows.join);
    pipeline.start(fill);
    pipeline.drain([&](RawBatch &batch) { rows.take(batch); }, [&] { rows.idle(); });
    return true;
}

namespace {

// A reading session kept for the next list: a start-up reads eleven lists in a row, and a session costs a round of
// authentication each. It is closed once it has waited kSpareForMs unused.
class SpareSession
{
public:
    static constexpr qint64 kSpareForMs = 2000;

    static PGconn *take(const QByteArray &key)
    {
        std::lock_guard lock(s_mutex);
        PGconn *pg = std::exchange(s_pg, nullptr);
        if (pg
            && (s_key != key || s_since.elapsed() >= kSpareForMs || PQstatus(pg) != CONNECTION_OK
                || PQtransactionStatus(pg) != PQTRANS_IDLE)) {
            PQfinish(pg);
            pg = nullptr;
        }
        return pg;
    }

    static void give(PGconn *pg, const QByteArray &key)
    {
        QCoreApplication *app = QCoreApplication::instance();
        {
            std::lock_guard lock(s_mutex);
            PQfinish(std::exchange(s_pg, nullptr));
            if (!app) {
                PQfinish(pg);
                return;
            }
            s_pg = pg;
            s_key = key;
            s_since.start();
        }
        QTimer::singleShot(kSpareForMs + 100, app, [] {
            std::lock_guard lock(s_mutex);
            if (s_pg && s_since.elapsed() >= kSpareForMs) {
                PQfinish(std::exchange(s_pg, nullptr));
            }
        });
    }

private:
    static inline std::mutex s_mutex;
    static inline PGconn *s_pg = nullptr;
    static inline QByteArray s_key;
    static inline QElapsedTimer s_since;
};

struct PostgresReader
{
    PGconn *pg = nullptr;
    PGresult *result = nullptr;
    QByteArray key;
    bool done = false; // every row read: the session can serve the next list
    ~PostgresReader()
    {
        PQclear(result);
        if (done && pg && PQtransactionStatus(pg) == PQTRANS_IDLE) {
            SpareSession::give(pg, key);
        } else {
            PQfinish(pg);
        }
    }
};

// How a column of a PostgreSQL type is kept until decoding, matching what Qt's driver makes of it; Null for a type
// the driver treats in ways not repeated here (the driver then reads the whole statement).
RawCell::Kind postgresKind(Oid type)
{
    switch (type) {
    case 16: // bool
        return RawCell::Bool;
    case 20: // int8
    case 21: // int2
    case 23: // int4
        return RawCell::Integer;
    case 700: // float4
    case 701: // float8
        return RawCell::Real;
    case 25: // text
    case 1042: // char(n)
    case 1043: // varchar
    case 1700: // numeric, which the driver gives as text for amounts' sake
        return RawCell::Text;
    case 1082: // date
        return RawCell::Date;
    case 1114: // timestamp
    case 1184: // timestamptz
        return RawCell::DateTime;
    default:
        return RawCell::Null;
    }
}

// Appends a field of COPY's text form to `bytes` with its escapes undone.
void unescapeCopyField(const char *from, const char *to, std::string &bytes)
{
    while (from < to) {
        const char *slash = static_cast<const char *>(std::memchr(from, '\\', std::size_t(to - from)));
        if (!slash) {
            bytes.append(from, std::size_t(to - from));
            return;
        }
        bytes.append(from, std::size_t(slash - from));
        from = slash + 1;
        if (from == to) {
            return;
        }
        const char c = *from++;
        switch (c) {
        case 'b':
            bytes.push_back('\b');
            break;
        case 'f':
            bytes.push_back('\f');
            break;
        case 'n':
            bytes.push_back('\n');
            break;
        case 'r':
            bytes.push_back('\r');
            break;
        case 't':
            bytes.push_back('\t');
            break;
        case 'v':
            bytes.push_back('\v');
            break;
        case 'x': {
            int value = 0;
            int digits = 0;
            while (digits < 2 && from < to && std::isxdigit(static_cast<unsigned char>(*from))) {
                const char h = *from++;
                value = value * 16 + (h <= '9' ? h - '0' : (h | 0x20) - 'a' + 10);
                ++digits;
            }
            bytes.push_back(digits ? char(value) : 'x');
            break;
        }
        default:
            if (c >= '0' && c <= '7') {
                int value = c - '0';
                for (int digits = 1; digits < 3 && from < to && *from >= '0' && *from <= '7'; ++digits) {
                    value = value * 8 + (*from++ - '0');
                }
                bytes.push_back(char(value));
            } else {
                bytes.push_back(c);
            }
            break;
        }
    }
}

} // namespace

bool ItemLoader::loadPostgres(const QString &sql, Rows &rows)
{
    // A session of its own, so that the program's connection stays free for whatever runs while the list loads
    // (the change notices, the window); it sees what the program's connection sees outside a transaction.
    if (m_connection.engine() != CConnection::Engine::PostgreSQL || m_connection.transactionDepth() > 0) {
        return false;
    }
    const QSqlDatabase db = m_connection.database();
    std::vector<QByteArray> keys;
    std::vector<QByteArray> values;
    auto set = [&](const char *key, const QString &value) {
        if (!value.isEmpty()) {
            keys.emplace_back(key);
            values.push_back(value.toUtf8());
        }
    };
    set("host", db.hostName());
    set("port", db.port() > 0 ? QString::number(db.port()) : QString());
    set("dbname", db.databaseName());
    set("user", db.userName());
    set("password", db.password());
    for (const QString &option : db.connectOptions().split(u';', Qt::SkipEmptyParts)) {
        const qsizetype equals = option.indexOf(u'=');
        if (equals > 0) {
            keys.push_back(option.left(equals).trimmed().toUtf8());
            values.push_back(option.mid(equals + 1).trimmed().toUtf8());
        }
    }
    set("client_encoding", u"UTF8"_s);
    std::vector<const char *> keyPointers;
    std::vector<const char *> valuePointers;
    for (std::size_t i = 0; i < keys.size(); ++i) {
        keyPointers.push_back(keys[i].constData());
        valuePointers.push_back(values[i].constData());
    }
    keyPointers.push_back(nullptr);
    valuePointers.push_back(nullptr);

    PostgresReader reader;
    for (std::size_t i = 0; i < keys.size(); ++i) {
        reader.key += keys[i] + '\0' + values[i] + '\0';
    }
    reader.pg = SpareSession::take(reader.key);
    if (!reader.pg) {
        reader.pg = PQconnectdbParams(keyPointers.data(), valuePointers.data(), 0);
    }
    if (PQstatus(reader.pg) != CONNECTION_OK) {
        return false;
    }
    // The statement's columns and their types, without its rows.
    reader.result = PQexec(reader.pg, (sql + u" Limit 0"_s).toUtf8().constData());
    if (PQresultStatus(reader.result) != PGRES_TUPLES_OK) {
        return false;
    }
    const int fields = PQnfields(reader.result);
    const Positions positions = mapColumns(fields, [&](int c) { return QString::fromUtf8(PQfname(reader.result, c)); });
    std::vector<RawCell::Kind> kinds(std::size_t(fields), RawCell::Null);
    std::vector<int> itemColumnOf(std::size_t(fields), -1);
    for (std::size_t i = 0; i < kItemColumns; ++i) {
        const int c = positions[i];
        if (c < 0) {
            continue;
        }
        kinds[std::size_t(c)] = postgresKind(PQftype(reader.result, c));
        if (kinds[std::size_t(c)] == RawCell::Null) {
            return false;
        }
        itemColumnOf[std::size_t(c)] = int(i);
    }
    PQclear(reader.result);
    reader.result = PQexec(reader.pg, (u"COPY ("_s + sql + u") TO STDOUT"_s).toUtf8().constData());
    if (PQresultStatus(reader.result) != PGRES_COPY_OUT) {
        return false;
    }
    PQclear(reader.result);
    reader.result = nullptr;

    PGconn *pg = reader.pg;
    auto fill = [&](RawBatch &batch) {
        while (batch.rows < kBatchRows) {
            char *line = nullptr;
            const int size = PQgetCopyData(pg, &line, 0);
            if (size == -1) {
                // The end of the rows: the statement's own result says whether all went well.
                while (PGresult *result = PQgetResult(pg)) {
                    const bool ok = PQresultStatus(result) == PGRES_COMMAND_OK;
                    const QString error = QString::fromUtf8(PQresultErrorMessage(result));
                    PQclear(result);
                    if (!ok) {
                        throw DbError(error.trimmed() + u"\n"_s + sql);
                    }
                }
                return false;
            }
            if (size < 0) {
                throw DbError(QString::fromUtf8(PQerrorMessage(pg)).trimmed() + u"\n"_s + sql);
            }
            struct Free
            {
                char *line;
                ~Free() { PQfreemem(line); }
            } release {line};
            const std::size_t rowStart = batch.cells.size();
            batch.cells.resize(rowStart + kItemColumns);
            const char *p = line;
            const char *end = line + size;
            if (end > p && end[-1] == '\n') {
                --end;
            }
            for (int c = 0; c < fields && p <= end; ++c) {
                const char *tab = static_cast<const char *>(std::memchr(p, '\t', std::size_t(end - p)));
                const char *fieldEnd = tab ? tab : end;
                const int item = itemColumnOf[std::size_t(c)];
                if (item >= 0 && !(fieldEnd - p == 2 && p[0] == '\\' && p[1] == 'N')) {
                    RawCell &cell = batch.cells[rowStart + std::size_t(item)];
                    cell.kind = kinds[std::size_t(c)];
                    cell.offset = quint32(batch.bytes.size());
                    unescapeCopyField(p, fieldEnd, batch.bytes);
                    cell.size = quint32(batch.bytes.size() - cell.offset);
                    const char *text = batch.bytes.data() + cell.offset;
                    switch (cell.kind) {
                    case RawCell::Bool:
                        cell.integer = cell.size > 0 && text[0] == 't' ? 1 : 0;
                        break;
                    case RawCell::Integer: {
                        bool ok = false;
                        cell.integer = QByteArrayView(text, cell.size).toLongLong(&ok);
                        break;
                    }
                    case RawCell::Real: {
                        const QByteArrayView number(text, cell.size);
                        bool ok = false;
                        cell.real = number.toDouble(&ok);
                        if (!ok) {
                            cell.real = number == "Infinity" ? qInf()
                                : number == "-Infinity"      ? -qInf()
                                : number == "NaN"            ? qQNaN()
                                                             : 0.0;
                        }
                        break;
                    }
                    default:
                        break;
                    }
                }
                if (!tab) {
                    break;
                }
                p = tab + 1;
            }
            ++batch.rows;
        }
        return true;
    };
    m_path = Path::PostgreSQL;
    {
        Pipeline pipeline(positions, rows.join);
        pipeline.start(fill);
        pipeline.drain([&](RawBatch &batch) { rows.take(batch); }, [&] { rows.idle(); });
    }
    reader.done = true;
    return true;
}

void ItemLoader::loadThroughDriver(const QString &sql, Rows &rows)
{
    CRecordset rst(m_connection);
    rst.Open(sql);
    while (!rst.isEOF()) {
        rows.add([&](CItem &item, QString *error) { return item.UpdateDataFromRst(rst, true, error); });
        rst.MoveNext();
    }
}
