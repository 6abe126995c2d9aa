#ifndef QUILLON_VEKGRID_H
#define QUILLON_VEKGRID_H

#include "flexgrid.h"
#include "quillon_export.h"

#include <QVariantMap>
#include <QWidget>

class QLineEdit;
class QMenu;
class QAction;
class QPagedPaintDevice;
class QSqlQuery;
struct VekGridBag;

/**
 * The editable grid control: a FlexGrid (Flexgd1) with an overlay editor (txtEdit) that opens on double click or
 * Enter, change events that the host may veto, a row menu (mnuPop), ID-column numbering, persisted properties and
 * column widths kept in an ini file.
 *
 * The change events pass their text and cancel flag by reference and must be handled synchronously (direct
 * connections).
 */
class QUILLON_EXPORT VekGrid : public QWidget
{
    Q_OBJECT
    // In the control's interface order. Enabled and Font are read from the inner grid and assigned to the whole
    // control, so that the editor over the cells follows the grid; a form designer edits them as the widget's own
    // enabled and font.
    Q_PROPERTY(quint32 BackColor READ BackColor WRITE setBackColor)
    Q_PROPERTY(quint32 ForeColor READ ForeColor WRITE setForeColor)
    Q_PROPERTY(bool Enabled READ Enabled WRITE setEnabled STORED false DESIGNABLE false)
    Q_PROPERTY(QFont Font READ Font WRITE setFont STORED false DESIGNABLE false)
    Q_PROPERTY(int BorderStyle READ BorderStyle WRITE setBorderStyle)
    Q_PROPERTY(qint32 Rows READ Rows WRITE setRows)
    Q_PROPERTY(qint32 Cols READ Cols WRITE setCols)
    Q_PROPERTY(int Index READ Index STORED false DESIGNABLE false)
    Q_PROPERTY(qint32 RowHeightMin READ RowHeightMin WRITE setRowHeightMin)
    Q_PROPERTY(qint32 FixedRows READ FixedRows WRITE setFixedRows)
    Q_PROPERTY(qint32 FixedCols READ FixedCols WRITE setFixedCols)
    Q_PROPERTY(QString FormatString READ FormatString WRITE setFormatString)
    Q_PROPERTY(quint32 GridColorFixed READ GridColorFixed WRITE setGridColorFixed)
    Q_PROPERTY(quint32 GridColor READ GridColor WRITE setGridColor)
    Q_PROPERTY(QString EditCol READ EditCol WRITE setEditCol)
    Q_PROPERTY(int Appearance READ Appearance WRITE setAppearance)
    Q_PROPERTY(quint32 BackColorBkg READ BackColorBkg WRITE setBackColorBkg)
    Q_PROPERTY(quint32 BackColorFixed READ BackColorFixed WRITE setBackColorFixed)
    Q_PROPERTY(quint32 ForeColorFixed READ ForeColorFixed WRITE setForeColorFixed)
    Q_PROPERTY(int AllowUserResizing READ AllowUserResizing WRITE setAllowUserResizing)
    Q_PROPERTY(int ScrollBars READ ScrollBars WRITE setScrollBars)
    // 16-bit members exposed as int, the integer type form editors know.
    Q_PROPERTY(int DefaultRows READ DefaultRows WRITE setDefaultRows)
    Q_PROPERTY(qint32 Row READ Row WRITE setRow STORED false DESIGNABLE false)
    Q_PROPERTY(qint32 col READ col WRITE setCol STORED false DESIGNABLE false)
    Q_PROPERTY(int KeepLastRows READ KeepLastRows WRITE setKeepLastRows)
    Q_PROPERTY(bool Redraw READ Redraw WRITE setRedraw)
    Q_PROPERTY(qint32 RowSel READ RowSel WRITE setRowSel)
    Q_PROPERTY(qint32 ColSel READ ColSel WRITE setColSel)
    Q_PROPERTY(QString Clip READ Clip WRITE setClip)
    Q_PROPERTY(bool AutoEditNextCell READ AutoEditNextCell WRITE setAutoEditNextCell)
    Q_PROPERTY(bool UpdateNoEnterPress READ UpdateNoEnterPress WRITE setUpdateNoEnterPress)
    Q_PROPERTY(quint32 CellBackColor READ CellBackColor WRITE setCellBackColor)
    Q_PROPERTY(int SelectionMode READ SelectionMode WRITE setSelectionMode)
    Q_PROPERTY(bool AllowBigSelection READ AllowBigSelection WRITE setAllowBigSelection)
    Q_PROPERTY(bool PopMenu READ PopMenu WRITE setPopMenu)
    Q_PROPERTY(int MergeCells READ MergeCells WRITE setMergeCells)
    Q_PROPERTY(QString SetupFile READ SetupFile WRITE setSetupFile)
    Q_PROPERTY(bool IsDemo READ IsDemo WRITE setIsDemo)
    Q_PROPERTY(int FillStyle READ FillStyle WRITE setFillStyle)
    Q_PROPERTY(quint32 BackColorSel READ BackColorSel WRITE setBackColorSel)

public:
    /// The errors that a refused assignment leaves: an invalid value (a negative row count), a cell outside the
    /// grid, a property that may not be set now.
    static constexpr int kErrInvalidValue = 380;
    static constexpr int kErrSubscript = 381;
    static constexpr int kErrSetNotPermitted = 387;

