#include "citem.h"

#include "goodspricebook.h"

#include "cconnection.h"
#include "crecordset.h"
#include "itemhook.h"
#include "itempool.h"
#include "itemrowsource.h"
#include "sqlvalue.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>
#include <memory>

using namespace Qt::StringLiterals;

namespace {

const CItem::Column kColumns[] = {
    {u"F_ID"_s, CItem::ColumnType::Int32, 0, false},
    {u"F_ItemNo"_s, CItem::ColumnType::Text, 0, false},
    {u"F_ItemName"_s, CItem::ColumnType::Text, 1, false},
    {u"F_ItemTypeID"_s, CItem::ColumnType::Int16, 0, false},
    {u"F_Standard"_s, CItem::ColumnType::Text, 2, false},
    {u"F_Spell"_s, CItem::ColumnType::Text, 3, false},
    {u"F_ParentID"_s, CItem::ColumnType::Int32, 1, false},
    {u"F_Remark"_s, CItem::ColumnType::Text, 4, false},
    {u"F_LimitUp"_s, CItem::ColumnType::Single, 0, false},
    {u"F_LimitDown"_s, CItem::ColumnType::Single, 1, false},
    {u"F_Address"_s, CItem::ColumnType::Text, 5, false},
    {u"F_Tel1"_s, CItem::ColumnType::Text, 6, false},
    {u"F_Tel2"_s, CItem::ColumnType::Text, 7, false},
    {u"F_Tel3"_s, CItem::ColumnType::Text, 8, false},
    {u"F_LinkMen"_s, CItem::ColumnType::Text, 9, false},
    {u"F_PostCode"_s, CItem::ColumnType::Text, 10, false},
    {u"F_Tag1"_s, CItem::ColumnType::Int32, 2, false},
    {u"F_Tag2"_s, CItem::ColumnType::Int32, 3, false},
    {u"F_Tag3"_s, CItem::ColumnType::Int32, 4, false},
    {u"F_OweWarring"_s, CItem::ColumnType::Currency, 0, false},
    {u"F_OweStop"_s, CItem::ColumnType::Currency, 1, false},
    {u"F_Bank"_s, CItem::ColumnType::Text, 11, false},
    {u"F_BankAccount"_s, CItem::ColumnType::Text, 12, false},
    {u"F_OrderByID"_s, CItem::ColumnType::Int32, 5, false},
    {u"F_Date"_s, CItem::ColumnType::Date, 0, true},
    {u"F_IsSpecial"_s, CItem::ColumnType::Boolean, 0, false},
    {u"F_ArtificialPerson"_s, CItem::ColumnType::Text, 13, false},
    {u"F_IRDNumber"_s, CItem::ColumnType::Text, 14, false},
    {u"F_Price1"_s, CItem::ColumnType::Currency, 2, true},
    {u"F_Price2"_s, CItem::ColumnType::Currency, 3, true},
    {u"F_Price3"_s, CItem::ColumnType::Currency, 4, true},
    {u"F_Price4"_s, CItem::ColumnType::Currency, 5, true},
    {u"F_PackageAmount"_s, CItem::ColumnType::Single, 2, true},
    {u"F_Time1"_s, CItem::ColumnType::DateTime, 1, true},
    {u"F_Time2"_s, CItem::ColumnType::DateTime, 2, true},
    {u"F_Tag4"_s, CItem::ColumnType::Int32, 6, false},
    {u"F_Tag5"_s, CItem::ColumnType::Int32, 7, false},
    {u"F_Tag6"_s, CItem::ColumnType::Int32, 8, false},
};

const std::array<QString, std::size(kColumns)> kColumnNames = [] {
    std::array<QString, std::size(kColumns)> names;
    for (std::size_t i = 0; i < std::size(kColumns); ++i) {
        names[i] = kColumns[i].name;
    }
    return names;
}();

// The columns that collections look items up by or search (F_Spell: the text search of number, name and code).
constexpr int kKeyColumns[] = {0, 1, 2, 5, 16, 17, 18, 23};

bool isKeyColumn(int column)
{
    return std::find(std::begin(kKeyColumns), std::end(kKeyColumns), column) != std::end(kKeyColumns);
}

QString conversionError(const CItem::Column &column, const QVariant &value)
{
    if (!value.isValid() || value.isNull()) {
        return u"字段 "_s + column.name + u" 为空值(NULL)"_s;
    }
    return u"字段 "_s + column.name + u" 的值无法转换: "_s + value.toString().left(64);
}

// The value a column holds when nothing was put into it.
bool isEmptyValue(const QVariant &v)
{
    switch (v.metaType().id()) {
    case QMetaType::QString:
        return v.toString().isEmpty();
    case QMetaType::Int:
    case QMetaType::Short:
        return v.toInt() == 0;
    case QMetaType::Float:
        return v.toFloat() == 0.0F;
    case QMetaType::Bool:
        return !v.toBool();
    case QMetaType::QDateTime:
        return !CItem::isLaterThanZeroDate(v.toDateTime());
    default:
        if (v.metaType() == QMetaType::fromType<Currency>()) {
            return v.value<Currency>().isZero();
        }
        return !v.isValid() || v.isNull();
    }
}

// The current row of a cursor over T_Item's columns.
class RecordsetRow final : public CItem::RowSource
{
public:
    explicit RecordsetRow(CRecordset &rst)
        : m_rst(rst)
        , m_indexes(rst.fieldIndexes(kColumnNames))
    { }
    bool has(int column) const override { return m_indexes.at(column) >= 0; }
    QString text(int column) override { return SqlValue::toText(m_rst.value(m_indexes.at(column))); }
    QVariant value(int column) override { return m_rst.value(m_indexes.at(column)); }

private:
    CRecordset &m_rst;
    const QList<int> &m_indexes;
};

// Runs a copy between an item and a row, turning what it throws into false and the reason.
template<typename Copy>
bool trapped(QString *error, Copy copy)
{
    try {
        return copy();
    } catch (const DbError &e) {
        if (error) {
            *error = e.message();
        }
        return false;
    } catch (const std::exception &e) {
        if (error) {
            *error = QString::fromLocal8Bit(e.what());
        }
        return false;
    }
}

} // namespace

