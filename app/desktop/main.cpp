// The desktop program: opens the database, loads the master data and shows the item management window.
#include "appdatabase.h"
#include "cbus.h"
#include "cconnection.h"
#include "demodata.h"
#include "frmconnect.h"
#include "frmmain.h"
#include "module1.h"
#include "qtprompt.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QInputDialog>
#include <QLocale>
#include <QMessageBox>
#include <QPixmap>
#include <QProcess>
#include <QProgressDialog>
#include <QScreen>
#include <QTimer>

#include <optional>

#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace {

void fail(const QString &text)
{
    QMessageBox::critical(nullptr, CPrompt::applicationTitle(), text);
}

// A server URL with a user but no password that the server refused: the password is asked for (a server that needs
// none, or finds it in ~/.pgpass, is not asked again). The URL as it was when there is nothing to ask; nothing when
// the user cancels.
std::optional<QString> withAskedPassword(const QString &url)
{
    const DatabaseUrl where = DatabaseUrl::parse(url);
    if (where.engine != DatabaseUrl::Engine::PostgreSQL || where.user.isEmpty() || !where.password.isEmpty()) {
        return url;
    }
    bool ok = false;
    const QString password = QInputDialog::getText(nullptr, CPrompt::applicationTitle(),
                                                   u"数据库 "_s + where.user + u"@"_s + where.host + u"/"_s
                                                       + where.databaseName + u" 的密码:"_s,
                                                   QLineEdit::Password, QString(), &ok);
    if (!ok) {
        return std::nullopt;
    }
    return password.isEmpty() ? url : AppDatabase::withPassword(url, password);
}

// The program's own arguments without --db, for starting it again on the remembered database.
QStringList argumentsWithoutDatabase()
{
    QStringList arguments = QCoreApplication::arguments().mid(1);
    for (qsizetype i = 0; i < arguments.size();) {
        const QString &argument = arguments.at(i);
        if (argument == u"--db"_s || argument == u"-db"_s) {
            arguments.remove(i, qMin<qsizetype>(2, arguments.size() - i));
        } else if (argument.startsWith(u"--db="_s) || argument.startsWith(u"-db="_s)) {
            arguments.remove(i);
        } else {
            ++i;
        }
    }
    return arguments;
}

} // namespace

