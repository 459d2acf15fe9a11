#include "engine/apppaths.h"
#include "engine/radioplayback.h"
#include "engine/recordingcontext.h"
#include "engine/recordingsession.h"
#include "engine/stationlistener.h"
#include "library/librarystore.h"
#include "platform/httpclient.h"

#include "bytesettings.h"
#include "encodedaudio.h"
#include "fixtureserver.h"
#include "icecastfixture.h"
#include "icystream.h"
#include "testenv.h"

#include <QDir>
#include <QFileInfo>

#include <gtest/gtest.h>

namespace {

// 128 kbit/s CBR at 32 kHz: every frame is 576 bytes; 7 frames between metadata blocks.
constexpr int kMetaint = 7 * 576;
constexpr qint64 kBytesPerSec = 16000;

QStringList filesInTmp()
{
    return QDir(AppPaths::tmpDir()).entryList(QDir::Files | QDir::Hidden);
}

qint64 bytesInTmp()
{
    qint64 total = 0;
    for (const QFileInfo &file : QDir(AppPaths::tmpDir()).entryInfoList(QDir::Files | QDir::Hidden))
        total += file.size();
    return total;
}

class StationListenerTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        useByteExactSaves(); // lead-in and lead-out 0: the song is its own bytes exactly
        context.timings.reconnectDelaySec = [](qint64) { return 0.05; };
        context.timings.statusPolling = false;
        context.ffmpegPath = EncodedAudio::kFfmpeg;
        LibraryOpenResult opened = LibraryStore::open(home.file(QStringLiteral("library.sqlite")));
        ASSERT_TRUE(opened) << opened.message.toStdString();
        library = std::move(opened.store);
    }

    // Real MP3 (ffmpeg in the relay must be able to play it) in whole frames.
    IcyStream::Mp3Programme programme(QList<std::pair<QByteArray, int>> songs)
    {
        IcyStream::Mp3Programme p;
        p.mp3 = EncodedAudio::encode(home.file("tone.mp3"),
            { "-f", "lavfi", "-i", "sine=frequency=440:sample_rate=32000:duration=20", "-ac", "1", "-c:a", "libmp3lame",
                "-b:a", "128k", "-write_xing", "0", "-id3v2_version", "0", "-f", "mp3" });
        EXPECT_EQ(p.mp3.size() % 576, 0);
        EXPECT_GT(p.mp3.size(), kMetaint);
        p.metaint = kMetaint;
        p.songs = std::move(songs);
        return p;
    }

    TestHome home;
    FixtureServer server;
    HttpClient http;
    RecordingContext context { http, nullptr };
    std::unique_ptr<LibraryStore> library;
};

