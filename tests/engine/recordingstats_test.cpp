#include "engine/recordingstats.h"

#include "platform/paths.h"

#include "smallfs.h"
#include "testenv.h"
#include "zoneguard.h"

#include <QDir>
#include <QFile>
#include <QSignalSpy>
#include <QTimeZone>

#include <unistd.h>

#include <gtest/gtest.h>

TEST(RecordingStatsTest, CountsPerLocalDayAcrossMidnightAndPerStation)
{
    TestHome home;
    ZoneGuard zone("Pacific/Auckland"); // UTC+13 in March
    QDateTime now(QDate(2024, 3, 9), QTime(10, 59, 59), QTimeZone::utc()); // 23:59:59 local
    RecordingStats stats([&] { return now; });
    QSignalSpy spy(&stats, &RecordingStats::changed);
    EXPECT_EQ(stats.todayCount(), 0);
    EXPECT_FALSE(QDir(Paths::supportDir()).exists()) << "loading creates nothing";

    stats.note("Radio Eins");
    EXPECT_EQ(stats.todayCount(), 1);
    now = now.addSecs(2); // 00:00:01 local, the next day
    EXPECT_EQ(stats.todayCount(), 0);
    stats.note("Radio Eins");
    stats.note("Jazz \"FM\" ü");

    EXPECT_EQ(stats.total(), 3);
    EXPECT_EQ(stats.byDay(), (QMap<QString, qint64> { { "2024-03-09", 1 }, { "2024-03-10", 2 } }));
    EXPECT_EQ(stats.byStation(), (QMap<QString, qint64> { { "Radio Eins", 2 }, { "Jazz \"FM\" ü", 1 } }));
    EXPECT_EQ(stats.todayCount(), 2);
    EXPECT_EQ(spy.count(), 3);

    // Rewritten after every song (creating the folder), compact, in field order.
    const QByteArray file = readFile(RecordingStats::filePath());
    EXPECT_EQ(file, stats.toJson());
    EXPECT_TRUE(file.startsWith(R"({"total":3,"byDay":{"2024-03-09":1,"2024-03-10":2},"byStation":{)"))
        << file.constData();
    EXPECT_FALSE(file.contains('\n'));

    // Old days are never pruned, and a new instance reads everything back.
    now = QDateTime(QDate(2025, 1, 1), QTime(12, 0), QTimeZone::utc());
    RecordingStats reloaded([&] { return now; });
    reloaded.note("Radio Eins");
    EXPECT_EQ(reloaded.total(), 4);
    EXPECT_EQ(reloaded.byDay().keys(), (QStringList { "2024-03-09", "2024-03-10", "2025-01-02" }));
    EXPECT_EQ(reloaded.byStation(), (QMap<QString, qint64> { { "Radio Eins", 3 }, { "Jazz \"FM\" ü", 1 } }));
}

TEST(RecordingStatsTest, DamagedFileIsSetAsideAndCountingStartsFromZero)
{
    const QByteArray damaged[] = {
        "",
        R"({"total":5,"byDay":{"2024-01-01":5},"byStation":{"A")",
        R"([5,{},{}])",
        R"(5)",
        R"({"total":5,"byDay":{"2024-01-01":5}})",
        R"({"total":"5","byDay":{},"byStation":{}})",
        R"({"total":5.5,"byDay":{},"byStation":{}})",
        R"({"total":5,"byDay":{"2024-01-01":"5"},"byStation":{}})",
        R"({"total":5,"byDay":[],"byStation":{}})",
        R"({"total":5,"byDay":{},"byStation":{"A":null}})",
        QByteArray("\xff\xfe\x00\x01", 4),
    };
    for (const QByteArray &content : damaged) {
        TestHome home;
        const QString aside = Paths::supportFile(QStringLiteral("recording_stats.corrupt.json"));
        writeFile(aside, "an older damaged file");
        writeFile(RecordingStats::filePath(), content);
        RecordingStats stats([] { return QDateTime(QDate(2024, 6, 1), QTime(12, 0)); });
        EXPECT_EQ(readFile(aside), "an older damaged file");
        EXPECT_EQ(readFile(Paths::supportFile(QStringLiteral("recording_stats.corrupt-2.json"))), content);
        EXPECT_TRUE(stats.loadProblem().contains(QStringLiteral("corrupt-2"))) << content.constData();
        EXPECT_EQ(stats.total(), 0) << content.constData();
        EXPECT_TRUE(stats.byDay().isEmpty()) << content.constData();
        EXPECT_TRUE(stats.byStation().isEmpty()) << content.constData();

        stats.note(QStringLiteral("A"));
        EXPECT_EQ(readFile(RecordingStats::filePath()), R"({"total":1,"byDay":{"2024-06-01":1},"byStation":{"A":1}})")
            << content.constData();
    }
}

