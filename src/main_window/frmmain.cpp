#include "frmmain.h"

#include "cconnection.h"
#include "citems.h"
#include "excelconnection.h"
#include "filedialogs.h"
#include "frmclientedit.h"
#include "frmconnect.h"
#include "frmgoodsedit.h"
#include "frmimport.h"
#include "frmsearch.h"
#include "itemgrid.h"
#include "itemtablemodel.h"
#include "itemtype.h"
#include "masterbackup.h"
#include "module1.h"
#include "prompt.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QCoreApplication>
#include <QDate>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QHeaderView>
#include <QLabel>
#include <QLayout>
#include <QMenuBar>
#include <QMetaMethod>
#include <QMouseEvent>
#include <QPageSetupDialog>
#include <QPainter>
#include <QPrinter>
#include <QScreen>
#include <QSettings>
#include <QStandardPaths>
#include <QStatusBar>
#include <QStyle>
#include <QTime>
#include <QToolBar>
#include <QTreeWidget>

using namespace Qt::StringLiterals;

namespace {

const QString kExportFilterXlsx = u"Excel 工作簿 (*.xlsx)"_s;
const QString kExportFilterXls = u"Microsoft Excel File(*.xls)"_s;

struct NavEntry
{
    int itemType;
    const char16_t *text; // the root's; the kinds take their titles from the item table
};

// The tree: the root first, then its children in this order.
constexpr NavEntry kNavEntries[] = {
    {frmMain::kRootKind, u"Quillon进销存管理系统"},
    {int(ItemType::Department), nullptr},
    {int(ItemType::Stock), nullptr},
    {int(ItemType::ClientType), nullptr},
    {int(ItemType::Area), nullptr},
    {int(ItemType::Client), nullptr},
    {int(ItemType::GoodsType), nullptr},
    {int(ItemType::Unit), nullptr},
    {int(ItemType::Goods), nullptr},
    {int(ItemType::MaterialReceiver), nullptr},
};

constexpr char16_t kUnsavedQuestion[] = u"你已经修改了数据,是否要保存修改?";

int buttonOf(Qt::MouseButtons buttons)
{
    int result = 0;
    if (buttons & Qt::LeftButton) {
        result |= 1;
    }
    if (buttons & Qt::RightButton) {
        result |= 2;
    }
    if (buttons & Qt::MiddleButton) {
        result |= 4;
    }
    return result;
}

int shiftOf(Qt::KeyboardModifiers modifiers)
{
    return ((modifiers & Qt::ShiftModifier) ? 1 : 0) | ((modifiers & Qt::ControlModifier) ? 2 : 0)
        | ((modifiers & Qt::AltModifier) ? 4 : 0);
}

// The styles offer no printer; a floppy disk would read as 保存. Drawn at the toolbar's size so that it sits on the
// same line as the other buttons.
QIcon printerIcon()
{
    QPixmap pixmap(24, 24);
    pixmap.fill(Qt::transparent);
    QPainter p(&pixmap);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(QPen(QColor(0x40, 0x40, 0x40), 1.2));
    p.setBrush(Qt::white);
    p.drawRect(QRectF(7.5, 2.5, 9, 7)); // paper going in
    p.setBrush(QColor(0x9A, 0xA4, 0xB0));
    p.drawRoundedRect(QRectF(2.5, 8.5, 19, 9), 2, 2); // body
    p.setBrush(Qt::white);
    p.drawRect(QRectF(6.5, 14.5, 11, 7)); // printed sheet
    p.setPen(QPen(QColor(0x70, 0x70, 0x70), 1));
    p.drawLine(QPointF(8.5, 17), QPointF(15.5, 17));
    p.drawLine(QPointF(8.5, 19.2), QPointF(13.5, 19.2));
    p.setPen(Qt::NoPen);
    p.setBrush(QColor(0x3C, 0xB0, 0x4A));
    p.drawEllipse(QRectF(17, 10.5, 2.5, 2.5)); // power light
    p.end();
    return QIcon(pixmap);
}

QSettings windowSettings()
{
    return QSettings(QSettings::NativeFormat, QSettings::UserScope, CPrompt::applicationTitle());
}

} // namespace

frmMain::frmMain(QWidget *parent)
    : QMainWindow(parent)
    , tvTreeView(new QTreeWidget)
    , Flexgd1(new ItemGrid)
    , tbToolBar(new QToolBar(u"工具栏"_s, this))
    , sbStatusBar(new QStatusBar(this))
    , picSplitter(new QWidget)
    , imgSplitter(new QWidget)
    , picTitles(new QWidget)
    , lblTitle(new QLabel)
    , m_settingsFile(defaultSettingsFile())
{
    setObjectName(u"frmMain"_s);
    setAttribute(Qt::WA_DeleteOnClose, false);

    // The central area is laid out by SizeControls, not by a layout manager.
    m_central = new QWidget(this);
    m_central->setObjectName(u"centralArea"_s);
    setCentralWidget(m_central);
    m_central->installEventFilter(this);
    for (QWidget *w :
         {static_cast<QWidget *>(tvTreeView), static_cast<QWidget *>(Flexgd1), picTitles, imgSplitter, picSplitter}) {
        w->setParent(m_central);
    }

    tvTreeView->setObjectName(u"tvTreeView"_s);
    tvTreeView->setHeaderHidden(true);
    tvTreeView->setRootIsDecorated(true);
    tvTreeView->setIconSize(QSize(16, 16));
    connect(tvTreeView, &QTreeWidget::itemClicked, this, [this](QTreeWidgetItem *node) { tvTreeView_NodeClick(node); });
    connect(tvTreeView, &QTreeWidget::currentItemChanged, this, [this](QTreeWidgetItem *node) {
        // Keyboard moves in the tree select a kind as a click does.
        if (node && !m_switching && node->data(0, Qt::UserRole).toInt() != m_kind) {
            tvTreeView_NodeClick(node);
        }
    });

    picTitles->setObjectName(u"picTitles"_s);
    picTitles->setAutoFillBackground(true);
    QPalette titles = picTitles->palette();
    titles.setColor(QPalette::Window, QColor(0x3A, 0x6E, 0xA5));
    titles.setColor(QPalette::WindowText, Qt::white);
    picTitles->setPalette(titles);
    m_treeTitle = new QLabel(u"数据导航"_s, picTitles);
    m_treeTitle->setObjectName(u"lblTreeTitle"_s);
    lblTitle->setParent(picTitles);
    lblTitle->setObjectName(u"lblTitle"_s);
    QFont bold = lblTitle->font();
    bold.setBold(true);
    lblTitle->setFont(bold);
    m_treeTitle->setFont(bold);

    imgSplitter->setObjectName(u"imgSplitter"_s);
    imgSplitter->setCursor(Qt::SplitHCursor);
    imgSplitter->installEventFilter(this);
    picSplitter->setObjectName(u"picSplitter"_s);
    picSplitter->setAutoFillBackground(true);
    QPalette bar = picSplitter->palette();
    bar.setColor(QPalette::Window, QColor(0x80, 0x80, 0x80));
    picSplitter->setPalette(bar);
    picSplitter->hide();

    tbToolBar->setObjectName(u"tbToolBar"_s);
    tbToolBar->setMovable(false);
    tbToolBar->setToolButtonStyle(Qt::ToolButtonTextUnderIcon);
    tbToolBar->setIconSize(QSize(24, 24));
    addToolBar(Qt::TopToolBarArea, tbToolBar);

    sbStatusBar->setObjectName(u"sbStatusBar"_s);
    setStatusBar(sbStatusBar);
    m_sbMessage = new QLabel(sbStatusBar);
    m_sbMessage->setObjectName(u"sbMessage"_s);
    m_sbDate = new QLabel(QDate::currentDate().toString(u"yyyy-MM-dd"_s), sbStatusBar);
    sbStatusBar->addWidget(m_sbMessage, 1);
    sbStatusBar->addPermanentWidget(m_sbDate);

    createActions();
    setSaveEnabled(false);
    EnableMenu(kRootKind);
}

