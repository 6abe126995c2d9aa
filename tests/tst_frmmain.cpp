#include "cbus.h"
#include "cconnection.h"
#include "citems.h"
#include "cspell.h"
#include "excelconnection.h"
#include "frmclientedit.h"
#include "frmgoodsedit.h"
#include "frminputitem.h"
#include "frmmain.h"
#include "frmsearch.h"
#include "itemfixtures.h"
#include "itemgrid.h"
#include "itemtablemodel.h"
#include "keyid.h"
#include "modaltest.h"
#include "module1.h"
#include "prompt.h"
#include "testdatabase.h"

#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRegularExpression>
#include <QSettings>
#include <QSignalSpy>
#include <QStatusBar>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <QToolBar>
#include <QTreeWidget>

using namespace Qt::StringLiterals;

class FrmMainTest : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;
    std::shared_ptr<CConnection> m_db;
    std::unique_ptr<ScriptedPrompt> m_prompt;
    std::unique_ptr<CBus> m_bus;
    std::unique_ptr<frmMain> m_form;

    QString iniFile() const { return m_dir.filePath(u"QlSetup.ini"_s); }

    void openForm()
    {
        m_form = std::make_unique<frmMain>();
        m_form->setSettingsFile(iniFile());
        for (int type : {1, 2, 3, 4, 5, 6, 8, 9, 11}) {
            m_form->setCollection(type, m_bus->collection(type));
        }
        m_form->setConnection(m_db);
        m_form->Form_Load();
        m_form->show();
        QVERIFY(QTest::qWaitForWindowExposed(m_form.get()));
    }
    int tx() const { return m_form->twipsPerPixelX(); }
    float formWidthTwips() const { return float(m_form->centralWidget()->width() * tx()); }
    QString storedName(qint32 id)
    {
        QSqlQuery q = m_db->Select(u"Select F_ItemName From T_Item Where F_ID=?"_s, {id});
        return q.next() ? q.value(0).toString() : u"<none>"_s;
    }
    // Runs `drive` on the modal dialog of that class once it shows; fails when none shows, closes it on a failure.
    template<typename Dialog, typename Drive>
    void whenModal(Drive drive)
    {
        ModalTest::whenModal<Dialog>(this, drive);
    }
    void editCell(int row, ItemTableModel::Field field, const QString &text)
    {
        ItemTableModel *model = m_form->itemModel();
        QVERIFY(model->setData(model->index(row, model->columnOf(field)), text));
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_dir.isValid());
        QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, m_dir.filePath(u"config"_s));
        QCoreApplication::setApplicationName(u"QuillonTest"_s);
    }
    void init()
    {
        QFile::remove(iniFile());
        QSettings(QSettings::NativeFormat, QSettings::UserScope, CPrompt::applicationTitle()).clear();
        m_db = TestDatabase::create();
        QVERIFY(m_db);
        m_prompt = std::make_unique<ScriptedPrompt>();
        CPrompt::setCurrent(m_prompt.get());
        ItemFixtures::insert(*m_db, {1, 2, QString(), u"瓶"_s});
        ItemFixtures::insert(*m_db, {2, 2, QString(), u"箱"_s});
        ItemFixtures::insert(*m_db, {3, 3, u"01"_s, u"饮料"_s});
        ItemFixtures::insert(*m_db, {10, 4, u"G001"_s, u"可乐"_s, 3, 1});
        ItemFixtures::insert(*m_db, {11, 4, u"G002"_s, u"长城干红"_s, 3, 1});
        ItemFixtures::insert(*m_db, {12, 4, u"G003"_s, u"雪碧"_s, 3, 1});
        ItemFixtures::insert(*m_db, {20, 6, u"D1"_s, u"销售部"_s});
        Module1::ReseedKeyID(*m_db, u"T_Item"_s);
        m_bus = std::make_unique<CBus>();
        m_bus->InitAllData(m_db);
    }
    void cleanup()
    {
        m_form.reset();
        m_bus.reset();
        CPrompt::setCurrent(nullptr);
        m_db.reset();
    }

    void loadBuildsTheNavigationTree()
    {
        openForm();
        QCOMPARE(m_form->windowTitle(), u"数据导航"_s);
        QCOMPARE(m_form->tvTreeView->topLevelItemCount(), 1);
        QTreeWidgetItem *root = m_form->tvTreeView->topLevelItem(0);
        QCOMPARE(root->text(0), u"Quillon进销存管理系统"_s);
        QStringList children;
        QList<int> keys;
        for (int i = 0; i < root->childCount(); ++i) {
            children << root->child(i)->text(0);
            keys << root->child(i)->data(0, Qt::UserRole).toInt();
        }
        QCOMPARE(children,
                 (QStringList {u"部门"_s, u"仓库"_s, u"客户类别"_s, u"地区"_s, u"客户"_s, u"商品类别"_s, u"单位"_s,
                               u"商品"_s, u"领料人"_s}));
        QCOMPARE(keys, (QList<int> {6, 5, 8, 9, 1, 3, 2, 4, 11}));
        const QStringList toolbar {u"新建"_s, u"保存"_s, u"关闭"_s, u"删除"_s, u"属性"_s,
                                   u"刷新"_s, u"打印"_s, u"查找"_s, u"帮助"_s};
        for (const QString &key : toolbar) {
            QVERIFY2(m_form->button(key), qPrintable(key));
        }
    }

    void storedSplitterOutOfRangeBecomes3000_data()
    {
        QTest::addColumn<QString>("stored");
        QTest::addColumn<float>("expected");
        QTest::newRow("20000") << u"20000"_s << 3000.0f;
        QTest::newRow("25000") << u"25000"_s << 3000.0f;
        QTest::newRow("0") << u"0"_s << 3000.0f;
        QTest::newRow("-5") << u"-5"_s << 3000.0f;
        QTest::newRow("not a number") << u"abc"_s << 3000.0f;
        QTest::newRow("2400 kept") << u"2400"_s << 2400.0f;
    }
    void storedSplitterOutOfRangeBecomes3000()
    {
        QFETCH(QString, stored);
        QFETCH(float, expected);
        QVERIFY(Module1::SetIniString(u"Setup Program"_s, u"MainFormSpliterX"_s, iniFile(), stored));
        openForm();
        QCOMPARE(m_form->splitterX(), expected);
        QCOMPARE(m_form->tvTreeView->width(), int(expected) / tx());
    }

    void sizeControlsClampsTheSplitter()
    {
        openForm();
        m_form->resize(800, 500);
        QTest::qWait(20);
        m_form->SizeControls(100);
        QCOMPARE(m_form->splitterX(), 1500.0f);
        m_form->SizeControls(formWidthTwips());
        QCOMPARE(m_form->splitterX(), formWidthTwips() - 1500);
        m_form->SizeControls(4000);
        QCOMPARE(m_form->Flexgd1->x(), (4000 + 40) / tx());
        QCOMPARE(m_form->imgSplitter->x(), 4000 / tx());
    }

    void splitterDragClampsTheBar()
    {
        openForm();
        m_form->resize(800, 500);
        QTest::qWait(20);
        const float left = float(m_form->imgSplitter->x() * tx());
        m_form->imgSplitter_MouseDown(1, 0, 0, 0);
        QVERIFY(m_form->isDragging());
        QVERIFY(m_form->picSplitter->isVisible());
        m_form->imgSplitter_MouseMove(1, 0, 100 - left, 0);
        QCOMPARE(m_form->picSplitter->x(), 500 / tx());
        m_form->imgSplitter_MouseMove(1, 0, formWidthTwips() + 1000 - left, 0);
        QCOMPARE(m_form->picSplitter->x(), int(formWidthTwips() - 500) / tx());
        m_form->imgSplitter_MouseMove(1, 0, 5000 - left, 0);
        m_form->imgSplitter_MouseUp(1, 0, 0, 0);
        QVERIFY(!m_form->isDragging());
        QVERIFY(!m_form->picSplitter->isVisible());
        QCOMPARE(m_form->splitterX(), float((5000 / tx()) * tx()));
    }

    void splitterDragWithTheMouse()
    {
        openForm();
        m_form->resize(800, 500);
        QTest::qWait(20);
        QWidget *grab = m_form->imgSplitter;
        QTest::mousePress(grab, Qt::LeftButton, {}, QPoint(1, 10));
        QMouseEvent move(QEvent::MouseMove, QPointF(150, 10), grab->mapToGlobal(QPointF(150, 10)), Qt::NoButton,
                         Qt::LeftButton, Qt::NoModifier);
        QCoreApplication::sendEvent(grab, &move);
        QTest::mouseRelease(grab, Qt::LeftButton, {}, QPoint(150, 10));
        QCOMPARE(m_form->tvTreeView->width(), grab->x() - 0);
        QVERIFY(m_form->tvTreeView->width() > 200);
    }

    void settingsSurviveARestart()
    {
        Module1::SetIniString(u"Setup Program"_s, u"MainFormSpliterX"_s, iniFile(), u"2500"_s);
        openForm();
        m_form->move(40, 30);
        m_form->resize(700, 450);
        m_form->SizeControls(3600);
        m_form->close();
        QCOMPARE(Module1::GetIniString(u"Setup Program"_s, u"MainFormSpliterX"_s, iniFile(), QString()), u"3600"_s);
        QSettings settings(QSettings::NativeFormat, QSettings::UserScope, CPrompt::applicationTitle());
        settings.beginGroup(u"Settings"_s);
        QCOMPARE(settings.value(u"MainLeft"_s).toString(), QString::number(40 * tx()));
        QCOMPARE(settings.value(u"MainTop"_s).toString(), QString::number(30 * m_form->twipsPerPixelY()));
        QCOMPARE(settings.value(u"MainWidth"_s).toString(), QString::number(700 * tx()));
        QCOMPARE(settings.value(u"MainHeight"_s).toString(), QString::number(450 * m_form->twipsPerPixelY()));

        openForm();
        QCOMPARE(m_form->pos(), QPoint(40, 30));
        QCOMPARE(m_form->size(), QSize(700, 450));
        QCOMPARE(m_form->splitterX(), 3600.0f);
    }

    void minimisedCloseKeepsTheRectangleButStoresTheSplitter()
    {
        QSettings settings(QSettings::NativeFormat, QSettings::UserScope, CPrompt::applicationTitle());
        settings.setValue(u"Settings/MainWidth"_s, u"9000"_s);
        settings.sync();
        openForm();
        m_form->SizeControls(2000);
        m_form->setWindowState(Qt::WindowMinimized);
        QVERIFY(m_form->isMinimized());
        m_form->Form_Unload();
        settings.sync();
        QCOMPARE(settings.value(u"Settings/MainWidth"_s).toString(), u"9000"_s);
        QVERIFY(!settings.contains(u"Settings/MainLeft"_s));
        QCOMPARE(Module1::GetIniString(u"Setup Program"_s, u"MainFormSpliterX"_s, iniFile(), QString()), u"2000"_s);
    }

    void enableMenuFollowsTheKind()
    {
        openForm();
        QCOMPARE(m_form->currentKind(), int(frmMain::kRootKind));
        QVERIFY(!m_form->button(u"新建"_s)->isEnabled());
        QVERIFY(!m_form->mnuEditSub->isEnabled());
        QVERIFY(!m_form->mnuFilePrint->isEnabled());
        QVERIFY(!m_form->button(u"保存"_s)->isEnabled());
        m_form->selectKind(4);
        QCOMPARE(m_form->currentKind(), 4);
        for (const QString &key : {u"新建"_s, u"删除"_s, u"刷新"_s, u"查找"_s}) {
            QVERIFY2(m_form->button(key)->isEnabled(), qPrintable(key));
        }
        QVERIFY(m_form->mnuItemMan->isEnabled());
        QVERIFY(m_form->mnuViewGoodsInOutList->isEnabled());
        m_form->selectKind(2);
        QVERIFY(!m_form->mnuViewGoodsInOutList->isEnabled());
        QCOMPARE(m_form->Flexgd1->Rows(), 3);
        QCOMPARE(m_form->Flexgd1->TextMatrix(0, 1), u"名称"_s);
        QCOMPARE(m_form->Flexgd1->TextMatrix(2, 1), u"箱"_s);
    }

    void goodsGridShowsJoinedNames()
    {
        openForm();
        m_form->selectKind(4);
        ItemGrid *grid = m_form->Flexgd1;
        QCOMPARE(grid->Rows(), 4);
        QCOMPARE(grid->TextMatrix(0, 3), u"单位"_s);
        QCOMPARE(grid->TextMatrix(2, 1), u"长城干红"_s);
        QCOMPARE(grid->TextMatrix(2, 3), u"瓶"_s);
        QCOMPARE(grid->TextMatrix(2, 4), u"饮料"_s);
        QVERIFY(m_form->lblTitle->text().startsWith(u"商品"_s));
    }

    void typedEditIsSavedToTheDatabase()
    {
        openForm();
        m_form->selectKind(4);
        ItemGrid *grid = m_form->Flexgd1;
        ItemTableModel *model = m_form->itemModel();
        grid->setFocus();
        grid->setCurrentIndex(model->index(0, model->columnOf(ItemTableModel::ItemName)));
        QTest::keyClick(grid, Qt::Key_F2);
        auto *editor = grid->findChild<QLineEdit *>(u"txtEdit"_s);
        QVERIFY(editor);
        QTRY_VERIFY(editor->hasSelectedText()); // the whole text is selected on opening
        editor->insert(u"Tom's 可乐"_s);
        QTest::keyClick(editor, Qt::Key_Return);
        // The view commits an Enter from its editor through the event loop.
        QTRY_VERIFY(m_form->button(u"保存"_s)->isEnabled());
        QCOMPARE(storedName(10), u"可乐"_s);
        m_form->button(u"保存"_s)->trigger();
        QCOMPARE(storedName(10), u"Tom's 可乐"_s);
        QVERIFY(!m_form->button(u"保存"_s)->isEnabled());
        QVERIFY(!m_form->mnuEditSave->isEnabled());
    }

    void renameInTheGridTakesTheNewMnemonicCode()
    {
        openForm();
        m_form->selectKind(4);
        ItemTableModel *model = m_form->itemModel();
        const int spell = model->columnOf(ItemTableModel::Spell);
        editCell(0, ItemTableModel::ItemName, u"百事可乐"_s);
        QCOMPARE(m_form->Flexgd1->TextMatrix(1, spell), CSpell::py(u"百事可乐"));
        // A code typed in the same edit stays, whichever comes first.
        editCell(2, ItemTableModel::Spell, u"XBQS"_s);
        editCell(2, ItemTableModel::ItemName, u"雪碧清爽"_s);
        QCOMPARE(m_form->Flexgd1->TextMatrix(3, spell), u"XBQS"_s);
        m_form->mnuEditSave->trigger();
        QSqlQuery q = m_db->Select(u"Select F_Spell From T_Item Where F_ID In (10, 12) Order By F_ID"_s);
        QVERIFY(q.next());
        QCOMPARE(q.value(0).toString(), CSpell::py(u"百事可乐"));
        QVERIFY(q.next());
        QCOMPARE(q.value(0).toString(), u"XBQS"_s);
    }

    void duplicateNameInTheGridIsRefusedOnItsCell()
    {
        openForm();
        m_form->selectKind(4);
        editCell(2, ItemTableModel::ItemName, u"可乐"_s);
        m_form->Flexgd1->setCurrentIndex(m_form->itemModel()->index(0, 0));
        m_form->mnuEditSave->trigger();
        QCOMPARE(m_prompt->lastText(), u"商品名称[可乐]已经存在,请换一个名称!"_s);
        QVERIFY(m_form->button(u"保存"_s)->isEnabled());
        QCOMPARE(storedName(12), u"雪碧"_s);
        QCOMPARE(m_form->Flexgd1->currentIndex().row(), 2);
        QCOMPARE(m_form->Flexgd1->currentIndex().column(), m_form->itemModel()->columnOf(ItemTableModel::ItemName));
    }

    void badPriceIsRefusedWithTheErrorBox()
    {
        openForm();
        m_form->selectKind(4);
        ItemTableModel *model = m_form->itemModel();
        QVERIFY(!model->setData(model->index(0, model->columnOf(ItemTableModel::PriceSale)), u"1.2.3"_s));
        QVERIFY(m_prompt->lastText().startsWith(u"请输入正确的[单件售价]!"_s));
        QCOMPARE(m_prompt->shown().constLast().style, int(CPrompt::vbExclamation));
        QVERIFY(!m_form->button(u"保存"_s)->isEnabled());
    }

    void nodeClickWithChangesAnsweredNoDropsThem()
    {
        openForm();
        m_form->selectKind(4);
        editCell(0, ItemTableModel::ItemName, u"改过的可乐"_s);
        QVERIFY(m_form->button(u"保存"_s)->isEnabled());
        m_prompt->queueAnswer(CPrompt::vbNo);
        m_form->selectKind(2);
        QCOMPARE(m_prompt->shown().size(), 1);
        QCOMPARE(m_prompt->shown().at(0).text, u"你已经修改了数据,是否要保存修改?"_s);
        QCOMPARE(m_prompt->shown().at(0).style, 36);
        QCOMPARE(m_prompt->shown().at(0).title, u"Quillon软件提示您"_s);
        QCOMPARE(m_form->currentKind(), 2);
        QVERIFY(!m_form->button(u"保存"_s)->isEnabled());
        QCOMPARE(storedName(10), u"可乐"_s);
        m_form->selectKind(4);
        QCOMPARE(m_form->Flexgd1->TextMatrix(1, 1), u"可乐"_s);
    }

    void nodeClickWithChangesAnsweredYesSavesFirst()
    {
        openForm();
        m_form->selectKind(4);
        editCell(2, ItemTableModel::Remark, u"新品"_s);
        m_prompt->queueAnswer(CPrompt::vbYes);
        m_form->selectKind(6);
        QCOMPARE(m_form->currentKind(), 6);
        QSqlQuery q = m_db->Select(u"Select F_Remark From T_Item Where F_ID=12"_s);
        QVERIFY(q.next());
        QCOMPARE(q.value(0).toString(), u"新品"_s);
    }

    void failedSaveKeepsTheKindAndTheEdits()
    {
        openForm();
        m_form->selectKind(4);
        editCell(0, ItemTableModel::Remark, u"不能丢"_s);
        ItemFixtures::failOn(*m_db, u"T_Item"_s, u"UPDATE"_s);
        m_prompt->queueAnswer(CPrompt::vbYes);
        // Moving in the tree as a user does: the node becomes current before the window acts on it.
        const QList<QTreeWidgetItem *> units = m_form->tvTreeView->findItems(u"单位"_s, Qt::MatchRecursive);
        m_form->tvTreeView->setCurrentItem(units.value(0));
        QCOMPARE(m_form->currentKind(), 4);
        QCOMPARE(m_form->tvTreeView->currentItem()->text(0), u"商品"_s); // the tree does not show another kind
        QVERIFY(m_form->button(u"保存"_s)->isEnabled());
        QCOMPARE(m_form->Flexgd1->TextMatrix(1, m_form->itemModel()->columnOf(ItemTableModel::Remark)), u"不能丢"_s);
        QVERIFY(m_prompt->lastText().startsWith(u"保存元素失败!"_s));
    }

    void deleteAnsweredNoKeepsTheRecord()
    {
        openForm();
        m_form->selectKind(6);
        m_form->Flexgd1->setRow(1);
        m_prompt->queueAnswer(CPrompt::vbNo);
        m_form->button(u"删除"_s)->trigger();
        QCOMPARE(m_prompt->shown().at(0).text, u"您确实要删除该记录吗?"_s);
        QCOMPARE(m_prompt->shown().at(0).style, 36);
        QCOMPARE(m_form->Flexgd1->Rows(), 2);
        QCOMPARE(storedName(20), u"销售部"_s);
    }

    void deleteAnsweredYesRemovesRowAndRecord()
    {
        openForm();
        m_form->selectKind(6);
        m_form->Flexgd1->setRow(1);
        m_prompt->queueAnswer(CPrompt::vbYes);
        m_form->button(u"删除"_s)->trigger();
        QCOMPARE(m_form->Flexgd1->Rows(), 1);
        QCOMPARE(storedName(20), u"<none>"_s);
    }

    void newRowGetsItsKeyOnSave()
    {
        openForm();
        m_form->selectKind(6);
        m_form->button(u"新建"_s)->trigger();
        QVERIFY(m_form->button(u"保存"_s)->isEnabled());
        ItemTableModel *model = m_form->itemModel();
        QVERIFY(model->isNewRow(1));
        m_form->Flexgd1->commitEditor();
        editCell(1, ItemTableModel::ItemName, u"财务部"_s);
        m_form->mnuEditSave->trigger();
        QCOMPARE(model->rowCount(), 2);
        QVERIFY(!model->isNewRow(1));
        const qint32 id = model->itemAt(1)->F_ID();
        QVERIFY(id > 20);
        QCOMPARE(storedName(id), u"财务部"_s);
    }

    void newGoodsOpensTheEditDialogWithTheNextNumber()
    {
        openForm();
        m_form->selectKind(4);
        m_form->Flexgd1->setRow(1);
        QString suggested;
        whenModal<frmGoodsEdit>([&suggested](frmGoodsEdit *dialog) {
            suggested = dialog->txtNo->text();
            dialog->txtName->setText(u"芬达"_s);
            dialog->cboUnit->setCurrentIndex(dialog->cboUnit->findData(2));
            dialog->txtPriceSale->setText(u"3.5"_s);
            dialog->cmdOK->click();
        });
        m_form->button(u"新建"_s)->trigger();
        QCOMPARE(suggested, u"G004"_s);
        QCOMPARE(m_form->itemModel()->rowCount(), 4);
        QVERIFY(!m_form->button(u"保存"_s)->isEnabled()); // saved by the dialog, nothing pending
        QSqlQuery q = m_db->Select(u"Select F_ID, F_Tag1, F_ParentID From T_Item Where F_ItemNo='G004'"_s);
        QVERIFY(q.next());
        QCOMPARE(q.value(1).toInt(), 2);
        QCOMPARE(q.value(2).toInt(), 3); // the type of the row the clerk stood on
        // The grid stands on the new goods, which shows its unit.
        const int row = m_form->Flexgd1->currentIndex().row();
        QCOMPARE(m_form->itemModel()->itemAt(row)->F_ID(), q.value(0).toInt());
        QCOMPARE(m_form->Flexgd1->TextMatrix(row + 1, m_form->itemModel()->columnOf(ItemTableModel::UnitName)),
                 u"箱"_s);
    }

    void clientPropertiesOpenTheClientDialog()
    {
        ItemFixtures::insert(*m_db, {30, 8, u"1"_s, u"批发客户"_s});
        ItemFixtures::insert(*m_db, {31, 1, u"KH0001"_s, u"华联超市"_s});
        m_bus->InitAllData(m_db);
        openForm();
        m_form->selectKind(1);
        m_form->Flexgd1->setRow(1);
        QString shownName;
        whenModal<frmClientEdit>([&shownName](frmClientEdit *dialog) {
            shownName = dialog->txtName->text();
            dialog->cboClientType->setCurrentIndex(dialog->cboClientType->findData(30));
            dialog->cmdOK->click();
        });
        m_form->button(u"属性"_s)->trigger();
        QCOMPARE(shownName, u"华联超市"_s);
        QCOMPARE(m_form->Flexgd1->TextMatrix(1, m_form->itemModel()->columnOf(ItemTableModel::TypeName)),
                 u"批发客户"_s);

        QString suggested;
        whenModal<frmClientEdit>([&suggested](frmClientEdit *dialog) {
            suggested = dialog->txtNo->text();
            dialog->cmdCancel->click();
        });
        m_form->button(u"新建"_s)->trigger();
        QCOMPARE(suggested, u"KH0002"_s);
        QCOMPARE(m_form->itemModel()->rowCount(), 1);
    }

    void renamedUnitAndTypeShowInTheGoodsRows()
    {
        openForm();
        m_form->selectKind(4);
        ItemTableModel *model = m_form->itemModel();
        QSignalSpy changed(model, &QAbstractItemModel::dataChanged);
        auto unit = CItem::create(*m_bus->mUnits()->SearchItemByID(1));
        unit->setF_ItemName(u"瓶装"_s);
        QVERIFY(m_bus->mUnits()->SaveItem(unit));
        auto type = CItem::create(*m_bus->mTypes()->SearchItemByID(3));
        type->setF_ItemName(u"饮品"_s);
        QVERIFY(m_bus->mTypes()->SaveItem(type));
        for (int row = 1; row <= 3; ++row) {
            QCOMPARE(m_form->Flexgd1->TextMatrix(row, model->columnOf(ItemTableModel::UnitName)), u"瓶装"_s);
            QCOMPARE(m_form->Flexgd1->TextMatrix(row, model->columnOf(ItemTableModel::TypeName)), u"饮品"_s);
        }
        QVERIFY(changed.count() >= 3); // the rows were told to repaint
    }

    void propertiesWithoutDialogAnswersWithTheMessage()
    {
        openForm();
        m_form->selectKind(5);
        m_form->button(u"属性"_s)->trigger();
        QCOMPARE(m_prompt->lastText(), u"修改该项目属性的代码还没有添加!"_s);
    }

    void goodsChangedElsewhereUpdatesTheRow()
    {
        openForm();
        m_form->selectKind(4);
        m_db->Execute(u"Update T_Item Set F_ItemName='百事可乐', F_Tag1=2 Where F_ID=10"_s);
        m_bus->mAllGoods()->Refresh(10);
        QCOMPARE(m_form->Flexgd1->TextMatrix(1, 1), u"百事可乐"_s);
        QCOMPARE(m_form->Flexgd1->TextMatrix(1, 3), u"箱"_s);
    }

    void gridReachesTheRightEdgeAndPrintHasItsOwnIcon()
    {
        openForm();
        m_form->selectKind(4);
        QCOMPARE(m_form->Flexgd1->geometry().right(), m_form->centralWidget()->width() - 1);
        const QImage print = m_form->button(u"打印"_s)->icon().pixmap(24, 24).toImage();
        const QImage save = m_form->button(u"保存"_s)->icon().pixmap(24, 24).toImage();
        QVERIFY(print != save);
        QCOMPARE(print.size(), QSize(24, 24));
    }

    void toggles()
    {
        openForm();
        m_form->mnuViewStatusBar->trigger();
        QVERIFY(!m_form->sbStatusBar->isVisible());
        QVERIFY(!m_form->mnuViewStatusBar->isChecked());
        m_form->mnuViewToolbar->trigger();
        QVERIFY(!m_form->tbToolBar->isVisible());
        m_form->mnuViewToolbar->trigger();
        QVERIFY(m_form->tbToolBar->isVisible());
        QVERIFY(m_form->mnuViewToolbar->isChecked());
    }

    void searchFindsByMnemonicCode()
    {
        openForm();
        m_form->selectKind(4);
        m_form->button(u"查找"_s)->trigger();
        frmSearch *search = m_form->searchDialog();
        QVERIFY(search->isVisible());
        search->txtSpell->setText(u"zcgh"_s); // 长 read as zhang
        search->cmdFind->click();
        QCOMPARE(m_form->Flexgd1->currentIndex().row(), 1);
        search->txtSpell->setText(u"XB"_s);
        search->cmdFind->click();
        QCOMPARE(m_form->Flexgd1->currentIndex().row(), 2);
        search->txtSpell->setText(u"qq"_s);
        search->cmdFind->click();
        QCOMPARE(m_prompt->lastText(), u"没有找到符合条件的记录!"_s);
        QCOMPARE(m_form->Flexgd1->currentIndex().row(), 2);
    }

    void searchByNumberOrNameIgnoresCase()
    {
        openForm();
        m_form->selectKind(4);
        frmSearch *search = m_form->searchDialog();
        const CItemPtr third = m_form->itemModel()->itemAt(2);
        QVERIFY(third);
        search->txtNo->setText(third->F_ItemNo().toLower());
        QCOMPARE(search->FindNext(-1), 2);
        search->txtNo->setText(third->F_ItemNo().toUpper() + u"X"_s);
        QCOMPARE(search->FindNext(-1), -1);
        search->txtNo->clear();
        third->setF_ItemName(u"Ölmühle Tom's Öl"_s);
        search->txtName->setText(u"öL"_s);
        QCOMPARE(search->FindNext(-1), 2);
        search->txtName->setText(u"TOM'S"_s);
        QCOMPARE(search->FindNext(0), 2);
        search->txtName->setText(u"toms"_s);
        QCOMPARE(search->FindNext(-1), -1);
    }

    void enterOnTheFindButtonSearches()
    {
        openForm();
        m_form->selectKind(4);
        m_form->mnuSearch->trigger();
        frmSearch *search = m_form->searchDialog();
        QVERIFY(QTest::qWaitForWindowActive(search));
        search->txtSpell->setText(u"XB"_s);
        search->cmdFind->setFocus();
        QTRY_VERIFY(search->cmdFind->hasFocus());
        QTest::keyClick(search->cmdFind, Qt::Key_Return);
        QCOMPARE(m_form->Flexgd1->currentIndex().row(), 2);
        QVERIFY(search->isVisible());
    }

    void searchEnterMovesToTheNextField()
    {
        openForm();
        m_form->selectKind(4);
        m_form->mnuSearch->trigger();
        frmSearch *search = m_form->searchDialog();
        QVERIFY(QTest::qWaitForWindowActive(search));
        search->txtNo->setFocus();
        QTRY_VERIFY(search->txtNo->hasFocus());
        QTest::keyClick(search->txtNo, Qt::Key_Return);
        QTRY_VERIFY(search->txtName->hasFocus());
        QVERIFY(search->isVisible());
    }

    void inputBoxReturnsTextOrEmpty()
    {
        frmInputItem dialog;
        ModalTest::later(&dialog, [&dialog]() {
            QCOMPARE(dialog.txtInput->selectedText(), u"旧名"_s);
            dialog.txtInput->insert(u"新名"_s);
            QTest::keyClick(dialog.txtInput, Qt::Key_Return);
        });
        QCOMPARE(dialog.InputMsg(u"请输入新的单位名称:"_s, QString(), u"旧名"_s), u"新名"_s);
        QCOMPARE(dialog.lblPrompt->text(), u"请输入新的单位名称:"_s);
        QCOMPARE(dialog.windowTitle(), CPrompt::applicationTitle());
        ModalTest::later(&dialog, [&dialog]() {
            dialog.txtInput->insert(u"不要"_s);
            QTest::keyClick(dialog.txtInput, Qt::Key_Escape);
        });
        QCOMPARE(dialog.InputMsg(u"?"_s, u"标题"_s, QString()), QString());
    }

    void exportCommandAsksThenWritesTheGrid()
    {
        m_bus->ShowMain();
        frmMain *form = m_bus->mainWindow();
        form->selectKind(2);
        const QString file = m_dir.filePath(u"units.xlsx"_s);
        QVERIFY(!form->ExportGridTo(u"  "_s));
        QVERIFY(m_prompt->shown().isEmpty());
        m_prompt->queueAnswer(CPrompt::vbNo);
        QVERIFY(!form->ExportGridTo(file));
        QCOMPARE(m_prompt->lastText(), u"你确实要执行数据导出操作吗?"_s);
        QVERIFY(!QFile::exists(file));
        m_prompt->queueAnswer(CPrompt::vbYes);
        QVERIFY(form->ExportGridTo(file));
        QVERIFY(QFile::exists(file));
        const ScriptedPrompt::Shown done = m_prompt->shown().constLast();
        QCOMPARE(done.style, int(CPrompt::vbInformation));
        QVERIFY2(QRegularExpression(u"^数据已经成功的导出到"_s + QRegularExpression::escape(file)
                                    + u"\r\n表格\\[单位\\d{10}\\]中!$"_s)
                     .match(done.text)
                     .hasMatch(),
                 qPrintable(done.text));
        form->hide();
    }

    void exportFileNameGetsTheSelectedFiltersExtension()
    {
        const QString xlsx = u"Excel 工作簿 (*.xlsx)"_s;
        const QString xls = u"Microsoft Excel File(*.xls)"_s;
        QCOMPARE(frmMain::ExportFileName(u"/tmp/商品"_s, xlsx), u"/tmp/商品.xlsx"_s);
        QCOMPARE(frmMain::ExportFileName(u"/tmp/商品"_s, xls), u"/tmp/商品.xls"_s);
        QCOMPARE(frmMain::ExportFileName(u"/tmp/商品"_s, QString()), u"/tmp/商品.xlsx"_s);
        QCOMPARE(frmMain::ExportFileName(u"/tmp/a.XLSX"_s, xls), u"/tmp/a.XLSX"_s);
        QCOMPARE(frmMain::ExportFileName(u"/tmp/a.xls"_s, xlsx), u"/tmp/a.xls"_s);
        QCOMPARE(frmMain::ExportFileName(u"/tmp/v1.2"_s, xlsx), u"/tmp/v1.2.xlsx"_s);
        QCOMPARE(frmMain::ExportFileName(u"  "_s, xlsx), QString());
    }

    void exportToXlsNameWroteXlsxContentUnderIt()
    {
        m_bus->ShowMain();
        frmMain *form = m_bus->mainWindow();
        form->selectKind(2);
        const QString xls = m_dir.filePath(u"units-old.xls"_s);
        const QString xlsx = m_dir.filePath(u"units-old.xlsx"_s);
        m_prompt->queueAnswer(CPrompt::vbNo);
        QVERIFY(!form->ExportGridTo(xls));
        QCOMPARE(m_prompt->lastText(),
                 u"本程序不能写入旧版 Excel 97-2003 格式(.xls)的文件。\r\n要改为导出到 "_s + xlsx + u" 吗?"_s);
        QVERIFY(!QFile::exists(xls));
        QVERIFY(!QFile::exists(xlsx));

        m_prompt->queueAnswer(CPrompt::vbYes);
        m_prompt->queueAnswer(CPrompt::vbYes);
        QVERIFY(form->ExportGridTo(xls));
        QVERIFY(!QFile::exists(xls));
        QVERIFY(ExcelConnection::holdsWorkbook(xlsx));
        QVERIFY(m_prompt->lastText().startsWith(u"数据已经成功的导出到"_s + xlsx + u"\r\n"_s));

        // A .xls name whose file already holds a workbook of the newer format (an earlier export under that name)
        // gets the sheet added without the offer.
        QVERIFY(QFile::copy(xlsx, xls));
        form->selectKind(6); // another sheet name than the one the copied workbook holds
        const qsizetype asked = m_prompt->shown().size();
        m_prompt->queueAnswer(CPrompt::vbYes);
        QVERIFY(form->ExportGridTo(xls));
        QCOMPARE(m_prompt->shown().size(), asked + 2);
        QCOMPARE(m_prompt->shown().at(asked).text, u"你确实要执行数据导出操作吗?"_s);
        QVERIFY(m_prompt->lastText().startsWith(u"数据已经成功的导出到"_s + xls + u"\r\n"_s));
        form->hide();
    }

    void showMainCreatesTheWindowOnce()
    {
        m_bus->ShowMain();
        frmMain *first = m_bus->mainWindow();
        QVERIFY(first);
        QVERIFY(first->isVisible());
        QVERIFY(first->isLoaded());
        m_bus->ShowMain();
        QCOMPARE(m_bus->mainWindow(), first);
        QCOMPARE(first->collection(4), m_bus->mAllGoods());
        first->hide();
    }

    void showMainHandsOverTheCurrentListsEachTime()
    {
        m_bus->ShowMain();
        frmMain *form = m_bus->mainWindow();
        form->selectKind(4);
        QCOMPARE(form->connection(), m_db);

        // Another database, and a goods list replaced by the host.
        auto other = TestDatabase::create();
        QVERIFY(other);
        ItemFixtures::insert(*other, {1, 4, u"X001"_s, u"别处的商品"_s});
        m_bus->InitItems(other, 2);
        auto goods = std::make_shared<CItems>();
        QVERIFY(goods->InitInstance(other, 4));
        m_bus->setmAllGoods(goods);
        m_bus->ShowMain();
        QCOMPARE(form->connection(), other);
        QCOMPARE(form->collection(4), goods);
        QCOMPARE(form->Flexgd1->Rows(), 2);
        QCOMPARE(form->Flexgd1->TextMatrix(1, 1), u"别处的商品"_s);
        form->hide();
    }
};

QTEST_MAIN(FrmMainTest)
#include "tst_frmmain.moc"
