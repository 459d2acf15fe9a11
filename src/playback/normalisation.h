#pragma once

#include <QString>

#include <optional>

// How the player evens out loudness between tracks, and the preferences that keep the
// user's choice. The gain itself is Loudness::gainDb; this is the choice of which loudness
// (the track's or its album's) and of the target.
enum class NormalisationMode {
    off,   // every track at its own level
    track, // each track to the target on its own
    album, // the album's tracks by one gain, keeping their differences (falls back to
           // track when not every track of the album has been measured)
};

namespace Normalisation {

inline const QString kModeKey = QStringLiteral("ov.player.normalisation"); // "off", "track", "album"
inline const QString kTargetKey = QStringLiteral("ov.player.normalisationTarget"); // LUFS
inline constexpr double kDefaultTargetLufs = -18.0;
// Quieter than -30 LUFS leaves most music needing more headroom than it has; louder than
// -5 is louder than anything mastered.
inline constexpr double kMinTargetLufs = -30.0;
inline constexpr double kMaxTargetLufs = -5.0;

[[nodiscard]] QString rawValue(NormalisationMode mode);
[[nodiscard]] std::optional<NormalisationMode> fromRawValue(const QString &raw);

// The stored choice; off when the key is missing or holds an unknown word.
[[nodiscard]] NormalisationMode storedMode();
void storeMode(NormalisationMode mode);
// The stored target, clamped to the range; the default when missing or not a number.
[[nodiscard]] double storedTarget();
void storeTarget(double lufs);
[[nodiscard]] double clampTarget(double lufs);

} // namespace Normalisation
