#include "clichild.h"
#include "clirunner.h"
#include "dbusfixture.h"
#include "fixtureserver.h"
#include "icystream.h"
#include "testenv.h"

#include <QDirIterator>
#include <QFileInfo>

#include <atomic>
#include <csignal>

#include <gtest/gtest.h>

namespace {

class RecordCliTest : public ::testing::Test {
protected:
    void SetUp() override { env = recordingSetUp(server); }

    TestHome home;
    FixtureServer server;
    QProcessEnvironment env;
};

// A reader that goes away (`record ... | head -n 1`) does not end the recording; a hang-up
// ends it like SIGTERM, with the song in progress saved.
TEST_F(RecordCliTest, ALostReaderAndAHangUpStillSaveEverySong)
{
    QList<QByteArray> titles;
    for (int n = 0; n < 20; ++n)
        titles << "Artist - Song " + QByteArray::number(n);
    // A new title every 75 ms for 1.5 s, lines into a pipe nobody reads; then the last plays on.
    server.route("/live", IcyStream::station(titles, 3, 25));
    QProcess head;
    CliChild recording({ "record", QString::fromLatin1(server.url("/live")), "--name", "Busy FM" }, env,
                       QStringLiteral(ORVIDA_CLI_PATH), &head);
    head.start(QStringLiteral("head"), { QStringLiteral("-n"), QStringLiteral("1") });
    ASSERT_TRUE(head.waitForFinished(10000));
    EXPECT_TRUE(head.readAllStandardOutput().startsWith("started\t"));
    EXPECT_FALSE(recording.process.waitForFinished(2500)) << "the lost reader ended the recording";
    ::kill(pid_t(recording.process.processId()), SIGHUP);
    EXPECT_EQ(recording.finish(20000), 0);
    const QStringList saved = libraryTitles();
    EXPECT_GE(saved.size(), 10) << saved.join(", ").toStdString();
    EXPECT_TRUE(saved.contains("Artist - Song 19")) << "the song on air at the hang-up: " << saved.join(", ").toStdString();
}

// Audio is flushed to its segment at least once a second, so a kill -9 loses at most
// about the last second (the segment buffer alone holds 32 KiB: 4 s of this station).
TEST_F(RecordCliTest, AKilledRecorderKeepsAllButTheLastSecond)
{
    constexpr int kBytesPerSec = 8000;
    std::atomic<qint64> audioSent{0};
    server.route("/slow", [&](const FixtureServer::Request &) {
        return FixtureServer::Script::head("ICY 200 OK", {{"icy-metaint", "1000"}}).produce(125, [&] {
            audioSent += 1000;
            return IcyStream::audioBlock(int(audioSent / 1000)) + IcyStream::metaBlock({});
        });
    });
    CliChild recording({ "record", QString::fromLatin1(server.url("/slow")), "--name", "Slow FM", "--bitrate", "64" }, env);
    ASSERT_TRUE(waitUntil([&] { return audioSent.load() >= 3 * kBytesPerSec; }, 10000));
    recording.process.kill(); // SIGKILL
    const qint64 sentAtKill = audioSent.load();
    recording.process.waitForFinished();

    qint64 onDisk = 0;
    for (QDirIterator it(home.path(), QDir::Files | QDir::Hidden, QDirIterator::Subdirectories); it.hasNext();) {
        const QFileInfo file(it.next());
        if (file.dir().dirName() == QLatin1String("tmp") && file.fileName().startsWith(QLatin1Char('.')))
            onDisk += file.size();
    }
    EXPECT_GE(onDisk, sentAtKill - kBytesPerSec * 3 / 2) << "sent " << sentAtKill;
    EXPECT_LE(onDisk, sentAtKill);
}

// An error page is a failed attempt with its reason on an error line, never a song.
TEST_F(RecordCliTest, AnErrorPageIsAFailedAttemptAndNeverASong)
{
    server.route("/gone", FixtureServer::Script::response(404, "text/html", QByteArray(13000, 'e')));
    CliChild recording({ "record", QString::fromLatin1(server.url("/gone")), "--name", "Evil" }, env);
    ASSERT_TRUE(waitUntil([&] { return recording.lines.size() >= 2; }, 10000));
    EXPECT_TRUE(recording.lines[0].startsWith("started\t"));
    EXPECT_EQ(recording.lines[1], "error\tHTTP 404; reconnecting in 2 s (attempt 1 of 8)");
    recording.process.terminate();
    EXPECT_EQ(recording.finish(20000), 0);
    EXPECT_EQ(recording.count("saved\t"), 0);
    EXPECT_TRUE(libraryTitles().isEmpty());
    QStringList files;
    for (QDirIterator it(home.file("Music"), QDir::Files | QDir::Hidden, QDirIterator::Subdirectories); it.hasNext();)
        files << it.next();
    EXPECT_TRUE(files.isEmpty()) << files.join(", ").toStdString();
}

TEST_F(RecordCliTest, AnAddressThatIsNotAUrlEndsTheRecordingWithThree)
{
    EXPECT_EQ(runCli({"record", "http://127.0.0.1:9/x", "--for", "inf"}, env).exitCode, 2);
    // (Giving up on a dead station takes eight reconnects, a minute of waiting: the
    // engine's own tests cover it with short delays.)
    const CliRun run = runCli({ "record", "not a url", "--for", "30" }, env);
    EXPECT_EQ(run.exitCode, 3);
    EXPECT_EQ(run.out, "started\tcustom:not a url\nerror\tUngültige Stream-URL\nstopped\tcustom:not a url\n");
}

// While `record` runs it holds logind's sleep block, as the headless recorder does.
class RecordSleepCliTest : public LogindBusTest {
protected:
    TestHome home;
    FixtureServer server;
};

TEST_F(RecordSleepCliTest, HoldsTheSleepInhibitorWhileRecording)
{
    if (setUpFailed())
        return;
    server.route("/live", IcyStream::station({"A - One"}, 4, 25));
    QProcessEnvironment env;
    env.insert(QStringLiteral("DBUS_SYSTEM_BUS_ADDRESS"), bus().address());
    env.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), bus().address());
    CliChild recording({ "record", QString::fromLatin1(server.url("/live")), "--name", "Held FM" }, env);
    const auto held = [](const QList<PrivateBus::InhibitorEntry> &entries) {
        return std::any_of(entries.begin(), entries.end(), [](const PrivateBus::InhibitorEntry &e) {
            return e.what == QLatin1String("sleep") && e.mode == QLatin1String("block")
                && e.why == QLatin1String("Radio recording in progress");
        });
    };
    EXPECT_TRUE(bus().waitForInhibitors(held, 10000));
    recording.process.terminate();
    EXPECT_EQ(recording.finish(20000), 0);
    EXPECT_TRUE(bus().waitForInhibitors([&](const auto &entries) { return !held(entries); }));
}

} // namespace
