#!/usr/bin/env python3
"""Writes src/mnemonic/spelldata.cpp: the GB2312 first-level characters in code order, the extra-character lists
of the mnemonic codes and every initial of each GBK character, from the Unihan data of Debian's unicode-data
package.

    tools/gen-spell-data.py [Unihan directory] [output.cpp]

Each extra-character list holds exactly SIZES[letter] characters outside the first-level range 0xB0A1-0xD7F9,
each under the initial of its main reading (the first kMandarin value), in pinyin order. The GB2312 second-level
characters come first; a list with room left takes the other GBK characters of its letter, the commonest first
(rank in the general standard table kTGH, then kFrequency, then code); a list with more second-level characters
than its size keeps the commonest of them. A few characters are placed as the lists have always had them (PINNED,
MAIN_READING, SECOND_LIST). A character in no list has no mnemonic letter. Every initial of every reading
(kMandarin, kXHC1983 and kTGHZ2013 together) is kept for matching typed codes.
"""
import bz2
import os
import sys
import unicodedata

LETTERS = "abcdefghjklmnopqrstwxyz"
FIRST_LEVEL = (0xB0A1, 0xD7F9)
SECOND_LEVEL = (0xD8, 0xF7)  # lead bytes; trail bytes 0xA1-0xFE
FIELDS = ("kMandarin", "kXHC1983", "kTGHZ2013")

# Characters per list, blanks not counted (3,224 in all, 亟 and 嗒 counted in both their lists).
SIZES = dict(a=34, b=143, c=194, d=149, e=26, f=83, g=151, h=153, j=243, k=100, l=234, m=133, n=80, o=4, p=109,
             q=175, r=38, s=205, t=159, w=92, x=181, y=296, z=242)
# The first characters of some lists, in the lists' own order; list o holds exactly its four.
PINNED = {"a": "锕捱嗳嗌", "o": "讴怄瓯耦", "z": "咂甾拶瓒"}
# Main readings as the lists have them, where Unihan's first kMandarin value differs.
MAIN_READING = {"喔": "wō", "噢": None}  # None: left to the fallback lists
# The characters the lists hold twice: the second list, besides the one of the main reading.
SECOND_LIST = {"亟": "q", "嗒": "t"}


def readings_of(field, value):
    if field == "kMandarin":
        return value.split()
    out = []
    for entry in value.split():
        _, _, rest = entry.partition(":")
        out.extend(r for r in rest.split(",") if r)
    return out


def toneless(reading):
    """The reading without tone marks, and its tone (0 for none): 'jí' -> ('ji', 2)."""
    plain = []
    tone = 0
    for ch in unicodedata.normalize("NFD", reading.lower()):
        mark = {"\u0304": 1, "\u0301": 2, "\u030c": 3, "\u0300": 4}.get(ch)
        if mark:
            tone = mark
        elif unicodedata.category(ch) != "Mn":
            plain.append(ch)
    return "".join(plain), tone


def load_readings(path):
    opener = bz2.open if path.endswith(".bz2") else open
    readings = {}
    with opener(path, "rt", encoding="utf-8") as f:
        for line in f:
            if line.startswith("#") or not line.strip():
                continue
            code, field, value = line.rstrip("\n").split("\t", 2)
            if field not in FIELDS:
                continue
            ch = chr(int(code[2:], 16))
            lst = readings.setdefault(ch, {})
            for r in readings_of(field, value):
                lst.setdefault(field, [])
                if r not in lst[field]:
                    lst[field].append(r)
    merged = {}
    for ch, per_field in readings.items():
        order = []
        for field in FIELDS:
            for r in per_field.get(field, []):
                if r not in order:
                    order.append(r)
        merged[ch] = order
    return merged


def gbk_characters():
    for lead in range(0x81, 0xFF):
        for trail in range(0x40, 0xFF):
            if trail == 0x7F:
                continue
            try:
                ch = bytes([lead, trail]).decode("gbk")
            except UnicodeDecodeError:
                continue
            if len(ch) == 1 and ord(ch) <= 0xFFFF:
                yield (lead << 8) | trail, ch


def literal(text):
    return 'u"' + text.replace("\\", "\\\\").replace('"', '\\"') + '"'


def second_level(code):
    return SECOND_LEVEL[0] <= code >> 8 <= SECOND_LEVEL[1] and (code & 0xFF) >= 0xA1


def write_lists(out, name, lists):
    out.append("const char16_t *const %s[23] = {" % name)
    for letter in LETTERS:
        chars = [ch + " " for ch in lists[letter]]
        out.append("    // %s: %d" % (letter, len(chars)))
        if not chars:
            out.append('    u"",')
            continue
        for i in range(0, len(chars), 32):
            piece = literal("".join(chars[i:i + 32]))
            out.append("    " + piece + ("," if i + 32 >= len(chars) else ""))
    out.append("};")
    out.append("")