std::span<const CItem::Column> CItem::columns()
{
    return kColumns;
}

std::span<const QString> CItem::columnNames()
{
    return kColumnNames;
}

int CItem::columnIndex(const QString &name)
{
    for (std::size_t i = 0; i < std::size(kColumns); ++i) {
        if (kColumns[i].name.compare(name, Qt::CaseInsensitive) == 0) {
            return int(i);
        }
    }
    return -1;
}

QDateTime CItem::zeroDate()
{
    return QDateTime(QDate(1899, 12, 30), QTime(0, 0), Qt::UTC);
}

bool CItem::isLaterThanZeroDate(const QDateTime &date)
{
    return date.isValid() && wallClock(date) > zeroDate();
}

// Arrays grow in powers of two, so that the names joined after loading fit without moving the texts again.
namespace {

std::size_t textCapacity(int count)
{
    return count > 0 ? std::bit_ceil(unsigned(count)) : 0;
}

QString *allocateTexts(int count)
{
    const std::size_t capacity = textCapacity(count);
    return capacity ? static_cast<QString *>(ItemPool::allocate(sizeof(QString) * capacity)) : nullptr;
}

void freeTexts(QString *data, int count)
{
    std::destroy_n(data, count);
    ItemPool::deallocate(data, sizeof(QString) * textCapacity(count));
}

} // namespace

const QString &CItem::TextSlots::emptyText()
{
    static const QString empty;
    return empty;
}

CItem::TextSlots::TextSlots(const TextSlots &other)
    : m_mask(other.m_mask)
{
    const int n = std::popcount(m_mask);
    m_data = allocateTexts(n);
    std::uninitialized_copy_n(other.m_data, n, m_data);
}

CItem::TextSlots &CItem::TextSlots::operator=(const TextSlots &other)
{
    if (this != &other) {
        TextSlots copy(other);
        std::swap(m_mask, copy.m_mask);
        std::swap(m_data, copy.m_data);
    }
    return *this;
}

CItem::TextSlots::~TextSlots()
{
    freeTexts(m_data, std::popcount(m_mask));
}

