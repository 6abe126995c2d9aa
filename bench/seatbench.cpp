// How fast a change reaches the other seats, and what an idle seat costs.
//
//   quillon-bench-seats [--db URL] [--seats 2,8] [--changes N]
//
// One writer saves a goods item again and again at irregular moments; every seat (a facade with its own
// connection, all in this process) notes when the change reaches its list (SomeOneChanged). Printed: the median
// and the 99th percentile from commit to notice, then the processor time the seats use while nothing changes.
// Without --db the database is an SQLite file in a temporary folder.
#include "benchsupport.h"
#include "cbus.h"
#include "cconnection.h"
#include "changefeed.h"
#include "citems.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QRandomGenerator>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <memory>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

double processSeconds()
{
    timespec ts {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return double(ts.tv_sec) + double(ts.tv_nsec) / 1e9;
}

void wait(int milliseconds)
{
    QEventLoop loop;
    QTimer::singleShot(milliseconds, &loop, &QEventLoop::quit);
    loop.exec();
}

struct Seat
{
    std::shared_ptr<CConnection> db;
    std::unique_ptr<CBus> bus;
};

double percentile(std::vector<double> sorted, double p)
{
    if (sorted.empty()) {
        return 0;
    }
    std::sort(sorted.begin(), sorted.end());
    const auto rank = std::size_t(p * double(sorted.size() - 1) + 0.5);
    return sorted[std::min(rank, sorted.size() - 1)];
}

bool run(const QString &url, int seatCount, int changes)
{
    QString error;
    auto writerDb = CConnection::Open(url, &error);
    if (!writerDb) {
        std::fprintf(stderr, "%s\n", qPrintable(error));
        return false;
    }
    writerDb->EnsureSchema();
    CItems writer;
    writer.Attach(writerDb, 4);
    auto goods = CItem::create();
    goods->setF_ItemTypeID(4);
    goods->setF_ItemNo(u"BENCH"_s + QString::number(seatCount));
    goods->setF_ItemName(u"座席测试"_s);
    if (!writer.SaveItem(goods)) {
        return false;
    }

    std::vector<Seat> seats(static_cast<std::size_t>(seatCount));
    QElapsedTimer clock;
    clock.start();
    qint64 committedAt = 0;
    int received = 0;
    std::vector<double> latencies;
    for (Seat &seat : seats) {
        seat.db = CConnection::Open(url, &error);
        if (!seat.db) {
            std::fprintf(stderr, "%s\n", qPrintable(error));
            return false;
        }
        seat.bus = std::make_unique<CBus>();
        seat.bus->InitAllData(seat.db);
        if (!seat.bus->changeFeed()) {
            std::fprintf(stderr, "seat without change feed\n");
            return false;
        }
        QObject::connect(seat.bus->mAllGoods().get(), &CItems::SomeOneChanged, [&](const CItemPtr &item) {
            if (item && item->F_ID() == goods->F_ID() && committedAt > 0) {
                latencies.push_back(double(clock.nsecsElapsed() - committedAt) / 1e6);
                ++received;
            }
        });
    }

    QRandomGenerator rng(11);
    int lost = 0;
    for (int i = 0; i < changes; ++i) {
        // Irregular moments, so that the commits do not keep step with the seats' timers.
        wait(20 + int(rng.bounded(80)));
        received = 0;
        goods->setF_ItemName(u"座席测试"_s + QString::number(i));
        committedAt = 0;
        if (!writer.SaveItem(goods)) {
            return false;
        }
        committedAt = clock.nsecsElapsed();
        QElapsedTimer waited;
        waited.start();
        while (received < seatCount && waited.elapsed() < 5000) {
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 5);
        }
        lost += seatCount - received;
        committedAt = 0;
    }
    std::printf("  %d seats, %d changes: commit to SomeOneChanged median %.1f ms, 99th percentile %.1f ms, max %.1f "
                "ms%s\n",
                seatCount, changes, percentile(latencies, 0.5), percentile(latencies, 0.99), percentile(latencies, 1.0),
                lost ? qPrintable(u", %1 notices missing"_s.arg(lost)) : "");

    const double cpuBefore = processSeconds();
    QElapsedTimer idle;
    idle.start();
    wait(5000);
    const double share = (processSeconds() - cpuBefore) / BenchSupport::seconds(idle);
    std::printf("  idle: %.3f %% of a core for %d seats (%.3f %% per seat)\n", share * 100, seatCount,
                share * 100 / seatCount);
    return lost == 0;
}

} // namespace

int main(int argc, char *argv[])
{
    BenchSupport::preferOffscreen();
    QApplication app(argc, argv);
    BenchSupport::Console console;
    QString url;
    QList<int> seatCounts {2, 8};
    int changes = 200;
    const QStringList args = QCoreApplication::arguments();
    for (int i = 1; i < args.size(); ++i) {
        if (args.at(i) == u"--db"_s && i + 1 < args.size()) {
            url = args.at(++i);
        } else if (args.at(i) == u"--seats"_s && i + 1 < args.size()) {
            seatCounts.clear();
            for (const QString &n : args.at(++i).split(u',')) {
                seatCounts.append(n.toInt());
            }
        } else if (args.at(i) == u"--changes"_s && i + 1 < args.size()) {
            changes = args.at(++i).toInt();
        } else {
            std::fprintf(stderr, "usage: quillon-bench-seats [--db URL] [--seats 2,8] [--changes N]\n");
            return 2;
        }
    }
    QTemporaryDir dir;
    if (url.isEmpty()) {
        url = BenchSupport::sqliteUrl(dir, u"seats.db"_s);
    }
    std::printf("change notices on %s\n", qPrintable(DatabaseUrl::masked(url)));
    bool ok = true;
    for (int seats : std::as_const(seatCounts)) {
        ok = run(url, seats, changes) && ok;
    }
    return ok ? 0 : 1;
}
