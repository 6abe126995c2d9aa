#include "frminputitem.h"

#include "dialogsupport.h"
#include "module1.h"
#include "prompt.h"

#include <QDialogButtonBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

frmInputItem::frmInputItem(QWidget *parent)
    : QDialog(parent)
    , lblPrompt(new QLabel(this))
    , txtInput(new QLineEdit(this))
    , cmdOK(new QPushButton(u"确定"_s, this))
    , cmdCancel(new QPushButton(u"取消"_s, this))
{
    setObjectName(u"frmInputItem"_s);
    lblPrompt->setObjectName(u"lblPrompt"_s);
    txtInput->setObjectName(u"txtInput"_s);
    cmdOK->setObjectName(u"cmdOK"_s);
    cmdCancel->setObjectName(u"cmdCancel"_s);
    lblPrompt->setWordWrap(true);
    lblPrompt->setBuddy(txtInput);
    cmdOK->setDefault(true);

    auto *buttons = new QDialogButtonBox(this);
    buttons->addButton(cmdOK, QDialogButtonBox::AcceptRole);
    buttons->addButton(cmdCancel, QDialogButtonBox::RejectRole);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);

    auto *layout = new QVBoxLayout(this);
    layout->addWidget(lblPrompt);
    layout->addWidget(txtInput);
    layout->addWidget(buttons);
    setMinimumWidth(360);
    DialogSupport::enterPressesFocusedButton(this);
}

frmInputItem::~frmInputItem() = default;

std::optional<QString> frmInputItem::ask(const QString &prompt, const QString &title, const QString &defaultText)
{
    setWindowTitle(title.isEmpty() ? CPrompt::applicationTitle() : title);
    lblPrompt->setText(prompt);
    txtInput->setText(defaultText);
    Module1::SelectAllText(txtInput);
    if (exec() != QDialog::Accepted) {
        return std::nullopt;
    }
    return txtInput->text();
}

QString frmInputItem::InputMsg(const QString &prompt, const QString &title, const QString &defaultText)
{
    return ask(prompt, title, defaultText).value_or(QString());
}
