#include "clichild.h"
#include "clirunner.h"
#include "fixtureserver.h"
#include "icystream.h"
#include "smallfs.h"
#include "testenv.h"

#include <QDateTime>
#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

namespace {

// What `record` prints about saving: failures as error lines, deliberate drops as
// skipped lines, and what recovery salvaged filed into the library.
class RecordSaveCliTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        env = recordingSetUp(server);
        ASSERT_EQ(runCli({"config", "set", "ov.radioSaveDir", radio}).exitCode, 0);
    }

    CliRun record(const QList<QByteArray> &titles, const QString &seconds = "1")
    {
        server.route("/live", IcyStream::station(titles, 4, 25));
        return runCli({"record", QString::fromLatin1(server.url("/live")), "--name", "Fixture FM", "--for", seconds}, env);
    }

    static QList<QByteArray> linesStartingWith(const CliRun &run, const QByteArray &prefix)
    {
        QList<QByteArray> found;
        for (const QByteArray &line : run.out.split('\n')) {
            if (line.startsWith(prefix))
                found << line;
        }
        return found;
    }

    TestHome home;
    FixtureServer server;
    QProcessEnvironment env;
    const QString radio = home.file("Radio");
};

TEST_F(RecordSaveCliTest, AReadOnlyRadioFolderIsReportedAtOnce)
{
    SmallFileSystem disk(radio, 64 * 1024);
    if (!disk.mounted() || !disk.makeReadOnly())
        GTEST_SKIP() << SmallFileSystem::reason();
    const CliRun run = record({"A - One", "B - Two"});
    EXPECT_EQ(run.exitCode, 1) << "a recording that saved nothing must not exit as a success";
    EXPECT_EQ(linesStartingWith(run, "error\t"),
              QList<QByteArray>{"error\tradio folder cannot be written: " + radio.toUtf8() + ": Read-only file system"})
        << run.out.toStdString();
    EXPECT_EQ(linesStartingWith(run, "saved\t"), QList<QByteArray>());
}

TEST_F(RecordSaveCliTest, ASongWhoseNameIsTakenIsReportedAsSkipped)
{
    // Two titles, one file name; the second take is no longer than the first.
    const CliRun run = record({"AC/DC - Song", "AC-DC - Song", "Z - End"});
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    const QByteArray name = radio.toUtf8() + "/AC-DC - Song.mp3";
    EXPECT_TRUE(linesStartingWith(run, "saved\t").contains("saved\t" + name)) << run.out.toStdString();
    EXPECT_EQ(linesStartingWith(run, "skipped\t"),
              QList<QByteArray>{"skipped\tAC-DC - Song\t" + name + " already holds a recording at least as long"})
        << run.out.toStdString();
}

TEST_F(RecordSaveCliTest, RecoveredAudioEntersTheLibraryAndAPageIsDropped)
{
    const QString tmp = radio + "/tmp";
    QDir().mkpath(tmp);
    const QDateTime crash(QDate(2024, 3, 9), QTime(23, 5, 7));
    const auto leftover = [&](const QString &name, const QByteArray &bytes) {
        const QString path = tmp + "/" + name;
        writeFile(path, bytes);
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::ReadWrite) && file.setFileTime(crash, QFileDevice::FileModificationTime));
        return path;
    };
    leftover(".0F8FAD5B-D9CB-469F-A165-70867728950E.mp3", IcyStream::audioBlock(0) + IcyStream::audioBlock(1));
    const QString page = leftover(".7C9E6679-7425-40DE-944B-E07FC1F90AE7.mp3", "<html>500 Internal Server Error</html>");

    const CliRun run = record({"A - One"});
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(linesStartingWith(run, "skipped\t"), QList<QByteArray>{"skipped\t" + page.toUtf8() + "\tno audio frames"});

    const QStringList titles = libraryTracks([](const Track &t) { return t.title + " | " + t.filePath.value_or(QString()); });
    const QString recovered = "Recovered 2024-03-09 23-05-07";
    EXPECT_TRUE(titles.contains(recovered + " | " + radio + "/Recovered/" + recovered + ".mp3")) << titles.join('\n').toStdString();
    EXPECT_EQ(readFile(radio + "/Recovered/" + recovered + ".mp3"), IcyStream::audioBlock(0) + IcyStream::audioBlock(1));
}

TEST_F(RecordSaveCliTest, WhenFfmpegFailsTheStreamBytesAreSavedWithANotice)
{
    // orvida-cli looks for ffmpeg next to itself first: a copy beside a failing one.
    const QString bin = home.file("bin");
    QDir().mkpath(bin);
    ASSERT_TRUE(QFile::copy(QStringLiteral(ORVIDA_CLI_PATH), bin + "/orvida-cli"));
    writeFile(bin + "/ffmpeg", "#!/bin/sh\necho 'Unknown encoder libmp3lame' >&2\nexit 1\n");
    for (const QString &program : {bin + "/orvida-cli", bin + "/ffmpeg"})
        QFile::setPermissions(program, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    ASSERT_EQ(runCli({"engine", "set", "--lossless", "off"}).exitCode, 0);
    server.route("/live", IcyStream::station({"A - One", "B - Two"}, 4, 25));

    CliChild recording({"record", QString::fromLatin1(server.url("/live")), "--for", "1"}, env, bin + "/orvida-cli");
    ASSERT_EQ(recording.finish(), 0) << recording.process.readAllStandardError().toStdString();

    const QByteArray path = radio.toUtf8() + "/A - One.mp3";
    const QList<QByteArray> &lines = recording.lines;
    const auto notice = lines.indexOf("error\t\"A - One\" saved without re-encoding: ffmpeg failed (status 1): "
                                      "Unknown encoder libmp3lame");
    ASSERT_GE(notice, 0) << recording.joined().toStdString();
    EXPECT_EQ(lines.value(notice + 1), "saved\t" + path);
    // The stream's own frames behind an ID3 tag.
    const QByteArray file = readFile(QString::fromUtf8(path));
    EXPECT_TRUE(file.startsWith("ID3"));
    EXPECT_TRUE(file.endsWith(IcyStream::audioBlock(4))) << "blocks 1 to 4 are the first song";
}

} // namespace
