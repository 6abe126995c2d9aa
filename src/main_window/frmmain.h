#ifndef QUILLON_FRMMAIN_H
#define QUILLON_FRMMAIN_H

#include "citem.h"
#include "quillon_export.h"

#include <QDateTime>
#include <QMainWindow>
#include <QPointer>

#include <functional>
#include <map>
#include <memory>

class CConnection;
class CItems;
class ItemGrid;
class ItemTableModel;
class frmClientEdit;
class frmGoodsEdit;
class frmSearch;
class QAction;
class QLabel;
class QStatusBar;
class QToolBar;
class QTreeWidget;
class QTreeWidgetItem;

/**
 * The item management window: a navigation tree of the master-data kinds, the grid of the selected kind's items
 * (edited in place and saved through the collections), a caption strip, toolbar, status bar and menus, a draggable
 * splitter, and the window settings kept between runs.
 *
 * Positions and sizes of the layout are in twips (1/1440 inch) at the screen's logical resolution. Goods and
 * clients are added and edited through their edit dialogs; the other kinds in the grid. A host may put its own
 * dialogs in front with setPropertiesHandler.
 */
class QUILLON_EXPORT frmMain : public QMainWindow
{
    Q_OBJECT

public:
    /// Item-type id of the tree's root entry, which shows no items.
    static constexpr int kRootKind = -1;

    explicit frmMain(QWidget *parent = nullptr);
    ~frmMain() override;
    Q_DISABLE_COPY_MOVE(frmMain)

    QTreeWidget *const tvTreeView;
    ItemGrid *const Flexgd1;
    QToolBar *const tbToolBar;
    QStatusBar *const sbStatusBar;
    QWidget *const picSplitter;
    QWidget *const imgSplitter;
    QWidget *const picTitles;
    QLabel *const lblTitle;

    QAction *mnuConnect = nullptr;
    QAction *mnuFilePrint = nullptr;
    QAction *mnuFilePrintSetup = nullptr;
    QAction *mnuExportToExcel = nullptr;
    QAction *mnuImport = nullptr;
    QAction *mnuBackup = nullptr;
    QAction *mnuRestore = nullptr;
    QAction *mnuReLogin = nullptr;
    QAction *mnuModifyPassword = nullptr;
    QAction *mnuFileClose = nullptr;
    QAction *mnuEditNew = nullptr;
    QAction *mnuEditSave = nullptr;
    QAction *mnuEditDelete = nullptr;
    QAction *mnuEditSub = nullptr;
    QAction *mnuSearch = nullptr;
    QAction *mnuViewToolbar = nullptr;
    QAction *mnuViewStatusBar = nullptr;
    QAction *mnuViewRefresh = nullptr;
    QAction *mnuViewGoodsInOutList = nullptr;
    QAction *mnuItemMan = nullptr;
    QAction *mnuHelpDir = nullptr;
    QAction *mnuHelpSearchForHelpOn = nullptr;
    QAction *mnuHelpAbout = nullptr;

    /// The toolbar button with that key ("新建", "保存", ...), or null.
    QAction *button(const QString &key) const;

    /// The collection shown for an item type (goods also drive gAllGoods_SomeOneChanged).
    void setCollection(int itemType, const std::shared_ptr<CItems> &items);
    std::shared_ptr<CItems> collection(int itemType) const;
    void setConnection(const std::shared_ptr<CConnection> &connection) { m_connection = connection; }
    std::shared_ptr<CConnection> connection() const { return m_connection; }

    /// Opens the edit dialog of the current row's item for "属性"; returns false when the kind has none.
    using PropertiesHandler = std::function<bool(int itemType, const CItemPtr &item)>;
    void setPropertiesHandler(PropertiesHandler handler) { m_propertiesHandler = std::move(handler); }

    /// The navigation text of an item type ("商品" ...), empty for types not in the tree.
    static QString NavigationText(int itemType);
    /// The sheet name an export of a kind gets: the navigation text, then the date as MMdd and the time as hhmmss.
    static QString ExportSheetName(int itemType, const QDateTime &when);

    /// "QlSetup.ini" next to the program, or in the per-user configuration folder when that folder is read-only.
    static QString defaultSettingsFile();
    QString settingsFile() const { return m_settingsFile; }
    void setSettingsFile(const QString &file) { m_settingsFile = file; }

    /// Start-up: caption, window rectangle, navigation tree, splitter, layout. Runs once (also on first show).
    void Form_Load();
    /// Stores the window rectangle (unless minimised) and the splitter.
    void Form_Unload();
    bool isLoaded() const { return m_loaded; }

    /// Lays the controls out for splitter position `x` (twips), which is clamped and kept.
    void SizeControls(float x);
    float splitterX() const { return m_splitterX; }
    /// Splitter drag, with x and y in twips relative to the grab area.
    void imgSplitter_MouseDown(int button, int shift, float x, float y);
    void imgSplitter_MouseMove(int button, int shift, float x, float y);
    void imgSplitter_MouseUp(int button, int shift, float x, float y);
    bool isDragging() const { return m_moving; }

