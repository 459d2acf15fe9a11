#include "decodedaudio.h"

#include "playback/gaplessplanner.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cmath>

using namespace DecodedAudio;
using namespace GaplessPlanner;

namespace {

constexpr int kRate = 44100;
constexpr qint64 kCuts[] = { 0, 50000, 101111, 150007, 176400 }; // four parts of a 4 s sweep

struct Format {
    const char *suffix;
    QStringList codec;
    Source source;
    bool lossless;
};

class GaplessFiles : public ::testing::TestWithParam<Format> {
protected:
    void SetUp() override
    {
        m_whole = m_dir.filePath(QStringLiteral("whole.wav"));
        ASSERT_TRUE(makeSweep(m_whole, double(kCuts[4]) / kRate, kRate, 2, { "-c:a", "pcm_s16le" }));
        auto decoder = AudioDecoder::open(m_whole, 0);
        ASSERT_TRUE(decoder);
        m_reference = readAll(*decoder);
        ASSERT_EQ(qint64(m_reference.size() / 2), kCuts[4]);
    }

    // Part `k` of the sweep, encoded on its own.
    QString part(int k)
    {
        const QString path = m_dir.filePath(QStringLiteral("part%1.%2").arg(k).arg(QLatin1String(GetParam().suffix)));
        const QString trim = QStringLiteral("atrim=start_sample=%1:end_sample=%2,asetpts=PTS-STARTPTS")
                                 .arg(kCuts[k])
                                 .arg(kCuts[k + 1]);
        EXPECT_TRUE(make(path, QStringList { "-i", m_whole, "-af", trim } + GetParam().codec));
        return path;
    }

    QTemporaryDir m_dir;
    QString m_whole;
    std::vector<float> m_reference;
};

// Mean squared difference between `joined` at [from, to) and the reference shifted by `lag`.
double misfit(const std::vector<float> &joined, const std::vector<float> &reference, qint64 from, qint64 to, qint64 lag)
{
    double sum = 0;
    for (qint64 i = from; i < to; ++i) {
        const qint64 j = i + lag;
        for (int c = 0; c < 2; ++c) {
            const double d = joined[size_t(2 * i + c)] - reference[size_t(2 * j + c)];
            sum += d * d;
        }
    }
    return sum / double(2 * (to - from));
}

} // namespace

// Each part's bounds span exactly the frames it was encoded from, and the trimmed parts
// played one after another give the sweep back: bit for bit for lossless formats, and for
// MP3 and AAC with every part in place (the best alignment with the sweep is no shift).
TEST_P(GaplessFiles, TrimmedPartsJoinIntoTheWholeSweep)
{
    std::vector<float> joined;
    for (int k = 0; k < 4; ++k) {
        SCOPED_TRACE(k);
        const QString path = part(k);
        const auto b = analyze(path);
        ASSERT_TRUE(b);
        EXPECT_EQ(b->source, GetParam().source) << rawValue(b->source).toStdString();
        EXPECT_EQ(b->sampleRate, kRate);
        EXPECT_EQ(b->endFrame - b->startFrame, kCuts[k + 1] - kCuts[k]);

        auto decoder = AudioDecoder::open(path, 0);
        ASSERT_TRUE(decoder);
        EXPECT_EQ(decoder->length(), b->length);
        ASSERT_TRUE(decoder->seek(b->startFrame));
        std::vector<float> frames(size_t(2 * (b->endFrame - b->startFrame)));
        ASSERT_EQ(decoder->read(frames.data(), b->endFrame - b->startFrame), b->endFrame - b->startFrame);
        joined.insert(joined.end(), frames.begin(), frames.end());
    }
    ASSERT_EQ(joined.size(), m_reference.size());
    if (GetParam().lossless) {
        EXPECT_TRUE(joined == m_reference);
        return;
    }
    for (int k = 0; k < 4; ++k) {
        SCOPED_TRACE(k);
        // The middle of each part, away from the encoder's own edge effects.
        const qint64 from = kCuts[k] + 3000;
        const qint64 to = kCuts[k + 1] - 3000;
        qint64 bestLag = 0;
        double best = misfit(joined, m_reference, from, to, 0);
        for (qint64 lag = -40; lag <= 40; ++lag) {
            const double m = misfit(joined, m_reference, from, to, lag);
            if (m < best) {
                best = m;
                bestLag = lag;
            }
        }
        EXPECT_EQ(bestLag, 0);
        EXPECT_LT(best, 1e-3); // the sweep's power is about 0.1: the codec's error is far below it
    }
}

INSTANTIATE_TEST_SUITE_P(Formats, GaplessFiles,
    ::testing::Values(Format { "wav", { "-c:a", "pcm_s16le" }, Source::none, true },
        Format { "flac", { "-c:a", "flac" }, Source::none, true },
        Format { "mp3", { "-c:a", "libmp3lame", "-b:a", "192k" }, Source::coreAudio, false },
        Format { "m4a", { "-c:a", "aac", "-b:a", "192k" }, Source::packetTable, false }),
    [](const auto &param) { return std::string(param.param.suffix); });

