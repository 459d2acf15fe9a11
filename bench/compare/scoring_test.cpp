#include "scoring.h"

#include <gtest/gtest.h>

namespace {

constexpr double kW = 0.1;

// A played programme of items with these titles and lengths, back to back from 0 s.
QList<PlayedSong> programme(const QList<std::pair<QString, double>> &items)
{
    QList<PlayedSong> out;
    double at = 0;
    for (const auto &[title, sec] : items) {
        PlayedSong p;
        p.song = { title, 0, sec };
        p.index = int(out.size());
        p.startSec = at;
        at += sec;
        p.endSec = at;
        p.titleSetSec = p.startSec + 0.1;
        out << p;
    }
    return out;
}

// Labels of a file: runs of (item, windows).
std::vector<int> labels(const QList<std::pair<int, int>> &runs)
{
    std::vector<int> out;
    for (const auto &[label, windows] : runs)
        out.insert(out.end(), size_t(windows), label);
    return out;
}

// Songs #0 40 s, #1 60 s, jingle #2 8 s, #3 30 s, #4 50 s: 0, 40, 100, 108, 138, 188.
const QList<PlayedSong> kPlayed = programme({ { QStringLiteral("A - One"), 40 }, { QStringLiteral("B - Two"), 60 },
    { QStringLiteral("Station ID"), 8 }, { QStringLiteral("C - Three"), 30 }, { QStringLiteral("D - Four"), 50 } });

TEST(ScoringTest, EdgesWithNeighboursPlaceWhatIsMissing)
{
    // Lead-in and lead-out: the whole song, neighbours on both sides, less one blurred window.
    Scoring::FileScore padded = Scoring::scoreFile(QStringLiteral("two.mp3"), true,
        labels({ { 0, 20 }, { -1, 1 }, { 1, 599 }, { 2, 20 } }), kW, kPlayed, 10, 180);
    EXPECT_EQ(padded.item, 1);
    EXPECT_EQ(padded.title, QStringLiteral("B - Two"));
    EXPECT_FALSE(padded.jingle);
    EXPECT_TRUE(padded.insideWindow);
    EXPECT_NEAR(padded.itemSec, 60, 1e-9);
    EXPECT_NEAR(padded.heldSec, 59.9, 1e-9);
    EXPECT_NEAR(padded.foreignSec, 4.0, 1e-9);
    EXPECT_EQ(padded.missingStartSec, 0);
    EXPECT_EQ(padded.missingEndSec, 0);
    EXPECT_EQ(padded.missingEitherSec, 0);

    // Cut when the title arrived: the start went to the previous file, the next song's
    // first second is in this one.
    const auto late = Scoring::scoreFile(
        QStringLiteral("two.mp3"), true, labels({ { 1, 588 }, { 3, 10 } }), kW, kPlayed, 10, 180);
    EXPECT_NEAR(late.missingStartSec, 1.2, 1e-9);
    EXPECT_EQ(late.missingEndSec, 0);
    EXPECT_NEAR(late.foreignSec, 1.0, 1e-9);

    // The previous song's end, then the recording stopped inside this one.
    const auto stopped
        = Scoring::scoreFile(QStringLiteral("two.mp3"), true, labels({ { 0, 5 }, { 1, 300 } }), kW, kPlayed, 10, 70);
    EXPECT_EQ(stopped.missingStartSec, 0);
    EXPECT_NEAR(stopped.missingEndSec, 30, 1e-9);
    EXPECT_FALSE(stopped.insideWindow) << "the song ran past the recording";

    // Nothing else in the file: the audio cannot say at which end the missing part is.
    const auto bare = Scoring::scoreFile(QStringLiteral("two.mp3"), true, labels({ { 1, 550 } }), kW, kPlayed, 10, 180);
    EXPECT_EQ(bare.missingStartSec, 0);
    EXPECT_EQ(bare.missingEndSec, 0);
    EXPECT_NEAR(bare.missingEitherSec, 5, 1e-9);
}

TEST(ScoringTest, TheItemIsTheOneOfWhichTheFileHoldsMostAndSilenceHoldsNone)
{
    const auto file = Scoring::scoreFile(
        QStringLiteral("x.mp3"), true, labels({ { 3, 50 }, { 2, 80 }, { -1, 3 }, { 4, 40 } }), kW, kPlayed, 0, 200);
    EXPECT_EQ(file.item, 2);
    EXPECT_TRUE(file.jingle);
    EXPECT_NEAR(file.foreignSec, 9.0, 1e-9);
    EXPECT_NEAR(file.fileSec, 17.3, 1e-9);

    // A cut 5 s early: the jingle's file starts with the song's last 5 s and holds only
    // 4 s of the jingle, yet it is the jingle's (half of it), not a piece of the song.
    const auto early = Scoring::scoreFile(
        QStringLiteral("Station ID.mp3"), true, labels({ { 1, 50 }, { 2, 40 } }), kW, kPlayed, 0, 200);
    EXPECT_EQ(early.item, 2);
    EXPECT_NEAR(early.heldSec, 4.0, 1e-9);
    EXPECT_NEAR(early.foreignSec, 5.0, 1e-9);
    EXPECT_NEAR(early.missingEndSec, 4.0, 1e-9);

    const auto silent
        = Scoring::scoreFile(QStringLiteral("s.mp3"), true, labels({ { -1, 30 } }), kW, kPlayed, 0, 200);
    EXPECT_EQ(silent.item, -1);
    EXPECT_EQ(silent.heldSec, 0);
    const auto empty = Scoring::scoreFile(QStringLiteral("e.mp3"), true, {}, kW, kPlayed, 0, 200);
    EXPECT_EQ(empty.item, -1);
}

TEST(ScoringTest, LaterCompleteFilesOfTheSameItemAreDuplicates)
{
    QList<Scoring::FileScore> files(5);
    files[0].item = 1;
    files[1].item = 1;
    files[1].complete = false; // set aside, not a second copy in the library
    files[2].item = 3;
    files[3].item = 1;
    files[4].item = -1;
    Scoring::markDuplicates(files);
    EXPECT_FALSE(files[0].duplicate);
    EXPECT_FALSE(files[1].duplicate);
    EXPECT_FALSE(files[2].duplicate);
    EXPECT_TRUE(files[3].duplicate);
    EXPECT_FALSE(files[4].duplicate);
}

TEST(ScoringTest, SummaryCountsSongsInsideTheWindowAndKeepsAtNinetyPercent)
{
    // Recorded from 30 s to 185 s: #1 and #3 played wholly inside (the jingle #2 too, but
    // it is no song); #0 began before and #4 ended after.
    const double from = 30;
    const double to = 185;
    EXPECT_EQ(Scoring::songsInWindow(kPlayed, from, to), (QList<int> { 1, 3 }));

    auto file = [&](const QList<std::pair<int, int>> &runs, bool complete = true) {
        return Scoring::scoreFile(QStringLiteral("f"), complete, labels(runs), kW, kPlayed, from, to);
    };
    // #1 held to exactly 90 %, #3 to 89 % and a complete copy of #3 only among the set-aside ones.
    QList<Scoring::FileScore> files { file({ { 0, 100 } }), file({ { 1, 540 }, { 2, 10 } }), file({ { 2, 80 } }),
        file({ { 3, 267 }, { 4, 8 } }), file({ { 3, 300 } }, false), file({ { -1, 10 } }) };
    Scoring::markDuplicates(files);
    const Scoring::Summary s = Scoring::summarise(files, kPlayed, from, to, 45);
    EXPECT_EQ(s.files, 5);
    EXPECT_EQ(s.incompleteFiles, 1);
    EXPECT_EQ(s.unrecognisedFiles, 1);
    EXPECT_EQ(s.jingleFiles, 1);
    EXPECT_EQ(s.duplicateFiles, 0);
    EXPECT_EQ(s.songsInWindow, 2);
    EXPECT_EQ(s.shortSongsInWindow, 1);
    EXPECT_EQ(s.songsKept, 1);
    EXPECT_EQ(s.songsLost, 1);
    EXPECT_EQ(s.shortSongsLost, 1);
    // Averages over #1 and #3 only: not the jingle, not #0 from the recording's edge.
    EXPECT_NEAR(s.missingStart.meanSec, (6.0 + 3.3) / 2, 1e-9);
    EXPECT_NEAR(s.missingStart.maxSec, 6.0, 1e-9);
    EXPECT_NEAR(s.missingStart.totalSec, 9.3, 1e-9);
    EXPECT_NEAR(s.foreign.meanSec, (1.0 + 0.8) / 2, 1e-9);
    EXPECT_EQ(s.missingEnd.maxSec, 0);
}

TEST(ScoringTest, ADuplicateDoesNotCountTwiceInTheAverages)
{
    QList<Scoring::FileScore> files {
        Scoring::scoreFile(QStringLiteral("a"), true, labels({ { 1, 600 }, { 2, 5 } }), kW, kPlayed, 0, 200),
        Scoring::scoreFile(QStringLiteral("b"), true, labels({ { 1, 300 } }), kW, kPlayed, 0, 200),
    };
    Scoring::markDuplicates(files);
    const Scoring::Summary s = Scoring::summarise(files, kPlayed, 0, 200, 45);
    EXPECT_EQ(s.duplicateFiles, 1);
    EXPECT_EQ(s.songsKept, 1);
    EXPECT_EQ(s.missingEither.maxSec, 0) << "the half copy is left out";
    EXPECT_NEAR(s.foreign.totalSec, 0.5, 1e-9);
}

} // namespace