TEST_F(StationListenerTest, SavesTheArmedSongFromItsTitleChangeToTheNextAndNothingElse)
{
    // 4 blocks a second of stream, served at about 12 times real time.
    const IcyStream::Mp3Programme programme = this->programme({ { "A - Joined", 100 }, { "Station Jingle", 80 },
        { "B - Whole", 240 }, { "C - Next", 400 }, { "D - Last", 1 } });
    server.route("/live", programme.handler(20));
    Station station = Station::custom(QString::fromLatin1(server.url("/live")), "Fixture FM");
    station.bitrate = 128;

    StationListener listener(context, library.get());
    std::vector<Track> saved;
    QList<std::pair<QString, QString>> skipped;
    QStringList failures;
    bool ready = false;
    QObject::connect(&listener, &StationListener::streamReady, [&] { ready = true; });
    QObject::connect(&listener, &StationListener::streamFailed, [&](const QString &m) { failures << m; });
    QObject::connect(&listener, &StationListener::saveFailed, [&](const QString &m) { failures << m; });
    QObject::connect(&listener, &StationListener::songSaved, [&](const Track &t) { saved.push_back(t); });
    QObject::connect(&listener, &StationListener::songSkipped, [&](const QString &title, const QString &why) {
        skipped.append({ title, why });
    });
    listener.start(station);
    ASSERT_EQ(listener.station()->id, station.id);
    ASSERT_TRUE(waitUntil([&] { return ready || !failures.isEmpty(); }, 10000));
    ASSERT_TRUE(ready) << failures.join("; ").toStdString();
    ASSERT_TRUE(listener.streamUrl());

    // The song playing when listening began lacks its start.
    ASSERT_TRUE(waitUntil([&] { return listener.title() == "A - Joined"; }, 10000));
    EXPECT_EQ(listener.saveState(), StationListener::SaveState::unavailable);
    QString why;
    EXPECT_FALSE(listener.saveCurrentSong(&why));
    EXPECT_TRUE(why.contains("began before listening")) << why.toStdString();

    ASSERT_TRUE(waitUntil([&] { return listener.title() == "Station Jingle"; }, 10000));
    EXPECT_TRUE(listener.saveCurrentSong());
    ASSERT_TRUE(waitUntil([&] { return !skipped.isEmpty(); }));
    EXPECT_EQ(skipped.value(0), (std::pair<QString, QString>("Station Jingle", "jingle or advert")));

    // Twenty seconds into B, the save is asked for.
    ASSERT_TRUE(waitUntil([&] { return listener.title() == "B - Whole"; }, 10000));
    ASSERT_TRUE(listener.capture());
    const qint64 twentySecondsIn = (programme.start(2) + 1 + 20 * kBytesPerSec / kMetaint) * qint64(kMetaint + 1);
    ASSERT_TRUE(waitUntil([&] { return listener.capture()->status().bytesReceived >= twentySecondsIn; }, 10000));
    ASSERT_EQ(listener.title(), "B - Whole") << "the song ended before the save could be asked for";
    EXPECT_EQ(listener.saveState(), StationListener::SaveState::ready);
    ASSERT_TRUE(listener.saveCurrentSong(&why)) << why.toStdString();
    EXPECT_TRUE(listener.saveCurrentSong()) << "asking again is no error";
    EXPECT_EQ(listener.saveState(), StationListener::SaveState::armed);
    EXPECT_EQ(listener.savingTitle(), "B - Whole");

    ASSERT_TRUE(waitUntil([&] { return !saved.empty() || !failures.isEmpty(); }, 20000));
    ASSERT_EQ(saved.size(), 1u) << failures.join("; ").toStdString();
    const Track &track = saved.front();
    EXPECT_EQ(track.artist, "B");
    EXPECT_EQ(track.title, "Whole");
    EXPECT_EQ(track.station, "Fixture FM");
    EXPECT_EQ(withoutId3v2Tag(readFile(*track.filePath)), programme.songAudio(2));
    EXPECT_EQ(library->tracksByFilePath(*track.filePath).size(), 1);
    EXPECT_EQ(listener.title(), "C - Next");
    // Only the song playing is kept, and only while it plays.
    ASSERT_TRUE(waitUntil([&] { return listener.saveState() == StationListener::SaveState::ready; }));
    for (const QString &name : filesInTmp())
        EXPECT_TRUE(name.startsWith(".listen_")) << name.toStdString();

    // Armed, then stopped before it ends: nothing half is saved.
    ASSERT_TRUE(listener.saveCurrentSong());
    const QString armed = listener.title();
    listener.stop();
    EXPECT_FALSE(listener.station());
    EXPECT_EQ(listener.saveState(), StationListener::SaveState::unavailable);
    ASSERT_TRUE(waitUntil([&] { return !listener.hasPendingSaves(); }, 10000));
    ASSERT_EQ(skipped.size(), 2);
    EXPECT_EQ(skipped[1], (std::pair<QString, QString>(armed, "listening stopped before the song ended")));
    EXPECT_EQ(saved.size(), 1u);
    EXPECT_TRUE(failures.isEmpty()) << failures.join("; ").toStdString();
    ASSERT_TRUE(waitUntil([&] { return filesInTmp().isEmpty(); }));
}

