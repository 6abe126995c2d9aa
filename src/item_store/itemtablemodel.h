#ifndef QUILLON_ITEMTABLEMODEL_H
#define QUILLON_ITEMTABLEMODEL_H

#include "citem.h"
#include "quillon_export.h"

#include <QAbstractTableModel>
#include <QDateTime>
#include <QList>
#include <QPointer>

#include <functional>
#include <unordered_map>
#include <unordered_set>
#include <vector>

class CItems;

/**
 * A table over an items collection, one row per item in list order, read straight from the items (nothing is
 * copied), followed by the new rows not yet saved. Edits are kept aside until SaveChanges writes them through the
 * collection; the collection's own changes reach the view as exact row insertions, removals, moves and dataChanged.
 *
 * Not sortable or filterable; the unit and type columns show the names joined in by the facade and are read-only.
 */
class QUILLON_EXPORT ItemTableModel : public QAbstractTableModel
{
    Q_OBJECT
    // The table as a flexible grid (row 0 the headings), for grid services such as the spreadsheet export.
    Q_PROPERTY(qint32 Rows READ Rows)
    Q_PROPERTY(qint32 Cols READ Cols)

public:
    enum Field {
        ItemNo,
        ItemName,
        Standard,
        UnitName,
        TypeName,
        PriceEnterPack,
        PriceEnter,
        PriceSalePack,
        PriceSale,
        PackageAmount,
        LimitUp,
        LimitDown,
        Spell,
        Remark,
        LinkMen,
        Tel1,
        Tel2,
        Tel3,
        Address,
        PostCode,
        Bank,
        BankAccount,
        ArtificialPerson,
        IRDNumber,
        OweWarring,
        OweStop,
    };
    Q_ENUM(Field)

    /// The columns a clerk sees for goods, for clients and suppliers, and for every other kind.
    static QList<Field> goodsFields();
    static QList<Field> clientFields();
    static QList<Field> simpleFields();
    static QList<Field> fieldsForType(int itemTypeID);
    /// The title of a kind that the management window lists ("部门", "客户" ...); empty for the kinds it does not
    /// show (options, user rights, the company record).
    static QString kindTitle(int itemTypeID);
    /// The sheet a kind's grid is exported to: its title, then the month, day and time ("商品1124093015"); empty
    /// for kinds without a title.
    static QString exportSheetName(int itemTypeID, const QDateTime &when);
    static QString fieldTitle(Field field);
    static bool isFieldEditable(Field field);
    /// Whether a field is a unit price (four decimals are kept and shown); the other amounts are totals, kept and
    /// shown with two.
    static bool isPriceField(Field field);
    /// A unit price as the tables and dialogs show it: four decimals ("35.5680", "44.4600").
    static QString priceText(Currency value);
    /// A total (money, credit limits) as the tables and dialogs show it: two decimals ("44.46").
    static QString totalText(Currency value);
    /// A total rounded to the two decimals it is kept with (half away from zero).
    static Currency totalOf(Currency value);
    /// The text a field of an item shows.
    static QString fieldText(const CItem &item, Field field);

    explicit ItemTableModel(CItems *items, const QList<Field> &fields, QObject *parent = nullptr);
    ~ItemTableModel() override;
    Q_DISABLE_COPY_MOVE(ItemTableModel)

    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    int columnCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;
    /// Checks and keeps an edit; a refused text raises editRejected with the reason and returns false.
    bool setData(const QModelIndex &index, const QVariant &value, int role = Qt::EditRole) override;

    CItems *items() const;
    qint32 Rows() const { return rowCount() + 1; }
    qint32 Cols() const { return columnCount(); }
    /// The heading (row 0) or the text of a cell; empty outside the table.
    Q_INVOKABLE QString TextMatrix(qint32 row, qint32 col) const;
    QList<Field> fields() const { return m_fields; }
    Field field(int column) const { return m_fields.value(column); }
    int columnOf(Field field) const { return int(m_fields.indexOf(field)); }

    /// The item as the row shows it (with pending edits); none outside the table.
    CItemPtr itemAt(int row) const;
    /// The row of an item of the collection (or a new row), -1 when none.
    int rowOf(const CItem *item) const;
    int rowOfID(qint32 id) const;
    bool isNewRow(int row) const;
    /// True for a new row and for a row whose edits wait for SaveChanges.
    bool isPendingRow(int row) const;
    /// The pending rows (isPendingRow) in row order: the rows that do not show the collection's item as it is.
    QList<int> pendingRows() const;
    /// Appends an empty item of the collection's type as a new row; returns its row.
    int addNewRow();
    /// Drops a new (unsaved) row; false for rows of the collection.
    bool removeNewRow(int row);

    /// Makes the mnemonic code of a name; a renamed row takes the code of its new name unless the clerk typed one in
    /// the same edit. Without one the code is left as it is.
    using SpellMaker = std::function<QString(const QString &name)>;
    void setSpellMaker(SpellMaker maker) { m_spellMaker = std::move(maker); }

    /// True while edits or new rows wait for SaveChanges.
    bool isModified() const { return !m_edited.empty() || !m_newItems.empty(); }
    /// Saves every edited and new row through the collection, in row order. First every row is checked as the edit
    /// dialogs check it (name, and for goods the number, required; number and name unique within the kind); a
    /// refused row is reported, raises saveRefused and nothing is written. Stops at the first failure of the
    /// collection (which it has reported); the rows not saved keep their edits. Returns true when everything was
    /// saved.
    bool SaveChanges();
    /// The reason SaveChanges refuses the pending rows, with the row and field to correct; empty when they pass.
    struct Refusal
    {
        QString message;
        int row = -1;
        Field field = ItemName;
    };
    Refusal checkPending() const;
    void discardChanges();
    /// Tells the views that the item's row shows new values (not while the row shows a pending edit of it).
    void refreshItem(const CItem *item);

Q_SIGNALS:
    void modifiedChanged(bool modified);
    void editRejected(const QString &message);
    /// SaveChanges refused the pending rows because of this row's field.
    void saveRefused(int row, ItemTableModel::Field field);

private:
    void connectItems();
    bool isCell(const QModelIndex &index) const;
    void setModifiedState();
    const CItem *shown(int row) const;
    CItemPtr rowItem(int row) const;
    bool applyText(CItem &item, Field field, const QString &text);
    void forgetEdit(const CItem *item);

    QPointer<CItems> m_items;
    QList<Field> m_fields;
    int m_itemType = 0;
    // Pending edits of items in the collection: the item → a working copy holding the edited values.
    std::unordered_map<const CItem *, CItemPtr> m_edited;
    std::vector<CItemPtr> m_newItems;
    // Working copies and new rows whose mnemonic code the clerk typed; their renames keep it.
    std::unordered_set<const CItem *> m_spellTyped;
    SpellMaker m_spellMaker;
    bool m_modified = false;
};

#endif
