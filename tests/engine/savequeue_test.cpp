#include "engine/apppaths.h"
#include "engine/recordingsession.h"

#include "icystream.h"
#include "recorderfixture.h"

#include <QDir>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>

namespace {

int openFiles()
{
    return int(QDir(QStringLiteral("/proc/self/fd")).entryList(QDir::NoDotAndDotDot | QDir::AllEntries).size());
}

class SaveQueueTest : public RecorderFixture {
protected:
    // A save job that runs until released; records the order in which jobs started.
    std::function<SaveOutcome()> blockingJob(const QString &name)
    {
        return [this, name] {
            {
                std::lock_guard lock(mutex);
                started << name;
            }
            while (!released.load() && !isReleased(name))
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
            SaveOutcome outcome;
            outcome.result = SaveResult::Saved;
            outcome.streamTitle = name;
            outcome.song = SavedSong{name, name, QString(), QString(), 1, QString()};
            return outcome;
        };
    }

    void enqueue(const QString &station, const QString &name)
    {
        context.enqueueSave(station, name, blockingJob(name), &receiver, [this](SaveOutcome outcome) {
            outcomes << outcome.streamTitle + QLatin1Char(' ') + (outcome.result == SaveResult::Saved ? "saved" : outcome.reason);
        });
    }

    bool isReleased(const QString &name)
    {
        std::lock_guard lock(mutex);
        return releasedOnes.contains(name);
    }
    void release(const QString &name)
    {
        std::lock_guard lock(mutex);
        releasedOnes << name;
    }

    QStringList startedInOrder()
    {
        std::lock_guard lock(mutex);
        return started;
    }
    // Sorted: the two pool threads start their jobs in either order.
    QStringList startedSoFar()
    {
        QStringList names = startedInOrder();
        names.sort();
        return names;
    }

    QObject receiver;
    std::mutex mutex;
    QStringList started;
    QStringList releasedOnes;
    std::atomic<bool> released{false};
    QStringList outcomes;
};

TEST_F(SaveQueueTest, EachStationWaitsWithAtMostFourSongsAndAStopLeavesItsBacklog)
{
    for (int n = 1; n <= 7; ++n)
        enqueue("storm", QStringLiteral("S%1").arg(n));
    enqueue("calm", "C1");
    // Two run, four wait, the seventh is not even queued.
    ASSERT_TRUE(waitUntil([&] { return startedSoFar().size() == 2; }));
    EXPECT_EQ(startedSoFar(), (QStringList{"S1", "S2"}));
    EXPECT_EQ(outcomes, QStringList{"S7 save queue full: left for recovery at the next start"});
    EXPECT_EQ(context.runningSaves(), 7);

    // The calm station's song goes before the storm's backlog.
    release("S1");
    ASSERT_TRUE(waitUntil([&] { return startedInOrder().size() == 3; }));
    EXPECT_EQ(startedInOrder().value(2), "C1");
    released = true;
    ASSERT_TRUE(waitUntil([&] { return context.runningSaves() == 0; }, 10000));
    EXPECT_EQ(outcomes.size(), 8);

    // A stop: what waits is left for recovery, what runs finishes.
    released = false;
    {
        std::lock_guard lock(mutex);
        started.clear();
    }
    outcomes.clear();
    for (int n = 1; n <= 5; ++n)
        enqueue("storm", QStringLiteral("T%1").arg(n));
    ASSERT_TRUE(waitUntil([&] { return startedSoFar().size() == 2; }));
    context.leaveWaiting("storm");
    EXPECT_EQ(outcomes, (QStringList{"T3 recording stopped before its save: left for recovery at the next start",
                                     "T4 recording stopped before its save: left for recovery at the next start",
                                     "T5 recording stopped before its save: left for recovery at the next start"}));
    released = true;
    ASSERT_TRUE(waitUntil([&] { return context.runningSaves() == 0; }, 10000));
    QStringList finished = outcomes.mid(3);
    finished.sort();
    EXPECT_EQ(finished, (QStringList{"T1 saved", "T2 saved"}));
    EXPECT_EQ(startedSoFar(), (QStringList{"T1", "T2"}));
}

TEST_F(SaveQueueTest, ATitleStormIsScreenedOutWithoutSavingOrHoldingFiles)
{
    ASSERT_TRUE(EngineSettingsStore().setGlobal(RadioEngineSettings::standard()).ok); // re-encoding, 45 s minimum
    QList<QByteArray> titles;
    for (int n = 0; n < 200; ++n)
        titles << "Storm - Title " + QByteArray::number(n);
    server.route("/storm", IcyStream::station(titles, 1, 10));
    const Station storm = Station::custom(QString::fromLatin1(server.url("/storm")), "Storm FM");
    QStringList skipped;
    QStringList failures;
    QObject::connect(&recorder, &RadioRecorder::songSkipped, &receiver,
            [&](const QString &, const QString &title, const QString &why) { skipped << title + ": " + why; });
    QObject::connect(&recorder, &RadioRecorder::saveFailed, &receiver,
            [&](const QString &, const QString &message) { failures << message; });
    const int filesBefore = openFiles();
    int mostFiles = filesBefore;
    int mostSaves = 0;
    ASSERT_TRUE(recorder.start(storm));
    ASSERT_TRUE(waitUntil(
        [&] {
            mostFiles = std::max(mostFiles, openFiles());
            mostSaves = std::max(mostSaves, context.runningSaves());
            return skipped.size() >= 50;
        },
        20000));
    recorder.stop();
    recorder.waitForSaves();
    EXPECT_EQ(mostSaves, 0) << "no song of a storm reaches the save queue";
    EXPECT_LT(mostFiles - filesBefore, 10);
    for (const QString &line : skipped)
        ASSERT_TRUE(line.contains(": too short (about 0 s, minimum 45 s)")) << line.toStdString();
    EXPECT_EQ(failures, QStringList());
    EXPECT_TRUE(QDir(AppPaths::tmpDir()).entryList(QDir::Files | QDir::Hidden).isEmpty());
}

} // namespace
