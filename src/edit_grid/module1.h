#ifndef QUILLON_MODULE1_H
#define QUILLON_MODULE1_H

#include "module1core.h"
#include "quillon_export.h"

#include <QString>
#include <QStringList>
#include <QVariant>

class QLineEdit;
class QWidget;

/**
 * The window helpers of Module1: numeric text boxes, focus and selection, the Enter key, the print hook. The
 * widget-free helpers (error box, ini access, numbers) come from module1core.h in the same namespace.
 */
namespace Module1 {

/// Checks a numeric text box; a refused text shows the error box, focuses the box and gives false.
QUILLON_EXPORT bool CheckNumberText(QLineEdit *box, const QString &fieldName, bool mustBeNonZero, QString &textOut,
                                    QVariant &valueOut, bool mustBeFilled);

/// Focuses a text control (line edit, text edit, spin box, editable combo box) and selects its whole text.
/// Anything else, or a control that cannot take the focus, is left as it is.
QUILLON_EXPORT void SelectAllText(QWidget *control);
/// Enter (13) moves the focus on as Tab would, through a posted Tab keystroke; other keys are left alone.
QUILLON_EXPORT void EnterToTab(qint16 keyCode);
/// Loads the toolkit's own Chinese texts (file dialogs, standard buttons) into the application, once. The program
/// speaks Simplified Chinese, so they are Chinese whatever the locale (a Chinese locale of another script takes its
/// own). False when there is no application object or the translation files are missing.
QUILLON_EXPORT bool LoadToolkitTranslations();
/// The main window's print hook: takes the grid and the heading texts and prints nothing.
QUILLON_EXPORT void PrintGrid(qint32 mode, QWidget *grid, const QString &title, qint32 options,
                              const QStringList &headings);

} // namespace Module1

#endif
