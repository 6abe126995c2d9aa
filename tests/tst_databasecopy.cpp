#include "cbus.h"
#include "cconnection.h"
#include "citems.h"
#include "databasecopy.h"
#include "itemfixtures.h"
#include "keyid.h"
#include "prompt.h"
#include "testdatabase.h"

#include <QElapsedTimer>
#include <QFile>
#include <QSqlQuery>
#include <QTest>

#include <csignal>
#include <sys/types.h>

using namespace Qt::StringLiterals;

class DatabaseCopyTest : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<ScriptedPrompt> m_prompt;

    // Every item of every kind, each column by meaning, in key order.
    static QStringList items(const std::shared_ptr<CConnection> &db)
    {
        QStringList out;
        // Keys first: PostgreSQL streams a result, so no other statement may run while it is read.
        std::vector<std::pair<qint32, int>> keys;
        {
            QSqlQuery ids = db->Select(u"Select F_ID, F_ItemTypeID From T_Item Order By F_ID"_s);
            while (ids.next()) {
                keys.emplace_back(ids.value(0).toInt(), ids.value(1).toInt());
            }
        }
        std::map<int, std::unique_ptr<CItems>> kinds;
        for (const auto &[id, type] : keys) {
            auto &items = kinds[type];
            if (!items) {
                items = std::make_unique<CItems>();
                items->Attach(db, type);
            }
            const CItemPtr item = items->GetItemByID(id, true);
            if (!item) {
                out.append(u"<missing "_s + QString::number(id) + u">"_s);
                continue;
            }
            QStringList values;
            for (qsizetype c = 0; c < qsizetype(CItem::columnNames().size()); ++c) {
                const QVariant v = item->value(int(c));
                values.append(v.canConvert<Currency>() && v.typeId() == qMetaTypeId<Currency>()
                                  ? v.value<Currency>().toString()
                                  : v.toString());
            }
            out.append(values.join(u'|'));
        }
        return out;
    }
    static QStringList prices(const std::shared_ptr<CConnection> &db)
    {
        QStringList out;
        QSqlQuery q = db->Select(
            u"Select F_ID, F_GoodsID, F_ClientID, F_ClientTypeID, F_Price From T_GoodsPrice Order By F_ID"_s);
        while (q.next()) {
            const std::optional<Currency> price = q.value(4).typeId() == QMetaType::Double
                ? Currency::fromDouble(q.value(4).toDouble())
                : Currency::fromString(q.value(4).toString());
            out.append(q.value(0).toString() + u'|' + q.value(1).toString() + u'|' + q.value(2).toString() + u'|'
                       + q.value(3).toString() + u'|' + (price ? price->toString() : u"?"_s));
        }
        return out;
    }
    static void fill(const std::shared_ptr<CConnection> &db)
    {
        CItems goods;
        goods.Attach(db, 4);
        auto item = CItem::create();
        item->setF_ItemTypeID(4);
        item->setF_ItemNo(u"G001"_s);
        item->setF_ItemName(u"Tom's \"可乐\"\t制表\n换行\\反斜杠"_s);
        item->setF_PriceSale(*Currency::fromString(u"2.5"));
        item->setF_PriceEnter(*Currency::fromString(u"0.1234"));
        item->setF_PriceSalePack(*Currency::fromString(u"123456789012345.6789")); // beyond a double's digits
        item->setF_PackageAmount(24.0f);
        item->setF_LimitUp(0.1f);
        item->setF_IsSpecial(true);
        item->setF_Date(QDateTime(QDate(2024, 3, 1), QTime(14, 30), Qt::UTC));
        item->setF_Time1(QDateTime(QDate(2024, 3, 2), QTime(8, 15, 30), Qt::UTC));
        QVERIFY(goods.SaveItem(item));
        ItemFixtures::insert(*db, {50, 1, u"KH0001"_s, u"华联超市"_s, 8, 2});
        db->Execute(u"Update T_Item Set F_OweWarring=20000.5, F_Remark=NULL Where F_ID=50"_s);
        ItemFixtures::insert(*db, {60, 2, QString(), u"瓶"_s});
        db->Execute(u"Insert Into T_GoodsPrice (F_ID, F_GoodsID, F_ClientID, F_ClientTypeID, F_Price) "
                    "Values (7, 1, 50, 0, 2.45)"_s);
        db->Execute(u"Insert Into T_GoodsInOutList (F_ID, F_GoodsID, F_Amount, F_Price, F_Date) "
                    "Values (3, 1, 12, 2.5, '2024-03-05')"_s);
        Module1::ReseedKeyID(*db, u"T_Item"_s);
    }

