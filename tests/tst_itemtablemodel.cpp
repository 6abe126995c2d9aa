#include "cconnection.h"
#include "citems.h"
#include "itemfixtures.h"
#include "itemtablemodel.h"
#include "keyid.h"
#include "module1.h"
#include "prompt.h"
#include "testdatabase.h"

#include <QAbstractItemModelTester>
#include <QItemSelectionModel>
#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;
using ItemFixtures::Row;

class ItemTableModelTest : public QObject
{
    Q_OBJECT

private:
    std::shared_ptr<CConnection> m_db;
    std::unique_ptr<ScriptedPrompt> m_prompt;
    std::unique_ptr<CItems> m_goods;
    std::unique_ptr<ItemTableModel> m_model;
    std::unique_ptr<QAbstractItemModelTester> m_tester;

    void bindGoods()
    {
        m_goods = std::make_unique<CItems>();
        QVERIFY(m_goods->InitInstance(m_db, 4));
        m_model = std::make_unique<ItemTableModel>(m_goods.get(), ItemTableModel::goodsFields());
        m_tester = std::make_unique<QAbstractItemModelTester>(m_model.get(),
                                                              QAbstractItemModelTester::FailureReportingMode::QtTest);
    }
    QString cell(int row, ItemTableModel::Field field) const
    {
        return m_model->index(row, m_model->columnOf(field)).data().toString();
    }
    bool edit(int row, ItemTableModel::Field field, const QString &text)
    {
        return m_model->setData(m_model->index(row, m_model->columnOf(field)), text);
    }
    // The goods as a new load from the database sees them.
    CItemPtr stored(const QString &no)
    {
        CItems fresh;
        fresh.InitInstance(m_db, 4);
        return fresh.GetItemByItemNo(no);
    }

private Q_SLOTS:
    void init()
    {
        m_db = TestDatabase::create();
        QVERIFY(m_db);
        m_prompt = std::make_unique<ScriptedPrompt>();
        CPrompt::setCurrent(m_prompt.get());
        ItemFixtures::insert(*m_db, {1, 4, u"G001"_s, u"可乐"_s});
        ItemFixtures::insert(*m_db, {2, 4, u"G003"_s, u"雪碧"_s});
        ItemFixtures::insert(*m_db, {3, 4, u"G005"_s, u"芬达"_s});
        m_db->Execute(u"Update T_Item Set F_Price4=2.5, F_PackageAmount=24 Where F_ID=1"_s);
        Module1::ReseedKeyID(*m_db, u"T_Item"_s); // new keys start above the fixture rows
        bindGoods();
    }
    void cleanup()
    {
        m_tester.reset();
        m_model.reset();
        m_goods.reset();
        CPrompt::setCurrent(nullptr);
        m_db.reset();
    }

    void showsTheCollectionWithoutCopying()
    {
        QCOMPARE(m_model->rowCount(), 3);
        QCOMPARE(m_model->headerData(m_model->columnOf(ItemTableModel::PriceSale), Qt::Horizontal).toString(),
                 u"单件售价"_s);
        QCOMPARE(cell(0, ItemTableModel::ItemName), u"可乐"_s);
        QCOMPARE(cell(0, ItemTableModel::PriceSale), u"2.5000"_s);
        QCOMPARE(cell(0, ItemTableModel::PackageAmount), u"24"_s);
        // The table reads the items themselves: a change made elsewhere shows at once.
        m_goods->Item(2)->setF_ItemName(u"七喜"_s);
        QCOMPARE(cell(1, ItemTableModel::ItemName), u"七喜"_s);
        QVERIFY(!(m_model->flags(m_model->index(0, m_model->columnOf(ItemTableModel::UnitName))) & Qt::ItemIsEditable));
        QVERIFY(m_model->flags(m_model->index(0, m_model->columnOf(ItemTableModel::Remark))) & Qt::ItemIsEditable);
    }

