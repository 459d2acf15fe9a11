#include "app/favoritesview.h"
#include "app/scheduledialog.h"
#include "app/scheduleformat.h"
#include "app/scheduleview.h"
#include "app/stationactionbar.h"
#include "app/stationlogocache.h"
#include "app/stationlistpane.h"
#include "app/stationtablemodel.h"
#include "engine/sniperscheduler.h"
#include "platform/desktopnotifier.h"

#include "appfixture.h"
#include "dbusfixture.h"

#include <QApplication>
#include <QComboBox>
#include <QDateTimeEdit>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QMenu>
#include <QTableView>
#include <QTableWidget>
#include <QTimeEdit>
#include <QTimer>

namespace {

using Mode = ScheduledRecording::Mode;
using Rule = ScheduledRecording::RepeatRule;

// A wall-clock time in the machine's zone as an instant. January days: no zone changes
// its clocks then, so the arithmetic below holds wherever the tests run.
QDateTime local(int day, int hour, int minute, int second = 0)
{
    return QDateTime(QDate(2030, 1, day), QTime(hour, minute, second), Qt::LocalTime).toUTC();
}

ScheduledRecording window(const QDateTime &start, const QDateTime &end)
{
    ScheduledRecording plan;
    plan.start = start;
    plan.end = end;
    return plan;
}

TEST(ScheduleFormatTest, RangeLabelsSayTheDayAndMarkWindowsThatEndTomorrowOrLater)
{
    Texts::setLanguage(Texts::Language::English);
    const QTimeZone berlin("Europe/Berlin");
    const QLocale us(QLocale::English, QLocale::UnitedStates);
    const auto at
        = [&](int day, int hour, int minute) { return QDateTime(QDate(2025, 6, day), QTime(hour, minute), berlin); };
    EXPECT_EQ(ScheduleFormat::rangeLabel(window(at(2, 20, 0), at(2, 21, 30)), us, berlin),
        QStringLiteral("Mon, Jun 2, 2025, 20:00–21:30"));
    EXPECT_EQ(ScheduleFormat::rangeLabel(window(at(2, 23, 0), at(3, 1, 0)), us, berlin),
        QStringLiteral("Mon, Jun 2, 2025, 23:00–01:00 (next day)"));
    EXPECT_EQ(ScheduleFormat::rangeLabel(window(at(2, 20, 0), at(4, 8, 0)), us, berlin),
        QStringLiteral("Mon, Jun 2, 2025, 20:00 – Wed, Jun 4, 2025, 08:00"));
    // The zone decides the day: 23:30 UTC is already the next morning in Berlin.
    const QDateTime lateUtc(QDate(2025, 6, 2), QTime(23, 30), Qt::UTC);
    EXPECT_EQ(ScheduleFormat::rangeLabel(window(lateUtc, lateUtc.addSecs(1800)), us, berlin),
        QStringLiteral("Tue, Jun 3, 2025, 01:30–02:00"));

    Texts::setLanguage(Texts::Language::German);
    EXPECT_EQ(ScheduleFormat::rangeLabel(window(at(2, 23, 0), at(3, 1, 0)), ScheduleFormat::displayLocale(), berlin),
        QStringLiteral("Mo., 2. Juni 2025, 23:00–01:00 (Folgetag)"));
    EXPECT_EQ(ScheduleFormat::repeatLabel(std::nullopt), QStringLiteral("Einmalig"));
    Texts::setLanguage(Texts::Language::English);
    EXPECT_EQ(ScheduleFormat::repeatLabel(std::nullopt), ScheduleFormat::repeatLabel(Rule::None));
}

class ScheduleTest : public AppFixture {
protected:
    QByteArray scheduleFile() const { return readFile(home.file(QStringLiteral("data/Orvida/sniper_schedule.json"))); }

