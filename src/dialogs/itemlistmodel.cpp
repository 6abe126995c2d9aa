#include "itemlistmodel.h"

#include "cspell.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

// Amounts and quantities line up on the right, as in the management window's grid.
bool isNumber(ItemTableModel::Field field)
{
    switch (field) {
    case ItemTableModel::PriceEnterPack:
    case ItemTableModel::PriceEnter:
    case ItemTableModel::PriceSalePack:
    case ItemTableModel::PriceSale:
    case ItemTableModel::PackageAmount:
    case ItemTableModel::LimitUp:
    case ItemTableModel::LimitDown:
    case ItemTableModel::OweWarring:
    case ItemTableModel::OweStop:
        return true;
    default:
        return false;
    }
}

} // namespace

ItemListModel::ItemListModel(const QList<ItemTableModel::Field> &fields, QObject *parent)
    : QAbstractTableModel(parent)
    , m_fields(fields)
{ }

ItemListModel::~ItemListModel() = default;

bool ItemListModel::matches(const CItem &item, const QString &text, bool withStandard)
{
    if (text.isEmpty()) {
        return true;
    }
    if (item.F_ItemNo().contains(text, Qt::CaseInsensitive) || item.F_ItemName().contains(text, Qt::CaseInsensitive)
        || item.F_Spell().contains(text, Qt::CaseInsensitive)
        || (withStandard && item.F_Standard().contains(text, Qt::CaseInsensitive))) {
        return true;
    }
    return CSpell::MatchCode(item.F_ItemName(), text);
}

int ItemListModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_items.size());
}

int ItemListModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_fields.size() + qsizetype(m_extra.size()));
}

CItemPtr ItemListModel::itemAt(int row) const
{
    return row >= 0 && std::size_t(row) < m_items.size() ? m_items[std::size_t(row)] : CItemPtr();
}

QVariant ItemListModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.model() != this || index.row() >= rowCount() || index.column() >= columnCount()) {
        return QVariant();
    }
    const CItem &item = *m_items[std::size_t(index.row())];
    const int column = index.column();
    if (role == Qt::DisplayRole) {
        if (column < m_fields.size()) {
            return ItemTableModel::fieldText(item, m_fields.at(column));
        }
        return m_extra[std::size_t(column - m_fields.size())].second(item);
    }
    if (role == Qt::CheckStateRole && m_checkable && column == 0) {
        const bool checked =
            std::find(m_checked.begin(), m_checked.end(), m_items[std::size_t(index.row())]) != m_checked.end();
        return checked ? Qt::Checked : Qt::Unchecked;
    }
    if (role == Qt::TextAlignmentRole && (column >= m_fields.size() || isNumber(m_fields.at(column)))) {
        return QVariant::fromValue(Qt::Alignment(Qt::AlignRight | Qt::AlignVCenter));
    }
    return QVariant();
}

bool ItemListModel::setData(const QModelIndex &index, const QVariant &value, int role)
{
    if (role != Qt::CheckStateRole || !m_checkable || index.column() != 0 || index.row() >= rowCount()) {
        return false;
    }
    setChecked(m_items[std::size_t(index.row())], value.toInt() == Qt::Checked);
    return true;
}

QVariant ItemListModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (role != Qt::DisplayRole || orientation != Qt::Horizontal || section < 0 || section >= columnCount()) {
        return QVariant();
    }
    if (section < m_fields.size()) {
        return ItemTableModel::fieldTitle(m_fields.at(section));
    }
    return m_extra[std::size_t(section - m_fields.size())].first;
}

Qt::ItemFlags ItemListModel::flags(const QModelIndex &index) const
{
    if (!index.isValid()) {
        return Qt::NoItemFlags;
    }
    // Checkable lists show the box but leave the ticking to their dialog, which ticks on any column.
    return Qt::ItemIsEnabled | Qt::ItemIsSelectable;
}

void ItemListModel::setItems(std::vector<CItemPtr> items)
{
    beginResetModel();
    m_items = std::move(items);
    endResetModel();
}

void ItemListModel::setExtraColumn(const QString &title, std::function<QString(const CItem &)> text)
{
    beginResetModel();
    m_extra.emplace_back(title, std::move(text));
    endResetModel();
}

std::vector<CItemPtr> ItemListModel::checkedItems() const
{
    return m_checked;
}

void ItemListModel::setChecked(const CItemPtr &item, bool checked)
{
    const auto it = std::find(m_checked.begin(), m_checked.end(), item);
    if (checked && it == m_checked.end()) {
        m_checked.push_back(item);
    } else if (!checked && it != m_checked.end()) {
        m_checked.erase(it);
    } else {
        return;
    }
    const auto row = std::find(m_items.begin(), m_items.end(), item);
    if (row != m_items.end()) {
        const QModelIndex cell = index(int(row - m_items.begin()), 0);
        Q_EMIT dataChanged(cell, cell, {Qt::CheckStateRole});
    }
}
