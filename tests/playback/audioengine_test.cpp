#include "decodedaudio.h"
#include "signal.h"

#include "playback/audioengine.h"

#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cstring>
#include <functional>

using namespace DecodedAudio;
using State = AudioEngine::DeckState;

namespace {

constexpr int kRate = 44100;

AudioEngine::Options offline()
{
    return { AudioEngine::Output::offline, kRate, 512 };
}

// Renders in calls of `chunk` frames (deliberately not a multiple of the engine's block)
// until no deck is playing any more or `maxFrames` have been rendered; `afterChunk` runs
// between calls with the frames rendered so far.
std::vector<float> renderUntilSilent(
    AudioEngine &engine, qint64 maxFrames, int chunk = 1000, const std::function<void(qint64)> &afterChunk = {})
{
    std::vector<float> out;
    std::vector<float> block(size_t(2 * chunk));
    for (qint64 done = 0; done < maxFrames; done += chunk) {
        if (engine.state(0) != State::playing && engine.state(1) != State::playing)
            break;
        engine.renderOffline(block.data(), chunk);
        out.insert(out.end(), block.begin(), block.end());
        if (afterChunk)
            afterChunk(done + chunk);
    }
    return out;
}

std::vector<float> decodeAll(const QString &path)
{
    auto decoder = AudioDecoder::open(path, kRate);
    EXPECT_TRUE(decoder);
    return decoder ? readAll(*decoder) : std::vector<float> {};
}

bool silent(const std::vector<float> &s, size_t fromFrame, size_t toFrame)
{
    for (size_t i = 2 * fromFrame; i < 2 * toFrame && i < s.size(); ++i)
        if (s[i] != 0.0f)
            return false;
    return true;
}

bool sameFrames(const std::vector<float> &a, size_t aFrame, const std::vector<float> &b, size_t bFrame, size_t frames)
{
    if (2 * (aFrame + frames) > a.size() || 2 * (bFrame + frames) > b.size())
        return false;
    return std::memcmp(a.data() + 2 * aFrame, b.data() + 2 * bFrame, 2 * frames * sizeof(float)) == 0;
}

QString makeTone(const QTemporaryDir &dir, const QString &name, double hz, double seconds)
{
    const QString path = dir.filePath(name);
    make(path,
        { "-f", "lavfi", "-i", QStringLiteral("sine=f=%1:r=%2:d=%3").arg(hz).arg(kRate).arg(seconds), "-ac", "2",
            "-c:a", "pcm_f32le" });
    return path;
}

} // namespace

TEST(AudioEngine, DeckAtRateOneOutputsTheDecodedFramesBitForBit)
{
    QTemporaryDir dir;
    for (const auto &[name, codec] : { std::pair { "a.mp3", QStringList { "-c:a", "libmp3lame", "-b:a", "192k" } },
             std::pair { "a.flac", QStringList { "-c:a", "flac" } } }) {
        SCOPED_TRACE(name);
        const QString path = dir.filePath(QString::fromLatin1(name));
        ASSERT_TRUE(makeSweep(path, 4, kRate, 2, codec));
        const std::vector<float> reference = decodeAll(path);
        AudioEngine engine(offline());
        QString error;
        ASSERT_TRUE(engine.load(0, path, 0, &error)) << error.toStdString();
        EXPECT_EQ(engine.state(0), State::ready);
        EXPECT_NEAR(engine.duration(0), double(reference.size() / 2) / kRate, 1e-9);
        engine.play(0);
        const std::vector<float> out = renderUntilSilent(engine, 10 * kRate);
        EXPECT_EQ(engine.state(0), State::ended);
        EXPECT_TRUE(sameFrames(out, 0, reference, 0, reference.size() / 2));
        EXPECT_TRUE(silent(out, reference.size() / 2, out.size() / 2));
        EXPECT_EQ(engine.underruns(), 0u);
    }
}

