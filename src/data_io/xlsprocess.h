#ifndef QUILLON_XLSPROCESS_H
#define QUILLON_XLSPROCESS_H

// Internal to the library.

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

#include <functional>
#include <map>
#include <vector>

/**
 * Reads a legacy .xls workbook with FreeXL in a child process, so that a damaged or hostile file can at worst take
 * the child down (its reading of such files is not safe); the program then hears that the file cannot be read. It
 * gives sheet names and cell values, not formats or merged areas.
 */
class XlsProcess
{
public:
    /// One non-empty cell: 0-based row and column, its text as the import reads it.
    using CellHandler = std::function<bool(unsigned row, int column, QString &&text)>;

    /// Reads `file`; messages name `shownAs` (the user's file when `file` is a private copy of it).
    explicit XlsProcess(const QString &file, const QString &shownAs = QString());

    /// What the compound file's directory and the workbook's first records tell before FreeXL reads it.
    struct Layout
    {
        bool encryptedPackage = false; // an .xlsx locked with a password (EncryptionInfo beside the package)
        bool encryptedWorkbook = false; // a .xls whose workbook stream is encrypted (FILEPASS after its BOF)
        bool excel95 = false; // the workbook opens with an Excel 5.0/95 (BIFF5/7) BOF
        // Where the workbook stream's name is spelt otherwise than FreeXL looks for it ("WORKBOOK", "book"):
        // the byte offsets of those names in the file.
        QList<qsizetype> oddlyNamedWorkbook;
    };
    /// The refusal of a workbook locked with a password.
    static QString passwordProtected(const QString &file);
    static Layout inspect(const QByteArray &bytes);
    /// `bytes` with every odd spelling of the workbook stream's name written the way FreeXL looks for it.
    static QByteArray withPlainNames(QByteArray bytes, const Layout &layout);
    /// Formula results by row and column (0-based), as the import reads them.
    using FormulaCells = std::map<quint32, std::map<int, QString>>;
    /// The last results of the formulas of each sheet, in workbook order (a chart sheet has none).
    static std::vector<FormulaCells> formulaValues(const QByteArray &bytes);
    /// `bytes` with the records of every chart (a chart sheet's or one drawn in a sheet) made unknown to FreeXL;
    /// `changed` tells whether there was one.
    static QByteArray withoutCharts(QByteArray bytes, bool *changed);

    /// The workbook's sheet names, in order; false with errorString() when it cannot be read.
    bool sheetNames(QStringList *names);
    /// The sheet's size, then its non-empty cells in row order; `cells` returning false stops the read (not an
    /// error). False with errorString() when the sheet cannot be read.
    bool readSheet(int index, const QString &name, const std::function<bool(unsigned rows, int columns)> &size,
                   const CellHandler &cells);
    QString errorString() const { return m_error; }

private:
    bool run(const std::function<void(int fd)> &work,
             const std::function<bool(char kind, const QByteArray &body)> &take);

    QString m_file;
    QString m_shownAs;
    QString m_error;
};

#endif
