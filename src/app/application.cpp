#include "app/application.h"

#include "app/desktopappearance.h"
#include "app/mprisservice.h"
#include "app/scheduleformat.h"
#include "app/stationlogocache.h"
#include "app/texts.h"
#include "engine/enginesettingsstore.h"
#include "engine/radiorecorder.h"
#include "engine/recorderservices.h"
#include "engine/recordingcontext.h"
#include "engine/recordingstats.h"
#include "engine/sleepguard.h"
#include "engine/sniperscheduler.h"
#include "engine/stationlistener.h"
#include "engine/trackinfolookup.h"
#include "library/librarystore.h"
#include "library/transitionsettings.h"
#include "platform/desktopnotifier.h"
#include "playback/analysisqueue.h"
#include "playback/loudness.h"
#include "playback/crossfadeplanner.h"
#include "playback/automixplanner.h"
#include "playback/beatanalysis.h"
#include "playback/player.h"
#include "stations/directoryapi.h"
#include "stations/favoritestations.h"
#include "stations/globestationstore.h"
#include "stations/recentstations.h"
#include "stations/stationdirectory.h"
#include "tools/youtubeservice.h"

#include <mutex>
#include <utility>

struct AnalysisDropBox {
    std::mutex mutex;
    LibraryStore *store = nullptr; // guarded by mutex

    // Any thread: stores `json` as the file's analysis of `kind` on the library's thread,
    // stamped as the file is now.
    void keep(const QString &path, const QString &kind, const QByteArray &json)
    {
        const std::optional<LibraryStore::FileStamp> stamp = LibraryStore::FileStamp::of(path);
        const std::lock_guard lock(mutex);
        if (!store || !stamp)
            return;
        store->post([path, kind, json, stamp = *stamp](LibraryStore &s) {
            // A failed write only costs an analysis next time.
            (void)s.setAnalysis(path, kind, stamp, json);
        });
    }
};

Application::Application(ApplicationOptions options, QObject *parent)
    : QObject(parent)
    , m_directoryBase(options.directoryBase.isEmpty() ? DirectoryApi::baseUrl() : options.directoryBase)
    , m_clock(std::move(options.clock))
    , m_systemBus(options.systemBusAddress, QStringLiteral("system"))
    , m_sessionBus(options.sessionBusAddress, QStringLiteral("session"))
{
    LibraryOpenResult opened =
        LibraryStore::open(options.libraryPath.isEmpty() ? LibraryStore::defaultPath() : options.libraryPath);
    m_libraryError = opened.message;

    m_engineSettings = std::make_unique<EngineSettingsStore>();
    m_favorites = std::make_unique<FavoriteStations>(FavoriteStations::defaultFilePath());
    m_recents = std::make_unique<RecentStations>();
    m_directory = std::make_unique<StationDirectory>(m_http, m_directoryBase);
    // The catalogue is fetched when the globe is first shown, not at start.
    m_globe = std::make_unique<GlobeStationStore>(m_http, m_directoryBase);
    m_logos = std::make_unique<StationLogoCache>(m_http);
    m_tools = std::make_unique<YouTubeService>(m_http);
    if (options.checkForToolUpdate)
        m_tools->updateYtDlpIfNeeded(false);
    m_notifier = std::make_unique<DesktopNotifier>(m_sessionBus);
    m_appearance = std::make_unique<DesktopAppearance>(m_sessionBus);

    RecorderServices::Options recording;
    recording.ffmpegPath = YouTubeService::ffmpegDir() + QStringLiteral("/ffmpeg");
    recording.storeBase = options.storeBase.isEmpty() ? TrackInfoLookup::storeBase() : options.storeBase;
    recording.recoverSegments = options.recoverSegments;
    m_recording = std::make_unique<RecorderServices>(m_http, m_systemBus, m_sessionBus, std::move(opened.store),
                                                     std::move(recording));
    SniperScheduler::Options scheduling;
    scheduling.clock = m_clock;
    scheduling.tickInterval = options.scheduleTickInterval;
    SniperScheduler &scheduler = m_recording->startScheduler(scheduling);
    connect(&scheduler, &SniperScheduler::scheduledRecordingStarted, this,
            [this](const ScheduledRecording &plan) { announce("schedule.notifyStarted", plan); });
    connect(&scheduler, &SniperScheduler::scheduledRecordingEnded, this,
            [this](const ScheduledRecording &plan) { announce("schedule.notifyEnded", plan); });
    connect(&recorder(), &RadioRecorder::sessionEnded, this, [this](const Station &station, SessionOutcome outcome) {
        if (outcome == SessionOutcome::Stopped)
            return;
        const QString why = outcome == SessionOutcome::InvalidAddress ? tx("engine.invalidUrl")
                                                                      : tx("engine.streamInterrupted");
        m_notifier->notify(tx("rec.notifyGaveUp"), station.name + QStringLiteral(" · ") + why);
    });

    // Said during construction, when nobody listened yet.
    if (!m_libraryError.isEmpty())
        m_startupProblems << m_libraryError;
    startPlayer(options.audioOutput);
    if (LibraryStore *store = library()) {
        m_analysis = std::make_unique<AnalysisQueue>(*store);
        m_analysis->addAnalyser(QString::fromLatin1(CrossfadePlanner::kAnalysisKind), CrossfadePlanner::analyseForLibrary);
        m_analysis->addAnalyser(Loudness::kKind, analyseLoudnessJson);
        m_analysis->addAnalyser(QStringLiteral("beats"), analyseBeatsJson);
        m_analysis->start();
        // A track that plays unmeasured is measured next, so that it is levelled when it
        // comes round again.
        player().setLoudnessMissing([queue = m_analysis.get()](const QString &path) {
            queue->prioritise(Loudness::kKind, path);
        });
    }
    for (const QString &problem : {m_favorites->loadProblem(), stats().loadProblem(), scheduler.loadProblem()}) {
        if (!problem.isEmpty())
            m_startupProblems << problem;
    }
    connect(m_engineSettings.get(), &EngineSettingsStore::storageProblem, this, &Application::reportProblem);
    connect(m_favorites.get(), &FavoriteStations::storageProblem, this, &Application::reportProblem);
    connect(&stats(), &RecordingStats::storageProblem, this, &Application::reportProblem);
    connect(&scheduler, &SniperScheduler::storageProblem, this, &Application::reportProblem);
    connect(m_recording.get(), &RecorderServices::libraryProblem, this, &Application::reportProblem);
}

