#include "engine/segmentfile.h"

#include <QFile>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

int openLocked(const QString &path, int flags)
{
    const QByteArray native = QFile::encodeName(path);
    int fd = -1;
    do {
        fd = ::open(native.constData(), flags | O_CLOEXEC, 0644);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0)
        return -1;
    int rc = -1;
    do {
        rc = ::flock(fd, LOCK_EX | LOCK_NB);
    } while (rc != 0 && errno == EINTR);
    if (rc != 0) {
        ::close(fd);
        return -1;
    }
    return fd;
}

} // namespace

SegmentLock::~SegmentLock()
{
    release();
}

SegmentLock::SegmentLock(SegmentLock &&other) noexcept
    : m_path(std::move(other.m_path)), m_fd(std::exchange(other.m_fd, -1))
{
}

SegmentLock &SegmentLock::operator=(SegmentLock &&other) noexcept
{
    if (this != &other) {
        release();
        m_path = std::move(other.m_path);
        m_fd = std::exchange(other.m_fd, -1);
    }
    return *this;
}

std::optional<SegmentLock> SegmentLock::tryAcquire(const QString &path)
{
    const int fd = openLocked(path, O_RDONLY);
    if (fd < 0)
        return std::nullopt;
    return SegmentLock(path, fd);
}

bool SegmentLock::removeFile()
{
    bool ok = true;
    if (!m_path.isEmpty() && ::unlink(QFile::encodeName(m_path).constData()) != 0 && errno != ENOENT)
        ok = false;
    release();
    return ok;
}

bool SegmentLock::moveTo(const QString &path)
{
    if (!isValid() || std::rename(QFile::encodeName(m_path).constData(), QFile::encodeName(path).constData()) != 0)
        return false;
    m_path = path;
    return true;
}

void SegmentLock::release()
{
    // Closing the last descriptor of the open file description drops the flock.
    if (m_fd >= 0)
        ::close(std::exchange(m_fd, -1));
}

SegmentFile::~SegmentFile()
{
    if (isOpen())
        flush();
}

SegmentFile::SegmentFile(SegmentFile &&other) noexcept
    : m_lock(std::move(other.m_lock)),
      m_buffer(std::move(other.m_buffer)),
      m_buffered(std::exchange(other.m_buffered, 0)),
      m_size(std::exchange(other.m_size, 0)),
      m_error(std::exchange(other.m_error, false))
{
}

SegmentFile &SegmentFile::operator=(SegmentFile &&other) noexcept
{
    if (this != &other) {
        if (isOpen())
            flush();
        m_lock = std::move(other.m_lock);
        m_buffer = std::move(other.m_buffer);
        m_buffered = std::exchange(other.m_buffered, 0);
        m_size = std::exchange(other.m_size, 0);
        m_error = std::exchange(other.m_error, false);
    }
    return *this;
}

std::optional<SegmentFile> SegmentFile::create(const QString &path)
{
    // Not O_TRUNC: emptying a file before we own its lock would destroy another
    // holder's recording.
    const int fd = openLocked(path, O_WRONLY | O_CREAT);
    if (fd < 0)
        return std::nullopt;
    struct stat st {};
    if (::fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_size > 0 && ::ftruncate(fd, 0) != 0) {
        ::close(fd);
        return std::nullopt;
    }
    SegmentFile file;
    file.m_lock = SegmentLock(path, fd);
    return file;
}

void SegmentFile::write(QByteArrayView bytes)
{
    if (!isOpen() || bytes.isEmpty())
        return;
    m_size += bytes.size();
    if (bytes.size() > kBufferBytes) {
        flush();
        writeThrough(bytes.data(), bytes.size());
        return;
    }
    if (!m_buffer)
        m_buffer = std::make_unique<char[]>(kBufferBytes);
    if (m_buffered + bytes.size() > kBufferBytes)
        flush();
    std::memcpy(m_buffer.get() + m_buffered, bytes.data(), size_t(bytes.size()));
    m_buffered += bytes.size();
    if (m_buffered == kBufferBytes)
        flush();
}

bool SegmentFile::flush()
{
    if (m_buffered > 0) {
        writeThrough(m_buffer.get(), m_buffered);
        m_buffered = 0;
    }
    return !m_error;
}

SegmentLock SegmentFile::close()
{
    if (!isOpen())
        return {};
    flush();
    return std::move(m_lock);
}

void SegmentFile::writeThrough(const char *data, qsizetype size)
{
    // After a failure the file has a hole in it; writing on would only hide that.
    if (m_error || !isOpen())
        return;
    while (size > 0) {
        const ssize_t n = ::write(m_lock.m_fd, data, size_t(size));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) {
            m_error = true;
            return;
        }
        data += n;
        size -= n;
    }
}
