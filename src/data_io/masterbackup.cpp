#include "masterbackup.h"
#include "sqlitehandle.h"

#include "cconnection.h"
#include "citem.h"
#include "databasecopy.h"
#include "folderwritelock.h"
#include "livefiles.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSqlDriver>
#include <QSqlField>
#include <QTemporaryFile>

#include <sqlite3.h>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

const char16_t kFormatName[] = u"Quillon master data";

QString sqliteUrl(const QString &file, bool readOnly)
{
    return u"sqlite://"_s + QFileInfo(file).absoluteFilePath() + (readOnly ? u"?mode=ro"_s : QString());
}

void writeInfo(CConnection &backup, const CConnection &source)
{
    backup.Execute(u"CREATE TABLE T_BackupInfo (F_Key TEXT NOT NULL PRIMARY KEY, F_Value TEXT)"_s);
    const QList<QPair<QString, QString>> info = {
        {u"format"_s, QString::fromUtf16(kFormatName)},
        {u"version"_s, QString::number(MasterBackup::kFormatVersion)},
        {u"created"_s, QDateTime::currentDateTime().toString(Qt::ISODate)},
        {u"source"_s, source.engine() == CConnection::Engine::SQLite ? u"sqlite"_s : u"postgresql"_s},
    };
    for (const auto &[key, value] : info) {
        backup.Execute(u"INSERT INTO T_BackupInfo (F_Key, F_Value) VALUES (?, ?)"_s, {key, value});
    }
}

QList<QPair<QString, qint64>> countRows(CConnection &connection)
{
    QList<QPair<QString, qint64>> rows;
    for (const QString &table : DatabaseCopy::MasterTables()) {
        rows.append({table, DatabaseCopy::rowsIn(connection, {table})});
    }
    return rows;
}

// A backup holds the folder's write lock shared while it writes its part file, as the export does while it writes
// a workbook; a part of the same backup found while nobody holds it was left by a writer that was killed.
void removeStaleParts(const QString &file)
{
    const QFileInfo info(file);
    FolderWriteLock folder(info.absolutePath());
    if (!folder.lockExclusiveNow()) {
        return; // a backup or export is being written in this folder now
    }
    const QRegularExpression stale(u"^"_s + QRegularExpression::escape(info.fileName())
                                   + u"\\.part-[A-Za-z0-9]{6}(-journal|-wal|-shm)?$"_s);
    const QStringList names =
        info.absoluteDir().entryList({info.fileName() + u".part-*"_s}, QDir::Files | QDir::Hidden | QDir::System);
    for (const QString &name : names) {
        if (stale.match(name).hasMatch()) {
            QFile::remove(info.absoluteDir().filePath(name));
        }
    }
}

// A file next to the backup that becomes it once complete, so that a failed backup leaves no half file behind.
QString partFile(const QString &file, QString *error)
{
    QTemporaryFile temp(QFileInfo(file).absoluteFilePath() + u".part-XXXXXX"_s);
    temp.setAutoRemove(false);
    if (!temp.open()) {
        *error = u"无法在 "_s + QFileInfo(file).absolutePath() + u" 中创建文件: "_s + temp.errorString();
        return QString();
    }
    return temp.fileName();
}

bool sqliteExec(sqlite3 *db, const char *sql, QString *error)
{
    char *message = nullptr;
    if (sqlite3_exec(db, sql, nullptr, nullptr, &message) != SQLITE_OK) {
        *error = QString::fromUtf8(message ? message : sqlite3_errmsg(db));
        sqlite3_free(message);
        return false;
    }
    return true;
}

} // namespace

