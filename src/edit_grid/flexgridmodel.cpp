#include "flexgridmodel.h"

#include "module1core.h"

#include <QVarLengthArray>

#include <algorithm>
#include <cstdlib>
#include <cstring>

using namespace Qt::StringLiterals;

namespace {

std::uint32_t cellCount(const std::uint32_t *row)
{
    return row ? row[0] : 0;
}

QStringView cellText(const std::uint32_t *row, std::uint32_t col)
{
    if (!row || col >= row[0]) {
        return {};
    }
    const std::uint32_t count = row[0];
    const auto *chars = reinterpret_cast<const char16_t *>(row + 1 + count);
    const std::uint32_t begin = col == 0 ? 0 : row[col];
    const std::uint32_t end = row[1 + col];
    return QStringView(chars + begin, qsizetype(end - begin));
}

// A block for `cells`, or null when every cell is empty.
std::uint32_t *makeRow(const QVarLengthArray<QStringView, 32> &cells)
{
    qsizetype count = cells.size();
    while (count > 0 && cells[count - 1].isEmpty()) {
        --count;
    }
    if (count == 0) {
        return nullptr;
    }
    qsizetype chars = 0;
    for (qsizetype i = 0; i < count; ++i) {
        chars += cells[i].size();
    }
    const std::size_t bytes = sizeof(std::uint32_t) * std::size_t(1 + count) + sizeof(char16_t) * std::size_t(chars);
    auto *row = static_cast<std::uint32_t *>(std::malloc(bytes));
    if (!row) {
        throw std::bad_alloc();
    }
    row[0] = std::uint32_t(count);
    auto *out = reinterpret_cast<char16_t *>(row + 1 + count);
    std::uint32_t end = 0;
    for (qsizetype i = 0; i < count; ++i) {
        if (!cells[i].isEmpty()) {
            std::memcpy(out + end, cells[i].utf16(), sizeof(char16_t) * std::size_t(cells[i].size()));
        }
        end += std::uint32_t(cells[i].size());
        row[1 + i] = end;
    }
    return row;
}

} // namespace

bool FlexGridModel::isNumericText(const QString &text)
{
    return Module1::IsNumeric(text);
}

FlexGridModel::FlexGridModel(QObject *parent)
    : QAbstractTableModel(parent)
    , m_rows(2, nullptr)
    , m_colAlignment(2, AlignGeneral)
    , m_fixedAlignment(2, AlignGeneral)
{ }

FlexGridModel::~FlexGridModel()
{
    for (std::uint32_t *row : m_rows) {
        freeRow(row);
    }
    for (std::uint32_t *row : m_buffered) {
        freeRow(row);
    }
}

void FlexGridModel::freeRow(std::uint32_t *row)
{
    std::free(row);
}

int FlexGridModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_rows.size());
}

int FlexGridModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : m_cols;
}

QVariant FlexGridModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || !checkIndex(index, CheckIndexOption::IndexIsValid)) {
        return {};
    }
    switch (role) {
    case Qt::DisplayRole:
    case Qt::EditRole:
        return TextMatrix(index.row(), index.column());
    case Qt::BackgroundRole: {
        const auto it = m_cellBack.find(cellKey(index.row(), index.column()));
        if (it == m_cellBack.end()) {
            return {};
        }
        return QVariant::fromValue(it->second);
    }
    case Qt::TextAlignmentRole: {
        const bool fixed = index.row() < m_fixedRows || index.column() < m_fixedCols;
        const int alignment =
            fixed ? m_fixedAlignment[std::size_t(index.column())] : m_colAlignment[std::size_t(index.column())];
        return QVariant::fromValue(qtAlignment(alignment, TextMatrix(index.row(), index.column())));
    }
    default:
        return {};
    }
}

bool FlexGridModel::setData(const QModelIndex &index, const QVariant &value, int role)
{
    if (role != Qt::EditRole || !checkIndex(index, CheckIndexOption::IndexIsValid)) {
        return false;
    }
    return setTextMatrix(index.row(), index.column(), value.toString());
}

