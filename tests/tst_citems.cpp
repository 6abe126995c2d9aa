#include "cconnection.h"
#include "citems.h"
#include "cspell.h"
#include "itemfixtures.h"
#include "itemtextquery.h"
#include "keyid.h"
#include "prompt.h"
#include "testdatabase.h"

#include <QComboBox>
#include <QListWidget>
#include <QRandomGenerator>
#include <QSignalSpy>
#include <QTest>
#include <QTreeWidget>

#include <functional>
#include <memory>
#include <optional>

using namespace Qt::StringLiterals;
using ItemFixtures::Row;

class CItemsTest : public QObject
{
    Q_OBJECT

private:
    std::shared_ptr<CConnection> m_db;
    std::unique_ptr<ScriptedPrompt> m_prompt;

    static QStringList numbers(const CItems &items)
    {
        QStringList out;
        for (const CItemPtr &item : items) {
            out.append(item->F_ItemNo());
        }
        return out;
    }

    std::unique_ptr<CItems> load(int type)
    {
        auto items = std::make_unique<CItems>();
        [&] {
            QVERIFY(items->InitInstance(m_db, type));
        }();
        return items;
    }

    int itemRows() { return ItemFixtures::count(*m_db, u"Select Count(*) From T_Item"_s); }

    // Texts over a small alphabet, so that searches often find something; now and then a unit that makes a text
    // irregular for the text index (the Kelvin sign, the long s, a surrogate pair, a lone surrogate, a NUL).
    // `storable`: without the lone surrogate and the NUL, which a database does not keep.
    static QString randomText(QRandomGenerator &rng, int longest, bool storable = false)
    {
        static const char16_t kUnits[] = u"aAbBkKsS12-长行乐中重Öößσςİ";
        QString text;
        const int length = rng.bounded(longest + 1);
        for (int i = 0; i < length; ++i) {
            int pick = rng.bounded(80);
            if (storable && (pick == 3 || pick == 4)) {
                pick = 80;
            }
            switch (pick) {
            case 0:
                text.append(QChar(0x212A));
                break;
            case 1:
                text.append(QChar(0x017F));
                break;
            case 2:
                text.append(QChar(0xD83D)).append(QChar(0xDE00));
                break;
            case 3:
                text.append(QChar(0xDC00));
                break;
            case 4:
                text.append(QChar(0));
                break;
            default:
                text.append(QChar(kUnits[rng.bounded(int(std::size(kUnits)) - 1)]));
            }
        }
        return text;
    }

    static QString foldedUnits(QStringView text)
    {
        QString out;
        for (QChar c : text) {
            out.append(QChar(char16_t(QChar::toCaseFolded(char32_t(c.unicode())))));
        }
        return out;
    }

    // A random search as the search dialog makes them, on texts folded unit by unit: a needle is found where the
    // number, name or code holds it; a typed code also where a run of the name's units matches it
    // (CSpell::codeUnitMatches). The query's `accepts` is the plain test, which the scan uses too.
    struct RandomSearch
    {
        std::shared_ptr<ItemTextQuery> query;
        std::function<bool(const CItem &)> matches;
    };

    // With `typed`, one clause looks for that text in that field (0 number, 1 name, 2 code).
    static RandomSearch randomSearch(QRandomGenerator &rng, const CItems &items,
                                     std::optional<std::pair<int, QString>> typedText = std::nullopt)
    {
        using Test = std::function<bool(const CItem &)>;
        std::vector<Test> tests;
        std::vector<std::vector<std::pair<ItemTextQuery::Field, ItemTextQuery::Pattern>>> clauses;
        auto needle = [&](int field) {
            if (items.Count() > 0 && rng.bounded(2) == 0) {
                const CItemPtr item = items.Item(1 + rng.bounded(items.Count()));
                const QString text = field == 0 ? item->F_ItemNo() : field == 1 ? item->F_ItemName() : item->F_Spell();
                const qsizetype from = text.isEmpty() ? 0 : rng.bounded(int(text.size()));
                const QString part = text.mid(from, 1 + rng.bounded(4));
                return rng.bounded(2) ? part.toUpper() : part;
            }
            return randomText(rng, 3);
        };
        const int count = typedText ? 1 : 1 + rng.bounded(3);
        for (int c = 0; c < count; ++c) {
            const int field = typedText ? typedText->first : rng.bounded(3);
            QString typed = typedText ? typedText->second : needle(field);
            if (typed.isEmpty()) {
                typed = u"a"_s;
            }
            const QString folded = foldedUnits(typed);
            auto text = [field](const CItem &item) -> const QString & {
                return field == 0 ? item.F_ItemNo() : field == 1 ? item.F_ItemName() : item.F_Spell();
            };
            auto holds = [text, folded](const CItem &item) {
                return foldedUnits(text(item)).contains(folded);
            };
            const auto kind = ItemTextQuery::Field(field);
            if (field != 2) {
                tests.push_back(holds);
                clauses.push_back({{kind, ItemTextQuery::Pattern(folded)}});
                continue;
            }
            // A code: in the code itself, or as a run of the name's units.
            ItemTextQuery::Pattern run;
            for (QChar unit : typed) {
                run.append(ItemTextQuery::unitClass([unit](char16_t c) { return CSpell::codeUnitMatches(unit, c); }));
            }
            tests.push_back([holds, typed](const CItem &item) {
                const QString &name = item.F_ItemName();
                for (qsizetype at = 0; at + typed.size() <= name.size(); ++at) {
                    qsizetype k = 0;
                    while (k < typed.size() && CSpell::codeUnitMatches(typed[k], name[at + k])) {
                        ++k;
                    }
                    if (k == typed.size()) {
                        return true;
                    }
                }
                return holds(item);
            });
            clauses.push_back({{kind, ItemTextQuery::Pattern(folded)}, {ItemTextQuery::Name, run}});
        }
        RandomSearch search;
        search.matches = [tests](const CItem &item) {
            return std::all_of(tests.begin(), tests.end(), [&](const Test &test) { return test(item); });
        };
        search.query = std::make_shared<ItemTextQuery>(search.matches);
        for (auto &clause : clauses) {
            search.query->require(std::move(clause));
        }
        return search;
    }

    // FindText against a walk of the list, over the whole list and over a random stretch of it; with `changed` (a
    // position), also for the texts of that item, from it on.
    static void compareSearches(QRandomGenerator &rng, const CItems &items, int queries, int changed = 0,
                                const QStringList &oldTexts = {})
    {
        const int count = items.Count();
        std::vector<std::pair<RandomSearch, int>> searches; // with the first position to look at
        for (int q = 0; q < queries; ++q) {
            searches.emplace_back(randomSearch(rng, items), rng.bounded(3) == 0 ? -1 : 1);
        }
        if (changed >= 1 && changed <= count) {
            const CItemPtr item = items.Item(changed);
            const QStringList texts {item->F_ItemNo(), item->F_ItemName(), item->F_Spell()};
            for (int field = 0; field < 3; ++field) {
                for (const QString &text : {texts.value(field), oldTexts.value(field)}) {
                    if (!text.isEmpty()) {
                        searches.emplace_back(randomSearch(rng, items, std::pair(field, text)), changed);
                    }
                }
            }
        }
        for (const auto &[search, from] : searches) {
            const int first = from < 0 ? rng.bounded(count + 2) : from;
            const int last = from < 0 ? rng.bounded(count + 2) : count;
            int expected = 0;
            for (int at = std::max(first, 1); at <= std::min(last, count) && !expected; ++at) {
                if (search.matches(*items.Item(at))) {
                    expected = at;
                }
            }
            QCOMPARE(items.FindText(*search.query, first, last), expected);
        }
    }

