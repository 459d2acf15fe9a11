#include "playback/audiodecoder.h"
#include "playback/audioengine.h"

#include "fixtureserver.h"
#include "livestream.h"
#include "signal.h"
#include "testenv.h"

#include <gtest/gtest.h>

#include <thread>

namespace {

constexpr int kRate = 44100;
using Script = FixtureServer::Script;

std::shared_ptr<std::atomic<bool>> newFlag()
{
    return std::make_shared<std::atomic<bool>>(false);
}

} // namespace

TEST(StreamDecoder, ADeckPlaysTheStreamAsItArrivesUntilItEnds)
{
    QString error;
    const auto mp3 = LiveStream::makeMp3(LiveStream::toneSource(3), &error);
    ASSERT_FALSE(mp3->isEmpty()) << error.toStdString();
    FixtureServer server;
    server.route("/stream.mp3", [&](const FixtureServer::Request &) {
        return LiveStream::head().produce(LiveStream::kPieceMs, LiveStream::paced(mp3, 3, 0, 3, 4)).close();
    });

    std::unique_ptr<AudioDecoder> decoder
        = AudioDecoder::openStream(QString::fromUtf8(server.url("/stream.mp3")), kRate, newFlag(), 5000, &error);
    ASSERT_TRUE(decoder) << error.toStdString();
    EXPECT_EQ(decoder->info().codec, QStringLiteral("mp3"));
    EXPECT_EQ(decoder->length(), -1);
    EXPECT_FALSE(decoder->seek(0));

    // The offline output waits for the network instead of running dry, so what it renders
    // is every frame of the stream.
    AudioEngine engine({ AudioEngine::Output::offline, kRate, 512 });
    engine.loadStream(0, std::move(decoder));
    EXPECT_FALSE(engine.seek(0, 1.0));
    engine.play(0);
    std::vector<float> out;
    std::vector<float> block(2 * 4410);
    while (engine.state(0) == AudioEngine::DeckState::playing && out.size() < size_t(2 * 5 * kRate)) {
        engine.renderOffline(block.data(), 4410);
        out.insert(out.end(), block.begin(), block.end());
    }
    EXPECT_EQ(engine.state(0), AudioEngine::DeckState::ended) << engine.deckError(0).toStdString();
    EXPECT_NEAR(engine.duration(0), 3.0, 0.1); // known once the stream ended
    ASSERT_GT(out.size(), size_t(2 * 2.8 * kRate));
    EXPECT_NEAR(Signal::toneHz(out, kRate / 5, size_t(2.8 * kRate), kRate), LiveStream::kToneHz, 0.5);
    EXPECT_NEAR(Signal::rmsDb(out, kRate / 5, size_t(2.8 * kRate)), -9.03, 0.5); // 0.5 * sine
}

TEST(StreamDecoder, GivesUpOnSilenceAndWhenInterrupted)
{
    QString error;
    const auto mp3 = LiveStream::makeMp3(LiveStream::toneSource(1), &error);
    ASSERT_FALSE(mp3->isEmpty()) << error.toStdString();
    FixtureServer server;
    server.route("/stalls", [&](const FixtureServer::Request &) {
        return LiveStream::head().produce(LiveStream::kPieceMs, LiveStream::paced(mp3, 1, 0, 1, 4)).hang();
    });
    server.route("/hangs", Script().hang());
    const QString stalls = QString::fromUtf8(server.url("/stalls"));
    std::vector<float> block(2 * 4096);

    // A stream that stops delivering fails after the time-out, once its audio was read.
    std::unique_ptr<AudioDecoder> decoder = AudioDecoder::openStream(stalls, kRate, newFlag(), 700, &error);
    ASSERT_TRUE(decoder) << error.toStdString();
    qint64 frames = 0;
    qint64 got = 0;
    while ((got = decoder->read(block.data(), 4096)) > 0)
        frames += got;
    EXPECT_EQ(got, -1);
    EXPECT_TRUE(decoder->lastError().endsWith(QStringLiteral("no data for 0.7 s")))
        << decoder->lastError().toStdString();
    EXPECT_NEAR(double(frames) / kRate, 1.0, 0.1);

    // interrupt() ends a read that waits for data, long before the time-out would.
    decoder = AudioDecoder::openStream(stalls, kRate, newFlag(), 60000, &error);
    ASSERT_TRUE(decoder) << error.toStdString();
    std::atomic<qint64> total { 0 };
    std::atomic<qint64> last { 1 };
    std::thread reader([&] {
        std::vector<float> mine(2 * 4096);
        while ((last = decoder->read(mine.data(), 4096)) > 0)
            total += last;
    });
    // All but the last part of a chunk has come; the read waits for the rest.
    EXPECT_TRUE(waitUntil([&] { return total.load() >= kRate - 4096; })) << total.load();
    decoder->interrupt();
    EXPECT_TRUE(waitUntil([&] { return last.load() <= 0; }, 3000));
    reader.join();
    EXPECT_EQ(last.load(), -1);

    // And so does setting the flag an open waits on, before any answer came.
    const auto abort = newFlag();
    std::atomic<bool> opened { false };
    std::thread opener([&] {
        QString why;
        const auto hung = AudioDecoder::openStream(QString::fromUtf8(server.url("/hangs")), kRate, abort, 60000, &why);
        EXPECT_FALSE(hung);
        EXPECT_TRUE(why.endsWith(QStringLiteral("interrupted"))) << why.toStdString();
        opened = true;
    });
    EXPECT_TRUE(waitUntil([&] { return server.requestCount("/hangs") == 1; }));
    *abort = true;
    EXPECT_TRUE(waitUntil([&] { return opened.load(); }, 3000));
    opener.join();
}
