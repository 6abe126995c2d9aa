#ifndef QUILLON_CHANGELOG_H
#define QUILLON_CHANGELOG_H

#include "quillon_export.h"

#include <QList>
#include <QMetaType>
#include <QString>

class CConnection;

/// One committed change of master data as the change table records it.
struct QUILLON_EXPORT ItemChange
{
    enum Kind { Saved, Removed, Reload };

    qint64 seq = 0;
    Kind kind = Saved;
    /// The item type (4 for a goods price); 0 with Reload means every kind.
    int itemType = 0;
    /// The item's F_ID (the goods' for a price); 0 with Reload.
    qint32 id = 0;
    /// A price of T_GoodsPrice changed rather than the T_Item row.
    bool price = false;

    /// "saved", "removed" or "reload".
    QString kindName() const;
    friend bool operator==(const ItemChange &, const ItemChange &) = default;
};
Q_DECLARE_METATYPE(ItemChange)

/**
 * The change table T_ChangeLog and the triggers that fill it: every committed insert, update or delete of T_Item
 * and T_GoodsPrice, by this library or by any other program, leaves a row with an increasing sequence number, in
 * commit order; on PostgreSQL the trigger also sends NOTIFY on the channel kChannel.
 *
 * Reads do not interpret the rows beyond their columns; what a seat makes of them is ChangeFeed's business.
 */
class QUILLON_EXPORT ChangeLog
{
public:
    static constexpr const char *kTable = "T_ChangeLog";
    static constexpr const char *kChannel = "quillon_change";
    /// Rows older than this are pruned, the newest row always stays.
    static constexpr int kKeepHours = 24;

    /// Creates the table, the triggers (and on PostgreSQL their function) where missing, in one transaction;
    /// nothing else of the database changes. Throws DbError.
    static void ensure(CConnection &connection);
    /// Whether the table and all its triggers are there.
    static bool isInstalled(CConnection &connection);

    /// The newest sequence number, 0 when the table is empty. Throws DbError.
    static qint64 lastSeq(CConnection &connection);
    /// Rows from `fromSeq` on (that row included), oldest first, at most `limit`. A row whose columns do not make
    /// a change (rubbish written by another program) comes back as a Reload of every kind. Throws DbError.
    static QList<ItemChange> read(CConnection &connection, qint64 fromSeq, int limit);
    /// Records that whole lists changed without a row each (a bulk copy): seats reload that kind (0: all).
    static void noteReload(CConnection &connection, int itemType);
    /// Deletes rows older than kKeepHours but never the newest; returns how many went. Throws DbError.
    static int prune(CConnection &connection);

    /// Pauses the notes of a table's triggers for the rest of the caller's transaction (a bulk write that notes one
    /// Reload instead), without locking the table or changing the schema: other seats read and write on, and their
    /// own changes are still noted. restoreTriggers ends the pause. Both do nothing where the change table is not
    /// installed; suspendTriggers returns false then.
    static bool suspendTriggers(CConnection &connection, const QString &table);
    static void restoreTriggers(CConnection &connection, const QString &table);
};

#endif