TEST_F(StationListenerTest, WithoutKeepingTheSongTheTitleIsPolledAndTheRelaysEndStopsListening)
{
    // The station hangs up after about 15 s of stream; the relay's ffmpeg ends with it.
    IcyStream::Mp3Programme programme = this->programme({ { "A - Polled", 60 } });
    const FixtureServer::Handler endless = programme.handler(5);
    server.route("/live", [endless](const FixtureServer::Request &request) {
        FixtureServer::Script script = endless(request);
        auto left = std::make_shared<int>(60);
        auto next = script.steps.last().produce;
        script.steps.last().produce = [left, next] { return (*left)-- > 0 ? next() : QByteArray(); };
        return script;
    });
    StationListener listener(context, library.get());
    ASSERT_TRUE(listener.keepsSong()) << "on unless switched off";
    listener.setKeepSong(false);
    EXPECT_FALSE(listener.keepsSong());
    QStringList titles, failures;
    QObject::connect(&listener, &StationListener::titleChanged, [&](const QString &t) { titles << t; });
    QObject::connect(&listener, &StationListener::streamFailed, [&](const QString &m) { failures << m; });
    const Station station = Station::custom(QString::fromLatin1(server.url("/live")), "Polled FM");
    listener.start(station);
    EXPECT_EQ(listener.capture(), nullptr) << "no second connection";
    ASSERT_TRUE(waitUntil([&] { return titles.contains("A - Polled"); }, 10000));
    QString why;
    EXPECT_FALSE(listener.saveCurrentSong(&why));
    EXPECT_EQ(why, "keeping the song playing is switched off");

    ASSERT_TRUE(waitUntil([&] { return !failures.isEmpty(); }, 15000));
    EXPECT_EQ(failures, QStringList { "Stream unterbrochen" });
    EXPECT_FALSE(listener.streamUrl());
    EXPECT_EQ(listener.station()->id, station.id) << "the failed station stays named";
    EXPECT_FALSE(listener.relay().isRunning());

    // Not an http(s) address: the relay refuses it.
    listener.start(Station::custom("file:///etc/passwd", "Local"));
    ASSERT_TRUE(waitUntil([&] { return failures.size() == 2; }));
    EXPECT_EQ(failures[1], "Ungültige Stream-URL");
}

TEST_F(StationListenerTest, WhenTheCaptureGivesUpTheRelayPlaysOnAndThePollerNamesTheSong)
{
    // Our own agent is refused until the capture has given up (its first attempt and two
    // reconnects); ffmpeg in the relay, and the poller after that, get the station.
    context.timings.maxReconnects = 2;
    const IcyStream::Mp3Programme programme = this->programme({ { "A - Polled", 100000 } });
    const FixtureServer::Handler station = programme.handler(20);
    auto refused = std::make_shared<int>(0);
    server.route("/live", [station, refused](const FixtureServer::Request &request) {
        if (request.header("User-Agent").startsWith("Mozilla/5.0 Orvida") && (*refused)++ < 3)
            return FixtureServer::Script::response(503, "text/plain", "busy");
        return station(request);
    });
    StationListener listener(context, library.get());
    QStringList failures;
    QObject::connect(&listener, &StationListener::streamFailed, [&](const QString &m) { failures << m; });
    listener.start(Station::custom(QString::fromLatin1(server.url("/live")), "Busy FM"));
    ASSERT_TRUE(listener.capture());
    ASSERT_TRUE(waitUntil([&] { return !listener.capture() && listener.title() == "A - Polled"; }, 15000));
    EXPECT_TRUE(listener.streamUrl()) << "the relay still plays";
    EXPECT_TRUE(failures.isEmpty()) << failures.join("; ").toStdString();
    EXPECT_EQ(listener.saveState(), StationListener::SaveState::unavailable);
    QString why;
    EXPECT_FALSE(listener.saveCurrentSong(&why));
    EXPECT_EQ(why, "the song cannot be kept: the connection that keeps it was lost");
}

TEST_F(StationListenerTest, AListeningCaptureKeepsNoMoreThanItsBoundOfATitleLessStream)
{
    // One block of 1000 bytes a millisecond: minutes of stream in a second or two.
    server.route("/untitled", IcyStream::station({}, 1, 1));
    Station station = Station::custom(QString::fromLatin1(server.url("/untitled")), "Nameless FM");
    station.bitrate = 128;
    constexpr double kBoundSec = 5;
    RecordingSession capture(station, RecordingSession::Listening { kBoundSec }, context);
    qint64 peak = 0;
    const bool streamed = waitUntil(
        [&] {
            peak = std::max(peak, bytesInTmp());
            return capture.status().bytesReceived >= qint64(kBoundSec * kBytesPerSec * 8);
        },
        20000);
    EXPECT_TRUE(streamed);
    EXPECT_EQ(capture.keep(), CutPlanner::Keep::NoTitle);
    EXPECT_GT(peak, 0) << "nothing was kept at all";
    EXPECT_LE(peak, qint64(kBoundSec * kBytesPerSec));
    capture.stop();
    ASSERT_TRUE(waitUntil([&] { return capture.isIdle(); }));
    EXPECT_TRUE(filesInTmp().isEmpty()) << filesInTmp().join(", ").toStdString();
}

} // namespace
