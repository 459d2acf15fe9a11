#include "app/scheduledialog.h"
#include "app/schedulehistory.h"
#include "app/scheduleview.h"
#include "engine/radiorecorder.h"
#include "engine/recordingcontext.h"
#include "engine/sniperscheduler.h"

#include "appfixture.h"

#include <QApplication>
#include <QComboBox>
#include <QDateTimeEdit>
#include <QTableWidget>
#include <QTimeEdit>
#include <QTimer>
#include <QTreeWidget>

namespace {

using Mode = ScheduledRecording::Mode;

// The window's services on a clock the test sets; the scheduler ticks when told.
class SchedulePageTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        Texts::setLanguage(Texts::Language::English);
        ApplicationOptions options = AppFixture::testOptions(home, server);
        options.clock = [this] { return now; };
        options.scheduleTickInterval = std::chrono::hours(1);
        app = std::make_unique<Application>(options);
        app->recordingContext().timings.statusPolling = false;
    }
    void TearDown() override { app->shutDown(); }

    QString status(const ScheduleView &view, int row) const
    {
        return view.table()->item(row, ScheduleView::StatusColumn)->text();
    }

    TestHome home;
    FixtureServer server;
    QDateTime now = QDateTime(QDate(2030, 1, 15), QTime(20, 0), Qt::UTC);
    std::unique_ptr<Application> app;
};

TEST_F(SchedulePageTest, ThePlanBeingRecordedShowsItsRecordingTheNextCountsDownAndPastWindowsListTheirSongs)
{
    const QByteArray meta("StreamTitle='Nina Simone - Feeling Good';");
    QByteArray block(1, char((meta.size() + 15) / 16));
    block += meta.leftJustified(((meta.size() + 15) / 16) * 16, '\0');
    server.route("/live",
        FixtureServer::Script::head("ICY 200 OK", {{"icy-metaint", "1000"}}).send(QByteArray(1000, 'a') + block).hang());
    const Station live = Station::custom(QString::fromLatin1(server.url("/live")), QStringLiteral("Fixture FM"));
    const Station later = makeStation(QStringLiteral("later"), QStringLiteral("Later FM"));
    const ScheduledRecording first = ScheduledRecording::make(live, now.addSecs(60), now.addSecs(600), Mode::SplitTracks, std::nullopt);
    const ScheduledRecording second = ScheduledRecording::make(later, now.addSecs(3600), now.addSecs(7200), Mode::SplitTracks, std::nullopt);
    ASSERT_TRUE(app->scheduler().add(first));
    ASSERT_TRUE(app->scheduler().add(second));

    ScheduleView view(*app);
    EXPECT_FALSE(view.countdownRunning()); // not shown yet
    view.show();
    EXPECT_TRUE(view.countdownRunning());
    EXPECT_EQ(status(view, 0), QStringLiteral("Starts in 0:01:00"));
    EXPECT_EQ(status(view, 1), QString()); // only the next window counts down
    now = now.addSecs(1);
    EXPECT_TRUE(waitUntil([&] { return status(view, 0) == QStringLiteral("Starts in 0:00:59"); }, 3000));
    view.hide();
    EXPECT_FALSE(view.countdownRunning());
    view.show();

    now = first.start;
    app->scheduler().tick();
    ASSERT_TRUE(app->recorder().isRecordingStation(live));
    EXPECT_TRUE(waitUntil(
        [&] { return status(view, 0) == QStringLiteral("Recording: Nina Simone - Feeling Good · 0 saved"); }))
        << status(view, 0).toStdString();
    EXPECT_EQ(status(view, 1), QStringLiteral("Starts in 0:59:00"));
    EXPECT_TRUE(view.pastList()->isHidden());

    // What the recorder announces as saved counts for the window, also the last song that
    // is saved after the window closed.
    Track song;
    song.title = QStringLiteral("Feeling Good");
    Q_EMIT app->recorder().trackSaved(live.id, song);
    now = first.end;
    app->scheduler().tick();
    EXPECT_FALSE(app->recorder().isRecordingStation(live));
    now = now.addSecs(30);
    song.title = QStringLiteral("Sinnerman");
    Q_EMIT app->recorder().trackSaved(live.id, song);
    ASSERT_EQ(view.pastList()->topLevelItemCount(), 1);
    EXPECT_FALSE(view.pastList()->isHidden());
    const QTreeWidgetItem *past = view.pastList()->topLevelItem(0);
    EXPECT_EQ(past->text(0), QStringLiteral("Fixture FM"));
    EXPECT_EQ(past->text(2), QStringLiteral("2 songs saved"));
    EXPECT_EQ(past->toolTip(2), QStringLiteral("Feeling Good\nSinnerman"));
    // Much later, a manual recording of the station is no longer the window's.
    now = now.addSecs(ScheduleHistory::kLateSaveSec);
    Q_EMIT app->recorder().trackSaved(live.id, song);
    EXPECT_EQ(view.history().entries().first().saved, 2);
}

