#include "app/mainwindow.h"
#include "app/messagebar.h"
#include "app/radioview.h"
#include "app/stationactionbar.h"
#include "app/favoritesview.h"
#include "app/stationtablemodel.h"

#include "appfixture.h"
#include "directoryfixtures.h"

#include "engine/radiorecorder.h"
#include "engine/stationlistener.h"

#include <QComboBox>
#include <QHeaderView>
#include <QLineEdit>
#include <QLocale>
#include <QPushButton>
#include <QScrollBar>
#include <QTableView>
#include <QUrlQuery>

namespace {

using Script = FixtureServer::Script;

QString queryItem(const FixtureServer::Request &request, const QString &key)
{
    const QByteArray target = request.target;
    return QUrlQuery(QString::fromUtf8(target.mid(target.indexOf('?') + 1))).queryItemValue(key, QUrl::FullyDecoded);
}

class RadioViewTest : public AppFixture {
protected:
    void SetUp() override
    {
        AppFixture::SetUp();
        // 40 stations on the first page, 10 on the second: the search ends there.
        server.route("/json/stations/search", [this](const FixtureServer::Request &request) {
            const int offset = queryItem(request, QStringLiteral("offset")).toInt();
            const int count = offset == 0 ? 40 : (offset == 40 ? 10 : 0);
            QList<QJsonObject> objects;
            for (int i = offset; i < offset + count; ++i) {
                const QString id = QStringLiteral("rock%1").arg(i);
                objects << QJsonObject{{"stationuuid", id},
                                       {"name", QStringLiteral("Rock Station %1").arg(i)},
                                       {"url_resolved", QString::fromLatin1(server.url("/s/")) + id},
                                       {"country", "Austria"},
                                       {"bitrate", 192},
                                       {"codec", "MP3"}};
            }
            return Script::response(200, "application/json", jsonArray(objects));
        });
        // Only the first station announces in-band titles.
        server.route("/s/rock0", Script::head("ICY 200 OK", {{"icy-metaint", "16000"}}).send("audio").hang());
        server.fallback([](const FixtureServer::Request &) {
            return Script::head("HTTP/1.0 200 OK", {{"Content-Type", "audio/mpeg"}}).send("audio").close();
        });
    }

