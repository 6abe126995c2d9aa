#ifndef QUILLON_MASTERBACKUP_H
#define QUILLON_MASTERBACKUP_H

#include "quillon_export.h"

#include <QList>
#include <QPair>
#include <QString>
#include <QStringList>

class CConnection;

/**
 * Backups of the master data as SQLite files, and restoring from them. A backup is a consistent snapshot taken
 * while others keep working: SQLite's online backup of the whole database file, or, from PostgreSQL, a copy of the
 * master tables read in one repeatable-read transaction. The file carries a T_BackupInfo table naming its format
 * and version; a restore checks it before anything is touched and replaces the master tables (T_Item,
 * T_GoodsPrice, T_GoodsInOutList) in one transaction, after which the key counters start above the restored keys.
 *
 * Not supported: restoring part of the data, merging into existing data, backups of files that are not this
 * system's (refused), backups written by a newer version (refused).
 */
class QUILLON_EXPORT MasterBackup
{
public:
    static constexpr int kFormatVersion = 1;

    struct Result
    {
        bool ok = false;
        QString error;
        QList<QPair<QString, qint64>> rows; // rows per master table
    };

    /// Writes a new backup file; an existing file is never replaced.
    static Result backup(CConnection &source, const QString &file);
    /// Checks that a file is a backup this version can restore and counts its rows; nothing is changed.
    static Result inspect(const QString &file);
    /// Replaces the master data of `target` with the backup's, in one transaction; on failure nothing changed.
    static Result restore(CConnection &target, const QString &file);
    /// What a restore replaces, a line a table: its name, what it holds, its rows in `target` now and in the backup
    /// (`inspected`, from inspect()). Rows that cannot be counted show as "?".
    static QStringList replacementLines(CConnection &target, const Result &inspected);
};

#endif
