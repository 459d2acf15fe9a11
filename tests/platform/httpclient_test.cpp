#include "platform/httpclient.h"

#include "fixtureserver.h"
#include "testenv.h"

#include <QFile>
#include <QTemporaryDir>

#include <thread>

#include <QThread>

#include <gtest/gtest.h>

namespace {

struct Collected {
    std::optional<HttpResponseHead> head;
    QByteArray body;
    std::optional<HttpResult> result;
    QStringList order;
};

HttpTransfer streamInto(HttpClient &client, QObject *context, HttpRequest request, Collected &c)
{
    return client.stream(request, context,
                         {[&c](const HttpResponseHead &h) {
                              c.head = h;
                              c.order << QStringLiteral("head");
                          },
                          [&c](const QByteArray &chunk) {
                              c.body += chunk;
                              if (c.order.isEmpty() || c.order.last() != QStringLiteral("data"))
                                  c.order << QStringLiteral("data");
                          },
                          [&c](const HttpResult &r) {
                              c.result = r;
                              c.order << QStringLiteral("finished");
                          }});
}

// A one-shot get, run to its end.
struct Fetched {
    HttpResult result;
    HttpResponseHead head;
    QByteArray body;
};

class HttpClientTest : public ::testing::Test {
protected:
    Fetched fetch(const HttpRequest &request)
    {
        std::optional<Fetched> out;
        client.get(request, &context, [&](const HttpResult &r, const HttpResponseHead &h, const QByteArray &b) {
            out = Fetched{r, h, b};
        });
        EXPECT_TRUE(waitUntil([&] { return out.has_value(); })) << request.url.toStdString();
        return out.value_or(Fetched{});
    }

    FixtureServer server;
    HttpClient client;
    QObject context;
};

TEST_F(HttpClientTest, AcceptsShoutcastStatusLineAndDeliversHeadThenBodyInOrder)
{
    server.route("/stream", FixtureServer::Script::head("ICY 200 OK", {{"icy-metaint", "8192"}, {"Content-Type", "audio/mpeg"}})
                                .send("abc")
                                .pause(50)
                                .send("defgh"));
    Collected c;
    streamInto(client, &context, {server.url("/stream")}, c);
    ASSERT_TRUE(waitUntil([&] { return c.result.has_value(); }));
    EXPECT_TRUE(c.result->ok()) << c.result->message.toStdString();
    ASSERT_TRUE(c.head);
    EXPECT_EQ(c.head->statusCode, 200);
    EXPECT_EQ(c.head->statusLine, "ICY 200 OK");
    EXPECT_EQ(c.head->header("ICY-METAINT"), "8192");
    EXPECT_FALSE(c.head->hasHeader("icy-name"));
    EXPECT_EQ(c.body, "abcdefgh");
    EXPECT_EQ(c.order, (QStringList{"head", "data", "finished"}));
}

TEST_F(HttpClientTest, SendsExactlyTheGivenHeaders)
{
    server.route("/h", FixtureServer::Script::response(200, "text/plain", "ok"));
    (void)fetch({server.url("/h"), {{"Icy-MetaData", "1"}, {"User-Agent", "Orvida/1.0"}}});
    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 1);
    QList<QByteArray> names;
    for (const auto &[name, value] : requests[0].headers)
        names << name.toLower();
    EXPECT_EQ(names, (QList<QByteArray>{"host", "icy-metadata", "user-agent"}));
    EXPECT_EQ(requests[0].header("user-agent"), "Orvida/1.0");
}

