#include "report.h"

#include <gtest/gtest.h>

namespace {

Report::Comparison sample()
{
    Report::Comparison c;
    c.codec = QStringLiteral("MP3 128 kbit/s");
    c.recordSec = 600;
    c.windowStartSec = 0;
    c.windowEndSec = 600.4;
    c.shortSongSec = 45;
    double at = 0;
    const QList<BroadcastSong> songs { { QStringLiteral("A - One"), 240, 30 }, { QStringLiteral("Werbung"), 283.7, 12 },
        { QStringLiteral("B - Two"), 327.4, 44 } };
    for (const BroadcastSong &song : songs) {
        PlayedSong p;
        p.song = song;
        p.index = int(c.played.size());
        p.startSec = at;
        at += song.durationSec;
        p.endSec = at;
        p.titleSetSec = p.startSec + 0.25;
        c.played << p;
    }
    Report::RecorderResult r;
    r.label = QStringLiteral("streamripper --xs-none");
    r.folder = QStringLiteral("streamripper-xs-none");
    r.command = QStringLiteral("streamripper http://127.0.0.1:1/x.mp3 --xs-none");
    r.usage = { 0.37, 0.05, 5120, 600.2, 0 };
    r.summary.songsInWindow = 1;
    r.summary.songsLost = 1;
    r.summary.shortSongsLost = 1;
    c.recorders << r;
    return c;
}

TEST(ReportTest, AReportReadBackHasWhatScoringAgainNeeds)
{
    const Report::Comparison c = sample();
    const auto back = Report::fromJson(Report::json(c));
    ASSERT_TRUE(back);
    EXPECT_EQ(back->codec, c.codec);
    EXPECT_DOUBLE_EQ(back->windowStartSec, 0);
    EXPECT_DOUBLE_EQ(back->windowEndSec, 600.4);
    EXPECT_DOUBLE_EQ(back->shortSongSec, 45);
    ASSERT_EQ(back->played.size(), 3);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(back->played[i].index, i);
        EXPECT_EQ(back->played[i].song.title, c.played[i].song.title);
        EXPECT_DOUBLE_EQ(back->played[i].song.toneHz, c.played[i].song.toneHz);
        EXPECT_DOUBLE_EQ(back->played[i].startSec, c.played[i].startSec);
        EXPECT_DOUBLE_EQ(back->played[i].endSec, c.played[i].endSec);
        EXPECT_DOUBLE_EQ(back->played[i].titleSetSec, c.played[i].titleSetSec);
    }
    ASSERT_EQ(back->recorders.size(), 1);
    const Report::RecorderResult &r = back->recorders.first();
    EXPECT_EQ(r.label, c.recorders[0].label);
    EXPECT_EQ(r.folder, c.recorders[0].folder);
    EXPECT_EQ(r.command, c.recorders[0].command);
    EXPECT_DOUBLE_EQ(r.usage.selfCpuSec, 0.37);
    EXPECT_DOUBLE_EQ(r.usage.childrenCpuSec, 0.05);
    EXPECT_EQ(r.usage.peakRssKib, 5120);
    EXPECT_DOUBLE_EQ(r.usage.wallSec, 600.2);
    EXPECT_EQ(r.usage.exitCode, 0);

    EXPECT_FALSE(Report::fromJson("not json"));
    EXPECT_FALSE(Report::fromJson(R"({"programme":[],"recorders":[]})"));
    Report::Comparison unnamed = sample();
    unnamed.recorders[0].folder.clear();
    EXPECT_FALSE(Report::fromJson(Report::json(unnamed))) << "its files could not be found";
}

TEST(ReportTest, TheTableSaysWhichLostSongsWereShortAndWhatEachRecorderCost)
{
    const QString table = Report::markdown(sample(), false);
    // A: 30 s and B: 44 s both inside the window and not longer than 45 s; the jingle too.
    EXPECT_TRUE(table.contains(QLatin1String("2 songs (20 to 240 s) and 1 jingles"))) << table.toStdString();
    EXPECT_TRUE(table.contains(QStringLiteral("(\"≤ min\" below): 2."))) << table.toStdString();
    EXPECT_TRUE(table.contains(QStringLiteral("| songs lost | 1 (1 ≤ min) |"))) << table.toStdString();
    EXPECT_TRUE(table.contains(QLatin1String("| CPU s (process + its children) | 0.42 (0.37 + 0.05) |")));
    EXPECT_TRUE(table.contains(QLatin1String("| CPU % of one core | 0.07 |")));
    EXPECT_TRUE(table.contains(QLatin1String("| peak RSS MiB (the process itself) | 5.0 |")));
    EXPECT_FALSE(table.contains(QLatin1String("### "))) << "no file lists without asking";
    EXPECT_TRUE(Report::markdown(sample(), true).contains(QLatin1String("### streamripper --xs-none")));
}

} // namespace
