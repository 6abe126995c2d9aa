#ifndef QUILLON_FLEXGRID_H
#define QUILLON_FLEXGRID_H

#include "flexgridmodel.h"
#include "gridcolours.h"
#include "quillon_export.h"

#include <QHash>
#include <QTableView>

/**
 * The flexible grid (Flexgd1): a table view over a FlexGridModel whose fixed rows and columns stay in place while
 * the other cells scroll, with the classic grid properties (sizes in twips, colours in the 0x00BBGGRR form). Only
 * the visible cells are painted, so a million rows scroll smoothly.
 *
 * The view's model is the FlexGridModel itself: model rows and columns are grid rows and columns. Every fixed row
 * and column is a real one with its own height or width, drawn by three views laid over the edges (cellAreas()).
 * Pressing a fixed cell makes it the current cell; with AllowUserResizing, dragging a grid line between fixed
 * cells resizes the column or row.
 */
class QUILLON_EXPORT FlexGrid : public QTableView, public GridColourProperties<FlexGrid>
{
    Q_OBJECT
    Q_PROPERTY(qint32 Rows READ Rows WRITE setRows)
    Q_PROPERTY(qint32 Cols READ Cols WRITE setCols)
    Q_PROPERTY(qint32 FixedRows READ FixedRows WRITE setFixedRows)
    Q_PROPERTY(qint32 FixedCols READ FixedCols WRITE setFixedCols)
    Q_PROPERTY(qint32 Row READ Row WRITE setRow)
    Q_PROPERTY(qint32 Col READ Col WRITE setCol)
    Q_PROPERTY(qint32 RowSel READ RowSel WRITE setRowSel)
    Q_PROPERTY(qint32 ColSel READ ColSel WRITE setColSel)
    Q_PROPERTY(QString FormatString READ FormatString WRITE setFormatString)
    Q_PROPERTY(QString Clip READ Clip WRITE setClip)
    Q_PROPERTY(bool Redraw READ Redraw WRITE setRedraw)
    Q_PROPERTY(qint32 RowHeightMin READ RowHeightMin WRITE setRowHeightMin)
    Q_PROPERTY(quint32 BackColor READ BackColor WRITE setBackColor)
    Q_PROPERTY(quint32 ForeColor READ ForeColor WRITE setForeColor)
    Q_PROPERTY(quint32 BackColorFixed READ BackColorFixed WRITE setBackColorFixed)
    Q_PROPERTY(quint32 ForeColorFixed READ ForeColorFixed WRITE setForeColorFixed)
    Q_PROPERTY(quint32 BackColorBkg READ BackColorBkg WRITE setBackColorBkg)
    Q_PROPERTY(quint32 BackColorSel READ BackColorSel WRITE setBackColorSel)
    Q_PROPERTY(quint32 ForeColorSel READ ForeColorSel WRITE setForeColorSel)
    Q_PROPERTY(quint32 GridColor READ GridColor WRITE setGridColor)
    Q_PROPERTY(quint32 GridColorFixed READ GridColorFixed WRITE setGridColorFixed)
    Q_PROPERTY(int AllowUserResizing READ AllowUserResizing WRITE setAllowUserResizing)
    Q_PROPERTY(int ScrollBars READ ScrollBars WRITE setScrollBars)
    Q_PROPERTY(int SelectionMode READ SelectionMode WRITE setSelectionMode)
    Q_PROPERTY(bool AllowBigSelection READ AllowBigSelection WRITE setAllowBigSelection)
    Q_PROPERTY(int MergeCells READ MergeCells WRITE setMergeCells)
    Q_PROPERTY(int FillStyle READ FillStyle WRITE setFillStyle)
    Q_PROPERTY(int Appearance READ Appearance WRITE setAppearance)
    Q_PROPERTY(int BorderStyle READ BorderStyle WRITE setBorderStyle)
    Q_PROPERTY(quint32 CellBackColor READ CellBackColor WRITE setCellBackColor)

public:
    explicit FlexGrid(QWidget *parent = nullptr);
    /// Typed characters never move the current cell (the view's type-to-search is off).
    void keyboardSearch(const QString &search) override;
    ~FlexGrid() override;
    Q_DISABLE_COPY_MOVE(FlexGrid)