frmMain::~frmMain()
{
    // Closing the window commits an open edit box into the model; nothing of this window may react any more.
    if (QAbstractItemModel *model = Flexgd1->model()) {
        disconnect(model, nullptr, this, nullptr);
    }
    for (const auto &entry : m_collections) {
        if (entry.second) {
            disconnect(entry.second.get(), nullptr, this, nullptr);
        }
    }
}

void frmMain::createActions()
{
    QStyle *s = style();
    struct ButtonDef
    {
        const char16_t *key;
        QStyle::StandardPixmap icon;
        const char16_t *tip;
    };
    const ButtonDef defs[] = {
        {u"新建", QStyle::SP_FileIcon, u"新建一条记录"},
        {u"保存", QStyle::SP_DialogSaveButton, u"保存修改"},
        {u"关闭", QStyle::SP_DialogCloseButton, u"关闭窗口"},
        {u"删除", QStyle::SP_TrashIcon, u"删除当前记录"},
        {u"属性", QStyle::SP_FileDialogDetailedView, u"修改当前记录的属性"},
        {u"刷新", QStyle::SP_BrowserReload, u"刷新列表"},
        {u"打印", QStyle::SP_CustomBase, u"打印"},
        {u"查找", QStyle::SP_FileDialogContentsView, u"查找记录"},
        {u"帮助", QStyle::SP_DialogHelpButton, u"帮助"},
    };
    for (const ButtonDef &def : defs) {
        const QString key = QString::fromUtf16(def.key);
        QAction *action =
            tbToolBar->addAction(def.icon == QStyle::SP_CustomBase ? printerIcon() : s->standardIcon(def.icon), key);
        action->setObjectName(key);
        action->setToolTip(QString::fromUtf16(def.tip));
        connect(action, &QAction::triggered, this, [this, key]() { tbToolBar_ButtonClick(key); });
        m_buttons.emplace(key, action);
        if (key == u"关闭"_s || key == u"刷新"_s || key == u"查找"_s) {
            tbToolBar->addSeparator();
        }
    }

    auto add = [this](QMenu *menu, const QString &name, const QString &text, void (frmMain::*slot)(),
                      const QKeySequence &shortcut = QKeySequence()) {
        QAction *action = menu->addAction(text);
        action->setObjectName(name);
        action->setShortcut(shortcut);
        connect(action, &QAction::triggered, this, slot);
        return action;
    };
    QMenu *file = menuBar()->addMenu(u"文件(&F)"_s);
    mnuConnect = add(file, u"mnuConnect"_s, u"连接数据库(&D)..."_s, &frmMain::mnuConnect_Click);
    file->addSeparator();
    mnuExportToExcel = add(file, u"mnuExportToExcel"_s, u"导出到Excel(&E)..."_s, &frmMain::mnuExportToExcel_Click);
    mnuImport = add(file, u"mnuImport"_s, u"导入(&I)..."_s, &frmMain::mnuImport_Click);
    file->addSeparator();
    mnuBackup = add(file, u"mnuBackup"_s, u"备份(&B)..."_s, &frmMain::mnuBackup_Click);
    mnuRestore = add(file, u"mnuRestore"_s, u"恢复(&R)..."_s, &frmMain::mnuRestore_Click);
    file->addSeparator();
    mnuFilePrintSetup = add(file, u"mnuFilePrintSetup"_s, u"打印设置(&U)..."_s, &frmMain::mnuFilePrintSetup_Click);
    mnuFilePrint = add(file, u"mnuFilePrint"_s, u"打印(&P)"_s, &frmMain::mnuFilePrint_Click, QKeySequence::Print);
    file->addSeparator();
    mnuModifyPassword = add(file, u"mnuModifyPassword"_s, u"修改密码(&W)..."_s, &frmMain::mnuModifyPassword_Click);
    mnuReLogin = add(file, u"mnuReLogin"_s, u"重新登录(&L)..."_s, &frmMain::mnuReLogin_Click);
    file->addSeparator();
    mnuFileClose = file->addAction(u"关闭(&C)"_s, this, &QWidget::close);
    mnuFileClose->setObjectName(u"mnuFileClose"_s);

    QMenu *edit = menuBar()->addMenu(u"编辑(&E)"_s);
    mnuEditNew = add(edit, u"mnuEditNew"_s, u"新建(&N)"_s, &frmMain::mnuEditNew_Click, QKeySequence::New);
    mnuEditSave = add(edit, u"mnuEditSave"_s, u"保存(&S)"_s, &frmMain::mnuEditSave_Click, QKeySequence::Save);
    mnuEditDelete = add(edit, u"mnuEditDelete"_s, u"删除(&D)"_s, &frmMain::mnuEditDelete_Click,
                        QKeySequence(Qt::CTRL | Qt::Key_Delete));
    mnuEditSub = add(edit, u"mnuEditSub"_s, u"属性(&R)..."_s, &frmMain::mnuEditSub_Click);
    edit->addSeparator();
    mnuSearch = add(edit, u"mnuSearch"_s, u"查找(&F)..."_s, &frmMain::mnuSearch_Click, QKeySequence::Find);

    QMenu *view = menuBar()->addMenu(u"查看(&V)"_s);
    mnuViewToolbar = add(view, u"mnuViewToolbar"_s, u"工具栏(&T)"_s, &frmMain::mnuViewToolbar_Click);
    mnuViewToolbar->setCheckable(true);
    mnuViewToolbar->setChecked(true);
    mnuViewStatusBar = add(view, u"mnuViewStatusBar"_s, u"状态栏(&B)"_s, &frmMain::mnuViewStatusBar_Click);
    mnuViewStatusBar->setCheckable(true);
    mnuViewStatusBar->setChecked(true);
    view->addSeparator();
    mnuViewRefresh =
        add(view, u"mnuViewRefresh"_s, u"刷新(&R)"_s, &frmMain::mnuViewRefresh_Click, QKeySequence::Refresh);
    mnuViewGoodsInOutList =
        add(view, u"mnuViewGoodsInOutList"_s, u"商品进出明细(&G)..."_s, &frmMain::mnuViewGoodsInOutList_Click);

    QMenu *tools = menuBar()->addMenu(u"工具(&T)"_s);
    mnuItemMan = add(tools, u"mnuItemMan"_s, u"项目管理(&I)..."_s, &frmMain::mnuItemMan_Click);

    QMenu *help = menuBar()->addMenu(u"帮助(&H)"_s);
    mnuHelpDir = add(help, u"mnuHelpDir"_s, u"帮助目录(&C)"_s, &frmMain::mnuHelpDir_Click, QKeySequence::HelpContents);
    mnuHelpSearchForHelpOn =
        add(help, u"mnuHelpSearchForHelpOn"_s, u"搜索帮助主题(&S)..."_s, &frmMain::mnuHelpSearchForHelpOn_Click);
    help->addSeparator();
    mnuHelpAbout = add(help, u"mnuHelpAbout"_s, u"关于(&A)..."_s, &frmMain::mnuHelpAbout_Click);
}

