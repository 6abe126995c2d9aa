#include "itemimport.h"
#include "sqlitehandle.h"

#include "cconnection.h"
#include "changefeed.h"
#include "changelog.h"
#include "citem.h"
#include "citems.h"
#include "crecordset.h"
#include "cspell.h"
#include "excelconnection.h"
#include "itemtablemodel.h"
#include "itemtype.h"
#include "keyid.h"
#include "module1core.h"
#include "workbookreader.h"

#include <QDate>
#include <QHash>
#include <QRegularExpression>
#include <QSet>
#include <QSqlDriver>
#include <QSqlError>
#include <QSqlQuery>

#include <sqlite3.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

constexpr int kHeaderSearchRows = 20;
constexpr int kBatchRows = 100;
constexpr int kProgressEvery = 4096;
constexpr int kRebuildIndexesFrom = 10000;
constexpr qsizetype kMaxNumberChars = 50;
constexpr qsizetype kMaxTextChars = 255;
constexpr qsizetype kMaxLongTextChars = 2000;

enum class Target { Column, UnitName, TypeName };

struct Mapping
{
    int sheetColumn = 0;
    Target target = Target::Column;
    int itemColumn = -1;
    QString header;
};

// The T_Item column each grid field shows.
QString fieldColumn(ItemTableModel::Field field)
{
    switch (field) {
    case ItemTableModel::ItemNo:
        return u"F_ItemNo"_s;
    case ItemTableModel::ItemName:
        return u"F_ItemName"_s;
    case ItemTableModel::Standard:
        return u"F_Standard"_s;
    case ItemTableModel::PriceEnterPack:
        return u"F_Price1"_s;
    case ItemTableModel::PriceEnter:
        return u"F_Price2"_s;
    case ItemTableModel::PriceSalePack:
        return u"F_Price3"_s;
    case ItemTableModel::PriceSale:
        return u"F_Price4"_s;
    case ItemTableModel::PackageAmount:
        return u"F_PackageAmount"_s;
    case ItemTableModel::LimitUp:
        return u"F_LimitUp"_s;
    case ItemTableModel::LimitDown:
        return u"F_LimitDown"_s;
    case ItemTableModel::Spell:
        return u"F_Spell"_s;
    case ItemTableModel::Remark:
        return u"F_Remark"_s;
    case ItemTableModel::LinkMen:
        return u"F_LinkMen"_s;
    case ItemTableModel::Tel1:
        return u"F_Tel1"_s;
    case ItemTableModel::Tel2:
        return u"F_Tel2"_s;
    case ItemTableModel::Tel3:
        return u"F_Tel3"_s;
    case ItemTableModel::Address:
        return u"F_Address"_s;
    case ItemTableModel::PostCode:
        return u"F_PostCode"_s;
    case ItemTableModel::Bank:
        return u"F_Bank"_s;
    case ItemTableModel::BankAccount:
        return u"F_BankAccount"_s;
    case ItemTableModel::ArtificialPerson:
        return u"F_ArtificialPerson"_s;
    case ItemTableModel::IRDNumber:
        return u"F_IRDNumber"_s;
    case ItemTableModel::OweWarring:
        return u"F_OweWarring"_s;
    case ItemTableModel::OweStop:
        return u"F_OweStop"_s;
    case ItemTableModel::UnitName:
    case ItemTableModel::TypeName:
        break;
    }
    return QString();
}

// What a header text names: a T_Item column, the unit name or the type name; nothing for other texts.
std::optional<Mapping> targetOf(const QString &header)
{
    static const QHash<QString, Mapping> byTitle = [] {
        QHash<QString, Mapping> map;
        for (int f = ItemTableModel::ItemNo; f <= ItemTableModel::OweStop; ++f) {
            const auto field = ItemTableModel::Field(f);
            Mapping m;
            if (field == ItemTableModel::UnitName) {
                m.target = Target::UnitName;
            } else if (field == ItemTableModel::TypeName) {
                m.target = Target::TypeName;
            } else {
                m.itemColumn = CItem::columnIndex(fieldColumn(field));
            }
            map.insert(ItemTableModel::fieldTitle(field), m);
        }
        Mapping type;
        type.target = Target::TypeName;
        map.insert(u"商品类别"_s, type);
        map.insert(u"客户类别"_s, type);
        map.insert(u"mTypeName"_s.toLower(), type);
        Mapping unit;
        unit.target = Target::UnitName;
        map.insert(u"mUnitName"_s.toLower(), unit);
        const std::pair<const char16_t *, const char16_t *> properties[] = {
            {u"f_priceenterpack", u"F_Price1"},
            {u"f_priceenter", u"F_Price2"},
            {u"f_pricesalepack", u"F_Price3"},
            {u"f_pricesale", u"F_Price4"},
        };
        for (const auto &[property, column] : properties) {
            Mapping m;
            m.itemColumn = CItem::columnIndex(QString::fromUtf16(column));
            map.insert(QString::fromUtf16(property), m);
        }
        return map;
    }();
    const QString text = header.trimmed();
    if (const auto it = byTitle.constFind(text); it != byTitle.constEnd()) {
        return *it;
    }
    if (const auto it = byTitle.constFind(text.toLower()); it != byTitle.constEnd()) {
        return *it;
    }
    const int column = CItem::columnIndex(text);
    if (column >= 0) {
        Mapping m;
        m.itemColumn = column;
        return m;
    }
    return std::nullopt;
}

// Whether a T_Item column is one that the management window shows for goods or clients but not for `type`.
bool belongsToOtherKinds(int itemColumn, int type)
{
    auto columnsOf = [](const QList<ItemTableModel::Field> &fields) {
        QSet<int> columns;
        for (const ItemTableModel::Field field : fields) {
            const QString name = fieldColumn(field);
            if (!name.isEmpty()) {
                columns.insert(CItem::columnIndex(name));
            }
        }
        return columns;
    };
    static const QSet<int> clientOwn = columnsOf(ItemTableModel::fieldsForType(itemTypeNumber(ItemType::Client)))
        + columnsOf({ItemTableModel::Tel3, ItemTableModel::ArtificialPerson, ItemTableModel::IRDNumber});
    static const QSet<int> goodsOwn = columnsOf(ItemTableModel::fieldsForType(itemTypeNumber(ItemType::Goods)));
    const QSet<int> own = type == ItemType::Client ? clientOwn
        : type == ItemType::Goods                  ? goodsOwn
                                                   : columnsOf(ItemTableModel::fieldsForType(type));
    return (clientOwn.contains(itemColumn) || goodsOwn.contains(itemColumn)) && !own.contains(itemColumn);
}

bool isLongText(const QString &column)
{
    return column == u"F_Remark"_s || column == u"F_Address"_s || column == u"F_Standard"_s;
}

bool isTrimmed(const QString &column)
{
    return column == u"F_ItemNo"_s || column == u"F_ItemName"_s || column == u"F_Spell"_s
        || column.startsWith(u"F_Tel"_s) || column == u"F_PostCode"_s || column == u"F_BankAccount"_s
        || column == u"F_IRDNumber"_s;
}

bool isTotal(const QString &column)
{
    return column == u"F_OweWarring"_s || column == u"F_OweStop"_s;
}

// Characters that have no place in master data; tabs and line breaks only in the free-text columns.
bool hasControlCharacter(const QString &text, bool allowLineBreaks)
{
    for (qsizetype i = 0; i < text.size(); ++i) {
        const char16_t c = text[i].unicode();
        if (c < 0x20) {
            if (allowLineBreaks && (c == u'\t' || c == u'\n' || c == u'\r')) {
                continue;
            }
            return true;
        }
        if (c == 0x7F || c == 0xFFFE || c == 0xFFFF || (c >= 0x80 && c < 0xA0)) {
            return true;
        }
        if (QChar::isHighSurrogate(c)) {
            if (i + 1 >= text.size() || !QChar::isLowSurrogate(text[i + 1].unicode())) {
                return true;
            }
            ++i;
        } else if (QChar::isLowSurrogate(c)) {
            return true;
        }
    }
    return false;
}

