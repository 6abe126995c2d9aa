#include "cconnection.h"
#include "testdatabase.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <memory>
#include <sys/stat.h>
#include <vector>

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

    // Regression: add and rename checked nothing (department D1 甲部 added twice gave two rows), and four programs
    // adding the same number at the same moment all succeeded. The check runs inside the write, one writer of a
    // kind after the other.
    void numbersAndNamesStayUniqueAcrossPrograms()
    {
        const QString url = TestDatabase::freshUrl();
        QCOMPARE(cli({u"--db"_s, url, u"init"_s}).code, 0);
        const QStringList add {u"--db"_s, url, u"add"_s, u"department"_s, u"--name"_s, u"甲部"_s, u"--no"_s, u"D1"_s};
        QCOMPARE(cli(add).code, 0);
        const Result again = cli(add);
        QCOMPARE(again.code, 1);
        QVERIFY2(again.err.contains(u"部门编号[D1]已经存在"_s), qPrintable(again.err));
        const Result sameName =
            cli({u"--db"_s, url, u"add"_s, u"department"_s, u"--name"_s, u"甲部"_s, u"--no"_s, u"D2"_s});
        QCOMPARE(sameName.code, 1);
        QVERIFY2(sameName.err.contains(u"部门名称[甲部]已经存在"_s), qPrintable(sameName.err));
        const Result added = cli({u"--db"_s, url, u"add"_s, u"department"_s, u"--name"_s, u"乙部"_s});
        QCOMPARE(added.code, 0);
        const QString id = added.out.trimmed().section(u'\n', -1).section(u'\t', 0, 0);
        const Result rename = cli({u"--db"_s, url, u"rename"_s, u"department"_s, id, u"甲部"_s});
        QCOMPARE(rename.code, 1);
        QVERIFY2(rename.err.contains(u"部门名称[甲部]已经存在"_s), qPrintable(rename.err + added.out));

        for (int round = 0; round < 3; ++round) {
            const QString no = u"R"_s + QString::number(round);
            std::vector<std::unique_ptr<QProcess>> seats;
            for (int i = 0; i < 4; ++i) {
                seats.push_back(std::make_unique<QProcess>());
                seats.back()->start(QCoreApplication::applicationDirPath() + u"/quillon-cli"_s,
                                    {u"--db"_s, url, u"add"_s, u"department"_s, u"--name"_s,
                                     no + u"部"_s + QString::number(i), u"--no"_s, no});
            }
            int succeeded = 0;
            for (const auto &seat : seats) {
                QVERIFY(seat->waitForFinished(60000));
                succeeded += seat->exitCode() == 0 ? 1 : 0;
            }
            QCOMPARE(succeeded, 1);
        }
        const Result listed = cli({u"--db"_s, url, u"list"_s, u"department"_s});
        QCOMPARE(listed.out.count(u"\tD1\t"_s), 1);
        QCOMPARE(listed.out.count(u"\tR0\t"_s), 1);
    }

    // Four seats started on a new database at once: each one creates what is missing, none fails on a table
    // another one created a moment earlier.
    void simultaneousInitsOnANewDatabaseAllSucceed()
    {
        for (int round = 0; round < 3; ++round) {
            const QString url = TestDatabase::freshUrl();
            std::vector<std::unique_ptr<QProcess>> seats;
            for (int i = 0; i < 4; ++i) {
                seats.push_back(std::make_unique<QProcess>());
                seats.back()->start(QCoreApplication::applicationDirPath() + u"/quillon-cli"_s,
                                    {u"--db"_s, url, u"init"_s});
            }
            for (const auto &seat : seats) {
                QVERIFY(seat->waitForFinished(60000));
                QCOMPARE(QString::fromUtf8(seat->readAllStandardError()), QString());
                QCOMPARE(seat->exitCode(), 0);
            }
            QCOMPARE(cli({u"--db"_s, url, u"newid"_s, u"T_Item"_s, u"--peek"_s}).out, u"1\n"_s);
        }
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

    void exportWritesTheWindowsColumns()
    {
        const QString url = TestDatabase::freshUrl();
        QCOMPARE(cli({u"--db"_s, url, u"init"_s, u"--demo"_s}).code, 0);
        QTemporaryDir dir;
        const QString file = dir.filePath(u"export.xlsx"_s);
        const Result goods = cli({u"--db"_s, url, u"export"_s, u"goods"_s, file});
        QCOMPARE(goods.code, 0);
        // Without --sheet the sheet is named as the window names it: 商品, then MMdd and hhmmss.
        QVERIFY2(QRegularExpression(u"到 .*export.xlsx 的表格 \\[商品\\d{10}\\]"_s).match(goods.out).hasMatch(),
                 qPrintable(goods.out));
        QCOMPARE(cli({u"--db"_s, url, u"export"_s, u"client"_s, file, u"--sheet"_s, u"客户"_s}).code, 0);
        const Result twice = cli({u"--db"_s, url, u"export"_s, u"client"_s, file, u"--sheet"_s, u"客户"_s});
        QCOMPARE(twice.code, 1);
        QVERIFY(twice.err.contains(u"已经存在"_s));
        // Nobody can answer a question here: the command says what failed and asks nothing.
        QVERIFY2(!twice.err.contains(u"重试"_s), qPrintable(twice.err));
        // Blanks and parentheses are legal in a sheet name.
        const Result year = cli({u"--db"_s, url, u"export"_s, u"unit"_s, file, u"--sheet"_s, u"商品 (2024)"_s});
        QVERIFY2(year.code == 0, qPrintable(year.err));

        QProcess reader;
        reader.start(u"/usr/bin/python3"_s, {QStringLiteral(QUILLON_TEST_SUPPORT_DIR "/readxlsx.py"), file});
        QVERIFY(reader.waitForFinished(60000));
        QCOMPARE(reader.exitCode(), 0);
        const QJsonArray sheets =
            QJsonDocument::fromJson(reader.readAllStandardOutput()).object()[u"sheets"_s].toArray();
        QCOMPARE(sheets.size(), 3);
        QCOMPARE(sheets[2].toObject()[u"name"_s].toString(), u"商品 (2024)"_s);
        const QJsonArray goodsRows = sheets[0].toObject()[u"rows"_s].toArray();
        QCOMPARE(goodsRows.size(), 201);
        QCOMPARE(goodsRows[0].toArray()[8].toString(), u"单件售价"_s);
        QCOMPARE(sheets[1].toObject()[u"name"_s].toString(), u"客户"_s);
    }

    void demoListAddRenameDelete()
    {
        const QString url = TestDatabase::freshUrl();
        QCOMPARE(cli({u"--db"_s, url, u"init"_s, u"--demo"_s}).code, 0);
        const Result again = cli({u"--db"_s, url, u"init"_s, u"--demo"_s});
        QCOMPARE(again.code, 1);
        QVERIFY(again.err.contains(u"已有数据"_s));

        const Result goods = cli({u"--db"_s, url, u"list"_s, u"goods"_s, u"--format"_s, u"json"_s});
        QCOMPARE(goods.code, 0);
        QJsonParseError parseError;
        const QJsonArray array = QJsonDocument::fromJson(goods.out.toUtf8(), &parseError).array();
        QCOMPARE(parseError.error, QJsonParseError::NoError);
        QCOMPARE(array.size(), 200);
        QString previous;
        for (const QJsonValue &value : array) {
            const QJsonObject o = value.toObject();
            QVERIFY(o.value(u"F_ItemNo"_s).toString() > previous);
            previous = o.value(u"F_ItemNo"_s).toString();
            QVERIFY(!o.value(u"mUnitName"_s).toString().isEmpty());
            QVERIFY(!o.value(u"mTypeName"_s).toString().isEmpty());
            QVERIFY(o.value(u"F_Price4"_s).isDouble());
            QVERIFY(o.value(u"F_Time1"_s).isNull());
            QCOMPARE(o.value(u"F_Date"_s).toString().size(), 10);
        }
        const QJsonObject clientsFirst =
            QJsonDocument::fromJson(cli({u"--db"_s, url, u"list"_s, u"1"_s, u"--format=json"_s}).out.toUtf8())
                .array()
                .first()
                .toObject();
        QVERIFY(!clientsFirst.value(u"mTypeName"_s).toString().isEmpty());

        const Result added = cli({u"--db"_s, url, u"add"_s, u"unit"_s, u"--name"_s, u"O'Brien 桶"_s, u"--set"_s,
                                  u"F_Remark=a';--\"引号\"\\"_s, u"--no"_s, u"U9"_s});
        QCOMPARE(added.code, 0);
        const QString id = added.out.trimmed();
        const Result units = cli({u"--db"_s, url, u"list"_s, u"unit"_s});
        QVERIFY2(units.out.contains(id + u"\tU9\tO'Brien 桶\t2\t"_s), qPrintable(units.out));
        QVERIFY(units.out.contains(u"\ta';--\"引号\"\\\t"_s));
        const QJsonArray unitsJson =
            QJsonDocument::fromJson(cli({u"--db"_s, url, u"list"_s, u"unit"_s, u"--format=json"_s}).out.toUtf8(),
                                    &parseError)
                .array();
        QCOMPARE(parseError.error, QJsonParseError::NoError);
        QString remark;
        for (const QJsonValue &unit : unitsJson) {
            if (unit.toObject().value(u"F_ID"_s).toInt() == id.toInt()) {
                remark = unit.toObject().value(u"F_Remark"_s).toString();
            }
        }
        QCOMPARE(remark, u"a';--\"引号\"\\"_s);

        QCOMPARE(cli({u"--db"_s, url, u"rename"_s, u"unit"_s, id, u"大桶"_s}).code, 0);
        QVERIFY(cli({u"--db"_s, url, u"list"_s, u"2"_s}).out.contains(u"\tU9\t大桶\t"_s));
        const Result wrongKind = cli({u"--db"_s, url, u"rename"_s, u"client"_s, id, u"x"_s});
        QCOMPARE(wrongKind.code, 1);
        QVERIFY(wrongKind.err.contains(u"客户"_s));

        // A unit that goods use is refused; the new one is not used.
        const QJsonObject firstGoods = array.first().toObject();
        const QString unitID = QString::number(firstGoods.value(u"F_Tag1"_s).toInt());
        const Result usedUnit = cli({u"--db"_s, url, u"delete"_s, u"unit"_s, unitID});
        QCOMPARE(usedUnit.code, 1);
        QVERIFY(usedUnit.err.contains(u"该记录已经被使用,禁止删除!"_s));
        QCOMPARE(cli({u"--db"_s, url, u"delete"_s, u"unit"_s, id}).code, 0);
        QCOMPARE(cli({u"--db"_s, url, u"delete"_s, u"unit"_s, id}).code, 1);

        // Goods with movements: No without --yes, deleted with it.
        const QString goodsID = QString::number(firstGoods.value(u"F_ID"_s).toInt());
        {
            auto db = CConnection::Open(url);
            QVERIFY(db);
            db->Execute(u"Insert Into T_GoodsInOutList (F_ID, F_GoodsID) Values (1, ?)"_s, {goodsID.toInt()});
        }
        const Result asked = cli({u"--db"_s, url, u"delete"_s, u"goods"_s, goodsID});
        QCOMPARE(asked.code, 1);
        QVERIFY(asked.err.contains(u"您确实要强制删除吗?"_s));
        QCOMPARE(cli({u"--db"_s, url, u"delete"_s, u"goods"_s, goodsID, u"--yes"_s}).code, 0);
        QCOMPARE(cli({u"--db"_s, url, u"list"_s, u"goods"_s}).out.count(u'\n'), 200);
    }

    // Goods added here were stored with a package amount of 0, which the import of their own export then refused.
    void addedGoodsTakeTheDialogsDefaultsAndImportBack()
    {
        const QString url = TestDatabase::freshUrl();
        QCOMPARE(cli({u"--db"_s, url, u"init"_s}).code, 0);
        const Result added = cli({u"--db"_s, url, u"add"_s, u"goods"_s, u"--name"_s, u"可乐"_s, u"--no"_s, u"K1"_s});
        QCOMPARE(added.code, 0);
        const QJsonArray goods =
            QJsonDocument::fromJson(cli({u"--db"_s, url, u"list"_s, u"goods"_s, u"--format=json"_s}).out.toUtf8())
                .array();
        QCOMPARE(goods.size(), 1);
        QCOMPARE(goods.first().toObject().value(u"F_PackageAmount"_s).toDouble(), 1.0);

        QTemporaryDir dir;
        const QString file = dir.filePath(u"goods.xlsx"_s);
        QCOMPARE(cli({u"--db"_s, url, u"export"_s, u"goods"_s, file}).code, 0);
        const QString other = TestDatabase::freshUrl();
        QCOMPARE(cli({u"--db"_s, other, u"init"_s}).code, 0);
        const Result imported = cli({u"--db"_s, other, u"import"_s, u"goods"_s, file});
        QVERIFY2(imported.code == 0, qPrintable(imported.err));
    }

    void itemCommandsRejectBadInput_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<int>("code");
        QTest::newRow("unknown kind") << QStringList {u"list"_s, u"gadgets"_s} << 2;
        QTest::newRow("kind out of range") << QStringList {u"list"_s, u"13"_s} << 2;
        QTest::newRow("bad format") << QStringList {u"list"_s, u"unit"_s, u"--format"_s, u"xml"_s} << 2;
        QTest::newRow("add without name") << QStringList {u"add"_s, u"unit"_s} << 2;
        QTest::newRow("add blank name") << QStringList {u"add"_s, u"unit"_s, u"--name"_s, u"  "_s} << 2;
        QTest::newRow("unknown column") << QStringList {u"add"_s, u"unit"_s,  u"--name"_s,
                                                        u"x"_s,   u"--set"_s, u"F_Nope=1"_s}
                                        << 2;
        QTest::newRow("setting the key") << QStringList {u"add"_s, u"unit"_s,  u"--name"_s,
                                                         u"x"_s,   u"--set"_s, u"F_ID=5"_s}
                                         << 2;
        QTest::newRow("unconvertible") << QStringList {u"add"_s, u"unit"_s,  u"--name"_s,
                                                       u"x"_s,   u"--set"_s, u"F_Tag1=abc"_s}
                                       << 2;
        // A unit or type that does not exist was stored as if it did.
        QTest::newRow("goods with a unit that does not exist")
            << QStringList {u"add"_s,  u"goods"_s, u"--name"_s, u"x"_s,
                            u"--no"_s, u"X1"_s,    u"--set"_s,  u"F_Tag1=999999"_s}
            << 1;
        QTest::newRow("goods with a type that does not exist")
            << QStringList {u"add"_s, u"goods"_s, u"--name"_s, u"x"_s, u"--set"_s, u"F_ParentID=999999"_s} << 1;
        QTest::newRow("goods without a number") << QStringList {u"add"_s, u"goods"_s, u"--name"_s, u"x"_s} << 1;
        QTest::newRow("goods with a package amount of 0")
            << QStringList {u"add"_s,  u"goods"_s, u"--name"_s, u"x"_s,
                            u"--no"_s, u"X1"_s,    u"--set"_s,  u"F_PackageAmount=0"_s}
            << 1;
        QTest::newRow("client with a client type that does not exist")
            << QStringList {u"add"_s, u"client"_s, u"--name"_s, u"x"_s, u"--set"_s, u"F_ParentID=999999"_s} << 1;
        QTest::newRow("delete bad id") << QStringList {u"delete"_s, u"unit"_s, u"abc"_s} << 2;
        QTest::newRow("delete unknown id") << QStringList {u"delete"_s, u"unit"_s, u"4242"_s} << 1;
        QTest::newRow("rename unknown id") << QStringList {u"rename"_s, u"unit"_s, u"4242"_s, u"x"_s} << 1;
    }
    void itemCommandsRejectBadInput()
    {
        QFETCH(QStringList, args);
        QFETCH(int, code);
        const QString url = TestDatabase::freshUrl();
        QCOMPARE(cli({u"--db"_s, url, u"init"_s}).code, 0);
        const Result r = cli(QStringList {u"--db"_s, url} + args);
        QCOMPARE(r.code, code);
        QVERIFY(!r.err.isEmpty());
        // Nothing refused is stored: the lists hold their header line only.
        QCOMPARE(cli({u"--db"_s, url, u"list"_s, u"goods"_s}).out.count(u'\n'), 1);
        QCOMPARE(cli({u"--db"_s, url, u"list"_s, u"client"_s}).out.count(u'\n'), 1);
    }

    // A shop's database copied to read-only media (a disc, a read-only share) could not be read at all: every
    // open switched it to WAL, and a WAL file needs a writable folder for its shared-memory file.
    void databaseOnReadOnlyMediaOpensReadOnlyWithANotice()
    {
        if (TestDatabase::isPostgreSQL()) {
            QSKIP("read-only media is about SQLite files");
        }
        QTemporaryDir dir;
        const QString file = dir.filePath(u"media/shop.db"_s);
        QVERIFY(QDir().mkpath(dir.filePath(u"media"_s)));
        const QString url = u"sqlite://"_s + file;
        QCOMPARE(cli({u"--db"_s, url, u"init"_s, u"--demo"_s}).code, 0);
        QFile::remove(file + u"-wal"_s);
        QFile::remove(file + u"-shm"_s);
        const QString media = QFileInfo(file).absolutePath();
        // A private mount namespace makes the folder read-only for this one command and leaves nothing behind.
        auto onReadOnlyMedia = [&](const QStringList &args) {
            QProcess p;
            QString command = u"mount --bind \"$0\" \"$0\" && mount -o remount,bind,ro \"$0\" && exec \"$@\""_s;
            QStringList all {u"-m"_s, u"sh"_s, u"-c"_s,
                             command, media,   QCoreApplication::applicationDirPath() + u"/quillon-cli"_s};
            all += args;
            p.start(u"unshare"_s, all);
            Result r;
            if (p.waitForFinished(60000)) {
                r.code = p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
                r.out = QString::fromUtf8(p.readAllStandardOutput());
                r.err = QString::fromUtf8(p.readAllStandardError());
            }
            return r;
        };
        if (onReadOnlyMedia({u"--version"_s}).code != 0) {
            QSKIP("needs a private mount namespace (root and unshare)");
        }
        const Result listed = onReadOnlyMedia({u"--db"_s, url, u"list"_s, u"goods"_s});
        QCOMPARE(listed.code, 0);
        QCOMPARE(listed.out.count(u'\n'), 201);
        QVERIFY2(listed.err.contains(u"只读方式打开"_s), qPrintable(listed.err));
        QCOMPARE(onReadOnlyMedia({u"--db"_s, url + u"?mode=ro"_s, u"list"_s, u"unit"_s}).code, 0);

        const Result added = onReadOnlyMedia({u"--db"_s, url, u"add"_s, u"unit"_s, u"--name"_s, u"托"_s});
        QCOMPARE(added.code, 1);
        QVERIFY2(added.err.contains(u"readonly"_s), qPrintable(added.err));
        QCOMPARE(cli({u"--db"_s, url, u"list"_s, u"goods"_s}).out.count(u'\n'), 201);
    }

    // migrate once replaced a shop's master data without asking.
    void migrateIntoDataNeedsReplace()
    {
        const QString from = TestDatabase::freshUrl();
        const QString to = TestDatabase::freshUrl();
        QCOMPARE(cli({u"--db"_s, from, u"init"_s, u"--demo"_s}).code, 0);
        QCOMPARE(cli({u"--db"_s, to, u"add"_s, u"unit"_s, u"--name"_s, u"箱"_s}).code, 1); // no tables yet
        QCOMPARE(cli({u"--db"_s, to, u"init"_s}).code, 0);
        QCOMPARE(cli({u"--db"_s, to, u"add"_s, u"unit"_s, u"--name"_s, u"箱"_s}).code, 0);

        const Result refused = cli({u"migrate"_s, u"--from"_s, from, u"--to"_s, to});
        QCOMPARE(refused.code, 1);
        QVERIFY2(refused.err.contains(u"目标数据库已有 1 行基础资料"_s), qPrintable(refused.err));
        QVERIFY(refused.err.contains(u"--replace"_s));
        QCOMPARE(cli({u"--db"_s, to, u"list"_s, u"unit"_s}).out.count(u'\n'), 2); // heading and the unit

        const Result replaced = cli({u"migrate"_s, u"--from"_s, from, u"--to"_s, to, u"--replace"_s});
        QCOMPARE(replaced.code, 0);
        QVERIFY(replaced.out.contains(u"T_Item: "_s));
        QCOMPARE(cli({u"--db"_s, to, u"list"_s, u"goods"_s}).out.count(u'\n'), 201);
    }

    // A mistyped path used to leave an empty database (and its folders) behind a reading command.
    void readingCommandsDoNotCreateADatabase()
    {
        if (TestDatabase::isPostgreSQL()) {
            QSKIP("files of the embedded database");
        }
        QTemporaryDir dir;
        const QString path = dir.filePath(u"typo/shop.db"_s);
        for (const QStringList &command :
             {QStringList {u"list"_s, u"unit"_s}, QStringList {u"delete"_s, u"unit"_s, u"1"_s},
              QStringList {u"newid"_s, u"T_Item"_s}}) {
            const Result r = cli(QStringList {u"--db"_s, u"sqlite://"_s + path} + command);
            QCOMPARE(r.code, 1);
            QVERIFY2(r.err.contains(u"数据库文件不存在"_s), qPrintable(r.err));
        }
        QVERIFY(!QFileInfo::exists(dir.filePath(u"typo"_s)));
        QCOMPARE(cli({u"--db"_s, u"sqlite://"_s + path, u"init"_s}).code, 0);
        QVERIFY(QFileInfo::exists(path));
    }

    void pyCodesArgumentsAndStandardInput()
    {
        const Result args = cli({u"py"_s, u"康师傅矿泉水"_s, u"Cola 可乐"_s, QString()});
        QCOMPARE(args.code, 0);
        QCOMPARE(args.out, u"ksfkqs\nColaakl\n\n"_s);

        QProcess p;
        p.start(QCoreApplication::applicationDirPath() + u"/quillon-cli"_s, {u"py"_s});
        QVERIFY(p.waitForStarted());
        p.write(u"统一冰红茶\n昇玥喆\n\nabc"_s.toUtf8());
        p.closeWriteChannel();
        QVERIFY(p.waitForFinished());
        QCOMPARE(p.exitCode(), 0);
        QCOMPARE(QString::fromUtf8(p.readAllStandardOutput()), u"tybhc\nsy!\n\nabc\n"_s);
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

    // The database, its folder, backups and exports came out readable by every user of the machine.
    void whatTheProgramCreatesIsItsUsersAlone()
    {
        if (TestDatabase::isPostgreSQL()) {
            QSKIP("files of the embedded database");
        }
        QTemporaryDir home;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(u"XDG_DATA_HOME"_s, home.path() + u"/data"_s);
        QCOMPARE(cli({u"init"_s, u"--demo"_s}, env).code, 0);
        const QString backup = home.filePath(u"shop.qlb"_s);
        const QString workbook = home.filePath(u"goods.xlsx"_s);
        QCOMPARE(cli({u"backup"_s, backup}, env).code, 0);
        QCOMPARE(cli({u"export"_s, u"goods"_s, workbook}, env).code, 0);
        const QString folder = home.path() + u"/data/quillon"_s;
        for (const QString &path : QStringList {folder, folder + u"/quillon.db"_s, backup, workbook}) {
            struct stat info
            {
            };
            QVERIFY2(::stat(QFile::encodeName(path).constData(), &info) == 0, qPrintable(path));
            QVERIFY2((info.st_mode & 077) == 0, qPrintable(path + u" "_s + QString::number(info.st_mode & 0777, 8)));
        }
    }
};

QTEST_GUILESS_MAIN(CliTest)
#include "tst_cli.moc"
