// State files that the window and orvida-cli share, driven through real processes:
// concurrent writers add up, damaged files are kept, failed writes say so.
#include "clichild.h"
#include "clirunner.h"
#include "fixtureserver.h"
#include "icystream.h"
#include "smallfs.h"
#include "testenv.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

#include <memory>

namespace {

QString dataFile(const QString &name)
{
    return qEnvironmentVariable("XDG_DATA_HOME") + QStringLiteral("/Orvida/") + name;
}

class StateFilesCliTest : public ::testing::Test {
protected:
    // The paths a recording printed as saved; each must be a file.
    static QStringList savedPaths(const CliChild &child)
    {
        QStringList paths;
        for (const QByteArray &line : child.starting("saved\t")) {
            paths << QString::fromUtf8(line.mid(6));
            EXPECT_TRUE(QFileInfo::exists(paths.last())) << line.toStdString();
        }
        return paths;
    }

    TestHome home;
};

TEST_F(StateFilesCliTest, TwoRecordingsAtOnceOnAFreshFolderFileEverySongAndCountItOnce)
{
    FixtureServer server;
    server.route("/a", IcyStream::station({ "A - One", "A - Two", "A - Three" }, 3, 25));
    server.route("/b", IcyStream::station({ "B - One", "B - Two", "B - Three" }, 3, 25));
    const QProcessEnvironment env = recordingSetUp(server);
    ASSERT_FALSE(QFileInfo::exists(LibraryStore::defaultPath())) << "both must race to create the library";

    // Started together: both create and migrate the same new library, and both count
    // their songs into one statistics file.
    const QByteArray stationA = "custom:" + server.url("/a");
    CliChild a({ "record", QString::fromLatin1(server.url("/a")), "--name", "Alpha", "--for", "1" }, env);
    CliChild b({ "record", QString::fromLatin1(server.url("/b")), "--name", "Beta", "--for", "1" }, env);
    ASSERT_EQ(a.finish(), 0) << a.process.readAllStandardError().toStdString();
    ASSERT_EQ(b.finish(), 0) << b.process.readAllStandardError().toStdString();
    const QStringList filesA = savedPaths(a);
    const QStringList filesB = savedPaths(b);
    const qsizetype savedA = filesA.size();
    const qsizetype savedB = filesB.size();
    ASSERT_GE(savedA, 2) << a.joined().toStdString();
    ASSERT_GE(savedB, 2) << b.joined().toStdString();
    // What `record` prints: its start first, titles, its stop; the song on air at the stop
    // is saved before the exit.
    EXPECT_EQ(a.lines.first(), "started\t" + stationA);
    EXPECT_EQ(a.starting("stopped\t"), QList<QByteArray> { "stopped\t" + stationA }) << a.joined().toStdString();
    ASSERT_EQ(a.starting("title\t").value(0), "title\tA - One");
    EXPECT_TRUE(filesA.last().contains(QString::fromUtf8(a.starting("title\t").last().mid(6)))) << a.joined().toStdString();

    const CliRun stats = runCli({ "stats", "--json" });
    ASSERT_EQ(stats.exitCode, 0);
    const QJsonObject counted = QJsonDocument::fromJson(stats.out).object();
    EXPECT_EQ(counted.value("total").toInteger(), savedA + savedB) << stats.out.toStdString();
    EXPECT_EQ(counted.value("byStation").toObject().value("Alpha").toInteger(), savedA);
    EXPECT_EQ(counted.value("byStation").toObject().value("Beta").toInteger(), savedB);
    QStringList filed = libraryFiles();
    QStringList saved = filesA + filesB;
    filed.sort();
    saved.sort();
    EXPECT_EQ(filed, saved);
}

TEST_F(StateFilesCliTest, ProcessesStartingTogetherOnAFreshFolderWaitForTheLibraryInsteadOfRefusingIt)
{
    // An address that is no URL ends `record` right after it opened the library (exit 3);
    // a library refused as half-made would be exit 1.
    for (int round = 0; round < 12; ++round) {
        TestHome fresh;
        std::vector<std::unique_ptr<CliChild>> children;
        for (int i = 0; i < 4; ++i)
            children.push_back(std::make_unique<CliChild>(QStringList { "record", "not a url", "--name", "X" }));
        for (auto &child : children)
            EXPECT_EQ(child->finish(), 3) << round << ": " << child->process.readAllStandardError().toStdString();
    }
}

TEST_F(StateFilesCliTest, ADamagedScheduleIsKeptAndReportedOnceAndTheNextAddDoesNotReplaceIt)
{
    const QString start = QDateTime::currentDateTime().addDays(1).toString(QStringLiteral("yyyy-MM-ddTHH:mm"));
    const QString end = QDateTime::currentDateTime().addDays(1).addSecs(3600).toString(QStringLiteral("yyyy-MM-ddTHH:mm"));
    for (int i = 0; i < 3; ++i)
        ASSERT_EQ(runCli({ "schedule", "add", "http://127.0.0.1:9/x", "--name", "X", "--start", start, "--end", end }).exitCode, 0);
    const QByteArray whole = readFile(dataFile("sniper_schedule.json"));
    const QByteArray truncated = whole.left(whole.size() - 20);
    writeFile(dataFile("sniper_schedule.json"), truncated);

    const CliRun listed = runCli({ "schedule", "list" });
    EXPECT_EQ(listed.exitCode, 0);
    EXPECT_TRUE(listed.err.contains("sniper_schedule.corrupt.json")) << listed.err.toStdString();
    EXPECT_EQ(listed.err.count('\n'), 1);
    EXPECT_EQ(readFile(dataFile("sniper_schedule.corrupt.json")), truncated);

    const CliRun added
        = runCli({ "schedule", "add", "http://127.0.0.1:9/y", "--name", "Y", "--start", start, "--end", end });
    EXPECT_EQ(added.exitCode, 0);
    EXPECT_TRUE(added.err.isEmpty()) << "said once: " << added.err.toStdString();
    EXPECT_EQ(readFile(dataFile("sniper_schedule.corrupt.json")), truncated);

    // A garbled preferences file is kept the same way before `config set` writes.
    const QString conf = qEnvironmentVariable("XDG_CONFIG_HOME") + QStringLiteral("/Orvida/Orvida.conf");
    const QByteArray garbled = QByteArray("[General]\nov.radioNamePattern=%title%\n") + "\x01\x02\xff junk";
    writeFile(conf, garbled);
    const CliRun set = runCli({ "config", "set", "ov.radioSaveDir", "/tmp/x" });
    EXPECT_EQ(set.exitCode, 0);
    EXPECT_TRUE(set.err.contains("Orvida.corrupt.conf")) << set.err.toStdString();
    EXPECT_EQ(readFile(qEnvironmentVariable("XDG_CONFIG_HOME") + QStringLiteral("/Orvida/Orvida.corrupt.conf")), garbled);
    EXPECT_EQ(runCli({ "config", "get", "ov.radioNamePattern" }).out, "%title%\n") << "what could be read stays";
}

TEST_F(StateFilesCliTest, EveryWriteIntoAReadOnlyOrFullFolderFailsWithOneLineNamingTheFile)
{
    SmallFileSystem data(home.file("data"), 256 * 1024);
    SmallFileSystem config(home.file("config"), 256 * 1024);
    if (!data.mounted() || !config.mounted())
        GTEST_SKIP() << SmallFileSystem::reason();
    ASSERT_EQ(runCli({ "favorites", "add", "http://127.0.0.1:9/a", "--name", "A" }).exitCode, 0);
    const QString start = QDateTime::currentDateTime().addDays(1).toString(QStringLiteral("yyyy-MM-ddTHH:mm"));
    const QString end = QDateTime::currentDateTime().addDays(1).addSecs(60).toString(QStringLiteral("yyyy-MM-ddTHH:mm"));
    const CliRun plan = runCli({ "schedule", "add", "http://127.0.0.1:9/a", "--name", "A", "--start", start, "--end", end });
    ASSERT_EQ(plan.exitCode, 0);
    const QString planId = QString::fromUtf8(plan.out.trimmed());
    ASSERT_EQ(runCli({ "engine", "set", "--station", "s", "--lead-in", "2" }).exitCode, 0);

    const QList<std::pair<QStringList, QString>> writes {
        { { "favorites", "add", "http://127.0.0.1:9/b", "--name", "B" }, "favorites.json" },
        { { "favorites", "remove", "custom:http://127.0.0.1:9/a" }, "favorites.json" },
        { { "schedule", "add", "http://127.0.0.1:9/b", "--name", "B", "--start", start, "--end", end },
            "sniper_schedule.json" },
        { { "schedule", "remove", planId }, "sniper_schedule.json" },
        { { "config", "set", "ov.radioSaveDir", "/tmp/x" }, "Orvida.conf" },
        { { "engine", "set", "--lead-in", "3" }, "Orvida.conf" },
        { { "engine", "reset", "--station", "s" }, "Orvida.conf" },
    };
    const auto allFail = [&](const char *how) {
        for (const auto &[args, file] : writes) {
            const CliRun run = runCli(args);
            EXPECT_EQ(run.exitCode, 1) << how << ": " << args.join(' ').toStdString();
            EXPECT_EQ(run.err.count('\n'), 1) << how << ": " << run.err.toStdString();
            EXPECT_TRUE(run.err.contains(file.toUtf8())) << how << ": " << run.err.toStdString();
        }
    };
    data.fill();
    config.fill();
    allFail("full");
    ASSERT_TRUE(data.makeReadOnly() && config.makeReadOnly());
    allFail("read-only");

    // Nothing changed.
    EXPECT_EQ(runCli({ "favorites", "list" }).out.count('\n'), 1);
    EXPECT_EQ(runCli({ "schedule", "list" }).out.count('\n'), 1);
    EXPECT_EQ(runCli({ "engine", "show", "--station", "s" }).out.split('\n').first(), "leadInSec\t2");
}

// `run` records the open window of a plan, and only one run per data folder does: the
// other says so once and takes over when the first ends.
TEST_F(StateFilesCliTest, OnlyOneRunPerDataFolderRecordsThePlansAndTheOtherTakesOver)
{
    FixtureServer server;
    server.route("/live", IcyStream::station({ "A - One", "B - Two" }, 4, 25));
    const QString url = QString::fromLatin1(server.url("/live"));
    const QProcessEnvironment env = recordingSetUp(server);
    const QDateTime now = QDateTime::currentDateTime();
    ASSERT_EQ(runCli({ "schedule", "add", url, "--name", "Fixture FM", "--start",
                  now.addSecs(-60).toString(Qt::ISODate), "--end", now.addSecs(600).toString(Qt::ISODate) })
                  .exitCode,
        0);

    auto first = std::make_unique<CliChild>(QStringList { "run", "--tick", "0.1" }, env);
    ASSERT_TRUE(waitUntil([&] { return first->count("started\t") == 1; }, 10000));
    CliChild second({ "run", "--tick", "0.1" }, env);
    QByteArray err;
    ASSERT_TRUE(waitUntil(
        [&] {
            err += second.process.readAllStandardError();
            return err.contains("another Orvida runs the plans");
        },
        10000));
    EXPECT_FALSE(waitUntil([&] { return second.count("started\t") > 0; }, 500)) << "each window is recorded once";

    // SIGTERM ends the first after its last save: the song on air is saved too.
    first->process.terminate();
    EXPECT_EQ(first->finish(), 0);
    const QByteArray stationId = "custom:" + url.toUtf8();
    for (const QByteArray &line : { "started\t" + stationId, "title\tA - One" + QByteArray(), "stopped\t" + stationId })
        EXPECT_TRUE(first->lines.contains(line)) << line.toStdString() << " in " << first->joined().toStdString();
    const QStringList saved = savedPaths(*first);
    ASSERT_EQ(saved.size(), 2) << first->joined().toStdString();
    EXPECT_TRUE(saved[1].endsWith("B - Two.mp3")) << saved[1].toStdString();

    ASSERT_TRUE(waitUntil([&] { return second.count("started\t") == 1; }, 10000)) << "takes over";
    err += second.process.readAllStandardError();
    EXPECT_EQ(err.count("another Orvida"), 1) << "said once: " << err.toStdString();
    second.process.terminate();
    EXPECT_EQ(second.finish(), 0);
    // Filed in the order saved, under the plan's station.
    EXPECT_EQ(libraryFiles().mid(0, 2), saved);
    EXPECT_EQ(libraryTracks([](const Track &t) { return t.station.value_or(""); }).value(0), "Fixture FM");
}

} // namespace
