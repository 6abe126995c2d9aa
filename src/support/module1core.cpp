#include "module1core.h"

#include "currency.h"
#include "inifile.h"
#include "prompt.h"
#include "sqlvalue.h"

#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

namespace Module1 {

namespace {

QString s_errDescription;

// A decimal number as digits × 10^exponent, exact.
struct Decimal
{
    bool negative = false;
    QString digits; // no leading zeros; empty for zero
    int exponent = 0;

    bool isZero() const { return digits.isEmpty(); }

    static Decimal fromParts(bool negative, QString intDigits, const QString &fracDigits, int exponent)
    {
        Decimal d;
        QString all = intDigits + fracDigits;
        exponent -= int(fracDigits.size());
        qsizetype lead = 0;
        while (lead < all.size() && all.at(lead) == u'0') {
            ++lead;
        }
        all = all.mid(lead);
        while (!all.isEmpty() && all.back() == u'0') {
            all.chop(1);
            ++exponent;
        }
        d.digits = all;
        d.exponent = all.isEmpty() ? 0 : exponent;
        d.negative = negative && !all.isEmpty();
        return d;
    }

    // Rounded half away from zero to `decimals` places, as "[-]int.frac".
    QString toFixed(int decimals) const
    {
        QString integer;
        const int shift = exponent + decimals;
        if (isZero()) {
            integer = u"0"_s;
        } else if (shift >= 0) {
            integer = digits + QString(shift, u'0');
        } else {
            const qsizetype keep = digits.size() + shift;
            const QChar firstDropped = keep >= 0 ? digits.at(keep) : u'0';
            integer = keep > 0 ? digits.left(keep) : u"0"_s;
            if (firstDropped >= u'5') {
                qsizetype i = integer.size() - 1;
                while (i >= 0 && integer.at(i) == u'9') {
                    integer[i] = u'0';
                    --i;
                }
                if (i < 0) {
                    integer.prepend(u'1');
                } else {
                    integer[i] = QChar(integer.at(i).unicode() + 1);
                }
            }
        }
        if (integer.size() < decimals + 1) {
            integer = QString(decimals + 1 - integer.size(), u'0') + integer;
        }
        QString text = integer.left(integer.size() - decimals);
        if (decimals > 0) {
            text += u'.' + integer.right(decimals);
        }
        const bool allZero = std::none_of(text.cbegin(), text.cend(), [](QChar c) { return c >= u'1' && c <= u'9'; });
        return (negative && !allZero) ? u'-' + text : text;
    }

