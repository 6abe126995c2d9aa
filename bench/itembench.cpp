// Loads, looks up, saves and deletes master data at the scale of a large shop and prints the figures.
//
//   quillon-bench-items [--items N] [--db URL] [--reuse] [--load-only]
//
// Without --db the database is an SQLite file in a temporary folder. --reuse keeps a database that already holds N
// generated items instead of generating it again; --load-only stops after loading (for profiling the load).
#include "benchsupport.h"
#include "cbus.h"
#include "cconnection.h"
#include "citems.h"
#include "keyid.h"
#include "prompt.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QRandomGenerator>
#include <QSqlQuery>
#include <QTemporaryDir>

#include <malloc.h>

#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

double seconds(const QElapsedTimer &t)
{
    return double(t.nsecsElapsed()) / 1e9;
}

const char16_t kHanzi[] = u"华东北南西中国上海市京天津广州深圳成都重庆武汉杭苏宁波青岛大连厦门长沙郑州济西安福"
                          u"康师傅统一农夫山泉娃哈哈伊利蒙牛光明旺双汇金龙鱼可口乐百事雪碧芬达矿泉水绿茶红茶果汁"
                          u"牛奶饼干面包方便面火腿肠大米食用油洗发水牙膏纸巾毛巾香皂洗衣粉酱油醋盐糖茶叶咖啡";

QString hanzi(QRandomGenerator &rng, int length)
{
    QString s;
    s.reserve(length);
    const int n = int(std::size(kHanzi)) - 1;
    for (int i = 0; i < length; ++i) {
        s.append(QChar(kHanzi[rng.bounded(n)]));
    }
    return s;
}

QString letters(QRandomGenerator &rng, int length)
{
    QString s;
    for (int i = 0; i < length; ++i) {
        s.append(QChar(u'a' + rng.bounded(26)));
    }
    return s;
}

QString digits(QRandomGenerator &rng, int length)
{
    QString s;
    for (int i = 0; i < length; ++i) {
        s.append(QChar(u'0' + rng.bounded(10)));
    }
    return s;
}

