#include "citems.h"

#include "cconnection.h"
#include "crecordset.h"
#include "goodspricebook.h"
#include "itemhook.h"
#include "itemindex.h"
#include "itemlist.h"
#include "itemloader.h"
#include "itemtextquery.h"
#include "itemtype.h"
#include "keyid.h"
#include "module1core.h"
#include "prompt.h"
#include "textsearchindex.h"

#include <QHash>
#include <QSqlQuery>

#include <algorithm>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

// Texts in the order both engines sort them as stored: by code point, as SQLite compares UTF-8 bytes and as the
// loader asks PostgreSQL to (COLLATE "C"). UTF-16 units order the characters from U+E000 before those beyond
// U+FFFF, so the units are shifted to code point order first.
int storedOrder(QStringView a, QStringView b)
{
    const qsizetype n = std::min(a.size(), b.size());
    for (qsizetype i = 0; i < n; ++i) {
        char16_t x = a[i].unicode();
        char16_t y = b[i].unicode();
        if (x != y) {
            const auto fix = [](char16_t u) {
                return char16_t(u >= 0xE000 ? u - 0x800 : (u >= 0xD800 ? u + 0x2000 : u));
            };
            return fix(x) < fix(y) ? -1 : 1;
        }
    }
    return a.size() == b.size() ? 0 : (a.size() < b.size() ? -1 : 1);
}

// A save refused because another seat changed the row since this one read it.
struct SaveConflict : DbError
{
    SaveConflict()
        : DbError(u"该记录已被其他用户修改,请刷新后再改。"_s)
    { }
};

// A save refused because another item of the kind has the number or name by now; the message is the edit
// dialogs' own.
struct TakenRefusal : DbError
{
    using DbError::DbError;
};

const char16_t *const kTypeNames[] = {u"客户", u"单位",     u"商品类别", u"商品",     u"仓库",   u"部门",
                                      u"选项", u"客户类别", u"地区",     u"用户权限", u"领料人", u"软件使用者信息"};

CItems::BoundControlRefresh s_boundControlRefresh = nullptr;

} // namespace

void CItems::setBoundControlRefresh(BoundControlRefresh refresh)
{
    s_boundControlRefresh = refresh;
}

class CItemsPrivate : public CItemWatcher
{
public:
    explicit CItemsPrivate(CItems *q)
        : q(q)
    { }
    ~CItemsPrivate() override { clear(); }

    CItemHook *hookAt(qsizetype pos) const { return list.at(pos); }
    CItemHook *hookOf(const CItem *item) const
    {
        for (CItemHook *hook = firstHook(item); hook; hook = hook->next) {
            if (hook->watcher == this) {
                return hook;
            }
        }
        return nullptr;
    }

    // The bookkeeping of the list and the look-ups, apart from the notices: the callers decide what listeners hear.
    void link(qsizetype pos, CItemHook *hook)
    {
        if (isGoods() && pos > 0 && pos < list.size()) {
            inversions -= outOfOrder(pos - 1, pos);
        }
        list.insert(pos, hook);
        index.insert(hook);
        search.inserted(pos);
        if (isGoods()) {
            inversions += outOfOrder(pos - 1, pos) + outOfOrder(pos, pos + 1);
        }
    }

    CItemHook *unlink(qsizetype pos)
    {
        if (isGoods()) {
            inversions -= outOfOrder(pos - 1, pos) + outOfOrder(pos, pos + 1);
        }
        CItemHook *hook = list.takeAt(pos);
        if (isGoods()) {
            inversions += outOfOrder(pos - 1, pos);
        }
        index.remove(hook);
        search.removed(pos);
        return hook;
    }

    void insertAt(qsizetype pos, const CItemPtr &item)
    {
        auto *hook = new CItemHook;
        hook->watcher = this;
        hook->item = item;
        if (resetDepth == 0) {
            Q_EMIT q->ItemAboutToBeInserted(qint32(pos + 1));
        }
        attach(hook);
        link(pos, hook);
        if (resetDepth == 0) {
            Q_EMIT q->ItemInserted(qint32(pos + 1));
        }
    }

    void append(const CItemPtr &item) { insertAt(list.size(), item); }

    void removeAt(qsizetype pos)
    {
        if (pos < 0 || pos >= list.size()) {
            return;
        }
        if (resetDepth == 0) {
            Q_EMIT q->ItemAboutToBeRemoved(qint32(pos + 1));
        }
        CItemHook *hook = unlink(pos);
        detach(hook);
        delete hook;
        if (resetDepth == 0) {
            Q_EMIT q->ItemRemoved(qint32(pos + 1));
        }
    }

    // The hook stays and only changes its item and, when needed, its place: views then keep the row with its
    // selection and current cell instead of losing it to a removal and an insertion.
    void putBack(CItemHook *hook, const CItemPtr &item)
    {
        const qsizetype from = list.positionOf(hook);
        if (hook->item != item) {
            if (isGoods()) {
                inversions -= outOfOrder(from - 1, from) + outOfOrder(from, from + 1);
            }
            index.remove(hook);
            detach(hook);
            const CItemPtr previous = std::exchange(hook->item, item);
            attach(hook);
            index.insert(hook);
            if (isGoods()) {
                inversions += outOfOrder(from - 1, from) + outOfOrder(from, from + 1);
            }
            if (resetDepth == 0) {
                Q_EMIT q->ItemReplaced(qint32(from + 1), previous);
            }
        }
        // The place is sought among the other items, as after taking the item out.
        unlink(from);
        const qsizetype to = orderedPosition(*item);
        if (to == from || resetDepth > 0) {
            link(to, hook);
            return;
        }
        link(from, hook); // listeners are told while the list is still as it was
        Q_EMIT q->ItemAboutToBeMoved(qint32(from + 1), qint32(to + 1));
        unlink(from);
        link(to, hook);
        Q_EMIT q->ItemMoved(qint32(from + 1), qint32(to + 1));
    }

