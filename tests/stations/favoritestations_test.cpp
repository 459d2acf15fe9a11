#include "stations/favoritestations.h"

#include "platform/paths.h"

#include "testenv.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSignalSpy>

#include <memory>
#include <unistd.h>

#include <gtest/gtest.h>

namespace {

Station station(const QString &id, const QString &name = QString())
{
    Station s;
    s.id = id;
    s.name = name.isEmpty() ? QStringLiteral("Station ") + id : name;
    s.streamUrl = QStringLiteral("http://127.0.0.1/") + id;
    s.country = QStringLiteral("Germany");
    s.bitrate = 128;
    s.codec = QStringLiteral("MP3");
    return s;
}

QStringList idsOf(const QList<Station> &list)
{
    QStringList ids;
    for (const Station &s : list)
        ids << s.id;
    return ids;
}

QString favoritesPath()
{
    return Paths::supportFile(QStringLiteral("favorites.json"));
}
QString corruptPath()
{
    return Paths::supportFile(QStringLiteral("favorites.corrupt.json"));
}

// What a fresh start would read from the default file.
QStringList storedIds()
{
    return idsOf(FavoriteStations(FavoriteStations::defaultFilePath()).list());
}

// Favourites "0", "1", ... at the default place.
std::unique_ptr<FavoriteStations> filled(int count)
{
    auto favorites = std::make_unique<FavoriteStations>(FavoriteStations::defaultFilePath());
    for (int i = 0; i < count; ++i)
        favorites->add(station(QString::number(i)));
    return favorites;
}

} // namespace

TEST(FavoriteStationsTest, SavesPrettySortedAndReadsEveryFieldBack)
{
    TestHome home;
    ASSERT_EQ(FavoriteStations::defaultFilePath(), favoritesPath());
    Station full = station("uuid-a", "Ä \"Quoted\" FM");
    full.favicon = QStringLiteral("http://127.0.0.1/logo.png");
    full.geoLat = 52.52;
    full.geoLong = -13.405;
    const Station custom = Station::custom(QStringLiteral("http://127.0.0.1:8000/live"), QStringLiteral("Mine"));
    {
        FavoriteStations favorites(FavoriteStations::defaultFilePath());
        EXPECT_TRUE(favorites.list().isEmpty());
        EXPECT_FALSE(QDir(Paths::supportDir()).exists()) << "a missing file is not created on load";
        favorites.add(full);
        favorites.add(custom);
    }
    const QByteArray file = readFile(favoritesPath());
    EXPECT_TRUE(file.startsWith("[\n    {\n        \"bitrate\": 128,\n        \"codec\": \"MP3\",\n"))
        << file.constData();
    EXPECT_EQ(file.count("\"favicon\""), 1) << "optional keys only where present";
    const QJsonArray array { FavoriteStations::record(full), FavoriteStations::record(custom) };
    EXPECT_EQ(file, QJsonDocument(array).toJson());

    FavoriteStations reloaded(FavoriteStations::defaultFilePath());
    EXPECT_EQ(reloaded.list(), (QList<Station> { full, custom }));
    EXPECT_TRUE(reloaded.isFavorite(custom.id));
    EXPECT_EQ(reloaded.indexOf(custom.id), 1);
    EXPECT_EQ(reloaded.indexOf("nope"), std::nullopt);
}

TEST(FavoriteStationsTest, AddAndRemoveWriteOnlyOnRealChanges)
{
    TestHome home;
    auto favorites = filled(3);
    QSignalSpy spy(favorites.get(), &FavoriteStations::changed);

    writeFile(favoritesPath(), "marker");
    favorites->add(station("1"));
    favorites->remove("9");
    EXPECT_EQ(readFile(favoritesPath()), "marker");
    EXPECT_EQ(spy.count(), 0);

    favorites->add(station("1", "Renamed"));
    EXPECT_EQ(idsOf(favorites->list()), (QStringList { "0", "1", "2" }));
    EXPECT_EQ(FavoriteStations(FavoriteStations::defaultFilePath()).list().at(1).name, QStringLiteral("Renamed"));

    favorites->remove("0");
    EXPECT_FALSE(favorites->isFavorite("0"));
    EXPECT_EQ(storedIds(), (QStringList { "1", "2" }));
    EXPECT_EQ(spy.count(), 2);

    favorites->remove("1");
    favorites->remove("2");
    EXPECT_EQ(readFile(favoritesPath()), "[\n]\n");
    EXPECT_TRUE(storedIds().isEmpty());
    EXPECT_FALSE(QFile::exists(corruptPath()));
}

TEST(FavoriteStationsTest, MoveByOffsetsFollowsTheListMoveRule)
{
    struct Case {
        QList<int> from;
        int to;
        QStringList expected;
    };
    const Case cases[] = {
        { { 0, 2 }, 4, { "1", "3", "0", "2", "4" } }, { { 4 }, 0, { "4", "0", "1", "2", "3" } },
        { { 0 }, 5, { "1", "2", "3", "4", "0" } }, // the list's length: to the end
        { { 2 }, 3, { "0", "1", "2", "3", "4" } }, // before its successor: no change
        { { 3, 1 }, 1, { "0", "1", "3", "2", "4" } }, // relative order kept, whatever the input order
        { { 1, 1, -1, 7 }, 4, { "0", "2", "3", "1", "4" } }, // duplicates and outsiders ignored
        { { 0 }, 99, { "1", "2", "3", "4", "0" } }, // beyond the end: the end
        { { 4 }, -3, { "4", "0", "1", "2", "3" } }, // before the start: the start
    };
    for (const Case &c : cases) {
        TestHome home;
        auto favorites = filled(5);
        favorites->move(c.from, c.to);
        EXPECT_EQ(idsOf(favorites->list()), c.expected) << c.from.size() << " -> " << c.to;
        EXPECT_EQ(storedIds(), c.expected);
    }
}

