#include "library/librarystore.h"

#include "clirunner.h"
#include "fixtureserver.h"
#include "icystream.h"
#include "testenv.h"

#include <QFileInfo>

#include <gtest/gtest.h>

namespace {

class RecordCliTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(runCli({ "engine", "set", "--lossless", "on", "--min-duration", "0" }).exitCode, 0);
        env.insert(QStringLiteral("ORVIDA_STORE_URL"), QString::fromLatin1(server.url("/search"))); // answers 404
    }

    TestHome home;
    FixtureServer server;
    QProcessEnvironment env;
};

TEST_F(RecordCliTest, RecordsForAWhileAndFilesEverySongIncludingTheLastOne)
{
    server.route("/live", IcyStream::station({ "A - One", "B - Two" }, 4, 25));
    const QString url = QString::fromLatin1(server.url("/live"));
    const CliRun run = runCli({ "record", url, "--name", "Fixture FM", "--for", "1" }, env);
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();

    const QList<QByteArray> lines = run.out.trimmed().split('\n');
    ASSERT_FALSE(lines.isEmpty());
    EXPECT_EQ(lines.first(), "started\tcustom:" + url.toUtf8());
    EXPECT_TRUE(lines.contains("title\tA - One"));
    EXPECT_TRUE(lines.contains("stopped\tcustom:" + url.toUtf8())) << run.out.toStdString();
    QStringList saved;
    for (const QByteArray &l : lines) {
        if (l.startsWith("saved\t"))
            saved << QString::fromUtf8(l.mid(6));
    }
    // "B - Two" was still playing at the stop and is saved before the exit.
    ASSERT_EQ(saved.size(), 2) << run.out.toStdString();
    EXPECT_TRUE(saved[1].contains("B - Two")) << saved[1].toStdString();

    LibraryOpenResult opened = LibraryStore::open(LibraryStore::defaultPath());
    ASSERT_TRUE(opened) << opened.message.toStdString();
    QStringList filed;
    for (const Track &t : opened.store->allTracks())
        filed << *t.filePath;
    EXPECT_EQ(filed, saved);
    for (const QString &path : saved)
        EXPECT_TRUE(QFileInfo::exists(path)) << path.toStdString();
}

TEST_F(RecordCliTest, AnAddressThatIsNotAUrlEndsTheRecordingWithThree)
{
    // (Giving up on a dead station takes eight reconnects, a minute of waiting: the
    // engine's own tests cover it with short delays.)
    const CliRun run = runCli({ "record", "not a url", "--for", "30" }, env);
    EXPECT_EQ(run.exitCode, 3);
    EXPECT_EQ(run.out, "started\tcustom:not a url\nerror\tUngültige Stream-URL\nstopped\tcustom:not a url\n");
}

} // namespace
