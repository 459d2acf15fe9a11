#include "playback/timestretch.h"

#include "signal.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

constexpr int kRate = 44100;

// Streams `in` through `stretch` the way a deck does and returns all of its output.
std::vector<float> stretchAll(TimeStretch &stretch, const std::vector<float> &in)
{
    std::vector<float> out;
    std::vector<float> block(2 * 1024);
    size_t fed = 0;
    const size_t frames = in.size() / 2;
    bool last = false;
    for (;;) {
        const int ready = stretch.available();
        if (ready > 0) {
            const int n = stretch.retrieve(block.data(), std::min(ready, 1024));
            out.insert(out.end(), block.begin(), block.begin() + 2 * n);
            continue;
        }
        if (ready < 0 || last)
            break;
        const size_t n = std::min<size_t>(size_t(stretch.framesWanted()), frames - fed);
        stretch.feed(in.data() + 2 * fed, int(n));
        fed += n;
        if (fed == frames) {
            stretch.finish();
            last = true;
        }
    }
    return out;
}

} // namespace

TEST(TimeStretch, OutputIsAlignedWithItsInputDespiteTheLatency)
{
    // Half a second of silence, then a tone: after restart() the tone must begin where
    // the rate puts it, not a latency later.
    const int frames = 2 * kRate;
    std::vector<float> in = Signal::sine(1000, kRate, frames);
    std::fill(in.begin(), in.begin() + kRate, 0.0f);
    TimeStretch stretch(kRate, 4096);
    for (const double rate : { 1.0, 0.8 }) {
        stretch.restart(rate);
        const std::vector<float> out = stretchAll(stretch, in);
        const auto loud = std::find_if(out.begin(), out.end(), [](float s) { return std::abs(s) > 0.25f; });
        ASSERT_NE(loud, out.end());
        const double onsetSec = double(loud - out.begin()) / 2 / kRate;
        EXPECT_NEAR(onsetSec, 0.5 / rate, 0.01) << rate;
        // ... and it ends where the rate puts the end, the flush's padding cut off.
        EXPECT_NEAR(double(out.size() / 2) / kRate, 2.0 / rate, 0.005) << rate;
    }
}
