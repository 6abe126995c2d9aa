#include "frmclientedit.h"

#include "citems.h"
#include "cspell.h"
#include "dialogsupport.h"
#include "itemtablemodel.h"
#include "itemtype.h"
#include "module1.h"
#include "prompt.h"

#include <QComboBox>
#include <QDialogButtonBox>
#include <QGridLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSet>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;
using DialogSupport::fillCombo;

frmClientEdit::frmClientEdit(QWidget *parent)
    : QDialog(parent)
    , txtNo(new QLineEdit(this))
    , txtName(new QLineEdit(this))
    , txtSpell(new QLineEdit(this))
    , cboClientType(new QComboBox(this))
    , cboArea(new QComboBox(this))
    , txtLinkMen(new QLineEdit(this))
    , txtTel1(new QLineEdit(this))
    , txtTel2(new QLineEdit(this))
    , txtTel3(new QLineEdit(this))
    , txtAddress(new QLineEdit(this))
    , txtPostCode(new QLineEdit(this))
    , txtBank(new QLineEdit(this))
    , txtBankAccount(new QLineEdit(this))
    , txtArtificialPerson(new QLineEdit(this))
    , txtIRDNumber(new QLineEdit(this))
    , txtOweWarring(new QLineEdit(this))
    , txtOweStop(new QLineEdit(this))
    , txtRemark(new QLineEdit(this))
    , cmdOK(new QPushButton(u"保存(&S)"_s, this))
    , cmdCancel(new QPushButton(u"取消"_s, this))
{
    setObjectName(u"frmClientEdit"_s);
    struct Row
    {
        QWidget *field;
        const char16_t *name;
        const char16_t *label;
    };
    const Row rows[] = {
        {txtNo, u"txtNo", u"编号(&N):"},
        {txtSpell, u"txtSpell", u"助记符(&Z):"},
        {txtName, u"txtName", u"名称(&M):"},
        {cboClientType, u"cboClientType", u"类别(&T):"},
        {cboArea, u"cboArea", u"地区(&A):"},
        {txtLinkMen, u"txtLinkMen", u"联系人(&L):"},
        {txtArtificialPerson, u"txtArtificialPerson", u"法人代表:"},
        {txtTel1, u"txtTel1", u"电话:"},
        {txtTel2, u"txtTel2", u"手机:"},
        {txtTel3, u"txtTel3", u"传真:"},
        {txtPostCode, u"txtPostCode", u"邮编:"},
        {txtAddress, u"txtAddress", u"地址:"},
        {txtBank, u"txtBank", u"开户银行:"},
        {txtBankAccount, u"txtBankAccount", u"银行账号:"},
        {txtIRDNumber, u"txtIRDNumber", u"税号:"},
        {txtOweWarring, u"txtOweWarring", u"欠款预警:"},
        {txtOweStop, u"txtOweStop", u"欠款停止:"},
        {txtRemark, u"txtRemark", u"备注(&R):"},
    };
    // Names, addresses, banks and remarks take the whole width; the other fields go two to a line.
    const QSet<QWidget *> wide {txtName, txtAddress, txtBank, txtRemark};
    auto *fields = new QGridLayout;
    fields->setColumnStretch(1, 1);
    fields->setColumnStretch(3, 1);
    fields->setColumnMinimumWidth(2, 0);
    QList<QWidget *> order;
    int line = 0;
    int column = 0;
    for (const Row &row : rows) {
        row.field->setObjectName(QString::fromUtf16(row.name));
        auto *label = new QLabel(QString::fromUtf16(row.label), this);
        label->setBuddy(row.field);
        if (wide.contains(row.field)) {
            line += column == 0 ? 0 : 1;
            fields->addWidget(label, line, 0);
            fields->addWidget(row.field, line, 1, 1, 3);
            ++line;
            column = 0;
        } else {
            fields->addWidget(label, line, column * 2);
            fields->addWidget(row.field, line, column * 2 + 1);
            line += column;
            column = 1 - column;
        }
        if (!order.isEmpty()) {
            setTabOrder(order.constLast(), row.field);
        }
        order.append(row.field);
    }
    cmdOK->setObjectName(u"cmdOK"_s);
    cmdCancel->setObjectName(u"cmdCancel"_s);
    txtOweWarring->setAlignment(Qt::AlignRight);
    txtOweStop->setAlignment(Qt::AlignRight);
    // Room for what the fields usually hold: a company's full name, a bank account of up to 23 digits, an
    // 18-character tax number, a credit limit in the millions.
    DialogSupport::fitWidth(txtName, QString(26, QChar(0x56FD)));
    DialogSupport::fitWidth(txtAddress, QString(26, QChar(0x56FD)));
    DialogSupport::fitWidth(txtBankAccount, u"62220219880000000000000"_s);
    DialogSupport::fitWidth(txtIRDNumber, u"91110108MA01WWWWWW"_s);
    DialogSupport::fitWidth(txtTel1, u"0000-00000000-0000"_s);
    DialogSupport::fitWidth(txtOweWarring, u"-99,999,999.99"_s);

    auto *buttons = new QDialogButtonBox(this);
    buttons->addButton(cmdOK, QDialogButtonBox::AcceptRole);
    buttons->addButton(cmdCancel, QDialogButtonBox::RejectRole);
    cmdOK->setAutoDefault(false);
    cmdCancel->setAutoDefault(false);
    connect(cmdOK, &QPushButton::clicked, this, &frmClientEdit::cmdOK_Click);
    connect(cmdCancel, &QPushButton::clicked, this, &QDialog::reject);
    auto *layout = new QVBoxLayout(this);
    layout->addLayout(fields);
    layout->addStretch();
    layout->addWidget(buttons);

    DialogSupport::enterMovesOn(order);
    connect(txtName, &QLineEdit::textEdited, this, [this](const QString &name) {
        if (!m_spellTouched) {
            txtSpell->setText(CSpell::py(name.trimmed()));
        }
    });
    connect(txtSpell, &QLineEdit::textEdited, this, [this]() { m_spellTouched = !txtSpell->text().isEmpty(); });
    DialogSupport::enterPressesFocusedButton(this);
}

