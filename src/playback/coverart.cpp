#include "playback/coverart.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>

extern "C" {
#include <libavformat/avformat.h>
}

namespace CoverArt {

QByteArray embedded(const QString &audioPath)
{
    AVFormatContext *format = nullptr;
    const QByteArray path = QFile::encodeName(audioPath);
    if (avformat_open_input(&format, path.constData(), nullptr, nullptr) < 0)
        return {};
    // The demuxers that know pictures (ID3v2, FLAC, MP4, Matroska attachments) read them
    // while opening: no stream probing, no packet reading.
    QByteArray picture;
    for (unsigned i = 0; i < format->nb_streams; ++i) {
        const AVStream *stream = format->streams[i];
        if (!(stream->disposition & AV_DISPOSITION_ATTACHED_PIC))
            continue;
        const AVPacket &packet = stream->attached_pic;
        if (packet.data && packet.size > 0 && packet.size <= kMaxPictureBytes) {
            picture = QByteArray(reinterpret_cast<const char *>(packet.data), packet.size);
            break;
        }
    }
    avformat_close_input(&format);
    return picture;
}

QString sidecarPath(const QString &audioPath)
{
    const QFileInfo audio(audioPath);
    const QDir folder = audio.absoluteDir();
    static const QStringList kSuffixes{QStringLiteral("jpg"), QStringLiteral("jpeg"), QStringLiteral("png")};
    // One listing, looked up case-insensitively: "Cover.JPG" is as good as "cover.jpg".
    QHash<QString, QString> byLowerName;
    const QStringList files = folder.entryList(QDir::Files | QDir::Readable);
    for (const QString &name : files)
        byLowerName.insert(name.toLower(), name);
    QStringList stems{audio.completeBaseName().toLower()};
    stems << QStringLiteral("cover") << QStringLiteral("folder") << QStringLiteral("front") << QStringLiteral("album");
    for (const QString &stem : std::as_const(stems)) {
        for (const QString &suffix : kSuffixes) {
            const auto found = byLowerName.constFind(stem + QLatin1Char('.') + suffix);
            if (found != byLowerName.cend())
                return folder.filePath(found.value());
        }
    }
    return {};
}

QByteArray find(const QString &audioPath)
{
    QByteArray picture = embedded(audioPath);
    if (!picture.isEmpty())
        return picture;
    const QString sidecar = sidecarPath(audioPath);
    if (sidecar.isEmpty())
        return {};
    QFile file(sidecar);
    if (file.size() > kMaxPictureBytes || !file.open(QIODevice::ReadOnly))
        return {};
    return file.readAll();
}

} // namespace CoverArt
