#ifndef QUILLON_ITEMFIXTURES_H
#define QUILLON_ITEMFIXTURES_H

#include "cconnection.h"

#include <QSqlQuery>
#include <QString>

/**
 * Rows written straight into the tables, bypassing the collections, and ways to make statements fail.
 */
namespace ItemFixtures {

struct Row
{
    qint32 id = 0;
    int type = 0;
    QString no;
    QString name;
    qint32 parent = 0;
    qint32 tag1 = 0;
    qint32 tag2 = 0;
    qint32 tag3 = 0;
    qint32 tag4 = 0;
    qint32 orderBy = 0;
};

inline void insert(CConnection &db, const Row &r)
{
    db.Execute(QStringLiteral("Insert Into T_Item (F_ID, F_ItemTypeID, F_ItemNo, F_ItemName, F_ParentID, F_Tag1, "
                              "F_Tag2, F_Tag3, F_Tag4, F_OrderByID) Values (?,?,?,?,?,?,?,?,?,?)"),
               {r.id, r.type, r.no, r.name, r.parent, r.tag1, r.tag2, r.tag3, r.tag4, r.orderBy});
}

inline int count(CConnection &db, const QString &sql)
{
    QSqlQuery q = db.Select(sql);
    return q.next() ? q.value(0).toInt() : -1;
}

/// Makes every `operation` (INSERT, UPDATE or DELETE) on `table` fail inside the database.
inline void failOn(CConnection &db, const QString &table, const QString &operation)
{
    const QString name = QStringLiteral("quillon_fail_") + operation.toLower() + QStringLiteral("_") + table.toLower();
    if (db.engine() == CConnection::Engine::SQLite) {
        db.Execute(QStringLiteral("CREATE TRIGGER ") + name + QStringLiteral(" BEFORE ") + operation
                   + QStringLiteral(" ON ") + table + QStringLiteral(" BEGIN SELECT RAISE(ABORT, 'blocked'); END"));
    } else {
        db.Execute(QStringLiteral("CREATE OR REPLACE FUNCTION quillon_fail() RETURNS trigger LANGUAGE plpgsql AS "
                                  "$$ BEGIN RAISE EXCEPTION 'blocked'; END $$"));
        db.Execute(QStringLiteral("CREATE TRIGGER ") + name + QStringLiteral(" BEFORE ") + operation
                   + QStringLiteral(" ON ") + table + QStringLiteral(" FOR EACH ROW EXECUTE FUNCTION quillon_fail()"));
    }
}

} // namespace ItemFixtures

#endif
