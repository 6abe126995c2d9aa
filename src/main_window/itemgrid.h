#ifndef QUILLON_ITEMGRID_H
#define QUILLON_ITEMGRID_H

#include "gridcolours.h"
#include "quillon_export.h"

#include <QTableView>

/**
 * The item grid of the management window: a table view over an ItemTableModel that also answers as a flexible
 * grid (Rows, Cols, TextMatrix, the colour properties), so grid services such as the spreadsheet export and the
 * colour schemes work on it. Row 0 is the header row; data row r is model row r - 1.
 *
 * Read-only through TextMatrix; edits go through the model. No merged cells, no fixed columns.
 */
class QUILLON_EXPORT ItemGrid : public QTableView, public GridColourProperties<ItemGrid>
{
    Q_OBJECT
    Q_PROPERTY(qint32 Rows READ Rows)
    Q_PROPERTY(qint32 Cols READ Cols)
    Q_PROPERTY(qint32 FixedRows READ FixedRows WRITE setFixedRows)
    Q_PROPERTY(qint32 FixedCols READ FixedCols WRITE setFixedCols)
    Q_PROPERTY(qint32 Row READ Row WRITE setRow)
    Q_PROPERTY(qint32 Col READ Col WRITE setCol)
    Q_PROPERTY(quint32 BackColor READ BackColor WRITE setBackColor)
    Q_PROPERTY(quint32 BackColorBkg READ BackColorBkg WRITE setBackColorBkg)
    Q_PROPERTY(quint32 BackColorFixed READ BackColorFixed WRITE setBackColorFixed)
    Q_PROPERTY(quint32 ForeColorFixed READ ForeColorFixed WRITE setForeColorFixed)
    Q_PROPERTY(quint32 ForeColor READ ForeColor WRITE setForeColor)
    Q_PROPERTY(quint32 GridColor READ GridColor WRITE setGridColor)
    Q_PROPERTY(quint32 GridColorFixed READ GridColorFixed WRITE setGridColorFixed)
    Q_PROPERTY(int AllowUserResizing READ AllowUserResizing WRITE setAllowUserResizing)
    Q_PROPERTY(int ScrollBars READ ScrollBars WRITE setScrollBars)

public:
    explicit ItemGrid(QWidget *parent = nullptr);
    ~ItemGrid() override;
    Q_DISABLE_COPY_MOVE(ItemGrid)

    /// The header row plus one row per model row.
    qint32 Rows() const;
    qint32 Cols() const;
    /// The heading (row 0) or the text a cell shows; empty outside the grid.
    Q_INVOKABLE QString TextMatrix(qint32 row, qint32 col) const;

    qint32 FixedRows() const { return 1; }
    /// The header row is always there; other values are ignored.
    void setFixedRows(qint32) { }
    qint32 FixedCols() const { return 0; }
    void setFixedCols(qint32) { }
    /// The current cell in grid numbering (row 1 is the first data row); 0 when there is none.
    qint32 Row() const;
    void setRow(qint32 row);
    qint32 Col() const;
    void setCol(qint32 col);

    int AllowUserResizing() const { return m_allowUserResizing; }
    void setAllowUserResizing(int mode);
    int ScrollBars() const { return m_scrollBars; }
    void setScrollBars(int bars);

    void setModel(QAbstractItemModel *model) override;
    /// Hands the text of an open edit box to the model and closes the box. False when the model refused the text:
    /// the box then stays open with it, for the clerk to correct.
    bool commitEditor();

protected:
    void inputMethodEvent(QInputMethodEvent *event) override;

private:
    void sizeColumns();

    int m_allowUserResizing = 1;
    int m_scrollBars = 3;
};

#endif