    explicit VekGrid(QWidget *parent = nullptr);
    ~VekGrid() override;
    Q_DISABLE_COPY_MOVE(VekGrid)

    FlexGrid *const Flexgd1;
    QLineEdit *const txtEdit;
    QMenu *const mnuPop;
    QAction *const mnuInsertRow;
    QAction *const mnuDeleteRow;

    /// While the host is in design mode, Row, Clip and SetupFile refuse assignments.
    void setDesignMode(bool design) { m_designMode = design; }
    bool designMode() const { return m_designMode; }
    /// The error number the last refused assignment left (0 when none), cleared by the next accepted one; the
    /// description is Module1::ErrDescription().
    int lastError() const { return m_lastError; }

    quint32 BackColor() const { return Flexgd1->BackColor(); }
    void setBackColor(quint32 color)
    {
        Flexgd1->setBackColor(color);
        changed(u"BackColor");
    }
    quint32 ForeColor() const { return Flexgd1->ForeColor(); }
    void setForeColor(quint32 color)
    {
        Flexgd1->setForeColor(color);
        changed(u"ForeColor");
    }
    bool Enabled() const { return Flexgd1->isEnabled(); }
    QFont Font() const { return Flexgd1->font(); }
    qint32 Rows() const { return Flexgd1->Rows(); }
    /// A negative count is refused (error 380) and the grid kept.
    bool setRows(qint32 rows);
    qint32 Cols() const { return Flexgd1->Cols(); }
    /// A negative count is refused (error 380) and the grid kept.
    bool setCols(qint32 cols);
    qint32 FixedRows() const { return Flexgd1->FixedRows(); }
    /// A count below 0 or above Rows is refused (error 380).
    bool setFixedRows(qint32 rows);
    qint32 FixedCols() const { return Flexgd1->FixedCols(); }
    /// A count below 0 or above Cols is refused (error 380).
    bool setFixedCols(qint32 cols);
    QString FormatString() const { return Flexgd1->FormatString(); }
    void setFormatString(const QString &format)
    {
        Flexgd1->setFormatString(format);
        changed(u"FormatString");
    }

