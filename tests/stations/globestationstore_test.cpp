#include "stations/globestationstore.h"

#include "directoryfixtures.h"
#include "fixtureserver.h"
#include "testenv.h"

#include <QDateTime>
#include <QFile>
#include <QTest>

#include <gtest/gtest.h>

using Script = FixtureServer::Script;

namespace {

constexpr double kDaySec = 86400;
constexpr double kT = 1'700'000'000;

double now()
{
    return double(QDateTime::currentMSecsSinceEpoch()) / 1000.0;
}

QJsonObject placed(const QString &id, const QJsonValue &lat, const QJsonValue &lon)
{
    QJsonObject o{{"stationuuid", id}, {"name", "Station " + id}, {"url_resolved", "http://127.0.0.1:9/" + id}};
    if (!lat.isUndefined())
        o.insert("geo_lat", lat);
    if (!lon.isUndefined())
        o.insert("geo_long", lon);
    return o;
}

QByteArray cacheBytes(double fetchedAt, const QList<QJsonObject> &objects)
{
    return R"({"fetchedAt":)" + QByteArray::number(fetchedAt, 'f', 3) + R"(,"stations":)" + jsonArray(objects) + "}";
}

std::optional<GlobeStationStore::CachedStations> decode(const QByteArray &file, double atSec)
{
    return GlobeStationStore::decodeCache(file, GlobeStationStore::kMaxAgeSec, atSec);
}

// --- Cache file and catalogue decoding --------------------------------------------------

TEST(GlobeCache, KeepsOnlyStationsWithAPositionAndIsFreshForLessThanSevenDays)
{
    const QByteArray file = cacheBytes(kT, {placed("nearZero", 0.00005, 0.00003), placed("equator", 0, 12.5),
                                            placed("tooFarNorth", 91, 10), placed("text", "48.2082", "16.3738"),
                                            placed("tooFarEast", 10, 181), placed("corner", -90, -180),
                                            placed("latOnly", 10, QJsonValue::Undefined), placed("badText", "north", 3),
                                            QJsonObject{{"stationuuid", "noUrl"}, {"name", "x"}, {"geo_lat", 1}, {"geo_long", 1}}});
    const auto cached = decode(file, kT + 6 * kDaySec);
    ASSERT_TRUE(cached);
    EXPECT_EQ(ids(cached->stations), (QStringList{"equator", "text", "corner"}));
    EXPECT_TRUE(cached->fresh);
    EXPECT_TRUE(decode(file, kT + 7 * kDaySec - 1)->fresh);
    EXPECT_FALSE(decode(file, kT + 7 * kDaySec)->fresh);
    EXPECT_FALSE(decode(file, kT + 8 * kDaySec)->fresh);
}

TEST(GlobeCache, RejectsFilesOfTheWrongShape)
{
    const QByteArray good = cacheBytes(kT, {placed("a", 1, 2)});
    const QByteArray station = R"({"stationuuid":"a","name":"A","url":"http://a","geo_lat":1,"geo_long":2})";
    const QList<QByteArray> bad{"", good.left(good.size() / 2), "[]", R"({"stations":[)" + station + "]}",
                                R"({"fetchedAt":"1700000000","stations":[)" + station + "]}",
                                R"({"fetchedAt":1700000000,"stations":{"a":1}})",
                                R"({"fetchedAt":1700000000,"stations":[)" + station + ",7]}", cacheBytes(kT, {}),
                                cacheBytes(kT, {placed("nowhere", 0, 0)})};
    for (const QByteArray &data : bad)
        EXPECT_FALSE(decode(data, kT)) << data.toStdString();
    EXPECT_TRUE(decode(good, kT));
}

TEST(GlobeCache, WritesSlimObjectsWithTheDirectoryValuesUnchangedAndReadsThemBack)
{
    QJsonObject full = placed("full", "47.5", 19);
    for (auto [key, value] : {std::pair<const char *, QJsonValue>{"url", "http://plain"}, {"country", "Hungary"},
                              {"bitrate", 96}, {"codec", "AAC"}, {"favicon", ""}, {"tags", "pop"}, {"votes", 3},
                              {"name", QString::fromUtf8(" \"Quoted\" \\ Back\nslash\t\x01 Ö \xF0\x9F\x8E\xB8")}})
        full.insert(key, value);
    const QJsonObject oddTypes{{"stationuuid", 5},           {"name", QJsonValue::Null}, {"bitrate", "high"},
                               {"codec", QJsonArray{1, "x"}}, {"country", QJsonObject{{"k", false}}},
                               {"geo_lat", 1e300},            {"geo_long", -0.000123}};
    QJsonObject noName = placed("noName", 1, 1);
    noName.remove("name");
    QJsonObject noUuid = placed("noUuid", 1, 1);
    noUuid.remove("stationuuid");

    const QByteArray bytes = GlobeStationStore::makeCacheData({full, oddTypes, noName, noUuid}, 1234.5);
    EXPECT_FALSE(bytes.contains('\n'));
    const QJsonObject root = QJsonDocument::fromJson(bytes).object();
    EXPECT_EQ(root.value("fetchedAt").toDouble(), 1234.5);
    QJsonObject expected = full;
    expected.remove("tags");
    expected.remove("votes");
    EXPECT_EQ(root.value("stations").toArray(), (QJsonArray{expected, oddTypes}));

    // The catalogue path writes the same file and reads back the stations it showed.
    const auto catalogue = GlobeStationStore::decodeCatalogue(jsonArray({full, oddTypes, placed("zero", 0, 0)}), kT);
    ASSERT_TRUE(catalogue);
    EXPECT_EQ(ids(catalogue->stations), QStringList{"full"});
    ASSERT_TRUE(decode(catalogue->cacheData, kT + 60));
    EXPECT_EQ(decode(catalogue->cacheData, kT + 60)->stations, catalogue->stations);
    EXPECT_FALSE(GlobeStationStore::decodeCatalogue(R"({"error":"x"})", kT));
    EXPECT_FALSE(GlobeStationStore::decodeCatalogue(jsonArray({placed("zero", 0, 0)}), kT));
}

// --- The store against a loopback directory ---------------------------------------------

class GlobeStationStoreTest : public ::testing::Test {
protected:
    GlobeStationStoreTest()
    {
        QObject::connect(store.get(), &GlobeStationStore::isLoadingChanged, [this](bool b) { loading << b; });
    }

