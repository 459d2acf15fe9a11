#include "app/mainwindow.h"
#include "app/messagebar.h"
#include "app/radioview.h"
#include "app/recordingsview.h"
#include "engine/radiorecorder.h"
#include "app/stationactionbar.h"
#include "engine/enginesettingsstore.h"
#include "engine/recordingcontext.h"
#include "engine/recordingstats.h"
#include "library/librarystore.h"
#include "platform/preferences.h"
#include "stations/recentstations.h"

#include "appfixture.h"
#include "icystream.h"

#include <QFile>
#include <QListWidget>
#include <QPushButton>
#include <QRegularExpression>
#include <QTreeWidget>

namespace {

using Script = FixtureServer::Script;
using IcyStream::audioBlock;
using IcyStream::metaBlock;

class RecordingTest : public AppFixture {
protected:
    void SetUp() override
    {
        AppFixture::SetUp();
        settings.lossless = true; // the stream's own bytes: no ffmpeg run needed
        settings.minDurationSec = 0;
        ASSERT_TRUE(app->engineSettings().setGlobal(settings));
        app->recordingContext().timings.statusPolling = false;
        app->recordingContext().timings.reconnectDelaySec = [](qint64) { return 0.05; };
    }

    // One title after the other, three blocks apart; then the stream stays open without
    // sending more.
    void routeIcyStream(const QByteArray &path, const QList<QByteArray> &titles = {"Artist - One", "Artist - Two"})
    {
        int n = 0;
        QByteArray body;
        for (const QByteArray &title : titles) {
            for (int gap = 0; gap < (n == 0 ? 0 : 3); ++gap)
                body += audioBlock(n++) + metaBlock({});
            body += audioBlock(n++) + metaBlock("StreamTitle='" + title + "';");
        }
        body += audioBlock(n) + metaBlock({});
        server.route(path, Script::head("ICY 200 OK", {{"icy-metaint", "1000"}, {"Content-Type", "audio/mpeg"}})
                               .send(body)
                               .hang());
    }

    Station station(const QByteArray &path, const QString &name) const
    {
        return Station::custom(QString::fromLatin1(server.url(path)), name);
    }

    static QStringList songLines(const QTreeWidgetItem *row)
    {
        QStringList lines;
        for (int i = 0; i < row->childCount(); ++i)
            lines << row->child(i)->text(0);
        return lines;
    }

