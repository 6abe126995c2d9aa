#ifndef QUILLON_QTPROMPT_H
#define QUILLON_QTPROMPT_H

#include "prompt.h"
#include "quillon_export.h"

/**
 * Prompt that shows Qt message boxes and input dialogs. Needs a running QApplication; the
 * library offers one to CPrompt::current() when it is loaded.
 */
class QUILLON_EXPORT QtPrompt : public CPrompt
{
public:
    QtPrompt() = default;
    int MsgBox(const QString &text, int style, const QString &title) override;
    std::optional<QString> InputBox(const QString &prompt, const QString &title, const QString &defaultText) override;
};

#endif