// Full-width digits, signs, point, comma and parentheses, as a Chinese input method types them, read as their
// ASCII forms; the full-width yuan sign stays, being a currency sign of its own.
QString asciiForms(const QString &text)
{
    QString out = text;
    for (QChar &c : out) {
        const char16_t u = c.unicode();
        if (u == 0x3000) {
            c = u' ';
        } else if (u >= 0xFF01 && u <= 0xFF5E) {
            c = QChar(char16_t(u - 0xFF01 + 0x21));
        }
    }
    return out;
}

// An amount in any form the grid's numeric test accepts ("1,234.50", "¥12", "￥12.00", "(3.50)", "12-", "1.5E3"),
// read exactly, its value allowed no more than `maxDecimals` decimals.
std::optional<Currency> parseAmount(const QString &text, int maxDecimals, QString *reason)
{
    const QString t = text.trimmed();
    if (t.isEmpty()) {
        return Currency();
    }
    const QString ascii = asciiForms(t);
    if (!Module1::NumericValue(ascii)) {
        *reason = u"[" + t + u"] 不是正确的金额"_s;
        return std::nullopt;
    }
    // What the numeric test allows around the number: parentheses or a sign for a negative one, a currency sign,
    // blanks and thousands separators; the rest is the number itself.
    QStringView n = QStringView(ascii).trimmed();
    bool negative = false;
    if (n.size() > 1 && n.front() == u'(' && n.back() == u')') {
        negative = true;
        n = n.mid(1, n.size() - 2).trimmed();
    }
    auto outer = [](QChar c) {
        return c == u'+' || c == u'-' || c == u'$' || c == u'¥' || c == u'￥';
    };
    while (!n.isEmpty() && !n.startsWith(u"&") && outer(n.front())) {
        negative = negative || n.front() == u'-';
        n = n.mid(1).trimmed();
    }
    while (!n.isEmpty() && outer(n.back())) {
        negative = negative || n.back() == u'-';
        n = n.chopped(1).trimmed();
    }
    const QString plain = Currency::valText(n.toString().remove(u','));
    qsizetype significant = plain.size();
    while (plain.contains(u'.') && significant > 0 && plain[significant - 1] == u'0') {
        --significant;
    }
    const qsizetype point = plain.indexOf(u'.');
    if (point >= 0 && significant - point - 1 > maxDecimals) {
        *reason = u"[" + t + u"] 的小数超过 "_s + QString::number(maxDecimals) + u" 位"_s;
        return std::nullopt;
    }
    const std::optional<Currency> value = Currency::fromString(negative ? u"-"_s + plain : plain);
    if (!value) {
        *reason = u"[" + t + u"] 超出金额的范围"_s;
    }
    return value;
}

std::optional<QDateTime> parseDate(const QString &text)
{
    const QString t = text.trimmed();
    if (t.isEmpty()) {
        return QDateTime();
    }
    static const char16_t *const dateFormats[] = {u"yyyy-M-d", u"yyyy/M/d", u"yyyy.M.d", u"yyyyMMdd"};
    static const char16_t *const timeFormats[] = {u"", u" H:mm:ss", u" H:mm", u"'T'H:mm:ss"};
    for (const char16_t *date : dateFormats) {
        for (const char16_t *time : timeFormats) {
            const QString format = QString::fromUtf16(date) + QString::fromUtf16(time);
            const QDateTime value = QDateTime::fromString(t, format);
            if (value.isValid() && value.date().year() >= 1900 && value.date().year() <= 9999) {
                return QDateTime(value.date(), value.time(), Qt::UTC);
            }
        }
    }
    return std::nullopt;
}

// The number after `number` in its own style: the trailing counter one up, zero-padded to its width.
QString incremented(const QString &number)
{
    qsizetype start = number.size();
    while (start > 0 && number[start - 1].isDigit() && number[start - 1].unicode() < 128) {
        --start;
    }
    const QString prefix = number.left(start);
    const QString digits = number.mid(start);
    if (digits.isEmpty()) {
        return number + u"1"_s;
    }
    const qint64 next = digits.toLongLong() + 1;
    return prefix + QString::number(next).rightJustified(digits.size(), u'0');
}

struct Pending
{
    int row = 0;
    CItemPtr item;
    qint32 existingID = 0; // the item a row updates
    quint64 readHash = 0; // the fingerprint of that item as the import read it (0: not read, a late duplicate)
    quint64 writeMask = 0; // the columns an update writes, by index
    bool dropped = false; // refused under the write lock
    QString unitName; // to be created, resolved when written
    QString typeName;
    bool needsNumber = false;
};

struct Rejected
{
    int row = 0;
    QStringList cells;
    QString reason;
};

// Rows into T_Item through SQLite's own statement interface, inside the connection's open transaction: binding
// values through the driver costs more than the insert itself.
class SqliteItemInsert
{
public:
    SqliteItemInsert(sqlite3 *db, const QStringList &columns)
        : m_db(db)
    {
        const QByteArray sql = (u"INSERT INTO T_Item ("_s + columns.join(u',') + u") VALUES ("_s
                                + QString(u",?"_s).repeated(int(columns.size())).mid(1) + u")"_s)
                                   .toUtf8();
        if (sqlite3_prepare_v2(db, sql.constData(), int(sql.size()), &m_statement, nullptr) != SQLITE_OK) {
            throw DbError(u"写入 T_Item 失败: "_s + QString::fromUtf8(sqlite3_errmsg(db)));
        }
    }
    ~SqliteItemInsert() { sqlite3_finalize(m_statement); }
    Q_DISABLE_COPY_MOVE(SqliteItemInsert)

    void add(const CItem &item)
    {
        const auto columns = CItem::columns();
        for (int c = 0; c < int(columns.size()); ++c) {
            const int index = c + 1;
            const QVariant value = item.value(c);
            switch (columns[c].type) {
            case CItem::ColumnType::Int32:
            case CItem::ColumnType::Int16:
                sqlite3_bind_int64(m_statement, index, value.toLongLong());
                break;
            case CItem::ColumnType::Boolean:
                sqlite3_bind_int(m_statement, index, value.toBool() ? 1 : 0);
                break;
            case CItem::ColumnType::Single:
                sqlite3_bind_double(m_statement, index, CItem::storedSingle(value.toFloat()));
                break;
            case CItem::ColumnType::Text: {
                const QString text = value.toString();
                if (text.isEmpty()) {
                    sqlite3_bind_text(m_statement, index, "", 0, SQLITE_STATIC);
                } else {
                    const QByteArray utf8 = text.toUtf8();
                    sqlite3_bind_text(m_statement, index, utf8.constData(), int(utf8.size()), SQLITE_TRANSIENT);
                }
                break;
            }
            case CItem::ColumnType::Currency: {
                // As the connection binds amounts: a number up to fifteen digits, exact text beyond.
                const Currency amount = value.value<Currency>();
                constexpr qint64 fifteenDigits = Q_INT64_C(999999999999999);
                if (amount.scaled() <= fifteenDigits && amount.scaled() >= -fifteenDigits) {
                    sqlite3_bind_double(m_statement, index, amount.toDouble());
                } else {
                    const QByteArray text = amount.toFixed(4).toLatin1();
                    sqlite3_bind_text(m_statement, index, text.constData(), int(text.size()), SQLITE_TRANSIENT);
                }
                break;
            }
            case CItem::ColumnType::Date:
            case CItem::ColumnType::DateTime: {
                const QDateTime when = value.toDateTime();
                if (!when.isValid()) {
                    sqlite3_bind_null(m_statement, index);
                } else {
                    const QByteArray text = when.toString(u"yyyy-MM-dd HH:mm:ss"_s).toLatin1();
                    sqlite3_bind_text(m_statement, index, text.constData(), int(text.size()), SQLITE_TRANSIENT);
                }
                break;
            }
            }
        }
        const int step = sqlite3_step(m_statement);
        sqlite3_reset(m_statement);
        if ((step & 0xFF) == SQLITE_FULL) {
            throw DbError(u"磁盘已满,数据没有保存。"_s);
        }
        if (step != SQLITE_DONE) {
            throw DbError(u"写入 T_Item 失败: "_s + QString::fromUtf8(sqlite3_errmsg(m_db)));
        }
    }

private:
    sqlite3 *m_db;
    sqlite3_stmt *m_statement = nullptr;
};

} // namespace

