#include "engine/trackinfolookup.h"

#include "fixtureserver.h"
#include "platform/httpclient.h"

#include <gtest/gtest.h>

namespace {

using TrackInfoLookup::StoreResult;

// Shaped like the store's answer, trimmed to the fields and a few neighbours.
const QByteArray kStoreAnswer = R"json({
 "resultCount":3,
 "results": [
  {"wrapperType":"track", "kind":"song", "artistName":"Queen Tribute Band", "collectionName":"Covers Vol. 2",
   "trackName":"Bohemian Rhapsody (Live)", "artworkUrl100":"ART/covers/100x100bb.jpg", "trackTimeMillis":360000},
  {"wrapperType":"track", "kind":"song", "artistName":"Queen", "collectionName":"A Night at the Opera",
   "trackName":"Bohemian Rhapsody", "artworkUrl100":"ART/opera/100x100bb.jpg"},
  "not an object",
  {"wrapperType":"track", "artistName":"QUEEN", "collectionName":"Greatest Hits", "trackName":"bohemian rhapsody"}
 ]
})json";

TEST(TrackInfoLookup, ParsesTheStoreAnswerAndSkipsWhatIsNotAResult)
{
    const auto results = TrackInfoLookup::parseResults(kStoreAnswer);
    ASSERT_EQ(results.size(), 3);
    EXPECT_EQ(results[1].artistName, "Queen");
    EXPECT_EQ(results[1].trackName, "Bohemian Rhapsody");
    EXPECT_EQ(results[1].collectionName, "A Night at the Opera");
    EXPECT_EQ(results[1].artworkUrl100, "ART/opera/100x100bb.jpg");
    EXPECT_EQ(results[2].artworkUrl100, "");

    for (const QByteArray &bad : {QByteArray(), QByteArray("<html>busy</html>"), QByteArray(R"({"results":{}})"),
                                 QByteArray(R"([{"trackName":"x"}])"), QByteArray(R"({"results":[)")})
        EXPECT_TRUE(TrackInfoLookup::parseResults(bad).isEmpty()) << bad.constData();
}

TEST(TrackInfoLookup, ChoosesEqualOverContainedOverUnrelatedInStoreOrder)
{
    const auto results = TrackInfoLookup::parseResults(kStoreAnswer);
    // Both exact (ignoring case): the earlier of the two exact entries.
    EXPECT_EQ(TrackInfoLookup::chooseResult(results, "queen", "BOHEMIAN RHAPSODY")->collectionName,
              "A Night at the Opera");
    // Only containment anywhere: the entry that contains both wins over a half match.
    const QList<StoreResult> partial{{"Other Song", "Queen", "Wrong Album", ""},
                                     {"Bohemian Rhapsody (Remastered)", "Queen", "Remasters", ""}};
    EXPECT_EQ(TrackInfoLookup::chooseResult(partial, "Queen", "Bohemian Rhapsody")->collectionName, "Remasters");
    // Stream titles are often longer than the store's names.
    const QList<StoreResult> shorter{{"Nothing", "Nobody", "First", ""}, {"Hello", "Adele", "25", ""}};
    EXPECT_EQ(TrackInfoLookup::chooseResult(shorter, "Adele", "Hello (Radio Edit)")->collectionName, "25");
    // Nothing matches: the store's first answer.
    EXPECT_EQ(TrackInfoLookup::chooseResult(shorter, "Someone", "Else")->collectionName, "First");
    EXPECT_FALSE(TrackInfoLookup::chooseResult({}, "Queen", "Bohemian Rhapsody"));
}