QAction *frmMain::button(const QString &key) const
{
    const auto it = m_buttons.find(key);
    return it == m_buttons.end() ? nullptr : it->second;
}

void frmMain::setCollection(int itemType, const std::shared_ptr<CItems> &items)
{
    const auto old = collection(itemType);
    if (old == items && m_collections.count(itemType)) {
        return;
    }
    if (old) {
        disconnect(old.get(), &CItems::SomeOneChanged, this, nullptr);
    }
    m_collections[itemType] = items;
    if (items && itemType == ItemType::Goods) {
        connect(items.get(), &CItems::SomeOneChanged, this, &frmMain::gAllGoods_SomeOneChanged);
    } else if (items
               && (itemType == ItemType::Unit || itemType == ItemType::GoodsType || itemType == ItemType::ClientType)) {
        connect(items.get(), &CItems::SomeOneChanged, this, &frmMain::joinedItemChanged);
    }
    if (itemType == m_kind) {
        showKind(m_kind);
    }
}

void frmMain::joinedItemChanged(const CItemPtr &changed)
{
    if (!changed) {
        return;
    }
    const int dependantKind = ItemType(changed->F_ItemTypeID()) == ItemType::ClientType
        ? itemTypeNumber(ItemType::Client)
        : itemTypeNumber(ItemType::Goods);
    const auto dependants = collection(dependantKind);
    if (!dependants) {
        return;
    }
    const std::vector<CItemPtr> affected = CItems::RejoinName(*dependants, *changed);
    ItemTableModel *model = itemModel();
    if (m_kind == dependantKind && model) {
        for (const CItemPtr &item : affected) {
            model->refreshItem(item.get());
        }
    }
}

std::shared_ptr<CItems> frmMain::collection(int itemType) const
{
    const auto it = m_collections.find(itemType);
    return it == m_collections.end() ? nullptr : it->second;
}

QString frmMain::defaultSettingsFile()
{
    const QString programDir = QCoreApplication::applicationDirPath();
    const QFileInfo dir(programDir);
    if (!programDir.isEmpty() && dir.isDir() && dir.isWritable()) {
        return QDir(programDir).filePath(u"QlSetup.ini"_s);
    }
    const QString config = QStandardPaths::writableLocation(QStandardPaths::AppConfigLocation);
    QDir().mkpath(config);
    return QDir(config).filePath(u"QlSetup.ini"_s);
}

int frmMain::twipsPerPixelX() const
{
    return qMax(1, qRound(1440.0 / qMax(1, logicalDpiX())));
}

int frmMain::twipsPerPixelY() const
{
    return qMax(1, qRound(1440.0 / qMax(1, logicalDpiY())));
}

void frmMain::Form_Load()
{
    if (m_loaded) {
        return;
    }
    m_loaded = true;
    setWindowTitle(u"数据导航"_s);

    const QScreen *screen = this->screen() ? this->screen() : QGuiApplication::primaryScreen();
    m_titleHeight = (screen && screen->geometry().width() == 1024) ? 35 : 27;

    const int tx = twipsPerPixelX();
    const int ty = twipsPerPixelY();
    auto restoreRect = [&]() {
        QSettings settings = windowSettings();
        settings.beginGroup(u"Settings"_s);
        const int left = settings.value(u"MainLeft"_s, u"1000"_s).toString().toInt();
        const int top = settings.value(u"MainTop"_s, u"1000"_s).toString().toInt();
        const int width = settings.value(u"MainWidth"_s, u"6500"_s).toString().toInt();
        const int height = settings.value(u"MainHeight"_s, u"6500"_s).toString().toInt();
        move(left / tx, top / ty);
        resize(qMax(1, width / tx), qMax(1, height / ty));
        // Before the first show the central area has no size yet; lay the window out now so the splitter is
        // clamped against the real width.
        if (layout()) {
            layout()->activate();
        }
    };
    restoreRect();

    buildTree();

    const double stored =
        Module1::Val(Module1::GetIniString(u"Setup Program"_s, u"MainFormSpliterX"_s, m_settingsFile, u"3000"_s));
    m_splitterX = (stored <= 0 || stored >= 20000) ? 3000.0f : float(stored);
    SizeControls(m_splitterX);
    // The rectangle wins over anything the layout pass changed.
    restoreRect();
    SizeControls(m_splitterX);
}

