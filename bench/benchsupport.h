#ifndef QUILLON_BENCHSUPPORT_H
#define QUILLON_BENCHSUPPORT_H

// Shared by the benchmark programs.

#include <QElapsedTimer>
#include <QFile>

namespace BenchSupport {

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

} // namespace BenchSupport

#endif
