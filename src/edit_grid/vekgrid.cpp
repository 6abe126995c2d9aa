#include "vekgrid.h"

#include "currency.h"
#include "module1.h"
#include "olecolor.h"
#include "prompt.h"

#include <utility>

#include <QAction>
#include <QDateTime>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLineEdit>
#include <QMenu>
#include <QMouseEvent>
#include <QPagedPaintDevice>
#include <QPainter>
#include <QPrintPreviewDialog>
#include <QPrinter>
#include <QScopeGuard>
#include <QScrollBar>
#include <QSqlError>
#include <QSqlQuery>
#include <QSqlRecord>

#include <cmath>
#include <functional>
#include <limits>
#include <optional>

using namespace Qt::StringLiterals;

namespace {

constexpr qint32 kParked = -1000; // twips: where the editor waits while no cell is edited

qint16 buttonCode(Qt::MouseButtons buttons)
{
    qint16 code = 0;
    if (buttons & Qt::LeftButton) {
        code |= 1;
    }
    if (buttons & Qt::RightButton) {
        code |= 2;
    }
    if (buttons & Qt::MiddleButton) {
        code |= 4;
    }
    return code;
}

qint16 shiftCode(Qt::KeyboardModifiers modifiers)
{
    qint16 code = 0;
    if (modifiers & Qt::ShiftModifier) {
        code |= 1;
    }
    if (modifiers & Qt::ControlModifier) {
        code |= 2;
    }
    if (modifiers & Qt::AltModifier) {
        code |= 4;
    }
    return code;
}

// The classic virtual-key codes hosts test against (F2 = 113, Shift = 16, Home = 36 ...).
qint16 keyCode(int key, Qt::KeyboardModifiers modifiers)
{
    if (key >= Qt::Key_F1 && key <= Qt::Key_F24) {
        return qint16(112 + (key - Qt::Key_F1));
    }
    if (modifiers & Qt::KeypadModifier) {
        if (key >= Qt::Key_0 && key <= Qt::Key_9) {
            return qint16(96 + (key - Qt::Key_0));
        }
        switch (key) {
        case Qt::Key_Asterisk:
            return 106;
        case Qt::Key_Plus:
            return 107;
        case Qt::Key_Minus:
            return 109;
        case Qt::Key_Period:
        case Qt::Key_Comma:
            return 110;
        case Qt::Key_Slash:
            return 111;
        default:
            break;
        }
    }
    if ((key >= Qt::Key_0 && key <= Qt::Key_9) || (key >= Qt::Key_A && key <= Qt::Key_Z)) {
        return qint16(key);
    }
    switch (key) {
    case Qt::Key_Shift:
        return 16;
    case Qt::Key_Control:
    case Qt::Key_Meta:
        return 17;
    case Qt::Key_Alt:
    case Qt::Key_AltGr:
        return 18;
    case Qt::Key_Pause:
        return 19;
    case Qt::Key_CapsLock:
        return 20;
    case Qt::Key_Space:
        return 32;
    case Qt::Key_PageUp:
        return 33;
    case Qt::Key_PageDown:
        return 34;
    case Qt::Key_End:
        return 35;
    case Qt::Key_Home:
        return 36;
    case Qt::Key_Print:
        return 44;
    case Qt::Key_Insert:
        return 45;
    case Qt::Key_Menu:
        return 93;
    case Qt::Key_NumLock:
        return 144;
    case Qt::Key_ScrollLock:
        return 145;
    // Punctuation gives the code of its key, shifted or not (the US layout's OEM keys).
    case Qt::Key_Exclam:
        return 49;
    case Qt::Key_At:
        return 50;
    case Qt::Key_NumberSign:
        return 51;
    case Qt::Key_Dollar:
        return 52;
    case Qt::Key_Percent:
        return 53;
    case Qt::Key_AsciiCircum:
        return 54;
    case Qt::Key_Ampersand:
        return 55;
    case Qt::Key_Asterisk:
        return 56;
    case Qt::Key_ParenLeft:
        return 57;
    case Qt::Key_ParenRight:
        return 48;
    case Qt::Key_Semicolon:
    case Qt::Key_Colon:
        return 186;
    case Qt::Key_Equal:
    case Qt::Key_Plus:
        return 187;
    case Qt::Key_Comma:
    case Qt::Key_Less:
        return 188;
    case Qt::Key_Minus:
    case Qt::Key_Underscore:
        return 189;
    case Qt::Key_Period:
    case Qt::Key_Greater:
        return 190;
    case Qt::Key_Slash:
    case Qt::Key_Question:
        return 191;
    case Qt::Key_QuoteLeft:
    case Qt::Key_AsciiTilde:
        return 192;
    case Qt::Key_BracketLeft:
    case Qt::Key_BraceLeft:
        return 219;
    case Qt::Key_Backslash:
    case Qt::Key_Bar:
        return 220;
    case Qt::Key_BracketRight:
    case Qt::Key_BraceRight:
        return 221;
    case Qt::Key_Apostrophe:
    case Qt::Key_QuoteDbl:
        return 222;
    case Qt::Key_Return:
    case Qt::Key_Enter:
        return 13;
    case Qt::Key_Escape:
        return 27;
    case Qt::Key_Tab:
        return 9;
    case Qt::Key_Backspace:
        return 8;
    case Qt::Key_Delete:
        return 46;
    case Qt::Key_Left:
        return 37;
    case Qt::Key_Up:
        return 38;
    case Qt::Key_Right:
        return 39;
    case Qt::Key_Down:
        return 40;
    default:
        return 0;
    }
}

// A number in at most `digits` significant digits, the exponent (where one is needed) written as E+20 or E-05.
QString numberText(double value, int digits)
{
    if (value == std::trunc(value) && std::abs(value) < 1e15) {
        return QString::number(qint64(value));
    }
    QString text = QString::number(value, 'g', digits);
    const qsizetype e = text.indexOf(u'e');
    if (e >= 0) {
        text[e] = u'E';
    }
    return text;
}

// A field's value as a cell shows it: NULL empty, numbers without the noise of binary fractions (0.3, not
// 0.30000000000000004), dates as yyyy-MM-dd with the time of day only when there is one, True or False.
void appendFieldText(QString &out, const QVariant &value)
{
    if (value.isNull()) {
        return;
    }
    switch (value.metaType().id()) {
    case QMetaType::QString:
        out += *static_cast<const QString *>(value.constData());
        return;
    case QMetaType::Double:
        out += numberText(value.toDouble(), 15);
        return;
    case QMetaType::Float:
        out += numberText(double(value.toFloat()), 7);
        return;
    case QMetaType::Bool:
        out += value.toBool() ? u"True"_s : u"False"_s;
        return;
    case QMetaType::QDate:
        out += value.toDate().toString(u"yyyy-MM-dd"_s);
        return;
    case QMetaType::QTime:
        out += value.toTime().toString(u"HH:mm:ss"_s);
        return;
    case QMetaType::QDateTime: {
        const QDateTime when = value.toDateTime();
        out += when.date().toString(u"yyyy-MM-dd"_s);
        if (when.time() != QTime(0, 0)) {
            out += u' ' + when.time().toString(u"HH:mm:ss"_s);
        }
        return;
    }
    default:
        break;
    }
    if (value.metaType() == QMetaType::fromType<Currency>()) {
        out += value.value<Currency>().toString();
        return;
    }
    out += value.toString();
}

} // namespace

