#include "cspell.h"

#include <QRandomGenerator>
#include <QStringDecoder>
#include <QTest>

using namespace Qt::StringLiterals;

class CSpellTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void getPy_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("code");

        QTest::newRow("empty") << QString() << QString();
        QTest::newRow("latin and digits keep their case") << u"Abc123XYZ"_s << u"Abc123XYZ"_s;
        QTest::newRow("upper A, lower b, 中") << u"Ab中"_s << u"Abz"_s;
        QTest::newRow("pass-through punctuation") << u"!.#$%()*+-,/[\\|^~`@{}_"_s << u"!.#$%()*+-,/[\\|^~`@{}_"_s;
        QTest::newRow("first code 啊") << u"啊"_s << u"a"_s;
        QTest::newRow("last code 座") << u"座"_s << u"z"_s;
        QTest::newRow("row edges b") << u"芭"_s << u"b"_s; // 0xB0C5, first of b
        QTest::newRow("row edges a/b") << u"凹"_s << u"a"_s; // 0xB0BC, inside a
        QTest::newRow("row o") << u"哦欧"_s << u"oo"_s;
        QTest::newRow("a goods name") << u"康师傅矿泉水550ml"_s << u"ksfkqs550ml"_s;
        QTest::newRow("level-2 in two lists takes the earlier") << u"亟嗒"_s << u"jd"_s;
        QTest::newRow("level-2 plain") << u"讴锕"_s << u"oa"_s;
        QTest::newRow("GBK extension characters in the lists") << u"昇玥"_s << u"sy"_s;
        // The lists hold a fixed number of characters per letter; what none of them holds has no letter.
        QTest::newRow("GBK character in no list") << u"喆鰪長"_s << u"!!!"_s;
        // Characters with several readings take the initial of their main one, not the alphabetically first.
        QTest::newRow("several readings, main one counts") << u"腌蕃铛宓"_s << u"yfdm"_s;
        QTest::newRow("main reading o outside list o") << u"喔噢"_s << u"w!"_s;
        QTest::newRow("blank gives a") << u"可 乐"_s << u"kal"_s;
        QTest::newRow("characters outside the set") << u"=&;:?<>'\""_s << u"!!!!!!!!!"_s;
        QTest::newRow("full-width punctuation") << u"，。！（"_s << u"!!!!"_s;
        QTest::newRow("full-width letters") << u"ＡＢ"_s << u"!!"_s;
        // The pass-through test is a textual compare, so letters whose case fold is a Latin letter pass too.
        QTest::newRow("case fold beyond ASCII passes through") << u"\u212A\u017F"_s << u"\u212A\u017F"_s;
        QTest::newRow("surrogate pair gives two marks") << u"a😀b"_s << u"a!!b"_s;
        QTest::newRow("lone surrogate") << QString(QChar(0xD800)) << u"!"_s;
        QTest::newRow("control and NUL") << QString(u"\t\0x"_s) << u"!!x"_s;
    }

    void getPy()
    {
        QFETCH(QString, text);
        QFETCH(QString, code);
        const CSpell spell;
        QCOMPARE(spell.GetPy(text), code);
    }

    void extraListsBegin_data()
    {
        QTest::addColumn<QString>("letter");
        QTest::addColumn<QString>("begins");
        QTest::newRow("a") << u"a"_s << u"锕 捱 嗳 嗌 "_s;
        QTest::newRow("z") << u"z"_s << u"咂 甾 拶 瓒 "_s;
        QTest::newRow("o holds exactly four") << u"o"_s << u"讴 怄 瓯 耦 "_s;
        QTest::newRow("i is no letter") << u"i"_s << QString();
    }
    void extraListsBegin()
    {
        QFETCH(QString, letter);
        QFETCH(QString, begins);
        QVERIFY2(CSpell::ExtraList(letter.at(0)).startsWith(begins), qPrintable(CSpell::ExtraList(letter.at(0))));
        if (letter == u"o"_s || letter == u"i"_s) {
            QCOMPARE(CSpell::ExtraList(letter.at(0)), begins);
        }
    }

    void extraListSizes_data()
    {
        QTest::addColumn<QChar>("letter");
        QTest::addColumn<int>("size");
        const int sizes[] = {34, 143, 194, 149, 26, 83,  151, 153, 243, 100, 234, 133,
                             80, 4,   109, 175, 38, 205, 159, 92,  181, 296, 242};
        int i = 0;
        for (const QChar letter : u"abcdefghjklmnopqrstwxyz"_s) {
            QTest::newRow(qPrintable(QString(letter))) << letter << sizes[i++];
        }
    }
    void extraListSizes()
    {
        QFETCH(QChar, letter);
        QFETCH(int, size);
        const QString list = CSpell::ExtraList(letter);
        QCOMPARE(list.size() - list.count(u' '), size);
        // Every entry is a character outside the range table with a reading of that letter.
        for (const QChar c : list) {
            if (c != u' ') {
                QVERIFY2(CSpell::initials(c).contains(letter), qPrintable(QString(c)));
                QCOMPARE(CSpell::codeOf(c),
                         letter == u'q' && c == u'亟'       ? u'j'
                             : letter == u't' && c == u'嗒' ? u'd'
                                                            : letter);
            }
        }
    }

    void firstLevelRangeFromCodePage()
    {
        // Every first-level character (0xB0A1 to 0xD7F9) takes its letter from the range table; the rows are
        // checked at each edge.
        const struct
        {
            char16_t first, last;
            char letter;
        } edges[] = {{u'啊', u'澳', 'a'}, {u'芭', u'怖', 'b'}, {u'擦', u'错', 'c'}, {u'搭', u'堕', 'd'},
                     {u'蛾', u'贰', 'e'}, {u'发', u'咐', 'f'}, {u'噶', u'过', 'g'}, {u'哈', u'祸', 'h'},
                     {u'击', u'骏', 'j'}, {u'喀', u'阔', 'k'}, {u'垃', u'络', 'l'}, {u'妈', u'穆', 'm'},
                     {u'拿', u'诺', 'n'}, {u'哦', u'沤', 'o'}, {u'啪', u'瀑', 'p'}, {u'期', u'群', 'q'},
                     {u'然', u'弱', 'r'}, {u'撒', u'所', 's'}, {u'塌', u'唾', 't'}, {u'挖', u'误', 'w'},
                     {u'昔', u'迅', 'x'}, {u'压', u'孕', 'y'}, {u'匝', u'座', 'z'}};
        for (const auto &row : edges) {
            QCOMPARE(CSpell::codeOf(QChar(row.first)), QChar(QLatin1Char(row.letter)));
            QCOMPARE(CSpell::codeOf(QChar(row.last)), QChar(QLatin1Char(row.letter)));
        }
    }

    void firstLevelTableAgreesWithTheCodePage()
    {
        QStringDecoder gbk("GBK");
        if (!gbk.isValid()) {
            QSKIP("no GBK converter to compare with");
        }
        const char letters[] = "abcdefghjklmnopqrstwxyz";
        const int firstCodes[] = {0xB0A1, 0xB0C5, 0xB2C1, 0xB4EE, 0xB6EA, 0xB7A2, 0xB8C1, 0xB9FE,
                                  0xBBF7, 0xBFA6, 0xC0AC, 0xC2E8, 0xC4C3, 0xC5B6, 0xC5BE, 0xC6DA,
                                  0xC8BB, 0xC8F6, 0xCBFA, 0xCDDA, 0xCEF4, 0xD1B9, 0xD4D1};
        int checked = 0;
        for (int code = 0xB0A1; code <= 0xD7F9; ++code) {
            if ((code & 0xFF) < 0xA1 || (code & 0xFF) == 0xFF) {
                continue;
            }
            const char bytes[] = {char(code >> 8), char(code & 0xFF)};
            const QString c = gbk.decode(QByteArrayView(bytes, 2));
            QCOMPARE(c.size(), 1);
            int row = 22;
            while (code < firstCodes[row]) {
                --row;
            }
            QCOMPARE(CSpell::codeOf(c.at(0)), QChar(QLatin1Char(letters[row])));
            ++checked;
        }
        QCOMPARE(checked, 3755);
    }

    void extraListsHoldOnlyTheKnownDoubles()
    {
        QHash<QChar, QString> seen;
        for (const QChar letter : u"abcdefghjklmnopqrstwxyz"_s) {
            for (const QChar c : CSpell::ExtraList(letter)) {
                if (c != u' ') {
                    seen[c] += letter;
                }
            }
        }
        QStringList doubles;
        for (auto it = seen.cbegin(); it != seen.cend(); ++it) {
            if (it.value().size() > 1) {
                doubles.append(QString(it.key()) + it.value());
            }
        }
        doubles.sort();
        QCOMPARE(doubles, (QStringList {u"亟jq"_s, u"嗒dt"_s}));
        QCOMPARE(seen.value(u'腌'), u"y"_s);
    }

    void initialsListEveryReading_data()
    {
        QTest::addColumn<QString>("character");
        QTest::addColumn<QString>("initials");
        QTest::newRow("亟") << u"亟"_s << u"jq"_s;
        QTest::newRow("嗒") << u"嗒"_s << u"dt"_s;
        QTest::newRow("行") << u"行"_s << u"hx"_s;
        QTest::newRow("中") << u"中"_s << u"z"_s;
        QTest::newRow("A has none") << u"A"_s << QString();
        QTest::newRow("full-width comma has none") << u"，"_s << QString();
    }

    void initialsListEveryReading()
    {
        QFETCH(QString, character);
        QFETCH(QString, initials);
        QCOMPARE(CSpell::initials(character.at(0)), initials);
    }

    void matchCode_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("code");
        QTest::addColumn<bool>("matches");
        QTest::newRow("first reading") << u"长城干红"_s << u"cc"_s << true;
        QTest::newRow("second reading") << u"长城干红"_s << u"zc"_s << true;
        QTest::newRow("upper case typed") << u"长城干红"_s << u"ZCGH"_s << true;
        QTest::newRow("inside the name") << u"长城干红"_s << u"gh"_s << true;
        QTest::newRow("wrong letter") << u"长城干红"_s << u"cd"_s << false;
        QTest::newRow("longer than name") << u"可乐"_s << u"klx"_s << false;
        QTest::newRow("latin letters match themselves") << u"A4纸"_s << u"a4z"_s << true;
        QTest::newRow("digit must be equal") << u"A4纸"_s << u"a5"_s << false;
        QTest::newRow("empty code") << u"任何"_s << QString() << true;
        QTest::newRow("行 as hang") << u"银行卡"_s << u"yhk"_s << true;
        QTest::newRow("行 as xing") << u"银行卡"_s << u"yxk"_s << true;
        QTest::newRow("punctuation literal") << u"3-5号"_s << u"-5h"_s << true;
    }

    void matchCode()
    {
        QFETCH(QString, name);
        QFETCH(QString, code);
        QFETCH(bool, matches);
        QCOMPARE(CSpell::MatchCode(name, code), matches);
    }

    void matchCodeIsARunOfMatchingUnits()
    {
        // MatchCode, unit by unit: what the search's text index builds its classes of units from.
        static const char16_t kName[] = u"长城行重乐银卡A4纸-ÖöKk\u212A1";
        static const char16_t kCode[] = u"aAcCzZhHxXyYkK4-Öö1";
        QRandomGenerator rng(271828);
        for (int round = 0; round < 5000; ++round) {
            QString name;
            QString code;
            for (int i = rng.bounded(8); i > 0; --i) {
                name.append(QChar(kName[rng.bounded(int(std::size(kName)) - 1)]));
            }
            for (int i = 1 + rng.bounded(3); i > 0; --i) {
                code.append(QChar(kCode[rng.bounded(int(std::size(kCode)) - 1)]));
            }
            bool run = false;
            for (qsizetype at = 0; at + code.size() <= name.size() && !run; ++at) {
                run = true;
                for (qsizetype k = 0; k < code.size() && run; ++k) {
                    run = CSpell::codeUnitMatches(code.at(k), name.at(at + k));
                }
            }
            QVERIFY2(CSpell::MatchCode(name, code) == run, qPrintable(name + u" / "_s + code));
        }
    }

    void codeOfAgreesWithGetPy()
    {
        for (char16_t c : {u'中', u' ', u'Z', u'喆', u'='}) {
            QCOMPARE(CSpell::codeOf(QChar(c)), CSpell::py(QStringView(&c, 1)).at(0));
        }
    }

    void arbitraryTextKeepsItsLengthAndAlphabet()
    {
        // Every unit maps to itself (pass-through), a letter of the table or "!", whatever the input.
        const QString letters = u"abcdefghjklmnopqrstwxyz"_s;
        QRandomGenerator rng(314159);
        for (int round = 0; round < 200; ++round) {
            QString text(rng.bounded(1, 2000), Qt::Uninitialized);
            for (QChar &c : text) {
                c = QChar(char16_t(rng.bounded(65536)));
            }
            const QString code = CSpell::py(text);
            QCOMPARE(code.size(), text.size());
            for (qsizetype i = 0; i < code.size(); ++i) {
                const QChar out = code.at(i);
                const bool same = out == text.at(i) && QChar::toCaseFolded(out.unicode()) < 128;
                QVERIFY2(same || letters.contains(out) || out == u'!',
                         qPrintable(QString::number(text.at(i).unicode(), 16)));
            }
        }
    }
};

QTEST_GUILESS_MAIN(CSpellTest)
#include "tst_cspell.moc"