private Q_SLOTS:
    void init()
    {
        m_prompt = std::make_unique<ScriptedPrompt>();
        CPrompt::setCurrent(m_prompt.get());
    }
    void cleanup() { CPrompt::setCurrent(nullptr); }

    void roundTripGivesIdenticalRowsAndNextKeys()
    {
        auto source = TestDatabase::createSqlite();
        auto middle = TestDatabase::create(); // PostgreSQL in the _postgresql run
        auto back = TestDatabase::createSqlite();
        fill(source);
        const QStringList before = items(source);
        QCOMPARE(before.size(), 3);

        DatabaseCopy::Result there = CBus::CopyTableDataBetweenDB(*source, *middle, CBus::MasterTables());
        QVERIFY2(there.ok, qPrintable(there.error));
        QCOMPARE(there.rows.value(0).second, 3);
        QCOMPARE(there.rows.value(1).second, 1);
        DatabaseCopy::Result home = CBus::CopyTableDataBetweenDB(*middle, *back, CBus::MasterTables());
        QVERIFY2(home.ok, qPrintable(home.error));

        QCOMPARE(items(middle), before);
        QCOMPARE(items(back), before);
        QCOMPARE(prices(back), prices(source));
        QCOMPARE(prices(back), QStringList {u"7|1|50|0|2.45"_s});
        for (const auto &db : {middle, back}) {
            QCOMPARE(Module1::GetNewID(*db, u"T_Item"_s, false), 61);
            QCOMPARE(Module1::GetNewID(*db, u"T_GoodsPrice"_s, false), 8);
            QCOMPARE(Module1::GetNewID(*db, u"T_GoodsInOutList"_s, false), 4);
        }
        // The copied tables keep their indexes.
        CItems goods;
        QVERIFY(goods.InitInstance(back, 4));
        QCOMPARE(goods.Item(1)->F_ItemName(), u"Tom's \"可乐\"\t制表\n换行\\反斜杠"_s);
    }

    // A shop's goods list is longer than the pieces a copy reads at a time; every row arrives, in both directions.
    void manyThousandRowsArriveComplete()
    {
        auto source = TestDatabase::createSqlite();
        auto middle = TestDatabase::create();
        auto back = TestDatabase::createSqlite();
        const int rows = 25'001;
        source->Execute(
            u"WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < "_s + QString::number(rows)
            + u") Insert Into T_Item (F_ID, F_ItemTypeID, F_ItemNo, F_ItemName, F_ParentID, F_Tag1, F_Tag2,"
              " F_Tag3, F_Tag4, F_OrderByID) Select i * 2, 4, printf('G%06d', i), '商品' || i, 0, 0, 0, 0, 0,"
              " 0 From n"_s);
        DatabaseCopy::Result there = CBus::CopyTableDataBetweenDB(*source, *middle, CBus::MasterTables());
        QVERIFY2(there.ok, qPrintable(there.error));
        QCOMPARE(there.rows.value(0).second, rows);
        DatabaseCopy::Result home = CBus::CopyTableDataBetweenDB(*middle, *back, CBus::MasterTables());
        QVERIFY2(home.ok, qPrintable(home.error));
        QCOMPARE(home.rows.value(0).second, rows);
        const QString summary = u"Select Count(*), Count(Distinct F_ID), Min(F_ID), Max(F_ID) From T_Item"_s;
        for (const auto &db : {middle, back}) {
            QSqlQuery q = db->Select(summary);
            QVERIFY(q.next());
            QCOMPARE(QList<int>({q.value(0).toInt(), q.value(1).toInt(), q.value(2).toInt(), q.value(3).toInt()}),
                     QList<int>({rows, rows, 2, rows * 2}));
            QCOMPARE(Module1::GetNewID(*db, u"T_Item"_s, false), rows * 2 + 1);
        }
        CItems goods;
        QVERIFY(goods.InitInstance(back, 4));
        QCOMPARE(goods.Count(), rows);
        QCOMPARE(goods.GetItemByID(rows * 2)->F_ItemName(), u"商品"_s + QString::number(rows));
    }

    void failedCopyLeavesTheTargetAsItWas()
    {
        auto source = TestDatabase::createSqlite();
        auto target = TestDatabase::create();
        fill(source);
        ItemFixtures::insert(*target, {500, 6, u"D1"_s, u"原有部门"_s});
        Module1::ReseedKeyID(*target, u"T_Item"_s);
        const QStringList before = items(target);
        ItemFixtures::failOn(*target, u"T_GoodsInOutList"_s, u"INSERT"_s); // the last table fails
        m_prompt->queueAnswer(CPrompt::vbYes); // replace the department
        const DatabaseCopy::Result result = CBus::CopyTableDataBetweenDB(*source, *target, CBus::MasterTables());
        QVERIFY(!result.ok);
        QVERIFY(result.error.contains(u"blocked"_s));
        QVERIFY(result.rows.isEmpty());
        QCOMPARE(items(target), before);
        QCOMPARE(prices(target), QStringList());
        QCOMPARE(Module1::GetNewID(*target, u"T_Item"_s, false), 501);
        // Still usable, indexes included.
        CItems departments;
        QVERIFY(departments.InitInstance(target, 6));
        QCOMPARE(departments.Count(), 1);
    }

    // Dates other programs wrote were emptied (SQLite) or read as another day (PostgreSQL), and a key beyond 32
    // bits was taken and then took the key counter with it. A form that says one value for certain is read; any
    // other is refused with its row and column, and the target keeps what it had.
    void valuesOfOtherProgramsAreReadOrRefused_data()
    {
        QTest::addColumn<qint64>("key");
        QTest::addColumn<QString>("column");
        QTest::addColumn<QString>("stored"); // as an SQL literal
        QTest::addColumn<QString>("read"); // the date as read back; "refused" when the copy must refuse
        QTest::newRow("chinese date") << qint64(7) << u"F_Date"_s << u"'2024年1月5日'"_s << u"2024-01-05 00:00:00"_s;
        QTest::newRow("year first with slashes")
            << qint64(7) << u"F_Date"_s << u"'2024/1/5'"_s << u"2024-01-05 00:00:00"_s;
        QTest::newRow("iso date and time")
            << qint64(7) << u"F_Time1"_s << u"'2024-01-05 10:30:00'"_s << u"2024-01-05 10:30:00"_s;
        QTest::newRow("empty text") << qint64(7) << u"F_Date"_s << u"''"_s << QString();
        QTest::newRow("day and month unclear") << qint64(7) << u"F_Date"_s << u"'05/01/2024'"_s << u"refused"_s;
        QTest::newRow("spreadsheet serial") << qint64(7) << u"F_Date"_s << u"45296"_s << u"refused"_s;
        QTest::newRow("impossible day") << qint64(7) << u"F_Date"_s << u"'2024年2月30日'"_s << u"refused"_s;
        QTest::newRow("key above 2^31") << qint64(2147483648) << u"F_ID"_s << QString() << u"refused"_s;
        QTest::newRow("unit key beyond 32 bits") << qint64(7) << u"F_Tag1"_s << u"4294967297"_s << u"refused"_s;
    }
    void valuesOfOtherProgramsAreReadOrRefused()
    {
        QFETCH(qint64, key);
        QFETCH(QString, column);
        QFETCH(QString, stored);
        QFETCH(QString, read);
        auto source = TestDatabase::createSqlite();
        auto target = TestDatabase::create();
        QVERIFY(source && target);
        const bool keyOnly = column == u"F_ID"_s;
        source->Execute(u"Insert Into T_Item (F_ID, F_ItemTypeID, F_ItemNo, F_ItemName"_s
                        + (keyOnly ? QString() : u", "_s + column) + u") Values ("_s + QString::number(key)
                        + u", 6, 'D7', '外来部门'"_s + (keyOnly ? QString() : u", "_s + stored) + u")"_s);
        ItemFixtures::insert(*target, {500, 6, u"D1"_s, u"原有部门"_s});
        Module1::ReseedKeyID(*target, u"T_Item"_s);
        const QStringList before = items(target);

        const DatabaseCopy::Result result = DatabaseCopy::copyTables(*source, *target, DatabaseCopy::MasterTables());
        if (read == u"refused"_s) {
            QVERIFY(!result.ok);
            QVERIFY2(result.error.contains(u"F_ID 为 "_s + QString::number(key)), qPrintable(result.error));
            QVERIFY2(result.error.contains(column + u" 列"_s), qPrintable(result.error));
            QCOMPARE(items(target), before);
            QCOMPARE(Module1::GetNewID(*target, u"T_Item"_s, false), 501);
            return;
        }
        QVERIFY2(result.ok, qPrintable(result.error));
        QSqlQuery row = target->Select(u"Select "_s + column + u" From T_Item Where F_ID = 7"_s);
        QVERIFY(row.next());
        // A date column gives a date on PostgreSQL, ISO text on SQLite.
        const QVariant value = row.value(0);
        QDateTime when = value.typeId() == QMetaType::QDate ? value.toDate().startOfDay() : value.toDateTime();
        if (value.typeId() == QMetaType::QString) {
            when = QDateTime::fromString(value.toString().replace(u' ', u'T'), Qt::ISODate);
            if (!when.isValid()) {
                when = QDate::fromString(value.toString(), Qt::ISODate).startOfDay();
            }
        }
        QCOMPARE(value.isNull() ? QString() : when.toString(u"yyyy-MM-dd HH:mm:ss"_s), read);
        QCOMPARE(Module1::GetNewID(*target, u"T_Item"_s, false), 8);
    }

    // Regression: empty texts an older program left NULL were copied and restored as NULL, which the engines sort
    // at opposite ends of a list; they arrive as '' on both engines, by every copy path.
    void missingTextsArriveEmpty()
    {
        auto source = TestDatabase::createSqlite();
        auto middle = TestDatabase::create();
        auto back = TestDatabase::createSqlite();
        QVERIFY(source && middle && back);
        TestDatabase::allowNullsAsOlderPrograms(*source);
        source->Execute(u"Insert Into T_Item (F_ID, F_ItemTypeID, F_ItemNo, F_ItemName, F_Remark, F_Bank) "
                        "Values (7, 6, NULL, '财务部', NULL, NULL)"_s);
        for (const auto &[from, to] : {std::pair {source, middle}, std::pair {middle, back}}) {
            const DatabaseCopy::Result result = DatabaseCopy::copyTables(*from, *to, DatabaseCopy::MasterTables());
            QVERIFY2(result.ok, qPrintable(result.error));
            QCOMPARE(ItemFixtures::count(*to,
                                         u"Select Count(*) From T_Item Where F_ItemNo Is Null Or F_Remark Is "
                                         "Null Or F_Bank Is Null"_s),
                     0);
            QCOMPARE(ItemFixtures::count(*to, u"Select Count(*) From T_Item Where F_ItemNo = '' And F_Remark = ''"_s),
                     1);
        }
    }

    // migrate from a database to itself under another name (localhost for 127.0.0.1, a link to the file) deleted
    // what it was about to read, or on a server waited for its own lock for ever.
    void sameDatabaseUnderAnotherNameIsRefused()
    {
        auto db = TestDatabase::create();
        fill(db);
        const QStringList before = items(db);
        QString otherName = db->url();
        if (TestDatabase::isPostgreSQL()) {
            QVERIFY(otherName.contains(u"127.0.0.1"_s));
            otherName.replace(u"127.0.0.1"_s, u"localhost"_s);
        } else {
            const QString file = DatabaseUrl::parse(otherName).databaseName;
            const QString link = file + u".link.db"_s;
            QVERIFY(QFile::link(file, link));
            otherName = u"sqlite://"_s + link;
        }
        auto again = CConnection::Open(otherName);
        QVERIFY(again);
        QVERIFY(db->sameDatabaseAs(*again));
        QVERIFY(!db->sameDatabaseAs(*TestDatabase::create()));
        const DatabaseCopy::Result result = DatabaseCopy::copyTables(*db, *again, DatabaseCopy::MasterTables());
        QVERIFY(!result.ok);
        QCOMPARE(result.error, u"源数据库和目标数据库是同一个数据库"_s);
        QCOMPARE(items(again), before);
    }

    // A frozen server process (stopped, its host still answering TCP) hung the copy for ever.
    void serverThatStopsAnsweringEndsTheCopy()
    {
        if (!TestDatabase::isPostgreSQL()) {
            QSKIP("a PostgreSQL backend");
        }
        auto source = TestDatabase::create();
        fill(source);
        auto target = TestDatabase::createSqlite();
        QSqlQuery pid = source->Select(u"SELECT pg_backend_pid()"_s);
        QVERIFY(pid.next());
        const pid_t backend = pid_t(pid.value(0).toInt());
        if (::kill(backend, SIGSTOP) != 0) {
            QSKIP("may not stop the server's processes");
        }
        QElapsedTimer clock;
        clock.start();
        const DatabaseCopy::Result result =
            DatabaseCopy::copy(*source, *target, {{u"T_Item"_s, QString(), {}}}, {}, std::chrono::seconds(2));
        ::kill(backend, SIGCONT);
        QVERIFY(!result.ok);
        QVERIFY2(result.error.contains(u"没有应答"_s), qPrintable(result.error));
        QVERIFY2(clock.elapsed() < 30000, qPrintable(QString::number(clock.elapsed())));
        QCOMPARE(items(target), QStringList());
    }

    // A copy once replaced a shop's master data without a word (269 rows became 1).
    void copyIntoDataAsksBeforeReplacing()
    {
        auto source = TestDatabase::createSqlite();
        auto target = TestDatabase::create();
        fill(source);
        ItemFixtures::insert(*target, {500, 6, u"D1"_s, u"原有部门"_s});
        ItemFixtures::insert(*target, {501, 6, u"D2"_s, u"另一部门"_s});
        const QStringList before = items(target);

        m_prompt->queueAnswer(CPrompt::vbNo);
        const DatabaseCopy::Result refused = CBus::CopyTableDataBetweenDB(*source, *target, CBus::MasterTables());
        QVERIFY(!refused.ok);
        QCOMPARE(m_prompt->shown().size(), 1);
        QCOMPARE(m_prompt->shown().at(0).style, CPrompt::vbYesNo | CPrompt::vbQuestion | CPrompt::vbDefaultButton2);
        QVERIFY2(m_prompt->lastText().startsWith(u"目标数据库已有 2 行基础资料"_s), qPrintable(m_prompt->lastText()));
        QCOMPARE(items(target), before);

        m_prompt->queueAnswer(CPrompt::vbYes);
        const DatabaseCopy::Result replaced = CBus::CopyTableDataBetweenDB(*source, *target, CBus::MasterTables());
        QVERIFY2(replaced.ok, qPrintable(replaced.error));
        QCOMPARE(items(target), items(source));
    }

    void oneKindIsCopiedAlone()
    {
        auto source = TestDatabase::createSqlite();
        auto target = TestDatabase::create();
        fill(source);
        ItemFixtures::insert(*target, {61, 2, QString(), u"旧单位"_s});
        ItemFixtures::insert(*target, {62, 6, QString(), u"部门"_s});
        const DatabaseCopy::Result result = CBus::CopyItemBetweenDB(*source, *target, 2);
        QVERIFY2(result.ok, qPrintable(result.error));
        QCOMPARE(result.rows.value(0).second, 1);
        CItems units;
        QVERIFY(units.InitInstance(target, 2));
        QCOMPARE(units.Count(), 1);
        QCOMPARE(units.Item(1)->F_ItemName(), u"瓶"_s);
        QCOMPARE(ItemFixtures::count(*target, u"Select Count(*) From T_Item"_s), 2);
        QCOMPARE(Module1::GetNewID(*target, u"T_Item"_s, false), 63);
    }
};

QTEST_MAIN(DatabaseCopyTest)
#include "tst_databasecopy.moc"