VekGrid::VekGrid(QWidget *parent)
    : QWidget(parent)
    , Flexgd1(new FlexGrid(this))
    , txtEdit(new QLineEdit(this))
    , mnuPop(new QMenu(this))
    , mnuInsertRow(mnuPop->addAction(u"插入行"_s))
    , mnuDeleteRow(mnuPop->addAction(u"删除行"_s))
{
    Flexgd1->setObjectName(u"Flexgd1"_s);
    txtEdit->setObjectName(u"txtEdit"_s);
    mnuPop->setObjectName(u"mnuPop"_s);
    mnuInsertRow->setObjectName(u"mnuInsertRow"_s);
    mnuDeleteRow->setObjectName(u"mnuDeleteRow"_s);
    txtEdit->setFrame(false);
    // The editor takes the focus only when a cell opens it: Tab never lands on it, so the focus leaves the control
    // past its first and last cell.
    txtEdit->setFocusPolicy(Qt::NoFocus);
    // A scroll moves the cells under the editor: the edit ends as when the editor loses the focus, so that Enter
    // never writes into a cell the clerk no longer sees.
    for (QScrollBar *bar : {Flexgd1->verticalScrollBar(), Flexgd1->horizontalScrollBar()}) {
        connect(bar, &QScrollBar::valueChanged, this, [this]() {
            if (!editorParked()) {
                const bool hadFocus = txtEdit->hasFocus();
                txtEdit_LostFocus();
                if (hadFocus) {
                    Flexgd1->setFocus();
                }
            }
        });
    }
    for (QObject *area : Flexgd1->cellAreas()) {
        area->installEventFilter(this);
    }
    Flexgd1->installEventFilter(this);
    txtEdit->installEventFilter(this);
    connect(mnuInsertRow, &QAction::triggered, this, &VekGrid::mnuInsertRow_Click);
    connect(mnuDeleteRow, &QAction::triggered, this, &VekGrid::mnuDeleteRow_Click);
    Flexgd1->setFixedRows(1);
    txtEdit_LostFocus();
}

VekGrid::~VekGrid() = default;

void VekGrid::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    Flexgd1->setGeometry(rect());
}

bool VekGrid::refuse(int error)
{
    m_lastError = error;
    switch (error) {
    case kErrInvalidValue:
        Module1::SetErr(u"无效的属性值(错误 380)"_s);
        break;
    case kErrSubscript:
        Module1::SetErr(u"行或列的下标越界(错误 381)"_s);
        break;
    default:
        Module1::SetErr(u"不允许设置该属性(错误 387)"_s);
        break;
    }
    return false;
}

bool VekGrid::setRows(qint32 rows)
{
    if (rows < 0) {
        return refuse(kErrInvalidValue);
    }
    m_lastError = 0;
    Flexgd1->setRows(rows);
    if (m_idCol >= 0) {
        AutoFillID(m_idCol);
    }
    changed(u"Rows");
    return true;
}

bool VekGrid::setCols(qint32 cols)
{
    if (cols < 0) {
        return refuse(kErrInvalidValue);
    }
    m_lastError = 0;
    Flexgd1->setCols(cols);
    changed(u"Cols");
    return true;
}

