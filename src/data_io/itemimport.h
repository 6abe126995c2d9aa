#ifndef QUILLON_ITEMIMPORT_H
#define QUILLON_ITEMIMPORT_H

#include "quillon_export.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>

class CItems;
class ItemImportPrivate;

/**
 * Imports the items of one kind from a sheet of a workbook (.xlsx, .xls) or a CSV file into T_Item. Columns are
 * found by their header texts — the ones the management window and its export show ("编号", "名称", "单价" …) —
 * or by the T_Item field names ("F_ItemNo" …); the header is the first row within the first twenty that names a
 * known column. Every row is checked as the edit dialogs check it: name (and for goods number) required, number
 * and name unique within the kind and against the database, amounts exact with at most four decimals (totals two),
 * units and goods or client types by name, valid dates, no control characters, bounded lengths. A row without
 * 助记符 gets the pinyin initials of its name.
 *
 * A dry run only reports. A real run writes everything in one transaction, or nothing when a row was refused,
 * unless bad rows are to be skipped; rows whose number exists update that item only when asked to. The collections
 * handed in are reloaded after a write unless the caller does without. Not supported: kinds without a number/name list
 * of their own (options, user rights, the company record), prices per client, stock movements.
 */
class QUILLON_EXPORT ItemImport
{
public:
    struct Options
    {
        QString sheet; // the first sheet when empty
        bool dryRun = false;
        bool update = false; // a row whose number exists updates that item
        bool skipBad = false; // write the good rows and leave the refused ones out
        bool createMissing = false; // units and types named but not found are created
        bool suggestNumbers = false; // rows without a number get the next free one
        bool reloadLists = true; // after a write, the collections handed in are loaded again
    };
    struct RowError
    {
        int row = 0; // the sheet's row number
        QString column; // "C(单位)", empty for the whole row
        QString reason;
    };
    struct Report
    {
        bool ok = false; // nothing refused (or refused rows skipped as asked) and, unless a dry run, written
        QString error; // what stopped the whole import (unreadable file, missing column, database), else empty
        bool written = false;
        qint64 rows = 0; // data rows read
        qint64 added = 0; // rows that add an item (in a dry run: would add)
        qint64 updated = 0;
        qint64 unchanged = 0; // rows equal to the item they would update
        qint64 badRows = 0;
        QList<RowError> errors; // the first kMaxListedErrors refusals, in row order
        QStringList created; // units and types created (or to be created), as "单位 箱"
        QStringList ignoredColumns;
        QString encoding; // the text encoding of a CSV file, as WorkbookReader::textEncoding()
        /// The report as lines of text: the refusals, then the totals.
        QString text() const;
    };
    /// Rows read so far; returning false cancels (nothing is written).
    using Progress = std::function<bool(qint64 rows)>;
    struct Preview
    {
        QString error;
        QStringList sheets;
        int headerRow = 0;
        QStringList headers;
        QList<QStringList> rows;
        QList<int> rowNumbers; // each row's number in the sheet
    };

    static constexpr int kMaxListedErrors = 100000;

    /// `items` is the loaded collection of the kind to import into; `units` and `goodsTypes` are needed for goods,
    /// `clientTypes` for clients (null where the kind does not use them).
    explicit ItemImport(CItems &items, CItems *units = nullptr, CItems *goodsTypes = nullptr,
                        CItems *clientTypes = nullptr);
    ~ItemImport();
    Q_DISABLE_COPY_MOVE(ItemImport)

    /// Whether a kind can be imported.
    static bool canImport(int itemTypeID);
    /// The header row and the first `rows` data rows of a sheet, as texts by column, for a look before importing.
    static Preview preview(const QString &file, const QString &sheet, int rows);

    Report run(const QString &file, const Options &options, const Progress &progress = Progress());
    /// Writes the rows the last run refused, each with its reason in a last column "错误原因", as a new sheet
    /// `sheetName` of the workbook `file` (created when missing). False with `error` set when that fails.
    bool writeRejected(const QString &file, const QString &sheetName, QString *error) const;

private:
    std::unique_ptr<ItemImportPrivate> d;
};

#endif
