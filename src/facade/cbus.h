#ifndef QUILLON_CBUS_H
#define QUILLON_CBUS_H

#include "citem.h"
#include "citems.h"
#include "databasecopy.h"
#include "goodspricebook.h"
#include "itemtype.h"
#include "quillon_export.h"

#include <QObject>
#include <QVariant>

#include <memory>

class CConnection;
class ChangeFeed;
struct ItemChange;
class frmMain;
class frmGoodsEdit;
class frmClientEdit;
class frmSelectClient;
class frmSelectGoodsEx;
class frmSelectItem;

/**
 * The library's entry object: holds one shared collection per item type, loads them, and hands the same
 * collection objects to every window and dialog, so that a change made in one is seen by all.
 *
 * One set of collections per facade. Window and dialog operations come with their windows.
 */
class QUILLON_EXPORT CBus : public QObject
{
    Q_OBJECT

public:
    /// The facade's names of the item types (the numbers of ::ItemType).
    enum ItemType {
        itClient = itemTypeNumber(::ItemType::Client),
        itUnit = itemTypeNumber(::ItemType::Unit),
        itGoodsType = itemTypeNumber(::ItemType::GoodsType),
        itGoods = itemTypeNumber(::ItemType::Goods),
        itStorm = itemTypeNumber(::ItemType::Stock),
        itDepartment = itemTypeNumber(::ItemType::Department),
        itOption = itemTypeNumber(::ItemType::Option),
        itClientType = itemTypeNumber(::ItemType::ClientType),
        itArea = itemTypeNumber(::ItemType::Area),
        itUserRight = itemTypeNumber(::ItemType::UserRight),
        itLLR = itemTypeNumber(::ItemType::MaterialReceiver),
        itSoftwareUserInfor = itemTypeNumber(::ItemType::SoftwareUserInfo),
    };
    Q_ENUM(ItemType)

    explicit CBus(QObject *parent = nullptr);
    ~CBus() override;
    Q_DISABLE_COPY_MOVE(CBus)

    /// Loads every list in the fixed order, raising OnInitItem before each and LoadProgress while a list reads.
    /// Always returns false: the result of the single loads is not gathered, and callers do not rely on it.
    /// CancelLoad() (from a LoadProgress listener, e.g. a progress dialog's 取消) stops it: the list being read
    /// keeps what it had and the lists after it are not read.
    bool InitAllData(const std::shared_ptr<CConnection> &connection);
    /// Stops a running InitAllData at the next progress report.
    void CancelLoad() { m_loadCancelled = true; }
    /// Whether the last InitAllData was stopped by CancelLoad().
    bool loadCancelled() const { return m_loadCancelled; }
    /// (Re)loads the list of one item type (not 7) and remembers the connection for all later work.
    bool InitItems(const std::shared_ptr<CConnection> &connection, int itemType, QObject *boundControl = nullptr);

    /// Stores a new item through a collection of its own (the shared lists are not touched); its new F_ID, or 0.
    qint32 SaveItemToDB(const CItemPtr &item, const std::shared_ptr<CConnection> &connection);
    /// Stores the company's own record.
    void SaveSoftwareUserInfor();

    /// The values a newly created company record starts with (empty unless the host sets them).
    void setSoftwareUserDefaults(const CItem &defaults);

    std::shared_ptr<CConnection> connection() const;

