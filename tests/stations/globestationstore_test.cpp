#include "stations/globestationstore.h"

#include "fixtureserver.h"
#include "testenv.h"

#include "platform/paths.h"

#include <QDateTime>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTest>

#include <gtest/gtest.h>

using Script = FixtureServer::Script;

namespace {

constexpr double kDaySec = 86400;
const QByteArray kCatalogueTarget =
    "/json/stations/search?has_geo_info=true&hidebroken=true&order=clickcount&reverse=true&limit=3000";

double now()
{
    return double(QDateTime::currentMSecsSinceEpoch()) / 1000.0;
}

QJsonObject placed(const QString &id, QJsonValue lat, QJsonValue lon)
{
    QJsonObject o{{"stationuuid", id}, {"name", "Station " + id}, {"url_resolved", "http://127.0.0.1:9/" + id}};
    if (!lat.isUndefined())
        o.insert("geo_lat", lat);
    if (!lon.isUndefined())
        o.insert("geo_long", lon);
    return o;
}

QByteArray arrayBytes(const QList<QJsonObject> &objects)
{
    QJsonArray a;
    for (const QJsonObject &o : objects)
        a.append(o);
    return QJsonDocument(a).toJson(QJsonDocument::Compact);
}

QByteArray cacheBytes(double fetchedAt, const QList<QJsonObject> &objects)
{
    QJsonArray a;
    for (const QJsonObject &o : objects)
        a.append(o);
    return QJsonDocument(QJsonObject{{"fetchedAt", fetchedAt}, {"stations", a}}).toJson();
}

QStringList ids(const QList<Station> &stations)
{
    QStringList out;
    for (const Station &s : stations)
        out << s.id;
    return out;
}

// --- Cache file and catalogue decoding --------------------------------------------------

TEST(GlobeCache, KeepsOnlyStationsWithAPositionOnTheMap)
{
    const double t = 1'700'000'000;
    const QByteArray file = cacheBytes(t, {
                                              placed("nearZero", 0.00005, 0.00003),
                                              placed("equator", 0, 12.5),
                                              placed("tooFarNorth", 91, 10),
                                              placed("text", "48.2082", "16.3738"),
                                              placed("tooFarEast", 10, 181),
                                              placed("corner", -90, -180),
                                              placed("latOnly", 10, QJsonValue::Undefined),
                                              placed("badText", "north", 3),
                                              QJsonObject{{"stationuuid", "noUrl"}, {"name", "x"}, {"geo_lat", 1}, {"geo_long", 1}},
                                          });
    const auto cached = GlobeStationStore::decodeCache(file, GlobeStationStore::kMaxAgeSec, t + 1);
    ASSERT_TRUE(cached);
    EXPECT_EQ(ids(cached->stations), (QStringList{"equator", "text", "corner"}));
    EXPECT_EQ(cached->stations[1].geoLat, 48.2082);
}

TEST(GlobeCache, IsFreshForLessThanSevenDays)
{
    const double t = 1'700'000'000;
    const QByteArray file = cacheBytes(t, {placed("a", 1, 2)});
    const auto at = [&](double ageSec) {
        return GlobeStationStore::decodeCache(file, GlobeStationStore::kMaxAgeSec, t + ageSec)->fresh;
    };
    EXPECT_TRUE(at(6 * kDaySec));
    EXPECT_TRUE(at(7 * kDaySec - 1));
    EXPECT_FALSE(at(7 * kDaySec));
    EXPECT_FALSE(at(8 * kDaySec));
    EXPECT_TRUE(at(-kDaySec)); // a clock set back still shows the cache
}

TEST(GlobeCache, RejectsFilesOfTheWrongShape)
{
    const double t = 1'700'000'000;
    const QByteArray good = cacheBytes(t, {placed("a", 1, 2)});
    const QList<QByteArray> bad{
        "",
        good.left(good.size() / 2),
        "[]",
        R"({"stations":[{"stationuuid":"a","name":"A","url":"http://a","geo_lat":1,"geo_long":2}]})",
        R"({"fetchedAt":"1700000000","stations":[{"stationuuid":"a","name":"A","url":"http://a","geo_lat":1,"geo_long":2}]})",
        R"({"fetchedAt":1700000000,"stations":{"a":1}})",
        R"({"fetchedAt":1700000000,"stations":[7]})",
        cacheBytes(t, {}),
        cacheBytes(t, {placed("nowhere", 0, 0), placed("unplaced", QJsonValue::Undefined, QJsonValue::Undefined)}),
    };
    for (const QByteArray &data : bad)
        EXPECT_FALSE(GlobeStationStore::decodeCache(data, GlobeStationStore::kMaxAgeSec, t)) << data.toStdString();
    EXPECT_TRUE(GlobeStationStore::decodeCache(good, GlobeStationStore::kMaxAgeSec, t));
}

TEST(GlobeCache, WritesSlimObjectsWithTheDirectoryValuesUnchanged)
{
    QJsonObject full = placed("full", "47.5", 19);
    full.insert("url", "http://plain");
    full.insert("country", "Hungary");
    full.insert("bitrate", 96);
    full.insert("codec", "AAC");
    full.insert("favicon", "");
    full.insert("tags", "pop");
    full.insert("votes", 3);
    full.insert("changeuuid", "c-1");
    full.insert("name", QString::fromUtf8("\"Quoted\" \\ Back\nslash\t\x01 Ö \xF0\x9F\x8E\xB8"));
    QJsonObject oddTypes{{"stationuuid", 5},
                         {"name", QJsonValue::Null},
                         {"bitrate", "high"},
                         {"codec", QJsonArray{1, "two"}},
                         {"country", QJsonObject{{"k", false}}},
                         {"geo_lat", 1e300},
                         {"geo_long", -0.000123}};
    QJsonObject noName = placed("noName", 1, 1);
    noName.remove("name");
    QJsonObject noUuid = placed("noUuid", 1, 1);
    noUuid.remove("stationuuid");

    const QByteArray bytes = GlobeStationStore::makeCacheData({full, oddTypes, noName, noUuid}, 1234.5);
    EXPECT_FALSE(bytes.contains('\n'));
    const QJsonObject root = QJsonDocument::fromJson(bytes).object();
    EXPECT_EQ(root.value("fetchedAt").toDouble(), 1234.5);
    const QJsonArray stations = root.value("stations").toArray();
    ASSERT_EQ(stations.size(), 2);

    QJsonObject expected = full;
    for (const char *dropped : {"tags", "votes", "changeuuid"})
        expected.remove(dropped);
    EXPECT_EQ(stations[0].toObject(), expected);
    EXPECT_EQ(stations[1].toObject(), oddTypes); // copied as they are; reading them back is json()'s business
}

TEST(GlobeCache, DecodesWhatItWrote)
{
    QList<QJsonObject> objects{placed("a", 10, 20), placed("b", "-33.9", "151.2"), placed("zero", 0, 0)};
    objects[0].insert("favicon", "https://example.invalid/a.png");
    objects[0].insert("bitrate", 320);
    const double t = 1'700'000'000;
    const auto catalogue = GlobeStationStore::decodeCatalogue(arrayBytes(objects), t);
    ASSERT_TRUE(catalogue);
    EXPECT_EQ(ids(catalogue->stations), (QStringList{"a", "b"}));

    const auto cached = GlobeStationStore::decodeCache(catalogue->cacheData, GlobeStationStore::kMaxAgeSec, t + 60);
    ASSERT_TRUE(cached);
    EXPECT_TRUE(cached->fresh);
    EXPECT_EQ(cached->stations, catalogue->stations);

    EXPECT_FALSE(GlobeStationStore::decodeCatalogue(R"({"error":"x"})", t));
    EXPECT_FALSE(GlobeStationStore::decodeCatalogue("[]", t));
    EXPECT_FALSE(GlobeStationStore::decodeCatalogue(arrayBytes({placed("zero", 0, 0)}), t));
}

// --- The store against a loopback directory ---------------------------------------------

class GlobeStationStoreTest : public ::testing::Test {
protected:
    QString cachePath() const { return home.file("data/Orvida/globe_stations.json"); }

