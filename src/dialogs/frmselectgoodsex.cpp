#include "frmselectgoodsex.h"

#include "citems.h"
#include "dialogsupport.h"
#include "itemlistmodel.h"
#include "itemtablemodel.h"
#include "module1.h"
#include "prompt.h"

#include <QGridLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSplitter>
#include <QTableView>
#include <QTreeWidget>
#include <QVBoxLayout>

#include <algorithm>
#include <map>

using namespace Qt::StringLiterals;

namespace {

void setUpTable(QTableView *view)
{
    view->setSelectionBehavior(QAbstractItemView::SelectRows);
    view->setSelectionMode(QAbstractItemView::SingleSelection);
    view->setEditTriggers(QAbstractItemView::NoEditTriggers);
    view->verticalHeader()->hide();
    view->verticalHeader()->setDefaultSectionSize(view->fontMetrics().height() + 8);
    view->horizontalHeader()->setStretchLastSection(true);
}

} // namespace

frmSelectGoodsEx::frmSelectGoodsEx(QWidget *parent)
    : QDialog(parent)
    , tvTypes(new QTreeWidget)
    , txtSearch(new QLineEdit)
    , lvGoods(new QTableView)
    , lblGoods(new QLabel)
    , txtAmount(new QLineEdit)
    , txtPrice(new QLineEdit)
    , cmdAdd(new QPushButton(u"加入(&J)"_s))
    , lvLines(new QTableView)
    , cmdRemove(new QPushButton(u"删除行(&D)"_s))
    , lblTotal(new QLabel)
    , cmdOK(new QPushButton(u"确定(&O)"_s))
    , cmdCancel(new QPushButton(u"取消"_s))
    , m_goodsModel(new ItemListModel({ItemTableModel::ItemNo, ItemTableModel::ItemName, ItemTableModel::Standard,
                                      ItemTableModel::UnitName, ItemTableModel::PriceSale, ItemTableModel::Spell},
                                     this))
    , m_linesModel(
          new ItemListModel({ItemTableModel::ItemNo, ItemTableModel::ItemName, ItemTableModel::UnitName}, this))
{
    setObjectName(u"frmSelectGoodsEx"_s);
    setWindowTitle(u"选择商品"_s);
    const std::pair<QWidget *, const char16_t *> names[] = {
        {tvTypes, u"tvTypes"},     {txtSearch, u"txtSearch"}, {lvGoods, u"lvGoods"}, {lblGoods, u"lblGoods"},
        {txtAmount, u"txtAmount"}, {txtPrice, u"txtPrice"},   {cmdAdd, u"cmdAdd"},   {lvLines, u"lvLines"},
        {cmdRemove, u"cmdRemove"}, {lblTotal, u"lblTotal"},   {cmdOK, u"cmdOK"},     {cmdCancel, u"cmdCancel"},
    };
    for (const auto &[widget, name] : names) {
        widget->setObjectName(QString::fromUtf16(name));
    }
    m_linesModel->setExtraColumn(u"数量"_s, [](const CItem &line) { return line.Amount().toString(); });
    m_linesModel->setExtraColumn(u"单价"_s, [](const CItem &line) { return ItemTableModel::priceText(line.Price()); });
    m_linesModel->setExtraColumn(u"金额"_s, [](const CItem &line) { return ItemTableModel::totalText(line.Money()); });
    lvGoods->setModel(m_goodsModel);
    lvLines->setModel(m_linesModel);
    setUpTable(lvGoods);
    setUpTable(lvLines);
    lvGoods->setColumnWidth(1, 180);
    lvLines->setColumnWidth(1, 180);
    tvTypes->setHeaderHidden(true);
    txtSearch->setPlaceholderText(u"输入编号、名称、规格或助记符查找"_s);
    txtSearch->setClearButtonEnabled(true);
    txtAmount->setAlignment(Qt::AlignRight);
    txtPrice->setAlignment(Qt::AlignRight);
    txtAmount->setMaximumWidth(120);
    txtPrice->setMaximumWidth(120);

    auto *right = new QWidget;
    auto *rightLayout = new QVBoxLayout(right);
    rightLayout->setContentsMargins(0, 0, 0, 0);
    auto *search = new QHBoxLayout;
    {
        // The buddy turns the & into the field's keyboard shortcut.
        auto *label = new QLabel(u"查找(&F):"_s);
        label->setBuddy(txtSearch);
        search->addWidget(label);
    }
    search->addWidget(txtSearch, 1);
    rightLayout->addLayout(search);
    rightLayout->addWidget(lvGoods, 1);
    auto *entry = new QHBoxLayout;
    entry->addWidget(lblGoods, 1);
    {
        // The buddy turns the & into the field's keyboard shortcut.
        auto *label = new QLabel(u"数量(&Q):"_s);
        label->setBuddy(txtAmount);
        entry->addWidget(label);
    }
    entry->addWidget(txtAmount);
    {
        // The buddy turns the & into the field's keyboard shortcut.
        auto *label = new QLabel(u"单价(&P):"_s);
        label->setBuddy(txtPrice);
        entry->addWidget(label);
    }
    entry->addWidget(txtPrice);
    entry->addWidget(cmdAdd);
    rightLayout->addLayout(entry);

    auto *splitter = new QSplitter(Qt::Horizontal);
    splitter->addWidget(tvTypes);
    splitter->addWidget(right);
    splitter->setStretchFactor(1, 1);
    splitter->setSizes({160, 600});

    auto *bottom = new QHBoxLayout;
    bottom->addWidget(cmdRemove);
    bottom->addWidget(lblTotal, 1);
    bottom->addWidget(cmdOK);
    bottom->addWidget(cmdCancel);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(splitter, 3);
    layout->addWidget(new QLabel(u"已选商品:"_s));
    layout->addWidget(lvLines, 2);
    layout->addLayout(bottom);
    resize(900, 620);

    for (QPushButton *button : {cmdAdd, cmdRemove, cmdOK, cmdCancel}) {
        button->setAutoDefault(false);
    }
    // Enter in the fields picks and adds (see eventFilter); elsewhere it confirms.
    cmdOK->setDefault(true);
    connect(cmdAdd, &QPushButton::clicked, this, &frmSelectGoodsEx::cmdAdd_Click);
    connect(cmdOK, &QPushButton::clicked, this, &frmSelectGoodsEx::cmdOK_Click);
    connect(cmdCancel, &QPushButton::clicked, this, &QDialog::reject);
    connect(cmdRemove, &QPushButton::clicked, this, [this]() {
        const QModelIndex current = lvLines->currentIndex();
        if (current.isValid()) {
            const CItemPtr line = m_linesModel->itemAt(current.row());
            m_lines.erase(std::find(m_lines.begin(), m_lines.end(), line));
            m_linesChanged = true;
            if (m_changingLine == line) {
                m_changingLine.reset();
            }
            showLines();
        }
    });
    connect(txtSearch, &QLineEdit::textChanged, this, &frmSelectGoodsEx::RefreshGoods);
    connect(tvTypes, &QTreeWidget::currentItemChanged, this, &frmSelectGoodsEx::RefreshGoods);
    connect(lvGoods, &QTableView::doubleClicked, this, &frmSelectGoodsEx::pickCurrent);
    connect(lvLines, &QTableView::doubleClicked, this, &frmSelectGoodsEx::changeCurrentLine);
    for (QWidget *w :
         {static_cast<QWidget *>(txtSearch), static_cast<QWidget *>(lvGoods), static_cast<QWidget *>(txtAmount),
          static_cast<QWidget *>(txtPrice), static_cast<QWidget *>(lvLines)}) {
        w->installEventFilter(this);
    }
    DialogSupport::enterPressesFocusedButton(this);
}

