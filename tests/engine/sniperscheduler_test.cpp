#include "engine/closedlidkeeper.h"
#include "engine/powerassertion.h"
#include "engine/recordingsession.h"
#include "engine/sniperscheduler.h"
#include "platform/dbuslink.h"

#include "icystream.h"
#include "recorderfixture.h"
#include "zoneguard.h"

#include <QJsonDocument>
#include <QSignalSpy>

#include <gtest/gtest.h>

namespace {

using Mode = ScheduledRecording::Mode;
using Rule = ScheduledRecording::RepeatRule;

Station fixtureStation(const QString &url, const QString &name = QStringLiteral("Fixture FM"))
{
    return Station::custom(url, name);
}

ScheduledRecording plan(const QDateTime &start, const QDateTime &end, std::optional<Rule> rule = std::nullopt,
    Mode mode = Mode::SplitTracks)
{
    return ScheduledRecording::make(fixtureStation(QStringLiteral("http://127.0.0.1:9/live")), start, end, mode, rule);
}

class SniperSchedulerTest : public RecorderFixture {
protected:
    void SetUp() override
    {
        RecorderFixture::SetUp();
        server.route("/live", IcyStream::station({ "A - One", "B - Two", "C - Three" }, 3, 20));
        live = fixtureStation(QString::fromLatin1(server.url("/live")));
    }

    std::unique_ptr<SniperScheduler> makeScheduler(
        NullPowerAssertion &holder, int tickMs = 3600000, ClosedLidKeeper *keeper = nullptr)
    {
        SniperScheduler::Options options;
        options.filePath = file;
        options.clock = [this] { return now; };
        options.tickInterval = std::chrono::milliseconds(tickMs);
        options.closedLidKeeper = keeper;
        return std::make_unique<SniperScheduler>(holder, options);
    }

    ScheduledRecording livePlan(const QDateTime &start, const QDateTime &end, std::optional<Rule> rule = std::nullopt,
        Mode mode = Mode::SplitTracks)
    {
        return ScheduledRecording::make(live, start, end, mode, rule);
    }

    QByteArray fileBytes() const { return readFile(file); }