    CItemPtr newGoods(const QString &no, const QString &name = QString())
    {
        auto item = std::make_shared<CItem>();
        item->setF_ItemTypeID(4);
        item->setF_ItemNo(no);
        item->setF_ItemName(name.isEmpty() ? u"商品"_s + no : name);
        return item;
    }

private Q_SLOTS:
    void newGoodsNumberKeepsTheStyle_data()
    {
        QTest::addColumn<QStringList>("numbers");
        QTest::addColumn<QString>("next");
        QTest::newRow("none") << QStringList() << u"0001"_s;
        QTest::newRow("padded counter") << QStringList {u"SP0098"_s, u"SP0099"_s} << u"SP0100"_s;
        QTest::newRow("gap is not filled") << QStringList {u"SP0001"_s, u"SP0007"_s} << u"SP0008"_s;
        QTest::newRow("counter outgrows the width") << QStringList {u"99"_s} << u"100"_s;
        QTest::newRow("style of the largest number") << QStringList {u"A5"_s, u"B0012"_s, u"B0003"_s} << u"B0013"_s;
        QTest::newRow("no digits") << QStringList {u"ABC"_s} << u"ABC0001"_s;
        QTest::newRow("all digits") << QStringList {u"010001"_s, u"010200"_s, u"020001"_s} << u"020002"_s;
    }
    void newGoodsNumberKeepsTheStyle()
    {
        QFETCH(QStringList, numbers);
        QFETCH(QString, next);
        CItems goods;
        for (const QString &no : numbers) {
            goods.Add(newGoods(no));
        }
        QCOMPARE(goods.GetNewGoodsNo(), next);
        QVERIFY(!goods.HasTheItemNo(next));
    }

    void newGoodsNumberPerTypeAndDuplicateChecks()
    {
        CItems goods;
        for (const auto &[no, type] : {std::pair {u"G001"_s, 1}, {u"G002"_s, 1}, {u"J001"_s, 2}, {u"G003"_s, 1}}) {
            CItemPtr item = newGoods(no);
            item->setF_ParentID(type);
            goods.Add(item);
        }
        QCOMPARE(goods.GetNewGoodsNoEx(2), u"J002"_s);
        QCOMPARE(goods.GetNewGoodsNoEx(1), u"G004"_s);
        QCOMPARE(goods.GetNewGoodsNoEx(9), u"J002"_s); // a type without goods: the style of all goods
        const CItemPtr first = goods.Item(1);
        QVERIFY(goods.HasTheItemNo(u"G001"_s));
        first->setF_ID(7);
        QVERIFY(!goods.HasTheItemNo(u"G001"_s, 7));
        QVERIFY(goods.HasTheItemName(u"商品J001"_s));
        QVERIFY(!goods.HasTheItemName(u"商品j001"_s)); // compared exactly, as the look-ups do
    }

    void numberCheckFailureNeverReadsAsFree()
    {
        ItemFixtures::insert(*m_db, {1, 4, u"G001"_s, u"可乐"_s});
        auto goods = load(4);
        QVERIFY(!goods->isNumberTaken(u"G002"_s));
        m_db->Close();
        QVERIFY(goods->isNumberTaken(u"G002"_s));
        // No number is proposed that nobody could check.
        QCOMPARE(goods->GetNewGoodsNo(), QString());
        QVERIFY(m_prompt->lastText().startsWith(u"生成新编号失败:"_s));
        QCOMPARE(goods->GetNewItemNo(u"KH"_s), QString());
    }

    void bindersFillWidgetsAndNumbersFollowTheType()
    {
        ItemFixtures::insert(*m_db, {1, 3, u"01"_s, u"饮料"_s});
        ItemFixtures::insert(*m_db, {2, 3, u"02"_s, u"酒类"_s});
        ItemFixtures::insert(*m_db, {10, 4, u"010001"_s, u"可乐"_s, 1});
        ItemFixtures::insert(*m_db, {11, 4, u"010007"_s, u"雪碧"_s, 1});
        ItemFixtures::insert(*m_db, {12, 4, u"010008"_s, u"停售"_s, 1, 0, 0, 1}); // hidden (F_Tag3 > 0)
        auto types = load(3);
        auto goods = load(4);
        QVERIFY(!goods->GetItemByItemNo(u"010008"_s)); // hidden goods are not in the list...
        QVERIFY(goods->HasTheItemNoEx(u"010008"_s)); // ...but keep their number
        QCOMPARE(goods->GetNewGoodsNoEx2(1, *types), u"010009"_s);
        QCOMPARE(goods->GetNewGoodsNo(), u"010009"_s);
        QVERIFY(!goods->HasTheItemNoEx(u"010008"_s, 12));
        QCOMPARE(goods->GetNewGoodsNoEx2(2, *types), u"020001"_s);
        QCOMPARE(goods->GetNewItemNo(u"01"_s), u"010009"_s);
        QCOMPARE(goods->GetNewItemNo(u"GY"_s), u"GY0001"_s);

        QComboBox combo;
        types->FillItemToCombox(&combo, 2, true);
        QCOMPARE(combo.count(), 3);
        QCOMPARE(combo.itemText(0), u"(无)"_s);
        QCOMPARE(combo.currentText(), u"酒类"_s);
        goods->FillIntoComboxEx1(&combo);
        QCOMPARE(combo.itemText(0), u"全部"_s);
        QCOMPARE(combo.itemText(1), u"010001 - 可乐"_s);
        goods->SearchIDInCombox(&combo, 11);
        QCOMPARE(combo.currentIndex(), 2);
        QTreeWidget view;
        goods->ShowGoodsToListView(&view);
        QCOMPARE(view.topLevelItemCount(), 2);
        QCOMPARE(view.topLevelItem(1)->text(1), u"雪碧"_s);
        QCOMPARE(view.topLevelItem(1)->data(0, Qt::UserRole).toInt(), 11);
    }

    void init()
    {
        m_db = TestDatabase::create();
        QVERIFY(m_db);
        m_prompt = std::make_unique<ScriptedPrompt>();
        CPrompt::setCurrent(m_prompt.get());
    }
    void cleanup()
    {
        CPrompt::setCurrent(nullptr);
        m_db.reset();
    }

    // Regression: the lists followed the server's collation on PostgreSQL (a10, A2, B0, b1 on a zh-CN database),
    // the goods' ordered insert compared binary, and an unchanged save moved goods until the next reload. Every
    // list is in the stored texts' code point order on both engines, and stays so after saves.
    void listsKeepTheStoredOrderOnEveryEngine()
    {
        const QStringList numbers {u"b1"_s, u"A2"_s, u"a10"_s, u"B0"_s,   u"北"_s,
                                   u"东"_s, u"Ｚ"_s, u"😀"_s,   QString(), u"_x"_s};
        for (int i = 0; i < numbers.size(); ++i) {
            ItemFixtures::insert(*m_db, {100 + i, 4, numbers[i], u"商品%1"_s.arg(i)});
            ItemFixtures::insert(*m_db, {200 + i, 6, u"01"_s, numbers[i].isEmpty() ? u"空"_s : numbers[i]});
        }
        // Code point order, as SQLite compares UTF-8 bytes.
        QStringList expected = numbers;
        std::sort(expected.begin(), expected.end(),
                  [](const QString &a, const QString &b) { return a.toUcs4() < b.toUcs4(); });
        const auto listed = [](const CItems &items, bool names) {
            QStringList texts;
            for (const CItemPtr &item : items) {
                texts.append(names ? item->F_ItemName() : item->F_ItemNo());
            }
            return texts;
        };
        auto goods = load(4);
        QCOMPARE(listed(*goods, false), expected);
        auto departments = load(6);
        QStringList byName = expected;
        byName.replace(byName.indexOf(QString()), u"空"_s);
        std::sort(byName.begin(), byName.end(),
                  [](const QString &a, const QString &b) { return a.toUcs4() < b.toUcs4(); });
        QCOMPARE(listed(*departments, true), byName);
        // Unchanged saves leave every goods where it is.
        for (const QString &no : numbers) {
            QVERIFY(goods->SaveItem(CItem::create(*goods->GetItemByItemNo(no))));
        }
        QCOMPARE(listed(*goods, false), expected);
        // A new goods goes where a reload puts it.
        auto added = CItem::create();
        added->setF_ItemTypeID(4);
        added->setF_ItemNo(u"a2"_s);
        added->setF_ItemName(u"新"_s);
        QVERIFY(goods->SaveItem(added));
        const QStringList afterSave = listed(*goods, false);
        QCOMPARE(afterSave, listed(*load(4), false));
    }

