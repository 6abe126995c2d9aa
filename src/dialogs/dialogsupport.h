#ifndef QUILLON_DIALOGSUPPORT_H
#define QUILLON_DIALOGSUPPORT_H

// Internal helpers of the dialogs.

#include "citem.h"
#include "currency.h"

#include <QObject>

#include <functional>
#include <memory>

class CItems;
class QComboBox;
class QDialog;
class QLineEdit;
class QWidget;

namespace DialogSupport {

/// Makes Enter in each of `fields` move the focus on, as Tab would (EnterToTab).
void enterMovesOn(const QList<QWidget *> &fields);
/// Makes Enter in `field` call `action` and nothing else (no default button of the dialog is pressed).
void onEnter(QWidget *field, std::function<void()> action);
/// Makes Enter on any push button of `dialog` that has the keyboard focus press that button, not the dialog's
/// default one (a button that is not auto-default ignores Enter and the dialog would press its default).
void enterPressesFocusedButton(QDialog *dialog);

/// Refuses a dialog's input: the message in an exclamation box, then the box's text selected. Returns false.
bool refuse(QLineEdit *box, const QString &message);

/// Fills a combo box with "(无)" and the items' names (F_ID as data) and selects `selectedID`.
void fillCombo(QComboBox *combo, const std::shared_ptr<CItems> &items, qint32 selectedID);

/// Makes a text box at least wide enough to show `sample` whole.
void fitWidth(QLineEdit *box, const QString &sample);

/// What an amount box holds, which sets how many decimals are kept and shown.
enum class AmountKind {
    Price, ///< four decimals ("35.5680")
    Total, ///< money: two decimals ("44.46"), a longer input rounded
    Quantity, ///< up to four decimals, without trailing zeros ("1", "2.5")
};

/// An amount as a box of that kind shows it.
QString amountText(AmountKind kind, Currency value);

/// Reads an amount from a text box with the rules of CheckNumberText and an exact decimal parse; a refused text
/// shows the error box, focuses the box and gives false. An accepted amount is kept with its kind's decimals and
/// shown back formatted.
bool readAmount(QLineEdit *box, const QString &field, AmountKind kind, bool mustBeNonZero, bool mustBeFilled,
                Currency &out);

/// The end of an edit dialog's save: a new item gets F_ID 0 (a fresh key) and the current date and time, then
/// `items` saves it. Once saved, `item` becomes the dialog's `saved` and `editing` item and `dialog` is accepted.
/// False, with the dialog left open, when the save failed.
bool saveAndAccept(QDialog *dialog, CItems &items, const CItemPtr &item, bool isNew, CItemPtr &saved,
                   CItemPtr &editing);

} // namespace DialogSupport

#endif
