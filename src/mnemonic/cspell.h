#ifndef QUILLON_CSPELL_H
#define QUILLON_CSPELL_H

#include "quillon_export.h"

#include <QString>
#include <QStringView>

/**
 * Mnemonic codes (助记符): one character of output per UTF-16 unit of a name, Chinese characters becoming the
 * initial of their pinyin reading, keyboard characters passing through, anything else "!".
 *
 * Pure and stateless; the look-up table is built once on first use and shared by all threads. No full pinyin, no
 * tones, no word-level choice between readings (initials() lists every reading's initial).
 */
class QUILLON_EXPORT CSpell
{
public:
    CSpell() = default;

    /// The mnemonic code of `tmpStr`, exactly as long as it.
    QString GetPy(const QString &tmpStr) const { return py(tmpStr); }

    static QString py(QStringView text);
    /// The code of one UTF-16 unit.
    static QChar codeOf(QChar c);
    /// The extra-character list of a letter of the table, each character followed by a blank; empty for a letter
    /// outside the table.
    static QString ExtraList(QChar letter);
    /// Every initial of a character's readings, in the order of the letter table ("jq" for 亟); empty for a
    /// character without a reading.
    static QString initials(QChar c);
    /// True when `code` (letters typed by a clerk, any case) matches a run of `name`'s characters: each typed
    /// letter is the character itself or the initial of one of its readings (so 长城 matches "cc" and "zc").
    /// Other typed characters match themselves. An empty code matches every name.
    static bool MatchCode(QStringView name, QStringView code);
    /// Whether one typed unit of a code matches one unit of a name as MatchCode compares them: a letter (any case)
    /// the unit's code or the initial of one of its readings, anything else the unit itself, without case.
    static bool codeUnitMatches(QChar typed, QChar nameUnit);
};

#endif