    // Regression: an empty number, name or remark was written as NULL, which the engines sort at opposite ends;
    // a single-precision limit widened with every save on SQLite (0.1 became 0.1000000014901161).
    void emptyTextsAndSinglesAreStoredAsTheyAre()
    {
        auto goods = load(4);
        auto item = CItem::create();
        item->setF_ItemTypeID(4);
        item->setF_ItemName(u"无编号"_s);
        item->setF_LimitUp(0.1f);
        item->setF_LimitDown(2.7f);
        QVERIFY(goods->SaveItem(item));
        const QString id = QString::number(item->F_ID());
        QCOMPARE(ItemFixtures::count(*m_db,
                                     u"Select Count(*) From T_Item Where F_ID="_s + id
                                         + u" And (F_ItemNo Is Null Or F_Remark Is Null Or F_Standard Is Null)"_s),
                 0);
        QCOMPARE(ItemFixtures::count(*m_db, u"Select Count(*) From T_Item Where F_ID="_s + id + u" And F_ItemNo=''"_s),
                 1);
        QVERIFY(goods->SaveItem(CItem::create(*goods->SearchItemByID(item->F_ID()))));
        QSqlQuery q = m_db->Select(u"Select F_LimitUp, F_LimitDown From T_Item Where F_ID="_s + id);
        QVERIFY(q.next());
        QCOMPARE(q.value(0).toString(), u"0.1"_s);
        QCOMPARE(q.value(1).toString(), u"2.7"_s);
    }

    // Every stored column counts for the conflict check and for following a change: a row changed elsewhere in
    // one column only is refused on save and taken by the list.
    void changeOfAnyOneColumnElsewhereIsAConflict_data()
    {
        QTest::addColumn<int>("column");
        const auto columns = CItem::columns();
        for (int i = 0; i < int(columns.size()); ++i) {
            if (columns[std::size_t(i)].name != u"F_ID"_s && columns[std::size_t(i)].name != u"F_ItemTypeID"_s) {
                QTest::newRow(qPrintable(columns[std::size_t(i)].name)) << i;
            }
        }
    }
    void changeOfAnyOneColumnElsewhereIsAConflict()
    {
        QFETCH(int, column);
        const CItem::Column &c = CItem::columns()[std::size_t(column)];
        ItemFixtures::insert(*m_db, {1, 4, u"G1"_s, u"可乐"_s});
        auto goods = load(4);
        const CItemPtr mine = CItem::create(*goods->SearchItemByID(1));
        QVariant other;
        switch (c.type) {
        case CItem::ColumnType::Int32:
        case CItem::ColumnType::Int16:
            other = c.name == u"F_Tag3"_s ? -5 : 7;
            break;
        case CItem::ColumnType::Text:
            other = u"别处改的"_s;
            break;
        case CItem::ColumnType::Single:
            other = 1.5;
            break;
        case CItem::ColumnType::Currency:
            other = m_db->toSqlValue(QVariant::fromValue(Currency::fromString(u"2.5"_s).value()));
            break;
        case CItem::ColumnType::Date:
            other = QDate(2020, 1, 2);
            break;
        case CItem::ColumnType::DateTime:
            other = QDateTime(QDate(2020, 1, 2), QTime(3, 4, 5));
            break;
        case CItem::ColumnType::Boolean:
            other = true;
            break;
        }
        m_db->Execute(u"Update T_Item Set "_s + c.name + u"=? Where F_ID=1"_s, {m_db->toSqlValue(other)});
        mine->setF_Remark(mine->F_Remark() + u"本座席"_s);
        QVERIFY(!goods->SaveItem(mine));
        QVERIFY2(m_prompt->lastText().contains(u"已被其他用户修改"_s), qPrintable(m_prompt->lastText()));
        QSignalSpy told(goods.get(), &CItems::SomeOneChanged);
        QVERIFY(goods->FollowChange(1));
        QCOMPARE(told.size(), 1);
        QCOMPARE(goods->SearchItemByID(1)->value(column).toString(), [&] {
            CItem expected;
            QString error;
            expected.setValue(column, other, &error);
            return expected.value(column).toString();
        }());
    }

    void loadFiltersAndOrdersPerType()
    {
        ItemFixtures::insert(*m_db, {1, 4, u"C"_s, u"丙"_s});
        ItemFixtures::insert(*m_db, {2, 4, u"A"_s, u"甲"_s, 0, 0, 0, -1});
        ItemFixtures::insert(*m_db, {3, 4, u"B"_s, u"隐藏"_s, 0, 0, 0, 1});
        ItemFixtures::insert(*m_db, {4, 3, u"T1"_s, u"饮料"_s, 0, 20});
        ItemFixtures::insert(*m_db, {5, 3, u"T0"_s, u"食品"_s, 0, 30});
        ItemFixtures::insert(*m_db, {6, 3, u"T2"_s, u"日用"_s, 0, 10});
        ItemFixtures::insert(*m_db, {7, 3, u"T3"_s, u"停用"_s, 0, 5, 0, 1});
        ItemFixtures::insert(*m_db, {8, 2, u""_s, u"箱"_s});
        ItemFixtures::insert(*m_db, {9, 2, u""_s, u"个"_s});

        auto goods = load(4);
        QCOMPARE(numbers(*goods), (QStringList {u"A"_s, u"C"_s}));
        QCOMPARE(goods->ItemTypeName(), u"商品"_s);
        auto types = load(3);
        QCOMPARE(numbers(*types), (QStringList {u"T2"_s, u"T1"_s, u"T0"_s}));
        auto units = load(2);
        QCOMPARE(units->Count(), 2);
        QCOMPARE(units->Item(1)->F_ItemName(), u"个"_s);
        QVERIFY(!units->Item(0));
        QVERIFY(!units->Item(3));
    }

    void failedLoadKeepsTheList()
    {
        ItemFixtures::insert(*m_db, {1, 2, QString(), u"箱"_s});
        ItemFixtures::insert(*m_db, {2, 2, QString(), u"个"_s});
        auto units = load(2);
        QSignalSpy reset(units.get(), &CItems::ListAboutToBeReset);
        m_db->Close();
        QVERIFY(!units->InitInstance(m_db, 2));
        QVERIFY(m_prompt->lastText().startsWith(u"读取单位数据失败:"_s));
        QCOMPARE(units->Count(), 2);
        QVERIFY(units->GetItemByItemName(u"个"_s));
        QCOMPARE(reset.count(), 0);
    }

    void unknownTypeKeepsItsName()
    {
        ItemFixtures::insert(*m_db, {1, 13, u"X"_s, u"x"_s});
        CItems items;
        items.setItemTypeName(u"自定义"_s);
        QVERIFY(items.InitInstance(m_db, 13));
        QCOMPARE(items.ItemTypeName(), u"自定义"_s);
        QCOMPARE(items.Count(), 1);
    }

