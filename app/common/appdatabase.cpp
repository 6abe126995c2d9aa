#include "appdatabase.h"

#include "cconnection.h"
#include "prompt.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcessEnvironment>
#include <QSettings>
#include <QSqlQuery>
#include <QUrl>

using namespace Qt::StringLiterals;

QString AppDatabase::defaultUrl()
{
    QString base = QProcessEnvironment::systemEnvironment().value(u"XDG_DATA_HOME"_s);
    if (base.isEmpty() || !QDir::isAbsolutePath(base)) {
        base = QDir::homePath() + u"/.local/share"_s;
    }
    return u"sqlite://"_s + base + u"/quillon/quillon.db"_s;
}

std::shared_ptr<CConnection> AppDatabase::open(const QString &url, QString *error, Missing missing)
{
    if (url.startsWith(u"sqlite:"_s)) {
        const DatabaseUrl where = DatabaseUrl::parse(url);
        if (where.engine == DatabaseUrl::Engine::SQLite && where.databaseName != u":memory:"_s) {
            if (!QFileInfo::exists(where.databaseName)) {
                if (missing == Missing::Refuse) {
                    if (error) {
                        *error = u"数据库文件不存在: "_s + where.databaseName + u"(新建数据库请用 init)"_s;
                    }
                    return {};
                }
                const QString folder = QFileInfo(where.databaseName).absolutePath();
                if (!QFileInfo::exists(folder) && QDir().mkpath(folder)) {
                    QFile::setPermissions(folder,
                                          QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
                }
            }
        }
    }
    return CConnection::Open(url, error);
}

bool AppDatabase::isEmpty(CConnection &connection)
{
    QSqlQuery query = connection.Select(u"Select Count(*) From T_Item"_s);
    return CConnection::next(query) && query.value(0).toLongLong() == 0;
}

namespace {

// The program's per-user settings file, the one that keeps the window rectangle.
QSettings userSettings()
{
    return QSettings(QSettings::NativeFormat, QSettings::UserScope, CPrompt::applicationTitle());
}

bool isPostgres(const QString &url)
{
    return DatabaseUrl::parse(url).engine == DatabaseUrl::Engine::PostgreSQL;
}

// The user-information part of a PostgreSQL URL: from after "://" to its '@' (which a password holds only
// percent-encoded), or an empty range when there is none.
std::pair<qsizetype, qsizetype> userInfo(const QString &url)
{
    const qsizetype start = url.indexOf(u"://"_s) + 3;
    qsizetype end = start;
    while (end < url.size() && url[end] != u'/' && url[end] != u'?' && url[end] != u'#') {
        ++end;
    }
    const qsizetype at = end > start ? url.lastIndexOf(u'@', end - 1) : -1;
    return at >= start ? std::pair {start, at} : std::pair {start, start};
}

} // namespace

QString AppDatabase::rememberedUrl()
{
    return userSettings().value(u"Database/Url"_s).toString();
}

bool AppDatabase::rememberedSavesPassword()
{
    return userSettings().value(u"Database/SavePassword"_s, false).toBool();
}

void AppDatabase::remember(const QString &url, bool savePassword)
{
    QSettings settings = userSettings();
    settings.setValue(u"Database/Url"_s, savePassword ? url : withoutPassword(url));
    settings.setValue(u"Database/SavePassword"_s, savePassword);
    settings.sync();
}

QString AppDatabase::withoutPassword(const QString &url)
{
    if (!isPostgres(url)) {
        return url;
    }
    // Cut by hand rather than through QUrl, which would spell the rest of the URL its own way.
    const auto [start, at] = userInfo(url);
    const qsizetype colon = url.indexOf(u':', start);
    if (colon < 0 || colon > at) {
        return url;
    }
    return url.left(colon) + url.mid(at);
}

QString AppDatabase::withPassword(const QString &url, const QString &password)
{
    if (!isPostgres(url)) {
        return url;
    }
    const QString bare = withoutPassword(url);
    const auto [start, at] = userInfo(bare);
    if (at == start) {
        return bare;
    }
    return bare.left(at) + u':' + QString::fromLatin1(QUrl::toPercentEncoding(password)) + bare.mid(at);
}
