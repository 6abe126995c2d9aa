// Writes to a database from its own process, as another seat or program would:
//   seat_worker URL sql STATEMENT                     runs one statement as it stands
//   seat_worker URL price GOODSID CLIENTTYPEID PRICE  sets a goods' price for a client type
#include "cconnection.h"
#include "currency.h"
#include "goodspricebook.h"

#include <QCoreApplication>

#include <cstdio>

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList args = QCoreApplication::arguments();
    if (args.size() < 4) {
        std::fprintf(stderr, "usage: seat_worker URL sql STATEMENT | price GOODSID CLIENTTYPEID PRICE\n");
        return 2;
    }
    QString error;
    auto db = CConnection::Open(args.at(1), &error);
    if (!db) {
        std::fprintf(stderr, "%s\n", qPrintable(error));
        return 1;
    }
    try {
        if (args.at(2) == QLatin1StringView("sql")) {
            std::printf("%d\n", db->Execute(args.at(3)));
        } else if (args.at(2) == QLatin1StringView("price") && args.size() == 6) {
            const auto price = Currency::fromString(args.at(5));
            if (!price) {
                std::fprintf(stderr, "not an amount: %s\n", qPrintable(args.at(5)));
                return 2;
            }
            GoodsPriceBook::write(*db, args.at(3).toInt(), 0, args.at(4).toInt(), *price);
        } else {
            std::fprintf(stderr, "unknown command\n");
            return 2;
        }
    } catch (const DbError &e) {
        std::fprintf(stderr, "%s\n", qPrintable(e.message()));
        return 1;
    }
    return 0;
}
