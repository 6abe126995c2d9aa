#include "gridexport.h"

#include "excelconnection.h"
#include "prompt.h"

#include <QMetaMethod>
#include <QVariant>

using namespace Qt::StringLiterals;

namespace {

// Reads cells through the grid's meta-object, the method looked up once.
class GridCells
{
public:
    explicit GridCells(QObject *grid)
        : m_grid(grid)
    {
        if (!grid) {
            return;
        }
        const QMetaObject *meta = grid->metaObject();
        const int index = meta->indexOfMethod(QMetaObject::normalizedSignature("TextMatrix(int,int)"));
        if (index >= 0 && meta->method(index).returnType() == QMetaType::QString) {
            m_index = index;
        }
    }
    bool isValid() const { return m_grid && m_index >= 0; }
    qint32 rows() const { return m_grid ? m_grid->property("Rows").toInt() : 0; }
    qint32 cols() const { return m_grid ? m_grid->property("Cols").toInt() : 0; }
    QString text(qint32 row, qint32 col) const
    {
        QString value;
        if (isValid()) {
            // The signature was checked once above; the call itself goes straight to the method.
            void *args[] = {&value, &row, &col};
            QMetaObject::metacall(m_grid, QMetaObject::InvokeMetaMethod, m_index, args);
        }
        return value;
    }

private:
    QObject *m_grid;
    int m_index = -1;
};

enum class Outcome { Done, Skipped, Stopped };

// Runs one step; on failure asks the user: Yes retries the step, No skips it, Cancel stops the export.
template<typename Step>
Outcome runStep(Step &&step)
{
    for (;;) {
        int number = 0;
        QString description;
        if (step(number, description)) {
            return Outcome::Done;
        }
        const QString text = u"导出数据到Excel文件时发生错误\r\n错误 "_s + QString::number(number) + u": "_s
            + description + u"\r\n要重试一下吗?"_s;
        const int answer =
            CPrompt::current().MsgBox(text, CPrompt::vbYesNoCancel | CPrompt::vbQuestion, CPrompt::messageTitle());
        if (answer == CPrompt::vbYes) {
            continue;
        }
        return answer == CPrompt::vbNo ? Outcome::Skipped : Outcome::Stopped;
    }
}

} // namespace

QString GridExport::ExcelConnectionString(const QString &sExcelFile)
{
    return u"DRIVER={"_s + u"MICROSOFT EXCEL DRIVER (*.XLS)"_s
        + u"};DSN='';FIRSTROWHASNAMES=1;READONLY=FALSE;CREATE_DB="_s + sExcelFile + u";DBQ="_s + sExcelFile;
}

QString GridExport::ExcelCreateTableStatement(QObject *Grid, const QString &sSheetName)
{
    const GridCells grid(Grid);
    QString sql = u"CREATE TABLE "_s + sSheetName + u" ("_s;
    const qint32 cols = grid.cols();
    QStringList headers;
    for (qint32 c = 0; c < cols; ++c) {
        headers.append(grid.text(0, c).trimmed());
    }
    for (qint32 c = 0; c < cols; ++c) {
        const QString &h = headers.at(c);
        if (h.isEmpty()) {
            // The apostrophe is deliberate: such a statement is refused, which takes the error path.
            sql += u"列"_s + QString::number(c) + u" TEXT"_s + u"'"_s;
        } else if (headers.mid(0, c).contains(h)) {
            sql += h + QString::number(c) + u" TEXT"_s + u","_s;
        } else {
            sql += h + u" TEXT"_s + u","_s;
        }
    }
    if (sql.endsWith(u',')) {
        sql.chop(1);
    }
    return sql + u")"_s;
}

bool GridExport::CopyGridToExcel(QObject *Grid, const QString &sExcelFile, const QString &sSheetName)
{
    const GridCells grid(Grid);
    ExcelConnection cn;
    ExcelRecordset rs;
    auto onConnection = [&cn](auto &&operation) {
        return [&cn, operation](int &number, QString &description) {
            if (operation()) {
                return true;
            }
            number = cn.errorNumber();
            description = cn.errorDescription();
            return false;
        };
    };
    auto onRecordset = [&rs](auto &&operation) {
        return [&rs, operation](int &number, QString &description) {
            if (operation()) {
                return true;
            }
            number = rs.errorNumber();
            description = rs.errorDescription();
            return false;
        };
    };
    // Stopping keeps what was written: the rows so far are saved into the workbook.
    auto stop = [&]() {
        rs.Close();
        if (cn.isOpen()) {
            cn.Close();
        }
        return false;
    };

    if (runStep(onConnection([&]() { return cn.Open(ExcelConnectionString(sExcelFile)); })) == Outcome::Stopped) {
        return stop();
    }
    if (runStep([&](int &number, QString &description) {
            if (!grid.isValid()) {
                number = ExcelConnection::ErrSyntax;
                description = u"表格控件没有 TextMatrix、Rows 和 Cols"_s;
                return false;
            }
            if (cn.Execute(ExcelCreateTableStatement(Grid, sSheetName))) {
                return true;
            }
            number = cn.errorNumber();
            description = cn.errorDescription();
            return false;
        })
        == Outcome::Stopped) {
        return stop();
    }
    if (runStep(onRecordset([&]() { return rs.Open(u"Select * From "_s + sSheetName, cn); })) == Outcome::Stopped) {
        return stop();
    }
    const qint32 rows = grid.rows();
    const qint32 cols = grid.cols();
    for (qint32 r = 1; r < rows; ++r) {
        if (runStep(onRecordset([&]() { return rs.AddNew(); })) == Outcome::Stopped) {
            return stop();
        }
        for (qint32 c = 0; c < cols; ++c) {
            const QString text = grid.text(r, c).trimmed();
            if (runStep(onRecordset([&]() { return rs.setField(c, text); })) == Outcome::Stopped) {
                return stop();
            }
        }
        if (runStep(onRecordset([&]() { return rs.Update(); })) == Outcome::Stopped) {
            return stop();
        }
    }
    rs.Close();
    if (runStep(onConnection([&]() { return cn.Close(); })) == Outcome::Stopped) {
        return false;
    }
    return true;
}
