#include "citems.h"
#include "cspell.h"
#include "frmsearch.h"
#include "itemtablemodel.h"
#include "prompt.h"

#include <QLineEdit>
#include <QRandomGenerator>
#include <QStringMatcher>
#include <QTableView>
#include <QTest>

#include <algorithm>
#include <array>

using namespace Qt::StringLiterals;

namespace {

// The search as the dialog did it before the text index: every row tested in turn, from the row after `fromRow`
// to the end and on from the top, as the table shows it. The rules are those of the dialog: number and name hold
// the typed text regardless of case (an ASCII text compared after folding A-Z only, anything else by
// QStringMatcher), the code is in the mnemonic code or matches a run of the name (CSpell::MatchCode).
class PlainSearch
{
public:
    PlainSearch(const QString &no, const QString &name, const QString &code)
        : m_no(no.trimmed())
        , m_name(name.trimmed())
        , m_code(code.trimmed())
    { }

    int findNext(const ItemTableModel &model, int fromRow) const
    {
        if (m_no.isEmpty() && m_name.isEmpty() && m_code.isEmpty()) {
            return -1;
        }
        const int rows = model.rowCount();
        for (int step = 1; step <= rows; ++step) {
            const int row = int((qint64(fromRow) + step + rows) % rows);
            const CItemPtr item = model.itemAt(row);
            if (item && matches(*item)) {
                return row;
            }
        }
        return -1;
    }

    bool matches(const CItem &item) const
    {
        if (!m_no.isEmpty() && !holds(item.F_ItemNo(), m_no)) {
            return false;
        }
        if (!m_name.isEmpty() && !holds(item.F_ItemName(), m_name)) {
            return false;
        }
        return m_code.isEmpty() || holds(item.F_Spell(), m_code) || CSpell::MatchCode(item.F_ItemName(), m_code);
    }

private:
    static bool holds(const QString &text, const QString &needle)
    {
        const QString folded = needle.toCaseFolded();
        if (!std::all_of(folded.begin(), folded.end(), [](QChar c) { return c.unicode() < 0x80; })) {
            return QStringMatcher(needle, Qt::CaseInsensitive).indexIn(text) >= 0;
        }
        for (qsizetype start = 0; start + folded.size() <= text.size(); ++start) {
            qsizetype k = 0;
            while (k < folded.size()) {
                char16_t c = text[start + k].unicode();
                if (c >= u'A' && c <= u'Z') {
                    c = char16_t(c + 32);
                }
                if (c != folded[k].unicode()) {
                    break;
                }
                ++k;
            }
            if (k == folded.size()) {
                return true;
            }
        }
        return false;
    }

    QString m_no;
    QString m_name;
    QString m_code;
};

// Texts of goods: numbers, Chinese names with characters of several readings, codes; and now and then what a
// clerk rarely types but a list may hold (letters of other scripts, signs that fold to ASCII, a character beyond
// 16 bits, a lone surrogate, a NUL, blanks).
QString randomText(QRandomGenerator &rng, int longest)
{
    static const char16_t kCommon[] = u"SPsp0123456789-长城行重乐藏可口康师傅矿泉水绿茶牛奶饼干中国";
    static const char16_t kRare[] = u"ÖößΣσςİıＡａ \t\u3000\u212A\u017FKkQq";
    QString text;
    const int length = rng.bounded(longest + 1);
    for (int i = 0; i < length; ++i) {
        const int pick = rng.bounded(100);
        if (pick < 85) {
            text.append(QChar(kCommon[rng.bounded(int(std::size(kCommon)) - 1)]));
        } else if (pick < 96) {
            text.append(QChar(kRare[rng.bounded(int(std::size(kRare)) - 1)]));
        } else if (pick < 98) {
            text.append(QChar(0xD83D)).append(QChar(0xDE00));
        } else if (pick < 99) {
            text.append(QChar(0xDC01));
        } else {
            text.append(QChar(0));
        }
    }
    return text;
}

QString randomCase(QRandomGenerator &rng, const QString &text)
{
    QString out;
    for (QChar c : text) {
        out.append(rng.bounded(2) ? c.toUpper() : c.toLower());
    }
    return out;
}

} // namespace

