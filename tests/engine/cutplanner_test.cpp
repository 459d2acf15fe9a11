#include "engine/cutplanner.h"

#include <QStringList>

#include <gtest/gtest.h>

#include <algorithm>
#include <map>

namespace {

using Kind = CutPlanner::Action::Kind;
using Padding = CutPlanner::Padding;

constexpr qint64 kBps = 1000;

struct Song {
    QString title;
    QByteArray bytes; // the song's segments joined
    int pieces = 0;
    friend bool operator==(const Song &, const Song &) = default;
};

// Carries the planner's actions out on in-memory files, the way TrackSegmenter does on
// disk, and checks that the actions make sense in their order.
class Tape {
public:
    explicit Tape(Padding padding, std::optional<QString> fullShow = std::nullopt,
                  std::optional<CutPlanner::Listening> listening = std::nullopt)
        : planner(kBps, std::move(fullShow), QStringLiteral("Station"), padding, listening)
    {
        run(planner.openSegment());
    }

    // `n` bytes all holding `fill`, so a song's bytes tell where they came from.
    void audio(qint64 n, char fill, qint64 chunk = 100)
    {
        for (qint64 done = 0; done < n; done += chunk) {
            const QByteArray bytes(qsizetype(std::min(chunk, n - done)), fill);
            run(planner.onAudio(bytes), bytes);
        }
    }
    void title(const QString &t, Padding padding) { run(planner.onTitle(t, padding)); }
    void title(const QString &t) { title(t, Padding {}); }
    void dropout()
    {
        run(planner.onDisconnect());
        run(planner.openSegment());
    }
    void stop() { run(planner.onStop()); }

    CutPlanner planner;
    std::vector<Song> songs;
    int discarded = 0;
    QStringList abandoned;
    qint64 peakOnDisk = 0; // all segments not yet handed over, after each step

    qint64 onDisk() const
    {
        qint64 total = 0;
        for (const auto &[id, file] : m_files)
            total += file.size();
        return total;
    }

private:
    void run(const CutPlanner::Actions &actions, const QByteArray &input = {})
    {
        for (const CutPlanner::Action &a : actions) {
            switch (a.kind) {
            case Kind::Open:
                ASSERT_FALSE(m_open) << "a segment is already open";
                m_open = a.segment;
                m_files[a.segment];
                break;
            case Kind::Close:
                ASSERT_EQ(m_open, a.segment);
                m_open.reset();
                break;
            case Kind::WriteInput:
            case Kind::WriteCarry:
                ASSERT_TRUE(m_open);
                m_files[*m_open] += a.kind == Kind::WriteInput ? input : a.carry;
                break;
            case Kind::HandOver: {
                Song song { a.title, {}, int(a.segments.size()) };
                for (const int id : a.segments) {
                    ASSERT_NE(m_open, id) << "an open segment handed over";
                    song.bytes += m_files.at(id);
                    m_files.erase(id);
                }
                songs.push_back(song);
                break;
            }
            case Kind::Discard:
                for (const int id : a.segments) {
                    ASSERT_EQ(m_files.erase(id), 1u);
                    ++discarded;
                }
                break;
            case Kind::Abandon:
                abandoned << a.title;
                break;
            }
        }
        peakOnDisk = std::max(peakOnDisk, onDisk());
    }

    std::optional<int> m_open;
    std::map<int, QByteArray> m_files;
};

QByteArray bytes(qint64 n, char fill)
{
    return QByteArray(qsizetype(n), fill);
}

} // namespace

TEST(CutPlanner, UnpaddedCutsHandOverAtOnceAndAudioBeforeTheFirstTitleIsDropped)
{
    Tape t({});
    t.audio(500, 'x');
    t.dropout();
    t.audio(300, 'y');
    t.title(QStringLiteral("A - 1"));
    EXPECT_EQ(t.discarded, 2) << "both pieces before the first title go";
    EXPECT_TRUE(t.songs.empty());

    t.audio(400, 'a');
    t.dropout();
    t.audio(200, 'b');
    t.title(QStringLiteral("B - 2"));
    t.audio(250, 'c');
    t.stop();
    ASSERT_EQ(t.songs.size(), 2u);
    EXPECT_EQ(t.songs[0], (Song { QStringLiteral("A - 1"), bytes(400, 'a') + bytes(200, 'b'), 2 }));
    EXPECT_EQ(t.songs[1], (Song { QStringLiteral("B - 2"), bytes(250, 'c'), 1 }));
}

