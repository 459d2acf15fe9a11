#include "app/nowplayingbar.h"
#include "app/stationlogocache.h"
#include "app/stationtablemodel.h"

#include "appfixture.h"

#include <QBuffer>
#include <QDirIterator>
#include <QIcon>
#include <QImage>
#include <QLabel>
#include <QSignalSpy>

namespace {

// A solid picture in `colour`, encoded as PNG.
QByteArray png(QColor colour, int width = 40, int height = 40)
{
    QImage image(width, height, QImage::Format_RGB32);
    image.fill(colour);
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return bytes;
}

QColor centreColour(const QIcon &icon)
{
    const QImage image = icon.pixmap(icon.availableSizes().value(0, QSize(16, 16))).toImage();
    return image.pixelColor(image.width() / 2, image.height() / 2);
}

qint64 folderBytes(const QString &folder)
{
    qint64 total = 0;
    QDirIterator it(folder, QDir::Files);
    while (it.hasNext()) {
        it.next();
        total += it.fileInfo().size();
    }
    return total;
}

// Logos of a loopback directory, fetched through the real HTTP client into a cache
// folder of a temporary home.
class StationLogoTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        server.route("/red.png", FixtureServer::Script::response(200, "image/png", png(Qt::red)));
        server.route("/blue.png", FixtureServer::Script::response(200, "image/png", png(Qt::blue)));
        server.route("/broken.png", FixtureServer::Script::response(200, "image/png", "<html>not a picture</html>"));
        server.route("/missing.png", FixtureServer::Script::response(404, "text/plain", "gone"));
        // Over the download bound, and a small file that decodes to a huge canvas.
        server.route("/large.png", FixtureServer::Script::response(200, "image/png", QByteArray(600 * 1024, 'x')));
        server.route("/wide.png", FixtureServer::Script::response(200, "image/png", png(Qt::green, 3000, 2000)));
        limits.maxSourcePixels = 2000 * 2000;
    }

    QString url(const QByteArray &path) const { return QString::fromLatin1(server.url(path)); }

    std::unique_ptr<StationLogoCache> makeCache()
    {
        return std::make_unique<StationLogoCache>(http, home.file(QStringLiteral("cache/logos")), limits);
    }

    TestHome home;
    FixtureServer server;
    HttpClient http;
    StationLogoCache::Limits limits;
};

TEST_F(StationLogoTest, TheLogoReplacesThePlaceholderInTheTableAndComesFromDiskOnTheNextStart)
{
    auto cache = makeCache();
    StationTableModel model;
    model.setLogoCache(cache.get());
    Station red = makeStation(QStringLiteral("red"), QStringLiteral("Red FM"));
    red.favicon = url("/red.png");
    const Station none = makeStation(QStringLiteral("none"), QStringLiteral("No Logo FM"));
    model.setStations({none, red});
    const QModelIndex redName = model.index(1, StationTableModel::NameColumn);
    const qint64 placeholderKey = StationLogoCache::placeholder().cacheKey();

    EXPECT_EQ(redName.data(Qt::DecorationRole).value<QIcon>().cacheKey(), placeholderKey);
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    QTRY_COMPARE(centreColour(redName.data(Qt::DecorationRole).value<QIcon>()), QColor(Qt::red));
    ASSERT_FALSE(changed.isEmpty());
    EXPECT_EQ(changed.last().at(0).toModelIndex(), redName);
    EXPECT_EQ(model.index(0, StationTableModel::NameColumn).data(Qt::DecorationRole).value<QIcon>().cacheKey(),
              placeholderKey);
    // The logo is kept small whatever size the favicon had.
    const QPixmap kept = cache->pixmap(red.favicon);
    EXPECT_LE(std::max(kept.width(), kept.height()), StationLogo::kPixels);
    EXPECT_EQ(server.requestCount("/red.png"), 1);

    // A second start reads the saved logo without asking the server.
    cache = makeCache();
    model.setLogoCache(cache.get());
    QTRY_COMPARE(centreColour(redName.data(Qt::DecorationRole).value<QIcon>()), QColor(Qt::red));
    EXPECT_EQ(cache->requestsMade(), 0);
    EXPECT_EQ(server.requestCount("/red.png"), 1);
}

