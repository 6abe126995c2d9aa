#include "itemtablemodel.h"

#include "citems.h"
#include "itemtype.h"
#include "module1core.h"
#include "prompt.h"

#include <QHash>
#include <QScopeGuard>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

QString singleText(float value)
{
    return QString::number(double(value), 'g', 7);
}

bool isAmount(ItemTableModel::Field field)
{
    switch (field) {
    case ItemTableModel::PriceEnterPack:
    case ItemTableModel::PriceEnter:
    case ItemTableModel::PriceSalePack:
    case ItemTableModel::PriceSale:
    case ItemTableModel::OweWarring:
    case ItemTableModel::OweStop:
        return true;
    default:
        return false;
    }
}

bool isSingle(ItemTableModel::Field field)
{
    return field == ItemTableModel::PackageAmount || field == ItemTableModel::LimitUp
        || field == ItemTableModel::LimitDown;
}

} // namespace

QList<ItemTableModel::Field> ItemTableModel::goodsFields()
{
    return {ItemNo,        ItemName,  Standard,      UnitName, TypeName,  PriceEnterPack, PriceEnter,
            PriceSalePack, PriceSale, PackageAmount, LimitUp,  LimitDown, Spell,          Remark};
}

QList<ItemTableModel::Field> ItemTableModel::clientFields()
{
    return {ItemNo,   ItemName, TypeName,    LinkMen,    Tel1,    Tel2,  Address,
            PostCode, Bank,     BankAccount, OweWarring, OweStop, Spell, Remark};
}

QList<ItemTableModel::Field> ItemTableModel::simpleFields()
{
    return {ItemNo, ItemName, Spell, Remark};
}

QString ItemTableModel::kindTitle(int itemTypeID)
{
    switch (ItemType(itemTypeID)) {
    case ItemType::Option:
    case ItemType::UserRight:
    case ItemType::SoftwareUserInfo:
        return QString();
    default:
        return CItems::typeName(itemTypeID);
    }
}

QString ItemTableModel::exportSheetName(int itemTypeID, const QDateTime &when)
{
    const QString title = kindTitle(itemTypeID);
    return title.isEmpty() ? title : title + when.toString(u"MMdd"_s) + when.toString(u"hhmmss"_s);
}

QList<ItemTableModel::Field> ItemTableModel::fieldsForType(int itemTypeID)
{
    switch (ItemType(itemTypeID)) {
    case ItemType::Goods:
        return goodsFields();
    case ItemType::Client:
        return clientFields();
    default:
        return simpleFields();
    }
}

bool ItemTableModel::isPriceField(Field field)
{
    switch (field) {
    case PriceEnterPack:
    case PriceEnter:
    case PriceSalePack:
    case PriceSale:
        return true;
    default:
        return false;
    }
}

QString ItemTableModel::priceText(Currency value)
{
    return Module1::FormatAmount(QVariant::fromValue(value), false, true);
}

QString ItemTableModel::totalText(Currency value)
{
    return Module1::FormatAmount(QVariant::fromValue(value), false, false);
}

Currency ItemTableModel::totalOf(Currency value)
{
    return Currency::fromString(value.toFixed(2)).value_or(value);
}

QString ItemTableModel::fieldTitle(Field field)
{
    switch (field) {
    case ItemNo:
        return u"编号"_s;
    case ItemName:
        return u"名称"_s;
    case Standard:
        return u"规格"_s;
    case UnitName:
        return u"单位"_s;
    case TypeName:
        return u"类别"_s;
    case PriceEnterPack:
        return u"整件进价"_s;
    case PriceEnter:
        return u"单件进价"_s;
    case PriceSalePack:
        return u"整件售价"_s;
    case PriceSale:
        return u"单件售价"_s;
    case PackageAmount:
        return u"包装数量"_s;
    case LimitUp:
        return u"库存上限"_s;
    case LimitDown:
        return u"库存下限"_s;
    case Spell:
        return u"助记符"_s;
    case Remark:
        return u"备注"_s;
    case LinkMen:
        return u"联系人"_s;
    case Tel1:
        return u"电话"_s;
    case Tel2:
        return u"手机"_s;
    case Tel3:
        return u"传真"_s;
    case Address:
        return u"地址"_s;
    case PostCode:
        return u"邮编"_s;
    case Bank:
        return u"开户银行"_s;
    case BankAccount:
        return u"银行账号"_s;
    case ArtificialPerson:
        return u"法人代表"_s;
    case IRDNumber:
        return u"税号"_s;
    case OweWarring:
        return u"欠款预警"_s;
    case OweStop:
        return u"欠款停止"_s;
    }
    return QString();
}

