#pragma once

#include <QByteArray>
#include <QString>

#include <optional>
#include <span>

// EBU R128 loudness of a whole file (libebur128): what normalisation needs to bring tracks
// from different sources to one level without clipping.
//
// Loudness is measured on what the player plays: the decoder's stereo at the file's own
// rate (a mono file counts as the same signal on both speakers, as it sounds).
struct LoudnessAnalysis {
    static constexpr int kVersion = 1;
    // Integrated loudness, LUFS. Absent for a file that is silent (or below the absolute
    // gate of -70 LUFS throughout): there is nothing to bring to any level.
    std::optional<double> integratedLufs;
    // The highest inter-sample peak, dBTP (4x oversampled below 96 kHz); -inf for silence
    // is stored as absent too.
    std::optional<double> truePeakDb;
    double durationSec = 0; // weight of the track in its album's loudness

    friend bool operator==(const LoudnessAnalysis &, const LoudnessAnalysis &) = default;
};

namespace Loudness {

// The analysis kind under which the library keeps it.
inline const QString kKind = QStringLiteral("loudness");
// The ceiling normalisation never pushes a true peak over, dBTP: a margin for the
// inter-sample overshoot of lossy encoders and resamplers after us.
inline constexpr double kPeakCeilingDb = -1.0;

// Decodes the whole file and measures it. Blocking (a 4-minute MP3 takes a few hundred
// milliseconds): any thread but the GUI's. Absent with `error` set when the file cannot be
// decoded.
[[nodiscard]] std::optional<LoudnessAnalysis> analyse(const QString &path, QString *error = nullptr);

[[nodiscard]] QByteArray toJson(const LoudnessAnalysis &analysis);
// Absent for JSON that is not an analysis of this version (then it is made again).
[[nodiscard]] std::optional<LoudnessAnalysis> fromJson(const QByteArray &json);

// The loudness of an album from its tracks': energy averaged, each track weighted by its
// duration (a long track holds more of the album's sound), and the album's peak the
// highest of its tracks'. Silent tracks add no energy and do not dilute the others.
// Absent when no track has a loudness.
[[nodiscard]] std::optional<LoudnessAnalysis> album(std::span<const LoudnessAnalysis> tracks);

// The gain in dB that brings `analysis` to `targetLufs`, limited so that the true peak
// after it stays at or below kPeakCeilingDb: normalisation turns loud tracks down freely
// but raises quiet ones only as far as their peaks allow, so it never clips. 0 for a
// silent track.
[[nodiscard]] double gainDb(const LoudnessAnalysis &analysis, double targetLufs);

} // namespace Loudness

// The background analyser of kind Loudness::kKind: the file's analysis as the JSON the
// library stores; absent when the file cannot be decoded. Any thread but the GUI's.
[[nodiscard]] std::optional<QByteArray> analyseLoudnessJson(const QString &path);
