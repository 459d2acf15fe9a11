#include "playbackaudio.h"
#include "testenv.h"

#include "library/librarystore.h"
#include "playback/analysisqueue.h"
#include "playback/crossfadeplanner.h"

#include <QDateTime>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <mutex>

#if defined(Q_OS_LINUX)
#include <sched.h>
#endif

namespace {

Track trackOf(const QString &path)
{
    return Track(path, {}, {}, 7, QDateTime::currentDateTime(), {}, false, 0, "radio", {}, path);
}

} // namespace

TEST(AnalysisQueueTest, AnalysesTheLibraryNewestFirstAndGivesUpOnBadFiles)
{
    QTemporaryDir dir;
    QStringList good;
    for (const char *name : { "a.wav", "b.wav", "c.wav", "new.wav" }) {
        good << dir.filePath(QString::fromLatin1(name));
        ASSERT_TRUE(PlaybackAudio::encode(good.back(), { "-f", "lavfi", "-i", "sine=f=440:d=7", "-ac", "2" }));
    }
    const QString bad = dir.filePath(QStringLiteral("bad.wav"));
    writeFile(bad, QByteArray(4096, 'x'));

    LibraryOpenResult opened = LibraryStore::open(dir.filePath(QStringLiteral("library.sqlite")));
    ASSERT_TRUE(opened) << opened.message.toStdString();
    LibraryStore &library = *opened.store;
    ASSERT_EQ(library.insertTracks({ trackOf(good[0]), trackOf(bad), trackOf(good[1]), trackOf(good[2]) }).size(), 4);

    // The first file is held until a new track has come in, to see where that one goes.
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    std::atomic<bool> holding = false;
    std::mutex seenMutex;
    QStringList seen;
    std::atomic<bool> idle = true;
    AnalysisQueue queue(library);
    queue.addAnalyser(QString::fromLatin1(CrossfadePlanner::kAnalysisKind), [&](const QString &path) {
#if defined(Q_OS_LINUX)
        idle = idle && sched_getscheduler(0) == SCHED_IDLE;
#endif
        {
            std::lock_guard lock(seenMutex);
            seen << QFileInfo(path).fileName();
        }
        if (!holding.exchange(true))
            released.wait();
        return CrossfadePlanner::analyseForLibrary(path);
    });
    // A second kind: progress still counts files, not analyses.
    queue.addAnalyser(QStringLiteral("size"), [](const QString &path) {
        return std::optional(QByteArray::number(QFileInfo(path).size()));
    });
    int reportedDone = -1;
    QObject::connect(&queue, &AnalysisQueue::progressChanged, [&](int done, int) { reportedDone = done; });
    queue.start();
    EXPECT_EQ(queue.total(), 4);
    ASSERT_TRUE(waitUntil([&] { return holding.load(); }));
    ASSERT_TRUE(library.insert(trackOf(good[3])));
    EXPECT_EQ(queue.total(), 5);
    release.set_value();

    ASSERT_TRUE(waitUntil([&] { return queue.done() == queue.total(); }, 15000));
    EXPECT_EQ(reportedDone, 5);
    EXPECT_EQ(seen, (QStringList { "a.wav", "new.wav", "bad.wav", "b.wav", "c.wav" }));
    EXPECT_TRUE(idle);
    const QString kind = QString::fromLatin1(CrossfadePlanner::kAnalysisKind);
    for (const QString &path : good) {
        const auto json = library.analysis(path, kind, *LibraryStore::FileStamp::of(path));
        ASSERT_TRUE(json) << path.toStdString();
        const auto analysis = CrossfadePlanner::fromJson(*json);
        ASSERT_TRUE(analysis);
        EXPECT_NEAR(analysis->tail.audibleEnd, 7.0, 0.01);
    }
    EXPECT_EQ(library.pathsWithoutAnalysis(kind), QStringList { bad });
    EXPECT_EQ(queue.failedPaths(kind), QSet<QString> { bad });

    // The bad file entering the library again is not tried again this session.
    ASSERT_TRUE(library.insert(trackOf(bad)));
    ASSERT_TRUE(waitUntil([&] { return queue.done() == queue.total(); }, 15000));
    EXPECT_EQ(seen.count(QStringLiteral("bad.wav")), 1);
}
