#include "module1core.h"

#include "currency.h"
#include "inifile.h"
#include "prompt.h"
#include "sqlvalue.h"

#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

namespace Module1 {

namespace {

QString s_errDescription;

// Leading and trailing blanks (spaces only, not tabs) removed.
QStringView trimBlanks(QStringView text)
{
    while (!text.isEmpty() && text.front() == u' ') {
        text = text.mid(1);
    }
    while (!text.isEmpty() && text.back() == u' ') {
        text.chop(1);
    }
    return text;
}

// The whole text as a number text, or nothing when anything but blanks follows it.
std::optional<QString> wholeNumber(const QString &text)
{
    const QString trimmed = text.trimmed();
    if (trimmed.isEmpty()) {
        return std::nullopt;
    }
    bool ok = false;
    trimmed.toDouble(&ok);
    if (!ok) {
        return std::nullopt;
    }
    return trimmed;
}

// The number a value holds, as text that Currency reads exactly.
std::optional<QString> decimalOf(const QVariant &value)
{
    if (value.metaType() == QMetaType::fromType<Currency>()) {
        return value.value<Currency>().toString();
    }
    switch (value.metaType().id()) {
    case QMetaType::Bool:
        return value.toBool() ? u"-1"_s : u"0"_s;
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::Short:
    case QMetaType::UShort:
    case QMetaType::Long:
    case QMetaType::ULong:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
        return value.toString();
    case QMetaType::Float:
    case QMetaType::Double: {
        const double d = value.toDouble();
        if (!std::isfinite(d)) {
            return std::nullopt;
        }
        // The shortest text that reads back to the same double is the value the user meant.
        return value.metaType().id() == QMetaType::Float ? SqlValue::singleToString(value.toFloat())
                                                         : QString::number(d, 'g', QLocale::FloatingPointShortest);
    }
    default:
        return wholeNumber(value.toString());
    }
}

} // namespace

void SetErr(const QString &description)
{
    s_errDescription = description;
}

void ClearErr()
{
    s_errDescription.clear();
}

QString ErrDescription()
{
    return s_errDescription;
}

QString ShowInput(const QString &prompt, QString &title, const QString &defaultText)
{
    if (title.isEmpty()) {
        title = CPrompt::applicationTitle();
    }
    return CPrompt::current().InputBox(prompt, title, defaultText).value_or(QString());
}

QString ErrMsgText(const QString &message, const QString &description)
{
    return (message.isEmpty() ? u"错误"_s : message) + u"\r\n"_s + description;
}

int ShowErrMsg(const QString &message)
{
    return CPrompt::current().MsgBox(ErrMsgText(message, s_errDescription), CPrompt::vbExclamation, QString());
}

QString GetIniString(const QString &section, const QString &key, const QString &file, const QString &defaultValue)
{
    const QString value = IniFile::load(file).value(section, key).value_or(defaultValue);
    // The value arrives in a 256-character buffer that ends with a NUL.
    return TrimNullString(value.left(255) + QChar(0));
}

qint32 SetIniString(const QString &section, const QString &key, const QString &file, const QString &value)
{
    IniFile ini = IniFile::load(file);
    ini.setValue(section, key, value);
    return ini.save(file) ? 1 : 0;
}

QString TrimNullString(const QString &text)
{
    const qsizetype nul = text.indexOf(QChar(0));
    // Without a NUL the text is kept as it always worked: cut to the length of its trimmed form, measured from
    // the start.
    const QString cut = nul >= 0 ? text.left(nul) : text.left(trimBlanks(text).size());
    return trimBlanks(cut).toString();
}

QVariant NullToZero(const QVariant &value)
{
    if (!value.isValid() || value.isNull()) {
        return QVariant::fromValue(qint16(0));
    }
    return value;
}

QString ValText(QStringView text)
{
    return Currency::valText(text);
}

double Val(QStringView text)
{
    return ValText(text).toDouble();
}

QString FormatAmount(const QVariant &value, bool blankIfZero, bool fourDecimals)
{
    if (!value.isValid() || value.isNull()) {
        return QString();
    }
    const int decimals = fourDecimals ? 4 : 2;
    const std::optional<QString> number = decimalOf(value);
    if (!number) {
        return value.toString();
    }
    if (blankIfZero && Currency::isZeroText(*number)) {
        return QString();
    }
    return Currency::roundText(*number, decimals);
}

bool CheckNumberRules(const QString &text, const QString &fieldName, bool mustBeNonZero, QString &textOut,
                      QVariant &valueOut, bool mustBeFilled, QString *message)
{
    const QString refused = u"请输入正确的["_s + fieldName + u"]!"_s;
    if (mustBeFilled && text.trimmed().isEmpty()) {
        if (message) {
            *message = refused;
        }
        return false;
    }
    textOut = text;
    if (mustBeNonZero && Currency::isZeroText(text)) {
        if (message) {
            *message = refused;
        }
        return false;
    }
    valueOut = Currency::valText(text).toDouble();
    return true;
}

QString ZeroToBlank(const QVariant &value)
{
    QString text;
    if (value.metaType() == QMetaType::fromType<Currency>()) {
        text = value.value<Currency>().toString();
    } else if (value.metaType().id() == QMetaType::Float) {
        text = SqlValue::singleToString(value.toFloat());
    } else if (value.metaType().id() == QMetaType::Double) {
        text = QString::number(value.toDouble(), 'g', QLocale::FloatingPointShortest);
    } else {
        text = value.toString();
    }
    return Currency::isZeroText(text) ? QString() : text;
}

} // namespace Module1

QString Module1::LibraryVersion()
{
    return QStringLiteral(QUILLON_VERSION_STRING);
}
