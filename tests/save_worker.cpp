// Saves new goods in a loop in its own process and prints each one the collection acknowledged, as
// "F_ID<TAB>name", flushed at once: save_worker URL. Runs until it is killed.
#include "cconnection.h"
#include "citems.h"
#include "itemtype.h"

#include <QCoreApplication>

#include <cstdio>

using namespace Qt::StringLiterals;

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList args = QCoreApplication::arguments();
    if (args.size() != 2) {
        std::fprintf(stderr, "usage: save_worker URL\n");
        return 2;
    }
    QString error;
    auto db = CConnection::Open(args.at(1), &error);
    if (!db) {
        std::fprintf(stderr, "%s\n", qPrintable(error));
        return 1;
    }
    CItems goods;
    goods.Attach(db, itemTypeNumber(ItemType::Goods));
    const QString run = QString::number(QCoreApplication::applicationPid());
    for (int i = 0;; ++i) {
        auto item = CItem::create();
        item->setF_ItemTypeID(itemTypeNumber(ItemType::Goods));
        item->setF_ItemNo(u"W"_s + run + u'-' + QString::number(i));
        item->setF_ItemName(u"压力测试商品 "_s + run + u'-' + QString::number(i));
        if (!goods.SaveItem(item)) {
            std::fprintf(stderr, "save refused\n");
            return 1;
        }
        std::printf("%d\t%s\n", item->F_ID(), qPrintable(item->F_ItemName()));
        std::fflush(stdout);
    }
}