void Application::startPlayer(AudioEngine::Output output)
{
    m_transitions = std::make_unique<TransitionSettings>();
    AudioEngine::Options audio;
    audio.output = output;
    m_audio = std::make_unique<AudioEngine>(audio);
    QString error;
    if (!m_audio->start(&error) && output == AudioEngine::Output::device) {
        // No sound card, no sound server: the player still runs, on time and silent, so
        // the library, the queue and the media keys work as they would.
        m_startupProblems << Texts::text("player.noDeviceFormat").arg(error);
        audio.output = AudioEngine::Output::null;
        m_audio = std::make_unique<AudioEngine>(audio);
        if (!m_audio->start(&error))
            m_startupProblems << error;
    }
    m_player = std::make_unique<Player>(*m_audio, *m_transitions, library());
    m_player->setPlanner(TransitionMode::crossfade,
        CrossfadePlanner::playerPlanner(library(), [settings = m_transitions.get()] {
            return double(settings->crossfadeSeconds());
        }));
    planAutomixWithTheLibrary();
    startListener();
    m_mediaControls = std::make_unique<MprisService>(m_sessionBus, *m_player, m_listener.get());
}

void Application::planAutomixWithTheLibrary()
{
    m_analysisDropBox = std::make_shared<AnalysisDropBox>();
    m_analysisDropBox->store = library();
    // Runs on the GUI thread: the stored grids are looked up here, the missing ones are
    // worked out on the pool and handed back to the library.
    m_player->setPlanner(TransitionMode::automix, [this](const Track &from, const Track &to) {
        LibraryStore *store = library();
        auto stored = [store](const Track &track) -> std::optional<BeatAnalysis::Grid> {
            if (!store || !track.filePath)
                return std::nullopt;
            const std::optional<LibraryStore::FileStamp> stamp = LibraryStore::FileStamp::of(*track.filePath);
            const std::optional<QByteArray> json
                = stamp ? store->analysis(*track.filePath, QStringLiteral("beats"), *stamp) : std::nullopt;
            return json ? BeatAnalysis::fromJson(*json) : std::nullopt;
        };
        auto keep = [box = m_analysisDropBox](const QString &path, const BeatAnalysis::Grid &grid) {
            box->keep(path, QStringLiteral("beats"), BeatAnalysis::toJson(grid));
        };
        return AutoMixPlanner::plan(from.filePath.value_or(QString()), to.filePath.value_or(QString()),
            double(m_transitions->automixSeconds()), stored(from), stored(to), keep);
    });
}