void frmMain::Form_Unload()
{
    if (!isMinimized()) {
        const int tx = twipsPerPixelX();
        const int ty = twipsPerPixelY();
        const QRect frame = geometry();
        QSettings settings = windowSettings();
        settings.beginGroup(u"Settings"_s);
        settings.setValue(u"MainLeft"_s, QString::number(pos().x() * tx));
        settings.setValue(u"MainTop"_s, QString::number(pos().y() * ty));
        settings.setValue(u"MainWidth"_s, QString::number(frame.width() * tx));
        settings.setValue(u"MainHeight"_s, QString::number(frame.height() * ty));
        settings.endGroup();
        settings.sync();
    }
    Module1::SetIniString(u"Setup Program"_s, u"MainFormSpliterX"_s, m_settingsFile,
                          QString::number(double(m_splitterX)));
}

void frmMain::buildTree()
{
    tvTreeView->clear();
    QTreeWidgetItem *root = nullptr;
    for (const NavEntry &entry : kNavEntries) {
        auto *node = root ? new QTreeWidgetItem(root) : new QTreeWidgetItem(tvTreeView);
        node->setText(0, entry.text ? QString::fromUtf16(entry.text) : ItemTableModel::kindTitle(entry.itemType));
        node->setData(0, Qt::UserRole, entry.itemType);
        node->setIcon(0, style()->standardIcon(root ? QStyle::SP_FileDialogListView : QStyle::SP_DirHomeIcon));
        if (!root) {
            root = node;
        }
    }
    tvTreeView->expandAll();
    markNode(root);
}

QString frmMain::ExportSheetName(int itemType, const QDateTime &when)
{
    return ItemTableModel::exportSheetName(itemType, when);
}

QString frmMain::nodeText(int itemType) const
{
    return NavigationText(itemType);
}

QString frmMain::NavigationText(int itemType)
{
    for (const NavEntry &entry : kNavEntries) {
        if (entry.itemType == itemType) {
            return entry.text ? QString::fromUtf16(entry.text) : ItemTableModel::kindTitle(itemType);
        }
    }
    return QString();
}

void frmMain::SizeControls(float x)
{
    const int tx = twipsPerPixelX();
    const int ty = twipsPerPixelY();
    const float formWidth = float(m_central->width() * tx);
    if (x < 1500) {
        x = 1500;
    }
    if (formWidth - 1500 < x) {
        x = formWidth - 1500;
    }
    m_splitterX = x;

    const int titleTop = 0;
    const int titleHeight = m_titleHeight;
    const int top = titleTop + titleHeight;
    const int height = qMax(0, m_central->height() - top);
    const int treeWidth = qMax(0, int(x) / tx);
    tvTreeView->setGeometry(0, top, treeWidth, height);
    imgSplitter->setGeometry(int(x) / tx, top, qMax(1, 40 / tx), height);
    const int gridLeft = int(x + 40) / tx;
    // The 140 twips the layout leaves are the outer frame of a window; the area laid out here is the client area
    // already, so the grid reaches its right edge.
    const int gridWidth = qMax(0, m_central->width() - gridLeft);
    Flexgd1->setGeometry(gridLeft, top, gridWidth, height);

    picTitles->setGeometry(0, titleTop, m_central->width(), titleHeight);
    const int inset = 20 / tx + 4;
    m_treeTitle->setGeometry(inset, 0, qMax(0, treeWidth - inset), titleHeight);
    lblTitle->setGeometry(gridLeft + inset, 0, qMax(0, gridWidth - inset), titleHeight);
    Q_UNUSED(ty)
}

void frmMain::imgSplitter_MouseDown(int, int, float, float)
{
    const int tx = twipsPerPixelX();
    const int ty = twipsPerPixelY();
    const QRect grab = imgSplitter->geometry();
    picSplitter->setGeometry(grab.left(), grab.top(), qMax(1, grab.width() / 2),
                             qMax(1, (grab.height() * ty - 20) / ty));
    picSplitter->show();
    picSplitter->raise();
    m_moving = true;
    Q_UNUSED(tx)
}

void frmMain::imgSplitter_MouseMove(int, int, float x, float)
{
    if (!m_moving) {
        return;
    }
    const int tx = twipsPerPixelX();
    const float formWidth = float(m_central->width() * tx);
    const float candidate = float(imgSplitter->x() * tx) + x;
    float position = candidate;
    if (candidate < 500) {
        position = 500;
    } else if (candidate > formWidth - 500) {
        position = formWidth - 500;
    }
    picSplitter->move(int(position) / tx, picSplitter->y());
}

void frmMain::imgSplitter_MouseUp(int, int, float, float)
{
    if (!m_moving) {
        return;
    }
    SizeControls(float(picSplitter->x() * twipsPerPixelX()));
    picSplitter->hide();
    m_moving = false;
}

bool frmMain::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_central && event->type() == QEvent::Resize) {
        SizeControls(m_splitterX);
    } else if (watched == imgSplitter) {
        switch (event->type()) {
        case QEvent::MouseButtonPress:
        case QEvent::MouseMove:
        case QEvent::MouseButtonRelease: {
            const auto *mouse = static_cast<QMouseEvent *>(event);
            const float x = float(mouse->position().x() * twipsPerPixelX());
            const float y = float(mouse->position().y() * twipsPerPixelY());
            const int shift = shiftOf(mouse->modifiers());
            if (event->type() == QEvent::MouseButtonPress) {
                imgSplitter_MouseDown(buttonOf(mouse->buttons()), shift, x, y);
            } else if (event->type() == QEvent::MouseMove) {
                imgSplitter_MouseMove(buttonOf(mouse->buttons()), shift, x, y);
            } else {
                imgSplitter_MouseUp(buttonOf(mouse->button()), shift, x, y);
            }
            return true;
        }
        default:
            break;
        }
    }
    return QMainWindow::eventFilter(watched, event);
}

void frmMain::showEvent(QShowEvent *event)
{
    Form_Load();
    QMainWindow::showEvent(event);
}

void frmMain::resizeEvent(QResizeEvent *event)
{
    QMainWindow::resizeEvent(event);
    SizeControls(m_splitterX);
}

