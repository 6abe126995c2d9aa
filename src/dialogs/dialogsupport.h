#ifndef QUILLON_DIALOGSUPPORT_H
#define QUILLON_DIALOGSUPPORT_H

// Internal helpers of the dialogs.

#include "currency.h"

#include <QObject>

#include <memory>

class CItems;
class QComboBox;
class QLineEdit;
class QWidget;

namespace DialogSupport {

/// Makes Enter in each of `fields` move the focus on, as Tab would (EnterToTab).
void enterMovesOn(const QList<QWidget *> &fields);

/// Refuses a dialog's input: the message in an exclamation box, then the box's text selected. Returns false.
bool refuse(QLineEdit *box, const QString &message);

/// Fills a combo box with "(无)" and the items' names (F_ID as data) and selects `selectedID`.
void fillCombo(QComboBox *combo, const std::shared_ptr<CItems> &items, qint32 selectedID);

/// Reads an amount from a text box with the rules of CheckNumberText and an exact decimal parse; a refused text
/// shows the error box, focuses the box and gives false. An accepted amount is shown back formatted.
bool readAmount(QLineEdit *box, const QString &field, bool mustBeNonZero, bool mustBeFilled, Currency &out);

} // namespace DialogSupport

#endif
