#include "platform/statefile.h"

#include "platform/atomicfile.h"
#include "platform/filelock.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace {

QString systemError(int code)
{
    return QString::fromLocal8Bit(std::strerror(code));
}

// rename(2) that never replaces an existing target: renameat2 where the file system
// supports it, else a hard link and an unlink (which fails the same way on a taken name).
bool renameNoReplace(const QString &from, const QString &to)
{
    const QByteArray source = QFile::encodeName(from);
    const QByteArray target = QFile::encodeName(to);
    if (::renameat2(AT_FDCWD, source.constData(), AT_FDCWD, target.constData(), RENAME_NOREPLACE) == 0)
        return true;
    if (errno != EINVAL && errno != ENOSYS && errno != ENOTSUP)
        return false;
    if (::link(source.constData(), target.constData()) != 0)
        return false;
    return ::unlink(source.constData()) == 0;
}

enum class ReadOutcome { Missing, Read, Unreadable };

ReadOutcome readFile(const QString &path, QByteArray *bytes, QString *why)
{
    QFile file(path);
    if (!file.exists() && !QFileInfo(path).isSymLink())
        return ReadOutcome::Missing;
    errno = 0;
    if (QFileInfo(path).isDir() || !file.open(QIODevice::ReadOnly)) {
        *why = QFileInfo(path).isDir() ? QStringLiteral("a folder is in its place") : systemError(errno ? errno : EACCES);
        return errno == ENOENT ? ReadOutcome::Missing : ReadOutcome::Unreadable;
    }
    *bytes = file.read(StateFile::kMaxBytes + 1);
    if (file.error() != QFileDevice::NoError) {
        *why = file.errorString();
        return ReadOutcome::Unreadable;
    }
    if (bytes->size() > StateFile::kMaxBytes) {
        *why = QStringLiteral("larger than any file Orvida writes");
        return ReadOutcome::Unreadable;
    }
    return ReadOutcome::Read;
}

} // namespace

StateFile::StateFile(QString path)
    : m_path(std::move(path))
{
}

QString StateFile::lockPath() const
{
    const QFileInfo info(m_path);
    return info.absolutePath() + QStringLiteral("/.") + info.fileName() + QStringLiteral(".lock");
}

QString StateFile::asideName(const QString &path, int number)
{
    const QFileInfo info(path);
    const QString suffix = info.suffix();
    QString name = info.completeBaseName() + QStringLiteral(".corrupt");
    if (number > 1)
        name += QLatin1Char('-') + QString::number(number);
    if (!suffix.isEmpty())
        name += QLatin1Char('.') + suffix;
    return info.absolutePath() + QLatin1Char('/') + name;
}

std::optional<QString> StateFile::setAside(QString *error) const
{
    // Numbers are tried in order, so a hundred earlier copies cost a hundred failed
    // renames: cheap, and damage is rare.
    constexpr int kMaxCopies = 10000;
    for (int number = 1; number <= kMaxCopies; ++number) {
        const QString target = asideName(m_path, number);
        if (renameNoReplace(m_path, target))
            return target;
        if (errno != EEXIST && errno != ENOTEMPTY) {
            *error = QStringLiteral("%1 is damaged and cannot be set aside (%2); it was left as it is")
                         .arg(m_path, systemError(errno));
            return std::nullopt;
        }
    }
    *error = QStringLiteral("%1 is damaged and %2 earlier copies of it are in the way; it was left as it is")
                 .arg(m_path)
                 .arg(kMaxCopies);
    return std::nullopt;
}

std::optional<QString> StateFile::copyAside(const QString &path, QString *error)
{
    constexpr int kMaxCopies = 10000;
    for (int number = 1; number <= kMaxCopies; ++number) {
        const QString target = asideName(path, number);
        if (QFileInfo::exists(target) || QFileInfo(target).isSymLink())
            continue;
        QFile source(path);
        if (source.copy(target))
            return target;
        *error = QStringLiteral("%1 is damaged and no copy of it can be kept (%2); nothing was written")
                     .arg(path, source.errorString());
        return std::nullopt;
    }
    *error = QStringLiteral("%1 is damaged and %2 earlier copies of it are in the way; nothing was written")
                 .arg(path)
                 .arg(kMaxCopies);
    return std::nullopt;
}

StateResult StateFile::access(const Transaction &transaction) const
{
    // Reading creates nothing: without a folder there is no file and no lock to take
    // until something is to be written.
    const QString folder = QFileInfo(m_path).absolutePath();
    if (!QFileInfo(folder).isDir()) {
        if (!transaction(nullptr).write)
            return {};
        errno = 0;
        if (!QDir().mkpath(folder))
            return StateResult::failure(QStringLiteral("cannot write %1: cannot create the folder (%2)")
                                            .arg(m_path, systemError(errno ? errno : EACCES)));
    }
    FileLock lock(lockPath());
    // A folder we cannot create a lock file in is one nobody can write to either; reading
    // it unlocked is safe, and a write fails below with the file's own error.
    if (lock.lock(kLockWaitMs) == FileLock::Result::Busy)
        return StateResult::failure(
            QStringLiteral("%1 is locked by another process that did not let go; nothing was written").arg(m_path));

    StateResult result;
    QByteArray bytes;
    QString why;
    ReadOutcome read = readFile(m_path, &bytes, &why);
    if (read == ReadOutcome::Unreadable) {
        QString error;
        const auto aside = setAside(&error);
        if (!aside)
            return StateResult::failure(QStringLiteral("cannot read %1 (%2); it was left as it is").arg(m_path, why));
        result.notice = QStringLiteral("%1 could not be read (%2); it was kept as %3").arg(m_path, why, *aside);
        read = ReadOutcome::Missing;
    }

    const Access access = transaction(read == ReadOutcome::Read ? &bytes : nullptr);
    if (read == ReadOutcome::Read && access.damage != Damage::None) {
        QString error;
        const auto aside = setAside(&error);
        if (!aside)
            return StateResult::failure(error);
        result.notice = access.damage == Damage::Whole
            ? QStringLiteral("%1 was damaged and could not be read; it was kept as %2").arg(m_path, *aside)
            : QStringLiteral("%1 held entries that could not be read; they were dropped and the file was kept as %2")
                  .arg(m_path, *aside);
    }
    if (access.write) {
        QString error;
        if (!AtomicFile::write(m_path, *access.write, &error))
            return StateResult::failure(QStringLiteral("cannot write %1: %2").arg(m_path, error), result.notice);
    }
    return result;
}
