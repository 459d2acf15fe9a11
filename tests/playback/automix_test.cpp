#include "library/transitionsettings.h"
#include "playback/audioengine.h"
#include "playback/automixplanner.h"
#include "playback/beatanalysis.h"
#include "playback/player.h"

#include "playbackaudio.h"
#include "testenv.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace PlaybackAudio;

namespace {

constexpr double kFirstClick = 0.25;

// A click track: a 3 ms 1 kHz tick on every beat from kFirstClick on, on the left channel,
// the right channel or both, so that each deck's clicks can be read off its own channel.
bool makeClicks(const QString &path, double bpm, double seconds, const QString &channels = QStringLiteral("both"))
{
    const double period = 60.0 / bpm;
    const QString click = QStringLiteral("if(lt(mod(t+%1\\,%2)\\,0.003)\\,0.8*sin(2*PI*1000*mod(t+%1\\,%2))\\,0)")
                              .arg(period - kFirstClick)
                              .arg(period);
    const QString left = channels == "right" ? QStringLiteral("0") : click;
    const QString right = channels == "left" ? QStringLiteral("0") : click;
    return encode(path,
        { "-f", "lavfi", "-i", QStringLiteral("aevalsrc=%1|%2:s=%3:d=%4").arg(left, right).arg(kRate).arg(seconds),
            "-c:a", "pcm_s16le" });
}

// Output frames (of one channel of an interleaved stereo render) where a click begins:
// the first sample above `threshold` after at least 0.1 s below it.
std::vector<qint64> clickOnsets(const std::vector<float> &stereo, int channel, float threshold)
{
    std::vector<qint64> onsets;
    qint64 quietSince = 0;
    const auto frames = qint64(stereo.size() / 2);
    for (qint64 f = 0; f < frames; ++f) {
        if (std::abs(stereo[size_t(2 * f + channel)]) < threshold)
            continue;
        if (f - quietSince >= kRate / 10)
            onsets.push_back(f);
        quietSince = f;
    }
    return onsets;
}

AutoMixPlanner::Side sideOf(const QString &path)
{
    const std::optional<BeatAnalysis::Grid> grid = BeatAnalysis::analyse(path);
    EXPECT_TRUE(grid);
    return { grid.value_or(BeatAnalysis::Grid {}), grid ? grid->duration : 0 };
}

} // namespace

TEST(BeatAnalysisFiles, ClickTracksGiveTheirTempoAndBeats)
{
    TestHome home;
    for (double bpm : { 120.0, 126.0, 150.0, 174.0 }) {
        const QString path = home.file(QStringLiteral("c%1.wav").arg(bpm));
        ASSERT_TRUE(makeClicks(path, bpm, 12));
        const std::optional<BeatAnalysis::Grid> grid = BeatAnalysis::analyse(path);
        ASSERT_TRUE(grid);
        EXPECT_NEAR(grid->bpm, bpm, 0.5);
        // The grid lies on the clicks, not merely at their tempo.
        const double period = 60.0 / bpm;
        const double phase = std::remainder(grid->firstBeat - kFirstClick, period);
        EXPECT_NEAR(phase, 0, 0.012) << bpm;
        EXPECT_NEAR(grid->duration, 12, 0.01);
        // What the library keeps reads back as the same grid.
        const std::optional<BeatAnalysis::Grid> back = BeatAnalysis::fromJson(BeatAnalysis::toJson(*grid));
        ASSERT_TRUE(back);
        EXPECT_EQ(*back, *grid);
    }
    EXPECT_FALSE(BeatAnalysis::analyse(home.file("missing.wav")));
    EXPECT_FALSE(analyseBeatsJson(home.file("missing.wav")));
}

TEST(BeatAnalysisFiles, BarStartsOnTheAccentedKick)
{
    TestHome home;
    // 120 BPM kicks from 0.25 s, the one on every fourth beat from 1.25 s twice as loud,
    // with hats on the off-beats that must not pull the bar phase.
    const QString kick = QStringLiteral("(0.35+0.45*lt(mod(t+0.75\\,2)\\,0.5))*sin(2*PI*60*mod(t+0.25\\,0.5))"
                                        "*exp(-mod(t+0.25\\,0.5)*15)+0.1*(2*random(0)-1)*exp(-mod(t\\,0.5)*120)");
    ASSERT_TRUE(encode(home.file("band.wav"),
        { "-f", "lavfi", "-i", QStringLiteral("aevalsrc=%1:s=44100:d=16").arg(kick), "-c:a", "pcm_s16le" }));
    const std::optional<BeatAnalysis::Grid> grid = BeatAnalysis::analyse(home.file("band.wav"));
    ASSERT_TRUE(grid);
    EXPECT_NEAR(grid->bpm, 120, 0.5);
    EXPECT_NEAR(std::remainder(grid->beatTime(grid->downbeat) - 1.25, 2.0), 0, 0.02);
}