TEST_F(HttpClientTest, GetDeliversTheFinalAnswerOrSaysWhyThereIsNone)
{
    server.route("/old", FixtureServer::Script::response(302, "text/plain", "", {{"Location", "/new"}}));
    server.route("/new", FixtureServer::Script::response(200, "text/plain", "moved here"));
    server.route("/loop", FixtureServer::Script::response(302, "text/plain", "", {{"Location", "/loop"}}));
    server.route("/missing", FixtureServer::Script::response(404, "text/html", "<html>nope</html>"));
    server.route("/big", FixtureServer::Script::response(200, "application/json", QByteArray(100000, '[')));

    const Fetched moved = fetch({server.url("/old")});
    EXPECT_TRUE(moved.result.ok());
    EXPECT_EQ(moved.head.statusCode, 200);
    EXPECT_EQ(moved.head.url, server.url("/new"));
    EXPECT_EQ(moved.body, "moved here");
    // An error status is still an answer, body and all.
    const Fetched missing = fetch({server.url("/missing")});
    EXPECT_TRUE(missing.result.ok());
    EXPECT_EQ(missing.head.statusCode, 404);
    EXPECT_EQ(missing.body, "<html>nope</html>");

    HttpRequest loop{server.url("/loop")};
    loop.maxRedirects = 3;
    EXPECT_EQ(fetch(loop).result.error, HttpError::TooManyRedirects);
    HttpRequest big{server.url("/big")};
    big.maxBodyBytes = 1000; // refused instead of buffered
    EXPECT_EQ(fetch(big).result.error, HttpError::BodyTooLarge);
    quint16 closedPort = 0; // nothing listens there any more
    {
        FixtureServer gone;
        closedPort = gone.port();
    }
    const Fetched refused = fetch({"http://127.0.0.1:" + QByteArray::number(closedPort) + "/"});
    EXPECT_EQ(refused.result.error, HttpError::ConnectionFailed);
    EXPECT_FALSE(refused.result.message.isEmpty());
    EXPECT_EQ(fetch({"ftp://127.0.0.1/file"}).result.error, HttpError::InvalidUrl);
}

// Bytes every 100 ms keep a 0.4 s idle time-out from firing, a stall after them ends it,
// as does a server that never answers; a total limit ends even a busy transfer.
TEST_F(HttpClientTest, IdleAndTotalTimeoutsEndStalledAndEndlessTransfers)
{
    int pieces = 0;
    server.route("/slow", FixtureServer::Script::head("HTTP/1.0 200 OK", {{"Content-Type", "audio/mpeg"}})
                              .produce(100, [&pieces] { return ++pieces <= 8 ? QByteArray("x") : QByteArray(); })
                              .hang());
    server.route("/silent", FixtureServer::Script().hang());
    server.route("/busy", FixtureServer::Script::head("HTTP/1.0 200 OK", {})
                              .produce(20, [] { return QByteArray(100, 'y'); }));
    Collected slow, silent, busy;
    HttpRequest request{server.url("/slow")};
    request.idleTimeoutSec = 0.4;
    streamInto(client, &context, request, slow);
    request = {server.url("/silent")};
    request.idleTimeoutSec = 0.3;
    streamInto(client, &context, request, silent);
    request = {server.url("/busy")};
    request.totalTimeoutSec = 0.3;
    streamInto(client, &context, request, busy);
    ASSERT_TRUE(waitUntil([&] { return slow.result && silent.result && busy.result; }, 5000));
    for (const Collected *c : {&slow, &silent, &busy})
        EXPECT_EQ(c->result->error, HttpError::Timeout);
    EXPECT_EQ(slow.body, "xxxxxxxx");
    EXPECT_FALSE(silent.head.has_value());
    EXPECT_GT(busy.body.size(), 0);
}

TEST_F(HttpClientTest, AStreamPausedForItsSlowConsumerStillTimesOutWhenItStallsLater)
{
    // 6 MiB at once, then nothing. The consumer sleeps through its first chunk, so the worker
    // pauses the transfer at 4 MiB; once resumed and drained, the stall must end it.
    const QByteArray burst(6 << 20, 'x');
    server.route("/burst", FixtureServer::Script::head("HTTP/1.0 200 OK", {}).send(burst).hang());
    HttpRequest request{server.url("/burst")};
    request.idleTimeoutSec = 0.4;
    qint64 received = 0;
    std::optional<HttpResult> result;
    client.stream(request, &context,
                  {{},
                   [&](const QByteArray &chunk) {
                       if (received == 0)
                           QThread::msleep(800);
                       received += chunk.size();
                   },
                   [&](const HttpResult &r) { result = r; }});
    ASSERT_TRUE(waitUntil([&] { return result.has_value(); }, 10000)) << "the stall after the pause never timed out";
    EXPECT_EQ(result->error, HttpError::Timeout);
    EXPECT_EQ(received, burst.size());
}

TEST_F(HttpClientTest, CancelStopsEveryCallbackAndClosesTheConnection)
{
    server.route("/endless", FixtureServer::Script::head("HTTP/1.0 200 OK", {})
                                 .produce(10, [] { return QByteArray(512, 'z'); }));
    Collected c;
    HttpTransfer transfer = streamInto(client, &context, {server.url("/endless")}, c);
    ASSERT_TRUE(waitUntil([&] { return c.body.size() > 2048; }));
    transfer.cancel();
    const qsizetype seen = c.body.size();
    waitUntil([] { return false; }, 200);
    EXPECT_EQ(c.body.size(), seen);
    EXPECT_FALSE(c.result.has_value());
    EXPECT_TRUE(waitUntil([&] { return server.openConnections() == 0 && client.activeTransfers() == 0; }));
}

