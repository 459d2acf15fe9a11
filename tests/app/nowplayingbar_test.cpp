#include "app/libraryfiltermodel.h"
#include "app/librarymodel.h"
#include "app/libraryview.h"
#include "app/mainwindow.h"
#include "app/messagebar.h"
#include "app/nowplayingbar.h"
#include "app/playlistedits.h"
#include "app/playlistentrymodel.h"
#include "app/playlistpane.h"
#include "app/upnextpopup.h"

#include "playerfixture.h"

#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QSlider>
#include <QTableView>
#include <QToolButton>

namespace {

// The now-playing bar, the library's play gestures and the player's keys in a real main
// window, with a real player on the offline output playing files made by ffmpeg.
class NowPlayingTest : public PlayerFixture {
protected:
    void openWindow()
    {
        window = std::make_unique<MainWindow>(*app, MainWindowOptions { 1800, false });
        window->resize(1100, 700);
        window->show();
        // Shortcuts (Space, Enter on a table) reach only the active window.
        window->activateWindow();
        ASSERT_TRUE(QTest::qWaitForWindowActive(window.get()));
        window->showPage(MainWindow::LibraryPage); // the table is read when first shown
        bar = window->nowPlayingBar();
        table = window->libraryView()->table();
    }

    // The titles of the library table, top to bottom.
    QStringList shownTitles() const
    {
        QStringList titles;
        for (int row = 0; row < table->model()->rowCount(); ++row)
            titles << table->model()->index(row, LibraryModel::TitleColumn).data().toString();
        return titles;
    }

    static QStringList titles(const QList<Track> &tracks)
    {
        QStringList out;
        for (const Track &track : tracks)
            out << track.title;
        return out;
    }

    // What a hand does: press, release, then the second press arrives as a double-click.
    // (QTest::mouseDClick alone sends only the double-click event.)
    static void doubleClick(QAbstractItemView *view, const QModelIndex &index)
    {
        const QPoint at = view->visualRect(index).center();
        QTest::mouseClick(view->viewport(), Qt::LeftButton, {}, at);
        QTest::mouseDClick(view->viewport(), Qt::LeftButton, {}, at);
        QTest::mouseRelease(view->viewport(), Qt::LeftButton, {}, at);
    }

    QPoint cellCentre(int row, int column) const
    {
        return table->visualRect(table->model()->index(row, column)).center();
    }

    void TearDown() override
    {
        window.reset();
        PlayerFixture::TearDown();
    }

