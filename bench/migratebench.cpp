// Moves a generated store from SQLite to PostgreSQL and looks up the prices of every goods for many clients.
//
//   quillon-bench-migrate --to postgresql://... [--items N] [--goods N] [--clients N]
//
// The PostgreSQL database named by --to is emptied of the master tables first. A throw-away server:
// tools/pg-test-server start DIR (the URL is then in DIR/url).
#include "benchdata.h"
#include "benchsupport.h"
#include "cbus.h"
#include "cconnection.h"
#include "citems.h"
#include "keyid.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QRandomGenerator>
#include <QSqlQuery>
#include <QTemporaryDir>

#include <cstdio>

using namespace Qt::StringLiterals;
using BenchSupport::seconds;

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    BenchSupport::Console console;

    qint64 items = 1000000;
    int goodsCount = 100000;
    int clientCount = 100;
    QString to;
    if (!BenchSupport::Options("quillon-bench-migrate --to URL [--items N] [--goods N] [--clients N]")
             .value(u"--items"_s, items)
             .value(u"--goods"_s, goodsCount)
             .value(u"--clients"_s, clientCount)
             .value(u"--to"_s, to)
             .parse()) {
        return 2;
    }
    if (!to.startsWith(u"postgresql:"_s)) {
        std::fprintf(stderr, "--to needs a PostgreSQL URL (tools/pg-test-server start DIR writes one to DIR/url)\n");
        return 2;
    }
    QTemporaryDir dir;
    QString error;
    auto source = CConnection::Open(BenchSupport::sqliteUrl(dir, u"source.db"_s), &error);
    auto target = CConnection::Open(to, &error);
    if (!source || !target) {
        std::fprintf(stderr, "%s\n", qPrintable(error));
        return 1;
    }
    source->EnsureSchema();
    target->EnsureSchema();
    QElapsedTimer timer;
    timer.start();
    BenchData::generate(*source, items);
    std::printf("generated %lld items in SQLite in %.1f s\n", items, seconds(timer));

    timer.restart();
    const DatabaseCopy::Result moved = CBus::CopyTableDataBetweenDB(*source, *target, CBus::MasterTables());
    const double moveSeconds = seconds(timer);
    if (!moved.ok) {
        std::fprintf(stderr, "migration failed: %s\n", qPrintable(moved.error));
        return 1;
    }
    std::printf("SQLite -> PostgreSQL: %lld rows in %.1f s = %.0f rows/s (goal: at least 50000)\n",
                moved.rows.value(0).second, moveSeconds, double(moved.rows.value(0).second) / moveSeconds);

    // Prices: a client-type price for every goods and a client price for every tenth, on a fresh SQLite store.
    auto shop = CConnection::Open(BenchSupport::sqliteUrl(dir, u"prices.db"_s), &error);
    shop->EnsureSchema();
    {
        CTransaction transaction(*shop);
        QSqlQuery item(shop->database());
        item.prepare(u"Insert Into T_Item (F_ID, F_ItemTypeID, F_ItemNo, F_ItemName, F_ParentID, F_Tag3, F_Price4) "
                     "Values (?, ?, ?, ?, ?, 0, ?)"_s);
        QSqlQuery price(shop->database());
        price.prepare(u"Insert Into T_GoodsPrice (F_ID, F_GoodsID, F_ClientID, F_ClientTypeID, F_Price) "
                      "Values (?, ?, ?, ?, ?)"_s);
        auto insertItem = [&](int id, int type, const QString &name, int parent, double sale) {
            item.addBindValue(id);
            item.addBindValue(type);
            item.addBindValue(name);
            item.addBindValue(name);
            item.addBindValue(parent);
            item.addBindValue(sale);
            item.exec();
        };
        int priceID = 0;
        for (int t = 1; t <= 10; ++t) {
            insertItem(t, 8, u"T"_s + QString::number(t), 0, 0);
        }
        for (int c = 0; c < clientCount; ++c) {
            insertItem(100 + c, 1, u"C"_s + QString::number(c), 1 + c % 10, 0);
        }
        for (int g = 0; g < goodsCount; ++g) {
            const int id = 1000 + g;
            insertItem(id, 4, u"G"_s + QString::number(g).rightJustified(6, u'0'), 0, 3.5);
            price.addBindValue(++priceID);
            price.addBindValue(id);
            price.addBindValue(0);
            price.addBindValue(1 + g % 10);
            price.addBindValue(3.2);
            price.exec();
            if (g % 10 == 0) {
                price.addBindValue(++priceID);
                price.addBindValue(id);
                price.addBindValue(100 + g % clientCount);
                price.addBindValue(0);
                price.addBindValue(3.0);
                price.exec();
            }
        }
        transaction.Commit();
    }
    CBus bus;
    bus.InitItems(shop, CBus::itGoods);
    bus.InitItems(shop, CBus::itClient);
    timer.restart();
    bus.priceBook();
    std::printf("reading the prices: %.0f ms\n", seconds(timer) * 1000);
    timer.restart();
    qint64 lookups = 0;
    Currency total;
    for (const CItemPtr &client : *bus.mClients()) {
        for (const CItemPtr &goods : *bus.mAllGoods()) {
            total += bus.GetGoodsPrice(*goods, client.get());
            ++lookups;
        }
    }
    const double lookupSeconds = seconds(timer);
    std::printf("price of %d goods for %d clients: %lld look-ups in %.2f s (%.0f ns each), sum %s\n", goodsCount,
                clientCount, lookups, lookupSeconds, lookupSeconds * 1e9 / double(lookups),
                qPrintable(total.toString()));
    return 0;
}
