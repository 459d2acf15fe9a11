#include "playback/audiodecoder.h"
#include "playback/audioengine.h"

#include "fixtureserver.h"
#include "livestream.h"
#include "signal.h"
#include "testenv.h"

#include <gtest/gtest.h>

namespace {

constexpr int kRate = 44100;

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

    std::unique_ptr<AudioDecoder> decoder = AudioDecoder::openStream(
        QString::fromUtf8(server.url("/stream.mp3")), kRate, std::make_shared<std::atomic<bool>>(false), 5000, &error);
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
