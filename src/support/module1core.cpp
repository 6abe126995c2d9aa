#include "module1core.h"

#include "currency.h"
#include "inifile.h"
#include "prompt.h"
#include "sqlvalue.h"

#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

namespace Module1 {

namespace {

QString s_errDescription;

// Leading and trailing blanks (spaces only, not tabs) removed.
QStringView trimBlanks(QStringView text)
{
    while (!text.isEmpty() && text.front() == u' ') {
        text = text.mid(1);
    }
    while (!text.isEmpty() && text.back() == u' ') {
        text.chop(1);
    }
    return text;
}

// The whole text as a number text, or nothing when anything but blanks follows it.
std::optional<QString> wholeNumber(const QString &text)
{
    const QString trimmed = text.trimmed();
    if (trimmed.isEmpty()) {
        return std::nullopt;
    }
    bool ok = false;
    trimmed.toDouble(&ok);
    if (!ok) {
        return std::nullopt;
    }
    return trimmed;
}

// The number a value holds, as text that Currency reads exactly.
std::optional<QString> decimalOf(const QVariant &value)
{
    if (value.metaType() == QMetaType::fromType<Currency>()) {
        return value.value<Currency>().toString();
    }
    switch (value.metaType().id()) {
    case QMetaType::Bool:
        return value.toBool() ? u"-1"_s : u"0"_s;
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::Short:
    case QMetaType::UShort:
    case QMetaType::Long:
    case QMetaType::ULong:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
        return value.toString();
    case QMetaType::Float:
    case QMetaType::Double: {
        const double d = value.toDouble();
        if (!std::isfinite(d)) {
            return std::nullopt;
        }
        // The shortest text that reads back to the same double is the value the user meant.
        return value.metaType().id() == QMetaType::Float ? SqlValue::singleToString(value.toFloat())
                                                         : QString::number(d, 'g', QLocale::FloatingPointShortest);
    }
    default:
        return wholeNumber(value.toString());
    }
}

} // namespace

void SetErr(const QString &description)
{
    s_errDescription = description;
}

void ClearErr()
{
    s_errDescription.clear();
}

QString ErrDescription()
{
    return s_errDescription;
}

QString ShowInput(const QString &prompt, QString &title, const QString &defaultText)
{
    if (title.isEmpty()) {
        title = CPrompt::applicationTitle();
    }
    return CPrompt::current().InputBox(prompt, title, defaultText).value_or(QString());
}

QString ErrMsgText(const QString &message, const QString &description)
{
    return (message.isEmpty() ? u"错误"_s : message) + u"\r\n"_s + description;
}

int ShowErrMsg(const QString &message)
{
    return CPrompt::current().MsgBox(ErrMsgText(message, s_errDescription), CPrompt::vbExclamation, QString());
}

QString IniFilePath(const QString &file)
{
    if (file.isEmpty() || file.contains(u'/') || QDir::isAbsolutePath(file)) {
        return file;
    }
    // Like the profile functions' own folder for a bare name: one place whatever folder the program runs in.
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + u"/quillon/"_s + file;
}

QString GetIniString(const QString &section, const QString &key, const QString &file, const QString &defaultValue)
{
    const QString value = IniFile::load(IniFilePath(file)).value(section, key).value_or(defaultValue);
    // The value arrives in a 256-character buffer that ends with a NUL.
    return TrimNullString(value.left(255) + QChar(0));
}

qint32 SetIniString(const QString &section, const QString &key, const QString &file, const QString &value)
{
    const QString path = IniFilePath(file);
    IniFile ini = IniFile::load(path);
    ini.setValue(section, key, value);
    if (path != file) {
        QDir().mkpath(QFileInfo(path).absolutePath());
    }
    return ini.save(path) ? 1 : 0;
}

QString TrimNullString(const QString &text)
{
    const qsizetype nul = text.indexOf(QChar(0));
    // Without a NUL the text is kept as it always worked: cut to the length of its trimmed form, measured from
    // the start.
    const QString cut = nul >= 0 ? text.left(nul) : text.left(trimBlanks(text).size());
    return trimBlanks(cut).toString();
}

QVariant NullToZero(const QVariant &value)
{
    if (!value.isValid() || value.isNull()) {
        return QVariant::fromValue(qint16(0));
    }
    return value;
}

QString ValText(QStringView text)
{
    return Currency::valText(text);
}

double Val(QStringView text)
{
    return ValText(text).toDouble();
}

namespace {

bool isCurrencySign(QChar c)
{
    return c == u'¥' || c == u'￥' || c == u'$';
}

QStringView trimSpaces(QStringView text)
{
    while (!text.isEmpty() && text.front().isSpace()) {
        text = text.mid(1);
    }
    while (!text.isEmpty() && text.back().isSpace()) {
        text.chop(1);
    }
    return text;
}

// A whole &H or &O number; the hexadecimal one is a 32-bit two's complement value (&HFFFFFFFF is -1).
std::optional<double> radixValue(QStringView digits)
{
    int radix = 8;
    if (!digits.isEmpty() && (digits.front() == u'H' || digits.front() == u'h')) {
        radix = 16;
        digits = digits.mid(1);
    } else if (!digits.isEmpty() && (digits.front() == u'O' || digits.front() == u'o')) {
        digits = digits.mid(1);
    }
    if (digits.isEmpty() || digits.size() > (radix == 16 ? 8 : 11)) {
        return std::nullopt;
    }
    quint64 value = 0;
    for (const QChar c : digits) {
        const int digit = c.isDigit() && c.unicode() < 128              ? c.unicode() - u'0'
            : radix == 16 && c.toLower() >= u'a' && c.toLower() <= u'f' ? c.toLower().unicode() - u'a' + 10
                                                                        : 99;
        if (digit >= radix) {
            return std::nullopt;
        }
        value = value * quint64(radix) + quint64(digit);
    }
    if (value > 0xFFFFFFFFu) {
        return std::nullopt;
    }
    return radix == 16 ? double(qint32(quint32(value))) : double(value);
}

} // namespace

std::optional<double> NumericValue(QStringView text)
{
    text = trimSpaces(text);
    if (text.size() > 1 && text.front() == u'&') {
        return radixValue(text.mid(1));
    }
    bool negative = false;
    bool signed_ = false;
    bool currency = false;
    if (text.size() > 1 && text.front() == u'(' && text.back() == u')') {
        negative = true;
        signed_ = true;
        text = trimSpaces(text.mid(1, text.size() - 2));
    }
    // Leading signs: at most one sign and one currency sign, in either order.
    for (;;) {
        if (!text.isEmpty() && !signed_ && (text.front() == u'+' || text.front() == u'-')) {
            negative = text.front() == u'-';
            signed_ = true;
        } else if (!text.isEmpty() && !currency && isCurrencySign(text.front())) {
            currency = true;
        } else {
            break;
        }
        text = trimSpaces(text.mid(1));
    }
    for (;;) {
        if (!text.isEmpty() && !signed_ && (text.back() == u'+' || text.back() == u'-')) {
            negative = text.back() == u'-';
            signed_ = true;
        } else if (!text.isEmpty() && !currency && isCurrencySign(text.back())) {
            currency = true;
        } else {
            break;
        }
        text.chop(1);
        text = trimSpaces(text);
    }
    QString plain;
    plain.reserve(text.size() + 1);
    qsizetype i = 0;
    int digits = 0;
    auto isDigit = [&](qsizetype at) {
        return at < text.size() && text[at].unicode() >= u'0' && text[at].unicode() <= u'9';
    };
    for (; i < text.size(); ++i) {
        if (isDigit(i)) {
            plain += text[i];
            ++digits;
        } else if (text[i] != u',' || digits == 0) {
            break;
        }
    }
    if (i < text.size() && text[i] == u'.') {
        plain += u'.';
        for (++i; isDigit(i); ++i) {
            plain += text[i];
            ++digits;
        }
    }
    if (digits == 0) {
        return std::nullopt;
    }
    if (i < text.size() && QStringView(u"eEdD").contains(text[i])) {
        plain += u'e';
        ++i;
        if (i < text.size() && (text[i] == u'+' || text[i] == u'-')) {
            plain += text[i++];
        }
        if (!isDigit(i)) {
            return std::nullopt;
        }
        for (; isDigit(i); ++i) {
            plain += text[i];
        }
    }
    if (i != text.size()) {
        return std::nullopt;
    }
    bool ok = false;
    const double value = plain.toDouble(&ok);
    if (!ok || !std::isfinite(value)) {
        return std::nullopt;
    }
    return negative ? -value : value;
}

bool IsNumeric(QStringView text)
{
    return NumericValue(text).has_value();
}

QString FormatAmount(const QVariant &value, bool blankIfZero, bool fourDecimals)
{
    if (!value.isValid() || value.isNull()) {
        return QString();
    }
    const int decimals = fourDecimals ? 4 : 2;
    const std::optional<QString> number = decimalOf(value);
    if (!number) {
        return value.toString();
    }
    if (blankIfZero && Currency::isZeroText(*number)) {
        return QString();
    }
    return Currency::roundText(*number, decimals);
}

bool CheckNumberRules(const QString &text, const QString &fieldName, bool mustBeNonZero, QString &textOut,
                      QVariant &valueOut, bool mustBeFilled, QString *message)
{
    const QString refused = u"请输入正确的["_s + fieldName + u"]!"_s;
    if (mustBeFilled && text.trimmed().isEmpty()) {
        if (message) {
            *message = refused;
        }
        return false;
    }
    textOut = text;
    if (mustBeNonZero && Currency::isZeroText(text)) {
        if (message) {
            *message = refused;
        }
        return false;
    }
    valueOut = Currency::valText(text).toDouble();
    return true;
}

QString ZeroToBlank(const QVariant &value)
{
    QString text;
    if (value.metaType() == QMetaType::fromType<Currency>()) {
        text = value.value<Currency>().toString();
    } else if (value.metaType().id() == QMetaType::Float) {
        text = SqlValue::singleToString(value.toFloat());
    } else if (value.metaType().id() == QMetaType::Double) {
        text = QString::number(value.toDouble(), 'g', QLocale::FloatingPointShortest);
    } else {
        text = value.toString();
    }
    return Currency::isZeroText(text) ? QString() : text;
}

} // namespace Module1

QString Module1::LibraryVersion()
{
    return QStringLiteral(QUILLON_VERSION_STRING);
}
