#include "engine/apppaths.h"
#include "engine/id3tag.h"
#include "engine/streamplaylist.h"
#include "engine/tracktitle.h"

#include <QDir>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

TEST(TrackTitle, SplitsAtTheFirstSeparator)
{
    EXPECT_EQ(TrackTitle::split("A - B - C").artist, "A");
    EXPECT_EQ(TrackTitle::split("A - B - C").title, "B - C");
    EXPECT_EQ(TrackTitle::split("Just a title").artist, "");
    EXPECT_EQ(TrackTitle::split("Just a title").title, "Just a title");
    EXPECT_EQ(TrackTitle::split("AC-DC - Thunder").artist, "AC-DC");
}

TEST(TrackTitle, RecognisesJinglesAdvertsAndPlaceholders)
{
    for (const char *kept : {"Queen - Bohemian Rhapsody", "Jingle Jangle - Summer Song", "Band - Advertising Space - Live",
                             "Artist - Jinglebells Remix"})
        EXPECT_FALSE(TrackTitle::looksLikeJingle(QString::fromUtf8(kept))) << kept;
    for (const char *dropped : {"Station ID", "Radio X - Station ID", "Radio X - Werbung", "Radio X - StationID",
                                "Artist - Unknown", "Artist - n/a", "Artist - NA", "Artist -  - ", "Artist - ",
                                "Radio X - Commercial Break", "Sender - Advertisement", "Sender - JINGLE"})
        EXPECT_TRUE(TrackTitle::looksLikeJingle(QString::fromUtf8(dropped))) << dropped;
}

TEST(TrackTitle, ControlCharactersBecomeSpaces)
{
    EXPECT_EQ(TrackTitle::withoutControlCharacters(QStringLiteral("A\n - B\x01\x7f")), "A  - B");
}

TEST(AppPaths, NamesFollowThePatternsAndStayInsideTheRadioFolder)
{
    QTemporaryDir dir;
    const QString root = dir.path() + "/Radio";
    const AppPaths::NamingValues v{"Queen", "Bohemian Rhapsody", "Queen - Bohemian Rhapsody", "Rock FM", QDate(2026, 11, 22)};

    EXPECT_EQ(AppPaths::recordingPath(root, "", "", v, "mp3", false), root + "/Queen - Bohemian Rhapsody.mp3");
    EXPECT_EQ(AppPaths::recordingPath(root, "%artist%/%title%", "", v, "mp3", false),
              root + "/Queen-Bohemian Rhapsody.mp3");
    EXPECT_EQ(AppPaths::recordingPath(root, "%title%", "%station%/%date%", v, "aac", true),
              root + "/Rock FM/2026-11-22/Bohemian Rhapsody.aac");
    EXPECT_TRUE(QDir(root + "/Rock FM/2026-11-22").exists());

    const AppPaths::NamingValues odd{"AC/DC", "What? Why: Now*", "AC/DC - What? Why: Now*", "..", {}};
    EXPECT_EQ(AppPaths::recordingPath(root, "", "", odd, "mp3", false), root + "/AC-DC - What- Why- Now-.mp3");

    // Values that would climb out of the folder or hide the file get stand-ins.
    const AppPaths::NamingValues hostile{"..", "..", "../../etc/passwd", "..", {}};
    for (const char *pattern : {"%streamtitle%", "%title%", "%artist%", ".%title%"}) {
        const auto path = AppPaths::recordingPath(root, pattern, "%station%/%artist%", hostile, "mp3", false);
        ASSERT_TRUE(path.has_value()) << pattern;
        EXPECT_TRUE(path->startsWith(root + "/")) << qPrintable(*path);
        EXPECT_FALSE(QFileInfo(*path).fileName().startsWith('.')) << qPrintable(*path);
        EXPECT_FALSE(path->contains("/../")) << qPrintable(*path);
    }
}

