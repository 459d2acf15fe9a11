#include "engine/recordingcontext.h"

#include <QCoreApplication>
#include <QPointer>

RecordingContext::RecordingContext(HttpClient &http, RecordingStats *stats, QObject *parent)
    : QObject(parent), m_http(http), m_stats(stats)
{
    m_engineThread.setObjectName(QStringLiteral("ov.radio"));
    m_engineThread.start();
    // Two saves at a time: each is mostly waiting on ffmpeg or the store, and more would
    // only compete for the same cores the recording needs.
    m_savePool.setMaxThreadCount(2);
    m_savePool.setObjectName(QStringLiteral("ov.radio.save"));
}

RecordingContext::~RecordingContext()
{
    m_savePool.waitForDone();
    m_engineThread.quit();
    m_engineThread.wait();
}

void RecordingContext::runSave(std::function<std::optional<SavedSong>()> job, QObject *receiver,
                               std::function<void(std::optional<SavedSong>)> done)
{
    ++m_runningSaves;
    QPointer<QObject> target(receiver);
    // The context outlives every save (its destructor waits for the pool), so the pool
    // task may post back to it directly.
    m_savePool.start([job = std::move(job), done = std::move(done), target, this]() mutable {
        std::optional<SavedSong> saved = job();
        QMetaObject::invokeMethod(
            this,
            [saved = std::move(saved), done = std::move(done), target, this]() mutable {
                // The receiver may be gone by now; the count must drop all the same.
                if (target && done)
                    done(std::move(saved));
                if (--m_runningSaves == 0)
                    Q_EMIT savesIdle();
            },
            Qt::QueuedConnection);
    });
}

void RecordingContext::waitForSaves()
{
    while (m_runningSaves.load() > 0)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
}