TEST(CutPlanner, BlankRepeatedAndSilentTitlesCutNothing)
{
    Tape t({});
    t.title(QStringLiteral("A"));
    t.audio(100, 'a');
    for (const QString &same : { QStringLiteral("A"), QStringLiteral("  A \t"), QStringLiteral("   "), QString() }) {
        EXPECT_FALSE(t.planner.isNewTitle(same)) << same.toStdString();
        EXPECT_TRUE(t.planner.onTitle(same, {}).empty());
    }
    t.title(QStringLiteral(" B "));
    EXPECT_EQ(t.planner.lastTitle(), QStringLiteral("B"));
    // No audio since the cut: the title changes, the (empty) segment is not cut.
    t.title(QStringLiteral("C"));
    t.audio(100, 'c');
    t.stop();
    ASSERT_EQ(t.songs.size(), 2u);
    EXPECT_EQ(t.songs[0].title, QStringLiteral("A"));
    EXPECT_EQ(t.songs[1], (Song { QStringLiteral("C"), bytes(100, 'c'), 1 }));
}

TEST(CutPlanner, LeadInHoldsBetweenLeadInAndOneSecondMoreTrimmedAboutOnceASecond)
{
    Tape t({});
    t.title(QStringLiteral("A"), { .leadInSec = 3, .leadOutSec = 0 });
    int trims = 0;
    qint64 before = 0;
    for (int i = 0; i < 200; ++i) { // 20 s in 100-byte chunks
        t.audio(100, 'a');
        const qint64 now = t.planner.leadInBytes();
        if (now < before) {
            ++trims;
            EXPECT_EQ(now, 3 * kBps);
        }
        EXPECT_LE(now, 4 * kBps);
        before = now;
    }
    EXPECT_GE(before, 3 * kBps);
    // Full at 4.1 s, then back to 3 s and full again every 1.1 s.
    EXPECT_EQ(trims, 15);
}

TEST(CutPlanner, APaddedCutRunsOnForTheLeadOutAndTheNextSongStartsWithTheLeadIn)
{
    Tape t({});
    t.title(QStringLiteral("A"), { .leadInSec = 2, .leadOutSec = 5 });
    t.audio(10 * kBps, 'a');
    t.title(QStringLiteral("B"), { .leadInSec = 2, .leadOutSec = 5 });
    EXPECT_TRUE(t.planner.isCutPending());
    t.audio(5 * kBps - 100, 'b');
    EXPECT_TRUE(t.songs.empty()) << "the cut waits for the whole lead-out";
    t.audio(100, 'b');
    EXPECT_FALSE(t.planner.isCutPending());
    ASSERT_EQ(t.songs.size(), 1u);
    EXPECT_EQ(t.songs[0], (Song { QStringLiteral("A"), bytes(10 * kBps, 'a') + bytes(5 * kBps, 'b'), 1 }));

    t.audio(700, 'c');
    t.stop();
    ASSERT_EQ(t.songs.size(), 2u);
    // The lead-in window (2 to 3 s) held 2.3 s when the title came.
    EXPECT_EQ(t.songs[1].bytes, bytes(2300, 'a') + bytes(5 * kBps, 'b') + bytes(700, 'c'));

    // Without lead-out the cut happens at the title, carrying only the lead-in.
    Tape u({});
    u.title(QStringLiteral("A"), { .leadInSec = 1, .leadOutSec = 0 });
    u.audio(1500, 'a');
    u.title(QStringLiteral("B"), { .leadInSec = 1, .leadOutSec = 0 });
    EXPECT_FALSE(u.planner.isCutPending());
    u.audio(100, 'b');
    u.stop();
    ASSERT_EQ(u.songs.size(), 2u);
    EXPECT_EQ(u.songs[0].bytes, bytes(1500, 'a'));
    EXPECT_EQ(u.songs[1].bytes, bytes(1500, 'a') + bytes(100, 'b')) << "under 2 s: nothing trimmed yet";
}

TEST(CutPlanner, ASecondTitleInsideTheLeadOutCutsTheFirstAndStartsItsOwnCountdown)
{
    const Padding pad { .leadInSec = 0, .leadOutSec = 3 };
    Tape t({});
    t.title(QStringLiteral("A"), pad);
    t.audio(2000, 'a');
    t.title(QStringLiteral("B"), pad);
    t.audio(1000, 'b');
    t.title(QStringLiteral("C"), pad);
    ASSERT_EQ(t.songs.size(), 1u);
    EXPECT_EQ(t.songs[0], (Song { QStringLiteral("A"), bytes(2000, 'a') + bytes(1000, 'b'), 1 }));
    EXPECT_TRUE(t.planner.isCutPending());
    t.audio(3000, 'c');
    ASSERT_EQ(t.songs.size(), 2u);
    EXPECT_EQ(t.songs[1], (Song { QStringLiteral("B"), bytes(1000, 'b') + bytes(3000, 'c'), 1 }));
}

