#include "engine/recordingsession.h"

#include "engine/radioenginesettings.h"
#include "engine/recordingcontext.h"
#include "engine/recordingstats.h"
#include "engine/segmentrecovery.h"
#include "engine/sessionworker.h"
#include "engine/tracksegmenter.h"
#include "engine/tracktitle.h"

#include <QFileInfo>

#include <QThread>

RecordingSession::RecordingSession(const Station &station, std::optional<QString> fullShowTitle,
                                   RecordingContext &context, QObject *parent)
    : QObject(parent)
    , m_station(station)
    , m_fullShowTitle(std::move(fullShowTitle))
    , m_context(context)
    , m_stopped(std::make_shared<std::atomic<bool>>(false))
    , m_handOver(std::make_shared<HandOver>())
{
    m_worker = new SessionWorker(m_station, m_fullShowTitle, context, m_stopped);
    wire();
}

RecordingSession::RecordingSession(const Station &station, Listening listening, RecordingContext &context,
                                   QObject *parent)
    : QObject(parent)
    , m_station(station)
    , m_listening(true)
    , m_context(context)
    , m_stopped(std::make_shared<std::atomic<bool>>(false))
    , m_handOver(std::make_shared<HandOver>())
{
    const qint64 bytesPerSec = TrackSegmenter::bytesPerSecForBitrate(station.bitrate);
    const qint64 maxSongBytes = qint64(std::max(0.0, listening.maxSongSec) * double(bytesPerSec));
    m_worker = new SessionWorker(m_station, std::nullopt, context, m_stopped, CutPlanner::Listening{maxSongBytes});
    connect(m_worker, &SessionWorker::keepChanged, this, [this](CutPlanner::Keep keep) {
        if (m_keep == keep)
            return;
        m_keep = keep;
        Q_EMIT keepChanged(keep);
    });
    // After the stop too: an armed song abandoned by the stop is reported after it.
    connect(m_worker, &SessionWorker::saveRefused, this, &RecordingSession::saveRefused);
    connect(m_worker, &SessionWorker::songAbandoned, this, &RecordingSession::songAbandoned);
    wire();
}

void RecordingSession::wire()
{
    m_clock.start();
    m_status.maxAttempts = m_context.timings.maxReconnects;
    m_handOver->session = this;
    m_worker->moveToThread(m_context.engineThread());
    // Runs on the engine thread, where the song is handed over: the screening and the
    // parking are file work that the GUI thread must not wait for.
    connect(
        m_worker, &SessionWorker::songReady, m_worker,
        [handOver = m_handOver, station = m_station, fullShow = m_fullShowTitle.has_value(),
         stopped = m_stopped](std::shared_ptr<std::vector<SegmentLock>> segments, const QString &title) {
            // After the stop only the song in progress is handed over.
            takeSong(handOver, station, fullShow, stopped->load(), std::move(*segments), title);
        },
        Qt::DirectConnection);
    QMetaObject::invokeMethod(
        m_worker,
        [handOver = m_handOver] {
            if (const auto why = SongSaver::checkRadioFolder())
                handOver->post([why = *why](RecordingSession &session) { Q_EMIT session.saveFailed(why); });
        },
        Qt::QueuedConnection);
    connect(m_worker, &SessionWorker::titleAccepted, this, &RecordingSession::setCurrentStreamTitle);
    connect(m_worker, &SessionWorker::errorChanged, this, &RecordingSession::setErrorMessage);
    connect(m_worker, &SessionWorker::ended, this, &RecordingSession::end);
    connect(m_worker, &SessionWorker::statusChanged, this, &RecordingSession::setStatus);
    QMetaObject::invokeMethod(m_worker, &SessionWorker::start, Qt::QueuedConnection);
}

void RecordingSession::saveSong(const QString &title)
{
    Q_ASSERT(QThread::currentThread() == thread());
    if (!m_listening)
        return;
    if (!m_worker) { // stopped: the song playing was abandoned with it
        QMetaObject::invokeMethod(
            this, [this, title] { Q_EMIT saveRefused(title, CutPlanner::ArmResult::Ended); }, Qt::QueuedConnection);
        return;
    }
    QMetaObject::invokeMethod(m_worker, [worker = m_worker, title] { worker->armSave(title); }, Qt::QueuedConnection);
}

