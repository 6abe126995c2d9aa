#pragma once

#include <QApplication>
#include <QDialog>
#include <QTest>
#include <QTimer>

// Drives a modal window from inside its event loop. A failed check in the driving code leaves the window open and
// the test waiting in its exec(), so after a failure every open modal window is closed and the test runs on to its
// end; a driver that merely forgets to close one is left to the per-test time limit of the test run.
namespace ModalTest {

// Closes every open modal window, the innermost first.
inline void closeModals()
{
    for (int i = 0; i < 16; ++i) {
        QWidget *window = QApplication::activeModalWidget();
        if (!window) {
            return;
        }
        if (auto *dialog = qobject_cast<QDialog *>(window)) {
            dialog->done(QDialog::Rejected);
        } else {
            window->close();
        }
        if (QApplication::activeModalWidget() == window) {
            window->hide();
        }
    }
}

// Runs `drive` as soon as the event loop runs again (inside the exec() that the caller starts next); closes every
// modal window when a check in `drive` failed.
template<typename Drive>
void later(QObject *context, Drive drive)
{
    QTimer::singleShot(0, context, [drive]() {
        drive();
        if (QTest::currentTestFailed()) {
            closeModals();
        }
    });
}

// The same, for a driver that is handed the modal window of class Window once it shows (a failure when none does).
template<typename Window, typename Drive>
void whenModal(QObject *context, Drive drive)
{
    later(context, [drive]() {
        Window *window = nullptr;
        QTRY_VERIFY_WITH_TIMEOUT((window = qobject_cast<Window *>(QApplication::activeModalWidget())), 3000);
        drive(window);
    });
}

} // namespace ModalTest