TEST_F(StationLogoTest, BrokenFaviconsKeepThePlaceholderAndAreNotFetchedAgain)
{
    const QByteArray paths[] = {"/broken.png", "/missing.png", "/large.png", "/wide.png"};
    auto cache = makeCache();
    for (const QByteArray &path : paths)
        EXPECT_EQ(cache->icon(url(path)).cacheKey(), StationLogoCache::placeholder().cacheKey());
    // Not a web address at all: refused without a request.
    EXPECT_EQ(cache->icon(QStringLiteral("file:///etc/hostname")).cacheKey(),
              StationLogoCache::placeholder().cacheKey());
    EXPECT_TRUE(cache->hasFailed(QStringLiteral("file:///etc/hostname")));
    for (const QByteArray &path : paths)
        QTRY_VERIFY2(cache->hasFailed(url(path)), path.constData());
    for (const QByteArray &path : paths) {
        EXPECT_EQ(cache->icon(url(path)).cacheKey(), StationLogoCache::placeholder().cacheKey()) << path.constData();
        EXPECT_TRUE(cache->pixmap(url(path)).isNull());
    }
    EXPECT_EQ(cache->requestsMade(), 4);

    // Remembered on disk too: the next start does not ask either.
    cache = makeCache();
    for (const QByteArray &path : paths)
        (void)cache->icon(url(path));
    for (const QByteArray &path : paths)
        QTRY_VERIFY2(cache->hasFailed(url(path)), path.constData());
    EXPECT_EQ(cache->requestsMade(), 0);
    for (const QByteArray &path : paths)
        EXPECT_EQ(server.requestCount(path), 1) << path.constData();
}

TEST_F(StationLogoTest, TheFolderStaysWithinItsBoundDroppingTheLeastRecentlyUsed)
{
    // Room for about three logos.
    const qint64 oneLogo = [] {
        QByteArray bytes;
        QBuffer buffer(&bytes);
        buffer.open(QIODevice::WriteOnly);
        StationLogo::decode(png(Qt::red), 1 << 20).save(&buffer, "PNG");
        return bytes.size();
    }();
    limits.maxDiskBytes = oneLogo * 3 + oneLogo / 2;
    auto cache = makeCache();
    QStringList favicons;
    for (int i = 0; i < 8; ++i) {
        favicons << url("/red.png?n=" + QByteArray::number(i));
        (void)cache->icon(favicons.last());
        // One after the other, so the order of use is the order of the list.
        QTRY_VERIFY(!cache->pixmap(favicons.last()).isNull());
        QTest::qWait(20); // file times differ
    }
    EXPECT_LE(folderBytes(cache->folder()), limits.maxDiskBytes);
    const QDir folder(cache->folder());
    EXPECT_TRUE(folder.exists(StationLogo::fileName(favicons.last(), QLatin1StringView("png"))));
    EXPECT_FALSE(folder.exists(StationLogo::fileName(favicons.first(), QLatin1StringView("png"))));
    EXPECT_EQ(server.requestCount("/red.png"), 8);
}

TEST(StationLogoEviction, DropsTheOldestUntilTheRestFits)
{
    const QList<StationLogo::CachedFile> files{
        {QStringLiteral("new"), 100, 300}, {QStringLiteral("old"), 100, 100}, {QStringLiteral("mid"), 100, 200}};
    EXPECT_EQ(StationLogo::filesToEvict(files, 300), QStringList());
    EXPECT_EQ(StationLogo::filesToEvict(files, 250), QStringList{QStringLiteral("old")});
    EXPECT_EQ(StationLogo::filesToEvict(files, 0), (QStringList{QStringLiteral("old"), QStringLiteral("mid"),
                                                                 QStringLiteral("new")}));
}

// The player bar shows the station's logo in the cover's place while it is named.
class StationLogoBarTest : public AppFixture {};

TEST_F(StationLogoBarTest, TheBarShowsTheLogoOfTheStationItNames)
{
    server.route("/blue.png", FixtureServer::Script::response(200, "image/png", png(Qt::blue)));
    NowPlayingBar bar(app->player(), app->transitionSettings(), &app->listener());
    bar.setStationLogos(&app->stationLogos());
    Station blue = makeStation(QStringLiteral("blue"), QStringLiteral("Blue FM"));
    blue.favicon = QString::fromLatin1(server.url("/blue.png"));
    bar.showListeningFailed(blue, QStringLiteral("Stream unterbrochen"));
    EXPECT_FALSE(bar.showsCover());
    QTRY_VERIFY(bar.showsCover());
    const QImage shown = bar.coverLabel()->pixmap().toImage();
    EXPECT_EQ(shown.pixelColor(shown.width() / 2, shown.height() / 2), QColor(Qt::blue));
    // The cache lives under the home's cache folder.
    EXPECT_TRUE(app->stationLogos().folder().startsWith(home.path()));

    const Station plain = makeStation(QStringLiteral("plain"), QStringLiteral("Plain FM"));
    bar.showListeningFailed(plain, QStringLiteral("Stream unterbrochen"));
    EXPECT_FALSE(bar.showsCover());
}

} // namespace
