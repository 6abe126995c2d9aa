#ifndef QUILLON_FRMSELECTGOODSEX_H
#define QUILLON_FRMSELECTGOODSEX_H

#include "citem.h"
#include "quillon_export.h"

#include <QDialog>

#include <functional>
#include <memory>
#include <vector>

class CItems;
class ItemListModel;
class QLabel;
class QLineEdit;
class QPushButton;
class QTableView;
class QTreeWidget;

/**
 * Picks goods lines for a document: goods types as a tree, the goods of the chosen type found by typing part of
 * the number, name, specification or mnemonic code; for a picked goods the clerk enters quantity and price (the
 * price proposed), and the line joins the list below. OK hands the lines to the caller's list; in change mode the
 * caller's lines are edited instead. Keyboard-first: Enter picks, moves from quantity to price and adds the line.
 */
class QUILLON_EXPORT frmSelectGoodsEx : public QDialog
{
    Q_OBJECT

public:
    explicit frmSelectGoodsEx(QWidget *parent = nullptr);
    ~frmSelectGoodsEx() override;
    Q_DISABLE_COPY_MOVE(frmSelectGoodsEx)

    QTreeWidget *const tvTypes;
    QLineEdit *const txtSearch;
    QTableView *const lvGoods;
    QLabel *const lblGoods;
    QLineEdit *const txtAmount;
    QLineEdit *const txtPrice;
    QPushButton *const cmdAdd;
    QTableView *const lvLines;
    QPushButton *const cmdRemove;
    QLabel *const lblTotal;
    QPushButton *const cmdOK;
    QPushButton *const cmdCancel;

    /// The price proposed for a goods (by default its single-piece sale price).
    using PriceProposer = std::function<Currency(const CItem &goods)>;
    void setPriceProposer(PriceProposer proposer) { m_proposer = std::move(proposer); }

    /// Shows the dialog modally. New lines are appended to `tGoodsList` (change mode: its lines are edited and
    /// replaced). True when the clerk confirmed with OK.
    bool SelectGoodsEx(CItems &tGoodsList, const std::shared_ptr<CItems> &allGoods,
                       const std::shared_ptr<CItems> &types, const std::shared_ptr<CItems> &units,
                       bool blnIsChangeMode);
    /// Fills the dialog as SelectGoodsEx does, without showing it.
    void LoadGoods(CItems &tGoodsList, const std::shared_ptr<CItems> &allGoods, const std::shared_ptr<CItems> &types,
                   bool blnIsChangeMode);
    /// Applies the goods type and the search text to the goods list.
    void RefreshGoods();
    /// Takes the current goods of the goods list for quantity and price.
    bool pickCurrent();
    /// Takes the current line of the lines list to change its quantity and price.
    bool changeCurrentLine();
    /// Adds the picked goods as a line (or changes the line being changed); false when quantity or price is
    /// refused.
    bool cmdAdd_Click();
    /// Hands the lines to the caller's list and closes.
    void cmdOK_Click();
    const std::vector<CItemPtr> &lines() const { return m_lines; }

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;
    /// Esc and 取消: lines picked or changed since the dialog opened are only dropped when the clerk says so.
    void reject() override;

private:
    void showLines();
    bool pick(const CItemPtr &goods, const CItemPtr &line);

    std::shared_ptr<CItems> m_goods;
    CItems *m_target = nullptr;
    bool m_changeMode = false;
    bool m_linesChanged = false;
    ItemListModel *m_goodsModel;
    ItemListModel *m_linesModel;
    std::vector<CItemPtr> m_lines;
    CItemPtr m_picked; // the goods being entered
    CItemPtr m_changingLine; // the line being changed, if any
    Currency m_proposed;
    PriceProposer m_proposer;
};

#endif
