// libFuzzer target: arbitrary bytes as a workbook to import from (the first byte picks .xlsx, .csv or .xls as the
// file's name). Reading either fails with a reason or delivers rows in order, each cell within the sheet limits.
// Legacy .xls is read by FreeXL in a child process: whatever it does to a damaged file, this process goes on.
#include "workbookreader.h"

#include <QDir>
#include <QFile>
#include <QString>

#include <cstdint>
#include <cstdlib>
#include <unistd.h>

using namespace Qt::StringLiterals;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    if (size < 1) {
        return 0;
    }
    static const QString folder = [] {
        const QString path = QDir::tempPath() + u"/quillon-fuzz-reader-"_s + QString::number(::getpid());
        QDir().mkpath(path);
        return path;
    }();
    static const QString names[] = {u"/book.xlsx"_s, u"/book.csv"_s, u"/book.xls"_s};
    const QString file = folder + names[data[0] % 3];
    {
        QFile out(file);
        if (!out.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
            std::abort();
        }
        out.write(reinterpret_cast<const char *>(data + 1), qint64(size - 1));
    }
    WorkbookReader reader(file);
    WorkbookReader::Limits limits;
    limits.maxPartBytes = 64 << 20;
    limits.maxRows = 100000;
    limits.maxColumns = 1000;
    reader.setLimits(limits);
    if (!reader.open()) {
        if (reader.errorString().isEmpty()) {
            std::abort();
        }
        return 0;
    }
    for (const QString &sheet : reader.sheetNames()) {
        int lastRow = 0;
        const bool read = reader.readSheet(sheet, [&](int rowNumber, const WorkbookReader::Row &cells) {
            if (rowNumber <= lastRow || rowNumber > limits.maxRows) {
                std::abort();
            }
            lastRow = rowNumber;
            int lastColumn = -1;
            for (const WorkbookReader::Cell &cell : cells) {
                if (cell.column <= lastColumn || cell.column >= limits.maxColumns
                    || cell.text.size() > limits.maxCellChars) {
                    std::abort();
                }
                lastColumn = cell.column;
            }
            return true;
        });
        if (!read && reader.errorString().isEmpty()) {
            std::abort();
        }
    }
    return 0;
}