void CItem::TextSlots::set(int slot, const QString &value)
{
    const std::uint32_t bit = 1u << slot;
    const int count = std::popcount(m_mask);
    const int position = std::popcount(m_mask & (bit - 1));
    if (m_mask & bit) {
        if (!value.isEmpty()) {
            m_data[position] = value;
            return;
        }
        if (textCapacity(count - 1) != textCapacity(count)) {
            rebuild(m_mask & ~bit, nullptr, 0);
            return;
        }
        std::move(m_data + position + 1, m_data + count, m_data + position);
        std::destroy_at(m_data + count - 1);
        m_mask &= ~bit;
        return;
    }
    if (value.isEmpty()) {
        return;
    }
    // `value` may be one of our own strings, which moving them would disturb.
    QString copy = value;
    if (textCapacity(count + 1) != textCapacity(count)) {
        rebuild(m_mask | bit, &copy, slot);
        return;
    }
    if (position == count) {
        new (m_data + count) QString(std::move(copy));
    } else {
        new (m_data + count) QString(std::move(m_data[count - 1]));
        std::move_backward(m_data + position, m_data + count - 1, m_data + count);
        m_data[position] = std::move(copy);
    }
    m_mask |= bit;
}

void CItem::TextSlots::setMany(std::uint32_t mask, QString *values)
{
    if (mask == 0) {
        return;
    }
    std::uint32_t present = m_mask & ~mask;
    for (std::uint32_t rest = mask; rest; rest &= rest - 1) {
        const int slot = std::countr_zero(rest);
        if (!values[slot].isEmpty()) {
            present |= 1u << slot;
        }
    }
    const int n = std::popcount(present);
    QString *data = allocateTexts(n);
    int to = 0;
    for (std::uint32_t rest = present; rest; rest &= rest - 1) {
        const int slot = std::countr_zero(rest);
        const std::uint32_t bit = 1u << slot;
        if (mask & bit) {
            new (data + to++) QString(std::move(values[slot]));
        } else {
            new (data + to++) QString(std::move(m_data[std::popcount(m_mask & (bit - 1))]));
        }
    }
    freeTexts(m_data, std::popcount(m_mask));
    m_data = data;
    m_mask = present;
}

// Moves the strings into a new array for `mask`; the slot `added` (if any) takes `value`.
void CItem::TextSlots::rebuild(std::uint32_t mask, QString *value, int added)
{
    QString *data = allocateTexts(std::popcount(mask));
    int to = 0;
    for (std::uint32_t rest = mask; rest; rest &= rest - 1) {
        const int slot = std::countr_zero(rest);
        if (value && slot == added) {
            new (data + to++) QString(std::move(*value));
        } else {
            new (data + to++) QString(std::move(m_data[std::popcount(m_mask & ((1u << slot) - 1))]));
        }
    }
    freeTexts(m_data, std::popcount(m_mask));
    m_data = data;
    m_mask = mask;
}

CItem::CItem() = default;

CItemPtr CItem::create()
{
    return std::allocate_shared<CItem>(ItemPool::Allocator<CItem>());
}

CItemPtr CItem::create(const CItem &copy)
{
    return std::allocate_shared<CItem>(ItemPool::Allocator<CItem>(), copy);
}

CItem::CItem(const CItem &other)
    : m(other.m)
{ }

CItem &CItem::operator=(const CItem &other)
{
    if (this == &other) {
        return *this;
    }
    if (!m_hooks.head) {
        m = other.m;
        return *this;
    }
    for (int column : kKeyColumns) {
        keyAboutToChange(column);
    }
    m = other.m;
    for (int column : kKeyColumns) {
        keyChanged(column);
    }
    return *this;
}

CItem::~CItem() = default;

void CItem::keyAboutToChange(int column)
{
    for (CItemHook *hook = m_hooks.head; hook; hook = hook->next) {
        hook->watcher->itemKeyAboutToChange(hook, column);
    }
}

void CItem::keyChanged(int column)
{
    for (CItemHook *hook = m_hooks.head; hook; hook = hook->next) {
        hook->watcher->itemKeyChanged(hook, column);
    }
}

void CItem::setF_ID(qint32 value)
{
    if (m_hooks.head && m.m_int[0] != value) {
        keyAboutToChange(0);
        m.m_int[0] = value;
        keyChanged(0);
        return;
    }
    m.m_int[0] = value;
}

void CItem::setF_ItemNo(const QString &value)
{
    if (m_hooks.head && m.m_texts.get(0) != value) {
        keyAboutToChange(1);
        m.m_texts.set(0, value);
        keyChanged(1);
        return;
    }
    m.m_texts.set(0, value);
}

void CItem::setF_ItemName(const QString &value)
{
    if (m_hooks.head && m.m_texts.get(1) != value) {
        keyAboutToChange(2);
        m.m_texts.set(1, value);
        keyChanged(2);
        return;
    }
    m.m_texts.set(1, value);
}

