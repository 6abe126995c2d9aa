#ifndef QUILLON_SQLITEHANDLE_H
#define QUILLON_SQLITEHANDLE_H

// The SQLite library's own handle behind a connection, for the few things Qt's driver does not offer (streaming
// reads, prepared inserts, the online backup). Internal to the library.

#include "cconnection.h"

#include <QSqlDriver>
#include <QVariant>

#include <sqlite3.h>

/// The sqlite3 handle of an open SQLite connection; nothing for other engines.
inline sqlite3 *sqliteHandle(CConnection &connection)
{
    if (connection.engine() != CConnection::Engine::SQLite) {
        return nullptr;
    }
    const QVariant handle = connection.database().driver()->handle();
    if (!handle.isValid() || qstrcmp(handle.typeName(), "sqlite3*") != 0) {
        return nullptr;
    }
    return *static_cast<sqlite3 *const *>(handle.constData());
}

#endif
