#include "clicommands.h"

#include <QCoreApplication>
#include <QTextStream>

#include <cstdio>

#include <sys/stat.h>

int main(int argc, char *argv[])
{
    // Master data, backups and exports are the shop's business: what this program creates is its user's alone.
    ::umask(077);
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("quillon-cli"));
    QTextStream out(stdout);
    QTextStream err(stderr);
    QStringList arguments = QCoreApplication::arguments();
    arguments.removeFirst();
    const int code = Cli::run(arguments, out, err);
    out.flush();
    err.flush();
    return code;
}
