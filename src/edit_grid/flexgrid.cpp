#include "flexgrid.h"

#include "olecolor.h"

#include <QApplication>
#include <QHeaderView>
#include <QMouseEvent>
#include <QPainter>
#include <QScrollBar>
#include <QStyledItemDelegate>

using namespace Qt::StringLiterals;

namespace {

// Paints a cell's own colour, or BackColor, so that the view's background can show BackColorBkg beyond the cells.
class CellDelegate : public QStyledItemDelegate
{
public:
    explicit CellDelegate(FlexGrid *grid)
        : QStyledItemDelegate(grid)
        , m_grid(grid)
    { }

    void paint(QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index) const override
    {
        const QVariant own = index.data(Qt::BackgroundRole);
        painter->fillRect(option.rect, own.isValid() ? own.value<QColor>() : OleColor::toColor(m_grid->BackColor()));
        QStyledItemDelegate::paint(painter, option, index);
    }

private:
    FlexGrid *m_grid;
};

constexpr int kGripPixels = 3; // how near a grid line the mouse takes hold of it

} // namespace

FlexGrid::FlexGrid(QWidget *parent)
    : QTableView(parent)
    , m_grid(new FlexGridModel(this))
{
    setModel(m_grid);
    setItemDelegate(new CellDelegate(this));
    setWordWrap(false);
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    setSelectionBehavior(QAbstractItemView::SelectItems);
    // MouseMove is reported over the cells for every move, not only while a button is held.
    viewport()->setMouseTracking(true);
    // Uniform row heights keep a million rows cheap for the vertical header.
    verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    verticalHeader()->setDefaultSectionSize(fontMetrics().height() + 6);
    horizontalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    // The headers only reserve the room of the fixed rows and columns; the views laid over them draw the cells.
    horizontalHeader()->setMinimumSectionSize(0);
    verticalHeader()->setMinimumSectionSize(0);
    m_top = makeOverlay();
    m_left = makeOverlay();
    m_corner = makeOverlay();
    connect(selectionModel(), &QItemSelectionModel::currentChanged, this, [this](const QModelIndex &current) {
        if (m_syncing || !current.isValid()) {
            return;
        }
        m_row = m_rowSel = current.row();
        m_col = m_colSel = current.column();
        Q_EMIT RowColChange();
    });
    connect(m_grid, &FlexGridModel::fixedCountsChanged, this, &FlexGrid::hideFixed);
    connect(horizontalScrollBar(), &QScrollBar::valueChanged, m_top->horizontalScrollBar(), &QScrollBar::setValue);
    connect(verticalScrollBar(), &QScrollBar::valueChanged, m_left->verticalScrollBar(), &QScrollBar::setValue);
    // The scrolling cells' sizes are the ones that count; the fixed rows and columns follow them.
    connect(horizontalHeader(), &QHeaderView::sectionResized, this, [this](int section, int, int size) {
        if (section >= FixedCols()) {
            m_top->setColumnWidth(section, size);
        }
    });
    connect(verticalHeader(), &QHeaderView::sectionResized, this, [this](int section, int, int size) {
        if (section >= FixedRows()) {
            m_left->setRowHeight(section, size);
        }
    });
    // Merged cells are spans over the visible rows only, so they follow every scroll and change of content.
    connect(verticalScrollBar(), &QScrollBar::valueChanged, this, &FlexGrid::updateMerges);
    connect(m_grid, &QAbstractItemModel::rowsInserted, this, [this](const QModelIndex &, int first, int last) {
        if (first < m_hiddenRows) {
            m_hiddenRows += last - first + 1;
            hideFixed();
        }
    });
    for (auto signal : {&QAbstractItemModel::rowsRemoved, &QAbstractItemModel::columnsInserted,
                        &QAbstractItemModel::columnsRemoved}) {
        connect(m_grid, signal, this, &FlexGrid::hideFixed);
    }
    connect(m_grid, &QAbstractItemModel::modelReset, this, &FlexGrid::hideFixed);
    for (auto signal : {&QAbstractItemModel::rowsInserted, &QAbstractItemModel::rowsRemoved,
                        &QAbstractItemModel::columnsInserted, &QAbstractItemModel::columnsRemoved}) {
        connect(m_grid, signal, this, &FlexGrid::scheduleMerges);
    }
    connect(m_grid, &QAbstractItemModel::dataChanged, this, &FlexGrid::scheduleMerges);
    connect(m_grid, &QAbstractItemModel::modelReset, this, &FlexGrid::scheduleMerges);
    hideFixed();
    applyColours();
}

