#include "engine/recorderservices.h"

#include "engine/closedlidkeeper.h"
#include "engine/radiorecorder.h"
#include "engine/recordingcontext.h"
#include "engine/recordingsession.h"
#include "engine/recordingstats.h"
#include "engine/segmentrecovery.h"
#include "engine/sleepguard.h"
#include "library/librarystore.h"

#include <QFutureWatcher>
#include <QThread>
#include <QtConcurrent/QtConcurrentRun>

RecorderServices::RecorderServices(HttpClient &http, DBusLink &systemBus, DBusLink &sessionBus,
    std::unique_ptr<LibraryStore> library, Options options, QObject *parent)
    : QObject(parent)
    , m_systemBus(systemBus)
    , m_library(std::move(library))
{
    if (options.recoverSegments) {
        m_recovery = QtConcurrent::run([] { return SegmentRecovery::recoverOrphans(); });
        auto *watcher = new QFutureWatcher<SegmentRecovery::Result>(this);
        connect(watcher, &QFutureWatcher<SegmentRecovery::Result>::finished, this, [this, watcher] {
            watcher->deleteLater();
            deliverRecovery();
        });
        watcher->setFuture(m_recovery);
    }

    m_stats = std::make_unique<RecordingStats>();
    m_context = std::make_unique<RecordingContext>(http, m_stats.get());
    m_context->storeBase = options.storeBase;
    m_context->ffmpegPath = options.ffmpegPath;
    // Hidden and for tests only (the soak test stalls streams): ORVIDA_IDLE_TIMEOUT_SEC
    // shortens how long a connected but silent stream is waited for before a reconnect.
    bool ok = false;
    const double idleTimeoutSec = qEnvironmentVariable("ORVIDA_IDLE_TIMEOUT_SEC").toDouble(&ok);
    if (ok && idleTimeoutSec >= 1)
        m_context->timings.idleTimeoutSec = idleTimeoutSec;
    m_recorder = std::make_unique<RadioRecorder>(*m_context);

    m_sleepGuard = std::make_unique<SleepGuard>(systemBus, sessionBus, [this](std::function<void()> done) {
        SleepGuard::flushSessions(m_recorder ? m_recorder->sessions() : QList<RecordingSession *>(), std::move(done));
    });
    connect(m_recorder.get(), &RadioRecorder::sessionsChanged, m_sleepGuard.get(), [this] {
        const bool recording = !m_recorder->sessions().isEmpty();
        m_sleepGuard->setRecording(recording);
        // A scheduler decides the hold itself (a pending plan keeps it too); without one, as
        // in `record`, a running recording alone keeps the computer awake.
        if (m_scheduler)
            return;
        if (recording)
            m_sleepGuard->acquire(QString(PowerAssertion::kRecordingReason));
        else
            m_sleepGuard->release();
    });
}

RecorderServices::~RecorderServices()
{
    shutDown();
}

SniperScheduler &RecorderServices::startScheduler(SniperScheduler::Options options)
{
    Q_ASSERT(QThread::currentThread() == thread());
    Q_ASSERT(!m_shutDown);
    if (m_scheduler)
        return *m_scheduler;
    m_lidKeeper = std::make_unique<ClosedLidKeeper>(m_systemBus, nullptr, options.clock);
    options.closedLidKeeper = m_lidKeeper.get();
    m_scheduler = std::make_unique<SniperScheduler>(*m_sleepGuard, options);
    // Without a library plans still record (and keep the computer awake); their songs
    // stay in the radio folder unfiled.
    m_scheduler->configure(*m_recorder, m_library.get());
    return *m_scheduler;
}

void RecorderServices::waitForRecovery()
{
    m_recovery.waitForFinished();
}

void RecorderServices::deliverRecovery()
{
    if (m_recoveryDelivered || !m_recovery.isValid() || !m_recovery.isFinished())
        return;
    m_recoveryDelivered = true;
    const SegmentRecovery::Result result = m_recovery.result();
    if (m_library) {
        for (const SegmentRecovery::RecoveredSong &song : result.recovered) {
            if (!RadioRecorder::upsertIntoLibrary(SegmentRecovery::toTrack(song), *m_library))
                Q_EMIT libraryProblem(song.filePath + QStringLiteral(": not filed into the library: ")
                                      + m_library->lastError());
        }
    }
    Q_EMIT segmentsRecovered(result);
}

void RecorderServices::shutDown()
{
    Q_ASSERT(QThread::currentThread() == thread());
    if (m_shutDown)
        return;
    m_shutDown = true;
    // No tick may start anything while the last songs are being saved.
    m_scheduler.reset();
    m_lidKeeper.reset();
    m_recorder->stop();
    m_recorder->waitForSaves();
    m_context->waitForSaves();
    waitForRecovery();
    deliverRecovery();
    SegmentRecovery::leaveParking();
    m_recorder.reset();
    m_library.reset();
    m_sleepGuard.reset();
}
