#include "testdatabase.h"

#include "cconnection.h"

#include <QCoreApplication>
#include <QFile>
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
    maintenance->Execute(u"CREATE DATABASE "_s + database);
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
