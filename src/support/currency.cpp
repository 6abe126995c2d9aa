#include "currency.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>

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

} // namespace

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