    void clear()
    {
        index.clear();
        search.cleared();
        for (CItemHook *hook : list.takeAll()) {
            detach(hook);
            delete hook;
        }
        inversions = 0;
    }

    bool isGoods() const { return itemType == ItemType::Goods; }

    // 1 when the items at a and b (adjacent positions) are out of goods-number order.
    qsizetype outOfOrder(qsizetype a, qsizetype b) const
    {
        if (a < 0 || b >= list.size()) {
            return 0;
        }
        return storedOrder(list.at(a)->item->F_ItemNo(), list.at(b)->item->F_ItemNo()) > 0 ? 1 : 0;
    }

    // Goods go before the first item whose number compares greater; everything else at the end.
    qsizetype orderedPosition(const CItem &item) const
    {
        if (!isGoods()) {
            return list.size();
        }
        const QString &no = item.F_ItemNo();
        if (inversions == 0) {
            // Sorted list: the first greater number is found by bisection.
            qsizetype low = 0;
            qsizetype high = list.size();
            while (low < high) {
                const qsizetype mid = low + (high - low) / 2;
                if (storedOrder(list.at(mid)->item->F_ItemNo(), no) > 0) {
                    high = mid;
                } else {
                    low = mid + 1;
                }
            }
            return low;
        }
        qsizetype pos = 0;
        for (CItemHook *hook : list) {
            if (storedOrder(hook->item->F_ItemNo(), no) > 0) {
                return pos;
            }
            ++pos;
        }
        return pos;
    }

    void itemKeyAboutToChange(CItemHook *hook, int column) override
    {
        index.remove(ItemIndex::keyOfColumn(column), hook);
        if (column == 1 && isGoods()) {
            const qsizetype pos = list.positionOf(hook);
            inversions -= outOfOrder(pos - 1, pos) + outOfOrder(pos, pos + 1);
        }
    }

    void itemKeyChanged(CItemHook *hook, int column) override
    {
        index.insert(ItemIndex::keyOfColumn(column), hook);
        if ((column == 1 || column == 2 || column == 5) && search.isTracking()) {
            search.changed(list.positionOf(hook));
        }
        if (column == 1 && isGoods()) {
            const qsizetype pos = list.positionOf(hook);
            inversions += outOfOrder(pos - 1, pos) + outOfOrder(pos, pos + 1);
        }
    }

    void reload()
    {
        if (!connection) {
            throw DbError(u"没有数据库连接"_s);
        }
        // The rows are read in full before the list changes: a load that fails or is stopped on the way keeps
        // the old list.
        ItemLoader loader(*connection);
        PartialReads partial;
        std::vector<CItemPtr> loaded = loader.load(CItems::loadStatement(itemType), partial, loadProgress, loadJoin);
        {
            ResetScope reset(this);
            clear();
            for (const CItemPtr &item : loaded) {
                append(item);
            }
        }
        if (search.isTracking()) {
            // A list that was searched is searched again: its text index is made now rather than on that search.
            search.update(list);
        }
        if (partialReport && partial.count > 0) {
            partialReport(typeName, partial.count, partial.first);
        } else {
            partial.report(typeName);
        }
    }

    // Rows of which a column could not be read: the items keep what was read and saving them keeps the rest as
    // stored; the user hears of it once per load, with the first such row.
    struct PartialReads : ItemLoader::Partial
    {
        // Reads the cursor's row into the item, noting a column that could not be read.
        void read(CRecordset &rst, CItem &item)
        {
            QString error;
            if (!item.UpdateDataFromRst(rst, true, &error)) {
                note(item.F_ID(), error);
            }
        }
        void report(const QString &kind) const
        {
            if (count == 0) {
                return;
            }
            Module1::SetErr(first);
            Module1::ShowErrMsg(u"有 "_s + QString::number(count) + u" 条"_s + kind
                                + u"记录的部分字段无法读取,这些字段显示为空,保存时保留数据库中的原值:"_s);
        }
    };

    // Re-reads the stored row into `item` (which need not be listed); false when the row is gone.
    bool reread(qint32 id, CItem &item)
    {
        CRecordset rst(*connection);
        rst.Open(u"Select * From T_Item Where F_ID=?"_s, {id});
        if (rst.isEOF()) {
            return false;
        }
        PartialReads partial;
        partial.read(rst, item);
        rst.Close();
        partial.report(typeName);
        return true;
    }

    CItemPtr refreshOne(qint32 id)
    {
        if (!connection) {
            throw DbError(u"没有数据库连接"_s);
        }
        CRecordset rst(*connection);
        rst.Open(u"Select * From T_Item Where F_ID=?"_s, {id});
        if (rst.isEOF()) {
            return {};
        }
        CItemPtr item = q->SearchItemByID(id);
        if (!item) {
            item = CItem::create();
            item->setF_ItemNo(rst.Fields(u"F_ItemNo"_s).toString());
            insertAt(orderedPosition(*item), item);
        }
        PartialReads partial;
        partial.read(rst, *item);
        rst.Close();
        partial.report(typeName);
        Q_EMIT q->SomeOneChanged(item);
        return item;
    }

    // Whether a stored row is one this list shows: its kind, and for goods and goods types not hidden.
    // The kinds the management window edits keep their numbers and names unique, as its grid and dialogs check;
    // the others (options, user rights, the company record) are kept by their host.
    bool keepsUnique() const
    {
        if (!keepUnique) {
            return false;
        }
        switch (ItemType(itemType)) {
        case ItemType::Option:
        case ItemType::UserRight:
        case ItemType::SoftwareUserInfo:
            return false;
        default:
            return isItemTypeNumber(itemType);
        }
    }

