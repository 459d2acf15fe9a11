#include "library/transitionsettings.h"
#include "playback/audioengine.h"
#include "playback/mixstate.h"
#include "playback/player.h"

#include "playbackaudio.h"
#include "testenv.h"

#include <QSignalSpy>
#include <QtConcurrent>

#include <gtest/gtest.h>

#include <cmath>

using namespace PlaybackAudio;

namespace {

// Two six-second tracks whose decks can be told apart in the mix: the outgoing one
// sounds only on the left (0.25), the incoming one only on the right (0.5). Plans are
// handed to the player through the crossfade mode's planner slot.
class Executor : public ::testing::Test {
protected:
    static constexpr qint64 kTrackFrames = 6 * kRate;
    // The render's tick period (renderQueue's block) and the fader's ramp over one block.
    static constexpr qint64 kBlock = kRate / 64;

    void SetUp() override
    {
        ASSERT_TRUE(makeLevels(home.file("out.wav"), 0.25, 0, kTrackFrames));
        ASSERT_TRUE(makeLevels(home.file("in.wav"), 0, 0.5, kTrackFrames));
        player.setModeOverride(TransitionMode::crossfade);
    }

    QList<Track> tracks() const
    {
        QList<Track> list;
        for (const QString name : { "out", "in" }) {
            Track t;
            t.title = name;
            t.filePath = home.file(name + QStringLiteral(".wav"));
            list << t;
        }
        return list;
    }

    void usePlan(const TransitionPlan &plan)
    {
        player.setPlanner(TransitionMode::crossfade,
            [plan](const Track &, const Track &) { return QtFuture::makeReadyFuture(std::optional(plan)); });
    }

    std::vector<float> render()
    {
        player.setQueue(tracks());
        QString error;
        EXPECT_TRUE(player.renderQueue(home.file("render.wav"), &error)) << error.toStdString();
        return readFloatWav(home.file("render.wav"));
    }

    // Renders one tick period the way renderQueue does, by hand.
    void step()
    {
        player.transitionTick();
        std::vector<float> block(size_t(2 * kBlock));
        engine.renderOffline(block.data(), kBlock);
    }

    static TransitionPlan fadePlan(double startSec, double fadeSec)
    {
        TransitionPlan plan;
        plan.outgoingStart = startSec;
        plan.outgoingEnd = startSec + fadeSec;
        plan.fadeDuration = fadeSec;
        plan.fadeOut = FadeCurve::equalPower;
        plan.fadeIn = FadeCurve::equalPower;
        return plan;
    }

    TestHome home;
    AudioEngine engine { AudioEngine::Options { AudioEngine::Output::offline, kRate, 512 } };
    TransitionSettings settings;
    Player player { engine, settings, nullptr };
};

// Fader gain of a deck at output frame f of a fade that began on `start`, lasting
// `fadeFrames`: the tick sets it at block boundaries and the engine ramps to it over the
// next block, so it lies between the curve's value now and two blocks ago.
struct GainBounds {
    double low, high;
};
GainBounds fadeBounds(bool fadingIn, qint64 f, qint64 start, qint64 fadeFrames, qint64 block)
{
    auto curve = [&](qint64 frame) {
        const double p = std::clamp(double(frame - start) / double(fadeFrames), 0.0, 1.0);
        return fadingIn ? std::sin(p * M_PI / 2) : std::cos(p * M_PI / 2);
    };
    const double now = curve(f), before = curve(f - 2 * block);
    return { std::min(now, before) - 1e-6, std::max(now, before) + 1e-6 };
}

} // namespace

