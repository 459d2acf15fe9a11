#include "playback/automixplanner.h"

#include <QThreadPool>
#include <QtConcurrent/QtConcurrentRun>

#include <algorithm>
#include <cmath>

namespace AutoMixPlanner {

namespace {

// Below this a rate change would drift less than 6 ms over the longest overlap: not worth
// running the time stretcher for.
constexpr double kNegligibleRateChange = 0.0002;
// The incoming track must still have this much after the overlap, or the mix would run
// into its end.
constexpr double kIncomingTailSec = 2;

std::optional<TransitionPlan> crossfade(double outgoingEnd, double incomingDuration, double maxSeconds)
{
    const double length = std::min({ maxSeconds, outgoingEnd, incomingDuration - kIncomingTailSec });
    if (!(length >= 1))
        return std::nullopt;
    TransitionPlan plan;
    plan.outgoingStart = outgoingEnd - length;
    plan.outgoingEnd = outgoingEnd;
    plan.fadeDuration = length;
    plan.fadeOut = FadeCurve::equalPower;
    plan.fadeIn = FadeCurve::equalPower;
    return plan;
}

// Grid index of the latest downbeat at or before `t`.
qint64 downbeatAtOrBefore(const BeatAnalysis::Grid &grid, double t)
{
    const auto k = qint64(std::floor((t - grid.firstBeat) / grid.beatPeriod() + 1e-9));
    const qint64 off = ((k - grid.downbeat) % kBeatsPerBar + kBeatsPerBar) % kBeatsPerBar;
    return k - off;
}

} // namespace

std::optional<double> matchingRate(double outgoingBpm, double incomingBpm)
{
    if (!(outgoingBpm > 0) || !(incomingBpm > 0))
        return std::nullopt;
    double best = 0;
    for (double beatsPerIncomingBeat : { 1.0, 2.0, 0.5 }) {
        const double rate = outgoingBpm / (incomingBpm * beatsPerIncomingBeat);
        if (best == 0 || std::abs(std::log(rate)) < std::abs(std::log(best)))
            best = rate;
    }
    if (best < TransitionLimits::kMinIncomingRate || best > TransitionLimits::kMaxIncomingRate)
        return std::nullopt;
    return std::abs(best - 1) < kNegligibleRateChange ? 1.0 : best;
}

std::optional<TransitionPlan> planFor(
    const Side &outgoing, const Side &incoming, double maxSeconds, std::optional<double> outgoingEnd)
{
    const double end = std::clamp(outgoingEnd.value_or(outgoing.duration), 0.0, outgoing.duration);
    maxSeconds = std::min(maxSeconds, TransitionLimits::kMaxFadeDurationSec);
    const BeatAnalysis::Grid &out = outgoing.grid;
    const BeatAnalysis::Grid &in = incoming.grid;
    const std::optional<double> rate = out.hasTempo() && in.hasTempo() ? matchingRate(out.bpm, in.bpm) : std::nullopt;
    if (!rate)
        return crossfade(end, incoming.duration, maxSeconds);

    const double bar = kBeatsPerBar * out.beatPeriod();
    const double incomingStart = in.beatTime(in.downbeat);
    for (auto bars = qint64(std::floor(maxSeconds / bar + 1e-9)); bars >= 1; --bars) {
        const double overlap = double(bars) * bar;
        // The incoming file runs `rate` times faster than the clock during the overlap.
        if (incomingStart + overlap * *rate + kIncomingTailSec > incoming.duration)
            continue;
        const double start = out.beatTime(downbeatAtOrBefore(out, end - overlap));
        if (start < 0)
            continue;
        TransitionPlan plan;
        plan.outgoingStart = start;
        plan.outgoingEnd = start + overlap;
        plan.incomingStart = incomingStart;
        plan.fadeDuration = overlap;
        plan.fadeOut = FadeCurve::equalPower;
        plan.fadeIn = FadeCurve::equalPower;
        plan.incomingRate = *rate;
        plan.bassSwapAt = 0.5;
        if (*rate != 1)
            plan.rateReturnDuration = kReturnBeats * in.beatPeriod();
        return plan;
    }
    return crossfade(end, incoming.duration, maxSeconds);
}

QFuture<std::optional<TransitionPlan>> plan(const QString &from, const QString &to, double maxSeconds,
    std::optional<BeatAnalysis::Grid> knownFrom, std::optional<BeatAnalysis::Grid> knownTo, AnalysedCallback analysed)
{
    return QtConcurrent::run(QThreadPool::globalInstance(),
        [=]() -> std::optional<TransitionPlan> {
            auto side = [&](const QString &path, const std::optional<BeatAnalysis::Grid> &known) {
                if (known)
                    return known;
                std::optional<BeatAnalysis::Grid> grid = BeatAnalysis::analyse(path);
                if (grid && analysed)
                    analysed(path, *grid);
                return grid;
            };
            const std::optional<BeatAnalysis::Grid> a = side(from, knownFrom);
            if (!a)
                return std::nullopt;
            const std::optional<BeatAnalysis::Grid> b = side(to, knownTo);
            if (!b)
                return std::nullopt;
            return planFor(Side { *a, a->duration }, Side { *b, b->duration }, maxSeconds);
        });
}

} // namespace AutoMixPlanner
