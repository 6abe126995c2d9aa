#ifndef QUILLON_APPDATABASE_H
#define QUILLON_APPDATABASE_H

#include <QString>

#include <memory>

class CConnection;

/// Where the programs keep their embedded database, and opening a database URL for them.
namespace AppDatabase {

/// sqlite:// URL of quillon.db in the per-user data folder ($XDG_DATA_HOME/quillon or ~/.local/share/quillon).
QString defaultUrl();
enum class Missing { Create, Refuse };
/// Opens `url`. A missing SQLite file is created with its folder (Create) or refused with an error naming it
/// (Refuse: commands that only work on a store must not leave empty ones behind a mistyped path). Nothing, with
/// `error` set, when that fails.
std::shared_ptr<CConnection> open(const QString &url, QString *error, Missing missing = Missing::Create);
/// Whether the store holds no master data at all.
bool isEmpty(CConnection &connection);

} // namespace AppDatabase

#endif
