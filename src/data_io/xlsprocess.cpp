#include "xlsprocess.h"

#include <QFile>
#include <QLocale>
#include <QStringDecoder>

#include <freexl.h>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/common_interface_defs.h>
#endif

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// What the child reports. Each record is its kind, the length of its body (4 bytes) and the body.
enum Record : char {
    kSheet = 'S', // the name, UTF-8
    kSize = 'D', // rows (4 bytes), columns (2)
    kInteger = 'I', // row (4), column (2), value (8)
    kReal = 'F', // row (4), column (2), value (8)
    kText = 'T', // row (4), column (2), UTF-8 text
    kFailure = 'E', // what failed (4), at row (4)
    kEnd = 'Z',
};

// A failure's body is what failed and a number: the row for kCell, FreeXL's code for kOpen.
enum Failure : quint32 { kOpen = 1, kInfo, kName, kSelect, kDimensions, kCell, kPassword };

// No reply for this long means the child hangs.
constexpr int kSilenceMs = 60000;

// The child's buffered output; a write the parent no longer takes ends the child.
class Writer
{
public:
    explicit Writer(int fd)
        : m_fd(fd)
    { }
    ~Writer() { flush(); }

    void record(char kind, const void *body, quint32 size)
    {
        put(&kind, 1);
        put(&size, sizeof size);
        put(body, size);
    }
    void cell(char kind, quint32 row, quint16 column, const void *value, quint32 size)
    {
        const quint32 total = 6 + size;
        put(&kind, 1);
        put(&total, sizeof total);
        put(&row, sizeof row);
        put(&column, sizeof column);
        put(value, size);
    }
    void flush()
    {
        const char *p = m_buffer;
        while (m_used > 0) {
            const ssize_t n = ::write(m_fd, p, m_used);
            if (n < 0 && errno == EINTR) {
                continue;
            }
            if (n <= 0) {
                _exit(3);
            }
            p += n;
            m_used -= std::size_t(n);
        }
    }

private:
    void put(const void *data, std::size_t size)
    {
        const auto *bytes = static_cast<const char *>(data);
        while (size > 0) {
            if (m_used == sizeof m_buffer) {
                flush();
            }
            const std::size_t part = std::min(size, sizeof m_buffer - m_used);
            std::memcpy(m_buffer + m_used, bytes, part);
            m_used += part;
            bytes += part;
            size -= part;
        }
    }

    int m_fd;
    char m_buffer[65536];
    std::size_t m_used = 0;
};

void failure(Writer &out, quint32 what, quint32 row = 0)
{
    const quint32 body[2] = {what, row};
    out.record(kFailure, body, sizeof body);
}

// The child's part: only FreeXL and plain writes, nothing of the parent's state.
void listSheets(const char *path, Writer &out)
{
    const void *xls = nullptr;
    if (const int opened = freexl_open(path, &xls); opened != FREEXL_OK) {
        failure(out, kOpen, quint32(opened));
        return;
    }
    unsigned int protection = 0;
    if (freexl_get_info(xls, FREEXL_BIFF_PASSWORD, &protection) == FREEXL_OK && protection == FREEXL_BIFF_OBFUSCATED) {
        failure(out, kPassword);
        freexl_close(xls);
        return;
    }
    unsigned int count = 0;
    if (freexl_get_info(xls, FREEXL_BIFF_SHEET_COUNT, &count) != FREEXL_OK) {
        failure(out, kInfo);
    } else {
        for (unsigned int i = 0; i < count && i < 65535; ++i) {
            const char *name = nullptr;
            if (freexl_get_worksheet_name(xls, static_cast<unsigned short>(i), &name) != FREEXL_OK) {
                failure(out, kName);
                break;
            }
            out.record(kSheet, name ? name : "", name ? quint32(std::strlen(name)) : 0);
        }
    }
    freexl_close(xls);
}

