#include "stations/directoryapi.h"
#include "stations/stationdirectory.h"

#include "fixtureserver.h"
#include "testenv.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QTcpServer>
#include <QTest>
#include <QUrlQuery>

#include <gtest/gtest.h>

using namespace std::chrono_literals;
using Script = FixtureServer::Script;

namespace {

const QByteArray kSearchPath = "/json/stations/search";

QJsonObject directoryStation(const QString &id, const QString &streamUrl)
{
    return {{"stationuuid", id},      {"name", "Station " + id}, {"url_resolved", streamUrl},
            {"country", "Germany"},   {"bitrate", 128},          {"codec", "MP3"},
            {"tags", "rock,classics"}, {"votes", 12}};
}

QByteArray jsonArray(const QList<QJsonObject> &objects)
{
    QJsonArray array;
    for (const QJsonObject &o : objects)
        array.append(o);
    return QJsonDocument(array).toJson(QJsonDocument::Compact);
}

QString queryItem(const FixtureServer::Request &request, const QString &key)
{
    const QByteArray target = request.target;
    return QUrlQuery(QString::fromUtf8(target.mid(target.indexOf('?') + 1))).queryItemValue(key, QUrl::FullyDecoded);
}

QStringList ids(const QList<Station> &stations)
{
    QStringList out;
    for (const Station &s : stations)
        out << s.id;
    return out;
}

// --- The directory's URLs and answers, without a network -------------------------------

TEST(DirectoryApi, EncodesLikeTheUrlQueryAllowedSet)
{
    using DirectoryApi::percentEncodeQuery;
    EXPECT_EQ(percentEncodeQuery("Rock & Roll=1/2?;a~b"), "Rock%20&%20Roll=1/2?;a~b");
    EXPECT_EQ(percentEncodeQuery("-._~!$&'()*+,;=:@/?"), "-._~!$&'()*+,;=:@/?");
    EXPECT_EQ(percentEncodeQuery("Ö%#[]"), "%C3%96%25%23%5B%5D");
    EXPECT_EQ(percentEncodeQuery("\"<>\\^`{|}\t"), "%22%3C%3E%5C%5E%60%7B%7C%7D%09");
    EXPECT_EQ(percentEncodeQuery(QString::fromUtf8("\xF0\x9F\x8E\xB8")), "%F0%9F%8E%B8");
    EXPECT_EQ(percentEncodeQuery(""), "");
    // Text that is not valid UTF-16 cannot be encoded at all.
    EXPECT_FALSE(percentEncodeQuery(QString(QChar(0xD83C))));
    EXPECT_FALSE(percentEncodeQuery(QString(QChar(0xDFB8)) + "a"));
}

TEST(DirectoryApi, BuildsEveryUrlFromOneBase)
{
    const QString base = "http://dir.invalid";
    EXPECT_EQ(DirectoryApi::pageUrl(base, "jazz radio", 80),
              "http://dir.invalid/json/stations/search?name=jazz%20radio&limit=40&offset=80"
              "&hidebroken=true&order=clickcount&reverse=true");
    EXPECT_EQ(DirectoryApi::recommendationUrl(base, "a&b"),
              "http://dir.invalid/json/stations/search?name=a&b&limit=1&hidebroken=true&order=clickcount&reverse=true");
    EXPECT_EQ(DirectoryApi::randomUrl(base, ""),
              "http://dir.invalid/json/stations/search?order=random&limit=1&hidebroken=true");
    EXPECT_EQ(DirectoryApi::randomUrl(base, "drum & bass"),
              "http://dir.invalid/json/stations/search?order=random&limit=1&hidebroken=true&tag=drum%20&%20bass");
    // A genre that cannot be encoded is left out instead of failing the query.
    EXPECT_EQ(DirectoryApi::randomUrl(base, QString(QChar(0xD800))),
              "http://dir.invalid/json/stations/search?order=random&limit=1&hidebroken=true");
    EXPECT_FALSE(DirectoryApi::pageUrl(base, QString(QChar(0xD800)), 0));
}

TEST(DirectoryApi, BaseComesFromTheEnvironmentWithoutTrailingSlash)
{
    const QByteArray saved = qgetenv("ORVIDA_DIRECTORY_URL");
    qputenv("ORVIDA_DIRECTORY_URL", "http://127.0.0.1:9/dir//");
    EXPECT_EQ(DirectoryApi::baseUrl(), "http://127.0.0.1:9/dir");
    qputenv("ORVIDA_DIRECTORY_URL", "");
    EXPECT_EQ(DirectoryApi::baseUrl(), "https://all.api.radio-browser.info");
    qunsetenv("ORVIDA_DIRECTORY_URL");
    EXPECT_EQ(DirectoryApi::baseUrl(), "https://all.api.radio-browser.info");
    if (!saved.isNull())
        qputenv("ORVIDA_DIRECTORY_URL", saved);
}

TEST(DirectoryApi, ParsesOnlyArraysOfObjectsAndSkipsUnusableEntries)
{
    using DirectoryApi::parseStations;
    EXPECT_FALSE(parseStations("<html>502 Bad Gateway</html>"));
    EXPECT_FALSE(parseStations(""));
    EXPECT_FALSE(parseStations(R"({"stations":[]})"));
    EXPECT_FALSE(parseStations(R"("just a text")"));
    EXPECT_FALSE(parseStations(R"([{"stationuuid":"a","name":"A","url":"http://a"}, 3])"));
    EXPECT_FALSE(parseStations("[{\"stationuuid\":\"a\",\"name\":\"\xff\xfe\",\"url\":\"http://a\"}]"));
    EXPECT_FALSE(parseStations(R"([{"stationuuid":"a","name":"A","url":"http://a"})"));
    EXPECT_EQ(parseStations("[]"), QList<Station>{});

    // Every field once with a wrong type: identity fields reject the entry, the others
    // fall back to their defaults. Order of the survivors is the server's.
    const auto stations = parseStations(R"([
        {"stationuuid": 1, "name": "N", "url": "http://1"},
        {"stationuuid": "b", "name": ["B"], "url": "http://b"},
        {"stationuuid": "c", "name": "C", "url_resolved": false, "url": 7},
        {"stationuuid": "d", "name": "D", "url_resolved": null, "url": "http://d",
         "country": 1, "bitrate": "128", "codec": {}, "favicon": 0, "geo_lat": "x", "geo_long": []},
        {"stationuuid": "e", "name": " E ", "url_resolved": "http://e"}
    ])");
    ASSERT_TRUE(stations);
    ASSERT_EQ(ids(*stations), (QStringList{"d", "e"}));
    const Station &d = stations->at(0);
    EXPECT_EQ(d.streamUrl, "http://d");
    EXPECT_EQ(d.country, "");
    EXPECT_EQ(d.bitrate, 0);
    EXPECT_EQ(d.codec, "");
    EXPECT_FALSE(d.favicon || d.geoLat || d.geoLong);
    EXPECT_EQ(stations->at(1).name, "E");
}

// --- The search against a loopback directory ---------------------------------------------

class StationDirectoryTest : public ::testing::Test {
protected:
    StationDirectoryTest()
    {
        directory.setDebounceInterval(10ms);
    }

    QString streamUrl(const QString &id) const { return QString::fromLatin1(server.url("/s/" + id.toUtf8())); }

    // Stations "<prefix><first>" .. "<prefix><first+count-1>", streams on the fixture.
    QByteArray page(const QString &prefix, int first, int count) const
    {
        QList<QJsonObject> objects;
        for (int i = first; i < first + count; ++i)
            objects << directoryStation(prefix + QString::number(i), streamUrl(prefix + QString::number(i)));
        return jsonArray(objects);
    }

    QList<FixtureServer::Request> searchRequests() const
    {
        QList<FixtureServer::Request> out;
        for (const auto &r : server.requests()) {
            if (r.path == kSearchPath)
                out << r;
        }
        return out;
    }

    // Runs a search to its end: busy first, then idle again.
    void searchAndWait(const QString &query)
    {
        const qsizetype before = searchRequests().size();
        directory.search(query);
        ASSERT_TRUE(waitUntil([&] { return searchRequests().size() > before && !directory.isSearching(); }));
    }

    FixtureServer server;
    HttpClient client;
    StationDirectory directory{client, QString::fromLatin1(server.url(""))};
};

TEST_F(StationDirectoryTest, BlankQueryClearsResultsWithoutAskingTheDirectory)
{
    server.route(kSearchPath, Script::response(200, "application/json", page("a", 0, 40)));
    searchAndWait("  abc ");
    ASSERT_EQ(directory.results().size(), 40);
    EXPECT_TRUE(directory.hasMore());
    EXPECT_EQ(directory.currentQuery(), "abc");
    EXPECT_EQ(queryItem(searchRequests().last(), "name"), "abc");

    int resultSignals = 0;
    QObject::connect(&directory, &StationDirectory::resultsChanged, [&] { ++resultSignals; });
    directory.search(" \t  ");
    EXPECT_TRUE(directory.results().isEmpty());
    EXPECT_FALSE(directory.hasMore());
    EXPECT_EQ(directory.currentQuery(), "");
    EXPECT_EQ(resultSignals, 1);
    QTest::qWait(100);
    EXPECT_EQ(searchRequests().size(), 1);
}

TEST_F(StationDirectoryTest, PagesByFortyAndAppendsOnlyStationsNotYetShown)
{
    server.route(kSearchPath, [this](const FixtureServer::Request &r) {
        // Second page: five stations the first page already had, then 34 new ones.
        const QByteArray body = queryItem(r, "offset") == "0" ? page("st", 0, 40) : page("st", 35, 39);
        return Script::response(200, "application/json", body);
    });
    searchAndWait("Metal");
    EXPECT_TRUE(directory.hasMore());
    EXPECT_EQ(directory.offset(), 0);

    directory.loadMore();
    EXPECT_TRUE(directory.isLoadingMore());
    directory.loadMore(); // one page at a time
    ASSERT_TRUE(waitUntil([&] { return !directory.isLoadingMore(); }));

    const auto requests = searchRequests();
    ASSERT_EQ(requests.size(), 2);
    EXPECT_EQ(requests[0].target, kSearchPath + "?name=Metal&limit=40&offset=0&hidebroken=true&order=clickcount&reverse=true");
    EXPECT_EQ(requests[1].target, kSearchPath + "?name=Metal&limit=40&offset=40&hidebroken=true&order=clickcount&reverse=true");
    EXPECT_EQ(directory.results().size(), 74);
    EXPECT_EQ(directory.results().last().id, "st73");
    const QStringList shownIds = ids(directory.results());
    EXPECT_EQ(QSet<QString>(shownIds.begin(), shownIds.end()).size(), 74);
    EXPECT_EQ(directory.offset(), 40);
    EXPECT_FALSE(directory.hasMore()); // 39 is not a full page

    directory.loadMore();
    EXPECT_FALSE(directory.isLoadingMore());
    QTest::qWait(50);
    EXPECT_EQ(searchRequests().size(), 2);
}

TEST_F(StationDirectoryTest, TypingWithinTheDebounceSendsOnlyTheLastQuery)
{
    directory.setDebounceInterval(150ms);
    server.route(kSearchPath, Script::response(200, "application/json", page("x", 0, 3)));
    QList<bool> busy;
    QObject::connect(&directory, &StationDirectory::isSearchingChanged, [&](bool b) { busy << b; });
    directory.search("r");
    directory.search("ro");
    QTest::qWait(50);
    directory.search("rock ");
    EXPECT_FALSE(directory.isSearching()); // still waiting out the debounce
    ASSERT_TRUE(waitUntil([&] { return busy.size() == 2; }));
    EXPECT_EQ(busy, (QList<bool>{true, false}));
    ASSERT_EQ(searchRequests().size(), 1);
    EXPECT_EQ(queryItem(searchRequests()[0], "name"), "rock");
    EXPECT_EQ(directory.results().size(), 3);
    EXPECT_FALSE(directory.hasMore());
}

TEST_F(StationDirectoryTest, ANewSearchDropsTheAnswerOfTheRunningOne)
{
    server.route(kSearchPath, [this](const FixtureServer::Request &r) {
        const QString name = queryItem(r, "name");
        Script s = Script::response(200, "application/json", page(name, 0, 2));
        if (name == "slow")
            s.steps.prepend({FixtureServer::Step::Kind::Pause, {}, 300, {}});
        return s;
    });
    directory.search("slow");
    ASSERT_TRUE(waitUntil([&] { return directory.isSearching(); }));
    directory.search("fast");
    EXPECT_FALSE(directory.isSearching()); // the dropped search will not come back to clear it
    ASSERT_TRUE(waitUntil([&] { return !directory.results().isEmpty(); }));
    QTest::qWait(400);
    EXPECT_EQ(ids(directory.results()), (QStringList{"fast0", "fast1"}));
    EXPECT_EQ(directory.currentQuery(), "fast");
    EXPECT_FALSE(directory.isSearching());
}

TEST_F(StationDirectoryTest, APageForAnOlderQueryIsDropped)
{
    server.route(kSearchPath, [this](const FixtureServer::Request &r) {
        const QString name = queryItem(r, "name");
        Script s = Script::response(200, "application/json", page(name + "-" + queryItem(r, "offset") + "-", 0, 40));
        if (queryItem(r, "offset") != "0")
            s.steps.prepend({FixtureServer::Step::Kind::Pause, {}, 300, {}});
        return s;
    });
    searchAndWait("first");
    directory.loadMore();
    directory.search("second");
    ASSERT_TRUE(waitUntil([&] { return !directory.isLoadingMore(); }));
    EXPECT_EQ(directory.currentQuery(), "second");
    EXPECT_EQ(directory.results().size(), 40);
    EXPECT_EQ(directory.results().first().id, "second-0-0");
    EXPECT_EQ(directory.offset(), 0);
}

TEST_F(StationDirectoryTest, TheStatusCodeIsNotExamined)
{
    server.route(kSearchPath, Script::response(503, "application/json", page("busy", 0, 1)));
    searchAndWait("x");
    EXPECT_EQ(ids(directory.results()), QStringList{"busy0"});
}

TEST_F(StationDirectoryTest, AnAnswerWithoutUsableStationsIsAnEmptyPage)
{
    server.route(kSearchPath, [this](const FixtureServer::Request &r) {
        return Script::response(200, "application/json",
                                queryItem(r, "name") == "good" ? page("g", 0, 40) : QByteArray(R"([{}, {"name": "x"}])"));
    });
    searchAndWait("good");
    searchAndWait("nothing");
    EXPECT_TRUE(directory.results().isEmpty());
    EXPECT_FALSE(directory.hasMore());
}

struct BadAnswer {
    const char *name;
    std::function<Script()> script;
};

class BadDirectoryAnswer : public StationDirectoryTest, public ::testing::WithParamInterface<BadAnswer> {};

// Whatever the directory does wrong, the shown results stay and the busy flag drops.
TEST_P(BadDirectoryAnswer, KeepsTheOldResultsAndResetsTheBusyFlag)
{
    directory.setRequestTimeout(0.3);
    const Script bad = GetParam().script();
    server.route(kSearchPath, [this, bad](const FixtureServer::Request &r) {
        return queryItem(r, "name") == "good" ? Script::response(200, "application/json", page("g", 0, 40)) : bad;
    });
    searchAndWait("good");
    ASSERT_EQ(directory.results().size(), 40);
    const QList<Station> shown = directory.results();

    int busySignals = 0;
    QObject::connect(&directory, &StationDirectory::isSearchingChanged, [&] { ++busySignals; });
    directory.search("bad");
    ASSERT_TRUE(waitUntil([&] { return busySignals == 2; }, 5000));
    EXPECT_FALSE(directory.isSearching());
    EXPECT_EQ(directory.results(), shown);
    EXPECT_TRUE(directory.hasMore());
    EXPECT_EQ(directory.currentQuery(), "bad");

    // A full page was shown, but paging the failed query must not crash or stick.
    directory.loadMore();
    ASSERT_TRUE(waitUntil([&] { return !directory.isLoadingMore(); }, 5000));
    EXPECT_EQ(directory.results(), shown);
}

QByteArray manyStations(int count)
{
    QByteArray body = "[";
    for (int i = 0; i < count; ++i) {
        if (i)
            body += ',';
        body += R"({"stationuuid":"u)" + QByteArray::number(i) + R"(","name":"S)" + QByteArray::number(i)
            + R"(","url_resolved":"http://127.0.0.1:9/)" + QByteArray::number(i) + "\"}";
    }
    return body + "]";
}

INSTANTIATE_TEST_SUITE_P(
    Faults, BadDirectoryAnswer,
    ::testing::Values(
        BadAnswer{"NotJson", [] { return Script::response(200, "text/html", "<html>oops</html>"); }},
        BadAnswer{"Object", [] { return Script::response(200, "application/json", R"({"error":"rate limited"})"); }},
        BadAnswer{"ArrayOfNumbers", [] { return Script::response(200, "application/json", "[1,2,3]"); }},
        BadAnswer{"InvalidUtf8",
                  [] {
                      return Script::response(200, "application/json",
                                              "[{\"stationuuid\":\"a\",\"name\":\"\xc3\x28\",\"url\":\"http://a\"}]");
                  }},
        BadAnswer{"MoreThanAPage", [] { return Script::response(200, "application/json", manyStations(41)); }},
        BadAnswer{"FiftyThousandEntries",
                  [] { return Script::response(200, "application/json", manyStations(50000)); }},
        BadAnswer{"TruncatedBody",
                  [] {
                      return Script::head("HTTP/1.1 200 OK", {{"Content-Length", "5000"}}).send("[{\"stationuuid\":").close();
                  }},
        BadAnswer{"Stalled",
                  [] {
                      return Script::head("HTTP/1.1 200 OK", {{"Content-Length", "5000"}}).send("[{\"stationuuid\":").hang();
                  }},
        BadAnswer{"NeverAnswers", [] { return Script().hang(); }}),
    [](const ::testing::TestParamInfo<BadAnswer> &p) { return std::string(p.param.name); });

TEST(StationDirectoryUnreachable, ARefusedConnectionLeavesAnIdleDirectory)
{
    quint16 port = 0;
    {
        QTcpServer probe;
        ASSERT_TRUE(probe.listen(QHostAddress::LocalHost, 0));
        port = probe.serverPort();
    }
    HttpClient client;
    StationDirectory directory(client, "http://127.0.0.1:" + QString::number(port));
    directory.setDebounceInterval(1ms);
    QList<bool> busy;
    QObject::connect(&directory, &StationDirectory::isSearchingChanged, [&](bool b) { busy << b; });
    directory.search("anything");
    ASSERT_TRUE(waitUntil([&] { return busy.size() == 2; }));
    EXPECT_TRUE(directory.results().isEmpty());
    EXPECT_FALSE(directory.hasMore());

    directory.loadRecommendations();
    EXPECT_EQ(directory.recommendations(), StationDirectory::curatedStations());
    QTest::qWait(100);
    EXPECT_EQ(directory.recommendations(), StationDirectory::curatedStations());

    bool answered = false;
    std::optional<Station> random = Station::custom("x", "");
    QObject context;
    DirectoryApi::randomStation(client, directory.baseUrl(), "", &context, [&](std::optional<Station> s) {
        random = s;
        answered = true;
    });
    ASSERT_TRUE(waitUntil([&] { return answered; }));
    EXPECT_FALSE(random);
}

// --- The ICY probe -------------------------------------------------------------------------

TEST_F(StationDirectoryTest, ProbeReadsOnlyTheHeadAndFindsIcyMetaintInAnyCase)
{
    server.route("/s/icy", Script::head("ICY 200 OK", {{"icy-name", "X"}, {"icy-metaint", "16000"}})
                               .produce(5, [] { return QByteArray(8192, 'A'); }));
    server.route("/s/upper", Script::head("HTTP/1.0 200 OK", {{"ICY-MetaInt", "8192"}}).send(QByteArray(100, 'A')));
    server.route("/s/nameonly", Script::head("HTTP/1.0 200 OK", {{"icy-name", "N"}, {"icy-genre", "Rock"}})
                                    .produce(5, [] { return QByteArray(8192, 'A'); }));
    server.route("/s/redirect", Script::head("HTTP/1.1 302 Found", {{"Location", "/s/upper"}, {"Content-Length", "0"}}));
    QList<QJsonObject> objects{directoryStation("icy", streamUrl("icy")), directoryStation("upper", streamUrl("upper")),
                               directoryStation("nameonly", streamUrl("nameonly")),
                               directoryStation("missing", streamUrl("missing")),
                               directoryStation("redirect", streamUrl("redirect")),
                               directoryStation("garbage", "not a url")};
    server.route(kSearchPath, Script::response(200, "application/json", jsonArray(objects)));

    searchAndWait("probe");
    ASSERT_TRUE(waitUntil([&] { return directory.icyStatus().size() == 6; }));
    const QHash<QString, bool> expected{{"icy", true},      {"upper", true},    {"nameonly", false},
                                        {"missing", false}, {"redirect", true}, {"garbage", false}};
    EXPECT_EQ(directory.icyStatus(), expected);

    for (const auto &r : server.requests()) {
        if (r.path != "/s/icy")
            continue;
        QList<QByteArray> names;
        for (const auto &[name, value] : r.headers)
            names << name.toLower();
        EXPECT_EQ(names, (QList<QByteArray>{"host", "user-agent", "icy-metadata", "accept-encoding"}));
        EXPECT_EQ(r.header("User-Agent"), "Orvida/1.0");
        EXPECT_EQ(r.header("Icy-MetaData"), "1");
        EXPECT_EQ(r.header("Accept-Encoding"), "identity");
    }
    // The endless streams were hung up on once their heads were in.
    EXPECT_TRUE(waitUntil([&] { return server.openConnections() == 0 && client.activeTransfers() == 0; }));
}

TEST_F(StationDirectoryTest, ANewSearchAbortsTheRunningProbeAtOnce)
{
    directory.setProbeTimeouts(30, 30);
    server.fallback([](const FixtureServer::Request &) { return Script().hang(); });
    server.route(kSearchPath, [this](const FixtureServer::Request &r) {
        return Script::response(200, "application/json", page(queryItem(r, "name"), 0, 5));
    });
    searchAndWait("hanging");
    ASSERT_TRUE(waitUntil([&] { return server.openConnections() == 5; }));

    directory.search("");
    EXPECT_TRUE(waitUntil([&] { return server.openConnections() == 0; }, 2000));
    EXPECT_TRUE(directory.icyStatus().isEmpty()); // aborted checks are not "no ICY"

    // The next search probes its own stations again.
    searchAndWait("next");
    ASSERT_TRUE(waitUntil([&] { return server.openConnections() == 5; }));
    directory.search("third");
    EXPECT_TRUE(waitUntil([&] { return server.openConnections() <= 1; }, 2000));
}

TEST_F(StationDirectoryTest, FurtherPagesProbeOnlyStationsWithoutAnAnswer)
{
    server.route(kSearchPath, [this](const FixtureServer::Request &r) {
        return Script::response(200, "application/json",
                                queryItem(r, "offset") == "0" ? page("p", 0, 40) : page("p", 30, 20));
    });
    searchAndWait("paged");
    ASSERT_TRUE(waitUntil([&] { return directory.icyStatus().size() == 40; }));
    directory.loadMore();
    ASSERT_TRUE(waitUntil([&] { return directory.icyStatus().size() == 50; }));
    ASSERT_TRUE(waitUntil([&] { return client.activeTransfers() == 0; }));
    for (int i = 0; i < 50; ++i)
        EXPECT_EQ(server.requestCount("/s/p" + QByteArray::number(i)), 1) << i;
}

// --- Start page and random station ---------------------------------------------------------

TEST_F(StationDirectoryTest, RecommendationsShowTheCuratedStationFirstAndLoadOnce)
{
    server.route(kSearchPath, Script::response(200, "application/json",
                                               jsonArray({QJsonObject{{"name", "unusable"}},
                                                          directoryStation("hiphop", streamUrl("hiphop")),
                                                          directoryStation("second", streamUrl("second"))})));
    directory.loadRecommendations();
    ASSERT_EQ(directory.recommendations().size(), 1);
    const Station &curated = directory.recommendations().first();
    EXPECT_EQ(curated.name, "Steel Radio");
    EXPECT_EQ(curated.id, "custom:" + curated.streamUrl);
    EXPECT_TRUE(curated.streamUrl.startsWith("https://"));
    EXPECT_TRUE(curated.country.isEmpty() && curated.codec.isEmpty() && curated.bitrate == 0);
    EXPECT_FALSE(curated.favicon || curated.geoLat || curated.geoLong);

    ASSERT_TRUE(waitUntil([&] { return directory.recommendations().size() == 2; }));
    EXPECT_EQ(directory.recommendations()[1].id, "hiphop");
    ASSERT_EQ(searchRequests().size(), 1);
    EXPECT_EQ(searchRequests()[0].target, kSearchPath
                  + "?name=i%20love%20radio%20-%20hip%20hop%20turnup&limit=1&hidebroken=true&order=clickcount&reverse=true");

    directory.loadRecommendations();
    QTest::qWait(50);
    EXPECT_EQ(searchRequests().size(), 1);
    EXPECT_EQ(directory.recommendations().size(), 2);
}

TEST_F(StationDirectoryTest, RandomStationTakesTheFirstUsableEntry)
{
    server.route(kSearchPath, [this](const FixtureServer::Request &r) {
        if (queryItem(r, "tag") == "none")
            return Script::response(200, "application/json", "[]");
        return Script::response(200, "application/json",
                                jsonArray({QJsonObject{{"stationuuid", "broken"}, {"name", "No URL"}},
                                           directoryStation("lucky", streamUrl("lucky"))}));
    });
    QObject context;
    std::optional<std::optional<Station>> answer;
    auto ask = [&](const QString &genre) {
        answer.reset();
        DirectoryApi::randomStation(client, directory.baseUrl(), genre, &context,
                                    [&](std::optional<Station> s) { answer = s; });
        return waitUntil([&] { return answer.has_value(); });
    };

    ASSERT_TRUE(ask("drum & bass"));
    ASSERT_TRUE(*answer);
    EXPECT_EQ((*answer)->id, "lucky");
    EXPECT_EQ(searchRequests().last().target,
              kSearchPath + "?order=random&limit=1&hidebroken=true&tag=drum%20&%20bass");

    ASSERT_TRUE(ask(""));
    EXPECT_EQ(searchRequests().last().target, kSearchPath + "?order=random&limit=1&hidebroken=true");

    ASSERT_TRUE(ask("none"));
    EXPECT_FALSE(*answer);
}

} // namespace