frmSelectGoodsEx::~frmSelectGoodsEx() = default;

void frmSelectGoodsEx::LoadGoods(CItems &tGoodsList, const std::shared_ptr<CItems> &allGoods,
                                 const std::shared_ptr<CItems> &types, bool blnIsChangeMode)
{
    m_goods = allGoods;
    m_target = &tGoodsList;
    m_changeMode = blnIsChangeMode;
    m_picked.reset();
    m_changingLine.reset();
    m_lines.clear();
    m_linesChanged = false;
    if (blnIsChangeMode) {
        // Copies: the caller's lines change only when the clerk confirms.
        for (const CItemPtr &line : tGoodsList) {
            m_lines.push_back(CItem::create(*line));
        }
    }
    setWindowTitle(blnIsChangeMode ? u"修改商品明细"_s : u"选择商品"_s);

    tvTypes->clear();
    auto *root = new QTreeWidgetItem(tvTypes, {u"全部商品"_s});
    root->setData(0, Qt::UserRole, 0);
    if (types) {
        // Types under their parent type where the parent is a type too.
        std::map<qint32, QTreeWidgetItem *> nodes;
        std::vector<CItemPtr> pending(types->begin(), types->end());
        for (const CItemPtr &type : pending) {
            nodes[type->F_ID()] = new QTreeWidgetItem(QStringList {type->F_ItemName()});
            nodes[type->F_ID()]->setData(0, Qt::UserRole, type->F_ID());
        }
        for (const CItemPtr &type : pending) {
            const auto parent = nodes.find(type->F_ParentID());
            QTreeWidgetItem *node = nodes[type->F_ID()];
            (parent != nodes.end() && parent->second != node ? parent->second : root)->addChild(node);
        }
    }
    tvTypes->expandAll();
    {
        const QSignalBlocker blockTree(tvTypes);
        const QSignalBlocker blockSearch(txtSearch);
        tvTypes->setCurrentItem(root);
        txtSearch->clear();
    }
    lblGoods->clear();
    txtAmount->clear();
    txtPrice->clear();
    RefreshGoods();
    showLines();
    txtSearch->setFocus();
}

