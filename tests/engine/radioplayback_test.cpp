#include "engine/radioplayback.h"

#include "audiocheck.h"
#include "encodedaudio.h"
#include "fixtureserver.h"
#include "icystream.h"
#include "proctree.h"
#include "rawhttpclient.h"
#include "testenv.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <unistd.h>

namespace {

class RadioPlaybackTest : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        QTemporaryDir dir;
        tone = EncodedAudio::encode(
            dir.filePath("tone.mp3"), { "-f", "lavfi", "-i", "sine=frequency=440:duration=4", "-b:a", "128k" });
    }
    void SetUp() override { ASSERT_GT(tone.size(), 60'000); }

    static std::optional<QUrl> startRelay(RadioPlayback &playback, const Station &station)
    {
        std::optional<std::optional<QUrl>> result;
        playback.start(station, [&](std::optional<QUrl> url) { result = url; });
        EXPECT_TRUE(waitUntil([&] { return result.has_value(); }, 10000));
        return result.value_or(std::nullopt);
    }

    // A station that plays the tone round and round, about three times faster than real time.
    Station endless()
    {
        server.route("/live", IcyStream::station({ "A - Song" }, 1'000'000, 20, tone));
        return Station::custom(QString::fromLatin1(server.url("/live")), "Live");
    }

    static QList<qint64> ffmpegs() { return ProcTree::children(::getpid(), "ffmpeg"); }

    static inline QByteArray tone;
    TestHome home;
    FixtureServer server;
    std::unique_ptr<RadioPlayback> relay = std::make_unique<RadioPlayback>(EncodedAudio::kFfmpeg);
    QStringList endings;
    QMetaObject::Connection watch
        = QObject::connect(relay.get(), &RadioPlayback::ended, [this](const QString &reason) { endings << reason; });
};

TEST_F(RadioPlaybackTest, AClientGetsTheHeadThenTheStationsAudioUntilItEnds)
{
    // Four seconds of tone, sent in pieces and then the end of the body.
    server.route("/finite", [](const FixtureServer::Request &) {
        auto at = std::make_shared<qsizetype>(0);
        return FixtureServer::Script::head("HTTP/1.0 200 OK", { { "Content-Type", "audio/mpeg" } }).produce(40, [at] {
            const QByteArray piece = tone.mid(*at, 4000);
            *at += piece.size();
            return piece;
        });
    });
    const std::optional<QUrl> url
        = startRelay(*relay, Station::custom(QString::fromLatin1(server.url("/finite")), "Four"));
    ASSERT_TRUE(url);
    EXPECT_EQ(url->toString(), QStringLiteral("http://127.0.0.1:%1/stream.mp3").arg(url->port()));
    EXPECT_TRUE(relay->isRunning());
    const qint64 pid = relay->processId();
    EXPECT_EQ(ffmpegs(), QList<qint64> { pid });

    RawHttpClient client(quint16(url->port()), RawHttpClient::request(quint16(url->port())));
    ASSERT_TRUE(waitUntil([&] { return client.closed; }, 20000)) << "the client is closed when the station ends";
    ASSERT_TRUE(client.received.startsWith(RadioPlayback::responseHead())) << client.received.left(200).toStdString();

    const QString body = home.file("relayed.mp3");
    writeFile(body, client.received.mid(RadioPlayback::responseHead().size()));
    QString error;
    const auto pcm = AudioCheck::decode(body, &error);
    ASSERT_TRUE(pcm) << error.toStdString();
    // All of it, up to ffmpeg's last frame: the client is closed only after the rest went out.
    EXPECT_GT(double(pcm->size()) / AudioCheck::kRateHz, 3.8);
    const std::vector<int> labels = AudioCheck::toneLabels(*pcm, { 440.0 }, 0.25);
    EXPECT_GE(std::count(labels.begin(), labels.end(), 0), qsizetype(labels.size()) - 2)
        << AudioCheck::describe(labels, 0.25).toStdString();

    ASSERT_TRUE(waitUntil([&] { return endings.size() == 1; }));
    EXPECT_FALSE(relay->isRunning());
    EXPECT_FALSE(relay->url());
    EXPECT_EQ(relay->processId(), 0);
    EXPECT_TRUE(ProcTree::ended(pid));
    // The listener went with ffmpeg.
    RawHttpClient late(quint16(url->port()), RawHttpClient::request(quint16(url->port())));
    ASSERT_TRUE(waitUntil([&] { return late.closed; }));
    EXPECT_EQ(late.received, QByteArray());
}

TEST_F(RadioPlaybackTest, EachStartReplacesTheRelayAndStopEndsIt)
{
    const Station live = endless();
    std::optional<std::optional<QUrl>> first;
    std::optional<std::optional<QUrl>> second;
    relay->start(live, [&](std::optional<QUrl> url) { first = url; });
    relay->start(live, [&](std::optional<QUrl> url) { second = url; });
    ASSERT_TRUE(waitUntil([&] { return first && second; }, 10000));
    EXPECT_EQ(*first, std::nullopt) << "an overtaken start gets nothing";
    ASSERT_TRUE(*second);
    const qint64 pid = relay->processId();
    EXPECT_EQ(ffmpegs(), QList<qint64> { pid });

    // A start while one serves a client.
    RawHttpClient client(quint16((*second)->port()), RawHttpClient::request(quint16((*second)->port())));
    ASSERT_TRUE(waitUntil([&] { return client.received.size() > 2000; }, 10000));
    ASSERT_TRUE(startRelay(*relay, live));
    EXPECT_TRUE(ProcTree::ended(pid));
    EXPECT_TRUE(waitUntil([&] { return client.closed; }));
    const qint64 replacement = relay->processId();
    EXPECT_NE(replacement, pid);
    EXPECT_EQ(ffmpegs(), QList<qint64> { replacement });

    std::optional<std::optional<QUrl>> stopped;
    relay->start(live, [&](std::optional<QUrl> url) { stopped = url; });
    relay->stop();
    EXPECT_FALSE(relay->isRunning());
    ASSERT_TRUE(waitUntil([&] { return stopped.has_value(); }));
    EXPECT_EQ(*stopped, std::nullopt);
    EXPECT_TRUE(waitUntil([&] { return ffmpegs().isEmpty() && relay->processId() == 0; }));
    EXPECT_TRUE(ProcTree::ended(replacement));
    EXPECT_EQ(endings, QStringList()) << "a relay we stopped did not end by itself";
}

TEST_F(RadioPlaybackTest, TheListenerServesOnlyThePlayersRequestToOneClient)
{
    const std::optional<QUrl> url = startRelay(*relay, endless());
    ASSERT_TRUE(url);
    const quint16 port = quint16(url->port());
    // Connected first and never finishing its request: it holds no slot, and is sent away.
    RawHttpClient idle(port, "GET /stream.mp3 HTTP/1.1\r\nHost: 127.0.0.1:" + QByteArray::number(port) + "\r\n");

    const auto answer = [&](const QByteArray &bytes) {
        RawHttpClient client(port, bytes);
        EXPECT_TRUE(waitUntil([&] { return client.closed; })) << bytes.toStdString();
        return client.statusLine();
    };
    EXPECT_EQ(answer(RawHttpClient::request(port, "GET", "/stream.mp3", "evil.example:" + QByteArray::number(port))),
        "HTTP/1.0 403 Forbidden");
    EXPECT_EQ(answer(RawHttpClient::request(port, "POST")), "HTTP/1.0 405 Method Not Allowed");
    EXPECT_EQ(answer(RawHttpClient::request(port, "GET", "/")), "HTTP/1.0 404 Not Found");
    EXPECT_EQ(answer(RawHttpClient::request(port, "GET", "/stream.mp3?a=1")), "HTTP/1.0 404 Not Found");
    EXPECT_EQ(answer("GET /stream.mp3 HTTP/1.1\r\nX-Long: " + QByteArray(RadioPlayback::kMaxRequestBytes, 'a')),
        "HTTP/1.0 400 Bad Request");

    RawHttpClient player(port, RawHttpClient::request(port));
    ASSERT_TRUE(waitUntil([&] { return player.received.size() > RadioPlayback::responseHead().size() + 2000; }, 10000));
    EXPECT_TRUE(player.received.startsWith(RadioPlayback::responseHead()));
    EXPECT_EQ(answer(RawHttpClient::request(port)), "HTTP/1.0 503 Service Unavailable");

    // The player goes away and asks again at once: it is served.
    player.socket.abort();
    RawHttpClient next(port, RawHttpClient::request(port));
    EXPECT_TRUE(waitUntil([&] { return next.closed || next.received.size() > RadioPlayback::responseHead().size(); }));
    EXPECT_TRUE(next.received.startsWith(RadioPlayback::responseHead())) << next.statusLine().toStdString();

    EXPECT_TRUE(waitUntil([&] { return idle.closed; }, 10000));
    EXPECT_EQ(idle.statusLine(), "HTTP/1.0 400 Bad Request");

    // Destruction ends ffmpeg before it returns.
    const qint64 pid = relay->processId();
    relay.reset();
    EXPECT_TRUE(ProcTree::ended(pid));
    EXPECT_TRUE(waitUntil([&] { return next.closed; }));
}

TEST_F(RadioPlaybackTest, OnlyHttpAddressesEverReachFfmpeg)
{
    // An ffmpeg that notes each launch.
    const QString launches = home.file("launches");
    const QString wrapper = home.file("bin/ffmpeg");
    writeFile(wrapper,
        "#!/bin/sh\necho \"$2\" >> '" + launches.toUtf8() + "'\nexec " + EncodedAudio::kFfmpeg.toUtf8() + " \"$@\"\n");
    ASSERT_TRUE(QFile::setPermissions(wrapper, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
    RadioPlayback guarded(wrapper);

    const QString live = QString::fromLatin1(server.url("/live"));
    for (const QString &address : { QStringLiteral("file:///etc/passwd"), "concat:" + live + "|" + live })
        EXPECT_EQ(startRelay(guarded, Station::custom(address, "Local")), std::nullopt) << address.toStdString();
    EXPECT_FALSE(QFile::exists(launches));

    const Station station = endless();
    ASSERT_TRUE(startRelay(guarded, station));
    EXPECT_TRUE(waitUntil([&] { return readFile(launches) == station.streamUrl.toUtf8() + "\n"; }));

    RadioPlayback missing(home.file("nowhere/ffmpeg"));
    EXPECT_EQ(startRelay(missing, station), std::nullopt);
    EXPECT_FALSE(missing.isRunning());
}

} // namespace
