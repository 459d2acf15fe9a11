#include "playback/biquad.h"

#include <cmath>
#include <complex>
#include <numbers>

namespace Biquad {

Coefficients peaking(double sampleRate, double centreHz, double q, double gainDb)
{
    const double a = std::pow(10.0, gainDb / 40.0);
    const double w0 = 2 * std::numbers::pi * centreHz / sampleRate;
    const double alpha = std::sin(w0) / (2 * q);
    const double cosw = std::cos(w0);
    const double a0 = 1 + alpha / a;
    return Coefficients {
        (1 + alpha * a) / a0,
        -2 * cosw / a0,
        (1 - alpha * a) / a0,
        -2 * cosw / a0,
        (1 - alpha / a) / a0,
    };
}

Coefficients lowShelf(double sampleRate, double cornerHz, double gainDb)
{
    const double a = std::pow(10.0, gainDb / 40.0);
    const double w0 = 2 * std::numbers::pi * cornerHz / sampleRate;
    const double cosw = std::cos(w0);
    const double alpha = std::sin(w0) / 2 * std::sqrt(2.0); // shelf slope S = 1
    const double sqa2alpha = 2 * std::sqrt(a) * alpha;
    const double a0 = (a + 1) + (a - 1) * cosw + sqa2alpha;
    return Coefficients {
        a * ((a + 1) - (a - 1) * cosw + sqa2alpha) / a0,
        2 * a * ((a - 1) - (a + 1) * cosw) / a0,
        a * ((a + 1) - (a - 1) * cosw - sqa2alpha) / a0,
        -2 * ((a - 1) + (a + 1) * cosw) / a0,
        ((a + 1) + (a - 1) * cosw - sqa2alpha) / a0,
    };
}

double responseDb(const Coefficients &c, double sampleRate, double hz)
{
    const std::complex<double> z1 = std::polar(1.0, -2 * std::numbers::pi * hz / sampleRate);
    const std::complex<double> z2 = z1 * z1;
    const std::complex<double> h = (c.b0 + c.b1 * z1 + c.b2 * z2) / (1.0 + c.a1 * z1 + c.a2 * z2);
    return 20 * std::log10(std::abs(h));
}

} // namespace Biquad
