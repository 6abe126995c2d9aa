#include "workbookreader.h"
#include "livefiles.h"
#include "xlsprocess.h"

#include <QDate>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QIODevice>
#include <QRegularExpression>
#include <QSet>
#include <QStringDecoder>
#include <QTemporaryFile>
#include <QXmlStreamReader>

#include <zip.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <new>
#include <optional>

using namespace Qt::StringLiterals;

namespace {

constexpr qint64 kRatioFloor = qint64(64) << 20;
// The longest tag or text the part scanner holds at once; a cell's text is at most 32,767 characters.
constexpr qsizetype kMaxToken = qsizetype(4) << 20;

// One part of a zip archive as a sequential device that stops, with an error, where the limits say the part is no
// longer a spreadsheet but a bomb.
class ZipEntryDevice : public QIODevice
{
public:
    ZipEntryDevice(zip_file_t *file, qint64 packedSize, const WorkbookReader::Limits &limits, const QString &part)
        : m_file(file)
        , m_packed(qMax<qint64>(packedSize, 1))
        , m_limits(limits)
        , m_part(part)
    {
        QIODevice::open(QIODevice::ReadOnly | QIODevice::Unbuffered);
    }
    ~ZipEntryDevice() override { zip_fclose(m_file); }
    Q_DISABLE_COPY_MOVE(ZipEntryDevice)

    bool isSequential() const override { return true; }
    QString failure() const { return m_failure; }

protected:
    qint64 readData(char *data, qint64 maxSize) override
    {
        if (!m_failure.isEmpty()) {
            return -1;
        }
        const zip_int64_t n = zip_fread(m_file, data, zip_uint64_t(maxSize));
        if (n < 0) {
            m_failure = u"工作簿的 "_s + m_part + u" 部分已损坏,无法解压"_s;
            return -1;
        }
        m_read += n;
        if (m_read > m_limits.maxPartBytes || (m_read > kRatioFloor && m_read / m_packed > m_limits.maxPackRatio)) {
            m_failure = u"工作簿的 "_s + m_part + u" 部分解压后超过 "_s + QString::number(m_limits.maxPartBytes >> 20)
                + u" MB 或远大于它的压缩大小(可能是恶意构造的文件),已停止读取"_s;
            return -1;
        }
        return n;
    }
    qint64 writeData(const char *, qint64) override { return -1; }

private:
    zip_file_t *m_file;
    qint64 m_packed;
    WorkbookReader::Limits m_limits;
    QString m_part;
    qint64 m_read = 0;
    QString m_failure;
};

// A forward-only reader of the elements and character data of the large parts of a workbook (sheets, shared
// strings), many times faster than a general XML parser: workbooks hold millions of elements of a few kinds.
// Views stay valid until the next call of next(). Document type declarations are refused (no entity expansion).
// An element name against a literal, without measuring the literal at run time.
template<std::size_t N>
bool is(QByteArrayView name, const char (&literal)[N])
{
    return name.size() == qsizetype(N - 1) && std::memcmp(name.data(), literal, N - 1) == 0;
}

// QByteArrayView::mid with its clamping, which this Qt version's view does not offer.
QByteArrayView part(QByteArrayView view, qsizetype pos, qsizetype n = -1)
{
    pos = qBound<qsizetype>(0, pos, view.size());
    const qsizetype available = view.size() - pos;
    return view.sliced(pos, n < 0 || n > available ? available : n);
}

class PartScanner
{
public:
    enum Token { StartElement, EndElement, Characters, End, Error };

    PartScanner(ZipEntryDevice &device, qsizetype maxToken)
        : m_device(device)
        , m_maxToken(maxToken)
    { }

    Token next()
    {
        if (m_pendingEnd) {
            m_pendingEnd = false;
            m_name = m_endName;
            return EndElement;
        }
        for (;;) {
            if (m_pos >= m_buf.size() && !fill()) {
                return m_error.isEmpty() ? End : Error;
            }
            const char *data = m_buf.constData();
            const qsizetype size = m_buf.size();
            if (data[m_pos] != '<') {
                const void *lt = std::memchr(data + m_pos, '<', std::size_t(size - m_pos));
                if (!lt && !m_eof && size - m_pos >= m_maxToken) {
                    // Text longer than a token: handed out in pieces, so that the reader can say which cell is too
                    // long instead of calling the file damaged. A piece ends neither inside a character's bytes nor
                    // inside a reference.
                    qsizetype end = size;
                    const qsizetype amp = QByteArrayView(data + m_pos, size - m_pos).lastIndexOf('&');
                    if (amp >= 0 && size - (m_pos + amp) <= 12) {
                        end = m_pos + amp;
                    }
                    while (end < size && end > m_pos + 1 && (uchar(data[end]) & 0xC0) == 0x80) {
                        --end;
                    }
                    m_text = QByteArrayView(data + m_pos, end - m_pos);
                    m_cdata = false;
                    m_pos = end;
                    return Characters;
                }
                if (!lt && !m_eof) {
                    if (!fill()) {
                        return m_error.isEmpty() ? End : Error;
                    }
                    continue;
                }
                const qsizetype end = lt ? static_cast<const char *>(lt) - data : size;
                m_text = QByteArrayView(data + m_pos, end - m_pos);
                m_cdata = false;
                m_pos = end;
                return Characters;
            }
            // A tag: up to the '>' outside quotes (comments and CDATA up to their own ends).
            const QByteArrayView rest(data + m_pos, size - m_pos);
            qsizetype close = -1;
            const bool special = rest.size() > 1 && rest[1] == '!';
            if (special && rest.startsWith("<!--")) {
                close = rest.indexOf("-->");
                close = close < 0 ? -1 : close + 2;
            } else if (special && rest.startsWith("<![CDATA[")) {
                close = rest.indexOf("]]>");
                close = close < 0 ? -1 : close + 2;
            } else if (!special || rest.size() >= 9 || m_eof) {
                char quote = 0;
                for (qsizetype i = 1; i < rest.size(); ++i) {
                    const char c = rest[i];
                    if (quote) {
                        quote = c == quote ? 0 : quote;
                    } else if (c == '"' || c == '\'') {
                        quote = c;
                    } else if (c == '>') {
                        close = i;
                        break;
                    }
                }
            }
            if (close < 0) {
                if (m_eof) {
                    m_error = u"XML 在标记中间结束"_s;
                    return Error;
                }
                if (!fill()) {
                    return Error;
                }
                continue;
            }
            const QByteArrayView tag = part(rest, 1, close - 1);
            m_pos += close + 1;
            if (tag.startsWith("![CDATA[")) {
                m_text = part(tag, 8, tag.size() - 10);
                m_cdata = true;
                return Characters;
            }
            if (tag.startsWith('?') || tag.startsWith("!--")) {
                continue;
            }
            if (tag.startsWith('!')) {
                m_error = u"不接受文档类型声明"_s;
                return Error;
            }
            if (tag.startsWith('/')) {
                m_name = localName(part(tag, 1).trimmed());
                return EndElement;
            }
            const bool selfClosing = tag.endsWith('/');
            const QByteArrayView body = selfClosing ? tag.chopped(1) : tag;
            qsizetype n = 0;
            while (n < body.size() && !isSpace(body[n])) {
                ++n;
            }
            m_name = localName(part(body, 0, n));
            m_attributes = part(body, n);
            if (selfClosing) {
                m_endName = m_name.toByteArray();
                m_pendingEnd = true;
            }
            return StartElement;
        }
    }