frmClientEdit::~frmClientEdit() = default;

bool frmClientEdit::LoadClient(const std::shared_ptr<CItems> &areas, const std::shared_ptr<CItems> &clients,
                               const std::shared_ptr<CItems> &clientTypes, const QVariant &mode, qint32 id)
{
    m_clients = clients;
    m_isNew = id < 1;
    m_saved.reset();
    m_spellTouched = false; // a rename takes the code of the new name unless the clerk types one
    const bool supplier = mode.toInt() == SupplierMode;
    if (m_isNew) {
        m_editing = CItem::create();
        m_editing->setF_ItemTypeID(qint16(ItemType::Client));
        if (supplier && clientTypes) {
            if (const CItemPtr type = clientTypes->GetItemByItemName(u"供应商"_s)) {
                m_editing->setF_ParentID(type->F_ID());
            }
        }
        if (clients) {
            m_editing->setF_ItemNo(clients->GetNewItemNo(supplier ? u"GY"_s : u"KH"_s));
        }
    } else {
        m_editing = clients ? clients->SearchItemByID(id) : CItemPtr();
        if (!m_editing) {
            return false;
        }
    }
    const CItem &c = *m_editing;
    setWindowTitle(m_isNew ? (supplier ? u"新增供应商"_s : u"新增客户"_s) : u"修改客户资料 - "_s + c.F_ItemName());
    txtNo->setText(c.F_ItemNo());
    txtName->setText(c.F_ItemName());
    txtSpell->setText(c.F_Spell());
    fillCombo(cboClientType, clientTypes, c.F_ParentID());
    fillCombo(cboArea, areas, c.F_Tag1());
    txtLinkMen->setText(c.F_LinkMen());
    txtTel1->setText(c.F_Tel1());
    txtTel2->setText(c.F_Tel2());
    txtTel3->setText(c.F_Tel3());
    txtAddress->setText(c.F_Address());
    txtPostCode->setText(c.F_PostCode());
    txtBank->setText(c.F_Bank());
    txtBankAccount->setText(c.F_BankAccount());
    txtArtificialPerson->setText(c.F_ArtificialPerson());
    txtIRDNumber->setText(c.F_IRDNumber());
    txtOweWarring->setText(ItemTableModel::totalText(c.F_OweWarring()));
    txtOweStop->setText(ItemTableModel::totalText(c.F_OweStop()));
    txtRemark->setText(c.F_Remark());
    Module1::SelectAllText(m_isNew ? txtName : txtNo);
    return true;
}

