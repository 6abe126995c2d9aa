#include "frminputitem.h"
#include "modaltest.h"
#include "module1.h"
#include "qtprompt.h"

#include <QApplication>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QProcess>
#include <QPushButton>
#include <QTest>
#include <QTimer>

using namespace Qt::StringLiterals;

class PromptTest : public QObject
{
    Q_OBJECT

private:
    // Clicks the button labelled `label` of the box that opens next, and records its title and text.
    void answerNextBox(const QString &label)
    {
        ModalTest::later(this, [this, label] {
            auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
            QVERIFY(box);
            m_title = box->windowTitle();
            m_text = box->text();
            m_icon = box->icon();
            for (QAbstractButton *button : box->buttons()) {
                if (button->text() == label) {
                    button->click();
                    return;
                }
            }
            QFAIL(qPrintable(u"no button "_s + label));
        });
    }

    QString m_title;
    QString m_text;
    QMessageBox::Icon m_icon = QMessageBox::NoIcon;

private Q_SLOTS:
    void initTestCase() { QApplication::setApplicationDisplayName(u"测试程序"_s); }

    void dialogsAreTheDefaultUnderAnApplication()
    {
        QVERIFY(dynamic_cast<QtPrompt *>(&CPrompt::current()));
        QCOMPARE(CPrompt::applicationTitle(), u"测试程序"_s);
    }

    void questionAnswersMapToTheClassicNumbers_data()
    {
        QTest::addColumn<int>("style");
        QTest::addColumn<QString>("label");
        QTest::addColumn<int>("answer");
        QTest::newRow("yes") << int(CPrompt::vbYesNo | CPrompt::vbQuestion) << u"是(&Y)"_s << int(CPrompt::vbYes);
        QTest::newRow("no") << int(CPrompt::vbYesNo | CPrompt::vbQuestion) << u"否(&N)"_s << int(CPrompt::vbNo);
        QTest::newRow("cancel") << int(CPrompt::vbYesNoCancel) << u"取消"_s << int(CPrompt::vbCancel);
        QTest::newRow("ok") << int(CPrompt::vbOKOnly | CPrompt::vbExclamation) << u"确定"_s << int(CPrompt::vbOK);
    }
    void questionAnswersMapToTheClassicNumbers()
    {
        QFETCH(int, style);
        QFETCH(QString, label);
        QFETCH(int, answer);
        answerNextBox(label);
        QCOMPARE(CPrompt::current().MsgBox(u"您确实要删除该记录吗?"_s, style, CPrompt::messageTitle()), answer);
        QCOMPARE(m_title, u"Quillon软件提示您"_s);
        QCOMPARE(m_text, u"您确实要删除该记录吗?"_s);
    }

    void errorBoxBearsTheApplicationTitle()
    {
        Module1::SetErr(u"磁盘已满"_s);
        answerNextBox(u"确定"_s);
        QCOMPARE(Module1::ShowErrMsg(u"保存错误:"_s), int(CPrompt::vbOK));
        QCOMPARE(m_title, u"测试程序"_s);
        QCOMPARE(m_text, u"保存错误:\r\n磁盘已满"_s);
        QCOMPARE(m_icon, QMessageBox::Warning);
        Module1::ClearErr();
    }

    void checkNumberTextFocusesTheRefusedBox()
    {
        QWidget form;
        auto *price = new QLineEdit(&form);
        auto *other = new QLineEdit(&form);
        form.show();
        QVERIFY(QTest::qWaitForWindowExposed(&form));
        other->setFocus();
        price->setText(u"0"_s);
        QString text;
        QVariant value;
        answerNextBox(u"确定"_s);
        QVERIFY(!Module1::CheckNumberText(price, u"单价"_s, true, text, value, false));
        QVERIFY(m_text.startsWith(u"请输入正确的[单价]!"_s));
        QCOMPARE(form.focusWidget(), price);
    }

    void inputBoxReturnsTheTextOrNothing()
    {
        ModalTest::later(this, [] {
            auto *dialog = qobject_cast<frmInputItem *>(QApplication::activeModalWidget());
            QVERIFY(dialog);
            QCOMPARE(dialog->lblPrompt->text(), u"请输入新的单位名称:"_s);
            dialog->txtInput->setText(u"千克"_s);
            dialog->cmdOK->click();
        });
        QCOMPARE(CPrompt::current().InputBox(u"请输入新的单位名称:"_s, QString(), QString()),
                 std::optional<QString>(u"千克"_s));
        ModalTest::later(this, [] { QApplication::activeModalWidget()->close(); });
        QCOMPARE(CPrompt::current().InputBox(u"?"_s, QString(), u"x"_s), std::nullopt);
    }

    // A check that fails while a modal box waits for an answer closes the box: the run ends with the failure
    // instead of waiting for a click that never comes. Run in a child process, where the failure is wanted.
    void failedCheckInsideAModalBoxEndsTheTest()
    {
        if (qEnvironmentVariableIsSet("QUILLON_FAIL_INSIDE_MODAL")) {
            ModalTest::later(this, [] { QCOMPARE(u"shown"_s, u"expected"_s); });
            CPrompt::current().MsgBox(u"您确实要删除该记录吗?"_s, CPrompt::vbYesNo | CPrompt::vbQuestion, QString());
            ModalTest::later(this, [] { QFAIL("inside the input box"); });
            CPrompt::current().InputBox(u"请输入新的单位名称:"_s, QString(), QString());
            return;
        }
        QProcess child;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"QUILLON_FAIL_INSIDE_MODAL"_s, u"1"_s);
        environment.insert(u"QT_QPA_PLATFORM"_s, u"offscreen"_s);
        child.setProcessEnvironment(environment);
        child.start(QCoreApplication::applicationFilePath(), {u"failedCheckInsideAModalBoxEndsTheTest"_s});
        QVERIFY(child.waitForFinished(20000));
        const QString output = QString::fromUtf8(child.readAllStandardOutput());
        QVERIFY2(child.exitCode() != 0 && output.contains(u"Compared values are not the same"_s), qPrintable(output));
    }
};

QTEST_MAIN(PromptTest)
#include "tst_prompt.moc"
