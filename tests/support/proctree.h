#pragma once

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QList>
#include <QStringList>

#include <optional>

// Which processes run where, read from /proc, for tests that must show a child was
// started once, ended, or did not outlive its parent.
namespace ProcTree {

struct Entry {
    qint64 pid = 0;
    QByteArray comm; // the kernel's short name, e.g. "ffmpeg"
    char state = '?'; // 'Z' for a zombie: dead, waiting to be reaped
    qint64 ppid = 0;
};

// Absent when the process is gone.
inline std::optional<Entry> entry(qint64 pid)
{
    QFile file(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    const QByteArray stat = file.readAll();
    // "pid (comm) state ppid ...": comm may hold spaces and parentheses, so it ends at
    // the last ')'.
    const qsizetype open = stat.indexOf('(');
    const qsizetype close = stat.lastIndexOf(')');
    if (open < 0 || close < open)
        return std::nullopt;
    const QList<QByteArray> rest = stat.mid(close + 2).split(' ');
    if (rest.size() < 2 || rest[0].isEmpty())
        return std::nullopt;
    return Entry { pid, stat.mid(open + 1, close - open - 1), rest[0][0], rest[1].toLongLong() };
}

// Living children of `parent` named `comm`.
inline QList<qint64> children(qint64 parent, const QByteArray &comm)
{
    QList<qint64> found;
    const QStringList names = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString &name : names) {
        bool ok = false;
        const qint64 pid = name.toLongLong(&ok);
        if (!ok)
            continue;
        const std::optional<Entry> e = entry(pid);
        if (e && e->ppid == parent && e->comm == comm && e->state != 'Z')
            found << pid;
    }
    return found;
}

// The process has ended: gone, or a zombie (where init does not reap, as in containers).
inline bool ended(qint64 pid)
{
    const std::optional<Entry> e = entry(pid);
    return !e || e->state == 'Z';
}

} // namespace ProcTree
