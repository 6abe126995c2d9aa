#ifndef QUILLON_ITEMLOADER_H
#define QUILLON_ITEMLOADER_H

// Internal to the library.

#include "citem.h"

#include <QString>

#include <functional>
#include <vector>

class CConnection;

/**
 * Reads the rows of a collection's load statement into new items, through the engine's own interface where it can
 * (an SQLite file, a PostgreSQL server) and through Qt's driver otherwise, with the same values and the same
 * per-row failures either way. It does not touch any collection.
 */
class ItemLoader
{
public:
    /// Told the rows read so far about every 50 ms (and once after the first 1,024 rows); false stops the load.
    using Progress = std::function<bool(qint64 rowsRead)>;

    /// Rows of which a column could not be read: the items keep what was read.
    struct Partial
    {
        int count = 0;
        QString first; ///< "F_ID=...: reason" of the first such row

        /// Counts a row that could not be read whole, keeping the reason when it is the first.
        void note(qint32 id, const QString &error)
        {
            if (count++ == 0) {
                first = QStringLiteral("F_ID=") + QString::number(id) + QStringLiteral(": ") + error;
            }
        }
    };

    /// Thrown by load() when the progress callback asked to stop.
    struct Cancelled
    {
    };

    enum class Path { Driver, SQLite, PostgreSQL };

    explicit ItemLoader(CConnection &connection);

    /// Completes each item after its row was read, on the decoding threads.
    using Join = std::function<void(CItem &item)>;

    /// The items of the statement's rows, in their order, each passed to `join` when given. Throws DbError when the
    /// statement fails, Cancelled when stopped.
    std::vector<CItemPtr> load(const QString &sql, Partial &partial, const Progress &progress = Progress(),
                               const Join &join = Join());
    /// The way the last load() read its rows.
    Path path() const { return m_path; }

    /// Reads one row into `item` as CItem::UpdateDataFromRst(rst, true) does.
    static bool read(CItem &item, CItem::RowSource &row, QString *error) { return item.readRow(row, error); }

private:
    class Rows;

    bool loadSqlite(const QString &sql, Rows &rows);
    bool loadPostgres(const QString &sql, Rows &rows);
    void loadThroughDriver(const QString &sql, Rows &rows);

    CConnection &m_connection;
    Path m_path = Path::Driver;
};

#endif