bool frmSelectGoodsEx::SelectGoodsEx(CItems &tGoodsList, const std::shared_ptr<CItems> &allGoods,
                                     const std::shared_ptr<CItems> &types, const std::shared_ptr<CItems> &,
                                     bool blnIsChangeMode)
{
    LoadGoods(tGoodsList, allGoods, types, blnIsChangeMode);
    const bool confirmed = exec() == QDialog::Accepted;
    m_target = nullptr;
    return confirmed;
}

void frmSelectGoodsEx::RefreshGoods()
{
    std::vector<CItemPtr> shown;
    if (m_goods) {
        // The chosen type and the types below it.
        std::vector<qint32> typeIDs;
        if (QTreeWidgetItem *node = tvTypes->currentItem(); node && node->data(0, Qt::UserRole).toInt() != 0) {
            std::vector<QTreeWidgetItem *> stack {node};
            while (!stack.empty()) {
                QTreeWidgetItem *n = stack.back();
                stack.pop_back();
                typeIDs.push_back(n->data(0, Qt::UserRole).toInt());
                for (int i = 0; i < n->childCount(); ++i) {
                    stack.push_back(n->child(i));
                }
            }
        }
        const QString text = txtSearch->text().trimmed();
        for (const CItemPtr &goods : *m_goods) {
            if (!typeIDs.empty() && std::find(typeIDs.begin(), typeIDs.end(), goods->F_ParentID()) == typeIDs.end()) {
                continue;
            }
            if (ItemListModel::matches(*goods, text, true)) {
                shown.push_back(goods);
            }
        }
    }
    m_goodsModel->setItems(std::move(shown));
    if (m_goodsModel->rowCount() > 0) {
        lvGoods->setCurrentIndex(m_goodsModel->index(0, 0));
    }
}

bool frmSelectGoodsEx::pickCurrent()
{
    return pick(m_goodsModel->itemAt(lvGoods->currentIndex().row()), CItemPtr());
}

bool frmSelectGoodsEx::changeCurrentLine()
{
    const CItemPtr line = m_linesModel->itemAt(lvLines->currentIndex().row());
    return pick(line, line);
}

bool frmSelectGoodsEx::pick(const CItemPtr &goods, const CItemPtr &line)
{
    if (!goods) {
        return false;
    }
    m_picked = goods;
    m_changingLine = line;
    m_proposed = m_proposer ? m_proposer(*goods) : goods->F_PriceSale();
    lblGoods->setText((line ? u"修改: "_s : QString()) + goods->F_ItemName()
                      + (goods->F_Standard().isEmpty() ? QString() : u" "_s + goods->F_Standard())
                      + (goods->mUnitName().isEmpty() ? QString() : u" ("_s + goods->mUnitName() + u")"_s));
    txtAmount->setText(line ? line->Amount().toString() : u"1"_s);
    txtPrice->setText(ItemTableModel::priceText(line ? line->Price() : m_proposed));
    Module1::SelectAllText(txtAmount);
    return true;
}