TEST(FavoriteStationsTest, MoveByIdsIgnoresUnknownIdsAndAlwaysSaves)
{
    TestHome home;
    auto favorites = filled(5);
    favorites->move(QStringList { "3", "x", "0" }, 2);
    EXPECT_EQ(idsOf(favorites->list()), (QStringList { "1", "0", "3", "2", "4" }));

    writeFile(favoritesPath(), "stale");
    favorites->move(QStringList { "unknown" }, 0);
    EXPECT_EQ(storedIds(), (QStringList { "1", "0", "3", "2", "4" }));
}

TEST(FavoriteStationsTest, FavoritesFirstKeepsInputOrderInBothParts)
{
    TestHome home;
    FavoriteStations favorites(std::nullopt);
    const QList<Station> input { station("a"), station("b"), station("c"), station("d"), station("a") };
    EXPECT_EQ(favorites.favoritesFirst(input), input);
    favorites.add(station("x"));
    EXPECT_EQ(favorites.favoritesFirst(input), input) << "no favourite among the input";
    favorites.add(station("d"));
    favorites.add(station("a"));
    EXPECT_EQ(idsOf(favorites.favoritesFirst(input)), (QStringList { "a", "d", "a", "b", "c" }));
    EXPECT_FALSE(QDir(Paths::supportDir()).exists()) << "without a location nothing is written";
}

TEST(FavoriteStationsTest, LoadAcceptsWrappedListsDropsBadEntriesAndKeepsFirstDuplicate)
{
    TestHome home;
    writeFile(favoritesPath(), R"({"stations":[
        {"stationuuid":"u1","name":"First","url_resolved":"http://127.0.0.1/1"},
        {"stationuuid":"u2","name":"","url_resolved":"http://127.0.0.1/2"},
        {"stationuuid":"u3","name":"Third","url":"http://127.0.0.1/3","bitrate":"fast"},
        {"stationuuid":"u1","name":"Again","url_resolved":"http://127.0.0.1/1b"},
        {"name":"No id","url_resolved":"http://127.0.0.1/4"}]})");
    FavoriteStations favorites(FavoriteStations::defaultFilePath());
    EXPECT_EQ(idsOf(favorites.list()), (QStringList { "u1", "u3" }));
    EXPECT_EQ(favorites.list().at(0).name, QStringLiteral("First"));
    EXPECT_EQ(favorites.ids(), (QSet<QString> { "u1", "u3" }));
    EXPECT_FALSE(QFile::exists(corruptPath()));
}

TEST(FavoriteStationsTest, DamagedFileIsMovedAsideAndTheNextSaveWritesAFreshOne)
{
    const QByteArray damaged[] = {
        "42",
        "",
        R"([{"stationuuid":"u1","name":"A","url_resolved":"http://127.0.0.1/1"})",
        R"([{"stationuuid":"u1","name":"A","url_resolved":"http://127.0.0.1/1"}, 7])",
        R"({"stations":{"stationuuid":"u1"}})",
        R"({"items":[]})",
        "\xef\xbb\xbf\xff garbage",
    };
    for (const QByteArray &content : damaged) {
        TestHome home;
        writeFile(corruptPath(), "an older damaged file");
        writeFile(favoritesPath(), content);
        FavoriteStations favorites(FavoriteStations::defaultFilePath());
        EXPECT_TRUE(favorites.list().isEmpty()) << content.constData();
        EXPECT_FALSE(QFile::exists(favoritesPath())) << content.constData();
        EXPECT_EQ(readFile(corruptPath()), content);

        favorites.add(station("fresh"));
        EXPECT_EQ(storedIds(), QStringList { "fresh" });
    }
}

TEST(FavoriteStationsTest, FolderInPlaceOfTheFileIsMovedAside)
{
    TestHome home;
    // A folder in the file's place fails the read even for root.
    ASSERT_TRUE(QDir().mkpath(favoritesPath() + QStringLiteral("/inside")));
    ASSERT_TRUE(QDir().mkpath(corruptPath() + QStringLiteral("/older")));
    FavoriteStations favorites(FavoriteStations::defaultFilePath());
    EXPECT_TRUE(favorites.list().isEmpty());
    EXPECT_TRUE(QFileInfo::exists(corruptPath() + QStringLiteral("/inside")));
    EXPECT_FALSE(QFileInfo::exists(corruptPath() + QStringLiteral("/older")));
    favorites.add(station("a"));
    EXPECT_EQ(storedIds(), QStringList { "a" });
    EXPECT_EQ(FavoriteStations::quarantineUrl("/a/b.c/favs.v2.json"), QStringLiteral("/a/b.c/favs.v2.corrupt.json"));
}

TEST(FavoriteStationsTest, FileWithoutReadPermissionIsMovedAside)
{
    if (geteuid() == 0)
        GTEST_SKIP() << "root reads files whatever their mode";
    TestHome home;
    filled(2);
    QFile::setPermissions(favoritesPath(), QFileDevice::Permissions());
    FavoriteStations favorites(FavoriteStations::defaultFilePath());
    EXPECT_TRUE(favorites.list().isEmpty());
    favorites.add(station("b"));
    EXPECT_EQ(storedIds(), QStringList { "b" });
}