void frmMain::closeEvent(QCloseEvent *event)
{
    if (!settleChanges()) {
        event->ignore();
        return;
    }
    if (m_search) {
        m_search->close();
    }
    Form_Unload();
    event->accept();
}

void frmMain::ShowMsgInSB(const QString &text)
{
    m_sbMessage->setText(text);
}

void frmMain::EnableMenu(int itemType)
{
    const bool items = itemType != kRootKind && collection(itemType) != nullptr;
    for (const QString &key : {u"新建"_s, u"删除"_s, u"刷新"_s, u"查找"_s, u"属性"_s, u"打印"_s}) {
        button(key)->setEnabled(items);
    }
    mnuEditNew->setEnabled(items);
    mnuEditDelete->setEnabled(items);
    mnuViewRefresh->setEnabled(items);
    mnuSearch->setEnabled(items);
    mnuEditSub->setEnabled(items);
    mnuFilePrint->setEnabled(items);
    mnuItemMan->setEnabled(items);
    mnuExportToExcel->setEnabled(items);
    mnuImport->setEnabled(items && ItemImport::canImport(itemType));
    mnuViewGoodsInOutList->setEnabled(itemType == ItemType::Goods);
}

void frmMain::setSaveEnabled(bool enabled)
{
    button(u"保存"_s)->setEnabled(enabled);
    mnuEditSave->setEnabled(enabled);
}

ItemTableModel *frmMain::itemModel() const
{
    return qobject_cast<ItemTableModel *>(Flexgd1->model());
}

QTreeWidgetItem *frmMain::treeNode(int itemType) const
{
    const QList<QTreeWidgetItem *> all = tvTreeView->findItems(u"*"_s, Qt::MatchWildcard | Qt::MatchRecursive);
    for (QTreeWidgetItem *node : all) {
        if (node->data(0, Qt::UserRole).toInt() == itemType) {
            return node;
        }
    }
    return nullptr;
}

void frmMain::selectKind(int itemType)
{
    tvTreeView_NodeClick(treeNode(itemType));
}

void frmMain::markNode(QTreeWidgetItem *node)
{
    m_switching = true;
    tvTreeView->setCurrentItem(node);
    m_switching = false;
}

bool frmMain::settleChanges()
{
    // Text typed into an open edit box is the clerk's work too: it goes into the grid first, as Enter would put
    // it, so that the question below covers it. A text the grid refuses keeps the box open and the window as it is.
    if (!Flexgd1->commitEditor()) {
        return false;
    }
    if (!button(u"保存"_s)->isEnabled()) {
        return true;
    }
    const int answer = CPrompt::current().MsgBox(QString::fromUtf16(kUnsavedQuestion),
                                                 CPrompt::vbYesNo | CPrompt::vbQuestion, CPrompt::messageTitle());
    if (answer == CPrompt::vbYes) {
        return saveGrid();
    }
    if (ItemTableModel *model = itemModel()) {
        model->discardChanges();
    }
    setSaveEnabled(false);
    return true;
}

void frmMain::tvTreeView_NodeClick(QTreeWidgetItem *node)
{
    if (!node || m_switching) {
        return;
    }
    if (node->data(0, Qt::UserRole).toInt() == m_kind && itemModel()) {
        // A click makes the node current (which shows its kind) and then reports the click: the grid is built
        // once.
        return;
    }
    if (!settleChanges()) {
        // The changes could not be saved: the tree goes back to the kind they belong to.
        markNode(treeNode(m_kind));
        return;
    }
    markNode(node);
    showKind(node->data(0, Qt::UserRole).toInt());
}

void frmMain::showKind(int itemType)
{
    m_kind = itemType;
    QAbstractItemModel *old = Flexgd1->model();
    const std::shared_ptr<CItems> items = collection(itemType);
    if (items && itemType == ItemType::Goods) {
        items->ShowGoodsToGridEx(Flexgd1);
    } else if (items) {
        items->ShowItemsToGrid(Flexgd1);
    } else {
        Flexgd1->setModel(nullptr);
        if (old && old->parent() == Flexgd1) {
            delete old;
        }
    }
    if (ItemTableModel *model = itemModel()) {
        connect(model, &ItemTableModel::modifiedChanged, this, &frmMain::setSaveEnabled);
        connect(model, &ItemTableModel::editRejected, this, [](const QString &message) {
            Module1::ClearErr();
            Module1::ShowErrMsg(message);
        });
        connect(model, &ItemTableModel::saveRefused, this, [this](int row, ItemTableModel::Field field) {
            // The clerk lands on the value to correct.
            if (ItemTableModel *shown = itemModel()) {
                const QModelIndex cell = shown->index(row, qMax(0, shown->columnOf(field)));
                Flexgd1->setCurrentIndex(cell);
                Flexgd1->scrollTo(cell);
            }
        });
        connect(model, &QAbstractItemModel::rowsInserted, this, &frmMain::updateTitle);
        connect(model, &QAbstractItemModel::rowsRemoved, this, &frmMain::updateTitle);
        connect(model, &QAbstractItemModel::modelReset, this, &frmMain::updateTitle);
        if (model->rowCount() > 0) {
            Flexgd1->setCurrentIndex(model->index(0, 0));
        }
    }
    setSaveEnabled(false);
    EnableMenu(itemType);
    updateTitle();
    if (m_search) {
        m_search->setGrid(Flexgd1);
        m_search->setWindowTitle(u"查找"_s + nodeText(itemType));
        if (!itemModel()) {
            m_search->close();
        }
    }
}

void frmMain::updateTitle()
{
    const QString text = nodeText(m_kind);
    const ItemTableModel *model = itemModel();
    if (model) {
        lblTitle->setText(text + u"  (共 "_s + QString::number(model->rowCount()) + u" 条)"_s);
        ShowMsgInSB(text + u": "_s + QString::number(model->rowCount()) + u" 条记录"_s);
    } else {
        lblTitle->setText(text);
        ShowMsgInSB(u"请在左边选择要管理的项目"_s);
    }
}

void frmMain::tbToolBar_ButtonClick(const QString &key)
{
    if (key == u"新建"_s) {
        mnuEditNew_Click();
    } else if (key == u"保存"_s) {
        mnuEditSave_Click();
    } else if (key == u"关闭"_s) {
        close();
    } else if (key == u"删除"_s) {
        mnuEditDelete_Click();
    } else if (key == u"属性"_s) {
        mnuEditSub_Click();
    } else if (key == u"刷新"_s) {
        mnuViewRefresh_Click();
    } else if (key == u"打印"_s) {
        mnuFilePrint_Click();
    } else if (key == u"查找"_s) {
        mnuSearch_Click();
    }
    // "帮助" and unknown keys: nothing.
}

