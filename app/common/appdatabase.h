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

/// The database the desktop program opened last (per-user settings, beside the window rectangle), or empty. It
/// bears a password only when the user chose to keep it (rememberedSavesPassword).
QString rememberedUrl();
bool rememberedSavesPassword();
/// Remembers `url` as the one to open next time, its password left out unless `savePassword`.
void remember(const QString &url, bool savePassword);
/// `url` without its password (a PostgreSQL URL's user:password@ becomes user@); other URLs as they are.
QString withoutPassword(const QString &url);
/// `url` with `password` put into it (a PostgreSQL URL with a user); other URLs as they are.
QString withPassword(const QString &url, const QString &password);

} // namespace AppDatabase

#endif
