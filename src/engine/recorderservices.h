#pragma once

#include "engine/segmentrecovery.h"
#include "engine/sniperscheduler.h"

#include <QFuture>
#include <QObject>
#include <QString>
#include <QStringList>

#include <memory>

class ClosedLidKeeper;
class DBusLink;
class HttpClient;
class LibraryStore;
class RadioRecorder;
class RecordingContext;
class RecordingStats;
class SleepGuard;

// The recorder and what it stands on, built the same way for the window and for
// orvida-cli: statistics, the recording context, the recorder, the sleep guard that
// flushes the recorder's sessions before a suspend, the library the songs are filed
// into, and (for the window and `run`) the scheduler with its closed-lid keeper.
//
// Segments a crash left behind are salvaged at construction on a thread-pool task: the
// file work may take a while with many leftovers and must neither hold up the window nor
// delay `record`. Sessions may start meanwhile: recovery leaves alone every file that a
// process holds locked or that changed within the last seconds, which covers the
// segments of sessions started now. What it salvaged is filed into the library like a
// saved song, so the user finds it there.
//
// shutDown() is the one ordered end: the scheduler first (no tick may start anything
// now), then every session stopped and its last song saved, the recovery awaited, and
// only then the library closed, so every song that reaches disk also reaches the library.
//
// Lives on the GUI thread (in orvida-cli: the main thread), like every service it owns.
// The HTTP client and the buses are the caller's and must outlive it.
class RecorderServices : public QObject {
    Q_OBJECT

public:
    struct Options {
        // The ffmpeg executable; found by the caller (the engine does not look for tools).
        QString ffmpegPath;
        // Album and cover look-up; empty: no look-up.
        QString storeBase;
        bool recoverSegments = true;
    };

    // `library` may be null (it could not be opened): recording and the scheduler still
    // work, their songs are then filed nowhere.
    RecorderServices(HttpClient &http, DBusLink &systemBus, DBusLink &sessionBus, std::unique_ptr<LibraryStore> library,
        Options options, QObject *parent = nullptr);
    ~RecorderServices() override; // shutDown()

    RecordingStats &stats() { return *m_stats; }
    RecordingContext &context() { return *m_context; }
    RadioRecorder &recorder() { return *m_recorder; }
    SleepGuard &sleepGuard() { return *m_sleepGuard; }
    LibraryStore *library() { return m_library.get(); }
    // Absent until startScheduler(), and again after shutDown().
    SniperScheduler *scheduler() { return m_scheduler.get(); }
    // The scheduler's closed-lid keeper; absent with it.
    ClosedLidKeeper *closedLidKeeper() { return m_scheduler ? m_lidKeeper.get() : nullptr; }

    // Builds the scheduler (once; a second call returns the first) with a closed-lid
    // keeper on the system bus.
    // `options.closedLidKeeper` is ignored: the keeper is ours.
    SniperScheduler &startScheduler(SniperScheduler::Options options);

    // Blocks until the start-up recovery is done. For shutdown paths and tests.
    void waitForRecovery();

    // Idempotent; see the class comment for the order.
    void shutDown();

Q_SIGNALS:
    // The start-up recovery is done and what it salvaged is in the library (GUI thread).
    void segmentsRecovered(const SegmentRecovery::Result &result);
    // A recovered song could not be entered into the library: one line saying which.
    void libraryProblem(const QString &line);

private:
    // Once, on the GUI thread: when the recovery task is done, or at the shutdown at the
    // latest, so a shutdown right after the start still files what was salvaged.
    void deliverRecovery();

    DBusLink &m_systemBus;
    std::unique_ptr<RecordingStats> m_stats;
    std::unique_ptr<RecordingContext> m_context;
    std::unique_ptr<RadioRecorder> m_recorder;
    std::unique_ptr<LibraryStore> m_library;
    std::unique_ptr<SleepGuard> m_sleepGuard;
    std::unique_ptr<ClosedLidKeeper> m_lidKeeper;
    // After the guard and the keeper it uses, so it lets go of them first.
    std::unique_ptr<SniperScheduler> m_scheduler;
    QFuture<SegmentRecovery::Result> m_recovery;
    bool m_recoveryDelivered = false;
    bool m_shutDown = false;
};