    int BorderStyle() const { return Flexgd1->BorderStyle(); }
    void setBorderStyle(int style)
    {
        Flexgd1->setBorderStyle(style);
        changed(u"BorderStyle");
    }
    /// The place of this control in a group of like controls, as the host numbers them (0 when alone).
    int Index() const { return m_index; }
    void setIndex(int index) { m_index = index; }
    qint32 RowHeightMin() const { return Flexgd1->RowHeightMin(); }
    void setRowHeightMin(qint32 twips)
    {
        Flexgd1->setRowHeightMin(twips);
        changed(u"RowHeightMin");
    }
    quint32 GridColorFixed() const { return Flexgd1->GridColorFixed(); }
    void setGridColorFixed(quint32 color)
    {
        Flexgd1->setGridColorFixed(color);
        changed(u"GridColorFixed");
    }
    quint32 GridColor() const { return Flexgd1->GridColor(); }
    void setGridColor(quint32 color)
    {
        Flexgd1->setGridColor(color);
        changed(u"GridColor");
    }
    int Appearance() const { return Flexgd1->Appearance(); }
    void setAppearance(int appearance)
    {
        Flexgd1->setAppearance(appearance);
        changed(u"Appearance");
    }
    quint32 BackColorBkg() const { return Flexgd1->BackColorBkg(); }
    void setBackColorBkg(quint32 color)
    {
        Flexgd1->setBackColorBkg(color);
        changed(u"BackColorBkg");
    }
    quint32 BackColorFixed() const { return Flexgd1->BackColorFixed(); }
    void setBackColorFixed(quint32 color)
    {
        Flexgd1->setBackColorFixed(color);
        changed(u"BackColorFixed");
    }
    quint32 ForeColorFixed() const { return Flexgd1->ForeColorFixed(); }
    void setForeColorFixed(quint32 color)
    {
        Flexgd1->setForeColorFixed(color);
        changed(u"ForeColorFixed");
    }
    int AllowUserResizing() const { return Flexgd1->AllowUserResizing(); }
    void setAllowUserResizing(int mode)
    {
        Flexgd1->setAllowUserResizing(mode);
        changed(u"AllowUserResizing");
    }
    int ScrollBars() const { return Flexgd1->ScrollBars(); }
    void setScrollBars(int bars)
    {
        Flexgd1->setScrollBars(bars);
        changed(u"ScrollBars");
    }
    bool Redraw() const { return Flexgd1->Redraw(); }
    void setRedraw(bool redraw)
    {
        Flexgd1->setRedraw(redraw);
        changed(u"Redraw");
    }
    qint32 RowSel() const { return Flexgd1->RowSel(); }
    void setRowSel(qint32 row)
    {
        Flexgd1->setRowSel(row);
        changed(u"RowSel");
    }
    qint32 ColSel() const { return Flexgd1->ColSel(); }
    void setColSel(qint32 col)
    {
        Flexgd1->setColSel(col);
        changed(u"ColSel");
    }
    /// The back colour of the current cell (with FillStyle 1, assigning colours the whole selection); 0 paints the
    /// cell in BackColor again.
    quint32 CellBackColor() const { return Flexgd1->CellBackColor(); }
    void setCellBackColor(quint32 color)
    {
        Flexgd1->setCellBackColor(color);
        changed(u"CellBackColor");
    }
    int SelectionMode() const { return Flexgd1->SelectionMode(); }
    void setSelectionMode(int mode)
    {
        Flexgd1->setSelectionMode(mode);
        changed(u"SelectionMode");
    }
    bool AllowBigSelection() const { return Flexgd1->AllowBigSelection(); }
    void setAllowBigSelection(bool allow)
    {
        Flexgd1->setAllowBigSelection(allow);
        changed(u"AllowBigSelection");
    }
    int MergeCells() const { return Flexgd1->MergeCells(); }
    void setMergeCells(int mode)
    {
        Flexgd1->setMergeCells(mode);
        changed(u"MergeCells");
    }
    int FillStyle() const { return Flexgd1->FillStyle(); }
    void setFillStyle(int style)
    {
        Flexgd1->setFillStyle(style);
        changed(u"FillStyle");
    }
    /// Kept and persisted; a value other than 0 also paints the selection, 0 leaves the system's highlight.
    quint32 BackColorSel() const { return m_backColorSel; }
    void setBackColorSel(quint32 color);