TEST(TrackInfoLookup, BuildsTheSearchAndCoverAddresses)
{
    EXPECT_EQ(TrackInfoLookup::searchUrl("http://127.0.0.1:9/search", "AC/DC", "Back in Black"),
              "http://127.0.0.1:9/search?term=AC%2FDC%20Back%20in%20Black&entity=song&limit=5");
    EXPECT_EQ(TrackInfoLookup::searchUrl("http://h/s", " Bj\u00f6rk ", "Army of Me & You?"),
              "http://h/s?term=Bj%C3%B6rk%20Army%20of%20Me%20%26%20You%3F&entity=song&limit=5");
    EXPECT_EQ(TrackInfoLookup::searchUrl("http://h/s", "", "Solo"), "http://h/s?term=Solo&entity=song&limit=5");
    EXPECT_EQ(TrackInfoLookup::coverUrl("https://is1.example/a/b/100x100bb.jpg"), "https://is1.example/a/b/600x600bb.jpg");

    qputenv("ORVIDA_STORE_URL", "http://127.0.0.1:1/store");
    EXPECT_EQ(TrackInfoLookup::storeBase(), "http://127.0.0.1:1/store");
    qputenv("ORVIDA_STORE_URL", "");
    EXPECT_TRUE(TrackInfoLookup::storeBase().startsWith("https://"));
    qunsetenv("ORVIDA_STORE_URL");
}

class TrackInfoLookupServer : public ::testing::Test {
protected:
    void SetUp() override
    {
        QByteArray answer = kStoreAnswer;
        answer.replace("ART", server.url(""));
        server.route("/search", FixtureServer::Script::response(200, "application/json", answer));
    }
    FixtureServer server;
    HttpClient http;
    const QByteArray jpeg = QByteArray("\xFF\xD8\xFF\xE0", 4) + QByteArray(2000, 'j');
};

TEST_F(TrackInfoLookupServer, FetchesTheAlbumAndTheLargeCoverOfTheBestResult)
{
    server.route("/opera/600x600bb.jpg", FixtureServer::Script::response(200, "image/jpeg", jpeg));
    const auto info = TrackInfoLookup::lookupTrackInfo(http, server.url("/search"), "Queen", "Bohemian Rhapsody");
    EXPECT_EQ(info.album, "A Night at the Opera");
    EXPECT_EQ(info.cover, jpeg);

    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 2);
    EXPECT_EQ(requests[0].target, "/search?term=Queen%20Bohemian%20Rhapsody&entity=song&limit=5");
    EXPECT_EQ(requests[1].path, "/opera/600x600bb.jpg");
}

TEST_F(TrackInfoLookupServer, KeepsTheAlbumWhenTheCoverIsMissingOrNotAJpeg)
{
    for (const auto &cover : { FixtureServer::Script::response(200, "image/png", "\x89PNG\r\n\x1a\n...."),
                               FixtureServer::Script::response(404, "image/jpeg", jpeg) }) {
        server.route("/opera/600x600bb.jpg", cover);
        const auto info = TrackInfoLookup::lookupTrackInfo(http, server.url("/search"), "Queen", "Bohemian Rhapsody");
        EXPECT_EQ(info.album, "A Night at the Opera");
        EXPECT_TRUE(info.cover.isEmpty());
    }
}

TEST_F(TrackInfoLookupServer, AnyStoreFailureGivesNothing)
{
    server.route("/down", FixtureServer::Script::response(503, "application/json", kStoreAnswer));
    server.route("/cut", FixtureServer::Script::head("HTTP/1.1 200 OK", {{"Content-Length", "5000"}}).send("{\"res").close());
    server.route("/none", FixtureServer::Script::response(200, "application/json", R"({"resultCount":0,"results":[]})"));
    for (const char *path : {"/down", "/cut", "/none"}) {
        const auto info = TrackInfoLookup::lookupTrackInfo(http, server.url(path), "Queen", "Bohemian Rhapsody");
        EXPECT_FALSE(info.album) << path;
        EXPECT_TRUE(info.cover.isEmpty()) << path;
    }
    // Nothing listens on the discard port of the loopback.
    const auto info = TrackInfoLookup::lookupTrackInfo(http, "http://127.0.0.1:9/search", "Queen", "X");
    EXPECT_FALSE(info.album);
}

} // namespace
