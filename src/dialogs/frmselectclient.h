#ifndef QUILLON_FRMSELECTCLIENT_H
#define QUILLON_FRMSELECTCLIENT_H

#include "citem.h"
#include "quillon_export.h"

#include <QDialog>

#include <memory>

class CItems;
class ItemListModel;
class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QTableView;

/**
 * Picks one client: filtered by area and client type, found by typing part of its number, name or mnemonic
 * code. Enter or a double click returns the client, Esc returns nothing.
 */
class QUILLON_EXPORT frmSelectClient : public QDialog
{
    Q_OBJECT

public:
    explicit frmSelectClient(QWidget *parent = nullptr);
    ~frmSelectClient() override;
    Q_DISABLE_COPY_MOVE(frmSelectClient)

    QComboBox *const cboArea;
    QComboBox *const cboClientType;
    QLineEdit *const txtSearch;
    QTableView *const lvClients;
    QLabel *const lblCount;
    QPushButton *const cmdOK;
    QPushButton *const cmdCancel;

    /// Shows the dialog modally; the chosen client, or none when cancelled.
    CItemPtr SelectClient(const std::shared_ptr<CItems> &areas, const std::shared_ptr<CItems> &clientTypes,
                          const std::shared_ptr<CItems> &clients);
    /// Fills the dialog as SelectClient does, without showing it.
    void LoadClients(const std::shared_ptr<CItems> &areas, const std::shared_ptr<CItems> &clientTypes,
                     const std::shared_ptr<CItems> &clients);
    /// Applies the filters and the search text to the list.
    void RefreshList();
    CItemPtr currentClient() const;
    CItemPtr chosenClient() const { return m_chosen; }

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void choose();

    std::shared_ptr<CItems> m_clients;
    ItemListModel *m_model;
    CItemPtr m_chosen;
};

#endif