FlexGrid::~FlexGrid() = default;

QTableView *FlexGrid::makeOverlay()
{
    auto *view = new QTableView(this);
    view->setModel(m_grid);
    view->setItemDelegate(new QStyledItemDelegate(view));
    view->setFocusPolicy(Qt::NoFocus);
    view->setFrameShape(QFrame::NoFrame);
    view->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    view->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    view->setSelectionMode(QAbstractItemView::NoSelection);
    view->setEditTriggers(QAbstractItemView::NoEditTriggers);
    view->setWordWrap(false);
    view->horizontalHeader()->hide();
    view->verticalHeader()->hide();
    view->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    view->verticalHeader()->setDefaultSectionSize(verticalHeader()->defaultSectionSize());
    view->horizontalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    view->horizontalHeader()->setMinimumSectionSize(0);
    view->verticalHeader()->setMinimumSectionSize(0);
    view->viewport()->installEventFilter(this);
    view->viewport()->setMouseTracking(true);
    return view;
}

QList<QObject *> FlexGrid::cellAreas() const
{
    return {viewport(), m_top->viewport(), m_left->viewport(), m_corner->viewport()};
}

QPoint FlexGrid::cellAt(const QWidget *area, const QPoint &pos) const
{
    for (const QTableView *view :
         {static_cast<const QTableView *>(this), static_cast<const QTableView *>(m_top),
          static_cast<const QTableView *>(m_left), static_cast<const QTableView *>(m_corner)}) {
        if (view->viewport() == area) {
            const QModelIndex index = view->indexAt(pos);
            return index.isValid() ? QPoint(index.row(), index.column()) : QPoint(-1, -1);
        }
    }
    return {-1, -1};
}

void FlexGrid::hideFixed()
{
    const qint32 fixedRows = FixedRows();
    const qint32 fixedCols = FixedCols();
    const qint32 rows = std::min(Rows(), std::max(m_hiddenRows, fixedRows));
    for (qint32 r = 0; r < rows; ++r) {
        setRowHidden(r, r < fixedRows);
        m_left->setRowHidden(r, r < fixedRows);
    }
    m_hiddenRows = fixedRows;
    for (qint32 c = 0; c < Cols(); ++c) {
        setColumnHidden(c, c < fixedCols);
        m_top->setColumnHidden(c, c < fixedCols);
    }
    updateHeaders();
}

void FlexGrid::updateHeaders()
{
    int width = 0;
    for (qint32 c = 0; c < FixedCols(); ++c) {
        width += m_corner->columnWidth(c);
    }
    int height = 0;
    for (qint32 r = 0; r < FixedRows(); ++r) {
        height += m_corner->rowHeight(r);
    }
    horizontalHeader()->setVisible(height > 0);
    verticalHeader()->setVisible(width > 0);
    horizontalHeader()->setFixedHeight(height);
    verticalHeader()->setFixedWidth(width);
    updateGeometries();
}

void FlexGrid::updateGeometries()
{
    QTableView::updateGeometries();
    if (!m_top) {
        return;
    }
    const QRect cells = viewport()->geometry();
    const int width = verticalHeader()->isVisible() ? verticalHeader()->width() : 0;
    const int height = horizontalHeader()->isVisible() ? horizontalHeader()->height() : 0;
    m_top->setGeometry(cells.left(), cells.top() - height, cells.width(), height);
    m_left->setGeometry(cells.left() - width, cells.top(), width, cells.height());
    m_corner->setGeometry(cells.left() - width, cells.top() - height, width, height);
    for (QTableView *view : {m_top, m_left, m_corner}) {
        view->setVisible(view->width() > 0 && view->height() > 0);
        view->raise();
    }
    m_top->horizontalScrollBar()->setValue(horizontalScrollBar()->value());
    m_left->verticalScrollBar()->setValue(verticalScrollBar()->value());
}

bool FlexGrid::eventFilter(QObject *watched, QEvent *event)
{
    for (QTableView *view : {m_top, m_left, m_corner}) {
        if (view && view->viewport() == watched) {
            return fixedAreaMouse(view, event) || QTableView::eventFilter(watched, event);
        }
    }
    return QTableView::eventFilter(watched, event);
}