    QByteArrayView name() const { return m_name; }
    QByteArrayView text() const { return m_text; }
    bool isCData() const { return m_cdata; }
    QString errorString() const { return m_error; }

    /// The raw value of an attribute of the current start element (by local name), empty when it has none.
    QByteArrayView attribute(QByteArrayView wanted) const
    {
        const QByteArrayView a = m_attributes;
        qsizetype i = 0;
        while (i < a.size()) {
            while (i < a.size() && isSpace(a[i])) {
                ++i;
            }
            const qsizetype nameStart = i;
            while (i < a.size() && a[i] != '=' && !isSpace(a[i])) {
                ++i;
            }
            const QByteArrayView name = localName(part(a, nameStart, i - nameStart));
            while (i < a.size() && (isSpace(a[i]) || a[i] == '=')) {
                ++i;
            }
            if (i >= a.size() || (a[i] != '"' && a[i] != '\'')) {
                return {};
            }
            const char quote = a[i++];
            const qsizetype valueStart = i;
            while (i < a.size() && a[i] != quote) {
                ++i;
            }
            if (name == wanted) {
                return part(a, valueStart, i - valueStart);
            }
            ++i;
        }
        return {};
    }

    /// The raw values of up to three attributes in one walk over the start element's attributes.
    void attributes(std::initializer_list<std::pair<QByteArrayView, QByteArrayView *>> wanted) const
    {
        for (const auto &[name, out] : wanted) {
            *out = {};
        }
        const QByteArrayView a = m_attributes;
        qsizetype i = 0;
        while (i < a.size()) {
            while (i < a.size() && isSpace(a[i])) {
                ++i;
            }
            const qsizetype nameStart = i;
            while (i < a.size() && a[i] != '=' && !isSpace(a[i])) {
                ++i;
            }
            const QByteArrayView name = localName(part(a, nameStart, i - nameStart));
            while (i < a.size() && (isSpace(a[i]) || a[i] == '=')) {
                ++i;
            }
            if (i >= a.size() || (a[i] != '"' && a[i] != '\'')) {
                return;
            }
            const char quote = a[i++];
            const qsizetype valueStart = i;
            while (i < a.size() && a[i] != quote) {
                ++i;
            }
            for (const auto &[wantedName, out] : wanted) {
                if (name == wantedName) {
                    *out = part(a, valueStart, i - valueStart);
                }
            }
            ++i;
        }
    }

    /// Character data with its entity and character references resolved.
    static QString decode(QByteArrayView raw, bool cdata = false)
    {
        if (cdata || !raw.contains('&')) {
            return QString::fromUtf8(raw);
        }
        QByteArray out;
        out.reserve(raw.size());
        for (qsizetype i = 0; i < raw.size(); ++i) {
            if (raw[i] != '&') {
                out += raw[i];
                continue;
            }
            const qsizetype semi = raw.indexOf(';', i);
            if (semi < 0 || semi - i > 10) {
                out += raw[i];
                continue;
            }
            const QByteArrayView entity = part(raw, i + 1, semi - i - 1);
            if (entity == "lt") {
                out += '<';
            } else if (entity == "gt") {
                out += '>';
            } else if (entity == "amp") {
                out += '&';
            } else if (entity == "quot") {
                out += '"';
            } else if (entity == "apos") {
                out += '\'';
            } else if (entity.startsWith('#')) {
                bool ok = false;
                const uint code =
                    entity.startsWith("#x") ? part(entity, 2).toUInt(&ok, 16) : part(entity, 1).toUInt(&ok);
                if (!ok || code > 0x10FFFF) {
                    out += part(raw, i, semi - i + 1);
                } else {
                    const char32_t c = char32_t(code);
                    out += QString::fromUcs4(&c, 1).toUtf8();
                }
            } else {
                out += part(raw, i, semi - i + 1);
            }
            i = semi;
        }
        return QString::fromUtf8(out);
    }

private:
    static bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }
    static QByteArrayView localName(QByteArrayView name)
    {
        const qsizetype colon = name.indexOf(':');
        return colon < 0 ? name : part(name, colon + 1);
    }

    bool fill()
    {
        if (m_eof) {
            return false;
        }
        if (m_pos > 0) {
            m_buf.remove(0, m_pos);
            m_pos = 0;
        }
        if (m_buf.size() > m_maxToken) {
            m_error = u"XML 中有超过 "_s + QString::number(m_maxToken >> 20) + u" MB 的单个标记或文字"_s;
            return false;
        }
        constexpr qsizetype kChunk = 1 << 18;
        const qsizetype old = m_buf.size();
        m_buf.resize(old + kChunk);
        const qint64 n = m_device.read(m_buf.data() + old, kChunk);
        if (n < 0) {
            m_buf.resize(old);
            m_error = m_device.failure().isEmpty() ? u"无法读取工作簿"_s : m_device.failure();
            return false;
        }
        m_buf.resize(old + n);
        if (n == 0) {
            m_eof = true;
            return m_pos < m_buf.size();
        }
        return true;
    }

    ZipEntryDevice &m_device;
    qsizetype m_maxToken;
    QByteArray m_buf;
    qsizetype m_pos = 0;
    bool m_eof = false;
    QByteArrayView m_name;
    QByteArrayView m_attributes;
    QByteArrayView m_text;
    bool m_cdata = false;
    bool m_pendingEnd = false;
    QByteArray m_endName;
    QString m_error;
};

QString resolveTarget(const QString &baseDir, const QString &target)
{
    if (target.startsWith(u'/')) {
        return target.mid(1);
    }
    return QDir::cleanPath(baseDir.isEmpty() ? target : baseDir + u'/' + target);
}

QString partDir(const QString &part)
{
    const qsizetype slash = part.lastIndexOf(u'/');
    return slash < 0 ? QString() : part.left(slash);
}

