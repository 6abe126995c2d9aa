#include "cbus.h"
#include "cconnection.h"
#include "citems.h"
#include "cspell.h"
#include "frmclientedit.h"
#include "frmgoodsedit.h"
#include "frmmain.h"
#include "frmselectclient.h"
#include "frmselectgoodsex.h"
#include "frmselectitem.h"
#include "itemfixtures.h"
#include "itemgrid.h"
#include "keyid.h"
#include "modaltest.h"
#include "prompt.h"
#include "testdatabase.h"

#include <QAction>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSqlQuery>
#include <QStyle>
#include <QTableView>
#include <QTest>
#include <QTimer>
#include <QTreeWidget>

using namespace Qt::StringLiterals;

class DialogsTest : public QObject
{
    Q_OBJECT

private:
    std::shared_ptr<CConnection> m_db;
    std::unique_ptr<ScriptedPrompt> m_prompt;
    std::unique_ptr<CBus> m_bus;

    QString stored(qint32 id, const QString &column)
    {
        QSqlQuery q = m_db->Select(u"Select "_s + column + u" From T_Item Where F_ID=?"_s, {id});
        return q.next() ? q.value(0).toString() : u"<none>"_s;
    }
    // Runs `drive` on the dialog once it is showing modally; a failed check closes it.
    template<typename Dialog, typename Drive>
    void whenShown(Dialog *dialog, Drive drive)
    {
        ModalTest::later(dialog, [dialog, drive]() {
            QTRY_VERIFY(dialog->isVisible());
            drive();
        });
    }