    std::shared_ptr<CItems> mClients() const { return m_clients; }
    void setmClients(const std::shared_ptr<CItems> &items);
    std::shared_ptr<CItems> mUnits() const { return m_units; }
    void setmUnits(const std::shared_ptr<CItems> &items);
    std::shared_ptr<CItems> mTypes() const { return m_types; }
    void setmTypes(const std::shared_ptr<CItems> &items);
    std::shared_ptr<CItems> mAllGoods() const { return m_allGoods; }
    void setmAllGoods(const std::shared_ptr<CItems> &items);
    std::shared_ptr<CItems> mStocks() const { return m_stocks; }
    void setmStocks(const std::shared_ptr<CItems> &items) { m_stocks = items; }
    std::shared_ptr<CItems> mDepartments() const { return m_departments; }
    void setmDepartments(const std::shared_ptr<CItems> &items) { m_departments = items; }
    std::shared_ptr<CItems> mOptions() const { return m_options; }
    void setmOptions(const std::shared_ptr<CItems> &items) { m_options = items; }
    std::shared_ptr<CItems> mClientTypes() const { return m_clientTypes; }
    void setmClientTypes(const std::shared_ptr<CItems> &items);
    std::shared_ptr<CItems> mAreas() const { return m_areas; }
    void setmAreas(const std::shared_ptr<CItems> &items) { m_areas = items; }
    std::shared_ptr<CItems> mRights() const { return m_rights; }
    void setmRights(const std::shared_ptr<CItems> &items) { m_rights = items; }
    std::shared_ptr<CItems> mLLRs() const { return m_llrs; }
    void setmLLRs(const std::shared_ptr<CItems> &items) { m_llrs = items; }
    CItemPtr mSoftwareUserInfor() const { return m_softwareUserInfor; }

    /// The collection that holds an item type (the software-user collection for 12), or none.
    std::shared_ptr<CItems> collection(int itemType) const;

    /// Shows the item management window (modeless), created on first use with the shared collections and the
    /// connection.
    void ShowMain();
    /// The item management window, once ShowMain created it.
    frmMain *mainWindow() const { return m_main.get(); }

    /// Runs the goods picker over mAllGoods: new lines join `tGoodsList` (change mode: its lines are edited).
    /// True when the clerk confirmed.
    bool SelectGoodsEx(CItems &tGoodsList, bool blnIsChangeMode);
    /// The same for a client's document: the picker proposes the price that client pays (GetGoodsPrice).
    bool SelectGoodsEx(CItems &tGoodsList, bool blnIsChangeMode, const CItemPtr &client);
    /// Runs the client picker over mClients; the chosen client, or none.
    CItemPtr SelectClient();
    /// Runs the client edit dialog for a new client (mode 0) or supplier (mode 1).
    void AddClient(const QVariant &mode);
    /// Runs the goods edit dialog for a new goods; `value` is the goods type to start with.
    void AddNewGoods(const QVariant &value);
    /// Runs the multi-select list; only material receivers (11) are served. The chosen items, or none.
    std::shared_ptr<CItems> SelectItems(int itemType);

    /// The dialogs, each created on first use and kept.
    frmGoodsEdit *goodsEditDialog();
    frmClientEdit *clientEditDialog();
    frmSelectClient *selectClientDialog();
    frmSelectGoodsEx *selectGoodsDialog();
    frmSelectItem *selectItemDialog();

    /// Writes a grid (any object with the properties Rows and Cols and the method TextMatrix(row, col)) as a new
    /// sheet of a spreadsheet file: row 0 gives the column names, every other row a record of text cells. A failing
    /// step asks whether to retry it (Yes), skip it (No) or stop (Cancel, the result is then false); what was
    /// written before stays in the file.
    bool CopyGridToExcel(QObject *Grid, const QString &sExcelFile, const QString &sSheetName);
    /// Gives a grid the colour scheme of the library's windows (isColor) or the grey one, through its properties.
    void SetGridColor(QObject *myGrid, bool isColor);
    /// The connection string of the spreadsheet driver for a file.
    static QString ExcelConnectionString(const QString &sExcelFile);
    /// The statement that creates the sheet for a grid's header row.
    static QString ExcelCreateTableStatement(QObject *Grid, const QString &sSheetName);

    /// The price a client pays for a goods: the client's own price, else its client type's, else the goods' sale
    /// price. Prices are read once from the current connection (GoodsPriceBook).
    Currency GetGoodsPrice(const CItem &goods, const CItem *client);
    /// Adds or replaces the price of a goods for a client type; false (after the error box) when that fails.
    bool SaveGoodsPriceByClientType(qint32 goodsID, qint32 clientTypeID, Currency price);
    /// The same for one client.
    bool SaveGoodsPriceByClient(qint32 goodsID, qint32 clientID, Currency price);
    /// The prices in memory (loaded on first use); reload() after another program changed them.
    GoodsPriceBook &priceBook();

