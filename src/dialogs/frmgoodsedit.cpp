#include "frmgoodsedit.h"

#include "citems.h"
#include "cspell.h"
#include "dialogsupport.h"
#include "itemtablemodel.h"
#include "itemtype.h"
#include "module1.h"
#include "prompt.h"

#include <QComboBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QGridLayout>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;
using DialogSupport::fillCombo;

frmGoodsEdit::frmGoodsEdit(QWidget *parent)
    : QDialog(parent)
    , txtNo(new QLineEdit(this))
    , txtName(new QLineEdit(this))
    , txtStandard(new QLineEdit(this))
    , txtSpell(new QLineEdit(this))
    , cboUnit(new QComboBox(this))
    , cboType(new QComboBox(this))
    , txtPriceEnterPack(new QLineEdit(this))
    , txtPriceEnter(new QLineEdit(this))
    , txtPriceSalePack(new QLineEdit(this))
    , txtPriceSale(new QLineEdit(this))
    , txtPackageAmount(new QLineEdit(this))
    , txtLimitUp(new QLineEdit(this))
    , txtLimitDown(new QLineEdit(this))
    , txtRemark(new QLineEdit(this))
    , cmdOK(new QPushButton(u"保存(&S)"_s, this))
    , cmdCancel(new QPushButton(u"取消"_s, this))
{
    setObjectName(u"frmGoodsEdit"_s);
    const std::pair<QWidget *, const char16_t *> names[] = {
        {txtNo, u"txtNo"},
        {txtName, u"txtName"},
        {txtStandard, u"txtStandard"},
        {txtSpell, u"txtSpell"},
        {cboUnit, u"cboUnit"},
        {cboType, u"cboType"},
        {txtPriceEnterPack, u"txtPriceEnterPack"},
        {txtPriceEnter, u"txtPriceEnter"},
        {txtPriceSalePack, u"txtPriceSalePack"},
        {txtPriceSale, u"txtPriceSale"},
        {txtPackageAmount, u"txtPackageAmount"},
        {txtLimitUp, u"txtLimitUp"},
        {txtLimitDown, u"txtLimitDown"},
        {txtRemark, u"txtRemark"},
        {cmdOK, u"cmdOK"},
        {cmdCancel, u"cmdCancel"},
    };
    for (const auto &[widget, name] : names) {
        widget->setObjectName(QString::fromUtf16(name));
    }
    for (QLineEdit *amount : {txtPriceEnterPack, txtPriceEnter, txtPriceSalePack, txtPriceSale, txtPackageAmount,
                              txtLimitUp, txtLimitDown}) {
        amount->setAlignment(Qt::AlignRight);
    }
    txtSpell->setToolTip(u"名称的拼音首字母,输入名称时自动生成,可以修改"_s);
    // Room for a goods name with its brand and package, a specification, and a price with its four decimals.
    DialogSupport::fitWidth(txtName, QString(20, QChar(0x56FD)));
    DialogSupport::fitWidth(txtStandard, QString(20, QChar(0x56FD)));
    for (QLineEdit *amount : {txtPriceEnterPack, txtPriceEnter, txtPriceSalePack, txtPriceSale}) {
        DialogSupport::fitWidth(amount, u"-9999999.9999"_s);
    }

    auto *basic = new QGroupBox(u"基本信息"_s, this);
    auto *form = new QFormLayout(basic);
    form->addRow(u"编号(&N):"_s, txtNo);
    form->addRow(u"名称(&M):"_s, txtName);
    form->addRow(u"规格(&G):"_s, txtStandard);
    form->addRow(u"助记符(&Z):"_s, txtSpell);
    form->addRow(u"单位(&U):"_s, cboUnit);
    form->addRow(u"类别(&T):"_s, cboType);

    auto *prices = new QGroupBox(u"价格与库存"_s, this);
    auto *grid = new QGridLayout(prices);
    const std::pair<const char16_t *, QLineEdit *> priceRows[] = {
        {u"整件进价:", txtPriceEnterPack}, {u"单件进价:", txtPriceEnter},    {u"整件售价:", txtPriceSalePack},
        {u"单件售价:", txtPriceSale},      {u"包装数量:", txtPackageAmount}, {u"库存上限:", txtLimitUp},
        {u"库存下限:", txtLimitDown},
    };
    int row = 0;
    for (const auto &[label, box] : priceRows) {
        grid->addWidget(new QLabel(QString::fromUtf16(label), prices), row / 2, (row % 2) * 2);
        grid->addWidget(box, row / 2, (row % 2) * 2 + 1);
        ++row;
    }
    auto *remark = new QFormLayout;
    remark->addRow(u"备注(&R):"_s, txtRemark);

    auto *buttons = new QDialogButtonBox(this);
    buttons->addButton(cmdOK, QDialogButtonBox::AcceptRole);
    buttons->addButton(cmdCancel, QDialogButtonBox::RejectRole);
    cmdOK->setAutoDefault(false);
    cmdCancel->setAutoDefault(false);
    connect(cmdOK, &QPushButton::clicked, this, &frmGoodsEdit::cmdOK_Click);
    connect(cmdCancel, &QPushButton::clicked, this, &QDialog::reject);

    auto *layout = new QVBoxLayout(this);
    layout->addWidget(basic);
    layout->addWidget(prices);
    layout->addLayout(remark);
    layout->addWidget(buttons);

    DialogSupport::enterMovesOn({txtNo, txtName, txtStandard, txtSpell, cboUnit, cboType, txtPriceEnterPack,
                                 txtPriceEnter, txtPriceSalePack, txtPriceSale, txtPackageAmount, txtLimitUp,
                                 txtLimitDown, txtRemark});

    connect(txtName, &QLineEdit::textEdited, this, [this](const QString &name) {
        if (!m_spellTouched) {
            txtSpell->setText(CSpell::py(name.trimmed()));
        }
    });
    connect(txtSpell, &QLineEdit::textEdited, this, [this]() { m_spellTouched = !txtSpell->text().isEmpty(); });
    connect(txtNo, &QLineEdit::textEdited, this, [this]() { m_noTouched = true; });
    connect(cboType, &QComboBox::currentIndexChanged, this, [this]() {
        // A new goods takes the next number of its type until the clerk types one.
        if (m_isNew && !m_noTouched) {
            suggestNumber();
        }
    });
    DialogSupport::enterPressesFocusedButton(this);
}

