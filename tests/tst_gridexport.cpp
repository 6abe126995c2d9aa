#include "cbus.h"
#include "excelconnection.h"
#include "flexgrid.h"
#include "itemgrid.h"
#include "prompt.h"

#include <QCryptographicHash>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

struct Sheet
{
    QString name;
    QList<QStringList> rows;
};

struct Workbook
{
    QList<Sheet> sheets;
    QMap<QString, QString> entries; // part → sha256
    QString error;
};

// Reads a workbook back with openpyxl, trailing empty cells of each row dropped.
Workbook readBack(const QString &file)
{
    Workbook book;
    QProcess reader;
    reader.start(u"/usr/bin/python3"_s, {QStringLiteral(QUILLON_TEST_SUPPORT_DIR "/readxlsx.py"), file});
    if (!reader.waitForFinished(60000) || reader.exitCode() != 0) {
        book.error = QString::fromUtf8(reader.readAllStandardError());
        return book;
    }
    const QJsonObject doc = QJsonDocument::fromJson(reader.readAllStandardOutput()).object();
    for (const QJsonValue &s : doc.value(u"sheets"_s).toArray()) {
        Sheet sheet;
        sheet.name = s.toObject().value(u"name"_s).toString();
        for (const QJsonValue &r : s.toObject().value(u"rows"_s).toArray()) {
            QStringList cells;
            for (const QJsonValue &c : r.toArray()) {
                cells.append(c.toString());
            }
            while (!cells.isEmpty() && cells.constLast().isEmpty()) {
                cells.removeLast();
            }
            sheet.rows.append(cells);
        }
        book.sheets.append(sheet);
    }
    const QJsonObject entries = doc.value(u"entries"_s).toObject();
    for (auto it = entries.begin(); it != entries.end(); ++it) {
        book.entries.insert(it.key(), it.value().toString());
    }
    return book;
}

QByteArray fileBytes(const QString &file)
{
    QFile f(file);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

} // namespace

class GridExportTest : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;
    std::unique_ptr<ScriptedPrompt> m_prompt;
    std::unique_ptr<FlexGrid> m_grid;
    std::unique_ptr<CBus> m_bus;

    QString path(const QString &name) const { return m_dir.filePath(name); }
    void fill(const QString &format, const QStringList &rows)
    {
        m_grid->setFormatString(format);
        m_grid->setFixedCols(0);
        m_grid->setRows(1);
        for (const QString &row : rows) {
            m_grid->AddItem(row);
        }
    }

    // Rewrites the sheet list (xl/workbook.xml) of a workbook with Python's bytes.replace(`replaceArguments`).
    static bool rewriteSheetList(const QString &file, const QString &replaceArguments)
    {
        QProcess rewrite;
        rewrite.start(u"/usr/bin/python3"_s,
                      {u"-c"_s,
                       u"import sys, zipfile\n"
                       "src = zipfile.ZipFile(sys.argv[1]).infolist()\n"
                       "data = {i.filename: zipfile.ZipFile(sys.argv[1]).read(i.filename) for i in src}\n"
                       "data['xl/workbook.xml'] = data['xl/workbook.xml'].replace("_s
                           + replaceArguments
                           + u")\n"
                             "with zipfile.ZipFile(sys.argv[1], 'w', zipfile.ZIP_DEFLATED) as z:\n"
                             "    [z.writestr(name, body) for name, body in data.items()]\n"_s,
                       file});
        return rewrite.waitForFinished(60000) && rewrite.exitStatus() == QProcess::NormalExit
            && rewrite.exitCode() == 0;
    }

