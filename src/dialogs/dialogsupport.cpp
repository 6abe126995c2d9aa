#include "dialogsupport.h"

#include "citems.h"
#include "itemtablemodel.h"
#include "module1.h"
#include "prompt.h"

#include <QComboBox>
#include <QDateTime>
#include <QDialog>
#include <QLineEdit>
#include <QPushButton>

#include <QKeyEvent>
#include <QStyle>
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

class EnterAction : public QObject
{
public:
    EnterAction(QObject *parent, std::function<void()> action)
        : QObject(parent)
        , m_action(std::move(action))
    { }

protected:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (event->type() == QEvent::KeyPress) {
            const auto *key = static_cast<QKeyEvent *>(event);
            if ((key->key() == Qt::Key_Return || key->key() == Qt::Key_Enter) && key->modifiers() == Qt::NoModifier) {
                m_action();
                return true;
            }
        }
        return QObject::eventFilter(watched, event);
    }

private:
    std::function<void()> m_action;
};

} // namespace

void DialogSupport::onEnter(QWidget *field, std::function<void()> action)
{
    field->installEventFilter(new EnterAction(field, std::move(action)));
}

void DialogSupport::enterPressesFocusedButton(QDialog *dialog)
{
    const QList<QPushButton *> buttons = dialog->findChildren<QPushButton *>();
    for (QPushButton *button : buttons) {
        onEnter(button, [button]() {
            if (button->isEnabled()) {
                button->click();
            }
        });
    }
}

void DialogSupport::enterMovesOn(const QList<QWidget *> &fields)
{
    for (QWidget *field : fields) {
        // One filter per field, owned by it.
        field->installEventFilter(new EnterFilter(field));
    }
}

void DialogSupport::fitWidth(QLineEdit *box, const QString &sample)
{
    // What a line edit keeps for itself around the text: its frame, its text margins and a fixed inner margin of
    // two pixels on each side.
    const QMargins margins = box->textMargins();
    const int frame = box->hasFrame() ? box->style()->pixelMetric(QStyle::PM_DefaultFrameWidth, nullptr, box) : 0;
    const int width =
        box->fontMetrics().horizontalAdvance(sample) + margins.left() + margins.right() + 2 * frame + 2 * 2 + 2;
    box->setMinimumWidth(qMax(box->minimumWidth(), width));
}

void DialogSupport::fillCombo(QComboBox *combo, const std::shared_ptr<CItems> &items, qint32 selectedID)
{
    if (items) {
        items->FillItemToCombox(combo, selectedID, true);
        return;
    }
    combo->clear();
    combo->addItem(QStringLiteral("(无)"), 0);
}

QString DialogSupport::amountText(AmountKind kind, Currency value)
{
    switch (kind) {
    case AmountKind::Price:
        return ItemTableModel::priceText(value);
    case AmountKind::Total:
        return ItemTableModel::totalText(value);
    case AmountKind::Quantity:
        break;
    }
    return value.toString();
}

bool DialogSupport::readAmount(QLineEdit *box, const QString &field, AmountKind kind, bool mustBeNonZero,
                               bool mustBeFilled, Currency &out)
{
    QString text;
    QVariant value;
    if (!Module1::CheckNumberText(box, field, mustBeNonZero, text, value, mustBeFilled)) {
        return false;
    }
    // CheckNumberText reads the leading number ("12元" is 12); an amount must be a number and nothing else.
    const QString trimmed = text.trimmed();
    const std::optional<Currency> exact = trimmed.isEmpty() ? Currency() : Currency::fromString(trimmed);
    if (!exact) {
        Module1::ClearErr();
        Module1::ShowErrMsg(QStringLiteral("请输入正确的[") + field + QStringLiteral("]!"));
        box->setFocus();
        return false;
    }
    out = kind == AmountKind::Total ? ItemTableModel::totalOf(*exact) : *exact;
    box->setText(amountText(kind, out));
    return true;
}

bool DialogSupport::refuse(QLineEdit *box, const QString &message)
{
    CPrompt::current().MsgBox(message, CPrompt::vbExclamation, CPrompt::messageTitle());
    Module1::SelectAllText(box);
    return false;
}

bool DialogSupport::saveAndAccept(QDialog *dialog, CItems &items, const CItemPtr &item, bool isNew, CItemPtr &saved,
                                  CItemPtr &editing)
{
    if (isNew) {
        item->setF_ID(0);
        item->setF_Date(QDateTime::currentDateTime());
    }
    if (!items.SaveItem(item)) {
        return false;
    }
    saved = item;
    editing = item;
    dialog->accept();
    return true;
}
