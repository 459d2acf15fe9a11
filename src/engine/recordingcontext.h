#pragma once

#include "engine/icecaststatus.h"
#include "engine/songsaver.h"

#include <QObject>
#include <QString>
#include <QThread>
#include <QThreadPool>

#include <atomic>
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
// runs on, the thread pool their saves run on, the HTTP client and the timings.
//
// Created once by the composition root and outlives every session. Lives on the GUI
// thread. Stream I/O is light (a 128 kbit/s station is 16 kB/s), so one engine thread
// carries hundreds of stations; saves block on look-ups and ffmpeg and get their own pool.
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

    // Runs `job` on the save pool and hands its result to `done` on the thread of
    // `receiver` (dropped when the receiver is gone). Counted until `done` has run.
    void runSave(std::function<std::optional<SavedSong>()> job, QObject *receiver,
                 std::function<void(std::optional<SavedSong>)> done);

    [[nodiscard]] int runningSaves() const { return m_runningSaves.load(); }
    // Blocks (running the event loop) until no save runs. For shutdown paths only.
    void waitForSaves();

Q_SIGNALS:
    void savesIdle();

private:
    HttpClient &m_http;
    RecordingStats *m_stats;
    QThread m_engineThread;
    QThreadPool m_savePool;
    std::atomic<int> m_runningSaves{0};
};
