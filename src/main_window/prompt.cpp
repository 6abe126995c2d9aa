#include "prompt.h"

#include "frminputitem.h"

#include <QApplication>
#include <QMessageBox>
#include <QPushButton>

#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

CPrompt *s_current = nullptr;

int buttonsOf(int style)
{
    return style & 0x7;
}

int defaultAnswerFor(int style)
{
    switch (buttonsOf(style)) {
    case CPrompt::vbOKOnly:
        return CPrompt::vbOK;
    case CPrompt::vbYesNo:
    case CPrompt::vbYesNoCancel:
        return CPrompt::vbNo;
    case CPrompt::vbAbortRetryIgnore:
        return CPrompt::vbAbort;
    default:
        return CPrompt::vbCancel;
    }
}

} // namespace

CPrompt::~CPrompt()
{
    if (s_current == this) {
        s_current = nullptr;
    }
}

CPrompt &CPrompt::current()
{
    if (s_current) {
        return *s_current;
    }
    if (qobject_cast<QApplication *>(QCoreApplication::instance())) {
        static QtPrompt dialogs;
        return dialogs;
    }
    static ScriptedPrompt headless;
    headless.setEcho(true);
    return headless;
}

CPrompt *CPrompt::setCurrent(CPrompt *prompt)
{
    CPrompt *previous = s_current;
    s_current = prompt;
    return previous;
}

QString CPrompt::applicationTitle()
{
    if (qobject_cast<QGuiApplication *>(QCoreApplication::instance())) {
        const QString display = QGuiApplication::applicationDisplayName();
        if (!display.isEmpty()) {
            return display;
        }
    }
    return QCoreApplication::applicationName();
}

QString CPrompt::messageTitle()
{
    return u"Quillon软件提示您"_s;
}

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
    switch (buttonsOf(style)) {
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
        return defaultAnswerFor(style);
    }
    return choices.at(clicked).answer;
}

std::optional<QString> QtPrompt::InputBox(const QString &prompt, const QString &title, const QString &defaultText)
{
    frmInputItem dialog(QApplication::activeWindow());
    return dialog.ask(prompt, title, defaultText);
}

int ScriptedPrompt::MsgBox(const QString &text, int style, const QString &title)
{
    m_shown.append({text, style, title.isEmpty() ? applicationTitle() : title, false});
    if (m_echo) {
        std::fprintf(stderr, "%s\n", text.toLocal8Bit().constData());
    }
    if (!m_answers.empty()) {
        const int answer = m_answers.front();
        m_answers.pop_front();
        return answer;
    }
    if (buttonsOf(style) == vbOKOnly) {
        return vbOK;
    }
    return m_defaultAnswer.value_or(defaultAnswerFor(style));
}

std::optional<QString> ScriptedPrompt::InputBox(const QString &prompt, const QString &title, const QString &defaultText)
{
    Q_UNUSED(defaultText)
    m_shown.append({prompt, 0, title.isEmpty() ? applicationTitle() : title, true});
    if (m_inputs.empty()) {
        return std::nullopt;
    }
    const std::optional<QString> text = m_inputs.front();
    m_inputs.pop_front();
    return text;
}
