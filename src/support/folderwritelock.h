#ifndef QUILLON_FOLDERWRITELOCK_H
#define QUILLON_FOLDERWRITELOCK_H

#include <QFile>
#include <QString>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

/**
 * A lock on a folder among the program's writers of files that are written beside their target and renamed over it
 * at the end (workbooks, backups). Writers hold it shared while they write; a half-written file found while nobody
 * holds it was left by a writer that was killed, and may be cleared. Not a lock on any file's contents.
 */
class FolderWriteLock
{
public:
    explicit FolderWriteLock(const QString &folder)
        : m_fd(::open(QFile::encodeName(folder).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC))
    { }
    ~FolderWriteLock()
    {
        if (m_fd >= 0) {
            ::close(m_fd);
        }
    }
    Q_DISABLE_COPY_MOVE(FolderWriteLock)

    /// True when no writer holds the folder now; the lock is then this object's until it goes.
    bool lockExclusiveNow() { return m_fd >= 0 && ::flock(m_fd, LOCK_EX | LOCK_NB) == 0; }
    /// Waits while someone clears leftovers, then holds the folder as one writer among others.
    void lockShared()
    {
        if (m_fd >= 0) {
            ::flock(m_fd, LOCK_SH);
        }
    }

private:
    int m_fd;
};

#endif
