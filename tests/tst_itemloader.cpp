// Loading a list reads through the engine's own interface where it can; whatever the stored values, the items, the
// rows that could not be read whole and the message about them are those of the driver's cursor.
#include "cconnection.h"
#include "citems.h"
#include "prompt.h"
#include "testdatabase.h"

#include <QLoggingCategory>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QSqlQuery>
#include <QTest>

#include <bit>

using namespace Qt::StringLiterals;

namespace {

struct Loaded
{
    QList<QVariantList> values; // every column of every item, in list order
    QList<int> unreadFrom;
    QList<quint64> hashes;
    QStringList messages;
};

QVariant comparable(const QVariant &value)
{
    // Singles bit for bit: 0.1f must come back as the same float, not a neighbour.
    if (value.metaType().id() == QMetaType::Float) {
        return QVariant(std::bit_cast<quint32>(value.toFloat()));
    }
    return value;
}

} // namespace

class ItemLoaderTest : public QObject
{
    Q_OBJECT

private:
    std::shared_ptr<CConnection> m_db;
    ScriptedPrompt m_prompt;

    Loaded load(int type, bool throughDriver)
    {
        if (throughDriver) {
            qputenv("QUILLON_LOAD_THROUGH_DRIVER", "1");
        } else {
            qunsetenv("QUILLON_LOAD_THROUGH_DRIVER");
            // The list must really have been read the engine's own way.
            QTest::ignoreMessage(
                QtDebugMsg,
                QRegularExpression(TestDatabase::isPostgreSQL() ? u"through libpq"_s : u"through sqlite3"_s));
        }
        const qsizetype shownBefore = m_prompt.shown().size();
        CItems items;
        items.InitInstance(m_db, type);
        qunsetenv("QUILLON_LOAD_THROUGH_DRIVER");
        Loaded loaded;
        for (const CItemPtr &item : items) {
            QVariantList row;
            for (int c = 0; c < int(CItem::columns().size()); ++c) {
                row.append(comparable(item->value(c)));
            }
            loaded.values.append(row);
            loaded.unreadFrom.append(item->unreadFrom());
            loaded.hashes.append(item->rowHash());
        }
        for (qsizetype i = shownBefore; i < m_prompt.shown().size(); ++i) {
            loaded.messages.append(m_prompt.shown().at(i).text);
        }
        return loaded;
    }

    void compareBothWays(int type)
    {
        const Loaded driver = load(type, true);
        const Loaded own = load(type, false);
        QCOMPARE(own.values.size(), driver.values.size());
        for (qsizetype i = 0; i < own.values.size(); ++i) {
            for (qsizetype c = 0; c < own.values.at(i).size(); ++c) {
                QVERIFY2(own.values.at(i).at(c) == driver.values.at(i).at(c),
                         qPrintable(u"row %1, column %2: %3 instead of %4"_s.arg(i)
                                        .arg(CItem::columns()[c].name)
                                        .arg(own.values.at(i).at(c).toString(), driver.values.at(i).at(c).toString())));
            }
        }
        QCOMPARE(own.unreadFrom, driver.unreadFrom);
        QCOMPARE(own.hashes, driver.hashes);
        QCOMPARE(own.messages, driver.messages);
    }

private Q_SLOTS:
    void initTestCase()
    {
        QLoggingCategory::setFilterRules(u"quillon.load.debug=true"_s);
        CPrompt::setCurrent(&m_prompt);
    }

    void init()
    {
        m_db = TestDatabase::create();
        QVERIFY(m_db);
        TestDatabase::allowNullsAsOlderPrograms(*m_db);
    }

    void cleanup() { m_db.reset(); }

