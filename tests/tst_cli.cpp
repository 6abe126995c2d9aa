#include "testdatabase.h"

#include <QCoreApplication>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

class CliTest : public QObject
{
    Q_OBJECT

private:
    struct Result
    {
        int code = -1;
        QString out;
        QString err;
    };

    static Result cli(const QStringList &args,
                      const QProcessEnvironment &env = QProcessEnvironment::systemEnvironment())
    {
        QProcess p;
        p.setProcessEnvironment(env);
        p.start(QCoreApplication::applicationDirPath() + u"/quillon-cli"_s, args);
        Result r;
        if (!p.waitForFinished(60000)) {
            return r;
        }
        r.code = p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
        r.out = QString::fromUtf8(p.readAllStandardOutput());
        r.err = QString::fromUtf8(p.readAllStandardError());
        return r;
    }

private Q_SLOTS:
    void initThenNewId()
    {
        const QString url = TestDatabase::freshUrl();
        QCOMPARE(cli({u"--db"_s, url, u"init"_s}).code, 0);
        QCOMPARE(cli({u"--db"_s, url, u"init"_s}).code, 0);
        QCOMPARE(cli({u"--db"_s, url, u"newid"_s, u"T_Item"_s, u"--peek"_s}).out, u"1\n"_s);
        QCOMPARE(cli({u"--db"_s, url, u"newid"_s, u"T_Item"_s}).out, u"1\n"_s);
        QCOMPARE(cli({u"--db"_s, url, u"newid"_s, u"T_Item"_s}).out, u"2\n"_s);
        QCOMPARE(cli({u"--db="_s + url, u"newid"_s, u"T_Item"_s, u"--peek"_s}).out, u"3\n"_s);
    }

    void usageErrorsExitWithTwo_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::newRow("no command") << QStringList();
        QTest::newRow("unknown command") << QStringList {u"frobnicate"_s};
        QTest::newRow("unknown option") << QStringList {u"--colour"_s, u"init"_s};
        QTest::newRow("db without url") << QStringList {u"--db"_s};
        QTest::newRow("newid without table") << QStringList {u"newid"_s};
        QTest::newRow("newid extra argument") << QStringList {u"newid"_s, u"T_Item"_s, u"T_KeyID"_s};
    }
    void usageErrorsExitWithTwo()
    {
        QFETCH(QStringList, args);
        const Result r = cli(args);
        QCOMPARE(r.code, 2);
        QVERIFY(r.err.contains(u"用法"_s));
    }

    void failuresExitWithOne()
    {
        const Result unreachable = cli({u"--db"_s, u"postgresql://x@127.0.0.1:1/none"_s, u"init"_s});
        QCOMPARE(unreachable.code, 1);
        QVERIFY(!unreachable.err.isEmpty());

        const QString url = TestDatabase::freshUrl();
        const Result noSchema = cli({u"--db"_s, url, u"newid"_s, u"T_Item"_s});
        QCOMPARE(noSchema.code, 1);
        QVERIFY2(noSchema.err.contains(u"init"_s), qPrintable(noSchema.err));
    }

    void defaultDatabaseLivesInTheDataFolder()
    {
        if (TestDatabase::isPostgreSQL()) {
            QSKIP("the default database is SQLite");
        }
        QTemporaryDir home;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(u"XDG_DATA_HOME"_s, home.path() + u"/data"_s);
        QCOMPARE(cli({u"init"_s}, env).code, 0);
        QVERIFY(QFile::exists(home.path() + u"/data/quillon/quillon.db"_s));
        env.remove(u"XDG_DATA_HOME"_s);
        env.insert(u"HOME"_s, home.path());
        QCOMPARE(cli({u"init"_s}, env).code, 0);
        QVERIFY(QFile::exists(home.path() + u"/.local/share/quillon/quillon.db"_s));
    }
};

QTEST_GUILESS_MAIN(CliTest)
#include "tst_cli.moc"
