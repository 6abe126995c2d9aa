#include "currency.h"
#include "module1.h"
#include "prompt.h"

#include <QCoreApplication>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;

class Module1Test : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        m_prompt = std::make_unique<ScriptedPrompt>();
        CPrompt::setCurrent(m_prompt.get());
        Module1::ClearErr();
    }
    void cleanup() { CPrompt::setCurrent(nullptr); }

    void trimNullString_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("expected");
        QTest::newRow("cut at NUL") << u"abc\0xyz"_s << u"abc"_s;
        QTest::newRow("blank then abc keeps ab") << u" abc"_s << u"ab"_s;
        QTest::newRow("two blanks then ab is empty") << u"  ab"_s << QString();
        QTest::newRow("trailing blanks") << u"abc  "_s << u"abc"_s;
        QTest::newRow("blanks before NUL") << u" abc \0 "_s << u"abc"_s;
        QTest::newRow("empty") << QString() << QString();
        QTest::newRow("empty buffer") << u"\0\0\0"_s << QString();
    }
    void trimNullString()
    {
        QFETCH(QString, text);
        QFETCH(QString, expected);
        QCOMPARE(Module1::TrimNullString(text), expected);
    }

    void formatAmount_data()
    {
        QTest::addColumn<QVariant>("value");
        QTest::addColumn<bool>("blankIfZero");
        QTest::addColumn<bool>("fourDecimals");
        QTest::addColumn<QString>("expected");
        QTest::newRow("zero blank") << QVariant(0) << true << false << QString();
        QTest::newRow("zero shown") << QVariant(0) << false << false << u"0.00"_s;
        QTest::newRow("zero four") << QVariant(0.0) << false << true << u"0.0000"_s;
        QTest::newRow("integer") << QVariant(3) << false << false << u"3.00"_s;
        QTest::newRow("half") << QVariant(0.5) << true << false << u"0.50"_s;
        QTest::newRow("negative") << QVariant(-1.5) << false << false << u"-1.50"_s;
        QTest::newRow("four decimals round") << QVariant(12.34567) << false << true << u"12.3457"_s;
        QTest::newRow("double half away from zero") << QVariant(0.125) << false << false << u"0.13"_s;
        QTest::newRow("decimal text") << QVariant(u"2.675"_s) << false << false << u"2.68"_s;
        QTest::newRow("currency") << QVariant::fromValue(*Currency::fromString(u"-0.005")) << false << false
                                  << u"-0.01"_s;
        QTest::newRow("currency zero blank") << QVariant::fromValue(Currency()) << true << true << QString();
        QTest::newRow("carry into integer") << QVariant(u"9.999"_s) << false << false << u"10.00"_s;
        QTest::newRow("rounds to zero keeps no sign") << QVariant(-0.001) << false << false << u"0.00"_s;
        QTest::newRow("not a number") << QVariant(u"abc"_s) << false << false << u"abc"_s;
        QTest::newRow("null") << QVariant() << false << false << QString();
    }
    void formatAmount()
    {
        QFETCH(QVariant, value);
        QFETCH(bool, blankIfZero);
        QFETCH(bool, fourDecimals);
        QFETCH(QString, expected);
        QCOMPARE(Module1::FormatAmount(value, blankIfZero, fourDecimals), expected);
    }

    void valText_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("expected");
        QTest::newRow("leading number") << u"12abc"_s << u"12"_s;
        QTest::newRow("letters") << u"abc"_s << u"0"_s;
        QTest::newRow("blanks anywhere") << u" 1 2.5 "_s << u"12.5"_s;
        QTest::newRow("negative") << u"-0.50"_s << u"-0.5"_s;
        QTest::newRow("exponent") << u"1.5e3x"_s << u"1500"_s;
        QTest::newRow("hex") << u"&H1F"_s << u"31"_s;
        QTest::newRow("second point stops") << u"1.2.3"_s << u"1.2"_s;
        QTest::newRow("empty") << QString() << u"0"_s;
    }
    void valText()
    {
        QFETCH(QString, text);
        QFETCH(QString, expected);
        QCOMPARE(Module1::ValText(text), expected);
    }

    void checkNumberRules_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("nonZero");
        QTest::addColumn<bool>("filled");
        QTest::addColumn<bool>("accepted");
        QTest::addColumn<double>("value");
        QTest::newRow("zero must be non-zero") << u"0"_s << true << false << false << 0.0;
        QTest::newRow("blanks must be filled") << u"  "_s << false << true << false << 0.0;
        QTest::newRow("five") << u"5"_s << true << true << true << 5.0;
        QTest::newRow("negative passes") << u"-2.5"_s << true << true << true << -2.5;
        QTest::newRow("letters are zero") << u"abc"_s << true << false << false << 0.0;
        QTest::newRow("leading number") << u"12kg"_s << true << false << true << 12.0;
        QTest::newRow("empty allowed") << QString() << false << false << true << 0.0;
    }
    void checkNumberRules()
    {
        QFETCH(QString, text);
        QFETCH(bool, nonZero);
        QFETCH(bool, filled);
        QFETCH(bool, accepted);
        QFETCH(double, value);
        QString textOut = u"unchanged"_s;
        QVariant valueOut;
        QString message;
        QCOMPARE(Module1::CheckNumberRules(text, u"单价"_s, nonZero, textOut, valueOut, filled, &message), accepted);
        if (accepted) {
            QCOMPARE(textOut, text);
            QCOMPARE(valueOut.toDouble(), value);
            QVERIFY(message.isEmpty());
        } else {
            QCOMPARE(message, u"请输入正确的[单价]!"_s);
        }
    }

    void zeroToBlank_data()
    {
        QTest::addColumn<QVariant>("value");
        QTest::addColumn<QString>("expected");
        QTest::newRow("zero") << QVariant(0) << QString();
        QTest::newRow("zero text") << QVariant(u"0.00"_s) << QString();
        QTest::newRow("letters") << QVariant(u"abc"_s) << QString();
        QTest::newRow("number") << QVariant(12) << u"12"_s;
        QTest::newRow("text number") << QVariant(u"3.5kg"_s) << u"3.5kg"_s;
        QTest::newRow("currency") << QVariant::fromValue(*Currency::fromString(u"12.5")) << u"12.5"_s;
        QTest::newRow("single") << QVariant(0.1f) << u"0.1"_s;
    }
    void zeroToBlank()
    {
        QFETCH(QVariant, value);
        QFETCH(QString, expected);
        QCOMPARE(Module1::ZeroToBlank(value), expected);
    }

    void nullToZero()
    {
        const QVariant zero = Module1::NullToZero(QVariant(QMetaType::fromType<int>()));
        QCOMPARE(zero.metaType(), QMetaType::fromType<qint16>());
        QCOMPARE(zero.toInt(), 0);
        QCOMPARE(Module1::NullToZero(QVariant(u"x"_s)), QVariant(u"x"_s));
        QCOMPARE(Module1::NullToZero(QVariant(QString())), QVariant(QString()));
    }

    void showErrMsg()
    {
        Module1::ShowErrMsg(QString());
        QCOMPARE(m_prompt->lastText(), u"错误\r\n"_s);
        Module1::SetErr(u"磁盘已满"_s);
        QCOMPARE(Module1::ShowErrMsg(u"保存错误:"_s), int(CPrompt::vbOK));
        QCOMPARE(m_prompt->lastText(), u"保存错误:\r\n磁盘已满"_s);
        QCOMPARE(m_prompt->shown().constLast().style, int(CPrompt::vbExclamation));
        QCOMPARE(m_prompt->shown().constLast().title, CPrompt::applicationTitle());
    }

    void showInputUsesApplicationTitleWhenEmpty()
    {
        m_prompt->queueInput(u"千克"_s);
        QString title;
        QCOMPARE(Module1::ShowInput(u"请输入新的单位名称:"_s, title, QString()), u"千克"_s);
        QCOMPARE(title, QCoreApplication::applicationName());
        QCOMPARE(m_prompt->shown().constLast().title, QCoreApplication::applicationName());

        QString given = u"自定义"_s;
        QCOMPARE(Module1::ShowInput(u"?"_s, given, u"默认"_s), QString()); // cancelled
        QCOMPARE(m_prompt->shown().constLast().title, u"自定义"_s);
    }

private:
    std::unique_ptr<ScriptedPrompt> m_prompt;
};

QTEST_GUILESS_MAIN(Module1Test)
#include "tst_module1.moc"
