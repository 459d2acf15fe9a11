#include "platform/filelock.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QThread>

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

FileLock::FileLock(QString path)
    : m_path(std::move(path))
{
}

FileLock::~FileLock()
{
    unlock();
    if (m_fd >= 0)
        ::close(m_fd);
}

bool FileLock::open()
{
    if (m_fd >= 0)
        return true;
    m_fd = ::open(QFile::encodeName(m_path).constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    return m_fd >= 0;
}

FileLock::Result FileLock::tryLock()
{
    if (m_locked)
        return Result::Locked;
    if (!open())
        return Result::Unavailable;
    if (::flock(m_fd, LOCK_EX | LOCK_NB) == 0) {
        m_locked = true;
        return Result::Locked;
    }
    return errno == EWOULDBLOCK || errno == EINTR ? Result::Busy : Result::Unavailable;
}

FileLock::Result FileLock::lock(int timeoutMs)
{
    // Polling rather than a blocking flock: the wait must end, and holders keep the lock
    // for a read and a write of a small file, so a few milliseconds between tries cost
    // nothing.
    const QDeadlineTimer deadline(timeoutMs);
    for (;;) {
        const Result result = tryLock();
        if (result != Result::Busy || deadline.hasExpired())
            return result;
        QThread::msleep(2);
    }
}

void FileLock::unlock()
{
    if (!m_locked)
        return;
    (void)::flock(m_fd, LOCK_UN);
    m_locked = false;
}