def load_field(path, field):
    values = {}
    with bz2.open(path, "rt", encoding="utf-8") as f:
        for line in f:
            if not line.startswith("U+"):
                continue
            code, name, value = line.rstrip("\n").split("\t", 2)
            if name == field:
                values[chr(int(code[2:], 16))] = value
    return values


def first_level_characters():
    """The GB2312 first-level characters in code order, from 0xB0A1 to 0xD7F9."""
    out = []
    for lead in range(FIRST_LEVEL[0] >> 8, (FIRST_LEVEL[1] >> 8) + 1):
        for trail in range(0xA1, 0xFF):
            code = (lead << 8) | trail
            if code > FIRST_LEVEL[1]:
                break
            ch = bytes([lead, trail]).decode("gbk")
            assert len(ch) == 1 and ord(ch) >= 0x4E00, hex(code)
            out.append(ch)
    return "".join(out)


def main():
    source = sys.argv[1] if len(sys.argv) > 1 else "/usr/share/unicode"
    here = os.path.dirname(os.path.abspath(__file__))
    target = sys.argv[2] if len(sys.argv) > 2 else os.path.join(here, "..", "src", "mnemonic", "spelldata.cpp")
    readings = load_readings(os.path.join(source, "Unihan_Readings.txt.bz2"))
    tgh = {ch: int(v.split(":")[1]) for ch, v in
           load_field(os.path.join(source, "Unihan_OtherMappings.txt.bz2"), "kTGH").items()}
    frequency = {ch: int(v) for ch, v in
                 load_field(os.path.join(source, "Unihan_DictionaryLikeData.txt.bz2"), "kFrequency").items()}
    pinned = {ch: letter for letter, chars in PINNED.items() for ch in chars}

    candidates = {letter: [] for letter in LETTERS}
    masks = {}
    for code, ch in gbk_characters():
        rs = readings.get(ch)
        if not rs:
            continue
        initials = []
        for r in rs:
            plain, _ = toneless(r)
            if plain and plain[0] in LETTERS and plain[0] not in initials:
                initials.append(plain[0])
        if not initials:
            continue
        masks[ord(ch)] = sum(1 << LETTERS.index(i) for i in initials)
        if FIRST_LEVEL[0] <= code <= FIRST_LEVEL[1] or ch in pinned:
            continue
        main_reading = MAIN_READING.get(ch, rs[0])
        if main_reading is None:
            continue
        plain, tone = toneless(main_reading)
        letter = plain[0] if plain else ""
        if letter not in LETTERS:
            continue
        rank = (0 if second_level(code) else 1, tgh.get(ch, 99999), frequency.get(ch, 9), code)
        for target_letter in (letter, SECOND_LIST.get(ch)):
            if target_letter:
                candidates[target_letter].append((rank, (plain, tone, code, ch)))

    lists = {}
    for letter in LETTERS:
        head = PINNED.get(letter, "")
        room = SIZES[letter] - len(head)
        chosen = [entry for _, entry in sorted(candidates[letter])[:room]]
        if len(chosen) != room:
            sys.exit("list %s: %d characters for %d places" % (letter, len(chosen), room))
        lists[letter] = list(head) + [ch for _, _, _, ch in sorted(chosen)]
    for ch, second in SECOND_LIST.items():
        assert sum(ch in v for v in lists.values()) == 2 and ch in lists[second], ch

    out = []
    out.append("// Generated by tools/gen-spell-data.py from the Unihan data (kMandarin, kXHC1983, kTGHZ2013, kTGH,")
    out.append("// kFrequency). Do not edit; run the script again instead.")
    out.append("// clang-format off")
    out.append('#include "spelldata.h"')
    out.append("")
    out.append("namespace SpellData {")
    out.append("")
    level_one = first_level_characters()
    out.append("const char16_t kFirstLevel[] =")
    for i in range(0, len(level_one), 94):
        out.append("    " + literal(level_one[i:i + 94]) + (";" if i + 94 >= len(level_one) else ""))
    out.append("const std::size_t kFirstLevelCount = %d;" % len(level_one))
    out.append("")
    write_lists(out, "kExtraLists", lists)
    out.append("const CharInitials kAllInitials[] = {")
    row = []
    for cp in sorted(masks):
        row.append("{0x%04X, 0x%06X}" % (cp, masks[cp]))
        if len(row) == 6:
            out.append("    " + ", ".join(row) + ",")
            row = []
    if row:
        out.append("    " + ", ".join(row) + ",")
    out.append("};")
    out.append("")
    out.append("const std::size_t kAllInitialsCount = sizeof(kAllInitials) / sizeof(kAllInitials[0]);")
    out.append("")
    out.append("} // namespace SpellData")
    with open(target, "w", encoding="utf-8") as f:
        f.write("\n".join(out) + "\n")
    total = sum(len(v) for v in lists.values())
    print("%d first-level characters, %d list entries, %d characters with initials -> %s"
          % (len(level_one), total, len(masks), target))


if __name__ == "__main__":
    main()
