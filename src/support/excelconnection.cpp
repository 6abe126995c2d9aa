#include "excelconnection.h"

#include "folderwritelock.h"
#include "livefiles.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSaveFile>
#include <QSet>
#include <QTemporaryFile>
#include <QXmlStreamReader>

#include <zip.h>

#include <cstdio>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

constexpr int kMaxRows = 1048576;
constexpr int kMaxCols = 16384;
constexpr int kMaxCellText = 32767;

const char kMainNs[] = "http://schemas.openxmlformats.org/spreadsheetml/2006/main";
const char kRelNs[] = "http://schemas.openxmlformats.org/officeDocument/2006/relationships";
const char kWorksheetType[] = "http://schemas.openxmlformats.org/officeDocument/2006/relationships/worksheet";
const char kWorksheetContent[] = "application/vnd.openxmlformats-officedocument.spreadsheetml.worksheet+xml";

QString columnLetters(int col)
{
    QString letters;
    for (int n = col + 1; n > 0; n = (n - 1) / 26) {
        letters.prepend(QChar(u'A' + (n - 1) % 26));
    }
    return letters;
}

// Appends a text as the XML character data of a cell: & < > escaped, and the characters XML cannot carry written
// as the workbook format's _xHHHH_ escapes (a literal _xHHHH_ is protected by escaping its underscore).
void appendCellXmlText(QByteArray &out, const QString &text)
{
    bool plain = true;
    for (const QChar c : text) {
        const char16_t u = c.unicode();
        if (u < 0x20 || u == u'&' || u == u'<' || u == u'>' || u == u'_' || u >= 0xFFFE) {
            plain = false;
            break;
        }
    }
    if (plain) {
        out += text.toUtf8();
        return;
    }
    static const QRegularExpression literalEscape(u"_(x[0-9A-Fa-f]{4}_)"_s);
    QString value = text;
    if (value.contains(u"_x"_s)) {
        value.replace(literalEscape, u"_x005F_\\1"_s);
    }
    QString escaped;
    escaped.reserve(value.size() + 8);
    for (const QChar c : std::as_const(value)) {
        const char16_t u = c.unicode();
        if (u == u'&') {
            escaped += u"&amp;";
        } else if (u == u'<') {
            escaped += u"&lt;";
        } else if (u == u'>') {
            escaped += u"&gt;";
        } else if ((u < 0x20 && u != u'\t' && u != u'\n' && u != u'\r') || u == 0xFFFE || u == 0xFFFF) {
            escaped += u"_x"_s + QString::number(u, 16).toUpper().rightJustified(4, u'0') + u"_"_s;
        } else if (u == u'\r') {
            escaped += u"&#13;";
        } else {
            escaped += c;
        }
    }
    out += escaped.toUtf8();
}

QByteArray attributeText(const QString &text)
{
    QString out = text;
    out.replace(u'&', u"&amp;"_s).replace(u'<', u"&lt;"_s).replace(u'>', u"&gt;"_s).replace(u'"', u"&quot;"_s);
    return out.toUtf8();
}

struct NewSheet
{
    QString name;
    QStringList columns;
    std::unique_ptr<QTemporaryFile> data;
    int rows = 0;
};

} // namespace

class ExcelConnectionPrivate
{
public:
    bool fail(int number, const QString &description)
    {
        error = number;
        descriptionText = description;
        return false;
    }
    bool succeed()
    {
        error = 0;
        descriptionText.clear();
        return true;
    }

    bool readExisting();
    bool writeWorkbook();
    bool appendRow(NewSheet &sheet, const QStringList &cells);

    bool open = false;
    QString file;
    bool exists = false;
    QStringList existingSheets;
    std::vector<NewSheet> added;
    int error = 0;
    QString descriptionText;

    // Parts of an existing workbook that change when sheets are added, and where they live.
    QString workbookPart;
    QString workbookRelsPart;
    QByteArray workbookXml;
    QByteArray workbookRels;
    QByteArray contentTypes;
    int maxSheetId = 0;
    QSet<QString> relIds;
    QSet<QString> partNames;
    // Reused for every row written.
    QByteArray rowBuffer;
    std::vector<QByteArray> columnNames;
};