    void lookupsReturnTheFirstInListOrder()
    {
        ItemFixtures::insert(*m_db, {10, 9, u"01"_s, u"东区"_s, 0, 7, 8, 9, 0, 100});
        ItemFixtures::insert(*m_db, {11, 9, u"01"_s, u"北区"_s, 0, 7, 8, 9, 0, 100});
        ItemFixtures::insert(*m_db, {12, 9, u"02"_s, u"东区"_s, 0, 1, 2, 3, 0, 200});
        auto areas = load(9);
        QCOMPARE(areas->GetItemByItemNo(u"01"_s)->F_ID(), 10);
        QCOMPARE(areas->GetItemByItemName(u"东区"_s)->F_ID(), 10);
        QCOMPARE(areas->GetItemByTag(7, 1)->F_ID(), 10);
        QCOMPARE(areas->GetItemByTag(8, 2)->F_ID(), 10);
        QCOMPARE(areas->GetItemByTag(3, 3)->F_ID(), 12);
        QVERIFY(!areas->GetItemByTag(7, 4));
        QCOMPARE(areas->GetItemByOrderID(200)->F_ID(), 12);
        QCOMPARE(areas->SearchItemByID(11)->F_ItemName(), u"北区"_s);
        QVERIFY(!areas->GetItemByItemNo(u"1"_s));
        QVERIFY(!areas->GetItemByItemName(u"东区 "_s));

        // The look-ups follow the list and the items' own fields.
        areas->Remove(1);
        QCOMPARE(areas->GetItemByItemNo(u"01"_s)->F_ID(), 11);
        QCOMPARE(areas->GetItemByItemName(u"东区"_s)->F_ID(), 12);
        areas->Item(1)->setF_ItemNo(u"03"_s);
        QVERIFY(!areas->GetItemByItemNo(u"01"_s));
        QCOMPARE(areas->GetItemByItemNo(u"03"_s)->F_ID(), 11);
        *areas->Item(2) = *areas->Item(1);
        QCOMPARE(areas->GetItemByItemNo(u"03"_s)->F_ID(), 11);
        QVERIFY(!areas->GetItemByItemNo(u"02"_s));
        QVERIFY(!areas->SearchItemByID(12));
    }

    void indexesAgreeWithAScanUnderRandomChanges()
    {
        // Regression guard for the hash look-ups: after every change they must answer as a scan of the list does.
        CItems items;
        QRandomGenerator rng(20261123);
        auto scan = [&](auto &&match) -> CItemPtr {
            for (const CItemPtr &item : items) {
                if (match(*item)) {
                    return item;
                }
            }
            return {};
        };
        for (int step = 0; step < 3000; ++step) {
            const int action = rng.bounded(4);
            if (action == 0 || items.Count() < 5) {
                auto item = std::make_shared<CItem>();
                item->setF_ID(rng.bounded(40));
                item->setF_ItemNo(QString::number(rng.bounded(30)));
                item->setF_ItemName(QString::number(rng.bounded(30)));
                item->setF_Tag1(rng.bounded(10));
                items.Add(item);
            } else if (action == 1) {
                items.Remove(rng.bounded(items.Count()) + 1);
            } else if (action == 2) {
                const CItemPtr item = items.Item(rng.bounded(items.Count()) + 1);
                item->setF_ItemNo(QString::number(rng.bounded(30)));
                item->setF_Tag1(rng.bounded(10));
                item->setF_ID(rng.bounded(40));
            } else {
                const CItemPtr item = items.Item(rng.bounded(items.Count()) + 1);
                item->setValue(CItem::columnIndex(u"F_ItemName"_s), QString::number(rng.bounded(30)));
            }
            const int key = rng.bounded(40);
            const QString text = QString::number(rng.bounded(30));
            QCOMPARE(items.SearchItemByID(key), scan([&](const CItem &i) { return i.F_ID() == key; }));
            QCOMPARE(items.GetItemByItemNo(text), scan([&](const CItem &i) { return i.F_ItemNo() == text; }));
            QCOMPARE(items.GetItemByItemName(text), scan([&](const CItem &i) { return i.F_ItemName() == text; }));
            QCOMPARE(items.GetItemByTag(key % 10, 1), scan([&](const CItem &i) { return i.F_Tag1() == key % 10; }));
        }
    }

    void textSearchAgreesWithAWalkUnderRandomChanges()
    {
        // The text index follows every change of the list and of the searched fields: after each change, every
        // search finds what a walk of the list finds. Enough items for a few of the index's chunks.
        CItems items;
        QRandomGenerator rng(20261124);
        auto fill = [&](CItem &item) {
            item.setF_ItemNo(randomText(rng, 6));
            item.setF_ItemName(randomText(rng, 8));
            item.setF_Spell(randomText(rng, 4));
        };
        for (int i = 0; i < 2600; ++i) {
            auto item = CItem::create();
            fill(*item);
            items.Add(item);
        }
        QCOMPARE(items.textSearchBytes(), 0);
        compareSearches(rng, items, 20);
        QVERIFY(items.textSearchBytes() > 0);
        for (int step = 0; step < 600; ++step) {
            int position = 1 + rng.bounded(items.Count());
            const CItemPtr some = items.Item(position);
            const QStringList before {some->F_ItemNo(), some->F_ItemName(), some->F_Spell()};
            switch (rng.bounded(9)) {
            case 0:
            case 1: {
                auto item = CItem::create();
                fill(*item);
                items.Add(item);
                position = items.Count();
                break;
            }
            case 2:
                items.Add(CItem::create(*some));
                position = items.Count();
                break;
            case 3:
                items.Remove(position);
                break;
            case 4:
                some->setF_ItemNo(randomText(rng, 6));
                break;
            case 5:
                some->setF_ItemName(randomText(rng, 8));
                break;
            case 6:
                some->setF_Spell(randomText(rng, 4));
                break;
            case 7:
                some->setValue(CItem::columnIndex(rng.bounded(2) ? u"F_Spell"_s : u"F_ItemName"_s), randomText(rng, 5));
                break;
            default: {
                CItem other;
                fill(other);
                *some = other;
                break;
            }
            }
            compareSearches(rng, items, 3, position, before);
        }
        // Emptied and filled again.
        while (items.Count() > 0) {
            items.Remove(items.Count());
        }
        compareSearches(rng, items, 3);
        for (int i = 0; i < 1500; ++i) {
            auto item = CItem::create();
            fill(*item);
            items.Add(item);
        }
        compareSearches(rng, items, 30);
    }

    void textSearchFindsAMatchAnywhereInTheList()
    {
        // The search reads the index a stretch at a time: 16 places at once for a text, two halves side by side for
        // a run of classes (a code). A single match is found wherever it lies, and nothing outside the range asked.
        CItems items;
        for (int i = 0; i < 1100; ++i) {
            auto item = CItem::create();
            item->setF_ItemNo(u"SP"_s + QString::number(i).rightJustified(5, u'0'));
            item->setF_ItemName(u"一二三四五六七八九十"_s.mid(i % 5, 1 + i % 6));
            item->setF_Spell(u"yes"_s.left(i % 4));
            items.Add(item);
        }
        auto query = [](const QString &no, const QString &code, const QString &name = {}) {
            auto accepts = [no, code, name](const CItem &item) {
                return (no.isEmpty() || item.F_ItemNo().contains(no, Qt::CaseInsensitive))
                    && (name.isEmpty() || item.F_ItemName().contains(name))
                    && (code.isEmpty() || CSpell::MatchCode(item.F_ItemName(), code));
            };
            auto q = std::make_shared<ItemTextQuery>(accepts);
            if (!no.isEmpty()) {
                q->require({{ItemTextQuery::Number, ItemTextQuery::Pattern(no.toCaseFolded())}});
            }
            if (!name.isEmpty()) {
                q->require({{ItemTextQuery::Name, ItemTextQuery::Pattern(name)}});
            }
            if (!code.isEmpty()) {
                ItemTextQuery::Pattern run;
                for (QChar typed : code) {
                    run.append(
                        ItemTextQuery::unitClass([typed](char16_t c) { return CSpell::codeUnitMatches(typed, c); }));
                }
                q->require({{ItemTextQuery::Name, run}});
            }
            return q;
        };
        const auto byCode = query({}, u"ZC"_s);
        const auto byNumber = query(u"zz9"_s, {});
        const auto byBoth = query(u"Z9"_s, u"cc"_s);
        const auto byName = query({}, {}, u"长城"_s);
        const int count = items.Count();
        QCOMPARE(items.FindText(*byCode, 1, count), 0);
        for (int at = 1; at <= count; ++at) {
            const CItemPtr item = items.Item(at);
            const CItem before = *item;
            // Every offset of the match in the index, so that it also lies across where the halves meet.
            for (int pad = 0; pad < 4; ++pad) {
                item->setF_ItemName(before.F_ItemName() + QString(pad, u'一') + u"长城"_s);
                item->setF_ItemNo(before.F_ItemNo().left(2 + pad) + u"ZZ9"_s);
                for (const auto &q : {byCode, byNumber, byBoth, byName}) {
                    QCOMPARE(items.FindText(*q, 1, count), at);
                    QCOMPARE(items.FindText(*q, at, at), at);
                    QCOMPARE(items.FindText(*q, at + 1, count), 0);
                    QCOMPARE(items.FindText(*q, 1, at - 1), 0);
                }
            }
            *item = before;
        }
        // Of two matches the first; then the other.
        const CItemPtr first = items.Item(600);
        const CItemPtr second = items.Item(601);
        first->setF_ItemName(u"长城"_s);
        second->setF_ItemName(u"长城"_s);
        QCOMPARE(items.FindText(*byCode, 1, count), 600);
        QCOMPARE(items.FindText(*byCode, 601, count), 601);
    }

