#include "livefiles.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMutex>
#include <QStringList>

#include <sys/stat.h>

#include <vector>

using namespace Qt::StringLiterals;

namespace {

struct LiveFile
{
    QString name; // in its folder's canonical form, so that another spelling of the folder compares equal
    int count = 0;
};

QMutex s_mutex;
std::vector<LiveFile> s_files;

// The journals SQLite keeps beside a database, whose names exist only for a while.
const char16_t *const kJournals[] = {u"", u"-wal", u"-shm", u"-journal"};

QString normalName(const QString &path)
{
    const QFileInfo info(path);
    const QString folder = QFileInfo(info.absolutePath()).canonicalFilePath();
    return QDir::cleanPath((folder.isEmpty() ? info.absolutePath() : folder) + u'/' + info.fileName());
}

bool sameFile(const QByteArray &a, const struct stat &b)
{
    struct stat s
    {
    };
    return ::stat(a.constData(), &s) == 0 && s.st_dev == b.st_dev && s.st_ino == b.st_ino;
}

} // namespace

void LiveFiles::add(const QString &databaseFile)
{
    const QString name = normalName(databaseFile);
    const QMutexLocker lock(&s_mutex);
    for (LiveFile &file : s_files) {
        if (file.name == name) {
            ++file.count;
            return;
        }
    }
    s_files.push_back({name, 1});
}

void LiveFiles::remove(const QString &databaseFile)
{
    const QString name = normalName(databaseFile);
    const QMutexLocker lock(&s_mutex);
    for (auto it = s_files.begin(); it != s_files.end(); ++it) {
        if (it->name == name) {
            if (--it->count == 0) {
                s_files.erase(it);
            }
            return;
        }
    }
}

bool LiveFiles::isLive(const QString &path)
{
    if (path.isEmpty()) {
        return false;
    }
    const QString name = normalName(path);
    struct stat chosen
    {
    };
    // Only metadata: the file is never opened here.
    const bool exists = ::stat(QFile::encodeName(path).constData(), &chosen) == 0;
    const QMutexLocker lock(&s_mutex);
    for (const LiveFile &file : s_files) {
        for (const char16_t *journal : kJournals) {
            const QString candidate = file.name + QString::fromUtf16(journal);
            if (candidate == name || (exists && sameFile(QFile::encodeName(candidate), chosen))) {
                return true;
            }
        }
    }
    return false;
}

QString LiveFiles::refusal(const QString &path, const QString &use)
{
    if (!isLive(path)) {
        return QString();
    }
    return u"文件 "_s + QDir::toNativeSeparators(path) + u" 是本程序正在使用的数据库,不能"_s + use
        + u"。\r\n请选择其他文件。"_s;
}
