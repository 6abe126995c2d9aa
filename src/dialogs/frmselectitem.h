#ifndef QUILLON_FRMSELECTITEM_H
#define QUILLON_FRMSELECTITEM_H

#include "citem.h"
#include "quillon_export.h"

#include <QDialog>

#include <vector>

class CItems;
class ItemListModel;
class QLineEdit;
class QPushButton;
class QTableView;

/**
 * Chooses several items of one collection (e.g. material receivers): each row has a check box, the search box
 * narrows the list without losing checks, Space toggles the current row.
 */
class QUILLON_EXPORT frmSelectItem : public QDialog
{
    Q_OBJECT

public:
    explicit frmSelectItem(QWidget *parent = nullptr);
    ~frmSelectItem() override;
    Q_DISABLE_COPY_MOVE(frmSelectItem)

    QLineEdit *const txtSearch;
    QTableView *const lstItems;
    QPushButton *const cmdSelectAll;
    QPushButton *const cmdOK;
    QPushButton *const cmdCancel;

    /// Shows the dialog modally; the checked items in list order, empty when cancelled.
    std::vector<CItemPtr> SelectItems(const CItems &items, const QString &title);
    void LoadItems(const CItems &items, const QString &title);
    void RefreshList();
    /// The checked items in the collection's order.
    std::vector<CItemPtr> checkedItems() const;

private:
    void toggleRow(int row);
    std::vector<CItemPtr> m_all;
    ItemListModel *m_model;
};

#endif
