#include "inifile.h"
#include "module1.h"

#include <QDir>
#include <QFile>
#include <QStringEncoder>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

class IniFileTest : public QObject
{
    Q_OBJECT

private:
    QString path(const QString &name) const { return m_dir.path() + u'/' + name; }

    static QByteArray read(const QString &file)
    {
        QFile f(file);
        return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
    }
    static void write(const QString &file, const QByteArray &bytes)
    {
        QFile f(file);
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write(bytes);
    }

    QTemporaryDir m_dir;

private Q_SLOTS:
    void missingFileOrKeyGivesDefault()
    {
        QCOMPARE(Module1::GetIniString(u"Settings"_s, u"Split"_s, path(u"none.ini"_s), u"1200"_s), u"1200"_s);
        write(path(u"a.ini"_s), "[Settings]\r\nOther=1\r\nEmpty=\r\n");
        QCOMPARE(Module1::GetIniString(u"Settings"_s, u"Split"_s, path(u"a.ini"_s), u" 7 "_s), u"7"_s);
        // A key that is there with no value reads as empty, not as the default.
        QCOMPARE(Module1::GetIniString(u"Settings"_s, u"Empty"_s, path(u"a.ini"_s), u"7"_s), QString());
    }

    void namesAreCaseInsensitiveAndValuesTrimmed()
    {
        write(path(u"b.ini"_s), "; comment\n[ settings ]\n  SPLIT = 2400  \nQuoted=\" a b \"\n[Other]\nsplit=1\n");
        const QString file = path(u"b.ini"_s);
        QCOMPARE(Module1::GetIniString(u"Settings"_s, u"split"_s, file, QString()), u"2400"_s);
        QCOMPARE(Module1::GetIniString(u"SETTINGS"_s, u"quoted"_s, file, QString()), u"a b"_s);
        QCOMPARE(Module1::GetIniString(u"other"_s, u"Split"_s, file, QString()), u"1"_s);
        QCOMPARE(Module1::GetIniString(u"Settings"_s, u"comment"_s, file, u"d"_s), u"d"_s);
    }

    void valuesAreLimitedTo255Characters()
    {
        const QString file = path(u"long.ini"_s);
        const QString value = QString(300, u'字');
        QVERIFY(Module1::SetIniString(u"S"_s, u"K"_s, file, value) != 0);
        QCOMPARE(Module1::GetIniString(u"S"_s, u"K"_s, file, QString()), value.left(255));
    }

    void writeCreatesFileThenReplacesKey()
    {
        const QString file = path(u"new.ini"_s);
        QVERIFY(Module1::SetIniString(u"Settings"_s, u"Split"_s, file, u"1000"_s) != 0);
        QCOMPARE(read(file), QByteArray("[Settings]\r\nSplit=1000\r\n"));
        QVERIFY(Module1::SetIniString(u"settings"_s, u"SPLIT"_s, file, u"1500"_s) != 0);
        QVERIFY(Module1::SetIniString(u"Settings"_s, u"Width"_s, file, u"80"_s) != 0);
        QVERIFY(Module1::SetIniString(u"Grid"_s, u"Col0"_s, file, u"中文"_s) != 0);
        QCOMPARE(read(file), u"[Settings]\r\nSplit=1500\r\nWidth=80\r\n[Grid]\r\nCol0=中文\r\n"_s.toUtf8());
        QCOMPARE(QDir(m_dir.path()).entryList(QDir::Files | QDir::Hidden).filter(u"new.ini"_s).size(), 1);
    }

    void untouchedLinesAndEncodingSurvive()
    {
        // A file written by the older Windows programs: GBK text, LF endings, comments and blank lines.
        QStringEncoder gbk("GBK");
        const QByteArray original = gbk.encode(u"; 设置\n[窗口]\nLeft=10\n\n[表格]\n列宽=5\n"_s);
        const QString file = path(u"gbk.ini"_s);
        write(file, original);
        QCOMPARE(Module1::GetIniString(u"表格"_s, u"列宽"_s, file, QString()), u"5"_s);
        QVERIFY(Module1::SetIniString(u"窗口"_s, u"Top"_s, file, u"20"_s) != 0);
        QCOMPARE(read(file), gbk.encode(u"; 设置\n[窗口]\nLeft=10\nTop=20\n\n[表格]\n列宽=5\n"_s));
    }

