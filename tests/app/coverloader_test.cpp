#include "app/coverloader.h"
#include "playback/coverart.h"

#include "testaudio.h"

#include <QCoreApplication>
#include <QImage>
#include <QSignalSpy>
#include <QTest>
#include <QThreadPool>

namespace {

// Covers of files made by ffmpeg: embedded in MP3 (ID3 APIC) and FLAC (PICTURE), or a
// picture beside the file.
class CoverTest : public ::testing::Test {
protected:
    QString path(const QString &name) const { return home.file(name); }

    TestHome home;
};

TEST_F(CoverTest, EmbeddedPictureComesFromMp3AndFlacTags)
{
    TestAudio::makePicture(path("red.jpg"), "red", 64, 48);
    TestAudio::makeTone(path("a/tagged.mp3"), 1, 440, path("red.jpg"));
    TestAudio::makeTone(path("a/tagged.flac"), 1, 440, path("red.jpg"));
    TestAudio::makeTone(path("a/plain.wav"), 1, 440);
    const QByteArray jpeg = readFile(path("red.jpg"));
    ASSERT_FALSE(jpeg.isEmpty());
    EXPECT_EQ(CoverArt::embedded(path("a/tagged.mp3")), jpeg);
    EXPECT_EQ(CoverArt::embedded(path("a/tagged.flac")), jpeg);
    EXPECT_TRUE(CoverArt::embedded(path("a/plain.wav")).isEmpty());
    EXPECT_TRUE(CoverArt::embedded(path("a/missing.mp3")).isEmpty());
    writeFile(path("a/junk.mp3"), QByteArray(5000, '\x7f'));
    EXPECT_TRUE(CoverArt::embedded(path("a/junk.mp3")).isEmpty());
    EXPECT_TRUE(CoverArt::find(path("a/plain.wav")).isEmpty());
}

TEST_F(CoverTest, SidecarNamedLikeTheFileWinsOverTheFolderPicture)
{
    TestAudio::makeTone(path("album/01 Intro.wav"), 1, 440);
    EXPECT_TRUE(CoverArt::sidecarPath(path("album/01 Intro.wav")).isEmpty());
    TestAudio::makePicture(path("album/Folder.JPG"), "blue", 20, 20);
    EXPECT_EQ(CoverArt::sidecarPath(path("album/01 Intro.wav")), path("album/Folder.JPG"));
    TestAudio::makePicture(path("album/cover.png"), "green", 20, 20);
    EXPECT_EQ(CoverArt::sidecarPath(path("album/01 Intro.wav")), path("album/cover.png"));
    TestAudio::makePicture(path("album/01 Intro.jpg"), "white", 20, 20);
    EXPECT_EQ(CoverArt::sidecarPath(path("album/01 Intro.wav")), path("album/01 Intro.jpg"));
    EXPECT_EQ(CoverArt::find(path("album/01 Intro.wav")), readFile(path("album/01 Intro.jpg")));
    // An embedded picture comes before any sidecar.
    TestAudio::makePicture(path("red.jpg"), "red", 8, 8);
    TestAudio::makeTone(path("album/02 Song.mp3"), 1, 440, path("red.jpg"));
    EXPECT_EQ(CoverArt::find(path("album/02 Song.mp3")), readFile(path("red.jpg")));
}

TEST_F(CoverTest, LoaderScalesOffTheGuiThreadAndAnswersOnlyTheNewestRequest)
{
    TestAudio::makePicture(path("big.jpg"), "red", 400, 200);
    TestAudio::makeTone(path("big.mp3"), 1, 440, path("big.jpg"));
    TestAudio::makeTone(path("none.wav"), 1, 440);
    CoverLoader loader(100);
    QSignalSpy loaded(&loader, &CoverLoader::loaded);

    // The first request may be answered before the second is made, but never after it.
    loader.request(path("none.wav"));
    loader.request(path("big.mp3"));
    QTRY_VERIFY(!loaded.isEmpty() && loaded.last().at(0).toString() == path("big.mp3"));
    QThreadPool::globalInstance()->waitForDone();
    QCoreApplication::processEvents();
    ASSERT_EQ(loaded.last().at(0).toString(), path("big.mp3"));
    const QImage image = loaded.last().at(1).value<QImage>();
    EXPECT_EQ(image.size(), QSize(100, 50));
    EXPECT_GT(qRed(image.pixel(50, 25)), 200);
    loaded.clear();

    // No picture, and no file: a null image, which the window shows as the placeholder.
    loader.request(path("none.wav"));
    QTRY_COMPARE(loaded.size(), 1);
    EXPECT_TRUE(loaded.at(0).at(1).value<QImage>().isNull());
    loader.request(QString());
    ASSERT_EQ(loaded.size(), 2);
    EXPECT_TRUE(loaded.at(1).at(1).value<QImage>().isNull());
    EXPECT_FALSE(CoverLoader::placeholder(52).toImage().isNull());
}

} // namespace
