#include "changelog.h"

#include "cconnection.h"
#include "sqlvalue.h"

#include <QSqlQuery>
#include <QSqlRecord>

using namespace Qt::StringLiterals;

namespace {

using Engine = CConnection::Engine;

const QString kTableName = QString::fromLatin1(ChangeLog::kTable);

const char kSqliteTable[] =
    "CREATE TABLE T_ChangeLog (F_Seq INTEGER PRIMARY KEY AUTOINCREMENT, F_TableName VARCHAR(32) NOT NULL DEFAULT '', "
    "F_ItemID INTEGER NOT NULL DEFAULT 0, F_ItemTypeID SMALLINT NOT NULL DEFAULT 0, "
    "F_Removed SMALLINT NOT NULL DEFAULT 0, F_Time DATETIME NOT NULL DEFAULT CURRENT_TIMESTAMP)";
const char kPostgresTable[] =
    "CREATE TABLE T_ChangeLog (F_Seq BIGSERIAL PRIMARY KEY, F_TableName VARCHAR(32) NOT NULL DEFAULT '', "
    "F_ItemID INTEGER NOT NULL DEFAULT 0, F_ItemTypeID SMALLINT NOT NULL DEFAULT 0, "
    "F_Removed SMALLINT NOT NULL DEFAULT 0, F_Time TIMESTAMPTZ NOT NULL DEFAULT now())";

#define NOTE_ITEM(row, removed)                                                                                        \
    "INSERT INTO T_ChangeLog (F_TableName, F_ItemID, F_ItemTypeID, F_Removed) VALUES ('T_Item', " row ".F_ID, " row    \
    ".F_ItemTypeID, " removed ")"
#define NOTE_PRICE(row)                                                                                                \
    "INSERT INTO T_ChangeLog (F_TableName, F_ItemID, F_ItemTypeID, F_Removed) VALUES ('T_GoodsPrice', " row            \
    ".F_GoodsID, 4, 0)"

// A transaction that writes many rows may pause the notes of a table: a row of its own in this table, which no other
// connection ever sees (SQLite has one writer, and the row goes before the commit). Unlike dropping the triggers, it
// changes no schema and keeps no reader waiting.
const char kSqlitePauseTable[] = "CREATE TABLE T_ChangeLogPause (F_TableName VARCHAR(32) NOT NULL DEFAULT '')";
const QString kPauseTableName = u"T_ChangeLogPause"_s;
#define SQLITE_UNLESS_PAUSED(table) " WHEN NOT EXISTS (SELECT 1 FROM T_ChangeLogPause WHERE F_TableName = '" table "') "

struct SqliteTrigger
{
    const char *table;
    const char *name;
    const char *sql;
};

// SQLite runs the triggers inside the writer's transaction, which holds the database's only write lock: the
// sequence numbers are in commit order.
const SqliteTrigger kSqliteTriggers[] = {
    {"T_Item", "TR_Item_Insert",
     "CREATE TRIGGER TR_Item_Insert AFTER INSERT ON T_Item" SQLITE_UNLESS_PAUSED("T_Item") "BEGIN " NOTE_ITEM(
         "NEW", "0") "; END"},
    {"T_Item", "TR_Item_Update",
     "CREATE TRIGGER TR_Item_Update AFTER UPDATE ON T_Item" SQLITE_UNLESS_PAUSED(
         "T_Item") "BEGIN "
                   "INSERT INTO T_ChangeLog (F_TableName, F_ItemID, F_ItemTypeID, F_Removed) SELECT 'T_Item', "
                   "OLD.F_ID, "
                   "OLD.F_ItemTypeID, 1 WHERE OLD.F_ID IS NOT NEW.F_ID OR OLD.F_ItemTypeID IS NOT "
                   "NEW.F_ItemTypeID; " NOTE_ITEM("NEW", "0") "; END"},
    {"T_Item", "TR_Item_Delete",
     "CREATE TRIGGER TR_Item_Delete AFTER DELETE ON T_Item" SQLITE_UNLESS_PAUSED("T_Item") "BEGIN " NOTE_ITEM(
         "OLD", "1") "; END"},
    {"T_GoodsPrice", "TR_GoodsPrice_Insert",
     "CREATE TRIGGER TR_GoodsPrice_Insert AFTER INSERT ON T_GoodsPrice" SQLITE_UNLESS_PAUSED(
         "T_GoodsPrice") "BEGIN " NOTE_PRICE("NEW") "; END"},
    {"T_GoodsPrice", "TR_GoodsPrice_Update",
     "CREATE TRIGGER TR_GoodsPrice_Update AFTER UPDATE ON T_GoodsPrice" SQLITE_UNLESS_PAUSED(
         "T_GoodsPrice") "BEGIN "
                         "INSERT INTO T_ChangeLog (F_TableName, F_ItemID, F_ItemTypeID, F_Removed) SELECT "
                         "'T_GoodsPrice', "
                         "OLD.F_GoodsID, 4, 0 WHERE OLD.F_GoodsID IS NOT NEW.F_GoodsID; " NOTE_PRICE("NEW") "; END"},
    {"T_GoodsPrice", "TR_GoodsPrice_Delete",
     "CREATE TRIGGER TR_GoodsPrice_Delete AFTER DELETE ON T_GoodsPrice" SQLITE_UNLESS_PAUSED(
         "T_GoodsPrice") "BEGIN " NOTE_PRICE("OLD") "; END"},
};

// On PostgreSQL sequence numbers are drawn before commit, so two writers could commit out of order and a seat that
// read the later one first would step over the earlier. The advisory lock, held to the end of the writer's
// transaction, makes the numbers follow the commits. NOTIFY is sent once per transaction (equal notices are
// merged), after the commit. A transaction that writes many rows pauses the notes of a table by a setting of its
// own (set_config(..., true) ends with it), which takes no lock on the table.
const char kPostgresFunction[] =
    "CREATE OR REPLACE FUNCTION quillon_note_change() RETURNS trigger LANGUAGE plpgsql AS $body$\n"
    "BEGIN\n"
    "  IF current_setting('quillon.pause_' || TG_TABLE_NAME, true) = 'on' THEN\n"
    "    RETURN NULL;\n"
    "  END IF;\n"
    "  PERFORM pg_advisory_xact_lock(5175696, 1);\n"
    "  IF TG_TABLE_NAME = 't_item' THEN\n"
    "    IF TG_OP = 'DELETE' THEN\n"
    "      " NOTE_ITEM(
        "OLD", "1") ";\n"
                    "    ELSE\n"
                    "      IF TG_OP = 'UPDATE' THEN\n"
                    "        IF OLD.F_ID <> NEW.F_ID OR OLD.F_ItemTypeID <> NEW.F_ItemTypeID THEN\n"
                    "          " NOTE_ITEM(
                        "OLD",
                        "1") ";\n"
                             "        END IF;\n"
                             "      END IF;\n"
                             "      " NOTE_ITEM(
                                 "NEW",
                                 "0") ";\n"
                                      "    END IF;\n"
                                      "  ELSE\n"
                                      "    IF TG_OP = 'DELETE' THEN\n"
                                      "      " NOTE_PRICE(
                                          "OLD") ";\n"
                                                 "    ELSE\n"
                                                 "      IF TG_OP = 'UPDATE' THEN\n"
                                                 "        IF OLD.F_GoodsID <> NEW.F_GoodsID THEN\n"
                                                 "          " NOTE_PRICE(
                                                     "OLD") ";\n"
                                                            "        END IF;\n"
                                                            "      END IF;\n"
                                                            "      " NOTE_PRICE(
                                                                "NEW") ";\n"
                                                                       "    END IF;\n"
                                                                       "  END IF;\n"
                                                                       "  PERFORM pg_notify('quillon_change', '');\n"
                                                                       "  RETURN NULL;\n"
                                                                       "END\n"
                                                                       "$body$";

QString postgresTrigger(const QString &table)
{
    return u"tr_"_s + table.toLower().mid(2) + u"_change"_s;
}

const QStringList kWatchedTables = {u"T_Item"_s, u"T_GoodsPrice"_s};

bool hasTrigger(CConnection &connection, const QString &name, const QString &table)
{
    QSqlQuery q = connection.engine() == Engine::SQLite
        ? connection.Select(u"SELECT 1 FROM sqlite_master WHERE type = 'trigger' AND lower(name) = lower(?)"_s, {name})
        : connection.Select(
            u"SELECT 1 FROM pg_trigger t JOIN pg_class c ON c.oid = t.tgrelid "
            "WHERE t.tgname = ? AND c.relname = ? AND c.relnamespace = current_schema()::regnamespace"_s,
            {name, table.toLower()});
    return CConnection::next(q);
}

// Whether the trigger is there in the form that can be paused (an older program's lacks that).
bool triggerIsCurrent(CConnection &connection, const QString &name, const QString &table)
{
    if (connection.engine() == Engine::SQLite) {
        QSqlQuery q = connection.Select(
            u"SELECT sql FROM sqlite_master WHERE type = 'trigger' AND lower(name) = lower(?)"_s, {name});
        return CConnection::next(q) && q.value(0).toString().contains(kPauseTableName);
    }
    if (!hasTrigger(connection, name, table)) {
        return false;
    }
    QSqlQuery q = connection.Select(u"SELECT prosrc FROM pg_proc WHERE proname = 'quillon_note_change' "
                                    "AND pronamespace = current_schema()::regnamespace"_s);
    return CConnection::next(q) && q.value(0).toString().contains(u"quillon.pause_"_s);
}

// The triggers of one table that are missing or of an older form, created; true when any was.
bool createTriggers(CConnection &connection, const QString &table)
{
    // A store from an older program may lack the columns the triggers note; its table is left alone.
    const QSqlRecord columns = connection.tableRecord(table);
    const bool isItem = table.compare(u"T_Item"_s, Qt::CaseInsensitive) == 0;
    if (isItem ? !(columns.contains(u"F_ID"_s) && columns.contains(u"F_ItemTypeID"_s))
               : !columns.contains(u"F_GoodsID"_s)) {
        return false;
    }
    bool created = false;
    if (connection.engine() == Engine::SQLite) {
        if (!connection.hasTable(kPauseTableName)) {
            connection.Execute(QString::fromLatin1(kSqlitePauseTable));
        }
        for (const SqliteTrigger &trigger : kSqliteTriggers) {
            const QString name = QString::fromLatin1(trigger.name);
            if (table.compare(QLatin1StringView(trigger.table), Qt::CaseInsensitive) != 0
                || triggerIsCurrent(connection, name, table)) {
                continue;
            }
            if (hasTrigger(connection, name, table)) {
                connection.Execute(u"DROP TRIGGER "_s + name);
            }
            connection.Execute(QString::fromLatin1(trigger.sql));
            created = true;
        }
        return created;
    }
    const QString name = postgresTrigger(table);
    if (triggerIsCurrent(connection, name, table)) {
        return false;
    }
    // Replacing the function takes no lock on the tables; only a missing trigger needs one.
    connection.Execute(QString::fromLatin1(kPostgresFunction));
    if (!hasTrigger(connection, name, table)) {
        connection.Execute(u"CREATE TRIGGER "_s + name + u" AFTER INSERT OR UPDATE OR DELETE ON "_s + table
                           + u" FOR EACH ROW EXECUTE PROCEDURE quillon_note_change()"_s);
    }
    return true;
}

// The watched table's name as the triggers spell it.
QString watchedName(const QString &table)
{
    for (const QString &name : kWatchedTables) {
        if (name.compare(table, Qt::CaseInsensitive) == 0) {
            return name;
        }
    }
    return QString();
}

ItemChange reloadAll(qint64 seq)
{
    ItemChange change;
    change.seq = seq;
    change.kind = ItemChange::Reload;
    return change;
}

} // namespace