QString RecordingSession::queueKey() const
{
    return m_listening ? QStringLiteral("listen:") + m_station.id : m_station.id;
}

RecordingSession::~RecordingSession()
{
    stop();
    QMutexLocker locker(&m_handOver->mutex);
    m_handOver->session = nullptr;
}

void RecordingSession::HandOver::post(std::function<void(RecordingSession &)> call)
{
    // Held while posting: the session cannot finish its destructor in between, and an
    // event posted to it before that is discarded with it.
    QMutexLocker locker(&mutex);
    if (!session)
        return;
    QPointer<RecordingSession> target(session);
    QMetaObject::invokeMethod(
        session,
        [target, call = std::move(call)] {
            if (target)
                call(*target);
        },
        Qt::QueuedConnection);
}

void RecordingSession::stop()
{
    Q_ASSERT(QThread::currentThread() == thread());
    if (m_stopped->exchange(true))
        return;
    // A listening session's waiting songs were each asked for: they are saved.
    if (!m_listening)
        m_context.leaveWaiting(m_station.id);
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

void RecordingSession::takeSong(const std::shared_ptr<HandOver> &handOver, const Station &station, bool fullShow,
                                bool finalSong, std::vector<SegmentLock> segments, const QString &streamTitle)
{
    // Shown in event lines: a station must not be able to forge one with a tab or newline.
    const QString title = TrackTitle::withoutControlCharacters(streamTitle);
    qint64 bytes = 0;
    for (const SegmentLock &segment : segments)
        bytes += QFileInfo(segment.path()).size();
    const RadioEngineSettings s = RadioEngineSettings::effective(station.id);
    const qint64 bytesPerSec = TrackSegmenter::bytesPerSecForBitrate(station.bitrate);
    if (const auto why = SongSaver::screen(title, bytes, bytesPerSec, {s.skipJingles, s.lossless, s.minDurationSec},
                                           fullShow)) {
        for (SegmentLock &segment : segments)
            segment.removeFile();
        handOver->post([title, why = *why](RecordingSession &session) { Q_EMIT session.songSkipped(title, why); });
        return;
    }
    const QStringList parked = SegmentRecovery::park(std::move(segments));
    handOver->post([parked, title, finalSong](RecordingSession &session) { session.startSave(parked, title, finalSong); });
}

void RecordingSession::startSave(const QStringList &parkedSegments, const QString &title, bool finalSong)
{
    if (m_stopped->load() && !finalSong && !m_listening) {
        // Finished before the stop but arrived after it: part of the backlog a stop leaves.
        Q_EMIT songSkipped(title, QStringLiteral("recording stopped before its save: left for recovery at the next start"));
        return;
    }
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
    m_context.enqueueSave(
        queueKey(), title,
        [parkedSegments, title, stationName = m_station.name, options] {
            // Locked again for the save's duration, so nothing else touches them meanwhile.
            std::vector<SegmentLock> segments;
            for (const QString &path : parkedSegments) {
                if (auto lock = SegmentLock::tryAcquire(path))
                    segments.push_back(std::move(*lock));
            }
            return SongSaver::mergeAndSave(std::move(segments), title, stationName, options);
        },
        this,
        [this](SaveOutcome outcome) {
            --m_runningSaves;
            finishSave(outcome);
            maybeDelete();
        });
}

void RecordingSession::finishSave(const SaveOutcome &outcome)
{
    const QString title = outcome.streamTitle.isEmpty() ? m_station.name : outcome.streamTitle;
    switch (outcome.result) {
    case SaveResult::Skipped:
        Q_EMIT songSkipped(title, outcome.reason);
        return;
    case SaveResult::Failed:
        Q_EMIT saveFailed(QStringLiteral("\"%1\" not saved: %2; its audio is left for recovery at the next start")
                              .arg(title, outcome.reason));
        return;
    case SaveResult::Saved:
        break;
    }
    const SavedSong &song = *outcome.song;
    if (!outcome.reason.isEmpty())
        Q_EMIT saveNotice(QStringLiteral("\"%1\" %2").arg(title, outcome.reason));
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
