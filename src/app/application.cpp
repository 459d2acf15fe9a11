#include "app/application.h"

#include "app/scheduleformat.h"
#include "app/texts.h"
#include "engine/closedlidkeeper.h"
#include "engine/enginesettingsstore.h"
#include "engine/radiorecorder.h"
#include "engine/recordingcontext.h"
#include "engine/recordingsession.h"
#include "engine/recordingstats.h"
#include "engine/segmentrecovery.h"
#include "engine/sleepguard.h"
#include "engine/sniperscheduler.h"
#include "engine/trackinfolookup.h"
#include "library/librarystore.h"
#include "platform/desktopnotifier.h"
#include "stations/directoryapi.h"
#include "stations/favoritestations.h"
#include "stations/recentstations.h"
#include "stations/globestationstore.h"
#include "stations/stationdirectory.h"
#include "tools/youtubeservice.h"

#include <QCoreApplication>
#include <QPointer>
#include <QtConcurrent/QtConcurrentRun>

Application::Application(ApplicationOptions options, QObject *parent)
    : QObject(parent)
    , m_directoryBase(options.directoryBase.isEmpty() ? DirectoryApi::baseUrl() : options.directoryBase)
    , m_clock(std::move(options.clock))
    , m_systemBus(options.systemBusAddress, QStringLiteral("system"))
    , m_sessionBus(options.sessionBusAddress, QStringLiteral("session"))
{
    LibraryOpenResult opened =
        LibraryStore::open(options.libraryPath.isEmpty() ? LibraryStore::defaultPath() : options.libraryPath);
    m_library = std::move(opened.store);
    m_libraryError = opened.message;

    if (options.recoverSegments) {
        // Leftovers of a crash: blocking file work, and no session of ours runs yet. What it
        // salvages is filed into the library back on this thread.
        QPointer<Application> self(this);
        (void)QtConcurrent::run([self] {
            SegmentRecovery::Result result = SegmentRecovery::recoverOrphans();
            QMetaObject::invokeMethod(
                qApp,
                [self, result] {
                    if (!self || !self->m_library)
                        return;
                    for (const SegmentRecovery::RecoveredSong &song : result.recovered)
                        (void)RadioRecorder::upsertIntoLibrary(SegmentRecovery::toTrack(song), *self->m_library);
                },
                Qt::QueuedConnection);
        });
    }

    m_stats = std::make_unique<RecordingStats>();
    m_context = std::make_unique<RecordingContext>(m_http, m_stats.get());
    m_context->storeBase = options.storeBase.isEmpty() ? TrackInfoLookup::storeBase() : options.storeBase;
    m_context->ffmpegPath = YouTubeService::ffmpegDir() + QStringLiteral("/ffmpeg");
    m_engineSettings = std::make_unique<EngineSettingsStore>();
    m_favorites = std::make_unique<FavoriteStations>(FavoriteStations::defaultFileUrl());
    m_recents = std::make_unique<RecentStations>();
    m_directory = std::make_unique<StationDirectory>(m_http, m_directoryBase);
    // The catalogue is fetched when the globe is first shown, not at start.
    m_globe = std::make_unique<GlobeStationStore>(m_http, m_directoryBase);
    m_recorder = std::make_unique<RadioRecorder>(*m_context);
    m_tools = std::make_unique<YouTubeService>(m_http);
    if (options.checkForToolUpdate)
        m_tools->updateYtDlpIfNeeded(false);

    m_sleepGuard = std::make_unique<SleepGuard>(m_systemBus, m_sessionBus, [this](std::function<void()> done) {
        SleepGuard::flushSessions(m_recorder ? m_recorder->sessions() : QList<RecordingSession *>(), std::move(done));
    });
    connect(m_recorder.get(), &RadioRecorder::sessionsChanged, m_sleepGuard.get(),
            [this] { m_sleepGuard->setRecording(!m_recorder->sessions().isEmpty()); });
    m_lidKeeper = std::make_unique<ClosedLidKeeper>(m_systemBus, nullptr, m_clock);
    m_notifier = std::make_unique<DesktopNotifier>(m_sessionBus);
    SniperScheduler::Options scheduling;
    scheduling.clock = m_clock;
    scheduling.tickInterval = options.scheduleTickInterval;
    scheduling.closedLidKeeper = m_lidKeeper.get();
    m_scheduler = std::make_unique<SniperScheduler>(*m_sleepGuard, scheduling);
    connect(m_scheduler.get(), &SniperScheduler::scheduledRecordingStarted, this,
            [this](const ScheduledRecording &plan) { announce("schedule.notifyStarted", plan); });
    connect(m_scheduler.get(), &SniperScheduler::scheduledRecordingEnded, this,
            [this](const ScheduledRecording &plan) { announce("schedule.notifyEnded", plan); });
    // Without a library the plans can still be seen and edited; they only record once a
    // library is there to file their songs into.
    if (m_library)
        m_scheduler->configure(*m_recorder, *m_library);
}

Application::~Application()
{
    shutDown();
}

bool Application::startRecording(const Station &station)
{
    // Planned windows are started by the scheduler, which files their songs itself.
    return m_recorder->start(station, std::nullopt, [this](const Track &track) { fileIntoLibrary(track); });
}

void Application::fileIntoLibrary(const Track &track)
{
    if (m_library)
        (void)RadioRecorder::upsertIntoLibrary(track, *m_library);
}

QString Application::notificationBody(const ScheduledRecording &plan)
{
    return plan.stationName + QStringLiteral(" · ") + ScheduleFormat::rangeLabel(plan);
}

void Application::announce(const char *summaryKey, const ScheduledRecording &plan)
{
    m_notifier->notify(tx(summaryKey), notificationBody(plan));
}

void Application::shutDown()
{
    if (m_shutDown)
        return;
    m_shutDown = true;
    // No tick may start anything while the last songs are being saved.
    m_scheduler.reset();
    m_recorder->stop();
    m_recorder->waitForSaves();
    m_context->waitForSaves();
    m_recorder.reset();
    m_directory.reset();
    m_globe.reset();
    m_tools.reset();
    m_library.reset();
    m_notifier.reset();
    m_lidKeeper.reset();
    m_sleepGuard.reset();
}
