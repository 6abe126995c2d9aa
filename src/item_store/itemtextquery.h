#ifndef QUILLON_ITEMTEXTQUERY_H
#define QUILLON_ITEMTEXTQUERY_H

#include "quillon_export.h"

#include <QString>
#include <QStringView>

#include <functional>
#include <memory>
#include <vector>

class CItem;

/**
 * A search of a collection by the numbers, names and mnemonic codes of its items (CItems::FindText), in two steps:
 * patterns, which the collection's text index finds without touching the items, narrow the list down, and
 * `accepts` decides about each item they leave.
 *
 * The index holds the three texts folded unit by unit (fold()). A clause lists patterns of which one must occur in
 * its field's folded text; every clause must hold. The patterns must let through every item that `accepts` takes
 * (they may let through more). Items with an irregular text (one holding a surrogate or a NUL) are not narrowed
 * down: `accepts` decides about each of them.
 */
class QUILLON_EXPORT ItemTextQuery
{
public:
    enum Field { Number, Name, Spell };

    /// A set of folded units that one position of a pattern takes.
    class UnitClass
    {
    public:
        bool contains(char16_t folded) const { return (m_bits[folded >> 6] >> (folded & 63)) & 1; }
        /// The 64 units from `first` (a multiple of 64) on, one bit each.
        quint64 word(char16_t first) const { return m_bits[first >> 6]; }

    private:
        friend class ItemTextQuery;
        quint64 m_bits[1024] = {};
    };
    using UnitClassPtr = std::shared_ptr<const UnitClass>;

    /// A run of folded units, each position one unit or a class of them.
    class QUILLON_EXPORT Pattern
    {
    public:
        Pattern() = default;
        /// These folded units in a row (0 occurs nowhere: a pattern holding it finds no regular item).
        explicit Pattern(QStringView folded);
        void append(char16_t folded);
        void append(const UnitClassPtr &units);
        qsizetype size() const { return qsizetype(m_units.size()); }
        /// The unit of a position, or 0 where the position takes a class.
        char16_t unit(qsizetype k) const { return m_units[std::size_t(k)]; }
        /// The class of a position, or none where it takes one unit.
        const UnitClass *unitClass(qsizetype k) const
        {
            return m_classes.empty() ? nullptr : m_classes[std::size_t(k)].get();
        }

    private:
        std::vector<char16_t> m_units;
        std::vector<UnitClassPtr> m_classes; // empty while every position is one unit
    };

    explicit ItemTextQuery(std::function<bool(const CItem &)> accepts);

    /// The fold of one UTF-16 unit as the index holds it (QChar::toCaseFolded), or 0 for a unit that makes a text
    /// irregular.
    static char16_t fold(char16_t unit);
    /// The folded units of every unit that `test` takes (the units that make a text irregular left out).
    static UnitClassPtr unitClass(const std::function<bool(char16_t unit)> &test);

    /// One pattern of `anyOf` must occur in its field.
    void require(std::vector<std::pair<Field, Pattern>> anyOf);
    const std::vector<std::vector<std::pair<Field, Pattern>>> &clauses() const { return m_clauses; }
    bool accepts(const CItem &item) const { return m_accepts(item); }

private:
    std::function<bool(const CItem &)> m_accepts;
    std::vector<std::vector<std::pair<Field, Pattern>>> m_clauses;
};

#endif
