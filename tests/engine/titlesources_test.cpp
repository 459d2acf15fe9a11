#include "engine/enginesettingsstore.h"
#include "engine/icecaststatus.h"
#include "engine/recordingcontext.h"
#include "engine/recordingsession.h"
#include "engine/streamtitlepoller.h"
#include "platform/httpclient.h"

#include "fixtureserver.h"
#include "icystream.h"
#include "bytesettings.h"
#include "testenv.h"

#include <QDebug>
#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMutex>

#include <gtest/gtest.h>

namespace {

TEST(IcecastStatus, StatusAddressDropsThePortAndKeepsTheScheme)
{
    EXPECT_EQ(IcecastStatus::statusUrl("http://radio.example:8000/live.mp3"), QUrl("http://radio.example/status-json.xsl"));
    EXPECT_EQ(IcecastStatus::statusUrl("https://radio.example/live"), QUrl("https://radio.example/status-json.xsl"));
    EXPECT_EQ(IcecastStatus::statusUrl("no host at all"), std::nullopt);
    EXPECT_EQ(IcecastStatus::mountPath("http://radio.example:8000/live.mp3"), "/live.mp3");
}

QByteArray statusWith(const QJsonValue &source)
{
    return QJsonDocument(QJsonObject{{"icestats", QJsonObject{{"source", source}}}}).toJson();
}

QJsonObject source(const QString &mount, const QString &title)
{
    return {{"listenurl", "http://radio.example:8000" + mount}, {"mount", mount}, {"title", title}};
}

TEST(IcecastStatus, PicksTheMatchingSource)
{
    const QByteArray several = statusWith(QJsonArray{source("/other", "Wrong - One"), source("/live", "Right - One")});
    EXPECT_EQ(IcecastStatus::titleFor(several, "/live"), "Right - One");
    EXPECT_EQ(IcecastStatus::titleFor(several, "/nothing"), std::nullopt);
    // A lone source counts even under another mount name.
    EXPECT_EQ(IcecastStatus::titleFor(statusWith(source("/x", "Only - Song")), "/live"), "Only - Song");
    // A listen address that ends with the path matches.
    QJsonObject byUrl{{"listenurl", "http://h:8000/live"}, {"mount", "/m"}, {"title", "By - Url"}};
    EXPECT_EQ(IcecastStatus::titleFor(statusWith(QJsonArray{source("/a", "A - A"), byUrl}), "/live"), "By - Url");
    for (const QByteArray &bad : {QByteArray("not json"), QByteArray("[]"), QByteArray("{\"icestats\": 3}"),
                                  statusWith(QJsonValue(5)), statusWith(source("/live", ""))})
        EXPECT_EQ(IcecastStatus::titleFor(bad, "/live"), std::nullopt) << bad.toStdString();
}

// A stream without in-band titles is cut by the titles of the status document; a stream
// with in-band titles ignores polled ones until they have been silent for a while.
class PolledTitlesTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        useByteExactSaves();
        context.timings.statusPollIntervalSec = 0.1;
        context.timings.inBandPrecedenceSec = 0.5;
        context.timings.statusUrlFor = [this](const QString &) { return QUrl(QString::fromLatin1(server.url("/status-json.xsl"))); };
        server.route("/status-json.xsl", [this](const FixtureServer::Request &) {
            QMutexLocker lock(&titleMutex);
            return FixtureServer::Script::response(200, "application/json", statusWith(source("/live", polledTitle)));
        });
    }

    void setPolledTitle(const QString &title)
    {
        QMutexLocker lock(&titleMutex);
        polledTitle = title;
    }

    // A status server that notes when it is asked and answers after `delayMs`, beside a
    // stream without in-band titles.
    void timePolls(int delayMs)
    {
        server.route("/status-json.xsl", [this, delayMs](const FixtureServer::Request &) {
            QMutexLocker lock(&titleMutex);
            pollMs << clock.elapsed();
            FixtureServer::Script answer = FixtureServer::Script().pause(delayMs);
            answer.steps += FixtureServer::Script::response(200, "application/json", statusWith(source("/live", "Polled - One"))).steps;
            return answer;
        });
        server.route("/live", FixtureServer::Script::head("HTTP/1.0 200 OK", {{"Content-Type", "audio/mpeg"}})
                                  .produce(50, [] { return QByteArray(800, 'x'); }));
        clock.start();
    }
    QList<qint64> polls()
    {
        QMutexLocker lock(&titleMutex);
        return pollMs;
    }

    TestHome home;
    FixtureServer server;
    HttpClient http;
    RecordingContext context{http, nullptr};
    QMutex titleMutex; // guards the two below, which the server's thread uses
    QString polledTitle = QStringLiteral("Polled - First");
    QList<qint64> pollMs;
    QElapsedTimer clock;
};

TEST_F(PolledTitlesTest, StatusTitlesCutAStreamWithoutInBandTitles)
{
    int sent = 0;
    server.route("/live", FixtureServer::Script::head("HTTP/1.0 200 OK", {{"Content-Type", "audio/mpeg"}})
                              .produce(20, [&sent] { return ++sent < 100000 ? IcyStream::audioBlock(sent) : QByteArray(); }));
    RecordingSession session(Station::custom(QString::fromLatin1(server.url("/live")), "Polled FM"), std::nullopt, context);
    std::vector<Track> saved;
    session.onTrackSaved = [&](const Track &t) { saved.push_back(t); };
    ASSERT_TRUE(waitUntil([&] { return session.currentStreamTitle() == "Polled - First"; }));
    waitUntil([] { return false; }, 300);
    setPolledTitle("Polled - Second");
    ASSERT_TRUE(waitUntil([&] { return saved.size() == 1; }));
    EXPECT_EQ(saved[0].artist + " - " + saved[0].title, "Polled - First");
    EXPECT_GT(QFileInfo(*saved[0].filePath).size(), 1000);
    session.stop();
    waitUntil([&] { return session.isIdle(); });
}