    void textSearchIsPreparedInSlices()
    {
        // Made a slice at a time (as the search dialog does between events); a search in between finishes it.
        CItems items;
        for (int i = 0; i < 5000; ++i) {
            auto item = CItem::create();
            item->setF_ItemNo(QString::number(i));
            item->setF_ItemName(u"矿泉水"_s);
            items.Add(item);
        }
        auto query = [](const QString &name) {
            auto q =
                std::make_shared<ItemTextQuery>([name](const CItem &item) { return item.F_ItemName().contains(name); });
            q->require({{ItemTextQuery::Name, ItemTextQuery::Pattern(name)}});
            return q;
        };
        QVERIFY(!items.PrepareTextSearch(2000));
        const qint64 slice = items.textSearchBytes();
        QVERIFY(slice > 0);
        QVERIFY(!items.PrepareTextSearch(2000));
        QVERIFY(items.textSearchBytes() > slice);
        items.Item(10)->setF_ItemName(u"绿茶"_s); // in a chunk already read
        items.Item(4990)->setF_ItemName(u"红茶"_s); // in one not read yet
        QCOMPARE(items.FindText(*query(u"绿茶"_s), 1, 5000), 10);
        QCOMPARE(items.FindText(*query(u"红茶"_s), 1, 5000), 4990);
        QVERIFY(items.PrepareTextSearch(2000));
        QVERIFY(items.PrepareTextSearch());
        items.Item(20)->setF_ItemName(u"果汁"_s);
        QVERIFY(items.PrepareTextSearch(1));
        QCOMPARE(items.FindText(*query(u"果汁"_s), 1, 5000), 20);
        QCOMPARE(items.FindText(*query(u"绿茶"_s), 11, 5000), 0);
    }

    void textSearchFollowsSavesOtherSeatsAndReloads()
    {
        // Through the database: saves that insert in goods order or move an item, rows changed, added and deleted
        // by another seat, deletions and reloads. After each, the searches find what a walk of the list finds.
        QRandomGenerator rng(1124);
        const QString insert = u"Insert Into T_Item (F_ID, F_ItemTypeID, F_ItemNo, F_ItemName, F_Spell) "
                               "Values (?, 4, ?, ?, ?)"_s;
        auto number = [&] {
            return QString::number(rng.bounded(1000000)).rightJustified(6, u'0');
        };
        {
            CTransaction batch(*m_db);
            for (int id = 1; id <= 1300; ++id) {
                m_db->Execute(insert, {id, number(), randomText(rng, 6, true), randomText(rng, 4, true)});
            }
            batch.Commit();
        }
        Module1::ReseedKeyID(*m_db, u"T_Item"_s);
        auto goods = load(4);
        compareSearches(rng, *goods, 10);
        for (int step = 0; step < 160; ++step) {
            const CItemPtr some = goods->Item(1 + rng.bounded(goods->Count()));
            const qint32 id = some->F_ID();
            const QStringList before {some->F_ItemNo(), some->F_ItemName(), some->F_Spell()};
            const int at = goods->PositionOf(some.get());
            CItemPtr changed = some;
            switch (rng.bounded(8)) {
            case 0: {
                changed = newGoods(number(), randomText(rng, 6, true));
                changed->setF_Spell(randomText(rng, 4, true));
                QVERIFY(goods->SaveItem(changed));
                break;
            }
            case 1: {
                // A saved copy takes the listed item's place, and a new number moves it.
                changed = CItem::create(*some);
                changed->setF_ItemNo(number());
                changed->setF_Spell(randomText(rng, 4, true));
                QVERIFY(goods->SaveItem(changed));
                break;
            }
            case 2:
                some->setF_ItemName(randomText(rng, 6, true));
                QVERIFY(goods->SaveItem(some));
                break;
            case 3:
                m_db->Execute(u"Update T_Item Set F_ItemNo=?, F_ItemName=?, F_Spell=? Where F_ID=?"_s,
                              {number(), randomText(rng, 6, true), randomText(rng, 4, true), id});
                QVERIFY(rng.bounded(2) ? goods->FollowChange(id) : bool(goods->Refresh(id)));
                break;
            case 4: {
                const qint32 added = Module1::GetNewID(*m_db, u"T_Item"_s, true);
                m_db->Execute(insert, {added, number(), randomText(rng, 6, true), randomText(rng, 4, true)});
                QVERIFY(goods->FollowChange(added));
                changed = goods->SearchItemByID(added);
                break;
            }
            case 5:
                m_db->Execute(u"Delete From T_Item Where F_ID=?"_s, {id});
                QVERIFY(goods->FollowChange(id));
                break;
            case 6:
                QVERIFY(goods->RemoveItem(id));
                break;
            default:
                if (rng.bounded(4) == 0) {
                    goods->Refresh(0);
                } else {
                    some->setF_Spell(randomText(rng, 4, true)); // changed in memory only, never saved
                }
                break;
            }
            const int position = goods->PositionOf(changed.get());
            compareSearches(rng, *goods, 3, position ? position : at, before);
        }
    }

    void fullRefreshLeavesHeldItemsValid()
    {
        ItemFixtures::insert(*m_db, {1, 2, u"1"_s, u"个"_s});
        auto units = load(2);
        const CItemPtr held = units->Item(1);
        m_db->Execute(u"Update T_Item Set F_ItemName='件' Where F_ID=1"_s);
        QSignalSpy changed(units.get(), &CItems::SomeOneChanged);
        QVERIFY(!units->Refresh(0));
        QCOMPARE(changed.count(), 0);
        QCOMPARE(held->F_ItemName(), u"个"_s);
        QCOMPARE(units->Item(1)->F_ItemName(), u"件"_s);
        QVERIFY(units->Item(1) != held);
        held->setF_ID(99); // an item that left the list no longer moves the look-ups
        QCOMPARE(units->SearchItemByID(1), units->Item(1));
        QVERIFY(!units->SearchItemByID(99));
    }

    void refreshOfAnEmptyTableRaisesNothing()
    {
        auto units = load(2);
        QSignalSpy changed(units.get(), &CItems::SomeOneChanged);
        QSignalSpy removed(units.get(), &CItems::SomeOneRemoved);
        units->Refresh(0);
        QCOMPARE(units->Count(), 0);
        QCOMPARE(changed.count() + removed.count(), 0);
    }

    void singleRefreshInsertsInGoodsOrderAndSignalsOnce()
    {
        ItemFixtures::insert(*m_db, {1, 4, u"A"_s, u"甲"_s});
        ItemFixtures::insert(*m_db, {2, 4, u"C"_s, u"丙"_s});
        auto goods = load(4);
        ItemFixtures::insert(*m_db, {3, 4, u"B"_s, u"乙"_s});
        QSignalSpy changed(goods.get(), &CItems::SomeOneChanged);
        const CItemPtr b = goods->GetItemByID(3, true);
        QVERIFY(b);
        QCOMPARE(b->F_ItemName(), u"乙"_s);
        QCOMPARE(changed.count(), 1);
        QCOMPARE(changed.at(0).at(0).value<CItemPtr>(), b);
        QCOMPARE(numbers(*goods), (QStringList {u"A"_s, u"B"_s, u"C"_s}));
        // A row deleted elsewhere stays in the list on a single refresh.
        m_db->Execute(u"Delete From T_Item Where F_ID=3"_s);
        QVERIFY(!goods->Refresh(3));
        QCOMPARE(goods->Count(), 3);
        QCOMPARE(changed.count(), 1);
    }

