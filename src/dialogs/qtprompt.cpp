#include "qtprompt.h"

#include "frminputitem.h"

#include <QApplication>
#include <QMessageBox>
#include <QPushButton>

using namespace Qt::StringLiterals;

namespace {

// Offered to CPrompt::current() as soon as the library is loaded, so that every box of a widget application is a
// dialog without the host installing anything.
QtPrompt s_dialogs;
const bool s_offered = (CPrompt::setDialogPrompt(&s_dialogs), true);

} // namespace

int QtPrompt::MsgBox(const QString &text, int style, const QString &title)
{
    QMessageBox box(QApplication::activeWindow());
    box.setWindowTitle(title.isEmpty() ? applicationTitle() : title);
    box.setText(text);
    switch (style & 0x70) {
    case vbCritical:
        box.setIcon(QMessageBox::Critical);
        break;
    case vbQuestion:
        box.setIcon(QMessageBox::Question);
        break;
    case vbExclamation:
        box.setIcon(QMessageBox::Warning);
        break;
    case vbInformation:
        box.setIcon(QMessageBox::Information);
        break;
    default:
        break;
    }
    struct Choice
    {
        int answer;
        const char16_t *label;
        QMessageBox::ButtonRole role;
    };
    QList<Choice> choices;
    switch (CPrompt::buttonsOf(style)) {
    case vbOKCancel:
        choices = {{vbOK, u"确定", QMessageBox::AcceptRole}, {vbCancel, u"取消", QMessageBox::RejectRole}};
        break;
    case vbAbortRetryIgnore:
        choices = {{vbAbort, u"中止(&A)", QMessageBox::RejectRole},
                   {vbRetry, u"重试(&R)", QMessageBox::AcceptRole},
                   {vbIgnore, u"忽略(&I)", QMessageBox::ActionRole}};
        break;
    case vbYesNoCancel:
        choices = {{vbYes, u"是(&Y)", QMessageBox::YesRole},
                   {vbNo, u"否(&N)", QMessageBox::NoRole},
                   {vbCancel, u"取消", QMessageBox::RejectRole}};
        break;
    case vbYesNo:
        choices = {{vbYes, u"是(&Y)", QMessageBox::YesRole}, {vbNo, u"否(&N)", QMessageBox::NoRole}};
        break;
    case vbRetryCancel:
        choices = {{vbRetry, u"重试(&R)", QMessageBox::AcceptRole}, {vbCancel, u"取消", QMessageBox::RejectRole}};
        break;
    default:
        choices = {{vbOK, u"确定", QMessageBox::AcceptRole}};
        break;
    }
    QList<QPushButton *> buttons;
    for (const Choice &choice : std::as_const(choices)) {
        buttons.append(box.addButton(QString::fromUtf16(choice.label), choice.role));
    }
    // Bits 8 and 9 name the default button, as the classic style numbers do.
    const int defaultIndex = std::min<int>((style >> 8) & 0x3, int(buttons.size()) - 1);
    box.setDefaultButton(buttons.at(defaultIndex));
    box.exec();
    const int clicked = int(buttons.indexOf(qobject_cast<QPushButton *>(box.clickedButton())));
    if (clicked < 0) {
        return CPrompt::defaultAnswerFor(style);
    }
    return choices.at(clicked).answer;
}

std::optional<QString> QtPrompt::InputBox(const QString &prompt, const QString &title, const QString &defaultText)
{
    frmInputItem dialog(QApplication::activeWindow());
    return dialog.ask(prompt, title, defaultText);
}
