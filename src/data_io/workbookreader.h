#ifndef QUILLON_WORKBOOKREADER_H
#define QUILLON_WORKBOOKREADER_H

#include "quillon_export.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>
#include <vector>

class WorkbookReaderPrivate;

/**
 * Reads the cells of one sheet of a spreadsheet file row by row, without holding the sheet in memory: Office Open
 * XML workbooks (.xlsx, streamed out of the zip), legacy Excel 97-2003 workbooks (.xls, through FreeXL) and CSV text
 * (UTF-8 with or without byte-order mark, UTF-16 with one, or GB18030, which includes GBK). Every cell comes as the
 * text a clerk sees: numbers in plain decimal notation, cells formatted as dates as "yyyy-MM-dd" (or "yyyy-MM-dd
 * HH:mm:ss"), booleans as 1 and 0, a formula as its last calculated value.
 *
 * Guards against hostile files: a part that inflates beyond its limit or far beyond its packed size, more than
 * 1,048,576 rows or 16,384 columns, and cells longer than 32,767 characters stop the read with an error. Not
 * supported: cell styles beyond date formats, rich-text runs as anything but their text, encrypted workbooks.
 */
class QUILLON_EXPORT WorkbookReader
{
public:
    enum class Format { Unknown, Xlsx, Xls, Csv };

    struct Cell
    {
        int column = 0; // 0-based
        QString text;
        bool formula = false;
    };
    /// The non-empty cells of one row, in column order.
    using Row = std::vector<Cell>;
    /// A merged area, 1-based rows and 0-based columns, inclusive.
    struct Range
    {
        int firstRow = 0;
        int lastRow = 0;
        int firstColumn = 0;
        int lastColumn = 0;
    };
    /// Limits of a read; the defaults are the workbook format's own limits and sizes no real sheet reaches.
    struct Limits
    {
        qint64 maxPartBytes = qint64(1) << 30; // one sheet or the shared strings, unpacked
        qint64 maxPackRatio = 1000; // unpacked / packed size, past 64 MiB
        int maxRows = 1048576;
        int maxColumns = 16384;
        int maxCellChars = 32767;
        // The shared-strings table as held while a sheet is read: two bytes a character and four a string.
        qint64 maxSharedStringBytes = qint64(256) << 20;
    };
    /// Receives each row with a cell (1-based row number); returning false stops the read.
    using RowHandler = std::function<bool(int rowNumber, const Row &cells)>;

    explicit WorkbookReader(const QString &file);
    ~WorkbookReader();
    Q_DISABLE_COPY_MOVE(WorkbookReader)

    void setLimits(const Limits &limits);
    /// Recognises the file by its content (a CSV by its name ending in .csv or .txt) and reads its list of sheets.
    bool open();
    Format format() const;
    /// The sheets in workbook order; a CSV file has one, named after the file.
    QStringList sheetNames() const;
    /// Streams the rows of a sheet (the first when `sheet` is empty). False on an error (see errorString), not when
    /// the handler stopped the read.
    bool readSheet(const QString &sheet, const RowHandler &handler);
    /// The merged areas of the sheet read last (known once the read has ended).
    QList<Range> mergedRanges() const;
    /// The text encoding of a CSV file ("UTF-8", "UTF-16LE", "UTF-16BE", "GB18030"), empty for a workbook.
    QString textEncoding() const;
    QString errorString() const;

    /// "A" for column 0, "AB" for 27.
    static QString columnName(int column);

private:
    std::unique_ptr<WorkbookReaderPrivate> d;
};

#endif