    void editsWaitForSaveThenReachTheDatabase()
    {
        QSignalSpy modified(m_model.get(), &ItemTableModel::modifiedChanged);
        QVERIFY(edit(0, ItemTableModel::PriceSale, u"3.1"_s));
        QVERIFY(edit(0, ItemTableModel::ItemName, u"Tom's 可乐"_s));
        QCOMPARE(modified.count(), 1);
        QVERIFY(m_model->isModified());
        QCOMPARE(cell(0, ItemTableModel::PriceSale), u"3.1000"_s);
        // The collection's item is untouched until saved.
        QCOMPARE(m_goods->Item(1)->F_ItemName(), u"可乐"_s);

        QVERIFY(m_model->SaveChanges());
        QVERIFY(!m_model->isModified());
        QCOMPARE(modified.count(), 2);
        QCOMPARE(m_model->rowCount(), 3);
        QCOMPARE(m_goods->Item(1)->F_ItemName(), u"Tom's 可乐"_s);
        const CItemPtr saved = stored(u"G001"_s);
        QVERIFY(saved);
        QCOMPARE(saved->F_ItemName(), u"Tom's 可乐"_s);
        QCOMPARE(saved->F_PriceSale(), *Currency::fromString(u"3.1"));
        QCOMPARE(saved->F_PackageAmount(), 24.0f);
    }

