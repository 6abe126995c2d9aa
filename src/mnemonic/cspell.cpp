#include "cspell.h"

#include "spelldata.h"

#include <QVarLengthArray>

#include <algorithm>
#include <array>

using namespace Qt::StringLiterals;

namespace {

constexpr char16_t kLetters[] = u"abcdefghjklmnopqrstwxyz";

// First and last GB2312 code of each letter's first-level characters.
constexpr std::uint16_t kRanges[23][2] = {
    {0xB0A1, 0xB0C4}, {0xB0C5, 0xB2C0}, {0xB2C1, 0xB4ED}, {0xB4EE, 0xB6E9}, {0xB6EA, 0xB7A1}, {0xB7A2, 0xB8C0},
    {0xB8C1, 0xB9FD}, {0xB9FE, 0xBBF6}, {0xBBF7, 0xBFA5}, {0xBFA6, 0xC0AB}, {0xC0AC, 0xC2E7}, {0xC2E8, 0xC4C2},
    {0xC4C3, 0xC5B5}, {0xC5B6, 0xC5BD}, {0xC5BE, 0xC6D9}, {0xC6DA, 0xC8BA}, {0xC8BB, 0xC8F5}, {0xC8F6, 0xCBF9},
    {0xCBFA, 0xCDD9}, {0xCDDA, 0xCEF3}, {0xCEF4, 0xD1B8}, {0xD1B9, 0xD4D0}, {0xD4D1, 0xD7F9},
};

bool passesThrough(char16_t c)
{
    static constexpr char16_t kPassThrough[] = u"0123456789abcdefghijklmnopqrstuvwxyz"
                                               u"ABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                               u"!.#$%()*+-,/[\\|^~`@{}_";
    // A textual compare: the unit's case fold against the set's, so the Kelvin sign counts as k and the long s
    // as s, while full-width letters (whose fold is full-width) stay outside.
    const char16_t folded = QChar::toCaseFolded(c);
    for (const char16_t member : kPassThrough) {
        if (member != 0 && QChar::toCaseFolded(member) == folded) {
            return true;
        }
    }
    return false;
}

// The letter of the first range row that encloses a GBK code, or 0. The code is compared as a signed 16-bit
// number, so single-byte codes (0 to 0x7F) never fall into a row.
char16_t rangeLetter(std::uint16_t gbk)
{
    const auto code = std::int16_t(gbk);
    for (int row = 0; row < 23; ++row) {
        if (code >= std::int16_t(kRanges[row][0]) && code <= std::int16_t(kRanges[row][1])) {
            return kLetters[row];
        }
    }
    return 0;
}

// The code of every UTF-16 unit, in the order of precedence: pass-through set, range table, extra lists in letter
// order, "!". Only first-level characters have a GBK code inside the range table, so their table stands for the
// code page there and the build does not depend on a GBK converter being present.
const std::array<char16_t, 65536> &codeTable()
{
    static const std::array<char16_t, 65536> table = [] {
        std::array<char16_t, 65536> t {};
        std::array<char16_t, 65536> range {};
        for (std::size_t i = 0; i < SpellData::kFirstLevelCount; ++i) {
            const auto gbk = std::uint16_t(((0xB0 + i / 94) << 8) | (0xA1 + i % 94));
            range[SpellData::kFirstLevel[i]] = rangeLetter(gbk);
        }
        for (std::uint32_t u = 0; u < 65536; ++u) {
            const auto c = char16_t(u);
            t[u] = passesThrough(c) ? c : range[u];
        }
        for (int list = 0; list < 23; ++list) {
            for (const char16_t *p = SpellData::kExtraLists[list]; *p; ++p) {
                if (t[*p] == 0) {
                    t[*p] = kLetters[list];
                }
            }
        }
        for (char16_t &code : t) {
            if (code == 0) {
                code = u'!';
            }
        }
        return t;
    }();
    return table;
}

// For every UTF-16 unit, the letters (bit 0 = a) a typed code may use for it: its own letter, the initial of its
// mnemonic code and the initials of all its readings.
const std::array<std::uint32_t, 65536> &letterMasks()
{
    static const std::array<std::uint32_t, 65536> masks = [] {
        std::array<std::uint32_t, 65536> m {};
        const std::array<char16_t, 65536> &codes = codeTable();
        for (std::uint32_t u = 0; u < 65536; ++u) {
            const char16_t c = QChar::toCaseFolded(codes[u]);
            if (c >= u'a' && c <= u'z') {
                m[u] = 1u << (c - u'a');
            }
        }
        for (std::size_t i = 0; i < SpellData::kAllInitialsCount; ++i) {
            const SpellData::CharInitials &entry = SpellData::kAllInitials[i];
            for (int bit = 0; bit < 23; ++bit) {
                if (entry.mask & (1u << bit)) {
                    m[entry.character] |= 1u << (kLetters[bit] - u'a');
                }
            }
        }
        return m;
    }();
    return masks;
}

} // namespace

