#include "stations/favoritestations.h"

#include "platform/paths.h"

#include "directoryfixtures.h"
#include "testenv.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSignalSpy>

#include <memory>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace {

Station station(const QString &id, const QString &name = QString())
{
    return {id, name.isEmpty() ? "Station " + id : name, "http://127.0.0.1/" + id, "Germany", 128, "MP3"};
}

QString favoritesPath()
{
    return Paths::supportFile(QStringLiteral("favorites.json"));
}
QString corruptPath(int number = 1)
{
    return Paths::supportFile(number == 1 ? QStringLiteral("favorites.corrupt.json")
                                          : QStringLiteral("favorites.corrupt-%1.json").arg(number));
}

// Every atomic write makes a new file, so a file that kept its inode was not written.
ino_t inode(const QString &path)
{
    struct stat info { };
    return ::stat(QFile::encodeName(path).constData(), &info) == 0 ? info.st_ino : 0;
}

// What a fresh start would read from the default file.
QStringList storedIds()
{
    return ids(FavoriteStations(FavoriteStations::defaultFilePath()).list());
}

// Favourites "0", "1", ... at the default place.
std::unique_ptr<FavoriteStations> filled(int count)
{
    auto favorites = std::make_unique<FavoriteStations>(FavoriteStations::defaultFilePath());
    for (int i = 0; i < count; ++i)
        (void)favorites->add(station(QString::number(i)));
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
        (void)favorites.add(full);
        (void)favorites.add(custom);
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

    const ino_t before = inode(favoritesPath());
    EXPECT_TRUE(favorites->add(station("1")).ok);
    EXPECT_TRUE(favorites->remove("9").ok);
    EXPECT_EQ(inode(favoritesPath()), before);
    EXPECT_EQ(spy.count(), 0);

    (void)favorites->add(station("1", "Renamed"));
    EXPECT_EQ(ids(favorites->list()), (QStringList { "0", "1", "2" }));
    EXPECT_EQ(FavoriteStations(FavoriteStations::defaultFilePath()).list().at(1).name, QStringLiteral("Renamed"));

    (void)favorites->remove("0");
    EXPECT_FALSE(favorites->isFavorite("0"));
    EXPECT_EQ(storedIds(), (QStringList { "1", "2" }));
    EXPECT_EQ(spy.count(), 2);

    (void)favorites->remove("1");
    (void)favorites->remove("2");
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
        (void)favorites->move(c.from, c.to);
        EXPECT_EQ(ids(favorites->list()), c.expected) << c.from.size() << " -> " << c.to;
        EXPECT_EQ(storedIds(), c.expected);
    }
}

TEST(FavoriteStationsTest, MoveByIdsIgnoresUnknownIdsAndAlwaysSaves)
{
    TestHome home;
    auto favorites = filled(5);
    (void)favorites->move(QStringList { "3", "x", "0" }, 2);
    EXPECT_EQ(ids(favorites->list()), (QStringList { "1", "0", "3", "2", "4" }));

    const ino_t before = inode(favoritesPath());
    (void)favorites->move(QStringList { "unknown" }, 0);
    EXPECT_NE(inode(favoritesPath()), before);
    EXPECT_EQ(storedIds(), (QStringList { "1", "0", "3", "2", "4" }));
}

TEST(FavoriteStationsTest, FavoritesFirstKeepsInputOrderInBothParts)
{
    TestHome home;
    FavoriteStations favorites(std::nullopt);
    const QList<Station> input { station("a"), station("b"), station("c"), station("d"), station("a") };
    EXPECT_EQ(favorites.favoritesFirst(input), input);
    (void)favorites.add(station("x"));
    EXPECT_EQ(favorites.favoritesFirst(input), input) << "no favourite among the input";
    (void)favorites.add(station("d"));
    (void)favorites.add(station("a"));
    EXPECT_EQ(ids(favorites.favoritesFirst(input)), (QStringList { "a", "d", "a", "b", "c" }));
    EXPECT_FALSE(QDir(Paths::supportDir()).exists()) << "without a location nothing is written";
}

