#pragma once

#include "library/transitionplan.h"

#include <QtGlobal>

#include <optional>

// The arithmetic of running a transition, apart from the decks it is applied to, so that
// every number the player sends to the engine can be checked without audio files. Times
// are seconds, host positions are output frames; nothing here allocates.
namespace TransitionMath {

// The low band's cut at a full bass swap.
inline constexpr float kBassSwapCutDb = -24.0f;

// Overlap progress after `elapsedSec` of the overlap: 1 at once for a plan without a fade.
[[nodiscard]] double progress(const TransitionPlan &plan, double elapsedSec) noexcept;

struct DeckGains {
    float outgoing = 1;
    float incoming = 1;
};
// Fader gains of both decks at progress `p`.
[[nodiscard]] DeckGains fadeGains(const TransitionPlan &plan, double p) noexcept;

// How far the low band has moved to the incoming deck at progress `p` (0 = not at all,
// 1 = fully): over a tenth of the overlap centred on `bassSwapAt`.
[[nodiscard]] double bassSwapShare(double bassSwapAt, double p) noexcept;
struct BandGains {
    float outgoingDb = 0;
    float incomingDb = kBassSwapCutDb;
};
[[nodiscard]] BandGains bassSwapGains(double bassSwapAt, double p) noexcept;

// Whether the transition is over: the fade has run its course and the outgoing deck has
// reached its end (or fell silent: no position), or the fade has run its course and the
// time the outgoing deck still had is up (half a second of grace for a join without a
// fade, where the end is the whole point).
[[nodiscard]] bool finished(
    const TransitionPlan &plan, double p, double elapsedSec, std::optional<double> outgoingPositionSec) noexcept;

// Rate of a deck returning from `startRate` to 1 over `durationSec`, `elapsedSec` into the
// return: a straight line that ends on exactly 1.
[[nodiscard]] double returningRate(double startRate, double durationSec, double elapsedSec) noexcept;

// A file position in seconds as the frame the engine counts it as.
[[nodiscard]] qint64 frameAt(double seconds, int sampleRate) noexcept;

// Output frames from a file position to a target (0 when the target has passed) at
// `rate`: exact at rate 1, which is what lets the offline render end a block on the
// frame where a deck ends.
[[nodiscard]] qint64 framesUntil(double positionSec, double targetSec, double rate, int sampleRate) noexcept;

} // namespace TransitionMath
