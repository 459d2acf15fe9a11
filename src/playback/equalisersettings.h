#pragma once

#include <QString>
#include <QStringList>

#include <array>
#include <optional>

class AudioEngine;

// The user's graphic equaliser: ten bands at EqualiserBank::kPeakHz and a preamp, with
// the presets offered in the window, kept in the preferences under "ov.eq.".
struct EqualiserSettings {
    static constexpr int kBands = 10;
    static constexpr float kMaxDb = 12.0f; // the sliders' range, either way

    bool enabled = false;
    float preampDb = 0;
    std::array<float, kBands> bandsDb {};

    [[nodiscard]] bool isFlat() const;
    friend bool operator==(const EqualiserSettings &, const EqualiserSettings &) = default;
};

namespace Equaliser {

inline const QString kEnabledKey = QStringLiteral("ov.eq.enabled");
inline const QString kPreampKey = QStringLiteral("ov.eq.preamp"); // dB
inline const QString kBandsKey = QStringLiteral("ov.eq.bands"); // ten dB values, comma-separated
inline const QString kPresetKey = QStringLiteral("ov.eq.preset"); // the preset last chosen, "" when edited

// Preset ids in the order the chooser lists them: flat, bass, treble, vocal, loudness.
[[nodiscard]] QStringList presetIds();
// The bands and preamp of a preset (enabled); absent for an unknown id.
[[nodiscard]] std::optional<EqualiserSettings> preset(const QString &id);
// The preset whose bands and preamp these are; absent when edited by hand.
[[nodiscard]] std::optional<QString> presetOf(const EqualiserSettings &settings);

// Values out of range are clamped; unreadable ones read as 0 dB / off.
[[nodiscard]] EqualiserSettings stored();
void store(const EqualiserSettings &settings);

// Sets the engine's master equaliser: the bands and preamp when enabled, all flat (and
// so bit-exact) when not. Owner thread of the engine.
void apply(AudioEngine &engine, const EqualiserSettings &settings);

} // namespace Equaliser
