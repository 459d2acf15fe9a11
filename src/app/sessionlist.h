#pragma once

#include "library/track.h"
#include "stations/station.h"

#include <QList>
#include <QObject>
#include <QPointer>
#include <QSet>
#include <QString>

#include <functional>
#include <optional>

class RecordingContext;
class RecordingSession;

// The window's running recordings: at most one session per station id, in start order.
// A session leaves the list the moment it stops (by hand or because it gave up); it then
// finishes its last song in the background and deletes itself once that save is back.
//
// Lives on the GUI thread, as do the sessions it creates.
class SessionList : public QObject {
    Q_OBJECT

public:
    explicit SessionList(RecordingContext &context, QObject *parent = nullptr);
    ~SessionList() override;

    [[nodiscard]] const QList<RecordingSession *> &sessions() const { return m_sessions; }
    [[nodiscard]] bool isRecording(const QString &stationId) const;
    [[nodiscard]] RecordingSession *session(const QString &stationId) const;
    [[nodiscard]] QSet<QString> stationIds() const;
    [[nodiscard]] const std::optional<Station> &lastStation() const { return m_lastStation; }

    // Starts recording unless the station is already being recorded.
    void start(const Station &station, const std::optional<QString> &fullShowTitle = std::nullopt);
    void stop(const QString &stationId);
    void stop();

    // Stopped sessions whose last save has not come back yet.
    [[nodiscard]] int finishingCount() const;
    // Stops everything and runs the event loop until every stopped session is gone or
    // `timeoutMs` passed. For shutdown.
    void stopAndWait(int timeoutMs);

    // Each saved song, on the GUI thread.
    std::function<void(const Track &)> onTrackSaved;

Q_SIGNALS:
    void sessionsChanged();

private:
    void sessionEnded(const QString &stationId, const Station &station);

    RecordingContext &m_context;
    QList<RecordingSession *> m_sessions;
    QList<QPointer<RecordingSession>> m_finishing;
    std::optional<Station> m_lastStation;
};
