// Imports goods from a generated workbook with every check, and backs up a large store, and prints the figures.
//
//   quillon-bench-import [--rows N] [--backup-items N] [--db URL]
//
// --rows: goods in the workbook (100,000 unless given); a dry run and a real run into an empty SQLite database,
// with rates and the memory that stayed in use; a quarter of the rows is read too, to show the memory per row.
// --backup-items: the size of the store that is backed up (1,000,000 unless given, 0 skips it); --db names that
// store (an SQLite file in a temporary folder unless given).
#include "benchdata.h"
#include "benchsupport.h"
#include "cconnection.h"
#include "citems.h"
#include "excelconnection.h"
#include "itemimport.h"
#include "itemtype.h"
#include "masterbackup.h"
#include "workbookreader.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <cstdio>
#include <ctime>

using namespace Qt::StringLiterals;
using BenchSupport::seconds;

namespace {

// A goods sheet with the export's headers: numbers, Chinese names, units and types by name, four-decimal prices.
bool writeSheet(const QString &file, int rows)
{
    const QStringList headers = {u"编号"_s,     u"名称"_s,     u"规格"_s,     u"单位"_s,     u"类别"_s,
                                 u"整件进价"_s, u"单件进价"_s, u"整件售价"_s, u"单件售价"_s, u"包装数量"_s,
                                 u"库存上限"_s, u"库存下限"_s, u"备注"_s};
    static const char16_t *const words[] = {u"康师傅", u"统一", u"农夫",   u"矿泉水", u"绿茶",   u"方便面",
                                            u"饼干",   u"牙膏", u"洗衣粉", u"笔记本", u"圆珠笔", u"电池"};
    static const char16_t *const units[] = {u"瓶", u"盒", u"袋", u"支", u"个", u"箱"};
    static const char16_t *const types[] = {u"饮料", u"食品", u"日用品", u"文具"};
    ExcelConnection excel;
    if (!excel.Open(file)) {
        return false;
    }
    QString create = u"CREATE TABLE 商品 ("_s;
    for (qsizetype i = 0; i < headers.size(); ++i) {
        create += (i ? u","_s : QString()) + headers[i] + u" TEXT"_s;
    }
    if (!excel.Execute(create + u")"_s)) {
        return false;
    }
    ExcelRecordset rs;
    if (!rs.Open(u"Select * From 商品"_s, excel)) {
        return false;
    }
    for (int r = 0; r < rows; ++r) {
        rs.AddNew();
        const QString n = QString::number(r + 1).rightJustified(6, u'0');
        const QString name = QString::fromUtf16(words[r % 12]) + QString::fromUtf16(words[(r / 12) % 12]) + n;
        const QStringList cells = {u"SP"_s + n,
                                   name,
                                   QString::number(100 + r % 900) + u"ml"_s,
                                   QString::fromUtf16(units[r % 6]),
                                   QString::fromUtf16(types[r % 4]),
                                   QString::number(24 + r % 100) + u".5680"_s,
                                   QString::number(1 + r % 50) + u".0125"_s,
                                   QString::number(30 + r % 100) + u".7500"_s,
                                   QString::number(2 + r % 50) + u".3333"_s,
                                   QString::number(6 + r % 18),
                                   u"480"_s,
                                   u"48"_s,
                                   r % 7 ? QString() : u"进口"_s};
        for (qsizetype c = 0; c < cells.size(); ++c) {
            rs.setField(int(c), cells[c]);
        }
        rs.Update();
    }
    rs.Close();
    return excel.Close();
}

// The most resident memory the process has had, from /proc.
qint64 peakResidentBytes()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly)) {
        return 0;
    }
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith("VmHWM:")) {
            return line.mid(6).trimmed().split(' ').first().toLongLong() * 1024;
        }
    }
    return 0;
}

