#ifndef QUILLON_EXCELCONNECTION_H
#define QUILLON_EXCELCONNECTION_H

#include "quillon_export.h"

#include <QString>
#include <QStringList>

#include <memory>

class ExcelConnectionPrivate;
class ExcelRecordset;

/**
 * A spreadsheet file opened as a database, taking the statements a spreadsheet ODBC driver takes for exporting:
 * "CREATE TABLE sheet (col TEXT, ...)" adds a sheet, and an ExcelRecordset on "Select * From sheet" adds its rows.
 * The file is an Office Open XML workbook (.xlsx); a workbook that exists gets the new sheets added and keeps every
 * other part byte for byte. Rows are streamed to disk as they are added; the workbook is written on Close.
 *
 * Not supported: reading cells, changing or dropping sheets that exist, other statements, legacy binary .xls files
 * (refused, never modified).
 */
class QUILLON_EXPORT ExcelConnection
{
public:
    enum Error {
        NoError = 0,
        ErrNotOpen = 3001,
        ErrOpenFailed = 3002,
        ErrLegacyXls = 3003,
        ErrNotWorkbook = 3004,
        ErrSyntax = 3010,
        ErrSheetExists = 3011,
        ErrBadSheetName = 3012,
        ErrNoSuchSheet = 3013,
        ErrDuplicateColumn = 3014,
        ErrTooLarge = 3020,
        ErrWriteFailed = 3030,
        ErrNoCurrentRow = 3040,
    };

    ExcelConnection();
    ~ExcelConnection();
    Q_DISABLE_COPY_MOVE(ExcelConnection)

    /// "DRIVER={...};...;DBQ=file" (or the file name itself). A missing file becomes a new workbook on Close.
    bool Open(const QString &connectionString);
    /// CREATE TABLE only.
    bool Execute(const QString &sql);
    /// Writes the workbook when sheets were added. The connection is closed afterwards even when writing failed.
    bool Close();
    bool isOpen() const;

    /// Whether a file exists and holds an Office Open XML package (whatever its name ends in).
    static bool holdsWorkbook(const QString &file);

    QString fileName() const;
    /// The sheets of the workbook, the ones added by this connection included.
    QStringList sheetNames() const;
    int errorNumber() const;
    QString errorDescription() const;

private:
    friend class ExcelRecordset;
    std::unique_ptr<ExcelConnectionPrivate> d;
};

/**
 * Adds rows to a sheet created on the same connection: AddNew, setField for each column, Update. Every value is
 * written as a text cell; the sheet's first row holds the column names.
 */
class QUILLON_EXPORT ExcelRecordset
{
public:
    ExcelRecordset();
    ~ExcelRecordset();
    Q_DISABLE_COPY_MOVE(ExcelRecordset)

    /// "Select * From sheet".
    bool Open(const QString &sql, ExcelConnection &connection);
    bool isOpen() const { return m_connection != nullptr; }
    QStringList fieldNames() const { return m_fields; }
    bool AddNew();
    /// Field by its 0-based number.
    bool setField(int index, const QString &value);
    bool Update();
    /// Ends adding rows (a row started and not updated is dropped).
    bool Close();

    int errorNumber() const { return m_error; }
    QString errorDescription() const { return m_description; }

private:
    bool fail(int number, const QString &description);

    ExcelConnection *m_connection = nullptr;
    int m_sheet = -1;
    QStringList m_fields;
    QStringList m_row;
    bool m_editing = false;
    int m_error = 0;
    QString m_description;
};

#endif
