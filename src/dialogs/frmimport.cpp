#include "frmimport.h"

#include "citems.h"
#include "dialogsupport.h"
#include "filedialogs.h"
#include "itemimport.h"
#include "prompt.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDateTime>
#include <QFileDialog>
#include <QFileInfo>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QTableWidget>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace {

constexpr int kPreviewRows = 20;
// The list shows this many refusals; the saved sheet of refused rows has them all.
constexpr int kListedErrors = 5000;

QTableWidget *makeTable(QWidget *parent, const QString &name)
{
    auto *table = new QTableWidget(parent);
    table->setObjectName(name);
    table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    table->setSelectionBehavior(QAbstractItemView::SelectRows);
    table->verticalHeader()->setDefaultSectionSize(table->fontMetrics().height() + 6);
    return table;
}

} // namespace

frmImport::frmImport(CItems *items, CItems *units, CItems *goodsTypes, CItems *clientTypes, QWidget *parent)
    : QDialog(parent)
    , txtFile(new QLineEdit(this))
    , cmdBrowse(new QPushButton(u"浏览(&B)..."_s, this))
    , cmbSheet(new QComboBox(this))
    , chkUpdate(new QCheckBox(u"编号已有的资料用表格中的内容更新(&U)"_s, this))
    , chkCreateMissing(new QCheckBox(u"自动新建找不到的单位和类别(&N)"_s, this))
    , chkSuggestNumbers(new QCheckBox(u"为没有编号的行自动编号(&A)"_s, this))
    , chkSkipBad(new QCheckBox(u"跳过有错误的行,只导入正确的行(&K)"_s, this))
    , grdPreview(makeTable(this, u"grdPreview"_s))
    , grdErrors(makeTable(this, u"grdErrors"_s))
    , lblSummary(new QLabel(this))
    , prgImport(new QProgressBar(this))
    , cmdCheck(new QPushButton(u"检查(&C)"_s, this))
    , cmdImport(new QPushButton(u"导入(&I)"_s, this))
    , cmdClose(new QPushButton(u"关闭"_s, this))
    , m_items(items)
    , m_import(items ? std::make_unique<ItemImport>(*items, units, goodsTypes, clientTypes) : nullptr)
{
    setObjectName(u"frmImport"_s);
    setWindowTitle(u"导入"_s + (items ? items->ItemTypeName() : QString()));
    txtFile->setObjectName(u"txtFile"_s);
    cmbSheet->setObjectName(u"cmbSheet"_s);
    cmdCheck->setObjectName(u"cmdCheck"_s);
    cmdImport->setObjectName(u"cmdImport"_s);
    lblSummary->setWordWrap(true);
    prgImport->setVisible(false);
    grdErrors->setColumnCount(3);
    grdErrors->setHorizontalHeaderLabels({u"行"_s, u"列"_s, u"原因"_s});
    grdErrors->horizontalHeader()->setStretchLastSection(true);

    auto *fileRow = new QHBoxLayout;
    auto *fileLabel = new QLabel(u"文件(&F):"_s, this);
    fileLabel->setBuddy(txtFile);
    auto *sheetLabel = new QLabel(u"表格(&S):"_s, this);
    sheetLabel->setBuddy(cmbSheet);
    fileRow->addWidget(fileLabel);
    fileRow->addWidget(txtFile, 1);
    fileRow->addWidget(cmdBrowse);
    fileRow->addWidget(sheetLabel);
    fileRow->addWidget(cmbSheet);

    auto *options = new QGridLayout;
    options->addWidget(chkUpdate, 0, 0);
    options->addWidget(chkCreateMissing, 0, 1);
    options->addWidget(chkSuggestNumbers, 1, 0);
    options->addWidget(chkSkipBad, 1, 1);

    auto *previewBox = new QGroupBox(u"前 "_s + QString::number(kPreviewRows) + u" 行"_s, this);
    auto *previewLayout = new QVBoxLayout(previewBox);
    previewLayout->addWidget(grdPreview);
    auto *errorBox = new QGroupBox(u"检查结果"_s, this);
    auto *errorLayout = new QVBoxLayout(errorBox);
    errorLayout->addWidget(grdErrors);
    errorLayout->addWidget(lblSummary);

    auto *buttons = new QHBoxLayout;
    buttons->addWidget(prgImport, 1);
    buttons->addWidget(cmdCheck);
    buttons->addWidget(cmdImport);
    buttons->addWidget(cmdClose);

    auto *layout = new QVBoxLayout(this);
    layout->addLayout(fileRow);
    layout->addLayout(options);
    layout->addWidget(previewBox, 1);
    layout->addWidget(errorBox, 1);
    layout->addLayout(buttons);
    resize(820, 620);

    connect(cmdBrowse, &QPushButton::clicked, this, &frmImport::cmdBrowse_Click);
    connect(txtFile, &QLineEdit::editingFinished, this, [this]() {
        if (txtFile->text().trimmed() != m_shownFile) {
            setFile(txtFile->text().trimmed());
        }
    });
    // Enter in the file box shows that file; it is no press of a button.
    DialogSupport::onEnter(txtFile, [this]() { setFile(txtFile->text().trimmed()); });
    connect(cmbSheet, &QComboBox::currentIndexChanged, this, [this]() {
        if (!m_loadingSheets) {
            showPreview();
        }
    });
    connect(cmdCheck, &QPushButton::clicked, this, [this]() { cmdCheck_Click(); });
    connect(cmdImport, &QPushButton::clicked, this, [this]() { cmdImport_Click(); });
    connect(cmdClose, &QPushButton::clicked, this, &QDialog::reject);
    DialogSupport::enterPressesFocusedButton(this);
}