namespace {

// The parts read whole (relationships, the workbook's sheet list, content types) are a few kilobytes in any real
// workbook; a size beyond this is a damaged or hostile file, refused before anything is allocated for it.
constexpr zip_uint64_t kMaxWholePart = 32 << 20;

QByteArray readEntry(zip_t *zip, const QString &name, bool *found, bool *tooLarge)
{
    *found = false;
    const QByteArray utf8 = name.toUtf8();
    zip_stat_t st;
    zip_stat_init(&st);
    if (zip_stat(zip, utf8.constData(), 0, &st) != 0) {
        return {};
    }
    if (!(st.valid & ZIP_STAT_SIZE) || st.size > kMaxWholePart) {
        *tooLarge = true;
        return {};
    }
    zip_file_t *f = zip_fopen(zip, utf8.constData(), 0);
    if (!f) {
        return {};
    }
    QByteArray data;
    data.resize(qsizetype(st.size));
    const zip_int64_t n = zip_fread(f, data.data(), st.size);
    zip_fclose(f);
    if (n < 0 || zip_uint64_t(n) != st.size) {
        return {};
    }
    *found = true;
    return data;
}

QString partDir(const QString &part)
{
    const qsizetype slash = part.lastIndexOf(u'/');
    return slash < 0 ? QString() : part.left(slash);
}

// A relationship target resolved against the folder of the part that refers to it.
QString resolveTarget(const QString &baseDir, const QString &target)
{
    if (target.startsWith(u'/')) {
        return target.mid(1);
    }
    return QDir::cleanPath(baseDir.isEmpty() ? target : baseDir + u'/' + target);
}

} // namespace

bool ExcelConnectionPrivate::readExisting()
{
    QFile probe(file);
    if (!probe.open(QIODevice::ReadOnly)) {
        return fail(ExcelConnection::ErrOpenFailed, u"无法打开文件 "_s + file + u": "_s + probe.errorString());
    }
    const QByteArray magic = probe.read(8);
    probe.close();
    if (magic.startsWith("\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1")) {
        return fail(ExcelConnection::ErrLegacyXls,
                    u"文件 "_s + file
                        + u" 是旧的 Excel 97-2003 格式(.xls),本程序不能向它添加表格;为了不损坏它,文件没有被修改。"
                          u"请选择一个新文件名或 .xlsx 格式的工作簿。"_s);
    }
    int zipError = 0;
    zip_t *zip = zip_open(QFile::encodeName(file).constData(), ZIP_RDONLY, &zipError);
    if (!zip) {
        return fail(ExcelConnection::ErrNotWorkbook, u"文件 "_s + file + u" 不是 Excel 工作簿(.xlsx)"_s);
    }
    const zip_int64_t entries = zip_get_num_entries(zip, 0);
    for (zip_int64_t i = 0; i < entries; ++i) {
        if (const char *name = zip_get_name(zip, zip_uint64_t(i), 0)) {
            partNames.insert(QString::fromUtf8(name));
        }
    }
    bool found = false;
    bool tooLarge = false;
    const QByteArray rootRels = readEntry(zip, u"_rels/.rels"_s, &found, &tooLarge);
    workbookPart.clear();
    if (found) {
        QXmlStreamReader xml(rootRels);
        while (!xml.atEnd() && workbookPart.isEmpty()) {
            xml.readNext();
            if (xml.isStartElement() && xml.name() == u"Relationship"
                && xml.attributes().value("Type"_L1).endsWith(u"/officeDocument")) {
                workbookPart = resolveTarget(QString(), xml.attributes().value("Target"_L1).toString());
            }
        }
    }
    if (workbookPart.isEmpty()) {
        zip_discard(zip);
        if (tooLarge) {
            return fail(ExcelConnection::ErrTooLarge, u"工作簿 "_s + file + u" 已损坏:其中的目录部分大得不合常理"_s);
        }
        return fail(ExcelConnection::ErrNotWorkbook, u"文件 "_s + file + u" 不是 Excel 工作簿(.xlsx)"_s);
    }
    const QString dir = partDir(workbookPart);
    workbookRelsPart = (dir.isEmpty() ? QString() : dir + u'/') + u"_rels/"_s
        + workbookPart.mid(workbookPart.lastIndexOf(u'/') + 1) + u".rels"_s;
    bool haveWorkbook = false;
    bool haveRels = false;
    bool haveTypes = false;
    workbookXml = readEntry(zip, workbookPart, &haveWorkbook, &tooLarge);
    workbookRels = readEntry(zip, workbookRelsPart, &haveRels, &tooLarge);
    contentTypes = readEntry(zip, u"[Content_Types].xml"_s, &haveTypes, &tooLarge);
    zip_discard(zip);
    if (tooLarge) {
        return fail(ExcelConnection::ErrTooLarge, u"工作簿 "_s + file + u" 已损坏:其中的目录部分大得不合常理"_s);
    }
    if (!haveWorkbook || !haveRels || !haveTypes) {
        return fail(ExcelConnection::ErrNotWorkbook, u"文件 "_s + file + u" 不是完整的 Excel 工作簿"_s);
    }

    QXmlStreamReader book(workbookXml);
    // The sheet list is rewritten as UTF-8 text; a list that declares another encoding would then read back wrong.
    bool foreignEncoding = false;
    while (!book.atEnd()) {
        book.readNext();
        if (book.isStartDocument() && !book.documentEncoding().isEmpty()
            && book.documentEncoding().compare(u"UTF-8", Qt::CaseInsensitive) != 0) {
            foreignEncoding = true;
        }
        if (book.isStartElement() && book.name() == u"sheet") {
            existingSheets.append(book.attributes().value("name"_L1).toString());
            maxSheetId = qMax(maxSheetId, book.attributes().value("sheetId"_L1).toInt());
        }
    }
    QXmlStreamReader rels(workbookRels);
    while (!rels.atEnd()) {
        rels.readNext();
        if (rels.isStartElement() && rels.name() == u"Relationship") {
            relIds.insert(rels.attributes().value("Id"_L1).toString());
        }
    }
    if (book.hasError() || rels.hasError()) {
        return fail(ExcelConnection::ErrNotWorkbook, u"工作簿 "_s + file + u" 的结构已损坏"_s);
    }
    if (foreignEncoding) {
        return fail(ExcelConnection::ErrNotWorkbook,
                    u"工作簿 "_s + file + u" 的表格目录不是 UTF-8 编码(不是 Excel 保存的文件),不能在其中添加表格"_s);
    }
    return true;
}

