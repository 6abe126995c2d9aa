#include "dialogsupport.h"

#include "module1.h"

#include <QKeyEvent>
#include <QWidget>

namespace {

class EnterFilter : public QObject
{
public:
    using QObject::QObject;

protected:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (event->type() == QEvent::KeyPress) {
            const auto *key = static_cast<QKeyEvent *>(event);
            if ((key->key() == Qt::Key_Return || key->key() == Qt::Key_Enter) && key->modifiers() == Qt::NoModifier) {
                Module1::EnterToTab(13);
                return true;
            }
        }
        return QObject::eventFilter(watched, event);
    }
};

} // namespace

void DialogSupport::enterMovesOn(const QList<QWidget *> &fields)
{
    for (QWidget *field : fields) {
        // One filter per field, owned by it.
        field->installEventFilter(new EnterFilter(field));
    }
}