frmImport::~frmImport() = default;

void frmImport::cmdBrowse_Click()
{
    const QString file =
        FileDialogs::getOpenFileName(this, u"选择要导入的文件"_s, QFileInfo(txtFile->text()).path(),
                                     u"Excel 工作簿 (*.xlsx *.xls);;CSV 文件 (*.csv *.txt);;所有文件 (*)"_s);
    if (!file.isEmpty()) {
        setFile(file);
    }
}

void frmImport::setFile(const QString &file)
{
    txtFile->setText(file);
    m_shownFile = file;
    grdErrors->setRowCount(0);
    lblSummary->clear();
    const ItemImport::Preview preview = ItemImport::preview(file, QString(), 0);
    m_loadingSheets = true;
    cmbSheet->clear();
    cmbSheet->addItems(preview.sheets);
    m_loadingSheets = false;
    showPreview();
}

void frmImport::showPreview()
{
    grdPreview->clear();
    grdPreview->setRowCount(0);
    grdPreview->setColumnCount(0);
    const QString file = txtFile->text().trimmed();
    if (file.isEmpty()) {
        return;
    }
    const ItemImport::Preview preview = ItemImport::preview(file, cmbSheet->currentText(), kPreviewRows);
    if (!preview.error.isEmpty()) {
        lblSummary->setText(preview.error);
        return;
    }
    qsizetype columns = preview.headers.size();
    for (const QStringList &row : preview.rows) {
        columns = qMax(columns, row.size());
    }
    grdPreview->setColumnCount(int(columns));
    grdPreview->setHorizontalHeaderLabels(preview.headers);
    grdPreview->setRowCount(int(preview.rows.size()));
    QStringList numbers;
    for (const int number : preview.rowNumbers) {
        numbers.append(QString::number(number)); // as the sheet and the check results number them
    }
    grdPreview->setVerticalHeaderLabels(numbers);
    for (int r = 0; r < preview.rows.size(); ++r) {
        for (int c = 0; c < preview.rows[r].size(); ++c) {
            grdPreview->setItem(r, c, new QTableWidgetItem(preview.rows[r][c]));
        }
    }
    lblSummary->setText(u"标题在第 "_s + QString::number(preview.headerRow) + u" 行"_s);
}

