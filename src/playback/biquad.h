#pragma once

// Second-order IIR sections designed with the formulas of Robert Bristow-Johnson's
// "Audio EQ Cookbook", normalised so that a0 = 1. Pure functions, no state.
namespace Biquad {

struct Coefficients {
    double b0 = 1, b1 = 0, b2 = 0, a1 = 0, a2 = 0;
};

// A bell around `centreHz`; `q` sets its width (sqrt(2) is about one octave).
[[nodiscard]] Coefficients peaking(double sampleRate, double centreHz, double q, double gainDb);
// Everything below about `cornerHz` raised or lowered by `gainDb`; `cornerHz` is where the
// shelf has reached half its gain (in dB). Shelf slope 1: the steepest without a bump.
[[nodiscard]] Coefficients lowShelf(double sampleRate, double cornerHz, double gainDb);

// Magnitude response in dB at `hz`, for tests and for choosing corners.
[[nodiscard]] double responseDb(const Coefficients &c, double sampleRate, double hz);

// Direct form I: the state is the last two inputs and outputs, so a section whose
// coefficients change keeps a meaningful history, and one that starts from a unity filter
// can be primed with the signal it has passed so far.
struct State {
    double x1 = 0, x2 = 0, y1 = 0, y2 = 0;
};

inline float process(const Coefficients &c, State &s, float in)
{
    const double x = in;
    const double y = c.b0 * x + c.b1 * s.x1 + c.b2 * s.x2 - c.a1 * s.y1 - c.a2 * s.y2;
    s.x2 = s.x1;
    s.x1 = x;
    s.y2 = s.y1;
    s.y1 = y;
    return float(y);
}

} // namespace Biquad
