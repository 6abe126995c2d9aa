#ifndef QUILLON_CURRENCY_H
#define QUILLON_CURRENCY_H

#include "quillon_export.h"

#include <QMetaType>
#include <QString>
#include <QStringView>

#include <compare>
#include <cstdint>
#include <optional>

/**
 * Exact fixed-point amount with four decimals, the value type of every price, debt level and money field, and
 * the one place where decimal numbers are read and rounded (also for numbers beyond an amount's range).
 *
 * Arithmetic that leaves the 64-bit range throws std::overflow_error; there is no NaN or infinity.
 */
class QUILLON_EXPORT Currency
{
public:
    static constexpr std::int64_t Scale = 10000;

    constexpr Currency() = default;

    static constexpr Currency fromScaled(std::int64_t scaled)
    {
        Currency c;
        c.m_scaled = scaled;
        return c;
    }
    static Currency fromInteger(std::int64_t units);

    /// Parses a plain decimal ("-12.5", "3", ".25", "1e3"); more than four decimals round half away from zero.
    /// Returns nothing for text that is not a whole number literal or that does not fit.
    static std::optional<Currency> fromString(QStringView text);

    /// The number a text starts with, read as the classic Val() reads it (blanks, tabs and line breaks ignored
    /// anywhere, "&H1F" and "&O17", "1D3"), exactly and of any size, in plain notation ("0" when there is none).
    static QString valText(QStringView text);
    /// Whether the number a text starts with (read as valText) is zero.
    static bool isZeroText(QStringView text);
    /// The number a text starts with (read as valText), of any size, with exactly `decimals` decimals, rounded
    /// half away from zero as every amount is.
    static QString roundText(QStringView text, int decimals);

    /// Nearest amount to a binary floating-point value, for values read from engines that only report doubles.
    static std::optional<Currency> fromDouble(double value);

    constexpr std::int64_t scaled() const { return m_scaled; }
    constexpr bool isZero() const { return m_scaled == 0; }

    /// Shortest text that reads back to the same amount ("12.5", "-3", "0.0001").
    QString toString() const;
    /// Text with exactly `decimals` (0 to 4) decimals, rounded half away from zero.
    QString toFixed(int decimals = 4) const;
    double toDouble() const;

    Currency operator-() const;
    Currency operator+(Currency other) const;
    Currency operator-(Currency other) const;
    /// Product rounded half away from zero to four decimals.
    Currency operator*(Currency other) const;
    Currency &operator+=(Currency other) { return *this = *this + other; }
    Currency &operator-=(Currency other) { return *this = *this - other; }

    friend constexpr bool operator==(Currency a, Currency b) = default;
    friend constexpr std::strong_ordering operator<=>(Currency a, Currency b) = default;

private:
    std::int64_t m_scaled = 0;
};

Q_DECLARE_METATYPE(Currency)

#endif