Qt::ItemFlags FlexGridModel::flags(const QModelIndex &index) const
{
    if (!index.isValid() || !checkIndex(index, CheckIndexOption::IndexIsValid)) {
        return Qt::NoItemFlags;
    }
    return Qt::ItemIsEnabled | Qt::ItemIsSelectable;
}

Qt::Alignment FlexGridModel::qtAlignment(int alignment, const QString &text) const
{
    switch (alignment) {
    case AlignLeft:
        return Qt::AlignLeft | Qt::AlignVCenter;
    case AlignCenter:
        return Qt::AlignCenter;
    case AlignRight:
        return Qt::AlignRight | Qt::AlignVCenter;
    default:
        // General: numbers to the right, text to the left.
        return (isNumericText(text) ? Qt::AlignRight : Qt::AlignLeft) | Qt::AlignVCenter;
    }
}

void FlexGridModel::setRows(qint32 rows)
{
    rows = std::max(rows, 0);
    const auto current = qint32(m_rows.size());
    if (rows > current) {
        beginInsertRows({}, current, rows - 1);
        m_rows.resize(std::size_t(rows), nullptr);
        endInsertRows();
    } else if (rows < current) {
        beginRemoveRows({}, rows, current - 1);
        for (std::size_t r = std::size_t(rows); r < m_rows.size(); ++r) {
            freeRow(m_rows[r]);
        }
        m_rows.resize(std::size_t(rows));
        m_cellBack.erase(m_cellBack.lower_bound(cellKey(rows, 0)), m_cellBack.end());
        endRemoveRows();
    }
    if (m_fixedRows > rows) {
        m_fixedRows = rows;
        Q_EMIT fixedCountsChanged();
    }
}

void FlexGridModel::dropCells(std::uint32_t first, std::uint32_t last)
{
    for (std::uint32_t *&row : m_rows) {
        const std::uint32_t count = cellCount(row);
        if (count <= first) {
            continue;
        }
        QVarLengthArray<QStringView, 32> cells;
        for (std::uint32_t c = 0; c < count; ++c) {
            if (c < first || c > last) {
                cells.append(cellText(row, c));
            }
        }
        std::uint32_t *rebuilt = makeRow(cells);
        freeRow(row);
        row = rebuilt;
    }
}

void FlexGridModel::setCols(qint32 cols)
{
    cols = std::max(cols, 0);
    if (cols > m_cols) {
        beginInsertColumns({}, m_cols, cols - 1);
        m_cols = cols;
        m_colAlignment.resize(std::size_t(cols), AlignGeneral);
        m_fixedAlignment.resize(std::size_t(cols), AlignGeneral);
        endInsertColumns();
    } else if (cols < m_cols) {
        beginRemoveColumns({}, cols, m_cols - 1);
        // Cells beyond the new width are dropped, so that widening again shows empty cells.
        dropCells(std::uint32_t(cols), std::uint32_t(m_cols - 1));
        m_cols = cols;
        m_colAlignment.resize(std::size_t(cols));
        m_fixedAlignment.resize(std::size_t(cols));
        endRemoveColumns();
    }
    if (m_fixedCols > cols) {
        m_fixedCols = cols;
        Q_EMIT fixedCountsChanged();
    }
}

void FlexGridModel::setFixedRows(qint32 rows)
{
    rows = std::clamp(rows, 0, Rows());
    if (rows == m_fixedRows) {
        return;
    }
    m_fixedRows = rows;
    Q_EMIT fixedCountsChanged();
    if (Rows() > 0 && m_cols > 0) {
        Q_EMIT dataChanged(index(0, 0), index(Rows() - 1, m_cols - 1), {Qt::TextAlignmentRole});
    }
}