class ItemImportPrivate
{
public:
    CItems &items;
    CItems *units;
    CItems *goodsTypes;
    CItems *clientTypes;
    int type = 0;
    CSpell spell;

    ItemImport::Report report;
    std::vector<Pending> pending;
    // For the sheet of refused rows.
    QList<QPair<int, QString>> headerCells;
    std::vector<Rejected> rejected;
    // The T_Item columns the sheet gives (directly, through a unit or type name, or derived from the name): an
    // update writes these and no others.
    std::vector<bool> fileColumns;
    QList<Mapping> mappings;

    ItemImportPrivate(CItems &i, CItems *u, CItems *g, CItems *c)
        : items(i)
        , units(u)
        , goodsTypes(g)
        , clientTypes(c)
    { }

    CItems *typeList() const { return type == ItemType::Goods ? goodsTypes : clientTypes; }
    bool usesUnits() const { return type == ItemType::Goods; }
    bool usesTypes() const { return type == ItemType::Goods || type == ItemType::Client; }

    void write(const ItemImport::Options &options, const QHash<QString, QString> &newUnits,
               const QHash<QString, QString> &newTypes);
    // A row that could only be refused once the write saw the database as it is now.
    void refuseLate(const Pending &p, const QString &reason);
};

ItemImport::ItemImport(CItems &items, CItems *units, CItems *goodsTypes, CItems *clientTypes)
    : d(std::make_unique<ItemImportPrivate>(items, units, goodsTypes, clientTypes))
{ }

ItemImport::~ItemImport() = default;

bool ItemImport::canImport(int itemTypeID)
{
    return isItemTypeNumber(itemTypeID) && !ItemTableModel::kindTitle(itemTypeID).isEmpty();
}

QString ItemImport::Report::text() const
{
    QString out;
    for (const RowError &e : errors) {
        out += u"第 "_s + QString::number(e.row) + u" 行"_s
            + (e.column.isEmpty() ? QString() : u" "_s + e.column + u" 列"_s) + u": "_s + e.reason + u'\n';
    }
    if (badRows > errors.size() && errors.size() >= kMaxListedErrors) {
        out += u"(只列出了前 "_s + QString::number(kMaxListedErrors) + u" 个错误)\n"_s;
    }
    if (!error.isEmpty()) {
        out += error + u'\n';
    }
    for (const QString &column : ignoredColumns) {
        out += u"忽略的列: "_s + column + u'\n';
    }
    for (const QString &item : created) {
        out += (written ? u"已新建: "_s : u"将新建: "_s) + item + u'\n';
    }
    out += u"读取 "_s + QString::number(rows) + u" 行"_s
        + (encoding.isEmpty() ? QString() : u"(文字编码 "_s + encoding + u")"_s) + u"; "_s
        + (written ? u"新增 "_s : u"可新增 "_s) + QString::number(added) + u" 条, "_s
        + (written ? u"更新 "_s : u"可更新 "_s) + QString::number(updated) + u" 条, 无变化 "_s
        + QString::number(unchanged) + u" 条, 有错误 "_s + QString::number(badRows) + u" 行"_s;
    if (!written) {
        out += u"; 没有写入数据库"_s;
    }
    out += u'\n';
    // Cells are quoted in the refusals; what a terminal or a log cannot show stays out.
    out.replace(QChar(0), u"\\0"_s);
    out.replace(QChar::ReplacementCharacter, u'?');
    return out;
}

ItemImport::Preview ItemImport::preview(const QString &file, const QString &sheet, int rows)
{
    Preview result;
    WorkbookReader reader(file);
    if (!reader.open()) {
        result.error = reader.errorString();
        return result;
    }
    result.sheets = reader.sheetNames();
    auto texts = [](const WorkbookReader::Row &cells) {
        QStringList list;
        for (const WorkbookReader::Cell &cell : cells) {
            while (list.size() < cell.column) {
                list.append(QString());
            }
            if (list.size() > 255) {
                break; // a preview needs no more columns
            }
            list.append(cell.text);
        }
        return list;
    };
    const bool ok = reader.readSheet(sheet, [&](int rowNumber, const WorkbookReader::Row &cells) {
        if (result.headerRow == 0) {
            bool known = false;
            for (const WorkbookReader::Cell &cell : cells) {
                known = known || targetOf(cell.text).has_value();
            }
            if (known) {
                result.headerRow = rowNumber;
                result.headers = texts(cells);
            }
            return rowNumber < kHeaderSearchRows;
        }
        result.rows.append(texts(cells));
        result.rowNumbers.append(rowNumber);
        return result.rows.size() < rows;
    });
    if (!ok) {
        result.error = reader.errorString();
    } else if (result.headerRow == 0) {
        result.error = u"前 "_s + QString::number(kHeaderSearchRows) + u" 行中没有可以识别的标题行(如 编号、名称)"_s;
    }
    return result;
}

namespace {

QString noHeader(int searchedRows, bool goods)
{
    const QString rows = searchedRows <= 0 ? u"表格是空的,"_s
        : searchedRows == 1                ? u"第 1 行不是标题行,"_s
                            : u"第 1 到 "_s + QString::number(searchedRows) + u" 行中没有标题行,"_s;
    return rows + u"标题行应有 "_s + (goods ? u"[编号]、[名称]"_s : u"[名称]"_s)
        + u" 等列(导出时写的标题,或字段名如 F_ItemNo、F_ItemName)"_s;
}

} // namespace

