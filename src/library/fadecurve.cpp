#include "library/fadecurve.h"

#include <cmath>
#include <numbers>

float gain(FadeCurve curve, double progress, bool fadingIn) noexcept
{
    // Written so that NaN fails both tests and lands on 0.
    const double p = progress > 0 ? (progress < 1 ? progress : 1) : 0;
    switch (curve) {
    case FadeCurve::linear:
        return float(fadingIn ? p : 1 - p);
    case FadeCurve::equalPower:
        return float(fadingIn ? std::sin(p * std::numbers::pi / 2) : std::cos(p * std::numbers::pi / 2));
    case FadeCurve::sCurve: {
        const double s = p * p * (3 - 2 * p);
        return float(fadingIn ? s : 1 - s);
    }
    case FadeCurve::hold:
        return 1.0f;
    }
    return 1.0f;
}