bool frmSelectGoodsEx::cmdAdd_Click()
{
    if (!m_picked) {
        CPrompt::current().MsgBox(u"请先选择商品!"_s, CPrompt::vbExclamation, CPrompt::messageTitle());
        txtSearch->setFocus();
        return false;
    }
    Currency amount;
    Currency price;
    if (!DialogSupport::readAmount(txtAmount, u"数量"_s, DialogSupport::AmountKind::Quantity, true, true, amount)
        || !DialogSupport::readAmount(txtPrice, u"单价"_s, DialogSupport::AmountKind::Price, false, true, price)) {
        return false;
    }
    CItemPtr line = m_changingLine;
    if (!line) {
        line = CItem::create(*m_picked);
        m_lines.push_back(line);
    }
    m_linesChanged = true;
    line->setAmount(amount);
    line->setPrice(price);
    // Money is a total: kept with the two decimals it shows, so the lines add up to the sum shown.
    line->setMoney(ItemTableModel::totalOf(amount * price));
    if (!m_changingLine) {
        line->setPriceChangeFlag(price != m_proposed);
    } else if (price != m_proposed) {
        line->setPriceChangeFlag(true);
    }
    m_picked.reset();
    m_changingLine.reset();
    lblGoods->clear();
    txtAmount->clear();
    txtPrice->clear();
    showLines();
    lvLines->setCurrentIndex(
        m_linesModel->index(int(std::find(m_lines.begin(), m_lines.end(), line) - m_lines.begin()), 0));
    Module1::SelectAllText(txtSearch);
    return true;
}

void frmSelectGoodsEx::showLines()
{
    m_linesModel->setItems(m_lines);
    Currency total;
    for (const CItemPtr &line : m_lines) {
        total += line->Money();
    }
    lblTotal->setText(u"共 "_s + QString::number(m_lines.size()) + u" 行,合计金额 "_s
                      + ItemTableModel::totalText(total));
}

void frmSelectGoodsEx::cmdOK_Click()
{
    if (m_target) {
        if (m_changeMode) {
            while (m_target->Count() > 0) {
                m_target->Remove(m_target->Count());
            }
        }
        for (const CItemPtr &line : m_lines) {
            m_target->Add(line);
        }
        m_lines.clear();
        showLines();
    }
    m_linesChanged = false;
    accept();
}

void frmSelectGoodsEx::reject()
{
    if (m_linesChanged
        && CPrompt::current().MsgBox(u"选择的商品还没有确定,确实要放弃吗?"_s, CPrompt::vbYesNo | CPrompt::vbQuestion,
                                     CPrompt::messageTitle())
            != CPrompt::vbYes) {
        return;
    }
    m_linesChanged = false;
    QDialog::reject();
}

bool frmSelectGoodsEx::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() != QEvent::KeyPress) {
        return QDialog::eventFilter(watched, event);
    }
    const auto *key = static_cast<QKeyEvent *>(event);
    const bool enter = key->key() == Qt::Key_Return || key->key() == Qt::Key_Enter;
    if (watched == txtSearch && (key->key() == Qt::Key_Down || key->key() == Qt::Key_Up)) {
        const int row = lvGoods->currentIndex().row() + (key->key() == Qt::Key_Down ? 1 : -1);
        if (row >= 0 && row < m_goodsModel->rowCount()) {
            lvGoods->setCurrentIndex(m_goodsModel->index(row, 0));
        }
        return true;
    }
    if (!enter) {
        if (watched == lvLines && key->key() == Qt::Key_Delete) {
            cmdRemove->click();
            return true;
        }
        return QDialog::eventFilter(watched, event);
    }
    if (watched == txtSearch || watched == lvGoods) {
        pickCurrent();
    } else if (watched == lvLines) {
        changeCurrentLine();
    } else if (watched == txtAmount) {
        Module1::SelectAllText(txtPrice);
    } else if (watched == txtPrice) {
        cmdAdd_Click();
    }
    return true;
}
