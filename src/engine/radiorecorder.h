#pragma once

#include "engine/sessionstatus.h"
#include "library/track.h"
#include "stations/station.h"

#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>

#include <functional>
#include <optional>

class LibraryStore;
class RecordingContext;
class RecordingSession;

// The running recordings, at most one per station, in the order they were started.
//
// Lives on the GUI thread (in orvida-cli: the main thread), like the sessions it owns.
// A session leaves the list the moment it ends, whether stopped here or because it gave
// up on the stream; its last song is still being saved then, so the session itself stays
// alive until that save is back (RecordingSession::deleteWhenIdle) and waitForSaves()
// waits for it too. Views follow the signals; every per-session signal names the station
// id, since the same session object is never announced twice.
class RadioRecorder : public QObject {
    Q_OBJECT

public:
    using TrackCallback = std::function<void(const Track &)>;

    explicit RadioRecorder(RecordingContext &context, QObject *parent = nullptr);
    // Stops what still runs. Songs not saved by then are lost: shut down with stop() and
    // waitForSaves() first.
    ~RadioRecorder() override;

    [[nodiscard]] const QList<RecordingSession *> &sessions() const { return m_sessions; }
    // The station whose recording ended most recently.
    [[nodiscard]] const std::optional<Station> &lastStation() const { return m_lastStation; }
    // The latest error text any session reported; cleared by the next start.
    [[nodiscard]] const std::optional<QString> &errorMessage() const { return m_errorMessage; }

    // Starts recording `station` unless it is already being recorded; a second start is
    // ignored whatever it asks for. `onTrackSaved` receives every song the session saves,
    // on this thread, including the last one that is saved after the session ended.
    // Returns whether a session was started.
    bool start(const Station &station, const std::optional<QString> &fullShowTitle = std::nullopt,
        TrackCallback onTrackSaved = {});
    void stop();
    void stop(const Station &station);
    void stop(const QString &stationId);

    [[nodiscard]] bool isRecordingStation(const Station &station) const { return isRecordingStation(station.id); }
    [[nodiscard]] bool isRecordingStation(const QString &stationId) const { return session(stationId) != nullptr; }
    // The current stream title of that station's session; absent when it is not recorded.
    [[nodiscard]] std::optional<QString> streamTitle(const Station &station) const;
    [[nodiscard]] RecordingSession *session(const QString &stationId) const;

    // Saves still running or still to come, of running and of ended sessions.
    [[nodiscard]] bool hasPendingSaves() const;
    // Runs the event loop until hasPendingSaves() is false. For shutdown paths only.
    void waitForSaves();

    // Files a saved song into the library. A song whose file is already listed (a later
    // take saved under the same name) updates that entry's title, artist, album, duration
    // and station and keeps the rest (date added, play count, favourite); otherwise it is
    // inserted. Returns false when the library refused; its lastError() says why.
    [[nodiscard]] static bool upsertIntoLibrary(const Track &track, LibraryStore &library);

Q_SIGNALS:
    void sessionsChanged();
    void sessionStarted(const Station &station);
    // How it ended: stopped here, or on its own (gave up, invalid address).
    void sessionEnded(const Station &station, SessionOutcome outcome);
    void lastStationChanged();
    void errorMessageChanged();
    void streamTitleChanged(const QString &stationId, const QString &title);
    void sessionErrorChanged(const QString &stationId, const QString &message);
    // Connecting, recording, reconnecting (attempt, reason), bytes; see SessionStatus.
    void sessionStatusChanged(const QString &stationId, const SessionStatus &status);
    void recordedCountChanged(const QString &stationId, qint64 count);
    void trackSaved(const QString &stationId, const Track &track);
    // What became of the songs that were not saved, or not as asked; like trackSaved they
    // come for a session's last songs after it has ended. See RecordingSession.
    void saveFailed(const QString &stationId, const QString &message);
    void songSkipped(const QString &stationId, const QString &title, const QString &reason);
    void saveNotice(const QString &stationId, const QString &message);

private:
    void endSession(const QString &stationId, const Station &station, SessionOutcome outcome);
    void retire(RecordingSession *session);
    void setErrorMessage(std::optional<QString> message);

    RecordingContext &m_context;
    QList<RecordingSession *> m_sessions;
    // Ended sessions whose last song may still be on its way; they delete themselves.
    QList<QPointer<RecordingSession>> m_retired;
    std::optional<Station> m_lastStation;
    std::optional<QString> m_errorMessage;
};
