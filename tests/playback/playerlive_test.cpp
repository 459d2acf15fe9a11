#include "library/transitionsettings.h"
#include "playback/audioengine.h"
#include "playback/player.h"

#include "fixtureserver.h"
#include "livestream.h"
#include "playbackaudio.h"
#include "testenv.h"

#include <QElapsedTimer>
#include <QSignalSpy>

#include <gtest/gtest.h>

using Script = FixtureServer::Script;

namespace {

// The player on the null output, which plays in real time as a sound card would, and a
// fixture serving a 20 s MP3 station the way the relay does.
class PlayerLiveTest : public ::testing::Test {
protected:
    static constexpr double kStationSec = 20;

    static void SetUpTestSuite()
    {
        QString error;
        s_mp3 = LiveStream::makeMp3(LiveStream::toneSource(kStationSec), &error);
        ASSERT_FALSE(s_mp3->isEmpty()) << error.toStdString();
    }
    static void TearDownTestSuite() { s_mp3.reset(); }

    void SetUp() override
    {
        QString error;
        ASSERT_TRUE(engine.start(&error)) << error.toStdString();
    }

    // Serves `path` as head, the audio from `fromSec` to `toSec` at `speed`, then `end`.
    void serve(const QByteArray &path, double toSec, double speed, std::function<void(Script &)> end = {})
    {
        server.route(path, [=](const FixtureServer::Request &) {
            Script script = LiveStream::head();
            script.produce(LiveStream::kPieceMs, LiveStream::paced(s_mp3, kStationSec, 0, toSec, speed));
            if (end)
                end(script);
            return script;
        });
    }
    QUrl url(const QByteArray &path) const { return QUrl(QString::fromUtf8(server.url(path))); }

    static inline std::shared_ptr<const QByteArray> s_mp3;
    TestHome home;
    AudioEngine engine { AudioEngine::Options { AudioEngine::Output::null, PlaybackAudio::kRate, 512 } };
    TransitionSettings settings;
    FixtureServer server;
};

QList<bool> flags(const QSignalSpy &spy)
{
    QList<bool> result;
    for (const QList<QVariant> &args : spy)
        result << args[0].toBool();
    return result;
}

} // namespace

TEST_F(PlayerLiveTest, PlaysAndPauseClosesTheConnectionThatPlayOpensAgain)
{
    std::atomic<int> requests { 0 };
    server.route("/stream.mp3", [&](const FixtureServer::Request &) {
        // The second meets the relay before it noticed that its one listener went away.
        if (++requests == 2)
            return Script::response(503, "text/plain", "busy");
        Script script = LiveStream::head();
        script.produce(LiveStream::kPieceMs, LiveStream::paced(s_mp3, kStationSec, 0, kStationSec, 1.25));
        return script;
    });
    Player player(engine, settings, nullptr);
    QSignalSpy live(&player, &Player::liveChanged);
    QSignalSpy current(&player, &Player::currentTrackChanged);
    QSignalSpy failed(&player, &Player::liveFailed);
    player.playLive(url("/stream.mp3"));
    EXPECT_TRUE(player.isLive());
    EXPECT_EQ(player.liveUrl(), url("/stream.mp3"));
    EXPECT_EQ(player.status(), Player::Status::stopped); // until sound starts
    EXPECT_EQ(flags(live), QList<bool>({ true }));
    ASSERT_EQ(current.size(), 1);
    EXPECT_FALSE(current[0][0].value<std::optional<Track>>());
    EXPECT_EQ(current[0][1].toInt(), -1);

    ASSERT_TRUE(waitUntil([&] { return player.status() == Player::Status::playing; }, 8000));
    ASSERT_TRUE(waitUntil([&] { return player.position().value_or(0) > 1.5; }, 5000));
    EXPECT_EQ(player.duration(), 0);
    EXPECT_EQ(player.currentIndex(), -1);
    player.seek(0);
    EXPECT_GT(player.position().value_or(0), 1.5);

    player.pause();
    EXPECT_EQ(player.status(), Player::Status::paused);
    EXPECT_TRUE(player.isLive());
    const double heard = player.position().value_or(0);
    EXPECT_GT(heard, 1.5);
    EXPECT_TRUE(waitUntil([&] { return server.openConnections() == 0; }));
    EXPECT_EQ(player.position(), heard);

    player.play();
    ASSERT_TRUE(waitUntil([&] { return player.status() == Player::Status::playing; }, 8000));
    EXPECT_EQ(server.requestCount("/stream.mp3"), 3);
    EXPECT_EQ(server.openConnections(), 1);
    EXPECT_TRUE(waitUntil([&] { return player.position().value_or(0) > 0.5; }));
    EXPECT_EQ(flags(live), QList<bool>({ true }));
    EXPECT_TRUE(failed.isEmpty());
}