bool VekGrid::setFixedRows(qint32 rows)
{
    if (rows < 0 || rows > Rows()) {
        return refuse(kErrInvalidValue);
    }
    m_lastError = 0;
    Flexgd1->setFixedRows(rows);
    changed(u"FixedRows");
    return true;
}

bool VekGrid::setFixedCols(qint32 cols)
{
    if (cols < 0 || cols > Cols()) {
        return refuse(kErrInvalidValue);
    }
    m_lastError = 0;
    Flexgd1->setFixedCols(cols);
    changed(u"FixedCols");
    return true;
}

bool VekGrid::setCol(qint32 col)
{
    if (m_designMode || col < 0 || col >= Cols()) {
        return refuse();
    }
    m_lastError = 0;
    Flexgd1->setCol(col);
    changed(u"Col");
    return true;
}

bool VekGrid::setColWidth(qint32 col, qint32 twips)
{
    if (col < -1 || col >= Cols()) {
        return refuse(kErrSubscript);
    }
    if (twips < -1) {
        return refuse(kErrInvalidValue);
    }
    m_lastError = 0;
    Flexgd1->setColWidth(col, twips);
    changed(u"ColWidth");
    return true;
}

bool VekGrid::setRowHeight(qint32 row, qint32 twips)
{
    if (row < -1 || row >= Rows()) {
        return refuse(kErrSubscript);
    }
    if (twips < 0) {
        return refuse(kErrInvalidValue);
    }
    m_lastError = 0;
    Flexgd1->setRowHeight(row, twips);
    changed(u"RowHeight");
    return true;
}

bool VekGrid::setDefaultRows(qint16 rows)
{
    if (rows < 0) {
        return refuse(kErrInvalidValue);
    }
    m_lastError = 0;
    m_defaultRows = rows;
    if (rows != 0) {
        Flexgd1->setRows(rows);
    }
    if (m_idCol >= 0) {
        AutoFillID(m_idCol);
    }
    changed(u"DefaultRows");
    return true;
}

bool VekGrid::setRow(qint32 row)
{
    if (m_designMode || row < 0 || row >= Rows()) {
        return refuse();
    }
    m_lastError = 0;
    Flexgd1->setRow(row);
    changed(u"Row");
    return true;
}

bool VekGrid::setClip(const QString &text)
{
    if (m_designMode) {
        return refuse();
    }
    m_lastError = 0;
    m_clip = text;
    Flexgd1->setClip(text);
    changed(u"Clip");
    return true;
}

bool VekGrid::setSetupFile(const QString &file)
{
    if (m_designMode) {
        return refuse();
    }
    m_lastError = 0;
    m_setupFile = file;
    changed(u"SetupFile");
    return true;
}

void VekGrid::setBackColorSel(quint32 color)
{
    m_backColorSel = color;
    // 0 is the value every control starts with, so it cannot mean black here.
    Flexgd1->setBackColorSel(color == 0 ? GridColours().backSel : color);
    changed(u"BackColorSel");
}

void VekGrid::setEditCol(const QString &text)
{
    m_editColText = text;
    m_editCols.clear();
    if (text.trimmed().isEmpty()) {
        // The bag hands back its default "" for a grid that never had a list: every column stays editable.
        m_editCols.append(-1);
    } else {
        for (const QString &part : text.split(u',')) {
            m_editCols.append(qint32(Module1::Val(part)));
        }
    }
    changed(u"EditCol");
}

bool VekGrid::isEditable(qint32 col) const
{
    for (qint32 entry : m_editCols) {
        if (entry == -2) {
            return false;
        }
        if (entry == -1 || entry == col) {
            return true;
        }
    }
    return false;
}

bool VekGrid::setTextMatrix(qint32 row, qint32 col, const QString &text)
{
    const QString oldText = Flexgd1->TextMatrix(row, col);
    if (!Flexgd1->grid()->setTextMatrix(row, col, text)) {
        return refuse(kErrSubscript);
    }
    m_lastError = 0;
    QString newText = text;
    qint32 cancel = 0;
    Q_EMIT ChangedByProgram(row, col, oldText, newText, cancel);
    if (cancel > 0) {
        Flexgd1->grid()->setTextMatrix(row, col, oldText);
    }
    changed(u"TextMatrix");
    return true;
}

void VekGrid::AutoFillID(qint32 col)
{
    if (col < 0) {
        m_idCol = -1;
        return;
    }
    m_idCol = col;
    for (qint32 row = 1; row < Rows(); ++row) {
        Flexgd1->grid()->setTextMatrix(row, col, QString::number(row));
    }
}

