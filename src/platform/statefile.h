#pragma once

#include <QByteArray>
#include <QString>

#include <functional>
#include <optional>

// What became of one read or write of a shared state file. Expected failures are values:
// the caller shows `error` (exit 1 on the command line, a message in the window).
struct [[nodiscard]] StateResult {
    bool ok = true;
    // Why the file was not written: one line naming it. Empty when ok.
    QString error;
    // Damaged content was found and set aside: one line naming both files. Said once,
    // since the damaged file is gone from its place afterwards.
    QString notice;

    explicit operator bool() const { return ok; }
    [[nodiscard]] static StateResult failure(QString error, QString notice = {})
    {
        return { false, std::move(error), std::move(notice) };
    }
};

// A small file that the window and orvida-cli share ("favorites.json",
// "sniper_schedule.json", "recording_stats.json"): every access is a read, and maybe a
// write, under one lock, so that each process merges its change into what the file holds
// now instead of writing its own memory over another's work.
//
// Damaged content is never overwritten. It is set aside under the first free numbered
// name beside the file ("favorites.corrupt.json", "favorites.corrupt-2.json", ...; an
// earlier copy is never replaced) before anything is written in its place, and reported
// once through StateResult::notice. What of it could still be read is the caller's to
// decide: a schedule keeps its good plans, a damaged favourites file keeps nothing.
//
// The lock is a FileLock on "<folder>/.<name>.lock". Writes are atomic (AtomicFile).
// Not thread-safe; a service uses its StateFile from its own thread.
class StateFile {
public:
    // How much of the file a reader could make sense of.
    enum class Damage {
        None,   // all of it (or there is no file)
        Partly, // some entries were dropped; the rest is good
        Whole,  // nothing
    };

    // One look at the file under the lock. `bytes` is null when there is no file; a file
    // that exists but cannot be read was set aside before the callback runs.
    struct Access {
        Damage damage = Damage::None;
        // The file's new content; absent: leave it as it is (a damaged file is then only
        // moved away). After Damage::Partly this is at least the part that was good.
        std::optional<QByteArray> write;
    };
    // May run twice (once more after the folder was created): each run starts afresh
    // from the bytes it is given.
    using Transaction = std::function<Access(const QByteArray *bytes)>;

    explicit StateFile(QString path);

    [[nodiscard]] const QString &path() const { return m_path; }
    [[nodiscard]] QString lockPath() const;

    // Locks, reads, lets `transaction` decide, sets damaged content aside, writes, unlocks.
    // Fails without writing when the lock stays busy or the damaged file cannot be set
    // aside, and when the write fails.
    StateResult access(const Transaction &transaction) const;

    // Copies the file at `path` to the first free numbered name beside it; the copy's
    // path, or absent with an error line. For files that stay in use with their damage
    // dropped (the preferences). The caller holds the file's lock.
    [[nodiscard]] static std::optional<QString> copyAside(const QString &path, QString *error);

    // The numbered name for damaged content: "<base>.corrupt<-n>.<ext>", n from 2 on.
    [[nodiscard]] static QString asideName(const QString &path, int number);

    // How long a writer waits for another process's lock before giving up.
    static constexpr int kLockWaitMs = 10000;
    // Larger files are not ours; they count as damaged.
    static constexpr qint64 kMaxBytes = 64 << 20;

private:
    // Moves the file to the first free numbered name; the new path, or absent with an
    // error line.
    [[nodiscard]] std::optional<QString> setAside(QString *error) const;

    QString m_path;
};
