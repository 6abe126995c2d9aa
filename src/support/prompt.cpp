#include "prompt.h"

#include <QCoreApplication>
#include <QVariant>

#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

CPrompt *s_current = nullptr;
CPrompt *s_dialogPrompt = nullptr;

} // namespace

int CPrompt::buttonsOf(int style)
{
    return style & 0x7;
}

int CPrompt::defaultAnswerFor(int style)
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

CPrompt::~CPrompt()
{
    if (s_current == this) {
        s_current = nullptr;
    }
    if (s_dialogPrompt == this) {
        s_dialogPrompt = nullptr;
    }
}

CPrompt &CPrompt::current()
{
    if (s_current) {
        return *s_current;
    }
    // The dialog prompt lives with the widgets; it is offered only once a widget application runs.
    if (s_dialogPrompt && QCoreApplication::instance() && QCoreApplication::instance()->inherits("QApplication")) {
        return *s_dialogPrompt;
    }
    static ScriptedPrompt headless;
    headless.setEcho(true);
    return headless;
}

void CPrompt::setDialogPrompt(CPrompt *prompt)
{
    s_dialogPrompt = prompt;
}

CPrompt *CPrompt::setCurrent(CPrompt *prompt)
{
    CPrompt *previous = s_current;
    s_current = prompt;
    return previous;
}

QString CPrompt::applicationTitle()
{
    // Read through the meta-object so that this layer needs no GUI module.
    if (QCoreApplication *app = QCoreApplication::instance(); app && app->inherits("QGuiApplication")) {
        const QString display = app->property("applicationDisplayName").toString();
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
