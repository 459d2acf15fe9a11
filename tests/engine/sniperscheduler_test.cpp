#include "engine/closedlidkeeper.h"
#include "engine/powerassertion.h"
#include "engine/recordingsession.h"
#include "engine/sniperscheduler.h"
#include "platform/dbuslink.h"

#include "icystream.h"
#include "recorderfixture.h"
#include "zoneguard.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSignalSpy>

#include <gtest/gtest.h>

namespace {

using Mode = ScheduledRecording::Mode;
using Rule = ScheduledRecording::RepeatRule;

// A wall-clock time in the current zone, as the UTC instant plans hold.
QDateTime local(int y, int m, int d, int h, int min = 0)
{
    return QDateTime(QDate(y, m, d), QTime(h, min), Qt::LocalTime).toUTC();
}

QString wallClock(const QDateTime &time)
{
    return time.toLocalTime().toString(QStringLiteral("yyyy-MM-dd HH:mm"));
}

Station fixtureStation(const QString &url, const QString &name = QStringLiteral("Fixture FM"))
{
    return Station::custom(url, name);
}

ScheduledRecording plan(const QDateTime &start, const QDateTime &end, std::optional<Rule> rule = std::nullopt,
    Mode mode = Mode::SplitTracks)
{
    return ScheduledRecording::make(fixtureStation(QStringLiteral("http://127.0.0.1:9/live")), start, end, mode, rule);
}

// The file format, written out by hand: key order, upper-case ids, seconds since 2001,
// optional keys left out, escapes.
const QByteArray kSample
    = R"([{"id":"6F1C0C5E-8D0A-4C4B-9E43-2B7D0F7A1C11","stationID":"960e57c5-0601-11e8-ae97-52543be04c81",)"
      R"("stationName":"Nachtclub \"Deluxe\" – Köln\\Bonn","streamURL":"https://stream.example/live.mp3?x=1&y=/a",)"
      R"("country":"Germany","bitrate":128,"codec":"MP3","favicon":"https://stream.example/icon.png",)"
      R"("start":760000000.25,"end":760003600.5,"mode":"fullShow","repeatRule":"weekly"},)"
      R"({"id":"0A1B2C3D-4E5F-4061-8273-94A5B6C7D8E9","stationID":"custom:http://127.0.0.1:8000/m",)"
      R"("stationName":"Line\nBreak\ttab\u0001","streamURL":"http://127.0.0.1:8000/m","country":"","bitrate":0,)"
      R"("codec":"","start":760100000,"end":760107200,"mode":"splitTracks"}])";

// Every field read back into its own member (a swap would survive a round trip), then
// written out again byte for byte.
TEST(ScheduleFileFormat, MatchesAHandWrittenSampleByteForByte)
{
    const auto decoded = Schedule::decode(kSample);
    ASSERT_TRUE(decoded);
    ASSERT_EQ(decoded->size(), 2);
    const ScheduledRecording &a = decoded->at(0);
    const ScheduledRecording &b = decoded->at(1);
    EXPECT_EQ(a.id, QUuid::fromString(QStringLiteral("6f1c0c5e-8d0a-4c4b-9e43-2b7d0f7a1c11")));
    EXPECT_EQ((QStringList { a.stationId, a.stationName, a.streamUrl, a.country, a.codec, a.favicon.value_or("none") }),
        (QStringList { "960e57c5-0601-11e8-ae97-52543be04c81", "Nachtclub \"Deluxe\" – Köln\\Bonn",
            "https://stream.example/live.mp3?x=1&y=/a", "Germany", "MP3", "https://stream.example/icon.png" }));
    EXPECT_EQ(a.bitrate, 128);
    EXPECT_EQ(a.start, QDateTime::fromMSecsSinceEpoch((978307200LL + 760000000) * 1000 + 250, Qt::UTC)); // 2001 + s
    EXPECT_EQ(a.start.msecsTo(a.end), 3600250);
    EXPECT_EQ(a.mode, Mode::FullShow);
    EXPECT_EQ(a.repeatRule, Rule::Weekly);
    EXPECT_EQ((QStringList { b.stationId, b.stationName, b.streamUrl, b.country, b.codec, b.favicon.value_or("none") }),
        (QStringList { "custom:http://127.0.0.1:8000/m", QStringLiteral("Line\nBreak\ttab") + QChar(1),
            "http://127.0.0.1:8000/m", "", "", "none" }));
    EXPECT_EQ(b.id.toString(QUuid::WithoutBraces).toUpper(), "0A1B2C3D-4E5F-4061-8273-94A5B6C7D8E9");
    EXPECT_EQ(b.bitrate, 0);
    EXPECT_EQ(b.start.msecsTo(b.end), 7200000);
    EXPECT_EQ(b.mode, Mode::SplitTracks);
    EXPECT_EQ(b.repeatRule, std::nullopt);

    EXPECT_EQ(Schedule::encode(*decoded), kSample);
    EXPECT_EQ(Schedule::encode(QList<ScheduledRecording>()), "[]");
}

