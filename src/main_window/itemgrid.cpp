#include "itemgrid.h"

#include "itemtablemodel.h"
#include "module1.h"

#include <QCoreApplication>
#include <QHeaderView>
#include <QInputMethodEvent>
#include <QLineEdit>
#include <QStyledItemDelegate>
#include <QTimer>

using namespace Qt::StringLiterals;

namespace {

// The in-grid edit box: a plain line edit named txtEdit that selects its whole text when it opens.
class TxtEditDelegate : public QStyledItemDelegate
{
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    QWidget *createEditor(QWidget *parent, const QStyleOptionViewItem &, const QModelIndex &index) const override
    {
        auto *editor = new QLineEdit(parent);
        editor->setObjectName(u"txtEdit"_s);
        editor->setFrame(false);
        editor->setAlignment(Qt::Alignment(index.data(Qt::TextAlignmentRole).toInt()));
        return editor;
    }

    void setEditorData(QWidget *editor, const QModelIndex &index) const override
    {
        auto *line = static_cast<QLineEdit *>(editor);
        // The view hands an open box the cell's text again whenever the cell changes (another seat's save): what
        // the clerk has typed stays.
        if (line->isModified()) {
            return;
        }
        const QString text = index.data(Qt::EditRole).toString();
        line->setText(text);
        // After the view has given the editor the focus. Only the text the box opened with is selected: a key or an
        // input method that typed since has replaced it already, and its text must not be selected for the next
        // piece to replace.
        QTimer::singleShot(0, line, [line, text]() {
            if (line->hasFocus() && !line->isModified() && line->text() == text && text.size() > 1) {
                Module1::SelectAllText(line);
            }
        });
    }
};

int fieldWidth(ItemTableModel::Field field)
{
    switch (field) {
    case ItemTableModel::ItemName:
    case ItemTableModel::Address:
        return 180;
    case ItemTableModel::Standard:
    case ItemTableModel::Remark:
    case ItemTableModel::BankAccount:
    case ItemTableModel::Bank:
        return 130;
    case ItemTableModel::UnitName:
    case ItemTableModel::PackageAmount:
        return 60;
    case ItemTableModel::Tel1:
    case ItemTableModel::Tel2:
    case ItemTableModel::Tel3:
        return 115;
    default:
        return 90;
    }
}

} // namespace

ItemGrid::ItemGrid(QWidget *parent)
    : QTableView(parent)
{
    setObjectName(u"Flexgd1"_s);
    setItemDelegate(new TxtEditDelegate(this));
    setEditTriggers(QAbstractItemView::DoubleClicked | QAbstractItemView::EditKeyPressed
                    | QAbstractItemView::AnyKeyPressed);
    setSelectionBehavior(QAbstractItemView::SelectItems);
    setSelectionMode(QAbstractItemView::SingleSelection);
    setAlternatingRowColors(false);
    setWordWrap(false);
    // Uniform row heights: the view never measures a million rows.
    verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    verticalHeader()->setDefaultSectionSize(fontMetrics().height() + 8);
    verticalHeader()->setDefaultAlignment(Qt::AlignRight | Qt::AlignVCenter);
    horizontalHeader()->setHighlightSections(false);
    horizontalHeader()->setStretchLastSection(true);
    setAllowUserResizing(m_allowUserResizing);
    applyColours();
}

ItemGrid::~ItemGrid() = default;

void ItemGrid::setModel(QAbstractItemModel *model)
{
    QTableView::setModel(model);
    sizeColumns();
}

void ItemGrid::sizeColumns()
{
    const auto *items = qobject_cast<const ItemTableModel *>(model());
    if (!items) {
        return;
    }
    for (int c = 0; c < items->columnCount(); ++c) {
        horizontalHeader()->resizeSection(c, fieldWidth(items->field(c)));
    }
}

bool ItemGrid::commitEditor()
{
    if (state() != QAbstractItemView::EditingState) {
        return true;
    }
    QWidget *editor = indexWidget(currentIndex());
    if (!editor) {
        return true;
    }
    bool refused = false;
    QMetaObject::Connection watch;
    if (auto *items = qobject_cast<ItemTableModel *>(model())) {
        watch = connect(items, &ItemTableModel::editRejected, this, [&refused]() { refused = true; });
    }
    commitData(editor);
    disconnect(watch);
    if (refused) {
        editor->setFocus();
        return false;
    }
    closeEditor(editor, QAbstractItemDelegate::NoHint);
    return true;
}

void ItemGrid::inputMethodEvent(QInputMethodEvent *event)
{
    // The view opens the edit box for the first text of an input method but does not hand it the text: a word
    // committed while the grid has the focus would be lost. The box gets it as it gets a typed key.
    const bool text = !event->commitString().isEmpty() || !event->preeditString().isEmpty();
    if (text && state() != EditingState && currentIndex().isValid() && edit(currentIndex(), AnyKeyPressed, event)) {
        if (QWidget *editor = indexWidget(currentIndex())) {
            QCoreApplication::sendEvent(editor, event);
            return;
        }
    }
    QTableView::inputMethodEvent(event);
}

qint32 ItemGrid::Rows() const
{
    return model() ? model()->rowCount() + 1 : 1;
}

qint32 ItemGrid::Cols() const
{
    return model() ? model()->columnCount() : 0;
}

QString ItemGrid::TextMatrix(qint32 row, qint32 col) const
{
    if (!model() || row < 0 || col < 0 || row >= Rows() || col >= Cols()) {
        return QString();
    }
    if (row == 0) {
        return model()->headerData(col, Qt::Horizontal).toString();
    }
    return model()->index(row - 1, col).data().toString();
}

qint32 ItemGrid::Row() const
{
    const QModelIndex current = currentIndex();
    return current.isValid() ? current.row() + 1 : 0;
}

void ItemGrid::setRow(qint32 row)
{
    if (model() && row >= 1 && row < Rows()) {
        setCurrentIndex(model()->index(row - 1, qMax(0, currentIndex().column())));
    }
}

qint32 ItemGrid::Col() const
{
    const QModelIndex current = currentIndex();
    return current.isValid() ? current.column() : 0;
}

void ItemGrid::setCol(qint32 col)
{
    if (model() && col >= 0 && col < Cols()) {
        setCurrentIndex(model()->index(qMax(0, currentIndex().row()), col));
    }
}

void ItemGrid::setAllowUserResizing(int mode)
{
    m_allowUserResizing = mode;
    horizontalHeader()->setSectionResizeMode((mode & 1) ? QHeaderView::Interactive : QHeaderView::Fixed);
}

void ItemGrid::setScrollBars(int bars)
{
    m_scrollBars = bars;
    setHorizontalScrollBarPolicy((bars & 1) ? Qt::ScrollBarAsNeeded : Qt::ScrollBarAlwaysOff);
    setVerticalScrollBarPolicy((bars & 2) ? Qt::ScrollBarAsNeeded : Qt::ScrollBarAlwaysOff);
}
