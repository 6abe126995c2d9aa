#ifndef QUILLON_WATCHCOMMAND_H
#define QUILLON_WATCHCOMMAND_H

#include <QSet>

#include <memory>

class CConnection;
class QTextStream;

namespace Cli {

/// Prints every change of master data as it arrives, one tab-separated line each ("saved", "removed" or "reload",
/// the item type, the F_ID), flushing each line, until the process is interrupted. `kinds` empty: every kind.
/// Returns the exit code when the database cannot be followed.
int watchChanges(const std::shared_ptr<CConnection> &connection, const QSet<int> &kinds, QTextStream &out,
                 QTextStream &err);

} // namespace Cli

#endif