ItemImport::Report ItemImport::run(const QString &file, const Options &options, const Progress &progress)
{
    d->report = Report();
    d->pending.clear();
    d->rejected.clear();
    d->headerCells.clear();
    d->type = d->items.itemTypeID();
    Report &report = d->report;
    auto fatal = [&](const QString &message) {
        report.error = message;
        report.ok = false;
        d->pending.clear();
        return report;
    };
    if (!canImport(d->type)) {
        return fatal(u"这类资料不能导入"_s);
    }
    if ((d->usesUnits() && !d->units) || (d->usesTypes() && !d->typeList())) {
        return fatal(u"导入缺少单位或类别的列表"_s);
    }
    const std::shared_ptr<CConnection> connection = d->items.connection();
    if (!connection) {
        return fatal(u"没有连接数据库"_s);
    }

    // Numbers as the database has them (goods hidden from the list included), names as the list has them.
    struct Owner
    {
        qint32 id;
        bool hidden;
    };
    QHash<QString, Owner> numberOwner;
    QHash<QString, qint32> nameOwner; // -1: several items
    try {
        QSqlQuery q =
            connection->Select(u"SELECT F_ID, F_ItemNo, F_Tag3 FROM T_Item WHERE F_ItemTypeID=?"_s, {d->type});
        while (CConnection::next(q)) {
            const QString no = q.value(1).toString();
            if (!no.trimmed().isEmpty()) {
                const bool hidden =
                    (d->type == ItemType::Goods || d->type == ItemType::GoodsType) && q.value(2).toLongLong() > 0;
                numberOwner.insert(no, {q.value(0).toInt(), hidden});
            }
        }
    } catch (const DbError &e) {
        return fatal(u"读取数据库失败: "_s + e.message());
    }
    for (const CItemPtr &item : d->items) {
        auto it = nameOwner.find(item->F_ItemName());
        if (it == nameOwner.end()) {
            nameOwner.insert(item->F_ItemName(), item->F_ID());
        } else {
            *it = -1;
        }
    }

    WorkbookReader reader(file);
    if (!reader.open()) {
        return fatal(reader.errorString());
    }
    report.encoding = reader.textEncoding();

    const QString kind = CItems::typeName(d->type);
    const bool goods = d->type == ItemType::Goods;
    QList<Mapping> mappings;
    int headerRow = 0;
    int nameColumn = -1;
    int numberColumn = -1;
    bool haveSpell = false;
    QHash<QString, int> fileNumbers;
    QHash<QString, int> fileNames;
    QHash<QString, QString> newUnits; // name → display of what gets created
    QHash<QString, QString> newTypes;
    qint32 nextTypeSortKey = 0;
    if (d->type == ItemType::GoodsType) {
        for (const CItemPtr &item : d->items) {
            nextTypeSortKey = qMax(nextTypeSortKey, item->F_Tag1());
        }
    }
    const auto tag1Column = CItem::columnIndex(u"F_Tag1"_s);
    const auto parentColumn = CItem::columnIndex(u"F_ParentID"_s);
    const auto packageColumn = CItem::columnIndex(u"F_PackageAmount"_s);
    QString stopError;
    int lastSearched = 0;

    auto handleHeader = [&](int rowNumber, const WorkbookReader::Row &cells) -> bool {
        QHash<QString, QString> seen; // what a column sets → its header
        QList<Mapping> found;
        // What a row that turns out not to be the header would ignore is its data, not columns.
        QStringList ignored;
        for (const WorkbookReader::Cell &cell : cells) {
            const std::optional<Mapping> target = targetOf(cell.text);
            const QString label = WorkbookReader::columnName(cell.column) + u"("_s + cell.text.trimmed() + u")"_s;
            if (!target) {
                if (ignored.size() < 50) {
                    ignored.append(label);
                }
                continue;
            }
            Mapping m = *target;
            m.sheetColumn = cell.column;
            m.header = label;
            const QString key = m.target == Target::Column ? CItem::columns()[m.itemColumn].name
                                                           : (m.target == Target::UnitName ? u"unit"_s : u"type"_s);
            if (m.target == Target::Column
                && (key == u"F_ID"_s || key == u"F_ItemTypeID"_s
                    || (key == u"F_Tag1"_s && !goods && d->type != ItemType::GoodsType))) {
                ignored.append(label);
                continue;
            }
            if ((m.target == Target::UnitName && !d->usesUnits())
                || (m.target == Target::TypeName && !d->usesTypes())) {
                ignored.append(label);
                continue;
            }
            if (m.target == Target::Column && belongsToOtherKinds(m.itemColumn, d->type)) {
                // A client's bank on goods, a price on a unit: the sheet is likely of another kind.
                ignored.append(label + u" — 不是"_s + kind + u"的资料,没有导入"_s);
                continue;
            }
            if (seen.contains(key)) {
                stopError = u"标题行(第 "_s + QString::number(rowNumber) + u" 行)中 "_s + seen.value(key) + u" 与 "_s
                    + label + u" 是同一列,请删除其中一个"_s;
                return false;
            }
            seen.insert(key, label);
            found.append(m);
        }
        if (found.isEmpty()) {
            return true; // not the header yet
        }
        report.ignoredColumns.append(ignored);
        headerRow = rowNumber;
        mappings = found;
        d->mappings = mappings;
        d->fileColumns.assign(CItem::columns().size(), false);
        for (const Mapping &m : std::as_const(mappings)) {
            d->fileColumns[std::size_t(m.target == Target::Column         ? m.itemColumn
                                           : m.target == Target::UnitName ? tag1Column
                                                                          : parentColumn)] = true;
            if (m.target == Target::Column) {
                const QString &name = CItem::columns()[m.itemColumn].name;
                if (name == u"F_ItemName"_s) {
                    nameColumn = m.sheetColumn;
                } else if (name == u"F_ItemNo"_s) {
                    numberColumn = m.sheetColumn;
                } else if (name == u"F_Spell"_s) {
                    haveSpell = true;
                }
            }
        }
        for (const WorkbookReader::Cell &cell : cells) {
            d->headerCells.append({cell.column, cell.text});
        }
        // The mnemonic code follows the name where the sheet has none of its own.
        d->fileColumns[std::size_t(CItem::columnIndex(u"F_Spell"_s))] = true;
        if (nameColumn < 0) {
            stopError = u"标题行(第 "_s + QString::number(rowNumber) + u" 行)缺少必需的列 [名称]"_s;
            return false;
        }
        if (goods && numberColumn < 0 && !options.suggestNumbers) {
            stopError = u"标题行(第 "_s + QString::number(rowNumber)
                + u" 行)缺少必需的列 [编号](或选择为没有编号的行自动编号)"_s;
            return false;
        }
        return true;
    };

    auto addError = [&](int row, const QString &column, const QString &reason) {
        if (report.errors.size() < ItemImport::kMaxListedErrors) {
            report.errors.append({row, column, reason});
        }
    };

    auto handleRow = [&](int rowNumber, const WorkbookReader::Row &cells) -> bool {
        if (headerRow == 0) {
            if (rowNumber > kHeaderSearchRows) {
                stopError = noHeader(kHeaderSearchRows, goods);
                return false;
            }
            lastSearched = rowNumber;
            return handleHeader(rowNumber, cells);
        }
        ++report.rows;
        if (progress && report.rows % kProgressEvery == 0 && !progress(report.rows)) {
            stopError = u"导入已取消,没有写入任何数据"_s;
            return false;
        }
        QStringList reasons;
        auto refuse = [&](const Mapping *m, const QString &reason) {
            addError(rowNumber, m ? m->header : QString(), reason);
            reasons.append((m ? m->header + u": "_s : QString()) + reason);
        };

        auto cellText = [&](int column) -> const WorkbookReader::Cell * {
            const auto it = std::lower_bound(cells.begin(), cells.end(), column,
                                             [](const WorkbookReader::Cell &c, int col) { return c.column < col; });
            return it != cells.end() && it->column == column ? &*it : nullptr;
        };
        // Number and name decide whether the row adds or updates.
        const WorkbookReader::Cell *noCell = numberColumn >= 0 ? cellText(numberColumn) : nullptr;
        const QString number = noCell ? noCell->text.trimmed() : QString();
        Pending p;
        p.row = rowNumber;
        if (!number.isEmpty()) {
            const auto owner = numberOwner.constFind(number);
            if (owner != numberOwner.constEnd()) {
                if (!options.update) {
                    refuse(nullptr, kind + u"编号["_s + number + u"]已经存在(要更新已有的资料请选择更新)"_s);
                } else if (owner->hidden) {
                    refuse(nullptr, kind + u"编号["_s + number + u"]属于一条已隐藏的"_s + kind + u",不能更新"_s);
                } else if (const CItemPtr existing = d->items.SearchItemByID(owner->id)) {
                    if (existing->unreadFrom() >= 0) {
                        refuse(nullptr, kind + u"编号["_s + number + u"]的资料没能完整读取,不能更新"_s);
                    } else {
                        p.existingID = owner->id;
                        p.readHash = existing->rowHash();
                        p.item = CItem::create(*existing);
                    }
                } else {
                    refuse(nullptr, kind + u"编号["_s + number + u"]的资料不在列表中,不能更新"_s);
                }
            }
        } else if (options.suggestNumbers) {
            p.needsNumber = true;
        } else if (goods) {
            refuse(nullptr, u"请输入"_s + kind + u"编号!"_s);
        }
        if (!p.item) {
            p.item = CItem::create();
            p.item->setF_ItemTypeID(qint16(d->type));
            if (goods) {
                p.item->setF_PackageAmount(1.0f);
            }
        }
        CItem &item = *p.item;
        bool spellGiven = false;
        for (const Mapping &m : std::as_const(mappings)) {
            const WorkbookReader::Cell *cell = cellText(m.sheetColumn);
            const QString raw = cell ? cell->text : QString();
            if (cell && cell->formula && raw.isEmpty()) {
                refuse(&m, u"公式没有计算结果,请在电子表格程序中重新计算并保存后再导入"_s);
                continue;
            }
            if (m.target != Target::Column) {
                const QString name = raw.trimmed();
                if (hasControlCharacter(name, false)) {
                    refuse(&m, u"含有控制字符"_s);
                    continue;
                }
                const bool unit = m.target == Target::UnitName;
                CItems *list = unit ? d->units : d->typeList();
                if (name.isEmpty()) {
                    if (!p.existingID) {
                        (unit ? item.setF_Tag1(0) : item.setF_ParentID(0));
                    }
                    continue;
                }
                if (const CItemPtr found = list->GetItemByItemName(name)) {
                    unit ? item.setF_Tag1(found->F_ID()) : item.setF_ParentID(found->F_ID());
                    unit ? item.setmUnitName(name) : item.setmTypeName(name);
                } else if (options.createMissing) {
                    if (name.size() > kMaxTextChars) {
                        refuse(&m, u"名称超过 "_s + QString::number(kMaxTextChars) + u" 个字符"_s);
                        continue;
                    }
                    (unit ? p.unitName : p.typeName) = name;
                    QHash<QString, QString> &created = unit ? newUnits : newTypes;
                    if (!created.contains(name)) {
                        created.insert(name, list->ItemTypeName() + u' ' + name);
                    }
                } else {
                    refuse(&m, list->ItemTypeName() + u"["_s + name + u"]不存在(可选择自动新建)"_s);
                }
                continue;
            }
            const CItem::Column &column = CItem::columns()[m.itemColumn];
            QString reason;
            switch (column.type) {
            case CItem::ColumnType::Text: {
                const bool lineBreaks = isLongText(column.name);
                QString text = isTrimmed(column.name) ? raw.trimmed() : raw;
                const qsizetype limit = column.name == u"F_ItemNo"_s ? kMaxNumberChars
                    : lineBreaks                                     ? kMaxLongTextChars
                                                                     : kMaxTextChars;
                if (hasControlCharacter(text, lineBreaks)) {
                    reason = u"含有控制字符"_s;
                } else if (text.size() > limit) {
                    reason = u"超过 "_s + QString::number(limit) + u" 个字符(有 "_s + QString::number(text.size())
                        + u" 个)"_s;
                } else if (column.name == u"F_ItemName"_s && text.isEmpty()) {
                    reason = u"请输入"_s + kind + u"名称!"_s;
                } else {
                    if (column.name == u"F_Spell"_s) {
                        spellGiven = !text.isEmpty();
                    }
                    item.setValue(m.itemColumn, text);
                }
                break;
            }
            case CItem::ColumnType::Currency: {
                const std::optional<Currency> value = parseAmount(raw, isTotal(column.name) ? 2 : 4, &reason);
                if (value) {
                    item.setValue(m.itemColumn, QVariant::fromValue(*value));
                }
                break;
            }
            case CItem::ColumnType::Single: {
                const QString t = raw.trimmed();
                bool ok = true;
                const float value = t.isEmpty() ? (m.itemColumn == packageColumn ? 1.0f : 0.0f) : t.toFloat(&ok);
                if (!ok || !std::isfinite(value)) {
                    reason = u"["_s + t + u"] 不是正确的数字"_s;
                } else if (m.itemColumn == packageColumn && value <= 0.0f) {
                    reason = u"包装数量必须大于 0"_s;
                } else {
                    item.setValue(m.itemColumn, value);
                }
                break;
            }
            case CItem::ColumnType::Int32:
            case CItem::ColumnType::Int16: {
                const QString t = raw.trimmed();
                bool ok = true;
                const qint32 value = t.isEmpty() ? 0 : t.toInt(&ok);
                if (!ok) {
                    reason = u"["_s + t + u"] 不是整数"_s;
                    break;
                }
                // Unit and type given by their key must exist.
                CItems *list = nullptr;
                if (goods && m.itemColumn == tag1Column) {
                    list = d->units;
                } else if (d->usesTypes() && m.itemColumn == parentColumn) {
                    list = d->typeList();
                }
                if (list && value != 0 && !list->SearchItemByID(value)) {
                    reason = list->ItemTypeName() + u"的 F_ID "_s + t + u" 不存在"_s;
                } else {
                    item.setValue(m.itemColumn, value);
                }
                break;
            }
            case CItem::ColumnType::Date:
            case CItem::ColumnType::DateTime: {
                const std::optional<QDateTime> value = parseDate(raw);
                if (!value) {
                    reason = u"["_s + raw.trimmed() + u"] 不是有效的日期"_s;
                } else {
                    item.setValue(m.itemColumn, *value);
                }
                break;
            }
            case CItem::ColumnType::Boolean: {
                const QString t = raw.trimmed().toLower();
                if (t.isEmpty() || t == u"0"_s || t == u"false"_s || t == u"否"_s) {
                    item.setF_IsSpecial(false);
                } else if (t == u"1"_s || t == u"true"_s || t == u"是"_s) {
                    item.setF_IsSpecial(true);
                } else {
                    reason = u"["_s + raw.trimmed() + u"] 不是 是/否"_s;
                }
                break;
            }
            }
            if (!reason.isEmpty()) {
                refuse(&m, reason);
            }
        }

        // Unique within the kind: against the list and against the rows before in the file.
        const QString name = item.F_ItemName();
        if (!name.isEmpty()) {
            const auto owner = nameOwner.constFind(name);
            // A row refused because its number exists would only be told again that its item's name exists.
            const bool sameItem = !number.isEmpty() && numberOwner.contains(number) && !p.existingID;
            if (owner != nameOwner.constEnd() && *owner != p.existingID && !sameItem) {
                // Items that already share a name may keep it; no row may give an item another's name.
                const CItemPtr self = p.existingID ? d->items.SearchItemByID(p.existingID) : CItemPtr();
                if (!self || self->F_ItemName() != name) {
                    refuse(nullptr, kind + u"名称["_s + name + u"]已经存在,请换一个名称!"_s);
                }
            }
        }
        if (!number.isEmpty()) {
            const auto first = fileNumbers.constFind(number);
            if (first != fileNumbers.constEnd()) {
                refuse(nullptr, kind + u"编号["_s + number + u"]与第 "_s + QString::number(*first) + u" 行重复"_s);
            }
        }
        if (!name.isEmpty()) {
            const auto first = fileNames.constFind(name);
            if (first != fileNames.constEnd()) {
                refuse(nullptr, kind + u"名称["_s + name + u"]与第 "_s + QString::number(*first) + u" 行重复"_s);
            }
        }
        if (!reasons.isEmpty()) {
            ++report.badRows;
            if (d->rejected.size() < std::size_t(ItemImport::kMaxListedErrors)) {
                Rejected r;
                r.row = rowNumber;
                for (const auto &[column, header] : std::as_const(d->headerCells)) {
                    const WorkbookReader::Cell *cell = cellText(column);
                    r.cells.append(cell ? cell->text : QString());
                }
                r.reason = reasons.join(u"; "_s);
                d->rejected.push_back(std::move(r));
            }
            return true;
        }
        if (!number.isEmpty()) {
            fileNumbers.insert(number, rowNumber);
        }
        if (!name.isEmpty()) {
            fileNames.insert(name, rowNumber);
        }
        if (!spellGiven) {
            // Pinyin initials where the sheet gives none; an update without the column keeps the code of an
            // unchanged name.
            const CItemPtr before = p.existingID ? d->items.SearchItemByID(p.existingID) : CItemPtr();
            if (!before || haveSpell || before->F_ItemName() != name) {
                item.setF_Spell(d->spell.GetPy(name));
            }
        }
        if (d->type == ItemType::GoodsType && !p.existingID && item.F_Tag1() == 0) {
            item.setF_Tag1(++nextTypeSortKey);
        }
        d->pending.push_back(std::move(p));
        return true;
    };

    const bool read = reader.readSheet(options.sheet, handleRow);
    if (!read) {
        return fatal(reader.errorString());
    }
    if (!stopError.isEmpty()) {
        return fatal(stopError);
    }
    if (headerRow == 0) {
        return fatal(noHeader(lastSearched, goods));
    }
    // Merged cells below the header leave all but their first cell empty: the rows would not say what they seem to.
    QStringList mergedInData;
    for (const WorkbookReader::Range &range : reader.mergedRanges()) {
        if (range.lastRow > headerRow && (range.lastRow > range.firstRow || range.lastColumn > range.firstColumn)) {
            mergedInData.append(WorkbookReader::columnName(range.firstColumn) + QString::number(range.firstRow) + u':'
                                + WorkbookReader::columnName(range.lastColumn) + QString::number(range.lastRow));
        }
    }
    if (!mergedInData.isEmpty()) {
        return fatal(u"表格的数据区有合并单元格("_s + mergedInData.mid(0, 10).join(u", "_s)
                     + (mergedInData.size() > 10 ? u" …"_s : QString())
                     + u"),合并单元格中只有第一格有内容;请取消合并并填好每一格后再导入"_s);
    }

    // Numbers for the rows without one, after every number of the file is known.
    QString next;
    for (Pending &p : d->pending) {
        if (!p.needsNumber) {
            continue;
        }
        next = next.isEmpty() ? d->items.GetNewGoodsNo() : incremented(next);
        while (numberOwner.contains(next) || fileNumbers.contains(next)) {
            next = incremented(next);
        }
        p.item->setF_ItemNo(next);
    }

    for (const Pending &p : d->pending) {
        if (!p.existingID) {
            ++report.added;
            continue;
        }
        const CItemPtr before = d->items.SearchItemByID(p.existingID);
        bool same = before != nullptr;
        for (int c = 0; same && c < int(CItem::columns().size()); ++c) {
            same = before->value(c) == p.item->value(c);
        }
        same = same && p.unitName.isEmpty() && p.typeName.isEmpty();
        ++(same ? report.unchanged : report.updated);
    }
    for (const QString &what : std::as_const(newUnits)) {
        report.created.append(what);
    }
    for (const QString &what : std::as_const(newTypes)) {
        report.created.append(what);
    }
    report.created.sort();

    if (options.dryRun || (report.badRows > 0 && !options.skipBad)) {
        report.ok = report.badRows == 0;
        if (report.badRows > 0 && !options.skipBad && !options.dryRun) {
            report.error = u"有 "_s + QString::number(report.badRows) + u" 行有错误,没有导入任何数据"_s;
        }
        d->pending.clear();
        return report;
    }
    d->write(options, newUnits, newTypes);
    d->pending.clear();
    return report;
}