bool frmClientEdit::EditClient(const std::shared_ptr<CItems> &areas, const std::shared_ptr<CItems> &clients,
                               const std::shared_ptr<CItems> &clientTypes, const QVariant &mode, qint32 id)
{
    if (!LoadClient(areas, clients, clientTypes, mode, id)) {
        CPrompt::current().MsgBox(u"找不到要修改的客户!"_s, CPrompt::vbExclamation, CPrompt::messageTitle());
        return false;
    }
    return exec() == QDialog::Accepted;
}

bool frmClientEdit::cmdOK_Click()
{
    if (!m_clients) {
        return false;
    }
    const QString no = txtNo->text().trimmed();
    const QString name = txtName->text().trimmed();
    const qint32 id = m_isNew ? 0 : m_editing->F_ID();
    using DialogSupport::refuse;
    if (name.isEmpty()) {
        return refuse(txtName, u"请输入客户名称!"_s);
    }
    if (!no.isEmpty() && m_clients->HasTheItemNo(no, id)) {
        return refuse(txtNo, u"客户编号["_s + no + u"]已经存在,请换一个编号!"_s);
    }
    if (m_clients->HasTheItemName(name, id)) {
        return refuse(txtName, u"客户名称["_s + name + u"]已经存在,请换一个名称!"_s);
    }
    Currency warning, stop;
    if (!DialogSupport::readAmount(txtOweWarring, u"欠款预警"_s, DialogSupport::AmountKind::Total, false, false,
                                   warning)
        || !DialogSupport::readAmount(txtOweStop, u"欠款停止"_s, DialogSupport::AmountKind::Total, false, false,
                                      stop)) {
        return false;
    }
    CItemPtr client = CItem::create(*m_editing);
    client->setF_ItemTypeID(qint16(ItemType::Client));
    client->setF_ItemNo(no);
    client->setF_ItemName(name);
    client->setF_Spell(txtSpell->text().trimmed());
    client->setF_ParentID(cboClientType->currentData().toInt());
    client->setmTypeName(cboClientType->currentIndex() > 0 ? cboClientType->currentText() : QString());
    client->setF_Tag1(cboArea->currentData().toInt());
    client->setF_LinkMen(txtLinkMen->text().trimmed());
    client->setF_Tel1(txtTel1->text().trimmed());
    client->setF_Tel2(txtTel2->text().trimmed());
    client->setF_Tel3(txtTel3->text().trimmed());
    client->setF_Address(txtAddress->text().trimmed());
    client->setF_PostCode(txtPostCode->text().trimmed());
    client->setF_Bank(txtBank->text().trimmed());
    client->setF_BankAccount(txtBankAccount->text().trimmed());
    client->setF_ArtificialPerson(txtArtificialPerson->text().trimmed());
    client->setF_IRDNumber(txtIRDNumber->text().trimmed());
    client->setF_OweWarring(warning);
    client->setF_OweStop(stop);
    client->setF_Remark(txtRemark->text());
    return DialogSupport::saveAndAccept(this, *m_clients, client, m_isNew, m_saved, m_editing);
}
