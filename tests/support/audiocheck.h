#pragma once

#include <QList>
#include <QMap>
#include <QString>

#include <optional>
#include <vector>

// Listening to recordings the way a test can: decode them with ffmpeg, tell per short
// window which of a programme's tones sounds, and read the tags back with ffprobe.
// Each call runs one child process to its end on the calling thread.
namespace AudioCheck {

// The rate files are decoded at: ample for tones up to a few kHz, and cheap.
inline constexpr int kRateHz = 8000;

// Mono 16-bit samples at kRateHz; absent (with ffmpeg's complaint in `error`) when the
// file cannot be decoded.
[[nodiscard]] std::optional<std::vector<qint16>> decode(const QString &path, QString *error);

// One label per window of `windowSec`: the index in `tonesHz` of the tone that holds at
// least `minShare` of the window's energy, or -1 (silence, two songs meeting, noise).
[[nodiscard]] std::vector<int> toneLabels(
    const std::vector<qint16> &pcm, const QList<double> &tonesHz, double windowSec, double minShare = 0.6);

// Consecutive windows of one label.
struct Run {
    int label = -1;
    int firstWindow = 0;
    int windows = 0;
};
[[nodiscard]] QList<Run> runs(const std::vector<int> &labels);
// "0.1 s none, 7.4 s #0, 0.9 s #1" for failure messages.
[[nodiscard]] QString describe(const std::vector<int> &labels, double windowSec);

struct ProbeInfo {
    QString formatName; // ffprobe's, e.g. "mp3" or "aac"
    QString audioCodec; // e.g. "mp3", "aac"
    double durationSec = 0;
    QMap<QString, QString> tags; // the container's tags, keys lower-cased
    bool hasCover = false; // an attached picture stream
};
[[nodiscard]] std::optional<ProbeInfo> probe(const QString &path, QString *error);

} // namespace AudioCheck