TEST_F(SchedulePageTest, EditingAPlanReplacesItKeepingItsIdAndStation)
{
    const Station jazz = makeStation(QStringLiteral("jazz"), QStringLiteral("Jazz Lounge"));
    const ScheduledRecording plan = ScheduledRecording::make(jazz, now.addSecs(3600), now.addSecs(7200), Mode::SplitTracks, std::nullopt);
    ASSERT_TRUE(app->scheduler().add(plan));
    ScheduleView view(*app);

    // The row's button opens the dialog on the plan.
    auto *button = view.findChild<QPushButton *>(QStringLiteral("edit:") + plan.id.toString(QUuid::WithoutBraces));
    ASSERT_TRUE(button);
    QString openedTitle;
    QDateTime openedStart;
    QTimer::singleShot(0, [&] {
        if (auto *dialog = qobject_cast<ScheduleDialog *>(QApplication::activeModalWidget())) {
            openedTitle = dialog->windowTitle();
            openedStart = dialog->start();
            dialog->reject();
        }
    });
    button->click();
    EXPECT_EQ(openedTitle, QStringLiteral("Edit Scheduled Recording"));
    EXPECT_EQ(openedStart, plan.start);

    ScheduleDialog dialog(app->scheduler(), plan, now);
    EXPECT_EQ(dialog.end(), plan.end);
    EXPECT_EQ(dialog.mode(), Mode::SplitTracks);
    dialog.endEdit()->setTime(plan.end.toLocalTime().time().addSecs(1800));
    dialog.modeBox()->setCurrentIndex(dialog.modeBox()->findData(int(Mode::FullShow)));
    dialog.addButton()->click();
    ASSERT_EQ(dialog.result(), QDialog::Accepted);
    ASSERT_EQ(app->scheduler().items().size(), 1);
    const ScheduledRecording &saved = app->scheduler().items().first();
    EXPECT_EQ(saved.id, plan.id);
    EXPECT_EQ(saved.stationId, QStringLiteral("jazz"));
    EXPECT_EQ(saved.end, plan.end.addSecs(1800));
    EXPECT_EQ(saved.mode, Mode::FullShow);
    EXPECT_FALSE(saved.repeatRule); // left as it was
    EXPECT_EQ(view.table()->item(0, ScheduleView::ModeColumn)->text(), QStringLiteral("Whole show"));
}

// Moving a window that records away from now ends its recording, and the page lists it.
TEST_F(SchedulePageTest, MovingARunningWindowLaterEndsItsRecording)
{
    server.route("/live",
        FixtureServer::Script::head("ICY 200 OK", {{"icy-metaint", "1000"}}).send(QByteArray(1000, 'a') + char(0)).hang());
    const Station live = Station::custom(QString::fromLatin1(server.url("/live")), QStringLiteral("Fixture FM"));
    const ScheduledRecording plan = ScheduledRecording::make(live, now, now.addSecs(600), Mode::SplitTracks, std::nullopt);
    ASSERT_TRUE(app->scheduler().add(plan));
    ScheduleView view(*app);
    app->scheduler().tick();
    ASSERT_TRUE(app->recorder().isRecordingStation(live));

    ScheduledRecording moved = plan;
    moved.start = now.addSecs(3600);
    moved.end = now.addSecs(4200);
    ASSERT_TRUE(app->scheduler().update(moved));
    EXPECT_FALSE(app->recorder().isRecordingStation(live));
    EXPECT_EQ(view.pastList()->topLevelItemCount(), 1);
    app->scheduler().tick();
    EXPECT_FALSE(app->recorder().isRecordingStation(live));
}

} // namespace