// Writes N items: 90% goods, 5% clients, the rest over the other kinds. Returns the number written.
qint64 generate(CConnection &db, qint64 total)
{
    QRandomGenerator rng(42);
    const qint64 goods = total * 9 / 10;
    const qint64 clients = total / 20;
    constexpr int kUnits = 40;
    constexpr int kTypes = 200;
    constexpr int kClientTypes = 10;
    const int otherKinds[] = {5, 6, 9, 10, 11};

    const QString columns =
        u"F_ID,F_ItemNo,F_ItemName,F_ItemTypeID,F_Standard,F_Spell,F_ParentID,F_Remark,F_LimitUp,F_LimitDown,"
        "F_Address,F_Tel1,F_Tel2,F_Tel3,F_LinkMen,F_PostCode,F_Tag1,F_Tag2,F_Tag3,F_OweWarring,F_OweStop,F_Bank,"
        "F_BankAccount,F_OrderByID,F_Date,F_IsSpecial,F_ArtificialPerson,F_IRDNumber,F_Price1,F_Price2,F_Price3,"
        "F_Price4,F_PackageAmount,F_Time1,F_Time2,F_Tag4,F_Tag5,F_Tag6"_s;
    // One statement prepared once and executed per row: the fastest way in through the drivers.
    QSqlQuery insert(db.database());
    if (!insert.prepare(u"Insert Into T_Item ("_s + columns + u") Values ("_s + QString(u",?"_s).repeated(38).mid(1)
                        + u")"_s)) {
        qFatal("prepare failed");
    }
    QVariantList pending;
    qint32 id = 0;
    qint64 written = 0;
    auto flush = [&](bool) {
        for (int i = 0; i < pending.size(); ++i) {
            insert.bindValue(i, db.toSqlValue(pending.at(i)));
        }
        if (!insert.exec()) {
            qFatal("insert failed");
        }
        pending.clear();
    };
    auto add = [&](int type, const QString &no, const QString &name, const QString &standard, qint32 parent,
                   qint32 tag1, const QString &address, const QString &tel, const QString &contact, bool priced) {
        const QVariant zero(0);
        const QVariant money =
            priced ? QVariant(u"%1.%2"_s.arg(rng.bounded(1, 500)).arg(rng.bounded(100))) : QVariant(0);
        pending << ++id << no << name << type << standard << letters(rng, std::min<int>(8, int(name.size()))) << parent
                << (rng.bounded(4) == 0 ? hanzi(rng, 8) : QString()) << (priced ? 500 : 0) << (priced ? 20 : 0)
                << address << tel << QString() << QString() << contact
                << (address.isEmpty() ? QString() : digits(rng, 6)) << tag1 << zero << zero
                << (address.isEmpty() ? 0 : 20000) << (address.isEmpty() ? 0 : 50000)
                << (address.isEmpty() ? QString() : u"中国工商银行"_s)
                << (address.isEmpty() ? QString() : digits(rng, 19)) << zero << u"2024-03-01"_s << false
                << (address.isEmpty() ? QString() : contact) << (address.isEmpty() ? QString() : digits(rng, 18))
                << money << money << money << money << (priced ? 12 : 1) << QVariant() << QVariant() << zero << zero
                << zero;
        ++written;
        flush(false);
    };

    CTransaction transaction(db);
    for (int u = 0; u < kUnits; ++u) {
        add(2, QString::number(u), hanzi(rng, 1), {}, 0, 0, {}, {}, {}, false);
    }
    for (int t = 0; t < kTypes; ++t) {
        add(3, QString::number(t).rightJustified(3, u'0'), hanzi(rng, 4), {}, 0, t, {}, {}, {}, false);
    }
    for (int t = 0; t < kClientTypes; ++t) {
        add(8, QString::number(t), hanzi(rng, 4), {}, 0, 0, {}, {}, {}, false);
    }
    const qint32 firstType = kUnits + 1;
    const qint32 firstClientType = kUnits + kTypes + 1;
    for (qint64 g = 0; g < goods; ++g) {
        add(4, u"SP"_s + QString::number(g).rightJustified(7, u'0'), hanzi(rng, 6 + rng.bounded(8)),
            digits(rng, 3) + u"ml"_s, firstType + rng.bounded(kTypes), 1 + rng.bounded(kUnits), {}, {}, {}, true);
    }
    for (qint64 c = 0; c < clients; ++c) {
        add(1, u"KH"_s + QString::number(c).rightJustified(6, u'0'), hanzi(rng, 6 + rng.bounded(8)), {},
            firstClientType + rng.bounded(kClientTypes), 0, hanzi(rng, 16), u"021-"_s + digits(rng, 8), hanzi(rng, 3),
            false);
    }
    add(12, QString(), u"示例商贸有限公司"_s, {}, 0, 0, hanzi(rng, 16), u"021-"_s + digits(rng, 8), hanzi(rng, 3),
        false);
    for (qint64 r = written; r < total; ++r) {
        add(otherKinds[r % 5], QString::number(r), hanzi(rng, 4), {}, 0, int(r % 100), {}, {}, {}, false);
    }
    transaction.Commit();
    Module1::ReseedKeyID(db, u"T_Item"_s);
    return written;
}

qint64 countItems(CConnection &db)
{
    QSqlQuery q = db.Select(u"Select Count(*) From T_Item"_s);
    return q.next() ? q.value(0).toLongLong() : 0;
}

// The floor: the same rows through the same statements, every column read, nothing kept.
double bareScan(CConnection &db)
{
    QElapsedTimer timer;
    timer.start();
    qint64 touched = 0;
    for (int type : {8, 9, 1, 2, 3, 4, 5, 6, 10, 11, 12}) {
        QSqlQuery q = db.Select(CItems::loadStatement(type));
        const int columns = q.record().count();
        while (q.next()) {
            for (int c = 0; c < columns; ++c) {
                touched += q.value(c).isNull() ? 0 : 1;
            }
        }
    }
    std::printf("  (bare scan touched %lld values)\n", touched);
    return seconds(timer);
}

