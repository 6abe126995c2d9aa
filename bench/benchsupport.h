#ifndef QUILLON_BENCHSUPPORT_H
#define QUILLON_BENCHSUPPORT_H

// Shared by the benchmark programs.

#include "prompt.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QStringList>
#include <QTemporaryDir>

#include <malloc.h>

#include <cstdio>
#include <functional>
#include <vector>

namespace BenchSupport {

/// Time since `timer` started.
inline double seconds(const QElapsedTimer &timer)
{
    return double(timer.nsecsElapsed()) / 1e9;
}
inline double milliseconds(const QElapsedTimer &timer)
{
    return double(timer.nsecsElapsed()) / 1e6;
}

/// The process's resident memory in bytes, from /proc (0 where that is not available).
inline qint64 residentBytes()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly)) {
        return 0;
    }
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith("VmRSS:")) {
            return line.mid(6).trimmed().split(' ').first().toLongLong() * 1024;
        }
    }
    return 0;
}

/// residentBytes() once the heap has handed its free pages back, so that the difference of two readings is what
/// stayed in use in between.
inline qint64 trimmedResidentBytes()
{
    malloc_trim(0);
    return residentBytes();
}

/// The URL of an SQLite database file `name` in `dir`.
inline QString sqliteUrl(const QTemporaryDir &dir, const QString &name)
{
    return QStringLiteral("sqlite://") + dir.path() + QLatin1Char('/') + name;
}

/// For the programs that make widgets: the offscreen platform unless QT_QPA_PLATFORM names another. Call before the
/// application object is made.
inline void preferOffscreen()
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
}

/**
 * A benchmark's console, made right after its application object: standard output goes out line by line (the
 * figures show as they come when piped), and message boxes are answered by `prompt` and echoed to standard error.
 */
class Console
{
public:
    Console()
    {
        std::setvbuf(stdout, nullptr, _IOLBF, 0);
        prompt.setEcho(true);
        CPrompt::setCurrent(&prompt);
    }
    Q_DISABLE_COPY_MOVE(Console)

    ScriptedPrompt prompt;
};

/**
 * The command line of a benchmark program. Each option names the variable its value goes to; parse() reads the
 * arguments into them. An unknown argument, or an option without its value, prints "usage: " and `usage` to
 * standard error and makes parse() give false (the program then exits with 2).
 */
class Options
{
public:
    explicit Options(const char *usage)
        : m_usage(usage)
    { }

    Options &value(const QString &name, QString &out)
    {
        return add(name, true, [&out](const QString &text) { out = text; });
    }
    Options &value(const QString &name, int &out)
    {
        return add(name, true, [&out](const QString &text) { out = text.toInt(); });
    }
    Options &value(const QString &name, qint64 &out)
    {
        return add(name, true, [&out](const QString &text) { out = text.toLongLong(); });
    }
    /// An option without a value: `on` becomes true when it is given.
    Options &flag(const QString &name, bool &on)
    {
        return add(name, false, [&on](const QString &) { on = true; });
    }

    bool parse() const
    {
        const QStringList args = QCoreApplication::arguments();
        for (qsizetype i = 1; i < args.size(); ++i) {
            const Option *option = find(args[i]);
            if (option && !option->takesValue) {
                option->set(QString());
            } else if (option && i + 1 < args.size()) {
                option->set(args[++i]);
            } else {
                std::fprintf(stderr, "usage: %s\n", m_usage);
                return false;
            }
        }
        return true;
    }

private:
    struct Option
    {
        QString name;
        bool takesValue;
        std::function<void(const QString &)> set;
    };

    Options &add(const QString &name, bool takesValue, std::function<void(const QString &)> set)
    {
        m_options.push_back({name, takesValue, std::move(set)});
        return *this;
    }
    const Option *find(const QString &argument) const
    {
        for (const Option &option : m_options) {
            if (option.name == argument) {
                return &option;
            }
        }
        return nullptr;
    }

    const char *m_usage;
    std::vector<Option> m_options;
};

} // namespace BenchSupport

#endif