void FlexGridModel::setFixedCols(qint32 cols)
{
    cols = std::clamp(cols, 0, m_cols);
    if (cols == m_fixedCols) {
        return;
    }
    m_fixedCols = cols;
    Q_EMIT fixedCountsChanged();
    if (Rows() > 0 && m_cols > 0) {
        Q_EMIT dataChanged(index(0, 0), index(Rows() - 1, m_cols - 1), {Qt::TextAlignmentRole});
    }
}

QString FlexGridModel::TextMatrix(qint32 row, qint32 col) const
{
    if (row < 0 || row >= Rows() || col < 0 || col >= m_cols) {
        return QString();
    }
    return cellText(m_rows[std::size_t(row)], std::uint32_t(col)).toString();
}

void FlexGridModel::setCell(std::size_t row, qint32 col, QStringView text)
{
    const std::uint32_t *old = m_rows[row];
    const std::uint32_t count = std::max(cellCount(old), std::uint32_t(col + 1));
    QVarLengthArray<QStringView, 32> cells;
    for (std::uint32_t c = 0; c < count; ++c) {
        cells.append(c == std::uint32_t(col) ? text : cellText(old, c));
    }
    std::uint32_t *fresh = makeRow(cells);
    freeRow(m_rows[row]);
    m_rows[row] = fresh;
}

bool FlexGridModel::setTextMatrix(qint32 row, qint32 col, const QString &text)
{
    if (row < 0 || row >= Rows() || col < 0 || col >= m_cols) {
        return false;
    }
    if (cellText(m_rows[std::size_t(row)], std::uint32_t(col)) == text) {
        return true;
    }
    setCell(std::size_t(row), col, text);
    const QModelIndex cell = index(row, col);
    Q_EMIT dataChanged(cell, cell, {Qt::DisplayRole, Qt::EditRole, Qt::TextAlignmentRole});
    Q_EMIT textChanged(row, col);
    return true;
}

bool FlexGridModel::AddItem(const QString &text, qint32 index)
{
    const auto rows = qint32(m_rows.size());
    if (index == -1) {
        index = rows;
    }
    if (index < 0 || index > rows) {
        return false;
    }
    QVarLengthArray<QStringView, 32> cells;
    for (const QStringView part : QStringView(text).tokenize(u'\t')) {
        if (cells.size() >= m_cols) {
            break;
        }
        cells.append(part);
    }
    std::uint32_t *row = makeRow(cells);
    beginInsertRows({}, index, index);
    m_rows.insert(m_rows.begin() + index, row);
    shiftCellColours(index, 1);
    endInsertRows();
    return true;
}

void FlexGridModel::AddItemBuffered(QStringView text)
{
    QVarLengthArray<QStringView, 32> cells;
    for (const QStringView part : text.tokenize(u'\t')) {
        if (cells.size() >= m_cols) {
            break;
        }
        cells.append(part);
    }
    m_buffered.push_back(makeRow(cells));
}

void FlexGridModel::FlushItems()
{
    if (m_buffered.empty()) {
        return;
    }
    const auto first = qint32(m_rows.size());
    beginInsertRows({}, first, first + qint32(m_buffered.size()) - 1);
    m_rows.insert(m_rows.end(), m_buffered.begin(), m_buffered.end());
    m_buffered.clear();
    endInsertRows();
}

qint64 FlexGridModel::cellKey(qint32 row, qint32 col)
{
    return (qint64(row) << 32) | quint32(col);
}

void FlexGridModel::shiftCellColours(qint32 fromRow, qint32 by)
{
    if (m_cellBack.empty()) {
        return;
    }
    std::map<qint64, QColor> moved;
    for (const auto &[key, colour] : m_cellBack) {
        const auto row = qint32(key >> 32);
        const auto col = qint32(quint32(key));
        if (row < fromRow) {
            moved.emplace(key, colour);
        } else if (by > 0 || row >= fromRow - by) {
            moved.emplace(cellKey(row + by, col), colour);
        }
    }
    m_cellBack.swap(moved);
}

