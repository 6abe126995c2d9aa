#ifndef QUILLON_FRMCONNECT_H
#define QUILLON_FRMCONNECT_H

#include "quillon_export.h"

#include <QDialog>

class QCheckBox;
class QComboBox;
class QLineEdit;
class QPushButton;
class QSpinBox;
class QStackedWidget;

/**
 * The choice of the database to work on: an SQLite file or a PostgreSQL server with its database, user and
 * password, a connection test, and the database URL built from the fields. It opens nothing for good and keeps no
 * settings; connection options other than the fields (sslmode ...) are kept from the URL it was filled from.
 */
class QUILLON_EXPORT frmConnect : public QDialog
{
    Q_OBJECT

public:
    /// Positions of the engines in cboEngine.
    enum EngineIndex { SQLiteIndex = 0, PostgreSQLIndex = 1 };

    explicit frmConnect(QWidget *parent = nullptr);
    ~frmConnect() override;
    Q_DISABLE_COPY_MOVE(frmConnect)

    QComboBox *const cboEngine;
    QStackedWidget *const stkEngine;
    QLineEdit *const txtFile;
    QPushButton *const cmdBrowse;
    QLineEdit *const txtHost;
    QSpinBox *const txtPort;
    QLineEdit *const txtDatabase;
    QLineEdit *const txtUser;
    QLineEdit *const txtPassword;
    QCheckBox *const chkSavePassword;
    QPushButton *const cmdTest;
    QPushButton *const cmdOK;
    QPushButton *const cmdCancel;

    /// Fills the fields from a database URL (the password too); an unreadable URL leaves them as they are.
    void setUrl(const QString &url);
    /// The URL of the fields, password included, with user, password, database and path percent-encoded.
    QString url() const;
    /// Whether the clerk wants the password kept with the remembered database.
    bool savePassword() const;
    void setSavePassword(bool save);

    /// 测试连接: opens the database of the fields and closes it again, and tells the outcome. A missing SQLite file
    /// is not created (the clerk is told it will be); a missing folder is an error.
    bool cmdTest_Click();
    /// 浏览…: picks the SQLite file.
    void cmdBrowse_Click();
    /// 确定: accepts when the fields name a database, else says what is missing.
    void cmdOK_Click();

private:
    // What the fields lack for a URL, or empty.
    QString missingField() const;

    // The query ("sslmode=require ...") of the PostgreSQL URL the fields were filled from.
    QString m_query;
    // The SQLite file the dialog was filled with when that URL opened it read-only; another file opens writable.
    QString m_readOnlyFile;
};

#endif
