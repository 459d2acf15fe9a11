#include "engine/tracksegmenter.h"

#include "testenv.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <gtest/gtest.h>

// The cut rules themselves are CutPlanner's tests; these check that the segmenter carries
// the plans out on the right files.

namespace {

struct Handed {
    QString title;
    QList<QByteArray> pieces;
    bool locked = true; // every piece still locked when it arrived
};

TrackSegmenter::Hooks collect(std::vector<Handed> &songs, TrackSegmenter::Padding &padding)
{
    return {[&padding] { return padding; },
            [&songs](std::vector<SegmentLock> segments, const QString &title) {
                Handed song{title, {}, true};
                for (const SegmentLock &lock : segments) {
                    song.pieces << readFile(lock.path());
                    song.locked = song.locked && !SegmentLock::tryAcquire(lock.path());
                }
                songs.push_back(song);
            },
            {}};
}

QStringList hiddenFiles(const QString &dir)
{
    return QDir(dir).entryList(QDir::Files | QDir::Hidden);
}

} // namespace

TEST(TrackSegmenter, WritesHiddenLockedSegmentsAndDeletesWhatIsThrownAway)
{
    QTemporaryDir home;
    const QString tmp = home.filePath("Radio/tmp"); // made on the first segment
    std::vector<Handed> songs;
    TrackSegmenter::Padding padding;
    TrackSegmenter seg(tmp, 4000, std::nullopt, QStringLiteral("Station"), collect(songs, padding));
    seg.setContentType(QStringLiteral("audio/aacp"));

    seg.openSegment();
    seg.writeAudio("before the first title");
    seg.flush();
    ASSERT_EQ(hiddenFiles(tmp).size(), 1);
    EXPECT_TRUE(hiddenFiles(tmp).first().contains(QRegularExpression("^\\.[0-9A-F-]{36}\\.aac$")));
    EXPECT_EQ(readFile(tmp + '/' + hiddenFiles(tmp).first()), "before the first title");

    seg.handleTitle(QStringLiteral("A"));
    EXPECT_EQ(hiddenFiles(tmp).size(), 1) << "the audio before the first title is deleted";
    seg.writeAudio("a1");
    seg.finalizeSegment(false);
    seg.openSegment();
    seg.finalizeSegment(false); // a connection that brought nothing leaves no file
    seg.openSegment();
    seg.writeAudio("a2");
    padding = {.leadInSec = 0, .leadOutSec = 1};
    seg.handleTitle(QStringLiteral("B"));
    EXPECT_TRUE(seg.isCutPending());
    seg.writeAudio(QByteArray(4000, 'b'));
    ASSERT_EQ(songs.size(), 1u);
    EXPECT_EQ(songs[0].title, QStringLiteral("A"));
    EXPECT_EQ(songs[0].pieces, (QList<QByteArray>{"a1", "a2" + QByteArray(4000, 'b')}));
    EXPECT_TRUE(songs[0].locked);

    seg.finalizeSegment(true);
    ASSERT_EQ(songs.size(), 2u);
    EXPECT_EQ(songs[1].title, QStringLiteral("B"));
    EXPECT_EQ(songs[1].pieces, (QList<QByteArray>{QByteArray(4000, 'b')}));
    // Only the handed-over songs' files are left, for the saver to delete.
    EXPECT_EQ(hiddenFiles(tmp).size(), 3);
}

TEST(TrackSegmenter, SegmentsThatCannotBeCreatedRecordNothing)
{
    std::vector<Handed> songs;
    TrackSegmenter::Padding padding;
    TrackSegmenter seg(QStringLiteral("/dev/null/tmp"), 4000, std::nullopt, QStringLiteral("Station"),
                       collect(songs, padding));
    seg.openSegment();
    seg.handleTitle(QStringLiteral("A"));
    seg.writeAudio("lost");
    seg.handleTitle(QStringLiteral("B"));
    seg.writeAudio("lost too");
    seg.finalizeSegment(true);
    EXPECT_TRUE(songs.empty());
    EXPECT_EQ(seg.lastTitle(), QStringLiteral("B"));
}
