#include "platform/atomicfile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryFile>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <unistd.h>

namespace AtomicFile {

bool write(const QString &path, const QByteArray &data, QString *error)
{
    const auto failed = [error](int code) {
        if (error)
            *error = QString::fromLocal8Bit(std::strerror(code));
        return false;
    };
    const QFileInfo info(path);
    errno = 0;
    if (!QDir().mkpath(info.absolutePath()))
        return failed(errno ? errno : EACCES);
    // A temporary file beside the target, synced and renamed over it. Unlike QSaveFile
    // this also replaces a target whose permissions were broken (mode 000): the rename
    // needs only the folder to be writable, and the new file gets ordinary permissions.
    QTemporaryFile file(info.absolutePath() + QStringLiteral("/.") + info.fileName() + QStringLiteral(".XXXXXX"));
    errno = 0;
    if (!file.open())
        return failed(errno ? errno : EACCES);
    errno = 0;
    if (file.write(data) != data.size() || !file.flush() || ::fsync(file.handle()) != 0)
        return failed(errno ? errno : EIO);
    file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ReadGroup
                        | QFileDevice::ReadOther);
    if (::rename(QFile::encodeName(file.fileName()).constData(), QFile::encodeName(path).constData()) != 0)
        return failed(errno);
    file.setAutoRemove(false); // it is the target now
    return true;
}

std::optional<QByteArray> read(const QString &path, qint64 maxBytes)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    if (file.size() > maxBytes)
        return std::nullopt;
    QByteArray data = file.read(maxBytes + 1);
    if (file.error() != QFileDevice::NoError || data.size() > maxBytes)
        return std::nullopt;
    return data;
}

} // namespace AtomicFile