MasterBackup::Result MasterBackup::backup(CConnection &source, const QString &file)
{
    Result result;
    // A backup named like the live database's journal would be taken for a journal of its own.
    result.error = LiveFiles::refusal(file, u"作为备份文件"_s);
    if (!result.error.isEmpty()) {
        return result;
    }
    if (QFileInfo::exists(file)) {
        result.error = u"文件 "_s + file + u" 已经存在;备份不会覆盖已有的文件,请换一个文件名"_s;
        return result;
    }
    removeStaleParts(file);
    // Held until the part is the backup or gone, so that no other writer takes it for a leftover.
    FolderWriteLock writing(QFileInfo(file).absolutePath());
    writing.lockShared();
    const QString part = partFile(file, &result.error);
    if (part.isEmpty()) {
        return result;
    }
    struct Cleanup
    {
        QString path;
        ~Cleanup()
        {
            if (!path.isEmpty()) {
                QFile::remove(path);
                QFile::remove(path + u"-journal"_s);
                QFile::remove(path + u"-wal"_s);
                QFile::remove(path + u"-shm"_s);
            }
        }
    } cleanup {part};

    if (sqlite3 *db = sqliteHandle(source)) {
        // SQLite copies its pages under one read transaction: writers in WAL mode go on meanwhile.
        sqlite3 *target = nullptr;
        const QByteArray name = QFile::encodeName(part);
        if (sqlite3_open_v2(name.constData(), &target, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr)
            != SQLITE_OK) {
            result.error = u"无法创建备份文件: "_s + QString::fromUtf8(sqlite3_errmsg(target));
            sqlite3_close(target);
            return result;
        }
        const std::unique_ptr<sqlite3, int (*)(sqlite3 *)> guard(target, sqlite3_close);
        sqlite3_backup *copy = sqlite3_backup_init(target, "main", db, "main");
        if (!copy) {
            result.error = u"备份失败: "_s + QString::fromUtf8(sqlite3_errmsg(target));
            return result;
        }
        const int step = sqlite3_backup_step(copy, -1);
        sqlite3_backup_finish(copy);
        if (step != SQLITE_DONE) {
            result.error = u"备份失败: "_s + QString::fromUtf8(sqlite3_errstr(step));
            return result;
        }
        // A backup is one self-contained file.
        if (!sqliteExec(target, "PRAGMA journal_mode=DELETE", &result.error)) {
            result.error = u"备份失败: "_s + result.error;
            return result;
        }
    } else {
        // PostgreSQL: every master table read in one snapshot, through the copy between databases.
        auto target = CConnection::Open(sqliteUrl(part, false), &result.error);
        if (!target) {
            return result;
        }
        try {
            target->Execute(u"PRAGMA journal_mode=DELETE"_s);
            target->EnsureSchema();
            source.Execute(u"BEGIN ISOLATION LEVEL REPEATABLE READ READ ONLY"_s);
            const DatabaseCopy::Result copied = DatabaseCopy::copyTables(source, *target, DatabaseCopy::MasterTables());
            source.Execute(u"COMMIT"_s);
            if (!copied.ok) {
                result.error = u"备份失败: "_s + copied.error;
                return result;
            }
        } catch (const DbError &e) {
            try {
                source.Execute(u"ROLLBACK"_s);
            } catch (const DbError &) { }
            result.error = u"备份失败: "_s + e.message();
            return result;
        }
        target->Close();
    }

    {
        auto backup = CConnection::Open(sqliteUrl(part, false), &result.error);
        if (!backup) {
            return result;
        }
        try {
            if (backup->hasTable(u"T_BackupInfo"_s)) {
                backup->Execute(u"DROP TABLE T_BackupInfo"_s);
            }
            writeInfo(*backup, source);
            result.rows = countRows(*backup);
            backup->Execute(u"PRAGMA journal_mode=DELETE"_s);
        } catch (const DbError &e) {
            result.error = u"备份失败: "_s + e.message();
            return result;
        }
        backup->Close();
    }
    // rename never replaces: a file made meanwhile under that name is kept.
    if (!QFile::rename(part, file)) {
        result.error = u"无法把备份写成 "_s + file + u"(文件已存在或目录不可写)"_s;
        return result;
    }
    cleanup.path.clear();
    result.ok = true;
    return result;
}

