#include "app/sessionlist.h"

#include "engine/recordingcontext.h"
#include "engine/recordingsession.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QThread>

SessionList::SessionList(RecordingContext &context, QObject *parent)
    : QObject(parent)
    , m_context(context)
{
}

SessionList::~SessionList()
{
    // The composition root stops and waits before it gets here; this only keeps a
    // forgotten session from outliving its context.
    stop();
    for (const QPointer<RecordingSession> &session : std::as_const(m_finishing))
        delete session.data();
}

bool SessionList::isRecording(const QString &stationId) const
{
    return session(stationId) != nullptr;
}

RecordingSession *SessionList::session(const QString &stationId) const
{
    for (RecordingSession *s : m_sessions) {
        if (s->id() == stationId)
            return s;
    }
    return nullptr;
}

QSet<QString> SessionList::stationIds() const
{
    QSet<QString> ids;
    for (const RecordingSession *s : m_sessions)
        ids.insert(s->id());
    return ids;
}

void SessionList::start(const Station &station, const std::optional<QString> &fullShowTitle)
{
    Q_ASSERT(QThread::currentThread() == thread());
    if (isRecording(station.id))
        return;
    auto *session = new RecordingSession(station, fullShowTitle, m_context);
    session->onTrackSaved = [this](const Track &track) {
        if (onTrackSaved)
            onTrackSaved(track);
    };
    const QString stationId = station.id;
    QPointer<SessionList> self(this);
    session->onStopped = [self, stationId, station] {
        if (self)
            self->sessionEnded(stationId, station);
    };
    m_sessions.append(session);
    Q_EMIT sessionsChanged();
}

void SessionList::stop(const QString &stationId)
{
    if (RecordingSession *s = session(stationId))
        s->stop();
}

void SessionList::stop()
{
    // stop() calls onStopped synchronously, which shrinks the list: work on a copy.
    const QList<RecordingSession *> snapshot = m_sessions;
    for (RecordingSession *s : snapshot)
        s->stop();
}

int SessionList::finishingCount() const
{
    int count = 0;
    for (const QPointer<RecordingSession> &s : m_finishing)
        count += (s && !s->isIdle()) ? 1 : 0;
    return count;
}

void SessionList::stopAndWait(int timeoutMs)
{
    stop();
    QElapsedTimer clock;
    clock.start();
    while (finishingCount() > 0 && clock.elapsed() < timeoutMs)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
}

void SessionList::sessionEnded(const QString &stationId, const Station &station)
{
    m_lastStation = station;
    bool removed = false;
    for (qsizetype i = m_sessions.size() - 1; i >= 0; --i) {
        RecordingSession *s = m_sessions[i];
        if (s->id() != stationId)
            continue;
        m_sessions.removeAt(i);
        m_finishing.removeAll(nullptr);
        m_finishing.append(s);
        s->deleteWhenIdle();
        removed = true;
    }
    if (removed)
        Q_EMIT sessionsChanged();
}