void CItem::setF_Spell(const QString &value)
{
    if (m_hooks.head && m.m_texts.get(3) != value) {
        keyAboutToChange(5);
        m.m_texts.set(3, value);
        keyChanged(5);
        return;
    }
    m.m_texts.set(3, value);
}

void CItem::setF_Tag1(qint32 value)
{
    if (m_hooks.head && m.m_int[2] != value) {
        keyAboutToChange(16);
        m.m_int[2] = value;
        keyChanged(16);
        return;
    }
    m.m_int[2] = value;
}

void CItem::setF_Tag2(qint32 value)
{
    if (m_hooks.head && m.m_int[3] != value) {
        keyAboutToChange(17);
        m.m_int[3] = value;
        keyChanged(17);
        return;
    }
    m.m_int[3] = value;
}

void CItem::setF_Tag3(qint32 value)
{
    if (m_hooks.head && m.m_int[4] != value) {
        keyAboutToChange(18);
        m.m_int[4] = value;
        keyChanged(18);
        return;
    }
    m.m_int[4] = value;
}

void CItem::setF_OrderByID(qint32 value)
{
    if (m_hooks.head && m.m_int[5] != value) {
        keyAboutToChange(23);
        m.m_int[5] = value;
        keyChanged(23);
        return;
    }
    m.m_int[5] = value;
}

QVariant CItem::value(int column) const
{
    if (column < 0 || column >= int(std::size(kColumns))) {
        return {};
    }
    const Column &c = kColumns[column];
    switch (c.type) {
    case ColumnType::Int32:
        return m.m_int[c.slot];
    case ColumnType::Int16:
        return QVariant::fromValue(m.m_int16);
    case ColumnType::Text:
        return m.m_texts.get(c.slot);
    case ColumnType::Single:
        return m.m_single[c.slot];
    case ColumnType::Currency:
        return QVariant::fromValue(m.m_currency[c.slot]);
    case ColumnType::Date:
    case ColumnType::DateTime:
        return m.m_date[c.slot];
    case ColumnType::Boolean:
        return m.m_bool;
    }
    return {};
}

bool CItem::setValue(int column, const QVariant &value, QString *error)
{
    if (column < 0 || column >= int(std::size(kColumns))) {
        if (error) {
            *error = u"没有第 "_s + QString::number(column) + u" 列"_s;
        }
        return false;
    }
    if (m_hooks.head && isKeyColumn(column)) {
        keyAboutToChange(column);
        const bool ok = assign(column, value, error);
        keyChanged(column);
        return ok;
    }
    return assign(column, value, error);
}

bool CItem::assign(int column, const QVariant &value, QString *error)
{
    const Column &c = kColumns[column];
    const bool null = !value.isValid() || value.isNull();
    auto fail = [&] {
        if (error) {
            *error = conversionError(c, value);
        }
        return false;
    };
    switch (c.type) {
    case ColumnType::Text:
        m.m_texts.set(c.slot, SqlValue::toText(value));
        return true;
    case ColumnType::Int32: {
        const auto v = SqlValue::toInt32(value);
        if (!v) {
            return fail();
        }
        m.m_int[c.slot] = *v;
        return true;
    }
    case ColumnType::Int16: {
        const auto v = SqlValue::toInt16(value);
        if (!v) {
            return fail();
        }
        m.m_int16 = *v;
        return true;
    }
    case ColumnType::Single: {
        if (null && c.hasNullRule) {
            // Pieces per package default to one: a package of nothing makes no sense.
            m.m_single[c.slot] = 1.0f;
            return true;
        }
        const auto v = SqlValue::toSingle(value);
        if (!v) {
            return fail();
        }
        m.m_single[c.slot] = *v;
        return true;
    }
    case ColumnType::Currency: {
        if (null && c.hasNullRule) {
            m.m_currency[c.slot] = Currency();
            return true;
        }
        const auto v = SqlValue::toCurrency(value);
        if (!v) {
            return fail();
        }
        m.m_currency[c.slot] = *v;
        return true;
    }
    case ColumnType::Date:
    case ColumnType::DateTime: {
        if (null) {
            if (!c.hasNullRule) {
                return fail();
            }
            m.m_date[c.slot] = QDateTime();
            return true;
        }
        const auto v = SqlValue::toDateTime(value);
        if (!v) {
            return fail();
        }
        m.m_date[c.slot] = *v;
        return true;
    }
    case ColumnType::Boolean: {
        const auto v = SqlValue::toBoolean(value);
        if (!v) {
            return fail();
        }
        m.m_bool = *v;
        return true;
    }
    }
    return fail();
}

