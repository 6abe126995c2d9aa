#ifndef QUILLON_FLEXGRIDMODEL_H
#define QUILLON_FLEXGRIDMODEL_H

#include "quillon_export.h"

#include <QAbstractTableModel>
#include <QColor>
#include <QString>

#include <cstdint>
#include <map>
#include <vector>

/**
 * The cells of a flexible grid (the Flexgd1 of the grid control): Rows × Cols texts, the first FixedRows rows and
 * FixedCols columns being headings, column alignments, FormatString, TAB-separated row text and Clip text.
 *
 * Every grid row, fixed ones included, is a model row. A row's texts share one allocation, so a million rows of
 * short texts cost a few tens of bytes a cell. Texts and cell back colours only: no cell pictures or fonts.
 */
class QUILLON_EXPORT FlexGridModel : public QAbstractTableModel
{
    Q_OBJECT

public:
    /// Column alignments, with the classic values (flexAlignLeftCenter 1, CenterCenter 4, RightCenter 7, General 9).
    enum Alignment { AlignLeft = 1, AlignCenter = 4, AlignRight = 7, AlignGeneral = 9 };
    Q_ENUM(Alignment)

    explicit FlexGridModel(QObject *parent = nullptr);
    ~FlexGridModel() override;
    Q_DISABLE_COPY_MOVE(FlexGridModel)

    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    int columnCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    bool setData(const QModelIndex &index, const QVariant &value, int role = Qt::EditRole) override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;

    qint32 Rows() const { return qint32(m_rows.size()); }
    /// Adds empty rows at the end or drops rows from the end.
    void setRows(qint32 rows);
    qint32 Cols() const { return m_cols; }
    void setCols(qint32 cols);
    qint32 FixedRows() const { return m_fixedRows; }
    void setFixedRows(qint32 rows);
    qint32 FixedCols() const { return m_fixedCols; }
    void setFixedCols(qint32 cols);

    /// Empty outside the grid.
    QString TextMatrix(qint32 row, qint32 col) const;
    /// Returns false (and changes nothing) outside the grid.
    bool setTextMatrix(qint32 row, qint32 col, const QString &text);

    /// Adds a row whose cells are the TAB-separated parts of `text`, at `index` or (-1) at the end.
    bool AddItem(const QString &text, qint32 index = -1);
    bool RemoveItem(qint32 index);
    /// Adds a column at the end whose cells are the TAB-separated parts of `text`, top to bottom.
    void AddColItem(const QString &text);

    int ColAlignment(qint32 col) const;
    /// Column -1 sets every column's alignment (also for setFixedAlignment).
    void setColAlignment(qint32 col, int alignment);
    int FixedAlignment(qint32 col) const;
    void setFixedAlignment(qint32 col, int alignment);

    /// "|" between columns, a leading "<", "^" or ">" aligning a column, and text before a ";" giving the row
    /// headings (one per row, "|"-separated). Sets Cols (and Rows where row headings need more), fills row 0 with
    /// the column headings, and makes at least one row fixed.
    QString FormatString() const { return m_formatString; }
    void setFormatString(const QString &format);

    /// The block between two corners as text: TAB between cells, CR between rows.
    QString clip(qint32 row1, qint32 col1, qint32 row2, qint32 col2) const;
    /// Writes TAB/CR text into the grid from (row, col) on; what falls outside the grid is dropped.
    void setClip(qint32 row, qint32 col, const QString &text);

    /// Moves the texts of every column right of `col` one place left and drops the last column (a `col` at or
    /// beyond the last column drops just that one).
    void shiftTextsLeft(qint32 col);

    /// Rows appended at the end in one insertion when FlushItems is called; until then they are not part of the
    /// grid. For loading many rows.
    void AddItemBuffered(QStringView text);
    void FlushItems();

    /// A cell's own back colour (invalid: the grid's); kept with its row when rows come and go.
    QColor cellBackColor(qint32 row, qint32 col) const;
    void setCellBackColor(qint32 row, qint32 col, const QColor &colour);

    /// The general numeric-string test (Module1::IsNumeric): signs, parentheses, a currency sign, thousands
    /// separators, a decimal point, an exponent, &H and &O numbers.
    static bool isNumericText(const QString &text);

    /// Releases every row (the grid keeps its size).
    void clearAll();

Q_SIGNALS:
    void textChanged(qint32 row, qint32 col);
    /// FixedRows or FixedCols took a new value.
    void fixedCountsChanged();

private:
    static void freeRow(std::uint32_t *row);
    void setCell(std::size_t row, qint32 col, QStringView text);
    /// Takes cells first..last out of every row, moving the later ones left.
    void dropCells(std::uint32_t first, std::uint32_t last);
    Qt::Alignment qtAlignment(int alignment, const QString &text) const;
    static qint64 cellKey(qint32 row, qint32 col);
    /// Moves the colours of rows from `fromRow` on by `by` rows; a negative `by` drops those of the rows removed.
    void shiftCellColours(qint32 fromRow, qint32 by);

    // Each row is null (all empty) or one block: cell count, the end offset of each cell, then the UTF-16 texts.
    std::vector<std::uint32_t *> m_rows;
    qint32 m_cols = 2;
    qint32 m_fixedRows = 1;
    qint32 m_fixedCols = 1;
    std::vector<int> m_colAlignment;
    std::vector<int> m_fixedAlignment;
    QString m_formatString;
    std::vector<std::uint32_t *> m_buffered;
    std::map<qint64, QColor> m_cellBack;
};

#endif
