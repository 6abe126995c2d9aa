#include "itemtextquery.h"

#include "textsearchindex.h"

#include <QChar>

#include <array>

const char16_t *TextSearchIndex::foldTable()
{
    static const std::array<char16_t, 65536> table = [] {
        std::array<char16_t, 65536> t {};
        for (std::uint32_t u = 1; u < 65536; ++u) {
            const auto c = char16_t(u);
            if (QChar::isSurrogate(c)) {
                continue;
            }
            // A surrogate folds with its partner, beyond 16 bits: such a text is irregular (0), as is one with a NUL.
            const char32_t folded = QChar::toCaseFolded(char32_t(c));
            t[u] = folded > 0xFFFF || QChar::isSurrogate(folded) ? 0 : char16_t(folded);
        }
        return t;
    }();
    return table.data();
}

ItemTextQuery::Pattern::Pattern(QStringView folded)
{
    m_units.reserve(std::size_t(folded.size()));
    for (QChar c : folded) {
        m_units.push_back(c.unicode());
    }
}

void ItemTextQuery::Pattern::append(char16_t folded)
{
    m_units.push_back(folded);
    if (!m_classes.empty()) {
        m_classes.emplace_back();
    }
}

void ItemTextQuery::Pattern::append(const UnitClassPtr &units)
{
    if (m_classes.empty()) {
        m_classes.resize(m_units.size());
    }
    m_units.push_back(0);
    m_classes.push_back(units);
}

ItemTextQuery::ItemTextQuery(std::function<bool(const CItem &)> accepts)
    : m_accepts(std::move(accepts))
{ }

char16_t ItemTextQuery::fold(char16_t unit)
{
    return TextSearchIndex::foldTable()[unit];
}

ItemTextQuery::UnitClassPtr ItemTextQuery::unitClass(const std::function<bool(char16_t)> &test)
{
    auto units = std::make_shared<UnitClass>();
    const char16_t *table = TextSearchIndex::foldTable();
    for (std::uint32_t u = 0; u < 65536; ++u) {
        const char16_t folded = table[u];
        if (folded != 0 && test(char16_t(u))) {
            units->m_bits[folded >> 6] |= quint64(1) << (folded & 63);
        }
    }
    return units;
}

void ItemTextQuery::require(std::vector<std::pair<Field, Pattern>> anyOf)
{
    m_clauses.push_back(std::move(anyOf));
}
