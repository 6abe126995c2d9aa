#ifndef QUILLON_MODULE1CORE_H
#define QUILLON_MODULE1CORE_H

#include "quillon_export.h"

#include <QString>
#include <QStringList>
#include <QStringView>
#include <QVariant>

#include <optional>

/**
 * The widget-free helpers that every layer shares: the pending error and the one error box, the input box, ini
 * access, number parsing and formatting. Boxes go through CPrompt::current(); nothing here touches a widget
 * (the window helpers are in module1.h).
 */
namespace Module1 {

/// The pending error that ShowErrMsg reports, as the error that an operation trapped last.
QUILLON_EXPORT void SetErr(const QString &description);
QUILLON_EXPORT void ClearErr();
QUILLON_EXPORT QString ErrDescription();

/// Asks for one value; `title` becomes the application's title when empty. Empty text when cancelled.
QUILLON_EXPORT QString ShowInput(const QString &prompt, QString &title, const QString &defaultText);

/// The text of the error box: the message (or "错误" when empty), CR LF, the error description.
QUILLON_EXPORT QString ErrMsgText(const QString &message, const QString &description);
/// Shows ErrMsgText(message, pending error) with the exclamation icon and OK only; returns the answer.
QUILLON_EXPORT int ShowErrMsg(const QString &message);

/// Where GetIniString and SetIniString find an ini file: a bare name (no folder) in the per-user configuration
/// folder "quillon", any other name as it is given.
QUILLON_EXPORT QString IniFilePath(const QString &file);
/// One key of an ini file, at most 255 characters and trimmed; `defaultValue` when the key or file is missing.
QUILLON_EXPORT QString GetIniString(const QString &section, const QString &key, const QString &file,
                                    const QString &defaultValue);
/// Writes one key of an ini file, creating the file; nonzero on success, 0 on failure (never reported).
QUILLON_EXPORT qint32 SetIniString(const QString &section, const QString &key, const QString &file,
                                   const QString &value);

/// Cuts a text at its first NUL (or, without one, to the length of its trimmed form) and trims blanks.
QUILLON_EXPORT QString TrimNullString(const QString &text);

/// A database NULL becomes the 16-bit integer 0; anything else is returned unchanged.
QUILLON_EXPORT QVariant NullToZero(const QVariant &value);

/// The exact decimal value of the number that `text` starts with, blanks, tabs and line feeds ignored anywhere
/// ("12abc" is "12", "abc" is "0", "&H1F" is "31"), in plain notation without exponent.
QUILLON_EXPORT QString ValText(QStringView text);
/// ValText as a binary floating-point number.
QUILLON_EXPORT double Val(QStringView text);

/// The value of a text that is wholly a number, as the general numeric test reads it: blanks around it, a sign
/// before or after it or parentheses for a negative one, a currency sign (¥, ￥ or $), thousands separators in the
/// integer part, a decimal point, an exponent with E or D, or a whole &H (hexadecimal) or &O (octal) number.
/// Nothing for any other text, the empty one included.
QUILLON_EXPORT std::optional<double> NumericValue(QStringView text);
/// True when NumericValue reads a number.
QUILLON_EXPORT bool IsNumeric(QStringView text);

/// "#0.00" (or "#0.0000") formatting, rounding half away from zero; zero gives the empty text when `blankIfZero`.
/// A text that is not a number is returned as it is; NULL gives the empty text.
QUILLON_EXPORT QString FormatAmount(const QVariant &value, bool blankIfZero, bool fourDecimals);

/// The rules of CheckNumberText without a widget: false with `message` set when the text is refused.
QUILLON_EXPORT bool CheckNumberRules(const QString &text, const QString &fieldName, bool mustBeNonZero,
                                     QString &textOut, QVariant &valueOut, bool mustBeFilled, QString *message);
/// The empty text when the value's leading number is zero, else the value as text.
QUILLON_EXPORT QString ZeroToBlank(const QVariant &value);

/// The library's version, as "major.minor.patch".
QUILLON_EXPORT QString LibraryVersion();

} // namespace Module1

#endif
