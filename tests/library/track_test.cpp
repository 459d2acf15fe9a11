#include "library/playlist.h"
#include "library/track.h"

#include <QSet>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

Track trackWithDuration(double durationSec)
{
    return Track(QStringLiteral("t"), QStringLiteral("a"), QStringLiteral("b"), durationSec,
                 QDateTime::currentDateTimeUtc(), QString(), false, 0, QStringLiteral("radio"), std::nullopt,
                 std::nullopt);
}

TEST(TrackTest, DateAddedIsKeptInUtc)
{
    // Same instant, kept in UTC so that what is stored and what is compared agree.
    const QDateTime added(QDate(2024, 3, 1), QTime(12, 30), Qt::OffsetFromUTC, 3600);
    const Track t(QStringLiteral("Song"), QStringLiteral("Artist"), QStringLiteral("Album"), 187.5, added, QString(),
                  false, 0, QStringLiteral("radio"), std::nullopt, std::nullopt);
    EXPECT_EQ(t.id, 0);
    EXPECT_EQ(t.dateAdded, added);
    EXPECT_EQ(t.dateAdded.timeSpec(), Qt::UTC);
    EXPECT_EQ(t.dateAdded.time(), QTime(11, 30));
}

TEST(TrackTest, DurationThatIsNotStorableBecomesZeroAtConstruction)
{
    const double inf = std::numeric_limits<double>::infinity();
    for (double bad : {std::numeric_limits<double>::quiet_NaN(), inf, -inf, 9.3e18, -9.3e18, 1e300}) {
        const Track t = trackWithDuration(bad);
        EXPECT_EQ(t.duration, 0.0) << bad;
        EXPECT_EQ(t.formattedDuration(), "0:00") << bad;
    }
    // The largest doubles that still fit qint64 are kept.
    const double justFits = std::nextafter(9223372036854775808.0, 0.0);
    EXPECT_EQ(trackWithDuration(justFits).duration, justFits);
    EXPECT_EQ(trackWithDuration(-9223372036854775808.0).duration, -9223372036854775808.0);
}

TEST(TrackTest, FormattedDurationTruncatesAndHasNoHourField)
{
    EXPECT_EQ(trackWithDuration(125.9).formattedDuration(), "2:05");
    EXPECT_EQ(trackWithDuration(3725).formattedDuration(), "62:05");
    EXPECT_EQ(trackWithDuration(0.9).formattedDuration(), "0:00");
    EXPECT_EQ(trackWithDuration(59.999).formattedDuration(), "0:59");
    EXPECT_EQ(trackWithDuration(60).formattedDuration(), "1:00");
    // A field written after construction is not trusted either.
    Track t = trackWithDuration(10);
    t.duration = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(t.formattedDuration(), "0:00");
}

TEST(TrackTest, EntryShowsDashesBelowOneWholeSecond)
{
    const auto entry = [](double d) {
        return PlaylistEntry(QStringLiteral("t"), QStringLiteral("a"), d, std::nullopt, 0, std::nullopt);
    };
    EXPECT_EQ(entry(0.9).formattedDuration(), "--:--");
    EXPECT_EQ(entry(0).formattedDuration(), "--:--");
    EXPECT_EQ(entry(-30).formattedDuration(), "--:--");
    EXPECT_EQ(entry(std::numeric_limits<double>::quiet_NaN()).formattedDuration(), "--:--");
    EXPECT_EQ(entry(1).formattedDuration(), "0:01");
    EXPECT_EQ(entry(3725.2).formattedDuration(), "62:05");
}

TEST(TrackTest, FileUrlExistsOnlyForAPath)
{
    Track t = trackWithDuration(1);
    EXPECT_FALSE(t.fileUrl());
    t.filePath = QString();
    EXPECT_FALSE(t.fileUrl());
    t.filePath = QStringLiteral("/home/u/Musik/Orvida/Radio/Sender/A – B #1.mp3");
    ASSERT_TRUE(t.fileUrl());
    EXPECT_TRUE(t.fileUrl()->isLocalFile());
    EXPECT_EQ(t.fileUrl()->toLocalFile(), *t.filePath);
}

TEST(TrackTest, IdentityIsTheStoredIdNotTheFields)
{
    Track stored = trackWithDuration(100);
    stored.id = 42;
    Track edited = stored;
    edited.title = QStringLiteral("renamed");
    edited.playCount = 9;
    EXPECT_EQ(stored, edited);
    EXPECT_EQ(qHash(stored), qHash(edited));

    Track other = stored;
    other.id = 43;
    EXPECT_NE(stored, other);

    // Not stored yet: nothing but the values can tell two tracks apart, and a stored
    // track is never the same as an unstored one.
    const Track unsaved = trackWithDuration(100);
    Track unsavedCopy = unsaved;
    EXPECT_EQ(unsaved, unsavedCopy);
    unsavedCopy.title = QStringLiteral("other");
    EXPECT_NE(unsaved, unsavedCopy);
    Track storedTwin = unsaved;
    storedTwin.id = 5;
    EXPECT_NE(unsaved, storedTwin);

    QSet<Track> set{stored, edited, other};
    EXPECT_EQ(set.size(), 2);
}

} // namespace