    RadioEngineSettings settings;
};

TEST_F(RecordingTest, RecordFromARowShowsTheSessionLiveAndStopFilesTheSongs)
{
    routeIcyStream("/live");
    MainWindow window(*app, MainWindowOptions{1800, false});
    window.show();
    RadioView *radio = window.radioView();
    RecordingsView *recordings = window.recordingsView();
    radio->showCustomStation(QString::fromLatin1(server.url("/live")), QStringLiteral("Fixture FM"));
    ASSERT_TRUE(radio->selectedStation());

    radio->actionBar()->recordButton()->click();
    ASSERT_EQ(app->recorder().sessions().size(), 1);
    EXPECT_EQ(radio->actionBar()->recordButton()->text(), QStringLiteral("Stop Recording"));
    EXPECT_TRUE(app->recents().list().isEmpty()); // the recents are what was heard

    const QString id = radio->selectedStation()->id;
    QTreeWidgetItem *row = recordings->row(id);
    ASSERT_TRUE(row);
    EXPECT_EQ(row->text(RecordingsView::StationColumn), QStringLiteral("Fixture FM"));
    // The first song is saved when the second title arrives.
    ASSERT_TRUE(waitUntil([&] { return row->text(RecordingsView::SavedColumn) == QStringLiteral("1"); }, 10000));
    EXPECT_EQ(row->text(RecordingsView::TitleColumn), QStringLiteral("Artist - Two"));
    EXPECT_EQ(row->text(RecordingsView::StatusColumn), QStringLiteral("● Recording"));
    EXPECT_EQ(songLines(row), QStringList({"Saved: Artist - One"}));
    // Blocks and title blocks, as received.
    ASSERT_TRUE(waitUntil([&] { return row->text(RecordingsView::ReceivedColumn).endsWith(QStringLiteral(" kB")); }, 5000));

    // The row's action now stops it...
    StationActionBar::toggleRecording(*app, *radio->selectedStation());
    EXPECT_TRUE(app->recorder().sessions().isEmpty());
    EXPECT_FALSE(recordings->row(id));
    EXPECT_EQ(radio->actionBar()->recordButton()->text(), QStringLiteral("Record"));

    // ...and the song in progress is still saved and filed, with the first one.
    LibraryStore *library = app->library();
    ASSERT_TRUE(library);
    ASSERT_TRUE(waitUntil([&] { return library->allTracks().size() == 2; }, 10000));
    QStringList titles;
    for (const Track &track : library->allTracks())
        titles << track.artist + " - " + track.title;
    titles.sort();
    EXPECT_EQ(titles, QStringList({"Artist - One", "Artist - Two"}));
    EXPECT_EQ(library->allTracks().first().station, QStringLiteral("Fixture FM"));
    EXPECT_EQ(app->stats().byStation().value(QStringLiteral("Fixture FM")), 2);
}

TEST_F(RecordingTest, OneSessionPerStationAndStopAllEndsEveryOne)
{
    routeIcyStream("/one");
    routeIcyStream("/two");
    RecordingsView view(*app);
    view.show();
    const Station one = station("/one", QStringLiteral("One"));
    const Station two = station("/two", QStringLiteral("Two"));
    app->recorder().start(one);
    app->recorder().start(one, QStringLiteral("A show")); // already recording: ignored
    app->recorder().start(two);
    ASSERT_EQ(view.tree()->topLevelItemCount(), 2);
    EXPECT_FALSE(app->recorder().session(one.id)->fullShowTitle().has_value());

    auto *stopTwo = view.tree()->findChild<QPushButton *>(QStringLiteral("stop:") + two.id);
    ASSERT_TRUE(stopTwo);
    stopTwo->click();
    ASSERT_EQ(view.tree()->topLevelItemCount(), 1);
    EXPECT_TRUE(view.row(one.id));
    EXPECT_EQ(app->recorder().lastStation()->id, two.id);

    view.stopAllButton()->click();
    EXPECT_EQ(view.tree()->topLevelItemCount(), 0);
    EXPECT_FALSE(view.stopAllButton()->isEnabled());
    EXPECT_TRUE(waitUntil([&] { return app->recorder().hasPendingSaves() == false; }, 10000));
}

// Once a dead station stayed green "Recording" until its row vanished without a word.
TEST_F(RecordingTest, ADeadStationReconnectsThenGivesUpAndStaysUntilDismissed)
{
    // Drops every connection at once: the session reconnects twice, then gives up.
    server.route("/dead", Script().close());
    app->recordingContext().timings.maxReconnects = 2;
    MainWindow window(*app, MainWindowOptions{1800, false});
    RecordingsView &view = *window.recordingsView();
    const QListWidgetItem *sidebarEntry =
        window.findChild<QListWidget *>(QStringLiteral("sidebar"))->item(MainWindow::RecordingsPage);
    const Station dead = station("/dead", QStringLiteral("Dead FM"));
    QStringList shown;
    QObject::connect(&app->recorder(), &RadioRecorder::sessionStatusChanged, &view, [&](const QString &id) {
        shown << view.row(id)->text(RecordingsView::StatusColumn);
    });
    app->recorder().start(dead);
    ASSERT_TRUE(waitUntil([&] { return app->recorder().sessions().isEmpty(); }, 10000));
    EXPECT_TRUE(shown.indexOf(QRegularExpression(QStringLiteral("^Reconnecting in 1 s \\(attempt 2 of 2\\): .+"))) >= 0)
        << shown.join('\n').toStdString();
    EXPECT_EQ(*app->recorder().errorMessage(), QStringLiteral("Stream unterbrochen")); // the model keeps it

    QTreeWidgetItem *row = view.row(dead.id);
    ASSERT_TRUE(row);
    EXPECT_TRUE(row->text(RecordingsView::StatusColumn).startsWith(QStringLiteral("Gave up: Stream interrupted (")))
        << row->text(RecordingsView::StatusColumn).toStdString();
    EXPECT_FALSE(view.stopAllButton()->isEnabled());
    EXPECT_EQ(sidebarEntry->text(), QStringLiteral("Recordings  ⚠ 1")); // seen from every page
    auto *dismiss = view.tree()->findChild<QPushButton *>(QStringLiteral("dismiss:") + dead.id);
    ASSERT_TRUE(dismiss);
    dismiss->click();
    EXPECT_FALSE(view.row(dead.id));
    EXPECT_EQ(view.tree()->topLevelItemCount(), 0);
    EXPECT_EQ(sidebarEntry->text(), QStringLiteral("Recordings"));
}

// Once every song was lost while the row said "Recording, 0 saved".
TEST_F(RecordingTest, SkippedSongsAndFailedSavesShowInTheRowAndTheMessageBar)
{
    // Songs are to go into a sub-folder where a file stands: every save fails.
    QDir().mkpath(home.file(QStringLiteral("Radio")));
    QFile blocker(home.file(QStringLiteral("Radio/Blocked")));
    ASSERT_TRUE(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    ASSERT_TRUE(Preferences::store(QStringLiteral("ov.radioSaveDir"), home.file(QStringLiteral("Radio"))));
    ASSERT_TRUE(Preferences::store(QStringLiteral("ov.radioFolderPattern"), QStringLiteral("Blocked")));
    settings.skipJingles = true;
    ASSERT_TRUE(app->engineSettings().setGlobal(settings));
    routeIcyStream("/live", {"Station Jingle", "Artist - Two", "Artist - Three"});
    MainWindow window(*app, MainWindowOptions{1800, false});
    const Station live = station("/live", QStringLiteral("Fixture FM"));
    app->startRecording(live);

    QTreeWidgetItem *row = window.recordingsView()->row(live.id);
    ASSERT_TRUE(row);
    ASSERT_TRUE(waitUntil([&] { return row->childCount() == 2; }, 10000));
    const QStringList lines = songLines(row);
    EXPECT_EQ(lines[0], QStringLiteral("Skipped: Station Jingle (jingle or advert)"));
    EXPECT_TRUE(lines[1].startsWith(QStringLiteral("Not saved: \"Artist - Two\" not saved: "))) << lines[1].toStdString();
    EXPECT_TRUE(row->isExpanded());
    EXPECT_EQ(row->text(RecordingsView::SavedColumn), QStringLiteral("0 · 1 failed"));
    const QStringList messages = window.messageBar()->messages();
    ASSERT_EQ(messages.size(), 1);
    EXPECT_TRUE(messages[0].startsWith(QStringLiteral("Fixture FM: \"Artist - Two\" not saved: ")));
}

} // namespace
