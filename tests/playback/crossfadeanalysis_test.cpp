#include "playbackaudio.h"
#include "testenv.h"

#include "library/librarystore.h"
#include "library/transitionsettings.h"
#include "playback/audioengine.h"
#include "playback/crossfadeplanner.h"
#include "playback/player.h"

#include <QDateTime>
#include <QSignalSpy>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cmath>

using namespace CrossfadePlanner;

namespace {

class CrossfadeAnalysis : public ::testing::Test {
protected:
    void SetUp() override { AnalysisCache::shared().clear(); }

    // A 16-bit stereo WAV of what the lavfi `source` makes, through the filter `filter`.
    QString make(const char *name, const QString &source, const QString &filter = QString())
    {
        const QString path = m_dir.filePath(QString::fromLatin1(name));
        QStringList args { "-f", "lavfi", "-i", source };
        if (!filter.isEmpty())
            args << "-af" << filter;
        args << "-ac"
             << "2"
             << "-ar" << QString::number(PlaybackAudio::kRate) << "-c:a"
             << "pcm_s16le";
        QString error;
        EXPECT_TRUE(PlaybackAudio::encode(path, args, &error)) << error.toStdString();
        return path;
    }

    QString sine(const char *name, double seconds, const QString &filter = QString())
    {
        return make(name, QStringLiteral("sine=f=440:sample_rate=44100:d=%1").arg(seconds), filter);
    }

    QTemporaryDir m_dir;
};

} // namespace

TEST_F(CrossfadeAnalysis, EndingsAreFoundInTheRecording)
{
    // 10 s of noise fading out over 10 s: a fade, over before its last inaudible second.
    const auto fading = analyzeFile(make(
        "fade.wav", QStringLiteral("anoisesrc=d=20:c=pink:a=0.3:seed=3"), QStringLiteral("afade=t=out:st=10:d=10")));
    ASSERT_TRUE(fading);
    EXPECT_TRUE(fading->tail.fades);
    EXPECT_GT(fading->tail.audibleEnd, 15.0);
    EXPECT_LT(fading->tail.audibleEnd, 19.9);
    EXPECT_NEAR(fading->tail.duration, 20, 0.001);

    // A hard end after 8 s, then 3 s of silence: the end of the last sound, to a few ms.
    const auto hard = analyzeFile(sine("hard.wav", 8, QStringLiteral("apad=pad_dur=3")));
    ASSERT_TRUE(hard);
    EXPECT_FALSE(hard->tail.fades);
    EXPECT_NEAR(hard->tail.audibleEnd, 8.0, 0.01);
    EXPECT_NEAR(hard->tail.duration, 11.0, 0.001);

    // A radio cut: the song ends at 8 s, half a second of silence, then 3 s of the next
    // song until the file ends. Its own end is where the song ended.
    const auto cut = analyzeFile(make("cut.wav",
        QStringLiteral(
            "aevalsrc='if(lt(t,8),0.3*sin(2*PI*330*t),if(lt(t,8.5),0,0.3*sin(2*PI*550*t)))':s=44100:d=11.5")));
    ASSERT_TRUE(cut);
    EXPECT_NEAR(cut->tail.audibleEnd, 8.0, 0.01);
    EXPECT_NEAR(cut->tail.silentEnd, 11.5, 0.01);
    EXPECT_FALSE(cut->tail.fades);
}

TEST_F(CrossfadeAnalysis, StartsAreFoundInTheRecording)
{
    const auto late = analyzeFile(sine("late.wav", 8, QStringLiteral("adelay=1500:all=1")));
    ASSERT_TRUE(late);
    EXPECT_NEAR(late->head.firstSound, 1.5, 0.01);

    // An intro 35 dB under the rest of the track is music, not silence.
    const auto quiet = analyzeFile(
        make("quiet.wav", QStringLiteral("aevalsrc='0.5*sin(2*PI*440*t)*if(lt(t,3),0.01778,1)':s=44100:d=10")));
    ASSERT_TRUE(quiet);
    EXPECT_LT(quiet->head.firstSound, 0.01);
    // The reference is the loud part's, and the intro lies above the silence threshold.
    EXPECT_GT(quiet->head.reference, -15.0f);
    EXPECT_LT(quiet->head.silenceThreshold, quiet->head.reference - 35.0f);

    // The plan into it starts at 0 and out of the fade holds the outgoing deck.
    const auto fading = make(
        "fade.wav", QStringLiteral("anoisesrc=d=20:c=pink:a=0.3:seed=3"), QStringLiteral("afade=t=out:st=10:d=10"));
    const auto plan = planNow(fading,
        make("quiet2.wav", QStringLiteral("aevalsrc='0.5*sin(2*PI*440*t)*if(lt(t,3),0.01778,1)':s=44100:d=10")), 6);
    ASSERT_TRUE(plan);
    EXPECT_EQ(plan->fadeOut, FadeCurve::hold);
    EXPECT_DOUBLE_EQ(plan->incomingStart, 0);
    EXPECT_NEAR(plan->fadeDuration, 10.0 / 3, 0.01); // a third of the incoming track
    EXPECT_FALSE(analysis(m_dir.filePath(QStringLiteral("missing.wav"))));
}

