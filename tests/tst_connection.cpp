#include "cconnection.h"
#include "citems.h"
#include "excelconnection.h"
#include "itemtype.h"
#include "testdatabase.h"

#include <QCoreApplication>
#include <QFile>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QTest>
#include <QUrl>

#include <sys/stat.h>

using namespace Qt::StringLiterals;

class ConnectionTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void schemaHasEveryItemColumnInOrder()
    {
        auto db = TestDatabase::create();
        QVERIFY(db);
        const QSqlRecord item = db->tableRecord(u"T_Item"_s);
        const QStringList expected = {u"F_ID"_s,         u"F_ItemNo"_s,      u"F_ItemName"_s,
                                      u"F_ItemTypeID"_s, u"F_Standard"_s,    u"F_Spell"_s,
                                      u"F_ParentID"_s,   u"F_Remark"_s,      u"F_LimitUp"_s,
                                      u"F_LimitDown"_s,  u"F_Address"_s,     u"F_Tel1"_s,
                                      u"F_Tel2"_s,       u"F_Tel3"_s,        u"F_LinkMen"_s,
                                      u"F_PostCode"_s,   u"F_Tag1"_s,        u"F_Tag2"_s,
                                      u"F_Tag3"_s,       u"F_OweWarring"_s,  u"F_OweStop"_s,
                                      u"F_Bank"_s,       u"F_BankAccount"_s, u"F_OrderByID"_s,
                                      u"F_Date"_s,       u"F_IsSpecial"_s,   u"F_ArtificialPerson"_s,
                                      u"F_IRDNumber"_s,  u"F_Price1"_s,      u"F_Price2"_s,
                                      u"F_Price3"_s,     u"F_Price4"_s,      u"F_PackageAmount"_s,
                                      u"F_Time1"_s,      u"F_Time2"_s,       u"F_Tag4"_s,
                                      u"F_Tag5"_s,       u"F_Tag6"_s};
        QCOMPARE(item.count(), expected.size());
        for (int i = 0; i < item.count(); ++i) {
            QCOMPARE(item.fieldName(i).toLower(), expected.at(i).toLower());
        }
        for (const QString &table : {u"T_KeyID"_s, u"T_GoodsPrice"_s, u"T_GoodsInOutList"_s}) {
            QVERIFY2(db->hasTable(table), qPrintable(table));
        }
        QVERIFY(db->tableRecord(u"T_GoodsPrice"_s).contains(u"F_ClientTypeID"_s));
    }

    void existingDatabaseIsUsedAsItIs()
    {
        const QString url = TestDatabase::freshUrl();
        {
            auto db = CConnection::Open(url);
            QVERIFY(db);
            // A store made by an older program: fewer columns, a row already in it.
            db->Execute(u"CREATE TABLE T_Item (F_ID INTEGER PRIMARY KEY, F_ItemName TEXT)"_s);
            db->Execute(u"INSERT INTO T_Item VALUES (5, ?)"_s, {u"旧数据"_s});
            db->EnsureSchema();
        }
        auto db = CConnection::Open(url);
        QVERIFY(db);
        db->EnsureSchema();
        QCOMPARE(db->tableRecord(u"T_Item"_s).count(), 2);
        QSqlQuery q = db->Select(u"SELECT F_ItemName FROM T_Item WHERE F_ID=5"_s);
        QVERIFY(q.next());
        QCOMPARE(q.value(0).toString(), u"旧数据"_s);
        QVERIFY(db->hasTable(u"T_KeyID"_s));
    }

    void innerRollbackUndoesTheWholeTransaction()
    {
        auto db = TestDatabase::create();
        QVERIFY(db);
        db->BeginTrans();
        db->Execute(u"INSERT INTO T_KeyID VALUES ('A', 1)"_s);
        {
            CTransaction inner(*db);
            db->Execute(u"INSERT INTO T_KeyID VALUES ('B', 1)"_s);
            // leaves without Commit()
        }
        QCOMPARE(db->transactionDepth(), 1);
        QVERIFY_THROWS_EXCEPTION(DbError, db->CommitTrans());
        QCOMPARE(db->transactionDepth(), 0);
        QSqlQuery q = db->Select(u"SELECT COUNT(*) FROM T_KeyID"_s);
        QVERIFY(q.next());
        QCOMPARE(q.value(0).toInt(), 0);
    }

    void failedStatementGivesTheEngineMessage()
    {
        auto db = TestDatabase::create();
        QVERIFY(db);
        try {
            db->Execute(u"INSERT INTO T_NoSuchTable VALUES (1)"_s);
            QFAIL("no error");
        } catch (const DbError &e) {
            QVERIFY2(e.message().contains(u"t_nosuchtable"_s, Qt::CaseInsensitive), qPrintable(e.message()));
        }
    }

    void unreachableServerIsAClearError()
    {
        QString error;
        QVERIFY(!CConnection::Open(u"postgresql://nobody@127.0.0.1:1/none"_s, &error));
        QVERIFY2(error.contains(u"127.0.0.1:1"_s), qPrintable(error));
        QVERIFY(!CConnection::Open(u"oracle://x"_s, &error));
        QVERIFY(error.contains(u"oracle://x"_s));
    }

    void readOnlyFileRefusesWrites()
    {
        if (TestDatabase::isPostgreSQL()) {
            QSKIP("an SQLite file property");
        }
        const QString url = TestDatabase::freshUrl();
        {
            auto db = CConnection::Open(url);
            QVERIFY(db);
            db->EnsureSchema();
        }
        auto db = CConnection::Open(url + u"?mode=ro"_s);
        QVERIFY(db);
        QVERIFY_THROWS_EXCEPTION(DbError, db->Execute(u"INSERT INTO T_KeyID VALUES ('A', 1)"_s));
        QSqlQuery q = db->Select(u"SELECT COUNT(*) FROM T_KeyID"_s);
        QVERIFY(q.next());
        QCOMPARE(q.value(0).toInt(), 0);
    }

    void urlOptionsReachTheServer()
    {
        if (!TestDatabase::isPostgreSQL()) {
            QSKIP("libpq connection options");
        }
        const QString url = TestDatabase::freshUrl();
        auto db = CConnection::Open(url + u"?application_name=till%201's&connect_timeout=5"_s);
        QVERIFY(db);
        QSqlQuery q = db->Select(u"SELECT current_setting('application_name')"_s);
        QVERIFY(q.next());
        QCOMPARE(q.value(0).toString(), u"till 1's"_s); // the server keeps ASCII only
        // The test server speaks no TLS: a seat that demands it must be refused, not quietly connected in clear.
        QString error;
        QVERIFY(!CConnection::Open(url + u"?sslmode=require"_s, &error));
        QVERIFY2(error.contains(u"SSL"_s, Qt::CaseInsensitive), qPrintable(error));
    }

    // A password on the command line shows in the process list; the seats take it from PGPASSWORD or libpq's
    // password file instead, both the driver's connection and the loader's own session.
    void passwordFromTheEnvironmentOrThePasswordFile()
    {
        if (!TestDatabase::isPostgreSQL()) {
            QSKIP("a server's password");
        }
        const QString url = TestDatabase::freshUrl();
        auto admin = CConnection::Open(url);
        QVERIFY(admin);
        const QString role = u"seat_"_s + QString::number(QCoreApplication::applicationPid());
        admin->Execute(u"CREATE ROLE "_s + role + u" LOGIN PASSWORD 'Geheim9pw'"_s);
        admin->Execute(u"GRANT ALL ON SCHEMA public TO "_s + role);
        // The test server trusts everyone; this role alone has to show its password.
        QSqlQuery hba = admin->Select(u"SHOW hba_file"_s);
        QVERIFY(hba.next());
        QFile rules(hba.value(0).toString());
        QVERIFY(rules.open(QIODevice::ReadOnly));
        const QByteArray before = rules.readAll();
        rules.close();
        QVERIFY(rules.open(QIODevice::WriteOnly | QIODevice::Truncate));
        rules.write("host all " + role.toUtf8() + " 127.0.0.1/32 scram-sha-256\n" + before);
        rules.close();
        admin->Select(u"SELECT pg_reload_conf()"_s);
        QTest::qWait(300);

        const QUrl server(url);
        const QString seatUrl =
            u"postgresql://"_s + role + u"@127.0.0.1:"_s + QString::number(server.port()) + server.path();
        QString error;
        qunsetenv("PGPASSWORD");
        qputenv("PGPASSFILE", "/nonexistent");
        QVERIFY(!CConnection::Open(seatUrl, &error));
        QVERIFY2(error.contains(u"password"_s), qPrintable(error));

        auto openAndLoad = [&] {
            auto seat = CConnection::Open(seatUrl, &error);
            if (!seat) {
                return false;
            }
            seat->EnsureSchema();
            CItems units;
            return units.InitInstance(seat, itemTypeNumber(ItemType::Unit));
        };
        qputenv("PGPASSWORD", "Geheim9pw");
        QVERIFY2(openAndLoad(), qPrintable(error));
        qunsetenv("PGPASSWORD");

        QTemporaryDir dir;
        QFile passwords(dir.filePath(u"pgpass"_s));
        QVERIFY(passwords.open(QIODevice::WriteOnly));
        passwords.write("127.0.0.1:*:*:" + role.toUtf8() + ":Geheim9pw\n");
        passwords.close();
        passwords.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner);
        qputenv("PGPASSFILE", QFile::encodeName(passwords.fileName()));
        QVERIFY2(openAndLoad(), qPrintable(error));
        qunsetenv("PGPASSFILE");
    }

    // A host that keeps the usual umask got a database file and workbooks that every user of the machine could read.
    void newDatabaseAndWorkbookAreTheOwnersAlone()
    {
        if (TestDatabase::isPostgreSQL()) {
            QSKIP("files on this machine");
        }
        const mode_t previous = ::umask(022);
        struct Restore
        {
            mode_t mask;
            ~Restore() { ::umask(mask); }
        } restore {previous};
        QTemporaryDir dir;
        const QString database = dir.filePath(u"new.db"_s);
        {
            auto db = CConnection::Open(u"sqlite:///"_s + database);
            QVERIFY(db);
            db->EnsureSchema();
        }
        const QString workbook = dir.filePath(u"new.xlsx"_s);
        {
            ExcelConnection excel;
            QVERIFY(excel.Open(workbook));
            QVERIFY2(excel.Execute(u"CREATE TABLE 商品 (编号 TEXT)"_s), qPrintable(excel.errorDescription()));
            QVERIFY2(excel.Close(), qPrintable(excel.errorDescription()));
        }
        for (const QString &path : {database, workbook}) {
            struct stat info
            {
            };
            QVERIFY2(::stat(QFile::encodeName(path).constData(), &info) == 0, qPrintable(path));
            QCOMPARE(info.st_mode & 0777, mode_t(0600));
        }
    }

    // With NORMAL a power cut could take back a save the user saw succeed: every commit syncs the log.
    void fileDatabaseSyncsEveryCommit()
    {
        if (TestDatabase::isPostgreSQL()) {
            QSKIP("an SQLite setting");
        }
        auto db = CConnection::Open(TestDatabase::freshUrl());
        QVERIFY(db);
        QSqlQuery journal = db->Select(u"PRAGMA journal_mode"_s);
        QVERIFY(journal.next());
        QCOMPARE(journal.value(0).toString(), u"wal"_s);
        QSqlQuery sync = db->Select(u"PRAGMA synchronous"_s);
        QVERIFY(sync.next());
        QCOMPARE(sync.value(0).toInt(), 2); // FULL
    }
};

QTEST_GUILESS_MAIN(ConnectionTest)
#include "tst_connection.moc"