TEST_F(HttpClientTest, ADestroyedContextReceivesNothing)
{
    server.route("/late", FixtureServer::Script().pause(100).send("HTTP/1.0 200 OK\r\n\r\nlate"));
    bool called = false;
    {
        QObject shortLived;
        client.get({server.url("/late")}, &shortLived, [&](auto &&...) { called = true; });
    }
    EXPECT_TRUE(waitUntil([&] { return client.activeTransfers() == 0; }));
    waitUntil([] { return false; }, 200);
    EXPECT_FALSE(called);
}

TEST_F(HttpClientTest, DownloadWritesTheBodyAndRemovesTheFileOnFailure)
{
    QTemporaryDir dir;
    const QByteArray payload(200000, 'p');
    server.route("/asset", FixtureServer::Script::response(200, "application/octet-stream", payload));
    server.route("/broken", FixtureServer::Script::head("HTTP/1.1 200 OK", {{"Content-Length", "1000"}}).send("short").close());

    std::optional<HttpResult> ok, broken;
    client.download({server.url("/asset")}, dir.filePath("asset"), &context, [&](const HttpResult &r, auto &&) { ok = r; });
    client.download({server.url("/broken")}, dir.filePath("broken"), &context, [&](const HttpResult &r, auto &&) { broken = r; });
    ASSERT_TRUE(waitUntil([&] { return ok && broken; }));
    EXPECT_TRUE(ok->ok());
    EXPECT_EQ(readFile(dir.filePath("asset")), payload);
    EXPECT_FALSE(broken->ok());
    EXPECT_FALSE(QFile::exists(dir.filePath("broken")));
}

TEST_F(HttpClientTest, ManyConcurrentStreamsAllComplete)
{
    server.route("/s", FixtureServer::Script::head("HTTP/1.0 200 OK", {}).send(QByteArray(3000, 'a')).pause(30).send("end"));
    constexpr int kStreams = 60;
    std::vector<Collected> collected(kStreams);
    for (auto &c : collected)
        streamInto(client, &context, {server.url("/s")}, c);
    ASSERT_TRUE(waitUntil([&] {
        return std::all_of(collected.begin(), collected.end(), [](const Collected &c) { return c.result.has_value(); });
    }, 10000));
    for (const auto &c : collected) {
        EXPECT_TRUE(c.result->ok());
        EXPECT_EQ(c.body.size(), 3003);
    }
}

TEST(HttpClientBlocking, WaitsForTheWholeAnswerOffTheEventLoop)
{
    FixtureServer server;
    server.route("/info", FixtureServer::Script::head("HTTP/1.1 200 OK", {{"Content-Length", "5"}}).pause(50).send("hello"));
    server.route("/stall", FixtureServer::Script().hang());
    HttpClient client;
    HttpClient::BlockingResult ok, stalled;
    std::thread worker([&] {
        ok = client.getBlocking({server.url("/info")});
        HttpRequest request{server.url("/stall")};
        request.totalTimeoutSec = 0.2;
        stalled = client.getBlocking(request);
    });
    worker.join();
    EXPECT_TRUE(ok.result.ok());
    EXPECT_EQ(ok.head.statusCode, 200);
    EXPECT_EQ(ok.body, "hello");
    EXPECT_EQ(stalled.result.error, HttpError::Timeout);
}

// A pool task blocked on a server that never answers, and one that asks only after the
// shutdown began, both come back at once: nothing may keep the shutdown waiting.
TEST(HttpClientBlocking, TheShutdownReleasesEveryBlockedCaller)
{
    FixtureServer server;
    server.route("/stall", FixtureServer::Script().hang());
    auto client = std::make_unique<HttpClient>();
    std::atomic<bool> stalledBack{false};
    HttpClient::BlockingResult stalled, late;
    std::thread waiting([&] {
        stalled = client->getBlocking({server.url("/stall")});
        stalledBack = true;
    });
    ASSERT_TRUE(waitUntil([&] { return server.openConnections() == 1; }));
    client->beginShutdown();
    ASSERT_TRUE(waitUntil([&] { return stalledBack.load(); }, 3000));
    waiting.join();
    EXPECT_EQ(stalled.result.error, HttpError::Cancelled);

    std::thread asking([&] { late = client->getBlocking({server.url("/stall")}); });
    asking.join(); // before the fix: waits for ever
    EXPECT_EQ(late.result.error, HttpError::Cancelled);
    client.reset();
}

} // namespace
