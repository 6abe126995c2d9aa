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
std::optional<bool> toBoolean(const QVariant &value);
/// NULL reads as the empty text.
QString toText(const QVariant &value);
/// Shortest decimal text of a single-precision value ("0.1", not "0.100000001").
QString singleToString(float value);

} // namespace SqlValue

#endif
