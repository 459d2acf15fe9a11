#include "platform/atomicfile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

namespace AtomicFile {

bool write(const QString &path, const QByteArray &data)
{
    if (!QDir().mkpath(QFileInfo(path).absolutePath()))
        return false;
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    if (file.write(data) != data.size()) {
        file.cancelWriting();
        return false;
    }
    return file.commit();
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
