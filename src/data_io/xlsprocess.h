#ifndef QUILLON_XLSPROCESS_H
#define QUILLON_XLSPROCESS_H

// Internal to the library.

#include <QString>
#include <QStringList>

#include <functional>

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

    explicit XlsProcess(const QString &file);

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
    QString m_error;
};

#endif