QString relsOf(const QString &part)
{
    const QString dir = partDir(part);
    return (dir.isEmpty() ? QString() : dir + u'/') + u"_rels/"_s + part.mid(part.lastIndexOf(u'/') + 1) + u".rels"_s;
}

// The workbook format writes characters XML cannot carry as _xHHHH_ (and a literal "_x" as "_x005F_x").
QString decodeEscapes(const QString &text)
{
    if (!text.contains(u"_x"_s)) {
        return text;
    }
    QString out;
    out.reserve(text.size());
    for (qsizetype i = 0; i < text.size(); ++i) {
        if (text[i] == u'_' && i + 6 < text.size() && text[i + 1] == u'x' && text[i + 6] == u'_') {
            bool ok = false;
            const ushort code = text.mid(i + 2, 4).toUShort(&ok, 16);
            if (ok) {
                out += QChar(code);
                i += 6;
                continue;
            }
        }
        out += text[i];
    }
    return out;
}

bool isPlainDecimal(QStringView text)
{
    qsizetype i = text.startsWith(u'-') ? 1 : 0;
    int digits = 0;
    bool point = false;
    for (; i < text.size(); ++i) {
        const char16_t c = text[i].unicode();
        if (c >= u'0' && c <= u'9') {
            ++digits;
        } else if (c == u'.' && !point) {
            point = true;
        } else {
            return false;
        }
    }
    return digits > 0 && digits <= 15;
}

// A stored number as a clerk reads it: the shortest decimal that gives the same double, never in exponent form.
QString numberText(QStringView stored)
{
    if (isPlainDecimal(stored)) {
        QString text = stored.toString();
        if (text.contains(u'.')) {
            while (text.endsWith(u'0')) {
                text.chop(1);
            }
            if (text.endsWith(u'.')) {
                text.chop(1);
            }
        }
        return text == u"-0"_s ? u"0"_s : text;
    }
    bool ok = false;
    const double value = stored.toDouble(&ok);
    if (!ok || !std::isfinite(value)) {
        return stored.toString();
    }
    return QString::number(value, 'f', QLocale::FloatingPointShortest);
}

QString serialDateText(double serial, bool date1904)
{
    if (!std::isfinite(serial) || serial < 0 || serial > 2958466) {
        return QString::number(serial, 'f', QLocale::FloatingPointShortest);
    }
    double whole = std::floor(serial);
    QDate date;
    if (date1904) {
        date = QDate(1904, 1, 1).addDays(qint64(whole));
    } else {
        // Serial 60 is the 29 February 1900 the format counts although it never was.
        date = whole < 61 ? QDate(1899, 12, 31).addDays(qint64(whole)) : QDate(1899, 12, 30).addDays(qint64(whole));
    }
    const qint64 seconds = std::llround((serial - whole) * 86400.0);
    if (seconds == 0) {
        return date.toString(u"yyyy-MM-dd"_s);
    }
    if (seconds >= 86400) {
        return date.addDays(1).toString(u"yyyy-MM-dd"_s);
    }
    return date.toString(u"yyyy-MM-dd"_s) + u' ' + QTime(0, 0).addSecs(int(seconds)).toString(u"HH:mm:ss"_s);
}

bool isDateFormatId(int id)
{
    return (id >= 14 && id <= 22) || (id >= 27 && id <= 36) || (id >= 45 && id <= 47) || (id >= 50 && id <= 58);
}

bool isDateFormatCode(const QString &code)
{
    bool quoted = false;
    int bracket = 0;
    for (qsizetype i = 0; i < code.size(); ++i) {
        const QChar c = code[i];
        if (c == u'"') {
            quoted = !quoted;
        } else if (quoted) {
            continue;
        } else if (c == u'\\') {
            ++i;
        } else if (c == u'[') {
            ++bracket;
        } else if (c == u']') {
            bracket = qMax(0, bracket - 1);
        } else if (bracket == 0) {
            const char16_t l = c.toLower().unicode();
            if (l == u'y' || l == u'd' || l == u'm' || l == u'h' || l == u's') {
                return true;
            }
        }
    }
    return false;
}

char16_t unit(QChar c)
{
    return c.unicode();
}
char16_t unit(char c)
{
    return char16_t(uchar(c));
}

// "AB12" → column 27; -1 when the reference has no letters.
template<typename View>
int referenceColumn(View ref)
{
    int column = 0;
    qsizetype i = 0;
    for (; i < ref.size(); ++i) {
        const char16_t c = unit(ref[i]);
        if (c >= u'A' && c <= u'Z') {
            column = column * 26 + (c - u'A' + 1);
        } else if (c >= u'a' && c <= u'z') {
            column = column * 26 + (c - u'a' + 1);
        } else {
            break;
        }
        if (column > 1 << 20) {
            return 1 << 20;
        }
    }
    return i == 0 ? -1 : column - 1;
}

int referenceRow(QStringView ref)
{
    qsizetype i = 0;
    while (i < ref.size() && ref[i].isLetter()) {
        ++i;
    }
    bool ok = false;
    const qint64 row = ref.mid(i).toLongLong(&ok);
    return ok && row > 0 && row < (1 << 30) ? int(row) : -1;
}

struct SheetEntry
{
    QString name;
    QString part;
};

} // namespace

class WorkbookReaderPrivate
{
public:
    ~WorkbookReaderPrivate() { closeAll(); }

    bool fail(const QString &message)
    {
        error = message;
        return false;
    }
    void closeAll()
    {
        if (zip) {
            zip_discard(zip);
            zip = nullptr;
        }
        xlsCopy.reset();
    }

    bool openXlsx();
    bool openXls();
    bool readXlsxSheet(const SheetEntry &sheet, const WorkbookReader::RowHandler &handler);
    bool readXlsSheet(int index, const WorkbookReader::RowHandler &handler);
    bool readCsv(const WorkbookReader::RowHandler &handler);
    bool detectCsvEncoding();
    std::unique_ptr<ZipEntryDevice> openPart(const QString &part, bool *missing = nullptr);
    bool readSmallPart(const QString &part, QByteArray *out);
    bool loadSharedStrings();
    bool loadStyles();
    bool checkCell(int rowNumber, int column, const QString &text);

    QString file;
    WorkbookReader::Limits limits;
    WorkbookReader::Format format = WorkbookReader::Format::Unknown;
    QString error;
    std::vector<SheetEntry> sheets;
    QList<WorkbookReader::Range> merged;

