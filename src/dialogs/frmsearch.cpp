#include "frmsearch.h"

#include "citems.h"
#include "cspell.h"
#include "itemtablemodel.h"
#include "module1.h"
#include "prompt.h"

#include <QAbstractItemView>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QStringMatcher>
#include <QVBoxLayout>

#include <algorithm>
#include <array>

using namespace Qt::StringLiterals;

namespace {

// A text looked for regardless of case. Numbers, codes and most names are plain ASCII, where folding is one
// comparison; a general case-insensitive matcher folds every character of every row through the Unicode tables,
// which is what made a search over a million goods slow.
class CaseFreeNeedle
{
public:
    explicit CaseFreeNeedle(const QString &text)
        : m_folded(text.toCaseFolded())
        , m_matcher(text, Qt::CaseInsensitive)
    {
        m_ascii = std::all_of(m_folded.cbegin(), m_folded.cend(), [](QChar c) { return c.unicode() < 0x80; });
    }

    bool isIn(const QString &haystack) const
    {
        if (!m_ascii) {
            return m_matcher.indexIn(haystack) >= 0;
        }
        const qsizetype n = m_folded.size();
        const qsizetype last = haystack.size() - n;
        const QChar *in = haystack.constData();
        const QChar *want = m_folded.constData();
        for (qsizetype start = 0; start <= last; ++start) {
            qsizetype k = 0;
            // Only an ASCII character can fold to an ASCII one (the Kelvin sign and the long s aside, which a
            // clerk does not type into a number or a code).
            while (k < n && fold(in[start + k].unicode()) == want[k].unicode()) {
                ++k;
            }
            if (k == n) {
                return true;
            }
        }
        return false;
    }

private:
    static char16_t fold(char16_t c) { return (c >= u'A' && c <= u'Z') ? char16_t(c + 32) : c; }

    QString m_folded;
    QStringMatcher m_matcher;
    bool m_ascii = true;
};

// The first row in [first, last] of `items` that `matches`, or -1. Items live all over the heap, and each test
// reads three of an item's texts through two more pointers: the walk runs a few items ahead, asking for each
// level of memory one step before it is needed, so that a million items are not a million waits in a row.
template<typename Matches>
int firstMatch(const CItems &items, int first, int last, const Matches &matches)
{
    constexpr int kAhead = 24; // ring size; stages at 24, 16 and 8 items ahead
    std::array<const CItem *, kAhead> ring {};
    auto next = items.begin();
    const auto end = items.end();
    int row = 0;
    for (; row < first && next != end; ++row) {
        ++next;
    }
    int fetched = row; // rows from `row` up to `fetched` sit in the ring
    auto fetchOne = [&] {
        if (next == end || fetched > last) {
            return;
        }
        const CItem *item = next->get();
        item->prefetch(0);
        ring[fetched % kAhead] = item;
        ++fetched;
        ++next;
    };
    while (fetched < row + kAhead && next != end && fetched <= last) {
        fetchOne();
    }
    for (; row < fetched; ++row) {
        if (row + 16 < fetched) {
            ring[(row + 16) % kAhead]->prefetch(1);
        }
        if (row + 8 < fetched) {
            ring[(row + 8) % kAhead]->prefetch(2);
        }
        if (matches(*ring[row % kAhead])) {
            return row;
        }
        fetchOne();
    }
    return -1;
}

} // namespace

frmSearch::frmSearch(QWidget *parent)
    : QDialog(parent)
    , txtNo(new QLineEdit(this))
    , txtName(new QLineEdit(this))
    , txtSpell(new QLineEdit(this))
    , cmdFind(new QPushButton(u"查找(&F)"_s, this))
    , cmdClose(new QPushButton(u"关闭"_s, this))
    , lblResult(new QLabel(this))
{
    setObjectName(u"frmSearch"_s);
    setWindowTitle(u"查找"_s);
    txtNo->setObjectName(u"txtNo"_s);
    txtName->setObjectName(u"txtName"_s);
    txtSpell->setObjectName(u"txtSpell"_s);
    cmdFind->setObjectName(u"cmdFind"_s);
    cmdClose->setObjectName(u"cmdClose"_s);
    lblResult->setObjectName(u"lblResult"_s);
    txtSpell->setPlaceholderText(u"拼音首字母,如 KL"_s);

    auto *form = new QFormLayout;
    form->addRow(u"编号(&N):"_s, txtNo);
    form->addRow(u"名称(&M):"_s, txtName);
    form->addRow(u"助记符(&S):"_s, txtSpell);
    auto *buttons = new QHBoxLayout;
    buttons->addWidget(lblResult, 1);
    buttons->addWidget(cmdFind);
    buttons->addWidget(cmdClose);
    auto *layout = new QVBoxLayout(this);
    layout->addLayout(form);
    layout->addLayout(buttons);
    setMinimumWidth(340);

    // Enter in a field moves on instead of pressing a button (the fields filter it); Enter on 查找, or anywhere
    // else in the dialog, searches.
    cmdFind->setDefault(true);
    cmdClose->setAutoDefault(false);
    for (QLineEdit *field : {txtNo, txtName, txtSpell}) {
        field->installEventFilter(this);
    }
    connect(cmdFind, &QPushButton::clicked, this, &frmSearch::cmdFind_Click);
    connect(cmdClose, &QPushButton::clicked, this, &QDialog::close);
}