void VekGrid::Flexgd1_DblClick()
{
    Q_EMIT DblClick();
    if (Rows() == FixedRows()) {
        return;
    }
    const qint32 row = Flexgd1->Row();
    const qint32 column = Flexgd1->Col();
    if (Cols() == FixedCols() || row < FixedRows() || column < FixedCols()) {
        Flexgd1->setFocus();
        return;
    }
    if (Flexgd1->RowHeight(row) == 0 || Flexgd1->ColWidth(column) == 0) {
        return;
    }
    if (!isEditable(column)) {
        Flexgd1->setFocus();
        return;
    }
    // A current cell scrolled out of view is brought into it first: the editor opens over the cell, inside the
    // control.
    Flexgd1->scrollTo(Flexgd1->model()->index(row, column));
    const QString text = Flexgd1->TextMatrix(row, column);
    txtEdit->setText(text);
    // The offsets differ between the raised and the flat look of the grid.
    const bool raised = Flexgd1->Appearance() == 1;
    const qint32 left = Flexgd1->pixelsToTwipsX(Flexgd1->x()) + Flexgd1->CellLeft() + (raised ? 30 : 10);
    const qint32 top = Flexgd1->pixelsToTwipsY(Flexgd1->y()) + Flexgd1->CellTop() + (raised ? 30 : 10);
    // A merged block is edited as one cell: the editor covers the whole block.
    qint32 blockWidth = 0;
    for (qint32 c = column; c < column + std::max(1, Flexgd1->columnSpan(row, column)); ++c) {
        blockWidth += Flexgd1->ColWidth(c);
    }
    qint32 blockHeight = 0;
    for (qint32 r = row; r < row + std::max(1, Flexgd1->rowSpan(row, column)); ++r) {
        blockHeight += Flexgd1->RowHeight(r);
    }
    const qint32 width = blockWidth - 10;
    const qint32 height = blockHeight - (raised ? 10 : 20);
    txtEdit->setGeometry(Flexgd1->twipsToPixelsX(left), Flexgd1->twipsToPixelsY(top),
                         std::max(1, Flexgd1->twipsToPixelsX(width)), std::max(1, Flexgd1->twipsToPixelsY(height)));
    txtEdit->setAlignment((FlexGridModel::isNumericText(text) ? Qt::AlignRight : Qt::AlignLeft) | Qt::AlignVCenter);
    QPalette palette = txtEdit->palette();
    palette.setColor(QPalette::Base, OleColor::toColor(Flexgd1->BackColor()));
    txtEdit->setPalette(palette);
    txtEdit->raise();
    txtEdit->setSelection(0, int(text.size()));
    txtEdit->setFocus();
}

void VekGrid::txtEdit_LostFocus()
{
    txtEdit->move(Flexgd1->twipsToPixelsX(kParked), Flexgd1->twipsToPixelsY(kParked));
}

void VekGrid::commitEditor()
{
    const qint32 row = Flexgd1->Row();
    const qint32 column = Flexgd1->Col();
    const QString oldText = Flexgd1->TextMatrix(row, column);
    Flexgd1->grid()->setTextMatrix(row, column, txtEdit->text());
    QString editorText = txtEdit->text();
    qint32 cancel = 0;
    Q_EMIT ChangedByUser(row, column, Flexgd1->TextMatrix(row, column), editorText, cancel);
    if (cancel > 0) {
        Flexgd1->grid()->setTextMatrix(row, column, oldText);
    }
    Flexgd1->setFocus();
}

void VekGrid::mnuInsertRow_Click()
{
    Flexgd1->AddItem(QString::number(Rows()));
}

void VekGrid::mnuDeleteRow_Click()
{
    const qint32 row = Flexgd1->Row();
    if (row < FixedRows()) {
        return;
    }
    if (Rows() - FixedRows() < 2) {
        Flexgd1->setRows(FixedRows());
    } else {
        Flexgd1->RemoveItem(row);
    }
}

bool VekGrid::RemoveItem(qint32 index)
{
    // A heading removed would turn the first record into the heading.
    if (index < FixedRows() || index >= Rows()) {
        return refuse(kErrSubscript);
    }
    m_lastError = 0;
    Flexgd1->RemoveItem(index);
    while (Rows() < FixedRows() + m_keepLastRows) {
        Flexgd1->AddItem(QString());
    }
    return true;
}

