#include "cbus.h"

#include "frmclientedit.h"
#include "frmgoodsedit.h"
#include "frmmain.h"
#include "frmselectclient.h"
#include "frmselectgoodsex.h"
#include "frmselectitem.h"
#include "itemgrid.h"
#include "itemtype.h"
#include "module1.h"
#include "prompt.h"

#include "cconnection.h"
#include "changefeed.h"
#include "gridexport.h"

#include <QSet>

using namespace Qt::StringLiterals;

CBus::CBus(QObject *parent)
    : QObject(parent)
    , m_clients(std::make_shared<CItems>())
    , m_allGoods(std::make_shared<CItems>())
    , m_units(std::make_shared<CItems>())
    , m_types(std::make_shared<CItems>())
    , m_stocks(std::make_shared<CItems>())
    , m_departments(std::make_shared<CItems>())
    , m_llrs(std::make_shared<CItems>())
    , m_clientTypes(std::make_shared<CItems>())
    , m_areas(std::make_shared<CItems>())
    , m_rights(std::make_shared<CItems>())
    , m_softwareUsers(std::make_shared<CItems>())
    , m_options(std::make_shared<CItems>())
{
    for (const auto &items : {m_units, m_types, m_clientTypes}) {
        followJoinedNames(nullptr, items);
    }
    followOwnNames(nullptr, m_allGoods);
    followOwnNames(nullptr, m_clients);
    // The windows and dialogs this facade opens use the toolkit's own boxes too; a host need not load their texts.
    Module1::LoadToolkitTranslations();
}

void CBus::followOwnNames(const std::shared_ptr<CItems> &old, const std::shared_ptr<CItems> &items)
{
    if (old) {
        disconnect(old.get(), &CItems::SomeOneChanged, this, nullptr);
    }
    if (!items) {
        return;
    }
    // Connected before any window is, so that the names are in when the windows repaint.
    connect(items.get(), &CItems::SomeOneChanged, this, [this](const CItemPtr &changed) {
        if (!changed) {
            return;
        }
        if (changed->F_ItemTypeID() == itGoods) {
            if (const CItemPtr unit = m_units ? m_units->SearchItemByID(changed->F_Tag1()) : CItemPtr()) {
                changed->setmUnitName(unit->F_ItemName());
            }
            if (const CItemPtr type = m_types ? m_types->SearchItemByID(changed->F_ParentID()) : CItemPtr()) {
                changed->setmTypeName(type->F_ItemName());
            }
        } else if (changed->F_ItemTypeID() == itClient) {
            if (const CItemPtr type =
                    m_clientTypes ? m_clientTypes->SearchItemByID(changed->F_ParentID()) : CItemPtr()) {
                changed->setmTypeName(type->F_ItemName());
            }
        }
    });
}

void CBus::setmClients(const std::shared_ptr<CItems> &items)
{
    followOwnNames(m_clients, items);
    m_clients = items;
}

void CBus::setmAllGoods(const std::shared_ptr<CItems> &items)
{
    followOwnNames(m_allGoods, items);
    m_allGoods = items;
}

void CBus::followChanges(const std::shared_ptr<CConnection> &connection)
{
    if (!connection || (m_feed && m_feed->connection() == connection && m_feed->isActive())) {
        return;
    }
    m_feed = std::make_unique<ChangeFeed>(connection);
    if (!m_feed->start()) {
        // A database without a change table (opened read-only) is used as before, without other seats' changes.
        m_feed.reset();
        return;
    }
    connect(m_feed.get(), &ChangeFeed::changed, this, &CBus::ApplyChanges);
    connect(m_feed.get(), &ChangeFeed::reloadNeeded, this, &CBus::ReloadAll);
    connect(m_feed.get(), &ChangeFeed::connectionLost, this, &CBus::ConnectionLost);
    connect(m_feed.get(), &ChangeFeed::restored, this, &CBus::ConnectionRestored);
}

void CBus::ApplyChanges(const QList<ItemChange> &changes)
{
    QSet<quint64> followed;
    QSet<qint32> pricesRead;
    for (const ItemChange &change : changes) {
        if (change.kind == ItemChange::Reload) {
            if (change.itemType == 0) {
                ReloadAll();
                return;
            }
            reloadKind(change.itemType);
            continue;
        }
        const std::shared_ptr<CItems> items = collection(change.itemType);
        if (!items || !items->connection()) {
            continue; // a kind this facade does not hold
        }
        if (change.price) {
            if (m_prices.isLoaded() && m_connection && !pricesRead.contains(change.id)) {
                pricesRead.insert(change.id);
                try {
                    m_prices.reloadGoods(*m_connection, change.id);
                } catch (const DbError &) {
                    m_prices = GoodsPriceBook(); // read again on next use
                }
            }
            // Windows that show prices repaint the goods.
            if (const CItemPtr goods = items->SearchItemByID(change.id)) {
                Q_EMIT items->SomeOneChanged(goods);
            }
            continue;
        }
        const quint64 key = (quint64(quint16(change.itemType)) << 32) | quint32(change.id);
        if (!followed.contains(key)) {
            followed.insert(key);
            items->FollowChange(change.id);
        }
    }
}