    const Station jazz = makeStation(QStringLiteral("jazz"), QStringLiteral("Jazz Lounge"));
};

TEST_F(ScheduleTest, TheDialogOpensAnHourFromNowOnTheMinuteForAnHour)
{
    ScheduleDialog dialog(app->scheduler(), jazz, local(15, 14, 37, 25));
    EXPECT_EQ(dialog.startEdit()->dateTime().toUTC(), local(15, 15, 37));
    EXPECT_EQ(dialog.endEdit()->time(), QTime(16, 37));
    EXPECT_EQ(dialog.start(), local(15, 15, 37));
    EXPECT_EQ(dialog.end(), local(15, 16, 37));
    EXPECT_EQ(dialog.mode(), Mode::SplitTracks);
    EXPECT_EQ(dialog.repeatRule(), Rule::None);
    EXPECT_TRUE(dialog.addButton()->isEnabled());
    EXPECT_FALSE(dialog.windowLabel()->text().contains(QStringLiteral("next day")));
}

TEST_F(ScheduleTest, AnEndNotLaterInTheDayThanTheStartIsOnTheNextDay)
{
    // Opened at 22:30: the default hour runs past midnight.
    ScheduleDialog dialog(app->scheduler(), jazz, local(15, 22, 30));
    EXPECT_EQ(dialog.start(), local(15, 23, 30));
    EXPECT_EQ(dialog.endEdit()->time(), QTime(0, 30));
    EXPECT_EQ(dialog.end(), local(16, 0, 30));
    EXPECT_TRUE(dialog.windowLabel()->text().endsWith(QStringLiteral("23:30–00:30 (next day)")))
        << dialog.windowLabel()->text().toStdString();

    dialog.endEdit()->setTime(QTime(23, 30)); // equal: a whole day
    EXPECT_EQ(dialog.end(), local(16, 23, 30));
    dialog.endEdit()->setTime(QTime(23, 31)); // later: the same day
    EXPECT_EQ(dialog.end(), local(15, 23, 31));
    EXPECT_FALSE(dialog.windowLabel()->text().contains(QStringLiteral("next day")));

    // A window that has already ended cannot be planned.
    dialog.startEdit()->setDateTime(QDateTime(QDate(2030, 1, 14), QTime(20, 0), Qt::LocalTime));
    dialog.endEdit()->setTime(QTime(21, 0));
    EXPECT_FALSE(dialog.addButton()->isEnabled());
    dialog.accept();
    EXPECT_FALSE(dialog.addedPlan());
    EXPECT_TRUE(app->scheduler().items().isEmpty());
}

TEST_F(ScheduleTest, APlanFromTheDialogIsListedWithItsWindowAndStoredUntilRemoved)
{
    ScheduleView view(*app);
    EXPECT_TRUE(view.showsEmptyState());

    ScheduleDialog dialog(app->scheduler(), jazz, local(15, 22, 30));
    dialog.modeBox()->setCurrentIndex(dialog.modeBox()->findData(int(Mode::FullShow)));
    dialog.repeatBox()->setCurrentIndex(dialog.repeatBox()->findData(int(Rule::Daily)));
    QTest::mouseClick(dialog.addButton(), Qt::LeftButton);
    EXPECT_EQ(dialog.result(), QDialog::Accepted);
    ASSERT_TRUE(dialog.addedPlan());
    EXPECT_EQ(app->scheduler().items(), QList<ScheduledRecording> { *dialog.addedPlan() });

    EXPECT_FALSE(view.showsEmptyState());
    ASSERT_EQ(view.table()->rowCount(), 1);
    EXPECT_EQ(view.table()->item(0, ScheduleView::StationColumn)->text(), QStringLiteral("Jazz Lounge"));
    const QString when = view.table()->item(0, ScheduleView::WhenColumn)->text();
    EXPECT_TRUE(when.endsWith(QStringLiteral(", 23:30–00:30 (next day)"))) << when.toStdString();
    EXPECT_EQ(view.table()->item(0, ScheduleView::ModeColumn)->text(), QStringLiteral("Whole show"));
    EXPECT_EQ(view.table()->item(0, ScheduleView::RepeatColumn)->text(), QStringLiteral("Daily"));
    EXPECT_EQ(view.countLabel()->text(), QStringLiteral("1 plan"));

    const QJsonArray stored = QJsonDocument::fromJson(scheduleFile()).array();
    ASSERT_EQ(stored.size(), 1);
    const QJsonObject plan = stored[0].toObject();
    EXPECT_EQ(
        plan.value(QStringLiteral("id")).toString(), dialog.addedPlan()->id.toString(QUuid::WithoutBraces).toUpper());
    EXPECT_EQ(plan.value(QStringLiteral("stationID")).toString(), QStringLiteral("jazz"));
    EXPECT_EQ(plan.value(QStringLiteral("stationName")).toString(), QStringLiteral("Jazz Lounge"));
    EXPECT_EQ(plan.value(QStringLiteral("streamURL")).toString(), jazz.streamUrl);
    EXPECT_EQ(plan.value(QStringLiteral("start")).toDouble(), Schedule::referenceSeconds(local(15, 23, 30)));
    EXPECT_EQ(plan.value(QStringLiteral("end")).toDouble(), Schedule::referenceSeconds(local(16, 0, 30)));
    EXPECT_EQ(plan.value(QStringLiteral("mode")).toString(), QStringLiteral("fullShow"));
    EXPECT_EQ(plan.value(QStringLiteral("repeatRule")).toString(), QStringLiteral("daily"));

    auto *button = qobject_cast<QPushButton *>(view.table()->cellWidget(0, ScheduleView::RemoveColumn));
    ASSERT_TRUE(button);
    QTest::mouseClick(button, Qt::LeftButton);
    EXPECT_TRUE(app->scheduler().items().isEmpty());
    EXPECT_EQ(view.table()->rowCount(), 0);
    EXPECT_TRUE(view.showsEmptyState());
    EXPECT_EQ(scheduleFile(), QByteArray("[]"));
}

TEST_F(ScheduleTest, FavouritesWithPlansWearTheScheduledMarkUntilTheLastPlanGoes)
{
    const Station rock = makeStation(QStringLiteral("rock"), QStringLiteral("Rock Antenne"));
    ASSERT_TRUE(app->favorites().add(jazz));
    ASSERT_TRUE(app->favorites().add(rock));
    FavoritesView favorites(*app);
    const StationTableModel *model = favorites.model();
    const auto name = [&](int row) { return model->index(row, StationTableModel::NameColumn); };
    EXPECT_FALSE(name(0).data().toString().contains(QStringLiteral("Scheduled")));

    const ScheduledRecording first
        = ScheduledRecording::make(jazz, local(20, 8, 0), local(20, 9, 0), Mode::SplitTracks, std::nullopt);
    const ScheduledRecording second
        = ScheduledRecording::make(jazz, local(21, 8, 0), local(21, 9, 0), Mode::SplitTracks, Rule::Weekly);
    ASSERT_TRUE(app->scheduler().add(first));
    ASSERT_TRUE(app->scheduler().add(second));
    EXPECT_EQ(name(0).data().toString(), QStringLiteral("Jazz Lounge  Scheduled"));
    EXPECT_NE(name(0).data(Qt::DecorationRole).value<QIcon>().cacheKey(), StationLogoCache::placeholder().cacheKey());
    EXPECT_EQ(name(1).data().toString(), QStringLiteral("Rock Antenne"));
    // Without a plan the row wears its logo (here the placeholder) instead of the clock.
    const qint64 logo = StationLogoCache::placeholder().cacheKey();
    EXPECT_EQ(name(1).data(Qt::DecorationRole).value<QIcon>().cacheKey(), logo);

    ASSERT_TRUE(app->scheduler().remove(first));
    EXPECT_TRUE(name(0).data().toString().contains(QStringLiteral("Scheduled"))); // one plan left
    ASSERT_TRUE(app->scheduler().remove(second));
    EXPECT_EQ(name(0).data().toString(), QStringLiteral("Jazz Lounge"));
    EXPECT_EQ(name(0).data(Qt::DecorationRole).value<QIcon>().cacheKey(), logo);
}

// The action every station list offers opens the dialog for the selected station.
TEST_F(ScheduleTest, TheStationListsScheduleButtonPlansTheSelectedStation)
{
    ASSERT_TRUE(app->favorites().add(jazz));
    FavoritesView favorites(*app);
    favorites.table()->selectRow(0);
    QPushButton *schedule = favorites.findChild<StationActionBar *>()->scheduleButton();
    ASSERT_TRUE(schedule->isEnabled());

    bool sawDialog = false;
    QTimer::singleShot(0, [&] {
        auto *dialog = qobject_cast<ScheduleDialog *>(QApplication::activeModalWidget());
        if (!dialog)
            return;
        sawDialog = true;
        dialog->repeatBox()->setCurrentIndex(dialog->repeatBox()->findData(int(Rule::Weekly)));
        dialog->addButton()->click();
    });
    schedule->click();
    ASSERT_TRUE(sawDialog);
    ASSERT_EQ(app->scheduler().items().size(), 1);
    const ScheduledRecording &plan = app->scheduler().items().first();
    EXPECT_EQ(plan.stationId, jazz.id);
    EXPECT_EQ(plan.repeatRule, Rule::Weekly);
    EXPECT_EQ(plan.end, plan.start.addSecs(3600));
    EXPECT_EQ(plan.start.time().second(), 0);
    EXPECT_GT(plan.start, QDateTime::currentDateTimeUtc().addSecs(3500));

    // The rows' context menu offers the same; its dialog opens once the menu has closed.
    const Station rock = makeStation(QStringLiteral("rock"), QStringLiteral("Rock Antenne"));
    QMenu menu;
    StationActionBar::addActions(menu, *app, rock);
    QAction *action = nullptr;
    for (QAction *candidate : menu.actions()) {
        if (candidate->text() == QStringLiteral("Schedule…"))
            action = candidate;
    }
    ASSERT_TRUE(action);
    action->trigger();
    QString dialogStation;
    QTimer::singleShot(0, [&] {
        if (auto *dialog = qobject_cast<ScheduleDialog *>(QApplication::activeModalWidget())) {
            dialogStation = dialog->windowTitle() + QLatin1Char('|') + dialog->findChild<QLabel *>()->text();
            dialog->addButton()->click();
        }
    });
    ASSERT_TRUE(waitUntil([&] { return app->scheduler().items().size() == 2; }));
    EXPECT_EQ(dialogStation, QStringLiteral("Schedule a Recording|Rock Antenne"));
    EXPECT_EQ(app->scheduler().items(rock.id).size(), 1);
}

// One scheduler per data folder: a second Orvida on it says that the first runs the plans,
// until the first is gone. A plan the file does not take leaves the dialog open with why.
TEST_F(ScheduleTest, ASecondOrvidaSaysWhoRunsThePlansAndAFailedAddKeepsTheDialogOpen)
{
    ApplicationOptions options = testOptions(home, server);
    options.scheduleTickInterval = std::chrono::milliseconds(50);
    Application second(options);
    ScheduleView secondView(second);
    ScheduleView firstView(*app);
    EXPECT_TRUE(firstView.otherRunnerNote()->isHidden());
    EXPECT_FALSE(secondView.otherRunnerNote()->isHidden());
    app->shutDown();
    EXPECT_TRUE(waitUntil([&] { return secondView.otherRunnerNote()->isHidden(); }, 5000));

    blockDataFolder();
    ScheduleDialog dialog(second.scheduler(), jazz, QDateTime::currentDateTimeUtc());
    dialog.addButton()->click();
    EXPECT_NE(dialog.result(), QDialog::Accepted);
    EXPECT_FALSE(dialog.addedPlan());
    EXPECT_TRUE(second.scheduler().items().isEmpty());
    const auto *problem = dialog.findChild<QLabel *>(QStringLiteral("scheduleProblem"));
    ASSERT_TRUE(problem);
    EXPECT_TRUE(problem->text().contains(QStringLiteral("sniper_schedule.json"))) << problem->text().toStdString();
    second.shutDown();
}

// The window's services against a private session bus with a notification daemon on it.
class ScheduleNotificationTest : public PrivateBusTest {
protected:
    void SetUp() override
    {
        PrivateBusTest::SetUp();
        if (setUpFailed())
            return;
        ASSERT_TRUE(bus().startNotificationDaemon());
        Texts::setLanguage(Texts::Language::English);
        ApplicationOptions options = AppFixture::testOptions(home, server);
        options.sessionBusAddress = bus().address();
        options.clock = [this] { return now; };
        options.scheduleTickInterval = std::chrono::hours(1); // ticks are the test's
        app = std::make_unique<Application>(options);
        app->recordingContext().timings.statusPolling = false;
    }

