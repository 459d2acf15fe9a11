#include "library/transitionsettings.h"
#include "playback/audioengine.h"
#include "playback/gaplessplanner.h"
#include "playback/player.h"

#include "playbackaudio.h"
#include "sweepparts.h"
#include "testenv.h"

#include <QSignalSpy>

#include <gtest/gtest.h>

using namespace PlaybackAudio;

namespace {

struct Format {
    const char *name;
    const char *suffix;
    QStringList codec;
    bool lossless;
};

void PrintTo(const Format &format, std::ostream *os)
{
    *os << format.name;
}

class GaplessRender : public ::testing::TestWithParam<Format> {
protected:
    std::vector<float> render(const SweepParts &sweep)
    {
        AudioEngine engine(AudioEngine::Options { AudioEngine::Output::offline, kRate, 512 });
        TransitionSettings settings;
        Player player(engine, settings, nullptr);
        player.setModeOverride(TransitionMode::gapless);
        QList<Track> queue;
        for (const QString &path : sweep.parts) {
            Track t;
            t.filePath = path;
            queue << t;
        }
        player.setQueue(queue);
        QSignalSpy transitions(&player, &Player::transitionStarted);
        QString error;
        EXPECT_TRUE(player.renderQueue(home.file("render.wav"), &error)) << error.toStdString();
        EXPECT_EQ(transitions.size(), sweep.parts.size() - 1);
        return readFloatWav(home.file("render.wav"));
    }

    TestHome home;
};

} // namespace

// The parts joined by the player sound like the signal they were cut from: lossless parts
// bit for bit; lossy parts frame for frame as their own decodes trimmed to the music the
// planner found in them.
TEST_P(GaplessRender, PartsJoinWithoutAGapOrAnOverlap)
{
    const Format format = GetParam();
    QString error;
    const SweepParts sweep = SweepParts::make(home.path(), QString::fromLatin1(format.suffix), format.codec, &error);
    ASSERT_EQ(sweep.parts.size(), 4) << error.toStdString();

    const std::vector<float> out = render(sweep);
    std::vector<float> expected;
    if (format.lossless) {
        expected = ffmpegDecode(sweep.full);
    } else {
        QList<qint64> valid;
        for (const QString &part : sweep.parts) {
            const auto bounds = GaplessPlanner::bounds(part);
            ASSERT_TRUE(bounds) << part.toStdString();
            const std::vector<float> decoded = ffmpegDecode(part);
            ASSERT_GE(qint64(decoded.size()), 2 * bounds->endFrame);
            expected.insert(
                expected.end(), decoded.begin() + 2 * bounds->startFrame, decoded.begin() + 2 * bounds->endFrame);
            valid << bounds->endFrame - bounds->startFrame;
        }
        // MP3's LAME tag knows each part's length to the frame. (FFmpeg's own AAC encoder
        // does not always keep the last frames of a part in the file, so for M4A the
        // planner's bounds are the measure.)
        if (QByteArray(format.name) == "mp3") {
            EXPECT_EQ(valid, sweep.lengths);
        }
    }
    ASSERT_EQ(out.size(), expected.size()) << format.name;
    if (format.lossless) {
        EXPECT_EQ(qint64(out.size()), 2 * sweep.totalFrames());
    }
    const qint64 at = firstDifference(out, expected);
    EXPECT_EQ(at, -1) << format.name << ": first difference at frame " << at / 2;
}

INSTANTIATE_TEST_SUITE_P(Formats, GaplessRender,
    ::testing::Values(Format { "wav", "wav", { "-c:a", "pcm_s16le" }, true },
        Format { "flac", "flac", { "-c:a", "flac" }, true },
        Format { "mp3", "mp3", { "-c:a", "libmp3lame", "-b:a", "192k" }, false },
        Format { "m4a", "m4a", { "-c:a", "aac", "-b:a", "192k" }, false }),
    [](const ::testing::TestParamInfo<Format> &param) { return std::string(param.param.name); });