frmGoodsEdit::~frmGoodsEdit() = default;

void frmGoodsEdit::suggestNumber()
{
    if (!m_goods) {
        return;
    }
    const qint32 type = cboType->currentData().toInt();
    txtNo->setText(type > 0 ? m_goods->GetNewGoodsNoEx(type) : m_goods->GetNewGoodsNo());
}

bool frmGoodsEdit::LoadGoods(const QVariant &value, const std::shared_ptr<CItems> &allGoods,
                             const std::shared_ptr<CItems> &types, const std::shared_ptr<CItems> &units, bool isNew)
{
    m_goods = allGoods;
    m_types = types;
    m_units = units;
    m_isNew = isNew;
    m_saved.reset();
    m_spellTouched = false; // a rename takes the code of the new name unless the clerk types one
    m_noTouched = !isNew;
    if (isNew) {
        m_editing = CItem::create();
        m_editing->setF_ItemTypeID(qint16(ItemType::Goods));
        m_editing->setF_PackageAmount(1.0f);
        m_editing->setF_ParentID(value.toInt());
    } else {
        const CItemPtr existing = allGoods ? allGoods->SearchItemByID(value.toInt()) : CItemPtr();
        if (!existing) {
            return false;
        }
        m_editing = existing;
    }
    const CItem &g = *m_editing;
    setWindowTitle(isNew ? u"新增商品"_s : u"修改商品 - "_s + g.F_ItemName());
    txtName->setText(g.F_ItemName());
    txtStandard->setText(g.F_Standard());
    txtSpell->setText(g.F_Spell());
    fillCombo(cboUnit, units, g.F_Tag1());
    {
        const QSignalBlocker block(cboType);
        fillCombo(cboType, types, g.F_ParentID());
    }
    txtNo->setText(g.F_ItemNo());
    if (isNew) {
        suggestNumber();
    }
    txtPriceEnterPack->setText(ItemTableModel::priceText(g.F_PriceEnterPack()));
    txtPriceEnter->setText(ItemTableModel::priceText(g.F_PriceEnter()));
    txtPriceSalePack->setText(ItemTableModel::priceText(g.F_PriceSalePack()));
    txtPriceSale->setText(ItemTableModel::priceText(g.F_PriceSale()));
    txtPackageAmount->setText(QString::number(double(g.F_PackageAmount()), 'g', 7));
    txtLimitUp->setText(QString::number(double(g.F_LimitUp()), 'g', 7));
    txtLimitDown->setText(QString::number(double(g.F_LimitDown()), 'g', 7));
    txtRemark->setText(g.F_Remark());
    Module1::SelectAllText(isNew ? txtName : txtNo);
    return true;
}