bool ItemTableModel::isFieldEditable(Field field)
{
    return field != UnitName && field != TypeName;
}

QString ItemTableModel::fieldText(const CItem &item, Field field)
{
    switch (field) {
    case ItemNo:
        return item.F_ItemNo();
    case ItemName:
        return item.F_ItemName();
    case Standard:
        return item.F_Standard();
    case UnitName:
        return item.mUnitName();
    case TypeName:
        return item.mTypeName();
    case PriceEnterPack:
        return priceText(item.F_PriceEnterPack());
    case PriceEnter:
        return priceText(item.F_PriceEnter());
    case PriceSalePack:
        return priceText(item.F_PriceSalePack());
    case PriceSale:
        return priceText(item.F_PriceSale());
    case PackageAmount:
        return singleText(item.F_PackageAmount());
    case LimitUp:
        return singleText(item.F_LimitUp());
    case LimitDown:
        return singleText(item.F_LimitDown());
    case Spell:
        return item.F_Spell();
    case Remark:
        return item.F_Remark();
    case LinkMen:
        return item.F_LinkMen();
    case Tel1:
        return item.F_Tel1();
    case Tel2:
        return item.F_Tel2();
    case Tel3:
        return item.F_Tel3();
    case Address:
        return item.F_Address();
    case PostCode:
        return item.F_PostCode();
    case Bank:
        return item.F_Bank();
    case BankAccount:
        return item.F_BankAccount();
    case ArtificialPerson:
        return item.F_ArtificialPerson();
    case IRDNumber:
        return item.F_IRDNumber();
    case OweWarring:
        return totalText(item.F_OweWarring());
    case OweStop:
        return totalText(item.F_OweStop());
    }
    return QString();
}

ItemTableModel::ItemTableModel(CItems *items, const QList<Field> &fields, QObject *parent)
    : QAbstractTableModel(parent)
    , m_items(items)
    , m_fields(fields)
    , m_itemType(items ? items->itemTypeID() : 0)
{
    connectItems();
}

ItemTableModel::~ItemTableModel() = default;

void ItemTableModel::connectItems()
{
    if (!m_items) {
        return;
    }
    // The collection announces positions 1-based; the collection's rows come first in the table.
    connect(m_items, &CItems::ItemAboutToBeInserted, this,
            [this](qint32 position) { beginInsertRows(QModelIndex(), position - 1, position - 1); });
    connect(m_items, &CItems::ItemInserted, this, [this](qint32) { endInsertRows(); });
    connect(m_items, &CItems::ItemAboutToBeRemoved, this, [this](qint32 position) {
        beginRemoveRows(QModelIndex(), position - 1, position - 1);
        if (const CItemPtr item = m_items->Item(position)) {
            forgetEdit(item.get());
        }
    });
    connect(m_items, &CItems::ItemRemoved, this, [this](qint32) {
        endRemoveRows();
        setModifiedState();
    });
    connect(m_items, &CItems::ItemAboutToBeMoved, this, [this](qint32 from, qint32 to) {
        // Qt counts the destination before the move: below the row it is one past the row's final place.
        beginMoveRows(QModelIndex(), from - 1, from - 1, QModelIndex(), to > from ? to : to - 1);
    });
    connect(m_items, &CItems::ItemMoved, this, [this](qint32, qint32) { endMoveRows(); });
    connect(m_items, &CItems::ItemReplaced, this, [this](qint32 position, const CItemPtr &previous) {
        // An edit pending for the replaced item is either what was just saved or out of date.
        forgetEdit(previous.get());
        m_spellTyped.erase(m_items->Item(position).get());
        // The row is repainted by the change notice that follows every save.
        setModifiedState();
    });
    connect(m_items, &CItems::ListAboutToBeReset, this, [this]() {
        beginResetModel();
        while (!m_edited.empty()) {
            forgetEdit(m_edited.begin()->first);
        }
    });
    connect(m_items, &CItems::ListReset, this, [this]() {
        endResetModel();
        setModifiedState();
    });
    connect(m_items, &CItems::SomeOneChanged, this, [this](const CItemPtr &item) { refreshItem(item.get()); });
    connect(m_items, &CItems::ItemReloaded, this, [this](const CItemPtr &item) {
        // The clerk gave up the edit for what another seat stored.
        forgetEdit(item.get());
        refreshItem(item.get());
        setModifiedState();
    });
    connect(m_items, &QObject::destroyed, this, [this]() {
        beginResetModel();
        m_edited.clear();
        m_newItems.clear();
        m_spellTyped.clear();
        endResetModel();
        setModifiedState();
    });
}

