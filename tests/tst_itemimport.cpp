#include "cconnection.h"
#include "changelog.h"
#include "citems.h"
#include "cspell.h"
#include "demodata.h"
#include "gridexport.h"
#include "itemfixtures.h"
#include "itemimport.h"
#include "itemtablemodel.h"
#include "itemtype.h"
#include "prompt.h"
#include "testdatabase.h"
#include "workbookreader.h"

#include <QCoreApplication>
#include <QFile>
#include <QProcess>
#include <QSqlQuery>
#include <QStringEncoder>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

// The collections of one database as the facade loads them.
struct Store
{
    std::shared_ptr<CConnection> db;
    std::shared_ptr<CItems> units = std::make_shared<CItems>();
    std::shared_ptr<CItems> goodsTypes = std::make_shared<CItems>();
    std::shared_ptr<CItems> clientTypes = std::make_shared<CItems>();
    std::shared_ptr<CItems> items = std::make_shared<CItems>();

    explicit Store(std::shared_ptr<CConnection> connection, int type)
        : db(std::move(connection))
    {
        units->InitInstance(db, itemTypeNumber(ItemType::Unit));
        goodsTypes->InitInstance(db, itemTypeNumber(ItemType::GoodsType));
        clientTypes->InitInstance(db, itemTypeNumber(ItemType::ClientType));
        items->InitInstance(db, type);
        if (type == ItemType::Goods) {
            CItems::JoinGoodsNames(*items, *units, *goodsTypes);
        } else if (type == ItemType::Client) {
            CItems::JoinClientTypeNames(*items, *clientTypes);
        }
    }
    ItemImport::Report import(const QString &file, const ItemImport::Options &options)
    {
        ItemImport importer(*items, units.get(), goodsTypes.get(), clientTypes.get());
        return importer.run(file, options);
    }
    // The management window's grid of the kind, cell by cell.
    QStringList grid() const
    {
        ItemTableModel model(items.get(), ItemTableModel::fieldsForType(items->itemTypeID()));
        QStringList rows;
        for (int r = 0; r < model.Rows(); ++r) {
            QStringList cells;
            for (int c = 0; c < model.Cols(); ++c) {
                cells.append(model.TextMatrix(r, c));
            }
            rows.append(cells.join(u'|'));
        }
        return rows;
    }
};

} // namespace