QString ItemChange::kindName() const
{
    switch (kind) {
    case Saved:
        return u"saved"_s;
    case Removed:
        return u"removed"_s;
    case Reload:
        break;
    }
    return u"reload"_s;
}

bool ChangeLog::isInstalled(CConnection &connection)
{
    if (!connection.hasTable(kTableName)) {
        return false;
    }
    if (connection.engine() == Engine::SQLite && !connection.hasTable(kPauseTableName)) {
        return false;
    }
    for (const QString &table : kWatchedTables) {
        if (connection.engine() == Engine::SQLite) {
            for (const SqliteTrigger &trigger : kSqliteTriggers) {
                if (table == QLatin1StringView(trigger.table)
                    && !triggerIsCurrent(connection, QString::fromLatin1(trigger.name), table)) {
                    return false;
                }
            }
        } else if (!triggerIsCurrent(connection, postgresTrigger(table), table)) {
            return false;
        }
    }
    return true;
}

void ChangeLog::ensure(CConnection &connection)
{
    if (isInstalled(connection)) {
        return;
    }
    CTransaction transaction(connection);
    // Several seats may open a database without the table at once: look again under the write lock (SQLite) or
    // the schema lock (PostgreSQL), so that only the first creates it.
    if (connection.engine() == Engine::PostgreSQL) {
        connection.Select(u"SELECT pg_advisory_xact_lock(7114301)"_s);
    }
    if (isInstalled(connection)) {
        transaction.Commit();
        return;
    }
    if (!connection.hasTable(kTableName)) {
        connection.Execute(QString::fromLatin1(connection.engine() == Engine::SQLite ? kSqliteTable : kPostgresTable));
    }
    for (const QString &table : kWatchedTables) {
        if (connection.hasTable(table)) {
            createTriggers(connection, table);
        }
    }
    transaction.Commit();
}