void ItemTableModel::forgetEdit(const CItem *item)
{
    const auto it = m_edited.find(item);
    if (it != m_edited.end()) {
        m_spellTyped.erase(it->second.get());
        m_edited.erase(it);
    }
}

bool ItemTableModel::isCell(const QModelIndex &index) const
{
    return index.isValid() && index.model() == this && !index.parent().isValid() && index.row() < rowCount()
        && index.column() < columnCount();
}

CItems *ItemTableModel::items() const
{
    return m_items;
}

QString ItemTableModel::TextMatrix(qint32 row, qint32 col) const
{
    if (row < 0 || col < 0 || row >= Rows() || col >= Cols()) {
        return QString();
    }
    if (row == 0) {
        return fieldTitle(m_fields.at(col));
    }
    const CItem *item = shown(row - 1);
    return item ? fieldText(*item, m_fields.at(col)) : QString();
}

int ItemTableModel::rowCount(const QModelIndex &parent) const
{
    if (parent.isValid() || !m_items) {
        return 0;
    }
    return m_items->Count() + int(m_newItems.size());
}

int ItemTableModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_fields.size());
}

CItemPtr ItemTableModel::rowItem(int row) const
{
    if (!m_items || row < 0) {
        return {};
    }
    const int count = m_items->Count();
    if (row < count) {
        return m_items->Item(row + 1);
    }
    const std::size_t extra = std::size_t(row - count);
    return extra < m_newItems.size() ? m_newItems[extra] : CItemPtr();
}

const CItem *ItemTableModel::shown(int row) const
{
    const CItemPtr item = rowItem(row);
    if (!item) {
        return nullptr;
    }
    const auto it = m_edited.find(item.get());
    return it != m_edited.end() ? it->second.get() : item.get();
}

CItemPtr ItemTableModel::itemAt(int row) const
{
    const CItemPtr item = rowItem(row);
    if (!item) {
        return {};
    }
    const auto it = m_edited.find(item.get());
    return it != m_edited.end() ? it->second : item;
}

QVariant ItemTableModel::data(const QModelIndex &index, int role) const
{
    if (!isCell(index)) {
        return QVariant();
    }
    const Field f = m_fields.at(index.column());
    switch (role) {
    case Qt::DisplayRole:
    case Qt::EditRole:
        if (const CItem *item = shown(index.row())) {
            return fieldText(*item, f);
        }
        return QVariant();
    case Qt::TextAlignmentRole:
        return QVariant::fromValue(
            Qt::Alignment((isAmount(f) || isSingle(f) ? Qt::AlignRight : Qt::AlignLeft) | Qt::AlignVCenter));
    default:
        return QVariant();
    }
}

QVariant ItemTableModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (role != Qt::DisplayRole) {
        return QVariant();
    }
    if (orientation == Qt::Horizontal) {
        if (section < 0 || section >= m_fields.size()) {
            return QVariant();
        }
        return fieldTitle(m_fields.at(section));
    }
    if (section < 0 || section >= rowCount()) {
        return QVariant();
    }
    return isNewRow(section) ? u"*"_s : QString::number(section + 1);
}

Qt::ItemFlags ItemTableModel::flags(const QModelIndex &index) const
{
    if (!isCell(index)) {
        return Qt::NoItemFlags;
    }
    Qt::ItemFlags result = Qt::ItemIsEnabled | Qt::ItemIsSelectable;
    if (isFieldEditable(m_fields.at(index.column()))) {
        result |= Qt::ItemIsEditable;
    }
    return result;
}

