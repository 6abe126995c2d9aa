#include "flexgrid.h"

#include "fixedheaderproxy.h"
#include "olecolor.h"

#include <QHeaderView>
#include <QScrollBar>

using namespace Qt::StringLiterals;

FlexGrid::FlexGrid(QWidget *parent)
    : QTableView(parent)
    , m_grid(new FlexGridModel(this))
    , m_proxy(new FixedHeaderProxy(m_grid, this))
{
    setModel(m_proxy);
    setWordWrap(false);
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    setSelectionBehavior(QAbstractItemView::SelectItems);
    // Uniform row heights keep a million rows cheap for the vertical header.
    verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    verticalHeader()->setDefaultSectionSize(fontMetrics().height() + 6);
    horizontalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    horizontalHeader()->setHighlightSections(false);
    verticalHeader()->setHighlightSections(false);
    connect(selectionModel(), &QItemSelectionModel::currentChanged, this, [this](const QModelIndex &current) {
        if (m_syncing || !current.isValid()) {
            return;
        }
        m_row = m_rowSel = current.row() + FixedRows();
        m_col = m_colSel = current.column() + FixedCols();
        Q_EMIT RowColChange();
    });
    connect(m_grid, &FlexGridModel::fixedCountsChanged, this, &FlexGrid::updateHeaders);
    // Merged cells are spans over the visible rows only, so they follow every scroll and change of content.
    connect(verticalScrollBar(), &QScrollBar::valueChanged, this, &FlexGrid::updateMerges);
    for (auto signal : {&QAbstractItemModel::rowsInserted, &QAbstractItemModel::rowsRemoved,
                        &QAbstractItemModel::columnsInserted, &QAbstractItemModel::columnsRemoved}) {
        connect(m_proxy, signal, this, &FlexGrid::scheduleMerges);
    }
    connect(m_proxy, &QAbstractItemModel::dataChanged, this, &FlexGrid::scheduleMerges);
    connect(m_proxy, &QAbstractItemModel::modelReset, this, &FlexGrid::scheduleMerges);
    updateHeaders();
    applyColours();
}

FlexGrid::~FlexGrid() = default;

void FlexGrid::updateHeaders()
{
    horizontalHeader()->setVisible(FixedRows() > 0);
    verticalHeader()->setVisible(FixedCols() > 0);
    if (FixedRows() > 1) {
        horizontalHeader()->setMinimumHeight((fontMetrics().height() + 4) * FixedRows());
    }
}

void FlexGrid::setCols(qint32 cols)
{
    m_grid->setCols(cols);
}

void FlexGrid::setFixedRows(qint32 rows)
{
    m_grid->setFixedRows(rows);
}

void FlexGrid::setFixedCols(qint32 cols)
{
    m_grid->setFixedCols(cols);
}

void FlexGrid::syncCurrent()
{
    const QModelIndex index = m_proxy->index(m_row - FixedRows(), m_col - FixedCols());
    if (!index.isValid()) {
        return;
    }
    m_syncing = true;
    selectionModel()->setCurrentIndex(index, QItemSelectionModel::ClearAndSelect);
    m_syncing = false;
}

void FlexGrid::setRow(qint32 row)
{
    if (row < 0 || row >= Rows()) {
        return;
    }
    const bool moved = row != m_row;
    m_row = m_rowSel = row;
    syncCurrent();
    if (moved) {
        Q_EMIT RowColChange();
    }
}

void FlexGrid::setCol(qint32 col)
{
    if (col < 0 || col >= Cols()) {
        return;
    }
    const bool moved = col != m_col;
    m_col = m_colSel = col;
    syncCurrent();
    if (moved) {
        Q_EMIT RowColChange();
    }
}

void FlexGrid::setRowSel(qint32 row)
{
    if (row >= 0 && row < Rows()) {
        m_rowSel = row;
    }
}

void FlexGrid::setColSel(qint32 col)
{
    if (col >= 0 && col < Cols()) {
        m_colSel = col;
    }
}

int FlexGrid::twipsToPixelsX(qint32 twips) const
{
    return qRound(double(twips) * logicalDpiX() / 1440.0);
}

int FlexGrid::twipsToPixelsY(qint32 twips) const
{
    return qRound(double(twips) * logicalDpiY() / 1440.0);
}