void dumpSheet(const char *path, int index, Writer &out)
{
    const void *xls = nullptr;
    if (freexl_open(path, &xls) != FREEXL_OK) {
        failure(out, kOpen);
        return;
    }
    unsigned int rows = 0;
    unsigned short columns = 0;
    if (freexl_select_active_worksheet(xls, static_cast<unsigned short>(index)) != FREEXL_OK) {
        failure(out, kSelect);
    } else if (freexl_worksheet_dimensions(xls, &rows, &columns) != FREEXL_OK) {
        failure(out, kDimensions);
    } else {
        char size[6];
        std::memcpy(size, &rows, 4);
        std::memcpy(size + 4, &columns, 2);
        out.record(kSize, size, sizeof size);
        for (unsigned int r = 0; r < rows; ++r) {
            for (unsigned short c = 0; c < columns; ++c) {
                FreeXL_CellValue cell;
                if (freexl_get_cell_value(xls, r, c, &cell) != FREEXL_OK) {
                    failure(out, kCell, r);
                    freexl_close(xls);
                    return;
                }
                switch (cell.type) {
                case FREEXL_CELL_INT: {
                    const qint64 value = cell.value.int_value;
                    out.cell(kInteger, r, c, &value, sizeof value);
                    break;
                }
                case FREEXL_CELL_DOUBLE:
                    out.cell(kReal, r, c, &cell.value.double_value, sizeof cell.value.double_value);
                    break;
                case FREEXL_CELL_TEXT:
                case FREEXL_CELL_SST_TEXT:
                case FREEXL_CELL_DATE:
                case FREEXL_CELL_DATETIME:
                case FREEXL_CELL_TIME:
                    if (cell.value.text_value && *cell.value.text_value) {
                        out.cell(kText, r, c, cell.value.text_value, quint32(std::strlen(cell.value.text_value)));
                    }
                    break;
                default:
                    break;
                }
            }
        }
    }
    freexl_close(xls);
}

template<typename T>
T readAs(const char *from)
{
    T value;
    std::memcpy(&value, from, sizeof value);
    return value;
}

// Where each byte of the workbook stream ("Workbook", or "Book" in Excel 5.0/95) lies in the compound file, found
// through its directory and allocation tables; empty when the file does not hold one that can be followed.
std::vector<qsizetype> workbookStream(const QByteArray &bytes)
{
    const auto *data = reinterpret_cast<const uchar *>(bytes.constData());
    const qsizetype size = bytes.size();
    auto u16 = [&](qsizetype at) {
        return at >= 0 && at + 2 <= size ? quint16(data[at] | (data[at + 1] << 8)) : quint16(0);
    };
    auto u32 = [&](qsizetype at) {
        return at >= 0 && at + 4 <= size ? quint32(u16(at) | (quint32(u16(at + 2)) << 16)) : quint32(0xFFFFFFFF);
    };
    if (size < 512) {
        return {};
    }
    const int shift = u16(30);
    if (shift != 9 && shift != 12) {
        return {};
    }
    const qsizetype sector = qsizetype(1) << shift;
    const qsizetype sectors = (size - sector + sector - 1) / sector;
    auto offset = [&](quint32 s) {
        return (qsizetype(s) + 1) * sector;
    };
    constexpr quint32 kLast = 0xFFFFFFFA; // every sector number from here on marks an end or a free sector

    // The FAT: its sectors are listed in the header, then in a chain of DIFAT sectors.
    std::vector<quint32> fatSectors;
    for (int k = 0; k < 109; ++k) {
        if (const quint32 s = u32(76 + 4 * k); s < kLast) {
            fatSectors.push_back(s);
        }
    }
    for (quint32 d = u32(68), steps = 0; d < kLast && steps < sectors; ++steps) {
        const qsizetype at = offset(d);
        for (qsizetype k = 0; k + 1 < sector / 4; ++k) {
            if (const quint32 s = u32(at + 4 * k); s < kLast) {
                fatSectors.push_back(s);
            }
        }
        d = u32(at + sector - 4);
    }
    std::vector<quint32> fat;
    for (const quint32 s : fatSectors) {
        for (qsizetype k = 0; k < sector / 4 && qsizetype(fat.size()) < sectors; ++k) {
            fat.push_back(u32(offset(s) + 4 * k));
        }
    }
    auto chain = [&](quint32 first) {
        std::vector<quint32> list;
        for (quint32 s = first; s < kLast && s < fat.size() && qsizetype(list.size()) < sectors; s = fat[s]) {
            list.push_back(s);
        }
        return list;
    };

    // The directory: the root entry (the mini stream's home) and the workbook stream.
    quint32 rootStart = kLast;
    quint32 bookStart = kLast;
    quint32 bookSize = 0;
    for (const quint32 d : chain(u32(48))) {
        for (qsizetype at = offset(d); at + 128 <= offset(d) + sector && at + 128 <= size; at += 128) {
            const quint16 length = u16(at + 64);
            QString name;
            for (qsizetype k = 0; k + 2 < length && k < 62; k += 2) {
                name += QChar(u16(at + k));
            }
            if (data[at + 66] == 5) {
                rootStart = u32(at + 116);
            } else if (data[at + 66] == 2 && (name == u"Workbook" || name == u"Book")) {
                bookStart = u32(at + 116);
                bookSize = u32(at + 120);
            }
        }
    }
    if (bookStart >= kLast || bookSize == 0 || bookSize > quint32(size)) {
        return {};
    }
    // Where each byte of the workbook stream lies in the file.
    std::vector<qsizetype> where;
    where.reserve(bookSize);
    if (bookSize >= 4096) {
        for (const quint32 s : chain(bookStart)) {
            for (qsizetype k = 0; k < sector && where.size() < bookSize; ++k) {
                where.push_back(offset(s) + k);
            }
        }
    } else {
        std::vector<qsizetype> mini;
        for (const quint32 s : chain(rootStart)) {
            for (qsizetype k = 0; k < sector; ++k) {
                mini.push_back(offset(s) + k);
            }
        }
        std::vector<quint32> miniFat;
        for (const quint32 s : chain(u32(60))) {
            for (qsizetype k = 0; k < sector / 4; ++k) {
                miniFat.push_back(u32(offset(s) + 4 * k));
            }
        }
        for (quint32 m = bookStart, steps = 0; m < kLast && steps < miniFat.size() + 1 && where.size() < bookSize;
             m = m < miniFat.size() ? miniFat[m] : kLast, ++steps) {
            for (qsizetype k = 0; k < 64 && where.size() < bookSize; ++k) {
                const std::size_t at = std::size_t(m) * 64 + std::size_t(k);
                if (at >= mini.size()) {
                    return {};
                }
                where.push_back(mini[at]);
            }
        }
    }
    if (where.size() < bookSize) {
        return {};
    }
    return where;
}

} // namespace

