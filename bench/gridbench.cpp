// Filling the grid control from a query: FillByRecordSet of N rows × 10 short text columns from SQLite against a
// bare scan of the same query, and the memory a cell takes.
//
//   quillon-bench-grid [--rows N]
#include "benchsupport.h"
#include "cconnection.h"
#include "vekgrid.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QSqlQuery>
#include <QTemporaryDir>

#include <cstdio>

using namespace Qt::StringLiterals;
using BenchSupport::seconds;

int main(int argc, char *argv[])
{
    BenchSupport::preferOffscreen();
    QApplication app(argc, argv);
    BenchSupport::Console console;
    int rows = 1000000;
    if (!BenchSupport::Options("quillon-bench-grid [--rows N]").value(u"--rows"_s, rows).parse()) {
        return 2;
    }
    QTemporaryDir dir;
    auto db = CConnection::Open(BenchSupport::sqliteUrl(dir, u"grid.db"_s));
    db->Execute(u"CREATE TABLE g (c0 TEXT, c1 TEXT, c2 TEXT, c3 TEXT, c4 TEXT, c5 TEXT, c6 TEXT, c7 TEXT, c8 TEXT, "
                "c9 TEXT)"_s);
    {
        CTransaction transaction(*db);
        QVariantList values;
        for (int r = 0; r < rows; ++r) {
            values.clear();
            values << QString(u"SP"_s + QString::number(r)) << u"可口可乐"_s << u"500ml"_s << u"瓶"_s << u"饮料"_s
                   << QString::number(r % 97) << u"3.50"_s << u"2.80"_s << u"12"_s << u"备注"_s;
            db->Execute(u"INSERT INTO g VALUES (?,?,?,?,?,?,?,?,?,?)"_s, values);
        }
        transaction.Commit();
    }
    const QString sql = u"SELECT * FROM g"_s;

    QElapsedTimer timer;
    timer.start();
    qint64 chars = 0;
    {
        QSqlQuery q = db->Select(sql);
        while (q.next()) {
            for (int c = 0; c < 10; ++c) {
                chars += q.value(c).toString().size();
            }
        }
    }
    const double bare = seconds(timer);

    VekGrid grid;
    const qint64 before = BenchSupport::trimmedResidentBytes();
    QSqlQuery query = db->Select(sql);
    QString format;
    timer.restart();
    if (!grid.FillByRecordSet(query, format)) {
        return 1;
    }
    const double fill = seconds(timer);
    const qint64 after = BenchSupport::residentBytes();
    const double cells = double(rows) * 10.0;
    std::printf("bare scan: %d rows in %.2f s (%lld characters)\n", rows, bare, chars);
    std::printf("FillByRecordSet: %d rows in %.2f s; ratio %.2f (goal <= 2)\n", grid.Rows() - 1, fill, fill / bare);
    std::printf("memory: %.1f bytes per cell (goal < 64)\n", double(after - before) / cells);
    return 0;
}
