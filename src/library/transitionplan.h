#pragma once

#include "library/fadecurve.h"

#include <QMetaType>

#include <optional>

// What a planner hands the player for one track change. Times are seconds; "outgoing" is
// the track that ends, "incoming" the next one. Planners may return anything; the player
// runs only what sanitized() made of it.
struct TransitionPlan {
    double outgoingStart = 0; // outgoing file position where the incoming deck and the fades start
    double outgoingEnd = 0;   // outgoing file position where the outgoing deck stops
    double incomingStart = 0; // incoming file position where it starts playing
    double fadeDuration = 0;  // length of the overlap the curves run over
    FadeCurve fadeOut = FadeCurve::linear;
    FadeCurve fadeIn = FadeCurve::linear;
    double incomingRate = 1;       // playback rate the incoming deck starts at (1 = own tempo)
    double rateReturnDuration = 0; // time to bring that rate back to 1 after the overlap; 0 = none
    // Fraction (0..1) of the overlap at which the low band moves from the outgoing to the
    // incoming deck, over one tenth of the overlap centred on it; absent = no bass swap.
    std::optional<double> bassSwapAt;

    friend bool operator==(const TransitionPlan &, const TransitionPlan &) = default;
};

// Limits that keep a plan playable whatever a planner computed.
namespace TransitionLimits {
inline constexpr double kMaxFadeDurationSec = 30;
inline constexpr double kMinIncomingRate = 0.92; // tempo matching never changes speed by more than 8 %
inline constexpr double kMaxIncomingRate = 1.08;
inline constexpr double kMaxRateReturnDurationSec = 60;
} // namespace TransitionLimits

// Repairs a plan instead of rejecting it: non-finite values fall back to neutral ones
// (0, the start, rate 1, no bass swap), then every field is limited to its range and the
// outgoing end is kept at or after the outgoing start. Allocates nothing.
[[nodiscard]] TransitionPlan sanitized(const TransitionPlan &plan) noexcept;

Q_DECLARE_METATYPE(TransitionPlan)