int main(int argc, char *argv[])
{
    // Master data, settings, backups and exports are the shop's business: what this program creates is its
    // user's alone.
    ::umask(077);
    QApplication app(argc, argv);
    QApplication::setApplicationName(u"quillon"_s);
    QApplication::setApplicationDisplayName(u"Quillon进销存"_s);
    QApplication::setApplicationVersion(QStringLiteral(QUILLON_APP_VERSION));
    Module1::LoadToolkitTranslations();

    QCommandLineParser parser;
    parser.setApplicationDescription(u"Quillon进销存 基础资料管理"_s);
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption dbOption(
        u"db"_s, u"数据库地址 (sqlite:///路径 或 postgresql://...);默认为上次打开的数据库"_s, u"URL"_s);
    const QCommandLineOption demoOption(u"demo"_s, u"数据库为空时填入演示数据"_s);
    const QCommandLineOption shotOption(u"screenshot"_s, u"启动后把整个屏幕存为图片并退出"_s, u"FILE"_s);
    const QCommandLineOption kindOption(u"show"_s, u"启动时显示的项目类别编号 (如 4 = 商品)"_s, u"TYPE"_s);
    parser.addOptions({dbOption, demoOption, shotOption, kindOption});
    parser.process(app);

    QtPrompt prompt;
    CPrompt::setCurrent(&prompt);

    QString url = parser.value(dbOption);
    bool savePassword = AppDatabase::rememberedSavesPassword();
    if (!parser.isSet(dbOption)) {
        url = AppDatabase::rememberedUrl();
        if (url.isEmpty()) {
            url = AppDatabase::defaultUrl();
        }
    }
    QString error;
    std::shared_ptr<CConnection> connection;
    // A database that cannot be opened (a server down, a password changed) is not a dead end: the user may pick
    // another one or correct this one.
    bool mayAskPassword = true;
    // A database given with --db is used for this run only (demo runs, screenshots, a second shop); the one the
    // program picked itself or the user chose in the dialog is the one to come back to.
    bool toRemember = !parser.isSet(dbOption);
    while (!(connection = AppDatabase::open(url, &error))) {
        if (mayAskPassword) {
            mayAskPassword = false;
            const auto asked = withAskedPassword(url);
            if (!asked) {
                return 0;
            }
            if (*asked != url) {
                url = *asked;
                continue;
            }
        }
        const int answer = CPrompt::current().MsgBox(
            u"无法打开数据库:\n"_s + DatabaseUrl::masked(url) + u"\n\n"_s + error + u"\n\n要连接其他数据库吗?"_s,
            CPrompt::vbYesNo | CPrompt::vbCritical, CPrompt::applicationTitle());
        if (answer != CPrompt::vbYes) {
            return 1;
        }
        frmConnect dialog;
        dialog.setUrl(url);
        dialog.setSavePassword(savePassword);
        if (dialog.exec() != QDialog::Accepted) {
            return 1;
        }
        url = dialog.url();
        savePassword = dialog.savePassword();
        toRemember = true;
    }
    if (toRemember) {
        AppDatabase::remember(url, savePassword);
    }
    if (!connection->notice().isEmpty()) {
        CPrompt::current().MsgBox(connection->notice(), CPrompt::vbInformation, CPrompt::messageTitle());
    }
    try {
        connection->EnsureSchema();
        if (parser.isSet(demoOption) && AppDatabase::isEmpty(*connection)) {
            if (!DemoData::seed(connection, &error)) {
                fail(u"填入演示数据失败:\n"_s + error);
                return 1;
            }
        }
    } catch (const DbError &e) {
        fail(u"无法准备数据库:\n"_s + DatabaseUrl::masked(url) + u"\n\n"_s + e.message());
        return 1;
    }

    CBus bus;
    {
        QProgressDialog progress(u"正在读取数据..."_s, u"取消"_s, 0, 11);
        progress.setWindowTitle(CPrompt::applicationTitle());
        progress.setMinimumDuration(0);
        progress.setWindowModality(Qt::ApplicationModal);
        progress.setAutoReset(false);
        progress.setAutoClose(false);
        QObject::connect(&bus, &CBus::OnInitItem, &progress, [&progress](const QString &text) {
            progress.setLabelText(u"正在读取"_s + text + u"..."_s);
            progress.setValue(qMin(progress.maximum(), progress.value() + 1));
            QCoreApplication::processEvents();
        });
        // A large list reports while it reads: the count moves, the window repaints and 取消 is heard.
        QObject::connect(&bus, &CBus::LoadProgress, &progress, [&progress](const QString &text, qint64 rows) {
            progress.setLabelText(u"正在读取"_s + text + u"... 已读 "_s + QLocale(QLocale::Chinese).toString(rows)
                                  + u" 条"_s);
            QCoreApplication::processEvents();
        });
        QObject::connect(&progress, &QProgressDialog::canceled, &bus, [&bus] { bus.CancelLoad(); });
        progress.setValue(0);
        progress.show();
        QCoreApplication::processEvents();
        bus.InitAllData(connection);
        if (bus.loadCancelled()) {
            // The user chose not to wait: nothing was changed, so the program simply ends.
            return 0;
        }
    }
    bus.ShowMain();
    bus.mainWindow()->setSavePasswordChoice(savePassword);
    QObject::connect(
        bus.mainWindow(), &frmMain::DatabaseChosen, &app,
        [&app, window = bus.mainWindow()](const QString &chosen, bool save) {
            if (CPrompt::current().MsgBox(u"程序将重新启动并打开所选的数据库:\n"_s + DatabaseUrl::masked(chosen)
                                              + u"\n\n是否继续?"_s,
                                          CPrompt::vbYesNo | CPrompt::vbQuestion, CPrompt::applicationTitle())
                != CPrompt::vbYes) {
                return;
            }
            AppDatabase::remember(chosen, save);
            // The window rectangle is stored before the new program reads it.
            window->Form_Unload();
            if (!QProcess::startDetached(QCoreApplication::applicationFilePath(), argumentsWithoutDatabase())) {
                fail(u"无法重新启动程序,请手动启动。所选的数据库已记住。"_s);
                return;
            }
            window->close();
            app.quit();
        });
    if (parser.isSet(kindOption)) {
        bus.mainWindow()->selectKind(parser.value(kindOption).toInt());
    }

    if (parser.isSet(shotOption)) {
        const QString file = parser.value(shotOption);
        QTimer::singleShot(2000, &app, [file]() {
            // The whole screen as the X server shows it, window frame included.
            const QPixmap shot = QGuiApplication::primaryScreen()->grabWindow(0);
            const bool saved = shot.save(file);
            QCoreApplication::exit(saved ? 0 : 1);
        });
    }
    return app.exec();
}