class ItemImportTest : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;
    std::unique_ptr<ScriptedPrompt> m_prompt;

    QString writeCsv(const QString &name, const QString &text)
    {
        QFile f(m_dir.filePath(name));
        if (!f.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
            return QString();
        }
        f.write(text.toUtf8());
        return f.fileName();
    }

    // A database with one unit 瓶 and one goods E001 旧货 (500ml, sale price 10).
    std::shared_ptr<CConnection> smallShop()
    {
        auto db = TestDatabase::create();
        if (!db) {
            return db;
        }
        Store store(db, itemTypeNumber(ItemType::Goods));
        auto unit = CItem::create();
        unit->setF_ItemTypeID(qint16(ItemType::Unit));
        unit->setF_ItemName(u"瓶"_s);
        store.units->SaveItem(unit);
        auto goods = CItem::create();
        goods->setF_ItemTypeID(qint16(ItemType::Goods));
        goods->setF_ItemNo(u"E001"_s);
        goods->setF_ItemName(u"旧货"_s);
        goods->setF_Standard(u"500ml"_s);
        goods->setF_Tag1(unit->F_ID());
        goods->setF_PriceSale(Currency::fromInteger(10));
        goods->setF_PackageAmount(1.0f);
        store.items->SaveItem(goods);
        return db;
    }

    static QString badSheet()
    {
        return u"编号,名称,单位,单件进价,备注\n"
               "A001,可乐,瓶,1.5,\n"
               "A001,雪碧,瓶,2,\n"
               "A003,可乐,瓶,2,\n"
               "A004,芬达,箱,2,\n"
               "A005,橙汁,瓶,1.23456,\n"
               "A006,"_s
            + QString(10000, u'长')
            + u",瓶,1,\n"
              "A007,冰\u0001茶,瓶,1,\n"
              ",无编号,瓶,1,\n"
              "A009,\"  空格 \",瓶,\" 3.5000 \",\n"
              "E001,旧货改,瓶,9,\n"_s;
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_dir.isValid());
        m_prompt = std::make_unique<ScriptedPrompt>();
        CPrompt::setCurrent(m_prompt.get());
    }
    void cleanupTestCase() { CPrompt::setCurrent(nullptr); }

    void exportedSheetImportsBackUnchanged_data()
    {
        QTest::addColumn<int>("type");
        QTest::newRow("goods") << itemTypeNumber(ItemType::Goods);
        QTest::newRow("clients") << itemTypeNumber(ItemType::Client);
        QTest::newRow("units") << itemTypeNumber(ItemType::Unit);
        QTest::newRow("goods types") << itemTypeNumber(ItemType::GoodsType);
        QTest::newRow("areas") << itemTypeNumber(ItemType::Area);
    }
    void exportedSheetImportsBackUnchanged()
    {
        QFETCH(int, type);
        auto source = TestDatabase::create();
        QVERIFY(source);
        QString error;
        QVERIFY2(DemoData::seed(source, &error), qPrintable(error));
        Store from(source, type);
        QVERIFY(from.items->Count() > 0);
        ItemTableModel model(from.items.get(), ItemTableModel::fieldsForType(type));
        const QString file = m_dir.filePath(u"roundtrip%1.xlsx"_s.arg(type));
        QFile::remove(file);
        QVERIFY(GridExport::CopyGridToExcel(&model, file, u"导出"_s));

        Store to(TestDatabase::create(), type);
        ItemImport::Options options;
        options.createMissing = true;
        const ItemImport::Report report = to.import(file, options);
        QVERIFY2(report.ok, qPrintable(report.text()));
        QCOMPARE(report.added, qint64(from.items->Count()));
        QCOMPARE(to.grid(), from.grid());
        QVERIFY(m_prompt->shown().isEmpty());
    }

    // Amounts as spreadsheets and clerks write them: every form the grid's numeric test accepts, with the same
    // decimals rule as plain numbers (four for prices).
    void amountsInTheFormsTheNumericTestAccepts_data()
    {
        QTest::addColumn<QString>("cell");
        QTest::addColumn<QString>("value"); // empty: refused
        QTest::addColumn<QString>("reason");
        QTest::newRow("thousands") << u"\"1,234.50\""_s << u"1234.5"_s << QString();
        QTest::newRow("yuan sign") << u"¥12"_s << u"12"_s << QString();
        QTest::newRow("full-width yuan sign") << u"￥12.00"_s << u"12"_s << QString();
        QTest::newRow("dollar after") << u"12.5$"_s << u"12.5"_s << QString();
        QTest::newRow("parentheses") << u"(3.50)"_s << u"-3.5"_s << QString();
        QTest::newRow("sign after") << u"3.5-"_s << u"-3.5"_s << QString();
        QTest::newRow("full-width digits") << u"１２３．４"_s << u"123.4"_s << QString();
        QTest::newRow("exponent") << u"1.5E3"_s << u"1500"_s << QString();
        QTest::newRow("blanks inside the sign") << u"¥ 8"_s << u"8"_s << QString();
        QTest::newRow("trailing zeros beyond four decimals") << u"2.500000"_s << u"2.5"_s << QString();
        QTest::newRow("five decimals") << u"¥1.23456"_s << QString() << u"[¥1.23456] 的小数超过 4 位"_s;
        QTest::newRow("five decimals by exponent") << u"1.23456E-1"_s << QString() << u"的小数超过 4 位"_s;
        QTest::newRow("comma in the decimals") << u"\"1.2,5\""_s << QString() << u"[1.2,5] 不是正确的金额"_s;
        QTest::newRow("two signs") << u"-3-"_s << QString() << u"[-3-] 不是正确的金额"_s;
        QTest::newRow("words") << u"十二"_s << QString() << u"[十二] 不是正确的金额"_s;
    }
    void amountsInTheFormsTheNumericTestAccepts()
    {
        QFETCH(QString, cell);
        QFETCH(QString, value);
        QFETCH(QString, reason);
        auto db = smallShop();
        QVERIFY(db);
        Store store(db, itemTypeNumber(ItemType::Goods));
        const QString file = writeCsv(u"amount.csv"_s, u"编号,名称,单件进价\nM001,金额,"_s + cell + u"\n"_s);
        const ItemImport::Report report = store.import(file, {});
        if (value.isEmpty()) {
            QVERIFY(!report.ok);
            QCOMPARE(report.errors.size(), 1);
            QVERIFY2(report.errors.at(0).reason.contains(reason), qPrintable(report.text()));
            return;
        }
        QVERIFY2(report.ok, qPrintable(report.text()));
        QCOMPARE(store.items->GetItemByItemNo(u"M001"_s)->F_PriceEnter().toString(),
                 Currency::fromString(value)->toString());
    }

    void dryRunListsEveryBadRow()
    {
        auto db = smallShop();
        QVERIFY(db);
        Store store(db, itemTypeNumber(ItemType::Goods));
        ItemImport::Options options;
        options.dryRun = true;
        const ItemImport::Report report = store.import(writeCsv(u"bad.csv"_s, badSheet()), options);
        QVERIFY(!report.ok);
        QVERIFY2(report.error.isEmpty(), qPrintable(report.error));
        QCOMPARE(report.rows, qint64(10));
        QCOMPARE(report.added, qint64(2));
        QCOMPARE(report.badRows, qint64(8));
        QStringList rows;
        for (const ItemImport::RowError &e : report.errors) {
            rows.append(QString::number(e.row) + u' ' + e.column + u' ' + e.reason.left(30));
        }
        const QStringList expected = {
            u"3  商品编号[A001]与第 2 行重复"_s,
            u"4  商品名称[可乐]与第 2 行重复"_s,
            u"5 C(单位) 单位[箱]不存在(可选择自动新建)"_s,
            u"6 D(单件进价) [1.23456] 的小数超过 4 位"_s,
            u"7 B(名称) 超过 255 个字符(有 10000 个)"_s,
            u"8 B(名称) 含有控制字符"_s,
            u"9  请输入商品编号!"_s,
            u"11  商品编号[E001]已经存在(要更新已有的资料请选择更新)"_s,
        };
        QCOMPARE(rows, expected);
        QCOMPARE(ItemFixtures::count(*db, u"SELECT COUNT(*) FROM T_Item WHERE F_ItemTypeID=4"_s), 1);
    }

    void badRowsStopTheWholeImportUnlessSkipped()
    {
        auto db = smallShop();
        QVERIFY(db);
        Store store(db, itemTypeNumber(ItemType::Goods));
        const QString file = writeCsv(u"bad2.csv"_s, badSheet());
        ItemImport::Options options;
        ItemImport importer(*store.items, store.units.get(), store.goodsTypes.get(), store.clientTypes.get());
        ItemImport::Report report = importer.run(file, options);
        QVERIFY(!report.ok);
        QVERIFY(!report.written);
        QCOMPARE(report.error, u"有 8 行有错误,没有导入任何数据"_s);
        QCOMPARE(ItemFixtures::count(*db, u"SELECT COUNT(*) FROM T_Item WHERE F_ItemTypeID=4"_s), 1);

        options.skipBad = true;
        report = importer.run(file, options);
        QVERIFY(report.written);
        QVERIFY(!report.ok); // rows were refused
        QCOMPARE(report.added, qint64(2));
        QCOMPARE(store.items->Count(), 3);
        const CItemPtr spaced = store.items->GetItemByItemNo(u"A009"_s);
        QVERIFY(spaced);
        QCOMPARE(spaced->F_ItemName(), u"空格"_s);
        QCOMPARE(spaced->F_PriceEnter(), Currency::fromScaled(35000));
        QCOMPARE(spaced->F_Spell(), CSpell().GetPy(u"空格"_s));
        QCOMPARE(spaced->mUnitName(), u"瓶"_s);

        const QString rejected = m_dir.filePath(u"rejected.xlsx"_s);
        QFile::remove(rejected);
        QString error;
        QVERIFY2(importer.writeRejected(rejected, u"错误"_s, &error), qPrintable(error));
        WorkbookReader reader(rejected);
        QVERIFY(reader.open());
        QStringList reasons;
        QVERIFY(reader.readSheet(u"错误"_s, [&](int row, const WorkbookReader::Row &cells) {
            if (row > 1) {
                reasons.append(cells.back().text.left(12));
            }
            return true;
        }));
        QCOMPARE(reasons.size(), 8);
        QCOMPARE(reasons.first(), u"商品编号[A001]与第"_s);
    }

    void existingItemsAreUpdatedOnlyWhenAsked()
    {
        auto db = smallShop();
        QVERIFY(db);
        Store store(db, itemTypeNumber(ItemType::Goods));
        const QString file = writeCsv(u"update.csv"_s, u"编号,名称,单件售价\nE001,旧货,12.5\n"_s);
        ItemImport::Options options;
        ItemImport::Report report = store.import(file, options);
        QCOMPARE(report.badRows, qint64(1));
        QCOMPARE(store.items->GetItemByItemNo(u"E001"_s)->F_PriceSale(), Currency::fromInteger(10));

        options.update = true;
        report = store.import(file, options);
        QVERIFY2(report.ok, qPrintable(report.text()));
        QCOMPARE(report.updated, qint64(1));
        QCOMPARE(report.added, qint64(0));
        const CItemPtr goods = store.items->GetItemByItemNo(u"E001"_s);
        QCOMPARE(goods->F_PriceSale(), Currency::fromScaled(125000));
        QCOMPARE(goods->F_Standard(), u"500ml"_s); // a column the sheet does not have keeps its value
        QCOMPARE(goods->mUnitName(), u"瓶"_s);

        report = store.import(file, options);
        QCOMPARE(report.unchanged, qint64(1));
        QCOMPARE(report.updated, qint64(0));
    }

    // An update wrote every column back from the copy read when the import started: a save another seat made in
    // the meantime was silently undone.
    void updateDoesNotRevertAnotherSeatsSave()
    {
        auto db = smallShop();
        QVERIFY(db);
        Store store(db, itemTypeNumber(ItemType::Goods));
        const qint32 id = store.items->GetItemByItemNo(u"E001"_s)->F_ID();
        // Another seat saves the goods after this one read them.
        QCOMPARE(db->Execute(u"UPDATE T_Item SET F_Remark=?, F_Price2=? WHERE F_ID=?"_s, {u"另一席位的备注"_s, 7, id}),
                 1);

        const QString file = writeCsv(u"stale.csv"_s, u"编号,名称,单件售价\nE001,旧货改,12.5\n"_s);
        ItemImport::Options options;
        options.update = true;
        ItemImport::Report report = store.import(file, options);
        QVERIFY(!report.ok);
        QVERIFY(!report.written);
        QCOMPARE(report.badRows, qint64(1));
        QCOMPARE(report.errors.size(), 1);
        QCOMPARE(report.errors.at(0).row, 2);
        QCOMPARE(report.errors.at(0).reason, u"该记录已被其他用户修改,请刷新后再改。"_s);
        QSqlQuery row = db->Select(u"SELECT F_ItemName, F_Remark, F_Price2, F_Price4 FROM T_Item WHERE F_ID=?"_s, {id});
        QVERIFY(row.next());
        QCOMPARE(row.value(0).toString(), u"旧货"_s);
        QCOMPARE(row.value(1).toString(), u"另一席位的备注"_s);

        // With bad rows skipped the other rows go in and the stale one is listed with its reason.
        const QString two = writeCsv(u"stale2.csv"_s, u"编号,名称,单件售价\nE001,旧货改,12.5\nE002,新货,3\n"_s);
        options.skipBad = true;
        report = store.import(two, options);
        QVERIFY2(report.written, qPrintable(report.text()));
        QCOMPARE(report.added, qint64(1));
        QCOMPARE(report.updated, qint64(0));
        QCOMPARE(report.badRows, qint64(1));
        QVERIFY(store.items->GetItemByItemNo(u"E002"_s));

        // Once read again, the update goes in and writes only what the sheet has.
        Store fresh(db, itemTypeNumber(ItemType::Goods));
        options.skipBad = false;
        report = fresh.import(file, options);
        QVERIFY2(report.ok, qPrintable(report.text()));
        QCOMPARE(report.updated, qint64(1));
        row =
            db->Select(u"SELECT F_ItemName, F_Remark, F_Price2, F_Price4, F_Standard FROM T_Item WHERE F_ID=?"_s, {id});
        QVERIFY(row.next());
        QCOMPARE(row.value(0).toString(), u"旧货改"_s);
        QCOMPARE(row.value(1).toString(), u"另一席位的备注"_s);
        QCOMPARE(row.value(2).toDouble(), 7.0);
        QCOMPARE(row.value(3).toDouble(), 12.5);
        QCOMPARE(row.value(4).toString(), u"500ml"_s);
    }

    // The numbers in use were read before the write began: an import running at the same time as another added
    // the same numbers twice.
    void numbersAddedDuringAnImportAreCheckedWhenWriting()
    {
        auto db = smallShop();
        QVERIFY(db);
        QString sheet = u"编号,名称\nA100,甲\n"_s;
        for (int i = 0; i < 4200; ++i) {
            sheet += u"B%1,货%1\n"_s.arg(i, 4, 10, QChar(u'0'));
        }
        const QString file = writeCsv(u"race.csv"_s, sheet);
        // While this import reads its sheet, the other adds A100 with a remark.
        auto otherImportWrites = [&](qint64) {
            db->Execute(u"INSERT INTO T_Item (F_ID, F_ItemTypeID, F_ItemNo, F_ItemName, F_Remark) "
                        "VALUES (900001, 4, 'A100', '乙', '另一次导入')"_s);
            return true;
        };
        {
            Store store(db, itemTypeNumber(ItemType::Goods));
            ItemImport importer(*store.items, store.units.get(), store.goodsTypes.get(), store.clientTypes.get());
            const ItemImport::Report report = importer.run(file, ItemImport::Options(), otherImportWrites);
            QVERIFY(!report.ok);
            QVERIFY(!report.written);
            QCOMPARE(report.errors.size(), 1);
            QCOMPARE(report.errors.at(0).row, 2);
            QVERIFY2(report.errors.at(0).reason.contains(u"编号[A100]已经存在"_s), qPrintable(report.text()));
        }
        QSqlQuery count = db->Select(u"SELECT COUNT(*) FROM T_Item WHERE F_ItemTypeID=4 AND F_ItemNo LIKE 'B%'"_s);
        QVERIFY(count.next());
        QCOMPARE(count.value(0).toInt(), 0);
        db->Execute(u"DELETE FROM T_Item WHERE F_ID=900001"_s);

        // Asked to update, the import updates the item the other added, with the sheet's columns only.
        Store store(db, itemTypeNumber(ItemType::Goods));
        ItemImport importer(*store.items, store.units.get(), store.goodsTypes.get(), store.clientTypes.get());
        ItemImport::Options options;
        options.update = true;
        const ItemImport::Report report = importer.run(file, options, otherImportWrites);
        QVERIFY2(report.ok, qPrintable(report.text()));
        QCOMPARE(report.added, qint64(4200));
        QCOMPARE(report.updated, qint64(1));
        QSqlQuery row = db->Select(u"SELECT F_ID, F_ItemName, F_Remark FROM T_Item WHERE F_ItemNo='A100'"_s);
        QVERIFY(row.next());
        QCOMPARE(row.value(0).toInt(), 900001);
        QCOMPARE(row.value(1).toString(), u"甲"_s);
        QCOMPARE(row.value(2).toString(), u"另一次导入"_s);
        QVERIFY(!row.next());
    }

    // An import that filled the disk ended with SQLite's English "database or disk is full".
    void fullDiskEndsTheImportInChinese()
    {
        if (TestDatabase::isPostgreSQL()) {
            QSKIP("SQLite's own size limit stands in for a full disk");
        }
        const QString path = m_dir.filePath(u"full-import.db"_s);
        QFile::remove(path);
        auto db = CConnection::Open(u"sqlite:///"_s + path);
        QVERIFY(db);
        db->EnsureSchema();
        Store store(db, itemTypeNumber(ItemType::Goods));
        QString sheet = u"编号,名称,备注\n"_s;
        for (int i = 0; i < 300; ++i) {
            sheet += u"F%1,满%1,"_s.arg(i) + QString(300, u'满') + u'\n';
        }
        const QString file = writeCsv(u"full.csv"_s, sheet);
        QSqlQuery pages = db->Select(u"PRAGMA page_count"_s);
        QVERIFY(pages.next());
        db->Select(u"PRAGMA max_page_count = "_s + QString::number(pages.value(0).toInt() + 2));
        pages = QSqlQuery();
        const ItemImport::Report report = store.import(file, ItemImport::Options());
        QVERIFY(!report.written);
        QVERIFY2(report.error.contains(u"磁盘已满,数据没有保存。"_s), qPrintable(report.error));
        QCOMPARE(ItemFixtures::count(*db, u"SELECT COUNT(*) FROM T_Item WHERE F_ItemTypeID=4"_s), 0);
    }

    // A client list imported as goods stored the bank, account and contact on the goods without a word.
    void columnsOfAnotherKindAreReportedNotStored()
    {
        auto db = smallShop();
        QVERIFY(db);
        Store store(db, itemTypeNumber(ItemType::Goods));
        const QString file = writeCsv(u"clients.csv"_s,
                                      u"编号,名称,开户银行,联系人,F_BankAccount,备注\n"
                                      "G100,宏达商行,工商银行,张三,6222000011112222,老客户\n"_s);
        const ItemImport::Report report = store.import(file, ItemImport::Options());
        QVERIFY2(report.ok, qPrintable(report.text()));
        QCOMPARE(report.ignoredColumns.size(), 3);
        QVERIFY2(report.ignoredColumns.at(0).startsWith(u"C(开户银行)"_s), qPrintable(report.text()));
        QVERIFY2(report.text().contains(u"不是商品的资料"_s), qPrintable(report.text()));
        const CItemPtr goods = store.items->GetItemByItemNo(u"G100"_s);
        QVERIFY(goods);
        QCOMPARE(goods->F_Bank(), QString());
        QCOMPARE(goods->F_LinkMen(), QString());
        QCOMPARE(goods->F_BankAccount(), QString());
        QCOMPARE(goods->F_Remark(), u"老客户"_s); // every kind has a remark
    }

    // The other seats hear of a few imported rows one by one, of many by one note to reload their lists.
    void largeImportsNoteOneReload()
    {
        auto db = smallShop();
        QVERIFY(db);
        QVERIFY(ChangeLog::isInstalled(*db));
        Store store(db, itemTypeNumber(ItemType::Goods));
        const qint64 before = ChangeLog::lastSeq(*db);
        ItemImport::Report report =
            store.import(writeCsv(u"few.csv"_s, u"编号,名称\nF001,少量一\nF002,少量二\n"_s), ItemImport::Options());
        QVERIFY2(report.ok, qPrintable(report.text()));
        QList<ItemChange> changes = ChangeLog::read(*db, before + 1, 1000);
        QCOMPARE(changes.size(), 2);
        QCOMPARE(changes.at(0).kind, ItemChange::Saved);

        QString many = u"编号,名称\n"_s;
        for (int i = 0; i < 600; ++i) {
            many += u"M%1,批量%1\n"_s.arg(i, 4, 10, QChar(u'0'));
        }
        const qint64 middle = ChangeLog::lastSeq(*db);
        report = store.import(writeCsv(u"many.csv"_s, many), ItemImport::Options());
        QVERIFY2(report.ok, qPrintable(report.text()));
        QCOMPARE(report.added, qint64(600));
        changes = ChangeLog::read(*db, middle + 1, 1000);
        QCOMPARE(changes.size(), 1);
        QCOMPARE(changes.at(0).kind, ItemChange::Reload);
        // The triggers are back: a change after the import is noted again.
        db->Execute(u"UPDATE T_Item SET F_ItemName='改名' WHERE F_ItemNo='M0001'"_s);
        QCOMPARE(ChangeLog::read(*db, middle + 1, 1000).size(), 2);
    }

    void numbersAreSuggestedAroundTheOnesTheFileUses()
    {
        auto db = smallShop();
        QVERIFY(db);
        Store store(db, itemTypeNumber(ItemType::Goods));
        // E001 exists; the file takes E002 itself, so the two rows without a number get E003 and E004.
        const QString file = writeCsv(u"numbers.csv"_s, u"编号,名称\n,甲\nE002,乙\n,丙\n"_s);
        ItemImport::Options options;
        options.suggestNumbers = true;
        const ItemImport::Report report = store.import(file, options);
        QVERIFY2(report.ok, qPrintable(report.text()));
        QCOMPARE(store.items->GetItemByItemName(u"甲"_s)->F_ItemNo(), u"E003"_s);
        QCOMPARE(store.items->GetItemByItemName(u"丙"_s)->F_ItemNo(), u"E004"_s);
    }

    void sheetsThatCannotBeReadAsAListStopTheImport_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("error");
        QTest::newRow("no name column") << u"编号,单位\nA1,瓶\n"_s << u"缺少必需的列 [名称]"_s;
        QTest::newRow("name twice") << u"编号,名称,F_ItemName\nA1,甲,乙\n"_s << u"B(名称) 与 C(F_ItemName) 是同一列"_s;
        QTest::newRow("no header") << QString(u"x\n"_s).repeated(30) << u"没有标题行"_s;
    }
    void sheetsThatCannotBeReadAsAListStopTheImport()
    {
        QFETCH(QString, text);
        QFETCH(QString, error);
        auto db = smallShop();
        QVERIFY(db);
        Store store(db, itemTypeNumber(ItemType::Goods));
        const ItemImport::Report report = store.import(writeCsv(u"header.csv"_s, text), {});
        QVERIFY(!report.ok);
        QVERIFY2(report.error.contains(error), qPrintable(report.error));
    }

    // Excel's "Unicode 文本" (tab-separated UTF-16LE) imports, and the report names the encoding it read.
    void unicodeTextFromExcelImportsAndTheReportNamesItsEncoding()
    {
        auto db = smallShop();
        QVERIFY(db);
        Store store(db, itemTypeNumber(ItemType::Goods));
        QStringEncoder le("UTF-16LE");
        const QByteArray bytes =
            QByteArray("\xFF\xFE") + QByteArray(le.encode(u"编号\t名称\t单位\r\nU001\t统一\t瓶\r\n"_s));
        QFile f(m_dir.filePath(u"unicode.txt"_s));
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write(bytes);
        f.close();
        const ItemImport::Report report = store.import(f.fileName(), {});
        QVERIFY2(report.ok, qPrintable(report.text()));
        QCOMPARE(store.items->GetItemByItemNo(u"U001"_s)->F_ItemName(), u"统一"_s);
        QVERIFY2(report.text().contains(u"读取 1 行(文字编码 UTF-16LE)"_s), qPrintable(report.text()));
    }

    // A cell quoted in a refusal never brings a replacement character or NUL into the report.
    void reportLinesCarryNoReplacementCharacter()
    {
        auto db = smallShop();
        QVERIFY(db);
        Store store(db, itemTypeNumber(ItemType::Goods));
        const QString file = writeCsv(u"fffd.csv"_s, u"编号,名称,单件售价\nR001,坏\uFFFD,12\uFFFD\n"_s);
        const ItemImport::Report report = store.import(file, {});
        QVERIFY(!report.ok);
        QVERIFY(!report.text().contains(QChar::ReplacementCharacter));
        QVERIFY(!report.text().contains(QChar(0)));
        QVERIFY2(report.text().contains(u"12?"_s), qPrintable(report.text()));
    }

    // Rows of data above where a header was looked for are not columns to ignore: one line says what was searched.
    void sheetWithoutAHeaderRowIsReportedInOneLine_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("error");
        QString many;
        for (int row = 1; row <= 30; ++row) {
            many += u"A%1,可乐%1,瓶,3.5\n"_s.arg(row);
        }
        QTest::newRow("data only, more rows than searched")
            << many << u"第 1 到 20 行中没有标题行,标题行应有 [编号]、[名称] 等列"_s;
        QTest::newRow("data only, a few rows") << u"A1,可乐,瓶\nA2,雪碧,瓶\n"_s << u"第 1 到 2 行中没有标题行"_s;
        QTest::newRow("one row") << u"A1,可乐,瓶\n"_s << u"第 1 行不是标题行"_s;
    }
    void sheetWithoutAHeaderRowIsReportedInOneLine()
    {
        QFETCH(QString, text);
        QFETCH(QString, error);
        auto db = smallShop();
        QVERIFY(db);
        Store store(db, itemTypeNumber(ItemType::Goods));
        const ItemImport::Report report = store.import(writeCsv(u"noheader.csv"_s, text), {});
        QVERIFY(!report.ok);
        QVERIFY2(report.error.contains(error), qPrintable(report.error));
        QCOMPARE(report.ignoredColumns, QStringList());
        QCOMPARE(report.text().count(u'\n'), 2); // the reason and the totals
    }

    void workbooksOfOtherProgramsAreCheckedToo_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<QString>("name");
        QTest::addColumn<qint64>("added");
        QTest::addColumn<QString>("problem");
        QTest::newRow("legacy xls") << u"xls"_s << u"old.xls"_s << qint64(2) << QString();
        QTest::newRow("formula without a value")
            << u"formula"_s << u"formula.xlsx"_s << qint64(1) << u"2 C(单件进价) 公式没有计算结果"_s;
        QTest::newRow("merged cells in the data")
            << u"merged"_s << u"merged.xlsx"_s << qint64(0) << u"数据区有合并单元格(C3:C4)"_s;
    }
    void workbooksOfOtherProgramsAreCheckedToo()
    {
        QFETCH(QString, kind);
        QFETCH(QString, name);
        QFETCH(qint64, added);
        QFETCH(QString, problem);
        const QString file = m_dir.filePath(name);
        QProcess writer;
        writer.start(u"/usr/bin/python3"_s, {QStringLiteral(QUILLON_TEST_SUPPORT_DIR "/makebook.py"), kind, file});
        QVERIFY(writer.waitForFinished(60000));
        QVERIFY2(writer.exitCode() == 0, writer.readAllStandardError().constData());
        auto db = smallShop();
        QVERIFY(db);
        Store store(db, itemTypeNumber(ItemType::Goods));
        ItemImport::Options options;
        options.dryRun = true;
        const ItemImport::Report report = store.import(file, options);
        QCOMPARE(report.added, added);
        QString found = report.error;
        for (const ItemImport::RowError &e : report.errors) {
            found += QString::number(e.row) + u' ' + e.column + u' ' + e.reason;
        }
        if (problem.isEmpty()) {
            QVERIFY2(report.ok, qPrintable(report.text()));
        } else {
            QVERIFY2(found.contains(problem), qPrintable(found));
        }
    }

    void failedWriteLeavesTableAndListAsTheyWere()
    {
        auto db = smallShop();
        QVERIFY(db);
        Store store(db, itemTypeNumber(ItemType::Goods));
        ItemFixtures::failOn(*db, u"T_Item"_s, u"INSERT"_s);
        ItemImport::Options options;
        options.createMissing = true;
        const ItemImport::Report report =
            store.import(writeCsv(u"fails.csv"_s, u"编号,名称,单位\nA1,甲,箱\nA2,乙,瓶\n"_s), options);
        QVERIFY(!report.ok);
        QVERIFY(!report.written);
        QVERIFY2(report.error.startsWith(u"写入数据库失败"_s), qPrintable(report.error));
        QCOMPARE(ItemFixtures::count(*db, u"SELECT COUNT(*) FROM T_Item"_s), 2);
        QCOMPARE(store.items->Count(), 1);
        QCOMPARE(store.units->Count(), 1);
    }

    void commandLineExitsWithOneWhenRowsWereRefused()
    {
        auto db = smallShop();
        QVERIFY(db);
        const QString url = db->url();
        auto cli = [&](const QStringList &args, QString *err) {
            QProcess p;
            p.start(QCoreApplication::applicationDirPath() + u"/quillon-cli"_s, QStringList({u"--db"_s, url}) + args);
            p.waitForFinished(60000);
            *err = QString::fromUtf8(p.readAllStandardError());
            return p.exitCode();
        };
        QString err;
        const QString bad = writeCsv(u"cli-bad.csv"_s, badSheet());
        QCOMPARE(cli({u"import"_s, u"goods"_s, bad, u"--dry-run"_s}, &err), 1);
        QVERIFY2(err.contains(u"第 5 行 C(单位) 列: 单位[箱]不存在"_s), qPrintable(err));
        const QString good = writeCsv(u"cli-good.csv"_s, u"编号,名称,单位\nC1,新品,瓶\n"_s);
        QCOMPARE(cli({u"import"_s, u"goods"_s, good}, &err), 0);
        QCOMPARE(ItemFixtures::count(*db, u"SELECT COUNT(*) FROM T_Item WHERE F_ItemNo='C1'"_s), 1);
        const QString rejected = m_dir.filePath(u"cli-rejected.xlsx"_s);
        QCOMPARE(cli({u"import"_s, u"goods"_s, bad, u"--skip-bad"_s, rejected}, &err), 1);
        QVERIFY(QFile::exists(rejected));
        QCOMPARE(ItemFixtures::count(*db, u"SELECT COUNT(*) FROM T_Item WHERE F_ItemTypeID=4"_s), 4);

        // Rejects meant for the file being imported (or any file they cannot go into) were found out only after
        // the good rows were in; now nothing is imported.
        const QString again = writeCsv(u"cli-again.csv"_s, u"编号,名称,单位\nD1,又一个,瓶\nD2,坏,箱\n"_s);
        const QString xlsx = m_dir.filePath(u"cli-self.xlsx"_s);
        QVERIFY(QFile::copy(rejected, xlsx));
        for (const QString &target : {again, xlsx}) {
            const QString input = target == xlsx ? xlsx : again;
            QVERIFY(cli({u"import"_s, u"goods"_s, input, u"--skip-bad"_s, target}, &err) != 0);
            QVERIFY2(err.contains(u"--skip-bad"_s), qPrintable(err));
        }
        QCOMPARE(ItemFixtures::count(*db, u"SELECT COUNT(*) FROM T_Item WHERE F_ItemNo='D1'"_s), 0);
    }
};

QTEST_GUILESS_MAIN(ItemImportTest)
#include "tst_itemimport.moc"
