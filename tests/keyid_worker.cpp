// Draws keys from T_KeyID in its own process and prints them, one a line: keyid_worker URL TABLE COUNT [PATH]
// PATH is how the key is drawn: "draw" (GetNewID, the default), "transaction" (GetNewID inside an outer
// transaction that commits) or "save" (a new unit saved through a collection; TABLE must be T_Item).
#include "cconnection.h"
#include "citems.h"
#include "itemtype.h"
#include "keyid.h"
#include "prompt.h"

#include <QCoreApplication>

#include <cstdio>

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList args = QCoreApplication::arguments();
    if (args.size() != 4 && args.size() != 5) {
        std::fprintf(stderr, "usage: keyid_worker URL TABLE COUNT [draw|transaction|save]\n");
        return 2;
    }
    QString error;
    auto db = CConnection::Open(args.at(1), &error);
    if (!db) {
        std::fprintf(stderr, "%s\n", qPrintable(error));
        return 1;
    }
    ScriptedPrompt prompt;
    prompt.setEcho(true);
    CPrompt::setCurrent(&prompt);
    const int count = args.at(3).toInt();
    const QString path = args.size() == 5 ? args.at(4) : QStringLiteral("draw");
    CItems units;
    units.Attach(db, itemTypeNumber(ItemType::Unit));
    try {
        for (int i = 0; i < count; ++i) {
            int key = 0;
            if (path == QLatin1String("save")) {
                auto unit = CItem::create();
                unit->setF_ItemTypeID(qint16(itemTypeNumber(ItemType::Unit)));
                unit->setF_ItemName(QStringLiteral("单位 %1-%2").arg(QCoreApplication::applicationPid()).arg(i));
                if (!units.SaveItem(unit)) {
                    return 1;
                }
                key = unit->F_ID();
            } else if (path == QLatin1String("transaction")) {
                CTransaction transaction(*db);
                key = Module1::GetNewID(*db, args.at(2), true);
                transaction.Commit();
            } else {
                key = Module1::GetNewID(*db, args.at(2), true);
            }
            std::printf("%d\n", key);
        }
    } catch (const DbError &e) {
        std::fprintf(stderr, "%s\n", qPrintable(e.message()));
        return 1;
    }
    return 0;
}
