#include "engine/radioplayback.h"
#include "engine/relayrequest.h"

#include <gtest/gtest.h>

namespace {

constexpr quint16 kPort = 40123;

QByteArray request(const QByteArray &requestLine, const QByteArray &headers = "Host: 127.0.0.1:40123\r\n")
{
    return requestLine + "\r\n" + headers;
}

int judge(const QByteArray &received)
{
    const std::optional<qsizetype> length = RelayRequest::headLength(received);
    if (!length)
        return -1;
    return RelayRequest::status(QByteArrayView(received).first(*length), kPort);
}

TEST(RelayRequest, TheHeadEndsAtTheFirstEmptyLine)
{
    EXPECT_EQ(RelayRequest::headLength("GET / HTTP/1.0\r\nHost: x\r\n"), std::nullopt);
    EXPECT_EQ(RelayRequest::headLength("GET / HTTP/1.0\r\nHost: x\r\n\r"), std::nullopt);
    EXPECT_EQ(RelayRequest::headLength("GET / HTTP/1.0\r\nHost: x\r\n\r\nrest"), 23);
    EXPECT_EQ(RelayRequest::headLength("GET / HTTP/1.0\nHost: x\n\n"), 22);
    EXPECT_EQ(RelayRequest::headLength("GET / HTTP/1.0\r\n\r\n"), 14);
}

TEST(RelayRequest, OnlyThePlayersOwnRequestIsServed)
{
    EXPECT_EQ(judge(request("GET /stream.mp3 HTTP/1.1") + "\r\n"), 200);
    EXPECT_EQ(
        judge(request("GET /stream.mp3 HTTP/1.0", "User-Agent: Lavf\r\nhOsT:  127.0.0.1:40123 \r\nIcy-MetaData: 1\r\n")
            + "\r\n"),
        200);
    EXPECT_EQ(judge("GET /stream.mp3 HTTP/1.1\nHost: 127.0.0.1:40123\n\n"), 200);

    // A page that reached the port through DNS rebinding names its own host, whatever it asks.
    EXPECT_EQ(judge(request("GET /stream.mp3 HTTP/1.1", "Host: evil.example:40123\r\n") + "\r\n"), 403);
    EXPECT_EQ(judge(request("POST /stream.mp3 HTTP/1.1", "Host: evil.example:40123\r\n") + "\r\n"), 403);
    EXPECT_EQ(judge(request("GET /stream.mp3 HTTP/1.1", "Host: localhost:40123\r\n") + "\r\n"), 403);
    EXPECT_EQ(judge(request("GET /stream.mp3 HTTP/1.1", "Host: 127.0.0.1:40124\r\n") + "\r\n"), 403);
    EXPECT_EQ(judge(request("GET /stream.mp3 HTTP/1.1", "Host: 127.0.0.1\r\n") + "\r\n"), 403);
    EXPECT_EQ(judge(request("GET /stream.mp3 HTTP/1.1", "X-Host: 127.0.0.1:40123\r\n") + "\r\n"), 403);
    EXPECT_EQ(judge(request("GET /stream.mp3 HTTP/1.0", "") + "\r\n"), 403);

    EXPECT_EQ(judge(request("POST /stream.mp3 HTTP/1.1") + "\r\n"), 405);
    EXPECT_EQ(judge(request("get /stream.mp3 HTTP/1.1") + "\r\n"), 405);

    EXPECT_EQ(judge(request("GET / HTTP/1.1") + "\r\n"), 404);
    EXPECT_EQ(judge(request("GET /stream.mp3?x=1 HTTP/1.1") + "\r\n"), 404);
    EXPECT_EQ(judge(request("GET http://127.0.0.1:40123/stream.mp3 HTTP/1.1") + "\r\n"), 404);
}

TEST(RelayRequest, WhatIsNotAnHttp1RequestIsABadRequest)
{
    for (const QByteArray &line : { QByteArray("GET /stream.mp3"), QByteArray("GET /stream.mp3 HTTP/2.0"),
             QByteArray("GET  /stream.mp3 HTTP/1.1"), QByteArray("GET /stream.mp3 HTTP/1.1 x"),
             QByteArray("GET /stream.mp3 HTTP/1.10"), QByteArray("G(T /stream.mp3 HTTP/1.1"),
             QByteArray("GET /stream\x01.mp3 HTTP/1.1"), QByteArray("") })
        EXPECT_EQ(judge(request(line) + "\r\n"), 400) << line.toStdString();
    // Headers read one way by us and another by someone else are refused outright.
    EXPECT_EQ(
        judge(request("GET /stream.mp3 HTTP/1.1", "Host: 127.0.0.1:40123\r\nHost: evil.example\r\n") + "\r\n"), 400);
    EXPECT_EQ(judge(request("GET /stream.mp3 HTTP/1.1", "Host : 127.0.0.1:40123\r\n") + "\r\n"), 400);
    EXPECT_EQ(judge(request("GET /stream.mp3 HTTP/1.1", "Host: 127.0.0.1:40123\r\n folded\r\n") + "\r\n"), 400);
    EXPECT_EQ(judge(request("GET /stream.mp3 HTTP/1.1", "no colon\r\n") + "\r\n"), 400);
}

// The wire tests read the status lines; these are the whole answers.
TEST(RelayRequest, RefusalsAreCompleteAnswersThatCloseTheConnection)
{
    EXPECT_EQ(RelayRequest::refusal(403), "HTTP/1.0 403 Forbidden\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
    EXPECT_EQ(RelayRequest::refusal(405),
        "HTTP/1.0 405 Method Not Allowed\r\nAllow: GET\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
}

TEST(RelayRequest, OnlyHttpAndHttpsAddressesReachFfmpeg)
{
    for (const char *ok : { "http://127.0.0.1:8000/live", "https://stream.example.org/radio.mp3?x=1",
             "HTTP://stream.example.org/", "http://[::1]:8000/" })
        EXPECT_TRUE(RadioPlayback::isRelayableAddress(QString::fromLatin1(ok))) << ok;
    for (const char *refused : { "file:///etc/passwd", "/etc/passwd", "concat:http://a.example/1|http://a.example/2",
             "subfile,,start,0,end,0,,:http://a.example/x", "ftp://a.example/x", "rtmp://a.example/x", "pipe:0",
             "http:///path", "http://", "http:/a.example/x", " http://a.example/x", "http://a.example/x y",
             "http://a.example/x\n", "https:a.example", "" })
        EXPECT_FALSE(RadioPlayback::isRelayableAddress(QString::fromLatin1(refused))) << refused;
}

} // namespace
