// The widget side of the items collection: filling combo boxes, lists, tree widgets and grids, and the small
// management window.
#include "citems.h"

#include "itemgridmodel.h"
#include "prompt.h"

#include <QAbstractItemView>
#include <QComboBox>
#include <QDialog>
#include <QHBoxLayout>
#include <QListWidget>
#include <QPushButton>
#include <QTreeWidget>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace {

void refreshBoundControl(const CItems &items, QObject *control, std::optional<qint32> selectID)
{
    items.BindComboBox(control);
    if (selectID) {
        items.SearchIDInCombox(control, *selectID);
    }
}

// Installed when the library is loaded, so that collections refresh bound combo boxes and lists.
const bool s_installed = (CItems::setBoundControlRefresh(&refreshBoundControl), true);

} // namespace

void CItems::BindComboBox(QObject *control) const
{
    if (auto *combo = qobject_cast<QComboBox *>(control)) {
        combo->clear();
        for (const CItemPtr &item : *this) {
            combo->addItem(item->F_ItemName(), item->F_ID());
        }
    } else if (auto *listWidget = qobject_cast<QListWidget *>(control)) {
        listWidget->clear();
        for (const CItemPtr &item : *this) {
            auto *entry = new QListWidgetItem(item->F_ItemName(), listWidget);
            entry->setData(Qt::UserRole, item->F_ID());
        }
    }
}

void CItems::SearchIDInCombox(QObject *control, qint32 id) const
{
    if (auto *combo = qobject_cast<QComboBox *>(control)) {
        combo->setCurrentIndex(combo->findData(id));
    } else if (auto *listWidget = qobject_cast<QListWidget *>(control)) {
        for (int row = 0; row < listWidget->count(); ++row) {
            if (listWidget->item(row)->data(Qt::UserRole).toInt() == id) {
                listWidget->setCurrentRow(row);
                return;
            }
        }
    }
}

namespace {

void bindGrid(CItems *items, QAbstractItemView *grid, const QList<ItemTableModel::Field> &fields)
{
    if (!grid) {
        return;
    }
    QAbstractItemModel *old = grid->model();
    grid->setModel(new ItemGridModel(items, fields, grid));
    if (qobject_cast<ItemTableModel *>(old) && old->parent() == grid) {
        delete old;
    }
}

} // namespace

void CItems::ShowItemsToGrid(QAbstractItemView *grid)
{
    bindGrid(this, grid, ItemTableModel::fieldsForType(itemTypeID()));
}

void CItems::ShowGoodsToGridEx(QAbstractItemView *grid)
{
    bindGrid(this, grid, ItemTableModel::goodsFields());
}

void CItems::FillOneGoodsToGrid(QAbstractItemView *grid, const CItemPtr &goods) const
{
    if (!grid || !goods) {
        return;
    }
    if (auto *model = qobject_cast<ItemTableModel *>(grid->model())) {
        model->refreshItem(goods.get());
    }
}

void CItems::FillItemToCombox(QComboBox *combo, qint32 selectedID, bool withNone) const
{
    if (!combo) {
        return;
    }
    const QSignalBlocker block(combo);
    combo->clear();
    if (withNone) {
        combo->addItem(u"(无)"_s, 0);
    }
    for (const CItemPtr &item : *this) {
        combo->addItem(item->F_ItemName(), item->F_ID());
    }
    const int index = combo->findData(selectedID);
    combo->setCurrentIndex(index >= 0 ? index : (combo->count() > 0 ? 0 : -1));
}

void CItems::FillIntoComboxEx1(QComboBox *combo, const QString &allText) const
{
    if (!combo) {
        return;
    }
    const QSignalBlocker block(combo);
    combo->clear();
    combo->addItem(allText, 0);
    for (const CItemPtr &item : *this) {
        const QString &no = item->F_ItemNo();
        combo->addItem(no.isEmpty() ? item->F_ItemName() : no + u" - "_s + item->F_ItemName(), item->F_ID());
    }
    combo->setCurrentIndex(0);
}

void CItems::ShowGoodsToListView(QTreeWidget *view) const
{
    if (!view) {
        return;
    }
    view->clear();
    view->setColumnCount(5);
    view->setHeaderLabels({u"编号"_s, u"名称"_s, u"规格"_s, u"单位"_s, u"单件售价"_s});
    view->setRootIsDecorated(false);
    QList<QTreeWidgetItem *> rows;
    rows.reserve(Count());
    for (const CItemPtr &goods : *this) {
        auto *row =
            new QTreeWidgetItem({goods->F_ItemNo(), goods->F_ItemName(), goods->F_Standard(), goods->mUnitName(),
                                 ItemTableModel::fieldText(*goods, ItemTableModel::PriceSale)});
        row->setData(0, Qt::UserRole, goods->F_ID());
        row->setTextAlignment(4, Qt::AlignRight | Qt::AlignVCenter);
        rows.append(row);
    }
    view->addTopLevelItems(rows);
}

void CItems::ItemsMan(QWidget *parent)
{
    QDialog dialog(parent);
    dialog.setWindowTitle(ItemTypeName() + u"管理"_s);
    auto *list = new QListWidget(&dialog);
    list->setObjectName(u"lstItems"_s);
    auto *add = new QPushButton(u"新增(&A)"_s, &dialog);
    auto *rename = new QPushButton(u"改名(&R)"_s, &dialog);
    auto *remove = new QPushButton(u"删除(&D)"_s, &dialog);
    auto *close = new QPushButton(u"关闭"_s, &dialog);
    auto *buttons = new QVBoxLayout;
    for (QPushButton *button : {add, rename, remove}) {
        buttons->addWidget(button);
    }
    buttons->addStretch(1);
    buttons->addWidget(close);
    auto *layout = new QHBoxLayout(&dialog);
    layout->addWidget(list, 1);
    layout->addLayout(buttons);
    BindComboBox(list);
    auto currentID = [list]() {
        return list->currentItem() ? list->currentItem()->data(Qt::UserRole).toInt() : 0;
    };
    QObject::connect(add, &QPushButton::clicked, &dialog, [this, list]() { AddNewItem(list); });
    QObject::connect(rename, &QPushButton::clicked, &dialog, [this, list, currentID]() {
        if (const qint32 id = currentID()) {
            ModifyItem(id, list);
        }
    });
    QObject::connect(remove, &QPushButton::clicked, &dialog, [this, list, currentID]() {
        const qint32 id = currentID();
        if (id
            && CPrompt::current().MsgBox(u"您确实要删除该记录吗?"_s, CPrompt::vbYesNo | CPrompt::vbQuestion,
                                         CPrompt::messageTitle())
                == CPrompt::vbYes) {
            // A row another seat deleted first leaves the list too, though this removal reports false.
            RemoveItem(id);
            BindComboBox(list);
        }
    });
    QObject::connect(list, &QListWidget::itemDoubleClicked, rename, &QPushButton::click);
    QObject::connect(close, &QPushButton::clicked, &dialog, &QDialog::accept);
    dialog.resize(360, 420);
    dialog.exec();
}
