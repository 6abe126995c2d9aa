#ifndef QUILLON_INIFILE_H
#define QUILLON_INIFILE_H

#include "quillon_export.h"

#include <QByteArray>
#include <QList>
#include <QString>

#include <optional>

/**
 * A profile (ini) file in the classic Windows format: "[section]" lines, "key=value" lines, ';' comments, section
 * and key names compared case-insensitively, surrounding blanks and one pair of quotes dropped from values.
 *
 * Lines that are not touched are written back as they were, in the file's own encoding (UTF-8, or GBK for files
 * written by the older Windows programs) and line endings. No escapes, no multi-line values.
 */
class QUILLON_EXPORT IniFile
{
public:
    IniFile() = default;
    explicit IniFile(const QByteArray &content);

    /// Reads a file; a missing or unreadable file is an empty document.
    static IniFile load(const QString &path);
    /// Replaces the file atomically (a crash leaves the old or the new file, never half of one).
    bool save(const QString &path) const;

    std::optional<QString> value(const QString &section, const QString &key) const;
    /// Sets a key, adding the section at the end and the key at the end of its section where missing.
    void setValue(const QString &section, const QString &key, const QString &value);

    QByteArray content() const;

private:
    static QString sectionName(const QString &line, bool *isSection);
    static bool splitKey(const QString &line, QString *key, QString *value);

    QList<QString> m_lines;
    bool m_gbk = false;
    bool m_crlf = true;
    bool m_finalNewline = true;
};

#endif
