#include "cconnection.h"
#include "citem.h"
#include "citems.h"
#include "demodata.h"
#include "itemfixtures.h"
#include "keyid.h"
#include "masterbackup.h"
#include "prompt.h"
#include "testdatabase.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QSqlRecord>
#include <QTemporaryDir>

#include <QTest>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

class MasterBackupTest : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;
    ScriptedPrompt m_prompt;
    int m_files = 0;

    QString newFile() { return m_dir.filePath(u"backup%1.db"_s.arg(++m_files)); }

    static QString text(const QVariant &value)
    {
        if (value.metaType() == QMetaType::fromType<Currency>()) {
            return value.value<Currency>().toString();
        }
        if (value.typeId() == QMetaType::QDateTime) {
            return value.toDateTime().toString(Qt::ISODate);
        }
        return value.toString();
    }

    // Every item of every kind with every column, and the price and movement rows, in key order.
    static QStringList dump(const std::shared_ptr<CConnection> &db)
    {
        QStringList lines;
        for (int type = 1; type <= 12; ++type) {
            CItems items;
            items.InitInstance(db, type);
            QStringList rows;
            for (const CItemPtr &item : items) {
                QStringList cells;
                for (int c = 0; c < int(CItem::columns().size()); ++c) {
                    cells.append(text(item->value(c)));
                }
                rows.append(cells.join(u'|'));
            }
            rows.sort();
            lines += rows;
        }
        for (const QString &table : {u"T_GoodsPrice"_s, u"T_GoodsInOutList"_s}) {
            QSqlQuery q = db->Select(u"SELECT * FROM "_s + table + u" ORDER BY F_ID"_s);
            while (CConnection::next(q)) {
                QStringList cells;
                for (int c = 0; c < q.record().count(); ++c) {
                    const QVariant v = q.value(c);
                    const auto amount = Currency::fromString(v.toString());
                    cells.append(amount && v.typeId() != QMetaType::QString ? amount->toString() : v.toString());
                }
                lines.append(table + u':' + cells.join(u'|'));
            }
        }
        return lines;
    }

    static std::shared_ptr<CConnection> shop()
    {
        auto db = TestDatabase::create();
        QString error;
        if (db && !DemoData::seed(db, &error)) {
            qWarning() << error;
            return {};
        }
        return db;
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_dir.isValid());
        CPrompt::setCurrent(&m_prompt);
    }
    void cleanupTestCase() { CPrompt::setCurrent(nullptr); }

    void backupRestoresIntoTheOtherEngineUnchanged()
    {
        auto source = shop();
        QVERIFY(source);
        const QStringList original = dump(source);
        QVERIFY(original.size() > 200);

        const QString file = newFile();
        MasterBackup::Result result = MasterBackup::backup(*source, file);
        QVERIFY2(result.ok, qPrintable(result.error));
        QCOMPARE(result.rows.first().first, u"T_Item"_s);
        QVERIFY(!QFile::exists(file + u"-wal"_s));

        // Into SQLite (from PostgreSQL when that engine is under test), then back from there into a new database
        // of the engine under test.
        auto sqlite = TestDatabase::createSqlite();
        result = MasterBackup::restore(*sqlite, file);
        QVERIFY2(result.ok, qPrintable(result.error));
        QCOMPARE(dump(sqlite), original);

        const QString second = newFile();
        QVERIFY(MasterBackup::backup(*sqlite, second).ok);
        auto target = TestDatabase::create();
        // What the target held before is replaced, and its keys go on above the restored ones.
        ItemFixtures::insert(*target, {900000, 6, u"X"_s, u"旧部门"_s});
        result = MasterBackup::restore(*target, second);
        QVERIFY2(result.ok, qPrintable(result.error));
        QCOMPARE(dump(target), original);
        QVERIFY(Module1::GetNewID(*target, u"T_Item"_s, false)
                > ItemFixtures::count(*target, u"SELECT MAX(F_ID) FROM T_Item"_s));
    }

    void backupTakesWhatWasCommittedWhileAnotherSeatWrites()
    {
        auto source = shop();
        QVERIFY(source);
        const int before = ItemFixtures::count(*source, u"SELECT COUNT(*) FROM T_Item"_s);
        auto writer = CConnection::Open(source->url());
        QVERIFY(writer);
        writer->BeginTrans();
        ItemFixtures::insert(*writer, {800000, 6, u"W"_s, u"未提交"_s});

        const QString file = newFile();
        const MasterBackup::Result result = MasterBackup::backup(*source, file);
        writer->RollbackTrans();
        QVERIFY2(result.ok, qPrintable(result.error));
        QCOMPARE(result.rows.first().second, qint64(before));
    }

    void filesThatAreNotBackupsOfThisVersionAreRefused_data()
    {
        QTest::addColumn<QString>("change");
        QTest::addColumn<QString>("error");
        QTest::newRow("text file") << u"text"_s << u"不是本程序的备份文件(不是 SQLite 数据库)"_s;
        QTest::newRow("database without description") << u"DROP TABLE T_BackupInfo"_s << u"没有备份说明"_s;
        QTest::newRow("foreign format") << u"UPDATE T_BackupInfo SET F_Value='other' WHERE F_Key='format'"_s
                                        << u"不是本程序的备份文件"_s;
        QTest::newRow("newer version") << u"UPDATE T_BackupInfo SET F_Value='2' WHERE F_Key='version'"_s
                                       << u"由较新版本的程序写成(格式版本 2)"_s;
        QTest::newRow("newer columns") << u"ALTER TABLE T_Item ADD COLUMN F_Weight REAL"_s
                                       << u"有本程序不认识的列(F_Weight)"_s;
        QTest::newRow("missing table") << u"DROP TABLE T_GoodsPrice"_s << u"缺少表 T_GoodsPrice"_s;
    }
    void filesThatAreNotBackupsOfThisVersionAreRefused()
    {
        QFETCH(QString, change);
        QFETCH(QString, error);
        auto source = shop();
        QVERIFY(source);
        const QString file = newFile();
        QVERIFY(MasterBackup::backup(*source, file).ok);
        if (change == u"text"_s) {
            QFile f(file);
            QVERIFY(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
            f.write("编号,名称\n");
        } else {
            auto edit = CConnection::Open(u"sqlite://"_s + file);
            QVERIFY(edit);
            edit->Execute(change);
            edit->Close();
        }
        auto target = TestDatabase::create();
        ItemFixtures::insert(*target, {1, 6, u"X"_s, u"留下"_s});
        const MasterBackup::Result result = MasterBackup::restore(*target, file);
        QVERIFY(!result.ok);
        QVERIFY2(result.error.contains(error), qPrintable(result.error));
        QCOMPARE(ItemFixtures::count(*target, u"SELECT COUNT(*) FROM T_Item"_s), 1);
    }

    void backupNeverReplacesAFile()
    {
        auto source = shop();
        QVERIFY(source);
        const QString file = newFile();
        QFile f(file);
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write("keep");
        f.close();
        const MasterBackup::Result result = MasterBackup::backup(*source, file);
        QVERIFY(!result.ok);
        QVERIFY(result.error.contains(u"已经存在"_s));
        QVERIFY(f.open(QIODevice::ReadOnly));
        QCOMPARE(f.readAll(), QByteArray("keep"));
        QCOMPARE(QDir(m_dir.path()).entryList({u"*.part-*"_s}), QStringList());
    }

    void commandLineRestoreAsksFirst()
    {
        auto source = shop();
        QVERIFY(source);
        const QString file = newFile();
        QString asked;
        auto cli = [&](const QStringList &args, const QByteArray &input) {
            QProcess p;
            p.start(QCoreApplication::applicationDirPath() + u"/quillon-cli"_s, args);
            p.write(input);
            p.closeWriteChannel();
            p.waitForFinished(60000);
            asked = QString::fromUtf8(p.readAllStandardError());
            return p.exitCode();
        };
        QCOMPARE(cli({u"--db"_s, source->url(), u"backup"_s, file}, {}), 0);
        auto target = TestDatabase::create();
        ItemFixtures::insert(*target, {1, 6, u"X"_s, u"留下"_s});
        QCOMPARE(cli({u"--db"_s, target->url(), u"restore"_s, file}, "n\n"), 1);
        QCOMPARE(ItemFixtures::count(*target, u"SELECT COUNT(*) FROM T_Item"_s), 1);
        // The question names every table it replaces, with its rows now and in the file; a bare Enter is no.
        for (const QString &part :
             {u"T_Item(基础资料): 现有 1 行, 备份中 "_s, u"T_GoodsPrice"_s, u"T_GoodsInOutList"_s, u"[y/N]"_s}) {
            QVERIFY2(asked.contains(part), qPrintable(part + u" in: "_s + asked));
        }
        QCOMPARE(cli({u"--db"_s, target->url(), u"restore"_s, file}, "\n"), 1);
        QCOMPARE(ItemFixtures::count(*target, u"SELECT COUNT(*) FROM T_Item"_s), 1);
        QCOMPARE(cli({u"--db"_s, target->url(), u"restore"_s, file, u"--yes"_s}, {}), 0);
        QCOMPARE(ItemFixtures::count(*target, u"SELECT COUNT(*) FROM T_Item"_s),
                 ItemFixtures::count(*source, u"SELECT COUNT(*) FROM T_Item"_s));
    }

    // A backup killed while writing left its part file (and the part's journal) beside the target for good.
    void staleBackupPartsAreCleared()
    {
        auto source = TestDatabase::create();
        QVERIFY(source);
        QTemporaryDir dir;
        const QString file = dir.filePath(u"shop.qlb"_s);
        auto leave = [&](const QString &name) {
            QFile f(dir.filePath(name));
            return f.open(QIODevice::WriteOnly) && f.write("half") == 4;
        };
        QVERIFY(leave(u"shop.qlb.part-Ab3dE9"_s));
        QVERIFY(leave(u"shop.qlb.part-Ab3dE9-journal"_s));
        QVERIFY(leave(u"other.qlb.part-Zz9yX8"_s)); // another backup's
        QVERIFY(leave(u"shop.qlb.part-notes.txt"_s)); // not a part at all

        // While another writer works in the folder (it holds the folder's lock), its parts are left alone.
        {
            const int folder = ::open(QFile::encodeName(dir.path()).constData(), O_RDONLY | O_DIRECTORY);
            QVERIFY(folder >= 0);
            QCOMPARE(::flock(folder, LOCK_SH), 0);
            const MasterBackup::Result result = MasterBackup::backup(*source, dir.filePath(u"first.qlb"_s));
            QVERIFY2(result.ok, qPrintable(result.error));
            const MasterBackup::Result busy = MasterBackup::backup(*source, file);
            ::close(folder);
            QVERIFY2(busy.ok, qPrintable(busy.error));
            QVERIFY(QFile::exists(dir.filePath(u"shop.qlb.part-Ab3dE9"_s)));
            QVERIFY(QFile::remove(file));
        }

        const MasterBackup::Result result = MasterBackup::backup(*source, file);
        QVERIFY2(result.ok, qPrintable(result.error));
        QStringList left = QDir(dir.path()).entryList(QDir::Files);
        left.sort();
        QCOMPARE(
            left,
            (QStringList {u"first.qlb"_s, u"other.qlb.part-Zz9yX8"_s, u"shop.qlb"_s, u"shop.qlb.part-notes.txt"_s}));
    }

    // A backup cut short (a full disk, an interrupted copy) was called another program's file ("没有备份说明").
    void truncatedBackupIsCalledDamaged()
    {
        if (TestDatabase::isPostgreSQL()) {
            QSKIP("the backup file is SQLite whatever the engine");
        }
        auto source = shop();
        QVERIFY(source);
        const QString file = newFile();
        QVERIFY2(MasterBackup::backup(*source, file).ok, "backup");
        QVERIFY(MasterBackup::inspect(file).ok);
        QFile cut(file);
        QVERIFY(cut.resize(cut.size() / 2));
        const MasterBackup::Result result = MasterBackup::inspect(file);
        QVERIFY(!result.ok);
        QVERIFY2(result.error.contains(u"已损坏或不完整"_s), qPrintable(result.error));
        QVERIFY2(!result.error.contains(u"备份说明"_s), qPrintable(result.error));
    }
};

QTEST_GUILESS_MAIN(MasterBackupTest)
#include "tst_masterbackup.moc"