bool frmImport::runImport(bool dryRun)
{
    if (!m_import) {
        return false;
    }
    const QString file = txtFile->text().trimmed();
    if (file.isEmpty()) {
        CPrompt::current().MsgBox(u"请选择要导入的文件。"_s, CPrompt::vbExclamation, CPrompt::messageTitle());
        return false;
    }
    ItemImport::Options options;
    options.sheet = cmbSheet->currentText();
    options.dryRun = dryRun;
    options.update = chkUpdate->isChecked();
    options.createMissing = chkCreateMissing->isChecked();
    options.suggestNumbers = chkSuggestNumbers->isChecked();
    options.skipBad = chkSkipBad->isChecked();

    prgImport->setVisible(true);
    prgImport->setRange(0, 0);
    prgImport->setFormat(dryRun ? u"正在检查…"_s : u"正在导入…"_s);
    cmdCheck->setEnabled(false);
    cmdImport->setEnabled(false);
    QApplication::setOverrideCursor(Qt::WaitCursor);
    m_report = m_import->run(file, options, [this](qint64 rows) {
        prgImport->setFormat(u"已读取 "_s + QString::number(rows) + u" 行"_s);
        prgImport->setTextVisible(true);
        QApplication::processEvents(QEventLoop::ExcludeUserInputEvents);
        return true;
    });
    QApplication::restoreOverrideCursor();
    prgImport->setVisible(false);
    cmdCheck->setEnabled(true);
    cmdImport->setEnabled(true);
    const ItemImport::Report &report = m_report;

    const int shown = int(qMin<qsizetype>(report.errors.size(), kListedErrors));
    grdErrors->setRowCount(shown);
    for (int i = 0; i < shown; ++i) {
        const ItemImport::RowError &e = report.errors[i];
        grdErrors->setItem(i, 0, new QTableWidgetItem(QString::number(e.row)));
        grdErrors->setItem(i, 1, new QTableWidgetItem(e.column));
        grdErrors->setItem(i, 2, new QTableWidgetItem(e.reason));
    }
    QString summary = report.text().trimmed().section(u'\n', -1);
    if (!report.error.isEmpty()) {
        summary = report.error + u"\n"_s + summary;
    }
    if (report.errors.size() > shown) {
        summary += u"\n(列表只显示前 "_s + QString::number(shown) + u" 个错误)"_s;
    }
    lblSummary->setText(summary);

    if (!report.error.isEmpty() && (report.badRows == 0 || !dryRun)) {
        CPrompt::current().MsgBox(report.error, CPrompt::vbExclamation, CPrompt::messageTitle());
        return false;
    }
    if (dryRun || !report.written) {
        return dryRun && report.ok;
    }
    m_imported = true;
    QString done = u"导入完成: 新增 "_s + QString::number(report.added) + u" 条, 更新 "_s
        + QString::number(report.updated) + u" 条。"_s;
    if (report.badRows > 0) {
        done +=
            u"\r\n有错误的 "_s + QString::number(report.badRows) + u" 行没有导入。要把它们连同原因保存到工作簿吗?"_s;
        if (CPrompt::current().MsgBox(done, CPrompt::vbYesNo | CPrompt::vbQuestion, CPrompt::messageTitle())
            == CPrompt::vbYes) {
            // Until the rows are kept or the clerk gives up: a file that cannot take them is asked for again.
            const QFileInfo input(txtFile->text().trimmed());
            for (;;) {
                const QString target =
                    FileDialogs::getSaveFileName(this, u"保存有错误的行"_s, QString(), u"Excel 工作簿 (*.xlsx)"_s,
                                                 nullptr, QFileDialog::DontConfirmOverwrite);
                if (target.isEmpty()) {
                    break;
                }
                QString error;
                if (QFileInfo(target).exists() && QFileInfo(target).canonicalFilePath() == input.canonicalFilePath()) {
                    error = u"有错误的行不能写入正在导入的文件 "_s + input.filePath() + u",请另选一个文件。"_s;
                } else {
                    const QString sheet = u"导入错误"_s + QDateTime::currentDateTime().toString(u"MMddhhmmss"_s);
                    if (m_import->writeRejected(target, sheet, &error)) {
                        break;
                    }
                }
                CPrompt::current().MsgBox(error, CPrompt::vbExclamation, CPrompt::messageTitle());
            }
        }
    } else {
        CPrompt::current().MsgBox(done, CPrompt::vbInformation, CPrompt::messageTitle());
    }
    return true;
}

bool frmImport::cmdCheck_Click()
{
    return runImport(true);
}

bool frmImport::cmdImport_Click()
{
    // Nothing is written before the clerk has seen the checks and agreed.
    runImport(true);
    if (!m_report.error.isEmpty() && m_report.badRows == 0) {
        return false; // the file itself could not be read; runImport said why
    }
    if (m_report.badRows > 0 && !chkSkipBad->isChecked()) {
        CPrompt::current().MsgBox(
            u"有 "_s + QString::number(m_report.badRows)
                + u" 行有错误(见检查结果),没有导入任何数据。\r\n请改正后再导入,或选择跳过有错误的行。"_s,
            CPrompt::vbExclamation, CPrompt::messageTitle());
        return false;
    }
    if (m_report.added == 0 && m_report.updated == 0) {
        CPrompt::current().MsgBox(u"没有可以导入的行。"_s, CPrompt::vbInformation, CPrompt::messageTitle());
        return false;
    }
    QString question = u"确实要导入吗?\r\n新增 "_s + QString::number(m_report.added) + u" 条, 更新 "_s
        + QString::number(m_report.updated) + u" 条"_s;
    if (m_report.badRows > 0) {
        question += u", 跳过有错误的 "_s + QString::number(m_report.badRows) + u" 行"_s;
    }
    int style = CPrompt::vbYesNo | CPrompt::vbQuestion;
    if (m_report.updated > 0) {
        // Updates overwrite what the clerks typed before: said plainly, and not done by a hasty Enter.
        question += u"\r\n更新的 "_s + QString::number(m_report.updated)
            + u" 条已有资料中,表格里有的各列将替换现在的内容,原来的内容不再保留。"_s;
        style |= CPrompt::vbDefaultButton2;
    }
    if (CPrompt::current().MsgBox(question, style, CPrompt::messageTitle()) != CPrompt::vbYes) {
        return false;
    }
    return runImport(false);
}
