#include "playback/transitionmath.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace TransitionMath;

namespace {

TransitionPlan fadePlan(double fadeSec)
{
    TransitionPlan plan;
    plan.outgoingStart = 100;
    plan.outgoingEnd = 104;
    plan.fadeDuration = fadeSec;
    plan.fadeOut = FadeCurve::equalPower;
    plan.fadeIn = FadeCurve::equalPower;
    return plan;
}

} // namespace

TEST(TransitionMath, ProgressOfAFadeAndOfAJoinWithoutOne)
{
    const TransitionPlan fade = fadePlan(4);
    EXPECT_DOUBLE_EQ(progress(fade, -0.1), 0);
    EXPECT_DOUBLE_EQ(progress(fade, 1), 0.25);
    EXPECT_DOUBLE_EQ(progress(fade, 9), 1);
    EXPECT_DOUBLE_EQ(progress(fadePlan(0), 0), 1);

    const DeckGains mid = fadeGains(fade, 0.5);
    EXPECT_NEAR(mid.outgoing, std::sqrt(0.5), 1e-6);
    EXPECT_NEAR(mid.incoming, std::sqrt(0.5), 1e-6);
    EXPECT_FLOAT_EQ(fadeGains(fade, 0).outgoing, 1);
    EXPECT_FLOAT_EQ(fadeGains(fade, 0).incoming, 0);
    EXPECT_NEAR(fadeGains(fade, 1).outgoing, 0, 1e-7);
}

TEST(TransitionMath, BassSwapMovesOverATenthOfTheOverlap)
{
    // Untouched up to 0.45, fully swapped from 0.55, halfway at the swap point.
    for (double p : { 0.0, 0.3, 0.45 }) {
        EXPECT_EQ(bassSwapGains(0.5, p).outgoingDb, 0) << p;
        EXPECT_EQ(bassSwapGains(0.5, p).incomingDb, kBassSwapCutDb) << p;
    }
    for (double p : { 0.55, 0.8, 1.0 }) {
        EXPECT_EQ(bassSwapGains(0.5, p).outgoingDb, kBassSwapCutDb) << p;
        EXPECT_EQ(bassSwapGains(0.5, p).incomingDb, 0) << p;
    }
    EXPECT_NEAR(bassSwapGains(0.5, 0.5).outgoingDb, -12, 1e-4);
    EXPECT_NEAR(bassSwapGains(0.5, 0.5).incomingDb, -12, 1e-4);
    // A swap at the very start is half done when the overlap begins.
    EXPECT_NEAR(bassSwapShare(0, 0), 0.5, 1e-9);
}

TEST(TransitionMath, FinishRule)
{
    const TransitionPlan join = fadePlan(0);
    // Without a fade: done when the outgoing deck is at its end or silent ...
    EXPECT_TRUE(finished(join, 1, 0.0, std::nullopt));
    EXPECT_TRUE(finished(join, 1, 0.0, 104.0));
    // ... or half a second after the start at the latest.
    EXPECT_FALSE(finished(join, 1, 0.49, 103.0));
    EXPECT_TRUE(finished(join, 1, 0.5, 103.0));

    const TransitionPlan fade = fadePlan(4);
    EXPECT_FALSE(finished(fade, 0.99, 3.96, std::nullopt));
    EXPECT_TRUE(finished(fade, 1, 4.0, 103.0));
}

TEST(TransitionMath, RateReturnEndsOnExactlyOne)
{
    EXPECT_DOUBLE_EQ(returningRate(1.06, 8, 0), 1.06);
    EXPECT_DOUBLE_EQ(returningRate(1.06, 8, 4), 1.03);
    EXPECT_DOUBLE_EQ(returningRate(0.94, 8, 6), 0.985);
    EXPECT_EQ(returningRate(1.06, 8, 8), 1.0);
    EXPECT_EQ(returningRate(1.08, 0, 0), 1.0);
}

TEST(TransitionMath, FramesToAFilePosition)
{
    const int rate = 44100;
    // Exact to the frame, even where the seconds are not exact binary fractions.
    EXPECT_EQ(framesUntil(1000.0 / rate, 45100.0 / rate, 1, rate), 44100);
    EXPECT_EQ(framesUntil(123457.0 / rate, 9876543.0 / rate, 1, rate), 9876543 - 123457);
    EXPECT_EQ(framesUntil(2.0, 1.0, 1, rate), 0); // passed
    // At rate 2 the file goes by twice as fast; a part of a frame still takes one.
    EXPECT_EQ(framesUntil(0, 1, 2, rate), rate / 2);
    EXPECT_EQ(framesUntil(0, 3.0 / rate, 2, rate), 2);
}