    zip_t *zip = nullptr;
    struct CsvEncoding
    {
        const char *name = "UTF-8"; // for QStringDecoder
        QString shown;
        int bom = 0; // its length in bytes
        char16_t separator = u',';
    };
    std::optional<CsvEncoding> csvEncoding;
    // The .xls FreeXL reads: the file itself, or a private copy with the workbook stream's name spelt as it expects.
    QString xlsPath;
    std::unique_ptr<QTemporaryFile> xlsCopy;
    std::vector<XlsProcess::FormulaCells> xlsFormulas;
    QString sharedStringsPart;
    QString stylesPart;
    bool date1904 = false;
    bool sharedLoaded = false;
    // The shared strings one after another, and where each ends: a QString apiece would cost several times the
    // text itself in a workbook of many short strings.
    QString sharedText;
    std::vector<quint32> sharedEnds;
    QString sharedString(std::size_t index) const
    {
        const quint32 begin = index == 0 ? 0 : sharedEnds[index - 1];
        return sharedText.mid(qsizetype(begin), qsizetype(sharedEnds[index] - begin));
    }
    std::vector<bool> dateStyles;
};

std::unique_ptr<ZipEntryDevice> WorkbookReaderPrivate::openPart(const QString &part, bool *missing)
{
    const QByteArray name = part.toUtf8();
    zip_stat_t st;
    zip_stat_init(&st);
    if (missing) {
        *missing = false;
    }
    if (zip_stat(zip, name.constData(), 0, &st) != 0) {
        if (missing) {
            *missing = true;
        }
        fail(u"工作簿中缺少 "_s + part + u" 部分"_s);
        return {};
    }
    const qint64 size = (st.valid & ZIP_STAT_SIZE) ? qint64(st.size) : 0;
    const qint64 packed = (st.valid & ZIP_STAT_COMP_SIZE) ? qint64(st.comp_size) : 0;
    // The sizes the archive states are checked first; the device counts what really comes out.
    if (size > limits.maxPartBytes || (size > kRatioFloor && size / qMax<qint64>(packed, 1) > limits.maxPackRatio)) {
        fail(u"工作簿的 "_s + part + u" 部分解压后有 "_s + QString::number(size >> 20)
             + u" MB,超过了限制或远大于它的压缩大小(可能是恶意构造的文件),没有读取"_s);
        return {};
    }
    zip_file_t *f = zip_fopen(zip, name.constData(), 0);
    if (!f) {
        fail(u"无法读取工作簿的 "_s + part + u" 部分(已加密或已损坏)"_s);
        return {};
    }
    return std::make_unique<ZipEntryDevice>(f, packed, limits, part);
}

bool WorkbookReaderPrivate::readSmallPart(const QString &part, QByteArray *out)
{
    auto device = openPart(part);
    if (!device) {
        return false;
    }
    // Workbook descriptions and relationship lists are small; a large one is not a workbook's.
    *out = device->read(16 << 20);
    if (!device->failure().isEmpty()) {
        return fail(device->failure());
    }
    return true;
}

bool WorkbookReaderPrivate::openXlsx()
{
    int zipError = 0;
    zip = zip_open(QFile::encodeName(file).constData(), ZIP_RDONLY, &zipError);
    if (!zip) {
        return fail(u"文件 "_s + file + u" 不是 Excel 工作簿(无法作为 .xlsx 打开)"_s);
    }
    QByteArray rootRels;
    if (!readSmallPart(u"_rels/.rels"_s, &rootRels)) {
        return fail(u"文件 "_s + file + u" 不是 Excel 工作簿: "_s + error);
    }
    QString workbookPart;
    QXmlStreamReader root(rootRels);
    while (!root.atEnd() && workbookPart.isEmpty()) {
        root.readNext();
        if (root.isStartElement() && root.name() == u"Relationship"
            && root.attributes().value("Type"_L1).endsWith(u"/officeDocument")) {
            workbookPart = resolveTarget(QString(), root.attributes().value("Target"_L1).toString());
        }
    }
    if (workbookPart.isEmpty()) {
        return fail(u"文件 "_s + file + u" 不是 Excel 工作簿(没有工作簿部分)"_s);
    }
    QByteArray workbookXml;
    QByteArray workbookRels;
    if (!readSmallPart(workbookPart, &workbookXml) || !readSmallPart(relsOf(workbookPart), &workbookRels)) {
        return false;
    }
    const QString dir = partDir(workbookPart);
    QHash<QString, QString> targets;
    QXmlStreamReader rels(workbookRels);
    while (!rels.atEnd()) {
        rels.readNext();
        if (rels.isStartElement() && rels.name() == u"Relationship") {
            const auto attributes = rels.attributes();
            const QString target = resolveTarget(dir, attributes.value("Target"_L1).toString());
            const QStringView type = attributes.value("Type"_L1);
            targets.insert(attributes.value("Id"_L1).toString(), target);
            if (type.endsWith(u"/sharedStrings")) {
                sharedStringsPart = target;
            } else if (type.endsWith(u"/styles")) {
                stylesPart = target;
            }
        }
    }
    QXmlStreamReader book(workbookXml);
    while (!book.atEnd()) {
        book.readNext();
        if (!book.isStartElement()) {
            continue;
        }
        if (book.name() == u"workbookPr") {
            const QStringView flag = book.attributes().value("date1904"_L1);
            date1904 = flag == u"1" || flag == u"true";
        } else if (book.name() == u"sheet") {
            const auto attributes = book.attributes();
            QString id;
            for (const auto &attribute : attributes) {
                if (attribute.name() == u"id") {
                    id = attribute.value().toString();
                }
            }
            sheets.push_back({attributes.value("name"_L1).toString(), targets.value(id)});
        }
    }
    if (book.hasError() || rels.hasError()) {
        return fail(u"工作簿 "_s + file + u" 的结构已损坏: "_s + (book.hasError() ? book : rels).errorString());
    }
    if (sheets.empty()) {
        return fail(u"工作簿 "_s + file + u" 中没有表格"_s);
    }
    return true;
}

