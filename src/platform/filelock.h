#pragma once

#include <QString>

// An advisory lock between processes: flock(2) on a lock file that is created when
// missing (its folder is not) and never deleted (deleting it would let a third process lock a new file while
// the second still holds the old one). The kernel lets go when the holder dies, so a
// crash never leaves a stale lock behind.
//
// Each FileLock opens its own descriptor, so two FileLocks on one path exclude each other
// inside one process as well. Not thread-safe; use one object from one thread.
class FileLock {
public:
    explicit FileLock(QString path);
    ~FileLock();
    FileLock(const FileLock &) = delete;
    FileLock &operator=(const FileLock &) = delete;

    enum class Result {
        Locked,      // held now
        Busy,        // another holder did not let go in time
        Unavailable, // the lock file cannot be created or locked (read-only folder, no flock)
    };

    // Takes the lock without waiting.
    [[nodiscard]] Result tryLock();
    // Takes the lock, waiting up to `timeoutMs` for another holder.
    [[nodiscard]] Result lock(int timeoutMs);
    void unlock();

    [[nodiscard]] bool isLocked() const { return m_locked; }
    [[nodiscard]] const QString &path() const { return m_path; }

private:
    bool open();

    QString m_path;
    int m_fd = -1;
    bool m_locked = false;
};