    QString toPlain() const
    {
        if (isZero()) {
            return u"0"_s;
        }
        QString text;
        if (exponent >= 0) {
            text = digits + QString(exponent, u'0');
        } else {
            const qsizetype point = digits.size() + exponent;
            if (point > 0) {
                text = digits.left(point) + u'.' + digits.mid(point);
            } else {
                text = u"0."_s + QString(-point, u'0') + digits;
            }
        }
        return negative ? u'-' + text : text;
    }
};

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

bool isValBlank(QChar c)
{
    return c == u' ' || c == u'\t' || c == u'\n' || c == u'\r';
}

// The leading number of a text as the classic Val() reads it.
Decimal leadingNumber(QStringView text)
{
    QString s;
    s.reserve(text.size());
    for (QChar c : text) {
        if (!isValBlank(c)) {
            s.append(c);
        }
    }
    if (s.size() >= 2 && s.at(0) == u'&') {
        const QChar kind = s.at(1).toUpper();
        const int base = kind == u'H' ? 16 : kind == u'O' ? 8 : 0;
        if (base != 0) {
            qsizetype i = 2;
            qint64 value = 0;
            while (i < s.size()) {
                bool ok = false;
                const int d = QString(s.at(i)).toInt(&ok, base);
                if (!ok || value > (Q_INT64_C(1) << 58)) {
                    break;
                }
                value = value * base + d;
                ++i;
            }
            return Decimal::fromParts(false, QString::number(value), QString(), 0);
        }
    }
    qsizetype i = 0;
    bool negative = false;
    if (i < s.size() && (s.at(i) == u'-' || s.at(i) == u'+')) {
        negative = s.at(i) == u'-';
        ++i;
    }
    auto isDigit = [&](qsizetype k) {
        return k < s.size() && s.at(k) >= u'0' && s.at(k) <= u'9';
    };
    QString intDigits;
    while (isDigit(i)) {
        intDigits.append(s.at(i++));
    }
    QString fracDigits;
    if (i < s.size() && s.at(i) == u'.') {
        ++i;
        while (isDigit(i)) {
            fracDigits.append(s.at(i++));
        }
    }
    int exponent = 0;
    if ((!intDigits.isEmpty() || !fracDigits.isEmpty()) && i < s.size() && QStringView(u"eEdD").contains(s.at(i))) {
        qsizetype j = i + 1;
        bool expNegative = false;
        if (j < s.size() && (s.at(j) == u'-' || s.at(j) == u'+')) {
            expNegative = s.at(j) == u'-';
            ++j;
        }
        if (isDigit(j)) {
            int e = 0;
            while (isDigit(j)) {
                e = std::min(e * 10 + (s.at(j).unicode() - u'0'), 400);
                ++j;
            }
            exponent = expNegative ? -e : e;
        }
    }
    return Decimal::fromParts(negative, intDigits, fracDigits, exponent);
}

// The whole text as a number, or nothing when anything but blanks follows it.
std::optional<Decimal> wholeNumber(const QString &text)
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
    return leadingNumber(trimmed);
}

std::optional<Decimal> decimalOf(const QVariant &value)
{
    if (value.metaType() == QMetaType::fromType<Currency>()) {
        return leadingNumber(value.value<Currency>().toString());
    }
    switch (value.metaType().id()) {
    case QMetaType::Bool:
        return leadingNumber(value.toBool() ? u"-1" : u"0");
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::Short:
    case QMetaType::UShort:
    case QMetaType::Long:
    case QMetaType::ULong:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
        return leadingNumber(value.toString());
    case QMetaType::Float:
    case QMetaType::Double: {
        const double d = value.toDouble();
        if (!std::isfinite(d)) {
            return std::nullopt;
        }
        // The shortest text that reads back to the same double is the value the user meant.
        return leadingNumber(value.metaType().id() == QMetaType::Float
                                 ? SqlValue::singleToString(value.toFloat())
                                 : QString::number(d, 'g', QLocale::FloatingPointShortest));
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

QString GetIniString(const QString &section, const QString &key, const QString &file, const QString &defaultValue)
{
    const QString value = IniFile::load(file).value(section, key).value_or(defaultValue);
    // The value arrives in a 256-character buffer that ends with a NUL.
    return TrimNullString(value.left(255) + QChar(0));
}

qint32 SetIniString(const QString &section, const QString &key, const QString &file, const QString &value)
{
    IniFile ini = IniFile::load(file);
    ini.setValue(section, key, value);
    return ini.save(file) ? 1 : 0;
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
    return leadingNumber(text).toPlain();
}

double Val(QStringView text)
{
    return ValText(text).toDouble();
}

QString FormatAmount(const QVariant &value, bool blankIfZero, bool fourDecimals)
{
    if (!value.isValid() || value.isNull()) {
        return QString();
    }
    const int decimals = fourDecimals ? 4 : 2;
    const std::optional<Decimal> number = decimalOf(value);
    if (!number) {
        return value.toString();
    }
    if (number->isZero() && blankIfZero) {
        return QString();
    }
    return number->toFixed(decimals);
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
    const Decimal number = leadingNumber(text);
    if (mustBeNonZero && number.isZero()) {
        if (message) {
            *message = refused;
        }
        return false;
    }
    valueOut = number.toPlain().toDouble();
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
    return leadingNumber(text).isZero() ? QString() : text;
}

} // namespace Module1

QString Module1::LibraryVersion()
{
    return QStringLiteral(QUILLON_VERSION_STRING);
}
