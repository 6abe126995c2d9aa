#include "currency.h"

#include <QTest>

#include <stdexcept>

using namespace Qt::StringLiterals;

class CurrencyTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void parse_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("valid");
        QTest::addColumn<qint64>("scaled");

        QTest::newRow("integer") << u"12"_s << true << Q_INT64_C(120000);
        QTest::newRow("four decimals") << u"-12.3456"_s << true << Q_INT64_C(-123456);
        QTest::newRow("leading point") << u".25"_s << true << Q_INT64_C(2500);
        QTest::newRow("blanks around") << u"  3.5 "_s << true << Q_INT64_C(35000);
        QTest::newRow("exponent") << u"1.5e3"_s << true << Q_INT64_C(15000000);
        QTest::newRow("fifth decimal rounds up") << u"12.34565"_s << true << Q_INT64_C(123457);
        QTest::newRow("negative half rounds away") << u"-0.00005"_s << true << Q_INT64_C(-1);
        QTest::newRow("below half rounds down") << u"0.00004999"_s << true << Q_INT64_C(0);
        QTest::newRow("largest") << u"922337203685477.5807"_s << true << std::numeric_limits<qint64>::max();
        QTest::newRow("smallest") << u"-922337203685477.5808"_s << true << std::numeric_limits<qint64>::min();
        QTest::newRow("one past largest") << u"922337203685477.5808"_s << false << Q_INT64_C(0);
        QTest::newRow("trailing letters") << u"12abc"_s << false << Q_INT64_C(0);
        QTest::newRow("empty") << QString() << false << Q_INT64_C(0);
        QTest::newRow("sign only") << u"-"_s << false << Q_INT64_C(0);
        QTest::newRow("bad exponent") << u"1e"_s << false << Q_INT64_C(0);
    }

    void parse()
    {
        QFETCH(QString, text);
        QFETCH(bool, valid);
        QFETCH(qint64, scaled);
        const auto value = Currency::fromString(text);
        QCOMPARE(value.has_value(), valid);
        if (valid) {
            QCOMPARE(value->scaled(), scaled);
        }
    }

    void format_data()
    {
        QTest::addColumn<qint64>("scaled");
        QTest::addColumn<QString>("shortest");
        QTest::addColumn<QString>("fixed2");

        QTest::newRow("whole") << Q_INT64_C(30000) << u"3"_s << u"3.00"_s;
        QTest::newRow("half") << Q_INT64_C(5000) << u"0.5"_s << u"0.50"_s;
        QTest::newRow("rounds half away") << Q_INT64_C(-15050) << u"-1.505"_s << u"-1.51"_s;
        QTest::newRow("tiny negative") << Q_INT64_C(-1) << u"-0.0001"_s << u"0.00"_s;
        QTest::newRow("largest") << std::numeric_limits<qint64>::max() << u"922337203685477.5807"_s
                                 << u"922337203685477.58"_s;
        QTest::newRow("smallest") << std::numeric_limits<qint64>::min() << u"-922337203685477.5808"_s
                                  << u"-922337203685477.58"_s;
    }

    void format()
    {
        QFETCH(qint64, scaled);
        QFETCH(QString, shortest);
        QFETCH(QString, fixed2);
        const Currency value = Currency::fromScaled(scaled);
        QCOMPARE(value.toString(), shortest);
        QCOMPARE(value.toFixed(2), fixed2);
        QCOMPARE(Currency::fromString(value.toString()), value);
        QCOMPARE(Currency::fromString(value.toFixed(4)), value);
    }

    // Texts beyond an amount's range round by the same rule as amounts do.
    void roundTextAgreesWithAmounts_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("decimals");
        QTest::addColumn<QString>("expected");
        QTest::newRow("half up") << u"2.345"_s << 2 << u"2.35"_s;
        QTest::newRow("half away from zero") << u"-2.345"_s << 2 << u"-2.35"_s;
        QTest::newRow("carry into integer") << u"9.9999"_s << 2 << u"10.00"_s;
        QTest::newRow("negative rounds to zero") << u"-0.004"_s << 2 << u"0.00"_s;
        QTest::newRow("beyond 64 bits") << u"123456789012345678901234.555"_s << 2 << u"123456789012345678901234.56"_s;
        QTest::newRow("exponent") << u"1.5E3"_s << 4 << u"1500.0000"_s;
        QTest::newRow("leading number only") << u"12abc"_s << 2 << u"12.00"_s;
    }
    void roundTextAgreesWithAmounts()
    {
        QFETCH(QString, text);
        QFETCH(int, decimals);
        QFETCH(QString, expected);
        QCOMPARE(Currency::roundText(text, decimals), expected);
        if (const std::optional<Currency> amount = Currency::fromString(Currency::valText(text))) {
            QCOMPARE(amount->toFixed(decimals), expected);
        }
    }

    void arithmeticIsExact()
    {
        const Currency tenth = *Currency::fromString(u"0.1");
        Currency sum;
        for (int i = 0; i < 10; ++i) {
            sum += tenth;
        }
        QCOMPARE(sum, Currency::fromInteger(1));
        QCOMPARE(*Currency::fromString(u"2.5") * *Currency::fromString(u"3.3333"), *Currency::fromString(u"8.3333"));
        QCOMPARE(*Currency::fromString(u"0.0001") * *Currency::fromString(u"0.5"), *Currency::fromString(u"0.0001"));
        QVERIFY(*Currency::fromString(u"-1") < Currency());
    }

    void overflowThrows()
    {
        const Currency max = Currency::fromScaled(std::numeric_limits<qint64>::max());
        QVERIFY_THROWS_EXCEPTION(std::overflow_error, max + Currency::fromScaled(1));
        QVERIFY_THROWS_EXCEPTION(std::overflow_error, -Currency::fromScaled(std::numeric_limits<qint64>::min()));
        QVERIFY_THROWS_EXCEPTION(std::overflow_error, max * Currency::fromInteger(2));
    }

    void fromDoubleRoundsToNearest()
    {
        QCOMPARE(Currency::fromDouble(0.1)->scaled(), Q_INT64_C(1000));
        QCOMPARE(Currency::fromDouble(-1.23456789)->scaled(), Q_INT64_C(-12346));
        QVERIFY(!Currency::fromDouble(1e300));
        QVERIFY(!Currency::fromDouble(std::numeric_limits<double>::quiet_NaN()));
    }
};

QTEST_GUILESS_MAIN(CurrencyTest)
#include "tst_currency.moc"
