#ifndef QUILLON_ITEMLISTMODEL_H
#define QUILLON_ITEMLISTMODEL_H

#include "citem.h"
#include "itemtablemodel.h"
#include "quillon_export.h"

#include <QAbstractTableModel>

#include <functional>
#include <vector>

/**
 * A read-only table of chosen items (a picker's filtered list), with the columns of ItemTableModel's fields.
 * Holds shared pointers to the items, not copies. Optionally checkable rows for multiple choice.
 */
class QUILLON_EXPORT ItemListModel : public QAbstractTableModel
{
    Q_OBJECT

public:
    explicit ItemListModel(const QList<ItemTableModel::Field> &fields, QObject *parent = nullptr);
    ~ItemListModel() override;
    Q_DISABLE_COPY_MOVE(ItemListModel)

    /// True when a clerk's search text finds the item: its number, name, mnemonic code (or, when `withStandard`,
    /// specification) contains the text, ignoring case, or the text is a mnemonic code of part of its name with
    /// any reading of each character (CSpell::MatchCode). An empty text finds everything.
    static bool matches(const CItem &item, const QString &text, bool withStandard = false);

    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    int columnCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    bool setData(const QModelIndex &index, const QVariant &value, int role = Qt::EditRole) override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;

    void setItems(std::vector<CItemPtr> items);
    const std::vector<CItemPtr> &items() const { return m_items; }
    CItemPtr itemAt(int row) const;
    /// Replaces the fields shown by a column of its own (e.g. quantity and price of goods lines).
    void setExtraColumn(const QString &title, std::function<QString(const CItem &)> text);

    /// Rows get a check box in the first column; the checked items are kept across setItems.
    void setCheckable(bool checkable) { m_checkable = checkable; }
    std::vector<CItemPtr> checkedItems() const;
    void setChecked(const CItemPtr &item, bool checked);

private:
    QList<ItemTableModel::Field> m_fields;
    std::vector<CItemPtr> m_items;
    std::vector<std::pair<QString, std::function<QString(const CItem &)>>> m_extra;
    std::vector<CItemPtr> m_checked;
    bool m_checkable = false;
};

#endif