void frmMain::mnuEditNew_Click()
{
    ItemTableModel *model = itemModel();
    if (!model) {
        return;
    }
    if (m_kind == ItemType::Goods || m_kind == ItemType::Client) {
        // Goods and clients need a unit, type, prices and a number that fits the others: the edit dialog sets
        // them in one step, with the number suggested.
        editInDialog(nullptr);
        return;
    }
    const int row = model->addNewRow();
    const int column = qMax(0,
                            model->columnOf(model->items() && model->items()->itemTypeID() == ItemType::Goods
                                                ? ItemTableModel::ItemNo
                                                : ItemTableModel::ItemName));
    const QModelIndex cell = model->index(row, column);
    Flexgd1->setCurrentIndex(cell);
    Flexgd1->scrollTo(cell);
    Flexgd1->setFocus();
    Flexgd1->edit(cell);
}

bool frmMain::saveGrid()
{
    ItemTableModel *model = itemModel();
    if (!model) {
        setSaveEnabled(false);
        return true;
    }
    // An edit box still open holds text not yet in the model.
    if (!Flexgd1->commitEditor()) {
        return false;
    }
    QApplication::setOverrideCursor(Qt::WaitCursor);
    const bool saved = model->SaveChanges();
    QApplication::restoreOverrideCursor();
    if (saved) {
        setSaveEnabled(false);
        ShowMsgInSB(u"数据已保存"_s);
    }
    return saved;
}

void frmMain::mnuEditSave_Click()
{
    saveGrid();
}

void frmMain::mnuEditDelete_Click()
{
    ItemTableModel *model = itemModel();
    const QModelIndex current = Flexgd1->currentIndex();
    if (!model || !current.isValid()) {
        return;
    }
    if (CPrompt::current().MsgBox(u"您确实要删除该记录吗?"_s, CPrompt::vbYesNo | CPrompt::vbQuestion,
                                  CPrompt::messageTitle())
        != CPrompt::vbYes) {
        return;
    }
    const int row = current.row();
    if (model->isNewRow(row)) {
        model->removeNewRow(row);
        return;
    }
    const CItemPtr item = model->itemAt(row);
    if (item && model->items()->RemoveItem(item->F_ID())) {
        ShowMsgInSB(u"记录已删除"_s);
    }
}

void frmMain::mnuEditSub_Click()
{
    ItemTableModel *model = itemModel();
    const QModelIndex current = Flexgd1->currentIndex();
    CItemPtr item = model && current.isValid() ? model->itemAt(current.row()) : CItemPtr();
    if (m_propertiesHandler && m_propertiesHandler(m_kind, item)) {
        return;
    }
    if (m_kind != ItemType::Goods && m_kind != ItemType::Client) {
        CPrompt::current().MsgBox(u"修改该项目属性的代码还没有添加!"_s, CPrompt::vbInformation,
                                  CPrompt::messageTitle());
        return;
    }
    if (!item) {
        return;
    }
    if (model->isPendingRow(current.row())) {
        // The dialog starts from the stored record: the row's edits are saved first or dropped.
        const qint32 id = item->F_ID();
        if (!settleChanges()) {
            return;
        }
        item = id > 0 ? model->items()->SearchItemByID(id) : CItemPtr();
        if (!item) {
            return;
        }
    }
    editInDialog(item);
}

frmGoodsEdit *frmMain::goodsEditDialog()
{
    if (!m_goodsEdit) {
        m_goodsEdit = new frmGoodsEdit(this);
    }
    return m_goodsEdit;
}

frmClientEdit *frmMain::clientEditDialog()
{
    if (!m_clientEdit) {
        m_clientEdit = new frmClientEdit(this);
    }
    return m_clientEdit;
}

void frmMain::editInDialog(const CItemPtr &item)
{
    ItemTableModel *model = itemModel();
    const auto items = collection(m_kind);
    if (!model || !items) {
        return;
    }
    CItemPtr saved;
    if (m_kind == ItemType::Goods) {
        frmGoodsEdit *dialog = goodsEditDialog();
        // A new goods starts in the type of the row the clerk stands on, and takes that type's next number.
        const QModelIndex current = Flexgd1->currentIndex();
        const CItemPtr near = current.isValid() ? model->itemAt(current.row()) : CItemPtr();
        const QVariant value = item ? QVariant(item->F_ID()) : QVariant(near ? near->F_ParentID() : 0);
        if (dialog->EditGoods(value, items, collection(itemTypeNumber(ItemType::Stock)),
                              collection(itemTypeNumber(ItemType::GoodsType)),
                              collection(itemTypeNumber(ItemType::Unit)), !item)) {
            saved = dialog->savedGoods();
        }
    } else {
        frmClientEdit *dialog = clientEditDialog();
        if (dialog->EditClient(collection(itemTypeNumber(ItemType::Area)), items,
                               collection(itemTypeNumber(ItemType::ClientType)), 0, item ? item->F_ID() : 0)) {
            saved = dialog->savedClient();
        }
    }
    if (saved) {
        const int row = model->rowOf(saved.get());
        if (row >= 0) {
            const QModelIndex cell = model->index(row, qMax(0, Flexgd1->currentIndex().column()));
            Flexgd1->setCurrentIndex(cell);
            Flexgd1->scrollTo(cell);
        }
        ShowMsgInSB(u"数据已保存"_s);
    }
}

frmSearch *frmMain::searchDialog()
{
    if (!m_search) {
        m_search = new frmSearch(this);
    }
    m_search->setGrid(Flexgd1);
    return m_search;
}

void frmMain::mnuSearch_Click()
{
    if (!itemModel()) {
        return;
    }
    frmSearch *dialog = searchDialog();
    dialog->setWindowTitle(u"查找"_s + nodeText(m_kind));
    dialog->show();
    dialog->raise();
    dialog->activateWindow();
}

void frmMain::mnuViewRefresh_Click()
{
    if (!settleChanges()) {
        return;
    }
    showKind(m_kind);
}

void frmMain::mnuFilePrint_Click()
{
    const QStringList headings {QDate::currentDate().toString(u"yyyy-MM-dd"_s),
                                QTime::currentTime().toString(u"hh:mm:ss"_s)};
    Module1::PrintGrid(0, Flexgd1, QString(), 0, headings);
}