bool WorkbookReaderPrivate::loadSharedStrings()
{
    if (sharedLoaded) {
        return true;
    }
    sharedLoaded = true;
    if (sharedStringsPart.isEmpty()) {
        return true;
    }
    bool missing = false;
    auto device = openPart(sharedStringsPart, &missing);
    if (!device) {
        return missing ? (error.clear(), true) : false;
    }
    PartScanner xml(*device, kMaxToken);
    QString current;
    int phonetic = 0;
    bool inItem = false;
    bool inText = false;
    for (;;) {
        const PartScanner::Token token = xml.next();
        if (token == PartScanner::End) {
            break;
        }
        if (token == PartScanner::Error) {
            return fail(u"工作簿的共享文字已损坏: "_s + xml.errorString());
        }
        if (token == PartScanner::StartElement) {
            if (is(xml.name(), "si")) {
                inItem = true;
                current.clear();
            } else if (is(xml.name(), "rPh")) {
                ++phonetic;
            } else if (is(xml.name(), "t")) {
                inText = inItem && phonetic == 0;
            }
        } else if (token == PartScanner::EndElement) {
            if (is(xml.name(), "si")) {
                inItem = false;
                sharedText += decodeEscapes(current);
                sharedEnds.push_back(quint32(sharedText.size()));
                // What is allocated counts, room to grow included.
                if (qint64(sharedText.capacity()) * 2 + qint64(sharedEnds.capacity()) * 4 > limits.maxSharedStringBytes
                    || sharedText.size() > std::numeric_limits<quint32>::max()) {
                    sharedText.clear();
                    sharedText.squeeze();
                    sharedEnds = {};
                    return fail(u"工作簿的共享文字超过 "_s + QString::number(limits.maxSharedStringBytes >> 20)
                                + u" MB,远多于一张表格能用到的(文件已损坏或是恶意构造的),没有读取"_s);
                }
            } else if (is(xml.name(), "rPh")) {
                --phonetic;
            } else if (is(xml.name(), "t")) {
                inText = false;
            }
        } else if (inText) {
            current += PartScanner::decode(xml.text(), xml.isCData());
            if (current.size() > limits.maxCellChars) {
                return fail(u"工作簿中有超过 "_s + QString::number(limits.maxCellChars) + u" 个字符的文字"_s);
            }
        }
    }
    return true;
}

bool WorkbookReaderPrivate::loadStyles()
{
    if (stylesPart.isEmpty() || !dateStyles.empty()) {
        return true;
    }
    QByteArray styles;
    if (!readSmallPart(stylesPart, &styles)) {
        error.clear();
        return true; // a workbook without readable styles has no dates, only numbers
    }
    QHash<int, bool> customDate;
    QXmlStreamReader xml(styles);
    bool inCellXfs = false;
    while (!xml.atEnd()) {
        xml.readNext();
        if (xml.isStartElement()) {
            if (xml.name() == u"numFmt") {
                customDate.insert(xml.attributes().value("numFmtId"_L1).toInt(),
                                  isDateFormatCode(xml.attributes().value("formatCode"_L1).toString()));
            } else if (xml.name() == u"cellXfs") {
                inCellXfs = true;
            } else if (xml.name() == u"xf" && inCellXfs) {
                const int id = xml.attributes().value("numFmtId"_L1).toInt();
                dateStyles.push_back(customDate.contains(id) ? customDate.value(id) : isDateFormatId(id));
            }
        } else if (xml.isEndElement() && xml.name() == u"cellXfs") {
            inCellXfs = false;
        }
    }
    return true;
}

bool WorkbookReaderPrivate::checkCell(int rowNumber, int column, const QString &text)
{
    if (column >= limits.maxColumns) {
        return fail(u"第 "_s + QString::number(rowNumber) + u" 行超过了 "_s + QString::number(limits.maxColumns)
                    + u" 列"_s);
    }
    if (text.size() > limits.maxCellChars) {
        return fail(u"第 "_s + QString::number(rowNumber) + u" 行 "_s + WorkbookReader::columnName(column)
                    + u" 列的文字超过 "_s + QString::number(limits.maxCellChars) + u" 个字符"_s);
    }
    return true;
}

bool WorkbookReaderPrivate::readXlsxSheet(const SheetEntry &sheet, const WorkbookReader::RowHandler &handler)
{
    if (sheet.part.isEmpty()) {
        return fail(u"表格 ["_s + sheet.name + u"] 在工作簿中找不到"_s);
    }
    if (!loadSharedStrings() || !loadStyles()) {
        return false;
    }
    auto device = openPart(sheet.part);
    if (!device) {
        return false;
    }
    PartScanner xml(*device, kMaxToken);
    WorkbookReader::Row row;
    int rowNumber = 0;
    int nextColumn = 0;
    bool inRow = false;
    bool inCell = false;
    enum class Capture { None, Value, Text } capture = Capture::None;
    int phonetic = 0;
    // The cell being read.
    int column = 0;
    enum class CellType { Number, Shared, Inline, Text, Boolean } type = CellType::Number;
    int style = 0;
    bool formula = false;
    QString value;
    QString inlineText;
    for (;;) {
        const PartScanner::Token token = xml.next();
        if (token == PartScanner::End) {
            break;
        }
        if (token == PartScanner::Error) {
            return fail(u"表格 ["_s + sheet.name + u"] 已损坏: "_s + xml.errorString());
        }
        if (token == PartScanner::Characters) {
            if (capture == Capture::Value) {
                value += PartScanner::decode(xml.text(), xml.isCData());
            } else if (capture == Capture::Text && phonetic == 0) {
                inlineText += PartScanner::decode(xml.text(), xml.isCData());
            }
            if (value.size() > limits.maxCellChars || inlineText.size() > limits.maxCellChars) {
                return checkCell(rowNumber, column, value.size() > inlineText.size() ? value : inlineText);
            }
            continue;
        }
        const QByteArrayView name = xml.name();
        if (token == PartScanner::StartElement) {
            if (is(name, "row")) {
                const QByteArrayView r = xml.attribute("r");
                int number = rowNumber + 1;
                if (!r.isEmpty()) {
                    bool ok = false;
                    const qint64 given = r.toLongLong(&ok);
                    number = ok && given > rowNumber && given < (1 << 30) ? int(given) : -1;
                }
                if (number < 1) {
                    return fail(u"表格 ["_s + sheet.name + u"] 的行号 "_s + QString::fromUtf8(r) + u" 无效"_s);
                }
                if (number > limits.maxRows) {
                    return fail(u"表格 ["_s + sheet.name + u"] 超过了 "_s + QString::number(limits.maxRows) + u" 行"_s);
                }
                rowNumber = number;
                nextColumn = 0;
                row.clear();
                inRow = true;
            } else if (is(name, "c") && inRow) {
                QByteArrayView ref;
                QByteArrayView t;
                QByteArrayView styleIndex;
                xml.attributes({{"r", &ref}, {"t", &t}, {"s", &styleIndex}});
                column = ref.isEmpty() ? nextColumn : referenceColumn(ref);
                if (column < 0) {
                    column = nextColumn;
                }
                nextColumn = column + 1;
                type = t.isEmpty()                             ? CellType::Number
                    : is(t, "s")                               ? CellType::Shared
                    : is(t, "inlineStr")                       ? CellType::Inline
                    : is(t, "b")                               ? CellType::Boolean
                    : is(t, "str") || is(t, "e") || is(t, "d") ? CellType::Text
                                                               : CellType::Number;
                style = styleIndex.isEmpty() ? 0 : styleIndex.toInt();
                formula = false;
                value.clear();
                inlineText.clear();
                phonetic = 0;
                inCell = true;
            } else if (inCell && is(name, "v")) {
                capture = Capture::Value;
            } else if (inCell && is(name, "f")) {
                formula = true;
            } else if (inCell && is(name, "rPh")) {
                ++phonetic;
            } else if (inCell && is(name, "t")) {
                capture = Capture::Text;
            } else if (is(name, "mergeCell")) {
                const QString ref = QString::fromLatin1(xml.attribute("ref"));
                const qsizetype colon = ref.indexOf(u':');
                const QStringView first = colon < 0 ? QStringView(ref) : QStringView(ref).left(colon);
                const QStringView last = colon < 0 ? QStringView(ref) : QStringView(ref).mid(colon + 1);
                WorkbookReader::Range range {referenceRow(first), referenceRow(last), referenceColumn(first),
                                             referenceColumn(last)};
                if (range.firstRow > 0 && range.lastRow >= range.firstRow && range.firstColumn >= 0
                    && range.lastColumn >= range.firstColumn) {
                    merged.append(range);
                }
            }
            continue;
        }
        // End of an element.
        if (is(name, "v") || is(name, "t")) {
            capture = Capture::None;
        } else if (is(name, "rPh")) {
            --phonetic;
        } else if (is(name, "c") && inCell) {
            inCell = false;
            QString text;
            if (type == CellType::Shared) {
                bool ok = false;
                const qint64 index = value.toLongLong(&ok);
                if (!ok || index < 0 || index >= qint64(sharedEnds.size())) {
                    return fail(u"表格 ["_s + sheet.name + u"] 的单元格 "_s + WorkbookReader::columnName(column)
                                + QString::number(rowNumber) + u" 引用了不存在的共享文字"_s);
                }
                text = sharedString(std::size_t(index));
            } else if (type == CellType::Inline) {
                text = decodeEscapes(inlineText);
            } else if (type == CellType::Text) {
                text = decodeEscapes(value);
            } else if (type == CellType::Boolean) {
                text = value == u"1"_s || value == u"true"_s ? u"1"_s : u"0"_s;
            } else if (!value.isEmpty()) {
                const bool isDate = style >= 0 && std::size_t(style) < dateStyles.size() && dateStyles[style];
                text = isDate ? serialDateText(value.toDouble(), date1904) : numberText(value);
            }
            if (!checkCell(rowNumber, column, text)) {
                return false;
            }
            if (!text.isEmpty() || formula) {
                row.push_back({column, std::move(text), formula});
            }
        } else if (is(name, "row") && inRow) {
            inRow = false;
            if (!row.empty()) {
                std::sort(row.begin(), row.end(), [](const auto &a, const auto &b) { return a.column < b.column; });
                // Two cells with one reference: no spreadsheet program writes that, and either value would be a guess.
                const auto twice = std::adjacent_find(
                    row.begin(), row.end(), [](const auto &a, const auto &b) { return a.column == b.column; });
                if (twice != row.end()) {
                    return fail(u"表格 ["_s + sheet.name + u"] 的单元格 "_s + WorkbookReader::columnName(twice->column)
                                + QString::number(rowNumber) + u" 出现了两次"_s);
                }
                if (!handler(rowNumber, row)) {
                    return true;
                }
            }
        }
    }
    return true;
}