void CBus::reloadKind(int itemType)
{
    const std::shared_ptr<CItems> items = collection(itemType);
    if (!items || !items->connection()) {
        return;
    }
    items->Refresh(0);
    if (itemType == itGoods || itemType == itUnit || itemType == itGoodsType) {
        JoinGoodsNames();
    }
    if (itemType == itClient || itemType == itClientType) {
        JoinClientTypeNames();
    }
    if (itemType == itGoods) {
        m_prices = GoodsPriceBook();
    }
    if (itemType == itSoftwareUserInfor && items->Count() >= 1) {
        m_softwareUserInfor = items->Item(1);
    }
}

void CBus::ReloadAll()
{
    for (int itemType : {itClientType, itArea, itClient, itUnit, itGoodsType, itGoods, itStorm, itDepartment,
                         itUserRight, itLLR, itSoftwareUserInfor}) {
        const std::shared_ptr<CItems> items = collection(itemType);
        if (items && items->connection()) {
            items->Refresh(0);
        }
    }
    JoinGoodsNames();
    JoinClientTypeNames();
    m_prices = GoodsPriceBook();
    if (m_softwareUsers && m_softwareUsers->Count() >= 1) {
        m_softwareUserInfor = m_softwareUsers->Item(1);
    }
}

void CBus::followJoinedNames(const std::shared_ptr<CItems> &old, const std::shared_ptr<CItems> &items)
{
    if (old) {
        disconnect(old.get(), &CItems::SomeOneChanged, this, nullptr);
    }
    if (!items) {
        return;
    }
    connect(items.get(), &CItems::SomeOneChanged, this, [this](const CItemPtr &changed) {
        if (!changed) {
            return;
        }
        const auto dependants = changed->F_ItemTypeID() == itClientType ? m_clients : m_allGoods;
        if (dependants) {
            CItems::RejoinName(*dependants, *changed);
        }
    });
}

void CBus::setmUnits(const std::shared_ptr<CItems> &items)
{
    followJoinedNames(m_units, items);
    m_units = items;
}

void CBus::setmTypes(const std::shared_ptr<CItems> &items)
{
    followJoinedNames(m_types, items);
    m_types = items;
}

void CBus::setmClientTypes(const std::shared_ptr<CItems> &items)
{
    followJoinedNames(m_clientTypes, items);
    m_clientTypes = items;
}

CBus::~CBus()
{
    m_feed.reset();
    m_main.reset();
    m_goodsEdit.reset();
    m_clientEdit.reset();
    m_selectClient.reset();
    m_selectGoods.reset();
    m_selectItem.reset();
    m_clients.reset();
    m_allGoods.reset();
    m_units.reset();
    m_types.reset();
    m_stocks.reset();
    m_departments.reset();
    m_llrs.reset();
    m_clientTypes.reset();
    m_areas.reset();
    m_rights.reset();
    m_softwareUsers.reset();
    m_options.reset();
}

std::shared_ptr<CConnection> CBus::connection() const
{
    return m_connection;
}

void CBus::setSoftwareUserDefaults(const CItem &defaults)
{
    m_softwareUserDefaults = defaults;
}

std::shared_ptr<CItems> CBus::collection(int itemType) const
{
    switch (itemType) {
    case itClient:
        return m_clients;
    case itUnit:
        return m_units;
    case itGoodsType:
        return m_types;
    case itGoods:
        return m_allGoods;
    case itStorm:
        return m_stocks;
    case itDepartment:
        return m_departments;
    case itOption:
        return m_options;
    case itClientType:
        return m_clientTypes;
    case itArea:
        return m_areas;
    case itUserRight:
        return m_rights;
    case itLLR:
        return m_llrs;
    case itSoftwareUserInfor:
        return m_softwareUsers;
    default:
        return {};
    }
}