TEST(AppPaths, OverlongNamesAreCutOnCharacterBoundaries)
{
    const QString name = QString(300, QChar(0x00E4)); // 2 bytes each in UTF-8
    const QString fitted = AppPaths::fitFileName(name, "mp3");
    EXPECT_LE(fitted.toUtf8().size() + 4, 255);
    EXPECT_GE(fitted.toUtf8().size() + 4, 253);
    EXPECT_EQ(QString::fromUtf8(fitted.toUtf8()), fitted); // no broken sequence

    const QString emoji = QString(100, QChar(0x20)) + QString::fromUtf8("\xF0\x9F\x8E\xB5").repeated(80);
    const QString cut = AppPaths::fitFileName(emoji, "mp3");
    EXPECT_FALSE(cut.isEmpty());
    EXPECT_FALSE(cut.back().isHighSurrogate());
    EXPECT_LE(cut.toUtf8().size() + 4, 255);
}

TEST(StreamPlaylist, FindsTheFirstStreamAddress)
{
    EXPECT_EQ(StreamPlaylist::firstStreamUrl("[playlist]\nNumberOfEntries=2\nFile1=http://a.example/live\nTitle1=x\n"),
              QUrl("http://a.example/live"));
    EXPECT_EQ(StreamPlaylist::firstStreamUrl("#EXTM3U\r\n#EXTINF:-1,Radio\r\n\r\nhttps://b.example:8000/s.mp3\r\n"),
              QUrl("https://b.example:8000/s.mp3"));
    // A File entry that is not http falls through; a later http line still counts.
    EXPECT_EQ(StreamPlaylist::firstStreamUrl("File1=ftp://c.example/x\nFile2= http://d.example/y \n"),
              QUrl("http://d.example/y"));
    EXPECT_EQ(StreamPlaylist::firstStreamUrl("just text\n#http://commented.example\n"), std::nullopt);
    EXPECT_EQ(StreamPlaylist::firstStreamUrl(QByteArray("\xFF\xFE garbage")), std::nullopt);

    EXPECT_TRUE(StreamPlaylist::isPlaylistUrl(QUrl("http://x/listen.PLS")));
    EXPECT_TRUE(StreamPlaylist::isPlaylistUrl(QUrl("http://x/a.m3u?sid=1")));
    EXPECT_FALSE(StreamPlaylist::isPlaylistUrl(QUrl("http://x/a.m3u8")));
}

TEST(Id3Tag, LaysOutHeaderFramesAndCoverByteForByte)
{
    const QByteArray tag = Id3Tag::buildID3v2Tag("Tïtle", "Artist", "", QByteArray("\xFF\xD8jpeg", 6));
    const QByteArray expectedFrames = QByteArray("TIT2") + QByteArray("\x00\x00\x00\x07\x00\x00\x03", 7) + "T\xC3\xAFtle"
        + "TPE1" + QByteArray("\x00\x00\x00\x07\x00\x00\x03", 7) + "Artist"
        + "APIC" + QByteArray("\x00\x00\x00\x14\x00\x00\x03", 7) + "image/jpeg" + QByteArray("\x00\x03\x00", 3)
        + QByteArray("\xFF\xD8jpeg", 6);
    ASSERT_EQ(tag.left(6), QByteArray("ID3\x03\x00\x00", 6));
    const int size = (tag[6] << 21) | (tag[7] << 14) | (tag[8] << 7) | tag[9];
    EXPECT_EQ(size, expectedFrames.size());
    EXPECT_EQ(tag.mid(10), expectedFrames);

    // Sizes above 127 must be syncsafe: no byte of the size has its top bit set.
    const QByteArray big = Id3Tag::buildID3v2Tag("t", "a", "b", QByteArray(300000, 'x'));
    for (int i = 6; i < 10; ++i)
        EXPECT_EQ(big[i] & 0x80, 0);
    EXPECT_EQ(((big[6] << 21) | (big[7] << 14) | (big[8] << 7) | big[9]), big.size() - 10);
}

} // namespace