    // Inside the save's transaction: refuses a number or name another listed item of the kind has by now. Only a
    // value the save changes is checked (`stored` is the row as it is, null for a new item), so that a database
    // from an older program that holds duplicates keeps working. Writers of one kind go one after the other (on
    // SQLite the write transaction does it), so two seats adding the same number at once cannot both pass.
    void checkUnique(const CItem &item, const CItem *stored) const
    {
        if (!keepsUnique()) {
            return;
        }
        const QString no = item.F_ItemNo();
        const QString name = item.F_ItemName();
        const bool checkNo = !no.trimmed().isEmpty() && (!stored || stored->F_ItemNo() != no);
        const bool checkName = !name.trimmed().isEmpty() && (!stored || stored->F_ItemName() != name);
        if (!checkNo && !checkName) {
            return;
        }
        if (connection->engine() == CConnection::Engine::PostgreSQL) {
            connection->Select(u"SELECT pg_advisory_xact_lock(1364544588, ?)"_s, {itemType});
        }
        const bool hides = itemType == ItemType::Goods || itemType == ItemType::GoodsType;
        // Equality on the kind and the value only, so that the kind's number index serves it; the rows it finds
        // (a few at most) are sorted out here: the item itself, a batch's own items, hidden goods.
        const auto taken = [&](const QString &column, const QString &value) {
            QSqlQuery q = connection->Select(u"SELECT F_ID, F_Tag3 FROM T_Item WHERE F_ItemTypeID = ? AND "_s + column
                                                 + u" = ?"_s,
                                             {itemType, value});
            while (CConnection::next(q)) {
                const qint32 id = q.value(0).toInt();
                if (id != item.F_ID() && !uniqueExemptions.contains(id) && !(hides && q.value(1).toInt() > 0)) {
                    return true;
                }
            }
            return false;
        };
        if (checkNo && taken(u"F_ItemNo"_s, no)) {
            throw TakenRefusal(typeName + u"编号["_s + no + u"]已经存在,请换一个编号!"_s);
        }
        if (checkName && taken(u"F_ItemName"_s, name)) {
            throw TakenRefusal(typeName + u"名称["_s + name + u"]已经存在,请换一个名称!"_s);
        }
    }

    bool shows(const CItem &row) const
    {
        if (row.F_ItemTypeID() != itemType) {
            return false;
        }
        return !(itemType == ItemType::Goods || itemType == ItemType::GoodsType) || row.F_Tag3() <= 0;
    }

    // Brings the list in line with the stored row of `id`; false when it already was.
    bool follow(qint32 id)
    {
        if (!connection) {
            throw DbError(u"没有数据库连接"_s);
        }
        CRecordset rst(*connection);
        rst.Open(u"Select * From T_Item Where F_ID=?"_s, {id});
        CItemHook *listed = index.findInt(ItemIndex::ID, id, list);
        CItem stored;
        const bool present = !rst.isEOF() && (stored.UpdateDataFromRst(rst, true) || stored.unreadFrom() > 3);
        if (!present || !shows(stored)) {
            if (!listed) {
                return false;
            }
            removeAt(list.positionOf(listed));
            Q_EMIT q->SomeOneRemoved(id);
            return true;
        }
        if (listed && listed->item->rowHash() == stored.rowHash()) {
            // Our own save, or a write that stored what we hold.
            return false;
        }
        const CItemPtr item = listed ? listed->item : CItem::create();
        PartialReads partial;
        partial.read(rst, *item);
        rst.Close();
        if (listed) {
            putBack(listed, item);
        } else {
            insertAt(orderedPosition(*item), item);
        }
        partial.report(typeName);
        Q_EMIT q->SomeOneChanged(item);
        return true;
    }

    CItemPtr first(ItemIndex::Key key, qint32 value) const
    {
        CItemHook *hook = index.findInt(key, value, list);
        return hook ? hook->item : CItemPtr();
    }

    // Bulk changes announce one reset to the views instead of an insert or removal per item.
    struct ResetScope
    {
        explicit ResetScope(CItemsPrivate *d)
            : d(d)
        {
            if (d->resetDepth++ == 0) {
                Q_EMIT d->q->ListAboutToBeReset();
            }
        }
        ~ResetScope()
        {
            if (--d->resetDepth == 0) {
                Q_EMIT d->q->ListReset();
            }
        }
        Q_DISABLE_COPY_MOVE(ResetScope)
        CItemsPrivate *d;
    };

    CItems *q;
    int resetDepth = 0;
    std::function<bool(qint64)> loadProgress;
    CItems::LoadJoin loadJoin;
    CItems::PartialReadReport partialReport;
    bool keepUnique = false;
    QList<qint32> uniqueExemptions;
    std::shared_ptr<CConnection> connection;
    int itemType = 0;
    QString typeName;
    qint32 clientTypeID = 0;
    ItemList list;
    mutable ItemIndex index;
    mutable TextSearchIndex search;
    qsizetype inversions = 0;
};

QString CItems::typeName(int itemTypeID)
{
    if (!isItemTypeNumber(itemTypeID)) {
        return QString();
    }
    return QString::fromUtf16(kTypeNames[itemTypeID - 1]);
}