    void TearDown() override
    {
        if (app)
            app->shutDown();
    }

    TestHome home;
    FixtureServer server;
    QDateTime now = QDateTime::currentDateTimeUtc();
    std::unique_ptr<Application> app;
};

TEST_F(ScheduleNotificationTest, AScheduledRecordingIsAnnouncedWhenItStartsAndWhenItEnds)
{
    server.route("/live",
        FixtureServer::Script::head("ICY 200 OK", { { "icy-metaint", "1000" } })
            .send(QByteArray(1000, 'a') + char(0))
            .hang());
    const Station live = Station::custom(QString::fromLatin1(server.url("/live")), QStringLiteral("Fixture FM"));
    const ScheduledRecording plan
        = ScheduledRecording::make(live, now.addSecs(60), now.addSecs(600), Mode::SplitTracks, std::nullopt);
    ASSERT_TRUE(app->scheduler().add(plan));
    app->scheduler().tick();
    EXPECT_FALSE(app->recorder().isRecordingStation(live)); // not yet: nothing to announce

    now = plan.start;
    app->scheduler().tick();
    ASSERT_TRUE(app->recorder().isRecordingStation(live));
    ASSERT_TRUE(waitUntil([&] { return bus().notifyCalls().size() == 1; }));
    EXPECT_EQ(bus().notifyCalls()[0].args.value(3).toString(), QStringLiteral("Scheduled recording started"));
    EXPECT_EQ(bus().notifyCalls()[0].args.value(4).toString(),
        QStringLiteral("Fixture FM · ") + ScheduleFormat::rangeLabel(plan));

    now = plan.end;
    app->scheduler().tick();
    EXPECT_FALSE(app->recorder().isRecordingStation(live));
    ASSERT_TRUE(waitUntil([&] { return bus().notifyCalls().size() == 2; }));
    EXPECT_EQ(bus().notifyCalls()[1].args.value(3).toString(), QStringLiteral("Scheduled recording finished"));
}


TEST_F(ScheduleNotificationTest, ARecordingThatGivesUpIsAnnounced)
{
    server.route("/dead", FixtureServer::Script().close());
    app->recordingContext().timings.maxReconnects = 0;
    app->startRecording(Station::custom(QString::fromLatin1(server.url("/dead")), QStringLiteral("Dead FM")));
    ASSERT_TRUE(waitUntil([&] { return bus().notifyCalls().size() == 1; }));
    EXPECT_EQ(bus().notifyCalls()[0].args.value(3).toString(), QStringLiteral("Recording gave up"));
    EXPECT_EQ(bus().notifyCalls()[0].args.value(4).toString(), QStringLiteral("Dead FM · Stream interrupted"));
}

} // namespace