bool VekGrid::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == txtEdit) {
        switch (event->type()) {
        case QEvent::KeyPress: {
            const int key = static_cast<QKeyEvent *>(event)->key();
            if (key == Qt::Key_Return || key == Qt::Key_Enter) {
                // A parked editor has no cell: what it holds is no edit.
                if (!editorParked()) {
                    commitEditor();
                } else {
                    Flexgd1->setFocus();
                }
                return true;
            }
            if (key == Qt::Key_Escape) {
                Flexgd1->setFocus();
                return true;
            }
            break;
        }
        case QEvent::FocusIn:
            if (editorParked()) {
                // Reached by Tab or a focus restore, not by opening a cell: the keys belong to the grid.
                QMetaObject::invokeMethod(Flexgd1, qOverload<>(&QWidget::setFocus), Qt::QueuedConnection);
                break;
            }
            txtEdit->selectAll();
            break;
        case QEvent::FocusOut: {
            // Another window or a popup taking the keyboard for a while is no leaving of the cell.
            const Qt::FocusReason reason = static_cast<QFocusEvent *>(event)->reason();
            if (reason != Qt::ActiveWindowFocusReason && reason != Qt::PopupFocusReason) {
                txtEdit_LostFocus();
            }
            break;
        }
        default:
            break;
        }
        return QWidget::eventFilter(watched, event);
    }
    if (Flexgd1->cellAreas().contains(watched)) {
        auto *area = static_cast<QWidget *>(watched);
        auto position = [&](QMouseEvent *e, float *x, float *y) {
            const QPoint p = area->mapTo(Flexgd1, e->position().toPoint());
            *x = float(Flexgd1->pixelsToTwipsX(p.x()));
            *y = float(Flexgd1->pixelsToTwipsY(p.y()));
        };
        float x = 0;
        float y = 0;
        switch (event->type()) {
        case QEvent::MouseButtonPress: {
            auto *e = static_cast<QMouseEvent *>(event);
            m_releaseEndsDblClick = false;
            position(e, &x, &y);
            Q_EMIT MouseDown(buttonCode(e->button()), shiftCode(e->modifiers()), x, y);
            break;
        }
        case QEvent::MouseMove: {
            auto *e = static_cast<QMouseEvent *>(event);
            position(e, &x, &y);
            Q_EMIT MouseMove(buttonCode(e->buttons()), shiftCode(e->modifiers()), x, y);
            break;
        }
        case QEvent::MouseButtonRelease: {
            auto *e = static_cast<QMouseEvent *>(event);
            position(e, &x, &y);
            Q_EMIT MouseUp(buttonCode(e->button()), shiftCode(e->modifiers()), x, y);
            // A double click is MouseDown, MouseUp, Click, DblClick, MouseUp: its second release clicks nothing.
            if (std::exchange(m_releaseEndsDblClick, false)) {
                break;
            }
            if (e->button() == Qt::LeftButton) {
                Q_EMIT Click();
            } else if (e->button() == Qt::RightButton && m_popMenu) {
                mnuPop->popup(e->globalPosition().toPoint());
            }
            break;
        }
        case QEvent::MouseButtonDblClick:
            // The grid makes the pressed cell current on the press that precedes this.
            m_releaseEndsDblClick = true;
            Flexgd1_DblClick();
            return true;
        default:
            break;
        }
        return QWidget::eventFilter(watched, event);
    }
    if (watched == Flexgd1) {
        if (event->type() == QEvent::KeyPress) {
            auto *e = static_cast<QKeyEvent *>(event);
            Q_EMIT KeyDown(keyCode(e->key(), e->modifiers()), shiftCode(e->modifiers()));
            const bool enter = e->key() == Qt::Key_Return || e->key() == Qt::Key_Enter;
            if (enter) {
                Flexgd1_DblClick();
            }
            if (!e->text().isEmpty()) {
                // Every typed character is reported; codes from 0x8000 on arrive as negative 16-bit numbers.
                Q_EMIT KeyPress(qint16(e->text().at(0).unicode()));
            }
            if (enter) {
                return true;
            }
        } else if (event->type() == QEvent::KeyRelease) {
            auto *e = static_cast<QKeyEvent *>(event);
            Q_EMIT KeyUp(keyCode(e->key(), e->modifiers()), shiftCode(e->modifiers()));
        }
    }
    return QWidget::eventFilter(watched, event);
}

bool VekGrid::editorParked() const
{
    return txtEdit->x() < 0 && txtEdit->y() < 0;
}

void VekGrid::changeEvent(QEvent *event)
{
    QWidget::changeEvent(event);
    if (event->type() == QEvent::FontChange) {
        // The grid takes the control's font even where it was given one of its own.
        Flexgd1->setFont(font());
        changed(u"Font");
    } else if (event->type() == QEvent::EnabledChange) {
        changed(u"Enabled");
    }
}

bool VekGrid::SaveOrReadColWidth(const QString &section, const QString &key, bool isRead)
{
    if (m_isDemo) {
        return true;
    }
    if (!isRead) {
        QString widths;
        for (qint32 c = 0; c < Cols(); ++c) {
            widths += QString::number(Flexgd1->ColWidth(c)) + u';';
        }
        if (Module1::SetIniString(section, key, m_setupFile, widths) == 0) {
            Module1::SetErr(u"无法写入列宽设置文件: "_s + m_setupFile);
            return false;
        }
        return true;
    }
    const QString stored = Module1::GetIniString(section, key, m_setupFile, u"NoSetting"_s);
    if (stored == u"NoSetting"_s) {
        return true;
    }
    const QStringList parts = stored.split(u';');
    for (qint32 i = 0; i < qint32(parts.size()) && i < Cols(); ++i) {
        // Each width within the columns is converted as a number is assigned to a 32-bit width: an empty or
        // non-numeric element is a type mismatch, one beyond 32 bits an overflow, a fraction rounds half to even;
        // -1 gives the column the default width. The widths before a refused element stay.
        const std::optional<double> value = Module1::NumericValue(parts[i]);
        if (!value) {
            Module1::SetErr(u"类型不匹配: "_s + parts[i]);
            return false;
        }
        const double width = std::nearbyint(*value);
        if (width > double(std::numeric_limits<qint32>::max()) || width < double(std::numeric_limits<qint32>::min())) {
            Module1::SetErr(u"溢出: "_s + parts[i]);
            return false;
        }
        if (width < -1) {
            Module1::SetErr(u"无效的属性值: "_s + parts[i]);
            return false;
        }
        Flexgd1->setColWidth(i, qint32(width));
    }
    return true;
}

