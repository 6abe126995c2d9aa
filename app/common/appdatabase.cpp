#include "appdatabase.h"

#include "cconnection.h"

#include <QDir>
#include <QFileInfo>
#include <QProcessEnvironment>
#include <QSqlQuery>

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
                QDir().mkpath(QFileInfo(where.databaseName).absolutePath());
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
