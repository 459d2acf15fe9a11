#pragma once

#include <QByteArray>
#include <QString>

#include <optional>
#include <span>
#include <vector>

// Tempo, beat grid and bar phase of a track, for mixes that line beats and bars up.
//
// Onsets (complex spectral difference) and beats come from qm-dsp's TempoTrackV2, which
// measured more accurately than aubio on click tracks and made-up band music; the beats
// it finds are then fitted with one steady grid, which is what a mix needs and what
// averages the tracker's frame quantisation away. The first beat of the bar is the grid
// phase (of four) whose beats carry the most low-band energy: the kick that opens a bar.
//
// Stateless; every function may run on any thread. analyse() decodes the whole file
// (through AudioDecoder, downsampled for the analysis), so it belongs on a worker thread.
namespace BeatAnalysis {

// The analysis runs at this rate: onsets need nothing above 5 kHz.
inline constexpr int kAnalysisRate = 11025;
// Tempi are folded by octaves into this range, so a tracker that locked onto half or
// double time still reports the tempo a listener would tap.
inline constexpr double kMinBpm = 88;
inline constexpr double kMaxBpm = 176;

struct Grid {
    double bpm = 0;       // 0 when the track has no steady beat
    double firstBeat = 0; // seconds: the grid's earliest beat in the file (>= 0)
    int downbeat = 0;     // 0..3: the grid beat (counted from firstBeat) that opens the first bar
    double duration = 0;  // seconds of audio analysed

    [[nodiscard]] bool hasTempo() const { return bpm > 0; }
    [[nodiscard]] double beatPeriod() const { return bpm > 0 ? 60.0 / bpm : 0; }
    // Seconds of grid beat k (k may be negative or past the end).
    [[nodiscard]] double beatTime(qint64 k) const { return firstBeat + double(k) * beatPeriod(); }
    [[nodiscard]] bool isDownbeat(qint64 k) const { return ((k - downbeat) % 4 + 4) % 4 == 0; }
    // The beats of the grid inside the file.
    [[nodiscard]] std::vector<double> beats() const;

    friend bool operator==(const Grid &, const Grid &) = default;
};

// The grid of mono samples at `rate` (kAnalysisRate is what the tracker is tuned for).
// A grid without tempo when no steady beat is found; pure.
[[nodiscard]] Grid analyseSamples(std::span<const float> mono, int rate);

// Decodes `path` and analyses it; absent with `error` set when the file cannot be decoded.
[[nodiscard]] std::optional<Grid> analyse(const QString &path, QString *error = nullptr);

// The library's "beats" analysis: {"bpm", "firstBeat", "downbeat", "duration", "beats"}
// ("beats": the grid's beat times for readers that want a list). fromJson reads only the
// first four and is absent when they are missing or out of range.
[[nodiscard]] QByteArray toJson(const Grid &grid);
[[nodiscard]] std::optional<Grid> fromJson(const QByteArray &json);

// Fits one steady grid to tracked beat times (seconds, ascending): least squares over the
// beats numbered by the median interval, dropping beats off the grid by more than a
// quarter beat and fitting again. Tempo 0 with fewer than eight beats. Pure.
[[nodiscard]] Grid fitGrid(std::span<const double> beats);

} // namespace BeatAnalysis

// The library's analyser for the kind "beats": analyse() as JSON, absent when the file
// cannot be decoded. For the background analysis queue.
[[nodiscard]] std::optional<QByteArray> analyseBeatsJson(const QString &path);
