#include "datacommands.h"

#include "appdatabase.h"

#include "cconnection.h"
#include "citems.h"
#include "databasecopy.h"
#include "dberror.h"
#include "itemimport.h"
#include "itemtype.h"
#include "masterbackup.h"

#include <QDateTime>
#include <QFileInfo>
#include <QTextStream>

using namespace Qt::StringLiterals;

namespace DataCommands {

namespace {

enum ExitCode { Ok = 0, Failed = 1, Usage = 2 };

int usageError(QTextStream &err, const QString &problem)
{
    err << problem << u'\n' << usage();
    return Usage;
}

// Takes the value of an option given as "--name VALUE" or "--name=VALUE"; false when `arg` is not that option.
bool takeOption(const QString &arg, const QString &name, QStringList &args, QString *value, bool *missing)
{
    if (arg == name) {
        if (args.isEmpty()) {
            *missing = true;
            return true;
        }
        *value = args.takeFirst();
        return true;
    }
    if (arg.startsWith(name + u'=')) {
        *value = arg.mid(name.size() + 1);
        return true;
    }
    return false;
}

std::shared_ptr<CItems> loadList(const std::shared_ptr<CConnection> &connection, ItemType type)
{
    auto list = std::make_shared<CItems>();
    list->InitInstance(connection, itemTypeNumber(type));
    return list;
}

} // namespace

QString usage()
{
    return u"  import KIND FILE [--sheet NAME] [--dry-run] [--update] [--skip-bad FILE] [--create-missing]\n"
           u"                 [--number]  从 .xlsx、.xls 或 .csv 导入一类资料;--dry-run 只检查并报告;--update\n"
           u"                             更新编号已有的资料;--skip-bad 导入正确的行,把有错的行连同原因写入\n"
           u"                             FILE 的新表格;--create-missing 新建找不到的单位和类别;--number\n"
           u"                             为没有编号的行自动编号\n"
           u"  backup FILE                把全部基础资料备份为新的 SQLite 文件(其他人可以同时工作)\n"
           u"  restore FILE [--yes]       用备份替换全部基础资料(--yes 不再询问)\n"_s;
}

int import(const QString &dbUrl, int itemTypeID, QStringList args, QTextStream &out, QTextStream &err)
{
    if (!ItemImport::canImport(itemTypeID)) {
        return usageError(err, u"这类资料不能导入: "_s + CItems::typeName(itemTypeID));
    }
    if (args.isEmpty() || args.first().startsWith(u"--"_s)) {
        return usageError(err, u"import 需要一个文件名"_s);
    }
    const QString file = args.takeFirst();
    ItemImport::Options options;
    QString rejectFile;
    while (!args.isEmpty()) {
        const QString arg = args.takeFirst();
        bool missing = false;
        if (takeOption(arg, u"--sheet"_s, args, &options.sheet, &missing)
            || takeOption(arg, u"--skip-bad"_s, args, &rejectFile, &missing)) {
            if (missing) {
                return usageError(err, arg + u" 需要一个值"_s);
            }
        } else if (arg == u"--dry-run"_s) {
            options.dryRun = true;
        } else if (arg == u"--update"_s) {
            options.update = true;
        } else if (arg == u"--create-missing"_s) {
            options.createMissing = true;
        } else if (arg == u"--number"_s) {
            options.suggestNumbers = true;
        } else {
            return usageError(err, u"无法识别的参数: "_s + arg);
        }
    }
    options.skipBad = !rejectFile.isEmpty();
    options.reloadLists = false; // the command ends with the import
    if (!QFileInfo(file).isFile()) {
        err << u"文件 "_s << file << u" 不存在\n"_s;
        return Failed;
    }
    // The refused rows are written after the good ones are in: a file they cannot go into is refused first.
    if (options.skipBad && !options.dryRun) {
        const QFileInfo input(file);
        const QFileInfo rejects(rejectFile);
        if (rejects.exists() && rejects.canonicalFilePath() == input.canonicalFilePath()) {
            return usageError(err, u"--skip-bad 不能写入正在导入的文件 "_s + file + u",请另选一个文件"_s);
        }
        if (rejects.suffix().compare(u"xlsx"_s, Qt::CaseInsensitive) != 0) {
            return usageError(err, u"--skip-bad 的文件必须是 Excel 工作簿(.xlsx): "_s + rejectFile);
        }
        const QFileInfo folder(rejects.absolutePath());
        if ((rejects.exists() && !rejects.isWritable()) || !folder.isDir() || !folder.isWritable()) {
            err << u"无法写入 "_s << rejectFile << u",没有导入任何数据\n"_s;
            return Failed;
        }
    }

    QString error;
    const auto connection = AppDatabase::open(dbUrl, &error, AppDatabase::Missing::Refuse);
    if (!connection) {
        err << error << u'\n';
        return Failed;
    }
    std::shared_ptr<CItems> units;
    std::shared_ptr<CItems> goodsTypes;
    std::shared_ptr<CItems> clientTypes;
    const auto items = std::make_shared<CItems>();
    if (!items->InitInstance(connection, itemTypeID)) {
        return Failed;
    }
    if (itemTypeID == ItemType::Goods) {
        units = loadList(connection, ItemType::Unit);
        goodsTypes = loadList(connection, ItemType::GoodsType);
        CItems::JoinGoodsNames(*items, *units, *goodsTypes);
    } else if (itemTypeID == ItemType::Client) {
        clientTypes = loadList(connection, ItemType::ClientType);
    }

    ItemImport importer(*items, units.get(), goodsTypes.get(), clientTypes.get());
    const ItemImport::Report report = importer.run(file, options);
    // The refusals and totals: on standard error when something was refused, else on standard output.
    (report.ok ? out : err) << report.text();
    if (report.written && options.skipBad && report.badRows > 0) {
        const QString sheet = u"导入错误"_s + QDateTime::currentDateTime().toString(u"MMddhhmmss"_s);
        if (!importer.writeRejected(rejectFile, sheet, &error)) {
            err << u"有错误的行没能写入 "_s << rejectFile << u": "_s << error << u'\n';
        } else {
            err << u"有错误的 "_s << report.badRows << u" 行已写入 "_s << rejectFile << u" 的表格 ["_s << sheet
                << u"]\n"_s;
        }
    }
    return report.ok ? Ok : Failed;
}

int backup(const QString &dbUrl, QStringList args, QTextStream &out, QTextStream &err)
{
    if (args.size() != 1 || args.first().startsWith(u"--"_s)) {
        return usageError(err, u"backup 需要一个文件名"_s);
    }
    QString error;
    const auto connection = AppDatabase::open(dbUrl, &error, AppDatabase::Missing::Refuse);
    if (!connection) {
        err << error << u'\n';
        return Failed;
    }
    const MasterBackup::Result result = MasterBackup::backup(*connection, args.first());
    if (!result.ok) {
        err << result.error << u'\n';
        return Failed;
    }
    for (const auto &[table, rows] : result.rows) {
        out << table << u": "_s << rows << u" 行\n"_s;
    }
    out << u"已备份到 "_s << args.first() << u'\n';
    return Ok;
}

int restore(const QString &dbUrl, QStringList args, QTextStream &in, QTextStream &out, QTextStream &err)
{
    bool yes = false;
    QString file;
    for (const QString &arg : std::as_const(args)) {
        if (arg == u"--yes"_s) {
            yes = true;
        } else if (arg.startsWith(u"--"_s) || !file.isEmpty()) {
            return usageError(err, u"无法识别的参数: "_s + arg);
        } else {
            file = arg;
        }
    }
    if (file.isEmpty()) {
        return usageError(err, u"restore 需要备份文件名"_s);
    }
    // The file is checked before the question, so that nobody confirms a restore that cannot happen.
    const MasterBackup::Result check = MasterBackup::inspect(file);
    if (!check.ok) {
        err << check.error << u'\n';
        return Failed;
    }
    QString error;
    const auto connection = AppDatabase::open(dbUrl, &error, AppDatabase::Missing::Create);
    if (!connection) {
        err << error << u'\n';
        return Failed;
    }
    QList<qint64> before;
    for (const auto &table : check.rows) {
        try {
            before.append(DatabaseCopy::rowsIn(*connection, {table.first}));
        } catch (const DbError &) {
            before.append(-1);
        }
    }
    const QStringList replaced = MasterBackup::replacementLines(*connection, check);
    if (!yes) {
        err << u"恢复会用备份 "_s << file << u" 替换 "_s << DatabaseUrl::masked(dbUrl)
            << u" 中以下各表的全部内容,现在的内容将不再保留:\n"_s;
        for (const QString &line : replaced) {
            err << u"  "_s << line << u'\n';
        }
        err << u"确实要恢复吗? [y/N] "_s;
        err.flush();
        const QString answer = in.readLine().trimmed().toLower();
        if (answer != u"y"_s && answer != u"yes"_s && answer != u"是"_s) {
            err << u"\n没有恢复,数据没有改变\n"_s;
            return Failed;
        }
    }
    const MasterBackup::Result result = MasterBackup::restore(*connection, file);
    if (!result.ok) {
        err << result.error << u'\n';
        return Failed;
    }
    for (qsizetype i = 0; i < result.rows.size(); ++i) {
        out << result.rows[i].first << u": "_s << result.rows[i].second << u" 行(恢复前 "_s << before.value(i)
            << u" 行)\n"_s;
    }
    out << u"已从 "_s << file << u" 恢复\n"_s;
    return Ok;
}

} // namespace DataCommands
