#include "stations/directoryapi.h"
#include "stations/stationdirectory.h"

#include "directoryfixtures.h"
#include "fixtureserver.h"
#include "testenv.h"

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
    return {{"stationuuid", id}, {"name", "Station " + id}, {"url_resolved", streamUrl},
            {"bitrate", 128},    {"codec", "MP3"},          {"tags", "rock,classics"}};
}

// Stations "<prefix><first>" .. "<prefix><first+count-1>", streams under `streamBase`.
QByteArray page(const QString &prefix, int first, int count, const QByteArray &streamBase)
{
    QList<QJsonObject> objects;
    for (int i = first; i < first + count; ++i) {
        const QString id = prefix + QString::number(i);
        objects << directoryStation(id, QString::fromLatin1(streamBase) + "/s/" + id);
    }
    return jsonArray(objects);
}

QString queryItem(const FixtureServer::Request &request, const QString &key)
{
    const QByteArray target = request.target;
    return QUrlQuery(QString::fromUtf8(target.mid(target.indexOf('?') + 1))).queryItemValue(key, QUrl::FullyDecoded);
}

// The text a search request matches, by whichever key it was sent.
QString searched(const FixtureServer::Request &request)
{
    const QString name = queryItem(request, "name");
    return name.isEmpty() ? queryItem(request, "tag") : name;
}

Script delayed(Script script, int ms)
{
    script.steps.prepend({FixtureServer::Step::Kind::Pause, {}, ms, {}});
    return script;
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
    // Text that is not valid UTF-16 cannot be encoded at all: no page query, and a random
    // station without its tag.
    EXPECT_FALSE(percentEncodeQuery(QString(QChar(0xD83C))));
    EXPECT_FALSE(percentEncodeQuery(QString(QChar(0xDFB8)) + "a"));
    EXPECT_FALSE(DirectoryApi::pageUrl("http://d", QString(QChar(0xD800)), 0));
    EXPECT_EQ(DirectoryApi::randomUrl("http://d", QString(QChar(0xD800))),
              "http://d/json/stations/search?order=random&limit=1&hidebroken=true");
}

