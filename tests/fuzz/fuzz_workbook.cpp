// libFuzzer target: arbitrary bytes as an existing workbook that a sheet is added to. Opening either refuses the
// file with a reason or accepts it; an accepted workbook takes the new sheet and can be opened again with it.
#include "excelconnection.h"

#include <QDir>
#include <QFile>
#include <QString>

#include <cstdint>
#include <cstdlib>
#include <unistd.h>

using namespace Qt::StringLiterals;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static const QString folder = [] {
        const QString path = QDir::tempPath() + u"/quillon-fuzz-workbook-"_s + QString::number(::getpid());
        QDir().mkpath(path);
        return path;
    }();
    const QString file = folder + u"/book.xlsx"_s;
    {
        QFile out(file);
        if (!out.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
            std::abort();
        }
        out.write(reinterpret_cast<const char *>(data), qint64(size));
    }
    ExcelConnection connection;
    if (!connection.Open(u"DBQ="_s + file)) {
        if (connection.errorDescription().isEmpty()) {
            std::abort();
        }
        return 0;
    }
    const QString sheet = u"新表"_s + QString::number(connection.sheetNames().size());
    if (connection.sheetNames().contains(sheet)) {
        return 0;
    }
    if (!connection.Execute(u"CREATE TABLE "_s + sheet + u" (编号 TEXT,名称 TEXT)"_s) || !connection.Close()) {
        return 0; // refused while writing: the reason was given, the file kept
    }
    ExcelConnection again;
    if (!again.Open(u"DBQ="_s + file) || !again.sheetNames().contains(sheet)) {
        std::abort();
    }
    return 0;
}