void ItemImportPrivate::write(const ItemImport::Options &options, const QHash<QString, QString> &newUnits,
                              const QHash<QString, QString> &newTypes)
{
    CConnection &connection = *items.connection();
    const auto columns = CItem::columns();
    const int count = int(columns.size());
    Q_ASSERT(count <= 64); // an update's columns are a 64-bit mask
    QStringList names;
    for (const CItem::Column &c : columns) {
        names.append(c.name);
    }
    // A column's value as a save stores it: a date never given as no date, an empty text as '' (not NULL, which
    // the engines sort at opposite ends), a single as its own value.
    auto storedValue = [&](int c, const QVariant &value) {
        switch (columns[c].type) {
        case CItem::ColumnType::Date:
        case CItem::ColumnType::DateTime:
            return value.toDateTime().isValid() ? connection.toSqlValue(value) : QVariant();
        case CItem::ColumnType::Text:
            return value.toString().isNull() ? QVariant(QString(u""_s)) : value;
        case CItem::ColumnType::Single:
            return QVariant(CItem::storedSingle(value.toFloat()));
        default:
            return connection.toSqlValue(value);
        }
    };
    auto bind = [&](QSqlQuery &query, int offset, const CItem &item) {
        for (int c = 0; c < count; ++c) {
            query.bindValue(offset + c, storedValue(c, item.value(c)));
        }
    };
    auto insertSql = [&](int rows) {
        const QString one = u"("_s + QString(u",?"_s).repeated(count).mid(1) + u")"_s;
        QString sql = u"INSERT INTO T_Item ("_s + names.join(u',') + u") VALUES "_s;
        for (int r = 0; r < rows; ++r) {
            sql += (r ? u","_s : QString()) + one;
        }
        return sql;
    };
    auto exec = [](QSqlQuery &query) {
        if (!query.exec()) {
            throw DbError(u"写入 T_Item 失败: "_s + query.lastError().text());
        }
    };

    // Rows refused by the checks under the write lock stop the whole import unless bad rows are skipped.
    struct RefusedLate
    {
    };
    const bool server = connection.engine() == CConnection::Engine::PostgreSQL;
    const int tag1Column = CItem::columnIndex(u"F_Tag1"_s);
    const int parentColumn = CItem::columnIndex(u"F_ParentID"_s);
    const QString kind = CItems::typeName(type);
    const qint64 badBefore = report.badRows;
    bool createdLists = false;
    try {
        CTransaction transaction(connection);
        // What the import read before may be out of date by now: another import or seat may have added the same
        // numbers or changed the rows to update. It is looked at again here, under the write lock (SQLite's
        // BEGIN IMMEDIATE; on a server the imports take turns and the rows to update are locked).
        if (server) {
            connection.Select(u"SELECT pg_advisory_xact_lock(5175696, 2)"_s);
        }
        {
            struct Owner
            {
                qint32 id;
                bool hidden;
            };
            QHash<QString, Owner> numbers;
            QSqlQuery q =
                connection.Select(u"SELECT F_ID, F_ItemNo, F_Tag3 FROM T_Item WHERE F_ItemTypeID=?"_s, {type});
            while (CConnection::next(q)) {
                const QString no = q.value(1).toString();
                if (!no.trimmed().isEmpty()) {
                    const bool hidden =
                        (type == ItemType::Goods || type == ItemType::GoodsType) && q.value(2).toLongLong() > 0;
                    numbers.insert(no, {q.value(0).toInt(), hidden});
                }
            }
            for (Pending &p : pending) {
                const QString number = p.item->F_ItemNo();
                if (p.existingID || number.isEmpty()) {
                    continue;
                }
                const auto owner = numbers.constFind(number);
                if (owner == numbers.constEnd()) {
                    continue;
                }
                if (options.update && !owner->hidden) {
                    p.existingID = owner->id; // written from the sheet's columns alone
                    p.readHash = 0;
                } else {
                    refuseLate(p, kind + u"编号["_s + number + u"]已经存在(导入期间被其他用户写入)"_s);
                    p.dropped = true;
                }
            }
        }
        // The rows to update, locked and compared with what the import read: a row changed elsewhere since is
        // refused as a seat's save is; of the others only the columns the sheet gives and changes are written.
        std::vector<Pending *> updates;
        for (Pending &p : pending) {
            if (p.existingID && !p.dropped) {
                updates.push_back(&p);
            }
        }
        for (std::size_t from = 0; from < updates.size(); from += kBatchRows) {
            const std::size_t n = std::min<std::size_t>(kBatchRows, updates.size() - from);
            QVariantList ids;
            for (std::size_t i = 0; i < n; ++i) {
                ids.append(updates[from + i]->existingID);
            }
            QHash<qint32, CItemPtr> stored;
            {
                CRecordset rst(connection);
                rst.Open(u"SELECT * FROM T_Item WHERE F_ID IN ("_s + QString(u",?"_s).repeated(int(n)).mid(1) + u")"_s
                             + (server ? u" FOR UPDATE"_s : QString()),
                         ids);
                while (!rst.isEOF()) {
                    auto row = CItem::create();
                    row->UpdateDataFromRst(rst, true);
                    stored.insert(row->F_ID(), row);
                    rst.MoveNext();
                }
            }
            for (std::size_t i = 0; i < n; ++i) {
                Pending &p = *updates[from + i];
                const CItemPtr now = stored.value(p.existingID);
                if (!now) {
                    refuseLate(p, kind + u"编号["_s + p.item->F_ItemNo() + u"]的资料已被其他用户删除"_s);
                    p.dropped = true;
                    continue;
                }
                if (p.readHash != 0 && now->rowHash() != p.readHash) {
                    refuseLate(p, u"该记录已被其他用户修改,请刷新后再改。"_s);
                    p.dropped = true;
                    continue;
                }
                if (now->unreadFrom() >= 0) {
                    refuseLate(p, kind + u"编号["_s + p.item->F_ItemNo() + u"]的资料没能完整读取,不能更新"_s);
                    p.dropped = true;
                    continue;
                }
                p.writeMask = 0;
                for (int c = 1; c < count; ++c) {
                    if (!fileColumns[std::size_t(c)]) {
                        continue;
                    }
                    // A row that found its number taken only now was not read: an empty unit or type cell keeps
                    // the item's, as it does for every row that updates.
                    if (p.readHash == 0 && (c == tag1Column || c == parentColumn) && p.item->value(c).toInt() == 0) {
                        continue;
                    }
                    if (p.item->value(c) != now->value(c)) {
                        p.writeMask |= quint64(1) << c;
                    }
                }
                if (!p.unitName.isEmpty()) {
                    p.writeMask |= quint64(1) << tag1Column;
                }
                if (!p.typeName.isEmpty()) {
                    p.writeMask |= quint64(1) << parentColumn;
                }
            }
        }
        if (report.badRows > badBefore && !options.skipBad) {
            throw RefusedLate();
        }
        pending.erase(std::remove_if(pending.begin(), pending.end(), [](const Pending &p) { return p.dropped; }),
                      pending.end());
        report.added = 0;
        report.updated = 0;
        report.unchanged = 0;
        for (const Pending &p : pending) {
            ++(!p.existingID ? report.added : p.writeMask ? report.updated : report.unchanged);
        }
        std::vector<CItemPtr> inserts;
        QHash<QString, qint32> unitIDs;
        QHash<QString, qint32> typeIDs;
        CItems *types = typeList();
        qint32 typeSortKey = 0;
        if (type == ItemType::Goods && types) {
            for (const CItemPtr &t : *types) {
                typeSortKey = qMax(typeSortKey, t->F_Tag1());
            }
        }
        auto lookup = [&](const QString &name, int itemType) {
            auto item = CItem::create();
            item->setF_ItemTypeID(qint16(itemType));
            item->setF_ItemName(name);
            item->setF_Spell(spell.GetPy(name));
            if (itemType == ItemType::GoodsType) {
                item->setF_Tag1(++typeSortKey);
            }
            inserts.push_back(item);
            return item;
        };
        std::vector<std::pair<QString, CItemPtr>> createdUnits;
        std::vector<std::pair<QString, CItemPtr>> createdTypes;
        for (auto it = newUnits.cbegin(); it != newUnits.cend(); ++it) {
            createdUnits.emplace_back(it.key(), lookup(it.key(), itemTypeNumber(ItemType::Unit)));
        }
        for (auto it = newTypes.cbegin(); it != newTypes.cend(); ++it) {
            createdTypes.emplace_back(it.key(), lookup(it.key(), types ? types->itemTypeID() : 0));
        }
        createdLists = !inserts.empty();
        qint64 newItems = qint64(inserts.size());
        for (const Pending &p : pending) {
            newItems += p.existingID ? 0 : 1;
        }

        // One block of keys for every new row: the counter moves once, past the largest key in the table.
        qint32 key = 0;
        if (newItems > 0) {
            key = Module1::GetNewID(connection, u"T_Item"_s, true);
            QSqlQuery q = connection.Select(u"SELECT MAX(F_ID) FROM T_Item"_s);
            if (CConnection::next(q) && !q.value(0).isNull()) {
                key = qMax<qint64>(key, q.value(0).toLongLong() + 1);
            }
            if (qint64(key) + newItems > std::numeric_limits<qint32>::max()) {
                throw DbError(u"T_Item 的键值已用完"_s);
            }
            connection.Execute(u"UPDATE T_KeyID SET F_MaxID=? WHERE F_TableName=?"_s,
                               {qint64(key) + newItems, u"T_Item"_s});
        }
        for (const CItemPtr &item : inserts) {
            item->setF_ID(key++);
        }
        for (const auto &[name, item] : createdUnits) {
            unitIDs.insert(name, item->F_ID());
        }
        for (const auto &[name, item] : createdTypes) {
            typeIDs.insert(name, item->F_ID());
        }
        for (Pending &p : pending) {
            if (!p.unitName.isEmpty()) {
                p.item->setF_Tag1(unitIDs.value(p.unitName));
            }
            if (!p.typeName.isEmpty()) {
                p.item->setF_ParentID(typeIDs.value(p.typeName));
            }
            if (!p.existingID) {
                p.item->setF_ID(key++);
                inserts.push_back(p.item);
            }
        }

        // So many rows make the other seats reload their lists anyway: the change triggers are off while the rows
        // go in and one note tells the seats to reload, all in this transaction.
        const bool suspended = qsizetype(pending.size()) + qsizetype(inserts.size()) > ChangeFeed::kBatchLimit
            && ChangeLog::suspendTriggers(connection, u"T_Item"_s);

        std::size_t i = 0;
        if (sqlite3 *handle = sqliteHandle(connection)) {
            // A page cache of 64 MB holds an import of a hundred thousand rows and keeps SQLite from spilling pages
            // to its log before the commit; the connection's own size comes back afterwards.
            struct CacheSize
            {
                sqlite3 *db;
                int previous = 0;
                explicit CacheSize(sqlite3 *handle)
                    : db(handle)
                {
                    sqlite3_stmt *statement = nullptr;
                    if (sqlite3_prepare_v2(db, "PRAGMA cache_size", -1, &statement, nullptr) == SQLITE_OK
                        && sqlite3_step(statement) == SQLITE_ROW) {
                        previous = sqlite3_column_int(statement, 0);
                    }
                    sqlite3_finalize(statement);
                    sqlite3_exec(db, "PRAGMA cache_size=-65536", nullptr, nullptr, nullptr);
                }
                ~CacheSize()
                {
                    const QByteArray sql = "PRAGMA cache_size=" + QByteArray::number(previous);
                    sqlite3_exec(db, sql.constData(), nullptr, nullptr, nullptr);
                }
            } cacheSize(handle);
            // Into a table smaller than the import, rows go faster without the secondary indexes, which are built
            // again afterwards in the same transaction.
            QList<QPair<QString, QString>> indexes;
            if (inserts.size() >= std::size_t(kRebuildIndexesFrom)) {
                QSqlQuery q = connection.Select(u"SELECT COUNT(*) FROM T_Item"_s);
                if (CConnection::next(q) && q.value(0).toLongLong() < qint64(inserts.size())) {
                    QSqlQuery list = connection.Select(u"SELECT name, sql FROM sqlite_master WHERE type = 'index' "
                                                       "AND lower(tbl_name) = 't_item' AND sql IS NOT NULL"_s);
                    while (CConnection::next(list)) {
                        indexes.append({list.value(0).toString(), list.value(1).toString()});
                    }
                }
            }
            for (const auto &[name, definition] : std::as_const(indexes)) {
                connection.Execute(u"DROP INDEX "_s + name);
            }
            {
                SqliteItemInsert insert(handle, names);
                for (const CItemPtr &item : inserts) {
                    insert.add(*item);
                }
            }
            for (const auto &[name, definition] : std::as_const(indexes)) {
                connection.Execute(definition);
            }
            i = inserts.size();
        }
        QSqlQuery batch(connection.database());
        if (inserts.size() - i >= std::size_t(kBatchRows) && !batch.prepare(insertSql(kBatchRows))) {
            throw DbError(batch.lastError().text());
        }
        for (; i + kBatchRows <= inserts.size(); i += kBatchRows) {
            for (int r = 0; r < kBatchRows; ++r) {
                bind(batch, r * count, *inserts[i + std::size_t(r)]);
            }
            exec(batch);
        }
        if (i < inserts.size()) {
            QSqlQuery rest(connection.database());
            const int rows = int(inserts.size() - i);
            if (!rest.prepare(insertSql(rows))) {
                throw DbError(rest.lastError().text());
            }
            for (int r = 0; r < rows; ++r) {
                bind(rest, r * count, *inserts[i + std::size_t(r)]);
            }
            exec(rest);
        }

        for (const Pending &p : pending) {
            if (!p.existingID || !p.writeMask) {
                continue;
            }
            QString sql = u"UPDATE T_Item SET "_s;
            QVariantList values;
            for (int c = 1; c < count; ++c) {
                if (!(p.writeMask & (quint64(1) << c))) {
                    continue;
                }
                sql += (values.isEmpty() ? QString() : u","_s) + names[c] + u"=?"_s;
                values.append(storedValue(c, p.item->value(c)));
            }
            sql += u" WHERE F_ID=?"_s;
            values.append(p.existingID);
            connection.Execute(sql, values);
        }
        if (suspended) {
            ChangeLog::restoreTriggers(connection, u"T_Item"_s);
            ChangeLog::noteReload(connection, 0);
        }
        transaction.Commit();
        report.written = true;
        report.ok = report.badRows == 0;
    } catch (const RefusedLate &) {
        report.error = u"有 "_s + QString::number(report.badRows) + u" 行有错误,没有导入任何数据"_s;
        report.ok = false;
        report.written = false;
    } catch (const DbError &e) {
        report.error = u"写入数据库失败,没有导入任何数据: "_s + e.message();
        report.ok = false;
        report.written = false;
    }

    // A rolled-back import left table and lists as they were.
    if (!report.written || !options.reloadLists) {
        return;
    }
    items.Refresh(0);
    if (createdLists) {
        if (units) {
            units->Refresh(0);
        }
        if (CItems *types = typeList()) {
            types->Refresh(0);
        }
    }
    if (type == ItemType::Goods && units && goodsTypes) {
        CItems::JoinGoodsNames(items, *units, *goodsTypes);
    } else if (type == ItemType::Client && clientTypes) {
        CItems::JoinClientTypeNames(items, *clientTypes);
    }
}