QString XlsProcess::passwordProtected(const QString &file)
{
    return u"文件 "_s + file + u" 有密码保护,无法读取;请在 Excel 或 WPS 中打开它,取消密码后另存,再导入"_s;
}

XlsProcess::XlsProcess(const QString &file, const QString &shownAs)
    : m_file(file)
    , m_shownAs(shownAs.isEmpty() ? file : shownAs)
{ }

XlsProcess::Layout XlsProcess::inspect(const QByteArray &bytes)
{
    Layout layout;
    const auto *data = reinterpret_cast<const uchar *>(bytes.constData());
    const qsizetype size = bytes.size();
    auto u16 = [&](qsizetype at) {
        return quint16(data[at] | (data[at + 1] << 8));
    };
    // Directory entries fill whole sectors, so each starts on a 128-byte boundary past the 512-byte header: a name
    // of up to 31 UTF-16 units, its length in bytes with the terminator, then the entry's type (2: a stream).
    bool plainWorkbook = false;
    bool encryptionInfo = false;
    QList<qsizetype> odd;
    for (qsizetype at = 512; at + 128 <= size; at += 128) {
        const quint16 length = u16(at + 64);
        if (data[at + 66] != 2 || length < 4 || length > 64 || length % 2 != 0 || u16(at + length - 2) != 0) {
            continue;
        }
        QString name;
        for (qsizetype k = 0; k + 2 < length; k += 2) {
            name += QChar(u16(at + k));
        }
        if (name == u"Workbook" || name == u"Book") {
            plainWorkbook = true;
        } else if (name.compare(u"Workbook", Qt::CaseInsensitive) == 0
                   || name.compare(u"Book", Qt::CaseInsensitive) == 0) {
            odd.append(at);
        } else if (name == u"EncryptionInfo") {
            encryptionInfo = true;
        }
    }
    layout.encryptedPackage = encryptionInfo;
    if (!plainWorkbook) {
        layout.oddlyNamedWorkbook = odd;
    }
    // The workbook stream opens with the globals' BOF (BIFF8: length 16, version 0x0600; BIFF5/7: length 8, version
    // 0x0500; type 5); Excel puts FILEPASS (0x002F) right after it when the workbook is encrypted. A stream starts
    // on a sector, or on a 64-byte block of the mini stream when it is short.
    for (qsizetype at = 512; at + 32 <= size; at += 64) {
        if (u16(at) != 0x0809 || u16(at + 6) != 0x0005) {
            continue;
        }
        const quint16 length = u16(at + 2);
        const quint16 version = u16(at + 4);
        if (!((length == 16 && version == 0x0600) || (length == 8 && version == 0x0500))) {
            continue;
        }
        layout.excel95 = version == 0x0500;
        if (at + 4 + length + 2 <= size && u16(at + 4 + length) == 0x002F) {
            layout.encryptedWorkbook = true;
        }
        break;
    }
    return layout;
}

