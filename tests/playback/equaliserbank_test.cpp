#include "playback/equaliserbank.h"

#include "signal.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {

constexpr int kRate = 44100;

// Runs `signal` through `bank` in blocks of `block` frames, calling `between(blockIndex)`
// before each block.
template <typename F> std::vector<float> run(EqualiserBank &bank, std::vector<float> signal, int block, F between)
{
    const int frames = int(signal.size() / 2);
    for (int at = 0, index = 0; at < frames; at += block, ++index) {
        between(index);
        bank.process(signal.data() + 2 * at, std::min(block, frames - at));
    }
    return signal;
}

// Largest jump between neighbouring left samples, a click detector for smooth signals.
float largestStep(const std::vector<float> &s)
{
    float step = 0;
    for (size_t i = 2; i < s.size(); i += 2)
        step = std::max(step, std::abs(s[i] - s[i - 2]));
    return step;
}

} // namespace

TEST(EqualiserBank, FlatOrBypassedBandsLeaveTheSamplesBitForBit)
{
    const std::vector<float> in = Signal::sine(440, kRate, 20000);
    EqualiserBank bank(kRate);
    bank.reset();
    std::vector<float> out = run(bank, in, 512, [](int) {});
    EXPECT_EQ(std::memcmp(out.data(), in.data(), in.size() * sizeof(float)), 0);

    // A band that was turned down, bypassed and then brought back to 0 dB leaves nothing
    // behind once its crossfade is over.
    out = run(bank, in, 512, [&](int block) {
        if (block == 2)
            bank.setGain(3, -9);
        if (block == 5)
            bank.setBypass(3, true);
        if (block == 6)
            bank.setGain(3, 0);
        if (block == 7)
            bank.setBypass(3, false);
    });
    const size_t settled = size_t(2 * 512 * 8);
    EXPECT_NE(std::memcmp(out.data(), in.data(), settled * sizeof(float)), 0);
    EXPECT_EQ(std::memcmp(out.data() + settled, in.data() + settled, (in.size() - settled) * sizeof(float)), 0);
}

TEST(EqualiserBank, PeakingBandsLiftTheirOwnCentreOnly)
{
    for (int band = 0; band < 10; ++band) {
        const double hz = EqualiserBank::kPeakHz[size_t(band)];
        const Biquad::Coefficients c = Biquad::peaking(kRate, hz, EqualiserBank::kPeakQ, 6);
        EXPECT_NEAR(Biquad::responseDb(c, kRate, hz), 6.0, 0.01) << band;
        EXPECT_NEAR(Biquad::responseDb(c, kRate, hz * 8), 0.0, 0.3) << band;
    }
}

TEST(EqualiserBank, GainChangesCrossfadeInsteadOfClicking)
{
    // The bass kill thrown in mid-tone, and pulled out again in a later block: a 60 Hz
    // tone moves by about 0.004 per sample, so any step far above that is a click.
    const std::vector<float> in = Signal::sine(60, kRate, 40 * 512);
    EqualiserBank bank(kRate);
    bank.reset();
    const std::vector<float> out = run(bank, in, 512, [&](int block) {
        if (block == 10)
            bank.setGain(EqualiserBank::kBassBand, -24);
        if (block == 25)
            bank.setGain(EqualiserBank::kBassBand, 0);
    });
    EXPECT_LT(largestStep(out), 2 * largestStep(in));
    EXPECT_LT(Signal::rmsDb(out, 20 * 512, 25 * 512) - Signal::rmsDb(in, 20 * 512, 25 * 512), -20.0);
    EXPECT_EQ(std::memcmp(out.data() + 2 * 27 * 512, in.data() + 2 * 27 * 512, 2 * 13 * 512 * sizeof(float)), 0);
}
