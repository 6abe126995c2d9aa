#include "sqlvalue.h"

#include <QRegularExpression>

#include <charconv>
#include <cmath>
#include <limits>

using namespace Qt::StringLiterals;

namespace SqlValue {

namespace {

bool isNull(const QVariant &value)
{
    return !value.isValid() || value.isNull();
}

// Rounds half to even, as the integer conversions of the stored data always did.
std::optional<qint64> roundToInt64(double d)
{
    if (!std::isfinite(d) || d >= 9.2233720368547758e18 || d < -9.2233720368547758e18) {
        return std::nullopt;
    }
    return static_cast<qint64>(std::nearbyint(d));
}

} // namespace

std::optional<qint64> toInt64(const QVariant &value)
{
    if (isNull(value)) {
        return std::nullopt;
    }
    switch (value.metaType().id()) {
    case QMetaType::Bool:
        return value.toBool() ? -1 : 0;
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::Short:
    case QMetaType::UShort:
    case QMetaType::Char:
    case QMetaType::SChar:
    case QMetaType::UChar:
    case QMetaType::Long:
    case QMetaType::LongLong:
        return value.toLongLong();
    case QMetaType::ULong:
    case QMetaType::ULongLong: {
        const qulonglong u = value.toULongLong();
        if (u > qulonglong(std::numeric_limits<qint64>::max())) {
            return std::nullopt;
        }
        return qint64(u);
    }
    case QMetaType::Double:
    case QMetaType::Float:
        return roundToInt64(value.toDouble());
    default:
        break;
    }
    if (value.metaType() == QMetaType::fromType<Currency>()) {
        return roundToInt64(value.value<Currency>().toDouble());
    }
    const QString text = value.toString().trimmed();
    bool ok = false;
    const qint64 i = text.toLongLong(&ok);
    if (ok) {
        return i;
    }
    const double d = text.toDouble(&ok);
    if (ok) {
        return roundToInt64(d);
    }
    return std::nullopt;
}

std::optional<qint32> toInt32(const QVariant &value)
{
    const auto wide = toInt64(value);
    if (!wide || *wide > std::numeric_limits<qint32>::max() || *wide < std::numeric_limits<qint32>::min()) {
        return std::nullopt;
    }
    return qint32(*wide);
}

std::optional<qint16> toInt16(const QVariant &value)
{
    const auto wide = toInt64(value);
    if (!wide || *wide > std::numeric_limits<qint16>::max() || *wide < std::numeric_limits<qint16>::min()) {
        return std::nullopt;
    }
    return qint16(*wide);
}

std::optional<float> toSingle(const QVariant &value)
{
    if (isNull(value)) {
        return std::nullopt;
    }
    if (value.metaType() == QMetaType::fromType<Currency>()) {
        return float(value.value<Currency>().toDouble());
    }
    if (value.metaType().id() == QMetaType::Bool) {
        return value.toBool() ? -1.0f : 0.0f;
    }
    bool ok = false;
    const double d =
        value.metaType().id() == QMetaType::QString ? value.toString().trimmed().toDouble(&ok) : value.toDouble(&ok);
    if (!ok || !std::isfinite(d) || std::fabs(d) > double(std::numeric_limits<float>::max())) {
        return std::nullopt;
    }
    return float(d);
}

std::optional<Currency> toCurrency(const QVariant &value)
{
    if (isNull(value)) {
        return std::nullopt;
    }
    if (value.metaType() == QMetaType::fromType<Currency>()) {
        return value.value<Currency>();
    }
    switch (value.metaType().id()) {
    case QMetaType::Double:
    case QMetaType::Float:
        return Currency::fromDouble(value.toDouble());
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::Short:
    case QMetaType::UShort:
    case QMetaType::Long:
    case QMetaType::LongLong: {
        const qint64 units = value.toLongLong();
        if (units > std::numeric_limits<qint64>::max() / Currency::Scale
            || units < std::numeric_limits<qint64>::min() / Currency::Scale) {
            return std::nullopt;
        }
        return Currency::fromInteger(units);
    }
    case QMetaType::Bool:
        return Currency::fromInteger(value.toBool() ? -1 : 0);
    default:
        return Currency::fromString(value.toString());
    }
}

std::optional<QDateTime> toDateTime(const QVariant &value)
{
    if (isNull(value)) {
        return std::nullopt;
    }
    switch (value.metaType().id()) {
    case QMetaType::QDate:
        return value.toDate().startOfDay(Qt::UTC);
    case QMetaType::QDateTime: {
        const QDateTime dt = value.toDateTime();
        if (!dt.isValid()) {
            return std::nullopt;
        }
        return QDateTime(dt.date(), dt.time(), Qt::UTC);
    }
    default:
        break;
    }
    return dateTimeFromText(value.toString());
}

std::optional<QDateTime> dateTimeFromText(QStringView stored)
{
    // "yyyy-MM-dd", optionally followed by " HH:mm:ss" or "THH:mm:ss[.zzz]"; parsed by hand because the general
    // parsers cost more than the rest of loading an item.
    const QStringView text = stored.trimmed();
    auto number = [&](qsizetype from, qsizetype length, int *out) {
        if (from + length > text.size()) {
            return false;
        }
        int n = 0;
        for (qsizetype i = from; i < from + length; ++i) {
            const char16_t c = text.at(i).unicode();
            if (c < u'0' || c > u'9') {
                return false;
            }
            n = n * 10 + (c - u'0');
        }
        *out = n;
        return true;
    };
    int year = 0;
    int month = 0;
    int day = 0;
    if (text.size() >= 10 && number(0, 4, &year) && text.at(4) == u'-' && number(5, 2, &month) && text.at(7) == u'-'
        && number(8, 2, &day)) {
        const QDate date(year, month, day);
        if (!date.isValid()) {
            return std::nullopt;
        }
        if (text.size() == 10) {
            return date.startOfDay(Qt::UTC);
        }
        int hour = 0;
        int minute = 0;
        int second = 0;
        int msec = 0;
        if ((text.at(10) == u' ' || text.at(10) == u'T') && number(11, 2, &hour) && text.size() >= 16
            && text.at(13) == u':' && number(14, 2, &minute)) {
            qsizetype end = 16;
            if (text.size() >= 19 && text.at(16) == u':' && number(17, 2, &second)) {
                end = 19;
                if (text.size() >= 23 && text.at(19) == u'.' && number(20, 3, &msec)) {
                    end = 23;
                }
            }
            const QTime time(hour, minute, second, msec);
            if (time.isValid() && end == text.size()) {
                return QDateTime(date, time, Qt::UTC);
            }
        }
    }
    QDateTime dt = QDateTime::fromString(text.toString(), Qt::ISODateWithMs);
    if (!dt.isValid()) {
        return std::nullopt;
    }
    // A zone suffix is not part of a stored date; keep the wall-clock time.
    return QDateTime(dt.date(), dt.time(), Qt::UTC);
}

std::optional<QDateTime> certainDateTime(const QVariant &value)
{
    if (isNull(value)) {
        return std::nullopt;
    }
    const int type = value.metaType().id();
    if (type == QMetaType::QDate || type == QMetaType::QDateTime) {
        return toDateTime(value);
    }
    if (type != QMetaType::QString && type != QMetaType::QByteArray) {
        return std::nullopt; // a number counts days from an epoch that only its program knows
    }
    const QString text = value.toString().trimmed();
    if (const std::optional<QDateTime> iso = dateTimeFromText(text)) {
        return iso;
    }
    static const QRegularExpression yearFirst(
        uR"(^(\d{4})(?:([-/.])(\d{1,2})\2(\d{1,2})|年(\d{1,2})月(\d{1,2})日)(?:[ T]*(\d{1,2})[:时](\d{1,2})(?:[:分](\d{1,2})秒?)?)?$)"_s);
    const QRegularExpressionMatch m = yearFirst.match(text);
    if (!m.hasMatch()) {
        return std::nullopt;
    }
    const bool chinese = m.capturedLength(5) > 0;
    const QDate date(m.captured(1).toInt(), m.captured(chinese ? 5 : 3).toInt(), m.captured(chinese ? 6 : 4).toInt());
    if (!date.isValid() || date.year() < 1) {
        return std::nullopt;
    }
    if (m.capturedLength(7) == 0) {
        return date.startOfDay(Qt::UTC);
    }
    const QTime time(m.captured(7).toInt(), m.captured(8).toInt(), m.captured(9).toInt());
    if (!time.isValid()) {
        return std::nullopt;
    }
    return QDateTime(date, time, Qt::UTC);
}

std::optional<bool> toBoolean(const QVariant &value)
{
    if (isNull(value)) {
        return std::nullopt;
    }
    if (value.metaType().id() == QMetaType::Bool) {
        return value.toBool();
    }
    if (value.metaType().id() == QMetaType::QString) {
        const QString text = value.toString().trimmed().toLower();
        if (text == u"true"_s || text == u"t"_s) {
            return true;
        }
        if (text == u"false"_s || text == u"f"_s) {
            return false;
        }
    }
    const auto number = toCurrency(value);
    if (!number) {
        return std::nullopt;
    }
    return !number->isZero();
}

QString toText(const QVariant &value)
{
    if (isNull(value)) {
        return QString();
    }
    if (value.metaType() == QMetaType::fromType<Currency>()) {
        return value.value<Currency>().toString();
    }
    if (value.metaType().id() == QMetaType::Float) {
        return singleToString(value.toFloat());
    }
    return value.toString();
}

QString singleToString(float value)
{
    char buffer[32];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
    return QString::fromLatin1(buffer, result.ptr - buffer);
}

} // namespace SqlValue