QColor FlexGridModel::cellBackColor(qint32 row, qint32 col) const
{
    const auto it = m_cellBack.find(cellKey(row, col));
    return it == m_cellBack.end() ? QColor() : it->second;
}

void FlexGridModel::setCellBackColor(qint32 row, qint32 col, const QColor &colour)
{
    if (row < 0 || row >= Rows() || col < 0 || col >= m_cols) {
        return;
    }
    if (colour.isValid()) {
        m_cellBack[cellKey(row, col)] = colour;
    } else {
        m_cellBack.erase(cellKey(row, col));
    }
    const QModelIndex cell = index(row, col);
    Q_EMIT dataChanged(cell, cell, {Qt::BackgroundRole});
}

bool FlexGridModel::RemoveItem(qint32 index)
{
    if (index < 0 || index >= Rows()) {
        return false;
    }
    beginRemoveRows({}, index, index);
    freeRow(m_rows[std::size_t(index)]);
    m_rows.erase(m_rows.begin() + index);
    shiftCellColours(index, -1);
    endRemoveRows();
    if (m_fixedRows > Rows()) {
        m_fixedRows = Rows();
        Q_EMIT fixedCountsChanged();
    }
    return true;
}

void FlexGridModel::AddColItem(const QString &text)
{
    const qint32 col = m_cols;
    setCols(m_cols + 1);
    qint32 row = 0;
    for (const QStringView part : QStringView(text).tokenize(u'\t')) {
        if (row >= Rows()) {
            break;
        }
        if (!part.isEmpty()) {
            setCell(std::size_t(row), col, part);
        }
        ++row;
    }
    if (row > 0) {
        Q_EMIT dataChanged(index(0, col), index(row - 1, col));
    }
}

int FlexGridModel::ColAlignment(qint32 col) const
{
    return col >= 0 && col < m_cols ? m_colAlignment[std::size_t(col)] : AlignGeneral;
}

void FlexGridModel::setColAlignment(qint32 col, int alignment)
{
    if (col == -1 && m_cols > 0) {
        std::fill(m_colAlignment.begin(), m_colAlignment.end(), alignment);
        if (Rows() > 0) {
            Q_EMIT dataChanged(index(0, 0), index(Rows() - 1, m_cols - 1), {Qt::TextAlignmentRole});
        }
        return;
    }
    if (col < 0 || col >= m_cols) {
        return;
    }
    m_colAlignment[std::size_t(col)] = alignment;
    if (Rows() > 0) {
        Q_EMIT dataChanged(index(0, col), index(Rows() - 1, col), {Qt::TextAlignmentRole});
    }
}

int FlexGridModel::FixedAlignment(qint32 col) const
{
    return col >= 0 && col < m_cols ? m_fixedAlignment[std::size_t(col)] : AlignGeneral;
}

void FlexGridModel::setFixedAlignment(qint32 col, int alignment)
{
    if (col == -1 && m_cols > 0) {
        std::fill(m_fixedAlignment.begin(), m_fixedAlignment.end(), alignment);
        if (Rows() > 0) {
            Q_EMIT dataChanged(index(0, 0), index(Rows() - 1, m_cols - 1), {Qt::TextAlignmentRole});
        }
        return;
    }
    if (col < 0 || col >= m_cols) {
        return;
    }
    m_fixedAlignment[std::size_t(col)] = alignment;
    if (Rows() > 0) {
        Q_EMIT dataChanged(index(0, col), index(Rows() - 1, col), {Qt::TextAlignmentRole});
    }
}

