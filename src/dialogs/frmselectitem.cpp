#include "frmselectitem.h"

#include "citems.h"
#include "dialogsupport.h"
#include "itemlistmodel.h"

#include <QHBoxLayout>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTableView>
#include <QVBoxLayout>

#include <algorithm>
#include <functional>

using namespace Qt::StringLiterals;

namespace {

class SpaceTicks : public QObject
{
public:
    SpaceTicks(QObject *parent, std::function<void()> tick)
        : QObject(parent)
        , m_tick(std::move(tick))
    { }

protected:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (event->type() == QEvent::KeyPress) {
            const auto *key = static_cast<QKeyEvent *>(event);
            if (key->key() == Qt::Key_Space && key->modifiers() == Qt::NoModifier) {
                m_tick();
                return true;
            }
        }
        return QObject::eventFilter(watched, event);
    }

private:
    std::function<void()> m_tick;
};

} // namespace

frmSelectItem::frmSelectItem(QWidget *parent)
    : QDialog(parent)
    , txtSearch(new QLineEdit(this))
    , lstItems(new QTableView(this))
    , cmdSelectAll(new QPushButton(u"全选(&A)"_s, this))
    , cmdOK(new QPushButton(u"确定(&O)"_s, this))
    , cmdCancel(new QPushButton(u"取消"_s, this))
    , m_model(new ItemListModel({ItemTableModel::ItemName, ItemTableModel::ItemNo, ItemTableModel::Remark}, this))
{
    setObjectName(u"frmSelectItem"_s);
    txtSearch->setObjectName(u"txtSearch"_s);
    lstItems->setObjectName(u"lstItems"_s);
    cmdSelectAll->setObjectName(u"cmdSelectAll"_s);
    cmdOK->setObjectName(u"cmdOK"_s);
    cmdCancel->setObjectName(u"cmdCancel"_s);
    txtSearch->setPlaceholderText(u"输入名称或助记符查找"_s);
    m_model->setCheckable(true);
    lstItems->setModel(m_model);
    lstItems->setSelectionBehavior(QAbstractItemView::SelectRows);
    lstItems->setSelectionMode(QAbstractItemView::SingleSelection);
    lstItems->setEditTriggers(QAbstractItemView::NoEditTriggers);
    lstItems->verticalHeader()->hide();
    lstItems->horizontalHeader()->setStretchLastSection(true);
    lstItems->setColumnWidth(0, 180);

    auto *search = new QHBoxLayout;
    {
        // The buddy turns the & into the field's keyboard shortcut.
        auto *label = new QLabel(u"查找(&F):"_s, this);
        label->setBuddy(txtSearch);
        search->addWidget(label);
    }
    search->addWidget(txtSearch, 1);
    auto *buttons = new QHBoxLayout;
    buttons->addWidget(cmdSelectAll);
    buttons->addStretch(1);
    buttons->addWidget(cmdOK);
    buttons->addWidget(cmdCancel);
    auto *layout = new QVBoxLayout(this);
    layout->addLayout(search);
    layout->addWidget(lstItems, 1);
    layout->addLayout(buttons);
    resize(460, 420);

    cmdOK->setDefault(true);
    connect(cmdOK, &QPushButton::clicked, this, &QDialog::accept);
    connect(cmdCancel, &QPushButton::clicked, this, &QDialog::reject);
    connect(txtSearch, &QLineEdit::textChanged, this, &frmSelectItem::RefreshList);
    connect(cmdSelectAll, &QPushButton::clicked, this, [this]() {
        // Checks every shown row, or unchecks them all when they are all checked already.
        const std::vector<CItemPtr> &shown = m_model->items();
        const std::vector<CItemPtr> checked = m_model->checkedItems();
        const bool all = std::all_of(shown.begin(), shown.end(), [&](const CItemPtr &item) {
            return std::find(checked.begin(), checked.end(), item) != checked.end();
        });
        for (const CItemPtr &item : shown) {
            m_model->setChecked(item, !all);
        }
    });
    // A click anywhere on a row ticks it, and Space ticks the current row whichever column is current; the list
    // does the ticking itself, so that the check box and the other columns answer alike.
    connect(lstItems, &QTableView::clicked, this, [this](const QModelIndex &index) { toggleRow(index.row()); });
    lstItems->installEventFilter(new SpaceTicks(lstItems, [this]() {
        if (lstItems->currentIndex().isValid()) {
            toggleRow(lstItems->currentIndex().row());
        }
    }));
    DialogSupport::enterPressesFocusedButton(this);
}

void frmSelectItem::toggleRow(int row)
{
    const CItemPtr item = m_model->itemAt(row);
    if (!item) {
        return;
    }
    const std::vector<CItemPtr> checked = m_model->checkedItems();
    m_model->setChecked(item, std::find(checked.begin(), checked.end(), item) == checked.end());
}

frmSelectItem::~frmSelectItem() = default;

void frmSelectItem::LoadItems(const CItems &items, const QString &title)
{
    setWindowTitle(title.isEmpty() ? u"选择"_s + items.ItemTypeName() : title);
    m_all.assign(items.begin(), items.end());
    for (const CItemPtr &item : m_model->checkedItems()) {
        m_model->setChecked(item, false);
    }
    txtSearch->clear();
    RefreshList();
    txtSearch->setFocus();
}

void frmSelectItem::RefreshList()
{
    const QString text = txtSearch->text().trimmed();
    std::vector<CItemPtr> shown;
    for (const CItemPtr &item : m_all) {
        if (ItemListModel::matches(*item, text)) {
            shown.push_back(item);
        }
    }
    m_model->setItems(std::move(shown));
    if (m_model->rowCount() > 0) {
        lstItems->setCurrentIndex(m_model->index(0, 0));
    }
}

std::vector<CItemPtr> frmSelectItem::checkedItems() const
{
    const std::vector<CItemPtr> checked = m_model->checkedItems();
    std::vector<CItemPtr> ordered;
    for (const CItemPtr &item : m_all) {
        if (std::find(checked.begin(), checked.end(), item) != checked.end()) {
            ordered.push_back(item);
        }
    }
    return ordered;
}

std::vector<CItemPtr> frmSelectItem::SelectItems(const CItems &items, const QString &title)
{
    LoadItems(items, title);
    return exec() == QDialog::Accepted ? checkedItems() : std::vector<CItemPtr>();
}