bool WorkbookReaderPrivate::openXls()
{
    // FreeXL reads the whole file into memory; the format's 65,536 rows of 256 columns fit well within this.
    constexpr qint64 kMaxXlsBytes = qint64(256) << 20;
    if (QFileInfo(file).size() > qMin(limits.maxPartBytes, kMaxXlsBytes)) {
        return fail(u"文件 "_s + file + u" 太大,不是能读取的 Excel 97-2003 工作簿"_s);
    }
    QFile in(file);
    if (!in.open(QIODevice::ReadOnly)) {
        return fail(u"无法打开文件 "_s + file + u": "_s + in.errorString());
    }
    const QByteArray bytes = in.readAll();
    in.close();
    const XlsProcess::Layout layout = XlsProcess::inspect(bytes);
    if (layout.encryptedPackage || layout.encryptedWorkbook) {
        return fail(XlsProcess::passwordProtected(file));
    }
    xlsPath = file;
    // FreeXL finds the workbook stream only by its usual spelling (other programs write "WORKBOOK" or "book") and
    // gives up on charts; it reads a private copy without either.
    bool charts = false;
    const QByteArray plain = XlsProcess::withPlainNames(bytes, layout);
    xlsFormulas = XlsProcess::formulaValues(plain);
    const QByteArray readable = XlsProcess::withoutCharts(plain, &charts);
    if (charts || !layout.oddlyNamedWorkbook.isEmpty()) {
        xlsCopy = std::make_unique<QTemporaryFile>();
        if (!xlsCopy->open() || xlsCopy->write(readable) != readable.size() || !xlsCopy->flush()) {
            return fail(u"无法读取 "_s + file + u": "_s + xlsCopy->errorString());
        }
        xlsPath = xlsCopy->fileName();
    }
    XlsProcess reader(xlsPath, file);
    QStringList names;
    if (!reader.sheetNames(&names)) {
        if (layout.excel95) {
            return fail(u"文件 "_s + file
                        + u" 是 Excel 5.0/95 工作簿,无法读取;请在 Excel 或 LibreOffice 中把它另存为 .xlsx 再导入"_s);
        }
        return fail(reader.errorString());
    }
    for (const QString &name : std::as_const(names)) {
        sheets.push_back({name, QString::number(sheets.size())});
    }
    return true;
}