bool CBus::InitItems(const std::shared_ptr<CConnection> &connection, int itemType, QObject *boundControl)
{
    m_connection = connection;
    if (!isItemTypeNumber(itemType) || itemType == itOption) {
        return false;
    }
    const std::shared_ptr<CItems> items = collection(itemType);
    if (!items) {
        return false;
    }
    // Clients take their type names while they are read, on the loading threads.
    const bool joinTypes = itemType == itClient && m_clientTypes;
    if (joinTypes) {
        items->setLoadJoin(CItems::ClientTypeNameJoin(*m_clientTypes));
    }
    // The program's own windows and dialogs keep numbers and names unique, also against other seats.
    items->setKeepUnique(true);
    const bool loaded = items->InitInstance(connection, itemType, boundControl);
    if (joinTypes) {
        items->setLoadJoin({});
    }
    followChanges(connection);
    if (itemType == itClient) {
        if (!loaded) {
            JoinClientTypeNames(); // the clients held before, with the client types as they are now
        }
    } else if (itemType == itSoftwareUserInfor && !(m_loadCancelled && !loaded)) {
        if (items->Count() >= 1) {
            m_softwareUserInfor = items->Item(1);
        } else {
            auto record = CItem::create(m_softwareUserDefaults);
            record->setF_ID(0);
            record->setF_ItemTypeID(itSoftwareUserInfor);
            m_softwareUserInfor = record;
            items->SaveItem(record);
        }
    }
    return loaded;
}

void CBus::JoinClientTypeNames()
{
    if (!m_clients || !m_clientTypes) {
        return;
    }
    CItems::JoinClientTypeNames(*m_clients, *m_clientTypes);
}

void CBus::JoinGoodsNames()
{
    if (!m_allGoods || !m_units || !m_types) {
        return;
    }
    CItems::JoinGoodsNames(*m_allGoods, *m_units, *m_types);
}

bool CBus::InitAllData(const std::shared_ptr<CConnection> &connection)
{
    m_prices = GoodsPriceBook(); // prices of the new connection are read on first use
    struct Step
    {
        const char16_t *text;
        int itemType;
    };
    // Client types come before clients so that the clients can take their type names.
    static const Step steps[] = {
        {u"客户类别", itClientType},
        {u"地区信息", itArea},
        {u"化客户信息", itClient},
        {u"单位信息", itUnit},
        {u"商品类别", itGoodsType},
        {u"商品信息", itGoods},
        {nullptr, 0},
        {u"仓库信息", itStorm},
        {u"部门信息", itDepartment},
        {u"用户权限", itUserRight},
        {u"领料人", itLLR},
        {u"软件使用者信息", itSoftwareUserInfor},
    };
    m_loadCancelled = false;
    bool goodsJoined = false;
    // Rows that could not be read whole are told once for the whole load, not in a box per kind.
    QStringList partialKinds;
    QString firstPartial;
    const auto notePartial = [&](const QString &kind, int rows, const QString &first) {
        partialKinds.append(kind + u" "_s + QString::number(rows) + u" 条"_s);
        if (firstPartial.isEmpty()) {
            firstPartial = kind + u" "_s + first;
        }
    };
    for (const Step &step : steps) {
        if (m_loadCancelled) {
            break;
        }
        if (!step.text) {
            if (!goodsJoined) {
                JoinGoodsNames(); // the goods held before, with the units and types as they are now
            }
            continue;
        }
        const QString text = QString::fromUtf16(step.text);
        Q_EMIT OnInitItem(text);
        const std::shared_ptr<CItems> items = collection(step.itemType);
        if (items) {
            items->setLoadProgress([this, text](qint64 rows) {
                Q_EMIT LoadProgress(text, rows);
                return !m_loadCancelled;
            });
            items->setPartialReadReport(notePartial);
        }
        // Goods take their unit and type names while they are read: the units and types are loaded by now and
        // stay as they are until the join.
        const bool joinGoods = step.itemType == itGoods && items && m_units && m_types;
        if (joinGoods) {
            items->setLoadJoin(CItems::GoodsNameJoin(*m_units, *m_types));
        }
        const bool loaded = InitItems(connection, step.itemType);
        if (joinGoods) {
            items->setLoadJoin({});
            goodsJoined = loaded;
        }
        if (items) {
            items->setLoadProgress({});
            items->setPartialReadReport({});
        }
    }
    if (!partialKinds.isEmpty()) {
        Module1::SetErr(firstPartial);
        Module1::ShowErrMsg(u"以下资料中有记录的部分字段无法读取,这些字段显示为空,保存时保留数据库中的原值: "_s
                            + partialKinds.join(u", "_s) + u"。第一条:"_s);
    }
    return false;
}