TEST(BeatAnalysisFiles, SilenceHasNoTempoAndPlansACrossfade)
{
    TestHome home;
    ASSERT_TRUE(encode(home.file("quiet.wav"), { "-f", "lavfi", "-i", "anullsrc=r=44100:cl=stereo", "-t", "12" }));
    ASSERT_TRUE(makeClicks(home.file("c120.wav"), 120, 12));
    const AutoMixPlanner::Side quiet = sideOf(home.file("quiet.wav"));
    EXPECT_FALSE(quiet.grid.hasTempo());
    const std::optional<TransitionPlan> plan = AutoMixPlanner::planFor(sideOf(home.file("c120.wav")), quiet, 8);
    ASSERT_TRUE(plan);
    EXPECT_EQ(plan->incomingRate, 1);
    EXPECT_FALSE(plan->bassSwapAt);
}

TEST(AutoMixPlan, TempiWithinReachAreMatchedOnBars)
{
    TestHome home;
    ASSERT_TRUE(makeClicks(home.file("c120.wav"), 120, 20));
    ASSERT_TRUE(makeClicks(home.file("c126.wav"), 126, 20));
    ASSERT_TRUE(makeClicks(home.file("c150.wav"), 150, 20));
    const AutoMixPlanner::Side a = sideOf(home.file("c120.wav"));
    const AutoMixPlanner::Side b = sideOf(home.file("c126.wav"));

    const std::optional<TransitionPlan> plan = AutoMixPlanner::planFor(a, b, 9);
    ASSERT_TRUE(plan);
    EXPECT_NEAR(plan->incomingRate, 120.0 / 126.0, 0.002);
    // Whole bars of the outgoing track, as many as fit in 9 s, ending by its end.
    EXPECT_NEAR(plan->fadeDuration, 8, 0.02);
    EXPECT_LE(plan->outgoingEnd, a.duration);
    EXPECT_GT(plan->outgoingEnd, a.duration - 2);
    EXPECT_DOUBLE_EQ(plan->outgoingEnd - plan->outgoingStart, plan->fadeDuration);
    // Starts on beats of both tracks.
    EXPECT_NEAR(std::remainder(plan->outgoingStart - kFirstClick, 0.5), 0, 0.012);
    EXPECT_NEAR(std::remainder(plan->incomingStart - kFirstClick, 60.0 / 126), 0, 0.012);
    EXPECT_EQ(plan->bassSwapAt, 0.5);
    EXPECT_NEAR(plan->rateReturnDuration, 8 * 60.0 / 126, 0.05);
    EXPECT_EQ(sanitized(*plan), *plan);

    // 120 against 150 BPM is 25 % apart: a plain crossfade at the track's own speed.
    const std::optional<TransitionPlan> far = AutoMixPlanner::planFor(a, sideOf(home.file("c150.wav")), 9);
    ASSERT_TRUE(far);
    EXPECT_EQ(far->incomingRate, 1);
    EXPECT_EQ(far->rateReturnDuration, 0);
    EXPECT_FALSE(far->bassSwapAt);
    EXPECT_NEAR(far->fadeDuration, 9, 1e-9);
    EXPECT_NEAR(far->outgoingEnd, a.duration, 1e-9);
    EXPECT_EQ(far->incomingStart, 0);
}