    // Each row is one goods row as an older program or a hand edit may have left it; the columns not named hold
    // their defaults.
    void storedValuesReadAsTheDriverReadsThem_data()
    {
        QTest::addColumn<QString>("columns");
        QTest::addColumn<QString>("values");
        QTest::addColumn<bool>("sqliteOnly"); // values PostgreSQL's typed columns would not take

        QTest::newRow("ordinary goods") << u"F_Spell, F_Price1, F_Price4, F_Date, F_Time1, F_IsSpecial, F_Remark"_s
                                        << u"'KL', '2.5000', '35.5680', '2024-02-29', '2024-02-29 23:59:58', "
                                           "TRUE, 'It''s \"fine\" \\ ok'"_s
                                        << false;
        QTest::newRow("NULL everywhere it may be")
            << u"F_Spell, F_Price1, F_PackageAmount, F_Date, F_Time2"_s << u"NULL, NULL, NULL, NULL, NULL"_s << false;
        QTest::newRow("NULL where no rule applies") << u"F_Tag2"_s << u"NULL"_s << false;
        QTest::newRow("limits of the numbers")
            << u"F_Tag1, F_Tag4, F_LimitUp, F_LimitDown, F_OweStop"_s
            << u"2147483647, -2147483648, 0.1, -3.4e38, -922337203685477.5807"_s << false;
        QTest::newRow("long texts and CJK")
            << u"F_Remark, F_Address"_s << u"'"_s + QString(300, u'长') + u"', '浙江省杭州市西湖区'"_s << false;
        QTest::newRow("amount with five decimals") << u"F_Price2"_s << u"'1.23455'"_s << true;
        QTest::newRow("amount stored as a real") << u"F_Price3"_s << u"35.568"_s << true;
        QTest::newRow("amount stored as an integer") << u"F_OweWarring"_s << u"12"_s << true;
        QTest::newRow("amount as a long text") << u"F_Price1"_s << u"'"_s + QString(70, u'1') + u"'"_s << true;
        QTest::newRow("amount not a number") << u"F_Price1"_s << u"'abc'"_s << true;
        QTest::newRow("amount with blanks") << u"F_Price1"_s << u"' 7.5 '"_s << true;
        QTest::newRow("integer out of range") << u"F_Tag1"_s << u"3000000000"_s << true;
        QTest::newRow("integer as text") << u"F_Tag3"_s << u"'x1'"_s << true;
        QTest::newRow("integer as a real") << u"F_OrderByID"_s << u"2.5"_s << true;
        QTest::newRow("single too large") << u"F_LimitUp"_s << u"1e300"_s << true;
        QTest::newRow("single as text") << u"F_LimitDown"_s << u"' 2.5'"_s << true;
        QTest::newRow("texts that are numbers") << u"F_ItemName, F_Standard, F_Tel1"_s << u"123, 1.5, -0.0"_s << true;
        QTest::newRow("text as a blob") << u"F_Remark"_s << u"X'E4B8AD41'"_s << true;
        QTest::newRow("dates in other forms")
            << u"F_Date, F_Time1, F_Time2"_s << u"' 2024-01-02 ', '2024-01-02T03:04:05.678', '2024-01-02 03:04'"_s
            << true;
        QTest::newRow("date that is none") << u"F_Date"_s << u"'2024-13-45'"_s << true;
        QTest::newRow("date as a number") << u"F_Time1"_s << u"20240102"_s << true;
        QTest::newRow("boolean forms") << u"F_IsSpecial"_s << u"'t'"_s << true;
        QTest::newRow("boolean as a large number") << u"F_IsSpecial"_s << u"9223372036854775807"_s << true;
        QTest::newRow("boolean as two") << u"F_IsSpecial"_s << u"2"_s << true;
    }

    void storedValuesReadAsTheDriverReadsThem()
    {
        QFETCH(QString, columns);
        QFETCH(QString, values);
        QFETCH(bool, sqliteOnly);
        if (sqliteOnly && TestDatabase::isPostgreSQL()) {
            QSKIP("PostgreSQL's typed columns do not take such a value");
        }
        m_db->Execute(u"Insert Into T_Item (F_ID, F_ItemTypeID, F_ItemNo, F_ItemName) Values (1, 4, 'A1', '甲')"_s);
        m_db->Execute(u"Insert Into T_Item (F_ID, F_ItemTypeID, F_ItemNo, F_ItemName, "_s + columns
                      + u") Values (2, 4, 'A2', '乙', "_s + values + u")"_s);
        if (columns.startsWith(u"F_ItemName"_s)) {
            m_db->Execute(u"Update T_Item Set F_ItemNo = 'A2' Where F_ID = 2"_s);
        }
        compareBothWays(4);
    }

