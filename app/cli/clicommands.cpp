#include "clicommands.h"

#include "appdatabase.h"
#include "datacommands.h"
#include "demodata.h"
#include "itemformat.h"
#include "watchcommand.h"

#include "cconnection.h"
#include "citems.h"
#include "cspell.h"
#include "databasecopy.h"
#include "gridexport.h"
#include "itemtablemodel.h"
#include "itemtype.h"
#include "keyid.h"
#include "module1core.h"
#include "prompt.h"

#include <QDir>
#include <QProcessEnvironment>
#include <QRegularExpression>
#include <QSqlQuery>
#include <QStandardPaths>
#include <QTextStream>

#include <functional>
#include <vector>

using namespace Qt::StringLiterals;

namespace Cli {

namespace {

const char16_t kUsage[] =
    u"用法: quillon-cli [--db URL] COMMAND ...\n"
    u"      quillon-cli --version | --help\n"
    u"  init [--demo]              创建数据表(已有的表保持不变);--demo 填入演示数据\n"
    u"  newid TABLE [--peek]       取下一个键值(--peek 只查看,不占用)\n"
    u"  list KIND [--format tsv|json]   按列表顺序列出一类资料\n"
    u"  add KIND --name NAME [--no NUMBER] [--set COLUMN=VALUE ...]   新增一条资料并显示其 F_ID\n"
    u"  rename KIND ID NAME        修改名称\n"
    u"  delete KIND ID [--yes]     删除(--yes 对确认问题回答\"是\")\n"
    u"  py [TEXT ...]              助记符(拼音首字母),每个参数一行;无参数时逐行读标准输入\n"
    u"  watch [KIND ...]           逐行显示其他座席或程序提交的修改(saved/removed、类别、F_ID,以制表符分隔),\n"
    u"                             直到被中断\n"
    u"  migrate --from URL --to URL [--replace]   把全部基础资料(T_Item、T_GoodsPrice、T_GoodsInOutList)复制到另一个\n"
    u"                             数据库;目标已有基础资料时须加 --replace 才会替换\n"
    u"  export KIND FILE [--sheet NAME]   把一类资料(与主窗口的表格同样的列)导出为 Excel 工作簿的新表格\n"
    u"KIND: 1-12 或 client(supplier) unit goods-type goods stock department option client-type area user-right\n"
    u"      receiver company\n"
    u"URL: sqlite:///绝对路径.db[?mode=ro] | sqlite:相对路径.db | "
    u"postgresql://用户[:密码]@主机[:端口]/库名[?sslmode=require&...]\n";

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
    c.err << QString::fromUtf16(kUsage) << DataCommands::usage();
    return Usage;
}

std::shared_ptr<CConnection> openDatabase(Context &c, AppDatabase::Missing missing = AppDatabase::Missing::Refuse)
{
    QString error;
    auto connection = AppDatabase::open(c.dbUrl, &error, missing);
    if (!connection) {
        c.err << error << u'\n';
    } else if (!connection->notice().isEmpty()) {
        c.err << connection->notice() << u'\n';
    }
    return connection;
}

int cmdInit(Context &c)
{
    bool demo = false;
    for (const QString &arg : std::as_const(c.args)) {
        if (arg == u"--demo"_s) {
            demo = true;
        } else {
            return usage(c, u"无法识别的参数: "_s + arg);
        }
    }
    auto connection = openDatabase(c, AppDatabase::Missing::Create);
    if (!connection) {
        return Failed;
    }
    try {
        connection->EnsureSchema();
    } catch (const DbError &e) {
        c.err << u"创建数据表失败: "_s << e.message() << u'\n';
        return Failed;
    }
    if (demo) {
        QString error;
        if (!DemoData::seed(connection, &error)) {
            c.err << error << u'\n';
            return Failed;
        }
        c.out << u"已填入演示数据\n"_s;
    }
    c.out << u"数据库已就绪: "_s << DatabaseUrl::masked(c.dbUrl) << u'\n';
    return Ok;
}

// Item type of a KIND argument, or 0.
int parseKind(const QString &kind)
{
    static const char16_t *const names[] = {u"client", u"unit",       u"goods-type", u"goods",
                                            u"stock",  u"department", u"option",     u"client-type",
                                            u"area",   u"user-right", u"receiver",   u"company"};
    bool isNumber = false;
    const int number = kind.toInt(&isNumber);
    if (isNumber) {
        return isItemTypeNumber(number) ? number : 0;
    }
    for (int i = 0; i < 12; ++i) {
        if (kind == QStringView(names[i])) {
            return i + 1;
        }
    }
    // Suppliers are clients: one kind serves both.
    return kind == u"supplier"_s ? itemTypeNumber(ItemType::Client) : 0;
}

// Takes the KIND argument off the front; 0 after reporting a usage error.
int takeKind(Context &c, int *code)
{
    if (c.args.isEmpty()) {
        *code = usage(c, u"缺少资料类别 KIND"_s);
        return 0;
    }
    const QString kind = c.args.takeFirst();
    const int type = parseKind(kind);
    if (!type) {
        *code = usage(c, u"未知的资料类别: "_s + kind);
    }
    return type;
}

bool parseID(const QString &text, qint32 *id)
{
    bool ok = false;
    *id = text.toInt(&ok);
    return ok && *id >= 1;
}

// The database and one kind's collection, as every command on a kind starts: attached only (for the commands on
// one item) or loaded in list order with the joined names the kind shows, as the facade loads it. Nothing when
// the database does not open or the load fails; both are reported.
enum class Load { Attach, All };

std::shared_ptr<CItems> openKind(Context &c, int type, Load load)
{
    auto connection = openDatabase(c);
    if (!connection) {
        return {};
    }
    auto items = std::make_shared<CItems>();
    // The command line keeps numbers and names unique as the edit dialogs do.
    items->setKeepUnique(true);
    if (load == Load::Attach) {
        items->Attach(connection, type);
        return items;
    }
    auto loadOther = [&](ItemType other) {
        auto list = std::make_shared<CItems>();
        list->InitInstance(connection, itemTypeNumber(other));
        return list;
    };
    items->InitInstance(connection, type);
    if (type == ItemType::Goods) {
        CItems::JoinGoodsNames(*items, *loadOther(ItemType::Unit), *loadOther(ItemType::GoodsType));
    } else if (type == ItemType::Client) {
        CItems::JoinClientTypeNames(*items, *loadOther(ItemType::ClientType));
    }
    if (!c.prompt.shown().isEmpty()) {
        return {};
    }
    return items;
}

int cmdList(Context &c)
{
    int code = Ok;
    const int type = takeKind(c, &code);
    if (!type) {
        return code;
    }
    QString format = u"tsv"_s;
    while (!c.args.isEmpty()) {
        const QString arg = c.args.takeFirst();
        if (arg == u"--format"_s && !c.args.isEmpty()) {
            format = c.args.takeFirst();
        } else if (arg.startsWith(u"--format="_s)) {
            format = arg.mid(9);
        } else {
            return usage(c, u"无法识别的参数: "_s + arg);
        }
    }
    if (format != u"tsv"_s && format != u"json"_s) {
        return usage(c, u"未知的输出格式: "_s + format);
    }
    const auto items = openKind(c, type, Load::All);
    if (!items) {
        return Failed;
    }
    c.out << (format == u"json"_s ? ItemFormat::json(*items) : ItemFormat::tsv(*items));
    return Ok;
}

int cmdExport(Context &c)
{
    int code = Ok;
    const int type = takeKind(c, &code);
    if (!type) {
        return code;
    }
    if (c.args.isEmpty() || c.args.first().startsWith(u"--"_s)) {
        return usage(c, u"export 需要一个文件名"_s);
    }
    const QString file = c.args.takeFirst();
    QString sheet;
    while (!c.args.isEmpty()) {
        const QString arg = c.args.takeFirst();
        if (arg == u"--sheet"_s && !c.args.isEmpty()) {
            sheet = c.args.takeFirst();
        } else if (arg.startsWith(u"--sheet="_s)) {
            sheet = arg.mid(8);
        } else {
            return usage(c, u"无法识别的参数: "_s + arg);
        }
    }
    if (sheet.isEmpty()) {
        sheet = ItemTableModel::exportSheetName(type, QDateTime::currentDateTime());
        if (sheet.isEmpty()) {
            return usage(c, u"这类资料没有默认的表格名称,请用 --sheet 指定"_s);
        }
    }
    const auto items = openKind(c, type, Load::All);
    if (!items) {
        return Failed;
    }
    // The columns of the management window's grid; an error stops the export (there is nobody to ask).
    ItemTableModel grid(items.get(), ItemTableModel::fieldsForType(type));
    c.prompt.setDefaultAnswer(CPrompt::vbCancel);
    // The export asks whether to try a failed step again; nobody here can answer, so only the error is shown.
    c.prompt.setEcho(false);
    const qsizetype shownBefore = c.prompt.shown().size();
    const bool exported = GridExport::CopyGridToExcel(&grid, file, sheet);
    c.prompt.setEcho(true);
    for (qsizetype i = shownBefore; i < c.prompt.shown().size(); ++i) {
        const ScriptedPrompt::Shown &shown = c.prompt.shown().at(i);
        QStringList lines = QString(shown.text).replace(u"\r\n"_s, u"\n"_s).split(u'\n');
        if (CPrompt::buttonsOf(shown.style) != CPrompt::vbOKOnly && lines.size() > 1) {
            lines.removeLast();
        }
        c.err << lines.join(u'\n') << u'\n';
    }
    if (!exported) {
        return Failed;
    }
    c.out << u"已导出 "_s << items->Count() << u" 条记录到 "_s << file << u" 的表格 ["_s << sheet << u"]\n"_s;
    return Ok;
}

int cmdMigrate(Context &c)
{
    QString fromUrl;
    QString toUrl;
    bool replace = false;
    while (!c.args.isEmpty()) {
        const QString arg = c.args.takeFirst();
        if (arg == u"--replace"_s) {
            replace = true;
        } else if ((arg == u"--from"_s || arg == u"--to"_s) && !c.args.isEmpty()) {
            (arg == u"--from"_s ? fromUrl : toUrl) = c.args.takeFirst();
        } else if (arg.startsWith(u"--from="_s)) {
            fromUrl = arg.mid(7);
        } else if (arg.startsWith(u"--to="_s)) {
            toUrl = arg.mid(5);
        } else {
            return usage(c, u"无法识别的参数: "_s + arg);
        }
    }
    if (fromUrl.isEmpty() || toUrl.isEmpty()) {
        return usage(c, u"migrate 需要 --from URL 和 --to URL"_s);
    }
    if (fromUrl == toUrl) {
        return usage(c, u"源数据库和目标数据库不能相同"_s);
    }
    QString error;
    auto from = AppDatabase::open(fromUrl, &error, AppDatabase::Missing::Refuse);
    if (!from) {
        c.err << error << u'\n';
        return Failed;
    }
    auto to = AppDatabase::open(toUrl, &error);
    if (!to) {
        c.err << error << u'\n';
        return Failed;
    }
    if (from->sameDatabaseAs(*to)) {
        c.err << u"源数据库和目标数据库是同一个数据库\n"_s;
        return Failed;
    }
    try {
        to->EnsureSchema();
        // Replacing a shop's data is never a side effect: the user says so.
        const qint64 existing = DatabaseCopy::rowsIn(*to, DatabaseCopy::MasterTables());
        if (existing > 0 && !replace) {
            c.err << u"目标数据库已有 "_s << existing << u" 行基础资料,迁移会替换它们;确需替换请加 --replace\n"_s;
            return Failed;
        }
    } catch (const DbError &e) {
        c.err << u"准备目标数据库失败: "_s << e.message() << u'\n';
        return Failed;
    }
    const DatabaseCopy::Result result = DatabaseCopy::copyTables(*from, *to, DatabaseCopy::MasterTables());
    if (!result.ok) {
        c.err << u"迁移失败,目标数据库没有改变: "_s << result.error << u'\n';
        return Failed;
    }
    for (const auto &[table, rows] : result.rows) {
        c.out << table << u": "_s << rows << u" 行\n"_s;
    }
    return Ok;
}

int cmdAdd(Context &c)
{
    int code = Ok;
    const int type = takeKind(c, &code);
    if (!type) {
        return code;
    }
    auto item = std::make_shared<CItem>();
    item->setF_ItemTypeID(qint16(type));
    if (type == ItemType::Goods) {
        item->setF_PackageAmount(1.0f); // as the goods dialog starts a new one
    }
    bool named = false;
    while (!c.args.isEmpty()) {
        const QString arg = c.args.takeFirst();
        if ((arg == u"--name"_s || arg == u"--no"_s || arg == u"--set"_s) && c.args.isEmpty()) {
            return usage(c, arg + u" 需要一个值"_s);
        }
        if (arg == u"--name"_s) {
            item->setF_ItemName(c.args.takeFirst().trimmed());
            named = !item->F_ItemName().isEmpty();
        } else if (arg == u"--no"_s) {
            item->setF_ItemNo(c.args.takeFirst());
        } else if (arg == u"--set"_s) {
            const QString assignment = c.args.takeFirst();
            const qsizetype eq = assignment.indexOf(u'=');
            const int column = eq > 0 ? CItem::columnIndex(assignment.left(eq)) : -1;
            if (column < 0 || column == CItem::columnIndex(u"F_ID"_s)
                || column == CItem::columnIndex(u"F_ItemTypeID"_s)) {
                return usage(c, u"--set 需要 列名=值 (F_ID 与 F_ItemTypeID 除外): "_s + assignment);
            }
            QString error;
            if (!item->setValue(column, assignment.mid(eq + 1), &error)) {
                return usage(c, error);
            }
        } else {
            return usage(c, u"无法识别的参数: "_s + arg);
        }
    }
    if (!named) {
        return usage(c, u"add 需要 --name"_s);
    }
    const auto items = openKind(c, type, Load::Attach);
    if (!items) {
        return Failed;
    }
    // A unit or type that does not exist cannot be chosen in the dialogs either.
    struct Reference
    {
        const char16_t *column;
        ItemType target;
    };
    std::vector<Reference> references;
    if (type == ItemType::Goods) {
        references = {{u"F_Tag1", ItemType::Unit},
                      {u"F_Tag2", ItemType::Unit},
                      {u"F_Tag4", ItemType::Unit},
                      {u"F_ParentID", ItemType::GoodsType}};
    } else if (type == ItemType::Client) {
        references = {{u"F_ParentID", ItemType::ClientType}};
    }
    try {
        for (const Reference &reference : references) {
            const QString column = QString::fromUtf16(reference.column);
            const qint32 id = item->value(CItem::columnIndex(column)).toInt();
            if (id == 0) {
                continue;
            }
            QSqlQuery q = items->connection()->Select(u"SELECT F_Tag3 FROM T_Item WHERE F_ID=? AND F_ItemTypeID=?"_s,
                                                      {id, itemTypeNumber(reference.target)});
            const bool found =
                CConnection::next(q) && !(reference.target == ItemType::GoodsType && q.value(0).toLongLong() > 0);
            if (!found) {
                c.err << CItems::typeName(itemTypeNumber(reference.target)) << u"的 F_ID "_s << id << u" 不存在 ("_s
                      << column << u")\n"_s;
                return Failed;
            }
        }
    } catch (const DbError &e) {
        c.err << u"读取数据库失败: "_s << e.message() << u'\n';
        return Failed;
    }
    // What the goods dialog would not save.
    if (type == ItemType::Goods) {
        if (item->F_ItemNo().trimmed().isEmpty()) {
            c.err << u"请输入商品编号!\n"_s;
            return Failed;
        }
        if (!(item->F_PackageAmount() > 0)) {
            c.err << u"请输入正确的[包装数量]!\n"_s;
            return Failed;
        }
    }
    if (!items->SaveItem(item)) {
        return Failed;
    }
    c.out << item->F_ID() << u'\n';
    return Ok;
}

// The item with that id, when it is of the kind; reports and gives none otherwise.
CItemPtr loadOne(Context &c, CItems &items, int type, qint32 id)
{
    const CItemPtr item = items.Refresh(id);
    if (!item || item->F_ItemTypeID() != type) {
        if (c.prompt.shown().isEmpty()) {
            c.err << u"没有 F_ID 为 "_s << id << u" 的"_s << CItems::typeName(type) << u'\n';
        }
        if (item) {
            items.Remove(1);
        }
        return {};
    }
    return item;
}

int cmdRename(Context &c)
{
    int code = Ok;
    const int type = takeKind(c, &code);
    if (!type) {
        return code;
    }
    qint32 id = 0;
    if (c.args.size() != 2 || !parseID(c.args.at(0), &id)) {
        return usage(c, u"rename 需要 KIND ID NAME"_s);
    }
    const QString name = c.args.at(1).trimmed();
    if (name.isEmpty()) {
        return usage(c, u"名称不能为空"_s);
    }
    const auto items = openKind(c, type, Load::Attach);
    const CItemPtr item = items ? loadOne(c, *items, type, id) : nullptr;
    if (!item) {
        return Failed;
    }
    item->setF_ItemName(name);
    return items->SaveItem(item) ? Ok : Failed;
}

int cmdDelete(Context &c)
{
    int code = Ok;
    const int type = takeKind(c, &code);
    if (!type) {
        return code;
    }
    bool yes = false;
    qint32 id = 0;
    bool haveID = false;
    for (const QString &arg : std::as_const(c.args)) {
        if (arg == u"--yes"_s) {
            yes = true;
        } else if (!haveID && parseID(arg, &id)) {
            haveID = true;
        } else {
            return usage(c, u"无法识别的参数: "_s + arg);
        }
    }
    if (!haveID) {
        return usage(c, u"delete 需要 KIND ID"_s);
    }
    const auto items = openKind(c, type, Load::Attach);
    if (!items || !loadOne(c, *items, type, id)) {
        return Failed;
    }
    c.prompt.setDefaultAnswer(yes ? CPrompt::vbYes : CPrompt::vbNo);
    return items->RemoveItem(id) ? Ok : Failed;
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

int cmdPy(Context &c)
{
    const CSpell spell;
    if (!c.args.isEmpty()) {
        for (const QString &text : std::as_const(c.args)) {
            c.out << spell.GetPy(text) << u'\n';
        }
        return Ok;
    }
    QTextStream in(stdin);
    QString line;
    while (in.readLineInto(&line)) {
        c.out << spell.GetPy(line) << u'\n';
    }
    return Ok;
}

// import, backup and restore; -1 for other commands.
int runDataCommand(Context &c, const QString &command)
{
    if (command == u"import"_s) {
        int code = Ok;
        const int type = takeKind(c, &code);
        return type ? DataCommands::import(c.dbUrl, type, c.args, c.out, c.err) : code;
    }
    if (command == u"backup"_s) {
        return DataCommands::backup(c.dbUrl, c.args, c.out, c.err);
    }
    if (command == u"restore"_s) {
        QTextStream in(stdin);
        return DataCommands::restore(c.dbUrl, c.args, in, c.out, c.err);
    }
    return -1;
}

} // namespace

int cmdWatch(Context &c)
{
    QSet<int> kinds;
    for (const QString &arg : std::as_const(c.args)) {
        const int kind = parseKind(arg);
        if (kind == 0) {
            return usage(c, u"无法识别的资料类别: "_s + arg);
        }
        kinds.insert(kind);
    }
    auto connection = openDatabase(c);
    if (!connection) {
        return Failed;
    }
    return watchChanges(connection, kinds, c.out, c.err);
}

int run(const QStringList &arguments, QTextStream &out, QTextStream &err)
{
    Context c {AppDatabase::defaultUrl(), {}, out, err, {}};
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
        } else if (option == u"--version"_s) {
            out << u"quillon-cli "_s << Module1::LibraryVersion() << u'\n';
            return Ok;
        } else if (option == u"--help"_s || option == u"-h"_s) {
            out << QString::fromUtf16(kUsage) << DataCommands::usage();
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
    if (command == u"watch"_s) {
        return cmdWatch(c);
    }
    const std::pair<const char16_t *, std::function<int(Context &)>> commands[] = {
        {u"init", cmdInit}, {u"newid", cmdNewId},   {u"list", cmdList},
        {u"add", cmdAdd},   {u"rename", cmdRename}, {u"delete", cmdDelete},
        {u"py", cmdPy},     {u"export", cmdExport}, {u"migrate", cmdMigrate},
    };
    for (const auto &[name, handler] : commands) {
        if (command == QStringView(name)) {
            return handler(c);
        }
    }
    if (const int code = runDataCommand(c, command); code >= 0) {
        return code;
    }
    return usage(c, u"未知的命令: "_s + command);
}

} // namespace Cli
