// Several seats on one database: changes reach the other seats, and no save overwrites a change it did not see.
#include "cbus.h"
#include "cconnection.h"
#include "changefeed.h"
#include "changelog.h"
#include "citems.h"
#include "databasecopy.h"
#include "itemtablemodel.h"
#include "prompt.h"
#include "testdatabase.h"

#include <QCoreApplication>
#include <QProcess>
#include <QSignalSpy>
#include <QSqlQuery>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

constexpr int kWaitMs = 5000;

struct Seat
{
    std::shared_ptr<CConnection> db;
    std::unique_ptr<CBus> bus;
    CItems &goods() const { return *bus->mAllGoods(); }
};

Seat openSeat(const QString &url)
{
    Seat seat;
    QString error;
    seat.db = CConnection::Open(url, &error);
    if (!seat.db) {
        qWarning("%s", qPrintable(error));
        return seat;
    }
    seat.db->EnsureSchema();
    seat.bus = std::make_unique<CBus>();
    seat.bus->InitAllData(seat.db);
    return seat;
}

CItemPtr newGoods(const QString &no, const QString &name)
{
    auto item = CItem::create();
    item->setF_ItemTypeID(4);
    item->setF_ItemNo(no);
    item->setF_ItemName(name);
    return item;
}

QString storedName(CConnection &db, qint32 id)
{
    QSqlQuery q = db.Select(u"SELECT F_ItemName FROM T_Item WHERE F_ID=?"_s, {id});
    return q.next() ? q.value(0).toString() : u"(gone)"_s;
}

} // namespace

class SeatsTest : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<ScriptedPrompt> m_prompt;

    static QString run(const QString &program, const QStringList &args)
    {
        QProcess p;
        p.start(QCoreApplication::applicationDirPath() + u'/' + program, args);
        if (!p.waitForFinished(60000) || p.exitStatus() != QProcess::NormalExit || p.exitCode() != 0) {
            qWarning("%s %s failed: %s", qPrintable(program), qPrintable(args.join(u' ')),
                     p.readAllStandardError().constData());
            return u"(failed)"_s;
        }
        return QString::fromUtf8(p.readAllStandardOutput()).trimmed();
    }
    static QString cli(const QString &url, const QStringList &args)
    {
        return run(u"quillon-cli"_s, QStringList {u"--db"_s, url} + args);
    }
    static QString sql(const QString &url, const QString &statement)
    {
        return run(u"seat_worker"_s, {url, u"sql"_s, statement});
    }
    // A program that writes the change table itself sends no notice; on PostgreSQL it comes from here.
    static void notify(const QString &url)
    {
        if (TestDatabase::isPostgreSQL()) {
            sql(url, u"NOTIFY quillon_change"_s);
        }
    }