bool ItemTableModel::applyText(CItem &item, Field field, const QString &text)
{
    const QString trimmed = text.trimmed();
    if (isAmount(field)) {
        std::optional<Currency> value = trimmed.isEmpty() ? Currency() : Currency::fromString(trimmed);
        if (!value) {
            Q_EMIT editRejected(u"请输入正确的["_s + fieldTitle(field) + u"]!"_s);
            return false;
        }
        // A total shows two decimals, so it keeps two: a third typed digit would otherwise be stored unseen.
        if (!isPriceField(field)) {
            value = totalOf(*value);
        }
        switch (field) {
        case PriceEnterPack:
            item.setF_PriceEnterPack(*value);
            break;
        case PriceEnter:
            item.setF_PriceEnter(*value);
            break;
        case PriceSalePack:
            item.setF_PriceSalePack(*value);
            break;
        case PriceSale:
            item.setF_PriceSale(*value);
            break;
        case OweWarring:
            item.setF_OweWarring(*value);
            break;
        default:
            item.setF_OweStop(*value);
            break;
        }
        return true;
    }
    if (isSingle(field)) {
        bool ok = true;
        const float value = trimmed.isEmpty() ? 0.0f : trimmed.toFloat(&ok);
        if (!ok || (field == PackageAmount && value <= 0.0f)) {
            Q_EMIT editRejected(u"请输入正确的["_s + fieldTitle(field) + u"]!"_s);
            return false;
        }
        if (field == PackageAmount) {
            item.setF_PackageAmount(value);
        } else if (field == LimitUp) {
            item.setF_LimitUp(value);
        } else {
            item.setF_LimitDown(value);
        }
        return true;
    }
    switch (field) {
    case ItemNo:
        item.setF_ItemNo(trimmed);
        break;
    case ItemName:
        if (trimmed.isEmpty()) {
            Q_EMIT editRejected(u"["_s + fieldTitle(field) + u"]不能为空!"_s);
            return false;
        }
        if (trimmed != item.F_ItemName() && m_spellMaker && !m_spellTyped.count(&item)) {
            item.setF_Spell(m_spellMaker(trimmed));
        }
        item.setF_ItemName(trimmed);
        break;
    case Standard:
        item.setF_Standard(text);
        break;
    case Spell:
        item.setF_Spell(trimmed.toUpper());
        m_spellTyped.insert(&item);
        break;
    case Remark:
        item.setF_Remark(text);
        break;
    case LinkMen:
        item.setF_LinkMen(text);
        break;
    case Tel1:
        item.setF_Tel1(trimmed);
        break;
    case Tel2:
        item.setF_Tel2(trimmed);
        break;
    case Tel3:
        item.setF_Tel3(trimmed);
        break;
    case Address:
        item.setF_Address(text);
        break;
    case PostCode:
        item.setF_PostCode(trimmed);
        break;
    case Bank:
        item.setF_Bank(text);
        break;
    case BankAccount:
        item.setF_BankAccount(trimmed);
        break;
    case ArtificialPerson:
        item.setF_ArtificialPerson(text);
        break;
    case IRDNumber:
        item.setF_IRDNumber(trimmed);
        break;
    default:
        return false;
    }
    return true;
}

bool ItemTableModel::setData(const QModelIndex &index, const QVariant &value, int role)
{
    if (role != Qt::EditRole || !isCell(index)) {
        return false;
    }
    const Field f = m_fields.at(index.column());
    if (!isFieldEditable(f)) {
        return false;
    }
    const QString text = value.toString();
    const CItem *current = shown(index.row());
    if (!current || fieldText(*current, f) == text) {
        return false;
    }
    const CItemPtr item = rowItem(index.row());
    if (isNewRow(index.row())) {
        if (!applyText(*item, f, text)) {
            return false;
        }
    } else {
        CItemPtr copy;
        const auto it = m_edited.find(item.get());
        copy = it != m_edited.end() ? it->second : CItem::create(*item);
        if (!applyText(*copy, f, text)) {
            return false;
        }
        m_edited.emplace(item.get(), copy);
    }
    // An edit colours the whole row as pending.
    Q_EMIT dataChanged(this->index(index.row(), 0), this->index(index.row(), columnCount() - 1));
    setModifiedState();
    return true;
}