bool frmGoodsEdit::EditGoods(const QVariant &value, const std::shared_ptr<CItems> &allGoods,
                             const std::shared_ptr<CItems> &, const std::shared_ptr<CItems> &types,
                             const std::shared_ptr<CItems> &units, bool isNew)
{
    if (!LoadGoods(value, allGoods, types, units, isNew)) {
        CPrompt::current().MsgBox(u"找不到要修改的商品!"_s, CPrompt::vbExclamation, CPrompt::messageTitle());
        return false;
    }
    return exec() == QDialog::Accepted;
}

bool frmGoodsEdit::readSingle(QLineEdit *box, const QString &field, bool mustBePositive, float &out)
{
    QString text;
    QVariant value;
    if (!Module1::CheckNumberText(box, field, mustBePositive, text, value, mustBePositive)) {
        return false;
    }
    bool ok = true;
    const float number = text.trimmed().isEmpty() ? 0.0f : text.trimmed().toFloat(&ok);
    if (!ok || (mustBePositive && number <= 0.0f)) {
        Module1::ClearErr();
        Module1::ShowErrMsg(u"请输入正确的["_s + field + u"]!"_s);
        box->setFocus();
        return false;
    }
    out = number;
    return true;
}

bool frmGoodsEdit::cmdOK_Click()
{
    if (!m_goods) {
        return false;
    }
    const QString no = txtNo->text().trimmed();
    const QString name = txtName->text().trimmed();
    const qint32 id = m_isNew ? 0 : m_editing->F_ID();
    using DialogSupport::refuse;
    if (no.isEmpty()) {
        return refuse(txtNo, u"请输入商品编号!"_s);
    }
    if (name.isEmpty()) {
        return refuse(txtName, u"请输入商品名称!"_s);
    }
    if (m_goods->HasTheItemNo(no, id)) {
        return refuse(txtNo, u"商品编号["_s + no + u"]已经存在,请换一个编号!"_s);
    }
    if (m_goods->HasTheItemName(name, id)) {
        return refuse(txtName, u"商品名称["_s + name + u"]已经存在,请换一个名称!"_s);
    }
    Currency enterPack, enter, salePack, sale;
    float package = 1, up = 0, down = 0;
    auto readAmount = [](QLineEdit *box, const QString &field, Currency &out) {
        return DialogSupport::readAmount(box, field, DialogSupport::AmountKind::Price, false, false, out);
    };
    if (!readAmount(txtPriceEnterPack, u"整件进价"_s, enterPack) || !readAmount(txtPriceEnter, u"单件进价"_s, enter)
        || !readAmount(txtPriceSalePack, u"整件售价"_s, salePack) || !readAmount(txtPriceSale, u"单件售价"_s, sale)
        || !readSingle(txtPackageAmount, u"包装数量"_s, true, package)
        || !readSingle(txtLimitUp, u"库存上限"_s, false, up) || !readSingle(txtLimitDown, u"库存下限"_s, false, down)) {
        return false;
    }
    // Edit a copy: the listed goods change only once the database has the new values.
    CItemPtr goods = CItem::create(*m_editing);
    goods->setF_ItemTypeID(qint16(ItemType::Goods));
    goods->setF_ItemNo(no);
    goods->setF_ItemName(name);
    goods->setF_Standard(txtStandard->text().trimmed());
    goods->setF_Spell(txtSpell->text().trimmed());
    goods->setF_Tag1(cboUnit->currentData().toInt());
    goods->setF_ParentID(cboType->currentData().toInt());
    goods->setmUnitName(cboUnit->currentIndex() > 0 ? cboUnit->currentText() : QString());
    goods->setmTypeName(cboType->currentIndex() > 0 ? cboType->currentText() : QString());
    goods->setF_PriceEnterPack(enterPack);
    goods->setF_PriceEnter(enter);
    goods->setF_PriceSalePack(salePack);
    goods->setF_PriceSale(sale);
    goods->setF_PackageAmount(package);
    goods->setF_LimitUp(up);
    goods->setF_LimitDown(down);
    goods->setF_Remark(txtRemark->text());
    return DialogSupport::saveAndAccept(this, *m_goods, goods, m_isNew, m_saved, m_editing);
}