qint64 ChangeLog::lastSeq(CConnection &connection)
{
    QSqlQuery q = connection.Select(u"SELECT MAX(F_Seq) FROM T_ChangeLog"_s);
    return CConnection::next(q) ? q.value(0).toLongLong() : 0;
}

QList<ItemChange> ChangeLog::read(CConnection &connection, qint64 fromSeq, int limit)
{
    QList<ItemChange> changes;
    QSqlQuery q = connection.Select(u"SELECT F_Seq, F_TableName, F_ItemID, F_ItemTypeID, F_Removed FROM T_ChangeLog "
                                    "WHERE F_Seq >= ? ORDER BY F_Seq LIMIT "_s
                                        + QString::number(limit),
                                    {fromSeq});
    while (CConnection::next(q)) {
        ItemChange change;
        change.seq = q.value(0).toLongLong();
        const QString table = q.value(1).toString().trimmed();
        const auto id = SqlValue::toInt32(q.value(2));
        const auto type = SqlValue::toInt16(q.value(3));
        const auto removed = SqlValue::toInt16(q.value(4));
        if (!id || !type || !removed || *removed < 0 || *removed > 1) {
            changes.append(reloadAll(change.seq));
            continue;
        }
        change.id = *id;
        change.itemType = *type;
        if (table == u"*"_s && *id == 0 && *type >= 0 && *type <= 12) {
            change.kind = ItemChange::Reload;
        } else if (table.compare(u"T_Item"_s, Qt::CaseInsensitive) == 0) {
            change.kind = *removed ? ItemChange::Removed : ItemChange::Saved;
        } else if (table.compare(u"T_GoodsPrice"_s, Qt::CaseInsensitive) == 0 && *removed == 0) {
            change.kind = ItemChange::Saved;
            change.price = true;
        } else {
            change = reloadAll(change.seq);
        }
        changes.append(change);
    }
    return changes;
}

