#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

// The picture a music file carries inside itself: ID3 APIC in MP3, "covr" in MP4,
// PICTURE blocks in FLAC and Ogg. Only the container's headers are read, no audio.
//
// Blocking file I/O: call it from a pool task, never on the GUI thread. Safe to call from
// several threads at once (each call has its own demuxer).
namespace CoverArt {

struct Picture {
    QByteArray bytes;
    QString suffix; // "jpg", "png", "gif", "webp", "bmp": what the bytes are, for the file name
};

// The file's first attached picture; absent when it has none, it is not an image we
// recognise, or the file cannot be opened.
[[nodiscard]] std::optional<Picture> readEmbedded(const QString &path);

// What kind of image `bytes` hold, judged by their first bytes; "" when none we know.
[[nodiscard]] QString imageSuffix(const QByteArray &bytes);

} // namespace CoverArt
