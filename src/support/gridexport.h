#ifndef QUILLON_GRIDEXPORT_H
#define QUILLON_GRIDEXPORT_H

#include "quillon_export.h"

#include <QString>

class QObject;

/**
 * Copies any grid into a new sheet of a spreadsheet workbook through ExcelConnection. The grid is reached through
 * its meta-object (the Rows and Cols properties and an invokable TextMatrix(int, int)), so a widget, a table model
 * or anything else with those members serves; row 0 gives the column names. Failures ask the user through
 * CPrompt: retry, skip the step, or stop keeping what was written. No formats, formulas or cell types: every
 * value is text.
 */
class QUILLON_EXPORT GridExport
{
public:
    /// The driver connection string that names the workbook `sExcelFile`.
    static QString ExcelConnectionString(const QString &sExcelFile);
    /// CREATE TABLE for the grid's header row; repeated headers get their column number, an empty one makes the
    /// statement fail on purpose.
    static QString ExcelCreateTableStatement(QObject *Grid, const QString &sSheetName);
    /// Writes rows 1… of the grid into sheet `sSheetName` of `sExcelFile`; false when the user stopped.
    static bool CopyGridToExcel(QObject *Grid, const QString &sExcelFile, const QString &sSheetName);
};

#endif