TEST_F(PlayerLiveTest, AHiccupIsAbsorbedAndALongerGapPlaysSilenceThenRecovers)
{
    server.route("/stream.mp3", [](const FixtureServer::Request &) {
        using LiveStream::paced;
        Script script = LiveStream::head();
        script.produce(LiveStream::kPieceMs, paced(s_mp3, kStationSec, 0, 1.5, 1))
            .pause(500)
            .produce(LiveStream::kPieceMs, paced(s_mp3, kStationSec, 1.5, 3, 1))
            .pause(2000)
            .produce(LiveStream::kPieceMs, paced(s_mp3, kStationSec, 3, kStationSec, 1.25));
        return script;
    });
    Player player(engine, settings, nullptr);
    player.setLiveTimeout(5);
    QSignalSpy failed(&player, &Player::liveFailed);
    player.playLive(url("/stream.mp3"));
    ASSERT_TRUE(waitUntil([&] { return player.position().value_or(0) > 2.5; }, 8000));
    EXPECT_EQ(engine.underruns(), 0u); // the second buffered ahead covered half a second

    ASSERT_TRUE(waitUntil([&] { return player.position().value_or(0) > 4.5; }, 8000));
    EXPECT_GT(engine.underruns(), 0u); // two seconds were not covered ...
    EXPECT_EQ(player.status(), Player::Status::playing); // ... but the stream went on
    EXPECT_TRUE(player.isLive());
    EXPECT_TRUE(failed.isEmpty());
}

TEST_F(PlayerLiveTest, AStreamThatEndsFallsSilentOrCannotOpenEndsLiveMode)
{
    serve("/ends", 2, 2, [](Script &s) { s.close(); });
    serve("/silent", 2, 2, [](Script &s) { s.hang(); });
    server.route("/hangs", Script().hang());
    struct Case {
        QUrl url;
        QString reason;
        bool sounded;
    };
    const QString file = home.file(QStringLiteral("station.mp3"));
    writeFile(file, *s_mp3);
    const QList<Case> cases {
        { url("/ends"), QStringLiteral("the stream ended"), true },
        { url("/silent"), QStringLiteral("no data for 1 s"), true },
        { url("/hangs"), QStringLiteral("no data for 1 s"), false },
        { url("/missing"), QStringLiteral("cannot open"), false }, // the fixture answers 404
        { QUrl::fromLocalFile(file), QStringLiteral("cannot open"), false }, // only http(s) streams
    };
    Player player(engine, settings, nullptr);
    player.setLiveTimeout(1);
    for (const Case &c : cases) {
        SCOPED_TRACE(c.url.toString().toStdString());
        QSignalSpy live(&player, &Player::liveChanged);
        QSignalSpy status(&player, &Player::statusChanged);
        QSignalSpy failed(&player, &Player::liveFailed);
        player.playLive(c.url);
        ASSERT_TRUE(waitUntil([&] { return !failed.isEmpty(); }, 10000));
        EXPECT_TRUE(failed[0][0].toString().contains(c.reason)) << failed[0][0].toString().toStdString();
        EXPECT_FALSE(player.isLive());
        EXPECT_EQ(player.liveUrl(), std::nullopt);
        EXPECT_EQ(player.status(), Player::Status::stopped);
        EXPECT_EQ(flags(live), QList<bool>({ true, false }));
        EXPECT_EQ(status.size() >= 2, c.sounded); // playing, then stopped
        EXPECT_TRUE(waitUntil([&] { return server.openConnections() == 0; }));
    }
}