    Q_INVOKABLE QString TextMatrix(qint32 row, qint32 col) const { return Flexgd1->TextMatrix(row, col); }
    /// Stores the text, raises ChangedByProgram, and puts the old text back when the handler cancels. A cell
    /// outside the grid is refused (error 381) without an event.
    Q_INVOKABLE bool setTextMatrix(qint32 row, qint32 col, const QString &text);
    /// In twips. Setting column -1 sets every column; the same holds for RowHeight (row -1) and the alignments.
    /// A column outside the grid is refused (error 381), a width below -1 (the default width) too (error 380).
    Q_INVOKABLE qint32 ColWidth(qint32 col) const { return Flexgd1->ColWidth(col); }
    Q_INVOKABLE bool setColWidth(qint32 col, qint32 twips);
    /// A row outside the grid is refused (error 381), a negative height too (error 380).
    Q_INVOKABLE qint32 RowHeight(qint32 row) const { return Flexgd1->RowHeight(row); }
    Q_INVOKABLE bool setRowHeight(qint32 row, qint32 twips);
    /// FlexGridModel::Alignment values.
    Q_INVOKABLE int ColAlignment(qint32 col) const { return Flexgd1->ColAlignment(col); }
    Q_INVOKABLE void setColAlignment(qint32 col, int alignment)
    {
        Flexgd1->setColAlignment(col, alignment);
        changed(u"ColAlignment");
    }
    Q_INVOKABLE int FixedAlignment(qint32 col) const { return Flexgd1->FixedAlignment(col); }
    Q_INVOKABLE void setFixedAlignment(qint32 col, int alignment)
    {
        Flexgd1->setFixedAlignment(col, alignment);
        changed(u"FixedAlignment");
    }
    Q_INVOKABLE bool MergeRow(qint32 row) const { return Flexgd1->MergeRow(row); }
    Q_INVOKABLE void setMergeRow(qint32 row, bool merge)
    {
        Flexgd1->setMergeRow(row, merge);
        changed(u"MergeRow");
    }
    Q_INVOKABLE bool MergeCol(qint32 col) const { return Flexgd1->MergeCol(col); }
    Q_INVOKABLE void setMergeCol(qint32 col, bool merge)
    {
        Flexgd1->setMergeCol(col, merge);
        changed(u"MergeCol");
    }

    /// Comma-separated editable columns: -1 every column, -2 ends the list, other numbers name a column.
    QString EditCol() const { return m_editColText; }
    void setEditCol(const QString &text);
    qint16 DefaultRows() const { return m_defaultRows; }
    /// A negative count is refused (error 380).
    bool setDefaultRows(qint16 rows);
    qint32 Row() const { return Flexgd1->Row(); }
    /// Refused (error 387) in design mode and outside 0..Rows-1.
    bool setRow(qint32 row);
    qint32 col() const { return Flexgd1->Col(); }
    /// Refused (error 387) in design mode and outside 0..Cols-1, as Row is.
    bool setCol(qint32 col);
    qint16 KeepLastRows() const { return m_keepLastRows; }
    void setKeepLastRows(qint16 rows)
    {
        m_keepLastRows = rows;
        changed(u"KeepLastRow");
    }
    /// The text last assigned (the grid's selection is written from it).
    QString Clip() const { return m_clip; }
    bool setClip(const QString &text);
    bool AutoEditNextCell() const { return m_autoEditNextCell; }
    void setAutoEditNextCell(bool on)
    {
        m_autoEditNextCell = on;
        changed(u"AutoEditNextCell");
    }
    bool UpdateNoEnterPress() const { return m_updateNoEnterPress; }
    void setUpdateNoEnterPress(bool on)
    {
        m_updateNoEnterPress = on;
        changed(u"UpdateNoEnterPress");
    }
    bool PopMenu() const { return m_popMenu; }
    void setPopMenu(bool on)
    {
        m_popMenu = on;
        changed(u"PopMenu");
    }
    QString SetupFile() const { return m_setupFile; }
    bool setSetupFile(const QString &file);
    bool IsDemo() const { return m_isDemo; }
    void setIsDemo(bool demo)
    {
        m_isDemo = demo;
        changed(u"IsDemo");
    }

    /// Saves (IsRead false) or restores the column widths under one ini section and key of SetupFile.
    /// Returns false when a stored width is refused (the widths before it are applied) or the file cannot be
    /// written, the reason in Module1::ErrDescription().
    bool SaveOrReadColWidth(const QString &section, const QString &key, bool isRead);
    /// Numbers rows 1..Rows-1 of a column and keeps numbering it on row-count changes; a negative column stops.
    void AutoFillID(qint32 col);