TEST(CutPlanner, DropoutsKeepPiecesTogetherAndEndAPendingCutUnderItsTitle)
{
    const Padding pad { .leadInSec = 0, .leadOutSec = 5 };
    Tape t({});
    t.title(QStringLiteral("A"), pad);
    t.audio(1000, 'a');
    t.dropout();
    t.audio(1000, 'b');
    t.title(QStringLiteral("B"), pad);
    t.audio(2000, 'c');
    // The connection drops inside the lead-out: A ends with what it got.
    t.dropout();
    ASSERT_EQ(t.songs.size(), 1u);
    EXPECT_EQ(t.songs[0], (Song { QStringLiteral("A"), bytes(1000, 'a') + bytes(1000, 'b') + bytes(2000, 'c'), 2 }));
    EXPECT_FALSE(t.planner.isCutPending());

    // An empty connection leaves no piece behind; B starts afresh after the dropout.
    t.dropout();
    t.audio(500, 'd');
    t.stop();
    ASSERT_EQ(t.songs.size(), 2u);
    EXPECT_EQ(t.songs[1], (Song { QStringLiteral("B"), bytes(500, 'd'), 1 }));
    EXPECT_EQ(t.discarded, 1) << "the segment that got no audio";
}

TEST(CutPlanner, StopHandsOverTheSongInProgressUnderTheRightTitle)
{
    const Padding pad { .leadInSec = 0, .leadOutSec = 5 };
    Tape pending({});
    pending.title(QStringLiteral("A"), pad);
    pending.audio(1000, 'a');
    pending.title(QStringLiteral("B"), pad);
    pending.audio(400, 'b');
    pending.stop();
    ASSERT_EQ(pending.songs.size(), 1u) << "the new song has no segment of its own yet";
    EXPECT_EQ(pending.songs[0], (Song { QStringLiteral("A"), bytes(1000, 'a') + bytes(400, 'b'), 1 }));

    Tape untitled({});
    untitled.audio(800, 'x');
    untitled.dropout();
    untitled.audio(200, 'y');
    untitled.stop();
    ASSERT_EQ(untitled.songs.size(), 1u);
    EXPECT_EQ(untitled.songs[0], (Song { QStringLiteral("Station"), bytes(800, 'x') + bytes(200, 'y'), 2 }));

    Tape show({ .leadInSec = 2, .leadOutSec = 2 }, QStringLiteral("Morning Show"));
    show.audio(300, 'a');
    show.title(QStringLiteral("A"), { .leadInSec = 2, .leadOutSec = 2 });
    show.audio(300, 'b');
    show.title(QStringLiteral("B"), { .leadInSec = 2, .leadOutSec = 2 });
    show.audio(3000, 'c');
    show.dropout();
    show.audio(100, 'd');
    show.stop();
    ASSERT_EQ(show.songs.size(), 1u) << "full-show recordings never cut";
    EXPECT_EQ(show.songs[0],
        (Song { QStringLiteral("Morning Show"), bytes(300, 'a') + bytes(300, 'b') + bytes(3000, 'c') + bytes(100, 'd'),
            2 }));
    EXPECT_EQ(show.discarded, 0);
}

TEST(CutPlanner, PaddingIsReadAtEachTitleAndAppliesFromThatCutOn)
{
    Tape t({ .leadInSec = 0, .leadOutSec = 0 });
    t.title(QStringLiteral("A"));
    t.audio(1000, 'a');
    t.title(QStringLiteral("B"), { .leadInSec = 0, .leadOutSec = 1 });
    t.audio(1000, 'b');
    ASSERT_EQ(t.songs.size(), 1u);
    EXPECT_EQ(t.songs[0].bytes, bytes(1000, 'a') + bytes(1000, 'b'));
    t.title(QStringLiteral("C"));
    ASSERT_EQ(t.songs.size(), 2u) << "unpadded again: cut at the title";
    EXPECT_EQ(t.songs[1].bytes, bytes(1000, 'b'));
}

namespace {

using Arm = CutPlanner::ArmResult;
using Keep = CutPlanner::Keep;

Tape listening(Padding padding, qint64 maxSongBytes)
{
    return Tape(padding, std::nullopt, CutPlanner::Listening { maxSongBytes });
}

} // namespace