TEST(AutoMixPlan, RateArithmetic)
{
    EXPECT_NEAR(*AutoMixPlanner::matchingRate(120, 126), 0.95238, 1e-5);
    EXPECT_EQ(AutoMixPlanner::matchingRate(120, 150), std::nullopt);
    // Half and double time: 90 against 172 plays the incoming at 180 BPM's speed.
    EXPECT_NEAR(*AutoMixPlanner::matchingRate(90, 172), 180.0 / 172, 1e-9);
    EXPECT_NEAR(*AutoMixPlanner::matchingRate(172, 90), 86.0 / 90, 1e-9);
    EXPECT_EQ(AutoMixPlanner::matchingRate(128, 128.01), 1.0);
    EXPECT_EQ(AutoMixPlanner::matchingRate(0, 128), std::nullopt);

    // The overlap never starts before the track and never exceeds what is asked.
    BeatAnalysis::Grid grid { 120, 0.25, 1, 10 };
    const std::optional<TransitionPlan> shortOut = AutoMixPlanner::planFor({ grid, 5 }, { grid, 30 }, 16);
    ASSERT_TRUE(shortOut);
    EXPECT_GE(shortOut->outgoingStart, 0);
    EXPECT_NEAR(shortOut->fadeDuration, 4, 1e-9); // two bars fit between the downbeat at 0.75 s and 5 s
    // The first downbeat is grid beat 1.
    EXPECT_NEAR(shortOut->incomingStart, 0.75, 1e-9);
    EXPECT_FALSE(AutoMixPlanner::planFor({ grid, 0.5 }, { grid, 0.5 }, 16));
}

// The whole path: planned by the real planner, run by the executor, rendered offline.
TEST(AutoMixRender, ClickTrainsCoincideDuringTheOverlapAndTheRateReturns)
{
    TestHome home;
    ASSERT_TRUE(makeClicks(home.file("out.wav"), 120, 16, "left"));
    ASSERT_TRUE(makeClicks(home.file("in.wav"), 126, 16, "right"));
    AudioEngine engine { AudioEngine::Options { AudioEngine::Output::offline, kRate, 512 } };
    TransitionSettings settings;
    Player player { engine, settings, nullptr };
    player.setModeOverride(TransitionMode::automix);
    std::optional<TransitionPlan> planned;
    player.setPlanner(TransitionMode::automix, [&](const Track &from, const Track &to) {
        return AutoMixPlanner::plan(*from.filePath, *to.filePath, 6).then([&](std::optional<TransitionPlan> plan) {
            planned = plan;
            return plan;
        });
    });
    QList<Track> queue;
    for (const QString name : { "out", "in" }) {
        Track t;
        t.title = name;
        t.filePath = home.file(name + QStringLiteral(".wav"));
        queue << t;
    }
    player.setQueue(queue);
    QString error;
    ASSERT_TRUE(player.renderQueue(home.file("render.wav"), &error)) << error.toStdString();
    ASSERT_TRUE(planned);
    const TransitionPlan plan = *planned;
    ASSERT_NEAR(plan.incomingRate, 120.0 / 126, 0.002);
    ASSERT_GT(plan.rateReturnDuration, 0);

    const std::vector<float> out = readFloatWav(home.file("render.wav"));
    const std::vector<qint64> left = clickOnsets(out, 0, 0.01f);
    const std::vector<qint64> right = clickOnsets(out, 1, 0.01f);
    const auto overlapFrom = qint64(plan.outgoingStart * kRate);
    // The outgoing fade reaches silence at the overlap's end, so its last click there may be
    // too quiet to find: compare up to half a beat before.
    const auto overlapTo = qint64((plan.outgoingEnd - 0.25) * kRate);
    int matched = 0;
    for (qint64 r : right) {
        if (r < overlapFrom || r >= overlapTo)
            continue;
        qint64 nearest = std::numeric_limits<qint64>::max();
        for (qint64 l : left)
            nearest = std::min(nearest, std::abs(l - r));
        EXPECT_LE(double(nearest) / kRate, 0.010) << "incoming click at " << double(r) / kRate << " s";
        ++matched;
    }
    // Everything but the first beat or two, which the fade-in keeps below the threshold,
    // and the last.
    EXPECT_GE(matched, int(plan.fadeDuration / 0.5) - 3);

    // After the return the incoming clicks are 60/126 s apart again.
    const double returned = plan.outgoingEnd + plan.rateReturnDuration + 0.2;
    int steady = 0;
    for (size_t i = 1; i < right.size(); ++i) {
        if (double(right[i - 1]) / kRate < returned)
            continue;
        EXPECT_NEAR(double(right[i] - right[i - 1]) / kRate, 60.0 / 126, 0.001);
        ++steady;
    }
    EXPECT_GE(steady, 4);
}
