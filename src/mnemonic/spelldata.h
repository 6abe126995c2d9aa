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

/// Per letter of the table, the characters outside the first-level range whose reading starts with it, each
/// followed by a blank, in pinyin order.
extern const char16_t *const kExtraLists[23];
/// Every GBK character that has a reading, in code order.
extern const CharInitials kAllInitials[];
extern const std::size_t kAllInitialsCount;

} // namespace SpellData

#endif
