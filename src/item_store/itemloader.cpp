#include "itemloader.h"

#include "cconnection.h"
#include "crecordset.h"
#include "dberror.h"
#include "itemrowsource.h"
#include "postgreshandle.h"

#include <QElapsedTimer>
#include <QLoggingCategory>
#include <QSqlDatabase>
#include <QThread>

#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

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

// One column of a row as the engine delivered it, kept until a decoder makes the item's value of it.
struct RawCell
{
    enum Kind : quint8 { Null, Integer, Real, Text, Blob } kind = Null;
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
        case RawCell::Integer:
            cell.kind = Cell::Integer;
            cell.integer = raw.integer;
            break;
        case RawCell::Real:
            cell.kind = Cell::Real;
            cell.real = raw.real;
            break;
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
        case RawCell::Text:
            break;
        }
        return QVariant(QString::fromUtf8(m_batch.bytes.data() + raw.offset, qsizetype(raw.size)));
    }

private:
    const RawBatch &m_batch;
    const Positions &m_positions;
    const RawCell *m_cells = nullptr;
};

void decode(RawBatch &batch, const Positions &positions)
{
    RawRow row(batch, positions);
    batch.items.reserve(std::size_t(batch.rows));
    for (int r = 0; r < batch.rows; ++r) {
        row.moveTo(r);
        auto item = CItem::create();
        QString error;
        if (!ItemLoader::read(*item, row, &error) && batch.partial.count++ == 0) {
            batch.partial.first = u"F_ID="_s + QString::number(item->F_ID()) + u": "_s + error;
        }
        batch.items.push_back(std::move(item));
    }
    // The raw rows are not needed any more; the batch may wait a while to be taken.
    batch.cells = {};
    batch.bytes = {};
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

    explicit Pipeline(const Positions &positions)
        : m_positions(positions)
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

    // The next decoded batch in order, or null when all were taken. Decodes while it waits. Throws DbError for a
    // failed read.
    std::unique_ptr<RawBatch> next()
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
            if (!decodeOne(lock)) {
                m_changed.wait(lock);
            }
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
    void read(const Fill &fill)
    {
        QString error;
        try {
            bool more = true;
            while (more) {
                auto batch = std::make_unique<RawBatch>();
                batch->cells.reserve(kBatchRows * kItemColumns);
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
            decode(*taken, m_positions);
            lock.lock();
            taken->state = RawBatch::State::Decoded;
            m_changed.notify_all();
            return true;
        }
        return false;
    }

    const Positions &m_positions;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<std::unique_ptr<RawBatch>> m_batches;
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
    Rows(Partial &partial, const Progress &progress)
        : m_partial(partial)
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
            notePartial(item->F_ID(), error);
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

    std::vector<CItemPtr> items;

private:
    void notePartial(qint32 id, const QString &error)
    {
        if (m_partial.count++ == 0) {
            m_partial.first = u"F_ID="_s + QString::number(id) + u": "_s + error;
        }
    }

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

std::vector<CItemPtr> ItemLoader::load(const QString &sql, Partial &partial, const Progress &progress)
{
    QElapsedTimer timer;
    timer.start();
    partial = Partial();
    Rows rows(partial, progress);
    // The engines' own readers can be turned off, to compare them with the driver's.
    const bool throughDriver = qEnvironmentVariableIntValue("QUILLON_LOAD_THROUGH_DRIVER") != 0;
    if (throughDriver || !(loadSqlite(sql, rows) || loadPostgres(sql, rows))) {
        m_path = Path::Driver;
        loadThroughDriver(sql, rows);
    }
    static constexpr const char *kPathNames[] = {"the driver", "sqlite3", "libpq"};
    qCDebug(lcLoad, "%zu rows through %s in %lld ms: %s", rows.items.size(), kPathNames[int(m_path)],
            qint64(timer.elapsed()), qUtf8Printable(sql));
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
                switch (c < 0 ? SQLITE_NULL : sqlite3_column_type(stmt, c)) {
                case SQLITE_NULL:
                    break;
                case SQLITE_INTEGER:
                    cell.kind = RawCell::Integer;
                    cell.integer = sqlite3_column_int64(stmt, c);
                    break;
                case SQLITE_FLOAT:
                    cell.kind = RawCell::Real;
                    cell.real = sqlite3_column_double(stmt, c);
                    break;
                case SQLITE_BLOB: {
                    cell.kind = RawCell::Blob;
                    const void *blob = sqlite3_column_blob(stmt, c);
                    cell.size = quint32(sqlite3_column_bytes(stmt, c));
                    cell.offset = quint32(batch.bytes.size());
                    batch.bytes.append(static_cast<const char *>(blob), cell.size);
                    break;
                }
                default: {
                    cell.kind = RawCell::Text;
                    // The text pointer first: asking for the size first could leave a converted copy behind.
                    const auto *text = reinterpret_cast<const char *>(sqlite3_column_text(stmt, c));
                    cell.size = quint32(sqlite3_column_bytes(stmt, c));
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
    Pipeline pipeline(positions);
    pipeline.start(fill);
    while (std::unique_ptr<RawBatch> batch = pipeline.next()) {
        rows.take(*batch);
    }
    return true;
}

bool ItemLoader::loadPostgres(const QString &, Rows &)
{
    return false;
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
