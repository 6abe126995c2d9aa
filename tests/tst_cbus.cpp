#include "cbus.h"
#include "cconnection.h"
#include "frmmain.h"
#include "itemfixtures.h"
#include "itemtablemodel.h"
#include "keyid.h"
#include "prompt.h"
#include "testdatabase.h"

#include <QSignalSpy>
#include <QTest>

#include <tuple>

using namespace Qt::StringLiterals;

class CBusTest : public QObject
{
    Q_OBJECT

private:
    std::shared_ptr<CConnection> m_db;
    std::unique_ptr<ScriptedPrompt> m_prompt;

    void seed()
    {
        using ItemFixtures::insert;
        insert(*m_db, {1, 8, u"1"_s, u"批发"_s});
        insert(*m_db, {2, 9, u"1"_s, u"华东"_s});
        insert(*m_db, {3, 1, u"K001"_s, u"上海百货"_s, 1});
        insert(*m_db, {4, 1, u"K002"_s, u"无类别客户"_s, 99});
        insert(*m_db, {5, 2, u""_s, u"瓶"_s});
        insert(*m_db, {6, 3, u"01"_s, u"饮料"_s});
        insert(*m_db, {7, 4, u"SP01"_s, u"可乐"_s, 6, 5});
        insert(*m_db, {8, 4, u"SP02"_s, u"无单位"_s, 60, 50});
        insert(*m_db, {9, 5, u"1"_s, u"总仓"_s});
        insert(*m_db, {10, 6, u"1"_s, u"销售部"_s});
        insert(*m_db, {11, 10, u"1"_s, u"管理员"_s});
        insert(*m_db, {12, 11, u"1"_s, u"张三"_s});
        insert(*m_db, {13, 7, u"1"_s, u"选项"_s});
        Module1::ReseedKeyID(*m_db, u"T_Item"_s);
    }

private Q_SLOTS:
    void init()
    {
        m_db = TestDatabase::create();
        QVERIFY(m_db);
        m_prompt = std::make_unique<ScriptedPrompt>();
        CPrompt::setCurrent(m_prompt.get());
    }
    void cleanup() { CPrompt::setCurrent(nullptr); }

    // Regression: a store from an older program showed a box per kind at start-up, up to eleven; one notice names
    // every kind with its count.
    void partialReadsAreToldOnceForTheWholeLoad()
    {
        TestDatabase::allowNullsAsOlderPrograms(*m_db);
        seed();
        // NULLs where reading has no rule for them, in goods, clients and a department.
        m_db->Execute(u"Update T_Item Set F_LimitUp = NULL Where F_ID In (3, 4, 7, 10)"_s);
        CBus bus;
        bus.InitAllData(m_db);
        QCOMPARE(m_prompt->shown().size(), 1);
        const QString text = m_prompt->lastText();
        for (const QString &part : {u"客户 2 条"_s, u"商品 1 条"_s, u"部门 1 条"_s, u"F_LimitUp"_s}) {
            QVERIFY2(text.contains(part), qPrintable(part + u" in: "_s + text));
        }
        QCOMPARE(bus.collection(itemTypeNumber(ItemType::Client))->Count(), 2);
    }

    // The management window lists, under each kind of its tree, that kind's items.
    void mainWindowShowsEachKindsOwnItems()
    {
        seed();
        CBus bus;
        bus.InitAllData(m_db);
        bus.ShowMain();
        frmMain *form = bus.mainWindow();
        QVERIFY(form);
        const std::pair<int, QStringList> kinds[] = {
            {6, {u"销售部"_s}},
            {5, {u"总仓"_s}},
            {8, {u"批发"_s}},
            {9, {u"华东"_s}},
            {1, {u"上海百货"_s, u"无类别客户"_s}},
            {3, {u"饮料"_s}},
            {2, {u"瓶"_s}},
            {4, {u"可乐"_s, u"无单位"_s}},
            {11, {u"张三"_s}},
        };
        for (const auto &[type, names] : kinds) {
            form->selectKind(type);
            const ItemTableModel *model = form->itemModel();
            QStringList shown;
            for (int row = 0; row < model->rowCount(); ++row) {
                shown.append(model->index(row, model->columnOf(ItemTableModel::ItemName)).data().toString());
            }
            QCOMPARE(shown, names);
        }
        form->hide();
    }

