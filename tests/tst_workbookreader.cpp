#include "workbookreader.h"

#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStringEncoder>
#include <QTemporaryDir>
#include <QTest>

#include <cstring>

using namespace Qt::StringLiterals;

class WorkbookReaderTest : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;

    QString path(const QString &name) const { return m_dir.filePath(name); }

    QString make(const QString &kind, const QString &name)
    {
        const QString file = path(name);
        QProcess writer;
        writer.start(u"/usr/bin/python3"_s, {QStringLiteral(QUILLON_TEST_SUPPORT_DIR "/makebook.py"), kind, file});
        if (!writer.waitForFinished(60000) || writer.exitCode() != 0) {
            qWarning() << writer.readAllStandardError();
            return QString();
        }
        return file;
    }

    QString write(const QString &name, const QByteArray &bytes)
    {
        QFile f(path(name));
        if (!f.open(QIODevice::WriteOnly) || f.write(bytes) != bytes.size()) {
            return QString();
        }
        return f.fileName();
    }

    // Each row as "row: A=text B=text", a formula cell marked with ƒ after its text.
    static QStringList rowsOf(WorkbookReader &reader, const QString &sheet, bool *ok = nullptr)
    {
        QStringList rows;
        const bool read = reader.readSheet(sheet, [&](int number, const WorkbookReader::Row &cells) {
            QString line = QString::number(number) + u':';
            for (const WorkbookReader::Cell &cell : cells) {
                line += u' ' + WorkbookReader::columnName(cell.column) + u'=' + cell.text
                    + (cell.formula ? u"ƒ"_s : QString());
            }
            rows.append(line);
            return true;
        });
        if (ok) {
            *ok = read;
        }
        return rows;
    }

    QByteArray xlsBytes()
    {
        QFile in(make(u"xls"_s, u"plain.xls"_s));
        return in.open(QIODevice::ReadOnly) ? in.readAll() : QByteArray();
    }

    // The compound file with the directory entry `from` renamed `to` (names are UTF-16 in a 64-byte field).
    static QByteArray renameStream(QByteArray bytes, const QString &from, const QString &to)
    {
        QByteArray name(64, '\0');
        std::memcpy(name.data(), from.utf16(), std::size_t(from.size()) * 2);
        const qsizetype at = bytes.indexOf(name);
        if (at < 0 || to.size() > 31) {
            return QByteArray();
        }
        QByteArray renamed(64, '\0');
        std::memcpy(renamed.data(), to.utf16(), std::size_t(to.size()) * 2);
        bytes.replace(at, 64, renamed);
        const quint16 length = quint16((to.size() + 1) * 2);
        bytes[at + 64] = char(length & 0xFF);
        bytes[at + 65] = char(length >> 8);
        return bytes;
    }

    static QString readError(const QString &file, const WorkbookReader::Limits &limits = WorkbookReader::Limits())
    {
        WorkbookReader reader(file);
        reader.setLimits(limits);
        if (!reader.open()) {
            return reader.errorString();
        }
        bool ok = false;
        rowsOf(reader, QString(), &ok);
        return ok ? QString() : reader.errorString();
    }