    void serveCatalogue(const QList<QJsonObject> &objects, int delayMs = 0)
    {
        Script s = Script::response(200, "application/json", arrayBytes(objects));
        if (delayMs)
            s.steps.prepend({FixtureServer::Step::Kind::Pause, {}, delayMs, {}});
        server.route("/json/stations/search", s);
    }

    int catalogueRequests() const { return server.requestCount("/json/stations/search"); }

    // The cache file as the store would find it on the next start.
    std::optional<GlobeStationStore::CachedStations> cacheOnDisk() const
    {
        return GlobeStationStore::decodeCache(readFile(cachePath()), GlobeStationStore::kMaxAgeSec, now());
    }

    TestHome home;
    FixtureServer server;
    HttpClient client;
    std::unique_ptr<GlobeStationStore> store =
        std::make_unique<GlobeStationStore>(client, QString::fromLatin1(server.url("")));
    QList<bool> loading = [this] {
        QObject::connect(store.get(), &GlobeStationStore::isLoadingChanged, [this](bool b) { loading << b; });
        return QList<bool>{};
    }();
};

TEST_F(GlobeStationStoreTest, WithoutCacheFetchesOnceShowsAndKeepsTheCatalogue)
{
    EXPECT_EQ(GlobeStationStore::cacheUrl(), cachePath());
    serveCatalogue({placed("a", 10, 20), placed("nowhere", 0, 0), placed("b", -10, -20)}, 100);
    store->loadIfNeeded();
    store->loadIfNeeded();
    EXPECT_TRUE(store->didStart());
    ASSERT_TRUE(waitUntil([&] { return !store->stations().isEmpty(); }));
    EXPECT_EQ(ids(store->stations()), (QStringList{"a", "b"}));
    EXPECT_EQ(loading, (QList<bool>{true, false}));
    EXPECT_FALSE(store->errorMessage());
    EXPECT_EQ(catalogueRequests(), 1);
    EXPECT_EQ(server.requests().first().target, kCatalogueTarget);

    const auto onDisk = cacheOnDisk();
    ASSERT_TRUE(onDisk);
    EXPECT_TRUE(onDisk->fresh);
    EXPECT_EQ(onDisk->stations, store->stations());
}

TEST_F(GlobeStationStoreTest, AFreshCacheIsShownWithoutFetching)
{
    writeFile(cachePath(), cacheBytes(now() - 6 * kDaySec, {placed("cached", 1, 2)}));
    serveCatalogue({placed("network", 3, 4)});
    store->loadIfNeeded();
    ASSERT_TRUE(waitUntil([&] { return !store->stations().isEmpty(); }));
    QTest::qWait(200);
    EXPECT_EQ(ids(store->stations()), QStringList{"cached"});
    EXPECT_EQ(catalogueRequests(), 0);
    EXPECT_TRUE(loading.isEmpty());
}

TEST_F(GlobeStationStoreTest, AStaleCacheIsShownAtOnceAndReplacedByTheFetch)
{
    writeFile(cachePath(), cacheBytes(now() - 8 * kDaySec, {placed("cached", 1, 2)}));
    serveCatalogue({placed("network", 3, 4)}, 300);
    QStringList seen;
    QObject::connect(store.get(), &GlobeStationStore::stationsChanged, [&] { seen << ids(store->stations()).join(','); });
    store->loadIfNeeded();
    ASSERT_TRUE(waitUntil([&] { return seen.size() == 2; }));
    EXPECT_EQ(seen, (QStringList{"cached", "network"}));
    EXPECT_EQ(catalogueRequests(), 1);
    EXPECT_TRUE(loading.isEmpty()); // a stale list on screen is not a busy state
    ASSERT_TRUE(cacheOnDisk());
    EXPECT_EQ(ids(cacheOnDisk()->stations), QStringList{"network"});
    EXPECT_TRUE(cacheOnDisk()->fresh);
}

TEST_F(GlobeStationStoreTest, ABrokenCacheLeadsToAFetchAndIsReplacedByAGoodFile)
{
    serveCatalogue({placed("network", 3, 4)});
    const QByteArray good = cacheBytes(now(), {placed("cached", 1, 2)});
    const QList<QByteArray> broken{good.left(good.size() - 10), QByteArray(), R"({"fetchedAt":[],"stations":[]})",
                                   cacheBytes(now(), {placed("zero", 0, 0)})};
    for (const QByteArray &bytes : broken) {
        writeFile(cachePath(), bytes);
        const int before = catalogueRequests();
        GlobeStationStore fresh(client, QString::fromLatin1(server.url("")));
        fresh.loadIfNeeded();
        ASSERT_TRUE(waitUntil([&] { return !fresh.stations().isEmpty() && !fresh.isLoading(); })) << bytes.toStdString();
        EXPECT_EQ(ids(fresh.stations()), QStringList{"network"});
        EXPECT_EQ(catalogueRequests(), before + 1);
        ASSERT_TRUE(cacheOnDisk()) << bytes.toStdString();
        EXPECT_EQ(ids(cacheOnDisk()->stations), QStringList{"network"});
    }
}

TEST_F(GlobeStationStoreTest, ATransportErrorIsShownAndTheStaleListStays)
{
    writeFile(cachePath(), cacheBytes(now() - 30 * kDaySec, {placed("cached", 1, 2)}));
    const QByteArray staleFile = readFile(cachePath());
    server.route("/json/stations/search", Script().close());
    store->loadIfNeeded();
    ASSERT_TRUE(waitUntil([&] { return store->errorMessage().has_value(); }));
    EXPECT_EQ(store->errorMessage(), describe(HttpError::ConnectionFailed));
    EXPECT_EQ(ids(store->stations()), QStringList{"cached"});
    EXPECT_FALSE(store->isLoading());
    EXPECT_EQ(readFile(cachePath()), staleFile);

    // A later successful refresh clears the error.
    serveCatalogue({placed("network", 3, 4)});
    store->refresh();
    ASSERT_TRUE(waitUntil([&] { return !store->errorMessage(); }));
    EXPECT_EQ(ids(store->stations()), QStringList{"network"});
}

TEST_F(GlobeStationStoreTest, AStalledCatalogueTimesOut)
{
    store->setRequestTimeouts(0.2, 0.5);
    server.route("/json/stations/search", Script::head("HTTP/1.1 200 OK", {{"Content-Length", "100000"}}).send("[{").hang());
    store->loadIfNeeded();
    ASSERT_TRUE(waitUntil([&] { return store->errorMessage().has_value(); }, 3000));
    EXPECT_EQ(store->errorMessage(), describe(HttpError::Timeout));
    EXPECT_EQ(loading, (QList<bool>{true, false}));
    EXPECT_TRUE(store->stations().isEmpty());
}

TEST_F(GlobeStationStoreTest, AnUnusableCatalogueIsNoErrorAndWritesNothing)
{
    for (const QByteArray &body : {QByteArray("<html>maintenance</html>"), QByteArray(R"({"stations":[]})"),
                                   arrayBytes({placed("zero", 0, 0)})}) {
        server.route("/json/stations/search", Script::response(200, "application/json", body));
        loading.clear();
        store->refresh();
        ASSERT_TRUE(waitUntil([&] { return loading.size() == 2; })) << body.toStdString();
        EXPECT_FALSE(store->errorMessage());
        EXPECT_TRUE(store->stations().isEmpty());
        EXPECT_FALSE(QFile::exists(cachePath()));
    }
}

TEST_F(GlobeStationStoreTest, RefreshJoinsAFetchThatIsAlreadyRunning)
{
    serveCatalogue({placed("a", 1, 2)}, 200);
    store->refresh();
    store->refresh();
    ASSERT_TRUE(waitUntil([&] { return !store->stations().isEmpty(); }));
    EXPECT_EQ(catalogueRequests(), 1);
    store->refresh(); // done: a new call fetches again
    ASSERT_TRUE(waitUntil([&] { return catalogueRequests() == 2; }));
}

TEST_F(GlobeStationStoreTest, AStoreDestroyedMidFetchReceivesNothing)
{
    serveCatalogue({placed("a", 1, 2)}, 100);
    store->loadIfNeeded();
    ASSERT_TRUE(waitUntil([&] { return catalogueRequests() == 1; }));
    store.reset();
    QTest::qWait(300);
    EXPECT_EQ(client.activeTransfers(), 0);
}

} // namespace
