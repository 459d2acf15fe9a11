#include "platform/atomicfile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryFile>

#include <cstdio>
#include <unistd.h>

namespace AtomicFile {

bool write(const QString &path, const QByteArray &data)
{
    const QFileInfo info(path);
    if (!QDir().mkpath(info.absolutePath()))
        return false;
    // A temporary file beside the target, synced and renamed over it. Unlike QSaveFile
    // this also replaces a target whose permissions were broken (mode 000): the rename
    // needs only the folder to be writable, and the new file gets ordinary permissions.
    QTemporaryFile file(info.absolutePath() + QStringLiteral("/.") + info.fileName() + QStringLiteral(".XXXXXX"));
    if (!file.open())
        return false;
    if (file.write(data) != data.size() || !file.flush() || ::fsync(file.handle()) != 0)
        return false;
    file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ReadGroup
                        | QFileDevice::ReadOther);
    if (::rename(QFile::encodeName(file.fileName()).constData(), QFile::encodeName(path).constData()) != 0)
        return false;
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