    std::unique_ptr<MainWindow> window;
    NowPlayingBar *bar = nullptr;
    QTableView *table = nullptr;
};

TEST_F(NowPlayingTest, BarShowsTheTrackItsTimesAndSeeksWhenTheDragEnds)
{
    addSongs(3);
    openWindow();
    EXPECT_EQ(bar->titleLabel()->text(), QStringLiteral("Not Playing"));
    EXPECT_FALSE(bar->positionSlider()->isEnabled());

    window->libraryView()->playFromTableRow(1); // newest first: Song 3, Song 2, Song 1
    EXPECT_EQ(player().status(), Player::Status::playing);
    EXPECT_EQ(bar->titleLabel()->text(), QStringLiteral("Song 2"));
    EXPECT_EQ(bar->artistLabel()->text(), QStringLiteral("Artist 2"));
    EXPECT_EQ(bar->playPauseButton()->accessibleName(), QStringLiteral("Pause"));

    advance(1.5);
    bar->refreshPosition();
    EXPECT_EQ(bar->elapsedLabel()->text(), QStringLiteral("0:01"));
    EXPECT_EQ(bar->remainingLabel()->text(), QStringLiteral("-0:03"));
    EXPECT_EQ(bar->positionSlider()->maximum(), 4000);
    EXPECT_NEAR(bar->positionSlider()->value(), 1500, 30);

    // While the handle is held, the player goes on and the handle stays where the hand is.
    QSlider *slider = bar->positionSlider();
    slider->setSliderDown(true);
    slider->setSliderPosition(3200);
    advance(0.3);
    bar->refreshPosition();
    EXPECT_EQ(slider->value(), 3200);
    EXPECT_EQ(bar->elapsedLabel()->text(), QStringLiteral("0:03"));
    EXPECT_NEAR(*player().position(), 1.8, 0.05);
    slider->setSliderDown(false); // released: one seek
    EXPECT_NEAR(*player().position(), 3.2, 0.05);

    // A click beside the handle seeks at once.
    slider->triggerAction(QAbstractSlider::SliderPageStepSub);
    EXPECT_NEAR(*player().position(), 0.0, 0.05);

    bar->playPauseButton()->click();
    EXPECT_EQ(player().status(), Player::Status::paused);
    EXPECT_EQ(bar->playPauseButton()->accessibleName(), QStringLiteral("Play"));
}

TEST_F(NowPlayingTest, ButtonsDriveThePlayerAndFollowIt)
{
    addSongs(3);
    openWindow();
    window->libraryView()->playFromTableRow(0);
    ASSERT_EQ(player().currentIndex(), 0);

    bar->nextButton()->click();
    EXPECT_EQ(player().currentIndex(), 1);
    EXPECT_EQ(bar->titleLabel()->text(), QStringLiteral("Song 2"));
    bar->previousButton()->click(); // within the first 3 s: the track before
    EXPECT_EQ(bar->titleLabel()->text(), QStringLiteral("Song 3"));

    // off -> all -> one -> off
    const Player::Repeat cycle[] = { Player::Repeat::all, Player::Repeat::one, Player::Repeat::off };
    for (Player::Repeat expected : cycle) {
        bar->repeatButton()->click();
        EXPECT_EQ(player().repeat(), expected);
        EXPECT_EQ(bar->repeatButton()->isChecked(), expected != Player::Repeat::off);
    }
    EXPECT_EQ(bar->repeatButton()->toolTip(), QStringLiteral("Repeat: off"));
    player().setRepeat(Player::Repeat::one);
    EXPECT_EQ(bar->repeatButton()->toolTip(), QStringLiteral("Repeat: this track"));

    bar->shuffleButton()->click();
    EXPECT_TRUE(player().shuffle());
    player().setShuffle(false);
    EXPECT_FALSE(bar->shuffleButton()->isChecked());

    bar->volumeSlider()->setValue(40);
    EXPECT_DOUBLE_EQ(player().volume(), 0.4);
    player().setVolume(0.75);
    EXPECT_EQ(bar->volumeSlider()->value(), 75);
}

TEST_F(NowPlayingTest, UpNextListsWhatFollowsInPlayOrder)
{
    addSongs(4);
    openWindow();
    window->libraryView()->playFromTableRow(1); // Song 3; then Song 2, Song 1
    bar->upNextButton()->click();
    QListWidget *list = bar->upNext()->list();
    ASSERT_TRUE(bar->upNext()->isVisible());
    ASSERT_EQ(list->count(), 2);
    EXPECT_EQ(list->item(0)->text(), QStringLiteral("Song 2 – Artist 2"));
    EXPECT_EQ(list->item(1)->text(), QStringLiteral("Song 1 – Artist 1"));

    player().next();
    ASSERT_EQ(list->count(), 1);
    EXPECT_EQ(list->item(0)->text(), QStringLiteral("Song 1 – Artist 1"));
    player().next();
    ASSERT_EQ(list->count(), 1);
    EXPECT_EQ(list->item(0)->text(), QStringLiteral("Nothing follows."));
    EXPECT_EQ(list->item(0)->flags(), Qt::NoItemFlags);
    bar->upNext()->hide();
}

TEST_F(NowPlayingTest, DoubleClickAndEnterPlayTheTableAsShown)
{
    QList<Track> songs = addSongs(4);
    songs[2].title = QStringLiteral("Interlude");
    ASSERT_TRUE(app->library()->save(songs[2]));
    openWindow();
    // Filtered and sorted by title: the queue is exactly what the table shows.
    window->libraryView()->filterField()->setText(QStringLiteral("song"));
    table->sortByColumn(LibraryModel::TitleColumn, Qt::DescendingOrder);
    ASSERT_EQ(shownTitles(), QStringList({ "Song 4", "Song 2", "Song 1" }));

    doubleClick(table, table->model()->index(1, LibraryModel::TitleColumn));
    EXPECT_EQ(titles(player().queue()), QStringList({ "Song 4", "Song 2", "Song 1" }));
    EXPECT_EQ(player().currentIndex(), 1);
    EXPECT_EQ(bar->titleLabel()->text(), QStringLiteral("Song 2"));
    // The playing row is bold.
    EXPECT_TRUE(table->model()->index(1, LibraryModel::TitleColumn).data(Qt::FontRole).value<QFont>().bold());
    EXPECT_FALSE(table->model()->index(0, LibraryModel::TitleColumn).data(Qt::FontRole).value<QFont>().bold());

    window->libraryView()->filterField()->clear();
    table->setFocus();
    table->setCurrentIndex(table->model()->index(3, LibraryModel::ArtistColumn));
    ASSERT_EQ(shownTitles(), QStringList({ "Song 4", "Song 2", "Song 1", "Interlude" }));
    QTest::keyClick(table, Qt::Key_Return);
    EXPECT_EQ(player().queue().size(), 4);
    EXPECT_EQ(player().currentIndex(), 3);
    EXPECT_EQ(bar->titleLabel()->text(), QStringLiteral("Interlude"));
}

TEST_F(NowPlayingTest, PlaylistEntriesPlayInPlaylistOrderWithoutTheOnesGoneFromTheLibrary)
{
    const QList<Track> songs = addSongs(3);
    const std::optional<qint64> playlist = app->library()->insertPlaylist(Playlist(QStringLiteral("Mix")));
    ASSERT_TRUE(playlist);
    ASSERT_TRUE(PlaylistEdits::addTracks(*app->library(), *playlist, { songs[2].id, songs[0].id, songs[1].id }));
    // A remote video that was never downloaded has no track to play.
    ASSERT_TRUE(app->library()->addEntry(*playlist,
        PlaylistEntry(QStringLiteral("Video"), QStringLiteral("Someone"), 0, QStringLiteral("abc"), 99, std::nullopt)));
    openWindow();
    window->libraryView()->playlistPane()->setCurrentPlaylist(*playlist);
    QTableView *entries = window->libraryView()->playlistTable();
    ASSERT_EQ(entries->model()->rowCount(), 4);

    entries->setFocus();
    entries->setCurrentIndex(entries->model()->index(1, 0));
    QTest::keyClick(entries, Qt::Key_Enter);
    EXPECT_EQ(titles(player().queue()), QStringList({ "Song 3", "Song 1", "Song 2" }));
    EXPECT_EQ(player().currentIndex(), 1);

    doubleClick(entries, entries->model()->index(2, 1));
    EXPECT_EQ(player().currentIndex(), 2);

    // The video: nothing starts, and the bar says why.
    window->libraryView()->playFromPlaylistRow(3);
    EXPECT_EQ(player().currentIndex(), 2);
    ASSERT_EQ(window->messageBar()->messages().size(), 1);
    EXPECT_TRUE(window->messageBar()->messages().first().startsWith(QStringLiteral("Video: ")));
}

TEST_F(NowPlayingTest, StarClicksAreStoredInTheLibrary)
{
    const QList<Track> songs = addSongs(2);
    openWindow();
    auto star = [this](int row) { return table->model()->index(row, LibraryModel::FavoriteColumn).data().toString(); };
    // Newest first: row 0 is Song 2.
    EXPECT_EQ(star(0), QStringLiteral("☆"));
    QTest::mouseClick(table->viewport(), Qt::LeftButton, {}, cellCentre(0, LibraryModel::FavoriteColumn));
    EXPECT_TRUE(app->library()->track(songs[1].id)->isFavorite);
    EXPECT_FALSE(app->library()->track(songs[0].id)->isFavorite);
    EXPECT_EQ(star(0), QStringLiteral("★"));
    // A click elsewhere on the row only selects it.
    QTest::mouseClick(table->viewport(), Qt::LeftButton, {}, cellCentre(1, LibraryModel::TitleColumn));
    EXPECT_FALSE(app->library()->track(songs[0].id)->isFavorite);
    EXPECT_EQ(star(1), QStringLiteral("☆"));
    QTest::mouseClick(table->viewport(), Qt::LeftButton, {}, cellCentre(0, LibraryModel::FavoriteColumn));
    EXPECT_FALSE(app->library()->track(songs[1].id)->isFavorite);
    EXPECT_EQ(star(0), QStringLiteral("☆"));

    // A double-click on a star is about the star: one change, and nothing plays.
    doubleClick(table, table->model()->index(1, LibraryModel::FavoriteColumn));
    EXPECT_EQ(player().status(), Player::Status::stopped);
    EXPECT_TRUE(app->library()->track(songs[0].id)->isFavorite);
    EXPECT_EQ(star(1), QStringLiteral("★"));
    // Favourites sort first, descending.
    table->sortByColumn(LibraryModel::FavoriteColumn, Qt::DescendingOrder);
    EXPECT_EQ(shownTitles(), QStringList({ "Song 1", "Song 2" }));
}

TEST_F(NowPlayingTest, PlayCountColumnCountsATrackHeardPastHalf)
{
    const QList<Track> songs = addSongs(2, 2.0);
    openWindow();
    window->libraryView()->playFromTableRow(1); // Song 1
    ASSERT_EQ(bar->titleLabel()->text(), QStringLiteral("Song 1"));
    const QModelIndex count = table->model()->index(1, LibraryModel::PlayCountColumn);
    EXPECT_EQ(count.data().toString(), QStringLiteral("0"));
    advance(0.8);
    EXPECT_EQ(count.data().toString(), QStringLiteral("0"));
    advance(0.4);
    EXPECT_EQ(count.data().toString(), QStringLiteral("1"));
    EXPECT_EQ(app->library()->track(songs[0].id)->playCount, 1);
}

TEST_F(NowPlayingTest, UnplayableFilesAreSkippedWithANoticeAndTheBarMovesOn)
{
    const QList<Track> songs = addSongs(3);
    writeFile(*songs[2].filePath, QByteArray(20000, '\x5a')); // not audio any more
    ASSERT_TRUE(QFile::remove(*songs[1].filePath));
    openWindow();
    window->libraryView()->playFromTableRow(0); // Song 3 (junk), Song 2 (gone), Song 1
    advance(0.1);
    QTRY_COMPARE(bar->titleLabel()->text(), QStringLiteral("Song 1"));
    EXPECT_EQ(player().status(), Player::Status::playing);
    const QStringList messages = window->messageBar()->messages();
    ASSERT_EQ(messages.size(), 2);
    // The decoder's reason as it gave it; a missing file in the interface's words.
    EXPECT_TRUE(messages[0].startsWith(QStringLiteral("“Song 3” was skipped: ")));
    EXPECT_GT(messages[0].size(), QStringLiteral("“Song 3” was skipped: ").size());
    EXPECT_FALSE(messages[0].endsWith(QStringLiteral("the file is missing")));
    EXPECT_EQ(messages[1], QStringLiteral("“Song 2” was skipped: the file is missing"));
    EXPECT_TRUE(window->messageBar()->isVisible());

    // The last track ends: the bar is idle again, not stuck on it.
    advance(4.2);
    QTRY_COMPARE(bar->titleLabel()->text(), QStringLiteral("Not Playing"));
    EXPECT_EQ(player().status(), Player::Status::stopped);
    EXPECT_EQ(bar->playPauseButton()->accessibleName(), QStringLiteral("Play"));
}

TEST_F(NowPlayingTest, SpaceAndCtrlArrowsWorkOutsideTextFields)
{
    addSongs(3);
    openWindow();
    window->activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(window.get()));
    window->libraryView()->playFromTableRow(0);
    table->setFocus();
    ASSERT_TRUE(table->hasFocus());

    QTest::keyClick(table, Qt::Key_Space);
    EXPECT_EQ(player().status(), Player::Status::paused);
    QTest::keyClick(table, Qt::Key_Space);
    EXPECT_EQ(player().status(), Player::Status::playing);
    QTest::keyClick(table, Qt::Key_Right, Qt::ControlModifier);
    EXPECT_EQ(player().currentIndex(), 1);
    QTest::keyClick(table, Qt::Key_Right, Qt::ControlModifier);
    EXPECT_EQ(player().currentIndex(), 2);
    QTest::keyClick(table, Qt::Key_Left, Qt::ControlModifier);
    EXPECT_EQ(player().currentIndex(), 1);

    // In the filter field the keys type and move the cursor.
    QLineEdit *filter = window->libraryView()->filterField();
    filter->setFocus();
    QTest::keyClicks(filter, QStringLiteral("a b"));
    EXPECT_EQ(filter->text(), QStringLiteral("a b"));
    EXPECT_EQ(player().status(), Player::Status::playing);
    QTest::keyClick(filter, Qt::Key_Left, Qt::ControlModifier);
    EXPECT_EQ(filter->cursorPosition(), 2);
    EXPECT_EQ(player().currentIndex(), 1);
}

} // namespace