bool VekGrid::FillByRecordSet(QSqlQuery &rst, QString &formatText)
{
    FlexGridModel *grid = Flexgd1->grid();
    try {
        Flexgd1->setRedraw(false);
        Flexgd1->setRows(1);
        Flexgd1->setCols(1);
        if (!rst.isActive()) {
            throw std::runtime_error("record set is not open");
        }
        const QSqlRecord record = rst.record();
        const int count = record.count();
        if (formatText.isEmpty()) {
            formatText = record.fieldName(0);
            for (int i = 1; i < count; ++i) {
                formatText += u"|<"_s + record.fieldName(i);
            }
        }
        Flexgd1->setFormatString(formatText);
        if (rst.isForwardOnly() && rst.at() != QSql::BeforeFirstRow) {
            // A forward-only query cannot step back to its first record; running it again gets there.
            const bool again = rst.boundValues().isEmpty() ? rst.exec(rst.lastQuery()) : rst.exec();
            if (!again) {
                throw std::runtime_error("the query cannot be run again");
            }
        }
        // Rows go to the view in one insertion; a failure still keeps those read before it.
        const auto keep = qScopeGuard([grid] { grid->FlushItems(); });
        for (bool more = rst.first(); more; more = rst.next()) {
            // A caller's format with fewer columns than the record set has fields has no place for a row; one
            // with more columns leaves the last ones empty.
            if (count > Cols()) {
                throw std::runtime_error("the format has fewer columns than the record set has fields");
            }
            const QVariant first = rst.value(0);
            if (first.isNull()) {
                // A NULL in the first field ends the load, as it always did.
                throw std::runtime_error("NULL in the first field");
            }
            formatText.clear();
            appendFieldText(formatText, first);
            for (int i = 1; i < count; ++i) {
                formatText += u'\t';
                appendFieldText(formatText, rst.value(i));
            }
            grid->AddItemBuffered(formatText);
        }
        if (rst.lastError().isValid()) {
            throw std::runtime_error("reading the record set failed");
        }
        grid->FlushItems();
        Flexgd1->setRedraw(true);
        return true;
    } catch (const std::exception &) {
        CPrompt::current().MsgBox(u"用记录集填充表格时发生错误!"_s, CPrompt::vbOKOnly, QString());
        return false;
    }
}

QString VekGrid::FieldText(const QVariant &value)
{
    QString text;
    appendFieldText(text, value);
    return text;
}

bool VekGrid::RemoveCol(qint32 &col)
{
    // No column lies left of column 0: a negative one is refused like the last remaining column.
    if (Cols() == 1 || col < 0) {
        CPrompt::current().MsgBox(u"该列不能删除！"_s, CPrompt::vbExclamation, QString());
        return false;
    }
    if (Cols() == 0) {
        Flexgd1->setCols(1);
    }
    for (qint32 c = col; c < Cols() - 1; ++c) {
        Flexgd1->setColWidth(c, Flexgd1->ColWidth(c + 1));
    }
    Flexgd1->grid()->shiftTextsLeft(col);
    return true;
}

int VekGrid::renderPages(QPagedPaintDevice *device, const QString &title) const
{
    QPainter painter;
    if (!device || !painter.begin(device)) {
        return 0;
    }
    const QRect page = painter.viewport();
    const QFontMetrics metrics(painter.font());
    const int lineHeight = metrics.height() * 3 / 2;
    const int cols = Cols();
    std::vector<double> widths(std::size_t(std::max(cols, 0)));
    double total = 0;
    for (int c = 0; c < cols; ++c) {
        widths[std::size_t(c)] = std::max(1, Flexgd1->ColWidth(c));
        total += widths[std::size_t(c)];
    }
    const double scale = total > 0 ? page.width() / total : 1.0;
    int pages = 1;
    int y = page.top();
    auto drawRow = [&](int row, bool fixed) {
        double x = page.left();
        for (int c = 0; c < cols; ++c) {
            const QRectF cell(x, y, widths[std::size_t(c)] * scale, lineHeight);
            if (fixed || c < FixedCols()) {
                painter.fillRect(cell, QColor(0xE0, 0xE0, 0xE0));
            }
            painter.drawRect(cell);
            const auto align =
                Flexgd1->grid()->data(Flexgd1->grid()->index(row, c), Qt::TextAlignmentRole).value<Qt::Alignment>();
            painter.drawText(cell.adjusted(4, 0, -4, 0), int(align ? align : (Qt::AlignLeft | Qt::AlignVCenter)),
                             metrics.elidedText(TextMatrix(row, c), Qt::ElideRight, int(cell.width()) - 8));
            x += cell.width();
        }
        y += lineHeight;
    };
    // The title and the fixed rows head every page.
    auto drawTop = [&] {
        if (!title.isEmpty()) {
            painter.drawText(QRect(page.left(), y, page.width(), lineHeight), Qt::AlignCenter, title);
            y += lineHeight;
        }
        for (int r = 0; r < FixedRows(); ++r) {
            drawRow(r, true);
        }
    };
    drawTop();
    for (int r = FixedRows(); r < Rows(); ++r) {
        if (y + lineHeight > page.bottom()) {
            device->newPage();
            ++pages;
            y = page.top();
            drawTop();
        }
        drawRow(r, false);
    }
    painter.end();
    return pages;
}

void VekGrid::PrintGrid(const QString &title)
{
    QPrinter printer(QPrinter::HighResolution);
    printer.setDocName(title.isEmpty() ? windowTitle() : title);
    QPrintPreviewDialog preview(&printer, this);
    preview.setWindowTitle(u"打印预览"_s);
    connect(&preview, &QPrintPreviewDialog::paintRequested, this,
            [this, title](QPrinter *target) { renderPages(target, title); });
    preview.exec();
}