bool ExcelConnectionPrivate::appendRow(NewSheet &sheet, const QStringList &cells)
{
    if (sheet.rows >= kMaxRows) {
        return fail(ExcelConnection::ErrTooLarge, u"表格 "_s + sheet.name + u" 已达到最多 1048576 行"_s);
    }
    for (const QString &cell : cells) {
        if (cell.size() > kMaxCellText) {
            return fail(ExcelConnection::ErrTooLarge, u"单元格的文字超过了 32767 个字符"_s);
        }
    }
    const int row = sheet.rows + 1;
    char number[16];
    const int numberLength = std::snprintf(number, sizeof number, "%d", row);
    QByteArray &xml = rowBuffer;
    xml.clear();
    xml += "<row r=\"";
    xml.append(number, numberLength);
    xml += "\">";
    for (qsizetype c = 0; c < cells.size(); ++c) {
        const QString &text = cells.at(c);
        if (text.isEmpty()) {
            continue;
        }
        while (qsizetype(columnNames.size()) <= c) {
            columnNames.push_back(columnLetters(int(columnNames.size())).toLatin1());
        }
        xml += "<c r=\"";
        xml += columnNames[std::size_t(c)];
        xml.append(number, numberLength);
        xml += "\" t=\"inlineStr\"><is><t";
        if (text.front().isSpace() || text.back().isSpace()) {
            xml += " xml:space=\"preserve\"";
        }
        xml += '>';
        appendCellXmlText(xml, text);
        xml += "</t></is></c>";
    }
    xml += "</row>";
    if (sheet.data->write(xml) != xml.size()) {
        return fail(ExcelConnection::ErrWriteFailed, u"写入临时文件失败: "_s + sheet.data->errorString());
    }
    ++sheet.rows;
    return true;
}

