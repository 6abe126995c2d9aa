#include "frmconnect.h"

#include "cconnection.h"
#include "dialogsupport.h"
#include "filedialogs.h"
#include "prompt.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QPushButton>
#include <QSpinBox>
#include <QStackedWidget>
#include <QUrl>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace {

constexpr int kDefaultPort = 5432;

QString encoded(const QString &text)
{
    // Everything but the unreserved characters: '@', ':', '/' and spaces in a password or name stay data.
    return QString::fromLatin1(QUrl::toPercentEncoding(text));
}

} // namespace

frmConnect::frmConnect(QWidget *parent)
    : QDialog(parent)
    , cboEngine(new QComboBox(this))
    , stkEngine(new QStackedWidget(this))
    , txtFile(new QLineEdit(this))
    , cmdBrowse(new QPushButton(u"浏览..."_s, this))
    , txtHost(new QLineEdit(this))
    , txtPort(new QSpinBox(this))
    , txtDatabase(new QLineEdit(this))
    , txtUser(new QLineEdit(this))
    , txtPassword(new QLineEdit(this))
    , chkSavePassword(new QCheckBox(u"保存密码"_s, this))
    , cmdTest(new QPushButton(u"测试连接"_s, this))
    , cmdOK(new QPushButton(u"确定"_s, this))
    , cmdCancel(new QPushButton(u"取消"_s, this))
{
    setObjectName(u"frmConnect"_s);
    setWindowTitle(u"连接数据库"_s);
    const std::pair<QWidget *, QString> names[] = {
        {cboEngine, u"cboEngine"_s},     {stkEngine, u"stkEngine"_s},
        {txtFile, u"txtFile"_s},         {cmdBrowse, u"cmdBrowse"_s},
        {txtHost, u"txtHost"_s},         {txtPort, u"txtPort"_s},
        {txtDatabase, u"txtDatabase"_s}, {txtUser, u"txtUser"_s},
        {txtPassword, u"txtPassword"_s}, {chkSavePassword, u"chkSavePassword"_s},
        {cmdTest, u"cmdTest"_s},         {cmdOK, u"cmdOK"_s},
        {cmdCancel, u"cmdCancel"_s},
    };
    for (const auto &[widget, name] : names) {
        widget->setObjectName(name);
    }

    cboEngine->addItem(u"SQLite 数据库文件"_s);
    cboEngine->addItem(u"PostgreSQL 服务器"_s);
    txtPort->setRange(1, 65535);
    txtPort->setValue(kDefaultPort);
    txtPassword->setEchoMode(QLineEdit::Password);
    txtFile->setMinimumWidth(280);

    auto *sqlitePage = new QWidget(stkEngine);
    auto *sqliteForm = new QFormLayout(sqlitePage);
    auto *fileRow = new QHBoxLayout;
    fileRow->addWidget(txtFile, 1);
    fileRow->addWidget(cmdBrowse);
    sqliteForm->addRow(u"文件:"_s, fileRow);
    stkEngine->addWidget(sqlitePage);

    auto *serverPage = new QWidget(stkEngine);
    auto *serverForm = new QFormLayout(serverPage);
    serverForm->addRow(u"服务器:"_s, txtHost);
    serverForm->addRow(u"端口:"_s, txtPort);
    serverForm->addRow(u"数据库:"_s, txtDatabase);
    serverForm->addRow(u"用户:"_s, txtUser);
    serverForm->addRow(u"密码:"_s, txtPassword);
    serverForm->addRow(QString(), chkSavePassword);
    stkEngine->addWidget(serverPage);

    auto *buttons = new QDialogButtonBox(this);
    buttons->addButton(cmdTest, QDialogButtonBox::ActionRole);
    buttons->addButton(cmdOK, QDialogButtonBox::AcceptRole);
    buttons->addButton(cmdCancel, QDialogButtonBox::RejectRole);
    cmdOK->setDefault(true);

    auto *layout = new QVBoxLayout(this);
    auto *engineForm = new QFormLayout;
    engineForm->addRow(u"数据库类型:"_s, cboEngine);
    layout->addLayout(engineForm);
    layout->addWidget(stkEngine);
    layout->addWidget(buttons);

    connect(cboEngine, &QComboBox::currentIndexChanged, stkEngine, &QStackedWidget::setCurrentIndex);
    connect(cmdBrowse, &QPushButton::clicked, this, &frmConnect::cmdBrowse_Click);
    connect(cmdTest, &QPushButton::clicked, this, [this]() { cmdTest_Click(); });
    // The button box would accept on its own; 确定 checks the fields first.
    connect(cmdOK, &QPushButton::clicked, this, &frmConnect::cmdOK_Click);
    connect(cmdCancel, &QPushButton::clicked, this, &QDialog::reject);
    DialogSupport::enterPressesFocusedButton(this);
}

frmConnect::~frmConnect() = default;

void frmConnect::setUrl(const QString &url)
{
    const DatabaseUrl where = DatabaseUrl::parse(url);
    if (where.engine == DatabaseUrl::Engine::SQLite) {
        cboEngine->setCurrentIndex(SQLiteIndex);
        txtFile->setText(QDir::toNativeSeparators(where.databaseName));
        m_readOnlyFile = where.readOnly ? where.databaseName : QString();
    } else if (where.engine == DatabaseUrl::Engine::PostgreSQL) {
        cboEngine->setCurrentIndex(PostgreSQLIndex);
        txtHost->setText(where.host);
        txtPort->setValue(where.port > 0 ? where.port : kDefaultPort);
        txtDatabase->setText(where.databaseName);
        txtUser->setText(where.user);
        txtPassword->setText(where.password);
        m_query = QUrl(url.trimmed()).query(QUrl::FullyEncoded);
    }
}

