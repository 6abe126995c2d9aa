#ifndef QUILLON_APPDATABASE_H
#define QUILLON_APPDATABASE_H

#include <QString>

#include <memory>

class CConnection;

/// Where the programs keep their embedded database, and opening a database URL for them.
namespace AppDatabase {

/// sqlite:// URL of quillon.db in the per-user data folder ($XDG_DATA_HOME/quillon or ~/.local/share/quillon).
QString defaultUrl();
/// Opens `url`, creating the folder of an SQLite file first. Nothing, with `error` set, when that fails.
std::shared_ptr<CConnection> open(const QString &url, QString *error);
/// Whether the store holds no master data at all.
bool isEmpty(CConnection &connection);

} // namespace AppDatabase

#endif