    int searchRequests(int offset) const
    {
        int count = 0;
        for (const FixtureServer::Request &request : server.requests()) {
            if (request.path == "/json/stations/search" && !queryItem(request, QStringLiteral("name")).isEmpty() &&
                queryItem(request, QStringLiteral("offset")).toInt() == offset)
                ++count;
        }
        return count;
    }
};

TEST_F(RadioViewTest, SearchShowsRowsAndScrollingToTheLastRowLoadsTheNextPage)
{
    RadioView view(*app);
    view.resize(800, 400); // far fewer than 40 rows fit
    view.show();
    view.searchField()->setText(QStringLiteral("rock"));

    ASSERT_TRUE(waitUntil([&] { return view.model()->rowCount() == 40; }));
    EXPECT_EQ(view.model()->stationAt(0)->name, QStringLiteral("Rock Station 0"));
    EXPECT_EQ(view.model()->data(view.model()->index(0, StationTableModel::BitrateColumn), Qt::DisplayRole),
              QStringLiteral("192 kbit/s"));
    // The last row is out of sight: nothing more is asked for yet. The view decides on
    // every layout and scroll, and asking sets isLoadingMore at once.
    QCoreApplication::processEvents();
    EXPECT_FALSE(app->directory().isLoadingMore());
    EXPECT_EQ(searchRequests(40), 0);

    QScrollBar *bar = view.table()->verticalScrollBar();
    bar->setValue(bar->maximum());
    ASSERT_TRUE(waitUntil([&] { return view.model()->rowCount() == 50; }));
    EXPECT_EQ(view.model()->stationAt(49)->id, QStringLiteral("rock49"));
    // The short second page was the last: the bottom is in view again, yet no third request.
    bar->setValue(bar->maximum());
    QCoreApplication::processEvents();
    EXPECT_FALSE(app->directory().hasMore());
    EXPECT_FALSE(app->directory().isLoadingMore());
    EXPECT_EQ(searchRequests(40), 1);
    EXPECT_EQ(searchRequests(80), 0);

    // The ICY probe marks only the station whose stream announces a metadata interval.
    const QModelIndex badge0 = view.model()->index(0, StationTableModel::TitlesColumn);
    ASSERT_TRUE(waitUntil([&] { return !view.model()->data(badge0, Qt::DisplayRole).toString().isEmpty(); }));
    EXPECT_EQ(view.model()->data(badge0, Qt::DisplayRole).toString(), QStringLiteral("Song titles"));
    ASSERT_TRUE(waitUntil([&] { return app->directory().icyStatus().contains(QStringLiteral("rock1")); }));
    EXPECT_TRUE(view.model()->data(view.model()->index(1, StationTableModel::TitlesColumn), Qt::DisplayRole)
                    .toString()
                    .isEmpty());
}

TEST_F(RadioViewTest, AppendedPageKeepsTheSelectedRowAndClearingTheFieldShowsTheStartPage)
{
    RadioView view(*app);
    view.resize(800, 400);
    view.show();
    view.searchField()->setText(QStringLiteral("rock"));
    ASSERT_TRUE(waitUntil([&] { return view.model()->rowCount() == 40; }));
    view.table()->selectRow(3);
    ASSERT_EQ(view.selectedStation()->id, QStringLiteral("rock3"));

    view.table()->verticalScrollBar()->setValue(view.table()->verticalScrollBar()->maximum());
    ASSERT_TRUE(waitUntil([&] { return view.model()->rowCount() == 50; }));
    ASSERT_TRUE(view.selectedStation());
    EXPECT_EQ(view.selectedStation()->id, QStringLiteral("rock3"));

    view.searchField()->clear();
    ASSERT_TRUE(waitUntil([&] { return view.model()->rowCount() > 0 && view.model()->stationAt(0)->isCustom(); }));
    const QList<Station> &recommended = app->directory().recommendations();
    EXPECT_EQ(view.model()->stations().mid(0, recommended.size()), recommended);
}

TEST_F(RadioViewTest, CustomAddressBecomesAStationThatCanBeKeptAsFavourite)
{
    RadioView view(*app);
    view.show();
    view.showCustomStation(QStringLiteral("  http://127.0.0.1:9/mine.pls "), QStringLiteral("My Stream"));
    ASSERT_EQ(view.model()->rowCount(), 1);
    ASSERT_TRUE(view.selectedStation());
    EXPECT_EQ(view.selectedStation()->id, QStringLiteral("custom:http://127.0.0.1:9/mine.pls"));

    view.actionBar()->favoriteButton()->click();
    EXPECT_TRUE(app->favorites().isFavorite(QStringLiteral("custom:http://127.0.0.1:9/mine.pls")));
    EXPECT_EQ(view.actionBar()->favoriteButton()->text(), QStringLiteral("Remove from Favourites"));
    EXPECT_TRUE(view.model()->data(view.model()->index(0, 0), Qt::DisplayRole).toString().startsWith(u'★'));

    // A blank address is not a station.
    view.showCustomStation(QStringLiteral("   "), QStringLiteral("Nothing"));
    EXPECT_EQ(view.model()->stationAt(0)->name, QStringLiteral("My Stream"));
}

TEST_F(RadioViewTest, RandomStationComesFromTheDirectory)
{
    RadioView view(*app);
    view.show();
    view.pickRandomStation();
    ASSERT_TRUE(waitUntil([&] { return view.model()->rowCount() == 1 && !view.model()->stationAt(0)->isCustom(); }));
    bool askedAtRandom = false;
    for (const FixtureServer::Request &request : server.requests())
        askedAtRandom |= queryItem(request, QStringLiteral("order")) == QStringLiteral("random");
    EXPECT_TRUE(askedAtRandom);
    EXPECT_EQ(view.selectedStation()->id, QStringLiteral("rock0"));
}

QJsonObject stationObject(const QString &id, const QString &name, qint64 bitrate)
{
    return {{"stationuuid", id}, {"name", name}, {"url_resolved", "http://127.0.0.1:9/" + id}, {"bitrate", bitrate}};
}

QList<FixtureServer::Request> requestsWith(const FixtureServer &server, const QString &key, const QString &value)
{
    QList<FixtureServer::Request> out;
    for (const FixtureServer::Request &request : server.requests()) {
        if (request.path == "/json/stations/search" && queryItem(request, key) == value)
            out << request;
    }
    return out;
}

// "ambient" is in no station's name, but two carry it as a tag.
TEST_F(RadioViewTest, TheFieldFindsTagsAndTheFilterRowNarrowsEveryRequest)
{
    server.route("/json/countries", Script::response(200, "application/json",
                                                     R"([{"name":"Austria","iso_3166_1":"AT","stationcount":9}])"));
    server.route("/json/languages", Script::response(200, "application/json", R"([{"name":"german","stationcount":9}])"));
    server.route("/json/stations/search", [](const FixtureServer::Request &request) {
        QList<QJsonObject> objects;
        if (queryItem(request, QStringLiteral("tag")) == QStringLiteral("ambient"))
            objects = {stationObject("drone", "Drone Zone", 128), stationObject("space", "Deep Space", 64)};
        return Script::response(200, "application/json", jsonArray(objects));
    });
    RadioView view(*app);
    view.show();
    ASSERT_TRUE(waitUntil([&] { return view.countryBox()->count() == 2 && view.languageBox()->count() == 2; }));
    EXPECT_EQ(view.languageBox()->itemText(1), QStringLiteral("German"));

    view.searchField()->setText(QStringLiteral("ambient"));
    ASSERT_TRUE(waitUntil([&] { return view.model()->rowCount() == 2; }));
    EXPECT_EQ(view.model()->stationAt(0)->name, QStringLiteral("Drone Zone"));
    EXPECT_EQ(requestsWith(server, QStringLiteral("name"), QStringLiteral("ambient")).size(), 1);

    view.countryBox()->setCurrentIndex(view.countryBox()->findData(QStringLiteral("AT")));
    view.languageBox()->setCurrentIndex(1);
    view.orderBox()->setCurrentIndex(view.orderBox()->findData(int(DirectoryApi::SearchOrder::Votes)));
    ASSERT_TRUE(waitUntil([&] {
        return requestsWith(server, QStringLiteral("order"), QStringLiteral("votes")).size() >= 2 &&
               !app->directory().isSearching();
    }));
    const auto narrowed = requestsWith(server, QStringLiteral("order"), QStringLiteral("votes"));
    for (const FixtureServer::Request &request : narrowed.mid(narrowed.size() - 2)) {
        EXPECT_EQ(queryItem(request, QStringLiteral("countrycode")), QStringLiteral("AT"));
        EXPECT_EQ(queryItem(request, QStringLiteral("language")), QStringLiteral("german"));
    }
    EXPECT_EQ(view.model()->rowCount(), 2);

    // The field emptied, the filters alone choose: one request, no text key.
    view.searchField()->clear();
    ASSERT_TRUE(waitUntil([&] { return !app->directory().isSearching() && app->directory().currentQuery().isEmpty(); }));
    const FixtureServer::Request last = server.requests().last();
    EXPECT_EQ(last.target, "/json/stations/search?limit=40&offset=0&hidebroken=true&order=votes&reverse=true"
                           "&countrycode=AT&language=german");
}

TEST_F(RadioViewTest, ColumnsSortNumericallyAndAThirdClickGivesBackTheDirectorysOrder)
{
    server.route("/json/stations/search", Script::response(200, "application/json",
        jsonArray({stationObject("a", "b station", 128), stationObject("b", "A station", 320),
                   stationObject("c", "c station", 64), stationObject("d", "D station", 96)})));
    RadioView view(*app);
    view.resize(900, 400);
    view.show();
    view.searchField()->setText(QStringLiteral("station"));
    ASSERT_TRUE(waitUntil([&] { return view.model()->rowCount() == 4; }));
    view.table()->selectRow(1);

    QHeaderView *header = view.table()->horizontalHeader();
    const auto clickHeader = [&](int column) {
        QTest::mouseClick(header->viewport(), Qt::LeftButton, {},
                          QPoint(header->sectionViewportPosition(column) + 5, header->height() / 2));
    };
    const auto order = [&] { return ids(view.model()->stations()); };
    clickHeader(StationTableModel::BitrateColumn);
    EXPECT_EQ(order(), (QStringList{"c", "d", "a", "b"})); // 64 < 96 < 128 < 320, not as text
    EXPECT_EQ(view.selectedStation()->id, QStringLiteral("b")); // the selection moved with its row
    clickHeader(StationTableModel::BitrateColumn);
    EXPECT_EQ(order(), (QStringList{"b", "a", "d", "c"}));
    clickHeader(StationTableModel::BitrateColumn);
    EXPECT_EQ(order(), (QStringList{"a", "b", "c", "d"}));

    clickHeader(StationTableModel::NameColumn); // letter case does not split the names
    EXPECT_EQ(order(), (QStringList{"b", "a", "c", "d"}));
}

TEST_F(RadioViewTest, ADoubleClickListensAndNeverRecords)
{
    RadioView view(*app);
    view.resize(800, 400);
    view.show();
    view.searchField()->setText(QStringLiteral("rock"));
    ASSERT_TRUE(waitUntil([&] { return view.model()->rowCount() == 40; }));

    QAbstractItemView *table = view.table();
    const QPoint at = table->visualRect(view.model()->index(2, StationTableModel::NameColumn)).center();
    for (int i = 0; i < 2; ++i) {
        // What a hand does: press, release, then the second press arrives as a double-click.
        QTest::mouseClick(table->viewport(), Qt::LeftButton, {}, at);
        QTest::mouseDClick(table->viewport(), Qt::LeftButton, {}, at);
        QTest::mouseRelease(table->viewport(), Qt::LeftButton, {}, at);
        ASSERT_TRUE(app->listener().station());
        EXPECT_EQ(app->listener().station()->id, QStringLiteral("rock2"));
        EXPECT_TRUE(app->recorder().sessions().isEmpty());
    }
}

TEST_F(RadioViewTest, RandomStationOfAGenreAsksWithItsTag)
{
    RadioView view(*app);
    view.show();
    view.genreBox()->setCurrentText(QStringLiteral("hip hop "));
    view.findChild<QPushButton *>(QStringLiteral("randomButton"))->click();
    ASSERT_TRUE(waitUntil([&] { return view.model()->rowCount() == 1 && view.selectedStation(); }));
    const auto asked = requestsWith(server, QStringLiteral("order"), QStringLiteral("random"));
    ASSERT_EQ(asked.size(), 1);
    EXPECT_EQ(queryItem(asked[0], QStringLiteral("tag")), QStringLiteral("hip hop"));
}

TEST_F(RadioViewTest, StartPageShowsTheRecommendationsThenThePopularStationsOfTheHomeCountry)
{
    EXPECT_EQ(RadioView::countryCodeOf(QLocale(QLocale::German, QLocale::Austria)), QStringLiteral("AT"));
    EXPECT_EQ(RadioView::countryCodeOf(QLocale::c()), QString());
    EXPECT_EQ(RadioView::countryCodeOf(QLocale(QLocale::Spanish, QLocale::LatinAmerica)), QString());

    RadioView view(*app);
    view.setHomeCountryCode(QStringLiteral("AT"));
    view.show();
    // Curated, the named recommendation (rock0) and the popular page, each station once.
    ASSERT_TRUE(waitUntil([&] { return view.model()->rowCount() == 41; }));
    EXPECT_TRUE(view.model()->stationAt(0)->isCustom());
    EXPECT_EQ(view.model()->stationAt(1)->id, QStringLiteral("rock0"));
    EXPECT_EQ(view.model()->stationAt(40)->id, QStringLiteral("rock39"));
    const auto popular = requestsWith(server, QStringLiteral("countrycode"), QStringLiteral("AT"));
    ASSERT_EQ(popular.size(), 1);
    EXPECT_EQ(queryItem(popular[0], QStringLiteral("order")), QStringLiteral("votes"));
}

// Once a favourite that was never written was announced as added.
TEST_F(RadioViewTest, StorageProblemsShowInTheMessageBarAndAFailedWriteClaimsNoSuccess)
{
    const QString file = home.file(QStringLiteral("data/Orvida/favorites.json"));
    app.reset();
    writeFile(file, "[{\"id\": ");
    app = std::make_unique<Application>(testOptions(home, server));
    MainWindow window(*app, MainWindowOptions{1800, false});
    ASSERT_EQ(window.messageBar()->messages().size(), 1); // said at start, though said before the window
    EXPECT_TRUE(window.messageBar()->messages()[0].contains(QStringLiteral("favorites"))) <<
        window.messageBar()->messages()[0].toStdString();

    blockDataFolder();
    app->listen(Station::custom(QStringLiteral("http://127.0.0.1:9/a"), QStringLiteral("A")));
    window.toggleCurrentFavorite();
    EXPECT_TRUE(app->favorites().list().isEmpty());
    EXPECT_TRUE(window.toastText().isEmpty());
    ASSERT_EQ(window.messageBar()->messages().size(), 2);
    window.messageBar()->dismissButton()->click();
    EXPECT_TRUE(window.messageBar()->isHidden());
}

} // namespace