quint64 CItem::columnHash() const
{
    // Only the stored columns count (not the working fields of a goods line, nor the joined names), and the
    // column a read stopped at: a row read in part never passes for the whole row.
    std::size_t h = qHashBits(m.m_int, sizeof(m.m_int), std::size_t(m.m_unreadFrom));
    h = qHashMulti(h, m.m_int16, m.m_bool);
    for (float single : m.m_single) {
        h = qHashMulti(h, std::bit_cast<quint32>(single));
    }
    for (const Currency &amount : m.m_currency) {
        h = qHashMulti(h, amount.scaled());
    }
    for (const QDateTime &date : m.m_date) {
        // Held in UTC without zone rules (wallClock), so day and time say it all, without an epoch conversion.
        h = date.isValid() ? qHashMulti(h, date.date().toJulianDay(), date.time().msecsSinceStartOfDay())
                           : qHashMulti(h, std::numeric_limits<qint64>::min());
    }
    for (int slot = 0; slot < 15; ++slot) {
        h = qHash(m.m_texts.get(slot), h) ^ std::size_t(slot);
    }
    return h == 0 ? 1 : quint64(h);
}

bool CItem::UpdateDataFromRst(CRecordset &rst, bool fromRst, QString *error)
{
    if (fromRst) {
        RecordsetRow row(rst);
        return readRow(row, error);
    }
    return writeRow(rst, error);
}

bool CItem::readRow(RowSource &source, QString *error)
{
    // Whatever the read reached, the fingerprint is of that; texts are in by the time the guard ends.
    struct Fingerprint
    {
        CItem &item;
        ~Fingerprint() { item.m.m_rowHash = item.columnHash(); }
    } fingerprint {*this};
    return trapped(error, [&] {
        // Texts are gathered and stored together: one allocation per item instead of one per text.
        QString texts[15];
        std::uint32_t gathered = 0;
        struct Commit
        {
            TextSlots &slots;
            const std::uint32_t &mask;
            QString *values;
            ~Commit() { slots.setMany(mask, values); }
        } commit {m.m_texts, gathered, texts};
        m.m_unreadFrom = kAllRead;
        for (std::size_t i = 0; i < std::size(kColumns); ++i) {
            m.m_unreadFrom = quint8(i); // until the column is in
            if (!source.has(int(i))) {
                throw DbError(u"找不到字段: "_s + kColumns[i].name);
            }
            const Column &c = kColumns[i];
            if (c.type == ColumnType::Text && !(m_hooks.head && isKeyColumn(int(i)))) {
                texts[c.slot] = source.text(int(i));
                gathered |= 1u << c.slot;
                continue;
            }
            if (!(m_hooks.head && isKeyColumn(int(i)))) {
                char16_t buffer[RowSource::kAsciiCapacity];
                if (assignCell(c, source.cell(int(i), buffer))) {
                    continue;
                }
            }
            QString message;
            if (!setValue(int(i), source.value(int(i)), &message)) {
                throw DbError(message);
            }
        }
        m.m_unreadFrom = kAllRead;
        return true;
    });
}