class FrmSearchTest : public QObject
{
    Q_OBJECT

private:
    CItems m_items;
    std::unique_ptr<ItemTableModel> m_model;
    std::unique_ptr<QTableView> m_view;
    std::unique_ptr<frmSearch> m_search;
    ScriptedPrompt m_prompt;

    CItemPtr goods(const QString &no, const QString &name, const QString &spell)
    {
        auto item = CItem::create();
        item->setF_ItemTypeID(4);
        item->setF_ItemNo(no);
        item->setF_ItemName(name);
        item->setF_Spell(spell);
        return item;
    }

    int find(const QString &no, const QString &name, const QString &code, int fromRow)
    {
        m_search->txtNo->setText(no);
        m_search->txtName->setText(name);
        m_search->txtSpell->setText(code);
        return m_search->FindNext(fromRow);
    }

private Q_SLOTS:
    void init()
    {
        CPrompt::setCurrent(&m_prompt);
        while (m_items.Count() > 0) {
            m_items.Remove(m_items.Count());
        }
        m_model = std::make_unique<ItemTableModel>(&m_items, ItemTableModel::goodsFields());
        m_view = std::make_unique<QTableView>();
        m_view->setModel(m_model.get());
        m_search = std::make_unique<frmSearch>();
        m_search->setGrid(m_view.get());
    }

    void cleanup()
    {
        m_search.reset();
        m_view.reset();
        m_model.reset();
        CPrompt::setCurrent(nullptr);
    }

    void findsWhatAWalkOfTheRowsFinds()
    {
        // The text index against the walk the dialog did before: the same row for every search, from any row,
        // while the list, its items and the grid's pending edits change in between.
        QRandomGenerator rng(20261124);
        for (int i = 0; i < 3000; ++i) {
            m_items.Add(goods(randomText(rng, 9), randomText(rng, 10), randomText(rng, 6)));
        }
        const int noColumn = m_model->columnOf(ItemTableModel::ItemNo);
        const int nameColumn = m_model->columnOf(ItemTableModel::ItemName);
        const int spellColumn = m_model->columnOf(ItemTableModel::Spell);
        for (int round = 0; round < 1500; ++round) {
            const int rows = m_model->rowCount();
            const CItemPtr some = m_model->itemAt(rng.bounded(rows));
            switch (rng.bounded(12)) {
            case 0:
                m_items.Add(goods(randomText(rng, 9), randomText(rng, 10), randomText(rng, 6)));
                break;
            case 1:
                m_items.Remove(1 + rng.bounded(m_items.Count()));
                break;
            case 2:
                some->setF_ItemName(randomText(rng, 10));
                break;
            case 3:
                some->setF_Spell(randomText(rng, 6));
                break;
            case 4:
                some->setF_ItemNo(randomText(rng, 9));
                break;
            case 5: {
                // An edit in the grid, waiting to be saved: the row shows it, the collection does not hold it.
                const int column = std::array {noColumn, nameColumn, spellColumn}[rng.bounded(3)];
                m_model->setData(m_model->index(rng.bounded(rows), column), randomText(rng, 8));
                break;
            }
            case 6:
                if (rng.bounded(4) == 0) {
                    const int row = m_model->addNewRow();
                    m_model->setData(m_model->index(row, nameColumn), randomText(rng, 8));
                } else if (rng.bounded(3) == 0) {
                    m_model->discardChanges();
                }
                break;
            default:
                break;
            }
            // What to look for: a piece of some row's texts, in any case, or something made up.
            const CItemPtr source = m_model->itemAt(rng.bounded(m_model->rowCount()));
            auto piece = [&](const QString &text) {
                if (rng.bounded(3) == 0) {
                    return randomText(rng, 3);
                }
                const int from = text.isEmpty() ? 0 : rng.bounded(int(text.size()));
                return randomCase(rng, text.mid(from, 1 + rng.bounded(5)));
            };
            QString no;
            QString name;
            QString code;
            const int fields = 1 + rng.bounded(7);
            if (fields & 1) {
                no = piece(source->F_ItemNo());
            }
            if (fields & 2) {
                name = piece(source->F_ItemName());
            }
            if (fields & 4) {
                code = rng.bounded(2) ? piece(source->F_Spell()) : piece(CSpell::py(source->F_ItemName()));
            }
            const int from = rng.bounded(m_model->rowCount() + 1) - 1;
            const int expected = PlainSearch(no, name, code).findNext(*m_model, from);
            const int found = find(no, name, code, from);
            if (found != expected) {
                qWarning() << "round" << round << "from" << from << "no" << no << "name" << name << "code" << code;
            }
            QCOMPARE(found, expected);
        }
    }