TEST_F(PlayerLiveTest, StopReturnsAtOnceWhileTheStreamHangs)
{
    server.route("/hangs", Script().hang());
    serve("/stalls", 2.5, 2, [](Script &s) { s.hang(); });
    Player player(engine, settings, nullptr);
    player.setLiveTimeout(60);
    QSignalSpy failed(&player, &Player::liveFailed);

    // While the open waits for an answer ...
    player.playLive(url("/hangs"));
    ASSERT_TRUE(waitUntil([&] { return server.openConnections() == 1; }));
    QElapsedTimer clock;
    clock.start();
    player.stop();
    EXPECT_LT(clock.elapsed(), 1000); // nowhere near the minute of the time-out
    EXPECT_FALSE(player.isLive());
    EXPECT_TRUE(waitUntil([&] { return server.openConnections() == 0; }));

    // ... and while the deck's decoder waits for more data.
    player.playLive(url("/stalls"));
    ASSERT_TRUE(waitUntil([&] { return player.position().value_or(0) > 1.0; }, 8000));
    clock.restart();
    player.stop();
    EXPECT_LT(clock.elapsed(), 1000);
    EXPECT_EQ(player.status(), Player::Status::stopped);
    EXPECT_TRUE(waitUntil([&] { return server.openConnections() == 0; }));
    EXPECT_TRUE(failed.isEmpty());
}

TEST_F(PlayerLiveTest, PlayingTheQueueLeavesLiveMode)
{
    serve("/stream.mp3", kStationSec, 1.25);
    QList<Track> queue;
    for (int n = 0; n < 2; ++n) {
        const QString path = home.file(QStringLiteral("t%1.wav").arg(n));
        ASSERT_TRUE(PlaybackAudio::makeLevels(path, 0.1, -0.1, 5 * PlaybackAudio::kRate));
        queue << Track(QStringLiteral("Track %1").arg(n), QStringLiteral("Artist"), QString(), 5,
            QDateTime::currentDateTimeUtc(), QString(), false, 0, QStringLiteral("radio"), std::nullopt, path);
    }
    Player player(engine, settings, nullptr);
    player.setQueue(queue);
    QSignalSpy live(&player, &Player::liveChanged);
    QSignalSpy current(&player, &Player::currentTrackChanged);

    player.playLive(url("/stream.mp3"));
    ASSERT_TRUE(waitUntil([&] { return player.status() == Player::Status::playing; }, 8000));
    player.playQueue(queue, 1);
    EXPECT_FALSE(player.isLive());
    EXPECT_EQ(flags(live), QList<bool>({ true, false }));
    EXPECT_EQ(player.currentIndex(), 1);
    EXPECT_EQ(current.last()[1].toInt(), 1);
    EXPECT_EQ(player.status(), Player::Status::playing);
    EXPECT_TRUE(waitUntil([&] { return server.openConnections() == 0; }));

    // previous() while connecting goes back in the queue; stopLive() keeps the queue for play().
    player.playLive(url("/stream.mp3"));
    player.previous();
    EXPECT_FALSE(player.isLive());
    EXPECT_EQ(player.currentIndex(), 0);
    player.playLive(url("/stream.mp3"));
    player.stopLive();
    EXPECT_FALSE(player.isLive());
    EXPECT_EQ(player.status(), Player::Status::stopped);
    EXPECT_EQ(player.queue().size(), 2);
    player.play();
    EXPECT_EQ(player.currentIndex(), 0);
    EXPECT_EQ(player.status(), Player::Status::playing);
    EXPECT_EQ(flags(live), QList<bool>({ true, false, true, false, true, false }));
    EXPECT_TRUE(waitUntil([&] { return server.openConnections() == 0; }));
}
