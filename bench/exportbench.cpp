// Exports a grid to a spreadsheet file through CopyGridToExcel and writes the same cells with libxlsxwriter in its
// constant-memory mode, in one run, and prints times and memory.
//
//   quillon-bench-export [--rows N] [--cols N]
#include "benchsupport.h"
#include "cbus.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QTemporaryDir>

#include <xlsxwriter.h>

#include <sys/resource.h>

#include <cstdio>

using namespace Qt::StringLiterals;
using BenchSupport::seconds;

// A grid whose cells are made up on request (a few Chinese names, numbers and prices), so neither writer pays
// for storing them.
class GeneratedGrid : public QObject
{
    Q_OBJECT
    Q_PROPERTY(qint32 Rows READ Rows)
    Q_PROPERTY(qint32 Cols READ Cols)

public:
    GeneratedGrid(qint32 rows, qint32 cols)
        : m_rows(rows)
        , m_cols(cols)
    { }
    qint32 Rows() const { return m_rows + 1; }
    qint32 Cols() const { return m_cols; }
    Q_INVOKABLE QString TextMatrix(qint32 row, qint32 col) const { return cell(row, col); }

    static QString cell(qint32 row, qint32 col)
    {
        static const char16_t *const names[] = {u"康师傅矿泉水", u"统一绿茶", u"长城干红葡萄酒", u"农夫山泉",
                                                u"光明牛奶"};
        if (row == 0) {
            return u"列标题"_s + QString::number(col);
        }
        switch (col % 4) {
        case 0:
            return u"SP"_s + QString::number(row).rightJustified(7, u'0');
        case 1:
            return QString::fromUtf16(names[(row + col) % 5]);
        case 2:
            return QString::number((row * 37 + col) % 10000) + u".50"_s;
        default:
            return u"备注 & <说明> "_s + QString::number(col);
        }
    }

private:
    qint32 m_rows;
    qint32 m_cols;
};

namespace {

long peakKilobytes()
{
    rusage usage {};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

double exportOurs(const QString &file, qint32 rows, qint32 cols)
{
    GeneratedGrid grid(rows, cols);
    CBus bus;
    QElapsedTimer timer;
    timer.start();
    if (!bus.CopyGridToExcel(&grid, file, u"Sheet1"_s)) {
        std::fprintf(stderr, "export failed\n");
        std::exit(1);
    }
    return seconds(timer);
}

double exportLibxlsxwriter(const QString &file, qint32 rows, qint32 cols)
{
    QElapsedTimer timer;
    timer.start();
    lxw_workbook_options options {};
    options.constant_memory = LXW_TRUE;
    const QByteArray name = file.toLocal8Bit();
    lxw_workbook *workbook = workbook_new_opt(name.constData(), &options);
    lxw_worksheet *sheet = workbook_add_worksheet(workbook, "Sheet1");
    for (qint32 r = 0; r <= rows; ++r) {
        for (qint32 c = 0; c < cols; ++c) {
            // The same work per cell as the export: the text is made, then converted for the writer.
            const QByteArray text = GeneratedGrid::cell(r, c).toUtf8();
            worksheet_write_string(sheet, lxw_row_t(r), lxw_col_t(c), text.constData(), nullptr);
        }
    }
    if (workbook_close(workbook) != LXW_NO_ERROR) {
        std::fprintf(stderr, "libxlsxwriter failed\n");
        std::exit(1);
    }
    return seconds(timer);
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    BenchSupport::Console console;
    console.prompt.setDefaultAnswer(CPrompt::vbCancel);

    qint32 rows = 100000;
    qint32 cols = 10;
    if (!BenchSupport::Options("quillon-bench-export [--rows N] [--cols N]")
             .value(u"--rows"_s, rows)
             .value(u"--cols"_s, cols)
             .parse()) {
        return 2;
    }
    QTemporaryDir dir;

    // Memory as rows grow: the peak after a tenth of the rows, then after all of them.
    const long base = peakKilobytes();
    exportOurs(dir.filePath(u"small.xlsx"_s), rows / 10, cols);
    const long small = peakKilobytes();
    const double ours = exportOurs(dir.filePath(u"ours.xlsx"_s), rows, cols);
    const long large = peakKilobytes();
    const double theirs = exportLibxlsxwriter(dir.filePath(u"libxlsxwriter.xlsx"_s), rows, cols);

    std::printf("%d rows x %d columns\n", rows, cols);
    std::printf("CopyGridToExcel:              %.2f s (%.0f cells/s), file %.1f MB\n", ours, double(rows) * cols / ours,
                double(QFileInfo(dir.filePath(u"ours.xlsx"_s)).size()) / 1e6);
    std::printf("libxlsxwriter constant_memory: %.2f s (%.0f cells/s), file %.1f MB\n", theirs,
                double(rows) * cols / theirs, double(QFileInfo(dir.filePath(u"libxlsxwriter.xlsx"_s)).size()) / 1e6);
    std::printf("ratio: %.2f (goal: at most 2)\n", ours / theirs);
    std::printf("peak memory above start: %.1f MB after %d rows, %.1f MB after %d rows (flat when equal)\n",
                double(small - base) / 1024, rows / 10, double(large - base) / 1024, rows);
    return 0;
}

#include "exportbench.moc"
