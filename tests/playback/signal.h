#pragma once

#include <cmath>
#include <numbers>
#include <span>
#include <vector>

// Test signals and measurements on interleaved stereo float frames.
namespace Signal {

inline std::vector<float> sine(double hz, int rate, int frames, float amplitude = 0.5f)
{
    std::vector<float> out(size_t(2 * frames));
    for (int i = 0; i < frames; ++i)
        out[size_t(2 * i)] = out[size_t(2 * i + 1)] = amplitude * float(std::sin(2 * std::numbers::pi * hz * i / rate));
    return out;
}

// RMS of the left channel over frames [from, to), in dB full scale.
inline double rmsDb(std::span<const float> stereo, size_t from, size_t to)
{
    double sum = 0;
    for (size_t i = from; i < to; ++i)
        sum += double(stereo[2 * i]) * stereo[2 * i];
    return 10 * std::log10(sum / double(to - from) + 1e-30);
}

// The frequency of a steady tone on the left channel over frames [from, to), from its
// upward zero crossings (interpolated between samples).
inline double toneHz(std::span<const float> stereo, size_t from, size_t to, int rate)
{
    double first = -1, last = -1;
    int crossings = 0;
    for (size_t i = from + 1; i < to; ++i) {
        const float a = stereo[2 * (i - 1)], b = stereo[2 * i];
        if (a < 0 && b >= 0) {
            const double at = double(i - 1) + a / (a - b);
            if (first < 0)
                first = at;
            last = at;
            ++crossings;
        }
    }
    return crossings > 1 ? (crossings - 1) * rate / (last - first) : 0.0;
}

} // namespace Signal