namespace {

// libzip writes a workbook as "<file>.XXXXXX" beside it and renames that over the file at the end; a writer that
// was killed leaves the half-written copy behind. Writers hold a shared lock on the folder while they write, so a
// copy found while no one holds it is a leftover.
void removeLeftoverCopies(const QString &file)
{
    const QFileInfo info(file);
    FolderWriteLock folder(info.absolutePath());
    if (!folder.lockExclusiveNow()) {
        return; // someone is writing in this folder now
    }
    const QRegularExpression leftover(u"^"_s + QRegularExpression::escape(info.fileName()) + u"\\.[A-Za-z0-9]{6}$"_s);
    const QStringList names =
        info.absoluteDir().entryList({info.fileName() + u".??????"_s}, QDir::Files | QDir::Hidden);
    for (const QString &name : names) {
        if (!leftover.match(name).hasMatch()) {
            continue;
        }
        // A copy that is a whole workbook may be the user's own ("商品.xlsx.backup"): only a half-written one, which
        // lacks the zip directory written last, is a leftover.
        const QString path = info.absoluteDir().filePath(name);
        if (LiveFiles::isLive(path)) {
            continue;
        }
        QFile candidate(path);
        if (!candidate.open(QIODevice::ReadOnly)) {
            continue;
        }
        const QByteArray head = candidate.read(2);
        candidate.close();
        if (!head.isEmpty() && head != "PK") {
            continue;
        }
        int error = 0;
        if (zip_t *whole = zip_open(QFile::encodeName(path).constData(), ZIP_RDONLY | ZIP_CHECKCONS, &error)) {
            zip_discard(whole);
            continue;
        }
        QFile::remove(path);
    }
}

} // namespace

