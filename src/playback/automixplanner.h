#pragma once

#include "library/transitionplan.h"
#include "playback/beatanalysis.h"

#include <QFuture>
#include <QString>

#include <functional>
#include <optional>

// The automix transition: the incoming track played at the outgoing one's tempo, its first
// downbeat laid on a downbeat of the outgoing track, an overlap of whole bars near the
// outgoing end with the low band handed over in the middle, and the incoming track brought
// back to its own tempo over a few beats afterwards. Tempi further apart than the sanitiser
// lets a rate move (TransitionLimits) get a plain equal-power crossfade instead.
//
// planFor() is pure; plan() runs the analyses it is not handed on the global thread pool.
namespace AutoMixPlanner {

inline constexpr int kBeatsPerBar = 4;
// The return to the incoming track's own tempo takes this many of its beats.
inline constexpr int kReturnBeats = 8;

struct Side {
    BeatAnalysis::Grid grid;
    double duration = 0; // seconds of the file
};

// The rate that brings `incomingBpm` to `outgoingBpm`, letting the incoming beat fall on
// every beat, every other beat or twice per beat of the outgoing track, whichever needs
// the smallest change; absent when even that leaves the sanitiser's range.
[[nodiscard]] std::optional<double> matchingRate(double outgoingBpm, double incomingBpm);

// The plan from `outgoing` into `incoming` with an overlap of at most `maxSeconds`, ending
// by `outgoingEnd` (the outgoing track's audible end; its duration when absent). Without
// a tempo on either side, or tempi too far apart, a crossfade of up to `maxSeconds`
// starting the incoming track at 0. Absent when neither fits (tracks shorter than a bar).
[[nodiscard]] std::optional<TransitionPlan> planFor(
    const Side &outgoing, const Side &incoming, double maxSeconds, std::optional<double> outgoingEnd = std::nullopt);

// Called on a pool thread with every analysis plan() computed, so that the caller can keep
// it (in the library, posting to its thread).
using AnalysedCallback = std::function<void(const QString &path, const BeatAnalysis::Grid &grid)>;

// Analyses what is not given, then planFor(). Absent when a file cannot be decoded.
[[nodiscard]] QFuture<std::optional<TransitionPlan>> plan(const QString &from, const QString &to, double maxSeconds,
    std::optional<BeatAnalysis::Grid> knownFrom = std::nullopt, std::optional<BeatAnalysis::Grid> knownTo = std::nullopt,
    AnalysedCallback analysed = {});

} // namespace AutoMixPlanner
