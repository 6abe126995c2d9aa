// The desktop program as a clerk uses it: the facade's real main window and its real dialogs, driven by keys and
// clicks, with every step checked in the database through a connection of its own. What must never happen is
// that a clerk's work is lost without a question.
#include "cbus.h"
#include "cconnection.h"
#include "citems.h"
#include "frmclientedit.h"
#include "frmconnect.h"
#include "frmgoodsedit.h"
#include "frmimport.h"
#include "frmmain.h"
#include "frmsearch.h"
#include "frmselectclient.h"
#include "itemfixtures.h"
#include "itemgrid.h"
#include "itemtablemodel.h"
#include "itemtype.h"
#include "keyid.h"
#include "modaltest.h"
#include "module1.h"
#include "prompt.h"
#include "testdatabase.h"

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QDialogButtonBox>
#include <QDir>
#include <QFileDialog>
#include <QFileSystemModel>
#include <QInputMethodEvent>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QProcess>
#include <QPushButton>
#include <QSettings>
#include <QSignalSpy>
#include <QSqlQuery>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QTest>
#include <QTreeWidget>

using namespace Qt::StringLiterals;

namespace {

constexpr qint32 kCola = 10;

// Every descriptor of this process that points at a file that was deleted while open.
QStringList deletedOpenFiles()
{
    QStringList deleted;
    const QDir fds(u"/proc/self/fd"_s);
    for (const QString &fd : fds.entryList(QDir::System | QDir::NoDotAndDotDot)) {
        const QString target = QFile::symLinkTarget(fds.filePath(fd));
        if (target.endsWith(u" (deleted)"_s)) {
            deleted.append(target);
        }
    }
    return deleted;
}

// Types text as a keyboard does, a key press per character (QTest::keyClicks takes Latin-1 only).
void typeText(QWidget *widget, const QString &text)
{
    for (const QChar c : text) {
        QKeyEvent press(QEvent::KeyPress, c.isLetterOrNumber() && c.unicode() < 128 ? c.toUpper().unicode() : 0,
                        Qt::NoModifier, QString(c));
        QApplication::sendEvent(widget, &press);
        QKeyEvent release(QEvent::KeyRelease, press.key(), Qt::NoModifier, QString(c));
        QApplication::sendEvent(widget, &release);
    }
}

} // namespace