void FlexGridModel::setFormatString(const QString &format)
{
    m_formatString = format;
    QString columnPart = format;
    QStringList rowHeadings;
    const qsizetype semicolon = format.indexOf(u';');
    if (semicolon >= 0) {
        columnPart = format.left(semicolon);
        // The parts after the ';' head the rows, the first of them standing for the corner.
        rowHeadings = format.mid(semicolon + 1).split(u'|');
    }
    const QStringList columns = columnPart.isEmpty() ? QStringList() : columnPart.split(u'|');
    if (!columns.isEmpty()) {
        setCols(qint32(columns.size()));
    }
    if (Rows() < 1) {
        setRows(1);
    }
    if (rowHeadings.size() > 1 && Rows() < qint32(rowHeadings.size())) {
        setRows(qint32(rowHeadings.size()));
    }
    setFixedRows(std::max(m_fixedRows, 1));
    for (qint32 c = 0; c < qint32(columns.size()); ++c) {
        QString heading = columns[c];
        int alignment = AlignGeneral;
        if (!heading.isEmpty()) {
            switch (heading.front().unicode()) {
            case u'<':
                alignment = AlignLeft;
                break;
            case u'^':
                alignment = AlignCenter;
                break;
            case u'>':
                alignment = AlignRight;
                break;
            default:
                break;
            }
            if (alignment != AlignGeneral) {
                heading.remove(0, 1);
            }
        }
        setColAlignment(c, alignment);
        setTextMatrix(0, c, heading);
    }
    if (rowHeadings.size() > 1) {
        setFixedCols(std::max(m_fixedCols, 1));
        for (qint32 r = 1; r < qint32(rowHeadings.size()); ++r) {
            setTextMatrix(r, 0, rowHeadings[r]);
        }
    }
}

QString FlexGridModel::clip(qint32 row1, qint32 col1, qint32 row2, qint32 col2) const
{
    if (row1 > row2) {
        std::swap(row1, row2);
    }
    if (col1 > col2) {
        std::swap(col1, col2);
    }
    QString out;
    for (qint32 r = std::max(row1, 0); r <= std::min(row2, Rows() - 1); ++r) {
        if (r > std::max(row1, 0)) {
            out += u'\r';
        }
        for (qint32 c = std::max(col1, 0); c <= std::min(col2, m_cols - 1); ++c) {
            if (c > std::max(col1, 0)) {
                out += u'\t';
            }
            out += cellText(m_rows[std::size_t(r)], std::uint32_t(c));
        }
    }
    return out;
}

void FlexGridModel::setClip(qint32 row, qint32 col, const QString &text)
{
    QString normalized = text;
    normalized.replace(u"\r\n"_s, u"\r"_s).replace(u'\n', u'\r');
    if (normalized.endsWith(u'\r')) {
        normalized.chop(1);
    }
    qint32 r = row;
    for (const QStringView line : QStringView(normalized).tokenize(u'\r')) {
        qint32 c = col;
        for (const QStringView cell : line.tokenize(u'\t')) {
            setTextMatrix(r, c, cell.toString());
            ++c;
        }
        ++r;
    }
}

void FlexGridModel::shiftTextsLeft(qint32 col)
{
    if (m_cols < 1) {
        return;
    }
    col = std::max(col, 0);
    const qint32 last = m_cols - 1;
    // The view loses its last column, so every other column keeps its width and alignment in place.
    beginRemoveColumns({}, last, last);
    if (col < last) {
        dropCells(std::uint32_t(col), std::uint32_t(col));
    } else {
        dropCells(std::uint32_t(last), std::uint32_t(last));
    }
    m_colAlignment.resize(std::size_t(last));
    m_fixedAlignment.resize(std::size_t(last));
    m_cols = last;
    endRemoveColumns();
    if (m_fixedCols > m_cols) {
        m_fixedCols = m_cols;
        Q_EMIT fixedCountsChanged();
    }
    if (col < m_cols && Rows() > 0) {
        Q_EMIT dataChanged(index(0, col), index(Rows() - 1, m_cols - 1));
    }
}

void FlexGridModel::clearAll()
{
    for (std::uint32_t *&row : m_rows) {
        freeRow(row);
        row = nullptr;
    }
    if (Rows() > 0 && m_cols > 0) {
        Q_EMIT dataChanged(index(0, 0), index(Rows() - 1, m_cols - 1));
    }
}
