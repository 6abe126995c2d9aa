#ifndef QUILLON_DIALOGSUPPORT_H
#define QUILLON_DIALOGSUPPORT_H

// Internal helpers of the dialogs.

#include <QObject>

class QWidget;

namespace DialogSupport {

/// Makes Enter in each of `fields` move the focus on, as Tab would (EnterToTab).
void enterMovesOn(const QList<QWidget *> &fields);

} // namespace DialogSupport

#endif
