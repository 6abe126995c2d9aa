#include "currency.h"

#include <QString>

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>

using namespace Qt::StringLiterals;

namespace {

using Wide = __int128;

constexpr Wide kMax = std::numeric_limits<std::int64_t>::max();
constexpr Wide kMin = std::numeric_limits<std::int64_t>::min();

std::int64_t checked(Wide value)
{
    if (value > kMax || value < kMin) {
        throw std::overflow_error("currency overflow");
    }
    return static_cast<std::int64_t>(value);
}

// Divides rounding half away from zero; divisor > 0.
Wide divideRounded(Wide value, Wide divisor)
{
    const Wide q = value / divisor;
    const Wide r = value % divisor;
    if (r == 0) {
        return q;
    }
    const Wide twice = (r < 0 ? -r : r) * 2;
    if (twice >= divisor) {
        return value < 0 ? q - 1 : q + 1;
    }
    return q;
}

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

} // namespace

QString Currency::valText(QStringView text)
{
    return leadingNumber(text).toPlain();
}

bool Currency::isZeroText(QStringView text)
{
    return leadingNumber(text).isZero();
}

QString Currency::roundText(QStringView text, int decimals)
{
    return leadingNumber(text).toFixed(std::max(decimals, 0));
}

Currency Currency::fromInteger(std::int64_t units)
{
    return fromScaled(checked(Wide(units) * Scale));
}

std::optional<Currency> Currency::fromString(QStringView text)
{
    text = text.trimmed();
    qsizetype i = 0;
    bool negative = false;
    if (i < text.size() && (text[i] == u'-' || text[i] == u'+')) {
        negative = text[i] == u'-';
        ++i;
    }
    // Digits are collected as an integer mantissa with a decimal exponent; 40 significant digits are plenty
    // for the 64-bit range and keep the 128-bit accumulator from overflowing.
    Wide mantissa = 0;
    int exponent = 0;
    int significant = 0;
    bool anyDigit = false;
    auto addDigit = [&](int d, bool fraction) {
        anyDigit = true;
        if (significant < 36) {
            if (mantissa != 0 || d != 0) {
                ++significant;
            }
            mantissa = mantissa * 10 + d;
            if (fraction) {
                --exponent;
            }
        } else if (!fraction) {
            ++exponent;
        }
    };
    while (i < text.size() && text[i].isDigit() && text[i].unicode() < 128) {
        addDigit(text[i].unicode() - u'0', false);
        ++i;
    }
    if (i < text.size() && text[i] == u'.') {
        ++i;
        while (i < text.size() && text[i].unicode() >= u'0' && text[i].unicode() <= u'9') {
            addDigit(text[i].unicode() - u'0', true);
            ++i;
        }
    }
    if (!anyDigit) {
        return std::nullopt;
    }
    if (i < text.size() && (text[i] == u'e' || text[i] == u'E')) {
        ++i;
        bool expNegative = false;
        if (i < text.size() && (text[i] == u'-' || text[i] == u'+')) {
            expNegative = text[i] == u'-';
            ++i;
        }
        int e = 0;
        bool expDigit = false;
        while (i < text.size() && text[i].unicode() >= u'0' && text[i].unicode() <= u'9') {
            e = std::min(e * 10 + (text[i].unicode() - u'0'), 1000);
            expDigit = true;
            ++i;
        }
        if (!expDigit) {
            return std::nullopt;
        }
        exponent += expNegative ? -e : e;
    }
    if (i != text.size()) {
        return std::nullopt;
    }
    // Scale to four decimals.
    const int shift = exponent + 4;
    Wide scaled = mantissa;
    if (mantissa == 0) {
        scaled = 0;
    } else if (shift >= 0) {
        for (int k = 0; k < shift; ++k) {
            scaled *= 10;
            if (scaled > kMax + 1) {
                return std::nullopt;
            }
        }
    } else {
        if (-shift > 38) {
            scaled = 0;
        } else {
            Wide divisor = 1;
            for (int k = 0; k < -shift; ++k) {
                divisor *= 10;
            }
            const Wide r = scaled % divisor;
            scaled /= divisor;
            if (r * 2 >= divisor) {
                scaled += 1;
            }
        }
    }
    if (negative) {
        scaled = -scaled;
    }
    if (scaled > kMax || scaled < kMin) {
        return std::nullopt;
    }
    return fromScaled(static_cast<std::int64_t>(scaled));
}

std::optional<Currency> Currency::fromDouble(double value)
{
    if (!std::isfinite(value)) {
        return std::nullopt;
    }
    const double scaled = std::round(value * double(Scale));
    if (scaled >= 9.2233720368547758e18 || scaled < -9.2233720368547758e18) {
        return std::nullopt;
    }
    return fromScaled(static_cast<std::int64_t>(scaled));
}

QString Currency::toString() const
{
    QString s = toFixed(4);
    if (s.contains(u'.')) {
        while (s.endsWith(u'0')) {
            s.chop(1);
        }
        if (s.endsWith(u'.')) {
            s.chop(1);
        }
    }
    return s;
}

QString Currency::toFixed(int decimals) const
{
    decimals = std::clamp(decimals, 0, 4);
    Wide divisor = 1;
    for (int k = decimals; k < 4; ++k) {
        divisor *= 10;
    }
    const Wide rounded = divideRounded(Wide(m_scaled), divisor);
    const bool negative = rounded < 0;
    Wide magnitude = negative ? -rounded : rounded;
    Wide unitDivisor = 1;
    for (int k = 0; k < decimals; ++k) {
        unitDivisor *= 10;
    }
    const auto units = static_cast<unsigned long long>(magnitude / unitDivisor);
    const auto fraction = static_cast<unsigned long long>(magnitude % unitDivisor);
    QString s;
    if (negative) {
        s += u'-';
    }
    s += QString::number(units);
    if (decimals > 0) {
        s += u'.';
        s += QString::number(fraction).rightJustified(decimals, u'0');
    }
    return s;
}

double Currency::toDouble() const
{
    return double(m_scaled) / double(Scale);
}

Currency Currency::operator-() const
{
    return fromScaled(checked(-Wide(m_scaled)));
}

Currency Currency::operator+(Currency other) const
{
    return fromScaled(checked(Wide(m_scaled) + other.m_scaled));
}

Currency Currency::operator-(Currency other) const
{
    return fromScaled(checked(Wide(m_scaled) - other.m_scaled));
}

Currency Currency::operator*(Currency other) const
{
    return fromScaled(checked(divideRounded(Wide(m_scaled) * other.m_scaled, Scale)));
}