void Application::startListener()
{
    m_listener = std::make_unique<StationListener>(recordingContext(), library());
    connect(m_listener.get(), &StationListener::streamReady, this, [this](const QUrl &url) {
        // From one station to the next the player may leave live mode for a moment.
        m_switchingLive = true;
        m_player->playLive(url);
        m_switchingLive = false;
    });
    connect(m_listener.get(), &StationListener::streamFailed, this, [this](const QString &message) {
        // The listener keeps the station named after its relay ended; it is not heard any
        // more, so it is let go, and the player lets go of the relay's address.
        const std::optional<Station> station = m_listener->station() ? m_listener->station() : m_heard;
        m_heard.reset(); // the player's own failure that may follow is the same one
        m_listener->stop();
        if (m_player->isLive())
            m_player->stopLive();
        if (station)
            Q_EMIT listeningFailed(*station, message);
    });
    connect(m_player.get(), &Player::liveChanged, this, [this](bool live) {
        // Out of live mode: the user played library tracks or stopped, or the stream was
        // lost, which liveFailed says next.
        if (!live && !m_switchingLive && m_listener->station())
            m_listener->stop();
    });
    connect(m_player.get(), &Player::liveFailed, this, [this] {
        if (!m_heard)
            return; // listening was stopped by the user, or its failure said already
        const Station station = *std::exchange(m_heard, std::nullopt);
        m_listener->stop();
        // The player's reason is a decoder's or a socket's; the user hears that the stream
        // broke off, as a recording would say.
        Q_EMIT listeningFailed(station, QStringLiteral("Stream unterbrochen"));
    });
    // Library tracks played while the relay still starts: the station is not wanted any more.
    connect(m_player.get(), &Player::statusChanged, this, [this](Player::Status status) {
        if (status == Player::Status::playing && !m_player->isLive() && m_listener->station())
            m_listener->stop();
    });
}

void Application::listen(const Station &station)
{
    if (m_shutDown)
        return;
    m_heard = station;
    m_recents->add(station);
    const std::optional<Station> &heard = m_listener->station();
    if (heard && heard->id == station.id) {
        // Already heard: starting again would only make a gap. A paused stream plays on.
        if (m_player->isLive() && m_player->status() != Player::Status::playing)
            m_player->play();
        return;
    }
    m_listener->start(station);
}

void Application::stopListening()
{
    if (m_shutDown)
        return;
    m_heard.reset();
    m_listener->stop();
    if (m_player->isLive())
        m_player->stopLive();
}

void Application::reportProblem(const QString &message)
{
    if (!message.isEmpty())
        Q_EMIT problem(message);
}

Application::~Application()
{
    shutDown();
}

RecordingStats &Application::stats()
{
    return m_recording->stats();
}

RecordingContext &Application::recordingContext()
{
    return m_recording->context();
}

RadioRecorder &Application::recorder()
{
    return m_recording->recorder();
}

SniperScheduler &Application::scheduler()
{
    return *m_recording->scheduler();
}

SleepGuard &Application::sleepGuard()
{
    return m_recording->sleepGuard();
}

LibraryStore *Application::library()
{
    return m_recording->library();
}

bool Application::startRecording(const Station &station)
{
    // Planned windows are started by the scheduler, which files their songs itself.
    return recorder().start(station, std::nullopt, [this](const Track &track) { fileIntoLibrary(track); });
}

void Application::fileIntoLibrary(const Track &track)
{
    LibraryStore *store = library();
    if (store && !RadioRecorder::upsertIntoLibrary(track, *store))
        reportProblem(track.filePath.value_or(track.title) + QStringLiteral(": not filed into the library: ") +
                      store->lastError());
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
    // The media controls let go of the player, then the player ends: a play count it
    // raises goes into the library, which closes below.
    m_mediaControls.reset();
    // Listening ends before the player: an armed song is given up, one being saved is
    // finished by the recording context and filed below like the recorders' last songs.
    m_listener->stop();
    m_listener.reset();
    m_player->stop();
    m_player.reset();
    if (m_analysisDropBox) {
        const std::lock_guard lock(m_analysisDropBox->mutex);
        m_analysisDropBox->store = nullptr;
    }
    m_audio->stop();
    m_audio.reset();
    // Waits for the file it is on; what it found is not stored any more.
    m_analysis.reset();
    // The recordings end next: their last songs still go into the library.
    m_recording->shutDown();
    m_directory.reset();
    m_globe.reset();
    m_tools.reset();
    m_notifier.reset();
}
