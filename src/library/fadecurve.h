#pragma once

#include <QMetaType>

// The gain shape of one deck over a transition's overlap.
enum class FadeCurve {
    linear,
    equalPower, // constant total power: the middle of a crossfade does not dip
    sCurve,     // smoothstep: slow at both ends
    hold,       // full gain throughout, for a side that must not be faded (a track whose
                // own recording already fades out)
};

// The gain at `progress` through the overlap (0 = start, 1 = end; clamped, NaN counts as
// 0), for the incoming deck when `fadingIn`, else for the outgoing deck. Called from the
// player's tick for both decks: allocates nothing.
[[nodiscard]] float gain(FadeCurve curve, double progress, bool fadingIn) noexcept;

Q_DECLARE_METATYPE(FadeCurve)