TEST_F(Executor, JoinWithoutFadeSwitchesDecksOnTheStartFrame)
{
    TransitionPlan plan;
    plan.outgoingStart = plan.outgoingEnd = 3.0;
    plan.incomingStart = 1.0;
    usePlan(plan);
    QSignalSpy started(&player, &Player::transitionStarted);
    QSignalSpy changed(&player, &Player::currentTrackChanged);
    const std::vector<float> out = render();

    ASSERT_EQ(qint64(out.size()), 2 * (3 * kRate + 5 * kRate));
    const qint64 join = 3 * kRate;
    for (qint64 f = 0; f < qint64(out.size()) / 2; ++f) {
        const bool outgoing = f < join;
        ASSERT_EQ(out[size_t(2 * f)], outgoing ? 0.25f : 0.0f) << "frame " << f;
        ASSERT_EQ(out[size_t(2 * f + 1)], outgoing ? 0.0f : 0.5f) << "frame " << f;
    }
    ASSERT_EQ(started.size(), 1);
    EXPECT_EQ(started[0][1].value<TransitionPlan>(), sanitized(plan));
    ASSERT_EQ(changed.size(), 3); // the first track, the adopted one, nothing at the end
    EXPECT_EQ(changed[1][1].toInt(), 1);
}

TEST_F(Executor, EqualPowerFadeMovesBothFadersAlongTheOverlap)
{
    usePlan(fadePlan(1.5, 4));
    const std::vector<float> out = render();
    const qint64 start = qint64(1.5 * kRate), fade = 4 * kRate;
    ASSERT_EQ(qint64(out.size()), 2 * (start + kTrackFrames));
    for (qint64 f = 0; f < start; ++f) {
        ASSERT_EQ(out[size_t(2 * f)], 0.25f) << f;
        ASSERT_EQ(out[size_t(2 * f + 1)], 0.0f) << f;
    }
    // The incoming deck begins silent on the start frame.
    EXPECT_EQ(out[size_t(2 * start + 1)], 0.0f);
    for (qint64 f = start; f < start + fade; ++f) {
        const GainBounds o = fadeBounds(false, f, start, fade, kBlock);
        const GainBounds i = fadeBounds(true, f, start, fade, kBlock);
        ASSERT_GE(out[size_t(2 * f)] / 0.25, o.low) << f;
        ASSERT_LE(out[size_t(2 * f)] / 0.25, o.high) << f;
        ASSERT_GE(out[size_t(2 * f + 1)] / 0.5, i.low) << f;
        ASSERT_LE(out[size_t(2 * f + 1)] / 0.5, i.high) << f;
    }
    // Both at -3 dB in the middle: the sum of powers does not dip.
    const size_t mid = size_t(2 * (start + fade / 2));
    EXPECT_NEAR(std::pow(out[mid] / 0.25, 2) + std::pow(out[mid + 1] / 0.5, 2), 1.0, 0.02);
    for (qint64 f = start + fade + 2 * kBlock; f < qint64(out.size()) / 2; ++f) {
        ASSERT_EQ(out[size_t(2 * f)], 0.0f) << f;
        ASSERT_EQ(out[size_t(2 * f + 1)], 0.5f) << f;
    }
}

TEST_F(Executor, BassSwapHandsTheLowBandOverAtItsPoint)
{
    TransitionPlan plan = fadePlan(1.5, 4);
    plan.bassSwapAt = 0.5;
    usePlan(plan);
    const std::vector<float> out = render();
    const qint64 start = qint64(1.5 * kRate), fade = 4 * kRate;
    ASSERT_EQ(qint64(out.size()), 2 * (start + kTrackFrames));
    const double cut = std::pow(10.0, -24.0 / 20); // the whole shelf at 0 Hz
    auto frameAt = [&](double p) { return start + qint64(p * double(fade)); };
    // Up to p = 0.45 the outgoing deck's low band is untouched (to the sample) and the
    // incoming deck's is cut; from 0.55 on the other way round (after the filter's ramp).
    for (qint64 f = frameAt(0.02); f < frameAt(0.45); ++f) {
        const GainBounds o = fadeBounds(false, f, start, fade, kBlock);
        const GainBounds i = fadeBounds(true, f, start, fade, kBlock);
        ASSERT_GE(out[size_t(2 * f)] / 0.25, o.low) << f;
        ASSERT_LE(out[size_t(2 * f)] / 0.25, o.high) << f;
        ASSERT_NEAR(out[size_t(2 * f + 1)] / 0.5, cut * (i.low + i.high) / 2, 0.15 * cut + (i.high - i.low)) << f;
    }
    for (qint64 f = frameAt(0.6); f < frameAt(0.95); ++f) {
        const GainBounds o = fadeBounds(false, f, start, fade, kBlock);
        const GainBounds i = fadeBounds(true, f, start, fade, kBlock);
        ASSERT_NEAR(out[size_t(2 * f)] / 0.25, cut * (o.low + o.high) / 2, 0.15 * cut + (o.high - o.low)) << f;
        ASSERT_GE(out[size_t(2 * f + 1)] / 0.5, i.low) << f;
        ASSERT_LE(out[size_t(2 * f + 1)] / 0.5, i.high) << f;
    }
    // After the overlap the incoming deck is flat again.
    const size_t late = size_t(2 * (start + fade + kRate));
    EXPECT_EQ(out[late + 1], 0.5f);
}

