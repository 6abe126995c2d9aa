#include "cconnection.h"
#include "citem.h"
#include "crecordset.h"
#include "testdatabase.h"

#include <QRandomGenerator>
#include <QSqlQuery>
#include <QTest>

using namespace Qt::StringLiterals;

class CItemTest : public QObject
{
    Q_OBJECT

private:
    static void write(CConnection &db, CItem &item, bool isNew)
    {
        CRecordset rst(db);
        rst.OpenTable(u"T_Item"_s, u"F_ID"_s, item.F_ID());
        if (isNew) {
            rst.AddNew();
        }
        QString error;
        QVERIFY2(item.UpdateDataFromRst(rst, false, &error), qPrintable(error));
        rst.Update();
    }

    static CItem read(CConnection &db, qint32 id, bool *complete = nullptr, QString *error = nullptr)
    {
        CRecordset rst(db);
        rst.Open(u"Select * From T_Item Where F_ID="_s + QString::number(id));
        CItem item;
        if (rst.isEOF()) {
            return item;
        }
        const bool ok = item.UpdateDataFromRst(rst, true, error);
        if (complete) {
            *complete = ok;
        }
        return item;
    }

    static CItem fullItem(const QString &text)
    {
        CItem item;
        item.setF_ID(7);
        item.setF_ItemNo(u"SP-0001"_s);
        item.setF_ItemName(text);
        item.setF_ItemTypeID(4);
        item.setF_Standard(u"500ml×12"_s);
        item.setF_Spell(u"kkkl"_s);
        item.setF_ParentID(-3);
        item.setF_Remark(text);
        item.setF_LimitUp(1000.5f);
        item.setF_LimitDown(0.1f);
        item.setF_Address(u"北京市海淀区"_s);
        item.setF_Tel1(u"010-12345678"_s);
        item.setF_Tel2(u"13800000000"_s);
        item.setF_Tel3(u"x"_s);
        item.setF_LinkMen(u"王五"_s);
        item.setF_PostCode(u"100080"_s);
        item.setF_Tag1(2147483647);
        item.setF_Tag2(-2147483647 - 1);
        item.setF_Tag3(0);
        item.setF_OweWarring(Currency::fromScaled(std::numeric_limits<qint64>::max()));
        item.setF_OweStop(Currency::fromScaled(std::numeric_limits<qint64>::min()));
        item.setF_Bank(u"工商银行"_s);
        item.setF_BankAccount(u"6222 0000 1111"_s);
        item.setF_OrderByID(12);
        item.setF_Date(QDateTime(QDate(2004, 5, 6), QTime(0, 0), Qt::UTC));
        item.setF_IsSpecial(true);
        item.setF_ArtificialPerson(u"赵六"_s);
        item.setF_IRDNumber(u"110108000000000"_s);
        item.setF_PriceEnterPack(*Currency::fromString(u"120.5"));
        item.setF_PriceEnter(*Currency::fromString(u"0.1"));
        item.setF_PriceSalePack(*Currency::fromString(u"-12.3456"));
        item.setF_PriceSale(*Currency::fromString(u"0.0001"));
        item.setF_PackageAmount(12.25f);
        item.setF_Time1(QDateTime(QDate(2024, 2, 29), QTime(23, 59, 58), Qt::UTC));
        item.setF_Time2(QDateTime(QDate(1999, 12, 31), QTime(0, 0, 1), Qt::UTC));
        item.setF_Tag4(4);
        item.setF_Tag5(5);
        item.setF_Tag6(6);
        return item;
    }

    static void compareAllColumns(const CItem &actual, const CItem &expected)
    {
        for (int c = 0; c < int(CItem::columns().size()); ++c) {
            const QVariant a = actual.value(c);
            const QVariant e = expected.value(c);
            QVERIFY2(a == e, qPrintable(CItem::columns()[c].name + u": "_s + a.toString() + u" != "_s + e.toString()));
        }
    }

private Q_SLOTS:
    void newItemIsEmpty()
    {
        const CItem item;
        QCOMPARE(item.F_ID(), 0);
        QCOMPARE(item.F_PackageAmount(), 0.0f);
        QCOMPARE(item.F_PriceSale(), Currency());
        QVERIFY(item.F_ItemName().isEmpty());
        QVERIFY(!CItem::isLaterThanZeroDate(item.F_Date()));
        QCOMPARE(CItem::columns().size(), std::size_t(38));
        QCOMPARE(CItem::columnIndex(u"f_price4"_s), 31);
    }

    void everyColumnRoundTrips_data()
    {
        QTest::addColumn<QString>("text");
        QTest::newRow("apostrophe") << u"O'Brien's \"特价\" 商品"_s;
        QTest::newRow("statement breakers") << u"a'; DROP TABLE T_Item; --"_s;
        QTest::newRow("10000 characters") << QString(10000, u'长');
        QTest::newRow("emoji") << u"水果🍎🍊 ok"_s;
        QTest::newRow("full width") << u"ＡＢＣ１２３，。（）"_s;
        QTest::newRow("backslash and percent") << u"C:\\路径\\%_?"_s;
    }