    void initAllDataLoadsInOrderAndJoins()
    {
        seed();
        CBus bus;
        QSignalSpy progress(&bus, &CBus::OnInitItem);
        QCOMPARE(bus.InitAllData(m_db), false);
        QStringList texts;
        for (const QList<QVariant> &args : std::as_const(progress)) {
            texts.append(args.at(0).toString());
        }
        QCOMPARE(
            texts,
            (QStringList {u"客户类别"_s, u"地区信息"_s, u"化客户信息"_s, u"单位信息"_s, u"商品类别"_s, u"商品信息"_s,
                          u"仓库信息"_s, u"部门信息"_s, u"用户权限"_s, u"领料人"_s, u"软件使用者信息"_s}));
        QCOMPARE(bus.mClients()->Count(), 2);
        QCOMPARE(bus.mAllGoods()->Count(), 2);
        QCOMPARE(bus.mStocks()->Count(), 1);
        QCOMPARE(bus.mDepartments()->Count(), 1);
        QCOMPARE(bus.mRights()->Count(), 1);
        QCOMPARE(bus.mLLRs()->Count(), 1);
        QCOMPARE(bus.mAreas()->Count(), 1);
        QCOMPARE(bus.mOptions()->Count(), 0);
        QCOMPARE(bus.connection(), m_db);

        QCOMPARE(bus.mAllGoods()->GetItemByID(7)->mUnitName(), u"瓶"_s);
        QCOMPARE(bus.mAllGoods()->GetItemByID(7)->mTypeName(), u"饮料"_s);
        QCOMPARE(bus.mClients()->GetItemByID(3)->mTypeName(), u"批发"_s);
        const CItemPtr orphan = bus.mAllGoods()->GetItemByID(8);
        QCOMPARE(orphan->mUnitName(), QString());
        QCOMPARE(bus.mClients()->GetItemByID(4)->mTypeName(), QString());

        // A missing unit or type leaves the name as it was.
        orphan->setmUnitName(u"旧单位"_s);
        orphan->setmTypeName(u"旧类别"_s);
        bus.JoinGoodsNames();
        QCOMPARE(orphan->mUnitName(), u"旧单位"_s);
        QCOMPARE(orphan->mTypeName(), u"旧类别"_s);
    }

    // Goods and clients take their names while they are read. A list that could not be read again keeps its
    // items, and those still take the names of the units and types read just before.
    void listsThatFailToReloadTakeTheNewNames()
    {
        seed();
        CBus bus;
        bus.InitAllData(m_db);
        const CItemPtr goods = bus.mAllGoods()->GetItemByID(7);
        const CItemPtr client = bus.mClients()->GetItemByID(3);
        QCOMPARE(goods->mUnitName(), u"瓶"_s);
        QCOMPARE(client->mTypeName(), u"批发"_s);

        m_db->Execute(u"Update T_Item Set F_ItemName='瓶装' Where F_ID=5"_s);
        m_db->Execute(u"Update T_Item Set F_ItemName='酒水' Where F_ID=6"_s);
        m_db->Execute(u"Update T_Item Set F_ItemName='批发客户' Where F_ID=1"_s);
        // The table is away while clients and goods are read, and back for the other lists.
        connect(&bus, &CBus::OnInitItem, this, [&](const QString &text) {
            if (text == u"化客户信息"_s || text == u"商品信息"_s) {
                m_db->Execute(u"Alter Table T_Item Rename To T_ItemAway"_s);
            } else if (text == u"单位信息"_s || text == u"仓库信息"_s) {
                m_db->Execute(u"Alter Table T_ItemAway Rename To T_Item"_s);
            }
        });
        bus.InitAllData(m_db);
        QCOMPARE(bus.mAllGoods()->GetItemByID(7), goods);
        QCOMPARE(bus.mClients()->GetItemByID(3), client);
        QCOMPARE(goods->mUnitName(), u"瓶装"_s);
        QCOMPARE(goods->mTypeName(), u"酒水"_s);
        QCOMPARE(client->mTypeName(), u"批发客户"_s);
        QStringList failures;
        for (const auto &shown : m_prompt->shown()) {
            if (shown.text.contains(u"数据失败"_s)) {
                failures.append(shown.text.section(u':', 0, 0));
            }
        }
        QCOMPARE(failures, (QStringList {u"读取客户数据失败"_s, u"读取商品数据失败"_s}));
    }