TEST(AudioEngine, StartsOnItsHostFrameStopsOnItsFileFrameAndSeeks)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("sweep.flac"));
    ASSERT_TRUE(makeSweep(path, 5, kRate, 2, { "-c:a", "flac" }));
    const std::vector<float> reference = decodeAll(path);

    AudioEngine engine(offline());
    QString error;
    ASSERT_TRUE(engine.load(1, path, 0.5, &error)) << error.toStdString();
    std::vector<float> lead(2 * 3000);
    engine.renderOffline(lead.data(), 3000); // the host clock has moved on meanwhile
    ASSERT_EQ(engine.hostFrame(), 3000u);
    const quint64 start = 4321; // inside an engine block and inside a render call
    engine.play(1, start);
    engine.setStopAt(1, 1.5);
    std::vector<float> out = lead;
    const std::vector<float> rest = renderUntilSilent(engine, 10 * kRate, 1000, [&](qint64 rendered) {
        if (rendered == 2000) { // host frame 5000: 679 frames in
            EXPECT_NEAR(engine.position(1).value_or(-1), 0.5 + 679.0 / kRate, 1e-9);
        }
    });
    out.insert(out.end(), rest.begin(), rest.end());
    EXPECT_EQ(engine.state(1), State::ended);
    EXPECT_FALSE(engine.position(1));
    EXPECT_TRUE(silent(out, 0, start));
    EXPECT_TRUE(sameFrames(out, start, reference, 22050, kRate));
    EXPECT_TRUE(silent(out, start + kRate, out.size() / 2));

    // A new load leaves the deck neutral whatever the last track had; then a seek while
    // playing: the next frame out is the one asked for, bit for bit.
    engine.setVolume(1, 0.3f);
    engine.setBandGain(1, AudioEngine::kBassSwapBand, -24);
    engine.setRate(1, 1.1);
    ASSERT_TRUE(engine.load(1, path, 0, &error));
    EXPECT_EQ(engine.volume(1), 1.0f);
    EXPECT_EQ(engine.bandGain(1, AudioEngine::kBassSwapBand), 0.0f);
    EXPECT_EQ(engine.rate(1), 1.0);
    engine.play(1, engine.hostFrame());
    std::vector<float> block(2 * 1000);
    engine.renderOffline(block.data(), 1000);
    ASSERT_TRUE(engine.seek(1, 3.0));
    EXPECT_NEAR(*engine.position(1), 3.0, 1e-9);
    engine.renderOffline(block.data(), 1000);
    EXPECT_TRUE(sameFrames(block, 0, reference, 3 * kRate, 1000));
    EXPECT_NEAR(*engine.position(1), 3.0 + 1000.0 / kRate, 1e-9);
    EXPECT_EQ(engine.state(1), State::playing);
}

TEST(AudioEngine, NextDeckStartedWhereTheFirstEndsJoinsWithoutAGap)
{
    QTemporaryDir dir;
    const QString a = dir.filePath(QStringLiteral("a.mp3")), b = dir.filePath(QStringLiteral("b.mp3"));
    ASSERT_TRUE(
        makeSweep(a, 2, kRate, 2, { "-c:a", "libmp3lame" }) && makeSweep(b, 1.5, kRate, 2, { "-c:a", "libmp3lame" }));
    const std::vector<float> refA = decodeAll(a), refB = decodeAll(b);
    const size_t lengthA = refA.size() / 2, lengthB = refB.size() / 2;
    AudioEngine engine(offline());
    QString error;
    ASSERT_TRUE(engine.load(0, a, 0.5, &error)) << error.toStdString();
    engine.play(0, 700);
    EXPECT_EQ(engine.hostFrameAt(0, 1.0), 700u + 22050u); // scheduled: from its start frame
    std::vector<float> out(2 * 3000);
    engine.renderOffline(out.data(), 3000);
    const std::optional<quint64> join = engine.hostFrameAt(0, engine.duration(0));
    ASSERT_EQ(join, 700 + lengthA - 22050);
    ASSERT_TRUE(engine.load(1, b, 0, &error)) << error.toStdString();
    engine.play(1, *join);
    const std::vector<float> rest = renderUntilSilent(engine, 10 * kRate);
    out.insert(out.end(), rest.begin(), rest.end());
    EXPECT_TRUE(silent(out, 0, 700));
    EXPECT_TRUE(sameFrames(out, 700, refA, 22050, lengthA - 22050));
    EXPECT_TRUE(sameFrames(out, *join, refB, 0, lengthB));
    EXPECT_TRUE(silent(out, *join + lengthB, out.size() / 2));
}