TEST_F(CrossfadeAnalysis, StoredAnalysesAreUsedInsteadOfDecoding)
{
    const QString a = sine("a.wav", 8, QStringLiteral("apad=pad_dur=1"));
    const QString b = sine("b.wav", 8, QStringLiteral("adelay=500:all=1"));
    LibraryOpenResult opened = LibraryStore::open(m_dir.filePath(QStringLiteral("library.sqlite")));
    ASSERT_TRUE(opened) << opened.message.toStdString();
    LibraryStore &library = *opened.store;
    QSignalSpy stored(&library, &LibraryStore::analysisStored);
    const auto planner = playerPlanner(&library, [] { return 6.0; });
    const auto track = [](const QString &path) {
        return Track(path, {}, {}, 9, QDateTime::currentDateTime(), {}, false, 0, "radio", {}, path);
    };
    const auto kind = QString::fromLatin1(kAnalysisKind);

    // The first plan decodes both files and hands the analyses to the library.
    auto first = planner(track(a), track(b));
    ASSERT_TRUE(waitUntil([&] { return first.isFinished() && stored.count() == 2; }));
    ASSERT_TRUE(first.result());
    EXPECT_NEAR(first.result()->outgoingEnd, 8.0, 0.01);
    const auto stampA = LibraryStore::FileStamp::of(a);
    const auto row = library.analysis(a, kind, *stampA);
    ASSERT_TRUE(row);
    ASSERT_TRUE(fromJson(*row));

    // A stored analysis that says the sound ends at 6 s: what the second plan follows, so
    // it came from the row, not from the file; nothing new is stored.
    Analysis edited = *fromJson(*row);
    edited.tail.audibleEnd = 6.0;
    ASSERT_TRUE(library.setAnalysis(a, kind, *stampA, toJson(edited)));
    AnalysisCache::shared().clear();
    const int before = int(stored.count());
    auto second = planner(track(a), track(b));
    ASSERT_TRUE(waitUntil([&] { return second.isFinished(); }));
    ASSERT_TRUE(second.result());
    EXPECT_DOUBLE_EQ(second.result()->outgoingEnd, 6.0);
    EXPECT_EQ(AnalysisCache::shared().get(*cacheKey(a)), edited);
    EXPECT_EQ(stored.count(), before);
}

// The planner's plan as the player runs it: one track on the left channel, the next on the
// right, so that each deck's gain can be read off the render.
TEST_F(CrossfadeAnalysis, ThePlayerRendersThePlannedCrossfade)
{
    TestHome home;
    const QString left = m_dir.filePath(QStringLiteral("left.wav"));
    const QString right = m_dir.filePath(QStringLiteral("right.wav"));
    ASSERT_TRUE(PlaybackAudio::makeLevels(left, 0.5, 0, 8 * PlaybackAudio::kRate));
    ASSERT_TRUE(PlaybackAudio::makeLevels(right, 0, 0.5, 8 * PlaybackAudio::kRate));

    AudioEngine engine(AudioEngine::Options { AudioEngine::Output::offline, PlaybackAudio::kRate, 512 });
    TransitionSettings settings;
    Player player(engine, settings, nullptr);
    player.setModeOverride(TransitionMode::crossfade);
    player.setPlanner(TransitionMode::crossfade, playerPlanner(nullptr, [] { return 6.0; }));
    std::optional<TransitionPlan> ran;
    QObject::connect(&player, &Player::transitionStarted, [&](TransitionMode, const TransitionPlan &p) { ran = p; });
    Track a, b;
    a.filePath = left;
    b.filePath = right;
    player.setQueue({ a, b });
    QString error;
    ASSERT_TRUE(player.renderQueue(home.file("render.wav"), &error)) << error.toStdString();
    ASSERT_TRUE(ran);
    // A third of 8 s, ending where the first track ends.
    EXPECT_NEAR(ran->fadeDuration, 8.0 / 3, 0.01);
    EXPECT_NEAR(ran->outgoingStart, 8.0 - 8.0 / 3, 0.01);

    const std::vector<float> out = PlaybackAudio::readFloatWav(home.file("render.wav"));
    qint64 start = -1;
    for (size_t i = 0; 2 * i + 1 < out.size(); ++i) {
        if (out[2 * i + 1] > 0.001f) {
            start = qint64(i);
            break;
        }
    }
    ASSERT_GE(start, 0);
    EXPECT_NEAR(double(start) / PlaybackAudio::kRate, ran->outgoingStart, 0.05);
    const auto at = [&](double seconds, int channel) {
        return out.at(size_t(2 * (start + qint64(seconds * PlaybackAudio::kRate)) + channel));
    };
    // Equal power halfway, the next track alone after the overlap.
    EXPECT_NEAR(at(ran->fadeDuration / 2, 0), 0.5 * std::sqrt(0.5), 0.02);
    EXPECT_NEAR(at(ran->fadeDuration / 2, 1), 0.5 * std::sqrt(0.5), 0.02);
    EXPECT_FLOAT_EQ(at(ran->fadeDuration + 0.1, 0), 0.0f);
    EXPECT_NEAR(at(ran->fadeDuration + 0.1, 1), 0.5, 0.001);
}
