#ifndef QUILLON_KEYID_H
#define QUILLON_KEYID_H

#include "quillon_export.h"

#include <QString>

class CConnection;

namespace Module1 {

/**
 * The next key of `tableName` from T_KeyID. With `update` the key is consumed: the counter row then holds the key
 * plus one (created holding 2 when the table had no row, whose first key is 1). Without `update` nothing is written.
 *
 * Allocation is atomic across processes: the counter is read and advanced under the database's write lock, inside
 * the caller's transaction when one is open. Throws DbError, also when the counter would pass the 32-bit range.
 */
QUILLON_EXPORT qint32 GetNewID(CConnection &connection, const QString &tableName, bool update);

/**
 * Sets the counter of `table` to one above its largest F_ID (after a bulk copy). A table without rows gets no
 * counter row, so its next key is 1. Throws DbError.
 */
QUILLON_EXPORT void ReseedKeyID(CConnection &connection, const QString &table);

} // namespace Module1

#endif
