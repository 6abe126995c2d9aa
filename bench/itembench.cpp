// Loads, looks up, saves and deletes master data at the scale of a large shop and prints the figures.
//
//   quillon-bench-items [--items N] [--db URL] [--reuse] [--load-only]
//
// Without --db the database is an SQLite file in a temporary folder. --reuse keeps a database that already holds N
// generated items instead of generating it again; --load-only stops after loading (for profiling the load).
#include "benchdata.h"
#include "benchsupport.h"
#include "cbus.h"
#include "cconnection.h"
#include "citems.h"
#include "keyid.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QRandomGenerator>
#include <QSqlDatabase>
#include <QSqlDriver>
#include <QSqlQuery>
#include <QSqlRecord>

#include <libpq-fe.h>
#include <sqlite3.h>
#include <sys/resource.h>

#include <algorithm>
#include <cstdio>

using namespace Qt::StringLiterals;
using BenchSupport::seconds;

namespace {

// Processor time of all the program's threads so far, in seconds.
double cpuSeconds()
{
    rusage usage {};
    getrusage(RUSAGE_SELF, &usage);
    return double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec)
        + double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

constexpr int kLoadOrder[] = {8, 9, 1, 2, 3, 4, 5, 6, 10, 11, 12};

// The same rows through the same statements and Qt's driver, every column read, nothing kept.
double driverScan(CConnection &db)
{
    QElapsedTimer timer;
    timer.start();
    qint64 touched = 0;
    for (int type : kLoadOrder) {
        QSqlQuery q = db.Select(db.inStoredOrder(CItems::loadStatement(type)));
        const int columns = q.record().count();
        while (q.next()) {
            for (int c = 0; c < columns; ++c) {
                touched += q.value(c).isNull() ? 0 : 1;
            }
        }
    }
    std::printf("  (driver scan touched %lld values)\n", touched);
    return seconds(timer);
}

// The floor: the same statements through SQLite's own interface on a connection of its own, every column of
// every row fetched in its stored type (texts as UTF-8), nothing kept.
double sqliteScan(CConnection &db)
{
    sqlite3 *handle = nullptr;
    const QByteArray file = db.database().databaseName().toUtf8();
    if (sqlite3_open_v2(file.constData(), &handle, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX, nullptr) != SQLITE_OK) {
        std::fprintf(stderr, "cannot open %s\n", file.constData());
        sqlite3_close(handle);
        return -1;
    }
    QElapsedTimer timer;
    timer.start();
    qint64 touched = 0;
    for (int type : kLoadOrder) {
        const QByteArray sql = CItems::loadStatement(type).toUtf8();
        sqlite3_stmt *stmt = nullptr;
        sqlite3_prepare_v2(handle, sql.constData(), -1, &stmt, nullptr);
        const int columns = sqlite3_column_count(stmt);
        while (sqlite3_step(stmt) == SQLITE_ROW) {
            for (int c = 0; c < columns; ++c) {
                // The cheapest way in: one call per column, then the value's own accessors.
                sqlite3_value *value = sqlite3_column_value(stmt, c);
                switch (sqlite3_value_type(value)) {
                case SQLITE_INTEGER:
                    touched += sqlite3_value_int64(value) != 0;
                    break;
                case SQLITE_FLOAT:
                    touched += sqlite3_value_double(value) != 0;
                    break;
                case SQLITE_NULL:
                    break;
                default:
                    touched += sqlite3_value_text(value) != nullptr;
                    touched += sqlite3_value_bytes(value) > 0;
                    break;
                }
            }
        }
        sqlite3_finalize(stmt);
    }
    const double elapsed = seconds(timer);
    sqlite3_close(handle);
    std::printf("  (sqlite3 scan touched %lld values)\n", touched);
    return elapsed;
}

// The floor on PostgreSQL: the same statements copied out in text form through libpq, every row fetched and its
// fields walked, nothing kept.
double postgresScan(CConnection &db)
{
    const QVariant handle = db.database().driver()->handle();
    PGconn *pg = *static_cast<PGconn *const *>(handle.constData());
    QElapsedTimer timer;
    timer.start();
    qint64 touched = 0;
    for (int type : kLoadOrder) {
        const QByteArray sql = "COPY (" + db.inStoredOrder(CItems::loadStatement(type)).toUtf8() + ") TO STDOUT";
        PGresult *result = PQexec(pg, sql.constData());
        const bool copying = PQresultStatus(result) == PGRES_COPY_OUT;
        PQclear(result);
        if (!copying) {
            std::fprintf(stderr, "%s\n", PQerrorMessage(pg));
            return -1;
        }
        char *line = nullptr;
        int size = 0;
        while ((size = PQgetCopyData(pg, &line, 0)) > 0) {
            for (const char *p = line, *end = line + size; p < end; ++p) {
                touched += *p == '\t';
            }
            PQfreemem(line);
        }
        while (PGresult *rest = PQgetResult(pg)) {
            PQclear(rest);
        }
    }
    std::printf("  (libpq scan passed %lld field ends)\n", touched);
    return seconds(timer);
}

template<typename Find, typename Key>
void lookups(const char *name, const CItems &goods, Find find, Key key)
{
    auto indexed = [&](const CItem &probe) {
        return find(key(probe));
    };
    auto linear = [&](const CItem &probe) {
        for (const CItemPtr &item : goods) {
            if (key(*item) == key(probe)) {
                return true;
            }
        }
        return false;
    };
    QRandomGenerator rng(7);
    const qint32 n = goods.Count();
    std::vector<CItemPtr> probes;
    for (int i = 0; i < 1000; ++i) {
        probes.push_back(goods.Item(rng.bounded(n) + 1));
    }
    QElapsedTimer timer;
    timer.start();
    indexed(*probes.front()); // builds the index
    const double build = seconds(timer);

    constexpr int kLookups = 1000000;
    timer.restart();
    int found = 0;
    for (int i = 0; i < kLookups; ++i) {
        found += indexed(*probes[std::size_t(i) % probes.size()]) ? 1 : 0;
    }
    const double indexedEach = seconds(timer) / kLookups;

    constexpr int kScans = 200;
    timer.restart();
    for (int i = 0; i < kScans; ++i) {
        found += linear(*probes[std::size_t(i) % probes.size()]) ? 1 : 0;
    }
    const double linearEach = seconds(timer) / kScans;
    std::printf("%s: index built in %.3f s; %d look-ups %.0f ns each; linear scan %.3f ms each; speed-up %.0fx "
                "(goal >= 1000x) [%d found]\n",
                name, build, kLookups, indexedEach * 1e9, linearEach * 1e3, linearEach / indexedEach, found);
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    BenchSupport::Console console;
    console.prompt.setDefaultAnswer(CPrompt::vbYes);

    BenchData::Store store;
    bool loadOnly = false;
    if (!store.options("quillon-bench-items [--items N] [--db URL] [--reuse] [--load-only]")
             .flag(u"--load-only"_s, loadOnly)
             .parse()) {
        return 2;
    }
    auto db = store.open();
    if (!db) {
        return 1;
    }

    // The floor is measured before and after the load (the smaller counts), so that neither finds the file colder.
    const bool sqlite = db->engine() == CConnection::Engine::SQLite;
    double cpu = cpuSeconds();
    const double rawBefore = loadOnly ? 0 : (sqlite ? sqliteScan(*db) : postgresScan(*db));
    const double rawCpu = cpuSeconds() - cpu;

    QElapsedTimer timer;
    const qint64 before = BenchSupport::trimmedResidentBytes();
    CBus bus;
    timer.restart();
    cpu = cpuSeconds();
    bus.InitAllData(db);
    const double load = seconds(timer);
    const double loadCpu = cpuSeconds() - cpu;
    const qint64 after = BenchSupport::residentBytes();
    qint64 loaded = 0;
    for (int type = 1; type <= 12; ++type) {
        if (auto items = bus.collection(type)) {
            loaded += items->Count();
        }
    }
    if (loadOnly) {
        std::printf("InitAllData: %lld items in %.2f s\n", loaded, load);
        return 0;
    }
    const double raw = std::min(rawBefore, sqlite ? sqliteScan(*db) : postgresScan(*db));
    const double driver = driverScan(*db);
    std::printf("InitAllData: %lld items in %.2f s; %s scan %.2f s, ratio %.2f (goal <= 2); Qt driver scan %.2f s\n",
                loaded, load, sqlite ? "sqlite3" : "libpq", raw, load / raw, driver);
    // On a busy machine the load's threads wait for a core; the processor time tells what it costs regardless.
    std::printf("  processor time: load %.2f s on %.1f cores, %s scan %.2f s (with %.1f cores free the load takes "
                "about %.2f s)\n",
                loadCpu, loadCpu / load, sqlite ? "sqlite3" : "libpq", rawCpu, 2.0, loadCpu / 2);
    std::printf("memory: %.0f bytes per loaded item (goal <= 1024)\n", double(after - before) / double(loaded));

    const CItems &goods = *bus.mAllGoods();
    lookups(
        "GetItemByID", goods, [&](qint32 id) { return goods.SearchItemByID(id); },
        [](const CItem &item) { return item.F_ID(); });
    lookups(
        "GetItemByItemNo", goods, [&](const QString &no) { return goods.GetItemByItemNo(no); },
        [](const CItem &item) -> const QString & { return item.F_ItemNo(); });

    CItems &allGoods = *bus.mAllGoods();
    QRandomGenerator rng(11);
    constexpr int kSaves = 10000;
    std::vector<qint32> added;
    timer.restart();
    for (int i = 0; i < kSaves; ++i) {
        auto item = std::make_shared<CItem>();
        item->setF_ItemTypeID(4);
        // Random places in the goods order, each number new: the window's collections refuse a number taken.
        item->setF_ItemNo(u"SP"_s + QString::number(rng.bounded(int(store.total))).rightJustified(7, u'0') + u"N"_s
                          + QString::number(i));
        item->setF_ItemName(u"新商品"_s + QString::number(i));
        item->setF_Tag1(1);
        if (!allGoods.SaveItem(item)) {
            return 1;
        }
        added.push_back(item->F_ID());
    }
    const double save = seconds(timer);
    std::printf("SaveItem: %d new goods in %.2f s = %.0f a second (goal >= 2000)\n", kSaves, save, kSaves / save);

    constexpr int kRemoves = 1000;
    QStringList victims;
    for (int i = 0; i < kRemoves; ++i) {
        victims.append(QString::number(allGoods.Item(rng.bounded(allGoods.Count()) + 1)->F_ID()));
    }
    victims.removeDuplicates();
    // The removed rows are put back afterwards, so that --reuse finds the database as generated.
    db->Execute(u"Create Temporary Table BenchRemoved As Select * From T_Item Where F_ID In ("_s + victims.join(u',')
                + u")"_s);
    timer.restart();
    for (const QString &id : std::as_const(victims)) {
        if (!allGoods.RemoveItem(id.toInt())) {
            return 1;
        }
    }
    const double remove = seconds(timer);
    std::printf("RemoveItem: %lld goods in %.2f s = %.0f a second\n", qint64(victims.size()), remove,
                double(victims.size()) / remove);

    CTransaction cleanup(*db);
    db->Execute(u"Insert Into T_Item Select * From BenchRemoved"_s);
    for (qint32 id : added) {
        db->Execute(u"Delete From T_Item Where F_ID="_s + QString::number(id));
    }
    cleanup.Commit();
    return 0;
}