QString CItems::loadStatement(int itemTypeID)
{
    const QString type = QString::number(itemTypeID);
    switch (ItemType(itemTypeID)) {
    case ItemType::GoodsType:
        return u"Select * From T_Item Where F_Tag3 <= 0 And F_ItemTypeID="_s + type + u" Order By F_Tag1"_s;
    case ItemType::Goods:
        return u"Select * From T_Item Where F_Tag3 <= 0 And F_ItemTypeID="_s + type + u" Order By F_ItemNo"_s;
    case ItemType::UserRight:
        return u"Select * From T_Item Where F_ItemTypeID="_s + type + u" Order By F_Tag1"_s;
    default:
        return u"Select * From T_Item Where F_ItemTypeID="_s + type + u" Order By F_ItemNo,F_ItemName"_s;
    }
}

CItems::CItems(QObject *parent)
    : QObject(parent)
    , d(std::make_unique<CItemsPrivate>(this))
{ }

CItems::~CItems() = default;

bool CItems::InitInstance(const std::shared_ptr<CConnection> &connection, int itemTypeID, QObject *boundControl)
{
    d->connection = connection;
    d->itemType = itemTypeID;
    if (itemTypeID >= 1 && itemTypeID <= 12) {
        d->typeName = typeName(itemTypeID);
    }
    try {
        d->reload();
    } catch (const DbError &e) {
        Module1::SetErr(e.message());
        Module1::ShowErrMsg(u"读取"_s + d->typeName + u"数据失败:"_s);
        return false;
    } catch (const ItemLoader::Cancelled &) {
        return false;
    }
    if (boundControl && s_boundControlRefresh) {
        s_boundControlRefresh(*this, boundControl, std::nullopt);
    }
    return true;
}

void CItems::setLoadProgress(std::function<bool(qint64)> progress)
{
    d->loadProgress = std::move(progress);
}

void CItems::setLoadJoin(LoadJoin join)
{
    d->loadJoin = std::move(join);
}

void CItems::setKeepUnique(bool keep)
{
    d->keepUnique = keep;
}

bool CItems::keepUnique() const
{
    return d->keepUnique;
}

void CItems::setUniqueExemptions(const QList<qint32> &ids)
{
    d->uniqueExemptions = ids;
}

void CItems::setPartialReadReport(PartialReadReport report)
{
    d->partialReport = std::move(report);
}

void CItems::Attach(const std::shared_ptr<CConnection> &connection, int itemTypeID)
{
    {
        CItemsPrivate::ResetScope reset(d.get());
        d->clear();
    }
    d->connection = connection;
    d->itemType = itemTypeID;
    if (itemTypeID >= 1 && itemTypeID <= 12) {
        d->typeName = typeName(itemTypeID);
    }
}

CItemPtr CItems::Refresh(qint32 id)
{
    try {
        if (id < 1) {
            d->reload();
            return {};
        }
        return d->refreshOne(id);
    } catch (const DbError &e) {
        Module1::SetErr(e.message());
        Module1::ShowErrMsg(u"读取"_s + d->typeName + u"数据失败:"_s);
        return {};
    } catch (const ItemLoader::Cancelled &) {
        return {};
    }
}

bool CItems::FollowChange(qint32 id)
{
    try {
        return d->follow(id);
    } catch (const DbError &e) {
        Module1::SetErr(e.message());
        Module1::ShowErrMsg(u"读取"_s + d->typeName + u"数据失败:"_s);
        return false;
    }
}

CItemPtr CItems::Add(const CItemPtr &item)
{
    if (item) {
        d->append(item);
    }
    return item;
}

CItemPtr CItems::Item(qint32 index) const
{
    CItemHook *hook = d->hookAt(qsizetype(index) - 1);
    return hook ? hook->item : CItemPtr();
}

qint32 CItems::Count() const
{
    return qint32(d->list.size());
}

void CItems::Remove(qint32 index)
{
    d->removeAt(qsizetype(index) - 1);
}

qint32 CItems::PositionOf(const CItem *item) const
{
    if (!item) {
        return 0;
    }
    const CItemHook *hook = d->hookOf(item);
    return hook ? qint32(d->list.positionOf(hook) + 1) : 0;
}

CItemPtr CItems::GetItemByID(qint32 id, bool refreshFirst)
{
    if (refreshFirst) {
        Refresh(id);
    }
    return d->first(ItemIndex::ID, id);
}

CItemPtr CItems::GetItemByOrderID(qint32 orderID, bool refreshFirst)
{
    if (refreshFirst) {
        Refresh(orderID);
    }
    return d->first(ItemIndex::OrderByID, orderID);
}

CItemPtr CItems::GetItemByTag(qint32 value, int tagNo) const
{
    switch (tagNo) {
    case 1:
        return d->first(ItemIndex::Tag1, value);
    case 2:
        return d->first(ItemIndex::Tag2, value);
    case 3:
        return d->first(ItemIndex::Tag3, value);
    default:
        return {};
    }
}

CItemPtr CItems::GetItemByItemNo(const QString &itemNo) const
{
    CItemHook *hook = d->index.findText(ItemIndex::ItemNo, itemNo, d->list);
    return hook ? hook->item : CItemPtr();
}

CItemPtr CItems::GetItemByItemName(const QString &itemName) const
{
    CItemHook *hook = d->index.findText(ItemIndex::ItemName, itemName, d->list);
    return hook ? hook->item : CItemPtr();
}

CItemPtr CItems::SearchItemByID(qint32 id) const
{
    return d->first(ItemIndex::ID, id);
}

qint32 CItems::FindText(const ItemTextQuery &query, qint32 first, qint32 last) const
{
    return qint32(d->search.find(query, qsizetype(first) - 1, qsizetype(last) - 1, d->list) + 1);
}

bool CItems::PrepareTextSearch(qint32 maxItems) const
{
    return d->search.update(d->list, std::max<qsizetype>(maxItems, 0));
}

qint64 CItems::textSearchBytes() const
{
    return d->search.isTracking() ? qint64(d->search.bytes()) : 0;
}

