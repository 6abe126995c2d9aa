#include "cconnection.h"
#include "currency.h"
#include "module1.h"
#include "prompt.h"
#include "vekgrid.h"

#include <QAction>
#include <QApplication>
#include <QDir>
#include <QFileInfo>
#include <QKeyEvent>
#include <QLineEdit>
#include <QMenu>
#include <QPdfWriter>
#include <QScopeGuard>
#include <QScrollBar>
#include <QSignalSpy>
#include <QSqlQuery>
#include <QStandardPaths>
#include <QTableView>
#include <QTemporaryDir>
#include <QTest>
#include <QWheelEvent>
#include <QWindow>

using namespace Qt::StringLiterals;

class VekGridTest : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<VekGrid> m_grid;
    std::unique_ptr<ScriptedPrompt> m_prompt;

    // Double-clicks a grid cell as a user does.
    void openEditor(qint32 row, qint32 col)
    {
        FlexGrid *g = m_grid->Flexgd1;
        const QModelIndex index = g->model()->index(row, col);
        const QPoint centre = g->visualRect(index).center();
        QTest::mouseClick(g->viewport(), Qt::LeftButton, {}, centre);
        QTest::mouseDClick(g->viewport(), Qt::LeftButton, {}, centre);
    }
    bool editorOpen() const { return m_grid->txtEdit->x() >= 0 && m_grid->txtEdit->hasFocus(); }