    void savingInPlaceDoesNotReinsertTheRow()
    {
        const int column = m_model->columnOf(ItemTableModel::ItemName);
        QItemSelectionModel selection(m_model.get());
        selection.setCurrentIndex(m_model->index(1, column),
                                  QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
        const QPersistentModelIndex held(m_model->index(1, column));
        QVERIFY(edit(1, ItemTableModel::ItemName, u"雪碧 330ml"_s));

        QSignalSpy removed(m_model.get(), &QAbstractItemModel::rowsRemoved);
        QSignalSpy inserted(m_model.get(), &QAbstractItemModel::rowsInserted);
        QSignalSpy moved(m_model.get(), &QAbstractItemModel::rowsMoved);
        QSignalSpy changed(m_model.get(), &QAbstractItemModel::dataChanged);
        QVERIFY(m_model->SaveChanges());

        QCOMPARE(removed.count(), 0);
        QCOMPARE(inserted.count(), 0);
        QCOMPARE(moved.count(), 0);
        QVERIFY(held.isValid());
        QCOMPARE(held.row(), 1);
        QCOMPARE(held.data().toString(), u"雪碧 330ml"_s);
        QCOMPARE(selection.currentIndex(), m_model->index(1, column));
        QVERIFY(selection.isRowSelected(1));
        // One notice for the saved row, sent once it no longer shows as pending.
        QCOMPARE(changed.count(), 1);
        QCOMPARE(changed.at(0).at(0).toModelIndex(), m_model->index(1, 0));
        QCOMPARE(changed.at(0).at(1).toModelIndex(), m_model->index(1, m_model->columnCount() - 1));
        QVERIFY(!m_model->index(1, 0).data(Qt::BackgroundRole).isValid());
    }

    void savingANewNumberMovesTheRowInsteadOfReinserting()
    {
        const int column = m_model->columnOf(ItemTableModel::ItemNo);
        QItemSelectionModel selection(m_model.get());
        selection.setCurrentIndex(m_model->index(0, column),
                                  QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
        const QPersistentModelIndex first(m_model->index(0, column));
        const QPersistentModelIndex second(m_model->index(1, column));
        QVERIFY(edit(0, ItemTableModel::ItemNo, u"G004"_s));

        QSignalSpy removed(m_model.get(), &QAbstractItemModel::rowsRemoved);
        QSignalSpy inserted(m_model.get(), &QAbstractItemModel::rowsInserted);
        QSignalSpy moved(m_model.get(), &QAbstractItemModel::rowsMoved);
        QVERIFY(m_model->SaveChanges());

        QCOMPARE(removed.count(), 0);
        QCOMPARE(inserted.count(), 0);
        QCOMPARE(moved.count(), 1);
        QCOMPARE(moved.at(0).at(1).toInt(), 0);
        QCOMPARE(moved.at(0).at(2).toInt(), 0);
        QCOMPARE(moved.at(0).at(4).toInt(), 2);
        QCOMPARE(cell(0, ItemTableModel::ItemNo), u"G003"_s);
        QCOMPARE(cell(1, ItemTableModel::ItemNo), u"G004"_s);
        QCOMPARE(cell(2, ItemTableModel::ItemNo), u"G005"_s);
        QCOMPARE(first.row(), 1);
        QCOMPARE(first.data().toString(), u"G004"_s);
        QCOMPARE(second.row(), 0);
        QCOMPARE(selection.currentIndex(), m_model->index(1, column));
        QVERIFY(selection.isRowSelected(1));
        QVERIFY(!selection.isRowSelected(0));

        // And towards the front: the last goods renumbered to come first.
        const QPersistentModelIndex last(m_model->index(2, column));
        QVERIFY(edit(2, ItemTableModel::ItemNo, u"G000"_s));
        QVERIFY(m_model->SaveChanges());
        QCOMPARE(removed.count(), 0);
        QCOMPARE(inserted.count(), 0);
        QCOMPARE(moved.count(), 2);
        QCOMPARE(moved.at(1).at(1).toInt(), 2);
        QCOMPARE(moved.at(1).at(4).toInt(), 0);
        QCOMPARE(last.row(), 0);
        QCOMPARE(last.data().toString(), u"G000"_s);
        QCOMPARE(first.row(), 2);
        QCOMPARE(selection.currentIndex(), m_model->index(2, column));
        const CItemPtr saved = stored(u"G000"_s);
        QVERIFY(saved);
        QCOMPARE(saved->F_ItemName(), u"芬达"_s);
    }

    void badNumbersAreRefusedWithTheFieldName()
    {
        QSignalSpy rejected(m_model.get(), &ItemTableModel::editRejected);
        QVERIFY(!edit(0, ItemTableModel::PriceEnter, u"abc"_s));
        QVERIFY(!edit(0, ItemTableModel::PackageAmount, u"0"_s));
        QVERIFY(!edit(0, ItemTableModel::ItemName, u"  "_s));
        QCOMPARE(rejected.count(), 3);
        QCOMPARE(rejected.at(0).at(0).toString(), u"请输入正确的[单件进价]!"_s);
        QCOMPARE(rejected.at(2).at(0).toString(), u"[名称]不能为空!"_s);
        QVERIFY(!m_model->isModified());
        // An empty amount is zero.
        QVERIFY(edit(0, ItemTableModel::PriceSale, QString()));
        QCOMPARE(cell(0, ItemTableModel::PriceSale), u"0.0000"_s);
    }

    void amountColumnsMixedTwoAndFourDecimals()
    {
        // One format per column: prices with the four decimals they are kept with, totals with two.
        m_goods->Item(1)->setF_PriceEnter(*Currency::fromString(u"35.568"));
        m_goods->Item(1)->setF_PriceSale(*Currency::fromString(u"44.46"));
        QCOMPARE(cell(0, ItemTableModel::PriceEnter), u"35.5680"_s);
        QCOMPARE(cell(0, ItemTableModel::PriceSale), u"44.4600"_s);
        QVERIFY(edit(0, ItemTableModel::PriceSale, u"1.23456"_s));
        QCOMPARE(cell(0, ItemTableModel::PriceSale), u"1.2346"_s);
        QCOMPARE(ItemTableModel::priceText(*Currency::fromString(u"-3")), u"-3.0000"_s);
        QCOMPARE(ItemTableModel::totalText(*Currency::fromString(u"44.46")), u"44.46"_s);
        QCOMPARE(ItemTableModel::totalText(Currency()), u"0.00"_s);
        QCOMPARE(ItemTableModel::totalOf(*Currency::fromString(u"100.125")), *Currency::fromString(u"100.13"));
        QCOMPARE(ItemTableModel::totalOf(*Currency::fromString(u"-0.005")), *Currency::fromString(u"-0.01"));
        QVERIFY(ItemTableModel::isPriceField(ItemTableModel::PriceEnterPack));
        QVERIFY(!ItemTableModel::isPriceField(ItemTableModel::OweStop));
    }

    void totalTypedWithMoreDecimalsWasKeptUnseen()
    {
        ItemFixtures::insert(*m_db, {7, 1, u"K001"_s, u"华联超市"_s});
        CItems clients;
        QVERIFY(clients.InitInstance(m_db, 1));
        ItemTableModel model(&clients, {ItemTableModel::ItemName, ItemTableModel::OweWarring});
        QVERIFY(model.setData(model.index(0, 1), u"100.125"_s, Qt::EditRole));
        QCOMPARE(model.data(model.index(0, 1)).toString(), u"100.13"_s);
    }

    void newRowGetsItsKeyAndPlaceOnSave()
    {
        const int row = m_model->addNewRow();
        QCOMPARE(row, 3);
        QVERIFY(m_model->isNewRow(row));
        QCOMPARE(m_model->headerData(row, Qt::Vertical).toString(), u"*"_s);
        QVERIFY(edit(row, ItemTableModel::ItemNo, u"G002"_s));
        QVERIFY(edit(row, ItemTableModel::ItemName, u"橙汁"_s));
        QVERIFY(m_model->SaveChanges());
        QCOMPARE(m_model->rowCount(), 4);
        QVERIFY(!m_model->isNewRow(3));
        // Goods take their place in number order.
        QCOMPARE(cell(1, ItemTableModel::ItemName), u"橙汁"_s);
        const CItemPtr saved = stored(u"G002"_s);
        QVERIFY(saved);
        QCOMPARE(saved->F_ID(), 4);
        QCOMPARE(saved->F_PackageAmount(), 1.0f);
    }

    void newRowWithoutNameIsNotSaved()
    {
        const int row = m_model->addNewRow();
        QVERIFY(edit(row, ItemTableModel::ItemNo, u"G009"_s));
        QVERIFY(!m_model->SaveChanges());
        QCOMPARE(m_prompt->lastText(), u"请输入商品名称!"_s);
        QCOMPARE(ItemFixtures::count(*m_db, u"Select Count(*) From T_Item"_s), 3);
        QVERIFY(m_model->isModified());
        QVERIFY(m_model->removeNewRow(3));
        QVERIFY(!m_model->isModified());
    }

    void newGoodsRowWithoutNumberIsNotSaved()
    {
        const int row = m_model->addNewRow();
        QVERIFY(edit(row, ItemTableModel::ItemName, u"橙汁"_s));
        QSignalSpy refused(m_model.get(), &ItemTableModel::saveRefused);
        QVERIFY(!m_model->SaveChanges());
        QCOMPARE(m_prompt->lastText(), u"请输入商品编号!"_s);
        QCOMPARE(m_prompt->shown().constLast().style, int(CPrompt::vbExclamation));
        QCOMPARE(refused.count(), 1);
        QCOMPARE(refused.at(0).at(0).toInt(), row);
        QCOMPARE(ItemFixtures::count(*m_db, u"Select Count(*) From T_Item"_s), 3);
        QVERIFY(m_model->isNewRow(row));
    }

    void duplicateNumberOrNameIsRefusedAsTheDialogsDo()
    {
        // A rename to a name another goods has.
        QVERIFY(edit(1, ItemTableModel::ItemName, u"可乐"_s));
        QVERIFY(edit(2, ItemTableModel::Remark, u"促销"_s));
        QVERIFY(!m_model->SaveChanges());
        QCOMPARE(m_prompt->lastText(), u"商品名称[可乐]已经存在,请换一个名称!"_s);
        // Nothing was written, and the clerk's edits stay on screen.
        QCOMPARE(stored(u"G003"_s)->F_ItemName(), u"雪碧"_s);
        QCOMPARE(stored(u"G005"_s)->F_Remark(), QString());
        QCOMPARE(cell(1, ItemTableModel::ItemName), u"可乐"_s);
        QCOMPARE(cell(2, ItemTableModel::Remark), u"促销"_s);
        QVERIFY(m_model->isModified());

        // A new row with a number that is taken, and two new rows with the same number.
        m_model->discardChanges();
        const int row = m_model->addNewRow();
        QVERIFY(edit(row, ItemTableModel::ItemNo, u"G001"_s));
        QVERIFY(edit(row, ItemTableModel::ItemName, u"橙汁"_s));
        QVERIFY(!m_model->SaveChanges());
        QCOMPARE(m_prompt->lastText(), u"商品编号[G001]已经存在,请换一个编号!"_s);
        QVERIFY(edit(row, ItemTableModel::ItemNo, u"G009"_s));
        const int second = m_model->addNewRow();
        QVERIFY(edit(second, ItemTableModel::ItemNo, u"G009"_s));
        QVERIFY(edit(second, ItemTableModel::ItemName, u"橙汁2"_s));
        QVERIFY(!m_model->SaveChanges());
        QCOMPARE(m_prompt->lastText(), u"商品编号[G009]已经存在,请换一个编号!"_s);
        QCOMPARE(ItemFixtures::count(*m_db, u"Select Count(*) From T_Item"_s), 3);

        // Two goods trading their names is no clash.
        m_model->discardChanges();
        QVERIFY(edit(0, ItemTableModel::ItemName, u"雪碧"_s));
        QVERIFY(edit(1, ItemTableModel::ItemName, u"可乐"_s));
        QVERIFY(m_model->SaveChanges());
        QCOMPARE(stored(u"G001"_s)->F_ItemName(), u"雪碧"_s);
        QCOMPARE(stored(u"G003"_s)->F_ItemName(), u"可乐"_s);
    }

    void failedSaveKeepsTheEdits()
    {
        QVERIFY(edit(1, ItemTableModel::Remark, u"促销"_s));
        ItemFixtures::failOn(*m_db, u"T_Item"_s, u"UPDATE"_s);
        QVERIFY(!m_model->SaveChanges());
        QVERIFY(m_prompt->lastText().startsWith(u"保存元素失败!"_s));
        QVERIFY(m_model->isModified());
        QCOMPARE(cell(1, ItemTableModel::Remark), u"促销"_s);
        QCOMPARE(m_goods->Item(2)->F_Remark(), QString());
    }

    void discardRestoresTheCollectionValues()
    {
        QVERIFY(edit(2, ItemTableModel::ItemName, u"改名"_s));
        m_model->addNewRow();
        m_model->discardChanges();
        QVERIFY(!m_model->isModified());
        QCOMPARE(m_model->rowCount(), 3);
        QCOMPARE(cell(2, ItemTableModel::ItemName), u"芬达"_s);
    }

    void collectionChangesMoveTheRows()
    {
        QVERIFY(edit(2, ItemTableModel::Remark, u"待删"_s));
        m_prompt->setDefaultAnswer(CPrompt::vbYes);
        QVERIFY(m_goods->RemoveItem(3));
        QCOMPARE(m_model->rowCount(), 2);
        // The pending edit left with its row.
        QVERIFY(!m_model->isModified());

        QSignalSpy changed(m_model.get(), &QAbstractItemModel::dataChanged);
        QSignalSpy removed(m_model.get(), &QAbstractItemModel::rowsRemoved);
        const QPersistentModelIndex held(m_model->index(1, 0));
        m_db->Execute(u"Update T_Item Set F_ItemName='新名' Where F_ID=2"_s);
        m_goods->Refresh(2);
        QCOMPARE(changed.count(), 1);
        QCOMPARE(changed.at(0).at(0).toModelIndex().row(), 1);
        QCOMPARE(removed.count(), 0);
        QCOMPARE(held.row(), 1);
        QCOMPARE(cell(1, ItemTableModel::ItemName), u"新名"_s);

        QSignalSpy reset(m_model.get(), &QAbstractItemModel::modelReset);
        m_goods->Refresh(0);
        QCOMPARE(reset.count(), 1);
        QCOMPARE(m_model->rowCount(), 2);
    }

    void rowLookUps()
    {
        QCOMPARE(m_model->rowOfID(3), 2);
        QCOMPARE(m_model->rowOfID(99), -1);
        QCOMPARE(m_model->itemAt(1)->F_ItemNo(), u"G003"_s);
        QVERIFY(!m_model->itemAt(3));
        QVERIFY(!m_model->index(5, 0).data().isValid());
    }
};

QTEST_MAIN(ItemTableModelTest)
#include "tst_itemtablemodel.moc"