TEST(DirectoryApi, ParsesOnlyArraysOfObjectsAndSkipsUnusableEntries)
{
    using DirectoryApi::parseStations;
    for (const QByteArray &body : {QByteArray("<html>502</html>"), QByteArray(), QByteArray(R"({"stations":[]})"),
                                  QByteArray(R"([{"stationuuid":"a","name":"A","url":"http://a"}, 3])"),
                                  QByteArray(R"([{"stationuuid":"a","name":"A","url":"http://a"})")})
        EXPECT_FALSE(parseStations(body)) << body.toStdString();
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
    EXPECT_EQ(*stations, (QList<Station>{{"d", "D", "http://d"}, {"e", "E", "http://e"}}));
}

// --- The search against a loopback directory ---------------------------------------------

class StationDirectoryTest : public ::testing::Test {
protected:
    StationDirectoryTest() { directory.setDebounceInterval(10ms); }

    QString streamUrl(const QString &id) const { return QString::fromLatin1(server.url("/s/" + id.toUtf8())); }
    QByteArray page(const QString &prefix, int first, int count) const
    {
        return ::page(prefix, first, count, server.url(""));
    }
    Script pageAnswer(const QString &prefix, int first, int count, int status = 200) const
    {
        return Script::response(status, "application/json", page(prefix, first, count));
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

    // Runs a search to its end: asked, answered, idle again.
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
    server.route(kSearchPath, pageAnswer("a", 0, 40));
    searchAndWait("  abc ");
    ASSERT_EQ(directory.results().size(), 40);
    EXPECT_EQ(directory.currentQuery(), "abc");
    EXPECT_EQ(searched(searchRequests().last()), "abc");

    directory.search(" \t  ");
    EXPECT_TRUE(directory.results().isEmpty());
    EXPECT_FALSE(directory.hasMore());
    EXPECT_EQ(directory.currentQuery(), "");
    QTest::qWait(100);
    EXPECT_EQ(searchRequests().size(), 2); // by name and by tag, nothing for the blanks
}

TEST_F(StationDirectoryTest, PagesByFortyAndAppendsOnlyStationsNotYetShown)
{
    // Second page: five stations the first page already had, then 34 new ones.
    server.route(kSearchPath, [this](const FixtureServer::Request &r) {
        return queryItem(r, "offset") == "0" ? pageAnswer("st", 0, 40) : pageAnswer("st", 35, 39);
    });
    searchAndWait("Metal");
    EXPECT_TRUE(directory.hasMore());

    directory.loadMore();
    EXPECT_TRUE(directory.isLoadingMore());
    directory.loadMore(); // one page at a time
    ASSERT_TRUE(waitUntil([&] { return !directory.isLoadingMore(); }));

    // Each page is asked for by name and by tag; both answer the same stations here.
    QStringList targets;
    for (const auto &r : searchRequests())
        targets << QString::fromUtf8(r.target);
    targets.sort();
    const QString tail = "&hidebroken=true&order=clickcount&reverse=true";
    EXPECT_EQ(targets, (QStringList{kSearchPath + "?name=Metal&limit=40&offset=0" + tail,
                                    kSearchPath + "?name=Metal&limit=40&offset=40" + tail,
                                    kSearchPath + "?tag=Metal&limit=40&offset=0" + tail,
                                    kSearchPath + "?tag=Metal&limit=40&offset=40" + tail}));
    const QStringList shown = ids(directory.results());
    EXPECT_EQ(shown.size(), 74);
    EXPECT_EQ(QSet<QString>(shown.begin(), shown.end()).size(), 74);
    EXPECT_EQ(shown.last(), "st73");
    EXPECT_EQ(directory.offset(), 40);
    EXPECT_FALSE(directory.hasMore()); // 39 is not a full page

    directory.loadMore(); // a page is asked for at once, or not at all
    EXPECT_FALSE(directory.isLoadingMore());
    EXPECT_EQ(searchRequests().size(), 4);
}

TEST_F(StationDirectoryTest, TypingWithinTheDebounceSendsOnlyTheLastQuery)
{
    directory.setDebounceInterval(150ms);
    server.route(kSearchPath, pageAnswer("x", 0, 3));
    QList<bool> busy;
    QObject::connect(&directory, &StationDirectory::isSearchingChanged, [&](bool b) { busy << b; });
    directory.search("r");
    QTest::qWait(50);
    directory.search("rock ");
    EXPECT_FALSE(directory.isSearching()); // still waiting out the debounce
    ASSERT_TRUE(waitUntil([&] { return busy.size() == 2; }));
    EXPECT_EQ(busy, (QList<bool>{true, false}));
    ASSERT_EQ(searchRequests().size(), 2);
    for (const auto &r : searchRequests())
        EXPECT_EQ(searched(r), "rock");
    EXPECT_EQ(directory.results().size(), 3);
}

TEST_F(StationDirectoryTest, AnswersToAnOlderSearchAreDropped)
{
    // Further pages and the query "slow" take 300 ms.
    server.route(kSearchPath, [this](const FixtureServer::Request &r) {
        const QString name = searched(r);
        const Script answer = pageAnswer(name + queryItem(r, "offset") + "-", 0, 40);
        return name == "slow" || queryItem(r, "offset") != "0" ? delayed(answer, 300) : answer;
    });
    searchAndWait("first");
    directory.loadMore();
    directory.search("slow");
    ASSERT_TRUE(waitUntil([&] { return directory.isSearching(); }));
    directory.search("fast");
    EXPECT_FALSE(directory.isSearching()); // the dropped search will not come back to clear it
    ASSERT_TRUE(waitUntil([&] { return directory.currentQuery() == "fast" && !directory.isSearching(); }));
    QTest::qWait(400); // past the dropped answers' 300 ms: none of them may land
    EXPECT_EQ(directory.results().size(), 40);
    EXPECT_EQ(directory.results().first().id, "fast0-0");
    EXPECT_EQ(directory.offset(), 0);
    EXPECT_FALSE(directory.isSearching() || directory.isLoadingMore());
}

TEST_F(StationDirectoryTest, AnyStatusIsReadAndAnAnswerWithoutUsableStationsIsAnEmptyPage)
{
    server.route(kSearchPath, [this](const FixtureServer::Request &r) {
        return searched(r) == "busy" ? pageAnswer("b", 0, 40, 503)
                                              : Script::response(200, "application/json", R"([{}, {"name": "x"}])");
    });
    searchAndWait("busy");
    EXPECT_EQ(directory.results().size(), 40);
    searchAndWait("nothing");
    EXPECT_TRUE(directory.results().isEmpty());
    EXPECT_FALSE(directory.hasMore());
}

struct BadAnswer {
    const char *name;
    std::function<Script()> script;
};

class BadDirectoryAnswer : public StationDirectoryTest, public ::testing::WithParamInterface<BadAnswer> {};

// Whatever the directory does wrong, the shown results stay and the busy flags drop.
TEST_P(BadDirectoryAnswer, KeepsTheOldResultsAndResetsTheBusyFlags)
{
    directory.setRequestTimeout(0.3);
    const Script bad = GetParam().script();
    server.route(kSearchPath, [this, bad](const FixtureServer::Request &r) {
        return searched(r) == "good" ? pageAnswer("g", 0, 40) : bad;
    });
    searchAndWait("good");
    const QList<Station> shown = directory.results();
    ASSERT_EQ(shown.size(), 40);

    int busySignals = 0;
    QObject::connect(&directory, &StationDirectory::isSearchingChanged, [&] { ++busySignals; });
    directory.search("bad");
    ASSERT_TRUE(waitUntil([&] { return busySignals == 2; }));
    EXPECT_EQ(directory.results(), shown);
    EXPECT_TRUE(directory.hasMore());
    EXPECT_EQ(directory.currentQuery(), "bad");

    // A full page is still shown; paging the failed query must not stick either.
    directory.loadMore();
    ASSERT_TRUE(waitUntil([&] { return !directory.isLoadingMore(); }));
    EXPECT_EQ(directory.results(), shown);
}

Script json(const QByteArray &body)
{
    return Script::response(200, "application/json", body);
}

INSTANTIATE_TEST_SUITE_P(
    Faults, BadDirectoryAnswer,
    ::testing::Values(
        BadAnswer{"NotJson", [] { return Script::response(200, "text/html", "<html>oops</html>"); }},
        BadAnswer{"Object", [] { return json(R"({"error":"rate limited"})"); }},
        BadAnswer{"ArrayOfNumbers", [] { return json("[1,2,3]"); }},
        BadAnswer{"InvalidUtf8", [] { return json("[{\"stationuuid\":\"a\",\"name\":\"\xc3\x28\",\"url\":\"http://a\"}]"); }},
        BadAnswer{"MoreThanAPage", [] { return json(page("u", 0, 41, "http://127.0.0.1:9")); }},
        BadAnswer{"FiftyThousandEntries", [] { return json(page("u", 0, 50000, "http://127.0.0.1:9")); }},
        BadAnswer{"TruncatedBody",
                  [] { return Script::head("HTTP/1.1 200 OK", {{"Content-Length", "5000"}}).send("[{\"id\":").close(); }},
        BadAnswer{"Stalled",
                  [] { return Script::head("HTTP/1.1 200 OK", {{"Content-Length", "5000"}}).send("[{\"id\":").hang(); }},
        BadAnswer{"NeverAnswers", [] { return Script().hang(); }},
        // A byte every 50 ms never trips the idle limit; only a limit on the whole request ends it.
        BadAnswer{"Trickle",
                  [] {
                      return Script::head("HTTP/1.1 200 OK", {{"Content-Type", "application/json"}}).produce(50, [] {
                          return QByteArray(" ");
                      });
                  }}),
    [](const ::testing::TestParamInfo<BadAnswer> &p) { return std::string(p.param.name); });

TEST(StationDirectoryUnreachable, ARefusedConnectionLeavesAnIdleDirectory)
{
    QTcpServer closed;
    ASSERT_TRUE(closed.listen(QHostAddress::LocalHost, 0));
    const QString base = "http://127.0.0.1:" + QString::number(closed.serverPort());
    closed.close();
    HttpClient client;
    StationDirectory directory(client, base);
    directory.setDebounceInterval(1ms);
    QList<bool> busy;
    QObject::connect(&directory, &StationDirectory::isSearchingChanged, [&](bool b) { busy << b; });
    directory.search("anything");
    directory.loadRecommendations();
    ASSERT_TRUE(waitUntil([&] { return busy.size() == 2 && client.activeTransfers() == 0; }));
    EXPECT_TRUE(directory.results().isEmpty());
    EXPECT_EQ(directory.recommendations(), StationDirectory::curatedStations());
}

// --- Names and tags, filters, the popular list and the facet lists -----------------------

TEST_F(StationDirectoryTest, TextMatchesNamesAndTagsMergedOnceAndEachKeyPagesOnItsOwn)
{
    // "ambient": five stations by name, a full page by tag, the first of which also
    // carries the name. The tag's second page repeats one station already shown.
    server.route(kSearchPath, [this](const FixtureServer::Request &r) {
        if (!queryItem(r, "name").isEmpty())
            return pageAnswer("name", 0, 5);
        return queryItem(r, "offset") == "0" ? json(page("name", 0, 1) .chopped(1) + "," + page("tag", 0, 39).mid(1))
                                             : pageAnswer("tag", 38, 3);
    });
    searchAndWait("ambient");
    QStringList expected{"name0", "name1", "name2", "name3", "name4"};
    for (int i = 0; i < 39; ++i)
        expected << "tag" + QString::number(i);
    EXPECT_EQ(ids(directory.results()), expected);
    EXPECT_TRUE(directory.hasMore()); // the tag's page was full

    directory.loadMore();
    ASSERT_TRUE(waitUntil([&] { return !directory.isLoadingMore(); }));
    // Only the key that had more is asked again.
    ASSERT_EQ(searchRequests().size(), 3);
    EXPECT_EQ(searchRequests().last().target,
              kSearchPath + "?tag=ambient&limit=40&offset=40&hidebroken=true&order=clickcount&reverse=true");
    expected << "tag39" << "tag40";
    EXPECT_EQ(ids(directory.results()), expected);
    EXPECT_FALSE(directory.hasMore());
}

// Why a search by tag is as quick as one by name: both requests are out before either
// answer is in, so the first page costs one round trip.
TEST_F(StationDirectoryTest, NameAndTagAreAskedAtOnce)
{
    directory.setRequestTimeout(30);
    server.route(kSearchPath, [](const FixtureServer::Request &) { return Script().hang(); });
    directory.search("chill");
    ASSERT_TRUE(waitUntil([&] { return searchRequests().size() == 2; }));
    EXPECT_TRUE(directory.isSearching());
    QSet<QString> keys;
    for (const auto &r : searchRequests())
        keys << (queryItem(r, "name").isEmpty() ? "tag" : "name");
    EXPECT_EQ(keys, (QSet<QString>{"name", "tag"}));
}

TEST_F(StationDirectoryTest, FilterNarrowsBothKeysAndAloneListsWhatItChooses)
{
    server.route(kSearchPath, pageAnswer("f", 0, 40));
    DirectoryApi::SearchFilter filter;
    filter.countryCode = "AT";
    filter.language = "german";
    filter.order = DirectoryApi::SearchOrder::Votes;
    const QString narrowed = "&limit=40&offset=0&hidebroken=true&order=votes&reverse=true&countrycode=AT&language=german";

    // The tag arrives whole; the name keeps the designed encoding, '&' and all.
    directory.search("drum & bass", filter);
    ASSERT_TRUE(waitUntil([&] { return searchRequests().size() == 2 && !directory.isSearching(); }));
    QStringList targets;
    for (const auto &r : searchRequests())
        targets << QString::fromUtf8(r.target);
    targets.sort();
    EXPECT_EQ(targets, (QStringList{kSearchPath + "?name=drum%20&%20bass" + narrowed,
                                    kSearchPath + "?tag=drum%20%26%20bass" + narrowed}));
    EXPECT_EQ(directory.currentFilter(), filter);

    // No text: one list, the filter's own; paging goes on with it.
    directory.search("  ", filter);
    ASSERT_TRUE(waitUntil([&] { return searchRequests().size() == 3 && !directory.isSearching(); }));
    EXPECT_EQ(searchRequests().last().target, kSearchPath + "?" + narrowed.mid(1));
    EXPECT_EQ(directory.results().size(), 40);
    directory.loadMore();
    ASSERT_TRUE(waitUntil([&] { return searchRequests().size() == 4 && !directory.isLoadingMore(); }));
    EXPECT_EQ(queryItem(searchRequests().last(), "offset"), "40");
    EXPECT_EQ(queryItem(searchRequests().last(), "countrycode"), "AT");

    // Only an order narrows nothing: a blank text still clears.
    directory.search("", DirectoryApi::SearchFilter{{}, {}, DirectoryApi::SearchOrder::Votes});
    EXPECT_TRUE(directory.results().isEmpty());
    QTest::qWait(50);
    EXPECT_EQ(searchRequests().size(), 4);
}

TEST_F(StationDirectoryTest, PopularStationsOfTheCountryByVotesFallBackToTheWholeDirectory)
{
    server.route(kSearchPath, [this](const FixtureServer::Request &r) {
        const QString code = queryItem(r, "countrycode");
        return code == "XX" ? json("[]") : pageAnswer(code.isEmpty() ? "world" : code, 0, 3);
    });
    int changes = 0;
    QObject::connect(&directory, &StationDirectory::popularChanged, [&] { ++changes; });
    directory.loadPopular("de");
    ASSERT_TRUE(waitUntil([&] { return changes == 1; }));
    EXPECT_EQ(ids(directory.popular()), (QStringList{"DE0", "DE1", "DE2"}));
    EXPECT_EQ(searchRequests().last().target,
              kSearchPath + "?limit=40&offset=0&hidebroken=true&order=votes&reverse=true&countrycode=DE");
    directory.loadPopular("DE"); // the same country is not asked twice
    QTest::qWait(50);
    EXPECT_EQ(searchRequests().size(), 1);

    directory.loadPopular("XX");
    ASSERT_TRUE(waitUntil([&] { return changes == 2; }));
    EXPECT_EQ(ids(directory.popular()), (QStringList{"world0", "world1", "world2"}));
    EXPECT_EQ(queryItem(searchRequests().last(), "countrycode"), "");
}

TEST(DirectoryApi, FacetListsKeepNamedEntriesAndCountriesWithACode)
{
    using DirectoryApi::FacetKind;
    const QByteArray countries = R"([{"name":"Austria","iso_3166_1":"AT","stationcount":900},
        {"name":"","iso_3166_1":"XX","stationcount":1}, {"name":"Nowhere","stationcount":4},
        {"name":" Germany ","iso_3166_1":"de","stationcount":"many"}, {"name":"Bad","iso_3166_1":"DEU"}])";
    EXPECT_EQ(DirectoryApi::parseFacets(countries, FacetKind::Countries),
              (QList<DirectoryApi::Facet>{{"Austria", "AT", 900}, {"Germany", "DE", 0}}));
    EXPECT_EQ(DirectoryApi::parseFacets(R"([{"name":"german","iso_639":"de","stationcount":3}, {"name":7}])",
                                        FacetKind::Languages),
              (QList<DirectoryApi::Facet>{{"german", "", 3}}));
    EXPECT_FALSE(DirectoryApi::parseFacets(R"({"name":"german"})", FacetKind::Languages));
}

TEST_F(StationDirectoryTest, FacetListsAreFetchedOnceAndAFailedOneAgain)
{
    std::atomic<int> languageAnswers{0};
    server.route("/json/countries", json(R"([{"name":"Austria","iso_3166_1":"AT","stationcount":900}])"));
    server.route("/json/languages", [&](const FixtureServer::Request &) {
        return ++languageAnswers == 1 ? Script::response(500, "text/html", "oops")
                                      : json(R"([{"name":"german","stationcount":3}])");
    });
    directory.loadFacets();
    ASSERT_TRUE(waitUntil([&] { return directory.countries().size() == 1 && languageAnswers == 1; }));
    QTest::qWait(50);
    EXPECT_TRUE(directory.languages().isEmpty());
    directory.loadFacets();
    ASSERT_TRUE(waitUntil([&] { return directory.languages().size() == 1; }));
    EXPECT_EQ(directory.languages().first().name, "german");
    EXPECT_EQ(server.requestCount("/json/countries"), 1);
}

// --- The ICY probe -------------------------------------------------------------------------

TEST_F(StationDirectoryTest, ProbeReadsOnlyTheHeadAndFindsIcyMetaintInAnyCase)
{
    const auto endless = [] { return QByteArray(8192, 'A'); };
    server.route("/s/icy", Script::head("ICY 200 OK", {{"icy-name", "X"}, {"icy-metaint", "16000"}}).produce(5, endless));
    server.route("/s/upper", Script::head("HTTP/1.0 200 OK", {{"ICY-MetaInt", "8192"}}).send("AAAA"));
    server.route("/s/nameonly", Script::head("HTTP/1.0 200 OK", {{"icy-name", "N"}, {"icy-genre", "Rock"}}).produce(5, endless));
    server.route("/s/redirect", Script::head("HTTP/1.1 302 Found", {{"Location", "/s/upper"}, {"Content-Length", "0"}}));
    QList<QJsonObject> objects{directoryStation("garbage", "not a url")};
    for (const char *id : {"icy", "upper", "nameonly", "missing", "redirect"})
        objects << directoryStation(id, streamUrl(id));
    server.route(kSearchPath, json(jsonArray(objects)));

    searchAndWait("probe");
    ASSERT_TRUE(waitUntil([&] { return directory.icyStatus().size() == 6; }));
    const QHash<QString, bool> expected{{"icy", true},      {"upper", true},    {"nameonly", false},
                                        {"missing", false}, {"redirect", true}, {"garbage", false}};
    EXPECT_EQ(directory.icyStatus(), expected);

    const auto requests = server.requests();
    const auto icy = std::find_if(requests.begin(), requests.end(), [](const auto &r) { return r.path == "/s/icy"; });
    ASSERT_NE(icy, requests.end());
    QList<std::pair<QByteArray, QByteArray>> sent = icy->headers;
    EXPECT_EQ(sent, (QList<std::pair<QByteArray, QByteArray>>{{"Host", server.url("").mid(7)},
                                                              {"User-Agent", "Orvida/1.0"},
                                                              {"Icy-MetaData", "1"},
                                                              {"Accept-Encoding", "identity"}}));
    // The endless streams were hung up on once their heads were in.
    EXPECT_TRUE(waitUntil([&] { return server.openConnections() == 0 && client.activeTransfers() == 0; }));
}

TEST_F(StationDirectoryTest, ANewSearchAbortsTheRunningProbeAtOnce)
{
    directory.setProbeTimeouts(30, 30);
    server.fallback([](const FixtureServer::Request &) { return Script().hang(); });
    server.route(kSearchPath, [this](const FixtureServer::Request &r) { return pageAnswer(searched(r), 0, 5); });
    searchAndWait("hanging");
    ASSERT_TRUE(waitUntil([&] { return server.openConnections() == 5; }));
    directory.search("");
    EXPECT_TRUE(waitUntil([&] { return server.openConnections() == 0; }, 2000));
    EXPECT_TRUE(directory.icyStatus().isEmpty()); // aborted checks are not "no ICY"

    searchAndWait("next");
    ASSERT_TRUE(waitUntil([&] { return server.openConnections() == 5; }));
    directory.search("third"); // a real search cancels at once too, before its debounce ends
    EXPECT_TRUE(waitUntil([&] { return server.openConnections() <= 1; }, 2000));
}

TEST_F(StationDirectoryTest, FurtherPagesProbeOnlyStationsWithoutAnAnswer)
{
    server.route(kSearchPath, [this](const FixtureServer::Request &r) {
        return queryItem(r, "offset") == "0" ? pageAnswer("p", 0, 40) : pageAnswer("p", 30, 20);
    });
    searchAndWait("paged");
    ASSERT_TRUE(waitUntil([&] { return directory.icyStatus().size() == 40; }));
    directory.loadMore();
    ASSERT_TRUE(waitUntil([&] { return directory.icyStatus().size() == 50 && client.activeTransfers() == 0; }));
    for (int i = 0; i < 50; ++i)
        EXPECT_EQ(server.requestCount("/s/p" + QByteArray::number(i)), 1) << i;
}

// --- Start page and random station ---------------------------------------------------------

TEST_F(StationDirectoryTest, RecommendationsShowTheCuratedStationFirstAndLoadOnce)
{
    server.route(kSearchPath, json(jsonArray({QJsonObject{{"name", "unusable"}}, directoryStation("hiphop", streamUrl("h")),
                                              directoryStation("second", streamUrl("s"))})));
    directory.loadRecommendations();
    ASSERT_EQ(directory.recommendations().size(), 1);
    const Station curated = directory.recommendations().first();
    EXPECT_EQ(curated, Station::custom(curated.streamUrl, "Steel Radio"));
    EXPECT_TRUE(curated.streamUrl.startsWith("https://"));

    ASSERT_TRUE(waitUntil([&] { return directory.recommendations().size() == 2; }));
    EXPECT_EQ(directory.recommendations()[1].id, "hiphop");
    directory.loadRecommendations();
    QTest::qWait(50);
    ASSERT_EQ(searchRequests().size(), 1);
    EXPECT_EQ(searchRequests()[0].target, kSearchPath + "?name=i%20love%20radio%20-%20hip%20hop%20turnup"
                                                        "&limit=1&hidebroken=true&order=clickcount&reverse=true");
    EXPECT_EQ(directory.recommendations().size(), 2);
}

TEST_F(StationDirectoryTest, RandomStationTakesTheFirstUsableEntry)
{
    server.route(kSearchPath, [this](const FixtureServer::Request &r) {
        return queryItem(r, "tag") == "none"
            ? json("[]")
            : json(jsonArray({QJsonObject{{"stationuuid", "no-url"}, {"name", "x"}}, directoryStation("lucky", "http://l")}));
    });
    QObject context;
    std::optional<std::optional<Station>> answer;
    auto ask = [&](const QString &genre) {
        answer.reset();
        DirectoryApi::randomStation(client, directory.baseUrl(), genre, &context, [&](auto s) { answer = s; });
        return waitUntil([&] { return answer.has_value(); }) ? *answer : std::optional<Station>();
    };
    EXPECT_EQ(ask("drum & bass").value_or(Station()).id, "lucky");
    EXPECT_EQ(searchRequests().last().target, kSearchPath + "?order=random&limit=1&hidebroken=true&tag=drum%20&%20bass");
    EXPECT_EQ(ask("").value_or(Station()).id, "lucky");
    EXPECT_EQ(searchRequests().last().target, kSearchPath + "?order=random&limit=1&hidebroken=true");
    EXPECT_FALSE(ask("none"));
}

} // namespace