    FlexGridModel *grid() const { return m_grid; }

    qint32 Rows() const { return m_grid->Rows(); }
    void setRows(qint32 rows) { m_grid->setRows(rows); }
    qint32 Cols() const { return m_grid->Cols(); }
    void setCols(qint32 cols);
    qint32 FixedRows() const { return m_grid->FixedRows(); }
    void setFixedRows(qint32 rows);
    qint32 FixedCols() const { return m_grid->FixedCols(); }
    void setFixedCols(qint32 cols);

    Q_INVOKABLE QString TextMatrix(qint32 row, qint32 col) const { return m_grid->TextMatrix(row, col); }
    Q_INVOKABLE void setTextMatrix(qint32 row, qint32 col, const QString &text)
    {
        m_grid->setTextMatrix(row, col, text);
    }
    Q_INVOKABLE void AddItem(const QString &text, qint32 index = -1) { m_grid->AddItem(text, index); }
    Q_INVOKABLE void RemoveItem(qint32 index) { m_grid->RemoveItem(index); }

    /// The current cell, in grid coordinates (fixed rows and columns counted).
    qint32 Row() const { return m_row; }
    void setRow(qint32 row);
    qint32 Col() const { return m_col; }
    void setCol(qint32 col);
    qint32 RowSel() const { return m_rowSel; }
    void setRowSel(qint32 row);
    qint32 ColSel() const { return m_colSel; }
    void setColSel(qint32 col);

    /// Widths and heights in twips (1/1440 inch), converted with the screen's logical resolution; a width of -1
    /// is the default width. Setting column or row -1 sets every column or row (as do the alignments below).
    Q_INVOKABLE qint32 ColWidth(qint32 col) const;
    Q_INVOKABLE void setColWidth(qint32 col, qint32 twips);
    Q_INVOKABLE qint32 RowHeight(qint32 row) const;
    Q_INVOKABLE void setRowHeight(qint32 row, qint32 twips);
    /// Left and top of a cell relative to the grid, in twips (for placing an editor over it).
    Q_INVOKABLE qint32 CellLeft() const;
    Q_INVOKABLE qint32 CellTop() const;
    Q_INVOKABLE int ColAlignment(qint32 col) const { return m_grid->ColAlignment(col); }
    Q_INVOKABLE void setColAlignment(qint32 col, int alignment) { m_grid->setColAlignment(col, alignment); }
    Q_INVOKABLE int FixedAlignment(qint32 col) const { return m_grid->FixedAlignment(col); }
    Q_INVOKABLE void setFixedAlignment(qint32 col, int alignment) { m_grid->setFixedAlignment(col, alignment); }
    Q_INVOKABLE bool MergeRow(qint32 row) const;
    Q_INVOKABLE void setMergeRow(qint32 row, bool merge);
    Q_INVOKABLE bool MergeCol(qint32 col) const;
    Q_INVOKABLE void setMergeCol(qint32 col, bool merge);

    QString FormatString() const { return m_grid->FormatString(); }
    void setFormatString(const QString &format);
    /// The selected block (Row/Col to RowSel/ColSel) as TAB/CR text; assigning writes it from the top-left corner.
    QString Clip() const;
    void setClip(const QString &text);
    bool Redraw() const { return updatesEnabled(); }
    void setRedraw(bool redraw) { setUpdatesEnabled(redraw); }
    qint32 RowHeightMin() const { return m_rowHeightMin; }
    void setRowHeightMin(qint32 twips);