    // Whether a text box shows its whole text: the width its text area has (the box less its frame, text margins
    // and the inner margin of two pixels a side) against the text's width.
    static bool shownWhole(const QLineEdit *box)
    {
        const QMargins margins = box->textMargins();
        const int frame = box->style()->pixelMetric(QStyle::PM_DefaultFrameWidth, nullptr, box);
        const int room = box->width() - margins.left() - margins.right() - 2 * frame - 2 * 2;
        return box->fontMetrics().horizontalAdvance(box->text()) <= room;
    }

private Q_SLOTS:
    void init()
    {
        m_db = TestDatabase::create();
        QVERIFY(m_db);
        m_prompt = std::make_unique<ScriptedPrompt>();
        CPrompt::setCurrent(m_prompt.get());
        ItemFixtures::insert(*m_db, {1, 2, QString(), u"瓶"_s});
        ItemFixtures::insert(*m_db, {2, 3, u"01"_s, u"饮料"_s});
        ItemFixtures::insert(*m_db, {3, 3, u"02"_s, u"酒类"_s});
        ItemFixtures::insert(*m_db, {10, 4, u"G001"_s, u"可乐"_s, 2, 1});
        ItemFixtures::insert(*m_db, {11, 4, u"G002"_s, u"雪碧"_s, 2, 1});
        ItemFixtures::insert(*m_db, {12, 4, u"J001"_s, u"长城干红"_s, 3, 1});
        m_db->Execute(u"Update T_Item Set F_Price4=2.5, F_Standard='330ml' Where F_ID=10"_s);
        ItemFixtures::insert(*m_db, {20, 8, u"1"_s, u"批发客户"_s});
        ItemFixtures::insert(*m_db, {21, 8, u"2"_s, u"供应商"_s});
        ItemFixtures::insert(*m_db, {30, 9, u"01"_s, u"华东"_s});
        ItemFixtures::insert(*m_db, {31, 9, u"02"_s, u"华北"_s});
        ItemFixtures::insert(*m_db, {40, 1, u"KH0001"_s, u"华联超市"_s, 20, 30});
        ItemFixtures::insert(*m_db, {41, 1, u"KH0002"_s, u"联华超市"_s, 20, 31});
        ItemFixtures::insert(*m_db, {42, 1, u"GY0001"_s, u"长城酒业"_s, 21, 31});
        ItemFixtures::insert(*m_db, {50, 11, u"1"_s, u"张三"_s});
        ItemFixtures::insert(*m_db, {51, 11, u"2"_s, u"李四"_s});
        ItemFixtures::insert(*m_db, {52, 11, u"3"_s, u"王五"_s});
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

    void newGoodsIsSavedWithItsMnemonicCode()
    {
        frmGoodsEdit *dialog = m_bus->goodsEditDialog();
        QVERIFY(dialog->LoadGoods(3, m_bus->mAllGoods(), m_bus->mTypes(), m_bus->mUnits(), true));
        QCOMPARE(dialog->cboType->currentText(), u"酒类"_s);
        QCOMPARE(dialog->txtNo->text(), u"J002"_s); // the next number of the type
        dialog->cboType->setCurrentIndex(dialog->cboType->findData(2));
        QCOMPARE(dialog->txtNo->text(), u"G003"_s);
        dialog->txtName->insert(u"长城干红"_s);
        QCOMPARE(dialog->txtSpell->text(), u"ccgh"_s);
        dialog->txtName->clear();
        dialog->txtName->insert(u"Tom's 橙汁"_s);
        QCOMPARE(dialog->txtSpell->text(), CSpell::py(u"Tom's 橙汁"));
        dialog->txtSpell->setText(u"TCZ"_s);
        Q_EMIT dialog->txtSpell->textEdited(u"TCZ"_s);
        dialog->txtName->insert(u"!"_s); // a typed code is kept
        QCOMPARE(dialog->txtSpell->text(), u"TCZ"_s);
        dialog->txtPriceSale->setText(u"3.5"_s);
        dialog->cboUnit->setCurrentIndex(dialog->cboUnit->findData(1));
        QVERIFY(dialog->cmdOK_Click());
        const CItemPtr saved = dialog->savedGoods();
        QVERIFY(saved && saved->F_ID() > 52);
        QCOMPARE(stored(saved->F_ID(), u"F_ItemName"_s), u"Tom's 橙汁!"_s);
        QCOMPARE(stored(saved->F_ID(), u"F_Spell"_s), u"TCZ"_s);
        QCOMPARE(stored(saved->F_ID(), u"F_ItemNo"_s), u"G003"_s);
        QCOMPARE(m_bus->mAllGoods()->GetItemByItemNo(u"G003"_s)->mUnitName(), u"瓶"_s);
        QCOMPARE(dialog->txtPriceSale->text(), u"3.5000"_s);
    }

    void renamingTakesTheMnemonicCodeOfTheNewName()
    {
        frmGoodsEdit *goods = m_bus->goodsEditDialog();
        QVERIFY(goods->LoadGoods(10, m_bus->mAllGoods(), m_bus->mTypes(), m_bus->mUnits(), false));
        goods->txtName->selectAll();
        goods->txtName->insert(u"百事可乐"_s);
        QCOMPARE(goods->txtSpell->text(), CSpell::py(u"百事可乐"));
        QVERIFY(goods->cmdOK_Click());
        QCOMPARE(stored(10, u"F_Spell"_s), CSpell::py(u"百事可乐"));

        frmClientEdit *client = m_bus->clientEditDialog();
        QVERIFY(client->LoadClient(m_bus->mAreas(), m_bus->mClients(), m_bus->mClientTypes(), 0, 40));
        client->txtName->selectAll();
        client->txtName->insert(u"华润万家"_s);
        QCOMPARE(client->txtSpell->text(), CSpell::py(u"华润万家"));
    }

    void refusalNamesTheProblemAndFocusesItsBox_data()
    {
        QTest::addColumn<bool>("goods");
        QTest::addColumn<QString>("no");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("message");
        QTest::addColumn<bool>("onNumber");
        QTest::newRow("goods without number") << true << u" "_s << u"新商品"_s << u"请输入商品编号!"_s << true;
        QTest::newRow("goods without name") << true << u"G009"_s << QString() << u"请输入商品名称!"_s << false;
        QTest::newRow("goods number taken")
            << true << u"G001"_s << u"新商品"_s << u"商品编号[G001]已经存在,请换一个编号!"_s << true;
        QTest::newRow("goods name taken")
            << true << u"G009"_s << u"雪碧"_s << u"商品名称[雪碧]已经存在,请换一个名称!"_s << false;
        QTest::newRow("client without name") << false << u"KH0009"_s << u" "_s << u"请输入客户名称!"_s << false;
        QTest::newRow("client number taken")
            << false << u"KH0002"_s << u"新客户"_s << u"客户编号[KH0002]已经存在,请换一个编号!"_s << true;
        QTest::newRow("client name taken")
            << false << u"KH0009"_s << u"长城酒业"_s << u"客户名称[长城酒业]已经存在,请换一个名称!"_s << false;
    }
    void refusalNamesTheProblemAndFocusesItsBox()
    {
        QFETCH(bool, goods);
        QFETCH(QString, no);
        QFETCH(QString, name);
        QFETCH(QString, message);
        QFETCH(bool, onNumber);
        frmGoodsEdit *goodsDialog = m_bus->goodsEditDialog();
        frmClientEdit *clientDialog = m_bus->clientEditDialog();
        QDialog *dialog = goods ? static_cast<QDialog *>(goodsDialog) : clientDialog;
        QLineEdit *txtNo = goods ? goodsDialog->txtNo : clientDialog->txtNo;
        QLineEdit *txtName = goods ? goodsDialog->txtName : clientDialog->txtName;
        QVERIFY(goods ? goodsDialog->LoadGoods(0, m_bus->mAllGoods(), m_bus->mTypes(), m_bus->mUnits(), true)
                      : clientDialog->LoadClient(m_bus->mAreas(), m_bus->mClients(), m_bus->mClientTypes(), 0));
        dialog->show();
        QVERIFY(QTest::qWaitForWindowExposed(dialog));
        txtNo->setText(no);
        txtName->setText(name);
        const int rows = ItemFixtures::count(*m_db, u"Select Count(*) From T_Item"_s);
        QVERIFY(!(goods ? goodsDialog->cmdOK_Click() : clientDialog->cmdOK_Click()));
        QCOMPARE(m_prompt->lastText(), message);
        QCOMPARE(m_prompt->shown().constLast().style, int(CPrompt::vbExclamation));
        QCOMPARE(m_prompt->shown().constLast().title, u"Quillon软件提示您"_s);
        QTRY_COMPARE(QApplication::focusWidget(), onNumber ? txtNo : txtName);
        QCOMPARE(ItemFixtures::count(*m_db, u"Select Count(*) From T_Item"_s), rows);
        dialog->hide();
    }

    void badPriceIsRefusedWithFocusOnTheField()
    {
        frmGoodsEdit *dialog = m_bus->goodsEditDialog();
        QVERIFY(dialog->LoadGoods(10, m_bus->mAllGoods(), m_bus->mTypes(), m_bus->mUnits(), false));
        dialog->show();
        QVERIFY(QTest::qWaitForWindowExposed(dialog));
        QCOMPARE(dialog->txtPriceSale->text(), u"2.5000"_s);
        dialog->txtPriceSale->setText(u"2.5元"_s);
        QVERIFY(!dialog->cmdOK_Click());
        QVERIFY(m_prompt->lastText().startsWith(u"请输入正确的[单件售价]!"_s));
        QTRY_COMPARE(QApplication::focusWidget(), dialog->txtPriceSale);
        dialog->txtPackageAmount->setText(u"0"_s);
        dialog->txtPriceSale->setText(u"2.8"_s);
        QVERIFY(!dialog->cmdOK_Click());
        QVERIFY(m_prompt->lastText().startsWith(u"请输入正确的[包装数量]!"_s));
        dialog->txtPackageAmount->setText(u"24"_s);
        QVERIFY(dialog->cmdOK_Click());
        QCOMPARE(stored(10, u"F_Price4"_s).toDouble(), 2.8);
        QCOMPARE(m_bus->mAllGoods()->GetItemByID(10)->F_PriceSale(), *Currency::fromString(u"2.8"));
        dialog->hide();
    }

    void supplierModeStartsAsASupplier()
    {
        frmClientEdit *dialog = m_bus->clientEditDialog();
        QVERIFY(
            dialog->LoadClient(m_bus->mAreas(), m_bus->mClients(), m_bus->mClientTypes(), frmClientEdit::SupplierMode));
        QCOMPARE(dialog->cboClientType->currentText(), u"供应商"_s);
        QCOMPARE(dialog->txtNo->text(), u"GY0002"_s);
        dialog->txtName->insert(u"娃哈哈集团"_s);
        QCOMPARE(dialog->txtSpell->text(), u"whhjt"_s);
        dialog->cboArea->setCurrentIndex(dialog->cboArea->findData(30));
        dialog->txtOweWarring->setText(u"1,000"_s);
        QVERIFY(!dialog->cmdOK_Click());
        QVERIFY(m_prompt->lastText().startsWith(u"请输入正确的[欠款预警]!"_s));
        // A total is kept with the two decimals it shows.
        dialog->txtOweWarring->setText(u"1000.125"_s);
        QVERIFY(dialog->cmdOK_Click());
        QCOMPARE(dialog->txtOweWarring->text(), u"1000.13"_s);
        const CItemPtr saved = dialog->savedClient();
        QCOMPARE(saved->F_OweWarring(), *Currency::fromString(u"1000.13"));
        QCOMPARE(stored(saved->F_ID(), u"F_ParentID"_s), u"21"_s);
        QCOMPARE(stored(saved->F_ID(), u"F_Tag1"_s), u"30"_s);
        QCOMPARE(m_bus->mClients()->GetItemByID(saved->F_ID())->mTypeName(), u"供应商"_s);
    }

    void clientFieldsCutOffNameBankAccountAndTaxNumber()
    {
        CItemPtr client = m_bus->mClients()->GetItemByID(40);
        client->setF_ItemName(u"北京市海淀区中关村华联超市连锁经营有限责任公司"_s);
        client->setF_BankAccount(u"62220219880001234567890"_s);
        client->setF_IRDNumber(u"91110108MA01ABCDEF"_s);
        client->setF_Address(u"北京市海淀区中关村大街二十七号华联商厦三层"_s);
        client->setF_OweWarring(*Currency::fromString(u"12345678.9"));
        frmClientEdit *dialog = m_bus->clientEditDialog();
        QVERIFY(dialog->LoadClient(m_bus->mAreas(), m_bus->mClients(), m_bus->mClientTypes(), 0, 40));
        dialog->show();
        QVERIFY(QTest::qWaitForWindowExposed(dialog));
        for (QLineEdit *box : {dialog->txtName, dialog->txtBankAccount, dialog->txtIRDNumber, dialog->txtAddress,
                               dialog->txtOweWarring}) {
            QVERIFY2(shownWhole(box), qPrintable(box->objectName()));
        }
        // Tab (and Enter) go through the fields in the order they are seen: along a line, then down.
        QCOMPARE(dialog->txtNo->nextInFocusChain(), dialog->txtSpell);
        QCOMPARE(dialog->txtSpell->nextInFocusChain(), dialog->txtName);
        QCOMPARE(dialog->txtBankAccount->nextInFocusChain(), dialog->txtIRDNumber);
        dialog->hide();
    }

    void goodsFieldsShowTheirContentWhole()
    {
        CItemPtr goods = m_bus->mAllGoods()->GetItemByID(10);
        goods->setF_ItemName(u"长城干红葡萄酒窖藏五年橡木桶陈酿礼盒装"_s);
        goods->setF_Standard(u"750ml×6瓶/箱 干型 13%vol"_s);
        goods->setF_PriceEnterPack(*Currency::fromString(u"1234567.8912"));
        frmGoodsEdit *dialog = m_bus->goodsEditDialog();
        QVERIFY(dialog->LoadGoods(10, m_bus->mAllGoods(), m_bus->mTypes(), m_bus->mUnits(), false));
        dialog->show();
        QVERIFY(QTest::qWaitForWindowExposed(dialog));
        for (QLineEdit *box : {dialog->txtName, dialog->txtStandard, dialog->txtPriceEnterPack}) {
            QVERIFY2(shownWhole(box), qPrintable(box->objectName()));
        }
        dialog->hide();
    }

    void newClientIsDatedAndEndsTheDialog()
    {
        frmClientEdit *dialog = m_bus->clientEditDialog();
        QVERIFY(
            dialog->LoadClient(m_bus->mAreas(), m_bus->mClients(), m_bus->mClientTypes(), frmClientEdit::ClientMode));
        dialog->setResult(QDialog::Rejected);
        dialog->txtName->setText(u"新华书店"_s);
        QVERIFY(dialog->cmdOK_Click());
        QCOMPARE(dialog->result(), int(QDialog::Accepted));
        const CItemPtr saved = dialog->savedClient();
        QVERIFY(saved && saved->F_ID() > 52);
        QVERIFY(CItem::isLaterThanZeroDate(saved->F_Date()));
        QVERIFY(!stored(saved->F_ID(), u"F_Date"_s).isEmpty());
        QCOMPARE(m_bus->mClients()->GetItemByID(saved->F_ID()), saved);
    }

    void failedSaveKeepsTheGoodsDialogOpen()
    {
        frmGoodsEdit *dialog = m_bus->goodsEditDialog();
        QVERIFY(dialog->LoadGoods(10, m_bus->mAllGoods(), m_bus->mTypes(), m_bus->mUnits(), false));
        dialog->setResult(QDialog::Rejected);
        dialog->txtName->setText(u"可乐330"_s);
        ItemFixtures::failOn(*m_db, u"T_Item"_s, u"UPDATE"_s);
        QVERIFY(!dialog->cmdOK_Click());
        QCOMPARE(dialog->result(), int(QDialog::Rejected));
        QVERIFY(!dialog->savedGoods());
        QCOMPARE(stored(10, u"F_ItemName"_s), u"可乐"_s);
        QCOMPARE(m_bus->mAllGoods()->GetItemByID(10)->F_ItemName(), u"可乐"_s);
    }

    void clientIsPickedByTypingItsMnemonicCode()
    {
        frmSelectClient *dialog = m_bus->selectClientDialog();
        whenShown(dialog, [dialog]() {
            QCOMPARE(dialog->lvClients->model()->rowCount(), 3);
            dialog->txtSearch->setText(u"lhcs"_s);
            QCOMPARE(dialog->lvClients->model()->rowCount(), 1);
            QTest::keyClick(dialog->txtSearch, Qt::Key_Return);
        });
        const CItemPtr client = m_bus->SelectClient();
        QVERIFY(client);
        QCOMPARE(client->F_ItemName(), u"联华超市"_s);
    }

    void clientFiltersAndEscape()
    {
        frmSelectClient *dialog = m_bus->selectClientDialog();
        whenShown(dialog, [dialog]() {
            dialog->cboArea->setCurrentIndex(dialog->cboArea->findData(31));
            QCOMPARE(dialog->lvClients->model()->rowCount(), 2);
            dialog->cboClientType->setCurrentIndex(dialog->cboClientType->findData(21));
            QCOMPARE(dialog->lvClients->model()->rowCount(), 1);
            dialog->txtSearch->setText(u"cc"_s);
            QCOMPARE(dialog->currentClient()->F_ItemName(), u"长城酒业"_s);
            QTest::keyClick(dialog->txtSearch, Qt::Key_Escape);
        });
        QVERIFY(!m_bus->SelectClient());
    }

    void pickerFiltersAndOkHadNoShortcut()
    {
        frmSelectClient *clients = m_bus->selectClientDialog();
        QCOMPARE(clients->cmdOK->text(), u"确定(&O)"_s);
        QCOMPARE(m_bus->selectItemDialog()->cmdOK->text(), u"确定(&O)"_s);
        QMap<QString, QWidget *> buddies;
        for (const QLabel *label : clients->findChildren<QLabel *>()) {
            if (label->buddy()) {
                buddies.insert(label->text(), label->buddy());
            }
        }
        QCOMPARE(buddies.value(u"地区(&A):"_s), clients->cboArea);
        QCOMPARE(buddies.value(u"类别(&T):"_s), clients->cboClientType);
        QCOMPARE(buddies.value(u"查找(&F):"_s), clients->txtSearch);
    }

    void goodsLinesAreAddedThenChanged()
    {
        CItems lines;
        frmSelectGoodsEx *dialog = m_bus->selectGoodsDialog();
        whenShown(dialog, [dialog]() {
            dialog->txtSearch->setText(u"kl"_s);
            QCOMPARE(dialog->lvGoods->model()->rowCount(), 1);
            QTest::keyClick(dialog->txtSearch, Qt::Key_Return); // picks 可乐
            QCOMPARE(dialog->txtAmount->text(), u"1"_s);
            QCOMPARE(dialog->txtPrice->text(), u"2.5000"_s);
            dialog->txtAmount->setText(u"3"_s);
            QTest::keyClick(dialog->txtAmount, Qt::Key_Return);
            QTest::keyClick(dialog->txtPrice, Qt::Key_Return); // adds the line
            dialog->txtSearch->setText(u"330ml"_s); // by specification
            QCOMPARE(dialog->lvGoods->model()->rowCount(), 1);
            dialog->txtSearch->setText(u"zcgh"_s); // 长 read as zhang
            QVERIFY(dialog->pickCurrent());
            dialog->txtAmount->setText(u"2"_s);
            dialog->txtPrice->setText(u"88.8"_s);
            QVERIFY(dialog->cmdAdd_Click());
            QCOMPARE(dialog->lblTotal->text(), u"共 2 行,合计金额 185.10"_s);
            dialog->cmdOK->click();
        });
        QVERIFY(m_bus->SelectGoodsEx(lines, false));
        QCOMPARE(lines.Count(), 2);
        QCOMPARE(lines.Item(1)->F_ItemName(), u"可乐"_s);
        QCOMPARE(lines.Item(1)->Amount(), Currency::fromInteger(3));
        QCOMPARE(lines.Item(1)->Money(), *Currency::fromString(u"7.5"));
        QVERIFY(!lines.Item(1)->PriceChangeFlag());
        QCOMPARE(lines.Item(2)->Price(), *Currency::fromString(u"88.8"));
        QVERIFY(lines.Item(2)->PriceChangeFlag());
        // The lines are copies: the goods themselves carry no quantity.
        QCOMPARE(m_bus->mAllGoods()->GetItemByID(10)->Amount(), Currency());

        whenShown(dialog, [dialog]() {
            QCOMPARE(dialog->lvLines->model()->rowCount(), 2);
            dialog->lvLines->setCurrentIndex(dialog->lvLines->model()->index(0, 0));
            QVERIFY(dialog->changeCurrentLine());
            QCOMPARE(dialog->txtAmount->text(), u"3"_s);
            dialog->txtAmount->setText(u"5"_s);
            QVERIFY(dialog->cmdAdd_Click());
            dialog->lvLines->setCurrentIndex(dialog->lvLines->model()->index(1, 0));
            dialog->cmdRemove->click();
            dialog->cmdOK->click();
        });
        QVERIFY(m_bus->SelectGoodsEx(lines, true));
        QCOMPARE(lines.Count(), 1);
        QCOMPARE(lines.Item(1)->Amount(), Currency::fromInteger(5));
        QCOMPARE(lines.Item(1)->Money(), *Currency::fromString(u"12.5"));

        whenShown(dialog, [this, dialog]() {
            dialog->txtSearch->setText(u"xb"_s);
            QVERIFY(dialog->pickCurrent());
            QVERIFY(dialog->cmdAdd_Click());
            m_prompt->queueAnswer(CPrompt::vbYes); // drop the picked line
            dialog->cmdCancel->click();
        });
        QVERIFY(!m_bus->SelectGoodsEx(lines, false));
        QCOMPARE(lines.Count(), 1);
    }

    void goodsPickerAsksBeforeDroppingPickedLines()
    {
        CItems lines;
        frmSelectGoodsEx *dialog = m_bus->selectGoodsDialog();
        whenShown(dialog, [this, dialog]() {
            QVERIFY(dialog->cmdOK->isDefault());
            QCOMPARE(dialog->cmdOK->text(), u"确定(&O)"_s);
            QAbstractItemModel *goods = dialog->lvGoods->model();
            const int price = 4; // number, name, standard, unit, price
            QCOMPARE(goods->headerData(price, Qt::Horizontal).toString(), u"单件售价"_s);
            QCOMPARE(Qt::Alignment(goods->index(0, price).data(Qt::TextAlignmentRole).toInt()) & Qt::AlignRight,
                     Qt::AlignRight);
            QVERIFY(dialog->pickCurrent());
            QVERIFY(dialog->cmdAdd_Click());
            // Esc with a picked line: the clerk is asked, and No keeps the dialog and the line.
            m_prompt->queueAnswer(CPrompt::vbNo);
            QTest::keyClick(dialog->txtSearch, Qt::Key_Escape);
            QCOMPARE(m_prompt->lastText(), u"选择的商品还没有确定,确实要放弃吗?"_s);
            QVERIFY(dialog->isVisible());
            QCOMPARE(dialog->lvLines->model()->rowCount(), 1);
            m_prompt->queueAnswer(CPrompt::vbYes);
            QTest::keyClick(dialog->txtSearch, Qt::Key_Escape);
        });
        QVERIFY(!m_bus->SelectGoodsEx(lines, false));
        QCOMPARE(lines.Count(), 0);
        QCOMPARE(m_prompt->shown().size(), 2);
    }

    void goodsTypeTreeNarrowsTheList()
    {
        CItems lines;
        frmSelectGoodsEx *dialog = m_bus->selectGoodsDialog();
        dialog->LoadGoods(lines, m_bus->mAllGoods(), m_bus->mTypes(), false);
        QCOMPARE(dialog->lvGoods->model()->rowCount(), 3);
        const QList<QTreeWidgetItem *> wine = dialog->tvTypes->findItems(u"酒类"_s, Qt::MatchRecursive);
        QCOMPARE(wine.size(), 1);
        dialog->tvTypes->setCurrentItem(wine.first());
        QCOMPARE(dialog->lvGoods->model()->rowCount(), 1);
        QVERIFY(!dialog->cmdAdd_Click() || true);
        dialog->txtAmount->setText(u"0"_s);
        QVERIFY(dialog->pickCurrent());
        dialog->txtAmount->setText(u"0"_s);
        QVERIFY(!dialog->cmdAdd_Click());
        QVERIFY(m_prompt->lastText().startsWith(u"请输入正确的[数量]!"_s));
    }

    void receiversAreChosenSeveralAtOnce()
    {
        frmSelectItem *dialog = m_bus->selectItemDialog();
        whenShown(dialog, [dialog]() {
            QAbstractItemModel *model = dialog->lstItems->model();
            QCOMPARE(model->rowCount(), 3);
            model->setData(model->index(2, 0), Qt::Checked, Qt::CheckStateRole);
            dialog->txtSearch->setText(u"zs"_s);
            QCOMPARE(model->rowCount(), 1);
            model->setData(model->index(0, 0), Qt::Checked, Qt::CheckStateRole);
            dialog->txtSearch->clear();
            QCOMPARE(model->index(2, 0).data(Qt::CheckStateRole).toInt(), int(Qt::Checked));
            dialog->cmdOK->click();
        });
        const std::shared_ptr<CItems> chosen = m_bus->SelectItems(11);
        QVERIFY(chosen);
        QCOMPARE(chosen->Count(), 2);
        QCOMPARE(chosen->Item(1)->F_ItemName(), u"张三"_s);
        QCOMPARE(chosen->Item(2)->F_ItemName(), u"王五"_s);
        QVERIFY(!m_bus->SelectItems(5));

        whenShown(dialog, [dialog]() {
            dialog->cmdSelectAll->click();
            dialog->cmdCancel->click();
        });
        QVERIFY(!m_bus->SelectItems(11));
    }

    void aClickOrSpaceOnAnyColumnTicksTheRow()
    {
        frmSelectItem *dialog = m_bus->selectItemDialog();
        dialog->LoadItems(*m_bus->mLLRs(), QString());
        dialog->show();
        QVERIFY(QTest::qWaitForWindowExposed(dialog));
        QTableView *list = dialog->lstItems;
        QAbstractItemModel *model = list->model();
        const auto checked = [model](int row) {
            return model->index(row, 0).data(Qt::CheckStateRole).toInt() == Qt::Checked;
        };
        // On the name, right of the box.
        QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, list->visualRect(model->index(0, 0)).center());
        QVERIFY(checked(0));
        QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, list->visualRect(model->index(1, 1)).center());
        QVERIFY(checked(1));
        QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, list->visualRect(model->index(1, 1)).center());
        QVERIFY(!checked(1));
        // Space on a row whose current cell is not the first column.
        list->setFocus();
        list->setCurrentIndex(model->index(2, 1));
        QTest::keyClick(list, Qt::Key_Space);
        QVERIFY(checked(2));
        QTest::keyClick(list, Qt::Key_Space);
        QVERIFY(!checked(2));
        QCOMPARE(dialog->checkedItems().size(), std::size_t(1));
        dialog->hide();
    }

    void propertiesOpensTheGoodsDialogForTheCurrentRow()
    {
        m_bus->ShowMain();
        frmMain *form = m_bus->mainWindow();
        form->selectKind(4);
        form->Flexgd1->setRow(2);
        frmGoodsEdit *dialog = form->goodsEditDialog();
        QString shownName;
        whenShown(dialog, [dialog, &shownName]() {
            shownName = dialog->txtName->text();
            dialog->txtRemark->setText(u"改于属性"_s);
            dialog->cmdOK->click();
        });
        form->button(u"属性"_s)->trigger();
        QCOMPARE(shownName, u"雪碧"_s);
        QCOMPARE(stored(11, u"F_Remark"_s), u"改于属性"_s);
        QCOMPARE(form->Flexgd1->TextMatrix(2, form->Flexgd1->Cols() - 1), u"改于属性"_s);
        form->hide();
    }
};

QTEST_MAIN(DialogsTest)
#include "tst_dialogs.moc"