TEST(ScheduleFileFormat, ReadsWhatTheOtherPlatformWrites)
{
    // Escaped slashes, another key order, a lower-case id, an explicit null, an integral
    // number written as a float, a key we do not know, times finer than milliseconds.
    const QByteArray theirs
        = R"([{"repeatRule":"daily","mode":"splitTracks","end":760003600.1234,"start":760000000,"codec":"AAC",)"
          R"("favicon":null,"bitrate":64.0,"country":"Österreich","streamURL":"http:\/\/a.example\/s",)"
          R"("stationName":"FM4","stationID":"abc","id":"6f1c0c5e-8d0a-4c4b-9e43-2b7d0f7a1c11","note":{"x":[1]}}])";
    const auto decoded = Schedule::decode(theirs);
    ASSERT_TRUE(decoded);
    ASSERT_EQ(decoded->size(), 1);
    const ScheduledRecording &p = decoded->first();
    EXPECT_EQ(p.streamUrl, "http://a.example/s");
    EXPECT_EQ(p.bitrate, 64);
    EXPECT_FALSE(p.favicon.has_value());
    EXPECT_EQ(p.repeatRule, Rule::Daily);
    EXPECT_EQ(Schedule::referenceSeconds(p.end), 760003600.123);
    EXPECT_EQ(Schedule::encode(*decoded),
        R"([{"id":"6F1C0C5E-8D0A-4C4B-9E43-2B7D0F7A1C11","stationID":"abc","stationName":"FM4",)"
        R"("streamURL":"http://a.example/s","country":"Österreich","bitrate":64,"codec":"AAC",)"
        R"("start":760000000,"end":760003600.123,"mode":"splitTracks","repeatRule":"daily"}])");
}

TEST(ScheduleFileFormat, OneBadElementFailsTheStrictDecodingAndIsAloneDroppedBySalvage)
{
    const QJsonArray good = QJsonDocument::fromJson(kSample).array();
    const auto withSecond = [&](const std::function<void(QJsonObject &)> &change) {
        QJsonArray array = good;
        QJsonObject second = array[1].toObject();
        change(second);
        array[1] = second;
        return QJsonDocument(array).toJson();
    };
    const QList<std::pair<const char *, QByteArray>> cases {
        { "missing codec", withSecond([](QJsonObject &o) { o.remove("codec"); }) },
        { "missing start", withSecond([](QJsonObject &o) { o.remove("start"); }) },
        { "fractional bitrate", withSecond([](QJsonObject &o) { o["bitrate"] = 128.5; }) },
        { "bitrate as text", withSecond([](QJsonObject &o) { o["bitrate"] = "128"; }) },
        { "unknown mode", withSecond([](QJsonObject &o) { o["mode"] = "live"; }) },
        { "unknown repeat rule", withSecond([](QJsonObject &o) { o["repeatRule"] = "monthly"; }) },
        { "favicon not text", withSecond([](QJsonObject &o) { o["favicon"] = 3; }) },
        { "id with braces", withSecond([](QJsonObject &o) { o["id"] = "{0A1B2C3D-4E5F-4061-8273-94A5B6C7D8E9}"; }) },
        { "id not a uuid", withSecond([](QJsonObject &o) { o["id"] = "0A1B2C3D-4E5F-4061-8273-94A5B6C7D8EX"; }) },
        { "date as text", withSecond([](QJsonObject &o) { o["end"] = "2025-01-01T00:00:00Z"; }) },
        { "element not an object", QByteArray("[") + kSample.mid(1, kSample.indexOf("},{") + 1) + ",42]" },
        { "object at the top", QByteArray(R"({"plans":[]})") },
        { "truncated", kSample.left(kSample.size() / 2) },
        { "empty file", QByteArray() },
    };
    ASSERT_TRUE(Schedule::decode(withSecond([](QJsonObject &) {})));
    const qsizetype elementCases = cases.size() - 4; // the rest are no JSON array of plans at all
    for (qsizetype i = 0; i < cases.size(); ++i) {
        const auto &[what, bytes] = cases[i];
        EXPECT_FALSE(Schedule::decode(bytes)) << what;
        const auto salvaged = Schedule::salvage(bytes);
        if (i >= elementCases) {
            EXPECT_FALSE(salvaged) << what;
            continue;
        }
        ASSERT_TRUE(salvaged) << what;
        EXPECT_EQ(salvaged->dropped, 1) << what;
        ASSERT_EQ(salvaged->plans.size(), 1) << what;
        EXPECT_EQ(salvaged->plans[0], Schedule::decode(QByteArray("[") + QJsonDocument(good[0].toObject()).toJson() + "]")->at(0));
    }
}

