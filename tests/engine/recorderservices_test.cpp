#include "engine/recorderservices.h"

#include "engine/apppaths.h"
#include "engine/radiorecorder.h"
#include "engine/recordingcontext.h"
#include "library/librarystore.h"
#include "platform/dbuslink.h"
#include "platform/httpclient.h"

#include "bytesettings.h"
#include "fixtureserver.h"
#include "icystream.h"
#include "testenv.h"

#include <QDir>
#include <QFile>
#include <QSignalSpy>

#include <gtest/gtest.h>

namespace {

class RecorderServicesTest : public ::testing::Test {
protected:
    std::unique_ptr<RecorderServices> make(bool withLibrary, bool recoverSegments = false)
    {
        std::unique_ptr<LibraryStore> library;
        if (withLibrary) {
            LibraryOpenResult opened = LibraryStore::open(libraryPath);
            EXPECT_TRUE(opened) << opened.message.toStdString();
            library = std::move(opened.store);
        }
        RecorderServices::Options options;
        options.recoverSegments = recoverSegments;
        auto services = std::make_unique<RecorderServices>(http, systemBus, sessionBus, std::move(library), options);
        services->context().timings.statusPolling = false;
        return services;
    }

    TestHome home;
    const QString libraryPath = home.file(QStringLiteral("library.sqlite"));
    FixtureServer server;
    HttpClient http;
    DBusLink systemBus { std::nullopt, QStringLiteral("system") };
    DBusLink sessionBus { std::nullopt, QStringLiteral("session") };
};

// The order matters: a library closed before the last save came back would lose it.
TEST_F(RecorderServicesTest, ShutDownEndsTheSchedulerAndFilesTheLastSongsBeforeTheLibraryCloses)
{
    useByteExactSaves();
    auto services = make(true);
    SniperScheduler::Options scheduling;
    EXPECT_TRUE(services->startScheduler(scheduling).isConfigured());
    EXPECT_EQ(&services->startScheduler(scheduling), services->scheduler());

    server.route("/a", IcyStream::station({ "A - One" }, 1000, 20));
    server.route("/b", IcyStream::station({ "B - One" }, 1000, 20));
    RadioRecorder &recorder = services->recorder();
    LibraryStore *library = services->library();
    QList<Station> stations;
    for (const QByteArray path : { "/a", "/b" }) {
        stations << Station::custom(QString::fromLatin1(server.url(path)), QString::fromLatin1(path));
        recorder.start(stations.last(), std::nullopt,
            [library](const Track &track) { EXPECT_TRUE(RadioRecorder::upsertIntoLibrary(track, *library)); });
    }
    ASSERT_TRUE(waitUntil([&] {
        return recorder.streamTitle(stations[0]) == QStringLiteral("A - One")
            && recorder.streamTitle(stations[1]) == QStringLiteral("B - One");
    }));
    waitUntil([] { return false; }, 100); // some audio under the titles

    services->shutDown();
    EXPECT_FALSE(services->scheduler());
    EXPECT_FALSE(services->library());
    services->shutDown(); // a second end changes nothing
    // Saved songs leave nothing in tmp, not even the folder their segments waited in.
    EXPECT_EQ(QDir(AppPaths::tmpDir()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
              QStringList());

    LibraryOpenResult reopened = LibraryStore::open(libraryPath);
    ASSERT_TRUE(reopened);
    QStringList titles;
    for (const Track &track : reopened.store->allTracks())
        titles << track.artist + " - " + track.title;
    titles.sort();
    EXPECT_EQ(titles, QStringList({ "A - One", "B - One" }));
}

TEST_F(RecorderServicesTest, WithoutALibraryItRecordsAndTheSchedulerStillRunsThePlans)
{
    qputenv("ORVIDA_IDLE_TIMEOUT_SEC", "3");
    auto services = make(false);
    qunsetenv("ORVIDA_IDLE_TIMEOUT_SEC");
    // The stalled-stream override reaches the window's and the command line's recorder alike.
    EXPECT_EQ(services->context().timings.idleTimeoutSec, 3);
    SniperScheduler::Options scheduling;
    // Plans still record (their songs stay unfiled in the radio folder).
    EXPECT_TRUE(services->startScheduler(scheduling).runsPlans());
    EXPECT_FALSE(services->library());
}

TEST_F(RecorderServicesTest, LeftoversAreRecoveredOffTheCallerAndShutDownWaitsForThem)
{
    AppPaths::ensure();
    const QString segment = AppPaths::tmpDir() + QStringLiteral("/.0F8FAD5B-D9CB-469F-A165-70867728950E.mp3");
    const QByteArray audio = IcyStream::audioBlock(1).repeated(4);
    // Left by a recorder that ended an hour ago.
    const auto leaveSegment = [&] {
        writeFile(segment, audio);
        QFile file(segment);
        ASSERT_TRUE(file.open(QIODevice::ReadWrite));
        ASSERT_TRUE(file.setFileTime(QDateTime::currentDateTime().addSecs(-3600), QFileDevice::FileModificationTime));
    };
    leaveSegment();
    auto services = make(true, true);
    QSignalSpy recovered(services.get(), &RecorderServices::segmentsRecovered);
    ASSERT_TRUE(recovered.wait(5000));
    const auto result = recovered.first().first().value<SegmentRecovery::Result>();
    ASSERT_EQ(result.recovered.size(), 1);
    EXPECT_EQ(readFile(result.recovered[0].filePath), audio);
    EXPECT_FALSE(QFile::exists(segment));
    // Filed like a saved song, so the user finds it.
    const QList<Track> filed = services->library()->tracksByFilePath(result.recovered[0].filePath);
    ASSERT_EQ(filed.size(), 1);
    EXPECT_EQ(filed[0].title, result.recovered[0].title);

    services->shutDown();
    // A shutdown right after the start waits for the recovery instead of cutting it off.
    leaveSegment();
    auto second = make(true, true);
    second->shutDown();
    EXPECT_FALSE(QFile::exists(segment));
}

} // namespace