    void unusualCharactersAsAWalkFindsThem()
    {
        // Every pair of some units with unusual case rules (Kelvin sign, long s, dotted and dotless i, final
        // sigma, sharp s, full-width letters), a character beyond 16 bits, a lone surrogate and a NUL, as number,
        // name and code; each unit and many pairs looked for in each field, in either case.
        QStringList units;
        for (QChar c : u"kK\u212As\u017FiI\u0130\u0131\u03C3\u03C2\u03A3\u00DF\u1E9E\uFF21\uFF41\u00D6\u00F6长城1"_s) {
            units << QString(c);
        }
        units << u"\U0001F600"_s << u"\U00010400"_s << u"\U00010428"_s << QString(QChar(0xDC01)) << QString(QChar(0));
        for (const QString &a : units) {
            for (const QString &b : units) {
                m_items.Add(goods(a + b, b + a, a + u"x"_s + b));
            }
        }
        QRandomGenerator rng(7);
        QStringList needles = units;
        for (const QString &unit : units) {
            needles << unit.toUpper() << unit.toLower() << unit.toCaseFolded();
        }
        for (int i = 0; i < 150; ++i) {
            needles << units[rng.bounded(int(units.size()))] + units[rng.bounded(int(units.size()))];
        }
        const int rows = m_model->rowCount();
        for (const QString &needle : needles) {
            for (int field = 0; field < 3; ++field) {
                const QString no = field == 0 ? needle : QString();
                const QString name = field == 1 ? needle : QString();
                const QString code = field == 2 ? needle : QString();
                for (int from : {-1, rows / 3, rows - 1}) {
                    const int expected = PlainSearch(no, name, code).findNext(*m_model, from);
                    if (find(no, name, code, from) != expected) {
                        qWarning() << "field" << field << "needle" << needle << "from" << from;
                    }
                    QCOMPARE(find(no, name, code, from), expected);
                }
            }
        }
    }

    void worstCasesWalkTheWholeList()
    {
        // Only the row before the current one matches, or nothing: the search wraps around the whole list.
        for (int i = 0; i < 5000; ++i) {
            m_items.Add(goods(u"SP"_s + QString::number(i).rightJustified(5, u'0'), u"可口可乐"_s, u"KKKL"_s));
        }
        m_items.Item(2500)->setF_ItemName(u"长城干红"_s);
        QCOMPARE(find(u"sp02498"_s, {}, {}, 2499), 2498);
        QCOMPARE(find({}, u"长城"_s, {}, 2499), 2499);
        QCOMPARE(find({}, u"长城"_s, {}, 2500), 2499);
        QCOMPARE(find({}, {}, u"zcgh"_s, 2500), 2499);
        QCOMPARE(find({}, {}, u"zcgh"_s, -1), 2499);
        QCOMPARE(find({}, {}, u"ccgh"_s, 4999), 2499);
        QCOMPARE(find(u"SP"_s, u"干红"_s, u"ZC"_s, 2499), 2499);
        QCOMPARE(find({}, {}, u"qqqq"_s, 1234), -1);
        QCOMPARE(find(u"SP1"_s, {}, {}, 4999), -1);
    }

