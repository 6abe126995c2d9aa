#ifndef QUILLON_FRMIMPORT_H
#define QUILLON_FRMIMPORT_H

#include "itemimport.h"
#include "quillon_export.h"

#include <QDialog>

#include <memory>

class CItems;
class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QProgressBar;
class QPushButton;
class QTableWidget;

/**
 * The import window of one kind: a workbook or CSV file and its sheet, a look at the first rows, the checks of
 * every row (a dry run) listed with row, column and reason before anything is written, then the import with a
 * progress bar. Refused rows can be left out and saved with their reasons as a new sheet. Not supported: choosing
 * columns by hand (they are found by their headers).
 */
class QUILLON_EXPORT frmImport : public QDialog
{
    Q_OBJECT

public:
    /// `items` is the kind's collection; the other lists as ItemImport wants them.
    explicit frmImport(CItems *items, CItems *units, CItems *goodsTypes, CItems *clientTypes,
                       QWidget *parent = nullptr);
    ~frmImport() override;
    Q_DISABLE_COPY_MOVE(frmImport)

    QLineEdit *const txtFile;
    QPushButton *const cmdBrowse;
    QComboBox *const cmbSheet;
    QCheckBox *const chkUpdate;
    QCheckBox *const chkCreateMissing;
    QCheckBox *const chkSuggestNumbers;
    QCheckBox *const chkSkipBad;
    QTableWidget *const grdPreview;
    QTableWidget *const grdErrors;
    QLabel *const lblSummary;
    QProgressBar *const prgImport;
    QPushButton *const cmdCheck;
    QPushButton *const cmdImport;
    QPushButton *const cmdClose;

    /// Takes a file as if it had been chosen: reads its sheets and shows the first rows.
    void setFile(const QString &file);
    /// The dry run; true when no row was refused.
    bool cmdCheck_Click();
    /// Checks, asks, imports; true when something was written.
    bool cmdImport_Click();
    /// Whether anything was written since the dialog was made.
    bool imported() const { return m_imported; }

private:
    void cmdBrowse_Click();
    void showPreview();
    bool runImport(bool dryRun);

    CItems *m_items;
    std::unique_ptr<ItemImport> m_import;
    ItemImport::Report m_report; // of the last check or import
    bool m_loadingSheets = false;
    bool m_imported = false;
    QString m_shownFile; // the file the preview was read from
};

#endif