TEST(CutPlannerListening, OnlyArmedWholeSongsAreHandedOverAndAStopAbandonsTheOnePlaying)
{
    Tape t = listening({}, 100 * kBps);
    t.audio(300, 'x');
    EXPECT_EQ(t.planner.keep(), Keep::NoTitle);
    t.title(QStringLiteral("A - Joined"));
    t.audio(500, 'a');
    EXPECT_EQ(t.planner.keep(), Keep::JoinedLate);
    EXPECT_EQ(t.planner.arm(QStringLiteral("A - Joined")), Arm::JoinedLate) << "its start was before we connected";

    t.title(QStringLiteral("B - Whole"));
    EXPECT_EQ(t.planner.keep(), Keep::Whole);
    t.audio(600, 'b');
    t.dropout(); // pieces split by a reconnect stay one song
    t.audio(400, 'c');
    EXPECT_EQ(t.planner.arm(QStringLiteral(" B - Whole ")), Arm::Armed);
    EXPECT_EQ(t.planner.arm(QStringLiteral("B - Whole")), Arm::Armed) << "asking twice is no error";
    EXPECT_EQ(t.planner.arm(QStringLiteral("A - Joined")), Arm::Ended);
    t.title(QStringLiteral("C - Unarmed"));
    t.audio(700, 'd');
    t.title(QStringLiteral("D - Armed"));
    t.audio(200, 'e');
    EXPECT_EQ(t.planner.arm(QStringLiteral("D - Armed")), Arm::Armed);
    t.audio(200, 'e');
    t.stop();

    ASSERT_EQ(t.songs.size(), 1u);
    EXPECT_EQ(t.songs[0], (Song { QStringLiteral("B - Whole"), bytes(600, 'b') + bytes(400, 'c'), 2 }));
    EXPECT_EQ(t.abandoned, QStringList { QStringLiteral("D - Armed") }) << "half a song is not saved";
    EXPECT_EQ(t.onDisk(), 0) << "everything else was discarded";
}

TEST(CutPlannerListening, TheSongOnDiskNeverOutgrowsTheBoundUnlessArmed)
{
    constexpr qint64 kBound = 2500;
    Tape untitled = listening({}, kBound);
    untitled.audio(60 * kBps, 'x', 130); // an hour's worth at 1000 B/s, no title ever
    EXPECT_LE(untitled.peakOnDisk, kBound);
    EXPECT_LE(untitled.planner.keptBytes(), kBound);
    EXPECT_EQ(untitled.planner.keep(), Keep::NoTitle);

    Tape t = listening({}, kBound);
    t.title(QStringLiteral("A - 1"));
    t.audio(100, 'a');
    t.title(QStringLiteral("B - 2"));
    t.audio(kBound, 'b');
    EXPECT_EQ(t.planner.keep(), Keep::Whole) << "exactly at the bound is still whole";
    t.audio(1, 'b');
    EXPECT_EQ(t.planner.keep(), Keep::TooLong);
    EXPECT_EQ(t.planner.arm(QStringLiteral("B - 2")), Arm::TooLong);
    t.title(QStringLiteral("C - 3"));
    EXPECT_EQ(t.planner.arm(QStringLiteral("C - 3")), Arm::Armed);
    t.audio(3 * kBound, 'c');
    t.title(QStringLiteral("D - 4"));
    ASSERT_EQ(t.songs.size(), 1u);
    EXPECT_EQ(t.songs[0].bytes, bytes(3 * kBound, 'c')) << "an armed song is a recording: kept whole";
    EXPECT_LE(t.peakOnDisk, 3 * kBound);
}

TEST(CutPlannerListening, AnArmedSongGetsItsPaddingAndOneEndedInItsLeadOutCanStillBeArmed)
{
    const Padding pad { .leadInSec = 1, .leadOutSec = 2 };
    Tape t = listening(pad, 100 * kBps);
    t.title(QStringLiteral("A - 1"), pad);
    t.audio(3000, 'a');
    t.title(QStringLiteral("B - 2"), pad);
    t.audio(4000, 'b');
    t.title(QStringLiteral("C - 3"), pad);
    t.audio(500, 'c');
    // Pressed as the title changed: B is in its lead-out, still whole.
    EXPECT_EQ(t.planner.arm(QStringLiteral("B - 2")), Arm::Armed);
    EXPECT_EQ(t.planner.arm(QStringLiteral("C - 3")), Arm::Armed);
    t.audio(1500, 'c');
    ASSERT_EQ(t.songs.size(), 1u);
    // The lead-in (1 to 2 s, 1.9 s here) came from A, which itself was discarded.
    EXPECT_EQ(t.songs[0], (Song { QStringLiteral("B - 2"), bytes(1900, 'a') + bytes(4000, 'b') + bytes(2000, 'c'), 1 }));

    // A stop inside an armed song's lead-out still saves it: it has ended.
    t.audio(1000, 'c');
    t.title(QStringLiteral("D - 4"), pad);
    t.audio(500, 'd');
    t.stop();
    ASSERT_EQ(t.songs.size(), 2u);
    EXPECT_EQ(t.songs[1].title, QStringLiteral("C - 3"));
    EXPECT_TRUE(t.songs[1].bytes.endsWith(bytes(3000, 'c') + bytes(500, 'd')));
    EXPECT_TRUE(t.abandoned.isEmpty());
}