    // A row changed in the database reaches the listed item through Refresh(id): the look-ups answer by the new
    // number and name and no longer by the old ones.
    void singleRefreshOfARowChangedElsewhereMovesTheLookUps()
    {
        ItemFixtures::insert(*m_db, {1, 9, u"01"_s, u"东区"_s});
        ItemFixtures::insert(*m_db, {2, 9, u"02"_s, u"西区"_s});
        auto areas = load(9);
        const CItemPtr held = areas->GetItemByItemNo(u"01"_s);
        m_db->Execute(u"Update T_Item Set F_ItemNo='05', F_ItemName='南区', F_OrderByID=7 Where F_ID=1"_s);
        QSignalSpy changed(areas.get(), &CItems::SomeOneChanged);
        QCOMPARE(areas->Refresh(1), held);
        QCOMPARE(changed.count(), 1);
        QCOMPARE(areas->Count(), 2);
        QCOMPARE(areas->GetItemByItemNo(u"05"_s), held);
        QCOMPARE(areas->GetItemByItemName(u"南区"_s), held);
        QCOMPARE(areas->GetItemByOrderID(7), held);
        QVERIFY(!areas->GetItemByItemNo(u"01"_s));
        QVERIFY(!areas->GetItemByItemName(u"东区"_s));
        QCOMPARE(areas->GetItemByItemName(u"西区"_s)->F_ID(), 2);
    }

    void savingANewItemTakesAKeyAndKeepsGoodsOrder()
    {
        auto goods = load(4);
        QSignalSpy changed(goods.get(), &CItems::SomeOneChanged);
        const QStringList order = {u"M"_s, u"B"_s, u"Z"_s, u"A"_s, u"M"_s, u"C"_s};
        for (const QString &no : order) {
            QVERIFY(goods->SaveItem(newGoods(no)));
        }
        QCOMPARE(changed.count(), order.size());
        QCOMPARE(numbers(*goods), (QStringList {u"A"_s, u"B"_s, u"C"_s, u"M"_s, u"M"_s, u"Z"_s}));
        QCOMPARE(goods->GetItemByItemNo(u"M"_s)->F_ID(), 1);
        QCOMPARE(itemRows(), 6);

        // Renumbering and saving again updates the same row and moves the item.
        const CItemPtr a = goods->GetItemByItemNo(u"A"_s);
        const qint32 id = a->F_ID();
        a->setF_ItemNo(u"N"_s);
        QVERIFY(goods->SaveItem(a));
        QCOMPARE(a->F_ID(), id);
        QCOMPARE(itemRows(), 6);
        QCOMPARE(numbers(*goods), (QStringList {u"B"_s, u"C"_s, u"M"_s, u"M"_s, u"N"_s, u"Z"_s}));
        QCOMPARE(goods->Item(5), a);
        QCOMPARE(changed.count(), order.size() + 1);
        auto reloaded = load(4);
        QCOMPARE(numbers(*reloaded), numbers(*goods));
    }

    void changeNoticeCarriesTheListedItem()
    {
        ItemFixtures::insert(*m_db, {1, 2, QString(), u"箱"_s});
        Module1::ReseedKeyID(*m_db, u"T_Item"_s);
        auto units = load(2);
        QSignalSpy changed(units.get(), &CItems::SomeOneChanged);
        auto item = std::make_shared<CItem>();
        item->setF_ItemTypeID(2);
        item->setF_ItemName(u"吨"_s);
        QVERIFY(units->SaveItem(item));
        QCOMPARE(changed.count(), 1);
        // Listeners hold on to what they are given: it must be the item that stays in the list.
        QCOMPARE(changed.at(0).at(0).value<CItemPtr>(), item);
        QCOMPARE(units->SearchItemByID(item->F_ID()), item);

        // The same for a copy saved over a listed item.
        auto copy = CItem::create(*units->SearchItemByID(1));
        copy->setF_ItemName(u"大箱"_s);
        QVERIFY(units->SaveItem(copy));
        QCOMPARE(changed.count(), 2);
        QCOMPARE(changed.at(1).at(0).value<CItemPtr>(), copy);
        QCOMPARE(units->SearchItemByID(1), copy);
    }

    void savingAListedItemMovesItInsteadOfReinserting()
    {
        ItemFixtures::insert(*m_db, {1, 4, u"A"_s, u"甲"_s});
        ItemFixtures::insert(*m_db, {2, 4, u"C"_s, u"丙"_s});
        ItemFixtures::insert(*m_db, {3, 4, u"E"_s, u"戊"_s});
        auto goods = load(4);
        QSignalSpy aboutToBeRemoved(goods.get(), &CItems::ItemAboutToBeRemoved);
        QSignalSpy aboutToBeInserted(goods.get(), &CItems::ItemAboutToBeInserted);
        QSignalSpy aboutToBeMoved(goods.get(), &CItems::ItemAboutToBeMoved);
        QSignalSpy moved(goods.get(), &CItems::ItemMoved);
        QSignalSpy replaced(goods.get(), &CItems::ItemReplaced);
        QStringList seenBeforeMove;
        connect(goods.get(), &CItems::ItemAboutToBeMoved, this,
                [&](qint32 from, qint32) { seenBeforeMove = numbers(*goods) << goods->Item(from)->F_ItemName(); });

        // A saved copy of a listed item takes its place; the number did not change, so neither does the place.
        const CItemPtr previous = goods->Item(2);
        const CItemPtr copy = CItem::create(*previous);
        copy->setF_ItemName(u"丙二"_s);
        QVERIFY(goods->SaveItem(copy));
        QCOMPARE(goods->Item(2), copy);
        QCOMPARE(goods->Count(), 3);
        QCOMPARE(replaced.count(), 1);
        QCOMPARE(replaced.at(0).at(0).toInt(), 2);
        QCOMPARE(replaced.at(0).at(1).value<CItemPtr>(), previous);
        QCOMPARE(aboutToBeMoved.count(), 0);

        // A new number moves it, announced while the list is still as it was.
        copy->setF_ItemNo(u"F"_s);
        QVERIFY(goods->SaveItem(copy));
        QCOMPARE(numbers(*goods), (QStringList {u"A"_s, u"E"_s, u"F"_s}));
        QCOMPARE(goods->Item(3), copy);
        QCOMPARE(aboutToBeMoved.count(), 1);
        QCOMPARE(aboutToBeMoved.at(0), (QList<QVariant> {2, 3}));
        QCOMPARE(moved.at(0), (QList<QVariant> {2, 3}));
        QCOMPARE(seenBeforeMove, (QStringList {u"A"_s, u"F"_s, u"E"_s, u"丙二"_s}));
        QCOMPARE(replaced.count(), 1);
        QCOMPARE(goods->GetItemByItemNo(u"F"_s), copy);
        QCOMPARE(goods->SearchItemByID(2), copy);

        goods->Item(1)->setF_ItemNo(u"G"_s);
        QVERIFY(goods->SaveItem(goods->Item(1)));
        QCOMPARE(numbers(*goods), (QStringList {u"E"_s, u"F"_s, u"G"_s}));
        QCOMPARE(aboutToBeMoved.at(1), (QList<QVariant> {1, 3}));
        QCOMPARE(aboutToBeRemoved.count(), 0);
        QCOMPARE(aboutToBeInserted.count(), 0);
        QCOMPARE(numbers(*load(4)), numbers(*goods));

        // Other kinds go to the end on every save; the last one stays where it is.
        ItemFixtures::insert(*m_db, {11, 2, u"1"_s, u"个"_s});
        ItemFixtures::insert(*m_db, {12, 2, u"2"_s, u"箱"_s});
        auto units = load(2);
        QSignalSpy unitMoved(units.get(), &CItems::ItemMoved);
        QVERIFY(units->SaveItem(units->Item(1)));
        QCOMPARE(unitMoved.count(), 1);
        QCOMPARE(unitMoved.at(0), (QList<QVariant> {1, 2}));
        QVERIFY(units->GetItemByItemName(u"个"_s));
        QVERIFY(units->SaveItem(units->Item(2)));
        QCOMPARE(unitMoved.count(), 1);
    }

