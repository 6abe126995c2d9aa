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

/// The GB2312 first-level characters in code order: entry i has the code 0xB0A1 + (i / 94) * 0x100 + i % 94.
extern const char16_t kFirstLevel[];
extern const std::size_t kFirstLevelCount;
/// Per letter of the table, the characters outside the first-level range whose main reading starts with it, each
/// followed by a blank, in pinyin order: the second-level characters, then the commonest other GBK characters,
/// to a fixed size per letter (a few placed as the lists have always had them; 亟 and 嗒 stand in two lists).
extern const char16_t *const kExtraLists[23];
/// Every GBK character that has a reading, in code order.
extern const CharInitials kAllInitials[];
extern const std::size_t kAllInitialsCount;

} // namespace SpellData

#endif
