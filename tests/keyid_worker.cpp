// Draws keys from T_KeyID in its own process and prints them, one a line: keyid_worker URL TABLE COUNT
#include "cconnection.h"
#include "keyid.h"

#include <QCoreApplication>

#include <cstdio>

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList args = QCoreApplication::arguments();
    if (args.size() != 4) {
        std::fprintf(stderr, "usage: keyid_worker URL TABLE COUNT\n");
        return 2;
    }
    QString error;
    auto db = CConnection::Open(args.at(1), &error);
    if (!db) {
        std::fprintf(stderr, "%s\n", qPrintable(error));
        return 1;
    }
    const int count = args.at(3).toInt();
    try {
        for (int i = 0; i < count; ++i) {
            std::printf("%d\n", Module1::GetNewID(*db, args.at(2), true));
        }
    } catch (const DbError &e) {
        std::fprintf(stderr, "%s\n", qPrintable(e.message()));
        return 1;
    }
    return 0;
}
