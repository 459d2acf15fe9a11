#include "playback/coverart.h"

#include <QFile>

extern "C" {
#include <libavformat/avformat.h>
}

#include <memory>

namespace CoverArt {

namespace {

    struct InputCloser {
        void operator()(AVFormatContext *context) const { avformat_close_input(&context); }
    };

} // namespace

QString imageSuffix(const QByteArray &bytes)
{
    if (bytes.startsWith("\xFF\xD8\xFF"))
        return QStringLiteral("jpg");
    if (bytes.startsWith("\x89PNG\r\n\x1A\n"))
        return QStringLiteral("png");
    if (bytes.startsWith("GIF87a") || bytes.startsWith("GIF89a"))
        return QStringLiteral("gif");
    if (bytes.size() >= 12 && bytes.startsWith("RIFF") && bytes.mid(8, 4) == "WEBP")
        return QStringLiteral("webp");
    if (bytes.startsWith("BM"))
        return QStringLiteral("bmp");
    return {};
}

std::optional<Picture> readEmbedded(const QString &path)
{
    AVFormatContext *raw = nullptr;
    // The demuxers read the tags, and with them the pictures, while opening.
    if (avformat_open_input(&raw, QFile::encodeName(path).constData(), nullptr, nullptr) < 0)
        return std::nullopt;
    const std::unique_ptr<AVFormatContext, InputCloser> context(raw);
    for (unsigned i = 0; i < context->nb_streams; ++i) {
        const AVStream *stream = context->streams[i];
        if (!(stream->disposition & AV_DISPOSITION_ATTACHED_PIC) || stream->attached_pic.size <= 0)
            continue;
        Picture picture;
        picture.bytes
            = QByteArray(reinterpret_cast<const char *>(stream->attached_pic.data), stream->attached_pic.size);
        picture.suffix = imageSuffix(picture.bytes);
        if (!picture.suffix.isEmpty())
            return picture;
    }
    return std::nullopt;
}

} // namespace CoverArt
