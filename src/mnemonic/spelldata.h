#ifndef QUILLON_SPELLDATA_H
#define QUILLON_SPELLDATA_H

// The generated reading data behind the mnemonic codes (spelldata.cpp, written by tools/gen-spell-data.py).

#include <cstddef>
#include <cstdint>

namespace SpellData {

/// Every initial of a character's readings, as bits over the letter table "abcdefghjklmnopqrstwxyz".
struct CharInitials
{
    char16_t character;
    std::uint32_t mask;
};

/// Per letter of the table, the second-level characters whose main reading starts with it, each followed by a
/// blank, in pinyin order (a few placed as the lists have always had them; 亟 and 嗒 stand in two lists).
extern const char16_t *const kExtraLists[23];
/// The same for the other characters outside the first-level range that have a reading; searched after the
/// extra-character lists.
extern const char16_t *const kFallbackLists[23];
/// Every GBK character that has a reading, in code order.
extern const CharInitials kAllInitials[];
extern const std::size_t kAllInitialsCount;

} // namespace SpellData

#endif