bool WorkbookReaderPrivate::readXlsSheet(int index, const WorkbookReader::RowHandler &handler)
{
    XlsProcess reader(xlsPath, file);
    WorkbookReader::Row row;
    qint64 current = -1;
    bool stopped = false;
    // The formulas' results come from the workbook itself, merged into the rows FreeXL gives.
    static const XlsProcess::FormulaCells kNone;
    const XlsProcess::FormulaCells &formulas =
        std::size_t(index) < xlsFormulas.size() ? xlsFormulas[std::size_t(index)] : kNone;
    auto formula = formulas.begin();
    auto formulaCells = [&](quint32 r, WorkbookReader::Row &into) {
        for (const auto &[column, text] : formula->second) {
            if (!text.isEmpty()) {
                if (!checkCell(int(r) + 1, column, text)) {
                    return false;
                }
                const auto at = column; // clang does not let a lambda capture a structured binding
                into.erase(
                    std::remove_if(into.begin(), into.end(), [at](const auto &cell) { return cell.column == at; }),
                    into.end());
                into.push_back({column, text, true});
            }
        }
        std::sort(into.begin(), into.end(), [](const auto &a, const auto &b) { return a.column < b.column; });
        return true;
    };
    // Rows that hold only formulas, up to (not including) `limit`.
    auto formulaRows = [&](qint64 limit) {
        while (!stopped && formula != formulas.end() && (limit < 0 || qint64(formula->first) < limit)) {
            WorkbookReader::Row only;
            if (!formulaCells(formula->first, only)) {
                return false;
            }
            if (!only.empty() && !handler(int(formula->first) + 1, only)) {
                stopped = true;
            }
            ++formula;
        }
        return !stopped;
    };
    auto flush = [&] {
        if (current >= 0) {
            if (!formulaRows(current)) {
                return false;
            }
            if (formula != formulas.end() && qint64(formula->first) == current) {
                if (!formulaCells(formula->first, row)) {
                    return false;
                }
                ++formula;
            }
        }
        if (!row.empty() && !handler(int(current) + 1, row)) {
            stopped = true;
        }
        row.clear();
        return !stopped;
    };
    const bool read = reader.readSheet(
        index, sheets[std::size_t(index)].name,
        [&](unsigned rows, int columns) {
            // An empty cell beyond the column limit counts as much as a filled one.
            return rows == 0 || checkCell(1, qMin(columns, limits.maxColumns + 1) - 1, QString());
        },
        [&](unsigned r, int c, QString &&text) {
            if (qint64(r) != current) {
                if (!flush()) {
                    return false;
                }
                current = r;
            }
            if (!checkCell(int(r) + 1, c, text)) {
                return false;
            }
            row.push_back({c, std::move(text), false});
            return true;
        });
    if (!read) {
        return fail(reader.errorString());
    }
    if (!error.isEmpty() && !stopped) {
        return false;
    }
    if (!stopped && flush()) {
        formulaRows(-1);
    }
    return error.isEmpty() || stopped;
}

bool WorkbookReaderPrivate::detectCsvEncoding()
{
    QFile in(file);
    if (!in.open(QIODevice::ReadOnly)) {
        return fail(u"无法打开文件 "_s + file + u": "_s + in.errorString());
    }
    const QByteArray probe = in.read(1 << 20);
    const bool whole = in.atEnd();
    CsvEncoding found;
    auto decodes = [&](const char *name, qsizetype from, qsizetype cut) {
        // A character the probe's end cut in two is no fault of the file.
        QStringDecoder test(name);
        const QString text = test.decode(QByteArrayView(probe).sliced(from, probe.size() - from - (whole ? 0 : cut)));
        return test.isValid() && !test.hasError() && !text.contains(QChar(0))
            && (!text.contains(QChar::ReplacementCharacter) || probe.contains("\xEF\xBF\xBD"));
    };
    if (probe.startsWith("\xFF\xFE")) {
        found = {"UTF-16LE", u"UTF-16LE"_s, 2};
    } else if (probe.startsWith("\xFE\xFF")) {
        found = {"UTF-16BE", u"UTF-16BE"_s, 2};
    } else if (probe.startsWith("\xEF\xBB\xBF")) {
        found = {"UTF-8", u"UTF-8"_s, 3};
    } else if (decodes("UTF-8", 0, 3)) {
        found = {"UTF-8", u"UTF-8"_s, 0};
    } else if (decodes("GB18030", 0, 3)) {
        found = {"GB18030", u"GB18030"_s, 0};
    } else {
        return fail(u"文件 "_s + file
                    + u" 的文字编码无法识别;CSV 文件请存为 UTF-8、UTF-16(带 BOM)或 GB18030/GBK 编码"_s);
    }
    if (found.bom == 2 && (in.size() % 2 != 0 || !decodes(found.name, 2, 1))) {
        return fail(u"文件 "_s + file + u" 不是有效的 "_s + found.shown + u" 文字"_s);
    }
    // The separator the header line uses most: comma, tab or semicolon.
    QStringDecoder decoder(found.name);
    const QString text = decoder.decode(probe.sliced(found.bom));
    const qsizetype end = text.indexOf(QRegularExpression(u"[\r\n]"_s));
    const QStringView head = QStringView(text).left(end < 0 ? text.size() : end);
    const qsizetype commas = head.count(u','), tabs = head.count(u'\t'), semis = head.count(u';');
    found.separator = tabs > commas && tabs >= semis ? u'\t' : semis > commas && semis > tabs ? u';' : u',';
    csvEncoding = found;
    return true;
}

bool WorkbookReaderPrivate::readCsv(const WorkbookReader::RowHandler &handler)
{
    QFile in(file);
    if (!in.open(QIODevice::ReadOnly)) {
        return fail(u"无法打开文件 "_s + file + u": "_s + in.errorString());
    }
    if (in.size() > limits.maxPartBytes) {
        return fail(u"文件 "_s + file + u" 超过 "_s + QString::number(limits.maxPartBytes >> 20) + u" MB"_s);
    }
    if (!csvEncoding) {
        return fail(u"文件没有打开"_s);
    }
    QStringDecoder decoder(csvEncoding->name);
    if (!decoder.isValid()) {
        return fail(u"本机不能解码 "_s + csvEncoding->shown + u" 文字"_s);
    }
    char16_t separator = csvEncoding->separator;
    const QChar sep(separator);

    WorkbookReader::Row row;
    QString field;
    bool quoted = false;
    bool afterQuote = false;
    bool fieldStarted = false;
    int column = 0;
    int rowNumber = 1;
    bool first = true;
    bool afterCR = false;
    auto endField = [&]() {
        if (!checkCell(rowNumber, column, field)) {
            return false;
        }
        if (!field.isEmpty()) {
            row.push_back({column, field, false});
        }
        field.clear();
        fieldStarted = false;
        afterQuote = false;
        ++column;
        return true;
    };
    auto endRow = [&]() {
        if (!endField()) {
            return -1;
        }
        if (rowNumber > limits.maxRows) {
            fail(u"文件 "_s + file + u" 超过了 "_s + QString::number(limits.maxRows) + u" 行"_s);
            return -1;
        }
        const bool go = row.empty() || handler(rowNumber, row);
        row.clear();
        column = 0;
        ++rowNumber;
        return go ? 1 : 0;
    };
    while (!in.atEnd()) {
        const QByteArray chunk = in.read(1 << 16);
        QString text = decoder.decode(chunk);
        if (text.contains(QChar(0))) {
            return fail(u"文件 "_s + file + u" 含有空字符,不是 "_s + csvEncoding->shown + u" 文字文件"_s);
        }
        if (first) {
            first = false;
            if (text.startsWith(QChar(0xFEFF))) {
                text.remove(0, 1);
            }
        }
        for (const QChar c : std::as_const(text)) {
            // CR, LF and CR LF each end a line (older Mac programs write a lone CR).
            if (c == u'\n' && afterCR) {
                afterCR = false;
                continue;
            }
            afterCR = false;
            if (quoted) {
                if (c == u'"') {
                    quoted = false;
                    afterQuote = true;
                } else {
                    field += c;
                    if (field.size() > limits.maxCellChars && !checkCell(rowNumber, column, field)) {
                        return false;
                    }
                }
                continue;
            }
            if (c == u'"') {
                if (afterQuote) {
                    field += c; // "" inside a quoted field
                    quoted = true;
                    afterQuote = false;
                } else if (!fieldStarted) {
                    quoted = true;
                    fieldStarted = true;
                } else {
                    field += c;
                }
            } else if (c == sep) {
                if (!endField()) {
                    return false;
                }
            } else if (c == u'\n' || c == u'\r') {
                afterCR = c == u'\r';
                const int go = endRow();
                if (go <= 0) {
                    return go == 0;
                }
            } else {
                field += c;
                fieldStarted = true;
                if (field.size() > limits.maxCellChars && !checkCell(rowNumber, column, field)) {
                    return false;
                }
            }
        }
    }
    if (decoder.hasError()) {
        return fail(u"文件 "_s + file + u" 中有不是 "_s + csvEncoding->shown + u" 的文字,无法读取"_s);
    }
    if (fieldStarted || !field.isEmpty() || column > 0 || !row.empty()) {
        if (endRow() < 0) {
            return false;
        }
    }
    return true;
}