TEST(FavoriteStationsTest, LoadAcceptsWrappedListsKeepsFirstDuplicateAndSetsBadEntriesAside)
{
    TestHome home;
    const QByteArray stored = R"({"stations":[
        {"stationuuid":"u1","name":"First","url_resolved":"http://127.0.0.1/1"},
        {"stationuuid":"u3","name":"Third","url":"http://127.0.0.1/3","bitrate":"fast"},
        {"stationuuid":"u1","name":"Again","url_resolved":"http://127.0.0.1/1b"}]})";
    writeFile(favoritesPath(), stored);
    {
        FavoriteStations favorites(FavoriteStations::defaultFilePath());
        EXPECT_EQ(ids(favorites.list()), (QStringList { "u1", "u3" }));
        EXPECT_EQ(favorites.list().at(0).name, QStringLiteral("First"));
        EXPECT_EQ(favorites.ids(), (QSet<QString> { "u1", "u3" }));
        EXPECT_TRUE(favorites.loadProblem().isEmpty());
        EXPECT_EQ(readFile(favoritesPath()), stored) << "a good file is only read";
    }

    // Entries the builder rejects drop themselves; the file as it was is kept.
    const QByteArray damaged = R"([{"stationuuid":"u1","name":"First","url_resolved":"http://127.0.0.1/1"},
        {"stationuuid":"u2","name":"","url_resolved":"http://127.0.0.1/2"},
        {"name":"No id","url_resolved":"http://127.0.0.1/4"}])";
    writeFile(favoritesPath(), damaged);
    FavoriteStations favorites(FavoriteStations::defaultFilePath());
    EXPECT_EQ(ids(favorites.list()), (QStringList { "u1" }));
    EXPECT_TRUE(favorites.loadProblem().contains(corruptPath())) << favorites.loadProblem().toStdString();
    EXPECT_EQ(readFile(corruptPath()), damaged);
    EXPECT_EQ(storedIds(), (QStringList { "u1" }));
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
        EXPECT_EQ(readFile(corruptPath()), "an older damaged file") << "an earlier copy is never replaced";
        EXPECT_EQ(readFile(corruptPath(2)), content);
        EXPECT_TRUE(favorites.loadProblem().contains(corruptPath(2))) << favorites.loadProblem().toStdString();

        ASSERT_TRUE(favorites.add(station("fresh")).ok);
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
    EXPECT_TRUE(QFileInfo::exists(corruptPath(2) + QStringLiteral("/inside")));
    EXPECT_TRUE(QFileInfo::exists(corruptPath() + QStringLiteral("/older")));
    (void)favorites.add(station("a"));
    EXPECT_EQ(storedIds(), QStringList { "a" });
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
    (void)favorites.add(station("b"));
    EXPECT_EQ(storedIds(), QStringList { "b" });
}

TEST(FavoriteStationsTest, TwoProcessesChangingTheFileKeepEachOthersChanges)
{
    TestHome home;
    auto window = filled(2);
    FavoriteStations cli(FavoriteStations::defaultFilePath());
    QSignalSpy windowChanged(window.get(), &FavoriteStations::changed);

    // Each applies its one change to what the file holds, not to its own memory.
    ASSERT_TRUE(cli.add(station("c")).ok);
    ASSERT_TRUE(window->add(station("w")).ok);
    ASSERT_TRUE(cli.remove("0").ok);
    EXPECT_EQ(storedIds(), (QStringList { "1", "c", "w" }));
    EXPECT_TRUE(waitUntil([&] { return ids(window->list()) == QStringList { "1", "c", "w" }; }));

    // The window also hears of a change it did not make itself.
    windowChanged.clear();
    ASSERT_TRUE(cli.move(QList<int> { 2 }, 0).ok);
    EXPECT_TRUE(waitUntil([&] { return !windowChanged.isEmpty(); }));
    EXPECT_EQ(ids(window->list()), (QStringList { "w", "1", "c" }));
}

TEST(FavoriteStationsTest, AFailedWriteChangesNothingAndSaysWhy)
{
    TestHome home;
    // A file in the folder's place blocks every write, even root's.
    const QString blocked = home.file("blocked/favorites.json");
    writeFile(home.file("blocked"), "not a folder");
    FavoriteStations nowhere(blocked);
    QSignalSpy problems(&nowhere, &FavoriteStations::storageProblem);
    QSignalSpy changed(&nowhere, &FavoriteStations::changed);
    const StateResult added = nowhere.add(station("x"));
    EXPECT_FALSE(added.ok);
    EXPECT_TRUE(added.error.contains(blocked)) << added.error.toStdString();
    EXPECT_TRUE(nowhere.list().isEmpty());
    EXPECT_EQ(problems.count(), 1);
    EXPECT_TRUE(changed.isEmpty());
}