void ChangeLog::noteReload(CConnection &connection, int itemType)
{
    connection.Execute(
        u"INSERT INTO T_ChangeLog (F_TableName, F_ItemID, F_ItemTypeID, F_Removed) VALUES ('*', 0, ?, 0)"_s,
        {itemType});
    if (connection.engine() == Engine::PostgreSQL) {
        connection.Execute(u"SELECT pg_notify('quillon_change', '')"_s);
    }
}

int ChangeLog::prune(CConnection &connection)
{
    const QString cutoff = connection.engine() == Engine::SQLite
        ? u"datetime('now', '-"_s + QString::number(kKeepHours) + u" hours')"_s
        : u"now() - interval '"_s + QString::number(kKeepHours) + u" hours'"_s;
    // Always a run of the oldest rows, so that a seat can tell by its last row whether it missed any.
    QSqlQuery q = connection.Select(u"SELECT MAX(F_Seq) FROM T_ChangeLog WHERE F_Time < "_s + cutoff);
    if (!CConnection::next(q) || q.value(0).isNull()) {
        return 0;
    }
    const qint64 upTo = q.value(0).toLongLong();
    return connection.Execute(
        u"DELETE FROM T_ChangeLog WHERE F_Seq <= ? AND F_Seq < (SELECT MAX(F_Seq) FROM T_ChangeLog)"_s, {upTo});
}

bool ChangeLog::suspendTriggers(CConnection &connection, const QString &table)
{
    const QString name = watchedName(table);
    if (name.isEmpty() || !connection.hasTable(kTableName)) {
        return false;
    }
    bool present = false;
    if (connection.engine() == Engine::SQLite) {
        for (const SqliteTrigger &trigger : kSqliteTriggers) {
            present = present
                || (name == QLatin1StringView(trigger.table)
                    && hasTrigger(connection, QString::fromLatin1(trigger.name), table));
        }
    } else {
        present = hasTrigger(connection, postgresTrigger(table), table);
    }
    if (!present) {
        return false;
    }
    // Triggers of an older program cannot be paused: they get the current form first.
    createTriggers(connection, name);
    if (connection.engine() == Engine::SQLite) {
        connection.Execute(u"INSERT INTO T_ChangeLogPause (F_TableName) VALUES (?)"_s, {name});
    } else {
        connection.Select(u"SELECT set_config(?, 'on', true)"_s, {QVariant(u"quillon.pause_"_s + name.toLower())});
    }
    return true;
}

void ChangeLog::restoreTriggers(CConnection &connection, const QString &table)
{
    const QString name = watchedName(table);
    if (name.isEmpty() || !connection.hasTable(kTableName)) {
        return;
    }
    if (connection.engine() == Engine::SQLite) {
        if (connection.hasTable(kPauseTableName)) {
            connection.Execute(u"DELETE FROM T_ChangeLogPause WHERE F_TableName = ?"_s, {name});
        }
    } else {
        connection.Select(u"SELECT set_config(?, 'off', true)"_s, {QVariant(u"quillon.pause_"_s + name.toLower())});
    }
}