bool CSpell::MatchCode(QStringView name, QStringView code)
{
    if (code.isEmpty()) {
        return true;
    }
    if (code.size() > name.size()) {
        return false;
    }
    const std::array<std::uint32_t, 65536> &masks = letterMasks();
    // Each typed unit becomes a test: a letter bit, or the unit itself (case folded) for anything else.
    QVarLengthArray<std::uint32_t, 32> wanted(code.size());
    QVarLengthArray<char16_t, 32> literal(code.size());
    for (qsizetype k = 0; k < code.size(); ++k) {
        char16_t c = code[k].unicode();
        if (c >= u'A' && c <= u'Z') {
            c = char16_t(c + 32);
        }
        wanted[k] = (c >= u'a' && c <= u'z') ? 1u << (c - u'a') : 0;
        literal[k] = c;
    }
    const char16_t *in = name.utf16();
    const qsizetype last = name.size() - code.size();
    for (qsizetype start = 0; start <= last; ++start) {
        qsizetype k = 0;
        for (; k < code.size(); ++k) {
            const char16_t c = in[start + k];
            if (wanted[k] ? !(masks[c] & wanted[k]) : QChar::toCaseFolded(c) != literal[k]) {
                break;
            }
        }
        if (k == code.size()) {
            return true;
        }
    }
    return false;
}

bool CSpell::codeUnitMatches(QChar typed, QChar nameUnit)
{
    char16_t c = typed.unicode();
    if (c >= u'A' && c <= u'Z') {
        c = char16_t(c + 32);
    }
    const char16_t unit = nameUnit.unicode();
    if (c >= u'a' && c <= u'z') {
        return letterMasks()[unit] & (1u << (c - u'a'));
    }
    return QChar::toCaseFolded(unit) == c;
}

QString CSpell::py(QStringView text)
{
    const std::array<char16_t, 65536> &table = codeTable();
    QString code(text.size(), Qt::Uninitialized);
    char16_t *out = reinterpret_cast<char16_t *>(code.data());
    const char16_t *in = text.utf16();
    for (qsizetype i = 0; i < text.size(); ++i) {
        out[i] = table[in[i]];
    }
    return code;
}

QChar CSpell::codeOf(QChar c)
{
    return QChar(codeTable()[c.unicode()]);
}

QString CSpell::ExtraList(QChar letter)
{
    const char16_t folded = letter.toLower().unicode();
    for (int i = 0; i < 23; ++i) {
        if (kLetters[i] == folded) {
            return QString::fromUtf16(SpellData::kExtraLists[i]);
        }
    }
    return QString();
}

QString CSpell::initials(QChar c)
{
    const SpellData::CharInitials *begin = SpellData::kAllInitials;
    const SpellData::CharInitials *end = begin + SpellData::kAllInitialsCount;
    const auto it = std::lower_bound(begin, end, c.unicode(),
                                     [](const SpellData::CharInitials &e, char16_t v) { return e.character < v; });
    QString out;
    if (it == end || it->character != c.unicode()) {
        return out;
    }
    for (int i = 0; i < 23; ++i) {
        if (it->mask & (1u << i)) {
            out.append(QChar(kLetters[i]));
        }
    }
    return out;
}