void ItemImportPrivate::refuseLate(const Pending &p, const QString &reason)
{
    ++report.badRows;
    const auto byRow = [](const auto &a, const auto &b) {
        return a.row < b.row;
    };
    if (report.errors.size() < ItemImport::kMaxListedErrors) {
        const ItemImport::RowError error {p.row, QString(), reason};
        report.errors.insert(std::upper_bound(report.errors.begin(), report.errors.end(), error, byRow), error);
    }
    if (rejected.size() >= std::size_t(ItemImport::kMaxListedErrors)) {
        return;
    }
    // The sheet's cells are gone by now; the row is written back from what the import took of it.
    Rejected r;
    r.row = p.row;
    r.reason = reason;
    for (const auto &[column, header] : std::as_const(headerCells)) {
        QString text;
        for (const Mapping &m : std::as_const(mappings)) {
            if (m.sheetColumn != column) {
                continue;
            }
            if (m.target == Target::UnitName) {
                text = p.unitName.isEmpty() ? p.item->mUnitName() : p.unitName;
            } else if (m.target == Target::TypeName) {
                text = p.typeName.isEmpty() ? p.item->mTypeName() : p.typeName;
            } else {
                const QVariant value = p.item->value(m.itemColumn);
                switch (CItem::columns()[m.itemColumn].type) {
                case CItem::ColumnType::Currency:
                    text = value.value<Currency>().toString();
                    break;
                case CItem::ColumnType::Date:
                case CItem::ColumnType::DateTime:
                    text = value.toDateTime().isValid() ? value.toDateTime().toString(u"yyyy-MM-dd HH:mm:ss"_s)
                                                        : QString();
                    break;
                case CItem::ColumnType::Boolean:
                    text = value.toBool() ? u"是"_s : u"否"_s;
                    break;
                default:
                    text = value.toString();
                    break;
                }
            }
        }
        r.cells.append(text);
    }
    rejected.insert(std::upper_bound(rejected.begin(), rejected.end(), r, byRow), std::move(r));
}

