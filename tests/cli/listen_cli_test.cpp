#include "clichild.h"
#include "clirunner.h"
#include "fixtureserver.h"
#include "icecastfixture.h"
#include "icystream.h"
#include "testenv.h"

#include <QDir>
#include <QProcess>

#include <memory>

#include <gtest/gtest.h>

namespace {

// `listen` plays through the relay into the player (the null output here) while its
// capture keeps the song playing; --save-at saves that song from its title change.
class ListenCliTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        env = recordingSetUp(server);
        ASSERT_EQ(runCli({ "config", "set", "ov.radioSaveDir", radio }).exitCode, 0);
        QProcess ffmpeg;
        ffmpeg.start("/usr/bin/ffmpeg",
            { "-v", "error", "-f", "lavfi", "-i", "sine=frequency=330:sample_rate=32000:duration=20", "-ac", "1",
                "-c:a", "libmp3lame", "-b:a", "128k", "-write_xing", "0", "-id3v2_version", "0", "-f", "mp3",
                "pipe:1" });
        ASSERT_TRUE(ffmpeg.waitForFinished(60000));
        programme.mp3 = ffmpeg.readAllStandardOutput();
        ASSERT_GT(programme.mp3.size(), 0);
        ASSERT_EQ(programme.mp3.size() % 576, 0) << "whole 576-byte frames";
        programme.metaint = 7 * 576;
    }

    // Runs `listen` to its end against the programme, served at 10 times real time (a
    // block is a quarter of a second of stream).
    int listen(const QStringList &options)
    {
        server.route("/live", programme.handler(25));
        child = std::make_unique<CliChild>(
            QStringList { "listen", QString::fromLatin1(server.url("/live")) } + options, env);
        const int exitCode = child->finish(30000);
        err = QString::fromUtf8(child->process.readAllStandardError());
        return exitCode;
    }

    TestHome home;
    FixtureServer server;
    QProcessEnvironment env;
    const QString radio = home.file("Radio");
    IcyStream::Mp3Programme programme;
    std::unique_ptr<CliChild> child;
    QString err;
};

TEST_F(ListenCliTest, SavesTheSongPlayingAtSaveAtFromItsStartAndFilesIt)
{
    // A for 1 s, B from 1 s to 6 s after the start (later when the machine is busy).
    programme.songs = { { "A - Joined", 40 }, { "B - Whole", 200 }, { "C - Next", 1000 } };
    const int exitCode = listen({ "--name", "Fixture FM", "--for", "3.5", "--save-at", "3" });
    ASSERT_EQ(exitCode, 0) << child->joined().toStdString() << "\n" << err.toStdString();

    const QList<QByteArray> titles = child->starting("title\t");
    EXPECT_TRUE(titles.contains("title\tA - Joined")) << child->joined().toStdString();
    EXPECT_TRUE(titles.contains("title\tB - Whole")) << child->joined().toStdString();
    const QString path = radio + "/B - Whole.mp3";
    ASSERT_EQ(child->starting("saved\t"), QList<QByteArray> { "saved\t" + path.toUtf8() })
        << child->joined().toStdString();
    EXPECT_EQ(child->count("error\t"), 0) << child->joined().toStdString();
    EXPECT_EQ(withoutId3v2Tag(readFile(path)), programme.songAudio(1));
    EXPECT_EQ(libraryFiles(), QStringList { path });
    EXPECT_TRUE(QDir(radio + "/tmp").entryList(QDir::Files | QDir::Hidden).isEmpty());
}

TEST_F(ListenCliTest, ASaveOfTheSongListeningJoinedFailsWithTheReason)
{
    programme.songs = { { "A - Joined", 1000 } };
    EXPECT_EQ(listen({ "--for", "2", "--save-at", "1" }), 1) << child->joined().toStdString();
    EXPECT_EQ(child->starting("error\t\"A - Joined\" not saved: this song began before listening did").size(), 1)
        << child->joined().toStdString();
    EXPECT_TRUE(err.contains("the song playing at 1 s was not saved")) << err.toStdString();
    EXPECT_EQ(child->count("saved\t"), 0);
}

} // namespace
