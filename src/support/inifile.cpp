#include "inifile.h"

#include <QFile>
#include <QSaveFile>
#include <QStringDecoder>
#include <QStringEncoder>

using namespace Qt::StringLiterals;

IniFile::IniFile(const QByteArray &content)
{
    if (content.isEmpty()) {
        return;
    }
    QStringDecoder utf8(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = utf8.decode(content);
    if (utf8.hasError()) {
        QStringDecoder gbk("GBK");
        if (gbk.isValid()) {
            text = gbk.decode(content);
            m_gbk = true;
        }
    }
    if (text.startsWith(QChar(0xFEFF))) {
        text.remove(0, 1);
    }
    // The ending most lines have: one odd line (a last line ending in a bare CR) must not turn the file's endings
    // over on the next save.
    const qsizetype crlf = text.count(u"\r\n"_s);
    const qsizetype lf = text.count(u'\n');
    m_crlf = lf == 0 || crlf > lf - crlf;
    // A last line without a line end stays so: adding one would make a bare CR there a line end on the next read.
    m_finalNewline = text.endsWith(u'\n');
    if (m_crlf) {
        text.replace(u"\r\n"_s, u"\n"_s);
    } // else the few CRLF lines keep their CR as part of the line (read as a blank), and are written back as they were
    m_lines = text.split(u'\n');
    if (m_finalNewline) {
        m_lines.removeLast();
    }
}

IniFile IniFile::load(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return IniFile();
    }
    return IniFile(file.readAll());
}

bool IniFile::save(const QString &path) const
{
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly)) {
        return false;
    }
    file.write(content());
    return file.commit();
}

QString IniFile::sectionName(const QString &line, bool *isSection)
{
    const QString trimmed = line.trimmed();
    *isSection = trimmed.startsWith(u'[');
    if (!*isSection) {
        return QString();
    }
    const qsizetype close = trimmed.indexOf(u']');
    return (close < 0 ? trimmed.mid(1) : trimmed.mid(1, close - 1)).trimmed();
}

bool IniFile::splitKey(const QString &line, QString *key, QString *value)
{
    const QString trimmed = line.trimmed();
    if (trimmed.startsWith(u';')) {
        return false;
    }
    const qsizetype eq = line.indexOf(u'=');
    if (eq < 0) {
        return false;
    }
    *key = line.left(eq).trimmed();
    if (value) {
        QString v = line.mid(eq + 1).trimmed();
        if (v.size() >= 2 && (v.front() == u'"' || v.front() == u'\'') && v.back() == v.front()) {
            v = v.mid(1, v.size() - 2);
        }
        *value = v;
    }
    return true;
}

std::optional<QString> IniFile::value(const QString &section, const QString &key) const
{
    bool inSection = false;
    bool found = false;
    for (const QString &line : m_lines) {
        bool isSection = false;
        const QString name = sectionName(line, &isSection);
        if (isSection) {
            // Only the first section of a name counts, as with the Windows profile functions.
            if (found && inSection) {
                return std::nullopt;
            }
            inSection = name.compare(section, Qt::CaseInsensitive) == 0;
            found = found || inSection;
            continue;
        }
        if (!inSection) {
            continue;
        }
        QString k;
        QString v;
        if (splitKey(line, &k, &v) && k.compare(key, Qt::CaseInsensitive) == 0) {
            return v;
        }
    }
    return std::nullopt;
}

void IniFile::setValue(const QString &section, const QString &key, const QString &value)
{
    QString clean = value;
    clean.replace(u'\r', u' ').replace(u'\n', u' ');
    const QString newLine = key + u'=' + clean;
    qsizetype sectionStart = -1;
    qsizetype lastContent = -1;
    for (qsizetype i = 0; i < m_lines.size(); ++i) {
        bool isSection = false;
        const QString name = sectionName(m_lines.at(i), &isSection);
        if (isSection) {
            if (sectionStart >= 0) {
                break;
            }
            if (name.compare(section, Qt::CaseInsensitive) == 0) {
                sectionStart = i;
                lastContent = i;
            }
            continue;
        }
        if (sectionStart < 0) {
            continue;
        }
        if (!m_lines.at(i).trimmed().isEmpty()) {
            lastContent = i;
        }
        QString k;
        if (splitKey(m_lines.at(i), &k, nullptr) && k.compare(key, Qt::CaseInsensitive) == 0) {
            // The key keeps the spelling the file already has.
            m_lines[i] = k + u'=' + clean;
            return;
        }
    }
    if (sectionStart >= 0) {
        m_lines.insert(lastContent + 1, newLine);
        return;
    }
    m_lines.append(u'[' + section + u']');
    m_lines.append(newLine);
}

QByteArray IniFile::content() const
{
    const QString eol = m_crlf ? u"\r\n"_s : u"\n"_s;
    QString text = m_lines.join(eol);
    if (!m_lines.isEmpty() && m_finalNewline) {
        text += eol;
    }
    if (m_gbk) {
        // A GBK file stays GBK for the older programs that read it; bytes that did not decode (shown as U+FFFD)
        // cannot be written back and become '?', where writing UTF-8 would garble every other line for them.
        QStringEncoder gbk("GBK");
        if (gbk.isValid()) {
            return gbk.encode(text);
        }
    }
    return text.toUtf8();
}
