#include "app/favoritesview.h"
#include "app/mainwindow.h"
#include "app/messagebar.h"
#include "app/nowplayingbar.h"
#include "app/radioview.h"
#include "app/stationactionbar.h"
#include "engine/enginesettingsstore.h"
#include "engine/radioenginesettings.h"
#include "engine/radiorecorder.h"
#include "engine/stationlistener.h"
#include "library/librarystore.h"

#include "icystream.h"
#include "playerfixture.h"

#include <QLabel>
#include <QPushButton>
#include <QTableView>
#include <QToolButton>

namespace {

using Script = FixtureServer::Script;

// Listening live from the window: the real Application with its station listener and
// player, stations served on loopback from an MP3 file made by ffmpeg. Where a test needs
// a state the stream would take long to reach (a title, a save under way, a lost stream),
// it has the listener announce it, as the listener itself does; the last test goes the
// whole way through the relay.
class ListeningTest : public PlayerFixture {
protected:
    void SetUp() override
    {
        PlayerFixture::SetUp();
        const QString file = home.file(QStringLiteral("Music/stream.mp3"));
        TestAudio::makeTone(file, 8, 440);
        mp3 = readFile(file);
        ASSERT_FALSE(mp3.isEmpty());
    }

    void TearDown() override
    {
        window.reset();
        PlayerFixture::TearDown();
    }

    void openWindow()
    {
        window = std::make_unique<MainWindow>(*app, MainWindowOptions { 150, false });
        window->resize(1100, 700);
        window->show();
        // Shortcuts (Ctrl+D, Enter on a table) reach only the active window.
        window->activateWindow();
        ASSERT_TRUE(QTest::qWaitForWindowActive(window.get()));
        bar = window->nowPlayingBar();
    }

    // A station without titles: 16 kB/s of the file, over and over, for each connection.
    Station plainStation(const QByteArray &path, const QString &name)
    {
        server.route(path, [audio = mp3](const FixtureServer::Request &) {
            auto offset = std::make_shared<qsizetype>(0);
            return Script::head("HTTP/1.0 200 OK", { { "Content-Type", "audio/mpeg" } }).produce(250, [audio, offset] {
                QByteArray piece = audio.mid(*offset, 4000);
                *offset = (*offset + 4000) % audio.size();
                return piece;
            });
        });
        return Station::custom(QString::fromLatin1(server.url(path)), name);
    }

    StationListener &listener() { return app->listener(); }