qint32 CBus::SaveItemToDB(const CItemPtr &item, const std::shared_ptr<CConnection> &connection)
{
    if (!item) {
        return 0;
    }
    CItems items;
    items.Attach(connection, item->F_ItemTypeID());
    if (!items.SaveItem(item)) {
        return 0;
    }
    return item->F_ID();
}

void CBus::SaveSoftwareUserInfor()
{
    if (m_softwareUserInfor && m_softwareUsers) {
        m_softwareUsers->SaveItem(m_softwareUserInfor);
    }
}

void CBus::ShowMain()
{
    if (!m_main) {
        m_main = std::make_unique<frmMain>();
        connect(
            m_main.get(), &frmMain::ExportRequested, this,
            [this](const QString &file, const QString &sheet, bool &ok) {
                ok = CopyGridToExcel(m_main->Flexgd1, file, sheet);
            },
            Qt::DirectConnection);
        // The clerk should know when other seats' changes stop arriving, and when they arrive again.
        connect(this, &CBus::ConnectionLost, m_main.get(), [this](const QString &) {
            m_main->ShowMsgInSB(u"与数据库的连接已断开,其他用户的修改暂时无法显示,正在重新连接…"_s);
        });
        connect(this, &CBus::ConnectionRestored, m_main.get(), [this] { m_main->ShowMsgInSB(u"已重新连接数据库"_s); });
    }
    // Every call hands over the current lists and connection: a reload on another database or a replaced list
    // must not leave the window editing the old ones.
    const std::pair<int, std::shared_ptr<CItems>> lists[] = {
        {itGoods, m_allGoods},         {itClient, m_clients}, {itClientType, m_clientTypes},
        {itDepartment, m_departments}, {itLLR, m_llrs},       {itStorm, m_stocks},
        {itGoodsType, m_types},        {itUnit, m_units},     {itArea, m_areas},
    };
    for (const auto &[type, items] : lists) {
        m_main->setCollection(type, items);
    }
    m_main->setConnection(m_connection);
    m_main->Form_Load();
    m_main->show();
    m_main->raise();
    m_main->activateWindow();
}

frmGoodsEdit *CBus::goodsEditDialog()
{
    if (!m_goodsEdit) {
        m_goodsEdit = std::make_unique<frmGoodsEdit>();
    }
    return m_goodsEdit.get();
}

frmClientEdit *CBus::clientEditDialog()
{
    if (!m_clientEdit) {
        m_clientEdit = std::make_unique<frmClientEdit>();
    }
    return m_clientEdit.get();
}

frmSelectClient *CBus::selectClientDialog()
{
    if (!m_selectClient) {
        m_selectClient = std::make_unique<frmSelectClient>();
    }
    return m_selectClient.get();
}

frmSelectGoodsEx *CBus::selectGoodsDialog()
{
    if (!m_selectGoods) {
        m_selectGoods = std::make_unique<frmSelectGoodsEx>();
    }
    return m_selectGoods.get();
}

frmSelectItem *CBus::selectItemDialog()
{
    if (!m_selectItem) {
        m_selectItem = std::make_unique<frmSelectItem>();
    }
    return m_selectItem.get();
}

bool CBus::SelectGoodsEx(CItems &tGoodsList, bool blnIsChangeMode, const CItemPtr &client)
{
    frmSelectGoodsEx *dialog = selectGoodsDialog();
    dialog->setPriceProposer([this, client](const CItem &goods) { return GetGoodsPrice(goods, client.get()); });
    const bool confirmed = dialog->SelectGoodsEx(tGoodsList, m_allGoods, m_types, m_units, blnIsChangeMode);
    dialog->setPriceProposer({});
    return confirmed;
}

bool CBus::SelectGoodsEx(CItems &tGoodsList, bool blnIsChangeMode)
{
    return selectGoodsDialog()->SelectGoodsEx(tGoodsList, m_allGoods, m_types, m_units, blnIsChangeMode);
}

CItemPtr CBus::SelectClient()
{
    return selectClientDialog()->SelectClient(m_areas, m_clientTypes, m_clients);
}

void CBus::AddClient(const QVariant &mode)
{
    clientEditDialog()->EditClient(m_areas, m_clients, m_clientTypes, mode);
}

void CBus::AddNewGoods(const QVariant &value)
{
    goodsEditDialog()->EditGoods(value, m_allGoods, m_stocks, m_types, m_units, true);
}