    void everyColumnRoundTrips()
    {
        QFETCH(QString, text);
        auto db = TestDatabase::create();
        QVERIFY(db);
        CItem item = fullItem(text);
        write(*db, item, true);
        if (QTest::currentTestFailed()) {
            return;
        }
        bool complete = false;
        QString error;
        const CItem loaded = read(*db, 7, &complete, &error);
        QVERIFY2(complete, qPrintable(error));
        compareAllColumns(loaded, item);
        QCOMPARE(loaded.F_ItemName(), text);
    }

    void changingARowWritesOnlyThatRow()
    {
        auto db = TestDatabase::create();
        QVERIFY(db);
        CItem a = fullItem(u"甲"_s);
        write(*db, a, true);
        CItem b = fullItem(u"乙"_s);
        b.setF_ID(8);
        write(*db, b, true);
        a.setF_ItemName(u"甲'改"_s);
        a.setF_PriceSale(*Currency::fromString(u"9.99"));
        write(*db, a, false);
        QCOMPARE(read(*db, 7).F_ItemName(), u"甲'改"_s);
        QCOMPARE(read(*db, 7).F_PriceSale(), *Currency::fromString(u"9.99"));
        QCOMPARE(read(*db, 8).F_ItemName(), u"乙"_s);
    }

    void nullRulesOnReading()
    {
        auto db = TestDatabase::create();
        QVERIFY(db);
        db->Execute(u"Insert Into T_Item (F_ID, F_ItemNo, F_ItemName, F_ItemTypeID, F_ParentID, F_Remark, "
                    "F_LimitUp, F_LimitDown, F_Tag1, F_Tag2, F_Tag3, F_OweWarring, F_OweStop, F_OrderByID, F_Date, "
                    "F_IsSpecial, F_Price1, F_Price2, F_Price3, F_Price4, F_PackageAmount, F_Time1, F_Time2, F_Tag4, "
                    "F_Tag5, F_Tag6) Values (3, NULL, ?, 4, 0, NULL, 0, 0, 0, 0, 0, 0, 0, 0, NULL, ?, NULL, NULL, "
                    "NULL, NULL, NULL, NULL, NULL, 0, 0, 0)"_s,
                    {u"散装"_s, false});
        bool complete = false;
        QString error;
        const CItem item = read(*db, 3, &complete, &error);
        QVERIFY2(complete, qPrintable(error));
        QCOMPARE(item.F_PackageAmount(), 1.0f);
        QCOMPARE(item.F_PriceEnterPack(), Currency());
        QCOMPARE(item.F_PriceSale(), Currency());
        QCOMPARE(item.F_Remark(), QString());
        QCOMPARE(item.F_ItemNo(), QString());
        QVERIFY(!CItem::isLaterThanZeroDate(item.F_Date()));
        QVERIFY(!item.F_Time1().isValid());
    }

    void dateKeepsOnlyTheDayAndZeroIsNull()
    {
        auto db = TestDatabase::create();
        QVERIFY(db);
        CItem dated = fullItem(u"x"_s);
        dated.setF_Date(QDateTime(QDate(2004, 5, 6), QTime(14, 30), Qt::UTC));
        dated.setF_Time1(QDateTime(QDate(2004, 5, 6), QTime(14, 30, 15), Qt::UTC));
        write(*db, dated, true);
        CItem undated = fullItem(u"y"_s);
        undated.setF_ID(9);
        undated.setF_Date(QDateTime());
        write(*db, undated, true);
        CItem before = fullItem(u"z"_s);
        before.setF_ID(10);
        before.setF_Date(CItem::zeroDate());
        write(*db, before, true);

        QCOMPARE(read(*db, 7).F_Date(), QDateTime(QDate(2004, 5, 6), QTime(0, 0), Qt::UTC));
        QCOMPARE(read(*db, 7).F_Time1(), QDateTime(QDate(2004, 5, 6), QTime(14, 30, 15), Qt::UTC));
        QSqlQuery q = db->Select(u"Select F_ID From T_Item Where F_Date Is Null Order By F_ID"_s);
        QVERIFY(q.next());
        QCOMPARE(q.value(0).toInt(), 9);
        QVERIFY(q.next());
        QCOMPARE(q.value(0).toInt(), 10);
        QVERIFY(!q.next());
    }

