#include "frmselectclient.h"

#include "citems.h"
#include "dialogsupport.h"
#include "itemlistmodel.h"
#include "module1.h"

#include <QComboBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTableView>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace {

void fillFilter(QComboBox *combo, const QString &all, const std::shared_ptr<CItems> &items)
{
    combo->clear();
    combo->addItem(all, 0);
    if (items) {
        for (const CItemPtr &item : *items) {
            combo->addItem(item->F_ItemName(), item->F_ID());
        }
    }
}

} // namespace

frmSelectClient::frmSelectClient(QWidget *parent)
    : QDialog(parent)
    , cboArea(new QComboBox(this))
    , cboClientType(new QComboBox(this))
    , txtSearch(new QLineEdit(this))
    , lvClients(new QTableView(this))
    , lblCount(new QLabel(this))
    , cmdOK(new QPushButton(u"确定(&O)"_s, this))
    , cmdCancel(new QPushButton(u"取消"_s, this))
    , m_model(new ItemListModel({ItemTableModel::ItemNo, ItemTableModel::ItemName, ItemTableModel::TypeName,
                                 ItemTableModel::LinkMen, ItemTableModel::Tel1, ItemTableModel::Address},
                                this))
{
    setObjectName(u"frmSelectClient"_s);
    setWindowTitle(u"选择客户"_s);
    cboArea->setObjectName(u"cboArea"_s);
    cboClientType->setObjectName(u"cboClientType"_s);
    txtSearch->setObjectName(u"txtSearch"_s);
    lvClients->setObjectName(u"lvClients"_s);
    cmdOK->setObjectName(u"cmdOK"_s);
    cmdCancel->setObjectName(u"cmdCancel"_s);
    txtSearch->setPlaceholderText(u"输入编号、名称或助记符查找"_s);
    txtSearch->setClearButtonEnabled(true);

    lvClients->setModel(m_model);
    lvClients->setSelectionBehavior(QAbstractItemView::SelectRows);
    lvClients->setSelectionMode(QAbstractItemView::SingleSelection);
    lvClients->setEditTriggers(QAbstractItemView::NoEditTriggers);
    lvClients->verticalHeader()->hide();
    lvClients->verticalHeader()->setDefaultSectionSize(fontMetrics().height() + 8);
    lvClients->horizontalHeader()->setStretchLastSection(true);
    lvClients->setColumnWidth(1, 280); // room for a company's full name

    auto *filters = new QHBoxLayout;
    // The buddies turn the & into the field's keyboard shortcut.
    const std::pair<const char16_t *, QWidget *> fields[] = {
        {u"地区(&A):", cboArea}, {u"类别(&T):", cboClientType}, {u"查找(&F):", txtSearch}};
    for (const auto &[text, field] : fields) {
        auto *label = new QLabel(QString::fromUtf16(text), this);
        label->setBuddy(field);
        filters->addWidget(label);
        filters->addWidget(field, field == txtSearch ? 1 : 0);
    }
    auto *buttons = new QHBoxLayout;
    buttons->addWidget(lblCount, 1);
    buttons->addWidget(cmdOK);
    buttons->addWidget(cmdCancel);
    auto *layout = new QVBoxLayout(this);
    layout->addLayout(filters);
    layout->addWidget(lvClients, 1);
    layout->addLayout(buttons);
    resize(760, 480);

    cmdOK->setAutoDefault(false);
    cmdCancel->setAutoDefault(false);
    connect(cmdOK, &QPushButton::clicked, this, &frmSelectClient::choose);
    connect(cmdCancel, &QPushButton::clicked, this, &QDialog::reject);
    connect(txtSearch, &QLineEdit::textChanged, this, &frmSelectClient::RefreshList);
    connect(cboArea, &QComboBox::currentIndexChanged, this, &frmSelectClient::RefreshList);
    connect(cboClientType, &QComboBox::currentIndexChanged, this, &frmSelectClient::RefreshList);
    connect(lvClients, &QTableView::doubleClicked, this, &frmSelectClient::choose);
    txtSearch->installEventFilter(this);
    lvClients->installEventFilter(this);
    DialogSupport::enterPressesFocusedButton(this);
}

frmSelectClient::~frmSelectClient() = default;

void frmSelectClient::LoadClients(const std::shared_ptr<CItems> &areas, const std::shared_ptr<CItems> &clientTypes,
                                  const std::shared_ptr<CItems> &clients)
{
    m_clients = clients;
    m_chosen.reset();
    {
        const QSignalBlocker a(cboArea);
        const QSignalBlocker t(cboClientType);
        fillFilter(cboArea, u"全部地区"_s, areas);
        fillFilter(cboClientType, u"全部类别"_s, clientTypes);
    }
    {
        const QSignalBlocker s(txtSearch);
        txtSearch->clear();
    }
    RefreshList();
    txtSearch->setFocus();
}

void frmSelectClient::RefreshList()
{
    std::vector<CItemPtr> shown;
    if (m_clients) {
        const qint32 area = cboArea->currentData().toInt();
        const qint32 type = cboClientType->currentData().toInt();
        const QString text = txtSearch->text().trimmed();
        for (const CItemPtr &client : *m_clients) {
            if ((area == 0 || client->F_Tag1() == area) && (type == 0 || client->F_ParentID() == type)
                && ItemListModel::matches(*client, text)) {
                shown.push_back(client);
            }
        }
    }
    m_model->setItems(std::move(shown));
    lblCount->setText(u"共 "_s + QString::number(m_model->rowCount()) + u" 个客户"_s);
    if (m_model->rowCount() > 0) {
        lvClients->setCurrentIndex(m_model->index(0, 0));
    }
}

CItemPtr frmSelectClient::currentClient() const
{
    const QModelIndex current = lvClients->currentIndex();
    return current.isValid() ? m_model->itemAt(current.row()) : CItemPtr();
}

void frmSelectClient::choose()
{
    m_chosen = currentClient();
    if (m_chosen) {
        accept();
    }
}

bool frmSelectClient::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() == QEvent::KeyPress) {
        const auto *key = static_cast<QKeyEvent *>(event);
        const bool enter = key->key() == Qt::Key_Return || key->key() == Qt::Key_Enter;
        if (enter) {
            choose();
            return true;
        }
        // Up and Down in the search box move through the list without leaving the box.
        if (watched == txtSearch && (key->key() == Qt::Key_Down || key->key() == Qt::Key_Up)) {
            const int row = lvClients->currentIndex().row() + (key->key() == Qt::Key_Down ? 1 : -1);
            if (row >= 0 && row < m_model->rowCount()) {
                lvClients->setCurrentIndex(m_model->index(row, 0));
            }
            return true;
        }
    }
    return QDialog::eventFilter(watched, event);
}

CItemPtr frmSelectClient::SelectClient(const std::shared_ptr<CItems> &areas, const std::shared_ptr<CItems> &clientTypes,
                                       const std::shared_ptr<CItems> &clients)
{
    LoadClients(areas, clientTypes, clients);
    return exec() == QDialog::Accepted ? m_chosen : CItemPtr();
}