TEST_F(Executor, TickBeforeTheStartChangesNothing)
{
    TransitionPlan plan;
    plan.outgoingStart = plan.outgoingEnd = 2.0;
    usePlan(plan);
    QSignalSpy changed(&player, &Player::currentTrackChanged);
    player.playQueue(tracks());
    while (!player.mixState().active && engine.hostFrame() < quint64(3 * kRate))
        step();
    ASSERT_TRUE(player.mixState().active);
    const ActiveTransition active = *player.mixState().active;
    // Scheduled a second ahead, on the frame the outgoing deck reaches the start.
    EXPECT_EQ(active.startHost, quint64(2 * kRate));
    EXPECT_LT(engine.hostFrame(), active.startHost);
    for (int i = 0; i < 5; ++i)
        player.transitionTick();
    EXPECT_FALSE(player.mixState().active->adopted);
    EXPECT_EQ(player.currentIndex(), 0);
    EXPECT_EQ(player.currentDeck(), active.outgoing);
    EXPECT_EQ(changed.size(), 1);
    EXPECT_EQ(engine.state(active.incoming), AudioEngine::DeckState::playing);
    EXPECT_FALSE(engine.position(active.incoming)); // scheduled, not sounding

    while (engine.hostFrame() < active.startHost)
        step();
    player.transitionTick();
    EXPECT_EQ(player.currentIndex(), 1);
    EXPECT_EQ(player.currentDeck(), active.incoming);
    EXPECT_EQ(changed.size(), 2);
}

TEST_F(Executor, RateReturnRampsBackToExactlyOne)
{
    TransitionPlan plan = fadePlan(2, 1);
    plan.incomingRate = 1.06;
    plan.rateReturnDuration = 2;
    usePlan(plan);
    player.playQueue(tracks());
    while (!player.mixState().active)
        step();
    const int incoming = player.mixState().active->incoming;
    EXPECT_DOUBLE_EQ(engine.rate(incoming), 1.06);
    while (player.mixState().active)
        step();
    ASSERT_TRUE(player.mixState().rateReturn);
    const quint64 from = player.mixState().rateReturn->startHost;
    double last = engine.rate(incoming);
    while (player.mixState().rateReturn && engine.hostFrame() < from + quint64(3 * kRate)) {
        step();
        const double rate = engine.rate(incoming);
        const double t = double(engine.hostFrame() - from) / kRate;
        // Linear over two seconds, one tick behind at most.
        EXPECT_LE(rate, last);
        EXPECT_NEAR(rate, std::max(1.0, 1.06 - 0.03 * t), 0.03 * double(2 * kBlock) / kRate);
        last = rate;
    }
    EXPECT_FALSE(player.mixState().rateReturn);
    EXPECT_EQ(engine.rate(incoming), 1.0);
    EXPECT_GE(engine.hostFrame(), from + quint64(2 * kRate));
}