qint32 FlexGrid::pixelsToTwipsX(int pixels) const
{
    return qRound(double(pixels) * 1440.0 / logicalDpiX());
}

qint32 FlexGrid::pixelsToTwipsY(int pixels) const
{
    return qRound(double(pixels) * 1440.0 / logicalDpiY());
}

qint32 FlexGrid::ColWidth(qint32 col) const
{
    if (col < 0 || col >= Cols()) {
        return 0;
    }
    if (col < FixedCols()) {
        return pixelsToTwipsX(verticalHeader()->isVisible() ? verticalHeader()->width()
                                                            : verticalHeader()->sizeHint().width());
    }
    return pixelsToTwipsX(columnWidth(col - FixedCols()));
}

void FlexGrid::setColWidth(qint32 col, qint32 twips)
{
    if (col < 0 || col >= Cols() || twips < 0) {
        return;
    }
    if (col < FixedCols()) {
        verticalHeader()->setFixedWidth(twipsToPixelsX(twips));
        return;
    }
    setColumnWidth(col - FixedCols(), twipsToPixelsX(twips));
}

qint32 FlexGrid::RowHeight(qint32 row) const
{
    if (row < 0 || row >= Rows()) {
        return 0;
    }
    if (row < FixedRows()) {
        return pixelsToTwipsY(horizontalHeader()->height() / std::max(1, FixedRows()));
    }
    return pixelsToTwipsY(rowHeight(row - FixedRows()));
}

void FlexGrid::setRowHeight(qint32 row, qint32 twips)
{
    if (row < 0 || row >= Rows() || twips < 0) {
        return;
    }
    if (row < FixedRows()) {
        horizontalHeader()->setFixedHeight(twipsToPixelsY(twips) * FixedRows());
        return;
    }
    QTableView::setRowHeight(row - FixedRows(), twipsToPixelsY(twips));
}

qint32 FlexGrid::CellLeft() const
{
    const QModelIndex index = m_proxy->index(m_row - FixedRows(), m_col - FixedCols());
    if (!index.isValid()) {
        return 0;
    }
    return pixelsToTwipsX(viewport()->mapTo(this, visualRect(index).topLeft()).x());
}

qint32 FlexGrid::CellTop() const
{
    const QModelIndex index = m_proxy->index(m_row - FixedRows(), m_col - FixedCols());
    if (!index.isValid()) {
        return 0;
    }
    return pixelsToTwipsY(viewport()->mapTo(this, visualRect(index).topLeft()).y());
}

void FlexGrid::setMergeCells(int mode)
{
    m_mergeCells = mode;
    updateMerges();
}

void FlexGrid::scheduleMerges()
{
    if (m_mergeCells == 0 && !m_hasSpans) {
        return;
    }
    if (!m_mergePending) {
        m_mergePending = true;
        QMetaObject::invokeMethod(
            this,
            [this]() {
                m_mergePending = false;
                updateMerges();
            },
            Qt::QueuedConnection);
    }
}

void FlexGrid::updateMerges()
{
    if (m_hasSpans) {
        clearSpans();
        m_hasSpans = false;
    }
    const int rows = m_proxy->rowCount();
    const int cols = m_proxy->columnCount();
    if (m_mergeCells == 0 || rows == 0 || cols == 0) {
        return;
    }
    const int first = qMax(0, rowAt(0));
    int last = rowAt(viewport()->height() - 1);
    if (last < 0) {
        last = rows - 1;
    }
    const int height = last - first + 1;
    std::vector<char> covered(std::size_t(height) * std::size_t(cols), 0);
    auto text = [this](int r, int c) {
        return m_grid->TextMatrix(r + FixedRows(), c + FixedCols());
    };
    if (m_mergeCells != 2) {
        for (int c = 0; c < cols; ++c) {
            if (!MergeCol(c + FixedCols())) {
                continue;
            }
            for (int r = first; r <= last;) {
                const QString value = text(r, c);
                int end = r;
                while (!value.isEmpty() && end < last && text(end + 1, c) == value) {
                    ++end;
                }
                if (end > r) {
                    setSpan(r, c, end - r + 1, 1);
                    m_hasSpans = true;
                    for (int k = r; k <= end; ++k) {
                        covered[std::size_t(k - first) * std::size_t(cols) + std::size_t(c)] = 1;
                    }
                }
                r = end + 1;
            }
        }
    }
    if (m_mergeCells != 3) {
        for (int r = first; r <= last; ++r) {
            if (!MergeRow(r + FixedRows())) {
                continue;
            }
            const char *rowCovered = covered.data() + std::size_t(r - first) * std::size_t(cols);
            for (int c = 0; c < cols;) {
                const QString value = text(r, c);
                int end = c;
                while (!rowCovered[c] && !value.isEmpty() && end + 1 < cols && !rowCovered[end + 1]
                       && text(r, end + 1) == value) {
                    ++end;
                }
                if (end > c) {
                    setSpan(r, c, 1, end - c + 1);
                    m_hasSpans = true;
                }
                c = end + 1;
            }
        }
    }
}