bool ItemImport::writeRejected(const QString &file, const QString &sheetName, QString *error) const
{
    ExcelConnection excel;
    auto failWith = [&](const QString &message) {
        if (error) {
            *error = message;
        }
        return false;
    };
    if (!excel.Open(file)) {
        return failWith(excel.errorDescription());
    }
    // Column names must be unique and not empty; the headers of the sheet read are kept where they allow it.
    QStringList columns;
    for (const auto &[column, header] : std::as_const(d->headerCells)) {
        QString name = header.trimmed();
        name.replace(QRegularExpression(u"[\\s,()'\"\\[\\]]"_s), u"_"_s);
        if (name.isEmpty() || columns.contains(name)) {
            name = WorkbookReader::columnName(column) + u"列"_s;
        }
        columns.append(name);
    }
    columns.append(u"行号"_s);
    columns.append(u"错误原因"_s);
    QString sql = u"CREATE TABLE "_s + sheetName + u" ("_s;
    for (qsizetype i = 0; i < columns.size(); ++i) {
        sql += (i ? u","_s : QString()) + columns[i] + u" TEXT"_s;
    }
    sql += u")"_s;
    if (!excel.Execute(sql)) {
        return failWith(excel.errorDescription());
    }
    ExcelRecordset rows;
    if (!rows.Open(u"Select * From "_s + sheetName, excel)) {
        return failWith(rows.errorDescription());
    }
    for (const Rejected &r : d->rejected) {
        if (!rows.AddNew()) {
            return failWith(rows.errorDescription());
        }
        int c = 0;
        for (const QString &cell : r.cells) {
            rows.setField(c++, cell);
        }
        rows.setField(c++, QString::number(r.row));
        rows.setField(c, r.reason);
        if (!rows.Update()) {
            return failWith(rows.errorDescription());
        }
    }
    rows.Close();
    if (!excel.Close()) {
        return failWith(excel.errorDescription());
    }
    return true;
}