void frmMain::mnuExportToExcel_Click()
{
    if (!itemModel()) {
        return;
    }
    QString filter = kExportFilterXlsx;
    // The export adds a sheet to a workbook that exists rather than replacing it, so the dialog's "replace?" would
    // ask the wrong question; the export asks its own.
    const QString file =
        FileDialogs::getSaveFileName(this, u"导出到Excel"_s, QString(), kExportFilterXlsx + u";;"_s + kExportFilterXls,
                                     &filter, QFileDialog::DontConfirmOverwrite);
    ExportGridTo(ExportFileName(file, filter));
}

QString frmMain::ExportFileName(const QString &chosen, const QString &selectedFilter)
{
    const QString file = chosen.trimmed();
    if (file.isEmpty()) {
        return QString();
    }
    const QString suffix = QFileInfo(file).suffix();
    if (suffix.compare(u"xlsx"_s, Qt::CaseInsensitive) == 0 || suffix.compare(u"xls"_s, Qt::CaseInsensitive) == 0) {
        return file;
    }
    return file + (selectedFilter == kExportFilterXls ? u".xls"_s : u".xlsx"_s);
}

bool frmMain::ExportGridTo(const QString &chosen)
{
    if (chosen.trimmed().isEmpty()) {
        return false;
    }
    QString file = chosen;
    // Only workbooks of the newer format can be written: a .xls name is taken when the file already holds such a
    // workbook (an earlier export under that name); otherwise the clerk is offered the .xlsx name instead of
    // getting a file whose name promises a format it does not have.
    if (QFileInfo(file).suffix().compare(u"xls"_s, Qt::CaseInsensitive) == 0 && !ExcelConnection::holdsWorkbook(file)) {
        const QString xlsx = file.left(file.size() - 3) + u"xlsx"_s;
        if (CPrompt::current().MsgBox(u"本程序不能写入旧版 Excel 97-2003 格式(.xls)的文件。\r\n要改为导出到 "_s + xlsx
                                          + u" 吗?"_s,
                                      CPrompt::vbYesNo | CPrompt::vbQuestion, CPrompt::messageTitle())
            != CPrompt::vbYes) {
            return false;
        }
        file = xlsx;
    }
    const QString sheet = ExportSheetName(m_kind, QDateTime::currentDateTime());
    if (CPrompt::current().MsgBox(u"你确实要执行数据导出操作吗?"_s, CPrompt::vbYesNo | CPrompt::vbQuestion,
                                  CPrompt::messageTitle())
        != CPrompt::vbYes) {
        return false;
    }
    if (!Flexgd1->commitEditor()) {
        return false;
    }
    bool ok = false;
    QApplication::setOverrideCursor(Qt::WaitCursor);
    Q_EMIT ExportRequested(file, sheet, ok);
    QApplication::restoreOverrideCursor();
    if (ok) {
        CPrompt::current().MsgBox(u"数据已经成功的导出到"_s + file + u"\r\n表格["_s + sheet + u"]中!"_s,
                                  CPrompt::vbInformation, CPrompt::messageTitle());
    }
    return ok;
}

void frmMain::mnuImport_Click()
{
    const std::shared_ptr<CItems> items = collection(m_kind);
    if (!items || !ItemImport::canImport(m_kind) || !settleChanges()) {
        return;
    }
    frmImport dialog(items.get(), collection(itemTypeNumber(ItemType::Unit)).get(),
                     collection(itemTypeNumber(ItemType::GoodsType)).get(),
                     collection(itemTypeNumber(ItemType::ClientType)).get(), this);
    dialog.exec();
    if (!dialog.imported()) {
        return;
    }
    // Units and types the import created are in their lists now; the grid shows the reloaded items, on the row the
    // clerk was on.
    const CItemPtr current = itemModel() ? itemModel()->itemAt(Flexgd1->currentIndex().row()) : nullptr;
    const int column = Flexgd1->currentIndex().column();
    showKind(m_kind);
    ItemTableModel *model = itemModel();
    if (current && model) {
        const int row = model->rowOfID(current->F_ID());
        if (row >= 0) {
            const QModelIndex cell = model->index(row, qMax(0, column));
            Flexgd1->setCurrentIndex(cell);
            Flexgd1->scrollTo(cell);
        }
    }
}

void frmMain::mnuBackup_Click()
{
    const QString file = FileDialogs::getSaveFileName(
        this, u"备份基础资料"_s, u"基础资料备份"_s + QDateTime::currentDateTime().toString(u"yyyyMMdd-hhmmss"_s),
        u"备份文件 (*.qlbak)"_s);
    if (!file.trimmed().isEmpty()) {
        BackupTo(QFileInfo(file).suffix().isEmpty() ? file + u".qlbak"_s : file);
    }
}

bool frmMain::BackupTo(const QString &file)
{
    if (!m_connection) {
        return false;
    }
    QApplication::setOverrideCursor(Qt::WaitCursor);
    const MasterBackup::Result result = MasterBackup::backup(*m_connection, file);
    QApplication::restoreOverrideCursor();
    if (!result.ok) {
        CPrompt::current().MsgBox(result.error, CPrompt::vbExclamation, CPrompt::messageTitle());
        return false;
    }
    CPrompt::current().MsgBox(u"基础资料已经备份到"_s + file + u"\r\n共 "_s
                                  + QString::number(result.rows.value(0).second) + u" 条资料。"_s,
                              CPrompt::vbInformation, CPrompt::messageTitle());
    return true;
}

void frmMain::mnuRestore_Click()
{
    const QString file = FileDialogs::getOpenFileName(this, u"从备份恢复基础资料"_s, QString(),
                                                      u"备份文件 (*.qlbak *.db);;所有文件 (*)"_s);
    if (!file.trimmed().isEmpty()) {
        RestoreFrom(file);
    }
}

