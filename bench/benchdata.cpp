#include "benchdata.h"

#include "cconnection.h"
#include "keyid.h"

#include <QElapsedTimer>
#include <QRandomGenerator>
#include <QSqlQuery>

#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

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

} // namespace

// Writes N items: 90% goods, 5% clients, the rest over the other kinds. Returns the number written.
qint64 BenchData::generate(CConnection &db, qint64 total)
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

qint64 BenchData::countItems(CConnection &db)
{
    QSqlQuery q = db.Select(u"Select Count(*) From T_Item"_s);
    return q.next() ? q.value(0).toLongLong() : 0;
}

double BenchData::prepare(CConnection &db, qint64 total, bool reuse)
{
    const QString marker = u"bench:"_s + QString::number(total);
    const bool reusable = reuse && db.hasTable(u"T_Item"_s) && db.hasTable(u"T_KeyID"_s)
        && db.Select(u"Select 1 From T_KeyID Where F_TableName=?"_s, {marker}).next()
        && countItems(db) >= total * 98 / 100;
    if (reusable) {
        db.EnsureSchema(); // as the programs do at start: what a newer version adds to an existing database
        return 0;
    }
    QElapsedTimer timer;
    timer.start();
    for (const QString &table : {u"T_Item"_s, u"T_KeyID"_s, u"T_GoodsPrice"_s, u"T_GoodsInOutList"_s}) {
        if (db.hasTable(table)) {
            db.Execute(u"Drop Table "_s + table);
        }
    }
    db.EnsureSchema();
    generate(db, total);
    db.Execute(u"Insert Into T_KeyID (F_TableName, F_MaxID) Values (?, 0)"_s, {marker});
    if (db.engine() == CConnection::Engine::PostgreSQL) {
        db.Execute(u"ANALYZE"_s);
    }
    return BenchSupport::seconds(timer);
}

BenchSupport::Options BenchData::Store::options(const char *usage)
{
    BenchSupport::Options options(usage);
    options.value(u"--items"_s, total).value(u"--db"_s, url).flag(u"--reuse"_s, reuse);
    return options;
}

std::shared_ptr<CConnection> BenchData::Store::open()
{
    const QString where = url.isEmpty() ? BenchSupport::sqliteUrl(m_scratch, u"bench.db"_s) : url;
    QString error;
    auto db = CConnection::Open(where, &error);
    if (!db) {
        std::fprintf(stderr, "%s\n", qPrintable(error));
        return db;
    }
    std::printf("database: %s\n", qPrintable(where));
    if (const double generated = prepare(*db, total, reuse); generated > 0) {
        std::printf("generated %lld items in %.1f s\n", total, generated);
    }
    return db;
}
