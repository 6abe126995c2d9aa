#ifndef QUILLON_FRMCLIENTEDIT_H
#define QUILLON_FRMCLIENTEDIT_H

#include "citem.h"
#include "quillon_export.h"

#include <QDialog>
#include <QVariant>

#include <memory>

class CItems;
class QComboBox;
class QLineEdit;
class QPushButton;

/**
 * Edits one client or supplier, new or existing: number, name, mnemonic code, client type, area, contact,
 * telephones, address, post code, bank and account, legal representative, tax number, debt warning and stop
 * levels, remark. Saves through the clients collection. Enter moves to the next field.
 */
class QUILLON_EXPORT frmClientEdit : public QDialog
{
    Q_OBJECT

public:
    /// Modes of EditClient for a new record.
    enum Mode { ClientMode = 0, SupplierMode = 1 };

    explicit frmClientEdit(QWidget *parent = nullptr);
    ~frmClientEdit() override;
    Q_DISABLE_COPY_MOVE(frmClientEdit)

    QLineEdit *const txtNo;
    QLineEdit *const txtName;
    QLineEdit *const txtSpell;
    QComboBox *const cboClientType;
    QComboBox *const cboArea;
    QLineEdit *const txtLinkMen;
    QLineEdit *const txtTel1;
    QLineEdit *const txtTel2;
    QLineEdit *const txtTel3;
    QLineEdit *const txtAddress;
    QLineEdit *const txtPostCode;
    QLineEdit *const txtBank;
    QLineEdit *const txtBankAccount;
    QLineEdit *const txtArtificialPerson;
    QLineEdit *const txtIRDNumber;
    QLineEdit *const txtOweWarring;
    QLineEdit *const txtOweStop;
    QLineEdit *const txtRemark;
    QPushButton *const cmdOK;
    QPushButton *const cmdCancel;

    /// Shows the dialog modally for a new client (mode ClientMode) or supplier (SupplierMode), or, with `id`
    /// above 0, for that existing client. True when saved.
    bool EditClient(const std::shared_ptr<CItems> &areas, const std::shared_ptr<CItems> &clients,
                    const std::shared_ptr<CItems> &clientTypes, const QVariant &mode, qint32 id = 0);
    /// Fills the dialog as EditClient does, without showing it; false when the client to edit does not exist.
    bool LoadClient(const std::shared_ptr<CItems> &areas, const std::shared_ptr<CItems> &clients,
                    const std::shared_ptr<CItems> &clientTypes, const QVariant &mode, qint32 id = 0);
    bool cmdOK_Click();
    CItemPtr savedClient() const { return m_saved; }

private:
    std::shared_ptr<CItems> m_clients;
    CItemPtr m_editing;
    CItemPtr m_saved;
    bool m_isNew = true;
    bool m_spellTouched = false;
};

#endif