// Fewer than 50 ms of music is not worth cutting: the whole decode is used.
TEST(GaplessAnalysis, SpanShorterThan50msUsesTheWholeStream)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("blip.mp3"));
    ASSERT_TRUE(makeSweep(path, 0.03, kRate, 2, { "-c:a", "libmp3lame" }));
    const auto b = analyze(path);
    ASSERT_TRUE(b);
    EXPECT_EQ(b->source, Source::none);
    EXPECT_EQ(b->startFrame, 0);
    EXPECT_EQ(b->endFrame, b->length);
}

// An MP3 without a tag has only its silence to go by; files that are no audio give no
// bounds and no plan.
TEST(GaplessAnalysis, UntaggedMp3IsScannedAndNonAudioGivesNothing)
{
    QTemporaryDir dir;
    const QString mp3 = dir.filePath(QStringLiteral("untagged.mp3"));
    ASSERT_TRUE(make(mp3,
        { "-f", "lavfi", "-i", "anullsrc=r=44100:cl=stereo:d=0.5", "-f", "lavfi", "-i", sweepSource(2, kRate),
            "-filter_complex", "[0][1]concat=n=2:v=0:a=1", "-c:a", "libmp3lame", "-write_xing", "0" }));
    const auto b = analyze(mp3);
    ASSERT_TRUE(b);
    EXPECT_EQ(b->source, Source::silence);
    EXPECT_EQ(b->startFrame, 2112); // the half second of silence is longer than any priming
    // Untrimmed padding follows the sweep; the end lies where its last sound fades out.
    EXPECT_LE(b->endFrame, b->length);
    EXPECT_GT(b->endFrame, b->length - 2 * 1152);

    const QString text = dir.filePath(QStringLiteral("notes.mp3"));
    writeFile(text, QByteArray(20000, 'a'));
    EXPECT_FALSE(analyze(text));
    EXPECT_FALSE(planNow(text, mp3));
    EXPECT_FALSE(planNow(mp3, text));
}

// The cache answers for an unchanged file and sees a rewritten one as new; plan() runs on
// the thread pool and gives what the bounds say.
TEST(GaplessAnalysis, CachedBoundsFollowTheFileAndPlanRunsInTheBackground)
{
    QTemporaryDir dir;
    const QString a = dir.filePath(QStringLiteral("a.m4a"));
    const QString b = dir.filePath(QStringLiteral("b.mp3"));
    ASSERT_TRUE(makeSweep(a, 1.5, 48000, 2, { "-c:a", "aac" }));
    ASSERT_TRUE(makeSweep(b, 1.2, kRate, 1, { "-c:a", "libmp3lame" }));
    const auto first = bounds(a);
    ASSERT_TRUE(first);
    EXPECT_EQ(first->endFrame - first->startFrame, 72000);
    ASSERT_TRUE(cacheKey(a));
    EXPECT_EQ(BoundsCache::shared().get(*cacheKey(a)), first);

    ASSERT_TRUE(makeSweep(a, 2.0, 48000, 2, { "-c:a", "aac" }));
    const auto second = bounds(a);
    ASSERT_TRUE(second);
    EXPECT_EQ(second->endFrame - second->startFrame, 96000);

    QFuture<std::optional<TransitionPlan>> future = plan(a, b);
    future.waitForFinished();
    const auto p = future.result();
    ASSERT_TRUE(p);
    EXPECT_DOUBLE_EQ(p->outgoingEnd, double(second->endFrame) / 48000);
    EXPECT_EQ(p->incomingStart, 0);
    EXPECT_FALSE(cacheKey(dir.filePath(QStringLiteral("missing.mp3"))));
}

// FFmpeg ends an M4A's sample table on the last valid frame, so its packet table has no
// remainder and its end is not trusted: with no encoder tag to ask, the end comes down to
// the last sound when silence closes the file.
TEST(GaplessAnalysis, AacWithoutRemainderEndsAtTheLastSound)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("tail.m4a"));
    const qint64 sweep = 88200;
    const qint64 silence = 2000; // inside the 3,200-frame window
    ASSERT_TRUE(make(path,
        { "-f", "lavfi", "-i", sweepSource(double(sweep) / kRate, kRate), "-f", "lavfi", "-i",
            "anullsrc=r=44100:cl=stereo:d=1", "-filter_complex",
            QStringLiteral("[0][1]concat=n=2:v=0:a=1,atrim=end_sample=%1").arg(sweep + silence), "-c:a", "aac" }));
    const auto b = analyze(path);
    ASSERT_TRUE(b);
    EXPECT_EQ(b->source, Source::packetTable);
    EXPECT_EQ(b->startFrame, 0);
    EXPECT_LT(b->endFrame, sweep + silence);
    EXPECT_GE(b->endFrame, sweep);
    EXPECT_LT(b->endFrame, sweep + 1024); // the codec's ringing dies within a frame
}