int ItemTableModel::rowOf(const CItem *item) const
{
    if (!m_items || !item) {
        return -1;
    }
    if (const qint32 position = m_items->PositionOf(item)) {
        return position - 1;
    }
    for (std::size_t i = 0; i < m_newItems.size(); ++i) {
        if (m_newItems[i].get() == item) {
            return m_items->Count() + int(i);
        }
    }
    return -1;
}

int ItemTableModel::rowOfID(qint32 id) const
{
    if (!m_items || id < 1) {
        return -1;
    }
    return rowOf(m_items->SearchItemByID(id).get());
}

bool ItemTableModel::isPendingRow(int row) const
{
    const CItemPtr item = rowItem(row);
    return item && (isNewRow(row) || m_edited.count(item.get()));
}

QList<int> ItemTableModel::pendingRows() const
{
    QList<int> rows;
    if (!m_items) {
        return rows;
    }
    rows.reserve(qsizetype(m_edited.size() + m_newItems.size()));
    for (const auto &edit : m_edited) {
        if (const qint32 position = m_items->PositionOf(edit.first)) {
            rows.append(position - 1);
        }
    }
    std::sort(rows.begin(), rows.end());
    const int count = m_items->Count();
    for (std::size_t i = 0; i < m_newItems.size(); ++i) {
        rows.append(count + int(i));
    }
    return rows;
}

bool ItemTableModel::isNewRow(int row) const
{
    if (!m_items) {
        return false;
    }
    const int count = m_items->Count();
    return row >= count && row < count + int(m_newItems.size());
}

int ItemTableModel::addNewRow()
{
    if (!m_items) {
        return -1;
    }
    const int row = rowCount();
    auto item = CItem::create();
    item->setF_ItemTypeID(qint16(m_itemType));
    if (m_itemType == ItemType::Goods) {
        item->setF_PackageAmount(1.0f);
    }
    beginInsertRows(QModelIndex(), row, row);
    m_newItems.push_back(item);
    endInsertRows();
    setModifiedState();
    return row;
}

bool ItemTableModel::removeNewRow(int row)
{
    if (!isNewRow(row)) {
        return false;
    }
    beginRemoveRows(QModelIndex(), row, row);
    m_spellTyped.erase(m_newItems[std::size_t(row - m_items->Count())].get());
    m_newItems.erase(m_newItems.begin() + (row - m_items->Count()));
    endRemoveRows();
    setModifiedState();
    return true;
}

bool ItemTableModel::SaveChanges()
{
    if (!m_items) {
        return false;
    }
    // Every row is checked before anything is written, so that a refusal leaves the table as the clerk left it.
    const Refusal refusal = checkPending();
    if (!refusal.message.isEmpty()) {
        CPrompt::current().MsgBox(refusal.message, CPrompt::vbExclamation, CPrompt::messageTitle());
        Q_EMIT saveRefused(refusal.row, refusal.field);
        return false;
    }

    // In row order, so that a failure leaves the rows after it untouched.
    std::vector<std::pair<int, CItemPtr>> pending;
    pending.reserve(m_edited.size());
    for (const auto &[item, copy] : m_edited) {
        pending.emplace_back(m_items->PositionOf(item), copy);
    }
    std::sort(pending.begin(), pending.end(), [](const auto &a, const auto &b) { return a.first < b.first; });
    // The check above counted every row as it will be: rows of this batch that trade numbers or names do not
    // stand against each other while they are written one by one.
    QList<qint32> batch;
    for (const auto &[position, copy] : pending) {
        batch.append(copy->F_ID());
    }
    m_items->setUniqueExemptions(batch);
    const auto noExemptions = qScopeGuard([this] { m_items->setUniqueExemptions({}); });
    for (const auto &[position, copy] : pending) {
        // The collection replaces the listed item by the saved copy, which drops the pending edit with it.
        if (!m_items->SaveItem(copy)) {
            setModifiedState();
            return false;
        }
    }
    while (!m_newItems.empty()) {
        const CItemPtr item = m_newItems.front();
        if (!m_items->SaveItem(item)) {
            setModifiedState();
            return false;
        }
        const int row =
            m_items->Count() + int(std::find(m_newItems.begin(), m_newItems.end(), item) - m_newItems.begin());
        beginRemoveRows(QModelIndex(), row, row);
        m_spellTyped.erase(item.get());
        m_newItems.erase(m_newItems.begin() + (row - m_items->Count()));
        endRemoveRows();
    }
    setModifiedState();
    return true;
}

