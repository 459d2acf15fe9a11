#include "playback/transitionmath.h"

#include <algorithm>
#include <cmath>

namespace TransitionMath {

double progress(const TransitionPlan &plan, double elapsedSec) noexcept
{
    if (!(plan.fadeDuration > 0))
        return 1;
    return std::clamp(elapsedSec / plan.fadeDuration, 0.0, 1.0);
}

DeckGains fadeGains(const TransitionPlan &plan, double p) noexcept
{
    return { gain(plan.fadeOut, p, false), gain(plan.fadeIn, p, true) };
}

double bassSwapShare(double bassSwapAt, double p) noexcept
{
    const double u = (p - (bassSwapAt - 0.05)) / 0.1;
    return std::isfinite(u) ? std::clamp(u, 0.0, 1.0) : 0.0;
}

BandGains bassSwapGains(double bassSwapAt, double p) noexcept
{
    const double u = bassSwapShare(bassSwapAt, p);
    return { float(u * kBassSwapCutDb), float((1 - u) * kBassSwapCutDb) };
}

bool finished(
    const TransitionPlan &plan, double p, double elapsedSec, std::optional<double> outgoingPositionSec) noexcept
{
    if (p < 1)
        return false;
    if (!outgoingPositionSec || *outgoingPositionSec >= plan.outgoingEnd)
        return true;
    const double grace = plan.fadeDuration <= 0 ? 0.5 : 0.0;
    return elapsedSec >= plan.fadeDuration + grace;
}

double returningRate(double startRate, double durationSec, double elapsedSec) noexcept
{
    if (!(durationSec > 0) || elapsedSec >= durationSec)
        return 1;
    const double t = std::max(0.0, elapsedSec) / durationSec;
    return startRate + (1 - startRate) * t;
}

qint64 frameAt(double seconds, int sampleRate) noexcept
{
    return std::llround(seconds * sampleRate);
}

qint64 framesUntil(double positionSec, double targetSec, double rate, int sampleRate) noexcept
{
    const qint64 fileFrames = frameAt(targetSec, sampleRate) - frameAt(positionSec, sampleRate);
    if (fileFrames <= 0)
        return 0;
    if (rate == 1 || !(rate > 0))
        return fileFrames;
    return qint64(std::ceil(double(fileFrames) / rate));
}

} // namespace TransitionMath