QByteArray XlsProcess::withPlainNames(QByteArray bytes, const Layout &layout)
{
    for (const qsizetype at : layout.oddlyNamedWorkbook) {
        const bool book = bytes[at + 64] == 10; // "Book" and its terminator
        const QString name = book ? u"Book"_s : u"Workbook"_s;
        for (qsizetype k = 0; k < name.size(); ++k) {
            bytes[at + 2 * k] = char(name[k].unicode() & 0xFF);
            bytes[at + 2 * k + 1] = char(name[k].unicode() >> 8);
        }
    }
    return bytes;
}

QByteArray XlsProcess::withoutCharts(QByteArray bytes, bool *changed)
{
    *changed = false;
    const std::vector<qsizetype> where = workbookStream(bytes);
    auto *data = reinterpret_cast<uchar *>(bytes.data());
    // FreeXL gives up on a workbook with a chart substream (a chart sheet, or a chart inside a sheet, each between its
    // own BOF of type 0x0020 and EOF); renaming its records to an id no reader knows leaves only the cells.
    auto streamU16 = [&](std::size_t at) {
        return at + 2 <= where.size() ? quint16(data[where[at]] | (data[where[at + 1]] << 8)) : quint16(0);
    };
    std::vector<quint16> substreams;
    for (std::size_t at = 0; at + 4 <= where.size();) {
        const quint16 id = streamU16(at);
        const quint16 length = streamU16(at + 2);
        if (id == 0x0809) {
            substreams.push_back(streamU16(at + 6));
        }
        if (std::find(substreams.begin(), substreams.end(), quint16(0x0020)) != substreams.end()) {
            data[where[at]] = 0xFF;
            data[where[at + 1]] = 0x1F;
            *changed = true;
        }
        if (id == 0x000A && !substreams.empty()) {
            substreams.pop_back();
        }
        at += 4 + length;
    }
    return bytes;
}

std::vector<XlsProcess::FormulaCells> XlsProcess::formulaValues(const QByteArray &bytes)
{
    std::vector<FormulaCells> sheets;
    const std::vector<qsizetype> where = workbookStream(bytes);
    const auto *data = reinterpret_cast<const uchar *>(bytes.constData());
    auto byte = [&](std::size_t at) {
        return at < where.size() ? data[where[at]] : uchar(0);
    };
    auto u16 = [&](std::size_t at) {
        return quint16(byte(at) | (byte(at + 1) << 8));
    };
    // FreeXL gives no value for a formula; its last result is in the FORMULA record (0x0006): row, column, format,
    // then eight bytes, a double unless the last two are FFFF, when the first tells a string (in the STRING record
    // 0x0207 that follows), a boolean, an error or an empty text.
    int depth = 0;
    bool biff8 = true;
    FormulaCells *current = nullptr;
    std::optional<std::pair<quint32, int>> pendingString;
    for (std::size_t at = 0; at + 4 <= where.size();) {
        const quint16 id = u16(at);
        const quint16 length = u16(at + 2);
        const std::size_t body = at + 4;
        if (body + length > where.size()) {
            break;
        }
        if (id == 0x0809) {
            const quint16 type = u16(body + 2);
            if (depth == 0) {
                biff8 = u16(body) == 0x0600;
                if (type != 0x0005) {
                    sheets.emplace_back();
                    current = &sheets.back();
                }
            }
            ++depth;
        } else if (id == 0x000A) {
            if (--depth <= 0) {
                depth = 0;
                current = nullptr;
            }
        } else if (current && depth == 1 && id == 0x0006 && length >= 14) {
            const quint32 row = u16(body);
            const int column = u16(body + 2);
            pendingString.reset();
            if (u16(body + 12) == 0xFFFF) {
                const uchar kind = byte(body + 6);
                if (kind == 0) {
                    pendingString = std::make_pair(row, column);
                } else if (kind == 1) {
                    (*current)[row][column] = byte(body + 8) ? u"1"_s : u"0"_s;
                } else if (kind == 2) {
                    static const std::map<uchar, QString> errors = {
                        {0x00, u"#NULL!"_s}, {0x07, u"#DIV/0!"_s}, {0x0F, u"#VALUE!"_s}, {0x17, u"#REF!"_s},
                        {0x1D, u"#NAME?"_s}, {0x24, u"#NUM!"_s},   {0x2A, u"#N/A"_s}};
                    const auto error = errors.find(byte(body + 8));
                    (*current)[row][column] = error != errors.end() ? error->second : u"#N/A"_s;
                }
            } else {
                quint64 raw = 0;
                for (int k = 7; k >= 0; --k) {
                    raw = (raw << 8) | byte(body + 6 + std::size_t(k));
                }
                double value;
                std::memcpy(&value, &raw, sizeof value);
                if (std::isfinite(value)) {
                    (*current)[row][column] = QString::number(value, 'f', QLocale::FloatingPointShortest);
                }
            }
        } else if (current && id == 0x0207 && pendingString && length >= 2) {
            const quint16 count = u16(body);
            QString text;
            if (biff8 && length >= 3) {
                const bool wide = byte(body + 2) & 0x01;
                for (quint16 k = 0; k < count && 3 + (k + 1) * (wide ? 2 : 1) <= length; ++k) {
                    text += wide ? QChar(u16(body + 3 + 2 * std::size_t(k))) : QChar(char16_t(byte(body + 3 + k)));
                }
            } else {
                QByteArray raw;
                for (quint16 k = 0; k < count && 2 + k < length; ++k) {
                    raw += char(byte(body + 2 + k));
                }
                text = QStringDecoder("GB18030").decode(raw); // Excel 95's own code page in a Chinese shop
            }
            (*current)[pendingString->first][pendingString->second] = text;
            pendingString.reset();
        }
        at = body + length;
    }
    return sheets;
}