MasterBackup::Result MasterBackup::inspect(const QString &file)
{
    Result result;
    if (!QFileInfo(file).isFile()) {
        result.error = u"备份文件 "_s + file + u" 不存在"_s;
        return result;
    }
    // The live database is not probed: closing the probe would drop SQLite's locks on it.
    result.error = LiveFiles::refusal(file, u"从中恢复"_s);
    if (!result.error.isEmpty()) {
        return result;
    }
    QFile probe(file);
    const QByteArray header = probe.open(QIODevice::ReadOnly) ? probe.read(100) : QByteArray();
    if (!header.startsWith("SQLite format 3")) {
        result.error = u"文件 "_s + file + u" 不是本程序的备份文件(不是 SQLite 数据库)"_s;
        return result;
    }
    probe.close();
    const QString damaged = u"备份文件 "_s + file + u" 已损坏或不完整"_s;
    // The header tells how long the file must be (page size times page count, when the count is current): a file
    // cut short by a full disk or an interrupted copy is damaged, not some other program's file.
    if (header.size() == 100) {
        const auto byte = [&](int i) {
            return quint32(uchar(header[i]));
        };
        const quint32 pageSize = (byte(16) << 8 | byte(17)) == 1 ? 65536 : (byte(16) << 8 | byte(17));
        const quint32 pages = byte(28) << 24 | byte(29) << 16 | byte(30) << 8 | byte(31);
        const bool pagesCurrent = header.mid(24, 4) == header.mid(92, 4) && pages > 0;
        const qint64 size = QFileInfo(file).size();
        if (pageSize < 512 || (pagesCurrent && size < qint64(pageSize) * pages) || size % pageSize != 0) {
            result.error = damaged + u"(文件只有 "_s + QString::number(size) + u" 字节"_s
                + (pagesCurrent ? u",应有 "_s + QString::number(qint64(pageSize) * pages) + u" 字节"_s : QString())
                + u")"_s;
            return result;
        }
    } else {
        result.error = damaged;
        return result;
    }
    auto backup = CConnection::Open(sqliteUrl(file, true), &result.error);
    if (!backup) {
        return result;
    }
    try {
        QString verdict;
        try {
            QSqlQuery check = backup->Select(u"PRAGMA quick_check"_s);
            verdict = CConnection::next(check) ? check.value(0).toString() : QString();
        } catch (const DbError &e) {
            verdict = e.message();
        }
        if (verdict != u"ok"_s) {
            result.error = damaged + u": "_s + verdict;
            return result;
        }
        if (!backup->hasTable(u"T_BackupInfo"_s)) {
            result.error = u"文件 "_s + file + u" 不是本程序的备份文件(没有备份说明)"_s;
            return result;
        }
        QString format;
        int version = 0;
        QSqlQuery q = backup->Select(u"SELECT F_Key, F_Value FROM T_BackupInfo"_s);
        while (CConnection::next(q)) {
            if (q.value(0).toString() == u"format"_s) {
                format = q.value(1).toString();
            } else if (q.value(0).toString() == u"version"_s) {
                version = q.value(1).toInt();
            }
        }
        if (format != QString::fromUtf16(kFormatName) || version < 1) {
            result.error = u"文件 "_s + file + u" 不是本程序的备份文件"_s;
            return result;
        }
        if (version > kFormatVersion) {
            result.error = u"备份文件 "_s + file + u" 由较新版本的程序写成(格式版本 "_s + QString::number(version)
                + u"),本程序只能恢复版本 "_s + QString::number(kFormatVersion) + u" 及以前的备份"_s;
            return result;
        }
        for (const QString &table : DatabaseCopy::MasterTables()) {
            if (!backup->hasTable(table)) {
                result.error = u"备份文件 "_s + file + u" 中缺少表 "_s + table;
                return result;
            }
        }
        // Columns this version does not know would be lost: such a file comes from a newer schema.
        const QSqlRecord columns = backup->tableRecord(u"T_Item"_s);
        QStringList unknown;
        for (int i = 0; i < columns.count(); ++i) {
            if (CItem::columnIndex(columns.fieldName(i)) < 0) {
                unknown.append(columns.fieldName(i));
            }
        }
        if (!unknown.isEmpty()) {
            result.error = u"备份文件 "_s + file + u" 的 T_Item 有本程序不认识的列("_s + unknown.join(u", "_s)
                + u"),它来自较新的版本,不能恢复"_s;
            return result;
        }
        if (CItem::columnIndex(u"F_ID"_s) < 0 || columns.indexOf(u"F_ID"_s) < 0
            || columns.indexOf(u"F_ItemTypeID"_s) < 0) {
            result.error = u"备份文件 "_s + file + u" 的 T_Item 不完整"_s;
            return result;
        }
        result.rows = countRows(*backup);
    } catch (const DbError &e) {
        result.error = u"无法读取备份文件 "_s + file + u": "_s + e.message();
        return result;
    }
    result.ok = true;
    return result;
}

MasterBackup::Result MasterBackup::restore(CConnection &target, const QString &file)
{
    Result result = inspect(file);
    if (!result.ok) {
        return result;
    }
    result.ok = false;
    auto backup = CConnection::Open(sqliteUrl(file, true), &result.error);
    if (!backup) {
        return result;
    }
    try {
        CTransaction transaction(target);
        target.EnsureSchema();
        const DatabaseCopy::Result copied = DatabaseCopy::copyTables(*backup, target, DatabaseCopy::MasterTables());
        if (!copied.ok) {
            result.error = u"恢复失败,数据没有改变: "_s + copied.error;
            return result;
        }
        transaction.Commit();
        result.rows = copied.rows;
    } catch (const DbError &e) {
        result.error = u"恢复失败,数据没有改变: "_s + e.message();
        return result;
    }
    result.ok = true;
    return result;
}

QStringList MasterBackup::replacementLines(CConnection &target, const Result &inspected)
{
    QStringList lines;
    for (const auto &[table, inBackup] : inspected.rows) {
        QString now = u"?"_s;
        try {
            now = QString::number(DatabaseCopy::rowsIn(target, {table}));
        } catch (const DbError &) {
            // A table the database lacks or cannot count is still named: it is replaced all the same.
        }
        const QString what = table == u"T_Item"_s ? u"基础资料"_s
            : table == u"T_GoodsPrice"_s          ? u"客户和客户类别的商品价格"_s
            : table == u"T_GoodsInOutList"_s      ? u"商品出入库明细"_s
                                                  : QString();
        lines.append(table + (what.isEmpty() ? QString() : u"("_s + what + u")"_s) + u": 现有 "_s + now
                     + u" 行, 备份中 "_s + QString::number(inBackup) + u" 行"_s);
    }
    return lines;
}