    const QString file = home.file(QStringLiteral("data/Orvida/sniper_schedule.json"));
    QDateTime now = QDateTime(QDate(2025, 6, 2), QTime(12, 0), Qt::UTC);
    NullPowerAssertion power;
    Station live;
};

TEST_F(SniperSchedulerTest, LoadingDropsPassedOneOffsMovesRepeatingPlansAndRewritesTheFile)
{
    const ScheduledRecording future = plan(now.addSecs(7200), now.addSecs(9000));
    const ScheduledRecording daily = plan(now.addDays(-3).addSecs(3600), now.addDays(-3).addSecs(7200), Rule::Daily);
    const ScheduledRecording once = plan(now.addSecs(-7200), now.addSecs(-3600));
    const ScheduledRecording none = plan(now.addDays(-1), now.addDays(-1).addSecs(60), Rule::None);
    writeFile(file, Schedule::encode({ future, daily, once, none }));

    const auto scheduler = makeScheduler(power);
    ASSERT_EQ(scheduler->items().size(), 2);
    EXPECT_EQ(scheduler->items()[0].id, daily.id); // today 13:00, before the future one
    EXPECT_EQ(scheduler->items()[0].start, now.addSecs(3600));
    EXPECT_EQ(scheduler->items()[1], future);
    EXPECT_EQ(fileBytes(), Schedule::encode(scheduler->items()));

    // Nothing passed: the file is left alone, even in a form of its own.
    const QByteArray pretty = QJsonDocument::fromJson(fileBytes()).toJson(QJsonDocument::Indented);
    writeFile(file, pretty);
    EXPECT_EQ(makeScheduler(power)->items().size(), 2);
    EXPECT_EQ(fileBytes(), pretty);
}

TEST_F(SniperSchedulerTest, ADamagedFileIsSetAsideOnceAndABadPlanDropsOnlyItself)
{
    const QString aside = home.file(QStringLiteral("data/Orvida/sniper_schedule.corrupt.json"));
    const QString secondAside = home.file(QStringLiteral("data/Orvida/sniper_schedule.corrupt-2.json"));
    const ScheduledRecording first = plan(now.addSecs(60), now.addSecs(120));
    const ScheduledRecording third = plan(now.addSecs(300), now.addSecs(400));
    const QByteArray three = Schedule::encode({ first, plan(now.addSecs(200), now.addSecs(250)), third });

    // Truncated: nothing can be read. It is kept, and the next add does not replace it.
    writeFile(file, three.left(three.size() - 3));
    {
        const auto scheduler = makeScheduler(power);
        EXPECT_TRUE(scheduler->items().isEmpty());
        EXPECT_TRUE(scheduler->loadProblem().contains(aside)) << scheduler->loadProblem().toStdString();
        EXPECT_EQ(readFile(aside), three.left(three.size() - 3));
        const ScheduledRecording added = plan(now.addSecs(600), now.addSecs(700));
        ASSERT_TRUE(scheduler->add(added).ok);
        EXPECT_EQ(fileBytes(), Schedule::encode({ added }));
    }

    // One plan of three is bad: the other two load and are written back without it.
    QByteArray damaged = three;
    damaged.replace(damaged.indexOf("\"mode\"", damaged.indexOf("},{")), 6, "\"mood\"");
    writeFile(file, damaged);
    const auto scheduler = makeScheduler(power);
    EXPECT_EQ(scheduler->items(), (QList<ScheduledRecording> { first, third }));
    EXPECT_EQ(readFile(secondAside), damaged);
    EXPECT_EQ(readFile(aside), three.left(three.size() - 3)) << "an earlier copy is never replaced";
    EXPECT_EQ(fileBytes(), Schedule::encode({ first, third }));
    // Reported once: the file in place is good now.
    EXPECT_TRUE(makeScheduler(power)->loadProblem().isEmpty());
}

TEST_F(SniperSchedulerTest, TwoSchedulersOnOneFileKeepEachOthersPlans)
{
    NullPowerAssertion otherPower;
    const auto window = makeScheduler(power);
    const auto headless = makeScheduler(otherPower);
    const ScheduledRecording p1 = plan(now.addSecs(100), now.addSecs(200));
    const ScheduledRecording p2 = plan(now.addSecs(300), now.addSecs(400));
    const ScheduledRecording p3 = plan(now.addSecs(500), now.addSecs(600));

    (void)window->add(p1);
    (void)headless->add(p2);
    EXPECT_EQ(fileBytes(), Schedule::encode({ p1, p2 }));
    EXPECT_EQ(headless->items(), QList<ScheduledRecording>({ p1, p2 }));

    // A removal on one side is not undone by the other side's next write.
    (void)headless->remove(p1);
    (void)window->add(p3);
    EXPECT_EQ(fileBytes(), Schedule::encode({ p2, p3 }));
    EXPECT_EQ(window->items(), QList<ScheduledRecording>({ p2, p3 }));

    // A plan the other side changed comes in changed.
    ScheduledRecording longer = p2;
    longer.end = p2.end.addSecs(30);
    (void)headless->remove(p2);
    (void)headless->add(longer);
    (void)window->remove(p3);
    EXPECT_EQ(window->items(), QList<ScheduledRecording> { longer });
    EXPECT_EQ(fileBytes(), Schedule::encode({ longer }));
}

TEST_F(SniperSchedulerTest, TicksBeforeConfigureDoNothingAndUnusableStationsGoSilently)
{
    ScheduledRecording unusable = livePlan(now.addSecs(60), now.addSecs(120));
    unusable.stationName = QStringLiteral("   ");
    const ScheduledRecording over = livePlan(now.addSecs(-120), now.addSecs(-60));
    const ScheduledRecording open = livePlan(now.addSecs(-60), now.addSecs(60));
    writeFile(file, Schedule::encode({ over, open, unusable }));
    const auto scheduler = makeScheduler(power);
    const QByteArray before = fileBytes();
    EXPECT_EQ(scheduler->items().size(), 2); // the passed one-off went at load

    scheduler->tick();
    EXPECT_EQ(scheduler->items().size(), 2);
    EXPECT_TRUE(recorder.sessions().isEmpty());
    EXPECT_EQ(fileBytes(), before);

    scheduler->configure(recorder, *library);
    EXPECT_EQ(scheduler->items(), QList<ScheduledRecording> { open });
    EXPECT_EQ(fileBytes(), Schedule::encode({ open }));
    EXPECT_TRUE(recorder.isRecordingStation(live));
}

TEST_F(SniperSchedulerTest, APlanStartsWithinATickOfItsWindowAndStopsAtItsEnd)
{
    const auto scheduler = makeScheduler(power, 30);
    (void)scheduler->add(livePlan(now.addSecs(60), now.addSecs(120)));
    scheduler->configure(recorder, *library);
    EXPECT_FALSE(waitUntil([&] { return !recorder.sessions().isEmpty(); }, 100)) << "started before its window";

    now = now.addSecs(60);
    ASSERT_TRUE(waitUntil([&] { return recorder.isRecordingStation(live); }, 2000));
    ASSERT_TRUE(waitUntil([&] { return recorder.streamTitle(live) == QStringLiteral("C - Three"); }));
    // The last song's audio follows its title in the server's next pieces, 20 ms apart:
    // let some arrive, or the stop would find nothing of it to save.
    waitUntil([] { return false; }, 300);

    now = now.addSecs(60);
    ASSERT_TRUE(waitUntil([&] { return !recorder.isRecordingStation(live); }, 2000));
    EXPECT_TRUE(scheduler->items().isEmpty());
    EXPECT_EQ(fileBytes(), "[]");
    recorder.waitForSaves();
    QStringList titles;
    for (const Track &t : library->allTracks()) {
        titles << t.artist + " - " + t.title;
        EXPECT_EQ(t.station, live.name);
        EXPECT_EQ(t.source, "radio");
    }
    EXPECT_EQ(titles, QStringList({ "A - One", "B - Two", "C - Three" }));
}

TEST_F(SniperSchedulerTest, ARecordingThatGaveUpInsideItsWindowIsStartedAgain)
{
    quint16 deadPort = 0;
    {
        FixtureServer gone;
        deadPort = gone.port();
    }
    const Station dead = fixtureStation(QStringLiteral("http://127.0.0.1:%1/x").arg(deadPort), "Dead FM");
    QSignalSpy started(&recorder, &RadioRecorder::sessionStarted);
    QSignalSpy ended(&recorder, &RadioRecorder::sessionEnded);
    const auto scheduler = makeScheduler(power, 30);
    (void)scheduler->add(ScheduledRecording::make(dead, now.addSecs(-1), now.addSecs(600), Mode::SplitTracks, std::nullopt));
    scheduler->configure(recorder, *library);
    ASSERT_TRUE(waitUntil([&] { return started.count() >= 2; }, 5000));
    EXPECT_GE(ended.count(), 1);
    EXPECT_EQ(recorder.errorMessage(), std::nullopt); // cleared by the new start
}

// What the window turns into desktop notifications: one start and one end per window,
// also when the stream broke and was started again in between, and again for the next
// window of a repeating plan. A window's end stops its station even when the user had
// started that recording by hand.
TEST_F(SniperSchedulerTest, EachWindowIsAnnouncedOnceWhenItStartsAndWhenItEnds)
{
    ZoneGuard zone("Europe/Berlin");
    const auto scheduler = makeScheduler(power);
    QSignalSpy started(scheduler.get(), &SniperScheduler::scheduledRecordingStarted);
    QSignalSpy ended(scheduler.get(), &SniperScheduler::scheduledRecordingEnded);
    QSignalSpy sessions(&recorder, &RadioRecorder::sessionStarted);
    const ScheduledRecording daily = livePlan(now.addSecs(60), now.addSecs(120), Rule::Daily);
    (void)scheduler->add(daily);
    scheduler->configure(recorder, *library);
    EXPECT_EQ(started.count(), 0);

    now = daily.start;
    scheduler->tick();
    ASSERT_EQ(started.count(), 1);
    EXPECT_EQ(started[0][0].value<ScheduledRecording>(), daily);
    recorder.stop(); // gave up, say
    scheduler->tick();
    EXPECT_TRUE(recorder.isRecordingStation(live));
    EXPECT_EQ(started.count(), 1);
    EXPECT_EQ(ended.count(), 0);
    recorder.stop();
    recorder.start(live);
    scheduler->tick();
    EXPECT_EQ(sessions.count(), 3) << "already recorded: not started twice";

    now = daily.end;
    scheduler->tick();
    EXPECT_FALSE(recorder.isRecordingStation(live));
    ASSERT_EQ(scheduler->items().size(), 1);
    EXPECT_EQ(scheduler->items()[0].start, daily.start.addDays(1));
    EXPECT_EQ(fileBytes(), Schedule::encode(scheduler->items()));
    ASSERT_EQ(ended.count(), 1);
    EXPECT_EQ(ended[0][0].value<ScheduledRecording>().id, daily.id);
    EXPECT_EQ(ended[0][0].value<ScheduledRecording>().end, daily.end);

    now = daily.start.addDays(1);
    scheduler->tick();
    ASSERT_EQ(started.count(), 2);
    EXPECT_EQ(started[1][0].value<ScheduledRecording>().start, daily.start.addDays(1));

    // Dropping the plan mid-window leaves the recording to the user: no end is announced.
    (void)scheduler->remove(daily);
    now = daily.end.addDays(1);
    scheduler->tick();
    EXPECT_EQ(ended.count(), 1);
}

TEST_F(SniperSchedulerTest, ThePowerAssertionIsHeldWhilePlansOrRecordingsExist)
{
    const auto scheduler = makeScheduler(power);
    EXPECT_FALSE(power.isHeld());
    const ScheduledRecording soon = livePlan(now.addSecs(60), now.addSecs(120));
    (void)scheduler->add(soon);
    EXPECT_EQ(power.reason(), "Scheduled radio recording pending");

    scheduler->configure(recorder, *library);
    now = soon.start;
    scheduler->tick();
    ASSERT_TRUE(recorder.isRecordingStation(live));
    // Kept as it was taken, not taken again for the new reason.
    EXPECT_EQ(power.reason(), "Scheduled radio recording pending");
    EXPECT_EQ(power.acquisitions(), 1);

    (void)scheduler->remove(soon);
    EXPECT_TRUE(power.isHeld()); // still recording
    recorder.stop();
    EXPECT_FALSE(power.isHeld());
    EXPECT_FALSE(scheduler->holdsPowerAssertion());

    // Recording alone takes it with the recording's reason.
    recorder.start(live);
    EXPECT_EQ(power.reason(), "Radio recording in progress");
    EXPECT_EQ(power.acquisitions(), 2);
}

TEST_F(SniperSchedulerTest, TheClosedLidKeeperHearsOfTheNextPlanAndOfRecordings)
{
    DBusLink noBus(std::nullopt, QStringLiteral("system"));
    ClosedLidKeeper keeper(noBus, nullptr, [this] { return now; });
    keeper.setEnabled(true);
    const auto scheduler = makeScheduler(power, 3600000, &keeper);
    scheduler->configure(recorder, *library);
    EXPECT_FALSE(keeper.isKeeping());

    (void)scheduler->add(livePlan(now.addSecs(3 * 3600), now.addSecs(4 * 3600)));
    EXPECT_FALSE(keeper.isKeeping()); // more than an hour away
    const ScheduledRecording soon = livePlan(now.addSecs(1800), now.addSecs(3600));
    (void)scheduler->add(soon);
    EXPECT_TRUE(keeper.isKeeping());
    (void)scheduler->remove(soon);
    EXPECT_FALSE(keeper.isKeeping());

    recorder.start(live);
    EXPECT_TRUE(keeper.isKeeping());
    recorder.stop();
    EXPECT_FALSE(keeper.isKeeping());
}

TEST_F(SniperSchedulerTest, ATickTakesInAPlanAnotherProcessAdded)
{
    const auto running = makeScheduler(power, 30);
    running->configure(recorder, *library);
    NullPowerAssertion otherPower;
    const auto cli = makeScheduler(otherPower);
    const ScheduledRecording added = livePlan(now.addSecs(-5), now.addSecs(600));
    (void)cli->add(added);
    ASSERT_TRUE(waitUntil([&] { return recorder.isRecordingStation(live); }, 2000));
    EXPECT_EQ(running->items(), QList<ScheduledRecording> { added });
    EXPECT_EQ(running->items(live.id), QList<ScheduledRecording> { added });
    EXPECT_TRUE(running->items(QStringLiteral("custom:other")).isEmpty());
}

TEST_F(SniperSchedulerTest, OneSchedulerPerDataFolderRunsThePlansAndAnotherTakesOverWhenItGoes)
{
    const ScheduledRecording open = livePlan(now.addSecs(-5), now.addSecs(600));
    writeFile(file, Schedule::encode({ open }));
    RadioRecorder otherRecorder(context);
    NullPowerAssertion otherPower;
    auto first = makeScheduler(otherPower);
    first->configure(otherRecorder, *library);
    ASSERT_TRUE(first->runsPlans());
    ASSERT_TRUE(otherRecorder.isRecordingStation(live));

    // The second one sees and edits the plans but records nothing while the first runs.
    const auto second = makeScheduler(power, 30);
    QSignalSpy runs(second.get(), &SniperScheduler::runsPlansChanged);
    second->configure(recorder, *library);
    EXPECT_FALSE(second->runsPlans());
    EXPECT_EQ(runs.count(), 1);
    EXPECT_EQ(second->items(), QList<ScheduledRecording> { open });
    EXPECT_FALSE(waitUntil([&] { return recorder.isRecordingStation(live); }, 100));

    otherRecorder.stop();
    first.reset();
    ASSERT_TRUE(waitUntil([&] { return recorder.isRecordingStation(live); }, 2000));
    EXPECT_TRUE(second->runsPlans());
    otherRecorder.waitForSaves();
}

// Full-show plans record under their show title.
TEST_F(SniperSchedulerTest, WithoutALibraryPlansStillRecordAndKeepTheComputerAwake)
{
    const auto scheduler = makeScheduler(power);
    const ScheduledRecording show = livePlan(now.addSecs(-5), now.addSecs(600), std::nullopt, Mode::FullShow);
    (void)scheduler->add(show);
    scheduler->configure(recorder, nullptr);
    EXPECT_TRUE(scheduler->isConfigured());
    ASSERT_TRUE(recorder.isRecordingStation(live));
    EXPECT_EQ(recorder.session(live.id)->fullShowTitle(), show.showTitle());
    EXPECT_TRUE(power.isHeld());
}

} // namespace
