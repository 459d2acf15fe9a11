#pragma once

#include <QByteArrayView>
#include <QString>

#include <optional>
#include <vector>

// Durations of MP3 and ADTS AAC data by walking their frame headers, the way a player
// counts what it will play. Saving a song needs its length for the minimum-length rule
// and the library; starting ffmpeg for that costs more than the whole recording of the
// song, and ffmpeg's format guess fails on short files that begin inside a frame, which
// is how every byte-exact cut begins.
namespace AudioFrames {

enum class Format { Mp3, Adts };

// A stretch of consecutive whole frames: [offset, offset + bytes).
struct Run {
    qint64 offset = 0;
    qint64 bytes = 0;
    friend bool operator==(const Run &, const Run &) = default;
};

struct Walk {
    qint64 frames = 0;
    double durationSec = 0;
    qint64 firstFrameOffset = -1; // where the first frame begins (after a tag or a partial frame)
    // Every byte that holds a counted frame, in order; what lies between (tags, damage,
    // a web page, the partial frames at a cut) is in none of them.
    std::vector<Run> runs;
    [[nodiscard]] qint64 audioBytes() const;
};

// Walks `data` from its first run of consecutive frames to its last whole frame, skipping
// an ID3v2 tag in front, resynchronising after damage and leaving out an encoder's
// Xing/Info header frame. Absent when no run of frames is found.
[[nodiscard]] std::optional<Walk> walk(QByteArrayView data, Format format);

// The format a file's extension names ("mp3", "aac"); absent for anything else.
[[nodiscard]] std::optional<Format> formatOf(const QString &path);

// The walk of a whole file (mapped, not read: a show runs to hundreds of megabytes).
// Absent for other formats and for files that cannot be read or hold no frames.
[[nodiscard]] std::optional<Walk> walkFile(const QString &path);

// The same, only the duration.
[[nodiscard]] std::optional<double> fileDurationSec(const QString &path);

} // namespace AudioFrames
