#pragma once

#include "engine/icecaststatus.h"
#include "engine/songsaver.h"

#include <QObject>
#include <QPointer>
#include <QString>
#include <QThread>
#include <QThreadPool>

#include <atomic>
#include <deque>
#include <functional>

class HttpClient;
class RecordingStats;

// Delays and time-outs of a recording, injectable so fault tests run in seconds.
struct RecordingTimings {
    double idleTimeoutSec = 30;      // connected but silent this long: reconnect
    double resourceTimeoutSec = 86400;
    double playlistTimeoutSec = 15;
    // Wait before reconnect attempt n (1-based): 2, 4, 6, 8, 10, 10, ...
    std::function<double(qint64 attempt)> reconnectDelaySec = [](qint64 n) { return double(std::min<qint64>(2 * n, 10)); };
    qint64 maxReconnects = 8;
    double statusPollIntervalSec = 5; // also the wait before the first poll
    double inBandPrecedenceSec = 8;   // a polled title waits this long after an in-band one
    bool statusPolling = true;
    // Where a stream's status document is asked for; the default drops the stream's port.
    std::function<std::optional<QUrl>(const QString &streamUrl)> statusUrlFor = IcecastStatus::statusUrl;
};

// What every recording session shares: the engine thread that all sessions' stream work
// runs on, the save queue and the pool its saves run on, the HTTP client and the timings.
//
// Created once by the composition root and outlives every session. Lives on the GUI
// thread. Stream I/O is light (a 128 kbit/s station is 16 kB/s), so one engine thread
// carries hundreds of stations; saves block on look-ups and ffmpeg and get their own pool.
//
// The save queue: at most kMaxRunningSaves saves run at once, and each station has at
// most kMaxWaitingPerStation songs waiting. A song beyond that is not saved but left,
// parked, for recovery at the next start (a station changing its title every few seconds
// would otherwise keep the machine encoding for minutes after it stopped); its `done`
// says so with a Skipped outcome. Waiting songs hold no open file (see
// SegmentRecovery::park); only a running save locks its segments.
class RecordingContext : public QObject {
    Q_OBJECT

public:
    RecordingContext(HttpClient &http, RecordingStats *stats, QObject *parent = nullptr);
    ~RecordingContext() override; // waits for running saves, then ends the engine thread

    HttpClient &http() { return m_http; }
    QThread *engineThread() { return &m_engineThread; }
    RecordingStats *stats() { return m_stats; }

    RecordingTimings timings;
    QString storeBase;  // album and cover look-up; empty: no look-up
    QString ffmpegPath; // empty: saves fall back to the byte-exact path's needs only

    static constexpr int kMaxRunningSaves = 2;
    static constexpr int kMaxWaitingPerStation = 4;

    // Queues `job` for the save pool and hands its outcome to `done` on this thread
    // (dropped when `receiver` is gone). A station already at its bound of waiting songs
    // gets `done` with a Skipped outcome at once, and `job` never runs. Counted until
    // `done` has run (or would have).
    void enqueueSave(const QString &stationId, const QString &title, std::function<SaveOutcome()> job,
                     QObject *receiver, std::function<void(SaveOutcome)> done);
    // The station's songs that wait and have not started: each gets `done` with a Skipped
    // outcome and stays parked for recovery. A running save goes on. For a stop.
    void leaveWaiting(const QString &stationId);

    [[nodiscard]] int runningSaves() const { return m_runningSaves.load(); }
    // Blocks (running the event loop) until no save runs. For shutdown paths only.
    void waitForSaves();

Q_SIGNALS:
    void savesIdle();

private:
    struct QueuedSave {
        QString stationId;
        QString title;
        std::function<SaveOutcome()> job;
        QPointer<QObject> receiver;
        std::function<void(SaveOutcome)> done;
    };
    void dispatch();
    void deliver(const QueuedSave &save, SaveOutcome outcome);
    static SaveOutcome leftForRecovery(const QString &title, const QString &why);

    HttpClient &m_http;
    RecordingStats *m_stats;
    QThread m_engineThread;
    QThreadPool m_savePool;
    std::atomic<int> m_runningSaves{0}; // queued or running, until `done`
    std::deque<QueuedSave> m_waiting;
    QStringList m_activeStations; // one entry per save running on the pool
};