QString CItems::ItemTypeName() const
{
    return d->typeName;
}

void CItems::setItemTypeName(const QString &name)
{
    d->typeName = name;
}

qint32 CItems::mlngClientTypeID() const
{
    return d->clientTypeID;
}

void CItems::setmlngClientTypeID(qint32 id)
{
    d->clientTypeID = id;
}

int CItems::itemTypeID() const
{
    return d->itemType;
}

std::shared_ptr<CConnection> CItems::connection() const
{
    return d->connection;
}

bool CItems::SaveItem(const CItemPtr &item, QObject *boundControl)
{
    if (!item) {
        return false;
    }
    const qint32 previousID = item->F_ID();
    try {
        if (!d->connection) {
            throw DbError(u"没有数据库连接"_s);
        }
        const bool isNew = previousID < 1;
        qint32 id = previousID;
        // On a server every statement is a round trip: the written row comes back with the write itself, and a new
        // item's key is checked by the insert, instead of a read before and after.
        const bool readBack = d->connection->engine() == CConnection::Engine::PostgreSQL;
        CItemsPrivate::PartialReads partial;
        bool written = false;
        // The one-statement insert cannot check the kind's numbers and names under the writers' lock.
        if (isNew && readBack && d->connection->transactionDepth() == 0 && !d->keepsUnique()) {
            // The common case of a new item is one statement, the key drawn inside it; anything unusual (no
            // counter row, a counter behind the rows) takes the way below.
            CRecordset rst(*d->connection);
            rst.OpenForInsert(u"T_Item"_s, u"F_ID"_s);
            rst.AddNew();
            QString error;
            if (!item->UpdateDataFromRst(rst, false, &error)) {
                throw DbError(error);
            }
            if (rst.Update(CRecordset::Returning::RowWithDrawnKey)) {
                partial.read(rst, *item);
                id = item->F_ID();
                written = true;
            }
        }
        if (!written) {
            CTransaction transaction(*d->connection);
            if (isNew) {
                id = Module1::GetNewID(*d->connection, u"T_Item"_s, true);
                item->setF_ID(id);
            }
            CRecordset rst(*d->connection);
            const auto writeNew = [&] {
                rst.AddNew();
                QString error;
                if (!item->UpdateDataFromRst(rst, false, &error)) {
                    throw DbError(error);
                }
                if (readBack) {
                    return rst.Update(CRecordset::Returning::RowIfKeyFree);
                }
                rst.Update();
                return true;
            };
            const auto keyTaken = [&] {
                if (readBack) {
                    rst.OpenForInsert(u"T_Item"_s, u"F_ID"_s);
                    return !writeNew();
                }
                rst.OpenTable(u"T_Item"_s, u"F_ID"_s, id);
                return !rst.isEOF() || !writeNew();
            };
            if (isNew) {
                d->checkUnique(*item, nullptr);
                if (keyTaken()) {
                    // The key counter fell behind the rows (another program, a restored backup): set it past the
                    // largest key and draw again, once.
                    Module1::ReseedKeyID(*d->connection, u"T_Item"_s);
                    id = Module1::GetNewID(*d->connection, u"T_Item"_s, true);
                    item->setF_ID(id);
                    if (keyTaken()) {
                        throw DbError(u"键值表 T_KeyID 落后于数据,重新校准后仍取不到新的键值"_s);
                    }
                }
            } else {
                rst.OpenTable(u"T_Item"_s, u"F_ID"_s, id, CRecordset::ForUpdate);
                if (rst.isEOF()) {
                    throw DbError(u"数据库中已没有这条记录(F_ID="_s + QString::number(id) + u")"_s);
                }
                // The row is locked now; it must still be the one the item was read from.
                CItem stored;
                stored.UpdateDataFromRst(rst, true);
                if (item->rowHash() != 0 && stored.rowHash() != item->rowHash()) {
                    throw SaveConflict();
                }
                d->checkUnique(*item, &stored);
                QString error;
                if (!item->UpdateDataFromRst(rst, false, &error)) {
                    throw DbError(error);
                }
                if (readBack) {
                    rst.Update(CRecordset::Returning::Row);
                } else {
                    rst.Update();
                }
            }
            if (readBack) {
                partial.read(rst, *item);
            }
            rst.Close();
            transaction.Commit();
        }
        if (readBack) {
            partial.report(d->typeName);
        } else {
            d->reread(id, *item);
        }
        // The saved item itself takes the stored values and the place in the list, and listeners are told about
        // it: a copy made for the re-read would be thrown away right after.
        if (CItemHook *listed = d->index.findInt(ItemIndex::ID, id, d->list)) {
            d->putBack(listed, item);
        } else {
            d->insertAt(d->orderedPosition(*item), item);
        }
        Q_EMIT SomeOneChanged(item);
        if (boundControl && s_boundControlRefresh) {
            s_boundControlRefresh(*this, boundControl, id);
        }
        return true;
    } catch (const TakenRefusal &refusal) {
        if (item->F_ID() != previousID && !d->hookOf(item.get())) {
            item->setF_ID(previousID);
        }
        CPrompt::current().MsgBox(refusal.message(), CPrompt::vbExclamation, CPrompt::messageTitle());
        return false;
    } catch (const SaveConflict &) {
        const int answer =
            CPrompt::current().MsgBox(u"该记录已被其他用户修改,请刷新后再改。\r\n是否放弃您的修改,重新读取这条记录?"_s,
                                      CPrompt::vbYesNo | CPrompt::vbExclamation, CPrompt::messageTitle());
        if (answer == CPrompt::vbYes) {
            reloadAfterConflict(item);
        }
        return false;
    } catch (const std::exception &e) {
        if (item->F_ID() != previousID && !d->hookOf(item.get())) {
            // The key was drawn inside the rolled-back transaction; the item is still unsaved.
            item->setF_ID(previousID);
        }
        const auto *db = dynamic_cast<const DbError *>(&e);
        Module1::SetErr(db ? db->message() : QString::fromLocal8Bit(e.what()));
        Module1::ShowErrMsg(u"保存元素失败!"_s);
        return false;
    }
}

