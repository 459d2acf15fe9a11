#pragma once

#include <QMetaType>
#include <QString>

#include <array>
#include <optional>

// How the player gets from one track to the next. The raw values are what the
// preferences store, so they never change.
enum class TransitionMode {
    off,       // ordinary stop and start
    gapless,   // sample-exact join using encoder delay and padding
    crossfade, // the end of one track overlaps the start of the next
    automix,   // tempo-matched, bar-aligned mix
};

namespace TransitionModes {

// Every mode in menu order.
inline constexpr std::array<TransitionMode, 4> kAll = {TransitionMode::off, TransitionMode::gapless,
                                                      TransitionMode::crossfade, TransitionMode::automix};

[[nodiscard]] QString rawValue(TransitionMode mode);
// Exact, case-sensitive match of a raw value; absent for anything else.
[[nodiscard]] std::optional<TransitionMode> fromRawValue(const QString &raw);

} // namespace TransitionModes

Q_DECLARE_METATYPE(TransitionMode)