template<typename Cell>
bool CItem::assignCell(const Column &c, const Cell &cell)
{
    // Only what converts for certain is taken here; anything else, failures included, goes the general way, which
    // words the failure.
    if (cell.kind == Cell::Null) {
        // NULL where the column has a rule for it; elsewhere the general way says it cannot be read.
        if (!c.hasNullRule) {
            return false;
        }
        switch (c.type) {
        case ColumnType::Single:
            m.m_single[c.slot] = 1.0f;
            return true;
        case ColumnType::Currency:
            m.m_currency[c.slot] = Currency();
            return true;
        case ColumnType::Date:
        case ColumnType::DateTime:
            m.m_date[c.slot] = QDateTime();
            return true;
        default:
            return false;
        }
    }
    switch (c.type) {
    case ColumnType::Int32:
        if (cell.kind == Cell::Integer && cell.integer >= std::numeric_limits<qint32>::min()
            && cell.integer <= std::numeric_limits<qint32>::max()) {
            m.m_int[c.slot] = qint32(cell.integer);
            return true;
        }
        return false;
    case ColumnType::Int16:
        if (cell.kind == Cell::Integer && cell.integer >= std::numeric_limits<qint16>::min()
            && cell.integer <= std::numeric_limits<qint16>::max()) {
            m.m_int16 = qint16(cell.integer);
            return true;
        }
        return false;
    case ColumnType::Boolean:
        if (cell.kind == Cell::Integer && cell.integer <= std::numeric_limits<qint64>::max() / Currency::Scale
            && cell.integer >= std::numeric_limits<qint64>::min() / Currency::Scale) {
            m.m_bool = cell.integer != 0;
            return true;
        }
        return false;
    case ColumnType::Single:
        if (cell.kind == Cell::Integer || cell.kind == Cell::Real) {
            const double d = cell.kind == Cell::Integer ? double(cell.integer) : cell.real;
            if (std::isfinite(d) && std::fabs(d) <= double(std::numeric_limits<float>::max())) {
                m.m_single[c.slot] = float(d);
                return true;
            }
        }
        return false;
    case ColumnType::Currency:
        if (cell.kind == Cell::Ascii) {
            if (const auto amount = Currency::fromString(cell.ascii)) {
                m.m_currency[c.slot] = *amount;
                return true;
            }
        } else if (cell.kind == Cell::Integer && cell.integer <= std::numeric_limits<qint64>::max() / Currency::Scale
                   && cell.integer >= std::numeric_limits<qint64>::min() / Currency::Scale) {
            m.m_currency[c.slot] = Currency::fromInteger(cell.integer);
            return true;
        } else if (cell.kind == Cell::Real) {
            if (const auto amount = Currency::fromDouble(cell.real)) {
                m.m_currency[c.slot] = *amount;
                return true;
            }
        }
        return false;
    case ColumnType::Date:
    case ColumnType::DateTime:
        if (cell.kind == Cell::Ascii) {
            if (const auto date = SqlValue::dateTimeFromText(cell.ascii)) {
                m.m_date[c.slot] = *date;
                return true;
            }
        }
        return false;
    case ColumnType::Text:
        return false;
    }
    return false;
}

bool CItem::writeRow(CRecordset &rst, QString *error)
{
    return trapped(error, [&] {
        for (std::size_t i = 0; i < std::size(kColumns); ++i) {
            const Column &c = kColumns[i];
            QVariant v = value(int(i));
            // A column the read did not reach holds an empty value, not the stored one: it keeps what is stored
            // unless something was put into it since.
            if (m.m_unreadFrom != kAllRead && i >= m.m_unreadFrom && isEmptyValue(v)) {
                continue;
            }
            if (c.type == ColumnType::Date) {
                // Only the day is kept; no date at all is stored as NULL.
                const QDateTime &date = m.m_date[c.slot];
                v = isLaterThanZeroDate(date) ? QVariant(date.date()) : QVariant(QMetaType::fromType<QDate>());
            } else if (c.type == ColumnType::DateTime && !m.m_date[c.slot].isValid()) {
                v = QVariant(QMetaType::fromType<QDateTime>());
            } else if (c.type == ColumnType::Text && v.toString().isNull()) {
                // An empty text is stored as '', never as NULL: the engines sort NULL at opposite ends, and the
                // item would move within its list after a save.
                v = QVariant(QString(u""_s));
            } else if (c.type == ColumnType::Single) {
                // The single's own value (0.1, not the 0.100000001490116 its bits widen to): an unchanged save
                // stores what was read.
                v = QVariant(CItem::storedSingle(m.m_single[c.slot]));
            }
            rst.setField(c.name, v);
        }
        return true;
    });
}

std::optional<Currency> CItem::GetPriceByClientID(CConnection &connection, qint32 clientID) const
{
    return GoodsPriceBook::read(connection, F_ID(), clientID, 0);
}

bool CItem::SavePriceByClient(CConnection &connection, qint32 clientID, Currency price, QString *error) const
{
    try {
        GoodsPriceBook::write(connection, F_ID(), clientID, 0, price);
        return true;
    } catch (const DbError &e) {
        if (error) {
            *error = e.message();
        }
        return false;
    }
}

double CItem::storedSingle(float value)
{
    if (!std::isfinite(value)) {
        return double(value);
    }
    std::array<char, 32> text {};
    const auto written = std::to_chars(text.data(), text.data() + text.size(), value);
    double widened = double(value);
    std::from_chars(text.data(), written.ptr, widened);
    return widened;
}
