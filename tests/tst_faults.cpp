// Faults an unlucky user meets: damaged files and the like. Each case is what the user would do, and what must
// not happen is that a fault passes for success.
#include "cbus.h"
#include "cconnection.h"
#include "changelog.h"
#include "citems.h"
#include "databasecopy.h"
#include "itemtype.h"
#include "prompt.h"
#include "testdatabase.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <csignal>
#include <sys/types.h>

using namespace Qt::StringLiterals;

namespace {

// A file database with `rows` goods whose names fill many pages; closed again, so that its file can be damaged.
QString goodsFile(const QTemporaryDir &dir, int rows)
{
    const QString path = dir.filePath(u"shop.db"_s);
    auto connection = CConnection::Open(u"sqlite:///"_s + path);
    if (!connection) {
        return QString();
    }
    connection->EnsureSchema();
    CItems goods;
    goods.Attach(connection, itemTypeNumber(ItemType::Goods));
    connection->BeginTrans();
    for (int i = 1; i <= rows; ++i) {
        connection->Execute(u"Insert Into T_Item (F_ID, F_ItemTypeID, F_ItemNo, F_ItemName) Values (?, ?, ?, ?)"_s,
                            {QVariant(i), QVariant(itemTypeNumber(ItemType::Goods)),
                             QVariant(u"G%1"_s.arg(i, 5, 10, QChar(u'0'))),
                             QVariant(u"商品"_s + QString(300, QChar(u'a' + i % 26)))});
    }
    connection->CommitTrans();
    // Without the secondary indexes nearly every page of the file holds rows of T_Item, so a damaged page is one
    // that every reader of the goods meets.
    QStringList indexes;
    QSqlQuery q = connection->Select(u"Select name From sqlite_master Where type='index' And sql Is Not Null"_s);
    while (q.next()) {
        indexes.append(q.value(0).toString());
    }
    q = QSqlQuery();
    for (const QString &index : std::as_const(indexes)) {
        connection->Execute(u"Drop Index "_s + index);
    }
    connection->Execute(u"VACUUM"_s);
    connection->Execute(u"PRAGMA wal_checkpoint(TRUNCATE)"_s);
    connection->Close();
    return path;
}

// Overwrites one page in the middle of the file with garbage, as a failing disk does.
bool damagePage(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadWrite)) {
        return false;
    }
    const qint64 pageSize = 4096;
    const qint64 pages = file.size() / pageSize;
    if (pages < 10) {
        return false;
    }
    file.seek((pages / 2) * pageSize);
    return file.write(QByteArray(pageSize, '\xA5')) == pageSize;
}

} // namespace

class FaultsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        m_previous = CPrompt::setCurrent(&m_prompt);
        m_prompt.clear();
    }
    void cleanup() { CPrompt::setCurrent(m_previous); }

    // A damaged page used to end the rows early: the load showed a part of the goods as if it were all of them,
    // and a copy reported success with the rest missing.
    void damagedPageIsAnErrorNotTheEndOfTheData()
    {
        if (TestDatabase::isPostgreSQL()) {
            QSKIP("a damaged page is a file of the embedded database");
        }
        QTemporaryDir dir;
        const QString path = goodsFile(dir, 400);
        QVERIFY(!path.isEmpty());
        QVERIFY(damagePage(path));
        auto connection = CConnection::Open(u"sqlite:///"_s + path);
        QVERIFY(connection);

        CItems goods;
        QVERIFY(!goods.InitInstance(connection, itemTypeNumber(ItemType::Goods)));
        QCOMPARE(m_prompt.shown().size(), 1);
        QVERIFY2(m_prompt.lastText().startsWith(u"读取商品数据失败:"_s), qPrintable(m_prompt.lastText()));

        auto target = TestDatabase::createSqlite();
        QVERIFY(target);
        const DatabaseCopy::Result copied = DatabaseCopy::copyTables(*connection, *target, {u"T_Item"_s});
        QVERIFY(!copied.ok);
        QVERIFY(!copied.error.isEmpty());
        QSqlQuery count = target->Select(u"Select Count(*) From T_Item"_s);
        QVERIFY(count.next());
        QCOMPARE(count.value(0).toInt(), 0);
    }

    // A save after a partial read wrote every column back: the bank, account and prices that the read never
    // reached were replaced by blanks.
    void saveAfterPartialReadKeepsWhatItDidNotRead()
    {
        auto db = TestDatabase::create();
        QVERIFY(db);
        TestDatabase::allowNullsAsOlderPrograms(*db);
        db->Execute(u"Insert Into T_Item (F_ID, F_ItemTypeID, F_ItemNo, F_ItemName, F_Bank, F_BankAccount, "
                    "F_IRDNumber, F_Price1, F_Tag4) Values (7, 1, 'KH0001', '老客户', '工商银行', "
                    "'6222020200112233445', '91330100MA2ABCDE1X', 5.5, 9)"_s);
        // A NULL where no NULL rule applies: the read stops at F_LimitUp.
        db->Execute(u"Update T_Item Set F_LimitUp = NULL Where F_ID = 7"_s);

        CItems clients;
        QVERIFY(clients.InitInstance(db, itemTypeNumber(ItemType::Client)));
        QCOMPARE(clients.Count(), 1);
        QCOMPARE(m_prompt.shown().size(), 1);
        QVERIFY2(m_prompt.lastText().contains(u"F_LimitUp"_s), qPrintable(m_prompt.lastText()));
        const CItemPtr client = clients.Item(1);
        QCOMPARE(client->unreadFrom(), CItem::columnIndex(u"F_LimitUp"_s));
        QCOMPARE(client->F_Bank(), QString());

        client->setF_ItemName(u"老客户(改名)"_s);
        client->setF_Tel1(u"0571-88886666"_s); // typed after the read: saved
        QVERIFY(clients.SaveItem(client));

        QSqlQuery row = db->Select(u"Select F_ItemName, F_Bank, F_BankAccount, F_IRDNumber, F_Price1, F_Tag4, F_Tel1 "
                                   "From T_Item Where F_ID = 7"_s);
        QVERIFY(row.next());
        QCOMPARE(row.value(0).toString(), u"老客户(改名)"_s);
        QCOMPARE(row.value(1).toString(), u"工商银行"_s);
        QCOMPARE(row.value(2).toString(), u"6222020200112233445"_s);
        QCOMPARE(row.value(3).toString(), u"91330100MA2ABCDE1X"_s);
        QCOMPARE(row.value(4).toDouble(), 5.5);
        QCOMPARE(row.value(5).toInt(), 9);
        QCOMPARE(row.value(6).toString(), u"0571-88886666"_s);
    }

    // A writer behind another seat's lock waited as long as the lock was held, without a word.
    void heldLockEndsInAClearRefusal()
    {
        const QString url = TestDatabase::freshUrl();
        auto first = CConnection::Open(url);
        QVERIFY(first);
        first->EnsureSchema();
        auto second = CConnection::Open(url);
        QVERIFY(second);
        first->BeginTrans();
        first->Execute(u"Insert Into T_KeyID (F_TableName, F_MaxID) Values ('T_Item', 1)"_s);
        QString message;
        try {
            second->BeginTrans();
            second->Execute(u"Insert Into T_KeyID (F_TableName, F_MaxID) Values ('T_Item', 2)"_s);
            second->CommitTrans();
        } catch (const DbError &e) {
            message = e.message();
        }
        first->RollbackTrans();
        QVERIFY2(message.startsWith(u"数据正被其他用户修改,请稍后再试"_s), qPrintable(message));
    }

    // A large import turned the change notes off by dropping the triggers, which on a server locked T_Item for the
    // whole import: the other seats' reads waited on it, and their saves gave up saying the table did not exist.
    void pausedChangeNotesKeepNoSeatWaiting()
    {
        const bool server = TestDatabase::isPostgreSQL();
        const QString url = TestDatabase::freshUrl();
        auto importer = CConnection::Open(url);
        QVERIFY(importer);
        importer->EnsureSchema();
        auto seat = CConnection::Open(url);
        QVERIFY(seat);
        // The seat gives up after a short wait instead of the usual ten seconds.
        seat->Execute(server ? u"SET lock_timeout = '2s'"_s : u"PRAGMA busy_timeout = 500"_s);
        auto schemaVersion = [&] {
            QSqlQuery q = seat->Select(u"PRAGMA schema_version"_s);
            return q.next() ? q.value(0).toInt() : -1;
        };
        const int schemaBefore = server ? 0 : schemaVersion();
        const qint64 before = ChangeLog::lastSeq(*seat);

        importer->BeginTrans();
        QVERIFY(ChangeLog::suspendTriggers(*importer, u"T_Item"_s));
        importer->Execute(
            u"Insert Into T_Item (F_ID, F_ItemTypeID, F_ItemNo, F_ItemName) Values (901, 4, 'P1', '暂停中')"_s);
        QString readError;
        try {
            QSqlQuery q = seat->Select(u"Select Count(*) From T_Item"_s);
            QVERIFY(q.next());
            QCOMPARE(q.value(0).toInt(), 0);
        } catch (const DbError &e) {
            readError = e.message();
        }
        QCOMPARE(readError, QString());
        // A save of the other seat goes in beside the import on a server; SQLite has one writer at a time.
        CItems units;
        units.Attach(seat, itemTypeNumber(ItemType::Unit));
        auto unit = CItem::create();
        unit->setF_ItemTypeID(itemTypeNumber(ItemType::Unit));
        unit->setF_ItemName(u"箱"_s);
        m_prompt.clear();
        QVERIFY2(units.SaveItem(unit) == server, qPrintable(m_prompt.lastText()));
        if (!server) {
            QVERIFY2(m_prompt.lastText().contains(u"数据正被其他用户修改,请稍后再试"_s),
                     qPrintable(m_prompt.lastText()));
        }
        ChangeLog::restoreTriggers(*importer, u"T_Item"_s);
        importer->Execute(
            u"Insert Into T_Item (F_ID, F_ItemTypeID, F_ItemNo, F_ItemName) Values (902, 4, 'P2', '恢复后')"_s);
        importer->CommitTrans();

        // The paused row left no note, the row after the pause and the other seat's save did.
        QList<qint32> noted;
        for (const ItemChange &change : ChangeLog::read(*seat, before + 1, 100)) {
            noted.append(change.id);
        }
        std::sort(noted.begin(), noted.end());
        QList<qint32> expected {902};
        if (server) {
            expected.append(unit->F_ID());
            std::sort(expected.begin(), expected.end());
        }
        QCOMPARE(noted, expected);
        if (!server) {
            QCOMPARE(schemaVersion(), schemaBefore);
        }
        // Later changes are noted again.
        seat->Execute(u"Update T_Item Set F_ItemName = '改名' Where F_ID = 901"_s);
        QCOMPARE(ChangeLog::read(*seat, before + 1, 100).size(), expected.size() + 1);
    }

    // A save behind a lock on the table itself (a program that locked T_Item) gave up saying the table did not
    // exist.
    void saveBehindATableLockSaysTheDataIsBusy()
    {
        const bool server = TestDatabase::isPostgreSQL();
        const QString url = TestDatabase::freshUrl();
        auto holder = CConnection::Open(url);
        QVERIFY(holder);
        holder->EnsureSchema();
        holder->BeginTrans();
        if (server) {
            holder->Execute(u"LOCK TABLE T_Item IN ACCESS EXCLUSIVE MODE"_s);
        } else {
            holder->Execute(u"Insert Into T_KeyID (F_TableName, F_MaxID) Values ('T_Other', 1)"_s);
        }
        // A seat that starts now: nothing of the table is known to it yet.
        auto seat = CConnection::Open(url);
        QVERIFY(seat);
        seat->Execute(server ? u"SET lock_timeout = '2s'"_s : u"PRAGMA busy_timeout = 500"_s);
        CItems units;
        units.Attach(seat, itemTypeNumber(ItemType::Unit));
        auto unit = CItem::create();
        unit->setF_ItemTypeID(itemTypeNumber(ItemType::Unit));
        unit->setF_ItemName(u"箱"_s);
        m_prompt.clear();
        QVERIFY(!units.SaveItem(unit));
        holder->RollbackTrans();
        QCOMPARE(m_prompt.shown().size(), 1);
        QVERIFY2(m_prompt.lastText().contains(u"数据正被其他用户修改,请稍后再试"_s), qPrintable(m_prompt.lastText()));
        QVERIFY2(!m_prompt.lastText().contains(u"数据表不存在"_s), qPrintable(m_prompt.lastText()));
        QCOMPARE(units.Count(), 0);
    }

    // Writers killed at random moments of their saves: every save they reported done is in the database, whole,
    // and the database is healthy enough for the next save.
    void killedWriterLosesNoAcknowledgedSave()
    {
        auto db = TestDatabase::create();
        QVERIFY(db);
        QList<QPair<int, QString>> acknowledged;
        for (int round = 1; round <= 4; ++round) {
            QProcess writer;
            writer.start(QCoreApplication::applicationDirPath() + u"/save_worker"_s, {db->url()});
            QVERIFY(writer.waitForStarted());
            QByteArray out;
            // Kill after a different number of saves each round, so the kill lands in different steps.
            while (out.count('\n') < 15 * round + round * round && writer.state() == QProcess::Running) {
                writer.waitForReadyRead(10000);
                out += writer.readAllStandardOutput();
            }
            QVERIFY2(writer.state() == QProcess::Running, writer.readAllStandardError().constData());
            ::kill(pid_t(writer.processId()), SIGKILL);
            QVERIFY(writer.waitForFinished(10000));
            out += writer.readAllStandardOutput();
            const QList<QByteArray> lines = out.split('\n');
            for (qsizetype i = 0; i + 1 < lines.size(); ++i) { // the last piece has no line end: not reported
                const QList<QByteArray> fields = lines[i].split('\t');
                QCOMPARE(fields.size(), 2);
                acknowledged.append({fields[0].toInt(), QString::fromUtf8(fields[1])});
            }
        }
        QVERIFY(acknowledged.size() >= 60);
        for (const auto &[id, name] : std::as_const(acknowledged)) {
            QSqlQuery row = db->Select(u"Select F_ItemName From T_Item Where F_ID = ?"_s, {id});
            QVERIFY2(row.next(), qPrintable(u"lost: "_s + name));
            QCOMPARE(row.value(0).toString(), name);
        }
        if (!TestDatabase::isPostgreSQL()) {
            QSqlQuery check = db->Select(u"PRAGMA integrity_check"_s);
            QVERIFY(check.next());
            QCOMPARE(check.value(0).toString(), u"ok"_s);
        }
        CItems goods;
        QVERIFY(goods.InitInstance(db, itemTypeNumber(ItemType::Goods)));
        QVERIFY(goods.Count() >= acknowledged.size());
        auto item = CItem::create();
        item->setF_ItemTypeID(itemTypeNumber(ItemType::Goods));
        item->setF_ItemName(u"事后的商品"_s);
        QVERIFY(goods.SaveItem(item));
    }

    // The server ends this seat's session (a restart, an administrator): the next save is a clear error, the
    // list keeps its items, and nothing waits.
    void serverEndingTheSessionIsAClearError()
    {
        if (!TestDatabase::isPostgreSQL()) {
            QSKIP("a server session");
        }
        auto db = TestDatabase::create();
        QVERIFY(db);
        CItems units;
        QVERIFY(units.InitInstance(db, itemTypeNumber(ItemType::Unit)));
        auto first = CItem::create();
        first->setF_ItemTypeID(itemTypeNumber(ItemType::Unit));
        first->setF_ItemName(u"箱"_s);
        QVERIFY(units.SaveItem(first));
        QSqlQuery pid = db->Select(u"Select pg_backend_pid()"_s);
        QVERIFY(pid.next());
        auto administrator = CConnection::Open(db->url());
        QVERIFY(administrator);
        administrator->Select(u"Select pg_terminate_backend(?)"_s, {pid.value(0)});
        pid = QSqlQuery();

        auto second = CItem::create();
        second->setF_ItemTypeID(itemTypeNumber(ItemType::Unit));
        second->setF_ItemName(u"瓶"_s);
        m_prompt.clear();
        QElapsedTimer clock;
        clock.start();
        QVERIFY(!units.SaveItem(second));
        QVERIFY(clock.elapsed() < 15000);
        QCOMPARE(m_prompt.shown().size(), 1);
        QVERIFY2(m_prompt.lastText().startsWith(u"保存元素失败"_s), qPrintable(m_prompt.lastText()));
        QCOMPARE(units.Count(), 1);
        QCOMPARE(units.Item(1)->F_ItemName(), u"箱"_s);
    }

    // A server process that stops answering (frozen, its host swapping to death) kept a save waiting for ever:
    // the socket stays open and libpq waits without a limit.
    void frozenServerEndsASaveWithAMessage()
    {
        if (!TestDatabase::isPostgreSQL()) {
            QSKIP("a server process");
        }
        CConnection::setStatementTimeout(1000);
        struct Restore
        {
            ~Restore() { CConnection::setStatementTimeout(0); }
        } restore;
        auto db = TestDatabase::create();
        QVERIFY(db);
        CItems units;
        QVERIFY(units.InitInstance(db, itemTypeNumber(ItemType::Unit)));
        auto first = CItem::create();
        first->setF_ItemTypeID(itemTypeNumber(ItemType::Unit));
        first->setF_ItemName(u"箱"_s);
        QVERIFY(units.SaveItem(first));
        QSqlQuery pid = db->Select(u"Select pg_backend_pid()"_s);
        QVERIFY(pid.next());
        const pid_t backend = pid_t(pid.value(0).toLongLong());
        pid = QSqlQuery();
        QVERIFY(::kill(backend, SIGSTOP) == 0);
        struct Resume
        {
            pid_t backend;
            ~Resume() { ::kill(backend, SIGCONT); }
        } resume {backend};

        auto second = CItem::create();
        second->setF_ItemTypeID(itemTypeNumber(ItemType::Unit));
        second->setF_ItemName(u"瓶"_s);
        m_prompt.clear();
        QVERIFY(!units.SaveItem(second));
        QCOMPARE(m_prompt.shown().size(), 1);
        QVERIFY2(m_prompt.lastText().startsWith(u"保存元素失败"_s), qPrintable(m_prompt.lastText()));
        QVERIFY2(m_prompt.lastText().contains(u"没有响应"_s), qPrintable(m_prompt.lastText()));
        QCOMPARE(units.Count(), 1);
        QCOMPARE(units.Item(1)->F_ItemName(), u"箱"_s);
        QVERIFY(second->F_ID() < 1);
    }

    // A statement that runs too long on a live server is cancelled there, and the connection serves on.
    void slowStatementIsCancelledByTheServer()
    {
        if (!TestDatabase::isPostgreSQL()) {
            QSKIP("a server's statement limit");
        }
        CConnection::setStatementTimeout(500);
        struct Restore
        {
            ~Restore() { CConnection::setStatementTimeout(0); }
        } restore;
        auto db = TestDatabase::create();
        QVERIFY(db);
        QString message;
        try {
            db->Select(u"Select pg_sleep(5)"_s);
        } catch (const DbError &e) {
            message = e.message();
        }
        QVERIFY2(message.contains(u"已取消"_s), qPrintable(message));
        QSqlQuery q = db->Select(u"Select 1"_s);
        QVERIFY(q.next());
        QCOMPARE(q.value(0).toInt(), 1);
    }

    // A full disk reached the user as SQLite's English "database or disk is full".
    void fullDiskIsSaidInChinese()
    {
        if (TestDatabase::isPostgreSQL()) {
            QSKIP("SQLite's own size limit stands in for a full disk");
        }
        QTemporaryDir dir;
        auto db = CConnection::Open(u"sqlite:///"_s + dir.filePath(u"full.db"_s));
        QVERIFY(db);
        db->EnsureSchema();
        CItems units;
        QVERIFY(units.InitInstance(db, itemTypeNumber(ItemType::Unit)));
        // The file may not grow by another page: the next save does not fit.
        QSqlQuery pages = db->Select(u"PRAGMA page_count"_s);
        QVERIFY(pages.next());
        db->Select(u"PRAGMA max_page_count = "_s + pages.value(0).toString());
        pages = QSqlQuery();
        auto unit = CItem::create();
        unit->setF_ItemTypeID(itemTypeNumber(ItemType::Unit));
        unit->setF_ItemName(u"箱"_s);
        unit->setF_Remark(QString(20000, u'满'));
        m_prompt.clear();
        QVERIFY(!units.SaveItem(unit));
        QCOMPARE(m_prompt.shown().size(), 1);
        QVERIFY2(m_prompt.lastText().contains(u"磁盘已满,数据没有保存。"_s), qPrintable(m_prompt.lastText()));
        QVERIFY2(!m_prompt.lastText().contains(u"disk is full"_s), qPrintable(m_prompt.lastText()));
        QCOMPARE(units.Count(), 0);
    }

private:
    ScriptedPrompt m_prompt;
    CPrompt *m_previous = nullptr;
};

QTEST_GUILESS_MAIN(FaultsTest)
#include "tst_faults.moc"