    // Thousands of rows go through in batches: the order is the statement's, and the message names the first row
    // in that order that could not be read whole, with the count of all of them.
    void batchesKeepTheOrderAndTheFirstPartialRow()
    {
        {
            CTransaction fill(*m_db);
            for (int i = 1; i <= 5000; ++i) {
                m_db->Execute(
                    u"Insert Into T_Item (F_ID, F_ItemTypeID, F_ItemNo, F_ItemName, F_Price1) "
                    "Values (?, 4, ?, ?, ?)"_s,
                    QVariantList {i, QString(u"SP"_s + QString::number(7919 * i % 5003).rightJustified(5, u'0')),
                                  QString(u"商品"_s + QString::number(i)), QString(QString::number(i) + u".25"_s)});
            }
            // Two rows stop at F_Tag2: one far into the list, one near its start (by number, not by key).
            m_db->Execute(u"Update T_Item Set F_Tag2 = NULL Where F_ID In (3, 4000)"_s);
            fill.Commit();
        }
        const Loaded own = load(4, false);
        QCOMPARE(own.values.size(), 5000);
        for (qsizetype i = 1; i < own.values.size(); ++i) {
            QVERIFY(own.values.at(i - 1).at(1).toString() < own.values.at(i).at(1).toString());
        }
        QCOMPARE(own.messages.size(), 1);
        const QString first = own.values.at(own.unreadFrom.indexOf(CItem::columnIndex(u"F_Tag2"_s))).at(0).toString();
        QVERIFY2(own.messages.first().contains(u"有 2 条商品记录"_s), qPrintable(own.messages.first()));
        QVERIFY2(own.messages.first().contains(u"F_ID="_s + first + u": "_s), qPrintable(own.messages.first()));
        compareBothWays(4);
    }

    // Goods take their unit and type names as they are read, on whichever thread decodes them: the same names as a
    // join over the loaded list, both ways of reading.
    void goodsTakeTheirNamesWhileRead()
    {
        {
            CTransaction fill(*m_db);
            for (int unit = 1; unit <= 7; ++unit) {
                m_db->Execute(u"Insert Into T_Item (F_ID, F_ItemTypeID, F_ItemNo, F_ItemName) Values (?, 2, '', ?)"_s,
                              QVariantList {unit, QString(u"单位"_s + QString::number(unit))});
            }
            m_db->Execute(u"Insert Into T_Item (F_ID, F_ItemTypeID, F_ItemNo, F_ItemName, F_Tag1) "
                          "Values (8, 3, '01', 'O''Brien 饮料', 1)"_s);
            for (int i = 100; i < 5100; ++i) {
                // Unit 0 and 8 are not units; 8 is the goods type.
                m_db->Execute(u"Insert Into T_Item (F_ID, F_ItemTypeID, F_ItemNo, F_ItemName, F_Tag1, F_ParentID) "
                              "Values (?, 4, ?, '商品', ?, ?)"_s,
                              QVariantList {i, QString(u"SP"_s + QString::number(i)), i % 9, i % 2 == 0 ? 8 : 0});
            }
            fill.Commit();
        }
        CItems units;
        CItems types;
        QVERIFY(units.InitInstance(m_db, 2));
        QVERIFY(types.InitInstance(m_db, 3));
        for (const bool throughDriver : {false, true}) {
            if (throughDriver) {
                qputenv("QUILLON_LOAD_THROUGH_DRIVER", "1");
            } else {
                QTest::ignoreMessage(QtDebugMsg, QRegularExpression(u"5000 rows through (libpq|sqlite3)"_s));
            }
            CItems goods;
            goods.setLoadJoin(CItems::GoodsNameJoin(units, types));
            QVERIFY(goods.InitInstance(m_db, 4));
            qunsetenv("QUILLON_LOAD_THROUGH_DRIVER");
            QCOMPARE(goods.Count(), 5000);
            int named = 0;
            for (const CItemPtr &item : goods) {
                const int unit = item->F_ID() % 9;
                const QString unitName = unit >= 1 && unit <= 7 ? u"单位"_s + QString::number(unit) : QString();
                QCOMPARE(item->mUnitName(), unitName);
                QCOMPARE(item->mTypeName(), item->F_ID() % 2 == 0 ? u"O'Brien 饮料"_s : QString());
                named += item->mUnitName().isEmpty() ? 0 : 1;
            }
            QVERIFY(named > 3000);
        }
    }