TEST_F(PolledTitlesTest, InBandTitlesTakePrecedenceOverPolledOnes)
{
    bool titled = false;
    server.route("/live", FixtureServer::Script::head("ICY 200 OK", {{"icy-metaint", "1000"}})
                              .produce(20, [&titled] {
                                  // One in-band title at the start, then only empty blocks.
                                  const QByteArray meta = IcyStream::metaBlock(titled ? "" : "StreamTitle='InBand - Song';");
                                  titled = true;
                                  return QByteArray(1000, 'x') + meta;
                              }));
    setPolledTitle("Polled - Late");
    RecordingSession session(Station::custom(QString::fromLatin1(server.url("/live")), "Both FM"), std::nullopt, context);
    QStringList titles;
    QList<qint64> atMs;
    clock.start();
    QObject::connect(&session, &RecordingSession::currentStreamTitleChanged, [&](const QString &t) {
        titles << t;
        atMs << clock.elapsed();
    });
    // The poll runs every 0.1 s, but the in-band title holds for 0.5 s before a polled one counts.
    ASSERT_TRUE(waitUntil([&] { return titles.size() >= 2; }, 5000));
    EXPECT_EQ(titles.first(), "InBand - Song");
    EXPECT_EQ(titles[1], "Polled - Late");
    EXPECT_GE(atMs[1] - atMs[0], 400); // polls came every 0.1 s but had to wait
    session.stop();
    waitUntil([&] { return session.isIdle(); });
}

// With the real timing: the first poll 5 s after the start, then one every 5 s, one at a
// time, whatever the stream does meanwhile (here: no in-band titles at all).
TEST_F(PolledTitlesTest, PollsFirstAfterFiveSecondsThenEveryFive)
{
    context.timings = RecordingTimings{};
    context.timings.statusUrlFor = [this](const QString &) { return QUrl(QString::fromLatin1(server.url("/status-json.xsl"))); };
    timePolls(0);
    RecordingSession session(Station::custom(QString::fromLatin1(server.url("/live")), "Timed FM"), std::nullopt, context);
    waitUntil([] { return false; }, 11500); // counting what comes in a stretch of time
    session.stop();
    const QList<qint64> at = polls();
    ASSERT_EQ(at.size(), 2) << "polls at ms: " << QDebug::toString(at).toStdString();
    EXPECT_NEAR(at[0], 5000, 600);
    EXPECT_NEAR(at[1] - at[0], 5000, 600);
    waitUntil([&] { return session.isIdle(); });
}

// A slow status server is asked again only an interval after it answered: polls never
// overlap and never come faster than the interval.
TEST_F(PolledTitlesTest, ASlowStatusServerIsNeverAskedTwiceAtOnce)
{
    context.timings.statusPollIntervalSec = 0.3;
    timePolls(700);
    RecordingSession session(Station::custom(QString::fromLatin1(server.url("/live")), "Slow FM"), std::nullopt, context);
    ASSERT_TRUE(waitUntil([&] { return polls().size() >= 3; }));
    session.stop();
    const QList<qint64> at = polls();
    for (qsizetype i = 1; i < at.size(); ++i)
        EXPECT_GE(at[i] - at[i - 1], 900) << "poll " << i;
    waitUntil([&] { return session.isIdle(); });
}

TEST(StreamTitlePoller, ARestartForgetsTheOldStreamAndItsTitle)
{
    FixtureServer server;
    auto icy = [](const QByteArray &title) {
        return FixtureServer::Script::head("ICY 200 OK", {{"icy-metaint", "50"}})
            .send(QByteArray(50, 'a') + IcyStream::metaBlock("StreamTitle='" + title + "';"))
            .hang();
    };
    server.route("/a", icy("A - Song"));
    server.route("/b", icy("B - Song"));
    HttpClient http;
    StreamTitlePoller poller(http);
    poller.setInterval(std::chrono::milliseconds(50));
    QStringList seen;
    QObject::connect(&poller, &StreamTitlePoller::titleChanged, [&](const QString &t) { seen << t; });
    poller.start(QString::fromLatin1(server.url("/a")));
    ASSERT_TRUE(waitUntil([&] { return poller.title() == "A - Song"; }));
    poller.start(QString::fromLatin1(server.url("/b")));
    EXPECT_EQ(poller.title(), "");
    ASSERT_TRUE(waitUntil([&] { return poller.title() == "B - Song"; }));
    const int aRequests = server.requestCount("/a");
    EXPECT_FALSE(waitUntil([&] { return server.requestCount("/a") != aRequests; }, 300)) << "the first loop goes on";
    EXPECT_EQ(seen, (QStringList{"A - Song", "", "B - Song"}));
    EXPECT_TRUE(waitUntil([&] { return server.openConnections() == 0; })); // each look closes its connection
    poller.stop();
}

} // namespace