    void cancelledLoadStopsWhereItWas()
    {
        seed();
        {
            CTransaction fill(*m_db);
            for (int i = 100; i < 3100; ++i) {
                ItemFixtures::insert(*m_db, {i, 4, u"P"_s + QString::number(i), u"商品"_s, 6, 5});
            }
            fill.Commit();
        }
        CBus bus;
        QSignalSpy kinds(&bus, &CBus::OnInitItem);
        qint64 told = 0;
        QString toldOf;
        auto stop = connect(&bus, &CBus::LoadProgress, this, [&](const QString &text, qint64 rows) {
            toldOf = text;
            told = rows;
            bus.CancelLoad();
        });
        bus.InitAllData(m_db);
        QVERIFY(bus.loadCancelled());
        QCOMPARE(toldOf, u"商品信息"_s);
        QVERIFY(told <= 3000);
        QCOMPARE(kinds.size(), 6);
        QCOMPARE(bus.mClients()->Count(), 2);
        QCOMPARE(bus.mAllGoods()->Count(), 0);
        QCOMPARE(bus.mStocks()->Count(), 0);
        QVERIFY(m_prompt->shown().isEmpty());
        QCOMPARE(ItemFixtures::count(*m_db, u"Select Count(*) From T_Item Where F_ItemTypeID = 12"_s), 0);

        disconnect(stop);
        QSignalSpy progress(&bus, &CBus::LoadProgress);
        bus.InitAllData(m_db);
        QVERIFY(!bus.loadCancelled());
        QCOMPARE(bus.mAllGoods()->Count(), 3002);
        QCOMPARE(bus.mStocks()->Count(), 1);
        QVERIFY(!progress.isEmpty());
    }

    void secondLoadReusesTheCollections()
    {
        seed();
        CBus bus;
        bus.InitAllData(m_db);
        const std::shared_ptr<CItems> goods = bus.mAllGoods();
        ItemFixtures::insert(*m_db, {20, 4, u"SP00"_s, u"新品"_s, 6, 5});
        bus.InitAllData(m_db);
        QCOMPARE(bus.mAllGoods(), goods);
        QCOMPARE(goods->Count(), 3);
        QCOMPARE(goods->Item(1)->mUnitName(), u"瓶"_s);
    }

    void initItemsIgnoresOtherTypes()
    {
        seed();
        CBus bus;
        const std::shared_ptr<CItems> options = bus.mOptions();
        for (int type : {0, 7, 13}) {
            QVERIFY(!bus.InitItems(m_db, type));
        }
        QCOMPARE(bus.connection(), m_db);
        QCOMPARE(bus.mOptions(), options);
        QCOMPARE(options->Count(), 0);
        QCOMPARE(bus.mClients()->Count(), 0);
    }

