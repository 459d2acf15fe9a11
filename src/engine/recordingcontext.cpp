#include "engine/recordingcontext.h"

#include <QCoreApplication>
#include <QPointer>
#include <QThread>

#include <algorithm>
#include <vector>

RecordingContext::RecordingContext(HttpClient &http, RecordingStats *stats, QObject *parent)
    : QObject(parent), m_http(http), m_stats(stats)
{
    m_engineThread.setObjectName(QStringLiteral("ov.radio"));
    m_engineThread.start();
    // Two saves at a time: each is mostly waiting on ffmpeg or the store, and more would
    // only compete for the same cores the recording needs.
    m_savePool.setMaxThreadCount(kMaxRunningSaves);
    m_savePool.setObjectName(QStringLiteral("ov.radio.save"));
}

RecordingContext::~RecordingContext()
{
    m_savePool.waitForDone();
    m_engineThread.quit();
    m_engineThread.wait();
}

void RecordingContext::enqueueSave(const QString &stationId, const QString &title, std::function<SaveOutcome()> job,
                                   QObject *receiver, std::function<void(SaveOutcome)> done)
{
    Q_ASSERT(QThread::currentThread() == thread());
    ++m_runningSaves;
    QueuedSave save{stationId, title, std::move(job), receiver, std::move(done)};
    const auto waiting = std::count_if(m_waiting.cbegin(), m_waiting.cend(),
                                       [&](const QueuedSave &q) { return q.stationId == stationId; });
    if (waiting >= kMaxWaitingPerStation) {
        deliver(save, leftForRecovery(title, QStringLiteral("save queue full")));
        return;
    }
    m_waiting.push_back(std::move(save));
    dispatch();
}

void RecordingContext::leaveWaiting(const QString &stationId)
{
    Q_ASSERT(QThread::currentThread() == thread());
    std::vector<QueuedSave> left;
    for (auto it = m_waiting.begin(); it != m_waiting.end();) {
        if (it->stationId == stationId) {
            left.push_back(std::move(*it));
            it = m_waiting.erase(it);
        } else {
            ++it;
        }
    }
    for (const QueuedSave &save : left)
        deliver(save, leftForRecovery(save.title, QStringLiteral("recording stopped before its save")));
}

SaveOutcome RecordingContext::leftForRecovery(const QString &title, const QString &why)
{
    SaveOutcome outcome;
    outcome.result = SaveResult::Skipped;
    outcome.streamTitle = title;
    outcome.reason = why + QStringLiteral(": left for recovery at the next start");
    return outcome;
}

void RecordingContext::dispatch()
{
    while (m_activeStations.size() < kMaxRunningSaves && !m_waiting.empty()) {
        // The oldest song of a station with no save running first, so that one busy
        // station cannot hold every worker while the others wait.
        auto next = std::find_if(m_waiting.begin(), m_waiting.end(),
                                 [&](const QueuedSave &q) { return !m_activeStations.contains(q.stationId); });
        if (next == m_waiting.end())
            next = m_waiting.begin();
        QueuedSave save = std::move(*next);
        m_waiting.erase(next);
        m_activeStations.append(save.stationId);
        // The context outlives every save (its destructor waits for the pool), so the pool
        // task may post back to it directly.
        m_savePool.start([save, this] {
            SaveOutcome outcome = save.job();
            QMetaObject::invokeMethod(
                this,
                [save, outcome = std::move(outcome), this] {
                    m_activeStations.removeOne(save.stationId);
                    deliver(save, outcome);
                    dispatch();
                },
                Qt::QueuedConnection);
        });
    }
}

void RecordingContext::deliver(const QueuedSave &save, SaveOutcome outcome)
{
    // The receiver may be gone by now; the count must drop all the same.
    if (save.receiver && save.done)
        save.done(std::move(outcome));
    if (--m_runningSaves == 0)
        Q_EMIT savesIdle();
}

void RecordingContext::waitForSaves()
{
    while (m_runningSaves.load() > 0)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
}