void CItems::reloadAfterConflict(const CItemPtr &item)
{
    const qint32 id = item->F_ID();
    try {
        d->follow(id);
        if (const CItemPtr listed = SearchItemByID(id)) {
            if (listed != item) {
                *item = *listed;
            }
            Q_EMIT ItemReloaded(listed);
        } else if (!d->reread(id, *item)) {
            CPrompt::current().MsgBox(u"该记录已经被其他用户删除!"_s, CPrompt::vbInformation, CPrompt::messageTitle());
        }
    } catch (const DbError &e) {
        Module1::SetErr(e.message());
        Module1::ShowErrMsg(u"读取"_s + d->typeName + u"数据失败:"_s);
    }
}

bool CItems::SaveItemInfo(qint32 id, const QString &itemNo, const QString &itemName, qint32 orderByID, qint32 tag1,
                          const QDateTime &date, bool isSpecial, qint16 itemTypeID, QObject *boundControl)
{
    auto item = CItem::create();
    item->setF_ID(id);
    item->setF_ItemNo(itemNo);
    item->setF_ItemName(itemName);
    item->setF_OrderByID(orderByID);
    item->setF_Tag1(tag1);
    item->setF_Date(CItem::isLaterThanZeroDate(date) ? date.date().startOfDay(Qt::UTC) : date);
    item->setF_IsSpecial(isSpecial);
    item->setF_ItemTypeID(itemTypeID);
    return SaveItem(item, boundControl);
}

void CItems::AddNewItem(QObject *boundControl)
{
    QString title;
    const QString name = Module1::ShowInput(u"请输入新的"_s + d->typeName + u"名称:"_s, title, QString()).trimmed();
    if (name.isEmpty()) {
        return;
    }
    SaveItemInfo(0, QString(), name, 0, 0, QDateTime::currentDateTime(), false, qint16(d->itemType), boundControl);
}

void CItems::ModifyItem(qint32 id, QObject *boundControl)
{
    const CItemPtr item = SearchItemByID(id);
    if (!item) {
        return;
    }
    QString title;
    const QString name =
        Module1::ShowInput(u"请输入新的"_s + d->typeName + u"名称:"_s, title, item->F_ItemName()).trimmed();
    if (name.isEmpty()) {
        return;
    }
    item->setF_ItemName(name);
    SaveItem(item, boundControl);
}

bool CItems::RemoveItem(qint32 id)
{
    const QString sid = QString::number(id);
    const auto inUse = [&] {
        CPrompt::current().MsgBox(u"该记录已经被使用,禁止删除!"_s, CPrompt::vbExclamation, CPrompt::messageTitle());
        return false;
    };
    try {
        if (!d->connection || !SearchItemByID(id)) {
            // Only items of the list are ever deleted.
            return false;
        }
        CConnection &db = *d->connection;
        const auto hasRow = [&](const QString &sql) {
            QSqlQuery q = db.Select(sql);
            return CConnection::next(q);
        };
        const QString goodsMovements = u"Select F_GoodsID From T_GoodsInOutList Where F_GoodsID="_s + sid;

        bool forced = false;
        if (d->itemType == ItemType::Goods && hasRow(goodsMovements)) {
            // Asked before the transaction starts, so that no lock is held while the user thinks.
            const int answer =
                CPrompt::current().MsgBox(u"该商品记录已经被使用!\r\n您确实要强制删除吗?"_s,
                                          CPrompt::vbYesNo | CPrompt::vbQuestion, CPrompt::messageTitle());
            if (answer != CPrompt::vbYes) {
                return false;
            }
            forced = true;
        }

        // Another seat may have changed the item since it was read: the clerk decides on what is stored now.
        // The question is asked outside the transaction, which then starts over.
        bool changeAccepted = false;
        const auto changedElsewhere = [&] {
            const CItemPtr listed = SearchItemByID(id);
            if (changeAccepted || !listed || listed->rowHash() == 0) {
                return false;
            }
            CRecordset rst(db);
            rst.OpenTable(u"T_Item"_s, u"F_ID"_s, id, CRecordset::ForUpdate);
            if (rst.isEOF()) {
                return false;
            }
            CItem stored;
            stored.UpdateDataFromRst(rst, true);
            return stored.rowHash() != listed->rowHash();
        };
        int affected = 0;
        for (;;) {
            {
                CTransaction transaction(db);
                if (!changedElsewhere()) {
                    switch (ItemType(d->itemType)) {
                    case ItemType::Unit:
                        if (hasRow(u"Select F_ID From T_Item Where (F_Tag1="_s + sid + u" OR F_Tag2="_s + sid
                                   + u" OR F_Tag3="_s + sid + u" OR F_Tag4="_s + sid + u") AND F_ItemTypeID="_s
                                   + QString::number(itemTypeNumber(ItemType::Goods)))) {
                            return inUse();
                        }
                        break;
                    case ItemType::GoodsType:
                    case ItemType::ClientType:
                        if (hasRow(u"Select F_ID From T_Item Where F_ParentID="_s + sid)) {
                            return inUse();
                        }
                        break;
                    case ItemType::Goods:
                        if (forced) {
                            db.Execute(u"Delete From T_GoodsInOutList Where F_GoodsID="_s + sid);
                        } else if (hasRow(goodsMovements)) {
                            // Movements were booked while nobody was asked.
                            return inUse();
                        }
                        db.Execute(u"Delete From T_GoodsPrice Where F_GoodsID="_s + sid);
                        break;
                    default:
                        break;
                    }
                    affected = db.Execute(u"Delete From T_Item Where F_ID="_s + sid);
                    transaction.Commit();
                    break;
                }
            }
            const int answer =
                CPrompt::current().MsgBox(u"该记录已被其他用户修改!\r\n您确实要删除吗?"_s,
                                          CPrompt::vbYesNo | CPrompt::vbQuestion, CPrompt::messageTitle());
            if (answer != CPrompt::vbYes) {
                // The clerk sees what the other seat stored.
                d->follow(id);
                return false;
            }
            changeAccepted = true;
        }
        if (CItemHook *hook = d->index.findInt(ItemIndex::ID, id, d->list)) {
            d->removeAt(d->list.positionOf(hook));
        }
        Q_EMIT SomeOneRemoved(id);
        if (affected < 1) {
            // Another seat deleted the row first; the list lets go of it too, but this call deleted nothing.
            CPrompt::current().MsgBox(u"该记录已经被其他用户删除!"_s, CPrompt::vbInformation, CPrompt::messageTitle());
            return false;
        }
        return true;
    } catch (const DbError &e) {
        Module1::SetErr(e.message());
        Module1::ShowErrMsg(u"删除元素错误,因为它已经被系统使用,请删除相关记录后再试!"_s);
        return false;
    }
}