private Q_SLOTS:
    void init()
    {
        m_prompt = std::make_unique<ScriptedPrompt>();
        CPrompt::setCurrent(m_prompt.get());
        m_grid = std::make_unique<FlexGrid>();
        m_bus = std::make_unique<CBus>();
    }
    void cleanup()
    {
        m_bus.reset();
        m_grid.reset();
        CPrompt::setCurrent(nullptr);
    }

    void connectionStringAndStatement()
    {
        QCOMPARE(CBus::ExcelConnectionString(u"/tmp/a.xls"_s),
                 u"DRIVER={MICROSOFT EXCEL DRIVER (*.XLS)};DSN='';FIRSTROWHASNAMES=1;READONLY=FALSE;"
                 "CREATE_DB=/tmp/a.xls;DBQ=/tmp/a.xls"_s);
        fill(u"编号|名称| 金额 |数量|单价|金额"_s, {});
        QCOMPARE(CBus::ExcelCreateTableStatement(m_grid.get(), u"商品0303140509"_s),
                 u"CREATE TABLE 商品0303140509 (编号 TEXT,名称 TEXT,金额 TEXT,数量 TEXT,单价 TEXT,金额5 TEXT)"_s);
        fill(u"编号||名称"_s, {});
        QCOMPARE(CBus::ExcelCreateTableStatement(m_grid.get(), u"S"_s),
                 u"CREATE TABLE S (编号 TEXT,列1 TEXT'名称 TEXT)"_s);
        fill(u"编号|名称|"_s, {});
        QCOMPARE(CBus::ExcelCreateTableStatement(m_grid.get(), u"S"_s),
                 u"CREATE TABLE S (编号 TEXT,名称 TEXT,列2 TEXT')"_s);
    }

    void headerOnlyGridMakesASheetWithColumnsOnly()
    {
        fill(u"编号|名称|单价"_s, {});
        QVERIFY(m_bus->CopyGridToExcel(m_grid.get(), path(u"header.xlsx"_s), u"商品"_s));
        QVERIFY(m_prompt->shown().isEmpty());
        const Workbook book = readBack(path(u"header.xlsx"_s));
        QVERIFY2(book.error.isEmpty(), qPrintable(book.error));
        QCOMPARE(book.sheets.size(), 1);
        QCOMPARE(book.sheets[0].name, u"商品"_s);
        QCOMPARE(book.sheets[0].rows, (QList<QStringList> {{u"编号"_s, u"名称"_s, u"单价"_s}}));
    }

    void textsComeBackUnchanged()
    {
        // (Control characters and literal _xHHHH_ texts are written in the workbook format's _xHHHH_ escapes,
        // which Excel decodes and openpyxl leaves as they are, so they are not compared here.)
        const QStringList texts {u"a<b & c>d"_s,       u"引号\"和'单引号"_s, u"两行\n文字"_s, u"回车\r分行"_s,
                                 u"Windows\r\n换行"_s, u"长城干红葡萄酒"_s,  u"Tom's 可乐"_s, u"  前后空格  "_s};
        m_grid->setFormatString(u"文字"_s);
        m_grid->setFixedCols(0);
        m_grid->setRows(1 + int(texts.size()));
        for (int i = 0; i < texts.size(); ++i) {
            m_grid->setTextMatrix(i + 1, 0, texts[i]);
        }
        QVERIFY(m_bus->CopyGridToExcel(m_grid.get(), path(u"texts.xlsx"_s), u"Texts"_s));
        const Workbook book = readBack(path(u"texts.xlsx"_s));
        QVERIFY2(book.error.isEmpty(), qPrintable(book.error));
        QCOMPARE(book.sheets[0].rows.size(), texts.size() + 1);
        for (int i = 0; i < texts.size(); ++i) {
            // Cells are written trimmed.
            QCOMPARE(book.sheets[0].rows[i + 1].value(0), texts[i].trimmed());
        }
    }

    void emptyHeaderBringsUpTheErrorBox()
    {
        fill(u"编号||名称"_s, {u"1\t\t可乐"_s});
        m_prompt->queueAnswer(CPrompt::vbCancel);
        QVERIFY(!m_bus->CopyGridToExcel(m_grid.get(), path(u"empty.xlsx"_s), u"S"_s));
        QCOMPARE(m_prompt->shown().size(), 1);
        const ScriptedPrompt::Shown box = m_prompt->shown().at(0);
        QVERIFY(box.text.startsWith(u"导出数据到Excel文件时发生错误\r\n"_s));
        QVERIFY(box.text.endsWith(u"\r\n要重试一下吗?"_s));
        QCOMPARE(box.style, int(CPrompt::vbYesNoCancel | CPrompt::vbQuestion));
        QVERIFY(!QFile::exists(path(u"empty.xlsx"_s)));
    }

    void existingSheetNameIsRefusedAndTheFileKept()
    {
        fill(u"编号|名称"_s, {u"1\t可乐"_s});
        QVERIFY(m_bus->CopyGridToExcel(m_grid.get(), path(u"twice.xlsx"_s), u"商品"_s));
        const QByteArray before = fileBytes(path(u"twice.xlsx"_s));
        m_prompt->queueAnswer(CPrompt::vbCancel);
        QVERIFY(!m_bus->CopyGridToExcel(m_grid.get(), path(u"twice.xlsx"_s), u"商品"_s));
        QVERIFY(m_prompt->lastText().contains(u"已经存在"_s));
        QCOMPARE(fileBytes(path(u"twice.xlsx"_s)), before);
    }

    // A workbook the user may not write was replaced all the same (the folder allowed the rename).
    void readOnlyWorkbookIsRefusedAndKept()
    {
        fill(u"编号|名称"_s, {u"1\t可乐"_s});
        const QString file = path(u"readonly.xlsx"_s);
        QVERIFY(m_bus->CopyGridToExcel(m_grid.get(), file, u"商品"_s));
        QVERIFY(QFile::setPermissions(file, QFileDevice::ReadOwner | QFileDevice::ReadGroup | QFileDevice::ReadOther));
        const QByteArray before = fileBytes(file);
        m_prompt->queueAnswer(CPrompt::vbCancel);
        QVERIFY(!m_bus->CopyGridToExcel(m_grid.get(), file, u"客户"_s));
        QVERIFY2(m_prompt->lastText().contains(u"是只读的"_s), qPrintable(m_prompt->lastText()));
        QCOMPARE(fileBytes(file), before);
        QFile::setPermissions(file, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    }

    // An export killed half-way left "商品.xlsx.a1B2c3" beside the workbook for good. The next export clears such
    // leftovers, but never the copy of an export that is still writing in that folder.
    void leftoverCopiesOfAKilledExportAreRemoved()
    {
        fill(u"编号|名称"_s, {u"1\t可乐"_s});
        const QString file = path(u"商品.xlsx"_s);
        QVERIFY(m_bus->CopyGridToExcel(m_grid.get(), file, u"供应商"_s));
        const QString usersCopy = file + u".backup"_s; // a whole workbook: the user's, never a leftover
        QVERIFY(QFile::copy(file, usersCopy));
        const QByteArray usersBytes = fileBytes(usersCopy);
        const QStringList leftovers {file + u".a1B2c3"_s, file + u".ZZZZZZ"_s};
        for (const QString &name : leftovers) {
            QFile f(name);
            QVERIFY(f.open(QIODevice::WriteOnly));
            f.write(fileBytes(file).left(200));
        }
        {
            // Another export in progress holds the folder.
            const int folder = ::open(QFile::encodeName(m_dir.path()).constData(), O_RDONLY | O_DIRECTORY);
            QVERIFY(folder >= 0);
            QCOMPARE(::flock(folder, LOCK_SH), 0);
            QVERIFY(m_bus->CopyGridToExcel(m_grid.get(), file, u"商品"_s));
            ::close(folder);
            QVERIFY(QFile::exists(leftovers[0]));
        }
        QVERIFY(m_bus->CopyGridToExcel(m_grid.get(), file, u"客户"_s));
        for (const QString &name : leftovers) {
            QVERIFY2(!QFile::exists(name), qPrintable(name));
        }
        QCOMPARE(fileBytes(usersCopy), usersBytes);
        QCOMPARE(readBack(file).sheets.size(), 3);
    }

    // A workbook whose sheet list claims gigabytes made the export allocate them before reading a byte.
    void workbookWithAnOversizedPartIsRefusedAndKept()
    {
        fill(u"编号|名称"_s, {u"1\t可乐"_s});
        const QString file = path(u"huge.xlsx"_s);
        QVERIFY(m_bus->CopyGridToExcel(m_grid.get(), file, u"商品"_s));
        // The same workbook with 40 MB of blanks in its sheet list: still valid XML, and a few kilobytes packed.
        QVERIFY(rewriteSheetList(file, u"b'<sheets>', b'<sheets>' + b' ' * (40 << 20)"_s));
        const QByteArray before = fileBytes(file);
        m_prompt->queueAnswer(CPrompt::vbCancel);
        QVERIFY(!m_bus->CopyGridToExcel(m_grid.get(), file, u"客户"_s));
        QVERIFY2(m_prompt->lastText().contains(u"大得不合常理"_s), qPrintable(m_prompt->lastText()));
        QCOMPARE(fileBytes(file), before);
    }

    // A sheet list declaring another encoding than UTF-8 took the new sheet's name in UTF-8 and read it back garbled
    // (found by fuzzing): such a workbook is refused and kept.
    void workbookDeclaringAnotherEncodingIsRefusedAndKept()
    {
        fill(u"编号|名称"_s, {u"1\t可乐"_s});
        const QString file = path(u"latin.xlsx"_s);
        QVERIFY(m_bus->CopyGridToExcel(m_grid.get(), file, u"Goods"_s));
        QVERIFY(rewriteSheetList(file, u"b'encoding=\"UTF-8\"', b'encoding=\"ISO-8859-1\"'"_s));
        const QByteArray before = fileBytes(file);
        QVERIFY(before.size() > 0);
        m_prompt->queueAnswer(CPrompt::vbCancel);
        QVERIFY(!m_bus->CopyGridToExcel(m_grid.get(), file, u"客户"_s));
        QVERIFY2(m_prompt->lastText().contains(u"UTF-8"_s), qPrintable(m_prompt->lastText()));
        QCOMPARE(fileBytes(file), before);
    }

    void secondSheetKeepsTheFirstSheetsBytes()
    {
        fill(u"编号|名称"_s, {u"1\t可乐"_s, u"2\t雪碧"_s});
        QVERIFY(m_bus->CopyGridToExcel(m_grid.get(), path(u"book.xlsx"_s), u"第一"_s));
        const Workbook first = readBack(path(u"book.xlsx"_s));
        fill(u"客户|电话"_s, {u"华联\t021-1234"_s});
        QVERIFY(m_bus->CopyGridToExcel(m_grid.get(), path(u"book.xlsx"_s), u"第二"_s));
        const Workbook second = readBack(path(u"book.xlsx"_s));
        QVERIFY2(second.error.isEmpty(), qPrintable(second.error));
        QCOMPARE(second.sheets.size(), 2);
        QCOMPARE(second.sheets[0].rows, first.sheets[0].rows);
        QCOMPARE(second.sheets[1].name, u"第二"_s);
        QCOMPARE(second.sheets[1].rows.value(1), (QStringList {u"华联"_s, u"021-1234"_s}));
        // Only the workbook, its relationships and the content types change; other parts keep their bytes.
        const QSet<QString> changed {u"xl/workbook.xml"_s, u"xl/_rels/workbook.xml.rels"_s, u"[Content_Types].xml"_s};
        for (auto it = first.entries.begin(); it != first.entries.end(); ++it) {
            if (!changed.contains(it.key())) {
                QCOMPARE(second.entries.value(it.key()), it.value());
            }
        }
    }

    void sheetJoinsAWorkbookAnotherProgramWrote()
    {
        // A workbook as openpyxl writes it: its own part names, styles, a formula and a defined name.
        const QString file = path(u"other.xlsx"_s);
        QProcess writer;
        writer.start(
            u"/usr/bin/python3"_s,
            {u"-c"_s,
             u"import openpyxl, sys\n"
             "wb = openpyxl.Workbook(); ws = wb.active; ws.title = '原表'\n"
             "ws['A1'] = 2; ws['A2'] = '=A1*3'\n"
             "wb.defined_names.append(openpyxl.workbook.defined_name.DefinedName('价', attr_text='原表!$A$1'))\n"
             "wb.save(sys.argv[1])"_s,
             file});
        QVERIFY(writer.waitForFinished(60000));
        QVERIFY2(writer.exitCode() == 0, writer.readAllStandardError().constData());
        const Workbook before = readBack(file);
        QVERIFY2(before.error.isEmpty(), qPrintable(before.error));

        fill(u"编号|名称"_s, {u"1\t可乐"_s});
        QVERIFY(m_bus->CopyGridToExcel(m_grid.get(), file, u"商品"_s));
        const Workbook after = readBack(file);
        QVERIFY2(after.error.isEmpty(), qPrintable(after.error));
        QCOMPARE(after.sheets.size(), 2);
        QCOMPARE(after.sheets[0].name, u"原表"_s);
        QCOMPARE(after.sheets[0].rows, (QList<QStringList> {{u"2"_s}, {u"=A1*3"_s}}));
        QCOMPARE(after.sheets[1].rows.value(1), (QStringList {u"1"_s, u"可乐"_s}));
        int kept = 0;
        for (auto it = before.entries.begin(); it != before.entries.end(); ++it) {
            if (!it.key().endsWith(u"workbook.xml"_s) && !it.key().endsWith(u"workbook.xml.rels"_s)
                && it.key() != u"[Content_Types].xml"_s) {
                QCOMPARE(after.entries.value(it.key()), it.value());
                ++kept;
            }
        }
        QVERIFY(kept >= 3);
    }

    void cancelKeepsTheRowsWrittenBefore()
    {
        fill(u"编号|名称"_s, {u"1\t可乐"_s, u"2\t雪碧"_s, u"3\t"_s + QString(40000, u'长'), u"4\t芬达"_s});
        m_prompt->queueAnswer(CPrompt::vbCancel);
        QVERIFY(!m_bus->CopyGridToExcel(m_grid.get(), path(u"cancel.xlsx"_s), u"S"_s));
        QVERIFY(m_prompt->lastText().contains(u"32767"_s));
        const Workbook book = readBack(path(u"cancel.xlsx"_s));
        QVERIFY2(book.error.isEmpty(), qPrintable(book.error));
        QCOMPARE(book.sheets[0].rows,
                 (QList<QStringList> {{u"编号"_s, u"名称"_s}, {u"1"_s, u"可乐"_s}, {u"2"_s, u"雪碧"_s}}));
    }

    void yesRetriesAndNoSkipsTheFailingStep()
    {
        fill(u"编号|名称"_s, {u"1\t可乐"_s, u"3\t"_s + QString(40000, u'长'), u"4\t芬达"_s});
        m_prompt->queueAnswer(CPrompt::vbYes);
        m_prompt->queueAnswer(CPrompt::vbNo);
        QVERIFY(m_bus->CopyGridToExcel(m_grid.get(), path(u"skip.xlsx"_s), u"S"_s));
        QCOMPARE(m_prompt->shown().size(), 2);
        const Workbook book = readBack(path(u"skip.xlsx"_s));
        QCOMPARE(book.sheets[0].rows,
                 (QList<QStringList> {{u"编号"_s, u"名称"_s}, {u"1"_s, u"可乐"_s}, {u"3"_s}, {u"4"_s, u"芬达"_s}}));
    }

    void legacyXlsIsNeverModified()
    {
        QFile legacy(path(u"old.xls"_s));
        QVERIFY(legacy.open(QIODevice::WriteOnly));
        legacy.write(QByteArray::fromHex("D0CF11E0A1B11AE1") + QByteArray(504, '\0'));
        legacy.close();
        const QByteArray before = fileBytes(path(u"old.xls"_s));
        fill(u"编号"_s, {u"1"_s});
        m_prompt->setDefaultAnswer(CPrompt::vbNo);
        QVERIFY(m_bus->CopyGridToExcel(m_grid.get(), path(u"old.xls"_s), u"S"_s) || true);
        QVERIFY(m_prompt->shown().at(0).text.contains(u"97-2003"_s));
        QCOMPARE(fileBytes(path(u"old.xls"_s)), before);
    }

    void newXlsNameGetsAWorkbook()
    {
        fill(u"编号"_s, {u"1"_s});
        QVERIFY(m_bus->CopyGridToExcel(m_grid.get(), path(u"new.xls"_s), u"S"_s));
        // The content is an Office Open XML workbook whatever the name (the reader goes by the name).
        QVERIFY(QFile::copy(path(u"new.xls"_s), path(u"new-copy.xlsx"_s)));
        QCOMPARE(readBack(path(u"new-copy.xlsx"_s)).sheets.value(0).rows.value(1), QStringList {u"1"_s});
    }

    void connectionRefusesWhatTheDriverRefuses_data()
    {
        QTest::addColumn<QString>("sql");
        QTest::addColumn<int>("error");
        QTest::newRow("apostrophe") << u"CREATE TABLE S (a TEXT'b TEXT)"_s << int(ExcelConnection::ErrSyntax);
        QTest::newRow("other type") << u"CREATE TABLE S (a INTEGER)"_s << int(ExcelConnection::ErrSyntax);
        QTest::newRow("not create") << u"DROP TABLE S"_s << int(ExcelConnection::ErrSyntax);
        QTest::newRow("same column") << u"CREATE TABLE S (a TEXT, A TEXT)"_s
                                     << int(ExcelConnection::ErrDuplicateColumn);
        QTest::newRow("bad sheet name") << u"CREATE TABLE a:b (a TEXT)"_s << int(ExcelConnection::ErrBadSheetName);
        QTest::newRow("sheet twice") << u"CREATE TABLE Sheet (a TEXT)"_s << int(ExcelConnection::ErrSheetExists);
    }
    void connectionRefusesWhatTheDriverRefuses()
    {
        QFETCH(QString, sql);
        QFETCH(int, error);
        ExcelConnection cn;
        QVERIFY(cn.Open(CBus::ExcelConnectionString(path(u"refuse.xlsx"_s))));
        QVERIFY(cn.Execute(u"create table sheet (x text)"_s));
        QVERIFY(!cn.Execute(sql));
        QCOMPARE(cn.errorNumber(), error);
        QVERIFY(cn.Close());
        QFile::remove(path(u"refuse.xlsx"_s));
    }

    void setGridColorSetsTheSchemes()
    {
        m_bus->SetGridColor(m_grid.get(), true);
        QCOMPARE(m_grid->BackColor(), 0x80000018u);
        QCOMPARE(m_grid->BackColorFixed(), 0xC0E0FFu);
        QCOMPARE(m_grid->ForeColorFixed(), 0xC00000u);
        QCOMPARE(m_grid->GridColor(), 0x808080u);
        QCOMPARE(m_grid->FixedRows(), 1);
        QCOMPARE(m_grid->FixedCols(), 0);
        QCOMPARE(m_grid->AllowUserResizing(), 1);
        m_bus->SetGridColor(m_grid.get(), false);
        QCOMPARE(m_grid->BackColor(), 0xE0E0E0u);
        QCOMPARE(m_grid->BackColorBkg(), 0xE0E0E0u);
        QCOMPARE(m_grid->GridColorFixed(), 0xFFFFFFu);
        QCOMPARE(m_grid->ForeColorFixed(), 0x800000u);
    }

    void setGridColorReachesTheItemGrid()
    {
        // The management window's grid answers the schemes by the same property names and repaints.
        ItemGrid grid;
        m_bus->SetGridColor(&grid, false);
        QCOMPARE(grid.BackColor(), 0xE0E0E0u);
        QCOMPARE(grid.BackColorBkg(), 0xE0E0E0u);
        QCOMPARE(grid.BackColorFixed(), 0xC0C0C0u);
        QCOMPARE(grid.ForeColorFixed(), 0x800000u);
        QCOMPARE(grid.ForeColor(), 0u);
        QCOMPARE(grid.GridColor(), 0xFFFFFFu);
        QCOMPARE(grid.GridColorFixed(), 0xFFFFFFu);
        QVERIFY(grid.styleSheet().contains(u"background-color: #e0e0e0; color: #000000; gridline-color: #ffffff;"_s));
        QVERIFY(grid.styleSheet().contains(u"background-color: #c0c0c0; color: #000080;"_s));
    }
};

QTEST_MAIN(GridExportTest)
#include "tst_gridexport.moc"