ItemTableModel::Refusal ItemTableModel::checkPending() const
{
    if (!m_items) {
        return {};
    }
    struct Pending
    {
        int row;
        const CItem *item;
    };
    std::vector<Pending> pending;
    pending.reserve(m_edited.size() + m_newItems.size());
    for (const auto &[item, copy] : m_edited) {
        pending.push_back({m_items->PositionOf(item) - 1, copy.get()});
    }
    std::sort(pending.begin(), pending.end(), [](const Pending &a, const Pending &b) { return a.row < b.row; });
    for (std::size_t i = 0; i < m_newItems.size(); ++i) {
        pending.push_back({m_items->Count() + int(i), m_newItems[i].get()});
    }
    if (pending.empty()) {
        return {};
    }

    // How often each number and name occurs once everything is saved: the pending rows with their new values,
    // the other listed items as they are. Counted for the pending values only, in one walk of the list.
    QHash<QString, int> numbers;
    QHash<QString, int> names;
    for (const Pending &p : pending) {
        if (!p.item->F_ItemNo().trimmed().isEmpty()) {
            ++numbers[p.item->F_ItemNo()];
        }
        ++names[p.item->F_ItemName()];
    }
    for (const CItemPtr &item : *m_items) {
        if (m_edited.count(item.get())) {
            continue;
        }
        if (const auto no = numbers.find(item->F_ItemNo()); no != numbers.end()) {
            ++*no;
        }
        if (const auto name = names.find(item->F_ItemName()); name != names.end()) {
            ++*name;
        }
    }

    const QString kind = m_items->ItemTypeName();
    const bool goods = m_itemType == ItemType::Goods;
    for (const Pending &p : pending) {
        const QString no = p.item->F_ItemNo();
        const QString name = p.item->F_ItemName();
        if (goods && no.trimmed().isEmpty()) {
            return {u"请输入"_s + kind + u"编号!"_s, p.row, ItemNo};
        }
        if (name.trimmed().isEmpty()) {
            return {u"请输入"_s + kind + u"名称!"_s, p.row, ItemName};
        }
        if (!no.trimmed().isEmpty() && numbers.value(no) > 1) {
            return {kind + u"编号["_s + no + u"]已经存在,请换一个编号!"_s, p.row, ItemNo};
        }
        if (names.value(name) > 1) {
            return {kind + u"名称["_s + name + u"]已经存在,请换一个名称!"_s, p.row, ItemName};
        }
    }
    return {};
}

void ItemTableModel::discardChanges()
{
    if (!m_newItems.empty() && m_items) {
        const int first = m_items->Count();
        beginRemoveRows(QModelIndex(), first, first + int(m_newItems.size()) - 1);
        m_newItems.clear();
        endRemoveRows();
    }
    std::vector<int> rows;
    for (const auto &entry : m_edited) {
        rows.push_back(m_items ? m_items->PositionOf(entry.first) - 1 : -1);
    }
    m_edited.clear();
    m_spellTyped.clear();
    for (int row : rows) {
        if (row >= 0) {
            Q_EMIT dataChanged(index(row, 0), index(row, columnCount() - 1));
        }
    }
    setModifiedState();
}

void ItemTableModel::refreshItem(const CItem *item)
{
    if (m_edited.count(item)) {
        // The row shows the pending edit, not the item under it; it changes when the edit is saved or dropped.
        return;
    }
    const int row = rowOf(item);
    if (row >= 0 && columnCount() > 0) {
        Q_EMIT dataChanged(index(row, 0), index(row, columnCount() - 1));
    }
}

void ItemTableModel::setModifiedState()
{
    const bool modified = isModified();
    if (modified != m_modified) {
        m_modified = modified;
        Q_EMIT modifiedChanged(modified);
    }
}