    // Inside a transaction the program's own uncommitted rows count, so the driver reads them.
    void insideATransactionTheOwnRowsAreRead()
    {
        m_db->Execute(u"Insert Into T_Item (F_ID, F_ItemTypeID, F_ItemNo, F_ItemName) Values (1, 2, '', '箱')"_s);
        CTransaction transaction(*m_db);
        m_db->Execute(u"Insert Into T_Item (F_ID, F_ItemTypeID, F_ItemNo, F_ItemName) Values (2, 2, '', '个')"_s);
        CItems units;
        QVERIFY(units.InitInstance(m_db, 2));
        QCOMPARE(units.Count(), 2);
    }

    void stoppedLoadKeepsTheListAndSaysNothing()
    {
        {
            CTransaction fill(*m_db);
            for (int i = 1; i <= 3000; ++i) {
                m_db->Execute(
                    u"Insert Into T_Item (F_ID, F_ItemTypeID, F_ItemNo, F_ItemName) Values (?, 4, ?, ?)"_s,
                    QVariantList {i, QString(u"SP"_s + QString::number(i).rightJustified(5, u'0')), u"商品"_s});
            }
            fill.Commit();
        }
        CItems goods;
        QVERIFY(goods.InitInstance(m_db, 4));
        QCOMPARE(goods.Count(), 3000);
        m_db->Execute(u"Delete From T_Item Where F_ID > 10"_s);

        int told = 0;
        goods.setLoadProgress([&](qint64) {
            ++told;
            return false;
        });
        QSignalSpy reset(&goods, &CItems::ListAboutToBeReset);
        const qsizetype shown = m_prompt.shown().size();
        m_db->Execute(u"Insert Into T_Item (F_ID, F_ItemTypeID, F_ItemNo, F_ItemName) Values (5001, 4, 'Z', '新')"_s);
        for (int i = 11; i <= 2100; ++i) {
            m_db->Execute(u"Insert Into T_Item (F_ID, F_ItemTypeID, F_ItemNo, F_ItemName) Values (?, 4, ?, ?)"_s,
                          QVariantList {i, QString(u"SP"_s + QString::number(i).rightJustified(5, u'0')), u"商品"_s});
        }
        QVERIFY(!goods.InitInstance(m_db, 4));
        QCOMPARE(told, 1);
        QCOMPARE(goods.Count(), 3000);
        QCOMPARE(reset.count(), 0);
        QCOMPARE(m_prompt.shown().size(), shown);

        // Told again and let go on, the load completes.
        goods.setLoadProgress([](qint64) { return true; });
        QVERIFY(goods.InitInstance(m_db, 4));
        QCOMPARE(goods.Count(), 2101);
    }

    void failedReadKeepsTheListWithTheReason()
    {
        m_db->Execute(u"Insert Into T_Item (F_ID, F_ItemTypeID, F_ItemNo, F_ItemName) Values (1, 2, '', '箱')"_s);
        CItems units;
        QVERIFY(units.InitInstance(m_db, 2));
        m_db->Execute(u"Drop Table T_Item"_s);
        QVERIFY(!units.InitInstance(m_db, 2));
        QCOMPARE(units.Count(), 1);
        QVERIFY2(m_prompt.lastText().startsWith(u"读取单位数据失败:"_s), qPrintable(m_prompt.lastText()));
        QVERIFY2(m_prompt.lastText().contains(u"T_Item"_s, Qt::CaseInsensitive), qPrintable(m_prompt.lastText()));
    }
};

QTEST_GUILESS_MAIN(ItemLoaderTest)
#include "tst_itemloader.moc"