TEST(AudioEngine, TwoDecksAreSummedWithTheirFaderGains)
{
    QTemporaryDir dir;
    const QString a = makeTone(dir, QStringLiteral("a.wav"), 300, 2);
    const QString b = makeTone(dir, QStringLiteral("b.wav"), 1700, 2);
    const std::vector<float> refA = decodeAll(a), refB = decodeAll(b);
    AudioEngine engine(offline());
    QString error;
    ASSERT_TRUE(engine.load(0, a, 0, &error) && engine.load(1, b, 0, &error)) << error.toStdString();
    engine.setVolume(0, 0.5f);
    engine.setVolume(1, 0.25f);
    engine.setMasterVolume(0.8f);
    engine.play(0);
    engine.play(1, 1000);
    std::vector<float> out(2 * 44000);
    std::vector<float> block(2 * 512);
    // The master starts at full volume and ramps down over the first block.
    engine.renderOffline(out.data(), 44000);
    float worst = 0;
    for (size_t i = 2 * 512; i < out.size(); ++i) {
        const size_t frame = i / 2;
        const float expected = 0.8f * (0.5f * refA[i] + (frame >= 1000 ? 0.25f * refB[i - 2000] : 0.0f));
        worst = std::max(worst, std::abs(out[i] - expected));
    }
    EXPECT_LT(worst, 1e-6f);
}

TEST(AudioEngine, BassBandAtMinus24TakesOutTheBassAndLeavesTheTop)
{
    QTemporaryDir dir;
    for (const auto &[hz, expectedDb, tolerance] : { std::tuple { 60.0, -24.0, 1.5 }, { 5000.0, 0.0, 0.1 } }) {
        const QString path = makeTone(dir, QStringLiteral("tone%1.wav").arg(hz), hz, 2);
        const std::vector<float> reference = decodeAll(path);
        AudioEngine engine(offline());
        QString error;
        ASSERT_TRUE(engine.load(0, path, 0, &error)) << error.toStdString();
        engine.setBandGain(0, AudioEngine::kBassSwapBand, -24);
        engine.play(0);
        const std::vector<float> out = renderUntilSilent(engine, 4 * kRate);
        const double change
            = Signal::rmsDb(out, kRate / 2, kRate + kRate / 2) - Signal::rmsDb(reference, kRate / 2, kRate + kRate / 2);
        EXPECT_NEAR(change, expectedDb, tolerance) << hz << " Hz";
    }
}

TEST(AudioEngine, FasterRateShortensTheTrackKeepsThePitchAndTracksThePosition)
{
    QTemporaryDir dir;
    // Two seconds of silence, then two of a tone: the tone's onset is a landmark in the file.
    const QString path = dir.filePath(QStringLiteral("late.wav"));
    ASSERT_TRUE(make(path,
        { "-f", "lavfi", "-i", QStringLiteral("sine=f=440:r=%1:d=2").arg(kRate), "-af", "adelay=2000:all=1", "-ac", "2",
            "-c:a", "pcm_f32le" }));
    AudioEngine engine(offline());
    QString error;
    ASSERT_TRUE(engine.load(0, path, 0, &error)) << error.toStdString();
    const double fileSec = engine.duration(0);
    ASSERT_NEAR(fileSec, 4.0, 0.01);
    engine.setRate(0, 1.05);
    engine.play(0);
    std::vector<double> positions; // after each 512-frame call
    const std::vector<float> out = renderUntilSilent(
        engine, 10 * kRate, 512, [&](qint64) { positions.push_back(engine.position(0).value_or(-1)); });
    EXPECT_EQ(engine.state(0), State::ended);
    size_t length = out.size() / 2;
    while (length > 0 && out[2 * length - 2] == 0.0f)
        --length;
    EXPECT_NEAR(double(length) / kRate, fileSec / 1.05, 0.02);
    EXPECT_NEAR(Signal::toneHz(out, length - kRate, length - kRate / 4, kRate), 440.0, 2.0);

    // Where the tone begins in the output, the deck must have said it was 2 s into the file.
    size_t onset = 0;
    while (onset < length && std::abs(out[2 * onset]) < 0.05f)
        ++onset;
    const size_t call = onset / 512;
    ASSERT_LT(call, positions.size());
    const double positionAtOnset = positions[call] - double((call + 1) * 512 - onset) * 1.05 / kRate;
    EXPECT_NEAR(positionAtOnset, 2.0, 0.005);
}

