#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QString>

#include <memory>
#include <optional>
#include <utility>

// An exclusive advisory lock (flock LOCK_EX) on a file, held for as long as the object
// lives. Recording hides its segments and work files in the radio folder's "tmp" folder;
// at start the recovery salvages every such file that no process holds locked, so
// whoever is still working on a file keeps it locked until the file is gone or final.
//
// Move-only; owns the descriptor that carries the lock. Not tied to a thread, but one
// object is used by one thread at a time (it is handed from the recording session's
// thread to the save task on the thread pool).
class SegmentLock {
public:
    SegmentLock() = default;
    ~SegmentLock();
    SegmentLock(SegmentLock &&other) noexcept;
    SegmentLock &operator=(SegmentLock &&other) noexcept;
    SegmentLock(const SegmentLock &) = delete;
    SegmentLock &operator=(const SegmentLock &) = delete;

    // Opens an existing file and locks it without waiting. Absent when the file is
    // missing or someone else (this process included) holds the lock.
    [[nodiscard]] static std::optional<SegmentLock> tryAcquire(const QString &path);

    [[nodiscard]] bool isValid() const { return m_fd >= 0; }
    [[nodiscard]] const QString &path() const { return m_path; }

    // Unlinks the file while still holding the lock, then lets go of it; a missing file
    // is not an error. Returns false only when the file exists and could not be removed.
    bool removeFile();
    // Lets go of the lock (the file stays).
    void release();
    // Renames the file, keeping the lock (it is on the file, not its name). False, with
    // the old path kept, when the rename failed.
    bool moveTo(const QString &path);

private:
    friend class SegmentFile;
    SegmentLock(QString path, int fd) : m_path(std::move(path)), m_fd(fd) {}

    QString m_path;
    int m_fd = -1;
};

// A file being written, locked from creation until it is closed (and past that through
// the SegmentLock that close() hands on).
//
// Writes go through a 32 KiB buffer, allocated on the first write, so the network's many
// small audio runs do not each cost a system call. A write larger than the buffer goes
// straight to the file. A failed write (disk full, I/O error) is remembered in hasError()
// and swallowed: the caller decides later what a damaged file is worth.
//
// Move-only; used by one thread at a time.
class SegmentFile {
public:
    static constexpr qsizetype kBufferBytes = 32 * 1024;

    SegmentFile() = default;
    // Flushes and closes, releasing the lock.
    ~SegmentFile();
    SegmentFile(SegmentFile &&other) noexcept;
    SegmentFile &operator=(SegmentFile &&other) noexcept;
    SegmentFile(const SegmentFile &) = delete;
    SegmentFile &operator=(const SegmentFile &) = delete;

    // Creates the file (or empties an existing one that nobody holds) with mode 0644 and
    // locks it. Absent when it cannot be created or another holder has it locked.
    [[nodiscard]] static std::optional<SegmentFile> create(const QString &path);

    [[nodiscard]] bool isOpen() const { return m_lock.isValid(); }
    [[nodiscard]] const QString &path() const { return m_lock.path(); }
    [[nodiscard]] bool hasError() const { return m_error; }
    // Bytes accepted by write(), buffered or not.
    [[nodiscard]] qint64 size() const { return m_size; }

    void write(QByteArrayView bytes);
    // Hands the buffered bytes to the file. False when this or an earlier write failed.
    bool flush();
    // Flushes and closes for writing; the returned lock keeps the file locked. Check
    // hasError() afterwards. An unopened file gives an invalid lock.
    [[nodiscard]] SegmentLock close();

private:
    void writeThrough(const char *data, qsizetype size);

    SegmentLock m_lock;
    std::unique_ptr<char[]> m_buffer;
    qsizetype m_buffered = 0;
    qint64 m_size = 0;
    bool m_error = false;
};