private Q_SLOTS:
    void initTestCase() { QVERIFY(m_dir.isValid()); }

    void xlsxCellsAsAClerkSeesThem()
    {
        const QString file = make(u"types"_s, u"types.xlsx"_s);
        QVERIFY(!file.isEmpty());
        WorkbookReader reader(file);
        QVERIFY2(reader.open(), qPrintable(reader.errorString()));
        QCOMPARE(reader.format(), WorkbookReader::Format::Xlsx);
        QCOMPARE(reader.sheetNames(), QStringList({u"商品"_s, u"其他"_s}));
        const QStringList expected = {
            u"1: A=编号 B=名称 C=单件进价 D=日期 E=特价 F=公式 H=备注"_s,
            u"2: A=A001 B=可乐 C=35.568 D=2024-03-05 E=1 F=ƒ H=第一行"_s,
            u"3: A=A002 B=雪碧 C=0.0001 D=2024-03-05 14:30:00 E=0 F=ƒ"_s,
            u"4: A=A003 B=芬达 C=12 H=A & <b>"_s,
        };
        QCOMPARE(rowsOf(reader, QString()), expected);
        QCOMPARE(rowsOf(reader, u"其他"_s), QStringList({u"1: A=名称"_s, u"2: A=只在第二张表"_s}));
    }

    void sharedStringsRichTextAndTheDateSystemOf1904()
    {
        const QString file = make(u"shared"_s, u"shared.xlsx"_s);
        QVERIFY(!file.isEmpty());
        WorkbookReader reader(file);
        QVERIFY2(reader.open(), qPrintable(reader.errorString()));
        const QStringList expected = {
            u"1: A=编号 B=名称 C=1"_s,
            u"3: A=1500 B=上海百联 C=1904-01-01"_s,
            u"4: B= 带空格 \t C=公式文字"_s,
        };
        QCOMPARE(rowsOf(reader, u"客户"_s), expected);
    }

    void legacyXlsThroughFreeXL()
    {
        const QString file = make(u"xls"_s, u"old.xls"_s);
        QVERIFY(!file.isEmpty());
        WorkbookReader reader(file);
        QVERIFY2(reader.open(), qPrintable(reader.errorString()));
        QCOMPARE(reader.format(), WorkbookReader::Format::Xls);
        QCOMPARE(reader.sheetNames(), QStringList({u"商品"_s, u"其他"_s}));
        const QStringList expected = {
            u"1: A=编号 B=名称 C=单件进价 D=日期 E=包装数量"_s,
            u"2: A=A001 B=可乐 C=35.568 D=2024-03-05 E=24"_s,
            u"3: A=A002 B=雪碧 C=2.5"_s,
        };
        QCOMPARE(rowsOf(reader, u"商品"_s), expected);
    }

    // Other programs spell the workbook stream "WORKBOOK" or "workbook"; Excel and LibreOffice open such files.
    void legacyXlsWithTheWorkbookStreamInOtherLetterCase_data()
    {
        QTest::addColumn<QString>("spelling");
        QTest::newRow("upper case") << u"WORKBOOK"_s;
        QTest::newRow("lower case") << u"workbook"_s;
    }

    void legacyXlsWithTheWorkbookStreamInOtherLetterCase()
    {
        QFETCH(QString, spelling);
        const QByteArray bytes = xlsBytes();
        QVERIFY(!bytes.isEmpty());
        const QString file = write(spelling + u".xls"_s, renameStream(bytes, u"Workbook"_s, spelling));
        WorkbookReader reader(file);
        QVERIFY2(reader.open(), qPrintable(reader.errorString()));
        QCOMPARE(reader.sheetNames(), QStringList({u"商品"_s, u"其他"_s}));
        QCOMPARE(rowsOf(reader, u"其他"_s), QStringList {u"1: A=名称"_s});
        QCOMPARE(rowsOf(reader, u"商品"_s).size(), 3);
    }

    // FreeXL gives up on a workbook with a chart anywhere in it, and gives formulas no value; LibreOffice and Excel
    // read both.
    void legacyXlsWithChartsAndReferencesToOtherSheets()
    {
        WorkbookReader reader(QStringLiteral(QUILLON_TEST_DATA_DIR "/charts.xls"));
        QVERIFY2(reader.open(), qPrintable(reader.errorString()));
        QCOMPARE(reader.sheetNames(), QStringList({u"商品"_s, u"引用"_s, u"图表"_s}));
        const QStringList goods = {u"1: A=编号 B=名称 C=单件进价"_s, u"2: A=A1 B=可乐 C=3"_s, u"3: A=A2 C=4"_s};
        QCOMPARE(rowsOf(reader, u"商品"_s), goods);
        // Formulas come as their last results, also across sheets.
        QCOMPARE(rowsOf(reader, u"引用"_s), QStringList {u"1: A=A1ƒ B=6ƒ"_s});
        QCOMPARE(rowsOf(reader, u"图表"_s), QStringList());
    }

    // Each says what the file is and what to do, never that the workbook has no sheets.
    void unreadableLegacyFilesAreNamedForWhatTheyAre_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("reason");
        const QByteArray xls = xlsBytes();
        // An encrypted .xlsx is a compound file holding the encryption's description and the encrypted package.
        QTest::newRow("xlsx with a password")
            << renameStream(xls, u"Workbook"_s, u"EncryptionInfo"_s) << u"有密码保护"_s;
        // FILEPASS right after the workbook's BOF marks an encrypted .xls.
        QByteArray filepass = xls;
        const qsizetype bof = filepass.indexOf(QByteArray("\x09\x08\x10\x00\x00\x06\x05\x00", 8));
        QVERIFY(bof > 0);
        filepass[bof + 20] = 0x2F;
        filepass[bof + 21] = 0x00;
        QTest::newRow("xls with a password") << filepass << u"有密码保护"_s;
        QTest::newRow("compound file without a workbook")
            << renameStream(xls, u"Workbook"_s, u"WordDocument"_s) << u"没有 Excel 工作簿数据"_s;
        QFile excel95(QStringLiteral(QUILLON_TEST_DATA_DIR "/excel95.xls"));
        QVERIFY(excel95.open(QIODevice::ReadOnly));
        QTest::newRow("Excel 95 workbook") << excel95.readAll() << u"是 Excel 5.0/95 工作簿,无法读取"_s;
        QTest::newRow("Excel 4.0 workbook")
            << QByteArray("\x09\x04\x06\x00\x00\x00\x00\x01\x00\x00\x00\x00", 12) << u"Excel 4.0 工作簿,不支持"_s;
        QTest::newRow("Excel 3.0 sheet") << QByteArray("\x09\x02\x06\x00\x00\x00\x10\x00\x00\x00\x00\x00", 12)
                                         << u"Excel 3.0 工作表,不支持"_s;
        QTest::newRow("Excel 2.x sheet") << QByteArray("\x09\x00\x04\x00\x02\x00\x10\x00\x00\x00\x00\x00", 12)
                                         << u"Excel 2.x 工作表,不支持"_s;
    }

    void unreadableLegacyFilesAreNamedForWhatTheyAre()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QString, reason);
        const QString file = write(u"legacy.xls"_s, bytes);
        const QString error = readError(file);
        QVERIFY2(error.contains(reason), qPrintable(error));
        QVERIFY(error.contains(u"legacy.xls"_s));
        QVERIFY2(!error.contains(u"没有表格"_s), qPrintable(error));
    }

    // FreeXL reads damaged files out of bounds; its reading runs in a child process, whose death is a clear error.
    void legacyXlsReaderThatDiesIsAnError()
    {
        const QString file = make(u"xls"_s, u"dies.xls"_s);
        QVERIFY(!file.isEmpty());
        qputenv("QUILLON_XLS_READER_ABORT", "1");
        WorkbookReader reader(file);
        const bool opened = reader.open();
        qunsetenv("QUILLON_XLS_READER_ABORT");
        QVERIFY(!opened);
        QVERIFY2(reader.errorString().contains(u"已损坏"_s), qPrintable(reader.errorString()));
        QVERIFY(reader.errorString().contains(u"dies.xls"_s));
    }

    void damagedLegacyXlsFailsWithAReason_data()
    {
        QTest::addColumn<int>("keep");
        QTest::addColumn<int>("flip");
        for (int keep : {0, 8, 512, 1000, 1536, 2600, 4000}) {
            QTest::addRow("cut at %d", keep) << keep << -1;
        }
        for (int flip : {0, 30, 48, 520, 1100, 1600, 2100, 3000}) {
            QTest::addRow("byte %d changed", flip) << -1 << flip;
        }
    }

    void damagedLegacyXlsFailsWithAReason()
    {
        QFETCH(int, keep);
        QFETCH(int, flip);
        const QString good = make(u"xls"_s, u"whole.xls"_s);
        QVERIFY(!good.isEmpty());
        QFile in(good);
        QVERIFY(in.open(QIODevice::ReadOnly));
        QByteArray bytes = in.readAll();
        if (keep >= 0) {
            bytes.truncate(keep);
        } else if (flip < bytes.size()) {
            bytes[flip] = char(~bytes.at(flip));
        }
        const QString file = write(u"damaged.xls"_s, bytes);
        WorkbookReader reader(file);
        if (!reader.open()) {
            QVERIFY(!reader.errorString().isEmpty());
            return;
        }
        // Damage the reader does not notice reads as whatever the cells now hold, within the sheet's limits.
        for (const QString &sheet : reader.sheetNames()) {
            int last = 0;
            const bool read = reader.readSheet(sheet, [&](int row, const WorkbookReader::Row &cells) {
                [&] {
                    QVERIFY(row > last);
                    QVERIFY(!cells.empty());
                }();
                last = row;
                return true;
            });
            QVERIFY(read || !reader.errorString().isEmpty());
        }
    }

    void mergedAreasAreReportedAfterTheRead()
    {
        const QString file = make(u"merged"_s, u"merged.xlsx"_s);
        WorkbookReader reader(file);
        QVERIFY2(reader.open(), qPrintable(reader.errorString()));
        rowsOf(reader, QString());
        const QList<WorkbookReader::Range> ranges = reader.mergedRanges();
        QCOMPARE(ranges.size(), 2);
        QCOMPARE(ranges[1].firstRow, 3);
        QCOMPARE(ranges[1].lastRow, 4);
        QCOMPARE(ranges[1].firstColumn, 2);
    }

    void csvInUtf8AndGbk_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("encoding");
        const QString text = u"编号,名称,备注\r\nA001,\"可乐, 大瓶\",\"说 \"\"好\"\"\n第二行\"\r\n\r\nA002,雪碧,\n"_s;
        const QString tabs =
            u"编号\t名称\t备注\r\nA001\t\"可乐, 大瓶\"\t\"说 \"\"好\"\"\n第二行\"\r\n\r\nA002\t雪碧\t\n"_s;
        QTest::newRow("utf-8 with mark") << QByteArray("\xEF\xBB\xBF") + text.toUtf8() << u"UTF-8"_s;
        QTest::newRow("utf-8") << text.toUtf8() << u"UTF-8"_s;
        QStringEncoder gbk("GBK");
        QTest::newRow("gbk") << QByteArray(gbk.encode(text)) << u"GB18030"_s;
        QTest::newRow("tabs") << tabs.toUtf8() << u"UTF-8"_s;
        // Excel's "Unicode 文本": tab-separated UTF-16LE with a byte-order mark.
        QStringEncoder le("UTF-16LE");
        QTest::newRow("utf-16le text") << QByteArray("\xFF\xFE") + QByteArray(le.encode(tabs)) << u"UTF-16LE"_s;
        QStringEncoder be("UTF-16BE");
        QTest::newRow("utf-16be") << QByteArray("\xFE\xFF") + QByteArray(be.encode(text)) << u"UTF-16BE"_s;
        // 𠀀 (four bytes in GB18030) is beyond GBK; 喆 is in GBK's extension.
        QStringEncoder gb18030("GB18030");
        QTest::newRow("gb18030 beyond gbk")
            << QByteArray(gb18030.encode(QString(text).replace(u"第二行"_s, u"𠀀喆"_s))) << u"GB18030"_s;
    }
    void csvInUtf8AndGbk()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QString, encoding);
        WorkbookReader reader(write(u"list.csv"_s, bytes));
        QVERIFY2(reader.open(), qPrintable(reader.errorString()));
        QCOMPARE(reader.format(), WorkbookReader::Format::Csv);
        QCOMPARE(reader.textEncoding(), encoding);
        const QString second =
            QString::fromUtf8(QTest::currentDataTag()).contains(u"gb18030"_s) ? u"𠀀喆"_s : u"第二行"_s;
        const QStringList expected = {
            u"1: A=编号 B=名称 C=备注"_s,
            u"2: A=A001 B=可乐, 大瓶 C=说 \"好\"\n"_s + second,
            u"4: A=A002 B=雪碧"_s,
        };
        QCOMPARE(rowsOf(reader, QString()), expected);
    }

    // Text in none of the encodings read is refused in one line; no cell ever carries NUL or U+FFFD into a report.
    void csvInAnUnknownEncodingIsRefusedInOneLine_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("error");
        QTest::newRow("bytes no encoding reads")
            << QByteArray("\x81\x30\x81\xFF,\xFF\xFF\n", 9)
            << u"文字编码无法识别;CSV 文件请存为 UTF-8、UTF-16(带 BOM)或 GB18030/GBK 编码"_s;
        QStringEncoder le("UTF-16LE");
        QTest::newRow("utf-16le without a mark")
            << QByteArray(le.encode(u"编号,名称\nA1,可乐\n"_s)) << u"文字编码无法识别"_s;
        QTest::newRow("nul in utf-8") << QByteArray("a,b\n\0\0,c\n", 9) << u"文字编码无法识别"_s;
        QTest::newRow("utf-16le, an odd byte at the end")
            << QByteArray("\xFF\xFE") + QByteArray(le.encode(u"名称\n可乐"_s)) + "\x41" << u"不是有效的 UTF-16LE"_s;
    }
    void csvInAnUnknownEncodingIsRefusedInOneLine()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QString, error);
        const QString got = readError(write(u"strange.csv"_s, bytes));
        QVERIFY2(got.contains(error), qPrintable(got));
        QVERIFY(!got.contains(u'\n'));
        QVERIFY(!got.contains(QChar(0)));
        QVERIFY(!got.contains(QChar::ReplacementCharacter));
    }

    void hostileFilesStopWithAClearError_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QString>("message");
        QTest::newRow("text named .xlsx") << write(u"fake.xlsx"_s, "这不是工作簿") << u"不是工作簿"_s;
        QTest::newRow("zip without workbook")
            << write(u"empty.xlsx"_s, QByteArray("PK\x03\x04", 4) + QByteArray(100, 'x')) << u"不是 Excel 工作簿"_s;
        QTest::newRow("empty csv") << write(u"nothing.csv"_s, QByteArray()) << QString();
        // One row past the format's limit, and one column past it.
        QByteArray rows;
        rows.reserve(2 * 1048577);
        for (int i = 0; i < 1048577; ++i) {
            rows += "a\n";
        }
        QTest::newRow("1048577 rows") << write(u"rows.csv"_s, rows) << u"超过了 1048576 行"_s;
        QTest::newRow("16385 columns") << write(u"columns.csv"_s, QByteArray(16385, ',')) << u"超过了 16384 列"_s;
        QTest::newRow("cell of 40000 characters")
            << write(u"long.csv"_s, QByteArray(40000, 'x')) << u"超过 32767 个字符"_s;
    }
    void hostileFilesStopWithAClearError()
    {
        QFETCH(QString, file);
        QFETCH(QString, message);
        const QString error = readError(file);
        if (message.isEmpty()) {
            QCOMPARE(error, QString());
        } else {
            QVERIFY2(error.contains(message), qPrintable(error));
        }
    }

    // A sheet naming one cell twice in a row handed both values on, as if the row had two cells there.
    void cellGivenTwiceInARowIsRefused()
    {
        const QString file = make(u"twice"_s, u"twice.xlsx"_s);
        QVERIFY(!file.isEmpty());
        QCOMPARE(readError(file), u"表格 [客户] 的单元格 A2 出现了两次"_s);
    }

    void zipBombIsRefusedBeforeItIsInflated()
    {
        // A sheet of 200 MB of blanks packs into a few hundred kilobytes.
        const QString file = path(u"bomb.xlsx"_s);
        QProcess writer;
        writer.start(u"/usr/bin/python3"_s,
                     {u"-c"_s,
                      u"import sys, zipfile\n"
                      "z = zipfile.ZipFile(sys.argv[1], 'w', zipfile.ZIP_DEFLATED)\n"
                      "z.writestr('_rels/.rels', '<Relationships><Relationship Type=\"x/officeDocument\" "
                      "Target=\"xl/workbook.xml\"/></Relationships>')\n"
                      "z.writestr('xl/workbook.xml', '<workbook><sheets><sheet name=\"s\" id=\"rId1\"/></sheets>"
                      "</workbook>')\n"
                      "z.writestr('xl/_rels/workbook.xml.rels', '<Relationships><Relationship Id=\"rId1\" "
                      "Type=\"x/worksheet\" Target=\"worksheets/sheet1.xml\"/></Relationships>')\n"
                      "with z.open('xl/worksheets/sheet1.xml', 'w', force_zip64=True) as f:\n"
                      "    f.write(b'<worksheet><sheetData>')\n"
                      "    for i in range(200): f.write(b' ' * (1 << 20))\n"
                      "z.close()\n"_s,
                      file});
        QVERIFY(writer.waitForFinished(120000));
        QVERIFY2(writer.exitCode() == 0, writer.readAllStandardError().constData());
        const QString error = readError(file);
        QVERIFY2(error.contains(u"恶意"_s), qPrintable(error));
    }

    // A lone CR ended no row: two lines of a file from an older Mac program were read as one.
    void csvLinesEndWithCrOrLfOrBoth_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("LF") << QByteArray("编号,名称\nA1,甲\n\"多\n行\",乙\n");
        QTest::newRow("CR LF") << QByteArray("编号,名称\r\nA1,甲\r\n\"多\n行\",乙\r\n");
        QTest::newRow("lone CR") << QByteArray("编号,名称\rA1,甲\r\"多\n行\",乙\r");
        QTest::newRow("mixed, no end at the end") << QByteArray("编号,名称\rA1,甲\r\n\"多\n行\",乙");
    }
    void csvLinesEndWithCrOrLfOrBoth()
    {
        QFETCH(QByteArray, bytes);
        WorkbookReader reader(write(u"lines.csv"_s, bytes));
        QVERIFY(reader.open());
        bool ok = false;
        QCOMPARE(rowsOf(reader, QString(), &ok),
                 (QStringList {u"1: A=编号 B=名称"_s, u"2: A=A1 B=甲"_s, u"3: A=多\n行 B=乙"_s}));
        QVERIFY(ok);
    }

    // A workbook with one sheet "s" whose parts are given as Python expressions of bytes, packed by Python's zipfile.
    QString zipBook(const QString &name, const QString &sheetExpression, const QString &sharedExpression)
    {
        const QString file = path(name);
        QProcess writer;
        writer.start(u"/usr/bin/python3"_s,
                     {u"-c"_s,
                      u"import sys, zipfile\n"
                      "z = zipfile.ZipFile(sys.argv[1], 'w', zipfile.ZIP_DEFLATED)\n"
                      "z.writestr('_rels/.rels', '<Relationships><Relationship Type=\"x/officeDocument\" "
                      "Target=\"xl/workbook.xml\"/></Relationships>')\n"
                      "z.writestr('xl/workbook.xml', '<workbook><sheets><sheet name=\"s\" id=\"rId1\"/></sheets>"
                      "</workbook>')\n"
                      "z.writestr('xl/_rels/workbook.xml.rels', '<Relationships><Relationship Id=\"rId1\" "
                      "Type=\"x/worksheet\" Target=\"worksheets/sheet1.xml\"/><Relationship Id=\"rId2\" "
                      "Type=\"x/sharedStrings\" Target=\"sharedStrings.xml\"/></Relationships>')\n"
                      "z.writestr('xl/worksheets/sheet1.xml', "_s
                          + sheetExpression
                          + u")\n"
                            "z.writestr('xl/sharedStrings.xml', "_s
                          + sharedExpression
                          + u")\n"
                            "z.close()\n"_s,
                      file});
        if (!writer.waitForFinished(120000) || writer.exitCode() != 0) {
            qWarning() << writer.readAllStandardError();
            return QString();
        }
        return file;
    }

    // A shared-strings part of a few kilobytes on disk that inflated into millions of short strings made the read
    // hold several times the part's size and end in std::bad_alloc; the table is bounded now, and refused past it.
    void sharedStringsBeyondTheirBoundAreRefused()
    {
        // 40 MB of two-letter strings: under the ratio check's floor, so only the table's own bound stops it.
        const QString file = zipBook(u"many-strings.xlsx"_s,
                                     u"b'<worksheet><sheetData><row r=\"1\"><c r=\"A1\" t=\"s\"><v>1</v></c>"
                                     "</row></sheetData></worksheet>'"_s,
                                     u"b'<sst>' + b'<si><t>ab</t></si>' * 2300000 + b'</sst>'"_s);
        QVERIFY(!file.isEmpty());
        QVERIFY(QFileInfo(file).size() < 1 << 20);
        WorkbookReader::Limits limits;
        limits.maxSharedStringBytes = qint64(8) << 20;
        const QString error = readError(file, limits);
        QVERIFY2(error.contains(u"共享文字超过 8 MB"_s), qPrintable(error));

        // Within the bound the same table reads, each string in its place.
        WorkbookReader reader(file);
        QVERIFY(reader.open());
        bool ok = false;
        QCOMPARE(rowsOf(reader, QString(), &ok), QStringList {u"1: A=ab"_s});
        QVERIFY2(ok, qPrintable(reader.errorString()));
    }

    // A cell of ten million characters was reported as a damaged sheet; the CSV reader says the cell is too long.
    void overlongXlsxCellIsNamedNotCalledDamage_data()
    {
        QTest::addColumn<QString>("sheet");
        QTest::addColumn<QString>("shared");
        QTest::addColumn<QString>("message");
        QTest::newRow("inline text") << u"b'<worksheet><sheetData><row r=\"2\"><c r=\"B2\" t=\"inlineStr\"><is><t>' "
                                        "+ '长'.encode() * 3500000 + b'</t></is></c></row></sheetData></worksheet>'"_s
                                     << u"b'<sst/>'"_s << u"第 2 行 B 列的文字超过 32767 个字符"_s;
        QTest::newRow("shared string") << u"b'<worksheet><sheetData><row r=\"1\"><c r=\"A1\" t=\"s\"><v>0</v>"
                                          "</c></row></sheetData></worksheet>'"_s
                                       << u"b'<sst><si><t>' + b'x' * 10000000 + b'</t></si></sst>'"_s
                                       << u"超过 32767 个字符的文字"_s;
    }
    void overlongXlsxCellIsNamedNotCalledDamage()
    {
        QFETCH(QString, sheet);
        QFETCH(QString, shared);
        QFETCH(QString, message);
        const QString file = zipBook(u"long-cell.xlsx"_s, sheet, shared);
        QVERIFY(!file.isEmpty());
        const QString error = readError(file);
        QVERIFY2(error.contains(message), qPrintable(error));
        QVERIFY2(!error.contains(u"损坏"_s), qPrintable(error));
    }

    // Text cut into pieces is joined again whole: neither a character nor a reference is split.
    void longTextInPiecesKeepsCharactersAndReferences()
    {
        // Nine bytes a repetition, so that the pieces end at different places within it.
        const QString file = zipBook(u"pieces.xlsx"_s,
                                     u"b'<worksheet><sheetData><row r=\"1\"><c r=\"A1\" t=\"s\"><v>0</v></c>"
                                     "</row></sheetData></worksheet>'"_s,
                                     u"b'<sst><si><t>' + '长&amp;x'.encode() * 1000000 + b'</t></si></sst>'"_s);
        QVERIFY(!file.isEmpty());
        WorkbookReader::Limits limits;
        limits.maxCellChars = 4000000;
        WorkbookReader reader(file);
        reader.setLimits(limits);
        QVERIFY(reader.open());
        QString text;
        QVERIFY2(reader.readSheet(QString(),
                                  [&](int, const WorkbookReader::Row &cells) {
                                      text = cells.empty() ? QString() : cells.front().text;
                                      return true;
                                  }),
                 qPrintable(reader.errorString()));
        QCOMPARE(text.size(), qsizetype(3000000));
        QVERIFY(text == u"长&x"_s.repeated(1000000));
    }

    // Leniencies of other programs' workbooks that LibreOffice reads too.
    void xlsxLeniencyOfOtherWritersIsRead_data()
    {
        QTest::addColumn<QString>("cells");
        QTest::addColumn<QString>("shared");
        QTest::addColumn<QStringList>("rows");
        const QString sst =
            u"'<sst><si/><si><t/></si><si><t>名称</t></si><si><r><t/></r></si><si><t>可乐</t></si></sst>'"_s;
        QTest::newRow("empty shared strings")
            << u"<row r=\"1\"><c r=\"A1\" t=\"s\"><v>0</v></c><c r=\"B1\" t=\"s\"><v>2</v></c></row>"
               "<row r=\"2\"><c r=\"A2\" t=\"s\"><v>1</v></c><c r=\"B2\" t=\"s\"><v>3</v></c><c r=\"C2\" t=\"s\"><v>4</v></c></row>"_s
            << sst << QStringList {u"1: B=名称"_s, u"2: C=可乐"_s};
        QTest::newRow("cells and rows without references")
            << u"<row><c t=\"s\"><v>2</v></c><c><v>3.5</v></c></row><row><c/><c t=\"s\"><v>4</v></c></row>"_s << sst
            << QStringList {u"1: A=名称 B=3.5"_s, u"2: B=可乐"_s};
        QTest::newRow("inline strings, booleans, errors")
            << u"<row r=\"1\"><c r=\"A1\" t=\"inlineStr\"><is><t>雪碧</t></is></c><c r=\"B1\" "
               u"t=\"inlineStr\"><is><r><t>大</t></r><r><t>瓶</t></r></is></c>"
               "<c r=\"C1\" t=\"b\"><v>1</v></c><c r=\"D1\" t=\"e\"><v>#N/A</v></c><c r=\"E1\" t=\"inlineStr\"><is/></c></row>"_s
            << sst << QStringList {u"1: A=雪碧 B=大瓶 C=1 D=#N/A"_s};
    }
    void xlsxLeniencyOfOtherWritersIsRead()
    {
        QFETCH(QString, cells);
        QFETCH(QString, shared);
        QFETCH(QStringList, rows);
        const QString file =
            zipBook(u"lenient.xlsx"_s, u"'<worksheet><sheetData>"_s + cells + u"</sheetData></worksheet>'"_s, shared);
        QVERIFY(!file.isEmpty());
        WorkbookReader reader(file);
        QVERIFY2(reader.open(), qPrintable(reader.errorString()));
        bool ok = false;
        QCOMPARE(rowsOf(reader, QString(), &ok), rows);
        QVERIFY2(ok, qPrintable(reader.errorString()));
    }

    void missingSheetNamesTheOnesThereAre()
    {
        WorkbookReader reader(make(u"types"_s, u"named.xlsx"_s));
        QVERIFY(reader.open());
        QVERIFY(!reader.readSheet(u"客户"_s, [](int, const WorkbookReader::Row &) { return true; }));
        QCOMPARE(reader.errorString(), u"工作簿中没有名为 [客户] 的表格;有: 商品, 其他"_s);
    }
};

QTEST_GUILESS_MAIN(WorkbookReaderTest)
#include "tst_workbookreader.moc"