    QString cachePath() const { return home.file("data/Orvida/globe_stations.json"); }
    void serve(const QList<QJsonObject> &objects, int delayMs = 0)
    {
        Script s = Script::response(200, "application/json", jsonArray(objects));
        s.steps.prepend({FixtureServer::Step::Kind::Pause, {}, delayMs, {}});
        server.route("/json/stations/search", s);
    }
    int requests() const { return server.requestCount("/json/stations/search"); }
    // The cache file as the next start would find it.
    std::optional<GlobeStationStore::CachedStations> onDisk() const { return decode(readFile(cachePath()), now()); }

    TestHome home;
    FixtureServer server;
    HttpClient client;
    std::unique_ptr<GlobeStationStore> store = std::make_unique<GlobeStationStore>(client, QString::fromLatin1(server.url("")));
    QList<bool> loading;
};

TEST_F(GlobeStationStoreTest, WithoutCacheFetchesOnceShowsAndKeepsTheCatalogue)
{
    EXPECT_EQ(GlobeStationStore::cacheUrl(), cachePath());
    serve({placed("a", 10, 20), placed("nowhere", 0, 0), placed("b", -10, -20)}, 100);
    store->loadIfNeeded();
    store->loadIfNeeded();
    ASSERT_TRUE(waitUntil([&] { return !store->stations().isEmpty(); }));
    EXPECT_EQ(ids(store->stations()), (QStringList{"a", "b"}));
    EXPECT_EQ(loading, (QList<bool>{true, false}));
    EXPECT_FALSE(store->errorMessage());
    ASSERT_EQ(requests(), 1);
    EXPECT_EQ(server.requests().first().target,
              "/json/stations/search?has_geo_info=true&hidebroken=true&order=clickcount&reverse=true&limit=3000");
    ASSERT_TRUE(onDisk());
    EXPECT_TRUE(onDisk()->fresh);
    EXPECT_EQ(onDisk()->stations, store->stations());

    // While a fetch runs, a further refresh joins it.
    store->refresh();
    store->refresh();
    ASSERT_TRUE(waitUntil([&] { return loading.size() == 2 && requests() == 2; }));
    QTest::qWait(200);
    EXPECT_EQ(requests(), 2);
}

TEST_F(GlobeStationStoreTest, AFreshCacheIsShownWithoutFetching)
{
    writeFile(cachePath(), cacheBytes(now() - 6 * kDaySec, {placed("cached", 1, 2)}));
    serve({placed("network", 3, 4)});
    store->loadIfNeeded();
    ASSERT_TRUE(waitUntil([&] { return !store->stations().isEmpty(); }));
    QTest::qWait(200);
    EXPECT_EQ(ids(store->stations()), QStringList{"cached"});
    EXPECT_EQ(requests(), 0);
    EXPECT_TRUE(loading.isEmpty());
}

TEST_F(GlobeStationStoreTest, AStaleCacheIsShownAtOnceAndReplacedByTheFetch)
{
    writeFile(cachePath(), cacheBytes(now() - 8 * kDaySec, {placed("cached", 1, 2)}));
    serve({placed("network", 3, 4)}, 300);
    QStringList seen;
    QObject::connect(store.get(), &GlobeStationStore::stationsChanged, [&] { seen << ids(store->stations()).join(','); });
    store->loadIfNeeded();
    ASSERT_TRUE(waitUntil([&] { return seen.size() == 2; }));
    EXPECT_EQ(seen, (QStringList{"cached", "network"}));
    EXPECT_TRUE(loading.isEmpty()); // a stale list on screen is not a busy state
    ASSERT_TRUE(onDisk());
    EXPECT_EQ(ids(onDisk()->stations), QStringList{"network"});
}

TEST_F(GlobeStationStoreTest, ABrokenCacheLeadsToAFetchAndIsReplacedByAGoodFile)
{
    serve({placed("network", 3, 4)});
    const QByteArray good = cacheBytes(now(), {placed("cached", 1, 2)});
    for (const QByteArray &bytes : {good.left(good.size() - 10), QByteArray(), QByteArray(R"({"fetchedAt":[],"stations":[]})"),
                                    cacheBytes(now(), {placed("zero", 0, 0)})}) {
        writeFile(cachePath(), bytes);
        const int before = requests();
        GlobeStationStore fresh(client, QString::fromLatin1(server.url("")));
        fresh.loadIfNeeded();
        ASSERT_TRUE(waitUntil([&] { return !fresh.stations().isEmpty(); })) << bytes.toStdString();
        EXPECT_EQ(requests(), before + 1);
        ASSERT_TRUE(onDisk()) << bytes.toStdString();
        EXPECT_EQ(ids(onDisk()->stations), QStringList{"network"});
    }
}

TEST_F(GlobeStationStoreTest, TransportErrorsAreShownAndTheStaleListAndFileStay)
{
    writeFile(cachePath(), cacheBytes(now() - 30 * kDaySec, {placed("cached", 1, 2)}));
    const QByteArray staleFile = readFile(cachePath());
    server.route("/json/stations/search", Script().close());
    store->loadIfNeeded();
    ASSERT_TRUE(waitUntil([&] { return store->errorMessage().has_value(); }));
    EXPECT_EQ(store->errorMessage(), describe(HttpError::ConnectionFailed));
    EXPECT_EQ(ids(store->stations()), QStringList{"cached"});
    EXPECT_EQ(readFile(cachePath()), staleFile);

    // A stall ends with the (here shortened) time-out.
    store->setRequestTimeouts(0.2, 0.5);
    server.route("/json/stations/search", Script::head("HTTP/1.1 200 OK", {{"Content-Length", "100000"}}).send("[{").hang());
    store->refresh();
    ASSERT_TRUE(waitUntil([&] { return store->errorMessage() == describe(HttpError::Timeout); }, 3000));

    // A later successful refresh clears the error.
    serve({placed("network", 3, 4)});
    store->refresh();
    ASSERT_TRUE(waitUntil([&] { return !store->errorMessage(); }));
    EXPECT_EQ(ids(store->stations()), QStringList{"network"});
    EXPECT_TRUE(loading.isEmpty());
}

TEST_F(GlobeStationStoreTest, AnUnusableCatalogueIsNoErrorAndWritesNothing)
{
    for (const QByteArray &body : {QByteArray("<html>maintenance</html>"), QByteArray(R"({"stations":[]})"),
                                   jsonArray({placed("zero", 0, 0)})}) {
        server.route("/json/stations/search", Script::response(200, "application/json", body));
        loading.clear();
        store->refresh();
        ASSERT_TRUE(waitUntil([&] { return loading.size() == 2; })) << body.toStdString();
        EXPECT_FALSE(store->errorMessage());
        EXPECT_TRUE(store->stations().isEmpty());
        EXPECT_FALSE(QFile::exists(cachePath()));
    }
}

TEST_F(GlobeStationStoreTest, AStoreDestroyedMidFetchIsLeftAlone)
{
    serve({placed("a", 1, 2)}, 100);
    store->loadIfNeeded();
    ASSERT_TRUE(waitUntil([&] { return requests() == 1; }));
    store.reset();
    EXPECT_TRUE(waitUntil([&] { return client.activeTransfers() == 0 && server.openConnections() == 0; }));
}

} // namespace