template<typename Indexed, typename Linear>
void lookups(const char *name, const CItems &goods, Indexed indexed, Linear linear)
{
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
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    ScriptedPrompt prompt;
    prompt.setEcho(true);
    prompt.setDefaultAnswer(CPrompt::vbYes);
    CPrompt::setCurrent(&prompt);

    qint64 total = 1000000;
    QString url;
    bool reuse = false;
    bool loadOnly = false;
    const QStringList args = QCoreApplication::arguments();
    for (qsizetype i = 1; i < args.size(); ++i) {
        if (args[i] == u"--items"_s && i + 1 < args.size()) {
            total = args[++i].toLongLong();
        } else if (args[i] == u"--db"_s && i + 1 < args.size()) {
            url = args[++i];
        } else if (args[i] == u"--reuse"_s) {
            reuse = true;
        } else if (args[i] == u"--load-only"_s) {
            loadOnly = true;
        } else {
            std::fprintf(stderr, "usage: quillon-bench-items [--items N] [--db URL] [--reuse] [--load-only]\n");
            return 2;
        }
    }
    QTemporaryDir dir;
    if (url.isEmpty()) {
        url = u"sqlite://"_s + dir.path() + u"/bench.db"_s;
    }
    QString error;
    auto db = CConnection::Open(url, &error);
    if (!db) {
        std::fprintf(stderr, "%s\n", qPrintable(error));
        return 1;
    }
    std::printf("database: %s\n", qPrintable(url));

    QElapsedTimer timer;
    // A reused database has lost the goods that earlier runs deleted; a few hundred per run change nothing.
    const QString marker = u"bench:"_s + QString::number(total);
    const bool reusable = reuse && db->hasTable(u"T_Item"_s) && db->hasTable(u"T_KeyID"_s)
        && db->Select(u"Select 1 From T_KeyID Where F_TableName=?"_s, {marker}).next()
        && countItems(*db) >= total * 98 / 100;
    if (!reusable) {
        timer.start();
        for (const QString &table : {u"T_Item"_s, u"T_KeyID"_s, u"T_GoodsPrice"_s, u"T_GoodsInOutList"_s}) {
            if (db->hasTable(table)) {
                db->Execute(u"Drop Table "_s + table);
            }
        }
        db->EnsureSchema();
        generate(*db, total);
        db->Execute(u"Insert Into T_KeyID (F_TableName, F_MaxID) Values (?, 0)"_s, {marker});
        if (db->engine() == CConnection::Engine::PostgreSQL) {
            db->Execute(u"ANALYZE"_s);
        }
        std::printf("generated %lld items in %.1f s\n", total, seconds(timer));
    }

    malloc_trim(0);
    const qint64 before = BenchSupport::residentBytes();
    CBus bus;
    timer.restart();
    bus.InitAllData(db);
    const double load = seconds(timer);
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
    const double bare = bareScan(*db);
    std::printf("InitAllData: %lld items in %.2f s; bare scan %.2f s; ratio %.2f (goal <= 2)\n", loaded, load, bare,
                load / bare);
    std::printf("memory: %.0f bytes per loaded item (goal <= 1024)\n", double(after - before) / double(loaded));

    const CItems &goods = *bus.mAllGoods();
    lookups(
        "GetItemByID", goods, [&](const CItem &probe) { return goods.SearchItemByID(probe.F_ID()); },
        [&](const CItem &probe) {
            for (const CItemPtr &item : goods) {
                if (item->F_ID() == probe.F_ID()) {
                    return true;
                }
            }
            return false;
        });
    lookups(
        "GetItemByItemNo", goods, [&](const CItem &probe) { return goods.GetItemByItemNo(probe.F_ItemNo()); },
        [&](const CItem &probe) {
            for (const CItemPtr &item : goods) {
                if (item->F_ItemNo() == probe.F_ItemNo()) {
                    return true;
                }
            }
            return false;
        });

    CItems &allGoods = *bus.mAllGoods();
    QRandomGenerator rng(11);
    constexpr int kSaves = 10000;
    std::vector<qint32> added;
    timer.restart();
    for (int i = 0; i < kSaves; ++i) {
        auto item = std::make_shared<CItem>();
        item->setF_ItemTypeID(4);
        item->setF_ItemNo(u"SP"_s + QString::number(rng.bounded(int(total))).rightJustified(7, u'0') + u"N"_s);
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
    timer.restart();
    for (int i = 0; i < kRemoves; ++i) {
        const CItemPtr victim = allGoods.Item(rng.bounded(allGoods.Count()) + 1);
        if (!allGoods.RemoveItem(victim->F_ID())) {
            return 1;
        }
    }
    const double remove = seconds(timer);
    std::printf("RemoveItem: %d goods in %.2f s = %.0f a second\n", kRemoves, remove, kRemoves / remove);

    // Leaves the database as generated, but for the deleted goods, so that --reuse can use it again.
    CTransaction cleanup(*db);
    for (qint32 id : added) {
        db->Execute(u"Delete From T_Item Where F_ID="_s + QString::number(id));
    }
    cleanup.Commit();
    return 0;
}