    int AllowUserResizing() const { return m_allowUserResizing; }
    void setAllowUserResizing(int mode);
    int ScrollBars() const { return m_scrollBars; }
    void setScrollBars(int bars);
    int SelectionMode() const { return m_selectionMode; }
    void setSelectionMode(int mode);
    bool AllowBigSelection() const { return m_allowBigSelection; }
    void setAllowBigSelection(bool allow) { m_allowBigSelection = allow; }
    int MergeCells() const { return m_mergeCells; }
    /// 0 never; 1 and 4 merge both ways; 2 only along MergeRow rows; 3 only down MergeCol columns. Adjacent data
    /// cells with the same non-empty text are drawn as one (computed for the visible rows as the view scrolls).
    void setMergeCells(int mode);
    int FillStyle() const { return m_fillStyle; }
    void setFillStyle(int style) { m_fillStyle = style; }
    int Appearance() const { return m_appearance; }
    void setAppearance(int appearance);
    int BorderStyle() const { return m_borderStyle; }
    void setBorderStyle(int style);

    /// The current cell's own back colour, 0 for none; assigning 0 gives it BackColor again. With FillStyle 1
    /// assigning colours every cell of the selection.
    quint32 CellBackColor() const;
    void setCellBackColor(quint32 color);

    /// The widgets whose mouse events are those of cells: the scrolling cells' viewport, then the fixed rows',
    /// the fixed columns' and the corner's.
    QList<QObject *> cellAreas() const;
    /// The grid cell (row, column) under a point of one of the cellAreas(); (-1, -1) outside the cells.
    QPoint cellAt(const QWidget *area, const QPoint &pos) const;

    /// Style sheets for the colours (called by the colour setters).
    void paintColours();

    int twipsToPixelsX(qint32 twips) const;
    int twipsToPixelsY(qint32 twips) const;
    qint32 pixelsToTwipsX(int pixels) const;
    qint32 pixelsToTwipsY(int pixels) const;

Q_SIGNALS:
    /// The current cell moved (Row or Col changed).
    void RowColChange();

protected:
    void resizeEvent(QResizeEvent *event) override;
    void updateGeometries() override;
    bool eventFilter(QObject *watched, QEvent *event) override;
    /// Tab and Shift+Tab walk the cells and leave the grid after the last and before the first scrolling cell.
    bool focusNextPrevChild(bool next) override;

private:
    void syncCurrent();
    void updateHeaders();
    void hideFixed();
    QTableView *makeOverlay();
    bool fixedAreaMouse(QTableView *view, QEvent *event);
    void updateMerges();
    void scheduleMerges();

    FlexGridModel *m_grid;
    // Over the edges: the fixed rows (scrolling sideways with the cells), the fixed columns (scrolling up and
    // down) and the corner where both meet.
    QTableView *m_top = nullptr;
    QTableView *m_left = nullptr;
    QTableView *m_corner = nullptr;
    // Leading rows that may still carry a hidden flag from an earlier fixed count or a shift by an insertion.
    qint32 m_hiddenRows = 0;
    // A grid line being dragged: the column (or row) resized, and where the drag began.
    int m_dragSection = -1;
    bool m_dragColumn = true;
    int m_dragOrigin = 0;
    int m_dragStartSize = 0;
    qint32 m_row = 1;
    qint32 m_col = 1;
    qint32 m_rowSel = 1;
    qint32 m_colSel = 1;
    qint32 m_rowHeightMin = 0;
    int m_allowUserResizing = 0;
    int m_scrollBars = 3;
    int m_selectionMode = 0;
    bool m_allowBigSelection = true;
    int m_mergeCells = 0;
    int m_fillStyle = 0;
    int m_appearance = 1;
    int m_borderStyle = 1;
    std::vector<bool> m_mergeRows;
    std::vector<bool> m_mergeCols;
    bool m_syncing = false;
    bool m_hasSpans = false;
    bool m_mergePending = false;
    // Sizes as they were set, in twips: pixels cannot hold every twip value, and a size set reads back as set
    // until the column or row is resized otherwise. A row height set for every row is kept once.
    QHash<qint32, qint32> m_colTwips;
    QHash<qint32, qint32> m_rowTwips;
    qint32 m_everyRowTwips = -1;
};

#endif