bool FlexGrid::fixedAreaMouse(QTableView *view, QEvent *event)
{
    switch (event->type()) {
    case QEvent::Wheel:
        QApplication::sendEvent(viewport(), event);
        return true;
    case QEvent::MouseButtonPress:
    case QEvent::MouseButtonDblClick: {
        auto *e = static_cast<QMouseEvent *>(event);
        const QPoint pos = e->position().toPoint();
        if (e->button() == Qt::LeftButton && view->viewport()->cursor().shape() != Qt::ArrowCursor) {
            const bool column = view->viewport()->cursor().shape() == Qt::SplitHCursor;
            const QHeaderView *header = column ? view->horizontalHeader() : view->verticalHeader();
            const int at = column ? pos.x() : pos.y();
            m_dragSection = header->logicalIndexAt(at - kGripPixels);
            m_dragColumn = column;
            m_dragOrigin = at;
            m_dragStartSize = header->sectionSize(m_dragSection);
            return true;
        }
        const QModelIndex index = view->indexAt(pos);
        if (index.isValid() && (index.row() != m_row || index.column() != m_col)) {
            m_row = m_rowSel = index.row();
            m_col = m_colSel = index.column();
            Q_EMIT RowColChange();
        }
        setFocus(Qt::MouseFocusReason);
        return true;
    }
    case QEvent::MouseMove: {
        auto *e = static_cast<QMouseEvent *>(event);
        const QPoint pos = e->position().toPoint();
        if (m_dragSection >= 0) {
            const int size = std::max(0, m_dragStartSize + (m_dragColumn ? pos.x() : pos.y()) - m_dragOrigin);
            if (m_dragColumn) {
                setColWidth(m_dragSection, pixelsToTwipsX(size));
            } else {
                setRowHeight(m_dragSection, pixelsToTwipsY(size));
            }
            return true;
        }
        // A grid line of the fixed rows resizes columns, one of the fixed columns resizes rows.
        Qt::CursorShape shape = Qt::ArrowCursor;
        if ((m_allowUserResizing & 1) && view != m_left) {
            const QHeaderView *header = view->horizontalHeader();
            const int section = header->logicalIndexAt(pos.x() - kGripPixels);
            if (section >= 0
                && std::abs(header->sectionViewportPosition(section) + header->sectionSize(section) - pos.x())
                    <= kGripPixels) {
                shape = Qt::SplitHCursor;
            }
        }
        if ((m_allowUserResizing & 2) && view != m_top && shape == Qt::ArrowCursor) {
            const QHeaderView *header = view->verticalHeader();
            const int section = header->logicalIndexAt(pos.y() - kGripPixels);
            if (section >= 0
                && std::abs(header->sectionViewportPosition(section) + header->sectionSize(section) - pos.y())
                    <= kGripPixels) {
                shape = Qt::SplitVCursor;
            }
        }
        view->viewport()->setCursor(shape);
        return true;
    }
    case QEvent::MouseButtonRelease:
        m_dragSection = -1;
        return true;
    default:
        return false;
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
    // A fixed cell is current for the grid only; the scrolling cells keep their own current cell.
    if (m_row < FixedRows() || m_col < FixedCols()) {
        return;
    }
    const QModelIndex index = m_grid->index(m_row, m_col);
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
    const int pixels = col < FixedCols() ? m_corner->columnWidth(col) : columnWidth(col);
    const auto set = m_colTwips.constFind(col);
    if (set != m_colTwips.constEnd() && twipsToPixelsX(*set) == pixels) {
        return *set;
    }
    return pixelsToTwipsX(pixels);
}

void FlexGrid::setColWidth(qint32 col, qint32 twips)
{
    if (col == -1) {
        for (qint32 c = 0; c < Cols(); ++c) {
            setColWidth(c, twips);
        }
        return;
    }
    if (col < 0 || col >= Cols() || twips < -1) {
        return;
    }
    if (twips == -1) {
        m_colTwips.remove(col);
    } else {
        m_colTwips.insert(col, twips);
    }
    const int pixels = twips == -1 ? horizontalHeader()->defaultSectionSize() : twipsToPixelsX(twips);
    if (col < FixedCols()) {
        m_corner->setColumnWidth(col, pixels);
        m_left->setColumnWidth(col, pixels);
        // The main view keeps the width for when the column stops being fixed.
        horizontalHeader()->resizeSection(col, pixels);
        updateHeaders();
        return;
    }
    setColumnWidth(col, pixels);
}

qint32 FlexGrid::RowHeight(qint32 row) const
{
    if (row < 0 || row >= Rows()) {
        return 0;
    }
    const int pixels = row < FixedRows() ? m_corner->rowHeight(row) : rowHeight(row);
    const auto set = m_rowTwips.constFind(row);
    const qint32 twips = set != m_rowTwips.constEnd() ? *set : m_everyRowTwips;
    if (twips >= 0 && twipsToPixelsY(twips) == pixels) {
        return twips;
    }
    return pixelsToTwipsY(pixels);
}

void FlexGrid::setRowHeight(qint32 row, qint32 twips)
{
    if (row == -1) {
        if (twips < 0) {
            return;
        }
        for (qint32 r = 0; r < Rows(); ++r) {
            setRowHeight(r, twips);
        }
        m_rowTwips.clear();
        m_everyRowTwips = twips;
        return;
    }
    if (row < 0 || row >= Rows() || twips < 0) {
        return;
    }
    m_rowTwips.insert(row, twips);
    const int pixels = twipsToPixelsY(twips);
    if (row < FixedRows()) {
        m_corner->setRowHeight(row, pixels);
        m_top->setRowHeight(row, pixels);
        verticalHeader()->resizeSection(row, pixels);
        updateHeaders();
        return;
    }
    QTableView::setRowHeight(row, pixels);
}

void FlexGrid::keyboardSearch(const QString &)
{
    // A typed character is the host's (KeyPress); jumping to a cell that starts with it would move the clerk's
    // place, even onto a heading.
}

bool FlexGrid::focusNextPrevChild(bool next)
{
    const QModelIndex current = currentIndex();
    if (tabKeyNavigation() && current.isValid() && isVisible() && isEnabled()) {
        const QModelIndex to = moveCursor(next ? MoveNext : MovePrevious, Qt::NoModifier);
        const auto before = [](const QModelIndex &a, const QModelIndex &b) {
            return a.row() < b.row() || (a.row() == b.row() && a.column() < b.column());
        };
        // The view wraps from the last cell to the first and back: past either end the focus leaves the grid.
        const bool wraps = !to.isValid() || to == current || (next ? before(to, current) : before(current, to));
        if (wraps) {
            return QWidget::focusNextPrevChild(next);
        }
    }
    return QTableView::focusNextPrevChild(next);
}

qint32 FlexGrid::CellLeft() const
{
    const QModelIndex index = m_grid->index(m_row, m_col);
    if (!index.isValid()) {
        return 0;
    }
    if (m_row < FixedRows() || m_col < FixedCols()) {
        const QTableView *view = m_row < FixedRows() ? (m_col < FixedCols() ? m_corner : m_top) : m_left;
        return pixelsToTwipsX(view->viewport()->mapTo(this, view->visualRect(index).topLeft()).x());
    }
    return pixelsToTwipsX(viewport()->mapTo(this, visualRect(index).topLeft()).x());
}

qint32 FlexGrid::CellTop() const
{
    const QModelIndex index = m_grid->index(m_row, m_col);
    if (!index.isValid()) {
        return 0;
    }
    if (m_row < FixedRows() || m_col < FixedCols()) {
        const QTableView *view = m_row < FixedRows() ? (m_col < FixedCols() ? m_corner : m_top) : m_left;
        return pixelsToTwipsY(view->viewport()->mapTo(this, view->visualRect(index).topLeft()).y());
    }
    return pixelsToTwipsY(viewport()->mapTo(this, visualRect(index).topLeft()).y());
}

quint32 FlexGrid::CellBackColor() const
{
    const QColor colour = m_grid->cellBackColor(m_row, m_col);
    return colour.isValid() ? OleColor::fromColor(colour) : 0u;
}

void FlexGrid::setCellBackColor(quint32 color)
{
    const QColor colour = color == 0 ? QColor() : OleColor::toColor(color);
    if (m_fillStyle != 1) {
        m_grid->setCellBackColor(m_row, m_col, colour);
        return;
    }
    for (qint32 r = std::min(m_row, m_rowSel); r <= std::max(m_row, m_rowSel); ++r) {
        for (qint32 c = std::min(m_col, m_colSel); c <= std::max(m_col, m_colSel); ++c) {
            m_grid->setCellBackColor(r, c, colour);
        }
    }
}

void FlexGrid::paintColours()
{
    const GridColours &c = colours();
    auto css = [](quint32 color) {
        return OleColor::toColor(color).name();
    };
    // Cells take BackColor from the delegate; the view's own background is what lies beyond the last cell.
    setStyleSheet(u"FlexGrid { background-color: %1; color: %2; gridline-color: %3; "
                  "selection-background-color: %4; selection-color: %5; }"_s.arg(
                      css(c.backBkg), css(c.fore), css(c.grid), css(c.backSel), css(c.foreSel)));
    const QString fixed = u"QTableView { background-color: %1; color: %2; gridline-color: %3; border: 0px; }"_s.arg(
        css(c.backFixed), css(c.foreFixed), css(c.gridFixed));
    for (QTableView *view : {m_top, m_left, m_corner}) {
        if (view) {
            view->setStyleSheet(fixed);
        }
    }
    viewport()->update();
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
        for (QTableView *view : {static_cast<QTableView *>(this), m_top, m_left, m_corner}) {
            view->clearSpans();
        }
        m_hasSpans = false;
    }
    const int rows = Rows();
    const int cols = Cols();
    const int fixedRows = FixedRows();
    const int fixedCols = FixedCols();
    if (m_mergeCells == 0) {
        return;
    }
    // Fixed rows and columns merge too (headings over several columns, a group name down its rows); they are
    // drawn by the views over the edges, so their spans go there.
    const auto mergeAlong = [this](QTableView *view, bool across, int line, int from, int to) {
        for (int i = from; i <= to;) {
            const QString value = across ? m_grid->TextMatrix(line, i) : m_grid->TextMatrix(i, line);
            int end = i;
            while (!value.isEmpty() && end < to
                   && (across ? m_grid->TextMatrix(line, end + 1) : m_grid->TextMatrix(end + 1, line)) == value) {
                ++end;
            }
            if (end > i) {
                if (across) {
                    view->setSpan(line, i, 1, end - i + 1);
                } else {
                    view->setSpan(i, line, end - i + 1, 1);
                }
                m_hasSpans = true;
            }
            i = end + 1;
        }
    };
    const int firstShown = std::max(fixedRows, rowAt(0));
    const int lastShown = rowAt(viewport()->height() - 1) < 0 ? rows - 1 : rowAt(viewport()->height() - 1);
    if (m_mergeCells != 3) {
        for (int r = 0; r < std::min(fixedRows, rows); ++r) {
            if (MergeRow(r)) {
                mergeAlong(m_corner, true, r, 0, std::min(fixedCols, cols) - 1);
                mergeAlong(m_top, true, r, fixedCols, cols - 1);
            }
        }
    }
    if (m_mergeCells != 2) {
        for (int c = 0; c < std::min(fixedCols, cols); ++c) {
            if (MergeCol(c)) {
                mergeAlong(m_corner, false, c, 0, std::min(fixedRows, rows) - 1);
                if (firstShown <= lastShown) {
                    mergeAlong(m_left, false, c, firstShown, lastShown);
                }
            }
        }
    }
    if (rows <= fixedRows || cols <= fixedCols) {
        return;
    }
    const int first = std::max(fixedRows, rowAt(0));
    int last = rowAt(viewport()->height() - 1);
    if (last < 0) {
        last = rows - 1;
    }
    if (last < first) {
        return;
    }
    const int height = last - first + 1;
    std::vector<char> covered(std::size_t(height) * std::size_t(cols), 0);
    auto text = [this](int r, int c) {
        return m_grid->TextMatrix(r, c);
    };
    if (m_mergeCells != 2) {
        for (int c = fixedCols; c < cols; ++c) {
            if (!MergeCol(c)) {
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
            if (!MergeRow(r)) {
                continue;
            }
            const char *rowCovered = covered.data() + std::size_t(r - first) * std::size_t(cols);
            for (int c = fixedCols; c < cols;) {
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
        for (QTableView *view : {static_cast<QTableView *>(this), m_top, m_left, m_corner}) {
            view->verticalHeader()->setMinimumSectionSize(pixels);
            view->verticalHeader()->setDefaultSectionSize(
                std::max(view->verticalHeader()->defaultSectionSize(), pixels));
        }
        updateHeaders();
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