    void ShowMsgInSB(const QString &text);
    void EnableMenu(int itemType);
    /// The item type whose items the grid shows (kRootKind for none).
    int currentKind() const { return m_kind; }
    /// Selects the tree node of an item type, as clicking it does.
    void selectKind(int itemType);
    void tvTreeView_NodeClick(QTreeWidgetItem *node);
    ItemTableModel *itemModel() const;
    frmSearch *searchDialog();
    /// The edit dialogs that "新建" and "属性" open for goods and for clients.
    frmGoodsEdit *goodsEditDialog();
    frmClientEdit *clientEditDialog();

    void tbToolBar_ButtonClick(const QString &key);
    void mnuEditNew_Click();
    void mnuEditSave_Click();
    void mnuEditDelete_Click();
    void mnuEditSub_Click();
    void mnuSearch_Click();
    void mnuViewRefresh_Click();
    void mnuFilePrint_Click();
    void mnuExportToExcel_Click();
    /// 导入: the import window of the selected kind.
    void mnuImport_Click();
    /// 备份: the master data into a new backup file the clerk names.
    void mnuBackup_Click();
    /// 恢复: the master data replaced from a backup file, after the clerk agreed; every list is loaded again.
    void mnuRestore_Click();
    /// Backup and restore without the file dialogs; false when refused or failed (the clerk was told).
    bool BackupTo(const QString &file);
    bool RestoreFrom(const QString &file);
    /// The file the export writes for a name chosen in the save dialog: a name without .xlsx or .xls gets the
    /// extension of the dialog's selected filter ("Excel 工作簿 (*.xlsx)", the default, or
    /// "Microsoft Excel File(*.xls)").
    static QString ExportFileName(const QString &chosen, const QString &selectedFilter);
    /// The export command after the file dialog: the question, the export, the success message. An empty name
    /// does nothing. A .xls name that does not hold a workbook of the newer format is offered as .xlsx (the
    /// writer writes that format only) and nothing is written when the clerk declines.
    bool ExportGridTo(const QString &file);
    void mnuHelpAbout_Click();
    void mnuItemMan_Click();
    void mnuViewGoodsInOutList_Click();
    void mnuFilePrintSetup_Click();
    void mnuHelpDir_Click();
    void mnuHelpSearchForHelpOn_Click();
    void mnuModifyPassword_Click();
    void mnuReLogin_Click();
    /// 连接数据库: the connection dialog, filled from the open database; the host is handed the chosen one
    /// (DatabaseChosen) after unsaved changes were settled. Without a host that handles it, the clerk is told.
    void mnuConnect_Click();
    /// Whether the connection dialog starts with "保存密码" ticked (the host's remembered choice).
    void setSavePasswordChoice(bool save) { m_savePassword = save; }
    void mnuViewStatusBar_Click();
    void mnuViewToolbar_Click();
    void gAllGoods_SomeOneChanged(const CItemPtr &goods);
    /// A unit, goods type or client type was saved: the goods or clients showing its name take the new one.
    void joinedItemChanged(const CItemPtr &changed);

    int twipsPerPixelX() const;
    int twipsPerPixelY() const;

Q_SIGNALS:
    /// Commands that belong to the host application.
    void ReLoginRequested();
    void ModifyPasswordRequested();
    void GoodsInOutListRequested(qint32 goodsID);
    void ItemManRequested(int itemType);
    /// The spreadsheet export of the grid, with the chosen file and sheet; the handler returns success in `ok`.
    void ExportRequested(const QString &file, const QString &sheet, bool &ok);
    /// The clerk chose another database in the connection dialog (the URL holds the password typed there);
    /// switching over is the host's.
    void DatabaseChosen(const QString &url, bool savePassword);

protected:
    void closeEvent(QCloseEvent *event) override;
    void showEvent(QShowEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void createActions();
    void buildTree();
    void showKind(int itemType);
    /// Opens the goods or client dialog for an item, or for a new one when `item` is none.
    void editInDialog(const CItemPtr &item);
    QTreeWidgetItem *treeNode(int itemType) const;
    /// Makes a node the tree's current one without acting on it.
    void markNode(QTreeWidgetItem *node);
    void setSaveEnabled(bool enabled);
    bool saveGrid();
    /// Asks about unsaved changes; false when the user's changes could not be saved (stay where we are).
    bool settleChanges();
    bool hostHandles(const char *signal) const;
    /// Every list loaded again from the database, with the names joined, and the grid shown anew.
    void reloadCollections();
    QString nodeText(int itemType) const;
    void updateTitle();

    QWidget *m_central = nullptr;
    QLabel *m_treeTitle = nullptr;
    QLabel *m_sbMessage = nullptr;
    QLabel *m_sbDate = nullptr;
    std::map<QString, QAction *> m_buttons;
    std::map<int, std::shared_ptr<CItems>> m_collections;
    std::shared_ptr<CConnection> m_connection;
    PropertiesHandler m_propertiesHandler;
    QPointer<frmSearch> m_search;
    QPointer<frmGoodsEdit> m_goodsEdit;
    QPointer<frmClientEdit> m_clientEdit;
    QString m_settingsFile;
    float m_splitterX = 3000;
    int m_titleHeight = 27;
    int m_kind = kRootKind;
    bool m_loaded = false;
    bool m_moving = false;
    bool m_switching = false;
    bool m_savePassword = false;
};

#endif
