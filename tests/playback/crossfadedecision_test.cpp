#include "playback/crossfadeplanner.h"

#include <gtest/gtest.h>

using namespace CrossfadePlanner;

namespace {

Tail tailEndingAt(double audibleEnd, double duration)
{
    return Tail { duration, -12.0f, -57.0f, audibleEnd, audibleEnd, false };
}

Head headFrom(double firstSound, double duration)
{
    return Head { duration, -12.0f, -57.0f, firstSound };
}

// Levels of `seconds` at `db`, as 50 ms blocks.
std::vector<float> span(double seconds, float db)
{
    return std::vector<float>(size_t(std::llround(seconds / kWindowSec)), db);
}

std::vector<float> operator+(std::vector<float> a, const std::vector<float> &b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

} // namespace

TEST(CrossfadeDecision, LimitsFollowTheTracks)
{
    // An incoming track shorter than 6 s is not crossfaded into, nor an outgoing one out of.
    EXPECT_FALSE(decide(tailEndingAt(180, 180), headFrom(0, 5.9), 6));
    EXPECT_FALSE(decide(tailEndingAt(5.9, 5.9), headFrom(0, 180), 6));

    // A third of the outgoing track's audible length: 12 / 3 = 4 s, ending at the audible end.
    const auto third = decide(tailEndingAt(12, 14), headFrom(0, 180), 6);
    ASSERT_TRUE(third);
    EXPECT_DOUBLE_EQ(third->duration, 4);
    EXPECT_DOUBLE_EQ(third->outgoingStart, 8);
    EXPECT_DOUBLE_EQ(third->outgoingEnd, 12);

    // Never before the file's start, and 30 s at most whatever was asked.
    const auto early = decide(tailEndingAt(200, 200), headFrom(0.02, 200), 40);
    ASSERT_TRUE(early);
    EXPECT_DOUBLE_EQ(early->incomingStart, 0);
    EXPECT_DOUBLE_EQ(early->duration, 30);
    EXPECT_DOUBLE_EQ(early->outgoingStart, 170);

    // Sound late in a short file: the start is kept 6 s before its end, the length a third
    // of what remains.
    const auto late = decide(tailEndingAt(200, 200), headFrom(9, 12), 6);
    ASSERT_TRUE(late);
    EXPECT_DOUBLE_EQ(late->incomingStart, 6);
    EXPECT_DOUBLE_EQ(late->duration, 2);

    // 1.2 / 3 = 0.4 s is too short to be a crossfade.
    EXPECT_FALSE(decide(tailEndingAt(1.2, 6), headFrom(0, 180), 6));
    // An audible end past the file's end is an analysis gone wrong.
    EXPECT_FALSE(decide(tailEndingAt(181, 180), headFrom(0, 180), 6));
}

TEST(CrossfadeDecision, PlanHoldsATrackThatFadesByItself)
{
    Result r { 100, 106, 0.5, 6, false };
    TransitionPlan p = planFor(r);
    EXPECT_EQ(p.fadeOut, FadeCurve::equalPower);
    EXPECT_EQ(p.fadeIn, FadeCurve::equalPower);
    EXPECT_DOUBLE_EQ(p.fadeDuration, 6);
    EXPECT_DOUBLE_EQ(p.incomingStart, 0.5);
    EXPECT_DOUBLE_EQ(p.incomingRate, 1);
    EXPECT_FALSE(p.bassSwapAt);
    r.outgoingFades = true;
    EXPECT_EQ(planFor(r).fadeOut, FadeCurve::hold);
}

TEST(CrossfadeLevels, IslandsJoinAcrossShortGaps)
{
    // 1 s loud, 0.2 s dip (shorter than the 0.3 s gap), 1 s loud, 1 s quiet, 0.5 s loud.
    const auto levels = span(1, -10) + span(0.2, -80) + span(1, -6) + span(1, -80) + span(0.5, -20);
    const auto found = islands(levels, -50, 0.3);
    ASSERT_EQ(found.size(), 2u);
    EXPECT_EQ(found[0], (Island { 0, 43, -6 }));
    EXPECT_EQ(found[1], (Island { 64, 73, -20 }));
    EXPECT_EQ(referenceLevel(span(1, -90)), kFloorDb);
    // The 90th percentile: nine blocks at -30, one at -10.
    EXPECT_FLOAT_EQ(referenceLevel(span(0.45, -30) + span(0.05, -10)), -10);
}

TEST(CrossfadeLevels, SmoothingAveragesPowerNotDecibels)
{
    const auto s = smoothed(span(0.25, -10) + span(0.25, -120), 1);
    // At the edge: two loud blocks and one silent one, 10 log10(2/3) under.
    EXPECT_NEAR(s[4], -10 + 10 * std::log10(2.0 / 3.0), 0.01);
    EXPECT_NEAR(s[0], -10, 0.01);
}

TEST(CrossfadeLevels, TailEndings)
{
    // A hard end followed by silence: the end of the last sound, no fade.
    const auto hard = tailFromLevels(span(20, -12) + span(3, -120), 100, 123, -12);
    EXPECT_NEAR(hard.audibleEnd, 120, 1e-9);
    EXPECT_NEAR(hard.silentEnd, 120, 1e-9);
    EXPECT_FALSE(hard.fades);
    EXPECT_FLOAT_EQ(hard.silenceThreshold, -12 - kSilenceMarginDb);

    // The next song's first 2 s after a dip, cut off by the end of the file: the song ends
    // before the dip, the silence only at the very end.
    const auto cut = tailFromLevels(span(20, -12) + span(0.5, -90) + span(2, -14), 100, 122.5, -12);
    EXPECT_NEAR(cut.audibleEnd, 120, 1e-9);
    EXPECT_NEAR(cut.silentEnd, 122.5, 1e-9);
    EXPECT_FALSE(cut.fades);

    // Loud material that stops well before the end is the song's own: not a lead-in.
    const auto coda = tailFromLevels(span(20, -12) + span(0.5, -90) + span(2, -14) + span(1, -120), 100, 123.5, -12);
    EXPECT_NEAR(coda.audibleEnd, 122.5, 1e-9);

    // A fade of 3 dB a second: fading, and over where it is 30 dB down.
    std::vector<float> fade = span(10, -12);
    for (int i = 0; i < 240; ++i)
        fade.push_back(-12.0f - 0.15f * float(i));
    const auto faded = tailFromLevels(fade, 100, 122, -12);
    EXPECT_TRUE(faded.fades);
    EXPECT_NEAR(faded.audibleEnd, 110 + 10, 0.4);

    // The same length of level that does not fall is not a fade.
    EXPECT_FALSE(detectFadeOut(smoothed(span(12, -12), 5), 240, -12));
}

TEST(CrossfadeLevels, HeadFindsTheFirstSustainedSound)
{
    // A click at 0.5 s is not the start; the quiet intro at -47 dB (35 under) is.
    const auto levels = span(0.5, -120) + span(0.05, -20) + span(1, -120) + span(3, -47) + span(5, -12);
    const auto head = headFromLevels(levels, 200, -12);
    EXPECT_NEAR(head.firstSound, 1.55, 1e-9);
}

TEST(CrossfadeLevels, JsonRoundTrip)
{
    const Analysis a { Tail { 181.5, -11.25f, -56.25f, 181.0, 178.35, true }, Head { 181.5, -11.25f, -56.25f, 1.505 } };
    EXPECT_EQ(fromJson(toJson(a)), a);
    EXPECT_FALSE(fromJson("{\"tail\":{},\"head\":{}}"));
    EXPECT_FALSE(fromJson("not json"));
}
