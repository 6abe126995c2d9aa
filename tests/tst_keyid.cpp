#include "cconnection.h"
#include "itemfixtures.h"
#include "keyid.h"
#include "testdatabase.h"

#include <QCoreApplication>
#include <QProcess>
#include <QSet>
#include <QSqlQuery>
#include <QTest>

using namespace Qt::StringLiterals;

class KeyIdTest : public QObject
{
    Q_OBJECT

private:
    static std::optional<int> counterRow(CConnection &db, const QString &table)
    {
        QSqlQuery q = db.Select(u"Select F_MaxID From T_KeyID Where F_TableName=?"_s, {table});
        if (!q.next()) {
            return std::nullopt;
        }
        return q.value(0).toInt();
    }

private Q_SLOTS:
    void firstKeyIsOneAndTheRowHoldsTwo()
    {
        auto db = TestDatabase::create();
        QVERIFY(db);
        QCOMPARE(Module1::GetNewID(*db, u"T_Item"_s, true), 1);
        QCOMPARE(counterRow(*db, u"T_Item"_s), std::optional<int>(2));
        QCOMPARE(Module1::GetNewID(*db, u"T_Item"_s, true), 2);
        QCOMPARE(Module1::GetNewID(*db, u"T_GoodsPrice"_s, true), 1);
        QCOMPARE(counterRow(*db, u"T_Item"_s), std::optional<int>(3));
    }

    void peekingWritesNothing()
    {
        auto db = TestDatabase::create();
        QVERIFY(db);
        QCOMPARE(Module1::GetNewID(*db, u"T_Item"_s, false), 1);
        QCOMPARE(Module1::GetNewID(*db, u"T_Item"_s, false), 1);
        QCOMPARE(counterRow(*db, u"T_Item"_s), std::nullopt);
        Module1::GetNewID(*db, u"T_Item"_s, true);
        QCOMPARE(Module1::GetNewID(*db, u"T_Item"_s, false), 2);
        QCOMPARE(Module1::GetNewID(*db, u"T_Item"_s, false), 2);
    }

    void tableNameIsBoundNotConcatenated()
    {
        auto db = TestDatabase::create();
        QVERIFY(db);
        const QString odd = u"T_It'em; --"_s;
        QCOMPARE(Module1::GetNewID(*db, odd, true), 1);
        QCOMPARE(Module1::GetNewID(*db, odd, true), 2);
        QCOMPARE(counterRow(*db, odd), std::optional<int>(3));
    }

    void keyInARolledBackTransactionIsNotConsumed()
    {
        auto db = TestDatabase::create();
        QVERIFY(db);
        {
            CTransaction transaction(*db);
            QCOMPARE(Module1::GetNewID(*db, u"T_Item"_s, true), 1);
        }
        QCOMPARE(Module1::GetNewID(*db, u"T_Item"_s, true), 1);
    }

    void counterAtTheLimitOverflows()
    {
        auto db = TestDatabase::create();
        QVERIFY(db);
        db->Execute(u"Insert Into T_KeyID Values ('T_Item', 2147483647)"_s);
        QVERIFY_THROWS_EXCEPTION(DbError, Module1::GetNewID(*db, u"T_Item"_s, true));
        QCOMPARE(counterRow(*db, u"T_Item"_s), std::optional<int>(2147483647));
    }

    void reseedFollowsTheLargestKey()
    {
        auto db = TestDatabase::create();
        QVERIFY(db);
        db->Execute(u"Insert Into T_KeyID Values ('T_Item', 3)"_s);
        for (int id : {5, 57, 12}) {
            db->Execute(u"Insert Into T_Item (F_ID, F_ItemTypeID) Values (?, 2)"_s, {id});
        }
        Module1::ReseedKeyID(*db, u"T_Item"_s);
        QCOMPARE(Module1::GetNewID(*db, u"T_Item"_s, true), 58);

        Module1::ReseedKeyID(*db, u"T_GoodsPrice"_s);
        QCOMPARE(counterRow(*db, u"T_GoodsPrice"_s), std::nullopt);
        QCOMPARE(Module1::GetNewID(*db, u"T_GoodsPrice"_s, true), 1);

        QVERIFY_THROWS_EXCEPTION(DbError, Module1::ReseedKeyID(*db, u"T_Item; DROP TABLE T_Item"_s));
    }

    void concurrentProcessesNeverShareAKey_data()
    {
        QTest::addColumn<QStringList>("paths");
        QTest::newRow("draw") << QStringList {u"draw"_s, u"draw"_s, u"draw"_s, u"draw"_s};
        // Every public way of drawing a key at once: plain, inside an outer transaction, and by saving items.
        QTest::newRow("every path") << QStringList {u"draw"_s, u"transaction"_s, u"save"_s, u"save"_s};
    }
    void concurrentProcessesNeverShareAKey()
    {
        QFETCH(QStringList, paths);
        const QString url = TestDatabase::freshUrl();
        {
            auto db = CConnection::Open(url);
            QVERIFY(db);
            db->EnsureSchema();
        }
        const QString worker = QCoreApplication::applicationDirPath() + u"/keyid_worker"_s;
        const int processes = int(paths.size());
        const bool saves = paths.contains(u"save"_s);
        const int perProcess = saves ? 150 : 500;
        std::vector<std::unique_ptr<QProcess>> workers;
        for (const QString &path : paths) {
            auto p = std::make_unique<QProcess>();
            p->start(worker, {url, u"T_Item"_s, QString::number(perProcess), path});
            workers.push_back(std::move(p));
        }
        QSet<int> keys;
        for (auto &p : workers) {
            QVERIFY(p->waitForFinished(240000));
            QVERIFY2(p->exitCode() == 0, p->readAllStandardError().constData());
            const QList<QByteArray> lines = p->readAllStandardOutput().split('\n');
            for (const QByteArray &line : lines) {
                if (!line.isEmpty()) {
                    keys.insert(line.toInt());
                }
            }
        }
        QCOMPARE(keys.size(), processes * perProcess);
        QCOMPARE(*std::min_element(keys.cbegin(), keys.cend()), 1);
        QCOMPARE(*std::max_element(keys.cbegin(), keys.cend()), processes * perProcess);
        // The counter stays above every key the rows hold.
        auto db = CConnection::Open(url);
        QVERIFY(db);
        QVERIFY(Module1::GetNewID(*db, u"T_Item"_s, false)
                > ItemFixtures::count(*db, u"Select Max(F_ID) From T_Item"_s));
    }
};

QTEST_GUILESS_MAIN(KeyIdTest)
#include "tst_keyid.moc"
