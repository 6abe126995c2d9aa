#include "cconnection.h"
#include "module1.h"
#include "prompt.h"
#include "vekgrid.h"

#include <QAction>
#include <QFileInfo>
#include <QLineEdit>
#include <QPdfWriter>
#include <QSignalSpy>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QTest>

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
        const QModelIndex index = g->model()->index(row - g->FixedRows(), col - g->FixedCols());
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

        Module1::SetIniString(u"商品"_s, u"少"_s, ini, u"600;"_s);
        QVERIFY(m_grid->SaveOrReadColWidth(u"商品"_s, u"少"_s, true));
        QCOMPARE(m_grid->ColWidth(0), 600);
        QCOMPARE(m_grid->ColWidth(2), 900);

        Module1::SetIniString(u"商品"_s, u"坏"_s, ini, u"705;abc;810"_s);
        QVERIFY(!m_grid->SaveOrReadColWidth(u"商品"_s, u"坏"_s, true));
        QCOMPARE(m_grid->ColWidth(0), 705);
        QCOMPARE(m_grid->ColWidth(1), 1200);

        m_grid->setIsDemo(true);
        QVERIFY(m_grid->SaveOrReadColWidth(u"演示"_s, u"列宽"_s, false));
        QCOMPARE(Module1::GetIniString(u"演示"_s, u"列宽"_s, ini, u"none"_s), u"none"_s);
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

    void designModeRefusesGuardedProperties()
    {
        m_grid->setDesignMode(true);
        QVERIFY(!m_grid->setRow(1));
        QCOMPARE(m_grid->lastError(), 387);
        QVERIFY(!m_grid->setClip(u"x"_s));
        QVERIFY(!m_grid->setSetupFile(u"a.ini"_s));
        QCOMPARE(m_grid->SetupFile(), u"VekGrid.ini"_s);
        m_grid->setDesignMode(false);
        QVERIFY(!m_grid->setRow(99));
        QCOMPARE(m_grid->lastError(), 387);
        QVERIFY(m_grid->setRow(2));
        QCOMPARE(m_grid->lastError(), 0);
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
        m_grid->setCols(1);
        col = 0;
        m_grid->RemoveCol(col);
        QCOMPARE(m_prompt->lastText(), u"该列不能删除！"_s);
        QCOMPARE(m_grid->Cols(), 1);
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
