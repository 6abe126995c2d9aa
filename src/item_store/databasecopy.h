#ifndef QUILLON_DATABASECOPY_H
#define QUILLON_DATABASECOPY_H

#include "quillon_export.h"

#include <QList>
#include <QString>
#include <QStringList>
#include <QVariantList>

#include <chrono>
#include <functional>

class CConnection;

/**
 * Copies whole tables (or the rows a condition picks) from one open database to another, SQLite or PostgreSQL
 * either way: rows are read in key order in pages and written in multi-row statements, all tables in one
 * transaction on the target, after which the key counters of the copied tables are reseeded. A failure leaves the
 * target as it was. Values are carried by meaning (amounts exact, dates as dates, flags as flags).
 *
 * Only tables keyed by an integer F_ID; the target tables must exist.
 */
class QUILLON_EXPORT DatabaseCopy
{
public:
    struct Table
    {
        QString name;
        /// Rows to copy ("F_ItemTypeID=?"), all when empty; the same rows are replaced in the target.
        QString where;
        QVariantList params;
    };
    struct Result
    {
        bool ok = false;
        QString error;
        QList<QPair<QString, qint64>> rows; // rows copied per table
    };
    using Progress = std::function<void(const QString &table, qint64 rows)>;

    /// A step (a page of rows, an index) on which a PostgreSQL server gives no answer for `stallLimit` (plus time
    /// for the rows when indexes are rebuilt) ends the copy with an error. A copy of a database onto itself is
    /// refused.
    static Result copy(CConnection &from, CConnection &to, const QList<Table> &tables,
                       const Progress &progress = Progress(),
                       std::chrono::milliseconds stallLimit = std::chrono::seconds(120));
    /// Copies whole tables.
    static Result copyTables(CConnection &from, CConnection &to, const QStringList &tables);
    /// The tables that hold the master data: T_Item, T_GoodsPrice, T_GoodsInOutList.
    static QStringList MasterTables();
    /// How many rows of these tables a database holds (the rows a copy into it would replace); missing tables
    /// count 0. Throws DbError.
    static qint64 rowsIn(CConnection &connection, const QStringList &tables);
};

#endif