frmSearch::~frmSearch() = default;

void frmSearch::setGrid(QAbstractItemView *grid)
{
    m_grid = grid;
}

bool frmSearch::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() == QEvent::KeyPress) {
        const int key = static_cast<QKeyEvent *>(event)->key();
        if (key == Qt::Key_Return || key == Qt::Key_Enter) {
            Module1::EnterToTab(13);
            return true;
        }
    }
    return QDialog::eventFilter(watched, event);
}

void frmSearch::showEvent(QShowEvent *event)
{
    QDialog::showEvent(event);
    lblResult->clear();
    Module1::SelectAllText(txtNo);
}

int frmSearch::FindNext(int fromRow) const
{
    const auto *model = m_grid ? qobject_cast<const ItemTableModel *>(m_grid->model()) : nullptr;
    if (!model) {
        return -1;
    }
    const QString no = txtNo->text().trimmed();
    const QString name = txtName->text().trimmed();
    const QString code = txtSpell->text().trimmed();
    if (no.isEmpty() && name.isEmpty() && code.isEmpty()) {
        return -1;
    }
    // The needles are prepared once; the rows are then read straight from the list.
    const CaseFreeNeedle noNeedle(no);
    const CaseFreeNeedle nameNeedle(name);
    const CaseFreeNeedle codeNeedle(code);
    const auto matches = [&](const CItem &item) {
        if (!no.isEmpty() && !noNeedle.isIn(item.F_ItemNo())) {
            return false;
        }
        if (!name.isEmpty() && !nameNeedle.isIn(item.F_ItemName())) {
            return false;
        }
        return code.isEmpty() || codeNeedle.isIn(item.F_Spell()) || CSpell::MatchCode(item.F_ItemName(), code);
    };
    const int rows = model->rowCount();
    const CItems *items = model->items();
    if (items && !model->isModified()) {
        // Without pending edits the rows are the list itself: one walk from the row after the current one to
        // the end, then one from the top.
        const int below = firstMatch(*items, fromRow + 1, rows - 1, matches);
        return below >= 0 ? below : firstMatch(*items, 0, std::min(fromRow, rows - 1), matches);
    }
    for (int step = 1; step <= rows; ++step) {
        const int row = int((qint64(fromRow) + step + rows) % rows);
        const CItemPtr item = model->itemAt(row);
        if (item && matches(*item)) {
            return row;
        }
    }
    return -1;
}

void frmSearch::cmdFind_Click()
{
    if (txtNo->text().trimmed().isEmpty() && txtName->text().trimmed().isEmpty()
        && txtSpell->text().trimmed().isEmpty()) {
        CPrompt::current().MsgBox(u"请输入要查找的编号、名称或助记符!"_s, CPrompt::vbExclamation,
                                  CPrompt::messageTitle());
        Module1::SelectAllText(txtNo);
        return;
    }
    if (!m_grid || !m_grid->model()) {
        return;
    }
    const QModelIndex current = m_grid->currentIndex();
    const int row = FindNext(current.isValid() ? current.row() : -1);
    if (row < 0) {
        lblResult->setText(u"没有找到"_s);
        CPrompt::current().MsgBox(u"没有找到符合条件的记录!"_s, CPrompt::vbInformation, CPrompt::messageTitle());
        return;
    }
    const QModelIndex found = m_grid->model()->index(row, current.isValid() ? current.column() : 0);
    m_grid->setCurrentIndex(found);
    m_grid->scrollTo(found, QAbstractItemView::PositionAtCenter);
    lblResult->setText(u"第 "_s + QString::number(row + 1) + u" 行"_s);
    Q_EMIT Found(row);
}
