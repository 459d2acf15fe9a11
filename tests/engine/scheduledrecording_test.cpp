#include "engine/scheduledrecording.h"

#include "zoneguard.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

// The plan file's format and the plans' calendar arithmetic: pure functions, no files.

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

ScheduledRecording plan(const QDateTime &start, const QDateTime &end, std::optional<Rule> rule = std::nullopt,
    Mode mode = Mode::SplitTracks)
{
    return ScheduledRecording::make(Station::custom(QStringLiteral("http://127.0.0.1:9/live"), "Fixture FM"), start,
        end, mode, rule);
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

} // namespace

// The directory's JSON can carry a surrogate on its own as an escape; a plan holding one
// must be written so that it reads back as it was, and in a form any JSON reader accepts.
TEST(ScheduleFileFormat, TextsWithLoneSurrogatesReadBackUnchanged)
{
    const QByteArray file = R"([{"id":"A1B2C3D4-0000-4000-8000-000000000002","stationID":"x\udc00",)"
                            R"("stationName":"Caf\u00e9 \ud83c\udfb5 \ud83c","streamURL":"http://127.0.0.1/",)"
                            R"("country":"","bitrate":0,"codec":"","start":1,"end":2,"mode":"fullShow"}])";
    const auto plans = Schedule::decode(file);
    ASSERT_TRUE(plans);
    ASSERT_EQ(plans->size(), 1);
    EXPECT_EQ(plans->first().stationId, QStringLiteral("x") + QChar(0xDC00));
    EXPECT_EQ(plans->first().stationName, QString::fromUtf8("Café 🎵 ") + QChar(0xD83C));

    const QByteArray written = Schedule::encode(*plans);
    EXPECT_TRUE(written.contains(R"("stationID":"x\udc00")")) << written.toStdString();
    EXPECT_TRUE(written.contains("\"stationName\":\"Caf\xC3\xA9 \xF0\x9F\x8E\xB5 \\ud83c\"")) << written.toStdString();
    EXPECT_EQ(Schedule::decode(written), plans);
}
