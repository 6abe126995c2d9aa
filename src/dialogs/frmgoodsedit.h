#ifndef QUILLON_FRMGOODSEDIT_H
#define QUILLON_FRMGOODSEDIT_H

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
 * Edits one goods item, new or existing: number (a suggestion for a new one), name, specification, mnemonic code
 * (filled from the name as it is typed, still editable), unit, goods type, the four prices, pieces per package,
 * stock limits and remark. Saves through the goods collection, so every open list sees the change. Enter moves
 * to the next field.
 */
class QUILLON_EXPORT frmGoodsEdit : public QDialog
{
    Q_OBJECT

public:
    explicit frmGoodsEdit(QWidget *parent = nullptr);
    ~frmGoodsEdit() override;
    Q_DISABLE_COPY_MOVE(frmGoodsEdit)

    QLineEdit *const txtNo;
    QLineEdit *const txtName;
    QLineEdit *const txtStandard;
    QLineEdit *const txtSpell;
    QComboBox *const cboUnit;
    QComboBox *const cboType;
    QLineEdit *const txtPriceEnterPack;
    QLineEdit *const txtPriceEnter;
    QLineEdit *const txtPriceSalePack;
    QLineEdit *const txtPriceSale;
    QLineEdit *const txtPackageAmount;
    QLineEdit *const txtLimitUp;
    QLineEdit *const txtLimitDown;
    QLineEdit *const txtRemark;
    QPushButton *const cmdOK;
    QPushButton *const cmdCancel;

    /// Shows the dialog modally. For a new record `value` is the goods type to start with (0 for none); otherwise
    /// it is the F_ID of the goods to edit. True when the goods were saved.
    bool EditGoods(const QVariant &value, const std::shared_ptr<CItems> &allGoods,
                   const std::shared_ptr<CItems> &stocks, const std::shared_ptr<CItems> &types,
                   const std::shared_ptr<CItems> &units, bool isNew);
    /// Fills the dialog as EditGoods does, without showing it; false when the goods to edit do not exist.
    bool LoadGoods(const QVariant &value, const std::shared_ptr<CItems> &allGoods, const std::shared_ptr<CItems> &types,
                   const std::shared_ptr<CItems> &units, bool isNew);
    /// Checks the fields and saves; on success the dialog is accepted. A refused field gets the focus.
    bool cmdOK_Click();
    /// The goods last saved by this dialog.
    CItemPtr savedGoods() const { return m_saved; }

private:
    bool readSingle(QLineEdit *box, const QString &field, bool mustBePositive, float &out);
    void suggestNumber();

    std::shared_ptr<CItems> m_goods;
    std::shared_ptr<CItems> m_types;
    std::shared_ptr<CItems> m_units;
    CItemPtr m_editing;
    CItemPtr m_saved;
    bool m_isNew = true;
    bool m_spellTouched = false;
    bool m_noTouched = false;
};

#endif
