#include "testdatabase.h"

#include "cconnection.h"

#include <QCoreApplication>
#include <QFile>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

namespace TestDatabase {

namespace {

int s_counter = 0;

QString serverUrl()
{
    QString url = qEnvironmentVariable("QUILLON_TEST_PG_URL");
    if (url.isEmpty()) {
        QFile file(qEnvironmentVariable("QUILLON_TEST_PG_URL_FILE"));
        if (file.open(QIODevice::ReadOnly)) {
            url = QString::fromUtf8(file.readAll()).trimmed();
        }
    }
    return url;
}

QTemporaryDir &tempDir()
{
    static QTemporaryDir dir;
    return dir;
}

} // namespace

bool isPostgreSQL()
{
    return qEnvironmentVariable("QUILLON_TEST_DB") == u"postgresql"_s;
}

QString freshUrl()
{
    const QString name =
        u"t"_s + QString::number(QCoreApplication::applicationPid()) + u"_"_s + QString::number(++s_counter);
    if (!isPostgreSQL()) {
        return u"sqlite://"_s + tempDir().path() + u'/' + name + u".db"_s;
    }
    const QString server = serverUrl();
    if (server.isEmpty()) {
        qFatal("QUILLON_TEST_DB=postgresql but no server URL (QUILLON_TEST_PG_URL or QUILLON_TEST_PG_URL_FILE)");
    }
    QString error;
    auto maintenance = CConnection::Open(server, &error);
    if (!maintenance) {
        qFatal("cannot reach the PostgreSQL test server: %s", qPrintable(error));
    }
    const QString database = u"quillon_"_s + name;
    // A shop's server takes the system's language: the tests run on a linguistic (ICU zh-CN) collation, where
    // text order differs from the binary order SQLite and the program's lists use.
    maintenance->Execute(u"CREATE DATABASE "_s + database
                         + u" TEMPLATE template0 ENCODING 'UTF8' LOCALE_PROVIDER icu ICU_LOCALE 'zh-CN' "
                           "LOCALE 'C.UTF-8'"_s);
    QString url = server;
    url.truncate(url.lastIndexOf(u'/') + 1);
    return url + database;
}

std::shared_ptr<CConnection> create()
{
    QString error;
    auto connection = CConnection::Open(freshUrl(), &error);
    if (!connection) {
        qWarning("cannot open the test database: %s", qPrintable(error));
        return {};
    }
    connection->EnsureSchema();
    return connection;
}

void allowNullsAsOlderPrograms(CConnection &connection)
{
    if (connection.engine() == CConnection::Engine::PostgreSQL) {
        QSqlQuery columns =
            connection.Select(u"SELECT column_name FROM information_schema.columns WHERE "
                              "table_name = 't_item' AND is_nullable = 'NO' AND column_name <> 'f_id'"_s);
        QStringList names;
        while (columns.next()) {
            names.append(columns.value(0).toString());
        }
        for (const QString &name : std::as_const(names)) {
            connection.Execute(u"ALTER TABLE T_Item ALTER COLUMN "_s + name + u" DROP NOT NULL"_s);
        }
        return;
    }
    QSqlQuery table = connection.Select(u"SELECT sql FROM sqlite_master WHERE name = 'T_Item'"_s);
    QVERIFY(table.next());
    QString ddl = table.value(0).toString();
    table.finish();
    ddl.replace(u" NOT NULL DEFAULT"_s, u" DEFAULT"_s);
    connection.Execute(u"DROP TABLE T_Item"_s);
    connection.Execute(ddl);
}

std::shared_ptr<CConnection> createSqlite()
{
    const QString url = u"sqlite://"_s + tempDir().path() + u"/s"_s + QString::number(++s_counter) + u".db"_s;
    QString error;
    auto connection = CConnection::Open(url, &error);
    if (!connection) {
        qWarning("cannot open the test database: %s", qPrintable(error));
        return {};
    }
    connection->EnsureSchema();
    return connection;
}

} // namespace TestDatabase
