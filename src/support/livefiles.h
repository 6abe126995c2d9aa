#ifndef QUILLON_LIVEFILES_H
#define QUILLON_LIVEFILES_H

#include "quillon_export.h"

#include <QString>

/**
 * The database files this process holds open through SQLite, so that nothing else in the process opens them.
 *
 * On Linux closing any descriptor of a file drops every lock the process holds on it, so reading a live database
 * file outside SQLite (a preview, a probe, a file dialog guessing a type) silently unlocks it under SQLite's
 * connection. Files are compared by device and inode, and by name for the journal files that come and go. Does not
 * know files other processes have open: their locks are theirs.
 */
namespace LiveFiles {

/// Notes that SQLite holds `databaseFile` (and its journals) open; counted, so two connections may note one file.
QUILLON_EXPORT void add(const QString &databaseFile);
/// Takes back one add() of the same file.
QUILLON_EXPORT void remove(const QString &databaseFile);
/// Whether `path` names a noted database file or one of its journals (-wal, -shm, -journal), by any name.
QUILLON_EXPORT bool isLive(const QString &path);
/// The refusal to show when `path` is live ("" when it is not): `use` says what the file was chosen for.
QUILLON_EXPORT QString refusal(const QString &path, const QString &use);

} // namespace LiveFiles

#endif