    void showingTheDialogPreparesTheSearch()
    {
        for (int i = 0; i < 100000; ++i) {
            m_items.Add(goods(u"SP"_s + QString::number(i), u"矿泉水"_s, u"KQS"_s));
        }
        // (The index exists since an earlier test searched this collection, but holds none of these goods.)
        QVERIFY(m_items.textSearchBytes() < 100000);
        m_search->show();
        QTRY_VERIFY(m_items.textSearchBytes() > 100000 * 20);
        QCOMPARE(find(u"sp99999"_s, {}, {}, -1), 99999);
        m_search->close();
    }

    void changesAreFoundRightAfterThem()
    {
        // Renamed, added and removed goods, with the text index already made by a first search.
        for (int i = 0; i < 3000; ++i) {
            m_items.Add(goods(u"SP"_s + QString::number(i).rightJustified(5, u'0'), u"矿泉水"_s, u"KQS"_s));
        }
        QCOMPARE(find({}, u"绿茶"_s, {}, -1), -1);

        const CItemPtr renamed = m_items.Item(2000);
        renamed->setF_ItemName(u"绿茶"_s);
        QCOMPARE(find({}, u"绿茶"_s, {}, -1), 1999);
        QCOMPARE(find({}, {}, u"lc"_s, -1), 1999); // the code of the new name
        renamed->setF_ItemName(u"红茶"_s);
        QCOMPARE(find({}, u"绿茶"_s, {}, -1), -1);
        QCOMPARE(find({}, u"红茶"_s, {}, -1), 1999);
        renamed->setF_Spell(u"HONGCHA"_s);
        QCOMPARE(find({}, {}, u"hongc"_s, -1), 1999);
        renamed->setF_ItemNo(u"HC-1"_s);
        QCOMPARE(find(u"hc-1"_s, {}, {}, -1), 1999);
        QCOMPARE(find(u"SP01999"_s, {}, {}, -1), -1);

        m_items.Add(goods(u"XX1"_s, u"牛奶"_s, u"NN"_s));
        QCOMPARE(find({}, u"牛奶"_s, {}, -1), 3000);
        QCOMPARE(find(u"xx1"_s, {}, {}, 2999), 3000);

        m_items.Remove(2000); // the renamed goods
        QCOMPARE(find({}, u"红茶"_s, {}, -1), -1);
        QCOMPARE(find({}, u"牛奶"_s, {}, -1), 2999);
        m_items.Remove(1);
        QCOMPARE(find({}, u"牛奶"_s, {}, -1), 2998);
        QCOMPARE(find(u"SP00000"_s, {}, {}, -1), -1);
        QCOMPARE(find(u"SP00001"_s, {}, {}, -1), 0);

        // An item given another's values in one go.
        *m_items.Item(10) = *goods(u"YY"_s, u"饼干"_s, u"BG"_s);
        QCOMPARE(find({}, {}, u"bg"_s, -1), 9);

        // A pending edit in the grid is found as the row shows it; the saved text no longer is.
        QVERIFY(m_model->setData(m_model->index(5, m_model->columnOf(ItemTableModel::ItemName)), u"面包"_s));
        QCOMPARE(find({}, u"面包"_s, {}, -1), 5);
        QCOMPARE(find(u"SP00006"_s, u"矿泉水"_s, {}, -1), -1);
        m_model->discardChanges();
        QCOMPARE(find({}, u"面包"_s, {}, -1), -1);
        QCOMPARE(find(u"SP00006"_s, u"矿泉水"_s, {}, -1), 5);
    }
};

QTEST_MAIN(FrmSearchTest)
#include "tst_frmsearch.moc"