    /// Copies whole tables from one database to another (see DatabaseCopy): in one transaction on the target,
    /// replacing what the target had in them, then reseeding their keys. A failure leaves the target unchanged.
    /// When the target's tables hold rows the user is asked first (Yes/No, with their number); No copies nothing.
    static DatabaseCopy::Result CopyTableDataBetweenDB(CConnection &from, CConnection &to, const QStringList &tables);
    /// The master tables a database move copies: items, prices and stock movements.
    static QStringList MasterTables();
    /// Copies the items of one kind, replacing the target's items of that kind, then reseeds T_Item.
    static DatabaseCopy::Result CopyItemBetweenDB(CConnection &from, CConnection &to, int itemType);

    /// The follower of other seats' changes, once a list was loaded: every committed change of T_Item or
    /// T_GoodsPrice on the database, by any seat or program, reaches the lists (FollowChange), so that every open
    /// window shows it. None when the database has no change table (read-only).
    ChangeFeed *changeFeed() const { return m_feed.get(); }
    /// Brings the lists in line with changes read from the change table.
    void ApplyChanges(const QList<ItemChange> &changes);
    /// Reloads every loaded list (and the prices) when the seat cannot tell what changed.
    void ReloadAll();

    /// Fills mUnitName and mTypeName of every goods item from the units and goods types.
    void JoinGoodsNames();
    /// Fills mTypeName of every client from the client types.
    void JoinClientTypeNames();

Q_SIGNALS:
    void OnInitItem(const QString &ItemTypeName);
    /// Raised about every 50 ms while InitAllData reads a list (the list's name and the rows read so far), so that
    /// a host can show the count and keep its window alive.
    void LoadProgress(const QString &ItemTypeName, qint64 rowsRead);
    /// The database cannot be reached to learn of other seats' changes; lists may be out of date until
    /// ConnectionRestored.
    void ConnectionLost(const QString &message);
    void ConnectionRestored();

private:
    void followChanges(const std::shared_ptr<CConnection> &connection);
    /// Goods and clients changed by another seat take their unit and type names before windows repaint them.
    void followOwnNames(const std::shared_ptr<CItems> &old, const std::shared_ptr<CItems> &items);
    void reloadKind(int itemType);

    /// A renamed unit, goods type or client type is shown at once in the goods and clients that refer to it.
    void followJoinedNames(const std::shared_ptr<CItems> &old, const std::shared_ptr<CItems> &items);

    std::shared_ptr<CItems> m_clients;
    std::shared_ptr<CItems> m_allGoods;
    std::shared_ptr<CItems> m_units;
    std::shared_ptr<CItems> m_types;
    std::shared_ptr<CItems> m_stocks;
    std::shared_ptr<CItems> m_departments;
    std::shared_ptr<CItems> m_llrs;
    std::shared_ptr<CItems> m_clientTypes;
    std::shared_ptr<CItems> m_areas;
    std::shared_ptr<CItems> m_rights;
    std::shared_ptr<CItems> m_softwareUsers;
    std::shared_ptr<CItems> m_options;
    CItemPtr m_softwareUserInfor;
    CItem m_softwareUserDefaults;
    std::shared_ptr<CConnection> m_connection;
    std::unique_ptr<frmMain> m_main;
    GoodsPriceBook m_prices;
    std::unique_ptr<frmGoodsEdit> m_goodsEdit;
    std::unique_ptr<frmClientEdit> m_clientEdit;
    std::unique_ptr<frmSelectClient> m_selectClient;
    std::unique_ptr<frmSelectGoodsEx> m_selectGoods;
    std::unique_ptr<frmSelectItem> m_selectItem;
    std::unique_ptr<ChangeFeed> m_feed;
    bool m_loadCancelled = false;
};

#endif
