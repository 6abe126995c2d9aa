#include "demodata.h"

#include "cconnection.h"
#include "citems.h"
#include "cspell.h"
#include "currency.h"
#include "itemtype.h"

#include <QSqlQuery>

#include <map>

using namespace Qt::StringLiterals;

namespace DemoData {

namespace {

struct Goods
{
    const char16_t *name;
    const char16_t *standard;
    const char16_t *unit;
    const char16_t *price; // single-piece sale price
    int perPackage;
};

struct GoodsType
{
    const char16_t *no;
    const char16_t *name;
    std::initializer_list<const char16_t *> brands;
    std::initializer_list<Goods> goods;
};

const GoodsType kGoodsTypes[] = {
    {u"01",
     u"饮料",
     {u"康师傅", u"统一", u"农夫山泉", u"娃哈哈", u"伊利", u"青岛"},
     {{u"矿泉水", u"550ml", u"瓶", u"2", 24},
      {u"绿茶", u"500ml", u"瓶", u"3", 15},
      {u"冰红茶", u"500ml", u"瓶", u"3", 15},
      {u"橙汁", u"1L", u"瓶", u"8.5", 12},
      {u"酸奶", u"200g", u"盒", u"4.5", 24},
      {u"咖啡", u"280ml", u"瓶", u"6", 15},
      {u"苏打水", u"410ml", u"瓶", u"4", 24},
      {u"椰汁", u"245ml", u"盒", u"3.8", 24},
      {u"豆奶", u"250ml", u"盒", u"2.5", 24},
      {u"啤酒", u"500ml", u"瓶", u"5", 12}}},
    {u"02",
     u"食品",
     {u"康师傅", u"统一", u"旺旺", u"双汇", u"金龙鱼", u"三只松鼠"},
     {{u"方便面", u"五连包", u"袋", u"12.9", 6},
      {u"饼干", u"400g", u"盒", u"15.8", 12},
      {u"火腿肠", u"30g×10", u"袋", u"9.9", 20},
      {u"大米", u"5kg", u"袋", u"39.9", 4},
      {u"挂面", u"1kg", u"袋", u"8.8", 10},
      {u"食用油", u"5L", u"桶", u"69.9", 4},
      {u"薯片", u"104g", u"袋", u"7.5", 22},
      {u"巧克力", u"100g", u"盒", u"18", 24},
      {u"月饼", u"礼盒装", u"盒", u"128", 6},
      {u"瓜子", u"500g", u"袋", u"16.5", 20}}},
    {u"03",
     u"日用品",
     {u"宝洁", u"联合利华", u"蓝月亮", u"心相印", u"云南白药", u"高露洁"},
     {{u"洗发水", u"400ml", u"瓶", u"36.9", 12},
      {u"牙膏", u"120g", u"支", u"12.8", 48},
      {u"卷纸", u"10卷", u"提", u"25.9", 6},
      {u"洗衣粉", u"1.5kg", u"袋", u"19.9", 8},
      {u"香皂", u"125g", u"块", u"5.5", 72},
      {u"毛巾", u"70×140cm", u"条", u"29", 20},
      {u"洗洁精", u"1.1kg", u"瓶", u"13.9", 12},
      {u"牙刷", u"软毛", u"支", u"9.9", 60},
      {u"垃圾袋", u"45×50cm", u"卷", u"6.8", 50},
      {u"纸巾", u"3层×130抽", u"包", u"3.5", 48}}},
    {u"04",
     u"文具",
     {u"得力", u"晨光", u"齐心", u"真彩"},
     {{u"中性笔", u"0.5mm 黑", u"支", u"2.5", 144},
      {u"笔记本", u"A5", u"本", u"8", 50},
      {u"订书机", u"12号", u"个", u"18", 24},
      {u"文件夹", u"A4", u"个", u"6.5", 60},
      {u"计算器", u"12位", u"台", u"45", 20}}},
};

struct Client
{
    const char16_t *name;
    const char16_t *contact;
    const char16_t *city;
};

const Client kClients[] = {
    {u"上海百联超市", u"王建国", u"上海市黄浦区南京东路"}, {u"杭州联华便利店", u"李秀英", u"杭州市西湖区文三路"},
    {u"南京苏果连锁", u"张伟", u"南京市鼓楼区中山路"},     {u"北京物美大卖场", u"刘洋", u"北京市海淀区中关村大街"},
    {u"天津家乐购", u"陈静", u"天津市和平区南京路"},       {u"广州好又多", u"杨帆", u"广州市天河区天河路"},
    {u"深圳美宜佳", u"黄磊", u"深圳市福田区深南大道"},     {u"成都红旗连锁", u"赵敏", u"成都市锦江区春熙路"},
    {u"重庆永辉超市", u"周杰", u"重庆市渝中区解放碑"},     {u"沈阳兴隆大家庭", u"吴昊", u"沈阳市和平区太原街"},
    {u"苏州华润万家", u"徐丽", u"苏州市姑苏区观前街"},     {u"宁波三江购物", u"孙强", u"宁波市海曙区中山西路"},
    {u"无锡大统华", u"马超", u"无锡市梁溪区中山路"},       {u"青岛利群商厦", u"朱红", u"青岛市市南区香港中路"},
    {u"济南银座超市", u"胡军", u"济南市历下区泉城路"},     {u"石家庄北国超市", u"郭靖", u"石家庄市长安区中山东路"},
    {u"佛山新一佳", u"林峰", u"佛山市禅城区祖庙路"},       {u"东莞嘉荣超市", u"何静", u"东莞市南城区鸿福路"},
    {u"昆明家乐福", u"高飞", u"昆明市五华区东风西路"},     {u"大连友谊商城", u"罗刚", u"大连市中山区人民路"},
};

const Client kSuppliers[] = {
    {u"康师傅控股有限公司", u"郑海", u"天津市经济技术开发区"},
    {u"统一企业(中国)投资有限公司", u"谢婷", u"上海市长宁区"},
    {u"农夫山泉股份有限公司", u"宋波", u"杭州市西湖区"},
    {u"杭州娃哈哈集团有限公司", u"唐敏", u"杭州市上城区"},
    {u"宝洁(中国)有限公司", u"韩冰", u"广州市黄埔区"},
    {u"得力集团有限公司", u"冯雪", u"宁波市宁海县"},
};

qint32 countRows(CConnection &db)
{
    QSqlQuery q = db.Select(u"Select Count(*) From T_Item"_s);
    return CConnection::next(q) ? q.value(0).toInt() : 0;
}

} // namespace

bool seed(const std::shared_ptr<CConnection> &connection, QString *error)
{
    try {
        connection->EnsureSchema();
        if (countRows(*connection) > 0) {
            *error = u"数据库中已有数据,未添加演示数据"_s;
            return false;
        }
    } catch (const DbError &e) {
        *error = e.message();
        return false;
    }

    std::map<ItemType, std::unique_ptr<CItems>> lists;
    auto list = [&](ItemType type) -> CItems & {
        auto &slot = lists[type];
        if (!slot) {
            slot = std::make_unique<CItems>();
            slot->Attach(connection, itemTypeNumber(type));
        }
        return *slot;
    };
    bool ok = true;
    auto save = [&](ItemType type, const QString &no, const QString &name, auto &&fill) -> CItemPtr {
        auto item = std::make_shared<CItem>();
        item->setF_ItemTypeID(qint16(type));
        item->setF_ItemNo(no);
        item->setF_ItemName(name);
        item->setF_Spell(CSpell::py(name));
        fill(*item);
        if (ok && !list(type).SaveItem(item)) {
            ok = false;
            *error = u"保存演示数据失败: "_s + name;
        }
        return item;
    };
    const auto nothing = [](CItem &) {
    };
    const QDateTime today = QDate::currentDate().startOfDay();

    std::map<QString, qint32> units;
    for (const char16_t *unit :
         {u"个", u"箱", u"瓶", u"盒", u"袋", u"桶", u"支", u"提", u"块", u"条", u"卷", u"包", u"本", u"台", u"千克"}) {
        units[QString::fromUtf16(unit)] = save(ItemType::Unit, QString(), QString::fromUtf16(unit), nothing)->F_ID();
    }

    int sort = 0;
    int serial = 0;
    for (const GoodsType &type : kGoodsTypes) {
        const qint32 typeID =
            save(ItemType::GoodsType, QString::fromUtf16(type.no), QString::fromUtf16(type.name), [&](CItem &i) {
                i.setF_Tag1(++sort);
            })->F_ID();
        for (const char16_t *brand : type.brands) {
            for (const Goods &g : type.goods) {
                ++serial;
                const QString no = QString::fromUtf16(type.no) + QString::number(serial).rightJustified(4, u'0');
                const Currency sale = *Currency::fromString(QString::fromUtf16(g.price));
                const Currency buy = sale * *Currency::fromString(u"0.78");
                const Currency packages = Currency::fromInteger(g.perPackage);
                save(ItemType::Goods, no, QString::fromUtf16(brand) + QString::fromUtf16(g.name), [&](CItem &i) {
                    i.setF_Standard(QString::fromUtf16(g.standard));
                    i.setF_ParentID(typeID);
                    i.setF_Tag1(units[QString::fromUtf16(g.unit)]);
                    i.setF_Tag2(units[u"箱"_s]);
                    i.setF_PriceSale(sale);
                    i.setF_PriceEnter(buy);
                    i.setF_PriceSalePack(sale * packages * *Currency::fromString(u"0.95"));
                    i.setF_PriceEnterPack(buy * packages * *Currency::fromString(u"0.95"));
                    i.setF_PackageAmount(float(g.perPackage));
                    i.setF_LimitUp(float(g.perPackage * 20));
                    i.setF_LimitDown(float(g.perPackage * 2));
                    i.setF_Date(today);
                });
            }
        }
    }

    std::vector<qint32> clientTypes;
    for (const char16_t *name : {u"批发客户", u"零售客户", u"VIP客户", u"供应商"}) {
        clientTypes.push_back(
            save(ItemType::ClientType, QString::number(clientTypes.size() + 1), QString::fromUtf16(name), nothing)
                ->F_ID());
    }
    std::vector<qint32> areas;
    for (const char16_t *name : {u"华东", u"华北", u"华南", u"西南", u"东北"}) {
        areas.push_back(save(ItemType::Area, QString::number(areas.size() + 1).rightJustified(2, u'0'),
                             QString::fromUtf16(name), nothing)
                            ->F_ID());
    }
    int clientNo = 0;
    auto saveClient = [&](const Client &c, qint32 typeID, const QString &prefix) {
        ++clientNo;
        save(ItemType::Client, prefix + QString::number(clientNo).rightJustified(4, u'0'), QString::fromUtf16(c.name),
             [&](CItem &i) {
                 i.setF_ParentID(typeID);
                 i.setF_LinkMen(QString::fromUtf16(c.contact));
                 i.setF_Address(QString::fromUtf16(c.city) + QString::number(clientNo * 7 % 300 + 1) + u"号"_s);
                 i.setF_Tel1(u"0"_s + QString::number(21 + clientNo % 8) + u'-'
                             + QString::number(62000000 + clientNo * 1379));
                 i.setF_Tel2(u"13"_s + QString::number(800000000 + clientNo * 7919));
                 i.setF_PostCode(QString::number(100000 + clientNo * 1111));
                 i.setF_Bank(clientNo % 2 ? u"中国工商银行"_s : u"中国建设银行"_s);
                 i.setF_BankAccount(u"6222 0210 "_s + QString::number(10000000 + clientNo * 4567));
                 i.setF_ArtificialPerson(QString::fromUtf16(c.contact));
                 i.setF_IRDNumber(u"91310000"_s + QString::number(1000000000 + clientNo * 37));
                 i.setF_OweWarring(Currency::fromInteger(20000 + clientNo % 5 * 10000));
                 i.setF_OweStop(Currency::fromInteger(50000 + clientNo % 5 * 10000));
                 i.setF_Tag1(areas[std::size_t(clientNo) % areas.size()]);
                 i.setF_Date(today);
             });
    };
    for (std::size_t i = 0; i < std::size(kClients); ++i) {
        saveClient(kClients[i], clientTypes[i % 3], u"KH"_s);
    }
    for (const Client &s : kSuppliers) {
        saveClient(s, clientTypes[3], u"GY"_s);
    }

    int n = 0;
    for (const char16_t *name : {u"总仓", u"一号门店仓", u"退货仓"}) {
        save(ItemType::Stock, QString::number(++n), QString::fromUtf16(name), nothing);
    }
    n = 0;
    for (const char16_t *name : {u"销售部", u"采购部", u"仓储部", u"财务部"}) {
        save(ItemType::Department, QString::number(++n), QString::fromUtf16(name), nothing);
    }
    n = 0;
    for (const char16_t *name : {u"系统管理员", u"业务员", u"仓管员"}) {
        ++n;
        save(ItemType::UserRight, QString::number(n), QString::fromUtf16(name), [&](CItem &i) { i.setF_Tag1(n); });
    }
    n = 0;
    for (const char16_t *name : {u"张伟", u"王芳", u"李强", u"赵丽"}) {
        save(ItemType::MaterialReceiver, QString::number(++n), QString::fromUtf16(name), nothing);
    }
    save(ItemType::SoftwareUserInfo, QString(), u"Quillon示例商贸有限公司"_s, [](CItem &i) {
        i.setF_Tel1(u"021-60000000"_s);
        i.setF_Tel2(u"13900000000"_s);
        i.setF_Address(u"上海市浦东新区世纪大道100号"_s);
        i.setF_Bank(u"中国银行上海分行"_s);
        i.setF_BankAccount(u"4563 5100 0000 0001"_s);
        i.setF_LinkMen(u"陈经理"_s);
        i.setF_PostCode(u"200120"_s);
    });
    return ok;
}

} // namespace DemoData
