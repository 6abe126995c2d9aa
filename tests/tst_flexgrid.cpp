#include "flexgrid.h"
#include "olecolor.h"

#include <QAbstractItemModelTester>
#include <QHeaderView>
#include <QRandomGenerator>
#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;

class FlexGridTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void fixedRowsAndColumnsAreRealCells()
    {
        FlexGrid grid;
        QAbstractItemModelTester tester(grid.model(), QAbstractItemModelTester::FailureReportingMode::QtTest);
        grid.setFormatString(u"编号|<名称|>单价"_s);
        grid.AddItem(u"1\t可乐\t3.5"_s);
        QCOMPARE(grid.Rows(), 3);
        QCOMPARE(grid.model()->columnCount(), 3);
        QCOMPARE(grid.model()->data(grid.model()->index(0, 1)).toString(), u"名称"_s);
        // The scrolling cells do not show the fixed ones: those are drawn at the edges.
        QVERIFY(grid.isRowHidden(0));
        QVERIFY(grid.isColumnHidden(0));
        QVERIFY(!grid.isRowHidden(1));

        grid.setFixedCols(0);
        QVERIFY(!grid.isColumnHidden(0));
        grid.setFixedRows(2);
        QVERIFY(grid.isRowHidden(1));
        grid.setFixedRows(1);
        QVERIFY(!grid.isRowHidden(1));
        // An insertion above the fixed rows leaves exactly the fixed rows hidden.
        grid.AddItem(u"x"_s, 0);
        QVERIFY(grid.isRowHidden(0));
        QVERIFY(!grid.isRowHidden(1));

        grid.RemoveItem(0);
        grid.setRows(6);
        grid.AddItem(u"x"_s, 1);
        grid.setCols(1);
        grid.setRows(0);
        QCOMPARE(grid.model()->rowCount(), 0);
    }

    void equalNeighboursAreMerged()
    {
        FlexGrid grid;
        grid.setFormatString(u"类别|名称|单位"_s);
        grid.setFixedCols(0);
        grid.setRows(1);
        for (const char16_t *row : {u"饮料\t可乐\t瓶", u"饮料\t雪碧\t瓶", u"饮料\t橙汁\t橙汁", u"食品\t饼干\t\t"}) {
            grid.AddItem(QString::fromUtf16(row));
        }
        grid.resize(400, 300);
        grid.show();
        QVERIFY(QTest::qWaitForWindowExposed(&grid));
        grid.setMergeCol(0, true);
        grid.setMergeRow(3, true);
        grid.setMergeCells(1);
        QCOMPARE(grid.rowSpan(1, 0), 3);
        QCOMPARE(grid.rowSpan(4, 0), 1);
        QCOMPARE(grid.columnSpan(3, 1), 2); // 橙汁 | 橙汁 on the row marked for merging
        QCOMPARE(grid.columnSpan(1, 1), 1); // rows not marked stay apart
        QCOMPARE(grid.columnSpan(4, 2), 1); // empty cells never merge

        grid.setTextMatrix(3, 0, u"酒水"_s);
        QTRY_COMPARE(grid.rowSpan(1, 0), 2);
        grid.setMergeCells(3); // columns only
        QCOMPARE(grid.columnSpan(3, 1), 1);
        grid.setMergeCells(0);
        QCOMPARE(grid.rowSpan(1, 0), 1);
    }

    void currentCellFollowsRowAndCol()
    {
        FlexGrid grid;
        grid.setRows(5);
        grid.setCols(4);
        grid.resize(400, 300);
        grid.show();
        QVERIFY(QTest::qWaitForWindowExposed(&grid));
        QSignalSpy moved(&grid, &FlexGrid::RowColChange);
        grid.setRow(3);
        grid.setCol(2);
        QCOMPARE(moved.count(), 2);
        QCOMPARE(grid.currentIndex(), grid.model()->index(3, 2));

        const QRect cell = grid.visualRect(grid.model()->index(1, 3));
        QTest::mouseClick(grid.viewport(), Qt::LeftButton, {}, cell.center());
        QCOMPARE(grid.Row(), 1);
        QCOMPARE(grid.Col(), 3);
        QCOMPARE(moved.count(), 3);
        QVERIFY(grid.CellLeft() > 0);

        grid.setRow(99); // outside: ignored
        QCOMPARE(grid.Row(), 1);
    }

    void sizesAreInTwips()
    {
        FlexGrid grid;
        grid.setCols(3);
        grid.setColWidth(1, 1440);
        QCOMPARE(grid.ColWidth(1), 1440);
        QCOMPARE(grid.columnWidth(1), grid.logicalDpiX());
        grid.setRowHeight(1, 720);
        QVERIFY(qAbs(grid.RowHeight(1) - 720) <= 15);
        QCOMPARE(grid.ColWidth(9), 0);

        // Column or row -1 is every column or row, the fixed ones too.
        grid.setRows(3);
        grid.setFixedCols(1);
        grid.setColWidth(-1, 720);
        for (int c = 0; c < 3; ++c) {
            QCOMPARE(grid.ColWidth(c), 720);
        }
        grid.setRowHeight(-1, 360);
        for (int r = 0; r < 3; ++r) {
            QVERIFY2(qAbs(grid.RowHeight(r) - 360) <= 15, qPrintable(QString::number(grid.RowHeight(r))));
        }
        grid.setColWidth(-2, 100); // no such column: ignored
        QCOMPARE(grid.ColWidth(0), 720);
    }

    void clipUsesTheSelectedBlock()
    {
        FlexGrid grid;
        grid.setRows(4);
        grid.setCols(3);
        grid.setRow(1);
        grid.setCol(1);
        grid.setClip(u"a\tb\rc\td"_s);
        QCOMPARE(grid.TextMatrix(2, 2), u"d"_s);
        grid.setRowSel(2);
        grid.setColSel(2);
        QCOMPARE(grid.Clip(), u"a\tb\rc\td"_s);
    }

    void propertiesAreReachableByName()
    {
        // Exports and colour schemes reach any grid only through its named properties.
        FlexGrid grid;
        QObject *object = &grid;
        QVERIFY(object->setProperty("Rows", 3));
        QVERIFY(object->setProperty("Cols", 2));
        QCOMPARE(object->property("Rows").toInt(), 3);
        QVERIFY(QMetaObject::invokeMethod(object, "setTextMatrix", Q_ARG(qint32, 2), Q_ARG(qint32, 1),
                                          Q_ARG(QString, u"金额"_s)));
        QString text;
        QVERIFY(QMetaObject::invokeMethod(object, "TextMatrix", Q_RETURN_ARG(QString, text), Q_ARG(qint32, 2),
                                          Q_ARG(qint32, 1)));
        QCOMPARE(text, u"金额"_s);
        QVERIFY(object->setProperty("BackColorFixed", 0xC0E0FFu));
        QCOMPARE(object->property("BackColorFixed").toUInt(), 0xC0E0FFu);
        QVERIFY(grid.findChildren<QTableView *>().constFirst()->styleSheet().contains(u"#ffe0c0"_s));
    }

    void oleColours_data()
    {
        QTest::addColumn<quint32>("value");
        QTest::addColumn<QColor>("color");
        QTest::newRow("red") << 0x0000FFu << QColor(255, 0, 0);
        QTest::newRow("bgr order") << 0xC0E0FFu << QColor(0xFF, 0xE0, 0xC0);
        QTest::newRow("tooltip") << 0x80000018u << QGuiApplication::palette().color(QPalette::ToolTipBase);
    }
    void oleColours()
    {
        QFETCH(quint32, value);
        QFETCH(QColor, color);
        QCOMPARE(OleColor::toColor(value), color);
        if (!(value & 0x80000000u)) {
            QCOMPARE(OleColor::fromColor(color), value);
        }
    }

    void viewStaysConsistentUnderRandomReshaping()
    {
        // The tester checks every change the model passes on.
        FlexGrid grid;
        QAbstractItemModelTester tester(grid.model(), QAbstractItemModelTester::FailureReportingMode::QtTest);
        QRandomGenerator rng(4242);
        for (int step = 0; step < 400; ++step) {
            const int op = rng.bounded(7);
            if (qEnvironmentVariableIsSet("TRACE_RESHAPE")) {
                qWarning("step %d op %d rows %d cols %d fixed %d/%d", step, op, grid.Rows(), grid.Cols(),
                         grid.FixedRows(), grid.FixedCols());
            }
            switch (op) {
            case 0:
                grid.setRows(rng.bounded(8));
                break;
            case 1:
                grid.setCols(rng.bounded(6));
                break;
            case 2:
                grid.setFixedRows(rng.bounded(3));
                break;
            case 3:
                grid.setFixedCols(rng.bounded(3));
                break;
            case 4:
                grid.AddItem(u"a\tb\tc"_s, rng.bounded(-1, grid.Rows() + 1));
                break;
            case 5:
                grid.RemoveItem(rng.bounded(std::max(1, grid.Rows())));
                break;
            default:
                grid.setTextMatrix(rng.bounded(8), rng.bounded(6), QString::number(step));
                break;
            }
            QCOMPARE(grid.model()->rowCount(), grid.Rows());
            QCOMPARE(grid.model()->columnCount(), grid.Cols());
            // Exactly the fixed rows and columns are left out of the scrolling cells.
            for (int r = 0; r < grid.Rows(); ++r) {
                QCOMPARE(grid.isRowHidden(r), r < grid.FixedRows());
            }
            for (int c = 0; c < grid.Cols(); ++c) {
                QCOMPARE(grid.isColumnHidden(c), c < grid.FixedCols());
            }
        }
    }

    void aMillionRowsStayUsable()
    {
        FlexGrid grid;
        grid.setCols(4);
        grid.setRows(1000001);
        grid.setTextMatrix(1000000, 3, u"最后"_s);
        grid.resize(400, 300);
        grid.show();
        QVERIFY(QTest::qWaitForWindowExposed(&grid));
        grid.scrollToBottom();
        grid.setRow(1000000);
        grid.setCol(3);
        QCOMPARE(grid.currentIndex().data().toString(), u"最后"_s);
    }
};

QTEST_MAIN(FlexGridTest)
#include "tst_flexgrid.moc"