    void orderedInsertsAcrossChunksAndRelabelling()
    {
        // Saving goods numbered downwards puts each one at the front: the list splits its chunks and runs out of
        // room between position labels many times. Order, positions and look-ups must survive all of it.
        auto goods = load(4);
        constexpr int count = 1500;
        {
            CTransaction batch(*m_db); // one commit for the lot keeps the test quick on both engines
            for (int i = count; i > 0; --i) {
                QVERIFY(goods->SaveItem(newGoods(QString::number(i).rightJustified(5, u'0'))));
            }
            batch.Commit();
        }
        QCOMPARE(goods->Count(), count);
        for (int i = 1; i <= count; ++i) {
            const QString no = QString::number(i).rightJustified(5, u'0');
            QCOMPARE(goods->Item(i)->F_ItemNo(), no);
            QCOMPARE(goods->GetItemByItemNo(no), goods->Item(i));
        }
        // Taking items out from the middle keeps the rest in place.
        for (int k = 0; k < 100; ++k) {
            goods->Remove(700);
        }
        QCOMPARE(goods->Count(), count - 100);
        QCOMPARE(goods->Item(699)->F_ItemNo(), u"00699"_s);
        QCOMPARE(goods->Item(700)->F_ItemNo(), u"00800"_s);
        QVERIFY(!goods->GetItemByItemNo(u"00750"_s));
        QVERIFY(goods->SaveItem(newGoods(u"00750"_s)));
        QCOMPARE(goods->Item(700)->F_ItemNo(), u"00750"_s);
        QCOMPARE(goods->Item(701)->F_ItemNo(), u"00800"_s);
    }

    void orderedInsertWalksAnUnsortedList()
    {
        // Numbers that the list holds out of order (as a database collation may deliver them): the insert goes
        // before the first greater number, exactly as a walk from the front finds it.
        auto goods = std::make_unique<CItems>();
        goods->InitInstance(m_db, 4);
        for (const QString &no : {u"b"_s, u"B"_s, u"a"_s}) {
            goods->Add(newGoods(no));
        }
        QVERIFY(goods->SaveItem(newGoods(u"A"_s)));
        QCOMPARE(numbers(*goods), (QStringList {u"A"_s, u"b"_s, u"B"_s, u"a"_s}));
        QVERIFY(goods->SaveItem(newGoods(u"c"_s)));
        QCOMPARE(numbers(*goods), (QStringList {u"A"_s, u"b"_s, u"B"_s, u"a"_s, u"c"_s}));
    }

    void textsWithQuotesSaveAndLoadUnchanged()
    {
        auto clients = load(1);
        auto item = std::make_shared<CItem>();
        item->setF_ItemTypeID(1);
        item->setF_ItemName(u"O'Neil's 商行'; --"_s);
        item->setF_Address(u"路'1号"_s);
        QVERIFY(clients->SaveItem(item));
        auto reloaded = load(1);
        QCOMPARE(reloaded->Item(1)->F_ItemName(), u"O'Neil's 商行'; --"_s);
        QCOMPARE(reloaded->Item(1)->F_Address(), u"路'1号"_s);
    }

    void failedSaveChangesNothing()
    {
        auto units = load(2);
        ItemFixtures::failOn(*m_db, u"T_Item"_s, u"INSERT"_s);
        auto item = std::make_shared<CItem>();
        item->setF_ItemTypeID(2);
        item->setF_ItemName(u"吨"_s);
        QSignalSpy changed(units.get(), &CItems::SomeOneChanged);
        QVERIFY(!units->SaveItem(item));
        QVERIFY2(m_prompt->lastText().startsWith(u"保存元素失败!\r\n"_s), qPrintable(m_prompt->lastText()));
        QCOMPARE(item->F_ID(), 0);
        QCOMPARE(units->Count(), 0);
        QCOMPARE(changed.count(), 0);
        // The key drawn for it was given back with the rolled-back transaction.
        QCOMPARE(ItemFixtures::count(*m_db, u"Select Count(*) From T_KeyID"_s), 0);

        // Saving an item whose row is gone is a failure too, not a silent insert.
        auto ghost = std::make_shared<CItem>();
        ghost->setF_ID(77);
        ghost->setF_ItemTypeID(2);
        QVERIFY(!units->SaveItem(ghost));
        QCOMPARE(itemRows(), 0);
    }

    // A key counter behind the rows (a restored backup, another program) used to block every new item for good:
    // each save failed on the duplicate key and the counter's bump rolled back with it.
    void keyCounterBehindTheRowsIsReseeded()
    {
        auto units = load(2);
        ItemFixtures::insert(*m_db, {1, 2, QString(), u"箱"_s});
        ItemFixtures::insert(*m_db, {2, 2, QString(), u"瓶"_s});
        QCOMPARE(Module1::GetNewID(*m_db, u"T_Item"_s, false), 1); // the counter knows nothing of them
        for (const QString &name : {u"吨"_s, u"袋"_s}) {
            auto item = std::make_shared<CItem>();
            item->setF_ItemTypeID(2);
            item->setF_ItemName(name);
            QVERIFY2(units->SaveItem(item), qPrintable(m_prompt->lastText()));
            QVERIFY(item->F_ID() > 2);
        }
        QCOMPARE(itemRows(), 4);
        QCOMPARE(m_prompt->shown().size(), 0);
    }

    void lostConnectionMidSave()
    {
        auto units = load(2);
        QVERIFY(units->SaveItem(std::make_shared<CItem>()));
        m_db->Close();
        auto item = std::make_shared<CItem>();
        item->setF_ItemName(u"桶"_s);
        QVERIFY(!units->SaveItem(item));
        QVERIFY(m_prompt->lastText().startsWith(u"保存元素失败!"_s));
        QCOMPARE(units->Count(), 1);
        QCOMPARE(item->F_ID(), 0);
    }

    void removeRefusesUnitsInUse_data()
    {
        // Goods name a unit in any of four columns; a unit named in any of them stays.
        QTest::addColumn<QList<int>>("tags");
        QTest::newRow("F_Tag1") << QList<int> {2, 0, 0, 0};
        QTest::newRow("F_Tag2") << QList<int> {0, 2, 0, 0};
        QTest::newRow("F_Tag3") << QList<int> {0, 0, 2, 0};
        QTest::newRow("F_Tag4") << QList<int> {0, 0, 0, 2};
    }
    void removeRefusesUnitsInUse()
    {
        QFETCH(QList<int>, tags);
        ItemFixtures::insert(*m_db, {1, 2, u""_s, u"个"_s});
        ItemFixtures::insert(*m_db, {2, 2, u""_s, u"箱"_s});
        ItemFixtures::insert(*m_db, {3, 2, u""_s, u"斤"_s});
        ItemFixtures::insert(*m_db, {10, 4, u"G1"_s, u"可乐"_s, 0, tags[0], tags[1], tags[2], tags[3]});
        ItemFixtures::insert(*m_db, {11, 1, u"K1"_s, u"客户"_s, 0, 3});
        auto units = load(2);
        QSignalSpy removed(units.get(), &CItems::SomeOneRemoved);
        QVERIFY(!units->RemoveItem(2));
        QCOMPARE(m_prompt->lastText(), u"该记录已经被使用,禁止删除!"_s);
        QCOMPARE(m_prompt->shown().constLast().title, u"Quillon软件提示您"_s);
        QCOMPARE(m_prompt->shown().constLast().style, int(CPrompt::vbExclamation));
        QCOMPARE(units->Count(), 3);
        // Only goods count as users of a unit.
        QVERIFY(units->RemoveItem(3));
        QCOMPARE(removed.count(), 1);
        QCOMPARE(removed.at(0).at(0).toInt(), 3);
        QCOMPARE(units->Count(), 2);
        QCOMPARE(itemRows(), 4);
        // Items that are not in the list are never deleted.
        QVERIFY(!units->RemoveItem(10));
        QCOMPARE(itemRows(), 4);
    }