bool ExcelConnectionPrivate::writeWorkbook()
{
    std::vector<QByteArray> keep; // buffers handed to libzip must live until zip_close
    for (NewSheet &sheet : added) {
        if (!sheet.data->write("</sheetData></worksheet>") || !sheet.data->flush()) {
            return fail(ExcelConnection::ErrWriteFailed, u"写入临时文件失败: "_s + sheet.data->errorString());
        }
    }

    QByteArray sheetEntries;
    QByteArray relEntries;
    QByteArray typeEntries;
    std::vector<QString> sheetParts;
    int nextSheetId = maxSheetId + 1;
    int nextRel = 1;
    int nextPart = 1;
    const QString worksheetDir = (partDir(workbookPart).isEmpty() ? QString() : partDir(workbookPart) + u'/');
    for (const NewSheet &sheet : added) {
        while (relIds.contains(u"rId"_s + QString::number(nextRel))) {
            ++nextRel;
        }
        while (partNames.contains(worksheetDir + u"worksheets/sheet"_s + QString::number(nextPart) + u".xml"_s)) {
            ++nextPart;
        }
        const QString rel = u"rId"_s + QString::number(nextRel++);
        const QString target = u"worksheets/sheet"_s + QString::number(nextPart++) + u".xml"_s;
        relIds.insert(rel);
        partNames.insert(worksheetDir + target);
        sheetParts.push_back(worksheetDir + target);
        sheetEntries += "<sheet name=\"" + attributeText(sheet.name) + "\" sheetId=\""
            + QByteArray::number(nextSheetId++) + "\" r:id=\"" + rel.toLatin1() + "\" xmlns:r=\"" + kRelNs + "\"/>";
        relEntries += "<Relationship Id=\"" + rel.toLatin1() + "\" Type=\"" + kWorksheetType + "\" Target=\""
            + target.toLatin1() + "\"/>";
        typeEntries += "<Override PartName=\"/" + (worksheetDir + target).toUtf8() + "\" ContentType=\""
            + kWorksheetContent + "\"/>";
    }

    removeLeftoverCopies(file);
    FolderWriteLock writing(QFileInfo(file).absolutePath());
    writing.lockShared();
    int zipError = 0;
    const QByteArray path = QFile::encodeName(file);
    zip_t *zip = zip_open(path.constData(), exists ? 0 : (ZIP_CREATE | ZIP_EXCL), &zipError);
    if (!zip) {
        zip_error_t e;
        zip_error_init_with_code(&e, zipError);
        const QString reason = QString::fromLocal8Bit(zip_error_strerror(&e));
        zip_error_fini(&e);
        return fail(ExcelConnection::ErrOpenFailed, u"无法写入文件 "_s + file + u": "_s + reason);
    }
    auto put = [&](const QString &name, const QByteArray &data) {
        keep.push_back(data);
        zip_source_t *source = zip_source_buffer(zip, keep.back().constData(), zip_uint64_t(keep.back().size()), 0);
        if (!source) {
            return false;
        }
        const QByteArray utf8 = name.toUtf8();
        const zip_int64_t index = zip_name_locate(zip, utf8.constData(), 0);
        const bool done = index >= 0 ? zip_file_replace(zip, zip_uint64_t(index), source, 0) == 0
                                     : zip_file_add(zip, utf8.constData(), source, ZIP_FL_ENC_UTF_8) >= 0;
        if (!done) {
            zip_source_free(source);
        }
        return done;
    };
    keep.reserve(8);

    bool ok = true;
    if (exists) {
        // Insert before the closing tags, leaving every other byte of these parts as it was.
        static const QRegularExpression sheetsEnd(u"</([A-Za-z_][\\w.-]*:)?sheets\\s*>"_s);
        static const QRegularExpression sheetsEmpty(u"<(([A-Za-z_][\\w.-]*:)?sheets)(\\s[^>]*)?/>"_s);
        QString book = QString::fromUtf8(workbookXml);
        QRegularExpressionMatch m = sheetsEnd.match(book);
        const QString entries = QString::fromUtf8(sheetEntries);
        if (m.hasMatch()) {
            QString prefixed = entries;
            if (!m.captured(1).isEmpty()) {
                prefixed.replace(u"<sheet "_s, u"<"_s + m.captured(1) + u"sheet "_s);
            }
            book.insert(m.capturedStart(), prefixed);
        } else if ((m = sheetsEmpty.match(book)).hasMatch()) {
            QString prefixed = entries;
            if (!m.captured(2).isEmpty()) {
                prefixed.replace(u"<sheet "_s, u"<"_s + m.captured(2) + u"sheet "_s);
            }
            book.replace(m.capturedStart(), m.capturedLength(),
                         u"<"_s + m.captured(1) + m.captured(3) + u">"_s + prefixed + u"</"_s + m.captured(1) + u">"_s);
        } else {
            ok = false;
        }
        QByteArray rels = workbookRels;
        QByteArray types = contentTypes;
        const qsizetype relsEnd = rels.lastIndexOf("</");
        const qsizetype typesEnd = types.lastIndexOf("</");
        if (!ok || relsEnd < 0 || typesEnd < 0) {
            zip_discard(zip);
            return fail(ExcelConnection::ErrNotWorkbook, u"工作簿 "_s + file + u" 的结构无法识别,没有被修改"_s);
        }
        rels.insert(relsEnd, relEntries);
        types.insert(typesEnd, typeEntries);
        ok = put(workbookPart, book.toUtf8()) && put(workbookRelsPart, rels) && put(u"[Content_Types].xml"_s, types);
    } else {
        const QByteArray head = "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n";
        ok = put(u"[Content_Types].xml"_s,
                 head
                     + "<Types xmlns=\"http://schemas.openxmlformats.org/package/2006/content-types\">"
                       "<Default Extension=\"rels\" "
                       "ContentType=\"application/vnd.openxmlformats-package.relationships+xml\"/>"
                       "<Default Extension=\"xml\" ContentType=\"application/xml\"/>"
                       "<Override PartName=\"/xl/workbook.xml\" "
                       "ContentType=\"application/vnd.openxmlformats-officedocument.spreadsheetml.sheet.main+xml\"/>"
                       "<Override PartName=\"/xl/styles.xml\" "
                       "ContentType=\"application/vnd.openxmlformats-officedocument.spreadsheetml.styles+xml\"/>"
                     + typeEntries + "</Types>")
            && put(u"_rels/.rels"_s,
                   head
                       + "<Relationships xmlns=\"http://schemas.openxmlformats.org/package/2006/relationships\">"
                         "<Relationship Id=\"rId1\" Type=\"http://schemas.openxmlformats.org/officeDocument/2006/"
                         "relationships/officeDocument\" Target=\"xl/workbook.xml\"/></Relationships>")
            && put(u"xl/workbook.xml"_s,
                   head + "<workbook xmlns=\"" + kMainNs + "\" xmlns:r=\"" + kRelNs + "\"><sheets>" + sheetEntries
                       + "</sheets></workbook>")
            && put(u"xl/_rels/workbook.xml.rels"_s,
                   head + "<Relationships xmlns=\"http://schemas.openxmlformats.org/package/2006/relationships\">"
                       + relEntries
                       + "<Relationship Id=\"rIdStyles\" Type=\"http://schemas.openxmlformats.org/officeDocument/"
                         "2006/relationships/styles\" Target=\"styles.xml\"/></Relationships>")
            && put(u"xl/styles.xml"_s,
                   head + "<styleSheet xmlns=\"" + kMainNs
                       + "\"><fonts count=\"1\"><font><sz val=\"11\"/><name val=\"宋体\"/><family val=\"2\"/>"
                         "<charset val=\"134\"/></font></fonts><fills count=\"2\"><fill><patternFill "
                         "patternType=\"none\"/></fill><fill><patternFill patternType=\"gray125\"/></fill></fills>"
                         "<borders count=\"1\"><border><left/><right/><top/><bottom/><diagonal/></border></borders>"
                         "<cellStyleXfs count=\"1\"><xf numFmtId=\"0\" fontId=\"0\" fillId=\"0\" borderId=\"0\"/>"
                         "</cellStyleXfs><cellXfs count=\"1\"><xf numFmtId=\"0\" fontId=\"0\" fillId=\"0\" "
                         "borderId=\"0\" xfId=\"0\"/></cellXfs><cellStyles count=\"1\"><cellStyle name=\"Normal\" "
                         "xfId=\"0\" builtinId=\"0\"/></cellStyles></styleSheet>");
    }
    for (std::size_t i = 0; ok && i < added.size(); ++i) {
        const QByteArray sheetPath = QFile::encodeName(added[i].data->fileName());
        zip_source_t *source = zip_source_file(zip, sheetPath.constData(), 0, -1);
        const zip_int64_t index =
            source ? zip_file_add(zip, sheetParts[i].toUtf8().constData(), source, ZIP_FL_ENC_UTF_8) : -1;
        ok = index >= 0;
        if (!ok && source) {
            zip_source_free(source);
        }
        // zlib's default level, as spreadsheet programs write: libzip's own default (the best compression) costs
        // several times the time for a few per cent of size.
        if (ok) {
            zip_set_file_compression(zip, zip_uint64_t(index), ZIP_CM_DEFLATE, 6);
        }
    }
    if (!ok) {
        const QString reason = QString::fromLocal8Bit(zip_strerror(zip));
        zip_discard(zip);
        return fail(ExcelConnection::ErrWriteFailed, u"无法写入工作簿 "_s + file + u": "_s + reason);
    }
    // libzip writes a new file beside the old one and renames it over: the old workbook survives a failure.
    if (zip_close(zip) != 0) {
        const QString reason = QString::fromLocal8Bit(zip_strerror(zip));
        zip_discard(zip);
        return fail(ExcelConnection::ErrWriteFailed, u"无法写入工作簿 "_s + file + u": "_s + reason);
    }
    if (!exists) {
        // A new workbook of master data is its owner's alone, whatever the host's umask lets through.
        QFile::setPermissions(file, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    }
    return succeed();
}

ExcelConnection::ExcelConnection()
    : d(std::make_unique<ExcelConnectionPrivate>())
{ }

ExcelConnection::~ExcelConnection()
{
    if (d->open) {
        Close();
    }
}

bool ExcelConnection::Open(const QString &connectionString)
{
    if (d->open) {
        Close();
    }
    *d = ExcelConnectionPrivate();
    QString file = connectionString;
    for (const QString &part : connectionString.split(u';')) {
        const qsizetype eq = part.indexOf(u'=');
        if (eq > 0 && part.left(eq).trimmed().compare(u"DBQ"_s, Qt::CaseInsensitive) == 0) {
            file = part.mid(eq + 1).trimmed();
        }
    }
    if (file.trimmed().isEmpty()) {
        return d->fail(ErrOpenFailed, u"连接字符串中没有文件名(DBQ)"_s);
    }
    d->file = QFileInfo(file).absoluteFilePath();
    // The live database is neither read as a workbook nor replaced by one.
    if (const QString refused = LiveFiles::refusal(d->file, u"导出到其中"_s); !refused.isEmpty()) {
        return d->fail(ErrOpenFailed, refused);
    }
    d->exists = QFileInfo::exists(d->file);
    if (d->exists) {
        // The new workbook replaces the file by renaming, which the folder allows even where the file itself is
        // read-only: refuse as writing the file would be refused (also for the superuser, who may write anything).
        const QFileInfo info(d->file);
        const auto writeBits = QFileDevice::WriteOwner | QFileDevice::WriteGroup | QFileDevice::WriteOther;
        if (!info.isWritable() || !(info.permissions() & writeBits)) {
            return d->fail(ErrOpenFailed, u"文件 "_s + d->file + u" 是只读的,不能写入"_s);
        }
    }
    if (d->exists && !d->readExisting()) {
        return false;
    }
    if (!d->exists) {
        d->workbookPart = u"xl/workbook.xml"_s;
        const QFileInfo dir(QFileInfo(d->file).absolutePath());
        if (!dir.isDir() || !dir.isWritable()) {
            return d->fail(ErrOpenFailed, u"不能在文件夹 "_s + dir.filePath() + u" 中创建文件"_s);
        }
    }
    d->open = true;
    return d->succeed();
}

bool ExcelConnection::isOpen() const
{
    return d->open;
}

bool ExcelConnection::holdsWorkbook(const QString &file)
{
    if (LiveFiles::isLive(file)) {
        return false;
    }
    QFile probe(file);
    return probe.open(QIODevice::ReadOnly) && probe.read(4) == QByteArrayLiteral("PK\x03\x04");
}

QString ExcelConnection::fileName() const
{
    return d->file;
}

QStringList ExcelConnection::sheetNames() const
{
    QStringList names = d->existingSheets;
    for (const NewSheet &sheet : d->added) {
        names.append(sheet.name);
    }
    return names;
}

int ExcelConnection::errorNumber() const
{
    return d->error;
}

QString ExcelConnection::errorDescription() const
{
    return d->descriptionText;
}

bool ExcelConnection::Execute(const QString &sql)
{
    if (!d->open) {
        return d->fail(ErrNotOpen, u"连接没有打开"_s);
    }
    // The sheet name stands as it is, blanks and parentheses included ("商品 (2024)"): it runs up to the column
    // list, the last parenthesis of the statement, since column definitions hold none.
    static const QRegularExpression create(u"^\\s*CREATE\\s+TABLE\\s+(.*)$"_s,
                                           QRegularExpression::CaseInsensitiveOption
                                               | QRegularExpression::DotMatchesEverythingOption);
    const QRegularExpressionMatch statement = create.match(sql);
    const QString rest = statement.captured(1).trimmed();
    const qsizetype open = rest.lastIndexOf(u'(');
    if (!statement.hasMatch() || open <= 0 || !rest.endsWith(u')')) {
        return d->fail(ErrSyntax, u"语法错误: "_s + sql);
    }
    const QString name = rest.left(open).trimmed();
    const QString columnList = rest.mid(open + 1, rest.size() - open - 2);
    static const QRegularExpression column(u"^\\s*([^\\s,()'\"\\[\\]`]+)\\s+TEXT\\s*$"_s,
                                           QRegularExpression::CaseInsensitiveOption);
    QStringList columns;
    for (const QString &definition : columnList.split(u',')) {
        const QRegularExpressionMatch c = column.match(definition);
        if (!c.hasMatch()) {
            return d->fail(ErrSyntax, u"语法错误,无法识别的列定义: "_s + definition.trimmed());
        }
        for (const QString &existing : std::as_const(columns)) {
            if (existing.compare(c.captured(1), Qt::CaseInsensitive) == 0) {
                return d->fail(ErrDuplicateColumn, u"列名重复: "_s + existing);
            }
        }
        columns.append(c.captured(1));
    }
    if (columns.size() > kMaxCols) {
        return d->fail(ErrTooLarge, u"列数超过了 16384"_s);
    }
    static const QRegularExpression badName(u"[\\[\\]:*?/\\\\]"_s);
    if (name.size() > 31 || name.contains(badName) || name.startsWith(u'\'') || name.endsWith(u'\'')) {
        return d->fail(ErrBadSheetName,
                       u"表格名称 "_s + name + u" 不能用作工作表名称(最多 31 个字符,不能含有 [ ] : * ? / \\)"_s);
    }
    for (const QString &existing : sheetNames()) {
        if (existing.compare(name, Qt::CaseInsensitive) == 0) {
            return d->fail(ErrSheetExists, u"表格 "_s + name + u" 已经存在"_s);
        }
    }
    NewSheet sheet;
    sheet.name = name;
    sheet.columns = columns;
    sheet.data = std::make_unique<QTemporaryFile>(QDir::tempPath() + u"/quillon-sheet-XXXXXX.xml"_s);
    if (!sheet.data->open()) {
        return d->fail(ErrWriteFailed, u"无法创建临时文件: "_s + sheet.data->errorString());
    }
    const QByteArray head =
        QByteArray("<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n<worksheet xmlns=\"") + kMainNs
        + "\" xmlns:r=\"" + kRelNs + "\"><sheetData>";
    if (sheet.data->write(head) != head.size() || !d->appendRow(sheet, columns)) {
        return d->error ? false : d->fail(ErrWriteFailed, u"写入临时文件失败"_s);
    }
    d->added.push_back(std::move(sheet));
    return d->succeed();
}

bool ExcelConnection::Close()
{
    if (!d->open) {
        return d->fail(ErrNotOpen, u"连接没有打开"_s);
    }
    d->open = false;
    if (d->added.empty()) {
        return d->succeed();
    }
    const bool written = d->writeWorkbook();
    d->added.clear();
    return written;
}

ExcelRecordset::ExcelRecordset() = default;

ExcelRecordset::~ExcelRecordset() = default;

bool ExcelRecordset::fail(int number, const QString &description)
{
    m_error = number;
    m_description = description;
    return false;
}

bool ExcelRecordset::Open(const QString &sql, ExcelConnection &connection)
{
    m_connection = nullptr;
    if (!connection.isOpen()) {
        return fail(ExcelConnection::ErrNotOpen, u"连接没有打开"_s);
    }
    static const QRegularExpression select(u"^\\s*SELECT\\s+\\*\\s+FROM\\s+(\\S.*?)\\s*$"_s,
                                           QRegularExpression::CaseInsensitiveOption);
    const QRegularExpressionMatch m = select.match(sql);
    if (!m.hasMatch()) {
        return fail(ExcelConnection::ErrSyntax, u"语法错误: "_s + sql);
    }
    auto &added = connection.d->added;
    for (std::size_t i = 0; i < added.size(); ++i) {
        if (added[i].name.compare(m.captured(1), Qt::CaseInsensitive) == 0) {
            m_connection = &connection;
            m_sheet = int(i);
            m_fields = added[i].columns;
            m_editing = false;
            m_error = 0;
            m_description.clear();
            return true;
        }
    }
    if (connection.sheetNames().contains(m.captured(1), Qt::CaseInsensitive)) {
        return fail(ExcelConnection::ErrNoSuchSheet,
                    u"只能向本次新建的表格添加数据,表格 "_s + m.captured(1) + u" 是工作簿中原有的"_s);
    }
    return fail(ExcelConnection::ErrNoSuchSheet, u"找不到表格 "_s + m.captured(1));
}

bool ExcelRecordset::AddNew()
{
    if (!m_connection || !m_connection->isOpen()) {
        return fail(ExcelConnection::ErrNotOpen, u"记录集没有打开"_s);
    }
    m_row = QStringList(m_fields.size(), QString());
    m_editing = true;
    return true;
}

bool ExcelRecordset::setField(int index, const QString &value)
{
    if (!m_editing) {
        return fail(ExcelConnection::ErrNoCurrentRow, u"没有正在添加的记录"_s);
    }
    if (index < 0 || index >= m_fields.size()) {
        return fail(ExcelConnection::ErrSyntax, u"没有第 "_s + QString::number(index) + u" 个字段"_s);
    }
    if (value.size() > kMaxCellText) {
        return fail(ExcelConnection::ErrTooLarge, u"单元格的文字超过了 32767 个字符"_s);
    }
    m_row[index] = value;
    return true;
}

bool ExcelRecordset::Update()
{
    if (!m_editing || !m_connection || !m_connection->isOpen()) {
        return fail(ExcelConnection::ErrNoCurrentRow, u"没有正在添加的记录"_s);
    }
    ExcelConnectionPrivate *d = m_connection->d.get();
    if (!d->appendRow(d->added[std::size_t(m_sheet)], m_row)) {
        return fail(d->error, d->descriptionText);
    }
    m_editing = false;
    return true;
}

bool ExcelRecordset::Close()
{
    m_editing = false;
    m_connection = nullptr;
    return true;
}
