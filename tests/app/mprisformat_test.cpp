#include "app/mprisformat.h"
#include "library/track.h"

#include <QStringList>
#include <QUrl>

#include <gtest/gtest.h>

namespace {

Track libraryTrack()
{
    Track track(QStringLiteral("Title"), QStringLiteral("Artist"), QStringLiteral("Album"), 181.5, QDateTime(),
        QString(), false, 0, QStringLiteral("radio"), std::nullopt, QStringLiteral("/music/a b.mp3"));
    track.id = 42;
    return track;
}

TEST(MprisFormat, TrackIdsComeFromTheLibraryOrTheQueue)
{
    Track track = libraryTrack();
    EXPECT_EQ(MprisFormat::trackId(track, 3).path(), QStringLiteral("/app/orvida/Orvida/track/42"));
    // Not in the library: the place in the queue, still a valid object path.
    track.id = 0;
    EXPECT_EQ(MprisFormat::trackId(track, 3).path(), QStringLiteral("/app/orvida/Orvida/queue/3"));
    EXPECT_EQ(MprisFormat::trackId(track, -1).path(), QStringLiteral("/app/orvida/Orvida/queue/0"));
}

TEST(MprisFormat, MetadataLeavesOutWhatIsNotKnown)
{
    const QVariantMap none = MprisFormat::metadata(std::nullopt, -1, 0, std::nullopt);
    ASSERT_EQ(none.size(), 1);
    EXPECT_EQ(none.value(QStringLiteral("mpris:trackid")).value<QDBusObjectPath>(), MprisFormat::noTrack());

    Track track = libraryTrack();
    const QVariantMap full = MprisFormat::metadata(track, 0, 180.25, QStringLiteral("/cache/covers/42.png"));
    EXPECT_EQ(full.value(QStringLiteral("mpris:length")).toLongLong(), 180'250'000); // the decoder's length wins
    EXPECT_EQ(full.value(QStringLiteral("xesam:artist")).toStringList(), QStringList { QStringLiteral("Artist") });
    EXPECT_EQ(full.value(QStringLiteral("mpris:artUrl")).toString(), QStringLiteral("file:///cache/covers/42.png"));
    EXPECT_EQ(full.value(QStringLiteral("xesam:url")).toString(), QStringLiteral("file:///music/a%20b.mp3"));

    track.artist.clear();
    track.album.clear();
    const QVariantMap sparse = MprisFormat::metadata(track, 0, 0, std::nullopt);
    EXPECT_EQ(sparse.value(QStringLiteral("mpris:length")).toLongLong(), 181'500'000); // the library's
    EXPECT_FALSE(sparse.contains(QStringLiteral("xesam:artist")));
    EXPECT_FALSE(sparse.contains(QStringLiteral("xesam:album")));
    EXPECT_FALSE(sparse.contains(QStringLiteral("mpris:artUrl")));
}

TEST(MprisFormat, LoopStatusNamesTheRepeatModes)
{
    for (const Player::Repeat repeat : { Player::Repeat::off, Player::Repeat::one, Player::Repeat::all })
        EXPECT_EQ(MprisFormat::repeatFor(MprisFormat::loopStatus(repeat)), repeat);
    EXPECT_EQ(MprisFormat::loopStatus(Player::Repeat::one), QStringLiteral("Track"));
    EXPECT_EQ(MprisFormat::loopStatus(Player::Repeat::all), QStringLiteral("Playlist"));
    EXPECT_EQ(MprisFormat::repeatFor(QStringLiteral("playlist")), std::nullopt);
}

} // namespace
