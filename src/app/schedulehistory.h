#pragma once

#include "engine/scheduledrecording.h"

#include <QDateTime>
#include <QList>
#include <QObject>
#include <QStringList>

#include <functional>

class RadioRecorder;
class SniperScheduler;
struct Track;

// The windows of planned recordings that ran while this window was open, newest first,
// with the songs each saved. Neither the scheduler nor the statistics keep that (the
// statistics count by day and station only), and a repeating plan is the same plan every
// day, so the page keeps its own short list: at most kMaxEntries windows, in memory.
//
// A window opens with the scheduler's "started" and closes with its "ended". Songs count
// for the newest window of their station that is open or closed less than kLateSaveSec
// ago: the last song of a window is saved after its recording stopped.
//
// Lives on the GUI thread.
class ScheduleHistory : public QObject {
    Q_OBJECT

public:
    static constexpr int kMaxEntries = 50;
    static constexpr qint64 kLateSaveSec = 300;

    struct Entry {
        ScheduledRecording plan; // the window as it was recorded
        QDateTime endedAt;       // invalid while the window is open
        qint64 saved = 0;
        QStringList titles; // of the saved songs, oldest first
        [[nodiscard]] bool isOpen() const { return !endedAt.isValid(); }
    };

    ScheduleHistory(SniperScheduler &scheduler, RadioRecorder &recorder, std::function<QDateTime()> now,
        QObject *parent = nullptr);

    // Newest first.
    [[nodiscard]] const QList<Entry> &entries() const { return m_entries; }

Q_SIGNALS:
    void changed();

private:
    void started(const ScheduledRecording &plan);
    void ended(const ScheduledRecording &plan);
    void saved(const QString &stationId, const Track &track);

    std::function<QDateTime()> m_now;
    QList<Entry> m_entries;
};