bool XlsProcess::run(const std::function<void(int fd)> &work,
                     const std::function<bool(char kind, const QByteArray &body)> &take)
{
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) {
        m_error = u"无法读取 "_s + m_shownAs + u": "_s + QString::fromLocal8Bit(std::strerror(errno));
        return false;
    }
    const pid_t pid = ::fork();
    if (pid < 0) {
        ::close(fds[0]);
        ::close(fds[1]);
        m_error = u"无法读取 "_s + m_shownAs + u": "_s + QString::fromLocal8Bit(std::strerror(errno));
        return false;
    }
    if (pid == 0) {
        ::close(fds[0]);
        std::signal(SIGPIPE, SIG_DFL);
#if defined(__SANITIZE_ADDRESS__)
        // What the sanitizer finds in the child is reported by it; the death is the parent's to handle, not the
        // parent's test harness's.
        __sanitizer_set_death_callback(nullptr);
#endif
        if (qEnvironmentVariableIsSet("QUILLON_XLS_READER_ABORT")) {
            std::abort(); // stands for a reader that crashes on a damaged file (for the tests)
        }
        // Bounds for a file built to make the reader spin or swell; a crash leaves no core file behind.
        const rlimit noCore {0, 0};
        setrlimit(RLIMIT_CORE, &noCore);
        const rlimit cpu {60, 60};
        setrlimit(RLIMIT_CPU, &cpu);
#if !defined(__SANITIZE_ADDRESS__)
        const rlimit memory {rlim_t(2) << 30, rlim_t(2) << 30};
        setrlimit(RLIMIT_AS, &memory);
#endif
        work(fds[1]);
        _exit(0);
    }
    ::close(fds[1]);

    bool ended = false;
    bool stopped = false;
    bool silent = false;
    QByteArray pending;
    char chunk[65536];
    for (;;) {
        pollfd wait {fds[0], POLLIN, 0};
        const int ready = ::poll(&wait, 1, kSilenceMs);
        if (ready < 0 && errno == EINTR) {
            continue;
        }
        if (ready == 0) {
            silent = true;
            break;
        }
        const ssize_t n = ::read(fds[0], chunk, sizeof chunk);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            break;
        }
        pending.append(chunk, qsizetype(n));
        qsizetype at = 0;
        while (!stopped && pending.size() - at >= 5) {
            const auto size = readAs<quint32>(pending.constData() + at + 1);
            if (pending.size() - at - 5 < qsizetype(size)) {
                break;
            }
            const char kind = pending.at(at);
            if (kind == kEnd) {
                ended = true;
            } else if (!take(kind, QByteArray::fromRawData(pending.constData() + at + 5, qsizetype(size)))) {
                stopped = true;
            }
            at += 5 + qsizetype(size);
        }
        pending.remove(0, at);
        if (stopped || ended) {
            break;
        }
    }
    ::close(fds[0]);
    if (!ended) {
        ::kill(pid, SIGKILL);
    }
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) { }
    if (stopped) {
        return m_error.isEmpty();
    }
    if (!ended || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        m_error = u"文件 "_s + m_shownAs + u" 已损坏,无法作为 Excel 97-2003 工作簿(.xls)读取"_s
            + (silent ? u"(读取没有响应)"_s : u"(读取意外中止)"_s);
        return false;
    }
    return m_error.isEmpty();
}

