#ifndef QUILLON_TESTDATABASE_H
#define QUILLON_TESTDATABASE_H

#include <QString>

#include <memory>

class CConnection;

/**
 * Fresh, empty databases for tests, on the engine that QUILLON_TEST_DB names ("sqlite", the default, or
 * "postgresql", whose server URL is read from the file that QUILLON_TEST_PG_URL_FILE names).
 */
namespace TestDatabase {

bool isPostgreSQL();
/// The URL of a new, empty database (nothing created in it yet).
QString freshUrl();
/// A connection to a new database with the schema created. Fails the test (returns null) when that fails.
std::shared_ptr<CConnection> create();
/// Lets T_Item hold NULL in every column, as tables made by older programs do (the tables this library creates
/// refuse NULL where reading has no rule for it). Call before anything else uses the connection.
void allowNullsAsOlderPrograms(CConnection &connection);
/// The same on SQLite whatever the engine under test (for copies between the engines).
std::shared_ptr<CConnection> createSqlite();

} // namespace TestDatabase

#endif
