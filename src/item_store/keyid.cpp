#include "keyid.h"

#include "cconnection.h"
#include "sqlvalue.h"

#include <QRegularExpression>
#include <QSqlQuery>

#include <limits>

using namespace Qt::StringLiterals;

namespace Module1 {

namespace {

std::optional<qint32> currentCounter(CConnection &connection, const QString &tableName)
{
    QSqlQuery query = connection.Select(u"Select F_MaxID From T_KeyID Where F_TableName =?"_s, {tableName});
    if (!CConnection::next(query)) {
        return std::nullopt;
    }
    const auto key = SqlValue::toInt32(query.value(0));
    if (!key) {
        throw DbError(u"T_KeyID 中 "_s + tableName + u" 的 F_MaxID 不是有效的整数"_s);
    }
    return key;
}

} // namespace

qint32 GetNewID(CConnection &connection, const QString &tableName, bool update)
{
    if (!update) {
        return currentCounter(connection, tableName).value_or(1);
    }
    CTransaction transaction(connection);
    if (connection.engine() == CConnection::Engine::PostgreSQL) {
        // One round trip: the row lock serialises allocators until the enclosing transaction ends. A table
        // without a counter row gets one first (two allocators may both try; the second adds nothing). No table
        // lock: upgrading from the row's lock to it would deadlock two first allocators.
        const QString draw = u"Update T_KeyID Set F_MaxID=F_MaxID+1 Where F_TableName=? And F_MaxID<2147483647 "
                             "Returning F_MaxID-1"_s;
        for (int attempt = 0; attempt < 3; ++attempt) {
            QSqlQuery drawn = connection.SelectPrepared(draw, {tableName});
            const bool found = CConnection::next(drawn);
            const std::optional<qint32> key = found ? SqlValue::toInt32(drawn.value(0)) : std::nullopt;
            connection.Recycle(draw, std::move(drawn));
            if (found && !key) {
                throw DbError(u"T_KeyID 中 "_s + tableName + u" 的 F_MaxID 不是有效的整数"_s);
            }
            if (key) {
                transaction.Commit();
                return *key;
            }
            // The row may have come from another allocator since the update looked: then it is drawn again.
            const auto counter = currentCounter(connection, tableName);
            if (counter == std::numeric_limits<qint32>::max()) {
                throw DbError(u"溢出: "_s + tableName + u" 的键值已用尽"_s);
            }
            if (counter) {
                continue;
            }
            connection.Execute(u"Insert Into T_KeyID(F_TableName,F_MaxID) Select ?, 1 Where Not Exists "
                               "(Select 1 From T_KeyID Where F_TableName=?) On Conflict Do Nothing"_s,
                               {tableName, tableName});
        }
        throw DbError(u"无法取得 "_s + tableName + u" 的新键值"_s);
    }
    const auto counter = currentCounter(connection, tableName);
    const qint32 key = counter.value_or(1);
    if (key == std::numeric_limits<qint32>::max()) {
        throw DbError(u"溢出: "_s + tableName + u" 的键值已用尽"_s);
    }
    if (counter) {
        connection.Execute(u"Update T_KeyID Set F_MaxID=? Where F_TableName =?"_s, {key + 1, tableName});
    } else {
        connection.Execute(u"Insert Into T_KeyID(F_TableName,F_MaxID)Values(?,?)"_s, {tableName, key + 1});
    }
    transaction.Commit();
    return key;
}

void ReseedKeyID(CConnection &connection, const QString &table)
{
    // The table name goes into the statement text, so it must be a plain identifier.
    static const QRegularExpression identifier(u"^[A-Za-z_][A-Za-z0-9_]*$"_s);
    if (!identifier.match(table).hasMatch()) {
        throw DbError(u"无效的数据表名: "_s + table);
    }
    CTransaction transaction(connection);
    connection.Execute(u"Delete From T_KeyID Where F_TableName = ?"_s, {table});
    QSqlQuery query = connection.Select(u"Select Max(F_ID) + 1 AS F_NewID From "_s + table);
    if (CConnection::next(query)) {
        const auto next = SqlValue::toInt32(query.value(0));
        if (next) {
            connection.Execute(u"Insert Into T_KeyID(F_TableName,F_MaxID)Values(?,?)"_s, {table, *next});
        }
    }
    transaction.Commit();
}

} // namespace Module1