    QByteArray mp3;
    std::unique_ptr<MainWindow> window;
    NowPlayingBar *bar = nullptr;
};

TEST_F(ListeningTest, ListenFromARowOrWithEnterFeedsTheRecentsAndRecordingDoesNot)
{
    openWindow();
    const Station one = plainStation("/one", QStringLiteral("One FM"));
    const Station two = plainStation("/two", QStringLiteral("Two FM"));
    RadioView *radio = window->radioView();
    radio->showCustomStation(one.streamUrl, one.name);
    QPushButton *listen = radio->actionBar()->listenButton();
    ASSERT_TRUE(listen->isEnabled());

    listen->click();
    ASSERT_TRUE(listener().station());
    EXPECT_EQ(listener().station()->id, one.id);
    EXPECT_EQ(app->recents().list().first().id, one.id);
    EXPECT_EQ(listen->text(), QStringLiteral("Stop Listening"));
    EXPECT_TRUE(bar->showsStation());
    EXPECT_EQ(bar->titleLabel()->text(), QStringLiteral("One FM"));

    // Recording is not hearing: the recents keep their order.
    ASSERT_TRUE(app->favorites().add(two));
    radio->showCustomStation(two.streamUrl, two.name);
    radio->actionBar()->recordButton()->click();
    ASSERT_TRUE(app->recorder().isRecordingStation(two.id));
    EXPECT_EQ(app->recents().list().size(), 1);
    EXPECT_EQ(listen->text(), QStringLiteral("Listen")); // the row shows another station now

    // Enter on a favourite's row listens to it instead.
    window->showPage(MainWindow::FavoritesPage);
    QTableView *favorites = window->favoritesView()->table();
    favorites->setFocus();
    favorites->setCurrentIndex(favorites->model()->index(0, 0));
    QTest::keyClick(favorites, Qt::Key_Return);
    ASSERT_TRUE(listener().station());
    EXPECT_EQ(listener().station()->id, two.id);
    ASSERT_EQ(app->recents().list().size(), 2);
    EXPECT_EQ(app->recents().list().first().id, two.id);
    EXPECT_EQ(bar->titleLabel()->text(), QStringLiteral("Two FM"));

    // The same button stops it; the bar goes back to the queue.
    window->showPage(MainWindow::RadioPage);
    EXPECT_EQ(listen->text(), QStringLiteral("Stop Listening"));
    listen->click();
    EXPECT_FALSE(listener().station());
    EXPECT_FALSE(bar->showsStation());
    EXPECT_EQ(bar->titleLabel()->text(), QStringLiteral("Not Playing"));
    app->recorder().stop(two.id);
}

TEST_F(ListeningTest, BarShowsTheStationUntilTheStreamBreaksAndATrackPlays)
{
    addSongs(1);
    openWindow();
    const Station station = plainStation("/live", QStringLiteral("Live FM"));
    app->listen(station);
    EXPECT_TRUE(bar->liveBadge()->isVisibleTo(bar));
    EXPECT_FALSE(bar->showsTimeline());
    EXPECT_FALSE(bar->nextButton()->isEnabled());
    EXPECT_EQ(bar->titleLabel()->text(), QStringLiteral("Live FM"));

    Q_EMIT listener().titleChanged(QStringLiteral("Artist - First"));
    EXPECT_EQ(bar->artistLabel()->text(), QStringLiteral("Artist - First"));

    // The station is lost: it stays named, with the reason instead of silence.
    Q_EMIT listener().streamFailed(QStringLiteral("Stream unterbrochen"));
    EXPECT_TRUE(bar->showsStation());
    EXPECT_EQ(bar->titleLabel()->text(), QStringLiteral("Live FM"));
    EXPECT_EQ(bar->artistLabel()->text(), QStringLiteral("Stream interrupted"));
    EXPECT_FALSE(bar->liveBadge()->isVisibleTo(bar));
    EXPECT_FALSE(bar->saveSongButton()->isVisibleTo(bar));

    // A library track takes the bar back, with its timeline; listening has ended.
    window->showPage(MainWindow::LibraryPage);
    player().playQueue(app->library()->allTracks(), 0);
    EXPECT_FALSE(listener().station());
    EXPECT_FALSE(bar->showsStation());
    EXPECT_EQ(bar->titleLabel()->text(), QStringLiteral("Song 1"));
    EXPECT_TRUE(bar->showsTimeline());
    EXPECT_FALSE(bar->liveBadge()->isVisibleTo(bar));
}

TEST_F(ListeningTest, CtrlDTogglesTheStationThatPlaysWithANoticeThatExpires)
{
    openWindow();
    const Station heard = plainStation("/heard", QStringLiteral("Heard"));
    const Station selected = plainStation("/selected", QStringLiteral("Selected"));
    window->toggleCurrentFavorite(); // nothing plays: nothing happens
    EXPECT_TRUE(app->favorites().list().isEmpty());
    EXPECT_TRUE(window->toastText().isEmpty());

    app->listen(heard);
    // The selection in a list is not what plays.
    window->radioView()->showCustomStation(selected.streamUrl, selected.name);
    QTest::keyClick(window.get(), Qt::Key_D, Qt::ControlModifier);
    EXPECT_TRUE(app->favorites().isFavorite(heard.id));
    EXPECT_FALSE(app->favorites().isFavorite(selected.id));
    EXPECT_EQ(window->toastText(), QStringLiteral("Added to favourites"));

    QTest::qWait(100);
    window->toggleCurrentFavorite();
    EXPECT_FALSE(app->favorites().isFavorite(heard.id));
    EXPECT_EQ(window->toastText(), QStringLiteral("Removed from favourites"));
    // The second notice got its own full period: the first one's end does not clear it.
    QTest::qWait(100);
    EXPECT_EQ(window->toastText(), QStringLiteral("Removed from favourites"));
    EXPECT_TRUE(waitUntil([&] { return window->toastText().isEmpty(); }, 2000));

    app->stopListening();
    window->toggleCurrentFavorite();
    EXPECT_TRUE(app->favorites().list().isEmpty());
    EXPECT_TRUE(window->toastText().isEmpty());
}

// Ready, armed and saved are seen the whole way below; here what it takes long to reach.
TEST_F(ListeningTest, SaveStatusSaysSavingSkipsAndFailuresAndStartsCleanWithTheNextStation)
{
    using SaveState = StationListener::SaveState;
    openWindow();
    app->listen(plainStation("/save", QStringLiteral("Save FM")));
    Q_EMIT listener().titleChanged(QStringLiteral("Artist - Keeper"));
    QPushButton *save = bar->saveSongButton();
    EXPECT_TRUE(save->isVisibleTo(bar));
    EXPECT_FALSE(save->isEnabled()); // no title from the capture yet: nothing to save

    Q_EMIT listener().saveStateChanged(SaveState::saving);
    EXPECT_FALSE(save->isEnabled());
    EXPECT_EQ(bar->saveStatusLabel()->text(), QStringLiteral("Saving “Artist - Keeper”…"));
    Q_EMIT listener().songSkipped(QStringLiteral("Station - Jingle"), QStringLiteral("too short"));
    EXPECT_EQ(bar->saveStatusLabel()->text(), QStringLiteral("“Station - Jingle” was not saved: too short"));
    // A failure also stays in the message bar, for a window that was away.
    Q_EMIT listener().saveFailed(QStringLiteral("No space left on device"));
    EXPECT_EQ(bar->saveStatusLabel()->text(), QStringLiteral("The song could not be saved: No space left on device"));
    ASSERT_FALSE(window->messageBar()->messages().isEmpty());
    EXPECT_EQ(window->messageBar()->messages().last(),
        QStringLiteral("The song could not be saved: No space left on device"));

    app->listen(plainStation("/next", QStringLiteral("Next FM")));
    EXPECT_TRUE(bar->saveStatusLabel()->text().isEmpty());
}

// The whole way, through the relay: Listen on a row, the player plays the station live,
// the bar shows the titles the station sends, Ctrl+S saves the song playing into the
// library, pause and play act on the stream, and stopping ends the relay and live mode.
TEST_F(ListeningTest, ListensThroughTheRelayWithTheStationsOwnTitlesAndSavesTheSongPlaying)
{
    // Short songs kept as they came, so a save is quick and needs no encoder.
    RadioEngineSettings settings;
    settings.lossless = true;
    settings.minDurationSec = 0;
    ASSERT_TRUE(app->engineSettings().setGlobal(settings));
    server.route("/icy", IcyStream::station({ "Artist - First", "Artist - Second", "Artist - Third" }, 30, 60, mp3));
    openWindow();
    RadioView *radio = window->radioView();
    radio->showCustomStation(QString::fromLatin1(server.url("/icy")), QStringLiteral("Fixture FM"));
    radio->actionBar()->listenButton()->click();
    ASSERT_TRUE(listener().station());

    // Nothing sounds by itself here: the output is rendered while waiting.
    const auto playingLive = [&] {
        advance(0.05);
        return player().isLive() && player().status() == Player::Status::playing;
    };
    ASSERT_TRUE(waitUntil(playingLive, 20000));
    ASSERT_TRUE(player().liveUrl());
    EXPECT_EQ(player().liveUrl()->host(), QStringLiteral("127.0.0.1"));
    EXPECT_EQ(player().liveUrl()->path(), QStringLiteral("/stream.mp3"));
    EXPECT_EQ(bar->titleLabel()->text(), QStringLiteral("Fixture FM"));
    EXPECT_TRUE(bar->liveBadge()->isVisibleTo(bar));
    EXPECT_FALSE(bar->showsTimeline());

    const auto barSays = [&](const QString &title) {
        return waitUntil(
            [&] {
                advance(0.05);
                return bar->artistLabel()->text() == title;
            },
            20000);
    };
    EXPECT_TRUE(barSays(QStringLiteral("Artist - First")));
    ASSERT_TRUE(barSays(QStringLiteral("Artist - Second")));

    // The first song began before listening did; the second can be saved from its start.
    QPushButton *save = bar->saveSongButton();
    ASSERT_TRUE(waitUntil([&] { return save->isEnabled(); }, 5000));
    QTest::keyClick(window.get(), Qt::Key_S, Qt::ControlModifier);
    EXPECT_FALSE(save->isEnabled());
    EXPECT_EQ(bar->saveStatusLabel()->text(), QStringLiteral("“Artist - Second” will be saved when the song ends…"));
    ASSERT_TRUE(waitUntil(
        [&] {
            advance(0.05);
            return bar->saveStatusLabel()->text() == QStringLiteral("Saved: Artist - Second");
        },
        20000))
        << bar->saveStatusLabel()->text().toStdString();
    ASSERT_EQ(app->library()->allTracks().size(), 1);
    EXPECT_EQ(app->library()->allTracks().first().title, QStringLiteral("Second"));
    EXPECT_EQ(app->library()->allTracks().first().station, QStringLiteral("Fixture FM"));

    bar->playPauseButton()->click();
    EXPECT_TRUE(waitUntil([&] { return player().status() == Player::Status::paused; }, 5000));
    EXPECT_TRUE(bar->showsStation());
    bar->playPauseButton()->click();
    EXPECT_TRUE(waitUntil(playingLive, 20000));

    radio->actionBar()->listenButton()->click(); // "Stop Listening"
    EXPECT_TRUE(waitUntil([&] { return !player().isLive() && !listener().station(); }, 5000));
    EXPECT_EQ(bar->titleLabel()->text(), QStringLiteral("Not Playing"));
    EXPECT_EQ(app->recents().list().first().name, QStringLiteral("Fixture FM"));
}

} // namespace
