#include "cbus.h"
#include "cconnection.h"
#include "citems.h"
#include "frmselectgoodsex.h"
#include "itemfixtures.h"
#include "keyid.h"
#include "modaltest.h"
#include "prompt.h"
#include "testdatabase.h"

#include <QLineEdit>
#include <QPushButton>
#include <QTest>
#include <QTimer>

using namespace Qt::StringLiterals;

class PricesTest : public QObject
{
    Q_OBJECT

private:
    std::shared_ptr<CConnection> m_db;
    std::unique_ptr<ScriptedPrompt> m_prompt;
    std::unique_ptr<CBus> m_bus;

    static Currency money(const char16_t *text) { return *Currency::fromString(QStringView(text)); }
    Currency priceFor(qint32 goods, qint32 client)
    {
        return m_bus->GetGoodsPrice(*m_bus->mAllGoods()->GetItemByID(goods),
                                    m_bus->mClients()->GetItemByID(client).get());
    }

private Q_SLOTS:
    void init()
    {
        m_db = TestDatabase::create();
        QVERIFY(m_db);
        m_prompt = std::make_unique<ScriptedPrompt>();
        CPrompt::setCurrent(m_prompt.get());
        ItemFixtures::insert(*m_db, {1, 4, u"G001"_s, u"可乐"_s});
        m_db->Execute(u"Update T_Item Set F_Price4=3 Where F_ID=1"_s);
        ItemFixtures::insert(*m_db, {2, 4, u"G002"_s, u"雪碧"_s});
        ItemFixtures::insert(*m_db, {10, 8, u"1"_s, u"批发客户"_s});
        ItemFixtures::insert(*m_db, {11, 8, u"2"_s, u"零售客户"_s});
        ItemFixtures::insert(*m_db, {20, 1, u"KH1"_s, u"华联"_s, 10});
        ItemFixtures::insert(*m_db, {21, 1, u"KH2"_s, u"联华"_s, 10});
        ItemFixtures::insert(*m_db, {22, 1, u"KH3"_s, u"散客"_s, 11});
        Module1::ReseedKeyID(*m_db, u"T_Item"_s);
        m_bus = std::make_unique<CBus>();
        m_bus->InitAllData(m_db);
    }
    void cleanup()
    {
        m_bus.reset();
        CPrompt::setCurrent(nullptr);
        m_db.reset();
    }

    void priceFallsBackClientThenTypeThenPublic()
    {
        QCOMPARE(priceFor(1, 20), money(u"3"));
        QCOMPARE(m_bus->mAllGoods()->ReadPublicPrice(1), money(u"3"));
        QVERIFY(m_bus->SaveGoodsPriceByClientType(1, 10, money(u"2.8")));
        QCOMPARE(priceFor(1, 20), money(u"2.8"));
        QCOMPARE(priceFor(1, 21), money(u"2.8"));
        QCOMPARE(priceFor(1, 22), money(u"3"));
        QVERIFY(m_bus->SaveGoodsPriceByClient(1, 20, money(u"2.55")));
        QCOMPARE(priceFor(1, 20), money(u"2.55"));
        QCOMPARE(priceFor(1, 21), money(u"2.8"));
        QCOMPARE(priceFor(2, 20), Currency()); // no prices and no sale price
        QCOMPARE(m_bus->GetGoodsPrice(*m_bus->mAllGoods()->GetItemByID(1), nullptr), money(u"3"));

        // A facade started afresh reads the same prices from the database.
        CBus other;
        other.InitAllData(m_db);
        QCOMPARE(other.GetGoodsPrice(*other.mAllGoods()->GetItemByID(1), other.mClients()->GetItemByID(20).get()),
                 money(u"2.55"));
        QCOMPARE(other.GetGoodsPrice(*other.mAllGoods()->GetItemByID(1), other.mClients()->GetItemByID(21).get()),
                 money(u"2.8"));
    }

    void savingReplacesTheRowAndTakesKeysFromTheCounter()
    {
        QVERIFY(m_bus->SaveGoodsPriceByClient(1, 20, money(u"2.5")));
        QVERIFY(m_bus->SaveGoodsPriceByClient(1, 20, money(u"2.4")));
        QVERIFY(m_bus->SaveGoodsPriceByClientType(1, 10, money(u"2.9")));
        QCOMPARE(ItemFixtures::count(*m_db, u"Select Count(*) From T_GoodsPrice"_s), 2);
        QCOMPARE(ItemFixtures::count(*m_db, u"Select Max(F_ID) From T_GoodsPrice"_s), 2);
        QCOMPARE(Module1::GetNewID(*m_db, u"T_GoodsPrice"_s, false), 3);
        const CItemPtr goods = m_bus->mAllGoods()->GetItemByID(1);
        QCOMPARE(goods->GetPriceByClientID(*m_db, 20), std::optional<Currency>(money(u"2.4")));
        QCOMPARE(goods->GetPriceByClientID(*m_db, 21), std::nullopt);
        QCOMPARE(m_bus->mAllGoods()->GetPriceByClientTypeID(1, 10), std::optional<Currency>(money(u"2.9")));

        QString error;
        QVERIFY(goods->SavePriceByClient(*m_db, 21, money(u"2.7"), &error));
        QCOMPARE(goods->GetPriceByClientID(*m_db, 21), std::optional<Currency>(money(u"2.7")));
        // Deleting the goods takes its prices with it.
        m_prompt->setDefaultAnswer(CPrompt::vbYes);
        QVERIFY(m_bus->mAllGoods()->RemoveItem(1));
        QCOMPARE(ItemFixtures::count(*m_db, u"Select Count(*) From T_GoodsPrice"_s), 0);
    }

    void failedSaveChangesNothing()
    {
        ItemFixtures::failOn(*m_db, u"T_GoodsPrice"_s, u"INSERT"_s);
        QVERIFY(!m_bus->SaveGoodsPriceByClient(1, 20, money(u"2.5")));
        QVERIFY(m_prompt->lastText().startsWith(u"保存价格失败!"_s));
        QCOMPARE(priceFor(1, 20), money(u"3"));
        QCOMPARE(Module1::GetNewID(*m_db, u"T_GoodsPrice"_s, false), 1); // the key went back with the rollback
    }

    void pickerProposesTheClientsPrice()
    {
        QVERIFY(m_bus->SaveGoodsPriceByClientType(1, 10, money(u"2.8")));
        CItems lines;
        frmSelectGoodsEx *dialog = m_bus->selectGoodsDialog();
        ModalTest::later(dialog, [dialog]() {
            QTRY_VERIFY(dialog->isVisible());
            dialog->txtSearch->setText(u"G001"_s);
            QVERIFY(dialog->pickCurrent());
            QCOMPARE(dialog->txtPrice->text(), u"2.8000"_s);
            QVERIFY(dialog->cmdAdd_Click());
            dialog->cmdOK->click();
        });
        QVERIFY(m_bus->SelectGoodsEx(lines, false, m_bus->mClients()->GetItemByID(21)));
        QCOMPARE(lines.Item(1)->Price(), money(u"2.8"));
        QVERIFY(!lines.Item(1)->PriceChangeFlag());
    }
};

QTEST_MAIN(PricesTest)
#include "tst_prices.moc"