bool frmMain::RestoreFrom(const QString &file)
{
    if (!m_connection || !settleChanges()) {
        return false;
    }
    // The file is checked before the question: nobody confirms a restore that cannot happen.
    const MasterBackup::Result check = MasterBackup::inspect(file);
    if (!check.ok) {
        CPrompt::current().MsgBox(check.error, CPrompt::vbExclamation, CPrompt::messageTitle());
        return false;
    }
    // Everything the restore throws away is named, and the safe answer is the default.
    if (CPrompt::current().MsgBox(
            u"恢复会用备份文件 "_s + file + u" 替换数据库中以下各表的全部内容,现在的内容将不再保留:\r\n"_s
                + MasterBackup::replacementLines(*m_connection, check).join(u"\r\n"_s) + u"\r\n您确实要恢复吗?"_s,
            CPrompt::vbYesNo | CPrompt::vbQuestion | CPrompt::vbDefaultButton2, CPrompt::messageTitle())
        != CPrompt::vbYes) {
        return false;
    }
    QApplication::setOverrideCursor(Qt::WaitCursor);
    const MasterBackup::Result result = MasterBackup::restore(*m_connection, file);
    if (result.ok) {
        reloadCollections();
    }
    QApplication::restoreOverrideCursor();
    if (!result.ok) {
        CPrompt::current().MsgBox(result.error, CPrompt::vbExclamation, CPrompt::messageTitle());
        return false;
    }
    CPrompt::current().MsgBox(u"基础资料已经从"_s + file + u"恢复。"_s, CPrompt::vbInformation,
                              CPrompt::messageTitle());
    return true;
}

void frmMain::reloadCollections()
{
    for (const auto &[type, items] : m_collections) {
        if (items) {
            items->Refresh(0);
        }
    }
    const auto goods = collection(itemTypeNumber(ItemType::Goods));
    const auto units = collection(itemTypeNumber(ItemType::Unit));
    const auto goodsTypes = collection(itemTypeNumber(ItemType::GoodsType));
    if (goods && units && goodsTypes) {
        CItems::JoinGoodsNames(*goods, *units, *goodsTypes);
    }
    const auto clients = collection(itemTypeNumber(ItemType::Client));
    const auto clientTypes = collection(itemTypeNumber(ItemType::ClientType));
    if (clients && clientTypes) {
        CItems::JoinClientTypeNames(*clients, *clientTypes);
    }
    showKind(m_kind);
}

void frmMain::mnuHelpAbout_Click()
{
    CPrompt::current().MsgBox(u"Quillon进销存管理系统 - 基础资料管理\r\n版本 "_s + Module1::LibraryVersion(),
                              CPrompt::vbInformation, u"关于"_s);
}

bool frmMain::hostHandles(const char *signal) const
{
    const int index = metaObject()->indexOfSignal(signal);
    return index >= 0 && isSignalConnected(metaObject()->method(index));
}

void frmMain::mnuItemMan_Click()
{
    if (hostHandles("ItemManRequested(int)")) {
        Q_EMIT ItemManRequested(m_kind);
        return;
    }
    if (const auto items = collection(m_kind)) {
        items->ItemsMan(this);
    }
}

void frmMain::mnuViewGoodsInOutList_Click()
{
    ItemTableModel *model = itemModel();
    const QModelIndex current = Flexgd1->currentIndex();
    const CItemPtr goods = model && current.isValid() ? model->itemAt(current.row()) : CItemPtr();
    if (hostHandles("GoodsInOutListRequested(qint32)")) {
        Q_EMIT GoodsInOutListRequested(goods ? goods->F_ID() : 0);
        return;
    }
    CPrompt::current().MsgBox(u"商品进出明细由进销存主程序提供。"_s, CPrompt::vbInformation, CPrompt::messageTitle());
}

void frmMain::mnuFilePrintSetup_Click()
{
    QPrinter printer;
    QPageSetupDialog dialog(&printer, this);
    dialog.exec();
}

void frmMain::mnuHelpDir_Click()
{
    CPrompt::current().MsgBox(u"没有安装帮助文件。"_s, CPrompt::vbInformation, CPrompt::messageTitle());
}

void frmMain::mnuHelpSearchForHelpOn_Click()
{
    mnuHelpDir_Click();
}

void frmMain::mnuModifyPassword_Click()
{
    if (hostHandles("ModifyPasswordRequested()")) {
        Q_EMIT ModifyPasswordRequested();
        return;
    }
    CPrompt::current().MsgBox(u"修改密码由进销存主程序提供。"_s, CPrompt::vbInformation, CPrompt::messageTitle());
}

void frmMain::mnuReLogin_Click()
{
    if (hostHandles("ReLoginRequested()")) {
        Q_EMIT ReLoginRequested();
        return;
    }
    CPrompt::current().MsgBox(u"重新登录由进销存主程序提供。"_s, CPrompt::vbInformation, CPrompt::messageTitle());
}

void frmMain::mnuConnect_Click()
{
    if (!hostHandles("DatabaseChosen(QString,bool)")) {
        CPrompt::current().MsgBox(u"连接数据库由进销存主程序提供。"_s, CPrompt::vbInformation, CPrompt::messageTitle());
        return;
    }
    frmConnect dialog(this);
    if (m_connection) {
        dialog.setUrl(m_connection->url());
    }
    dialog.setSavePassword(m_savePassword);
    if (dialog.exec() != QDialog::Accepted || !settleChanges()) {
        return;
    }
    Q_EMIT DatabaseChosen(dialog.url(), dialog.savePassword());
}

void frmMain::mnuViewStatusBar_Click()
{
    sbStatusBar->setVisible(!sbStatusBar->isVisible());
    mnuViewStatusBar->setChecked(sbStatusBar->isVisible());
    SizeControls(m_splitterX);
}

void frmMain::mnuViewToolbar_Click()
{
    tbToolBar->setVisible(!tbToolBar->isVisible());
    mnuViewToolbar->setChecked(tbToolBar->isVisible());
    SizeControls(m_splitterX);
}

void frmMain::gAllGoods_SomeOneChanged(const CItemPtr &goods)
{
    if (!goods) {
        return;
    }
    if (const auto units = collection(itemTypeNumber(ItemType::Unit))) {
        if (const CItemPtr unit = units->GetItemByID(goods->F_Tag1())) {
            goods->setmUnitName(unit->F_ItemName());
        }
    }
    if (const auto types = collection(itemTypeNumber(ItemType::GoodsType))) {
        if (const CItemPtr type = types->GetItemByID(goods->F_ParentID())) {
            goods->setmTypeName(type->F_ItemName());
        }
    }
    if (m_kind == ItemType::Goods) {
        if (const auto goodsItems = collection(itemTypeNumber(ItemType::Goods))) {
            goodsItems->FillOneGoodsToGrid(Flexgd1, goods);
        }
    }
}