namespace {

using Chunks = std::vector<std::vector<CItemHook *>>;

} // namespace

CItems::const_iterator CItems::begin() const
{
    const_iterator it;
    it.m_chunks = &d->list.chunks();
    return it;
}

CItems::const_iterator CItems::end() const
{
    const_iterator it;
    it.m_chunks = &d->list.chunks();
    it.m_chunk = d->list.chunks().size();
    return it;
}

CItems::const_iterator::reference CItems::const_iterator::operator*() const
{
    return (*static_cast<const Chunks *>(m_chunks))[m_chunk][m_offset]->item;
}

CItems::const_iterator &CItems::const_iterator::operator++()
{
    if (++m_offset == (*static_cast<const Chunks *>(m_chunks))[m_chunk].size()) {
        ++m_chunk;
        m_offset = 0;
    }
    return *this;
}

namespace {

// A number as prefix and trailing counter: "SP0099" → ("SP", 99, 4). No digits at the end: counter -1.
struct NumberStyle
{
    QString prefix;
    qint64 counter = -1;
    int width = 0;
};

// When the database cannot say whether a number is free, no number is proposed: the clerk types one, and the
// save checks it.
QString noNumber()
{
    Module1::ShowErrMsg(u"生成新编号失败:"_s);
    return QString();
}

NumberStyle numberStyle(const QString &no)
{
    qsizetype digits = 0;
    while (digits < no.size() && digits < 18 && no.at(no.size() - 1 - digits).isDigit()) {
        ++digits;
    }
    NumberStyle style;
    style.prefix = no.left(no.size() - digits);
    if (digits > 0) {
        style.counter = no.right(digits).toLongLong();
        style.width = int(digits);
    }
    return style;
}

QString nextNumber(const CItems &items, const std::vector<QString> &numbers)
{
    // The style of the largest number (in the list's text order); its counter goes one up.
    const QString *largest = nullptr;
    for (const QString &no : numbers) {
        if (!no.isEmpty() && (!largest || no.compare(*largest) > 0)) {
            largest = &no;
        }
    }
    if (!largest) {
        return u"0001"_s;
    }
    NumberStyle style = numberStyle(*largest);
    qint64 highest = style.counter;
    if (style.counter < 0) {
        style.width = 4;
        highest = 0;
    } else {
        for (const QString &no : numbers) {
            const NumberStyle other = numberStyle(no);
            if (other.prefix == style.prefix && other.counter > highest) {
                highest = other.counter;
            }
        }
    }
    for (qint64 counter = highest + 1;; ++counter) {
        const QString candidate = style.prefix + QString::number(counter).rightJustified(style.width, u'0');
        const std::optional<bool> taken = items.numberTaken(candidate);
        if (!taken) {
            return noNumber();
        }
        if (!*taken) {
            return candidate;
        }
    }
}

} // namespace

QString CItems::GetNewGoodsNo() const
{
    std::vector<QString> numbers;
    numbers.reserve(std::size_t(Count()));
    for (const CItemPtr &item : *this) {
        numbers.push_back(item->F_ItemNo());
    }
    return nextNumber(*this, numbers);
}

QString CItems::GetNewGoodsNoEx(qint32 goodsTypeID) const
{
    std::vector<QString> numbers;
    for (const CItemPtr &item : *this) {
        if (item->F_ParentID() == goodsTypeID) {
            numbers.push_back(item->F_ItemNo());
        }
    }
    return numbers.empty() ? GetNewGoodsNo() : nextNumber(*this, numbers);
}

bool CItems::HasTheItemNo(const QString &itemNo, qint32 exceptID) const
{
    for (const CItemPtr &item : *this) {
        if ((exceptID < 1 || item->F_ID() != exceptID) && item->F_ItemNo() == itemNo) {
            return true;
        }
    }
    return false;
}

bool CItems::HasTheItemName(const QString &itemName, qint32 exceptID) const
{
    for (const CItemPtr &item : *this) {
        if ((exceptID < 1 || item->F_ID() != exceptID) && item->F_ItemName() == itemName) {
            return true;
        }
    }
    return false;
}

