#include "flexgridmodel.h"

#include <QAbstractItemModelTester>
#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;

class FlexGridModelTest : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<FlexGridModel> m_grid;
    std::unique_ptr<QAbstractItemModelTester> m_tester;

    QStringList row(qint32 r) const
    {
        QStringList out;
        for (qint32 c = 0; c < m_grid->Cols(); ++c) {
            out.append(m_grid->TextMatrix(r, c));
        }
        return out;
    }

private Q_SLOTS:
    void init()
    {
        m_grid = std::make_unique<FlexGridModel>();
        m_tester = std::make_unique<QAbstractItemModelTester>(m_grid.get(),
                                                              QAbstractItemModelTester::FailureReportingMode::QtTest);
    }
    void cleanup()
    {
        m_tester.reset();
        m_grid.reset();
    }

    void startsAsTwoByTwoWithOneFixedRowAndColumn()
    {
        QCOMPARE(m_grid->Rows(), 2);
        QCOMPARE(m_grid->Cols(), 2);
        QCOMPARE(m_grid->FixedRows(), 1);
        QCOMPARE(m_grid->FixedCols(), 1);
        QCOMPARE(m_grid->TextMatrix(1, 1), QString());
    }

    void textMatrixStaysInsideTheGrid()
    {
        QSignalSpy changed(m_grid.get(), &QAbstractItemModel::dataChanged);
        QVERIFY(m_grid->setTextMatrix(1, 1, u"可乐"_s));
        QCOMPARE(changed.count(), 1);
        QCOMPARE(changed.at(0).at(0).toModelIndex(), m_grid->index(1, 1));
        QCOMPARE(changed.at(0).at(1).toModelIndex(), m_grid->index(1, 1));
        QVERIFY(m_grid->setTextMatrix(1, 1, u"可乐"_s));
        QCOMPARE(changed.count(), 1); // unchanged text, no notice
        QVERIFY(!m_grid->setTextMatrix(2, 0, u"x"_s));
        QVERIFY(!m_grid->setTextMatrix(0, -1, u"x"_s));
        QCOMPARE(m_grid->TextMatrix(5, 5), QString());
        QCOMPARE(m_grid->data(m_grid->index(1, 1)).toString(), u"可乐"_s);
    }

    void cellsKeepTheirTextsThroughNeighbourChanges()
    {
        m_grid->setCols(5);
        m_grid->setRows(3);
        const QStringList texts = {u"a"_s, QString(), u"长一点的文字"_s, u"\t"_s, u"e"_s};
        for (int c = 0; c < 5; ++c) {
            m_grid->setTextMatrix(2, c, texts[c]);
        }
        QCOMPARE(row(2), texts);
        m_grid->setTextMatrix(2, 2, QString());
        m_grid->setTextMatrix(2, 0, u"AAAA"_s);
        QCOMPARE(row(2), (QStringList {u"AAAA"_s, QString(), QString(), u"\t"_s, u"e"_s}));
        // Narrowing drops the cells beyond; widening again shows them empty.
        m_grid->setCols(2);
        m_grid->setCols(5);
        QCOMPARE(row(2), (QStringList {u"AAAA"_s, QString(), QString(), QString(), QString()}));
    }

    void addItemSplitsAtTabs()
    {
        m_grid->setCols(3);
        QVERIFY(m_grid->AddItem(u"1\t可口可乐\t3.5\textra"_s));
        QCOMPARE(m_grid->Rows(), 3);
        QCOMPARE(row(2), (QStringList {u"1"_s, u"可口可乐"_s, u"3.5"_s}));
        QVERIFY(m_grid->AddItem(u"0\t\t"_s, 1));
        QCOMPARE(row(1), (QStringList {u"0"_s, QString(), QString()}));
        QCOMPARE(row(3), (QStringList {u"1"_s, u"可口可乐"_s, u"3.5"_s}));
        QVERIFY(!m_grid->AddItem(u"x"_s, 9));
        QVERIFY(m_grid->RemoveItem(1));
        QCOMPARE(row(2), (QStringList {u"1"_s, u"可口可乐"_s, u"3.5"_s}));
        QVERIFY(!m_grid->RemoveItem(3));
    }

    void addColItemFillsTopToBottom()
    {
        m_grid->AddColItem(u"金额\t12"_s);
        QCOMPARE(m_grid->Cols(), 3);
        QCOMPARE(m_grid->TextMatrix(0, 2), u"金额"_s);
        QCOMPARE(m_grid->TextMatrix(1, 2), u"12"_s);
    }

    void formatStringSetsHeadingsAndAlignment()
    {
        m_grid->setFixedRows(0);
        m_grid->setFormatString(u"编号|<名称|^规格|>单价"_s);
        QCOMPARE(m_grid->Cols(), 4);
        QCOMPARE(m_grid->FixedRows(), 1);
        QCOMPARE(row(0), (QStringList {u"编号"_s, u"名称"_s, u"规格"_s, u"单价"_s}));
        QCOMPARE(m_grid->ColAlignment(0), int(FlexGridModel::AlignGeneral));
        QCOMPARE(m_grid->ColAlignment(1), int(FlexGridModel::AlignLeft));
        QCOMPARE(m_grid->ColAlignment(2), int(FlexGridModel::AlignCenter));
        QCOMPARE(m_grid->ColAlignment(3), int(FlexGridModel::AlignRight));
        QCOMPARE(m_grid->FormatString(), u"编号|<名称|^规格|>单价"_s);

        m_grid->setFormatString(u"|甲|乙;|一|二|三"_s);
        QCOMPARE(m_grid->Rows(), 4);
        QCOMPARE(m_grid->TextMatrix(3, 0), u"三"_s);
        QCOMPARE(m_grid->TextMatrix(0, 2), u"乙"_s);
    }

    // Column -1 is every column, with one notice over the whole grid.
    void alignmentOfColumnMinusOneIsEveryColumns()
    {
        m_grid->setCols(3);
        m_grid->setRows(4);
        QSignalSpy changed(m_grid.get(), &QAbstractItemModel::dataChanged);
        m_grid->setColAlignment(-1, FlexGridModel::AlignCenter);
        m_grid->setFixedAlignment(-1, FlexGridModel::AlignRight);
        for (int c = 0; c < 3; ++c) {
            QCOMPARE(m_grid->ColAlignment(c), int(FlexGridModel::AlignCenter));
            QCOMPARE(m_grid->FixedAlignment(c), int(FlexGridModel::AlignRight));
        }
        QCOMPARE(changed.count(), 2);
        QCOMPARE(changed.at(0).at(0).toModelIndex(), m_grid->index(0, 0));
        QCOMPARE(changed.at(0).at(1).toModelIndex(), m_grid->index(3, 2));
        m_grid->setColAlignment(-2, FlexGridModel::AlignLeft); // no such column
        QCOMPARE(m_grid->ColAlignment(0), int(FlexGridModel::AlignCenter));
        QCOMPARE(changed.count(), 2);
    }

    void generalAlignmentFollowsTheText()
    {
        m_grid->setTextMatrix(1, 1, u"1,234.50"_s);
        const auto numeric = m_grid->data(m_grid->index(1, 1), Qt::TextAlignmentRole).value<Qt::Alignment>();
        QVERIFY(numeric & Qt::AlignRight);
        m_grid->setTextMatrix(1, 1, u"箱"_s);
        const auto text = m_grid->data(m_grid->index(1, 1), Qt::TextAlignmentRole).value<Qt::Alignment>();
        QVERIFY(text & Qt::AlignLeft);
    }

    void clipRoundTripsASpreadsheetBlock()
    {
        m_grid->setCols(3);
        m_grid->setRows(4);
        m_grid->setTextMatrix(3, 0, u"留"_s);
        // A spreadsheet copies its block with a line break after the last row, which is no row of its own.
        m_grid->setClip(1, 0, u"a\tb\tc\r\nd\te\tf\r\n"_s);
        QCOMPARE(m_grid->clip(1, 0, 2, 2), u"a\tb\tc\rd\te\tf"_s);
        QCOMPARE(m_grid->TextMatrix(3, 0), u"留"_s);
        QCOMPARE(m_grid->clip(2, 2, 1, 1), u"b\tc\re\tf"_s);
        // What falls outside the grid is dropped.
        m_grid->setClip(3, 2, u"x\ty\rz"_s);
        QCOMPARE(m_grid->TextMatrix(3, 2), u"x"_s);
        QCOMPARE(m_grid->Rows(), 4);
    }

    void shiftTextsLeftKeepsAlignmentInPlace()
    {
        m_grid->setFormatString(u"A|>B|<C"_s);
        m_grid->AddItem(u"1\t2\t3"_s);
        m_grid->shiftTextsLeft(0);
        QCOMPARE(m_grid->Cols(), 2);
        QCOMPARE(row(0), (QStringList {u"B"_s, u"C"_s}));
        QCOMPARE(row(2), (QStringList {u"2"_s, u"3"_s}));
        // Only texts move; a column's alignment belongs to its place.
        QCOMPARE(m_grid->ColAlignment(0), int(FlexGridModel::AlignGeneral));
        QCOMPARE(m_grid->ColAlignment(1), int(FlexGridModel::AlignRight));
        m_grid->shiftTextsLeft(5); // beyond the last column: the last one goes
        QCOMPARE(row(2), (QStringList {u"2"_s}));
    }

    void shrinkingKeepsFixedCountsInside()
    {
        m_grid->setRows(0);
        QCOMPARE(m_grid->FixedRows(), 0);
        m_grid->setCols(0);
        QCOMPARE(m_grid->FixedCols(), 0);
        m_grid->setRows(3);
        m_grid->setCols(2);
        m_grid->setFixedRows(5);
        QCOMPARE(m_grid->FixedRows(), 3);
    }
};

QTEST_GUILESS_MAIN(FlexGridModelTest)
#include "tst_flexgridmodel.moc"