TEST(ScheduledRecordingTest, ShowTitleNamesStationDateAndWindowInLocalTime)
{
    ZoneGuard zone("Europe/Berlin");
    ScheduledRecording p = plan(local(2025, 1, 5, 20), local(2025, 1, 5, 21), std::nullopt, Mode::FullShow);
    p.stationName = QStringLiteral("Nachtclub");
    EXPECT_EQ(p.showTitle(QLocale(QLocale::English, QLocale::UnitedStates)), "Nachtclub Jan 5, 2025 20:00–21:00");
    EXPECT_EQ(p.showTitle(QLocale(QLocale::German, QLocale::Germany)), "Nachtclub 5. Jan. 2025 20:00–21:00");
    // Past midnight: the date is the start's, the times are the wall clock's.
    p.start = local(2025, 12, 31, 23, 30);
    p.end = local(2026, 1, 1, 1);
    EXPECT_EQ(p.showTitle(QLocale(QLocale::English, QLocale::UnitedKingdom)), "Nachtclub 31 Dec 2025 23:30–01:00");
}

TEST(ScheduleArithmetic, RepeatingPlansMoveToTheFirstWindowStillToEnd)
{
    ZoneGuard zone("Europe/Berlin");
    // Daily 20:00-21:00, last on the 3rd; the user comes back on the 6th at 09:00.
    const ScheduledRecording daily = plan(local(2025, 6, 3, 20), local(2025, 6, 3, 21), Rule::Daily);
    const auto today = Schedule::advanced(daily, local(2025, 6, 6, 9));
    ASSERT_TRUE(today);
    EXPECT_EQ(wallClock(today->start), "2025-06-06 20:00");
    EXPECT_EQ(wallClock(today->end), "2025-06-06 21:00");
    EXPECT_EQ(today->id, daily.id);
    // Still inside today's window: it stays; at its very end it moves on.
    EXPECT_EQ(Schedule::advanced(*today, local(2025, 6, 6, 20, 59)), today);
    EXPECT_EQ(wallClock(Schedule::advanced(*today, local(2025, 6, 6, 21))->start), "2025-06-07 20:00");

    // Weekly on Tuesdays; back on Thursday ten days later: the Tuesday after.
    const ScheduledRecording weekly = plan(local(2025, 6, 3, 20), local(2025, 6, 3, 21), Rule::Weekly);
    EXPECT_EQ(wallClock(Schedule::advanced(weekly, local(2025, 6, 12, 9))->start), "2025-06-17 20:00");
    // A window past midnight that is still running counts as ahead.
    const ScheduledRecording late = plan(local(2025, 6, 3, 23), local(2025, 6, 4, 1), Rule::Weekly);
    EXPECT_EQ(wallClock(Schedule::advanced(late, local(2025, 6, 11, 0, 30))->start), "2025-06-10 23:00");
    // Years away: still the next Tuesday, not a walk through every week.
    EXPECT_EQ(wallClock(Schedule::advanced(weekly, local(2031, 3, 13, 9))->start), "2031-03-18 20:00");

    // Without a rule there is no next window, not even for a window still ahead.
    for (const std::optional<Rule> rule : { std::optional<Rule>(), std::optional<Rule>(Rule::None) })
        EXPECT_FALSE(
            Schedule::advanced(plan(local(2025, 6, 7, 20), local(2025, 6, 7, 21), rule), local(2025, 6, 6, 9)));
}

TEST(ScheduleArithmetic, WallClockWindowsSurviveDaylightSavingChanges)
{
    struct Change {
        const char *zone;
        QDate before; // the day before the clocks move
        int offsetChangeSec;
    };
    for (const Change &c :
        { Change { "Europe/Berlin", QDate(2025, 3, 29), 3600 }, Change { "Europe/Berlin", QDate(2025, 10, 25), -3600 },
            Change { "America/New_York", QDate(2025, 3, 8), 3600 },
            Change { "America/New_York", QDate(2025, 11, 1), -3600 } }) {
        ZoneGuard zone(c.zone);
        const QDate d = c.before;
        for (const Rule rule : { Rule::Daily, Rule::Weekly }) {
            const ScheduledRecording p
                = plan(local(d.year(), d.month(), d.day(), 20), local(d.year(), d.month(), d.day(), 21), rule);
            const auto next = Schedule::advanced(p, p.end);
            ASSERT_TRUE(next) << c.zone;
            const QDate day = d.addDays(rule == Rule::Daily ? 1 : 7);
            EXPECT_EQ(wallClock(next->start), day.toString(Qt::ISODate) + " 20:00") << c.zone;
            EXPECT_EQ(wallClock(next->end), day.toString(Qt::ISODate) + " 21:00") << c.zone;
            // The instant moved by a day or a week less the hour the clocks gained.
            EXPECT_EQ(p.start.secsTo(next->start), (rule == Rule::Daily ? 1 : 7) * 86400 - c.offsetChangeSec) << c.zone;
        }
        // Months later, across the change, by a jump: still 20:00.
        const ScheduledRecording p = plan(local(d.year(), 1, 10, 20), local(d.year(), 1, 10, 21), Rule::Daily);
        const auto summer = Schedule::advanced(p, local(d.year(), 7, 1, 9));
        EXPECT_EQ(wallClock(summer->start), QStringLiteral("%1-07-01 20:00").arg(d.year())) << c.zone;
    }
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