std::optional<Currency> CItems::GetPriceByClientTypeID(qint32 goodsID, qint32 clientTypeID) const
{
    if (!d->connection) {
        throw DbError(u"没有数据库连接"_s);
    }
    return GoodsPriceBook::read(*d->connection, goodsID, 0, clientTypeID);
}

Currency CItems::ReadPublicPrice(qint32 goodsID) const
{
    const CItemPtr goods = SearchItemByID(goodsID);
    return goods ? goods->F_PriceSale() : Currency();
}

QString CItems::GetNewGoodsNoEx2(qint32 goodsTypeID, const CItems &types) const
{
    const CItemPtr type = types.SearchItemByID(goodsTypeID);
    if (!type || type->F_ItemNo().trimmed().isEmpty()) {
        return GetNewGoodsNoEx(goodsTypeID);
    }
    return numberAfter(type->F_ItemNo().trimmed(), goodsTypeID);
}

QString CItems::GetNewItemNo(const QString &prefix) const
{
    return numberAfter(prefix, std::nullopt);
}

QString CItems::numberAfter(const QString &prefix, std::optional<qint32> parentID) const
{
    qint64 highest = 0;
    int width = 4;
    for (const CItemPtr &item : *this) {
        const QString &no = item->F_ItemNo();
        if ((parentID && item->F_ParentID() != *parentID) || !no.startsWith(prefix)) {
            continue;
        }
        bool ok = false;
        const qint64 counter = no.mid(prefix.size()).toLongLong(&ok);
        if (ok && counter >= highest) {
            highest = counter;
            width = qMax(width, int(no.size() - prefix.size()));
        }
    }
    for (qint64 counter = highest + 1;; ++counter) {
        const QString candidate = prefix + QString::number(counter).rightJustified(width, u'0');
        const std::optional<bool> taken = numberTaken(candidate);
        if (!taken) {
            return noNumber();
        }
        if (!*taken) {
            return candidate;
        }
    }
}

bool CItems::isNumberTaken(const QString &itemNo) const
{
    return numberTaken(itemNo).value_or(true);
}

std::optional<bool> CItems::numberTaken(const QString &itemNo) const
{
    if (GetItemByItemNo(itemNo)) {
        return true;
    }
    // Goods the list leaves out (hidden ones) keep their numbers too.
    try {
        return d->connection && HasTheItemNoEx(itemNo);
    } catch (const DbError &e) {
        Module1::SetErr(e.message());
        return std::nullopt;
    }
}

bool CItems::HasTheItemNoEx(const QString &itemNo, qint32 exceptID) const
{
    if (!d->connection) {
        throw DbError(u"没有数据库连接"_s);
    }
    QSqlQuery q =
        d->connection->Select(u"Select Count(*) From T_Item Where F_ItemTypeID=? And F_ItemNo=? And F_ID<>?"_s,
                              {d->itemType, itemNo, exceptID});
    return CConnection::next(q) && q.value(0).toLongLong() > 0;
}

namespace {

// The name of the first item of each ID, in list order: what GetItemByID would find, read once instead of per item.
std::shared_ptr<const QHash<qint32, QString>> namesByID(const CItems &items)
{
    auto names = std::make_shared<QHash<qint32, QString>>();
    names->reserve(items.Count());
    for (const CItemPtr &item : items) {
        if (!names->contains(item->F_ID())) {
            names->insert(item->F_ID(), item->F_ItemName());
        }
    }
    return names;
}

} // namespace

CItems::LoadJoin CItems::GoodsNameJoin(const CItems &units, const CItems &types)
{
    return [unitNames = namesByID(units), typeNames = namesByID(types)](CItem &item) {
        if (const auto unit = unitNames->constFind(item.F_Tag1()); unit != unitNames->cend()) {
            item.setmUnitName(*unit);
        }
        if (const auto type = typeNames->constFind(item.F_ParentID()); type != typeNames->cend()) {
            item.setmTypeName(*type);
        }
    };
}

CItems::LoadJoin CItems::ClientTypeNameJoin(const CItems &clientTypes)
{
    return [typeNames = namesByID(clientTypes)](CItem &item) {
        if (const auto type = typeNames->constFind(item.F_ParentID()); type != typeNames->cend()) {
            item.setmTypeName(*type);
        }
    };
}

void CItems::JoinGoodsNames(const CItems &goods, CItems &units, CItems &types)
{
    const LoadJoin join = GoodsNameJoin(units, types);
    for (const CItemPtr &item : goods) {
        join(*item);
    }
}

void CItems::JoinClientTypeNames(const CItems &clients, CItems &clientTypes)
{
    const LoadJoin join = ClientTypeNameJoin(clientTypes);
    for (const CItemPtr &client : clients) {
        join(*client);
    }
}

std::vector<CItemPtr> CItems::RejoinName(const CItems &dependants, const CItem &changed)
{
    std::vector<CItemPtr> result;
    const qint32 id = changed.F_ID();
    const ItemType kind = ItemType(changed.F_ItemTypeID());
    const ItemType dependantKind = ItemType(dependants.itemTypeID());
    if (id < 1) {
        return result;
    }
    if (kind == ItemType::Unit && dependantKind == ItemType::Goods) {
        for (const CItemPtr &item : dependants) {
            if (item->F_Tag1() == id) {
                item->setmUnitName(changed.F_ItemName());
                result.push_back(item);
            }
        }
    } else if ((kind == ItemType::GoodsType && dependantKind == ItemType::Goods)
               || (kind == ItemType::ClientType && dependantKind == ItemType::Client)) {
        for (const CItemPtr &item : dependants) {
            if (item->F_ParentID() == id) {
                item->setmTypeName(changed.F_ItemName());
                result.push_back(item);
            }
        }
    }
    return result;
}