    void failingFieldEndsTheCopy()
    {
        auto db = TestDatabase::create();
        QVERIFY(db);
        TestDatabase::allowNullsAsOlderPrograms(*db);
        CItem stored = fullItem(u"存"_s);
        write(*db, stored, true);
        db->Execute(u"Update T_Item Set F_ParentID = NULL Where F_ID = 7"_s);

        CItem item;
        item.setF_ParentID(55);
        item.setF_Remark(u"旧备注"_s);
        CRecordset rst(*db);
        rst.Open(u"Select * From T_Item Where F_ID=7"_s);
        QString error;
        QVERIFY(!item.UpdateDataFromRst(rst, true, &error));
        QVERIFY2(error.contains(u"F_ParentID"_s), qPrintable(error));
        // Columns before the failing one are copied, the rest keep their values.
        QCOMPARE(item.F_ID(), 7);
        QCOMPARE(item.F_Spell(), u"kkkl"_s);
        QCOMPARE(item.F_ParentID(), 55);
        QCOMPARE(item.F_Remark(), u"旧备注"_s);
    }

    void missingColumnEndsTheCopy()
    {
        auto db = TestDatabase::create();
        QVERIFY(db);
        CItem stored = fullItem(u"存"_s);
        write(*db, stored, true);
        CRecordset rst(*db);
        rst.Open(u"Select F_ID, F_ItemNo From T_Item"_s);
        CItem item;
        QString error;
        QVERIFY(!item.UpdateDataFromRst(rst, true, &error));
        QVERIFY2(error.contains(u"F_ItemName"_s), qPrintable(error));
        QCOMPARE(item.F_ItemNo(), u"SP-0001"_s);
        QVERIFY(item.F_ItemName().isEmpty());
    }

    void wrongTypeEndsTheCopy()
    {
        if (TestDatabase::isPostgreSQL()) {
            QSKIP("PostgreSQL refuses text in an integer column on its own");
        }
        auto db = TestDatabase::create();
        QVERIFY(db);
        CItem stored = fullItem(u"存"_s);
        write(*db, stored, true);
        db->Execute(u"Update T_Item Set F_Tag1 = 'abc', F_Tag2 = 99999999999 Where F_ID = 7"_s);
        CRecordset rst(*db);
        rst.Open(u"Select * From T_Item Where F_ID=7"_s);
        CItem item;
        QString error;
        QVERIFY(!item.UpdateDataFromRst(rst, true, &error));
        QVERIFY2(error.contains(u"F_Tag1"_s), qPrintable(error));
        QCOMPARE(item.F_Tag1(), 0);
    }

    void textsFollowEverySetAndClear()
    {
        // Texts are stored compactly; whatever the order of sets and clears, each reads back as last set.
        QList<int> textColumns;
        for (int c = 0; c < int(CItem::columns().size()); ++c) {
            if (CItem::columns()[std::size_t(c)].type == CItem::ColumnType::Text) {
                textColumns.append(c);
            }
        }
        QCOMPARE(textColumns.size(), 15);
        QRandomGenerator rng(99);
        CItem item;
        QStringList model(17);
        for (int step = 0; step < 5000; ++step) {
            const int which = rng.bounded(17);
            const QString value = rng.bounded(3) == 0 ? QString() : QString(rng.bounded(1, 6), QChar(u'甲' + which));
            if (which < 15) {
                QVERIFY(item.setValue(textColumns[which], value));
            } else if (which == 15) {
                item.setmTypeName(value);
            } else {
                // Setting a text from another of the same item's texts.
                item.setmUnitName(item.F_ItemName());
                model[16] = model[1];
                continue;
            }
            model[which] = value;
            if (step % 97 == 0) {
                const CItem copy = item;
                item = copy;
            }
            for (int t = 0; t < 15; ++t) {
                QCOMPARE(item.value(textColumns[t]).toString(), model[t]);
            }
            QCOMPARE(item.mTypeName(), model[15]);
            QCOMPARE(item.mUnitName(), model[16]);
        }
    }

    void genericSetValueConverts()
    {
        CItem item;
        QString error;
        QVERIFY(item.setValue(CItem::columnIndex(u"F_Price4"_s), u"12.5"_s, &error));
        QCOMPARE(item.F_PriceSale(), *Currency::fromString(u"12.5"));
        QVERIFY(item.setValue(CItem::columnIndex(u"F_Date"_s), u"2020-01-02"_s));
        QCOMPARE(item.F_Date(), QDateTime(QDate(2020, 1, 2), QTime(0, 0), Qt::UTC));
        QVERIFY(!item.setValue(CItem::columnIndex(u"F_Tag1"_s), u"many"_s, &error));
        QVERIFY(error.contains(u"F_Tag1"_s));
        QVERIFY(!item.setValue(CItem::columnIndex(u"F_ItemTypeID"_s), 40000));
        QVERIFY(!item.setValue(-1, 1));
    }
};

QTEST_GUILESS_MAIN(CItemTest)
#include "tst_citem.moc"
