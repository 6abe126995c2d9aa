#ifndef QUILLON_SQLVALUE_H
#define QUILLON_SQLVALUE_H

// Conversions of values read from either engine into the types that the items hold. Each gives nothing when the
// value is NULL or does not convert, so that callers decide what NULL means.

#include "currency.h"

#include <QDateTime>
#include <QVariant>

#include <optional>

namespace SqlValue {

std::optional<qint64> toInt64(const QVariant &value);
std::optional<qint32> toInt32(const QVariant &value);
std::optional<qint16> toInt16(const QVariant &value);
std::optional<float> toSingle(const QVariant &value);
std::optional<Currency> toCurrency(const QVariant &value);
std::optional<QDateTime> toDateTime(const QVariant &value);
/// toDateTime() of a value stored as text.
std::optional<QDateTime> dateTimeFromText(QStringView text);
/// A date or date-time as another program may have stored it, read only where its form leaves no doubt: ISO
/// (2024-01-05, with a time after a blank or T), year first with '/' or '.' (2024/1/5), and 2024年1月5日 (with a
/// time). Day and month in either order (05/01/2024) and bare numbers (a spreadsheet's serial, a Julian day) give
/// nothing, as does NULL.
std::optional<QDateTime> certainDateTime(const QVariant &value);
std::optional<bool> toBoolean(const QVariant &value);
/// NULL reads as the empty text.
QString toText(const QVariant &value);
/// Shortest decimal text of a single-precision value ("0.1", not "0.100000001").
QString singleToString(float value);

} // namespace SqlValue

#endif