    /// Loads every row of an active query, the header from the field names when `formatText` is empty. A caller's
    /// format may have more columns than the query has fields (the last ones stay empty), not fewer.
    bool FillByRecordSet(QSqlQuery &rst, QString &formatText);
    /// A field's value as FillByRecordSet writes it into a cell: NULL empty, numbers in at most 15 significant
    /// digits (7 for single precision) with an exponent as 1E+20, dates as yyyy-MM-dd and a time of day after
    /// them unless it is midnight, True or False.
    static QString FieldText(const QVariant &value);
    /// Removes a column, moving the columns right of it (widths and texts) one place left. The last remaining
    /// column and a negative one are refused with a message box (false); one beyond the last drops the last.
    bool RemoveCol(qint32 &col);

    Q_INVOKABLE void AddItem(const QString &text, qint32 index = -1) { Flexgd1->AddItem(text, index); }
    Q_INVOKABLE void AddColItem(const QString &text) { Flexgd1->grid()->AddColItem(text); }
    /// Removes a row, then adds empty rows until at least KeepLastRows data rows remain. A fixed row or one outside
    /// the grid is refused (error 381) and nothing changes.
    Q_INVOKABLE bool RemoveItem(qint32 index);
    Q_INVOKABLE void Refresh() { Flexgd1->viewport()->update(); }

    /// Prints the grid after a preview in which the user picks a printer or a PDF file.
    Q_INVOKABLE void PrintGrid(const QString &title = QString());
    /// Lays every row out on pages of `device` (a printer or a PDF writer), the fixed rows repeated on top of each
    /// page and the columns scaled to the page width. Returns the number of pages.
    int renderPages(QPagedPaintDevice *device, const QString &title) const;

    /// The property bag: every persisted property under its key, values equal to their defaults left out.
    void WriteProperties(QVariantMap &bag) const;
    /// Restores every persisted property (a missing key gives its default) without raising PropertyChanged.
    void ReadProperties(const QVariantMap &bag);
    /// The values a control placed anew on a form starts with.
    void InitProperties();

Q_SIGNALS:
    /// A property was assigned: `name` is its property-bag key without the index digit ("KeepLastRow" for
    /// KeepLastRows, "Row" and "Col" for the current cell), for a form designer or host that stores the form.
    void PropertyChanged(const QString &name);
    void ChangedByProgram(qint32 row, qint32 col, const QString &oldText, QString &newText, qint32 &cancel);
    void ChangedByUser(qint32 row, qint32 col, const QString &cellText, QString &editorText, qint32 &cancel);
    void Click();
    void DblClick();
    void KeyDown(qint16 keyCode, qint16 shift);
    /// The typed character's UTF-16 code (a character from 0x8000 on as a negative number).
    void KeyPress(qint16 keyAscii);
    void KeyUp(qint16 keyCode, qint16 shift);
    void MouseDown(qint16 button, qint16 shift, float x, float y);
    void MouseMove(qint16 button, qint16 shift, float x, float y);
    void MouseUp(qint16 button, qint16 shift, float x, float y);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void changeEvent(QEvent *event) override;

private:
    friend struct VekGridBag;
    bool editorParked() const;
    void changed(const char16_t *name)
    {
        if (!m_restoring) {
            Q_EMIT PropertyChanged(QString::fromUtf16(name));
        }
    }
    void Flexgd1_DblClick();
    void txtEdit_LostFocus();
    void commitEditor();
    void mnuInsertRow_Click();
    void mnuDeleteRow_Click();
    bool refuse(int error = kErrSetNotPermitted);
    bool isEditable(qint32 col) const;

    QList<qint32> m_editCols {-1};
    QString m_editColText;
    qint32 m_idCol = -1;
    qint16 m_defaultRows = 0;
    qint16 m_keepLastRows = 0;
    bool m_autoEditNextCell = false;
    bool m_updateNoEnterPress = false;
    bool m_popMenu = false;
    bool m_releaseEndsDblClick = false; // the next release ends a double click
    bool m_isDemo = false;
    QString m_setupFile = QStringLiteral("VekGrid.ini");
    bool m_designMode = false;
    bool m_restoring = false; // ReadProperties: what the bag restores is no change to store
    int m_lastError = 0;
    int m_index = 0;
    quint32 m_backColorSel = 0;
    QString m_clip;
};

#endif