bool XlsProcess::sheetNames(QStringList *names)
{
    m_error.clear();
    const QByteArray path = QFile::encodeName(m_file);
    const bool ok = run(
        [&](int fd) {
            Writer out(fd);
            listSheets(path.constData(), out);
            out.record(kEnd, nullptr, 0);
        },
        [&](char kind, const QByteArray &body) {
            if (kind == kSheet) {
                names->append(QString::fromUtf8(body));
                return true;
            }
            if (kind == kFailure && body.size() >= 8) {
                const auto what = readAs<quint32>(body.constData());
                const auto code = qint32(readAs<quint32>(body.constData() + 4));
                if (what == kPassword) {
                    m_error = passwordProtected(m_shownAs);
                } else if (what == kOpen && code == FREEXL_BIFF_WORKBOOK_NOT_FOUND) {
                    m_error = u"文件 "_s + m_shownAs
                        + u" 是 Office 复合文档,但其中没有 Excel 工作簿数据(可能是 Word 文档或其他 Office 文件)"_s;
                } else if (what == kOpen && code == FREEXL_INSUFFICIENT_MEMORY) {
                    m_error = u"内存不足,无法读取 "_s + m_shownAs;
                } else if (what == kOpen) {
                    m_error = u"文件 "_s + m_shownAs + u" 已损坏,无法作为 Excel 97-2003 工作簿(.xls)读取"_s;
                } else if (what == kName) {
                    m_error = u"工作簿 "_s + m_shownAs + u" 的表格名称无法读取"_s;
                } else {
                    m_error = u"工作簿 "_s + m_shownAs + u" 的目录无法读取(文件已损坏)"_s;
                }
            }
            return kind != kFailure;
        });
    if (ok && names->isEmpty()) {
        m_error = u"工作簿 "_s + m_shownAs + u" 中没有工作表(只有图表或宏表)"_s;
        return false;
    }
    return ok;
}

bool XlsProcess::readSheet(int index, const QString &name, const std::function<bool(unsigned rows, int columns)> &size,
                           const CellHandler &cells)
{
    m_error.clear();
    const QByteArray path = QFile::encodeName(m_file);
    return run(
        [&](int fd) {
            Writer out(fd);
            dumpSheet(path.constData(), index, out);
            out.record(kEnd, nullptr, 0);
        },
        [&](char kind, const QByteArray &body) {
            const char *p = body.constData();
            switch (kind) {
            case kSize:
                return body.size() == 6 && size(readAs<quint32>(p), readAs<quint16>(p + 4));
            case kInteger:
                return body.size() == 14
                    && cells(readAs<quint32>(p), readAs<quint16>(p + 4), QString::number(readAs<qint64>(p + 6)));
            case kReal:
                return body.size() == 14
                    && cells(readAs<quint32>(p), readAs<quint16>(p + 4),
                             QString::number(readAs<double>(p + 6), 'f', QLocale::FloatingPointShortest));
            case kText:
                return body.size() >= 6
                    && cells(readAs<quint32>(p), readAs<quint16>(p + 4), QString::fromUtf8(p + 6, body.size() - 6));
            case kFailure: {
                const auto what = body.size() >= 8 ? readAs<quint32>(p) : 0;
                m_error = what == kCell
                    ? u"表格的第 "_s + QString::number(readAs<quint32>(p + 4) + 1) + u" 行无法读取"_s
                    : what == kDimensions ? u"无法读取表格 ["_s + name + u"] 的大小"_s
                                          : u"无法打开表格 ["_s + name + u"]"_s;
                return false;
            }
            default:
                m_error = u"文件 "_s + m_shownAs + u" 的读取结果无法识别"_s;
                return false;
            }
        });
}
