#ifndef QUILLON_CLICOMMANDS_H
#define QUILLON_CLICOMMANDS_H

#include <QString>
#include <QStringList>

class QTextStream;

namespace Cli {

enum ExitCode { Ok = 0, Failed = 1, Usage = 2 };

/// Runs one command line (without the program name); output goes to `out`, messages to `err`.
int run(const QStringList &arguments, QTextStream &out, QTextStream &err);

} // namespace Cli

#endif