TEST(RecordingStatsTest, AFileThatCannotBeReadStartsFromZero)
{
    {
        TestHome home;
        // A folder where the file belongs cannot be read even by root; it cannot be
        // replaced either, so the counters simply live in memory.
        ASSERT_TRUE(QDir().mkpath(RecordingStats::filePath()));
        RecordingStats blocked;
        EXPECT_EQ(blocked.total(), 0);
        blocked.note(QStringLiteral("A"));
        blocked.note(QStringLiteral("A"));
        EXPECT_EQ(blocked.total(), 2);
        EXPECT_EQ(blocked.byStation().value(QStringLiteral("A")), 2);
    }
    if (geteuid() == 0)
        return; // root reads files whatever their mode
    TestHome home;
    writeFile(RecordingStats::filePath(), R"({"total":7,"byDay":{},"byStation":{}})");
    QFile::setPermissions(RecordingStats::filePath(), QFileDevice::Permissions());
    EXPECT_EQ(RecordingStats().total(), 0);
}

TEST(RecordingStatsTest, EachProcessAddsItsOwnSongsToWhatTheFileHolds)
{
    TestHome home;
    RecordingStats window;
    RecordingStats cli;
    QSignalSpy windowChanged(&window, &RecordingStats::changed);
    window.note(QStringLiteral("A"));
    cli.note(QStringLiteral("B"));
    cli.note(QStringLiteral("A"));
    window.note(QStringLiteral("A"));
    EXPECT_EQ(RecordingStats().total(), 4);
    EXPECT_EQ(RecordingStats().byStation(), (QMap<QString, qint64> { { "A", 3 }, { "B", 1 } }));
    // The window hears of the songs the other process counted.
    EXPECT_TRUE(waitUntil([&] { return window.total() == 4; }));
}

TEST(RecordingStatsTest, SongsCountedWhileTheFileCannotBeWrittenGoInWithTheNextSave)
{
    TestHome home;
    SmallFileSystem data(home.file("data"), 64 * 1024);
    if (!data.mounted())
        GTEST_SKIP() << SmallFileSystem::reason();
    RecordingStats stats;
    stats.note(QStringLiteral("A"));
    ASSERT_TRUE(data.makeReadOnly());
    QSignalSpy problems(&stats, &RecordingStats::storageProblem);
    stats.note(QStringLiteral("A"));
    stats.note(QStringLiteral("B"));
    EXPECT_EQ(problems.count(), 2);
    EXPECT_TRUE(problems.first().first().toString().contains(RecordingStats::filePath()));
    EXPECT_EQ(stats.total(), 3) << "counted, if not yet saved";
    EXPECT_EQ(RecordingStats().total(), 1);

    ASSERT_TRUE(data.makeWritable());
    EXPECT_TRUE(stats.flush().ok);
    RecordingStats reloaded;
    EXPECT_EQ(reloaded.total(), 3);
    EXPECT_EQ(reloaded.byStation(), (QMap<QString, qint64> { { "A", 2 }, { "B", 1 } }));
}

TEST(RecordingStatsDeathTest, OverflowingTheTotalIsFatal)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    TestHome home;
    writeFile(RecordingStats::filePath(), R"({"total":9223372036854775807,"byDay":{},"byStation":{}})");
    RecordingStats stats;
    ASSERT_EQ(stats.total(), std::numeric_limits<qint64>::max());
    EXPECT_DEATH(stats.note(QStringLiteral("A")), "overflowed");
}
