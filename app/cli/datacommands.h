#ifndef QUILLON_DATACOMMANDS_H
#define QUILLON_DATACOMMANDS_H

#include <QString>
#include <QStringList>

class QTextStream;

/// The command-line tool's commands that move master data in and out: import, backup and restore.
namespace DataCommands {

/// The lines these commands add to the tool's usage text.
QString usage();
/// Each takes the arguments after its command name (import: after KIND) and returns the tool's exit code (0, 1
/// or 2).
int import(const QString &dbUrl, int itemTypeID, QStringList args, QTextStream &out, QTextStream &err);
int backup(const QString &dbUrl, QStringList args, QTextStream &out, QTextStream &err);
/// Asks on `in` unless --yes is given.
int restore(const QString &dbUrl, QStringList args, QTextStream &in, QTextStream &out, QTextStream &err);

} // namespace DataCommands

#endif
