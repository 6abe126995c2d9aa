#include "clicommands.h"

#include "cconnection.h"
#include "keyid.h"
#include "prompt.h"

#include <QDir>
#include <QProcessEnvironment>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTextStream>

#include <functional>

using namespace Qt::StringLiterals;

namespace Cli {

namespace {

const char16_t kUsage[] =
    u"用法: quillon-cli [--db URL] COMMAND ...\n"
    u"  init                       创建数据表(已有的表保持不变)\n"
    u"  newid TABLE [--peek]       取下一个键值(--peek 只查看,不占用)\n"
    u"URL: sqlite:///绝对路径.db | sqlite:相对路径.db | postgresql://用户[:密码]@主机[:端口]/库名\n";

struct Context
{
    QString dbUrl;
    QStringList args; // after the command name
    QTextStream &out;
    QTextStream &err;
    ScriptedPrompt prompt;
};

int usage(Context &c, const QString &problem)
{
    if (!problem.isEmpty()) {
        c.err << problem << u'\n';
    }
    c.err << QString::fromUtf16(kUsage);
    return Usage;
}

std::shared_ptr<CConnection> openDatabase(Context &c)
{
    if (c.dbUrl.startsWith(u"sqlite:"_s)) {
        const DatabaseUrl where = DatabaseUrl::parse(c.dbUrl);
        if (where.engine == DatabaseUrl::Engine::SQLite && where.databaseName != u":memory:"_s) {
            QDir().mkpath(QFileInfo(where.databaseName).absolutePath());
        }
    }
    QString error;
    auto connection = CConnection::Open(c.dbUrl, &error);
    if (!connection) {
        c.err << error << u'\n';
    }
    return connection;
}

int cmdInit(Context &c)
{
    if (!c.args.isEmpty()) {
        return usage(c, u"init 不接受参数: "_s + c.args.join(u' '));
    }
    auto connection = openDatabase(c);
    if (!connection) {
        return Failed;
    }
    try {
        connection->EnsureSchema();
    } catch (const DbError &e) {
        c.err << u"创建数据表失败: "_s << e.message() << u'\n';
        return Failed;
    }
    c.out << u"数据库已就绪: "_s << c.dbUrl << u'\n';
    return Ok;
}

int cmdNewId(Context &c)
{
    QString table;
    bool peek = false;
    for (const QString &arg : std::as_const(c.args)) {
        if (arg == u"--peek"_s) {
            peek = true;
        } else if (arg.startsWith(u"--"_s) || !table.isEmpty()) {
            return usage(c, u"无法识别的参数: "_s + arg);
        } else {
            table = arg;
        }
    }
    if (table.isEmpty()) {
        return usage(c, u"newid 需要数据表名"_s);
    }
    auto connection = openDatabase(c);
    if (!connection) {
        return Failed;
    }
    try {
        if (!connection->hasTable(u"T_KeyID"_s)) {
            throw DbError(u"数据库中没有 T_KeyID 表,请先运行 init"_s);
        }
        c.out << Module1::GetNewID(*connection, table, !peek) << u'\n';
    } catch (const DbError &e) {
        c.err << u"取键值失败: "_s << e.message() << u'\n';
        return Failed;
    }
    return Ok;
}

} // namespace

QString defaultDatabaseUrl()
{
    QString base = QProcessEnvironment::systemEnvironment().value(u"XDG_DATA_HOME"_s);
    if (base.isEmpty() || !QDir::isAbsolutePath(base)) {
        base = QDir::homePath() + u"/.local/share"_s;
    }
    return u"sqlite://"_s + base + u"/quillon/quillon.db"_s;
}

int run(const QStringList &arguments, QTextStream &out, QTextStream &err)
{
    Context c {defaultDatabaseUrl(), {}, out, err, {}};
    c.prompt.setEcho(true);
    CPrompt *previous = CPrompt::setCurrent(&c.prompt);
    struct Restore
    {
        CPrompt *previous;
        ~Restore() { CPrompt::setCurrent(previous); }
    } restore {previous};

    QStringList args = arguments;
    while (!args.isEmpty() && args.first().startsWith(u"--"_s)) {
        const QString option = args.takeFirst();
        if (option == u"--db"_s) {
            if (args.isEmpty()) {
                return usage(c, u"--db 需要一个数据库地址"_s);
            }
            c.dbUrl = args.takeFirst();
        } else if (option.startsWith(u"--db="_s)) {
            c.dbUrl = option.mid(5);
        } else if (option == u"--help"_s || option == u"-h"_s) {
            out << QString::fromUtf16(kUsage);
            return Ok;
        } else {
            return usage(c, u"无法识别的选项: "_s + option);
        }
    }
    if (args.isEmpty()) {
        return usage(c, QString());
    }
    const QString command = args.takeFirst();
    c.args = args;
    const std::pair<const char16_t *, std::function<int(Context &)>> commands[] = {
        {u"init", cmdInit},
        {u"newid", cmdNewId},
    };
    for (const auto &[name, handler] : commands) {
        if (command == QStringView(name)) {
            return handler(c);
        }
    }
    return usage(c, u"未知的命令: "_s + command);
}

} // namespace Cli
