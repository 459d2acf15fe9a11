#include "engine/radiorecorder.h"

#include "engine/recordingcontext.h"
#include "engine/recordingsession.h"
#include "library/librarystore.h"

#include <QCoreApplication>
#include <QThread>

#include <algorithm>

RadioRecorder::RadioRecorder(RecordingContext &context, QObject *parent)
    : QObject(parent)
    , m_context(context)
{
}

RadioRecorder::~RadioRecorder()
{
    // Nobody listens any more: end the sessions without announcing it, and delete what
    // is left now, since a deferred deletion may never run after this.
    const QList<RecordingSession *> running = std::exchange(m_sessions, {});
    for (RecordingSession *session : running) {
        session->disconnect(); // also the save outcomes, which outlive retire()
        session->onStopped = nullptr;
        session->onTrackSaved = nullptr;
        delete session;
    }
    for (const QPointer<RecordingSession> &session : std::as_const(m_retired)) {
        if (session)
            session->disconnect();
        delete session.data();
    }
}

bool RadioRecorder::start(
    const Station &station, const std::optional<QString> &fullShowTitle, TrackCallback onTrackSaved)
{
    Q_ASSERT(QThread::currentThread() == thread());
    if (isRecordingStation(station))
        return false;
    setErrorMessage(std::nullopt);

    auto *session = new RecordingSession(station, fullShowTitle, m_context);
    const QString id = station.id;
    QPointer<RadioRecorder> self(this);
    session->onStopped = [self, id, station](SessionOutcome outcome) {
        if (self)
            self->endSession(id, station, outcome);
    };
    // Stays set after the session left the list: its last song is saved after the stop.
    session->onTrackSaved = [self, id, onTrackSaved = std::move(onTrackSaved)](const Track &track) {
        if (onTrackSaved)
            onTrackSaved(track);
        if (self)
            Q_EMIT self->trackSaved(id, track);
    };
    // What becomes of each song is told even after the session has left the list (its
    // last song is saved after the stop), so these use the session as their context and
    // survive retire().
    connect(session, &RecordingSession::saveFailed, session, [self, id](const QString &message) {
        if (self)
            Q_EMIT self->saveFailed(id, message);
    });
    connect(session, &RecordingSession::songSkipped, session, [self, id](const QString &title, const QString &reason) {
        if (self)
            Q_EMIT self->songSkipped(id, title, reason);
    });
    connect(session, &RecordingSession::saveNotice, session, [self, id](const QString &message) {
        if (self)
            Q_EMIT self->saveNotice(id, message);
    });
    connect(session, &RecordingSession::currentStreamTitleChanged, this,
        [this, id](const QString &title) { Q_EMIT streamTitleChanged(id, title); });
    connect(session, &RecordingSession::errorMessageChanged, this, [this, id](const QString &message) {
        setErrorMessage(message);
        Q_EMIT sessionErrorChanged(id, message);
    });
    connect(session, &RecordingSession::statusChanged, this,
        [this, id](const SessionStatus &status) { Q_EMIT sessionStatusChanged(id, status); });
    connect(session, &RecordingSession::recordedCountChanged, this,
        [this, id](qint64 count) { Q_EMIT recordedCountChanged(id, count); });

    m_sessions.append(session);
    Q_EMIT sessionStarted(station);
    Q_EMIT sessionsChanged();
    return true;
}

void RadioRecorder::stop()
{
    // Each stop shrinks the list (onStopped runs inside it).
    const QList<RecordingSession *> snapshot = m_sessions;
    for (RecordingSession *session : snapshot)
        session->stop();
}

void RadioRecorder::stop(const Station &station)
{
    stop(station.id);
}

void RadioRecorder::stop(const QString &stationId)
{
    if (RecordingSession *s = session(stationId))
        s->stop();
}

std::optional<QString> RadioRecorder::streamTitle(const Station &station) const
{
    if (const RecordingSession *s = session(station.id))
        return s->currentStreamTitle();
    return std::nullopt;
}

RecordingSession *RadioRecorder::session(const QString &stationId) const
{
    const auto it = std::find_if(
        m_sessions.cbegin(), m_sessions.cend(), [&](const RecordingSession *s) { return s->id() == stationId; });
    return it == m_sessions.cend() ? nullptr : *it;
}

void RadioRecorder::endSession(const QString &stationId, const Station &station, SessionOutcome outcome)
{
    Q_ASSERT(QThread::currentThread() == thread());
    m_lastStation = station;
    QList<RecordingSession *> ended;
    m_sessions.removeIf([&](RecordingSession *s) {
        if (s->id() != stationId)
            return false;
        ended.append(s);
        return true;
    });
    for (RecordingSession *session : ended)
        retire(session);
    Q_EMIT lastStationChanged();
    Q_EMIT sessionEnded(station, outcome);
    Q_EMIT sessionsChanged();
}

void RadioRecorder::retire(RecordingSession *session)
{
    // The per-session signals of a session no longer listed would name a station that is
    // not being recorded; only its saved songs still matter (through onTrackSaved).
    session->disconnect(this);
    // A session that gave up is not stopped yet, and only a stopped one finishes.
    // onStopped has been used up, so this does not come back here.
    session->stop();
    m_retired.removeIf([](const QPointer<RecordingSession> &s) { return s.isNull(); });
    m_retired.append(session);
    session->deleteWhenIdle();
}

bool RadioRecorder::hasPendingSaves() const
{
    const bool running = std::any_of(
        m_sessions.cbegin(), m_sessions.cend(), [](const RecordingSession *s) { return s->runningSaves() > 0; });
    const bool ending = std::any_of(
        m_retired.cbegin(), m_retired.cend(), [](const QPointer<RecordingSession> &s) { return s && !s->isIdle(); });
    return running || ending || m_context.runningSaves() > 0;
}

void RadioRecorder::waitForSaves()
{
    while (hasPendingSaves())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
}

void RadioRecorder::setErrorMessage(std::optional<QString> message)
{
    if (m_errorMessage == message)
        return;
    m_errorMessage = std::move(message);
    Q_EMIT errorMessageChanged();
}

bool RadioRecorder::upsertIntoLibrary(const Track &track, LibraryStore &library)
{
    const QList<Track> existing = track.filePath ? library.tracksByFilePath(*track.filePath) : QList<Track>();
    if (existing.isEmpty())
        return library.insert(track).has_value();
    Track updated = existing.first();
    updated.title = track.title;
    updated.artist = track.artist;
    updated.album = track.album;
    updated.duration = track.duration;
    updated.station = track.station;
    return library.save(updated);
}
