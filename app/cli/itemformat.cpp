#include "itemformat.h"

#include "citems.h"

#include <charconv>

using namespace Qt::StringLiterals;

namespace ItemFormat {

namespace {

QString jsonString(const QString &text)
{
    QString out;
    out.reserve(text.size() + 2);
    out += u'"';
    for (QChar c : text) {
        switch (c.unicode()) {
        case u'"':
            out += u"\\\""_s;
            break;
        case u'\\':
            out += u"\\\\"_s;
            break;
        case u'\n':
            out += u"\\n"_s;
            break;
        case u'\r':
            out += u"\\r"_s;
            break;
        case u'\t':
            out += u"\\t"_s;
            break;
        default:
            if (c.unicode() < 0x20) {
                out += u"\\u"_s + QString::number(c.unicode(), 16).rightJustified(4, u'0');
            } else {
                out += c;
            }
        }
    }
    out += u'"';
    return out;
}

// The value of column `c` as text; nothing for a zero date.
std::optional<QString> plain(const CItem &item, int c)
{
    const CItem::Column &column = CItem::columns()[std::size_t(c)];
    const QVariant v = item.value(c);
    switch (column.type) {
    case CItem::ColumnType::Date:
        if (!CItem::isLaterThanZeroDate(v.toDateTime())) {
            return std::nullopt;
        }
        return v.toDateTime().toString(u"yyyy-MM-dd"_s);
    case CItem::ColumnType::DateTime:
        if (!CItem::isLaterThanZeroDate(v.toDateTime())) {
            return std::nullopt;
        }
        return v.toDateTime().toString(u"yyyy-MM-ddTHH:mm:ss"_s);
    case CItem::ColumnType::Currency:
        return v.value<Currency>().toString();
    case CItem::ColumnType::Single: {
        char buffer[32];
        const auto r = std::to_chars(buffer, buffer + sizeof buffer, v.toFloat());
        return QString::fromLatin1(buffer, r.ptr - buffer);
    }
    case CItem::ColumnType::Boolean:
        return v.toBool() ? u"true"_s : u"false"_s;
    default:
        return v.toString();
    }
}

} // namespace

QString json(const CItems &items)
{
    QString out = u"["_s;
    bool firstItem = true;
    for (const CItemPtr &item : items) {
        out += firstItem ? u"\n  {"_s : u",\n  {"_s;
        firstItem = false;
        for (int c = 0; c < int(CItem::columns().size()); ++c) {
            const CItem::Column &column = CItem::columns()[std::size_t(c)];
            out += (c ? u", "_s : QString()) + jsonString(column.name) + u": "_s;
            const std::optional<QString> value = plain(*item, c);
            if (!value) {
                out += u"null"_s;
            } else if (column.type == CItem::ColumnType::Text || column.type == CItem::ColumnType::Date
                       || column.type == CItem::ColumnType::DateTime) {
                out += jsonString(*value);
            } else {
                out += *value;
            }
        }
        out += u", \"mTypeName\": "_s + jsonString(item->mTypeName()) + u", \"mUnitName\": "_s
            + jsonString(item->mUnitName()) + u'}';
    }
    out += firstItem ? u"]\n"_s : u"\n]\n"_s;
    return out;
}

QString tsv(const CItems &items)
{
    QStringList header;
    for (const CItem::Column &column : CItem::columns()) {
        header.append(column.name);
    }
    header << u"mTypeName"_s << u"mUnitName"_s;
    QString out = header.join(u'\t') + u'\n';
    auto clean = [](QString text) {
        return text.replace(u'\t', u' ').replace(u'\n', u' ').replace(u'\r', u' ');
    };
    for (const CItemPtr &item : items) {
        QStringList fields;
        for (int c = 0; c < int(CItem::columns().size()); ++c) {
            fields.append(clean(plain(*item, c).value_or(QString())));
        }
        fields << clean(item->mTypeName()) << clean(item->mUnitName());
        out += fields.join(u'\t') + u'\n';
    }
    return out;
}

} // namespace ItemFormat
