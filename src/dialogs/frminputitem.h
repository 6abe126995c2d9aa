#ifndef QUILLON_FRMINPUTITEM_H
#define QUILLON_FRMINPUTITEM_H

#include "quillon_export.h"

#include <QDialog>

#include <optional>

class QLabel;
class QLineEdit;
class QPushButton;

/**
 * The single-line input box: a prompt, one text field and OK/Cancel. Enter accepts, Esc cancels. No validation.
 */
class QUILLON_EXPORT frmInputItem : public QDialog
{
    Q_OBJECT

public:
    explicit frmInputItem(QWidget *parent = nullptr);
    ~frmInputItem() override;
    Q_DISABLE_COPY_MOVE(frmInputItem)

    QLabel *const lblPrompt;
    QLineEdit *const txtInput;
    QPushButton *const cmdOK;
    QPushButton *const cmdCancel;

    /// Asks modally; the typed text, or the empty text when the user cancels.
    QString InputMsg(const QString &prompt, const QString &title, const QString &defaultText);
    /// The same, telling a cancel apart from an empty answer.
    std::optional<QString> ask(const QString &prompt, const QString &title, const QString &defaultText);
};

#endif
