#ifndef QUILLON_CITEMS_H
#define QUILLON_CITEMS_H

#include "citem.h"
#include "quillon_export.h"

#include <QDateTime>
#include <QObject>
#include <QString>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

class CConnection;
class QAbstractItemView;
class QComboBox;
class QTreeWidget;
class QWidget;
class CItemsPrivate;
class ItemTextQuery;

/**
 * All items of one item type, loaded from T_Item, in list order, with look-ups and change events; every change of
 * master data goes through it so that all windows holding the collection stay in step.
 *
 * Look-ups return the first match in list order, through hash indexes that follow the list and the items' fields.
 * Items are shared: an item taken from the collection stays valid after it left the list. Not thread-safe.
 */
class QUILLON_EXPORT CItems : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QString ItemTypeName READ ItemTypeName WRITE setItemTypeName)
    Q_PROPERTY(qint32 mlngClientTypeID READ mlngClientTypeID WRITE setmlngClientTypeID)

public:
    /// Display name of an item type ("客户", "商品" ...), empty outside 1 to 12.
    static QString typeName(int itemTypeID);
    /// The statement that loads every item of a type, in list order.
    static QString loadStatement(int itemTypeID);

    explicit CItems(QObject *parent = nullptr);
    ~CItems() override;
    Q_DISABLE_COPY_MOVE(CItems)

    /// Connects the collection to a database and item type and loads it; `boundControl` (a QComboBox or QListWidget)
    /// is filled with the names. A failed load shows the error and gives false, keeping the list it had.
    bool InitInstance(const std::shared_ptr<CConnection> &connection, int itemTypeID, QObject *boundControl = nullptr);

    /// Told the rows read so far now and then while a full load reads (about every 50 ms); returning false stops the
    /// load, which keeps the list it had (InitInstance then gives false without a message). None by default.
    void setLoadProgress(std::function<bool(qint64 rowsRead)> progress);

    /// Completes an item read by a full load before the list takes it, e.g. with names from other lists. It runs on
    /// the loading threads, several at once: it must only read what stays as it is during the load.
    using LoadJoin = std::function<void(CItem &item)>;
    /// Applied to every item of the following full loads; none by default.
    void setLoadJoin(LoadJoin join);

    /// Makes SaveItem refuse, inside its write and one writer of the kind after the other, a number or name another
    /// item of the kind has by now, with the edit dialogs' message ("商品编号[G1]已经存在,请换一个编号!"). Only values
    /// the save changes are checked, so stored duplicates keep working. Off by default; the program's windows,
    /// dialogs and command line turn it on for the kinds they edit.
    void setKeepUnique(bool keep);
    bool keepUnique() const;
    /// Items whose stored values do not count against a save (a batch that trades names among its items checks
    /// the outcome itself); empty by default.
    void setUniqueExemptions(const QList<qint32> &ids);

    /// Told, instead of the user, of rows a full load could not read whole: the kind's name, how many, and the
    /// first ("F_ID=...: reason"). None by default: the collection then shows its own message.
    using PartialReadReport = std::function<void(const QString &kind, int rows, const QString &first)>;
    void setPartialReadReport(PartialReadReport report);

    /// Connects the collection to a database and item type without loading anything (for storing single items).
    void Attach(const std::shared_ptr<CConnection> &connection, int itemTypeID);

    /// `id` below 1 reloads the whole list; otherwise reloads that one item (inserting it when new to the list) and
    /// raises SomeOneChanged. Returns the item, or none.
    CItemPtr Refresh(qint32 id = 0);

    /// After another seat changed the row of `id`: the listed item takes the stored values and raises
    /// SomeOneChanged, a row new to the list is added likewise, and an item whose row is gone (or no longer of this
    /// kind) leaves the list with SomeOneRemoved. Nothing happens when the list already shows the row (our own
    /// save). Returns whether anything changed.
    bool FollowChange(qint32 id);

    CItemPtr Add(const CItemPtr &item);
    /// By 1-based position; none outside 1..Count.
    CItemPtr Item(qint32 index) const;
    qint32 Count() const;
    /// Takes the item at a 1-based position out of the list (the database is not touched).
    void Remove(qint32 index);
    /// The 1-based position of an item in the list, 0 when it is not in it.
    qint32 PositionOf(const CItem *item) const;

    CItemPtr GetItemByID(qint32 id, bool refreshFirst = false);
    CItemPtr GetItemByOrderID(qint32 orderID, bool refreshFirst = false);
    /// First item whose F_Tag1, F_Tag2 or F_Tag3 (tagNo 1 to 3) equals `value`.
    CItemPtr GetItemByTag(qint32 value, int tagNo) const;
    CItemPtr GetItemByItemNo(const QString &itemNo) const;
    CItemPtr GetItemByItemName(const QString &itemName) const;
    CItemPtr SearchItemByID(qint32 id) const;

    /// The 1-based position of the first item from `first` to `last` (1-based, both included; clamped to the list)
    /// that `query` finds, 0 when none. The query's patterns are looked up in a text index of the items' numbers,
    /// names and mnemonic codes, which the collection makes on the first search (or PrepareTextSearch) and keeps in
    /// step with every change of the list and of those fields from then on.
    qint32 FindText(const ItemTextQuery &query, qint32 first, qint32 last) const;
    /// Makes the text index now (or brings it up to date), so that the next FindText does not wait for it. With
    /// `maxItems`, reads about that many items at most and returns whether the index is complete: a window can
    /// spread the work over several turns of its event loop.
    bool PrepareTextSearch(qint32 maxItems = 0) const;
    /// The memory the text index holds, in bytes (0 before it is made).
    qint64 textSearchBytes() const;

    QString ItemTypeName() const;
    void setItemTypeName(const QString &name);
    qint32 mlngClientTypeID() const;
    void setmlngClientTypeID(qint32 id);

    int itemTypeID() const;
    std::shared_ptr<CConnection> connection() const;

    /// Inserts or updates the item in T_Item and in the list; see the class's persistence rules. An item read from
    /// the database is only saved over the row it was read from: when another seat changed that row since, the
    /// save is refused ("该记录已被其他用户修改,请刷新后再改。") and the user may reload the item (ItemReloaded).
    bool SaveItem(const CItemPtr &item, QObject *boundControl = nullptr);
    bool SaveItemInfo(qint32 id, const QString &itemNo, const QString &itemName, qint32 orderByID, qint32 tag1,
                      const QDateTime &date, bool isSpecial, qint16 itemTypeID, QObject *boundControl = nullptr);
    /// Asks for a name and adds an item of the collection's type.
    void AddNewItem(QObject *boundControl = nullptr);
    /// Asks for a new name of the item with that id and saves it.
    void ModifyItem(qint32 id, QObject *boundControl = nullptr);
    /// Deletes the item if nothing uses it (goods in use only after the user agreed); false when refused or failed.
    /// An item whose row is already gone leaves the list as a deleted one does, and the user is told.
    bool RemoveItem(qint32 id);

    /// The next free goods number in the style of the existing ones: the largest number's prefix and a counter one
    /// above it, zero-padded to the same width ("SP0099" → "SP0100"); never a number that exists. "0001" when
    /// there is none.
    QString GetNewGoodsNo() const;
    /// The same among the goods of one goods type (F_ParentID); falls back to GetNewGoodsNo when the type has none.
    QString GetNewGoodsNoEx(qint32 goodsTypeID) const;
    /// A goods number made of the goods type's own number and a four-digit counter ("01" → "010001", "010002"
    /// ...), the counter one above the largest such number of the type.
    QString GetNewGoodsNoEx2(qint32 goodsTypeID, const CItems &types) const;
    /// The number after the largest `prefix` + counter of the list ("KH0026" → "KH0027"; "KH0001" when none),
    /// e.g. for clients and suppliers; never a number that exists.
    QString GetNewItemNo(const QString &prefix) const;
    /// Like HasTheItemNo, but asks the database: items of this type that the list does not hold (hidden goods)
    /// count too. Throws DbError.
    bool HasTheItemNoEx(const QString &itemNo, qint32 exceptID = 0) const;
    /// Whether a number is in the list or, for a collection with a database, in T_Item for this type. A number
    /// the database could not be asked about counts as taken.
    bool isNumberTaken(const QString &itemNo) const;
    /// The same, with none when the database check failed (the error is set for ShowErrMsg).
    std::optional<bool> numberTaken(const QString &itemNo) const;
    /// Whether another item (F_ID other than `exceptID`; 0 excepts none) has this number or name, compared as the
    /// look-ups do.
    bool HasTheItemNo(const QString &itemNo, qint32 exceptID = 0) const;
    bool HasTheItemName(const QString &itemName, qint32 exceptID = 0) const;

    /// The price of a goods for a client type (T_GoodsPrice), when one is set. Throws DbError.
    std::optional<Currency> GetPriceByClientTypeID(qint32 goodsID, qint32 clientTypeID) const;
    /// The price everybody pays: the goods' single-piece sale price (0 for goods not in the list).
    Currency ReadPublicPrice(qint32 goodsID) const;

    // The binders below fill widgets; they are implemented by the widget library (itembinders.cpp), which also
    // installs the refresh of bound controls when it is loaded. A program without widgets does not call them.

    /// How InitInstance and SaveItem bring a bound control up to date: fill it and, with an id, select that item.
    using BoundControlRefresh = void (*)(const CItems &items, QObject *control, std::optional<qint32> selectID);
    static void setBoundControlRefresh(BoundControlRefresh refresh);

    /// Fills a QComboBox or QListWidget with the items' names, each with its F_ID as item data.
    void BindComboBox(QObject *control) const;
    /// Fills a combo box with the names (F_ID as item data), optionally after a "(无)" entry, and selects `selectedID`.
    void FillItemToCombox(QComboBox *combo, qint32 selectedID = 0, bool withNone = false) const;
    /// Fills a filter combo box: an entry for everything (data 0) first, then "number - name" per item.
    void FillIntoComboxEx1(QComboBox *combo, const QString &allText = QStringLiteral("全部")) const;
    /// Lists goods in a tree widget: number, name, specification, unit, sale price; F_ID as the row's data.
    void ShowGoodsToListView(QTreeWidget *view) const;
    /// A small window to add, rename and delete the items of this collection by name.
    void ItemsMan(QWidget *parent = nullptr);
    /// Selects the entry of a QComboBox or QListWidget whose item data is `id`.
    void SearchIDInCombox(QObject *control, qint32 id) const;

    /// Shows the collection in a table view through an ItemTableModel (the view's previous model of that kind is
    /// released): the columns of the collection's kind.
    void ShowItemsToGrid(QAbstractItemView *grid);
    /// The same with the goods columns (number, name, specification, unit, type, prices, package, limits ...).
    void ShowGoodsToGridEx(QAbstractItemView *grid);
    /// Brings the row of one goods item in a grid bound by the two above up to date.
    void FillOneGoodsToGrid(QAbstractItemView *grid, const CItemPtr &goods) const;

    /// Fills mUnitName and mTypeName of goods from their unit (F_Tag1) and goods type (F_ParentID).
    static void JoinGoodsNames(const CItems &goods, CItems &units, CItems &types);
    /// Fills mTypeName of clients from their client type (F_ParentID).
    static void JoinClientTypeNames(const CItems &clients, CItems &clientTypes);
    /// JoinGoodsNames for one goods item at a time, with the names the two lists hold now (the first item of an ID
    /// in list order, as GetItemByID finds it); a name that is not found leaves the item's as it was.
    static LoadJoin GoodsNameJoin(const CItems &units, const CItems &types);
    /// JoinClientTypeNames for one client at a time, in the same way.
    static LoadJoin ClientTypeNameJoin(const CItems &clientTypes);
    /// After a unit, goods type or client type was saved: the goods or clients of `dependants` that refer to it take
    /// its name again (mUnitName or mTypeName). Returns those items, for redrawing them.
    static std::vector<CItemPtr> RejoinName(const CItems &dependants, const CItem &changed);

    class const_iterator;
    const_iterator begin() const;
    const_iterator end() const;