bool FlexGrid::MergeRow(qint32 row) const
{
    return row >= 0 && std::size_t(row) < m_mergeRows.size() && m_mergeRows[std::size_t(row)];
}

void FlexGrid::setMergeRow(qint32 row, bool merge)
{
    if (row < 0) {
        return;
    }
    if (std::size_t(row) >= m_mergeRows.size()) {
        m_mergeRows.resize(std::size_t(row) + 1, false);
    }
    m_mergeRows[std::size_t(row)] = merge;
    scheduleMerges();
}

bool FlexGrid::MergeCol(qint32 col) const
{
    return col >= 0 && std::size_t(col) < m_mergeCols.size() && m_mergeCols[std::size_t(col)];
}

void FlexGrid::setMergeCol(qint32 col, bool merge)
{
    if (col < 0) {
        return;
    }
    if (std::size_t(col) >= m_mergeCols.size()) {
        m_mergeCols.resize(std::size_t(col) + 1, false);
    }
    m_mergeCols[std::size_t(col)] = merge;
    scheduleMerges();
}

void FlexGrid::resizeEvent(QResizeEvent *event)
{
    QTableView::resizeEvent(event);
    scheduleMerges();
}

void FlexGrid::setFormatString(const QString &format)
{
    m_grid->setFormatString(format);
}

QString FlexGrid::Clip() const
{
    return m_grid->clip(m_row, m_col, m_rowSel, m_colSel);
}

void FlexGrid::setClip(const QString &text)
{
    m_grid->setClip(std::min(m_row, m_rowSel), std::min(m_col, m_colSel), text);
}

void FlexGrid::setRowHeightMin(qint32 twips)
{
    m_rowHeightMin = std::max(0, twips);
    if (m_rowHeightMin > 0) {
        const int pixels = twipsToPixelsY(m_rowHeightMin);
        verticalHeader()->setMinimumSectionSize(pixels);
        verticalHeader()->setDefaultSectionSize(std::max(verticalHeader()->defaultSectionSize(), pixels));
    }
}

void FlexGrid::setAllowUserResizing(int mode)
{
    m_allowUserResizing = mode;
    horizontalHeader()->setSectionResizeMode((mode & 1) ? QHeaderView::Interactive : QHeaderView::Fixed);
    verticalHeader()->setSectionResizeMode((mode & 2) ? QHeaderView::Interactive : QHeaderView::Fixed);
}

void FlexGrid::setScrollBars(int bars)
{
    m_scrollBars = bars;
    setHorizontalScrollBarPolicy((bars & 1) ? Qt::ScrollBarAsNeeded : Qt::ScrollBarAlwaysOff);
    setVerticalScrollBarPolicy((bars & 2) ? Qt::ScrollBarAsNeeded : Qt::ScrollBarAlwaysOff);
}

void FlexGrid::setSelectionMode(int mode)
{
    m_selectionMode = mode;
    setSelectionBehavior(mode == 1       ? QAbstractItemView::SelectRows
                             : mode == 2 ? QAbstractItemView::SelectColumns
                                         : QAbstractItemView::SelectItems);
}

void FlexGrid::setAppearance(int appearance)
{
    m_appearance = appearance;
    setFrameShadow(appearance == 1 ? QFrame::Sunken : QFrame::Plain);
}

void FlexGrid::setBorderStyle(int style)
{
    m_borderStyle = style;
    setFrameShape(style == 0 ? QFrame::NoFrame : QFrame::StyledPanel);
}
