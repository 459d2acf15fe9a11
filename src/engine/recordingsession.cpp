#include "engine/recordingsession.h"

#include "engine/radioenginesettings.h"
#include "engine/recordingcontext.h"
#include "engine/recordingstats.h"
#include "engine/sessionworker.h"

#include <QThread>

RecordingSession::RecordingSession(const Station &station, std::optional<QString> fullShowTitle,
                                   RecordingContext &context, QObject *parent)
    : QObject(parent)
    , m_station(station)
    , m_fullShowTitle(std::move(fullShowTitle))
    , m_context(context)
    , m_stopped(std::make_shared<std::atomic<bool>>(false))
{
    m_clock.start();
    m_status.maxAttempts = context.timings.maxReconnects;
    m_worker = new SessionWorker(m_station, m_fullShowTitle, context, m_stopped);
    m_worker->moveToThread(context.engineThread());
    connect(m_worker, &SessionWorker::titleAccepted, this, &RecordingSession::setCurrentStreamTitle);
    connect(m_worker, &SessionWorker::errorChanged, this, &RecordingSession::setErrorMessage);
    connect(m_worker, &SessionWorker::ended, this, &RecordingSession::end);
    connect(m_worker, &SessionWorker::statusChanged, this, &RecordingSession::setStatus);
    connect(m_worker, &SessionWorker::songReady, this, &RecordingSession::startSave);
    QMetaObject::invokeMethod(m_worker, &SessionWorker::start, Qt::QueuedConnection);
}

RecordingSession::~RecordingSession()
{
    stop();
}

void RecordingSession::stop()
{
    Q_ASSERT(QThread::currentThread() == thread());
    if (m_stopped->exchange(true))
        return;
    // The worker finalises the open segment on its own thread, then goes; the song it
    // hands back arrives here as a queued signal and is saved like any other.
    SessionWorker *worker = m_worker;
    m_worker = nullptr;
    QPointer<RecordingSession> self(this);
    QMetaObject::invokeMethod(
        worker,
        [worker, self] {
            worker->shutDown();
            worker->deleteLater();
            // Posted after the last song's signal, so it arrives after it.
            QMetaObject::invokeMethod(
                self.data(),
                [self] {
                    if (self) {
                        self->m_workerFinished = true;
                        self->maybeDelete();
                    }
                },
                Qt::QueuedConnection);
        },
        Qt::QueuedConnection);
    end(SessionOutcome::Stopped);
}

void RecordingSession::deleteWhenIdle()
{
    m_deleteWhenIdle = true;
    maybeDelete();
}

void RecordingSession::maybeDelete()
{
    // The worker's last song may still be on its way: wait until the worker has
    // finalised it and said so.
    if (m_deleteWhenIdle && m_workerFinished && m_runningSaves == 0)
        deleteLater();
}

void RecordingSession::flushToDisk(std::function<void()> done)
{
    if (!m_worker) {
        if (done)
            done();
        return;
    }
    QPointer<RecordingSession> self(this);
    QMetaObject::invokeMethod(
        m_worker,
        [worker = m_worker, self, done = std::move(done)] {
            worker->flushToDisk();
            QMetaObject::invokeMethod(
                self.data(), [self, done] {
                    if (self && done)
                        done();
                },
                Qt::QueuedConnection);
        },
        Qt::QueuedConnection);
}

void RecordingSession::setCurrentStreamTitle(const QString &title)
{
    if (m_currentStreamTitle == title)
        return;
    m_currentStreamTitle = title;
    Q_EMIT currentStreamTitleChanged(title);
}

void RecordingSession::setErrorMessage(const QString &message)
{
    if (m_errorMessage == message)
        return;
    m_errorMessage = message;
    Q_EMIT errorMessageChanged(message);
}

void RecordingSession::end(SessionOutcome outcome)
{
    // The first end counts: a stop after giving up only finishes the work.
    if (m_outcome)
        return;
    m_outcome = outcome;
    m_elapsedAtEndMs = m_clock.elapsed();
    if (outcome == SessionOutcome::Stopped) {
        SessionStatus status = m_status;
        status.state = SessionStatus::State::Stopped;
        status.reconnectAt = QDeadlineTimer(QDeadlineTimer::Forever);
        m_status = status;
        Q_EMIT statusChanged(m_status);
    }
    // Not a stop when it gave up: the owner decides what to do with it.
    if (auto callback = std::move(onStopped)) {
        onStopped = nullptr;
        callback(outcome);
    }
    Q_EMIT ended(outcome);
}

void RecordingSession::setStatus(const SessionStatus &status)
{
    // Reports still queued from the engine thread after a stop are stale.
    if (m_outcome == SessionOutcome::Stopped || m_status == status)
        return;
    m_status = status;
    Q_EMIT statusChanged(m_status);
}

void RecordingSession::startSave(std::shared_ptr<std::vector<SegmentLock>> segments, const QString &title)
{
    ++m_runningSaves;
    SaveOptions options;
    options.stationId = m_station.id;
    options.fullShow = m_fullShowTitle.has_value();
    options.http = m_context.storeBase.isEmpty() ? nullptr : &m_context.http();
    options.storeBase = m_context.storeBase;
    options.ffmpegPath = m_context.ffmpegPath;
    options.settings = [id = m_station.id] {
        const RadioEngineSettings s = RadioEngineSettings::effective(id);
        return SaveSettings{s.skipJingles, s.lossless, s.minDurationSec};
    };
    m_context.runSave(
        [segments, title, stationName = m_station.name, options] {
            return SongSaver::mergeAndSave(std::move(*segments), title, stationName, options);
        },
        this,
        [this](std::optional<SavedSong> saved) {
            --m_runningSaves;
            if (saved)
                finishSave(*saved);
            maybeDelete();
        });
}

void RecordingSession::finishSave(const SavedSong &song)
{
    if (RecordingStats *stats = m_context.stats())
        stats->note(m_station.name);
    ++m_recordedCount;
    Q_EMIT recordedCountChanged(m_recordedCount);
    const Track track(song.title, song.artist, song.album, song.durationSec, QDateTime::currentDateTimeUtc(), QString(),
                      false, 0, QStringLiteral("radio"), song.stationName, song.filePath);
    if (onTrackSaved)
        onTrackSaved(track);
    Q_EMIT trackSaved(track);
}