TEST(AudioEngine, LeavingRateOneMidPlayNeitherClicksNorLeavesAGap)
{
    QTemporaryDir dir;
    const QString path = makeTone(dir, QStringLiteral("tone.wav"), 300, 3);
    AudioEngine engine(offline());
    QString error;
    ASSERT_TRUE(engine.load(0, path, 0, &error)) << error.toStdString();
    engine.play(0);
    std::vector<float> out(2 * 2 * kRate);
    engine.renderOffline(out.data(), kRate);
    engine.setRate(0, 1.02); // into the stretcher, whose latency must not show
    engine.renderOffline(out.data() + 2 * kRate, kRate);
    const auto largestStep = [&](size_t from, size_t to) {
        float step = 0;
        for (size_t i = from; i < to; ++i)
            step = std::max(step, std::abs(out[2 * i] - out[2 * i - 2]));
        return step;
    };
    const float before = largestStep(kRate / 2, kRate);
    EXPECT_LT(largestStep(kRate, kRate + 8192), 1.5f * before);
    // No dip either: the tone keeps its level through the switch.
    for (size_t at = kRate - 2048; at < kRate + 8192; at += 1024)
        EXPECT_NEAR(Signal::rmsDb(out, at, at + 1024), Signal::rmsDb(out, kRate / 2, kRate), 0.5) << at;
}

TEST(AudioEngine, FileCutShortWhilePlayingEndsTheDeckAsFailed)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("cut.mp3"));
    ASSERT_TRUE(makeSweep(path, 30, kRate, 2, { "-c:a", "libmp3lame" }));
    AudioEngine engine(offline());
    QString error;
    ASSERT_TRUE(engine.load(0, path, 0, &error)) << error.toStdString();
    engine.play(0);
    std::vector<float> block(2 * kRate);
    engine.renderOffline(block.data(), kRate);
    QFile file(path);
    ASSERT_TRUE(file.resize(file.size() / 3));
    const std::vector<float> rest = renderUntilSilent(engine, 40 * kRate, 4096);
    EXPECT_EQ(engine.state(0), State::failed);
    EXPECT_FALSE(engine.deckError(0).isEmpty());
    // It ended near the cut (10 s), not at the announced 30 s.
    EXPECT_LT(double(rest.size() / 2) / kRate, 12.0);
}

TEST(AudioEngine, UnopenableFileLeavesTheDeckEmptyWithAReason)
{
    QTemporaryDir dir;
    AudioEngine engine(offline());
    QString error;
    EXPECT_FALSE(engine.load(0, dir.filePath(QStringLiteral("missing.flac")), 0, &error));
    EXPECT_FALSE(error.isEmpty());
    EXPECT_EQ(engine.state(0), State::empty);
    EXPECT_EQ(engine.duration(0), 0.0);
}

TEST(AudioEngine, NullOutputPlaysADeckToItsEndInRealTime)
{
    QTemporaryDir dir;
    const QString path = makeTone(dir, QStringLiteral("short.wav"), 500, 0.6);
    AudioEngine engine({ AudioEngine::Output::null, kRate, 512 });
    QString error;
    QElapsedTimer clock;
    clock.start();
    ASSERT_TRUE(engine.start(&error)) << error.toStdString();
    ASSERT_TRUE(engine.load(0, path, 0, &error)) << error.toStdString();
    ASSERT_TRUE(waitUntil([&] { return engine.hostFrame() > 0; }));
    const quint64 start = engine.hostFrame() + kRate / 10;
    engine.play(0, start);
    EXPECT_FALSE(engine.position(0)); // scheduled, not sounding yet
    ASSERT_TRUE(waitUntil([&] { return engine.position(0).value_or(0) > 0.2; }, 3000));
    EXPECT_EQ(engine.state(0), State::playing);
    // The position follows the host clock.
    const double lag = double(engine.hostFrame() - start) / kRate - *engine.position(0);
    EXPECT_NEAR(lag, 0.0, 0.05);
    ASSERT_TRUE(waitUntil([&] { return engine.state(0) == State::ended; }, 3000));
    // In real time: 0.7 s of audio took about that long, not less.
    EXPECT_GE(clock.elapsed(), 600);
    // Paused, the host clock stands still (one block may have been under way).
    engine.setPaused(true);
    const quint64 pausedAt = engine.hostFrame();
    EXPECT_FALSE(waitUntil([&] { return engine.hostFrame() > pausedAt + 512; }, 300));
}
