// The desktop program: opens the database, loads the master data and shows the item management window.
#include "appdatabase.h"
#include "cbus.h"
#include "cconnection.h"
#include "demodata.h"
#include "frmmain.h"
#include "qtprompt.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QMessageBox>
#include <QPixmap>
#include <QProgressDialog>
#include <QScreen>
#include <QTimer>

using namespace Qt::StringLiterals;

namespace {

void fail(const QString &text)
{
    QMessageBox::critical(nullptr, CPrompt::applicationTitle(), text);
}

} // namespace

int main(int argc, char *argv[])
{
    QApplication app(argc, argv);
    QApplication::setApplicationName(u"quillon"_s);
    QApplication::setApplicationDisplayName(u"Quillon进销存"_s);
    QApplication::setApplicationVersion(QStringLiteral(QUILLON_APP_VERSION));

    QCommandLineParser parser;
    parser.setApplicationDescription(u"Quillon进销存 基础资料管理"_s);
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption dbOption(u"db"_s, u"数据库地址 (sqlite:///路径 或 postgresql://...)"_s, u"URL"_s,
                                      AppDatabase::defaultUrl());
    const QCommandLineOption demoOption(u"demo"_s, u"数据库为空时填入演示数据"_s);
    const QCommandLineOption shotOption(u"screenshot"_s, u"启动后把整个屏幕存为图片并退出"_s, u"FILE"_s);
    const QCommandLineOption kindOption(u"show"_s, u"启动时显示的项目类别编号 (如 4 = 商品)"_s, u"TYPE"_s);
    parser.addOptions({dbOption, demoOption, shotOption, kindOption});
    parser.process(app);

    QtPrompt prompt;
    CPrompt::setCurrent(&prompt);

    const QString url = parser.value(dbOption);
    QString error;
    std::shared_ptr<CConnection> connection = AppDatabase::open(url, &error);
    if (!connection) {
        fail(u"无法打开数据库:\n"_s + DatabaseUrl::masked(url) + u"\n\n"_s + error);
        return 1;
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
        QProgressDialog progress(u"正在读取数据..."_s, QString(), 0, 12);
        progress.setWindowTitle(CPrompt::applicationTitle());
        progress.setMinimumDuration(0);
        progress.setWindowModality(Qt::ApplicationModal);
        QObject::connect(&bus, &CBus::OnInitItem, &progress, [&progress](const QString &text) {
            progress.setLabelText(text);
            progress.setValue(qMin(progress.maximum(), progress.value() + 1));
            QCoreApplication::processEvents();
        });
        progress.show();
        QCoreApplication::processEvents();
        bus.InitAllData(connection);
    }
    bus.ShowMain();
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