namespace {

// Excel before version 5 wrote a bare record stream that opens with its BOF record (id, length, version, type); no
// reader here handles those.
QString oldExcelFormat(const QByteArray &magic)
{
    if (magic.size() < 8) {
        return QString();
    }
    auto u16 = [&](int at) {
        return quint16(uchar(magic[at]) | (uchar(magic[at + 1]) << 8));
    };
    const quint16 id = u16(0);
    const quint16 length = u16(2);
    const quint16 type = u16(6);
    if (id == 0x0009 && length == 4) {
        return u" Excel 2.x 工作表"_s;
    }
    if (id == 0x0209 && length == 6) {
        return u" Excel 3.0 工作表"_s;
    }
    if (id == 0x0409 && length == 6) {
        return type == 0x0100 ? u" Excel 4.0 工作簿"_s : u" Excel 4.0 工作表"_s;
    }
    if (id == 0x0809 && (length == 8 || length == 16)) {
        return u"没有封装的 Excel 5.0/95 工作表"_s;
    }
    return QString();
}

} // namespace

WorkbookReader::WorkbookReader(const QString &file)
    : d(std::make_unique<WorkbookReaderPrivate>())
{
    d->file = file;
}

WorkbookReader::~WorkbookReader() = default;

void WorkbookReader::setLimits(const Limits &limits)
{
    d->limits = limits;
}

bool WorkbookReader::open()
{
    d->closeAll();
    d->csvEncoding.reset();
    d->sheets.clear();
    d->error.clear();
    // Not even a probe of the live database: closing it would drop SQLite's locks on the file.
    if (const QString refused = LiveFiles::refusal(d->file, u"从中导入"_s); !refused.isEmpty()) {
        return d->fail(refused);
    }
    QFile probe(d->file);
    if (!probe.open(QIODevice::ReadOnly)) {
        return d->fail(u"无法打开文件 "_s + d->file + u": "_s + probe.errorString());
    }
    const QByteArray magic = probe.read(8);
    probe.close();
    if (magic.startsWith("\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1")) {
        d->format = Format::Xls;
        return d->openXls();
    }
    if (const QString old = oldExcelFormat(magic); !old.isEmpty()) {
        d->format = Format::Unknown;
        return d->fail(u"文件 "_s + d->file + u" 是"_s + old
                       + u",不支持;请在 Excel 或 LibreOffice 中把它另存为 .xlsx 再导入"_s);
    }
    if (magic.startsWith("PK\x03\x04")) {
        d->format = Format::Xlsx;
        return d->openXlsx();
    }
    const QString suffix = QFileInfo(d->file).suffix().toLower();
    if (suffix == u"csv"_s || suffix == u"txt"_s) {
        d->format = Format::Csv;
        d->sheets.push_back({QFileInfo(d->file).completeBaseName(), QString()});
        return d->detectCsvEncoding();
    }
    d->format = Format::Unknown;
    return d->fail(u"文件 "_s + d->file + u" 不是工作簿(.xlsx、.xls)或 CSV 文件"_s);
}

WorkbookReader::Format WorkbookReader::format() const
{
    return d->format;
}

QStringList WorkbookReader::sheetNames() const
{
    QStringList names;
    for (const SheetEntry &sheet : d->sheets) {
        names.append(sheet.name);
    }
    return names;
}

bool WorkbookReader::readSheet(const QString &sheet, const RowHandler &handler)
{
    d->merged.clear();
    d->error.clear();
    int index = sheet.isEmpty() && !d->sheets.empty() ? 0 : -1;
    for (std::size_t i = 0; index < 0 && i < d->sheets.size(); ++i) {
        if (d->sheets[i].name == sheet) {
            index = int(i);
        }
    }
    if (index < 0) {
        return d->fail(u"工作簿中没有名为 ["_s + sheet + u"] 的表格;有: "_s + sheetNames().join(u", "_s));
    }
    try {
        switch (d->format) {
        case Format::Xlsx:
            return d->readXlsxSheet(d->sheets[std::size_t(index)], handler);
        case Format::Xls:
            return d->readXlsSheet(index, handler);
        case Format::Csv:
            return d->readCsv(handler);
        case Format::Unknown:
            break;
        }
    } catch (const std::bad_alloc &) {
        // Whatever the limits let through, a machine short of memory ends the read, not the program.
        d->sharedText = QString();
        d->sharedEnds = {};
        d->sharedLoaded = false;
        return d->fail(u"内存不足,无法读取表格 ["_s + d->sheets[std::size_t(index)].name + u"]"_s);
    }
    return d->fail(u"文件没有打开"_s);
}

QList<WorkbookReader::Range> WorkbookReader::mergedRanges() const
{
    return d->merged;
}

QString WorkbookReader::textEncoding() const
{
    return d->csvEncoding ? d->csvEncoding->shown : QString();
}

QString WorkbookReader::errorString() const
{
    return d->error;
}

QString WorkbookReader::columnName(int column)
{
    QString letters;
    for (int n = column + 1; n > 0; n = (n - 1) / 26) {
        letters.prepend(QChar(u'A' + (n - 1) % 26));
    }
    return letters;
}