    void keyTwiceInASectionReadsAndWritesTheFirst()
    {
        // Hand-edited files end up with a key twice; the profile functions only ever see the first line.
        const QString file = path(u"twice.ini"_s);
        write(file, "[Setup Program]\r\nMainFormSpliterX=2000\r\nmainformspliterx=4000\r\n[Other]\r\nA=1\r\n");
        QCOMPARE(Module1::GetIniString(u"Setup Program"_s, u"MainFormSpliterX"_s, file, QString()), u"2000"_s);
        QVERIFY(Module1::SetIniString(u"Setup Program"_s, u"MainFormSpliterX"_s, file, u"2500"_s) != 0);
        QCOMPARE(read(file),
                 QByteArray("[Setup Program]\r\nMainFormSpliterX=2500\r\nmainformspliterx=4000\r\n[Other]\r\nA=1\r\n"));
    }

    // Saving a key rewrote files the older programs read: a GBK file with one undecodable byte came back as UTF-8,
    // and a file whose last line ended in a bare CR (no line end) had its LF endings turned into CRLF.
    void oddFilesKeepTheirEncodingAndLineEnds_data()
    {
        QStringEncoder gbk("GBK");
        QTest::addColumn<QByteArray>("original");
        QTest::addColumn<QByteArray>("expected");
        QTest::newRow("GBK with a broken byte")
            << (QByteArray(gbk.encode(u"[窗口]\n名称=商品\n"_s)) + QByteArray("\x81\n"))
            << (QByteArray(gbk.encode(u"[窗口]\n名称=商品\n"_s)) + QByteArray("?\nTop=20\n"));
        QTest::newRow("a CRLF line among LF lines")
            << QByteArray("[a]\nk=1\r\n[窗口]\nLeft=1\n") << QByteArray("[a]\nk=1\r\n[窗口]\nLeft=1\nTop=20\n");
        QTest::newRow("last line ends in a bare CR")
            << QByteArray("[a]\nk=1\n[窗口]\nLeft=1\r") << QByteArray("[a]\nk=1\n[窗口]\nLeft=1\r\nTop=20");
        QTest::newRow("mostly CRLF") << QByteArray("[窗口]\r\nLeft=1\r\nx=2\n")
                                     << QByteArray("[窗口]\r\nLeft=1\r\nx=2\r\nTop=20\r\n");
    }
    void oddFilesKeepTheirEncodingAndLineEnds()
    {
        QFETCH(QByteArray, original);
        const QString file = path(u"odd.ini"_s);
        write(file, original);
        QVERIFY(Module1::SetIniString(u"窗口"_s, u"Top"_s, file, u"20"_s) != 0);
        QTEST(read(file), "expected");
        const QByteArray once = read(file);
        QVERIFY(Module1::SetIniString(u"窗口"_s, u"Top"_s, file, u"20"_s) != 0);
        QCOMPARE(read(file), once);
    }

    void writeToMissingFolderFails()
    {
        QCOMPARE(Module1::SetIniString(u"S"_s, u"K"_s, path(u"no/such/dir.ini"_s), u"v"_s), 0);
    }

    void lineBreaksInValuesCannotSplitTheFile()
    {
        IniFile ini;
        ini.setValue(u"S"_s, u"K"_s, u"a\r\nb=c"_s);
        QCOMPARE(IniFile(ini.content()).value(u"S"_s, u"K"_s), std::optional<QString>(u"a  b=c"_s));
        QCOMPARE(IniFile(ini.content()).value(u"S"_s, u"b"_s), std::nullopt);
    }
};

QTEST_GUILESS_MAIN(IniFileTest)
#include "tst_inifile.moc"