QString frmConnect::url() const
{
    if (cboEngine->currentIndex() == SQLiteIndex) {
        QString path = QDir::fromNativeSeparators(txtFile->text().trimmed());
        if (!path.isEmpty()) {
            path = QDir::cleanPath(QDir::current().absoluteFilePath(path));
        }
        const bool readOnly = !path.isEmpty() && path == m_readOnlyFile;
        // The parser decodes %XX and ends the path at '?'; other characters (CJK folder names) stay readable.
        path.replace(u"%"_s, u"%25"_s).replace(u"?"_s, u"%3F"_s).replace(u"#"_s, u"%23"_s);
        return u"sqlite://"_s + path + (readOnly ? u"?mode=ro"_s : QString());
    }
    QString text = u"postgresql://"_s;
    const QString user = txtUser->text().trimmed();
    if (!user.isEmpty()) {
        text += encoded(user);
        if (!txtPassword->text().isEmpty()) {
            text += u':' + encoded(txtPassword->text());
        }
        text += u'@';
    }
    const QString host = txtHost->text().trimmed();
    const bool ipv6 = host.contains(u':') && !host.startsWith(u'[');
    text += ipv6 ? u'[' + host + u']' : host;
    text += u':' + QString::number(txtPort->value());
    text += u'/' + encoded(txtDatabase->text().trimmed());
    if (!m_query.isEmpty()) {
        text += u'?' + m_query;
    }
    return text;
}

bool frmConnect::savePassword() const
{
    return chkSavePassword->isChecked();
}

void frmConnect::setSavePassword(bool save)
{
    chkSavePassword->setChecked(save);
}

QString frmConnect::missingField() const
{
    if (cboEngine->currentIndex() == SQLiteIndex) {
        return txtFile->text().trimmed().isEmpty() ? u"请填写数据库文件。"_s : QString();
    }
    if (txtHost->text().trimmed().isEmpty()) {
        return u"请填写服务器。"_s;
    }
    if (txtDatabase->text().trimmed().isEmpty()) {
        return u"请填写数据库。"_s;
    }
    return QString();
}

bool frmConnect::cmdTest_Click()
{
    if (const QString missing = missingField(); !missing.isEmpty()) {
        CPrompt::current().MsgBox(missing, CPrompt::vbExclamation, CPrompt::messageTitle());
        return false;
    }
    QString url = this->url();
    const DatabaseUrl where = DatabaseUrl::parse(url);
    if (where.engine == DatabaseUrl::Engine::Invalid) {
        CPrompt::current().MsgBox(where.error, CPrompt::vbCritical, CPrompt::messageTitle());
        return false;
    }
    if (where.engine == DatabaseUrl::Engine::SQLite) {
        // Opening would create the file; a test leaves the disk as it was.
        const QFileInfo file(where.databaseName);
        if (!file.exists()) {
            if (!file.absoluteDir().exists()) {
                CPrompt::current().MsgBox(u"连接失败:文件夹不存在: "_s + QDir::toNativeSeparators(file.absolutePath()),
                                          CPrompt::vbCritical, CPrompt::messageTitle());
                return false;
            }
            CPrompt::current().MsgBox(u"数据库文件还不存在,确定后将新建: "_s
                                          + QDir::toNativeSeparators(file.absoluteFilePath()),
                                      CPrompt::vbInformation, CPrompt::messageTitle());
            return true;
        }
    } else if (!m_query.contains(u"connect_timeout="_s)) {
        // An unreachable server should not hold the dialog for libpq's default of minutes.
        url += (m_query.isEmpty() ? u"?"_s : u"&"_s) + u"connect_timeout=5"_s;
    }
    QString error;
    std::shared_ptr<CConnection> connection;
    {
        QApplication::setOverrideCursor(Qt::WaitCursor);
        connection = CConnection::Open(url, &error);
        QApplication::restoreOverrideCursor();
    }
    if (!connection) {
        CPrompt::current().MsgBox(u"连接失败:\n"_s + error, CPrompt::vbCritical, CPrompt::messageTitle());
        return false;
    }
    connection.reset();
    CPrompt::current().MsgBox(u"连接成功。"_s, CPrompt::vbInformation, CPrompt::messageTitle());
    return true;
}

void frmConnect::cmdBrowse_Click()
{
    const QString chosen = FileDialogs::getSaveFileName(this, u"数据库文件"_s, txtFile->text(),
                                                        u"SQLite 数据库 (*.db *.sqlite);;所有文件 (*)"_s, nullptr,
                                                        QFileDialog::DontConfirmOverwrite);
    if (!chosen.isEmpty()) {
        txtFile->setText(QDir::toNativeSeparators(chosen));
    }
}

void frmConnect::cmdOK_Click()
{
    if (const QString missing = missingField(); !missing.isEmpty()) {
        CPrompt::current().MsgBox(missing, CPrompt::vbExclamation, CPrompt::messageTitle());
        return;
    }
    const DatabaseUrl where = DatabaseUrl::parse(url());
    if (where.engine == DatabaseUrl::Engine::Invalid) {
        CPrompt::current().MsgBox(where.error, CPrompt::vbCritical, CPrompt::messageTitle());
        return;
    }
    accept();
}