class ClerkTest : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;
    QString m_url;
    QString m_dbFile; // the SQLite file, or "" on PostgreSQL
    std::shared_ptr<CConnection> m_db;
    std::shared_ptr<CConnection> m_other; // a second connection, as another seat or program has
    std::unique_ptr<ScriptedPrompt> m_prompt;
    std::unique_ptr<CBus> m_bus;
    QString m_chosenUrl;

    frmMain *form() const { return m_bus->mainWindow(); }
    ItemTableModel *model() const { return form()->itemModel(); }

    QString storedName(qint32 id)
    {
        QSqlQuery q = m_other->Select(u"Select F_ItemName From T_Item Where F_ID=?"_s, {id});
        return q.next() ? q.value(0).toString() : u"<none>"_s;
    }
    int storedCount(int itemType)
    {
        QSqlQuery q = m_other->Select(u"Select Count(*) From T_Item Where F_ItemTypeID=?"_s, {itemType});
        return q.next() ? q.value(0).toInt() : -1;
    }
    // The program's command-line tool on the same database: another program that opens, reads and exits.
    QString runCli(const QStringList &args)
    {
        QProcess p;
        p.start(QCoreApplication::applicationDirPath() + u"/quillon-cli"_s, QStringList {u"--db"_s, m_url} + args);
        if (!p.waitForFinished(30000)) {
            p.kill();
            return u"<hung>"_s;
        }
        return QString::fromUtf8(p.readAllStandardOutput()) + QString::fromUtf8(p.readAllStandardError());
    }
    QModelIndex goodsCell(qint32 id, ItemTableModel::Field field) const
    {
        return model()->index(model()->rowOfID(id), model()->columnOf(field));
    }
    // Opens the cell's edit box as a double click does and types into it; the box stays open.
    QLineEdit *typeIntoCell(const QModelIndex &cell, const QString &text)
    {
        form()->Flexgd1->setCurrentIndex(cell);
        form()->Flexgd1->setFocus();
        form()->Flexgd1->edit(cell);
        auto *editor = qobject_cast<QLineEdit *>(form()->Flexgd1->indexWidget(cell));
        if (!editor) {
            return nullptr;
        }
        editor->selectAll();
        typeText(editor, text);
        return editor;
    }
    // Shows the open file dialog over the database's folder as a clerk would look at it (the detailed list with
    // the types), waits until the files are listed and cancels it.
    void lookAndCancel(QFileDialog *dialog)
    {
        const QString folder = QFileInfo(m_dbFile).absolutePath();
        dialog->setViewMode(QFileDialog::Detail);
        dialog->setNameFilter(u"所有文件 (*)"_s);
        auto *files = dialog->findChild<QFileSystemModel *>();
        QVERIFY(files);
        QSignalSpy loaded(files, &QFileSystemModel::directoryLoaded);
        dialog->setDirectory(folder);
        QTRY_VERIFY(loaded.count() > 0 && files->rowCount(files->index(folder)) >= 1);
        const QModelIndex parent = files->index(folder);
        for (int row = 0; row < files->rowCount(parent); ++row) {
            // What the list shows of each file: its icon and its type.
            files->data(files->index(row, 0, parent), Qt::DecorationRole);
            files->data(files->index(row, 2, parent), Qt::DisplayRole);
        }
        QTest::qWait(300);
        dialog->reject();
    }
    // The seat still holds the database: another program's read leaves its journal alone, the seat's next save
    // reaches the file for a third program to see, and the file is whole afterwards.
    void checkTheSeatStillHoldsTheDatabase(const QString &newName)
    {
        QVERIFY(runCli({u"list"_s, u"unit"_s}).contains(u"瓶"_s));
        QCOMPARE(deletedOpenFiles(), QStringList());
        QVERIFY(model()->setData(goodsCell(kCola, ItemTableModel::ItemName), newName));
        form()->mnuEditSave->trigger();
        QCOMPARE(form()->button(u"保存"_s)->isEnabled(), false);
        const QString listed = runCli({u"list"_s, u"goods"_s});
        QVERIFY2(listed.contains(newName), qPrintable(u"a save after the dialogs reaches the file: "_s + listed));
        QCOMPARE(deletedOpenFiles(), QStringList());
        form()->close();
        m_bus.reset();
        m_db.reset();
        m_other.reset();
        auto check = CConnection::Open(m_url);
        QVERIFY(check);
        QSqlQuery q = check->Select(u"PRAGMA integrity_check"_s);
        QVERIFY(q.next());
        QCOMPARE(q.value(0).toString(), u"ok"_s);
        q = check->Select(u"Select F_ItemName From T_Item Where F_ID=?"_s, {kCola});
        QVERIFY(q.next());
        QCOMPARE(q.value(0).toString(), newName);
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_dir.isValid());
        QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, m_dir.filePath(u"config"_s));
        QCoreApplication::setApplicationName(u"QuillonClerkTest"_s);
    }
    void init()
    {
        static int counter = 0;
        if (TestDatabase::isPostgreSQL()) {
            m_url = TestDatabase::freshUrl();
            m_dbFile.clear();
        } else {
            // A folder of its own: the file dialogs are shown over it.
            const QString folder = m_dir.filePath(u"shop"_s + QString::number(++counter));
            QVERIFY(QDir().mkpath(folder));
            m_dbFile = folder + u"/shop.db"_s;
            m_url = u"sqlite://"_s + m_dbFile;
        }
        m_db = CConnection::Open(m_url);
        QVERIFY(m_db);
        m_db->EnsureSchema();
        ItemFixtures::insert(*m_db, {1, 2, QString(), u"瓶"_s});
        ItemFixtures::insert(*m_db, {2, 2, QString(), u"箱"_s});
        ItemFixtures::insert(*m_db, {3, 3, u"01"_s, u"饮料"_s});
        ItemFixtures::insert(*m_db, {kCola, 4, u"G001"_s, u"可乐"_s, 3, 1});
        ItemFixtures::insert(*m_db, {11, 4, u"G002"_s, u"长城干红"_s, 3, 1});
        ItemFixtures::insert(*m_db, {12, 4, u"G003"_s, u"雪碧"_s, 3, 1});
        ItemFixtures::insert(*m_db, {20, 6, u"D1"_s, u"销售部"_s});
        Module1::ReseedKeyID(*m_db, u"T_Item"_s);
        m_other = CConnection::Open(m_url);
        QVERIFY(m_other);
        m_prompt = std::make_unique<ScriptedPrompt>();
        CPrompt::setCurrent(m_prompt.get());
        m_bus = std::make_unique<CBus>();
        m_bus->InitAllData(m_db);
        m_bus->ShowMain();
        QVERIFY(QTest::qWaitForWindowExposed(form()));
        m_chosenUrl.clear();
        connect(form(), &frmMain::DatabaseChosen, this, [this](const QString &url, bool) { m_chosenUrl = url; });
        form()->selectKind(itemTypeNumber(ItemType::Goods));
        QVERIFY(model());
    }
    void cleanup()
    {
        ModalTest::closeModals();
        m_bus.reset();
        CPrompt::setCurrent(nullptr);
        m_other.reset();
        m_db.reset();
    }

    // Regression: a file dialog guessed each listed file's type from its contents, and opening and closing the
    // live database's file dropped SQLite's locks; another program's read then deleted the journal under the
    // seat and its later saves were lost.
    void fileDialogsKeepTheLiveDatabaseLocked()
    {
        if (m_dbFile.isEmpty()) {
            QSKIP("a server database has no file in this process");
        }
        const auto cancelFileDialog = [this]() {
            ModalTest::whenModal<QFileDialog>(this, [this](QFileDialog *dialog) { lookAndCancel(dialog); });
        };
        cancelFileDialog();
        form()->mnuRestore->trigger();
        cancelFileDialog();
        form()->mnuBackup->trigger();
        cancelFileDialog();
        form()->mnuExportToExcel->trigger();
        // 导入 → 浏览… and 连接数据库… → 浏览…: a file dialog over a dialog.
        ModalTest::whenModal<frmImport>(this, [&](frmImport *dialog) {
            cancelFileDialog();
            dialog->cmdBrowse->click();
            dialog->reject();
        });
        form()->mnuImport->trigger();
        ModalTest::whenModal<frmConnect>(this, [&](frmConnect *dialog) {
            cancelFileDialog();
            dialog->findChild<QPushButton *>(u"cmdBrowse"_s)->click();
            dialog->reject();
        });
        form()->mnuConnect->trigger();
        QVERIFY(!QTest::currentTestFailed());
        checkTheSeatStillHoldsTheDatabase(u"可乐(对话框之后)"_s);
    }

    // The live database chosen as a file to import, restore from, export or back up into is refused before it is
    // opened: reading it outside SQLite would unlock it as the file dialogs did.
    void liveDatabaseIsRefusedAsAFile()
    {
        if (m_dbFile.isEmpty()) {
            QSKIP("a server database has no file in this process");
        }
        QVERIFY(!form()->RestoreFrom(m_dbFile));
        QVERIFY2(m_prompt->lastText().contains(u"正在使用的数据库"_s), qPrintable(m_prompt->lastText()));
        m_prompt->queueAnswer(CPrompt::vbYes); // 你确实要执行数据导出操作吗?
        m_prompt->queueAnswer(CPrompt::vbCancel); // 要重试一下吗?
        QVERIFY(!form()->ExportGridTo(m_dbFile + u"-wal"_s));
        QVERIFY2(m_prompt->lastText().contains(u"正在使用的数据库"_s), qPrintable(m_prompt->lastText()));
        ModalTest::whenModal<frmImport>(this, [this](frmImport *dialog) {
            dialog->setFile(m_dbFile);
            QVERIFY2(dialog->lblSummary->text().contains(u"正在使用的数据库"_s)
                         || m_prompt->lastText().contains(u"正在使用的数据库"_s),
                     qPrintable(dialog->lblSummary->text() + u" / "_s + m_prompt->lastText()));
            dialog->reject();
        });
        form()->mnuImport->trigger();
        QVERIFY(!QTest::currentTestFailed());
        // A backup named like the database's journal would be taken for one.
        QVERIFY(!form()->BackupTo(m_dbFile + u"-journal"_s));
        QVERIFY2(m_prompt->lastText().contains(u"正在使用的数据库"_s), qPrintable(m_prompt->lastText()));
        QVERIFY(!QFileInfo::exists(m_dbFile + u"-journal"_s));
        checkTheSeatStillHoldsTheDatabase(u"可乐(拒绝之后)"_s);
    }

    // Regression: text typed into the grid's edit box was lost without a question when the clerk closed the
    // window, switched kinds or refreshed, because nothing reached the grid while the box was open.
    void openEditIsSettledBeforeLeaving_data()
    {
        QTest::addColumn<QString>("leave");
        QTest::addColumn<int>("answer");
        for (const QString &leave : {u"关闭按钮"_s, u"文件-关闭"_s, u"窗口关闭"_s, u"换类别"_s, u"刷新"_s}) {
            QTest::newRow(qPrintable(leave + u"-保存"_s)) << leave << int(CPrompt::vbYes);
            QTest::newRow(qPrintable(leave + u"-不保存"_s)) << leave << int(CPrompt::vbNo);
        }
    }
    void openEditIsSettledBeforeLeaving()
    {
        QFETCH(QString, leave);
        QFETCH(int, answer);
        QLineEdit *editor = typeIntoCell(goodsCell(kCola, ItemTableModel::ItemName), u"可乐(新)"_s);
        QVERIFY(editor);
        m_prompt->queueAnswer(answer);
        if (leave == u"关闭按钮"_s) {
            form()->button(u"关闭"_s)->trigger();
        } else if (leave == u"文件-关闭"_s) {
            form()->mnuFileClose->trigger();
        } else if (leave == u"窗口关闭"_s) {
            form()->close();
        } else if (leave == u"换类别"_s) {
            form()->selectKind(itemTypeNumber(ItemType::Unit));
        } else {
            form()->mnuViewRefresh->trigger();
        }
        QCOMPARE(m_prompt->shown().size(), 1);
        QVERIFY(m_prompt->lastText().contains(u"保存"_s));
        QCOMPARE(storedName(kCola), answer == CPrompt::vbYes ? u"可乐(新)"_s : u"可乐"_s);
    }

    // A typed text the grid refuses keeps the window, the box and the text: the clerk corrects it.
    void refusedOpenEditKeepsTheWindowOpen()
    {
        QLineEdit *editor = typeIntoCell(goodsCell(kCola, ItemTableModel::PriceSale), u"十二元"_s);
        QVERIFY(editor);
        form()->close();
        QVERIFY(form()->isVisible());
        QVERIFY2(m_prompt->lastText().contains(u"请输入正确的"_s), qPrintable(m_prompt->lastText()));
        QCOMPARE(form()->Flexgd1->indexWidget(goodsCell(kCola, ItemTableModel::PriceSale)), editor);
        QCOMPARE(editor->text(), u"十二元"_s);
    }

    // Regression: an input method that commits a word in pieces left only the last piece, because the box
    // selected its whole text whenever it held more than one character.
    void inputMethodPiecesAddUp()
    {
        const QModelIndex cell = goodsCell(kCola, ItemTableModel::ItemName);
        form()->Flexgd1->setCurrentIndex(cell);
        form()->Flexgd1->setFocus();
        QTRY_VERIFY(form()->Flexgd1->hasFocus());
        const auto commit = [](QWidget *to, const QString &text) {
            QInputMethodEvent event;
            event.setCommitString(text);
            QApplication::sendEvent(to, &event);
        };
        commit(form()->Flexgd1, u"苹果"_s);
        auto *editor = qobject_cast<QLineEdit *>(form()->Flexgd1->indexWidget(cell));
        QVERIFY(editor);
        QTRY_VERIFY(editor->hasFocus());
        QTest::qWait(50); // the box's own deferred work after opening
        commit(editor, u"汁"_s);
        QCOMPARE(editor->text(), u"苹果汁"_s);
        QTest::keyClick(editor, Qt::Key_Return);
        QTRY_COMPARE(cell.data().toString(), u"苹果汁"_s);
    }

    // Regression: the goods and client dialogs pressed 保存 on Enter whichever button had the focus.
    void enterPressesTheFocusedButton_data()
    {
        QTest::addColumn<int>("kind");
        QTest::addColumn<QString>("button");
        QTest::addColumn<int>("added");
        QTest::newRow("商品-取消") << int(itemTypeNumber(ItemType::Goods)) << u"cmdCancel"_s << 0;
        QTest::newRow("商品-保存") << int(itemTypeNumber(ItemType::Goods)) << u"cmdOK"_s << 1;
        QTest::newRow("客户-取消") << int(itemTypeNumber(ItemType::Client)) << u"cmdCancel"_s << 0;
        QTest::newRow("客户-保存") << int(itemTypeNumber(ItemType::Client)) << u"cmdOK"_s << 1;
    }
    void enterPressesTheFocusedButton()
    {
        QFETCH(int, kind);
        QFETCH(QString, button);
        QFETCH(int, added);
        form()->selectKind(kind);
        const int before = storedCount(kind);
        const auto drive = [button](QDialog *dialog) {
            auto *name = dialog->findChild<QLineEdit *>(u"txtName"_s);
            QVERIFY(name);
            name->setFocus();
            typeText(name, u"新来的"_s);
            auto *pressed = dialog->findChild<QPushButton *>(button);
            QVERIFY(pressed);
            pressed->setFocus();
            QTRY_VERIFY(pressed->hasFocus());
            QTest::keyClick(pressed, Qt::Key_Return);
            QTRY_VERIFY(!dialog->isVisible());
        };
        if (kind == itemTypeNumber(ItemType::Goods)) {
            ModalTest::whenModal<frmGoodsEdit>(this, drive);
        } else {
            ModalTest::whenModal<frmClientEdit>(this, drive);
        }
        form()->mnuEditNew->trigger();
        QVERIFY(!QTest::currentTestFailed());
        QCOMPARE(storedCount(kind), before + added);
    }

    // Enter in the import dialog's file box shows the file (no file dialog), and closing the dialog without
    // importing leaves the grid on the clerk's row.
    void importDialogEnterShowsTheFileOnly()
    {
        const QString csv = m_dir.filePath(u"goods.csv"_s);
        {
            QFile file(csv);
            QVERIFY(file.open(QIODevice::WriteOnly));
            file.write("编号,名称\nG100,橙汁\nG101,苹果汁\n");
        }
        const QModelIndex row = goodsCell(12, ItemTableModel::ItemName);
        form()->Flexgd1->setCurrentIndex(row);
        ItemTableModel *before = model();
        ModalTest::whenModal<frmImport>(this, [csv](frmImport *dialog) {
            dialog->txtFile->setFocus();
            dialog->txtFile->setText(csv);
            QTest::keyClick(dialog->txtFile, Qt::Key_Return);
            QTest::qWait(100);
            QCOMPARE(QApplication::activeModalWidget(), dialog); // no file dialog opened
            QVERIFY2(dialog->grdPreview->rowCount() == 2, qPrintable(dialog->lblSummary->text()));
            dialog->cmdClose->click();
        });
        form()->mnuImport->trigger();
        QVERIFY(!QTest::currentTestFailed());
        QCOMPARE(model(), before);
        QCOMPARE(form()->Flexgd1->currentIndex(), row);
        QCOMPARE(storedCount(itemTypeNumber(ItemType::Goods)), 3);
    }

    // An import that overwrites existing goods says so, and 否 is its default.
    void importUpdateQuestionDefaultsToNo()
    {
        const QString csv = m_dir.filePath(u"update-%1.csv"_s.arg(QDateTime::currentMSecsSinceEpoch()));
        {
            QFile file(csv);
            QVERIFY(file.open(QIODevice::WriteOnly));
            file.write("编号,名称\nG001,百事可乐\nG100,橙汁\n");
        }
        ModalTest::whenModal<frmImport>(this, [csv](frmImport *dialog) {
            dialog->setFile(csv);
            dialog->chkUpdate->setChecked(true);
            QVERIFY(!dialog->cmdImport_Click());
            dialog->cmdClose->click();
        });
        form()->mnuImport->trigger();
        QVERIFY(!QTest::currentTestFailed());
        const ScriptedPrompt::Shown question = m_prompt->shown().value(0);
        QVERIFY2(question.text.contains(u"替换现在的内容"_s), qPrintable(question.text));
        QCOMPARE(question.style & CPrompt::vbDefaultButton2, int(CPrompt::vbDefaultButton2));
        QCOMPARE(storedName(kCola), u"可乐"_s);
        QCOMPARE(storedCount(itemTypeNumber(ItemType::Goods)), 3);
    }

    // Regression: the import dialog wrote the refused rows into the very file being imported when the clerk
    // chose it; it refuses and asks for another file.
    void refusedRowsNeverGoIntoTheImportedFile()
    {
        const QString csv = m_dir.filePath(u"bad-%1.csv"_s.arg(QDateTime::currentMSecsSinceEpoch()));
        const QByteArray content = "编号,名称\nG200,橙汁\nG201,\n";
        {
            QFile file(csv);
            QVERIFY(file.open(QIODevice::WriteOnly));
            file.write(content);
        }
        m_prompt->queueAnswer(CPrompt::vbYes); // 确实要导入吗?
        m_prompt->queueAnswer(CPrompt::vbYes); // 要把它们连同原因保存到工作簿吗?
        int dialogs = 0;
        ModalTest::whenModal<frmImport>(this, [&](frmImport *dialog) {
            dialog->setFile(csv);
            dialog->chkSkipBad->setChecked(true);
            ModalTest::whenModal<QFileDialog>(this, [&](QFileDialog *files) {
                ++dialogs;
                ModalTest::whenModal<QFileDialog>(this, [&](QFileDialog *again) {
                    ++dialogs;
                    again->reject();
                });
                files->selectFile(csv);
                QMetaObject::invokeMethod(files, "accept");
            });
            QVERIFY(dialog->cmdImport_Click());
            dialog->cmdClose->click();
        });
        form()->mnuImport->trigger();
        QVERIFY(!QTest::currentTestFailed());
        QCOMPARE(dialogs, 2);
        QVERIFY2(m_prompt->lastText().contains(u"不能写入正在导入的文件"_s), qPrintable(m_prompt->lastText()));
        QFile file(csv);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(file.readAll(), content);
        QCOMPARE(storedCount(itemTypeNumber(ItemType::Goods)), 4);
    }

    // A name another seat took a moment ago is refused by the save itself, with the dialogs' message; two goods
    // trading their names in the grid is no clash.
    void namesStayUniqueAgainstOtherSeats()
    {
        form()->selectKind(itemTypeNumber(ItemType::Unit));
        ItemFixtures::insert(*m_other, {40, 2, QString(), u"打"_s});
        const int row = model()->addNewRow();
        QVERIFY(model()->setData(model()->index(row, model()->columnOf(ItemTableModel::ItemName)), u"打"_s));
        form()->mnuEditSave->trigger();
        QCOMPARE(m_prompt->lastText(), u"单位名称[打]已经存在,请换一个名称!"_s);
        QCOMPARE(ItemFixtures::count(*m_other, u"Select Count(*) From T_Item Where F_ItemName = '打'"_s), 1);
        m_prompt->queueAnswer(CPrompt::vbNo); // leave the unit unsaved
        form()->selectKind(itemTypeNumber(ItemType::Goods));
        QVERIFY(model()->setData(goodsCell(kCola, ItemTableModel::ItemName), u"雪碧"_s));
        QVERIFY(model()->setData(goodsCell(12, ItemTableModel::ItemName), u"可乐"_s));
        form()->mnuEditSave->trigger();
        QCOMPARE(storedName(kCola), u"雪碧"_s);
        QCOMPARE(storedName(12), u"可乐"_s);
    }

    // Regression: imported stock limits were stored widened (0.1 as 0.100000001490116) and empty texts as NULL.
    void importStoresValuesAsTyped()
    {
        const QString csv = m_dir.filePath(u"limits-%1.csv"_s.arg(QDateTime::currentMSecsSinceEpoch()));
        {
            QFile file(csv);
            QVERIFY(file.open(QIODevice::WriteOnly));
            file.write("编号,名称,库存上限,库存下限,备注\nG300,测试,0.1,2.7,\n");
        }
        m_prompt->queueAnswer(CPrompt::vbYes); // 确实要导入吗?
        ModalTest::whenModal<frmImport>(this, [csv](frmImport *dialog) {
            dialog->setFile(csv);
            QVERIFY(dialog->cmdImport_Click());
            dialog->cmdClose->click();
        });
        form()->mnuImport->trigger();
        QVERIFY(!QTest::currentTestFailed());
        QSqlQuery q = m_other->Select(u"Select F_LimitUp, F_LimitDown, F_Remark From T_Item Where F_ItemNo = 'G300'"_s);
        QVERIFY(q.next());
        QCOMPARE(q.value(0).toString(), u"0.1"_s);
        QCOMPARE(q.value(1).toString(), u"2.7"_s);
        QVERIFY(!q.value(2).isNull());
    }

    // The search dialog names the kind it searches, also after the clerk switched kinds with it open.
    void searchTitleFollowsTheKind()
    {
        form()->mnuSearch->trigger();
        auto *search = form()->findChild<frmSearch *>();
        QVERIFY(search);
        QCOMPARE(search->windowTitle(), u"查找"_s + form()->NavigationText(itemTypeNumber(ItemType::Goods)));
        form()->selectKind(itemTypeNumber(ItemType::Unit));
        QCOMPARE(search->windowTitle(), u"查找"_s + form()->NavigationText(itemTypeNumber(ItemType::Unit)));
    }

    // The restore question names every table it replaces with its rows now and in the file, and 否 is its
    // default: a clerk who presses Enter keeps the data.
    void restoreQuestionNamesWhatItReplaces()
    {
        const QString file = m_dir.filePath(u"before-%1.qlbak"_s.arg(QDateTime::currentMSecsSinceEpoch()));
        QVERIFY(form()->BackupTo(file));
        const int inBackup = ItemFixtures::count(*m_other, u"Select Count(*) From T_Item"_s);
        QVERIFY(model()->setData(goodsCell(kCola, ItemTableModel::ItemName), u"可乐(备份后)"_s));
        form()->mnuEditSave->trigger();
        ItemFixtures::insert(*m_other, {30, 4, u"G004"_s, u"芬达"_s, 3, 1});
        m_prompt->clear();
        QVERIFY(!form()->RestoreFrom(file)); // the default answer
        const ScriptedPrompt::Shown question = m_prompt->shown().value(0);
        for (const QString &part : {u"T_Item"_s, u"T_GoodsPrice"_s, u"T_GoodsInOutList"_s,
                                    u"现有 %1 行"_s.arg(inBackup + 1), u"备份中 %1 行"_s.arg(inBackup)}) {
            QVERIFY2(question.text.contains(part), qPrintable(part + u" in: "_s + question.text));
        }
        QCOMPARE(question.style & CPrompt::vbDefaultButton2, int(CPrompt::vbDefaultButton2));
        QCOMPARE(storedName(kCola), u"可乐(备份后)"_s);
        QCOMPARE(storedCount(itemTypeNumber(ItemType::Goods)), 4);
    }

    // A clerk's day on the real window, checked in the database by another connection after every step.
    void aClerksDay()
    {
        // Add a unit in the grid and save it.
        form()->selectKind(itemTypeNumber(ItemType::Unit));
        form()->mnuEditNew->trigger();
        QPointer<QLineEdit> editor = qobject_cast<QLineEdit *>(QApplication::focusWidget());
        QVERIFY(editor);
        typeText(editor, u"打"_s);
        QTest::keyClick(editor, Qt::Key_Return);
        QTRY_VERIFY(editor.isNull() || !editor->isVisible());
        form()->mnuEditSave->trigger();
        QCOMPARE(storedCount(itemTypeNumber(ItemType::Unit)), 3);
        // Rename goods with an apostrophe in the name.
        form()->selectKind(itemTypeNumber(ItemType::Goods));
        QVERIFY(model()->setData(goodsCell(11, ItemTableModel::ItemName), u"Chateau d'Or"_s));
        form()->mnuEditSave->trigger();
        QCOMPARE(storedName(11), u"Chateau d'Or"_s);
        // Delete goods after the question.
        form()->Flexgd1->setCurrentIndex(goodsCell(12, ItemTableModel::ItemName));
        m_prompt->queueAnswer(CPrompt::vbYes);
        form()->mnuEditDelete->trigger();
        QCOMPARE(storedName(12), u"<none>"_s);
        // Export the goods.
        const QString book = m_dir.filePath(u"day-%1.xlsx"_s.arg(QDateTime::currentMSecsSinceEpoch()));
        m_prompt->queueAnswer(CPrompt::vbYes);
        QVERIFY(form()->ExportGridTo(book));
        QVERIFY(QFileInfo(book).size() > 0);
        // Back up, change, restore.
        const QString backup = m_dir.filePath(u"day-%1.qlbak"_s.arg(QDateTime::currentMSecsSinceEpoch()));
        QVERIFY(form()->BackupTo(backup));
        QVERIFY(model()->setData(goodsCell(kCola, ItemTableModel::ItemName), u"可乐(恢复前)"_s));
        form()->mnuEditSave->trigger();
        QCOMPARE(storedName(kCola), u"可乐(恢复前)"_s);
        m_prompt->queueAnswer(CPrompt::vbYes);
        QVERIFY(form()->RestoreFrom(backup));
        QCOMPARE(storedName(kCola), u"可乐"_s);
        QCOMPARE(goodsCell(kCola, ItemTableModel::ItemName).data().toString(), u"可乐"_s);
        QCOMPARE(storedName(11), u"Chateau d'Or"_s);
        // Search the goods by name: the grid lands on them.
        form()->mnuSearch->trigger();
        auto *search = form()->findChild<frmSearch *>();
        QVERIFY(search);
        search->txtName->setText(u"Chateau"_s);
        search->cmdFind_Click();
        QCOMPARE(model()->itemAt(form()->Flexgd1->currentIndex().row())->F_ID(), 11);
        search->close();
        // Add a client in its dialog and pick it by its mnemonic code, as a sales window does.
        form()->selectKind(itemTypeNumber(ItemType::Client));
        ModalTest::whenModal<frmClientEdit>(this, [](frmClientEdit *dialog) {
            dialog->findChild<QLineEdit *>(u"txtName"_s)->setText(u"华联超市"_s);
            dialog->findChild<QPushButton *>(u"cmdOK"_s)->click();
        });
        form()->mnuEditNew->trigger();
        QVERIFY(!QTest::currentTestFailed());
        QCOMPARE(storedCount(itemTypeNumber(ItemType::Client)), 1);
        ModalTest::whenModal<frmSelectClient>(this, [](frmSelectClient *dialog) {
            dialog->txtSearch->setFocus();
            typeText(dialog->txtSearch, u"hl"_s);
            QTest::keyClick(dialog->txtSearch, Qt::Key_Return);
        });
        const CItemPtr picked = m_bus->SelectClient();
        QVERIFY(picked);
        QCOMPARE(picked->F_ItemName(), u"华联超市"_s);
        // Connect elsewhere: the window hands the chosen database to the host after settling.
        ModalTest::whenModal<frmConnect>(this, [](frmConnect *dialog) { dialog->reject(); });
        form()->mnuConnect->trigger();
        QVERIFY(!QTest::currentTestFailed());
        QCOMPARE(m_chosenUrl, QString());
    }

    // Qt's own boxes speak the program's language once the facade exists.
    void toolkitTextsAreChinese()
    {
        QDialogButtonBox buttons(QDialogButtonBox::Cancel | QDialogButtonBox::Open);
        QCOMPARE(buttons.button(QDialogButtonBox::Cancel)->text(), u"取消"_s);
        QCOMPARE(buttons.button(QDialogButtonBox::Open)->text(), u"打开"_s);
    }
};

QTEST_MAIN(ClerkTest)
#include "tst_clerk.moc"