// What the property bag assigns to members directly, past the property that would also reshape the grid.
struct VekGridBag
{
    // The restored Rows stay as they were stored.
    static void restoreDefaultRows(VekGrid &grid, qint16 rows) { grid.m_defaultRows = rows; }
};

namespace {

struct BagEntry
{
    const char16_t *key;
    QVariant defaultValue;
    std::function<QVariant(const VekGrid &)> get;
    std::function<void(VekGrid &, const QVariant &)> set;
};

// The persisted properties in their order; indexed ones for index 0.
const std::vector<BagEntry> &bagEntries()
{
    static const std::vector<BagEntry> entries = [] {
        std::vector<BagEntry> e;
        auto grid = [](const VekGrid &g) {
            return g.Flexgd1;
        };
        auto colour = [&](const char16_t *key, quint32 def, const char *name) {
            e.push_back({key, QVariant(def), [name](const VekGrid &g) { return g.Flexgd1->property(name); },
                         [name](VekGrid &g, const QVariant &v) {
                             g.Flexgd1->setProperty(name, v.toUInt());
                         }});
        };
        auto number = [&](const char16_t *key, int def, const char *name) {
            e.push_back({key, QVariant(def), [name](const VekGrid &g) { return g.Flexgd1->property(name); },
                         [name](VekGrid &g, const QVariant &v) {
                             g.Flexgd1->setProperty(name, v.toInt());
                         }});
        };
        colour(u"BackColor", 0x80000005u, "BackColor");
        colour(u"ForeColor", 0x80000008u, "ForeColor");
        e.push_back({u"Enabled", QVariant(true), [](const VekGrid &g) { return QVariant(g.Enabled()); },
                     [](VekGrid &g, const QVariant &v) {
                         g.setEnabled(v.toBool());
                     }});
        e.push_back({u"Font", QVariant(), [](const VekGrid &g) { return QVariant(g.Font().toString()); },
                     [](VekGrid &g, const QVariant &v) {
                         QFont font;
                         if (font.fromString(v.toString())) {
                             g.setFont(font);
                         }
                     }});
        number(u"BorderStyle", 1, "BorderStyle");
        number(u"Rows", 2, "Rows");
        number(u"Cols", 2, "Cols");
        number(u"RowHeightMin", 0, "RowHeightMin");
        e.push_back({u"TextMatrix0", QVariant(QString()),
                     [grid](const VekGrid &g) { return QVariant(grid(g)->TextMatrix(grid(g)->Row(), grid(g)->Col())); },
                     [grid](VekGrid &g, const QVariant &v) {
                         grid(g)->setTextMatrix(grid(g)->Row(), grid(g)->Col(), v.toString());
                     }});
        number(u"FixedRows", 1, "FixedRows");
        number(u"FixedCols", 1, "FixedCols");
        e.push_back({u"FormatString", QVariant(QString()), [](const VekGrid &g) { return QVariant(g.FormatString()); },
                     [](VekGrid &g, const QVariant &v) {
                         if (!v.toString().isEmpty()) {
                             g.setFormatString(v.toString());
                         }
                     }});
        colour(u"GridColorFixed", 0u, "GridColorFixed");
        colour(u"GridColor", 0xC0C0C0u, "GridColor");
        e.push_back({u"EditCol", QVariant(QString()), [](const VekGrid &g) { return QVariant(g.EditCol()); },
                     [](VekGrid &g, const QVariant &v) {
                         g.setEditCol(v.toString());
                     }});
        e.push_back({u"ColWidth0", QVariant(), [](const VekGrid &g) { return QVariant(g.Flexgd1->ColWidth(0)); },
                     [](VekGrid &g, const QVariant &v) {
                         g.Flexgd1->setColWidth(0, v.toInt());
                     }});
        e.push_back({u"RowHeight0", QVariant(), [](const VekGrid &g) { return QVariant(g.Flexgd1->RowHeight(0)); },
                     [](VekGrid &g, const QVariant &v) {
                         g.Flexgd1->setRowHeight(0, v.toInt());
                     }});
        number(u"Appearance", 1, "Appearance");
        colour(u"BackColorBkg", 0x808080u, "BackColorBkg");
        colour(u"BackColorFixed", 0x8000000Fu, "BackColorFixed");
        colour(u"ForeColorFixed", 0x80000012u, "ForeColorFixed");
        number(u"AllowUserResizing", 0, "AllowUserResizing");
        number(u"ScrollBars", 3, "ScrollBars");
        e.push_back({u"DefaultRows", QVariant(0), [](const VekGrid &g) { return QVariant(int(g.DefaultRows())); },
                     [](VekGrid &g, const QVariant &v) {
                         VekGridBag::restoreDefaultRows(g, qint16(v.toInt()));
                     }});
        e.push_back({u"KeepLastRow", QVariant(1), [](const VekGrid &g) { return QVariant(int(g.KeepLastRows())); },
                     [](VekGrid &g, const QVariant &v) {
                         g.setKeepLastRows(qint16(v.toInt()));
                     }});
        e.push_back({u"Redraw", QVariant(true), [](const VekGrid &g) { return QVariant(g.Flexgd1->Redraw()); },
                     [](VekGrid &g, const QVariant &v) {
                         g.Flexgd1->setRedraw(v.toBool());
                     }});
        e.push_back({u"ColAlignment0", QVariant(),
                     [](const VekGrid &g) { return QVariant(g.Flexgd1->ColAlignment(0)); },
                     [](VekGrid &g, const QVariant &v) {
                         g.Flexgd1->setColAlignment(0, v.toInt());
                     }});
        number(u"RowSel", 0, "RowSel");
        number(u"ColSel", 0, "ColSel");
        e.push_back({u"Clip", QVariant(QString()), [](const VekGrid &g) { return QVariant(g.Clip()); },
                     [](VekGrid &g, const QVariant &v) {
                         if (!v.toString().isEmpty()) {
                             g.setClip(v.toString());
                         }
                     }});
        e.push_back({u"AutoEditNextCell", QVariant(true),
                     [](const VekGrid &g) { return QVariant(g.AutoEditNextCell()); },
                     [](VekGrid &g, const QVariant &v) {
                         g.setAutoEditNextCell(v.toBool());
                     }});
        e.push_back({u"UpdateNoEnterPress", QVariant(false),
                     [](const VekGrid &g) { return QVariant(g.UpdateNoEnterPress()); },
                     [](VekGrid &g, const QVariant &v) {
                         g.setUpdateNoEnterPress(v.toBool());
                     }});
        e.push_back({u"CellBackColor", QVariant(0u), [](const VekGrid &g) { return QVariant(g.CellBackColor()); },
                     [](VekGrid &g, const QVariant &v) {
                         g.setCellBackColor(v.toUInt());
                     }});
        number(u"SelectionMode", 0, "SelectionMode");
        e.push_back({u"AllowBigSelection", QVariant(true),
                     [](const VekGrid &g) { return QVariant(g.Flexgd1->AllowBigSelection()); },
                     [](VekGrid &g, const QVariant &v) {
                         g.Flexgd1->setAllowBigSelection(v.toBool());
                     }});
        e.push_back({u"PopMenu", QVariant(false), [](const VekGrid &g) { return QVariant(g.PopMenu()); },
                     [](VekGrid &g, const QVariant &v) {
                         g.setPopMenu(v.toBool());
                     }});
        e.push_back({u"MergeRow0", QVariant(), [](const VekGrid &g) { return QVariant(g.Flexgd1->MergeRow(0)); },
                     [](VekGrid &g, const QVariant &v) {
                         g.Flexgd1->setMergeRow(0, v.toBool());
                     }});
        e.push_back({u"MergeCol0", QVariant(), [](const VekGrid &g) { return QVariant(g.Flexgd1->MergeCol(0)); },
                     [](VekGrid &g, const QVariant &v) {
                         g.Flexgd1->setMergeCol(0, v.toBool());
                     }});
        number(u"MergeCells", 0, "MergeCells");
        e.push_back({u"SetupFile", QVariant(u"0"_s), [](const VekGrid &g) { return QVariant(g.SetupFile()); },
                     [](VekGrid &g, const QVariant &v) {
                         g.setSetupFile(v.toString());
                     }});
        e.push_back({u"IsDemo", QVariant(false), [](const VekGrid &g) { return QVariant(g.IsDemo()); },
                     [](VekGrid &g, const QVariant &v) {
                         g.setIsDemo(v.toBool());
                     }});
        number(u"FillStyle", 0, "FillStyle");
        e.push_back({u"FixedAlignment0", QVariant(),
                     [](const VekGrid &g) { return QVariant(g.Flexgd1->FixedAlignment(0)); },
                     [](VekGrid &g, const QVariant &v) {
                         g.Flexgd1->setFixedAlignment(0, v.toInt());
                     }});
        e.push_back({u"BackColorSel", QVariant(0u), [](const VekGrid &g) { return QVariant(g.BackColorSel()); },
                     [](VekGrid &g, const QVariant &v) {
                         g.setBackColorSel(v.toUInt());
                     }});
        return e;
    }();
    return entries;
}

bool sameValue(const QVariant &a, const QVariant &b)
{
    if (!b.isValid()) {
        return false;
    }
    if (a.metaType() == b.metaType()) {
        return a == b;
    }
    return a.toString() == b.toString();
}

} // namespace

void VekGrid::WriteProperties(QVariantMap &bag) const
{
    for (const BagEntry &entry : bagEntries()) {
        const QVariant value = entry.get(*this);
        const QString key = QString::fromUtf16(entry.key);
        if (sameValue(value, entry.defaultValue)) {
            bag.remove(key);
        } else {
            bag.insert(key, value);
        }
    }
}

void VekGrid::ReadProperties(const QVariantMap &bag)
{
    const bool design = m_designMode;
    m_designMode = false; // the bag restores guarded properties too
    const bool restoring = std::exchange(m_restoring, true);
    for (const BagEntry &entry : bagEntries()) {
        const QString key = QString::fromUtf16(entry.key);
        const auto it = bag.constFind(key);
        if (it != bag.constEnd()) {
            entry.set(*this, *it);
        } else if (entry.defaultValue.isValid()) {
            entry.set(*this, entry.defaultValue);
        }
    }
    m_restoring = restoring;
    m_designMode = design;
}

void VekGrid::InitProperties()
{
    m_setupFile = u"0"_s;
    m_keepLastRows = 1;
    m_autoEditNextCell = true;
}