    void removeRefusesTypesWithChildren_data()
    {
        QTest::addColumn<int>("type");
        QTest::addColumn<int>("childType");
        QTest::newRow("goods type") << 3 << 4;
        QTest::newRow("client type") << 8 << 1;
    }
    void removeRefusesTypesWithChildren()
    {
        QFETCH(int, type);
        QFETCH(int, childType);
        ItemFixtures::insert(*m_db, {1, type, u"1"_s, u"有成员"_s});
        ItemFixtures::insert(*m_db, {2, type, u"2"_s, u"空"_s});
        ItemFixtures::insert(*m_db, {3, childType, u"C"_s, u"成员"_s, 1});
        auto types = load(type);
        QVERIFY(!types->RemoveItem(1));
        QCOMPARE(m_prompt->lastText(), u"该记录已经被使用,禁止删除!"_s);
        QVERIFY(types->RemoveItem(2));
        QCOMPARE(types->Count(), 1);
        QCOMPARE(itemRows(), 2);
    }

    void goodsInUseAreDeletedOnlyWhenTheUserAgrees()
    {
        ItemFixtures::insert(*m_db, {1, 4, u"G1"_s, u"可乐"_s});
        m_db->Execute(u"Insert Into T_GoodsInOutList (F_ID, F_GoodsID, F_Amount, F_Price) Values (1, 1, 2, 3.5)"_s);
        m_db->Execute(u"Insert Into T_GoodsPrice (F_ID, F_GoodsID, F_ClientID, F_Price) Values (1, 1, 5, 3.2)"_s);
        auto goods = load(4);
        QSignalSpy removed(goods.get(), &CItems::SomeOneRemoved);

        m_prompt->queueAnswer(CPrompt::vbNo);
        QVERIFY(!goods->RemoveItem(1));
        QCOMPARE(m_prompt->lastText(), u"该商品记录已经被使用!\r\n您确实要强制删除吗?"_s);
        QCOMPARE(m_prompt->shown().constLast().style, 36);
        QCOMPARE(itemRows(), 1);
        QCOMPARE(ItemFixtures::count(*m_db, u"Select Count(*) From T_GoodsInOutList"_s), 1);
        QCOMPARE(removed.count(), 0);

        m_prompt->queueAnswer(CPrompt::vbYes);
        QVERIFY(goods->RemoveItem(1));
        QCOMPARE(itemRows(), 0);
        QCOMPARE(ItemFixtures::count(*m_db, u"Select Count(*) From T_GoodsInOutList"_s), 0);
        QCOMPARE(ItemFixtures::count(*m_db, u"Select Count(*) From T_GoodsPrice"_s), 0);
        QCOMPARE(removed.count(), 1);
        QCOMPARE(goods->Count(), 0);
    }

    void forcedDeletionIsOneTransaction()
    {
        ItemFixtures::insert(*m_db, {1, 4, u"G1"_s, u"可乐"_s});
        m_db->Execute(u"Insert Into T_GoodsInOutList (F_ID, F_GoodsID) Values (1, 1)"_s);
        m_db->Execute(u"Insert Into T_GoodsPrice (F_ID, F_GoodsID) Values (1, 1)"_s);
        ItemFixtures::failOn(*m_db, u"T_Item"_s, u"DELETE"_s);
        auto goods = load(4);
        QSignalSpy removed(goods.get(), &CItems::SomeOneRemoved);
        m_prompt->queueAnswer(CPrompt::vbYes);
        QVERIFY(!goods->RemoveItem(1));
        QVERIFY2(m_prompt->lastText().startsWith(u"删除元素错误,因为它已经被系统使用,请删除相关记录后再试!\r\n"_s),
                 qPrintable(m_prompt->lastText()));
        QCOMPARE(ItemFixtures::count(*m_db, u"Select Count(*) From T_GoodsInOutList"_s), 1);
        QCOMPARE(ItemFixtures::count(*m_db, u"Select Count(*) From T_GoodsPrice"_s), 1);
        QCOMPARE(itemRows(), 1);
        QCOMPARE(goods->Count(), 1);
        QCOMPARE(removed.count(), 0);
    }

    void removeOfARowDeletedElsewhereLetsGoOfIt()
    {
        ItemFixtures::insert(*m_db, {1, 6, u"D1"_s, u"销售部"_s});
        ItemFixtures::insert(*m_db, {2, 6, u"D2"_s, u"财务部"_s});
        auto departments = load(6);
        QSignalSpy removed(departments.get(), &CItems::SomeOneRemoved);
        m_db->Execute(u"Delete From T_Item Where F_ID=1"_s); // another seat was quicker
        // Regression: this removal deleted nothing but reported success.
        QVERIFY(!departments->RemoveItem(1));
        QCOMPARE(m_prompt->lastText(), u"该记录已经被其他用户删除!"_s);
        QCOMPARE(departments->Count(), 1);
        QVERIFY(!departments->SearchItemByID(1));
        QCOMPARE(removed.count(), 1);
        QCOMPARE(removed.at(0).at(0).toInt(), 1);
    }

    void addAndRenameAskForTheName()
    {
        auto units = load(2);
        m_prompt->queueInput(u"   "_s);
        units->AddNewItem();
        QCOMPARE(units->Count(), 0);
        QCOMPARE(m_prompt->lastText(), u"请输入新的单位名称:"_s);
        units->AddNewItem(); // cancelled
        QCOMPARE(units->Count(), 0);

        m_prompt->queueInput(u" 千克 "_s);
        units->AddNewItem();
        QCOMPARE(units->Count(), 1);
        const CItemPtr kg = units->Item(1);
        QCOMPARE(kg->F_ItemName(), u"千克"_s);
        QCOMPARE(kg->F_ItemTypeID(), qint16(2));
        QCOMPARE(kg->F_Date().time(), QTime(0, 0));
        QCOMPARE(kg->F_Date().date(), QDate::currentDate());

        m_prompt->queueInput(u"公斤"_s);
        units->ModifyItem(kg->F_ID());
        QCOMPARE(units->Item(1)->F_ItemName(), u"公斤"_s);
        QCOMPARE(ItemFixtures::count(*m_db, u"Select Count(*) From T_Item Where F_ItemName='公斤'"_s), 1);
        units->ModifyItem(999); // unknown id: nothing asked
        QCOMPARE(m_prompt->shown().size(), 4);
    }

    void boundControlsListTheNames()
    {
        ItemFixtures::insert(*m_db, {5, 6, u"1"_s, u"销售部"_s});
        ItemFixtures::insert(*m_db, {6, 6, u"2"_s, u"采购部"_s});
        QComboBox combo;
        CItems departments;
        QVERIFY(departments.InitInstance(m_db, 6, &combo));
        QCOMPARE(combo.count(), 2);
        QCOMPARE(combo.itemText(1), u"采购部"_s);
        QCOMPARE(combo.itemData(1).toInt(), 6);

        QListWidget list;
        auto item = std::make_shared<CItem>();
        item->setF_ItemTypeID(6);
        item->setF_ItemNo(u"3"_s);
        item->setF_ItemName(u"仓储部"_s);
        QVERIFY(departments.SaveItem(item, &list));
        QCOMPARE(list.count(), 3);
        QCOMPARE(list.currentItem()->text(), u"仓储部"_s);
    }
};

QTEST_MAIN(CItemsTest)
#include "tst_citems.moc"
