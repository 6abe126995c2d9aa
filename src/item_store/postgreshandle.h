#ifndef QUILLON_POSTGRESHANDLE_H
#define QUILLON_POSTGRESHANDLE_H

// libpq's connection behind a connection, for what Qt's driver does not offer (COPY in and out). Internal to the
// library.

#include "cconnection.h"

#include <QSqlDriver>
#include <QVariant>

#include <libpq-fe.h>

/// The PostgreSQL connection under an open connection; nothing for other engines or a closed connection.
inline PGconn *postgresHandle(CConnection &connection)
{
    if (connection.engine() != CConnection::Engine::PostgreSQL || !connection.isOpen()) {
        return nullptr;
    }
    const QVariant handle = connection.database().driver()->handle();
    // Qt names the type after libpq's struct (pg_conn*), older versions after its typedef (PGconn*).
    if (!handle.isValid()
        || (qstrcmp(handle.typeName(), "pg_conn*") != 0 && qstrcmp(handle.typeName(), "PGconn*") != 0)) {
        return nullptr;
    }
    return *static_cast<PGconn *const *>(handle.constData());
}

#endif