private Q_SLOTS:
    void init()
    {
        m_prompt = std::make_unique<ScriptedPrompt>();
        CPrompt::setCurrent(m_prompt.get());
        m_grid = std::make_unique<VekGrid>();
        m_grid->setFormatString(u"序号|名称|单价"_s);
        m_grid->setRows(4);
        m_grid->resize(500, 300);
        m_grid->show();
        QVERIFY(QTest::qWaitForWindowExposed(m_grid.get()));
        m_grid->activateWindow();
    }
    void cleanup()
    {
        m_grid.reset();
        CPrompt::setCurrent(nullptr);
    }

    void enterCommitsAndRaisesChangedByUser()
    {
        // Signals with by-reference arguments cannot be spied on; a handler records them.
        QList<QStringList> user;
        connect(m_grid.get(), &VekGrid::ChangedByUser, this,
                [&](qint32 row, qint32 col, const QString &cell, QString &editor, qint32 &cancel) {
                    user.append({QString::number(row), QString::number(col), cell, editor, QString::number(cancel)});
                });
        QSignalSpy dbl(m_grid.get(), &VekGrid::DblClick);
        openEditor(1, 1);
        QCOMPARE(dbl.count(), 1);
        QVERIFY(editorOpen());
        m_grid->txtEdit->insert(u"可乐"_s);
        QTest::keyClicks(m_grid->txtEdit, u"Cola"_s);
        QTest::keyClick(m_grid->txtEdit, Qt::Key_Return);
        QCOMPARE(m_grid->TextMatrix(1, 1), u"可乐Cola"_s);
        QCOMPARE(user.size(), 1);
        QCOMPARE(user.at(0), (QStringList {u"1"_s, u"1"_s, u"可乐Cola"_s, u"可乐Cola"_s, u"0"_s}));
        QVERIFY(m_grid->txtEdit->x() < 0);
    }

    void enterRaisesKeyDownDblClickThenKeyPress()
    {
        QStringList order;
        connect(m_grid.get(), &VekGrid::KeyDown, this,
                [&](qint16 code, qint16) { order << u"KeyDown %1"_s.arg(code); });
        connect(m_grid.get(), &VekGrid::DblClick, this, [&] { order << u"DblClick"_s; });
        connect(m_grid.get(), &VekGrid::KeyPress, this, [&](qint16 code) { order << u"KeyPress %1"_s.arg(code); });
        m_grid->Flexgd1->setFocus();
        QTest::keyClick(m_grid->Flexgd1, Qt::Key_Return);
        QCOMPARE(order, (QStringList {u"KeyDown 13"_s, u"DblClick"_s, u"KeyPress 13"_s}));
    }

    void keyPressReportsEveryTypedCharacter()
    {
        QList<qint16> codes;
        connect(m_grid.get(), &VekGrid::KeyPress, this, [&](qint16 code) { codes << code; });
        m_grid->Flexgd1->setFocus();
        for (const QString &text : {u"a"_s, u"中"_s, u"，"_s}) {
            QKeyEvent press(QEvent::KeyPress, Qt::Key_unknown, Qt::NoModifier, text);
            QApplication::sendEvent(m_grid->Flexgd1, &press);
        }
        QCOMPARE(codes, (QList<qint16> {qint16(u'a'), qint16(0x4E2D), qint16(0xFF0C)}));
    }

    void keyCodesAreVirtualKeys_data()
    {
        QTest::addColumn<int>("key");
        QTest::addColumn<int>("modifiers");
        QTest::addColumn<int>("code");
        QTest::addColumn<int>("shift");
        QTest::newRow("F2") << int(Qt::Key_F2) << 0 << 113 << 0;
        QTest::newRow("F12") << int(Qt::Key_F12) << 0 << 123 << 0;
        QTest::newRow("Home") << int(Qt::Key_Home) << 0 << 36 << 0;
        QTest::newRow("End") << int(Qt::Key_End) << 0 << 35 << 0;
        QTest::newRow("PgUp") << int(Qt::Key_PageUp) << 0 << 33 << 0;
        QTest::newRow("PgDn") << int(Qt::Key_PageDown) << 0 << 34 << 0;
        QTest::newRow("Insert") << int(Qt::Key_Insert) << 0 << 45 << 0;
        QTest::newRow("Shift") << int(Qt::Key_Shift) << 0 << 16 << 1;
        QTest::newRow("Ctrl") << int(Qt::Key_Control) << 0 << 17 << 2;
        QTest::newRow("Alt") << int(Qt::Key_Alt) << 0 << 18 << 4;
        QTest::newRow("letter") << int(Qt::Key_A) << 0 << 65 << 0;
        QTest::newRow("comma") << int(Qt::Key_Comma) << 0 << 188 << 0;
        QTest::newRow("period") << int(Qt::Key_Period) << 0 << 190 << 0;
        QTest::newRow("keypad 5") << int(Qt::Key_5) << int(Qt::KeypadModifier) << 101 << 0;
        QTest::newRow("Shift+F2") << int(Qt::Key_F2) << int(Qt::ShiftModifier) << 113 << 1;
        QTest::newRow("Ctrl+A") << int(Qt::Key_A) << int(Qt::ControlModifier) << 65 << 2;
        QTest::newRow("Alt+Home") << int(Qt::Key_Home) << int(Qt::AltModifier) << 36 << 4;
        QTest::newRow("Ctrl+Shift+End") << int(Qt::Key_End) << int(Qt::ControlModifier | Qt::ShiftModifier) << 35 << 3;
    }
    void keyCodesAreVirtualKeys()
    {
        QFETCH(int, key);
        QFETCH(int, modifiers);
        QFETCH(int, code);
        QFETCH(int, shift);
        QSignalSpy down(m_grid.get(), &VekGrid::KeyDown);
        QSignalSpy up(m_grid.get(), &VekGrid::KeyUp);
        m_grid->Flexgd1->setFocus();
        QTest::keyPress(m_grid->Flexgd1, Qt::Key(key), Qt::KeyboardModifiers(modifiers));
        QTest::keyRelease(m_grid->Flexgd1, Qt::Key(key), Qt::KeyboardModifiers(modifiers));
        // Modifier keys go down before the key and come up after it; a modifier key itself holds its own state.
        QCOMPARE(down.count(), 1 + qPopulationCount(uint(modifiers & ~Qt::KeypadModifier)));
        QCOMPARE(down.constLast().at(0).value<qint16>(), qint16(code));
        QCOMPARE(down.constLast().at(1).value<qint16>(), qint16(shift));
        QCOMPARE(up.at(0).at(0).value<qint16>(), qint16(code));
        QCOMPARE(up.at(0).at(1).value<qint16>(), qint16(shift));
    }

    void editorSurvivesAnotherWindowAndPopups_data()
    {
        QTest::addColumn<int>("reason");
        QTest::newRow("another window") << int(Qt::ActiveWindowFocusReason);
        QTest::newRow("a popup") << int(Qt::PopupFocusReason);
    }
    void editorSurvivesAnotherWindowAndPopups()
    {
        QFETCH(int, reason);
        openEditor(1, 2);
        const QPoint place = m_grid->txtEdit->pos();
        QFocusEvent out(QEvent::FocusOut, Qt::FocusReason(reason));
        QCoreApplication::sendEvent(m_grid->txtEdit, &out);
        QCOMPARE(m_grid->txtEdit->pos(), place);
    }

    void parkedEditorNeverWritesTheCell()
    {
        QList<int> user;
        connect(m_grid.get(), &VekGrid::ChangedByUser, this,
                [&](qint32 row, qint32, const QString &, QString &, qint32 &) { user.append(row); });
        openEditor(1, 2);
        m_grid->Flexgd1->setFocus(); // leaving the cell parks the editor
        QVERIFY(m_grid->txtEdit->x() < 0);
        m_grid->txtEdit->setFocus(Qt::TabFocusReason); // reached by Tab while parked
        QTest::keyClicks(m_grid->txtEdit, u"9"_s);
        QTest::keyClick(m_grid->txtEdit, Qt::Key_Return);
        QCOMPARE(m_grid->TextMatrix(1, 2), QString());
        QVERIFY(user.isEmpty());
        QTRY_VERIFY(!m_grid->txtEdit->hasFocus());
    }

    void handlersVetoByCancelFlag_data()
    {
        QTest::addColumn<int>("flag");
        QTest::addColumn<QString>("kept");
        QTest::newRow("1 restores") << 1 << u"旧"_s;
        QTest::newRow("-1 keeps") << -1 << u"新"_s;
    }
    void handlersVetoByCancelFlag()
    {
        QFETCH(int, flag);
        QFETCH(QString, kept);
        m_grid->Flexgd1->setTextMatrix(2, 2, u"旧"_s);
        connect(m_grid.get(), &VekGrid::ChangedByUser, this,
                [flag](qint32, qint32, const QString &, QString &text, qint32 &cancel) {
                    text = u"ignored"_s;
                    cancel = flag;
                });
        openEditor(2, 2);
        m_grid->txtEdit->setText(u"新"_s);
        QTest::keyClick(m_grid->txtEdit, Qt::Key_Return);
        QCOMPARE(m_grid->TextMatrix(2, 2), kept);
    }

    void escapeAndFocusLossDiscard()
    {
        openEditor(1, 2);
        QTest::keyClicks(m_grid->txtEdit, u"12"_s);
        QTest::keyClick(m_grid->txtEdit, Qt::Key_Escape);
        QCOMPARE(m_grid->TextMatrix(1, 2), QString());
        QVERIFY(m_grid->txtEdit->x() < 0);

        openEditor(1, 2);
        QTest::keyClicks(m_grid->txtEdit, u"34"_s);
        m_grid->Flexgd1->setFocus();
        QCOMPARE(m_grid->TextMatrix(1, 2), QString());
    }

    void fixedCellsAndListedColumnsRefuseTheEditor()
    {
        QSignalSpy dbl(m_grid.get(), &VekGrid::DblClick);
        m_grid->Flexgd1->setFocus();
        m_grid->Flexgd1->setRow(0); // a fixed row as current cell
        QTest::keyClick(m_grid->Flexgd1, Qt::Key_Return);
        QCOMPARE(dbl.count(), 1);
        QVERIFY(!editorOpen());

        m_grid->setEditCol(u"2,-2,1"_s);
        openEditor(1, 1);
        QVERIFY(!editorOpen());
        openEditor(1, 2);
        QVERIFY(editorOpen());
        m_grid->setEditCol(u"-2"_s);
        openEditor(2, 2);
        QVERIFY(!editorOpen());
    }

    void numericTestRefusesWords_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("numeric");
        QTest::newRow("decimal") << u"12.5"_s << true;
        QTest::newRow("thousands and sign") << u"-1,234.5"_s << true;
        QTest::newRow("exponent") << u"1e3"_s << true;
        QTest::newRow("nan") << u"nan"_s << false;
        QTest::newRow("inf") << u"inf"_s << false;
        QTest::newRow("-infinity") << u"-infinity"_s << false;
        QTest::newRow("letters") << u"箱"_s << false;
        QTest::newRow("trailing sign") << u"12-"_s << true;
        QTest::newRow("parentheses") << u"(1,200.00)"_s << true;
        QTest::newRow("currency sign") << u"¥12.50"_s << true;
        QTest::newRow("full-width currency sign") << u"￥ 8"_s << true;
        QTest::newRow("hexadecimal") << u"&H1F"_s << true;
        QTest::newRow("D exponent") << u"1.5D3"_s << true;
        QTest::newRow("blanks around") << u"  42 "_s << true;
        QTest::newRow("two signs") << u"-12-"_s << false;
        QTest::newRow("bare point") << u"."_s << false;
        QTest::newRow("leading separator") << u",12"_s << false;
        QTest::newRow("exponent without digits") << u"1e"_s << false;
        QTest::newRow("overflowing exponent") << u"1e999"_s << false;
        QTest::newRow("hexadecimal beyond 32 bits") << u"&H123456789"_s << false;
        QTest::newRow("empty") << QString() << false;
    }
    void numericTestRefusesWords()
    {
        QFETCH(QString, text);
        QFETCH(bool, numeric);
        m_grid->Flexgd1->setTextMatrix(1, 2, text);
        openEditor(1, 2);
        QCOMPARE(bool(m_grid->txtEdit->alignment() & Qt::AlignRight), numeric);
    }

    void numbersOpenRightAligned()
    {
        m_grid->Flexgd1->setTextMatrix(1, 2, u"12.5"_s);
        m_grid->Flexgd1->setTextMatrix(2, 2, u"箱"_s);
        openEditor(1, 2);
        QVERIFY(m_grid->txtEdit->alignment() & Qt::AlignRight);
        QCOMPARE(m_grid->txtEdit->selectedText(), u"12.5"_s);
        openEditor(2, 2);
        QVERIFY(m_grid->txtEdit->alignment() & Qt::AlignLeft);
    }

    void fixedCellsRaiseMouseEventsAndTheRowMenu()
    {
        m_grid->setFixedRows(2);
        m_grid->setFixedCols(1);
        m_grid->setRows(5);
        m_grid->setPopMenu(true);
        QSignalSpy click(m_grid.get(), &VekGrid::Click);
        QSignalSpy dbl(m_grid.get(), &VekGrid::DblClick);
        QSignalSpy down(m_grid.get(), &VekGrid::MouseDown);
        QSignalSpy up(m_grid.get(), &VekGrid::MouseUp);
        const QList<QObject *> areas = m_grid->Flexgd1->cellAreas();
        QCOMPARE(areas.size(), 4);
        auto *top = static_cast<QWidget *>(areas.at(1));
        auto *left = static_cast<QWidget *>(areas.at(2));
        QVERIFY(top->isVisible() && left->isVisible());
        const QPoint onTop(top->width() / 2, top->height() - 3); // the second fixed row
        QTest::mouseClick(top, Qt::LeftButton, {}, onTop);
        QCOMPARE(click.count(), 1);
        QCOMPARE(down.count(), 1);
        QCOMPARE(up.count(), 1);
        QCOMPARE(m_grid->Row(), 1);
        // A double click as the window system delivers it: a click, then the second press as a double click.
        QTest::mouseClick(top, Qt::LeftButton, {}, onTop);
        QTest::mouseDClick(top, Qt::LeftButton, {}, onTop);
        QTest::mouseRelease(top, Qt::LeftButton, {}, onTop);
        QCOMPARE(dbl.count(), 1);
        QCOMPARE(click.count(), 2); // it clicks once, not again on its second release
        QCOMPARE(up.count(), 3);
        QVERIFY(!editorOpen());
        QTest::mouseClick(left, Qt::LeftButton, {}, QPoint(3, 3));
        QCOMPARE(click.count(), 3);
        QCOMPARE(m_grid->col(), 0);
        QTest::mouseClick(left, Qt::RightButton, {}, QPoint(3, 3));
        QTRY_VERIFY(m_grid->mnuPop->isVisible());
        m_grid->mnuPop->hide();
    }

    void mouseEventsCarryButtonShiftAndPlace_data()
    {
        QTest::addColumn<int>("button");
        QTest::addColumn<int>("modifiers");
        QTest::addColumn<int>("buttonCode");
        QTest::addColumn<int>("shift");
        QTest::newRow("left") << int(Qt::LeftButton) << 0 << 1 << 0;
        QTest::newRow("right with Shift") << int(Qt::RightButton) << int(Qt::ShiftModifier) << 2 << 1;
        QTest::newRow("middle with Ctrl") << int(Qt::MiddleButton) << int(Qt::ControlModifier) << 4 << 2;
        QTest::newRow("left with Alt") << int(Qt::LeftButton) << int(Qt::AltModifier) << 1 << 4;
    }
    void mouseEventsCarryButtonShiftAndPlace()
    {
        QFETCH(int, button);
        QFETCH(int, modifiers);
        QFETCH(int, buttonCode);
        QFETCH(int, shift);
        m_grid->setRows(5);
        QSignalSpy click(m_grid.get(), &VekGrid::Click);
        QSignalSpy down(m_grid.get(), &VekGrid::MouseDown);
        QSignalSpy up(m_grid.get(), &VekGrid::MouseUp);
        auto *cells = static_cast<QWidget *>(m_grid->Flexgd1->cellAreas().constLast());
        const QPoint at(7, 5);
        QTest::mouseClick(cells, Qt::MouseButton(button), Qt::KeyboardModifiers(modifiers), at);
        QCOMPARE(down.count(), 1);
        QCOMPARE(up.count(), 1);
        // Places are in twips from the grid's top left corner.
        const QPoint inGrid = cells->mapTo(m_grid->Flexgd1, at);
        for (const QList<QVariant> &args : {down.at(0), up.at(0)}) {
            QCOMPARE(args.at(0).value<qint16>(), qint16(buttonCode));
            QCOMPARE(args.at(1).value<qint16>(), qint16(shift));
            QCOMPARE(args.at(2).value<float>(), float(m_grid->Flexgd1->pixelsToTwipsX(inGrid.x())));
            QCOMPARE(args.at(3).value<float>(), float(m_grid->Flexgd1->pixelsToTwipsY(inGrid.y())));
        }
        QCOMPARE(click.count(), button == Qt::LeftButton ? 1 : 0);
    }

    void fixedRowsAndColumnsHaveTheirOwnSizes()
    {
        m_grid->setFixedRows(2);
        m_grid->setRows(5);
        m_grid->Flexgd1->setRowHeight(0, 300);
        m_grid->Flexgd1->setRowHeight(1, 600);
        QVERIFY(qAbs(m_grid->Flexgd1->RowHeight(0) - 300) <= 15);
        QVERIFY(qAbs(m_grid->Flexgd1->RowHeight(1) - 600) <= 15);
        m_grid->setFixedCols(2);
        m_grid->setColWidth(0, 450);
        m_grid->setColWidth(1, 900);
        QCOMPARE(m_grid->ColWidth(0), 450);
        QCOMPARE(m_grid->ColWidth(1), 900);
        auto *top = static_cast<QWidget *>(m_grid->Flexgd1->cellAreas().at(1));
        QVERIFY(qAbs(m_grid->Flexgd1->pixelsToTwipsY(top->height()) - 900) <= 30);
    }

    void programChangesCanBeVetoed()
    {
        connect(m_grid.get(), &VekGrid::ChangedByProgram, this,
                [](qint32, qint32 col, const QString &, QString &, qint32 &cancel) { cancel = col == 2 ? 1 : 0; });
        m_grid->setTextMatrix(1, 1, u"甲"_s);
        m_grid->setTextMatrix(1, 2, u"乙"_s);
        QCOMPARE(m_grid->TextMatrix(1, 1), u"甲"_s);
        QCOMPARE(m_grid->TextMatrix(1, 2), QString());
    }

    void rowMenuAppendsAndDeletes()
    {
        m_grid->mnuInsertRow->trigger();
        QCOMPARE(m_grid->Rows(), 5);
        QCOMPARE(m_grid->TextMatrix(4, 0), u"4"_s);
        m_grid->Flexgd1->setRow(0);
        m_grid->mnuDeleteRow->trigger();
        QCOMPARE(m_grid->Rows(), 5);
        m_grid->Flexgd1->setRow(2);
        m_grid->mnuDeleteRow->trigger();
        QCOMPARE(m_grid->Rows(), 4);
        m_grid->setRows(2);
        m_grid->Flexgd1->setRow(1);
        m_grid->mnuDeleteRow->trigger();
        QCOMPARE(m_grid->Rows(), 1);
    }

    void idColumnIsNumbered()
    {
        m_grid->setRows(5);
        m_grid->AutoFillID(0);
        QCOMPARE(m_grid->TextMatrix(4, 0), u"4"_s);
        QCOMPARE(m_grid->TextMatrix(0, 0), u"序号"_s);
        m_grid->setRows(7);
        QCOMPARE(m_grid->TextMatrix(6, 0), u"6"_s);
        m_grid->AutoFillID(-1);
        m_grid->setRows(8);
        QCOMPARE(m_grid->TextMatrix(7, 0), QString());
    }

    void columnWidthsLiveInTheIniFile()
    {
        QTemporaryDir dir;
        const QString ini = dir.filePath(u"grid.ini"_s);
        QVERIFY(m_grid->setSetupFile(ini));
        m_grid->setColWidth(0, 405);
        m_grid->setColWidth(1, 1200);
        m_grid->setColWidth(2, 900);
        QVERIFY(m_grid->SaveOrReadColWidth(u"商品"_s, u"列宽"_s, false));
        QFile file(ini);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QVERIFY(file.readAll().contains(u"列宽=405;1200;900;"_s.toUtf8()));

        m_grid->setColWidth(1, 300);
        QVERIFY(m_grid->SaveOrReadColWidth(u"商品"_s, u"列宽"_s, true));
        QCOMPARE(m_grid->ColWidth(1), 1200);

        // Fewer widths than columns: the empty element after the last ";" falls on a column and is no number.
        Module1::SetIniString(u"商品"_s, u"少"_s, ini, u"600;"_s);
        QVERIFY(!m_grid->SaveOrReadColWidth(u"商品"_s, u"少"_s, true));
        QCOMPARE(m_grid->ColWidth(0), 600);
        QCOMPARE(m_grid->ColWidth(1), 1200);
        QCOMPARE(m_grid->ColWidth(2), 900);
        Module1::SetIniString(u"商品"_s, u"多"_s, ini, u"405;1200;900;300;"_s);
        QVERIFY(m_grid->SaveOrReadColWidth(u"商品"_s, u"多"_s, true));
        QCOMPARE(m_grid->ColWidth(0), 405);

        Module1::SetIniString(u"商品"_s, u"坏"_s, ini, u"705;abc;810"_s);
        QVERIFY(!m_grid->SaveOrReadColWidth(u"商品"_s, u"坏"_s, true));
        QCOMPARE(m_grid->ColWidth(0), 705);
        QCOMPARE(m_grid->ColWidth(1), 1200);

        QVERIFY(m_grid->setSetupFile(dir.filePath(u"no/such/folder/grid.ini"_s)));
        QVERIFY(!m_grid->SaveOrReadColWidth(u"商品"_s, u"列宽"_s, false));
        QVERIFY(Module1::ErrDescription().contains(u"no/such/folder"_s));
        QVERIFY(m_grid->setSetupFile(ini));

        m_grid->setIsDemo(true);
        QVERIFY(m_grid->SaveOrReadColWidth(u"演示"_s, u"列宽"_s, false));
        QCOMPARE(Module1::GetIniString(u"演示"_s, u"列宽"_s, ini, u"none"_s), u"none"_s);
    }

    void bareSetupFileLivesInTheConfigurationFolder()
    {
        QStandardPaths::setTestModeEnabled(true);
        const auto normal = qScopeGuard([] { QStandardPaths::setTestModeEnabled(false); });
        QTemporaryDir cwd;
        const QString before = QDir::currentPath();
        QDir::setCurrent(cwd.path());
        const auto back = qScopeGuard([before] { QDir::setCurrent(before); });
        const QString expected = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation)
            + u"/quillon/tst-vekgrid-bare.ini"_s;
        QFile::remove(expected);
        QVERIFY(m_grid->setSetupFile(u"tst-vekgrid-bare.ini"_s));
        m_grid->setColWidth(1, 1500);
        QVERIFY(m_grid->SaveOrReadColWidth(u"商品"_s, u"列宽"_s, false));
        QVERIFY(QFile::exists(expected));
        QVERIFY(!QFile::exists(cwd.filePath(u"tst-vekgrid-bare.ini"_s)));
        m_grid->setColWidth(1, 300);
        QDir::setCurrent(before); // another working folder finds the same file
        QVERIFY(m_grid->SaveOrReadColWidth(u"商品"_s, u"列宽"_s, true));
        QVERIFY(std::abs(m_grid->ColWidth(1) - 1500) <= 15);
        QFile::remove(expected);
    }

    void savedWidthsConvertAsNumbers_data()
    {
        QTest::addColumn<QString>("stored");
        QTest::addColumn<bool>("accepted");
        QTest::addColumn<qint32>("width1");
        QTest::newRow("blanks and thousands separator") << u"300; 1,200 ;900;"_s << true << 1200;
        QTest::newRow("hexadecimal") << u"300;&H4B0;900;"_s << true << 1200;
        QTest::newRow("beyond 32 bits") << u"300;99999999999;900;"_s << false << 555;
        QTest::newRow("negative") << u"300;-20;900;"_s << false << 555;
        QTest::newRow("empty inside") << u"300;;900;"_s << false << 555;
    }
    void savedWidthsConvertAsNumbers()
    {
        QFETCH(QString, stored);
        QFETCH(bool, accepted);
        QFETCH(qint32, width1);
        QTemporaryDir dir;
        const QString ini = dir.filePath(u"grid.ini"_s);
        QVERIFY(m_grid->setSetupFile(ini));
        m_grid->setColWidth(1, 555);
        m_grid->setColWidth(2, 450);
        const qint32 before = m_grid->ColWidth(1);
        Module1::SetIniString(u"商品"_s, u"列宽"_s, ini, stored);
        QCOMPARE(m_grid->SaveOrReadColWidth(u"商品"_s, u"列宽"_s, true), accepted);
        QCOMPARE(m_grid->ColWidth(0), 300);
        QVERIFY2(std::abs(m_grid->ColWidth(1) - (width1 == 555 ? before : width1)) <= 15,
                 qPrintable(QString::number(m_grid->ColWidth(1))));
        QCOMPARE(m_grid->ColWidth(2) > 800, accepted); // the widths after a refused one are not reached
    }

    void defaultWidthFromMinusOne()
    {
        const qint32 standard = m_grid->ColWidth(2);
        m_grid->setColWidth(2, 2000);
        m_grid->setColWidth(2, -1);
        QCOMPARE(m_grid->ColWidth(2), standard);
    }

    void restoredGridKeepsEveryColumnEditable()
    {
        VekGrid placed;
        QVariantMap bag;
        placed.WriteProperties(bag);
        QVERIFY(!bag.contains(u"EditCol"_s));
        m_grid->ReadProperties(bag);
        openEditor(1, 2);
        QVERIFY(editorOpen());
    }

    void emptyBagLeavesSelectionAndCellColours()
    {
        const quint32 selection = m_grid->Flexgd1->BackColorSel();
        m_grid->ReadProperties({});
        QCOMPARE(m_grid->BackColorSel(), 0u);
        QCOMPARE(m_grid->Flexgd1->BackColorSel(), selection); // not black
        m_grid->setRows(4);
        m_grid->Flexgd1->setRow(2);
        m_grid->Flexgd1->setCol(1);
        m_grid->setCellBackColor(0x0000FF);
        QCOMPARE(m_grid->CellBackColor(), 0x0000FFu);
        const QModelIndex cell = m_grid->Flexgd1->model()->index(2, 1);
        QCOMPARE(cell.data(Qt::BackgroundRole).value<QColor>(), QColor(255, 0, 0));
        m_grid->Flexgd1->setRow(1);
        QCOMPARE(m_grid->CellBackColor(), 0u);
        m_grid->AddItem(u"x"_s, 1); // the colour moves with its row
        QCOMPARE(m_grid->Flexgd1->model()->index(3, 1).data(Qt::BackgroundRole).value<QColor>(), QColor(255, 0, 0));
    }

    void backgroundBeyondTheCellsIsBackColorBkg()
    {
        m_grid->setRows(3);
        m_grid->setBackColorBkg(0x00FF00);
        m_grid->setBackColor(0xFFFFFF);
        QTest::qWait(20);
        const QImage image = m_grid->Flexgd1->viewport()->grab().toImage();
        const QPoint below(5, image.height() - 5);
        QCOMPARE(image.pixelColor(below), QColor(0, 255, 0));
        const QRect cell = m_grid->Flexgd1->visualRect(m_grid->Flexgd1->model()->index(2, 2));
        QCOMPARE(image.pixelColor(cell.center()), QColor(255, 255, 255));
    }

    void clipReadsTheLastAssignedText()
    {
        m_grid->setTextMatrix(1, 1, u"甲"_s);
        m_grid->Flexgd1->setRow(1);
        m_grid->Flexgd1->setCol(1);
        QCOMPARE(m_grid->Clip(), QString());
        QVERIFY(m_grid->setClip(u"乙"_s));
        QCOMPARE(m_grid->TextMatrix(1, 1), u"乙"_s);
        m_grid->setTextMatrix(1, 1, u"丙"_s);
        QCOMPARE(m_grid->Clip(), u"乙"_s);
    }

    void assignmentsRaisePropertyChanged()
    {
        QSignalSpy spy(m_grid.get(), &VekGrid::PropertyChanged);
        m_grid->setKeepLastRows(0);
        m_grid->setBackColor(0xFFFFFF);
        m_grid->setTextMatrix(1, 1, u"x"_s);
        m_grid->setRows(6);
        QVERIFY(m_grid->setRow(2));
        m_grid->setEditCol(u"1"_s);
        QStringList names;
        for (const QList<QVariant> &args : spy) {
            names << args.at(0).toString();
        }
        QCOMPARE(names,
                 (QStringList {u"KeepLastRow"_s, u"BackColor"_s, u"TextMatrix"_s, u"Rows"_s, u"Row"_s, u"EditCol"_s}));
    }

    void propertyBagRoundTrip()
    {
        VekGrid placed;
        placed.InitProperties();
        QVariantMap bag;
        placed.WriteProperties(bag);
        QVERIFY(!bag.contains(u"KeepLastRow"_s));
        QVERIFY(!bag.contains(u"AutoEditNextCell"_s));
        QVERIFY(!bag.contains(u"SetupFile"_s));

        placed.setKeepLastRows(0);
        placed.setPopMenu(true);
        placed.setEditCol(u"1,2"_s);
        placed.setFormatString(u"A|B|C"_s);
        placed.Flexgd1->setBackColorFixed(0xC0E0FF);
        placed.setSetupFile(u"my.ini"_s);
        placed.WriteProperties(bag);
        QCOMPARE(bag.value(u"KeepLastRow"_s).toInt(), 0);

        VekGrid restored;
        restored.setDesignMode(true);
        restored.ReadProperties(bag);
        QCOMPARE(restored.KeepLastRows(), qint16(0));
        QVERIFY(restored.PopMenu());
        QCOMPARE(restored.EditCol(), u"1,2"_s);
        QCOMPARE(restored.Cols(), 3);
        QCOMPARE(restored.TextMatrix(0, 2), u"C"_s);
        QCOMPARE(restored.Flexgd1->BackColorFixed(), 0xC0E0FFu);
        QCOMPARE(restored.SetupFile(), u"my.ini"_s);

        VekGrid empty;
        empty.ReadProperties({});
        QCOMPARE(empty.SetupFile(), u"0"_s);
        QCOMPARE(empty.KeepLastRows(), qint16(1));
    }

    void indexedPropertiesForwardAndRaisePropertyChanged()
    {
        QSignalSpy spy(m_grid.get(), &VekGrid::PropertyChanged);
        m_grid->setRowHeight(1, 600);
        m_grid->setColAlignment(2, FlexGridModel::AlignRight);
        m_grid->setFixedAlignment(1, FlexGridModel::AlignCenter);
        m_grid->setMergeRow(0, true);
        m_grid->setMergeCol(1, true);
        QStringList names;
        for (const QList<QVariant> &args : spy) {
            names << args.at(0).toString();
        }
        QCOMPARE(names,
                 (QStringList {u"RowHeight"_s, u"ColAlignment"_s, u"FixedAlignment"_s, u"MergeRow"_s, u"MergeCol"_s}));
        QCOMPARE(m_grid->RowHeight(1), m_grid->Flexgd1->RowHeight(1));
        QVERIFY(std::abs(m_grid->RowHeight(1) - 600) <= 15);
        QCOMPARE(m_grid->ColAlignment(2), int(FlexGridModel::AlignRight));
        QCOMPARE(m_grid->FixedAlignment(1), int(FlexGridModel::AlignCenter));
        QVERIFY(m_grid->MergeRow(0));
        QVERIFY(!m_grid->MergeRow(1));
        QVERIFY(m_grid->MergeCol(1));
    }

    void enabledAndFontReachTheEditor()
    {
        QFont font(u"Sans"_s, 17);
        QVariantMap bag;
        bag.insert(u"Enabled"_s, false);
        bag.insert(u"Font"_s, font.toString());
        m_grid->ReadProperties(bag);
        QCOMPARE(m_grid->property("Enabled"), QVariant(false));
        QVERIFY(!m_grid->txtEdit->isEnabled());
        QCOMPARE(m_grid->property("Font").value<QFont>().pointSize(), 17);
        QCOMPARE(m_grid->txtEdit->font().pointSize(), 17);

        QSignalSpy spy(m_grid.get(), &VekGrid::PropertyChanged);
        QVERIFY(m_grid->setProperty("Enabled", true));
        QVERIFY(m_grid->Flexgd1->isEnabled());
        font.setPointSize(9);
        QVERIFY(m_grid->setProperty("Font", font));
        QCOMPARE(m_grid->Flexgd1->font().pointSize(), 9);
        QCOMPARE(m_grid->txtEdit->font().pointSize(), 9);
        QVERIFY(spy.contains({u"Enabled"_s}));
        QVERIFY(spy.contains({u"Font"_s}));
    }

    void restoringRaisesNoPropertyChanged()
    {
        VekGrid placed;
        placed.setKeepLastRows(0);
        placed.setPopMenu(true);
        placed.setEditCol(u"1"_s);
        placed.setFormatString(u"A|B|C"_s);
        placed.setEnabled(false);
        placed.setFont(QFont(u"Sans"_s, 15));
        placed.setBackColorSel(0x00FF00);
        QVariantMap bag;
        placed.WriteProperties(bag);
        QSignalSpy spy(m_grid.get(), &VekGrid::PropertyChanged);
        m_grid->ReadProperties(bag);
        QCOMPARE(spy.count(), 0);
        QVERIFY(m_grid->PopMenu());
        QVERIFY(!m_grid->Enabled());
        m_grid->setPopMenu(false);
        QCOMPARE(spy.count(), 1);
    }

    void restoringDefaultRowsKeepsTheStoredRows()
    {
        VekGrid placed;
        placed.setDefaultRows(3);
        placed.setRows(10);
        QVariantMap bag;
        placed.WriteProperties(bag);
        VekGrid restored;
        restored.ReadProperties(bag);
        QCOMPARE(restored.Rows(), 10);
        QCOMPARE(restored.DefaultRows(), qint16(3));
    }

    void badRowCountsAndCellsAreRefused()
    {
        m_grid->setTextMatrix(1, 1, u"甲"_s);
        QVERIFY(!m_grid->setRows(-1));
        QCOMPARE(m_grid->lastError(), int(VekGrid::kErrInvalidValue));
        QCOMPARE(m_grid->Rows(), 4);
        QCOMPARE(m_grid->TextMatrix(0, 1), u"名称"_s);
        QVERIFY(!m_grid->setDefaultRows(-3));
        QCOMPARE(m_grid->DefaultRows(), qint16(0));
        QCOMPARE(m_grid->Rows(), 4);
        QVERIFY(m_grid->setRows(0)); // no rows at all is a grid too
        QCOMPARE(m_grid->lastError(), 0);
        QVERIFY(m_grid->setRows(4));

        int events = 0;
        connect(m_grid.get(), &VekGrid::ChangedByProgram, this, [&] { ++events; });
        QVERIFY(!m_grid->setTextMatrix(9, 1, u"x"_s));
        QCOMPARE(m_grid->lastError(), int(VekGrid::kErrSubscript));
        QVERIFY(Module1::ErrDescription().contains(u"381"_s));
        QVERIFY(!m_grid->setTextMatrix(1, -1, u"x"_s));
        QCOMPARE(events, 0);
        QVERIFY(m_grid->setTextMatrix(1, 1, u"乙"_s));
        QCOMPARE(m_grid->lastError(), 0);
        QCOMPARE(events, 1);
    }

    // Regression: setCols(-1) emptied the grid while setRows(-1) was refused; Col, FixedRows, FixedCols,
    // ColWidth and RowHeight outside the grid were ignored or clamped without a word; RemoveItem of the heading
    // turned the first record into the heading.
    void badColumnsAndSizesAreRefusedLikeRows()
    {
        m_grid->setTextMatrix(1, 1, u"甲"_s);
        const auto refused = [this](bool ok, int error) {
            QVERIFY(!ok);
            QCOMPARE(m_grid->lastError(), error);
        };
        refused(m_grid->setCols(-1), VekGrid::kErrInvalidValue);
        QCOMPARE(m_grid->Cols(), 3);
        refused(m_grid->setCol(3), 387);
        refused(m_grid->setCol(-1), 387);
        QVERIFY(m_grid->setCol(2));
        QCOMPARE(m_grid->col(), 2);
        refused(m_grid->setFixedRows(5), VekGrid::kErrInvalidValue);
        refused(m_grid->setFixedCols(4), VekGrid::kErrInvalidValue);
        QCOMPARE(m_grid->FixedRows(), 1);
        QCOMPARE(m_grid->FixedCols(), 1);
        refused(m_grid->setColWidth(3, 500), VekGrid::kErrSubscript);
        refused(m_grid->setColWidth(1, -2), VekGrid::kErrInvalidValue);
        refused(m_grid->setRowHeight(4, 300), VekGrid::kErrSubscript);
        refused(m_grid->setRowHeight(1, -1), VekGrid::kErrInvalidValue);
        refused(m_grid->RemoveItem(0), VekGrid::kErrSubscript);
        refused(m_grid->RemoveItem(4), VekGrid::kErrSubscript);
        QCOMPARE(m_grid->Rows(), 4);
        QCOMPARE(m_grid->TextMatrix(0, 1), u"名称"_s);
        QCOMPARE(m_grid->TextMatrix(1, 1), u"甲"_s);
        QVERIFY(m_grid->RemoveItem(1));
        QCOMPARE(m_grid->lastError(), 0);
        QCOMPARE(m_grid->TextMatrix(0, 1), u"名称"_s);
    }

    // Regression: a width set in twips read back rounded through pixels (400 came back as 405) and was saved so.
    void sizesReadBackAsSet()
    {
        QVERIFY(m_grid->setColWidth(0, 400));
        QCOMPARE(m_grid->ColWidth(0), 400);
        QVERIFY(m_grid->setColWidth(1, 400));
        QCOMPARE(m_grid->ColWidth(1), 400);
        QVERIFY(m_grid->setRowHeight(1, 333));
        QCOMPARE(m_grid->RowHeight(1), 333);
        QVERIFY(m_grid->setRowHeight(-1, 301));
        QCOMPARE(m_grid->RowHeight(2), 301);
        // Resized by other means, the size reads as it is now.
        m_grid->Flexgd1->setColumnWidth(1, 50);
        QCOMPARE(m_grid->ColWidth(1), m_grid->Flexgd1->pixelsToTwipsX(50));
    }

    // Regression: the view's type-to-search moved the current cell to the next one starting with the typed
    // letter, or onto the heading; a typed character is only reported.
    void typingKeepsTheCurrentCell()
    {
        m_grid->setTextMatrix(1, 1, u"apple"_s);
        m_grid->setTextMatrix(2, 1, u"x"_s);
        m_grid->setTextMatrix(3, 1, u"banana"_s);
        m_grid->setRow(1);
        m_grid->setCol(1);
        m_grid->Flexgd1->setFocus();
        QList<qint16> typed;
        connect(m_grid.get(), &VekGrid::KeyPress, this, [&](qint16 code) { typed << code; });
        QTest::keyClick(m_grid->Flexgd1, Qt::Key_B);
        QTest::keyClick(m_grid->Flexgd1, Qt::Key_X);
        QCOMPARE(m_grid->Row(), 1);
        QCOMPARE(m_grid->col(), 1);
        QCOMPARE(typed, (QList<qint16> {qint16('b'), qint16('x')}));
        QTest::keyClick(m_grid->Flexgd1, Qt::Key_Return);
        QVERIFY(editorOpen());
    }

    // Regression: Tab at the last cell moved the focus to the hidden editor, which handed it back to the grid,
    // and Shift+Tab at the first cell wrapped to the last: a keyboard-only clerk could not leave the grid.
    void tabLeavesTheGridAtItsEnds()
    {
        QWidget form;
        auto *before = new QLineEdit(&form);
        auto *grid = new VekGrid(&form);
        auto *after = new QLineEdit(&form);
        grid->setFormatString(u"序号|名称|单价"_s);
        grid->setRows(3);
        before->setGeometry(0, 0, 100, 20);
        grid->setGeometry(0, 30, 400, 200);
        after->setGeometry(0, 240, 100, 20);
        form.resize(420, 280);
        form.show();
        QVERIFY(QTest::qWaitForWindowExposed(&form));
        form.activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&form));
        const auto focusWidget = [] {
            return QApplication::focusWidget();
        };
        grid->setRow(1);
        grid->setCol(1);
        grid->Flexgd1->setFocus();
        QTRY_COMPARE(focusWidget(), static_cast<QWidget *>(grid->Flexgd1));
        // Forward through the cells: (1,2), (2,1), (2,2), then out.
        for (const auto &[row, col] : {std::pair {1, 2}, {2, 1}, {2, 2}}) {
            QTest::keyClick(focusWidget(), Qt::Key_Tab);
            QCOMPARE(focusWidget(), static_cast<QWidget *>(grid->Flexgd1));
            QCOMPARE(grid->Row(), row);
            QCOMPARE(grid->col(), col);
        }
        QTest::keyClick(focusWidget(), Qt::Key_Tab);
        QTRY_COMPARE(focusWidget(), static_cast<QWidget *>(after));
        QTest::qWait(20); // a focus handed back later would show now
        QCOMPARE(focusWidget(), static_cast<QWidget *>(after));
        // Backward from the first data cell leaves to the control before the grid.
        grid->setRow(1);
        grid->setCol(1);
        grid->Flexgd1->setFocus();
        QTest::keyClick(focusWidget(), Qt::Key_Backtab, Qt::ShiftModifier);
        QTRY_COMPARE(focusWidget(), static_cast<QWidget *>(before));
        QTest::qWait(20);
        QCOMPARE(focusWidget(), static_cast<QWidget *>(before));
        QVERIFY(!grid->txtEdit->hasFocus());
    }

    // Tab in an open editor leaves the cell as a click elsewhere does: nothing is stored and the editor hides.
    void tabInTheEditorDiscardsTheEdit()
    {
        openEditor(1, 1);
        QVERIFY(editorOpen());
        QTest::keyClick(m_grid->txtEdit, Qt::Key_Z);
        QTest::keyClick(m_grid->txtEdit, Qt::Key_Tab);
        QVERIFY(m_grid->txtEdit->x() < 0);
        QVERIFY(!m_grid->txtEdit->hasFocus());
        QCOMPARE(m_grid->TextMatrix(1, 1), QString());
    }

    // Regression: the editor stayed where it was while the wheel or a scroll bar moved the cells under it, and
    // Enter then wrote into a row the clerk could not see; Enter on a current cell out of view opened the editor
    // outside the control.
    void editorNeverOutlivesAScroll()
    {
        m_grid->setRows(60);
        for (int row = 1; row < 60; ++row) {
            m_grid->setTextMatrix(row, 1, u"行%1"_s.arg(row));
        }
        openEditor(2, 1);
        QVERIFY(editorOpen());
        m_grid->txtEdit->setText(u"改了"_s);
        QWheelEvent wheel(QPointF(100, 100), m_grid->Flexgd1->viewport()->mapToGlobal(QPointF(100, 100)), QPoint(),
                          QPoint(0, -240), Qt::NoButton, Qt::NoModifier, Qt::NoScrollPhase, false);
        QApplication::sendEvent(m_grid->Flexgd1->viewport(), &wheel);
        QVERIFY(m_grid->Flexgd1->verticalScrollBar()->value() > 0);
        QVERIFY(m_grid->txtEdit->x() < 0);
        QVERIFY(m_grid->Flexgd1->hasFocus());
        QTest::keyClick(m_grid->Flexgd1, Qt::Key_Escape);
        QCOMPARE(m_grid->TextMatrix(2, 1), u"行2"_s);

        // A scroll bar moved by the clerk ends the edit the same way.
        m_grid->Flexgd1->verticalScrollBar()->setValue(0);
        openEditor(2, 1);
        QVERIFY(editorOpen());
        m_grid->Flexgd1->verticalScrollBar()->triggerAction(QAbstractSlider::SliderPageStepAdd);
        QVERIFY(m_grid->txtEdit->x() < 0);
        QCOMPARE(m_grid->TextMatrix(2, 1), u"行2"_s);

        // The current cell far below the view: Enter brings it into view and opens the editor over it.
        m_grid->setRow(50);
        m_grid->setCol(1);
        m_grid->Flexgd1->verticalScrollBar()->setValue(0);
        m_grid->Flexgd1->setFocus();
        QTest::keyClick(m_grid->Flexgd1, Qt::Key_Return);
        QVERIFY(editorOpen());
        const QRect editor = m_grid->txtEdit->geometry();
        QVERIFY2(m_grid->rect().contains(editor),
                 qPrintable(u"%1,%2 %3x%4"_s.arg(editor.x()).arg(editor.y()).arg(editor.width()).arg(editor.height())));
        QCOMPARE(m_grid->txtEdit->text(), u"行50"_s);
        QTest::keyClick(m_grid->txtEdit, Qt::Key_A);
        QTest::keyClick(m_grid->txtEdit, Qt::Key_Return);
        QCOMPARE(m_grid->TextMatrix(50, 1), u"a"_s);
    }

    // PageDown, End, arrows and Home move the current cell as a clerk expects, with no editor left behind.
    void navigationKeysOnALargeGrid()
    {
        m_grid->setRows(200);
        m_grid->setRow(1);
        m_grid->setCol(1);
        m_grid->Flexgd1->setFocus();
        QTest::keyClick(m_grid->Flexgd1, Qt::Key_PageDown);
        QVERIFY(m_grid->Row() > 1);
        QTest::keyClick(m_grid->Flexgd1, Qt::Key_End, Qt::ControlModifier);
        QCOMPARE(m_grid->Row(), 199);
        QVERIFY(m_grid->Flexgd1->verticalScrollBar()->value() > 0);
        QTest::keyClick(m_grid->Flexgd1, Qt::Key_Home, Qt::ControlModifier);
        QCOMPARE(m_grid->Row(), 1);
        QCOMPARE(m_grid->col(), 1);
        QTest::keyClick(m_grid->Flexgd1, Qt::Key_Up);
        QCOMPARE(m_grid->Row(), 1); // the heading is never current by the keys
        QTest::keyClick(m_grid->Flexgd1, Qt::Key_Right);
        QCOMPARE(m_grid->col(), 2);
        QVERIFY(m_grid->txtEdit->x() < 0);
    }

    // Regression: MouseMove over the data cells came only while a button was held.
    void mouseMoveIsReportedWithoutAButton()
    {
        QSignalSpy moves(m_grid.get(), &VekGrid::MouseMove);
        QWidget *cells = m_grid->Flexgd1->viewport();
        // Through the window, as the windowing system delivers a move: only to a widget that tracks the mouse.
        QWindow *window = m_grid->window()->windowHandle();
        QTest::mouseMove(window, cells->mapTo(m_grid->window(), QPoint(60, 40)));
        QTest::mouseMove(window, cells->mapTo(m_grid->window(), QPoint(80, 50)));
        QTRY_VERIFY(moves.count() >= 1);
        QCOMPARE(moves.constLast().at(0).value<qint16>(), qint16(0));
    }

    // Regression: MergeRow(0) and MergeCol(0), the merge flags the property bag keeps, never merged the fixed
    // rows and columns.
    void fixedRowsAndColumnsMerge()
    {
        m_grid->setFormatString(u"序号|单价|单价|名称"_s);
        m_grid->setRows(5);
        for (int row = 1; row < 5; ++row) {
            m_grid->setTextMatrix(row, 0, row < 3 ? u"甲组"_s : u"乙组"_s);
        }
        m_grid->Flexgd1->setMergeCells(1);
        m_grid->setMergeRow(0, true);
        m_grid->setMergeCol(0, true);
        const QList<QObject *> areas = m_grid->Flexgd1->cellAreas();
        auto *top = static_cast<QTableView *>(static_cast<QWidget *>(areas.at(1))->parentWidget());
        auto *left = static_cast<QTableView *>(static_cast<QWidget *>(areas.at(2))->parentWidget());
        QTRY_COMPARE(top->columnSpan(0, 1), 2);
        QCOMPARE(top->columnSpan(0, 3), 1);
        QCOMPARE(left->rowSpan(1, 0), 2);
        QCOMPARE(left->rowSpan(3, 0), 2);
    }

    // Regression: the editor of a merged block was the height of its top cell.
    void editorCoversAMergedBlock()
    {
        m_grid->setRows(5);
        for (int row = 1; row < 4; ++row) {
            m_grid->setTextMatrix(row, 1, u"同一"_s);
        }
        m_grid->Flexgd1->setMergeCells(1);
        m_grid->setMergeCol(1, true);
        QTRY_COMPARE(m_grid->Flexgd1->rowSpan(1, 1), 3);
        m_grid->setRow(1);
        m_grid->setCol(1);
        m_grid->Flexgd1->setFocus();
        QTest::keyClick(m_grid->Flexgd1, Qt::Key_Return);
        QVERIFY(editorOpen());
        const int block =
            m_grid->Flexgd1->twipsToPixelsY(m_grid->RowHeight(1) + m_grid->RowHeight(2) + m_grid->RowHeight(3));
        QVERIFY2(m_grid->txtEdit->height() >= block - 3,
                 qPrintable(u"%1 < %2"_s.arg(m_grid->txtEdit->height()).arg(block)));
    }

    void designModeRefusesGuardedProperties()
    {
        m_grid->setDesignMode(true);
        QVERIFY(!m_grid->setRow(1));
        QCOMPARE(m_grid->lastError(), 387);
        QVERIFY(!m_grid->setClip(u"x"_s));
        QVERIFY(!m_grid->setSetupFile(u"a.ini"_s));
        QCOMPARE(m_grid->SetupFile(), u"VekGrid.ini"_s);
        m_grid->setDesignMode(false);
        // At run time a row must be one of the grid's rows: 0 to Rows - 1.
        for (const qint32 row : {-1, m_grid->Rows(), 99}) {
            QVERIFY(!m_grid->setRow(row));
            QCOMPARE(m_grid->lastError(), 387);
        }
        QVERIFY(m_grid->setRow(m_grid->Rows() - 1));
        QCOMPARE(m_grid->lastError(), 0);
        QCOMPARE(m_grid->Row(), m_grid->Rows() - 1);
    }

    void fillByRecordSet()
    {
        auto db = CConnection::Open(u"sqlite::memory:"_s);
        QVERIFY(db);
        db->Execute(u"CREATE TABLE t (A TEXT, B TEXT, C INTEGER)"_s);
        db->Execute(u"INSERT INTO t VALUES ('x', NULL, 1), ('y', 'z', NULL)"_s);
        QSqlQuery query = db->Select(u"SELECT A, B, C FROM t ORDER BY A"_s);
        QString format;
        QVERIFY(m_grid->FillByRecordSet(query, format));
        QCOMPARE(m_grid->Rows(), 3);
        QCOMPARE(m_grid->TextMatrix(0, 1), u"B"_s);
        QCOMPARE(m_grid->Flexgd1->ColAlignment(1), int(FlexGridModel::AlignLeft));
        QCOMPARE(m_grid->TextMatrix(1, 1), QString());
        QCOMPARE(m_grid->TextMatrix(2, 1), u"z"_s);
        QCOMPARE(format, u"y\tz\t"_s); // the format variable is reused for the row text

        QSqlQuery empty = db->Select(u"SELECT A, B, C FROM t WHERE 0"_s);
        format.clear();
        QVERIFY(m_grid->FillByRecordSet(empty, format));
        QCOMPARE(format, u"A|<B|<C"_s);
        QCOMPARE(m_grid->Rows(), 1);

        db->Execute(u"INSERT INTO t VALUES (NULL, 'n', 2)"_s);
        QSqlQuery withNull = db->Select(u"SELECT A, B FROM t ORDER BY A DESC"_s);
        format.clear();
        QVERIFY(!m_grid->FillByRecordSet(withNull, format));
        QCOMPARE(m_prompt->lastText(), u"用记录集填充表格时发生错误!"_s);
        QCOMPARE(m_grid->Rows(), 3); // rows before the NULL stay
        QVERIFY(!m_grid->Flexgd1->Redraw());

        QSqlQuery closed;
        QVERIFY(!m_grid->FillByRecordSet(closed, format));
    }

    void fillByRecordSetWithAFormatOfOtherWidth()
    {
        auto db = CConnection::Open(u"sqlite::memory:"_s);
        QVERIFY(db);
        db->Execute(u"CREATE TABLE t (A TEXT, B TEXT, C TEXT)"_s);
        db->Execute(u"INSERT INTO t VALUES ('1', 'a', 'x'), ('2', 'b', 'y')"_s);
        // More columns than fields: the rows fill the leading columns.
        QSqlQuery query = db->Select(u"SELECT A, B, C FROM t ORDER BY A"_s);
        QString format = u"编号|名称|规格|备注"_s;
        QVERIFY(m_grid->FillByRecordSet(query, format));
        QCOMPARE(m_grid->Cols(), 4);
        QCOMPARE(m_grid->Rows(), 3);
        QCOMPARE(m_grid->TextMatrix(2, 2), u"y"_s);
        QCOMPARE(m_grid->TextMatrix(2, 3), QString());
        QVERIFY(m_grid->Flexgd1->Redraw());

        // Fewer columns than fields: no row has a place.
        QSqlQuery wider = db->Select(u"SELECT A, B, C FROM t ORDER BY A"_s);
        format = u"编号|名称"_s;
        QVERIFY(!m_grid->FillByRecordSet(wider, format));
        QCOMPARE(m_prompt->lastText(), u"用记录集填充表格时发生错误!"_s);
        QCOMPARE(m_grid->Rows(), 1);
        QCOMPARE(m_grid->TextMatrix(0, 1), u"名称"_s);

        // Without records nothing has to fit: the header alone.
        QSqlQuery none = db->Select(u"SELECT A, B, C FROM t WHERE 0"_s);
        format = u"编号|名称"_s;
        QVERIFY(m_grid->FillByRecordSet(none, format));
        QCOMPARE(m_grid->Rows(), 1);
    }

    void fillByRecordSetShowsValuesAsText_data()
    {
        QTest::addColumn<QVariant>("value");
        QTest::addColumn<QString>("text");
        QTest::newRow("NULL") << QVariant(QMetaType::fromType<double>()) << QString();
        QTest::newRow("text") << QVariant(u"可乐"_s) << u"可乐"_s;
        QTest::newRow("integer") << QVariant(qlonglong(-42)) << u"-42"_s;
        QTest::newRow("binary fraction") << QVariant(0.1 + 0.2) << u"0.3"_s;
        QTest::newRow("price") << QVariant(3.5) << u"3.5"_s;
        QTest::newRow("whole double") << QVariant(12.0) << u"12"_s;
        QTest::newRow("large") << QVariant(1e20) << u"1E+20"_s;
        QTest::newRow("small") << QVariant(1.5e-7) << u"1.5E-07"_s;
        QTest::newRow("single") << QVariant(0.1f) << u"0.1"_s;
        QTest::newRow("boolean") << QVariant(true) << u"True"_s;
        QTest::newRow("date") << QVariant(QDate(2024, 5, 3)) << u"2024-05-03"_s;
        QTest::newRow("date at midnight") << QVariant(QDateTime(QDate(2024, 5, 3), QTime(0, 0))) << u"2024-05-03"_s;
        QTest::newRow("date and time") << QVariant(QDateTime(QDate(2024, 5, 3), QTime(14, 5, 9)))
                                       << u"2024-05-03 14:05:09"_s;
        QTest::newRow("amount") << QVariant::fromValue(*Currency::fromDouble(12.5)) << u"12.5"_s;
    }
    void fillByRecordSetShowsValuesAsText()
    {
        QFETCH(QVariant, value);
        QFETCH(QString, text);
        QCOMPARE(VekGrid::FieldText(value), text);
    }

    void fillByRecordSetWritesNumbersWithoutBinaryNoise()
    {
        auto db = CConnection::Open(u"sqlite::memory:"_s);
        QVERIFY(db);
        db->Execute(u"CREATE TABLE t (A TEXT, P REAL, Q INTEGER)"_s);
        db->Execute(u"INSERT INTO t VALUES ('a', 0.1 + 0.2, 7), ('b', 1e20, NULL)"_s);
        QSqlQuery query = db->Select(u"SELECT A, P, Q FROM t ORDER BY A"_s);
        QString format;
        QVERIFY(m_grid->FillByRecordSet(query, format));
        QCOMPARE(m_grid->TextMatrix(1, 1), u"0.3"_s);
        QCOMPARE(m_grid->TextMatrix(1, 2), u"7"_s);
        QCOMPARE(m_grid->TextMatrix(2, 1), u"1E+20"_s);
        QCOMPARE(m_grid->TextMatrix(2, 2), QString());
    }

    void fillByRecordSetStartsAtTheFirstRecord()
    {
        auto db = CConnection::Open(u"sqlite::memory:"_s);
        QVERIFY(db);
        db->Execute(u"CREATE TABLE t (A TEXT, B TEXT)"_s);
        db->Execute(u"INSERT INTO t VALUES ('1', 'a'), ('2', 'b'), ('3', 'c')"_s);
        QSqlQuery query = db->Select(u"SELECT A, B FROM t ORDER BY A"_s);
        QVERIFY(query.next());
        QVERIFY(query.next()); // the caller has read on
        QString format;
        QVERIFY(m_grid->FillByRecordSet(query, format));
        QCOMPARE(m_grid->Rows(), 4);
        QCOMPARE(m_grid->TextMatrix(1, 0), u"1"_s);

        QSqlQuery scrollable(db->database());
        QVERIFY(scrollable.exec(u"SELECT A, B FROM t ORDER BY A"_s));
        QVERIFY(scrollable.last());
        format.clear();
        QVERIFY(m_grid->FillByRecordSet(scrollable, format));
        QCOMPARE(m_grid->Rows(), 4);
    }

    void removeColShiftsWidthsAndTexts()
    {
        m_grid->setFormatString(u"甲|乙|丙"_s);
        m_grid->AddItem(u"1\t2\t3"_s);
        m_grid->setColWidth(1, 900);
        m_grid->setColWidth(2, 1800);
        qint32 col = 1;
        m_grid->RemoveCol(col);
        QCOMPARE(m_grid->Cols(), 2);
        QCOMPARE(m_grid->TextMatrix(0, 1), u"丙"_s);
        QCOMPARE(m_grid->ColWidth(1), 1800);
        col = -1;
        QVERIFY(!m_grid->RemoveCol(col));
        QCOMPARE(m_prompt->lastText(), u"该列不能删除！"_s);
        QCOMPARE(m_grid->Cols(), 2);
        QCOMPARE(m_grid->TextMatrix(0, 0), u"甲"_s);
        QCOMPARE(m_grid->ColWidth(1), 1800);
        m_grid->setCols(1);
        col = 0;
        QVERIFY(!m_grid->RemoveCol(col));
        QCOMPARE(m_prompt->lastText(), u"该列不能删除！"_s);
        QCOMPARE(m_grid->Cols(), 1);
    }

    void removeColShiftsEachWidthOnce()
    {
        m_grid->setFormatString(u"0|1|2|3|4"_s);
        for (qint32 c = 0; c < 5; ++c) {
            m_grid->setColWidth(c, 300 * (c + 1));
        }
        qint32 col = 1;
        m_grid->RemoveCol(col);
        QCOMPARE(m_grid->Cols(), 4);
        QCOMPARE(m_grid->ColWidth(0), 300);
        QCOMPARE(m_grid->ColWidth(1), 900);
        QCOMPARE(m_grid->ColWidth(2), 1200);
        QCOMPARE(m_grid->ColWidth(3), 1500);
        QCOMPARE(m_grid->TextMatrix(0, 3), u"4"_s);
    }

    void removeColBeyondTheLastDropsTheLast()
    {
        m_grid->setFormatString(u"甲|乙|丙"_s);
        qint32 col = 7;
        m_grid->RemoveCol(col);
        QCOMPARE(m_grid->Cols(), 2);
        QCOMPARE(m_grid->TextMatrix(0, 1), u"乙"_s);
    }

    void printingLaysRowsOutOnPages()
    {
        QTemporaryDir dir;
        m_grid->setRows(1);
        for (int i = 0; i < 200; ++i) {
            m_grid->AddItem(QString::number(i) + u"\t商品名称\t3.50"_s);
        }
        QPdfWriter pdf(dir.filePath(u"grid.pdf"_s));
        const int pages = m_grid->renderPages(&pdf, u"商品清单"_s);
        QVERIFY2(pages > 1, qPrintable(QString::number(pages)));
        QVERIFY(QFileInfo(dir.filePath(u"grid.pdf"_s)).size() > 1000);
    }

    void removeItemKeepsTheLastRows()
    {
        m_grid->setKeepLastRows(2);
        m_grid->setRows(3);
        m_grid->RemoveItem(2);
        QCOMPARE(m_grid->Rows(), 3);
        m_grid->setKeepLastRows(0);
        m_grid->RemoveItem(2);
        QCOMPARE(m_grid->Rows(), 2);
    }
};

QTEST_MAIN(VekGridTest)
#include "tst_vekgrid.moc"
