#pragma once

#include "engine/cutplanner.h"
#include "engine/sessionstatus.h"
#include "engine/songsaver.h"
#include "library/track.h"
#include "stations/station.h"

#include <QElapsedTimer>
#include <QMutex>
#include <QObject>
#include <QPointer>
#include <QString>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>

class RecordingContext;
class SessionWorker;

// One running recording of one station.
//
// Lives on the GUI thread and holds what the interface shows (current title, songs saved,
// error text, the stream status with its byte count, elapsed time). The stream work
// happens in its SessionWorker on the engine thread, which reports the status on every
// change of state and the bytes at most once a second, so a busy station costs the GUI
// thread one queued call a second; saves run on the context's pool and come back here to
// be counted and handed on.
//
// A finished song is screened on the engine thread the moment it is handed over (a
// jingle, or clearly too short by its bytes, is dropped there without any encoding) and
// parked, so it holds no open file while it waits in the context's save queue. Every song
// ends in exactly one of trackSaved, songSkipped (with the reason) or saveFailed, so
// nothing disappears unannounced; a radio folder that cannot be written is reported
// through saveFailed as soon as the session starts. At a stop only the song in progress
// is still saved: songs still waiting are left for recovery (songSkipped says so).
//
// Listening mode (the `Listening` constructor): the same stream work, but a song is kept
// only while it plays, at most `maxSongSec` of it, and handed over for saving only when
// saveSong() armed it; saved like any other song from then on. Its saves queue apart from
// a recording of the same station, and an armed song handed over before a stop is still
// saved (it is what the user asked for, not a backlog).
//
// Starts at construction. stop() ends it at once (onStopped runs before stop() returns);
// the song in progress is still finalised and saved in the background, and the object
// stays alive until that and every other running save of it have finished when the
// owner calls deleteWhenIdle().
class RecordingSession : public QObject {
    Q_OBJECT

public:
    struct Listening {
        double maxSongSec = 0;
    };

    RecordingSession(const Station &station, std::optional<QString> fullShowTitle, RecordingContext &context,
                     QObject *parent = nullptr);
    RecordingSession(const Station &station, Listening listening, RecordingContext &context, QObject *parent = nullptr);
    ~RecordingSession() override;

    [[nodiscard]] const QString &id() const { return m_station.id; }
    [[nodiscard]] const Station &station() const { return m_station; }
    [[nodiscard]] const std::optional<QString> &fullShowTitle() const { return m_fullShowTitle; }
    [[nodiscard]] const QString &currentStreamTitle() const { return m_currentStreamTitle; }
    [[nodiscard]] const std::optional<QString> &errorMessage() const { return m_errorMessage; }
    [[nodiscard]] qint64 recordedCount() const { return m_recordedCount; }
    [[nodiscard]] bool isStopped() const { return m_stopped->load(); }
    [[nodiscard]] int runningSaves() const { return m_runningSaves; }
    // Stopped, the last song handed over and every save back.
    [[nodiscard]] bool isIdle() const { return m_workerFinished && m_runningSaves == 0; }
    // What the stream side is doing; see statusChanged.
    [[nodiscard]] const SessionStatus &status() const { return m_status; }
    // How the session ended; absent while it runs.
    [[nodiscard]] const std::optional<SessionOutcome> &outcome() const { return m_outcome; }
    // Since construction; frozen when the session ends.
    [[nodiscard]] qint64 elapsedMs() const { return m_outcome ? m_elapsedAtEndMs : m_clock.elapsed(); }

    void stop();
    // Deletes the session once it is stopped and its last save has come back.
    void deleteWhenIdle();
    // Asks the engine thread to push buffered audio to disk (before the system sleeps);
    // `done` runs on this thread when it has.
    void flushToDisk(std::function<void()> done);

    [[nodiscard]] bool isListening() const { return m_listening; }
    // Listening: whether the song playing can be saved from its start.
    [[nodiscard]] CutPlanner::Keep keep() const { return m_keep; }
    // Listening: saves the song titled `title` (the one playing, or the one that just
    // ended) at its end. saveRefused follows when it cannot be; otherwise exactly one of
    // trackSaved, songSkipped, saveFailed or songAbandoned.
    void saveSong(const QString &title);

    // Set by the owner right after construction. onStopped runs once, when the session
    // ends for whatever reason (stop() or on its own), with how it ended.
    std::function<void(const Track &)> onTrackSaved;
    std::function<void(SessionOutcome)> onStopped;

Q_SIGNALS:
    void currentStreamTitleChanged(const QString &title);
    void errorMessageChanged(const QString &message);
    void recordedCountChanged(qint64 count);
    void trackSaved(const Track &track);
    // Once, right after onStopped. A session that gave up is not stopped yet; its owner
    // calls stop() (which then announces nothing more).
    void ended(SessionOutcome outcome);
    // On every state change and, while bytes arrive, about once a second.
    void statusChanged(const SessionStatus &status);
    // One line naming the song or folder and why nothing was written.
    void saveFailed(const QString &message);
    // A song dropped on purpose: a jingle, too short, a same-name recording kept, no audio,
    // or left for recovery.
    void songSkipped(const QString &title, const QString &reason);
    // A song was saved, but not as asked (ffmpeg failed: the stream's own bytes were kept).
    void saveNotice(const QString &message);
    // Listening only; see saveSong().
    void keepChanged(CutPlanner::Keep keep);
    void saveRefused(const QString &title, CutPlanner::ArmResult why);
    void songAbandoned(const QString &title, const QString &reason);

private:
    void setCurrentStreamTitle(const QString &title);
    void setErrorMessage(const QString &message);
    void end(SessionOutcome outcome);
    void setStatus(const SessionStatus &status);
    // Where the engine thread's hand-over posts to; cleared (under its mutex) when the
    // session goes, so a song handed over late finds no dangling session.
    struct HandOver {
        QMutex mutex;
        RecordingSession *session = nullptr;
        void post(std::function<void(RecordingSession &)> call);
    };
    // On the engine thread: screens a handed-over song and parks it, or drops it.
    static void takeSong(const std::shared_ptr<HandOver> &handOver, const Station &station, bool fullShow,
                         bool finalSong, std::vector<SegmentLock> segments, const QString &streamTitle);
    void startSave(const QStringList &parkedSegments, const QString &title, bool finalSong);
    void finishSave(const SaveOutcome &outcome);
    void maybeDelete();
    void wire();
    // The save queue's key: a listening session queues apart from a recording of its station.
    [[nodiscard]] QString queueKey() const;

    const Station m_station;
    const std::optional<QString> m_fullShowTitle;
    const bool m_listening = false;
    RecordingContext &m_context;
    std::shared_ptr<std::atomic<bool>> m_stopped;
    std::shared_ptr<HandOver> m_handOver;
    SessionWorker *m_worker = nullptr; // lives on the engine thread; deleted there

    QString m_currentStreamTitle;
    std::optional<QString> m_errorMessage;
    qint64 m_recordedCount = 0;
    int m_runningSaves = 0;
    bool m_deleteWhenIdle = false;
    bool m_workerFinished = false;
    SessionStatus m_status;
    std::optional<SessionOutcome> m_outcome;
    QElapsedTimer m_clock;
    qint64 m_elapsedAtEndMs = 0;
    CutPlanner::Keep m_keep = CutPlanner::Keep::NoTitle;
};
