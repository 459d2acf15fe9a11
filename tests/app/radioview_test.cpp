#include "app/mainwindow.h"
#include "app/messagebar.h"
#include "app/radioview.h"
#include "app/stationactionbar.h"
#include "app/favoritesview.h"
#include "app/stationtablemodel.h"

#include "appfixture.h"
#include "directoryfixtures.h"

#include <QLineEdit>
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
    EXPECT_EQ(view.model()->stations(), app->directory().recommendations());
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
