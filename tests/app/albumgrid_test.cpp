#include "app/albumgrid.h"
#include "app/albumgridmodel.h"
#include "app/libraryfiltermodel.h"
#include "app/libraryview.h"
#include "playback/player.h"

#include "appfixture.h"
#include "testaudio.h"

#include <QLineEdit>
#include <QPushButton>

namespace {

Track track(const QString &title, const QString &artist, const QString &album, qint64 id = 0)
{
    Track out;
    out.id = id;
    out.title = title;
    out.artist = artist;
    out.album = album;
    out.dateAdded = QDateTime::currentDateTimeUtc();
    out.source = QStringLiteral("radio");
    return out;
}

TEST(AlbumGroupingTest, GroupsByArtistAndAlbumInOrderOfFirstAppearance)
{
    const QList<AlbumGrouping::Album> albums = AlbumGrouping::group({
        track("One", "Nina", "Blue"),
        track("Two", "Otto", "Red"),
        track("Three", "nina", "BLUE"), // the same album, whatever the case
        track("Four", "Otto", ""),      // no album: under the artist
        track("Five", "Paul", "Blue"),  // another artist's album of that name
    });
    ASSERT_EQ(albums.size(), 4);
    EXPECT_EQ(albums[0].title, QStringLiteral("Blue"));
    EXPECT_EQ(albums[0].tracks.size(), 2);
    EXPECT_EQ(albums[0].tracks[1].title, QStringLiteral("Three"));
    EXPECT_EQ(albums[1].title, QStringLiteral("Red"));
    EXPECT_EQ(albums[2].title, QStringLiteral("Otto"));
    EXPECT_EQ(albums[3].artist, QStringLiteral("Paul"));
}

class AlbumGridTest : public AppFixture {};

// The grid shows the library's albums beside the table, follows the filter, shows a
// saved song's cover and plays an album.
TEST_F(AlbumGridTest, ShowsTheFilteredAlbumsWithTheirCoversAndPlaysOne)
{
    LibraryStore *library = app->library();
    ASSERT_NE(library, nullptr);
    const QString folder = home.file(QStringLiteral("music/Blue"));
    ASSERT_TRUE(QDir().mkpath(folder));
    TestAudio::makeTone(folder + QStringLiteral("/one.wav"), 0.5, 440);
    TestAudio::makePicture(folder + QStringLiteral("/cover.png"), QStringLiteral("red"), 40, 40);
    Track blue = track("One", "Nina", "Blue");
    blue.filePath = folder + QStringLiteral("/one.wav");
    blue.duration = 0.5;
    ASSERT_TRUE(library->insert(blue));
    ASSERT_TRUE(library->insert(track("Two", "Otto", "Red")));

    LibraryView view(*app);
    view.resize(1200, 700);
    view.show();
    EXPECT_TRUE(view.albumGrid()->isHidden());
    view.albumsToggle()->click();
    ASSERT_TRUE(view.albumGrid()->isVisible());
    AlbumGridModel *albums = view.albumGrid()->albums();
    QTRY_COMPARE(albums->rowCount(), 2);
    const int blueRow = albums->albumAt(0)->title == QStringLiteral("Blue") ? 0 : 1;
    QTRY_VERIFY(albums->hasCover(blueRow));
    EXPECT_FALSE(albums->hasCover(1 - blueRow));

    view.filterField()->setText(QStringLiteral("Otto"));
    QTRY_COMPARE(albums->rowCount(), 1);
    EXPECT_EQ(albums->albumAt(0)->title, QStringLiteral("Red"));
    view.filterField()->clear();
    QTRY_COMPARE(albums->rowCount(), 2);

    view.albumGrid()->playAlbum(blueRow);
    QTRY_VERIFY(app->player().currentTrack().has_value());
    EXPECT_EQ(app->player().currentTrack()->title, QStringLiteral("One"));
}

} // namespace
