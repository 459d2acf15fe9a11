#pragma once

#include <QByteArray>
#include <QString>

// The picture that belongs to an audio file, as the file or its folder stores it: the
// embedded front cover (an ID3 APIC frame, a FLAC PICTURE block, an MP4 "covr" atom: what
// libavformat presents as an attached picture) or, when there is none, a picture beside
// the file. The bytes are returned as stored (JPEG, PNG, ...); decoding and scaling are
// the caller's business.
//
// Blocking: reads the container's header (never decodes audio) and lists one folder.
// Call from a worker thread; safe to call from several at once.
namespace CoverArt {

// Pictures larger than this are ignored: a broken tag must not make the window read
// hundreds of megabytes.
inline constexpr qint64 kMaxPictureBytes = 16 * 1024 * 1024;

// The embedded picture, or empty when the file has none or cannot be opened.
[[nodiscard]] QByteArray embedded(const QString &audioPath);

// A picture in the file's folder: "<file name without suffix>.jpg/.jpeg/.png" first, then
// "cover", "folder", "front" and "album" with those suffixes (case-insensitive). Empty
// when there is none.
[[nodiscard]] QString sidecarPath(const QString &audioPath);

// The embedded picture, else the sidecar's bytes; empty when there is neither.
[[nodiscard]] QByteArray find(const QString &audioPath);

} // namespace CoverArt
