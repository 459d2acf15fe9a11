#include "app/mainwindow.h"
#include "app/radioview.h"
#include "app/recordingsview.h"
#include "engine/radiorecorder.h"
#include "app/stationactionbar.h"
#include "engine/enginesettingsstore.h"
#include "engine/recordingcontext.h"
#include "engine/recordingstats.h"
#include "library/librarystore.h"
#include "stations/recentstations.h"

#include "appfixture.h"
#include "icystream.h"

#include <QPushButton>
#include <QTableWidget>

namespace {

using Script = FixtureServer::Script;
constexpr qint64 kMetaint = 1000;

QByteArray metaBlock(const QByteArray &text)
{
    if (text.isEmpty())
        return QByteArray(1, '\0');
    QByteArray padded = text;
    const qsizetype blocks = (text.size() + 15) / 16;
    padded.resize(blocks * 16, '\0');
    return char(blocks) + padded;
}

// Saves keep only audio frames: the shared station's blocks are frames.
QByteArray audioRun(int n)
{
    return IcyStream::audioBlock(n);
}

class RecordingTest : public AppFixture {
protected:
    void SetUp() override
    {
        AppFixture::SetUp();
        RadioEngineSettings settings;
        settings.lossless = true; // the stream's own bytes: no ffmpeg run needed
        settings.minDurationSec = 0;
        app->engineSettings().setGlobal(settings);
        app->recordingContext().timings.statusPolling = false;
        app->recordingContext().timings.reconnectDelaySec = [](qint64) { return 0.05; };
    }

    // Two titles, then the stream stays open without sending more.
    void routeIcyStream(const QByteArray &path)
    {
        QByteArray body = audioRun(0) + metaBlock("StreamTitle='Artist - One';");
        for (int n = 1; n <= 3; ++n)
            body += audioRun(n) + metaBlock({});
        body += audioRun(4) + metaBlock("StreamTitle='Artist - Two';");
        body += audioRun(5) + metaBlock({});
        server.route(path, Script::head("ICY 200 OK", {{"icy-metaint", "1000"}, {"Content-Type", "audio/mpeg"}})
                               .send(body)
                               .hang());
    }

    static QString cell(QTableWidget *table, int row, int column)
    {
        QTableWidgetItem *item = table->item(row, column);
        return item ? item->text() : QString();
    }
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
    EXPECT_EQ(app->recents().list().first().name, QStringLiteral("Fixture FM"));

    QTableWidget *table = recordings->table();
    ASSERT_EQ(table->rowCount(), 1);
    EXPECT_EQ(cell(table, 0, RecordingsView::StationColumn), QStringLiteral("Fixture FM"));
    // The first song is saved when the second title arrives.
    ASSERT_TRUE(waitUntil([&] { return cell(table, 0, RecordingsView::SavedColumn) == QStringLiteral("1"); }, 10000));
    EXPECT_EQ(cell(table, 0, RecordingsView::TitleColumn), QStringLiteral("Artist - Two"));
    EXPECT_EQ(cell(table, 0, RecordingsView::StatusColumn), QStringLiteral("● Recording"));

    // The row's action now stops it...
    StationActionBar::toggleRecording(*app, *radio->selectedStation());
    EXPECT_TRUE(app->recorder().sessions().isEmpty());
    EXPECT_EQ(table->rowCount(), 0);
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
    const Station one = Station::custom(QString::fromLatin1(server.url("/one")), QStringLiteral("One"));
    const Station two = Station::custom(QString::fromLatin1(server.url("/two")), QStringLiteral("Two"));
    app->recorder().start(one);
    app->recorder().start(one, QStringLiteral("A show")); // already recording: ignored
    app->recorder().start(two);
    ASSERT_EQ(view.table()->rowCount(), 2);
    EXPECT_FALSE(app->recorder().session(one.id)->fullShowTitle().has_value());

    auto *stopTwo = view.table()->findChild<QPushButton *>(QStringLiteral("stop:") + two.id);
    ASSERT_TRUE(stopTwo);
    stopTwo->click();
    ASSERT_EQ(view.table()->rowCount(), 1);
    EXPECT_EQ(cell(view.table(), 0, RecordingsView::StationColumn), QStringLiteral("One"));
    EXPECT_EQ(app->recorder().lastStation()->id, two.id);

    view.stopAllButton()->click();
    EXPECT_EQ(view.table()->rowCount(), 0);
    EXPECT_FALSE(view.stopAllButton()->isEnabled());
    EXPECT_TRUE(waitUntil([&] { return app->recorder().hasPendingSaves() == false; }, 10000));
}

TEST_F(RecordingTest, AGivenUpStreamShowsItsErrorAndLeavesTheList)
{
    // Drops every connection at once: the session reconnects a few times, then gives up.
    server.route("/dead", Script().close());
    app->recordingContext().timings.maxReconnects = 2;
    RecordingsView view(*app);
    view.show();
    const Station dead = Station::custom(QString::fromLatin1(server.url("/dead")), QStringLiteral("Dead FM"));
    app->recorder().start(dead);
    ASSERT_EQ(view.table()->rowCount(), 1);
    RecordingSession *session = app->recorder().session(dead.id);
    QString shownError;
    QObject::connect(session, &RecordingSession::errorMessageChanged, &view,
                     [&] { shownError = cell(view.table(), 0, RecordingsView::StatusColumn); });
    ASSERT_TRUE(waitUntil([&] { return app->recorder().sessions().isEmpty(); }, 10000));
    EXPECT_EQ(view.table()->rowCount(), 0);
    EXPECT_EQ(shownError, QStringLiteral("Stream unterbrochen"));
}

} // namespace
