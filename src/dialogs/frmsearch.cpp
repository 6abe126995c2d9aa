#include "frmsearch.h"

#include "citems.h"
#include "cspell.h"
#include "dialogsupport.h"
#include "itemtablemodel.h"
#include "itemtextquery.h"
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
#include <QTimer>
#include <QVBoxLayout>

#include <algorithm>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

// A text looked for regardless of case. Numbers, codes and most names are plain ASCII, where folding is one
// comparison; a general case-insensitive matcher folds every character of every row through the Unicode tables,
// which is what made a search over a million goods slow.
class CaseFreeNeedle
{
public:
    explicit CaseFreeNeedle(const QString &text)
        : m_text(text)
        , m_folded(text.toCaseFolded())
        , m_matcher(text, Qt::CaseInsensitive)
    {
        m_ascii = std::all_of(m_folded.cbegin(), m_folded.cend(), [](QChar c) { return c.unicode() < 0x80; });
    }

    // What the text index looks for, in its fold (QChar::toCaseFolded unit by unit). An ASCII needle is compared
    // after folding A-Z only, which that fold does too (and more, which isIn() sorts out); the matcher folds unit by
    // unit as the index does, apart from surrogates, whose texts the index leaves to isIn() anyway.
    ItemTextQuery::Pattern pattern() const
    {
        if (m_ascii) {
            return ItemTextQuery::Pattern(m_folded);
        }
        // The matcher folds unit by unit, a low surrogate with its high one into a character beyond 16 bits, which
        // no regular text holds.
        ItemTextQuery::Pattern pattern;
        for (QChar c : m_text) {
            const char32_t folded = QChar::toCaseFolded(char32_t(c.unicode()));
            pattern.append(c.isSurrogate() || folded > 0xFFFF ? char16_t(0) : char16_t(folded));
        }
        return pattern;
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

    QString m_text;
    QString m_folded;
    QStringMatcher m_matcher;
    bool m_ascii = true;
};

// The pattern that the collection's text index looks for: every text a code matches as a run of the name's
// characters (CSpell::MatchCode) holds a run of these classes of units. A typed unit that repeats shares its class.
ItemTextQuery::Pattern codePattern(const QString &code)
{
    ItemTextQuery::Pattern pattern;
    std::vector<std::pair<QChar, ItemTextQuery::UnitClassPtr>> classes;
    for (QChar typed : code) {
        auto it = std::find_if(classes.begin(), classes.end(), [typed](const auto &c) { return c.first == typed; });
        if (it == classes.end()) {
            classes.emplace_back(typed, ItemTextQuery::unitClass([typed](char16_t unit) {
                                     return CSpell::codeUnitMatches(typed, unit);
                                 }));
            it = classes.end() - 1;
        }
        pattern.append(it->second);
    }
    return pattern;
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
    DialogSupport::enterPressesFocusedButton(this);
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
    prepareSearch();
}

void frmSearch::prepareSearch()
{
    // The collection's text index is made while the clerk types rather than on the first search (once per
    // collection; later changes only touch their part of it), a slice at a time, so that the dialog stays
    // responsive. A search before it is done finishes it.
    QTimer::singleShot(0, this, [this] {
        const auto *model = m_grid ? qobject_cast<const ItemTableModel *>(m_grid->model()) : nullptr;
        const CItems *items = model ? model->items() : nullptr;
        if (items && isVisible() && !items->PrepareTextSearch(kPrepareSlice)) {
            prepareSearch();
        }
    });
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
    const CItems *items = model->items();
    if (!items) {
        return -1;
    }
    // The collection's text index narrows the list down to the items whose texts may match; `matches` decides.
    ItemTextQuery query(matches);
    if (!no.isEmpty()) {
        query.require({{ItemTextQuery::Number, noNeedle.pattern()}});
    }
    if (!name.isEmpty()) {
        query.require({{ItemTextQuery::Name, nameNeedle.pattern()}});
    }
    if (!code.isEmpty()) {
        query.require({{ItemTextQuery::Spell, codeNeedle.pattern()}, {ItemTextQuery::Name, codePattern(code)}});
    }
    // The rows showing a pending edit or a new item are not what the collection holds: they are tested as shown.
    const QList<int> pending = model->pendingRows();
    const int count = items->Count();
    const auto shownMatches = [&](int row) {
        const CItemPtr item = model->itemAt(row);
        return item && matches(*item);
    };
    const int rows = model->rowCount();
    // The first matching row in [first, last], or -1.
    const auto firstMatch = [&](int first, int last) {
        auto pendingRow = std::lower_bound(pending.begin(), pending.end(), first);
        for (int row = first; row <= last;) {
            // The first of the collection's items that matches as the collection holds it...
            int hit = -1;
            if (row < count) {
                hit = int(items->FindText(query, row + 1, std::min(last, count - 1) + 1)) - 1;
            }
            // ... unless a pending row before it matches as the table shows it (the new rows are all pending).
            for (const int until = hit >= 0 ? hit : last; pendingRow != pending.end() && *pendingRow <= until;
                 ++pendingRow) {
                if (shownMatches(*pendingRow)) {
                    return *pendingRow;
                }
            }
            if (hit < 0 || !std::binary_search(pending.begin(), pending.end(), hit)) {
                return hit;
            }
            row = hit + 1;
        }
        return -1;
    };
    // From the row after the current one to the end, then from the top.
    const int below = firstMatch(fromRow + 1, rows - 1);
    return below >= 0 ? below : firstMatch(0, std::min(fromRow, rows - 1));
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
