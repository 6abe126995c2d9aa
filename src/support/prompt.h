#ifndef QUILLON_PROMPT_H
#define QUILLON_PROMPT_H

#include "quillon_export.h"

#include <QList>
#include <QString>

#include <deque>
#include <optional>

/**
 * The one way the library shows a message, asks a question or asks for one line of text.
 *
 * Styles and answers use the classic message-box numbers (buttons + icon, e.g. 36 = Yes/No with the question icon;
 * answers 1 OK, 2 Cancel, 6 Yes, 7 No), so callers state exactly which box they show. An empty title means the
 * application's title. The installed prompt is process-wide and used from the user-interface thread only.
 */
class QUILLON_EXPORT CPrompt
{
public:
    enum Style {
        vbOKOnly = 0,
        vbOKCancel = 1,
        vbAbortRetryIgnore = 2,
        vbYesNoCancel = 3,
        vbYesNo = 4,
        vbRetryCancel = 5,
        vbCritical = 16,
        vbQuestion = 32,
        vbExclamation = 48,
        vbInformation = 64,
        vbDefaultButton2 = 256,
        vbDefaultButton3 = 512,
    };
    enum Answer { vbOK = 1, vbCancel = 2, vbAbort = 3, vbRetry = 4, vbIgnore = 5, vbYes = 6, vbNo = 7 };

    CPrompt() = default;
    virtual ~CPrompt();
    Q_DISABLE_COPY_MOVE(CPrompt)

    /// Shows `text` in a box of `style` and returns the answer.
    virtual int MsgBox(const QString &text, int style, const QString &title) = 0;
    /// Asks for one line of text; nothing when the user cancels.
    virtual std::optional<QString> InputBox(const QString &prompt, const QString &title,
                                            const QString &defaultText) = 0;

    /// The installed prompt: the one set last, else the dialog prompt (offered by the widget library) when a
    /// QApplication runs, else a headless one that writes messages to standard error and answers every question
    /// with its default.
    static CPrompt &current();
    /// The prompt that current() gives in a widget application when none is set (not owned).
    static void setDialogPrompt(CPrompt *prompt);
    /// Installs `prompt` (not owned; nullptr restores the automatic choice) and returns the previous one.
    static CPrompt *setCurrent(CPrompt *prompt);

    /// The title that a box with an empty title bears.
    static QString applicationTitle();
    /// The title of the library's confirmation and refusal boxes: "Quillon软件提示您".
    static QString messageTitle();

    /// The button set of a style (vbOKOnly … vbRetryCancel).
    static int buttonsOf(int style);
    /// The answer a box of `style` gives when it is closed without a choice.
    static int defaultAnswerFor(int style);
};

/**
 * Prompt that answers from a script and records what was shown: for tests and the command-line tool.
 *
 * Answers are taken from the queue in order; when it is empty a question gets the default answer (No, or Cancel
 * where there is no No; OK for a plain message) and an input box is cancelled.
 */
class QUILLON_EXPORT ScriptedPrompt : public CPrompt
{
public:
    struct Shown
    {
        QString text;
        int style = 0;
        QString title;
        bool isInput = false;
    };

    ScriptedPrompt() = default;

    void queueAnswer(int answer) { m_answers.push_back(answer); }
    void queueInput(const std::optional<QString> &text) { m_inputs.push_back(text); }
    void setDefaultAnswer(int answer) { m_defaultAnswer = answer; }
    /// Also write every message to standard error.
    void setEcho(bool echo) { m_echo = echo; }

    const QList<Shown> &shown() const { return m_shown; }
    QString lastText() const { return m_shown.isEmpty() ? QString() : m_shown.constLast().text; }
    void clear() { m_shown.clear(); }

    int MsgBox(const QString &text, int style, const QString &title) override;
    std::optional<QString> InputBox(const QString &prompt, const QString &title, const QString &defaultText) override;

private:
    std::deque<int> m_answers;
    std::deque<std::optional<QString>> m_inputs;
    std::optional<int> m_defaultAnswer;
    bool m_echo = false;
    QList<Shown> m_shown;
};

#endif