Q_SIGNALS:
    void DataChanged();
    void SomeOneChanged(const CItemPtr &item);
    void SomeOneRemoved(qint32 id);
    void OnInitItem(const QString &itemTypeName);
    /// Structural changes of the list, for views over it; positions are 1-based.
    void ItemAboutToBeInserted(qint32 position);
    void ItemInserted(qint32 position);
    void ItemAboutToBeRemoved(qint32 position);
    void ItemRemoved(qint32 position);
    /// A saved item changes its place: it leaves `from` and ends up at `to` (its position once moved).
    void ItemAboutToBeMoved(qint32 from, qint32 to);
    void ItemMoved(qint32 from, qint32 to);
    /// The item saved over a listed one (a copy with the same F_ID) took its place; `previous` left the list.
    void ItemReplaced(qint32 position, const CItemPtr &previous);
    /// After a refused save the user chose to reload the item: it shows the stored values, edits of it are void.
    void ItemReloaded(const CItemPtr &item);
    void ListAboutToBeReset();
    void ListReset();

private:
    void reloadAfterConflict(const CItemPtr &item);
    QString numberAfter(const QString &prefix, std::optional<qint32> parentID) const;

    std::unique_ptr<CItemsPrivate> d;
    friend class CItemsPrivate;
};

class QUILLON_EXPORT CItems::const_iterator
{
public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = CItemPtr;
    using difference_type = std::ptrdiff_t;
    using pointer = const CItemPtr *;
    using reference = const CItemPtr &;

    const_iterator() = default;
    reference operator*() const;
    pointer operator->() const { return &**this; }
    const_iterator &operator++();
    const_iterator operator++(int)
    {
        const_iterator old = *this;
        ++*this;
        return old;
    }
    friend bool operator==(const const_iterator &a, const const_iterator &b)
    {
        return a.m_chunks == b.m_chunks && a.m_chunk == b.m_chunk && a.m_offset == b.m_offset;
    }

private:
    friend class CItems;
    const void *m_chunks = nullptr;
    std::size_t m_chunk = 0;
    std::size_t m_offset = 0;
};

#endif
