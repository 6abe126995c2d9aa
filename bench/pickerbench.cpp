// How long the pickers take to narrow 100,000 goods for one keystroke of a mnemonic code.
//
//   quillon-bench-picker [--goods N]
#include "benchsupport.h"
#include "citems.h"
#include "cspell.h"
#include "itemlistmodel.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QRandomGenerator>

#include <algorithm>
#include <cstdio>

using namespace Qt::StringLiterals;

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    int count = 100000;
    if (!BenchSupport::Options("quillon-bench-picker [--goods N]").value(u"--goods"_s, count).parse()) {
        return 2;
    }
    static const char16_t kHanzi[] =
        u"华东北南西中国上海市京天津广州深圳成都重庆武汉杭苏宁波青岛大连厦门长沙郑州济西安"
        u"康师傅统一农夫山泉娃哈哈伊利蒙牛光明旺双汇金龙鱼可口乐百事雪碧芬达矿泉水绿茶红茶"
        u"果汁牛奶饼干面包方便面火腿肠大米食用油洗发水牙膏纸巾毛巾香皂洗衣粉酱油醋盐糖茶叶";
    QRandomGenerator rng(11);
    CItems goods;
    for (int i = 0; i < count; ++i) {
        QString name;
        const int length = 4 + rng.bounded(8);
        for (int k = 0; k < length; ++k) {
            name.append(QChar(kHanzi[rng.bounded(int(std::size(kHanzi)) - 1)]));
        }
        auto item = CItem::create();
        item->setF_ItemTypeID(4);
        item->setF_ItemNo(u"SP"_s + QString::number(i).rightJustified(6, u'0'));
        item->setF_ItemName(name);
        item->setF_Spell(CSpell::py(name));
        goods.Add(item);
    }
    std::printf("%d goods\n", count);
    for (const QString &typed : {u"c"_s, u"zc"_s, u"zcg"_s, u"zcgh"_s, u"ksf"_s, u"可乐"_s, u"SP0999"_s}) {
        double best = 1e9;
        int found = 0;
        for (int run = 0; run < 5; ++run) {
            QElapsedTimer timer;
            timer.start();
            found = 0;
            for (const CItemPtr &item : goods) {
                found += ItemListModel::matches(*item, typed, true) ? 1 : 0;
            }
            best = std::min(best, BenchSupport::milliseconds(timer));
        }
        std::printf("filter by \"%s\": %.1f ms, %d found (goal: under 50 ms)\n", qPrintable(typed), best, found);
    }
    return 0;
}
