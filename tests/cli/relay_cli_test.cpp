#include "clichild.h"
#include "clirunner.h"
#include "fixtureserver.h"
#include "icystream.h"
#include "proctree.h"
#include "rawhttpclient.h"
#include "testenv.h"

#include <QUrl>

#include <gtest/gtest.h>

namespace {

class RelayCliTest : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        QString error;
        tone = runProgram(QStringLiteral("ffmpeg"),
            QStringLiteral("-v error -f lavfi -i sine=frequency=440:duration=3 -b:a 128k -f mp3 -").split(' '), &error)
                   .value_or(QByteArray());
    }
    void SetUp() override { ASSERT_GT(tone.size(), 40'000); }

    // The relay's local URL once it printed it; absent when it ended first.
    static std::optional<QUrl> localUrl(CliChild &relay)
    {
        waitUntil([&] { return relay.count("url\t") > 0 || relay.process.state() == QProcess::NotRunning; }, 15000);
        const QList<QByteArray> lines = relay.starting("url\t");
        if (lines.size() != 1)
            return std::nullopt;
        return QUrl(QString::fromUtf8(lines[0].mid(4)));
    }

    // The relay's ffmpeg, once the relay's listener serves.
    static qint64 ffmpegOf(CliChild &relay)
    {
        QList<qint64> found;
        waitUntil([&] {
            found = ProcTree::children(relay.process.processId(), "ffmpeg");
            return !found.isEmpty();
        });
        EXPECT_EQ(found.size(), 1);
        return found.value(0);
    }

    QString endless()
    {
        server.route("/live", IcyStream::station({ "A - Song" }, 1'000'000, 20, tone));
        return QString::fromLatin1(server.url("/live"));
    }

    static inline QByteArray tone;
    TestHome home;
    FixtureServer server;
};

TEST_F(RelayCliTest, ServesTheStationUntilTerminated)
{
    CliChild relay({ "relay", endless() });
    const std::optional<QUrl> url = localUrl(relay);
    ASSERT_TRUE(url) << relay.joined().toStdString();
    EXPECT_EQ(url->toString(), QStringLiteral("http://127.0.0.1:%1/stream.mp3").arg(url->port()));
    const qint64 ffmpeg = ffmpegOf(relay);

    RawHttpClient player(quint16(url->port()), RawHttpClient::request(quint16(url->port())));
    ASSERT_TRUE(waitUntil([&] { return player.received.size() > 4000; }, 10000)) << player.received.toStdString();
    EXPECT_TRUE(player.received.startsWith("HTTP/1.0 200 OK\r\n"));

    relay.process.terminate();
    EXPECT_EQ(relay.finish(), 0);
    EXPECT_TRUE(ProcTree::ended(ffmpeg));
    EXPECT_TRUE(waitUntil([&] { return player.closed; }));
}

// However orvida-cli dies, its ffmpeg does not run on, even while it waits for a station
// that says nothing (one that writes would end on its broken pipe anyway).
TEST_F(RelayCliTest, AKilledRelayTakesItsFfmpegAlong)
{
    server.route("/quiet", FixtureServer::Script::head("HTTP/1.0 200 OK", { { "Content-Type", "audio/mpeg" } }).hang());
    CliChild relay({ "relay", QString::fromLatin1(server.url("/quiet")) });
    ASSERT_TRUE(localUrl(relay)) << relay.joined().toStdString();
    const qint64 ffmpeg = ffmpegOf(relay);
    ASSERT_GT(ffmpeg, 0);
    // Asleep on the station, with nothing left to write.
    ASSERT_TRUE(waitUntil([&] {
        const std::optional<ProcTree::Entry> e = ProcTree::entry(ffmpeg);
        return server.requestCount("/quiet") == 1 && e && e->state == 'S';
    }));
    relay.process.kill(); // SIGKILL: nothing of ours runs any more
    EXPECT_EQ(relay.finish(), -1);
    EXPECT_TRUE(waitUntil([&] { return ProcTree::ended(ffmpeg); }));
}

TEST_F(RelayCliTest, TheStationsEndIsReportedAndWhatCannotBeRelayedIsAFailure)
{
    server.route("/once",
        FixtureServer::Script::head("HTTP/1.0 200 OK", { { "Content-Type", "audio/mpeg" } }).send(tone).close());
    CliChild once({ "relay", QString::fromLatin1(server.url("/once")) });
    ASSERT_TRUE(localUrl(once)) << once.joined().toStdString();
    EXPECT_EQ(once.finish(), 3);
    EXPECT_EQ(once.starting("error\t"), QList<QByteArray> { "error\tStream unterbrochen" });

    const CliRun local = runCli({ "relay", "file:///etc/passwd" });
    EXPECT_EQ(local.exitCode, 1);
    EXPECT_EQ(local.out, QByteArray());
    EXPECT_EQ(local.err.count('\n'), 1) << local.err.toStdString();
    EXPECT_EQ(runCli({ "relay" }).exitCode, 2);
}

} // namespace
