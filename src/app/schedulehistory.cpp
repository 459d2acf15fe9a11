#include "app/schedulehistory.h"

#include "engine/radiorecorder.h"
#include "engine/sniperscheduler.h"
#include "library/track.h"

ScheduleHistory::ScheduleHistory(
    SniperScheduler &scheduler, RadioRecorder &recorder, std::function<QDateTime()> now, QObject *parent)
    : QObject(parent)
    , m_now(std::move(now))
{
    connect(&scheduler, &SniperScheduler::scheduledRecordingStarted, this, &ScheduleHistory::started);
    connect(&scheduler, &SniperScheduler::scheduledRecordingEnded, this, &ScheduleHistory::ended);
    connect(&recorder, &RadioRecorder::trackSaved, this, &ScheduleHistory::saved);
}

void ScheduleHistory::started(const ScheduledRecording &plan)
{
    m_entries.prepend(Entry{plan, {}, 0, {}});
    if (m_entries.size() > kMaxEntries)
        m_entries.removeLast();
    Q_EMIT changed();
}

void ScheduleHistory::ended(const ScheduledRecording &plan)
{
    for (Entry &entry : m_entries) {
        if (entry.plan.id == plan.id && entry.isOpen()) {
            entry.endedAt = m_now().toUTC();
            Q_EMIT changed();
            return;
        }
    }
}

void ScheduleHistory::saved(const QString &stationId, const Track &track)
{
    const QDateTime now = m_now().toUTC();
    for (Entry &entry : m_entries) {
        if (entry.plan.stationId != stationId)
            continue;
        // Only the newest window of the station can own the song.
        if (entry.isOpen() || entry.endedAt.secsTo(now) < kLateSaveSec) {
            ++entry.saved;
            entry.titles.append(track.title);
            Q_EMIT changed();
        }
        return;
    }
}
