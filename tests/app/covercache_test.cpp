#include "app/covercache.h"
#include "library/track.h"

#include "testenv.h"

#include <QDateTime>
#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

namespace {

// One MP3 made by ffmpeg with an embedded PNG, and the caches of three program runs over
// the same folder.
class CoverCacheTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        // Not beside the song: a picture there would count as its cover.
        QDir().mkpath(home.file(QStringLiteral("art")));
        const QString png = home.file(QStringLiteral("art/cover.png"));
        QString error;
        ASSERT_TRUE(runProgram(QStringLiteral("ffmpeg"),
            { "-v", "error", "-y", "-f", "lavfi", "-i", "color=c=blue:s=4x4", "-frames:v", "1", png }, &error))
            << error.toStdString();
        coverBytes = readFile(png);
        audio = home.file(QStringLiteral("song.mp3"));
        ASSERT_TRUE(runProgram(QStringLiteral("ffmpeg"),
            { "-v", "error", "-y", "-f", "lavfi", "-i", "sine=duration=1", "-i", png, "-map", "0:a", "-map", "1:v",
                "-c:a", "libmp3lame", "-c:v", "png", "-disposition:v", "attached_pic", audio },
            &error))
            << error.toStdString();
        track.id = 7;
        track.filePath = audio;
    }

    // What one run's cache answers for the track, waiting for its look-up.
    QString lookUp()
    {
        CoverCache cache(folder());
        EXPECT_EQ(cache.coverPath(track), std::nullopt); // never answered from the disk on this thread
        QString found;
        bool done = false;
        QObject::connect(&cache, &CoverCache::coverLookedUp, &cache, [&](qint64 id, const QString &path) {
            EXPECT_EQ(id, 7);
            found = path;
            done = true;
        });
        EXPECT_TRUE(waitUntil([&] { return done; }, 10000));
        EXPECT_EQ(cache.coverPath(track), found.isEmpty() ? std::nullopt : std::optional(found));
        return found;
    }

    QString folder() const { return home.file(QStringLiteral("cache/covers")); }

    TestHome home;
    QByteArray coverBytes;
    QString audio;
    Track track;
};

TEST_F(CoverCacheTest, ExtractsOnceAndRefreshesWhenTheFileChanges)
{
    const QString saved = lookUp();
    EXPECT_EQ(saved, folder() + QStringLiteral("/7.png"));
    EXPECT_EQ(readFile(saved), coverBytes);

    // A later run finds the file newer than the song and does not extract again.
    writeFile(saved, QByteArray("kept"));
    EXPECT_EQ(lookUp(), saved);
    EXPECT_EQ(readFile(saved), QByteArray("kept"));

    // The song was retagged since: its picture is taken again.
    QFile song(audio);
    ASSERT_TRUE(song.open(QIODevice::ReadWrite));
    ASSERT_TRUE(song.setFileTime(QDateTime::currentDateTime().addSecs(3600), QFileDevice::FileModificationTime));
    song.close();
    EXPECT_EQ(lookUp(), saved);
    EXPECT_EQ(readFile(saved), coverBytes);
}

TEST_F(CoverCacheTest, ASongWithoutPictureHasNone)
{
    const QString plain = home.file(QStringLiteral("plain.wav"));
    QString error;
    ASSERT_TRUE(runProgram(
        QStringLiteral("ffmpeg"), { "-v", "error", "-y", "-f", "lavfi", "-i", "sine=duration=1", plain }, &error))
        << error.toStdString();
    track.filePath = plain;
    EXPECT_TRUE(lookUp().isEmpty());
    EXPECT_FALSE(QFile::exists(folder() + QStringLiteral("/7.png")));
}

} // namespace