private Q_SLOTS:
    void init()
    {
        m_prompt = std::make_unique<ScriptedPrompt>();
        CPrompt::setCurrent(m_prompt.get());
    }
    void cleanup() { CPrompt::setCurrent(nullptr); }

    // Another program adds, renames, re-prices and deletes goods; the open seat follows every step.
    void changesOfAnotherProgramReachTheSeat()
    {
        const QString url = TestDatabase::freshUrl();
        Seat a = openSeat(url);
        QVERIFY(a.bus && a.bus->changeFeed());
        QSignalSpy removed(&a.goods(), &CItems::SomeOneRemoved);

        const qint32 id = cli(url, {u"add"_s, u"goods"_s, u"--name"_s, u"苹果"_s, u"--no"_s, u"SP01"_s}).toInt();
        QVERIFY(id > 0);
        QTRY_VERIFY_WITH_TIMEOUT(a.goods().SearchItemByID(id), kWaitMs);
        const CItemPtr apple = a.goods().SearchItemByID(id);
        QCOMPARE(apple->F_ItemName(), u"苹果"_s);

        cli(url, {u"rename"_s, u"goods"_s, QString::number(id), u"红富士"_s});
        QTRY_COMPARE_WITH_TIMEOUT(apple->F_ItemName(), u"红富士"_s, kWaitMs);
        QCOMPARE(a.goods().GetItemByItemName(u"红富士"_s), apple);

        // A sale price written by plain SQL, and a client-type price.
        QCOMPARE(a.bus->priceBook().clientTypePrice(id, 7), std::nullopt);
        sql(url, u"UPDATE T_Item SET F_Price4=9.5 WHERE F_ID="_s + QString::number(id));
        QTRY_COMPARE_WITH_TIMEOUT(apple->F_PriceSale(), *Currency::fromString(u"9.5"), kWaitMs);
        QSignalSpy changed(&a.goods(), &CItems::SomeOneChanged);
        run(u"seat_worker"_s, {url, u"price"_s, QString::number(id), u"7"_s, u"12.25"_s});
        QTRY_COMPARE_WITH_TIMEOUT(a.bus->priceBook().clientTypePrice(id, 7), Currency::fromString(u"12.25"), kWaitMs);
        QTRY_VERIFY_WITH_TIMEOUT(!changed.isEmpty(), kWaitMs);
        QCOMPARE(changed.constLast().at(0).value<CItemPtr>(), apple);

        cli(url, {u"delete"_s, u"goods"_s, QString::number(id), u"--yes"_s});
        QTRY_VERIFY_WITH_TIMEOUT(!a.goods().SearchItemByID(id), kWaitMs);
        QCOMPARE(removed.size(), 1);
        QCOMPARE(removed.at(0).at(0).toInt(), id);
    }

    // A seat's own save is told once, and again by nobody when the seat later reads its own change row.
    void ownSaveIsToldOnceAndReachesTheOtherSeat()
    {
        const QString url = TestDatabase::freshUrl();
        Seat a = openSeat(url);
        Seat b = openSeat(url);
        QSignalSpy toldA(&a.goods(), &CItems::SomeOneChanged);
        const CItemPtr pear = newGoods(u"SP02"_s, u"鸭梨"_s);
        QVERIFY(a.goods().SaveItem(pear));
        QCOMPARE(toldA.size(), 1);
        QTRY_VERIFY_WITH_TIMEOUT(b.goods().SearchItemByID(pear->F_ID()), kWaitMs);
        QCOMPARE(b.goods().SearchItemByID(pear->F_ID())->F_ItemName(), u"鸭梨"_s);

        // B's next change makes A read the change table, its own row included.
        const CItemPtr unit = CItem::create();
        unit->setF_ItemTypeID(2);
        unit->setF_ItemName(u"箱"_s);
        QVERIFY(b.bus->mUnits()->SaveItem(unit));
        QTRY_VERIFY_WITH_TIMEOUT(a.bus->mUnits()->SearchItemByID(unit->F_ID()), kWaitMs);
        QCOMPARE(a.bus->changeFeed()->position(), ChangeLog::lastSeq(*a.db));
        QCOMPARE(toldA.size(), 1);
        QCOMPARE(a.goods().Count(), 1);
    }

    // Regression: the seat's own writes that passed by its lists reached them only when some other seat happened
    // to commit; now they arrive as another seat's do, and what the lists hold already is not told again.
    void ownWritesPastTheListsArriveWithoutAnotherSeat()
    {
        Seat a = openSeat(TestDatabase::freshUrl());
        QSignalSpy told(&a.goods(), &CItems::SomeOneChanged);
        const CItemPtr pear = newGoods(u"SP02"_s, u"鸭梨"_s);
        QVERIFY(a.bus->SaveItemToDB(pear, a.db) > 0);
        QTRY_VERIFY_WITH_TIMEOUT(a.goods().SearchItemByID(pear->F_ID()), kWaitMs);
        QCOMPARE(told.size(), 1);
        // A goods saved hidden (F_Tag3 above 0) leaves the list at the next look, not at some later change.
        const CItemPtr hidden = newGoods(u"SP03"_s, u"停售"_s);
        hidden->setF_Tag3(1);
        QVERIFY(a.goods().SaveItem(hidden));
        QTRY_VERIFY_WITH_TIMEOUT(!a.goods().SearchItemByID(hidden->F_ID()), kWaitMs);
        // An own save through the list is not told twice.
        const qsizetype before = told.size();
        QVERIFY(a.goods().SaveItem(newGoods(u"SP04"_s, u"雪梨"_s)));
        QTest::qWait(400);
        QCOMPARE(told.size(), before + 1);
    }

    // A goods that moves to a unit another seat added shows that unit's name.
    void joinedNamesFollowAnotherSeatsChange()
    {
        const QString url = TestDatabase::freshUrl();
        Seat a = openSeat(url);
        Seat b = openSeat(url);
        const CItemPtr unit = CItem::create();
        unit->setF_ItemTypeID(2);
        unit->setF_ItemName(u"打"_s);
        QVERIFY(b.bus->mUnits()->SaveItem(unit));
        const CItemPtr pen = newGoods(u"SP03"_s, u"铅笔"_s);
        pen->setF_Tag1(unit->F_ID());
        QVERIFY(b.goods().SaveItem(pen));
        QTRY_VERIFY_WITH_TIMEOUT(a.goods().SearchItemByID(pen->F_ID()), kWaitMs);
        QCOMPARE(a.goods().SearchItemByID(pen->F_ID())->mUnitName(), u"打"_s);
    }

    // Two seats edit one goods: the second save is refused, the first value survives, and the clerk may reload.
    void secondSaveOfOneItemIsRefused()
    {
        const QString url = TestDatabase::freshUrl();
        Seat a = openSeat(url);
        const CItemPtr tea = newGoods(u"SP04"_s, u"绿茶"_s);
        QVERIFY(a.goods().SaveItem(tea));
        Seat b = openSeat(url);
        const CItemPtr editA = CItem::create(*a.goods().SearchItemByID(tea->F_ID()));
        const CItemPtr editB = CItem::create(*b.goods().SearchItemByID(tea->F_ID()));

        editB->setF_ItemName(u"龙井"_s);
        QVERIFY(b.goods().SaveItem(editB));
        editA->setF_ItemName(u"碧螺春"_s);
        m_prompt->queueAnswer(CPrompt::vbNo);
        QVERIFY(!a.goods().SaveItem(editA));
        QVERIFY2(m_prompt->lastText().startsWith(u"该记录已被其他用户修改,请刷新后再改。"_s),
                 qPrintable(m_prompt->lastText()));
        QCOMPARE(storedName(*a.db, tea->F_ID()), u"龙井"_s);
        QCOMPARE(editA->F_ItemName(), u"碧螺春"_s);

        // Reloading gives the clerk what is stored; a save from there goes through.
        m_prompt->queueAnswer(CPrompt::vbYes);
        QVERIFY(!a.goods().SaveItem(editA));
        QCOMPARE(editA->F_ItemName(), u"龙井"_s);
        QCOMPARE(a.goods().SearchItemByID(tea->F_ID())->F_ItemName(), u"龙井"_s);
        editA->setF_Remark(u"明前"_s);
        QVERIFY(a.goods().SaveItem(editA));
        QCOMPARE(storedName(*a.db, tea->F_ID()), u"龙井"_s);
    }

    // Plain SQL of another program counts as a change too.
    void saveOverAnotherProgramsWriteIsRefused()
    {
        const QString url = TestDatabase::freshUrl();
        Seat a = openSeat(url);
        const CItemPtr salt = newGoods(u"SP05"_s, u"盐"_s);
        QVERIFY(a.goods().SaveItem(salt));
        const CItemPtr edit = CItem::create(*salt);
        sql(url, u"UPDATE T_Item SET F_Standard='500g' WHERE F_ID="_s + QString::number(salt->F_ID()));
        edit->setF_ItemName(u"精盐"_s);
        m_prompt->queueAnswer(CPrompt::vbNo);
        QVERIFY(!a.goods().SaveItem(edit));
        QCOMPARE(storedName(*a.db, salt->F_ID()), u"盐"_s);
    }

    // The grid keeps the clerk's edit on screen after a refused save; reloading replaces it by the stored values.
    void gridKeepsTheClerksEditAfterARefusedSave()
    {
        const QString url = TestDatabase::freshUrl();
        Seat a = openSeat(url);
        const CItemPtr rice = newGoods(u"SP06"_s, u"大米"_s);
        QVERIFY(a.goods().SaveItem(rice));
        Seat b = openSeat(url);
        ItemTableModel model(&a.goods(), ItemTableModel::goodsFields());
        const QModelIndex name = model.index(0, model.columnOf(ItemTableModel::ItemName));
        QVERIFY(model.setData(name, u"东北大米"_s));

        const CItemPtr other = CItem::create(*b.goods().SearchItemByID(rice->F_ID()));
        other->setF_ItemName(u"泰国香米"_s);
        QVERIFY(b.goods().SaveItem(other));
        // The notice reaches A while the clerk's edit waits; the row keeps showing the edit.
        QTRY_COMPARE_WITH_TIMEOUT(a.goods().SearchItemByID(rice->F_ID())->F_ItemName(), u"泰国香米"_s, kWaitMs);
        QCOMPARE(model.data(name).toString(), u"东北大米"_s);

        m_prompt->queueAnswer(CPrompt::vbNo);
        QVERIFY(!model.SaveChanges());
        QCOMPARE(model.data(name).toString(), u"东北大米"_s);
        QVERIFY(model.isModified());
        QCOMPARE(storedName(*a.db, rice->F_ID()), u"泰国香米"_s);

        m_prompt->queueAnswer(CPrompt::vbYes);
        QVERIFY(!model.SaveChanges());
        QCOMPARE(model.data(name).toString(), u"泰国香米"_s);
        QVERIFY(!model.isModified());
    }

    void deletingAnItemChangedElsewhereAsksFirst()
    {
        const QString url = TestDatabase::freshUrl();
        Seat a = openSeat(url);
        const CItemPtr ink = newGoods(u"SP07"_s, u"墨水"_s);
        QVERIFY(a.goods().SaveItem(ink));
        a.bus->changeFeed()->stop(); // A does not hear of B's change before it deletes
        Seat b = openSeat(url);
        const CItemPtr edit = CItem::create(*b.goods().SearchItemByID(ink->F_ID()));
        edit->setF_ItemName(u"蓝黑墨水"_s);
        QVERIFY(b.goods().SaveItem(edit));

        m_prompt->queueAnswer(CPrompt::vbNo);
        QVERIFY(!a.goods().RemoveItem(ink->F_ID()));
        QCOMPARE(m_prompt->lastText(), u"该记录已被其他用户修改!\r\n您确实要删除吗?"_s);
        QCOMPARE(storedName(*a.db, ink->F_ID()), u"蓝黑墨水"_s);
        QCOMPARE(a.goods().SearchItemByID(ink->F_ID())->F_ItemName(), u"蓝黑墨水"_s);

        // Now A holds what is stored: no question.
        m_prompt->clear();
        QVERIFY(a.goods().RemoveItem(ink->F_ID()));
        QVERIFY(m_prompt->shown().isEmpty());
        QCOMPARE(storedName(*a.db, ink->F_ID()), u"(gone)"_s);
    }

    // Rubbish in the change table makes the seat reload; a notice of a missing item changes nothing.
    void rubbishInTheChangeTableReloads()
    {
        const QString url = TestDatabase::freshUrl();
        Seat a = openSeat(url);
        QSignalSpy resets(&a.goods(), &CItems::ListReset);
        sql(url, u"INSERT INTO T_ChangeLog (F_TableName, F_ItemID, F_ItemTypeID, F_Removed) VALUES ('xx', 5, 4, 7)"_s);
        notify(url);
        QTRY_COMPARE_WITH_TIMEOUT(resets.size(), 1, kWaitMs);

        // A notice of an item that is not there changes nothing.
        sql(url, u"INSERT INTO T_ChangeLog (F_TableName, F_ItemID, F_ItemTypeID) VALUES ('T_Item', 999999, 4)"_s);
        notify(url);
        const qint64 last = ChangeLog::lastSeq(*a.db);
        QTRY_COMPARE_WITH_TIMEOUT(a.bus->changeFeed()->position(), last, kWaitMs);
        QCOMPARE(a.goods().Count(), 0);
        QCOMPARE(resets.size(), 1);
    }

    // Another seat pruned the change table past this seat's position: the next change makes it reload.
    void prunedPositionReloads()
    {
        const QString url = TestDatabase::freshUrl();
        Seat a = openSeat(url);
        const qint32 first = cli(url, {u"add"_s, u"goods"_s, u"--name"_s, u"酱油"_s, u"--no"_s, u"SP11"_s}).toInt();
        QTRY_VERIFY_WITH_TIMEOUT(a.goods().SearchItemByID(first), kWaitMs);
        QSignalSpy resets(&a.goods(), &CItems::ListReset);
        sql(url, u"DELETE FROM T_ChangeLog"_s);
        const qint32 second = cli(url, {u"add"_s, u"goods"_s, u"--name"_s, u"料酒"_s, u"--no"_s, u"SP12"_s}).toInt();
        QTRY_VERIFY_WITH_TIMEOUT(a.goods().SearchItemByID(second), kWaitMs);
        QVERIFY(resets.size() >= 1);
        QVERIFY(a.goods().SearchItemByID(first));
    }

    // The operations tool: one line per change of the kinds asked for, as it arrives.
    void watchPrintsEachChangeAsItArrives()
    {
        const QString url = TestDatabase::freshUrl();
        cli(url, {u"init"_s});
        QProcess watch;
        watch.start(QCoreApplication::applicationDirPath() + u"/quillon-cli"_s,
                    {u"--db"_s, url, u"watch"_s, u"goods"_s, u"client"_s});
        QString ready;
        QTRY_VERIFY_WITH_TIMEOUT((ready += QString::fromUtf8(watch.readAllStandardError())).contains(u"正在监视"_s),
                                 kWaitMs);
        const QString id = cli(url, {u"add"_s, u"goods"_s, u"--name"_s, u"茶叶"_s, u"--no"_s, u"SP13"_s});
        cli(url, {u"add"_s, u"unit"_s, u"--name"_s, u"斤"_s});
        cli(url, {u"rename"_s, u"goods"_s, id, u"红茶"_s});
        cli(url, {u"delete"_s, u"goods"_s, id, u"--yes"_s});
        const QString expected = u"saved\t4\t"_s + id + u"\nsaved\t4\t"_s + id + u"\nremoved\t4\t"_s + id + u'\n';
        QString got;
        QTRY_VERIFY_WITH_TIMEOUT((got += QString::fromUtf8(watch.readAllStandardOutput())).size() >= expected.size(),
                                 kWaitMs);
        QCOMPARE(got, expected);
        watch.terminate();
        QVERIFY(watch.waitForFinished(kWaitMs));
    }

    // Change notes that could only be turned off by dropping the triggers (their form before the pause) get the
    // form that can be paused when the database is opened, and a pause then leaves the other seats' notes alone.
    void olderChangeTriggersAreUpgradedOnOpen()
    {
        const QString url = TestDatabase::freshUrl();
        {
            auto db = CConnection::Open(url);
            QVERIFY(db);
            db->EnsureSchema();
            CTransaction transaction(*db);
            if (db->engine() == CConnection::Engine::SQLite) {
                db->Execute(u"DROP TRIGGER TR_Item_Insert"_s);
                db->Execute(u"CREATE TRIGGER TR_Item_Insert AFTER INSERT ON T_Item BEGIN INSERT INTO T_ChangeLog "
                            "(F_TableName, F_ItemID, F_ItemTypeID, F_Removed) VALUES ('T_Item', NEW.F_ID, "
                            "NEW.F_ItemTypeID, 0); END"_s);
                db->Execute(u"DROP TABLE T_ChangeLogPause"_s);
            } else {
                db->Execute(u"CREATE OR REPLACE FUNCTION quillon_note_change() RETURNS trigger LANGUAGE plpgsql AS "
                            "$$ BEGIN INSERT INTO T_ChangeLog (F_TableName, F_ItemID, F_ItemTypeID, F_Removed) "
                            "VALUES ('T_Item', NEW.F_ID, NEW.F_ItemTypeID, 0); RETURN NULL; END $$"_s);
            }
            transaction.Commit();
            QVERIFY(!ChangeLog::isInstalled(*db));
        }
        auto db = CConnection::Open(url);
        QVERIFY(db);
        db->EnsureSchema();
        QVERIFY(ChangeLog::isInstalled(*db));
        const qint64 before = ChangeLog::lastSeq(*db);
        {
            CTransaction transaction(*db);
            QVERIFY(ChangeLog::suspendTriggers(*db, u"T_Item"_s));
            db->Execute(u"INSERT INTO T_Item (F_ID, F_ItemName, F_ItemTypeID) VALUES (3, '暂停时', 4)"_s);
            ChangeLog::restoreTriggers(*db, u"T_Item"_s);
            transaction.Commit();
        }
        QCOMPARE(ChangeLog::lastSeq(*db), before);
        sql(url, u"INSERT INTO T_Item (F_ID, F_ItemName, F_ItemTypeID) VALUES (4, '之后', 4)"_s);
        const QList<ItemChange> rows = ChangeLog::read(*db, before + 1, 10);
        QCOMPARE(rows.size(), 1);
        QCOMPARE(rows.at(0).id, 4);
    }

    // An existing database gets the change table on open and nothing else changes.
    void existingDatabaseGetsTheChangeTableOnOpen()
    {
        const QString url = TestDatabase::freshUrl();
        {
            auto db = CConnection::Open(url);
            QVERIFY(db);
            db->EnsureSchema();
            CTransaction transaction(*db);
            // A database as programs before the change table left it.
            if (db->engine() == CConnection::Engine::SQLite) {
                for (const char16_t *trigger :
                     {u"TR_Item_Insert", u"TR_Item_Update", u"TR_Item_Delete", u"TR_GoodsPrice_Insert",
                      u"TR_GoodsPrice_Update", u"TR_GoodsPrice_Delete"}) {
                    db->Execute(u"DROP TRIGGER "_s + QString::fromUtf16(trigger));
                }
                db->Execute(u"DROP TABLE T_ChangeLogPause"_s);
            } else {
                db->Execute(u"DROP TRIGGER tr_item_change ON T_Item"_s);
                db->Execute(u"DROP TRIGGER tr_goodsprice_change ON T_GoodsPrice"_s);
            }
            db->Execute(u"DROP TABLE T_ChangeLog"_s);
            db->Execute(u"INSERT INTO T_Item (F_ID, F_ItemName, F_ItemTypeID) VALUES (3, '旧商品', 4)"_s);
            transaction.Commit();
            QVERIFY(!ChangeLog::isInstalled(*db));
        }
        auto db = CConnection::Open(url);
        QVERIFY(db);
        db->EnsureSchema();
        QVERIFY(ChangeLog::isInstalled(*db));
        QCOMPARE(db->tableRecord(u"T_Item"_s).count(), int(CItem::columns().size()));
        QCOMPARE(ChangeLog::lastSeq(*db), 0);
        QCOMPARE(storedName(*db, 3), u"旧商品"_s);
        // From now on changes are noted.
        sql(url, u"UPDATE T_Item SET F_ItemName='新商品' WHERE F_ID=3"_s);
        const QList<ItemChange> rows = ChangeLog::read(*db, 0, 10);
        QCOMPARE(rows.size(), 1);
        QCOMPARE(rows.at(0).id, 3);
        QCOMPARE(rows.at(0).kind, ItemChange::Saved);
    }

    // A bulk copy into a database notes one reload instead of a row per item, and the change rows of the source
    // are not copied.
    void bulkCopyNotesOneReload()
    {
        auto source = TestDatabase::create();
        QVERIFY(source);
        source->Execute(u"INSERT INTO T_Item (F_ID, F_ItemNo, F_ItemName, F_ItemTypeID) VALUES (1, 'A', '甲', 4), "
                        "(2, 'B', '乙', 4)"_s);
        const QString url = TestDatabase::freshUrl();
        Seat a = openSeat(url);
        QSignalSpy resets(&a.goods(), &CItems::ListReset);
        {
            auto target = CConnection::Open(url);
            QVERIFY(target);
            const DatabaseCopy::Result result =
                DatabaseCopy::copyTables(*source, *target, DatabaseCopy::MasterTables());
            QVERIFY2(result.ok, qPrintable(result.error));
            QVERIFY(ChangeLog::isInstalled(*target));
            // The seat noted its company record when it opened; the copy adds one reload, no row per item.
            const QList<ItemChange> rows = ChangeLog::read(*target, 0, 10);
            QCOMPARE(rows.size(), 2);
            QCOMPARE(rows.at(1).kind, ItemChange::Reload);
            QCOMPARE(rows.at(1).itemType, 0);
        }
        QTRY_COMPARE_WITH_TIMEOUT(a.goods().Count(), 2, kWaitMs);
        QVERIFY(resets.size() >= 1);
    }
};

QTEST_MAIN(SeatsTest)
#include "tst_seats.moc"
