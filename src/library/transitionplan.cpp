#include "library/transitionplan.h"

#include <algorithm>
#include <cmath>

namespace {

double finiteOr(double value, double fallback)
{
    return std::isfinite(value) ? value : fallback;
}

} // namespace

TransitionPlan sanitized(const TransitionPlan &plan) noexcept
{
    using namespace TransitionLimits;
    TransitionPlan p = plan;
    p.outgoingStart = std::max(finiteOr(plan.outgoingStart, 0), 0.0);
    p.outgoingEnd = std::max(finiteOr(plan.outgoingEnd, p.outgoingStart), p.outgoingStart);
    p.incomingStart = std::max(finiteOr(plan.incomingStart, 0), 0.0);
    p.fadeDuration = std::max(std::min(finiteOr(plan.fadeDuration, 0), kMaxFadeDurationSec), 0.0);
    p.incomingRate = std::max(std::min(finiteOr(plan.incomingRate, 1), kMaxIncomingRate), kMinIncomingRate);
    p.rateReturnDuration = std::max(std::min(finiteOr(plan.rateReturnDuration, 0), kMaxRateReturnDurationSec), 0.0);
    if (p.bassSwapAt) {
        if (std::isfinite(*p.bassSwapAt))
            p.bassSwapAt = std::max(std::min(*p.bassSwapAt, 1.0), 0.0);
        else
            p.bassSwapAt.reset();
    }
    return p;
}
