#include "module1.h"

#include <QAbstractSpinBox>
#include <QApplication>
#include <QComboBox>
#include <QKeyEvent>
#include <QLibraryInfo>
#include <QLineEdit>
#include <QLocale>
#include <QPlainTextEdit>
#include <QPointer>
#include <QTextEdit>
#include <QTranslator>

using namespace Qt::StringLiterals;

bool Module1::CheckNumberText(QLineEdit *box, const QString &fieldName, bool mustBeNonZero, QString &textOut,
                              QVariant &valueOut, bool mustBeFilled)
{
    QString message;
    if (CheckNumberRules(box ? box->text() : QString(), fieldName, mustBeNonZero, textOut, valueOut, mustBeFilled,
                         &message)) {
        return true;
    }
    ShowErrMsg(message);
    if (box) {
        box->setFocus();
    }
    return false;
}

void Module1::SelectAllText(QWidget *control)
{
    if (!control || !control->isEnabled() || control->focusPolicy() == Qt::NoFocus) {
        return;
    }
    control->setFocus(Qt::OtherFocusReason);
    if (auto *line = qobject_cast<QLineEdit *>(control)) {
        line->setSelection(0, int(line->text().size()));
    } else if (auto *text = qobject_cast<QTextEdit *>(control)) {
        text->selectAll();
    } else if (auto *plain = qobject_cast<QPlainTextEdit *>(control)) {
        plain->selectAll();
    } else if (auto *spin = qobject_cast<QAbstractSpinBox *>(control)) {
        spin->selectAll();
    } else if (auto *combo = qobject_cast<QComboBox *>(control); combo && combo->lineEdit()) {
        combo->lineEdit()->selectAll();
    }
}

void Module1::EnterToTab(qint16 keyCode)
{
    if (keyCode != 13) {
        return;
    }
    QWidget *target = QApplication::focusWidget();
    if (!target) {
        return;
    }
    // Posted, not sent: the Enter that called us finishes first, as a queued keystroke would.
    QCoreApplication::postEvent(target, new QKeyEvent(QEvent::KeyPress, Qt::Key_Tab, Qt::NoModifier));
    QCoreApplication::postEvent(target, new QKeyEvent(QEvent::KeyRelease, Qt::Key_Tab, Qt::NoModifier));
}

bool Module1::LoadToolkitTranslations()
{
    static QPointer<QTranslator> s_loaded;
    QCoreApplication *app = QCoreApplication::instance();
    if (!app) {
        return false;
    }
    if (s_loaded) {
        return true;
    }
    QLocale locale = QLocale::system();
    if (locale.language() != QLocale::Chinese) {
        locale = QLocale(QLocale::Chinese, QLocale::SimplifiedHanScript, QLocale::China);
    }
    auto *translator = new QTranslator(app);
    if (!translator->load(locale, u"qtbase"_s, u"_"_s, QLibraryInfo::path(QLibraryInfo::TranslationsPath))) {
        delete translator;
        return false;
    }
    QCoreApplication::installTranslator(translator);
    s_loaded = translator;
    return true;
}

void Module1::PrintGrid(qint32, QWidget *, const QString &, qint32, const QStringList &)
{ }