std::shared_ptr<CItems> CBus::SelectItems(int itemType)
{
    if (itemType != itLLR || !m_llrs) {
        return nullptr;
    }
    const std::vector<CItemPtr> chosen = selectItemDialog()->SelectItems(*m_llrs, u"选择领料人"_s);
    if (selectItemDialog()->result() != QDialog::Accepted) {
        return nullptr;
    }
    auto result = std::make_shared<CItems>();
    for (const CItemPtr &item : chosen) {
        result->Add(item);
    }
    return result;
}

QStringList CBus::MasterTables()
{
    return DatabaseCopy::MasterTables();
}

DatabaseCopy::Result CBus::CopyTableDataBetweenDB(CConnection &from, CConnection &to, const QStringList &tables)
{
    // Replacing a shop's data is never a side effect: the user is asked, with the number of rows at stake.
    try {
        const qint64 existing = DatabaseCopy::rowsIn(to, tables);
        if (existing > 0) {
            const QString rows = QString::number(existing);
            if (CPrompt::current().MsgBox(
                    u"目标数据库已有 "_s + rows + u" 行基础资料,复制会替换它们。\r\n您确实要替换吗?"_s,
                    CPrompt::vbYesNo | CPrompt::vbQuestion | CPrompt::vbDefaultButton2, CPrompt::messageTitle())
                != CPrompt::vbYes) {
                return {false, u"目标数据库已有 "_s + rows + u" 行基础资料,没有替换"_s, {}};
            }
        }
    } catch (const DbError &e) {
        return {false, e.message(), {}};
    }
    return DatabaseCopy::copyTables(from, to, tables);
}

DatabaseCopy::Result CBus::CopyItemBetweenDB(CConnection &from, CConnection &to, int itemType)
{
    return DatabaseCopy::copy(from, to, {{u"T_Item"_s, u"F_ItemTypeID=?"_s, {itemType}}});
}

GoodsPriceBook &CBus::priceBook()
{
    if (!m_prices.isLoaded() && m_connection) {
        try {
            m_prices.load(*m_connection);
        } catch (const DbError &e) {
            Module1::SetErr(e.message());
            Module1::ShowErrMsg(u"读取商品价格失败:"_s);
        }
    }
    return m_prices;
}

Currency CBus::GetGoodsPrice(const CItem &goods, const CItem *client)
{
    return priceBook().priceFor(goods, client);
}

bool CBus::SaveGoodsPriceByClientType(qint32 goodsID, qint32 clientTypeID, Currency price)
{
    if (!m_connection) {
        return false;
    }
    try {
        priceBook().save(*m_connection, goodsID, 0, clientTypeID, price);
        return true;
    } catch (const DbError &e) {
        Module1::SetErr(e.message());
        Module1::ShowErrMsg(u"保存价格失败!"_s);
        return false;
    }
}

bool CBus::SaveGoodsPriceByClient(qint32 goodsID, qint32 clientID, Currency price)
{
    if (!m_connection) {
        return false;
    }
    try {
        priceBook().save(*m_connection, goodsID, clientID, 0, price);
        return true;
    } catch (const DbError &e) {
        Module1::SetErr(e.message());
        Module1::ShowErrMsg(u"保存价格失败!"_s);
        return false;
    }
}

void CBus::SetGridColor(QObject *myGrid, bool isColor)
{
    if (!myGrid) {
        return;
    }
    struct Setting
    {
        const char *name;
        QVariant colour;
        QVariant grey;
    };
    const Setting settings[] = {
        {"FixedRows", 1, 1},
        {"FixedCols", 0, 0},
        {"BackColor", 0x80000018u, 0xE0E0E0u},
        {"BackColorBkg", 0x80000018u, 0xE0E0E0u},
        {"BackColorFixed", 0xC0E0FFu, 0xC0C0C0u},
        {"ForeColorFixed", 0xC00000u, 0x800000u},
        {"ForeColor", 0u, 0u},
        {"GridColor", 0x808080u, 0xFFFFFFu},
        {"GridColorFixed", 0u, 0xFFFFFFu},
        {"AllowUserResizing", 1, 1},
        {"ScrollBars", 3, 3},
    };
    for (const Setting &setting : settings) {
        myGrid->setProperty(setting.name, isColor ? setting.colour : setting.grey);
    }
}

QString CBus::ExcelConnectionString(const QString &sExcelFile)
{
    return GridExport::ExcelConnectionString(sExcelFile);
}

QString CBus::ExcelCreateTableStatement(QObject *Grid, const QString &sSheetName)
{
    return GridExport::ExcelCreateTableStatement(Grid, sSheetName);
}

bool CBus::CopyGridToExcel(QObject *Grid, const QString &sExcelFile, const QString &sSheetName)
{
    return GridExport::CopyGridToExcel(Grid, sExcelFile, sSheetName);
}