    void companyRecordIsCreatedOnce()
    {
        CBus bus;
        CItem defaults;
        defaults.setF_ItemName(u"示例商贸有限公司"_s);
        defaults.setF_Tel1(u"021-00000000"_s);
        bus.setSoftwareUserDefaults(defaults);
        QVERIFY(bus.InitItems(m_db, CBus::itSoftwareUserInfor));
        const CItemPtr company = bus.mSoftwareUserInfor();
        QVERIFY(company);
        QVERIFY(company->F_ID() >= 1);
        QCOMPARE(company->F_ItemTypeID(), qint16(12));
        QCOMPARE(company->F_ItemName(), u"示例商贸有限公司"_s);

        company->setF_Address(u"南京路'1号"_s);
        bus.SaveSoftwareUserInfor();

        CBus again;
        QVERIFY(again.InitItems(m_db, CBus::itSoftwareUserInfor));
        QCOMPARE(again.mSoftwareUserInfor()->F_ID(), company->F_ID());
        QCOMPARE(again.mSoftwareUserInfor()->F_Address(), u"南京路'1号"_s);
        QCOMPARE(ItemFixtures::count(*m_db, u"Select Count(*) From T_Item Where F_ItemTypeID=12"_s), 1);
    }

    void saveItemToDBLeavesTheSharedListsAlone()
    {
        seed();
        CBus bus;
        bus.InitAllData(m_db);
        auto unit = std::make_shared<CItem>();
        unit->setF_ItemTypeID(2);
        unit->setF_ItemName(u"盒"_s);
        const qint32 id = bus.SaveItemToDB(unit, m_db);
        QVERIFY(id > 0);
        QCOMPARE(unit->F_ID(), id);
        QCOMPARE(bus.mUnits()->Count(), 1);
        QCOMPARE(ItemFixtures::count(*m_db, u"Select Count(*) From T_Item Where F_ItemTypeID=2"_s), 2);

        ItemFixtures::failOn(*m_db, u"T_Item"_s, u"INSERT"_s);
        QCOMPARE(bus.SaveItemToDB(std::make_shared<CItem>(), m_db), 0);
    }

    void renamedUnitsAndTypesReachTheGoodsAndClients()
    {
        seed();
        CBus bus;
        bus.InitAllData(m_db);
        const CItemPtr goods = bus.mAllGoods()->SearchItemByID(7);
        const CItemPtr client = bus.mClients()->SearchItemByID(3);
        QCOMPARE(goods->mUnitName(), u"瓶"_s);
        for (const auto &[items, id, name] :
             {std::tuple {bus.mUnits(), 5, u"瓶装"_s}, std::tuple {bus.mTypes(), 6, u"酒水饮料"_s},
              std::tuple {bus.mClientTypes(), 1, u"批发客户"_s}}) {
            auto renamed = CItem::create(*items->SearchItemByID(id));
            renamed->setF_ItemName(name);
            QVERIFY(items->SaveItem(renamed));
        }
        QCOMPARE(goods->mUnitName(), u"瓶装"_s);
        QCOMPARE(goods->mTypeName(), u"酒水饮料"_s);
        QCOMPARE(client->mTypeName(), u"批发客户"_s);
        // A goods of another unit keeps its own.
        QCOMPARE(bus.mAllGoods()->SearchItemByID(8)->mUnitName(), QString());

        // A unit list put in later is followed as well.
        auto units = std::make_shared<CItems>();
        QVERIFY(units->InitInstance(m_db, CBus::itUnit));
        bus.setmUnits(units);
        auto again = CItem::create(*units->SearchItemByID(5));
        again->setF_ItemName(u"PET瓶"_s);
        QVERIFY(units->SaveItem(again));
        QCOMPARE(goods->mUnitName(), u"PET瓶"_s);
    }

    void settingACollectionReplacesIt()
    {
        CBus bus;
        auto mine = std::make_shared<CItems>();
        bus.setmUnits(mine);
        QCOMPARE(bus.mUnits(), mine);
        QCOMPARE(bus.collection(CBus::itUnit), mine);
        QVERIFY(!bus.collection(13));
    }
};

QTEST_MAIN(CBusTest)
#include "tst_cbus.moc"