// Processor time of this process: on a machine shared with other work the wall clock also counts their turns.
double cpuSeconds()
{
    timespec t {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return double(t.tv_sec) + double(t.tv_nsec) / 1e9;
}

struct Run
{
    double seconds = 0;
    double cpu = 0;
    double reload = 0; // the lists loaded again, as the window does after an import
    qint64 kept = 0; // resident bytes that stayed in use
    ItemImport::Report report;
};

Run importInto(const QString &url, const QString &file, bool dryRun)
{
    QString error;
    auto db = CConnection::Open(url, &error);
    db->EnsureSchema();
    CItems units, types, goods;
    units.InitInstance(db, itemTypeNumber(ItemType::Unit));
    types.InitInstance(db, itemTypeNumber(ItemType::GoodsType));
    goods.InitInstance(db, itemTypeNumber(ItemType::Goods));
    Run run;
    const qint64 before = BenchSupport::trimmedResidentBytes();
    QElapsedTimer timer;
    timer.start();
    const double cpuStart = cpuSeconds();
    {
        ItemImport importer(goods, &units, &types);
        ItemImport::Options options;
        options.dryRun = dryRun;
        options.createMissing = true;
        options.reloadLists = false; // as the command-line import; the window's reload is timed below
        run.report = importer.run(file, options);
    }
    run.seconds = seconds(timer);
    run.cpu = cpuSeconds() - cpuStart;
    run.kept = BenchSupport::trimmedResidentBytes() - before;
    if (!dryRun) {
        timer.restart();
        units.Refresh(0);
        types.Refresh(0);
        goods.Refresh(0);
        CItems::JoinGoodsNames(goods, units, types);
        run.reload = seconds(timer);
    }
    return run;
}

void print(const char *what, int rows, const Run &run)
{
    std::printf("%-36s %8d rows %7.2f s %9.0f rows/s, processor %6.2f s %9.0f rows/s  %s  (memory still in use "
                "afterwards: %.1f MB)\n",
                what, rows, run.seconds, rows / run.seconds, run.cpu, rows / run.cpu,
                run.report.error.isEmpty() ? "ok" : qPrintable(run.report.error), double(run.kept) / 1e6);
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    BenchSupport::Console console;
    int rows = 100000;
    BenchData::Store store;
    if (!store.options("quillon-bench-import [--rows N] [--backup-items N] [--db URL] [--reuse]")
             .value(u"--rows"_s, rows)
             .value(u"--backup-items"_s, store.total)
             .parse()) {
        return 2;
    }
    QTemporaryDir dir;
    const QString sheet = dir.filePath(u"goods.xlsx"_s);
    const QString quarter = dir.filePath(u"quarter.xlsx"_s);
    QElapsedTimer timer;
    timer.start();
    if (!writeSheet(sheet, rows) || !writeSheet(quarter, rows / 4)) {
        std::fprintf(stderr, "could not write the workbook\n");
        return 1;
    }
    std::printf("workbook of %d goods: %.1f MB, written in %.2f s\n", rows, double(QFileInfo(sheet).size()) / 1e6,
                seconds(timer));

    {
        // The floor: the sheet read cell by cell, nothing checked or kept.
        timer.restart();
        const double cpuStart = cpuSeconds();
        WorkbookReader reader(sheet);
        qint64 cells = 0;
        reader.open();
        reader.readSheet(QString(), [&](int, const WorkbookReader::Row &row) {
            cells += qint64(row.size());
            return true;
        });
        const double read = seconds(timer);
        const double cpu = cpuSeconds() - cpuStart;
        std::printf("%-36s %8d rows %7.2f s %9.0f rows/s, processor %6.2f s %9.0f rows/s  (%lld cells)\n",
                    "reading the sheet alone", rows, read, rows / read, cpu, rows / cpu, cells);
    }
    const qint64 start = BenchSupport::residentBytes();
    const Run small = importInto(BenchSupport::sqliteUrl(dir, u"quarter.db"_s), quarter, true);
    print("dry run, a quarter of the rows", rows / 4, small);
    const Run dry = importInto(BenchSupport::sqliteUrl(dir, u"dry.db"_s), sheet, true);
    print("dry run (all checks)", rows, dry);
    const Run real = importInto(BenchSupport::sqliteUrl(dir, u"real.db"_s), sheet, false);
    print("real run (checks, one transaction)", rows, real);
    std::printf("  then the window's lists loaded again: %.2f s\n", real.reload);
    std::printf("  added %lld, refused %lld rows, created %lld units and types; peak resident %.1f MB (%.1f MB at "
                "start)\n",
                real.report.added, real.report.badRows, qint64(real.report.created.size()),
                double(peakResidentBytes()) / 1e6, double(start) / 1e6);

    if (store.total > 0) {
        auto db = store.open();
        if (!db) {
            return 1;
        }
        const QString file = dir.filePath(u"backup.db"_s);
        timer.restart();
        const MasterBackup::Result result = MasterBackup::backup(*db, file);
        if (!result.ok) {
            std::fprintf(stderr, "%s\n", qPrintable(result.error));
            return 1;
        }
        std::printf("backup of %lld items: %.2f s, %.1f MB\n", result.rows.first().second, seconds(timer),
                    double(QFileInfo(file).size()) / 1e6);
    }
    return 0;
}
