#include "app/application.h"

#include "engine/enginesettingsstore.h"
#include "engine/radiorecorder.h"
#include "engine/recordingcontext.h"
#include "engine/recordingstats.h"
#include "engine/segmentrecovery.h"
#include "engine/trackinfolookup.h"
#include "library/librarystore.h"
#include "stations/directoryapi.h"
#include "stations/favoritestations.h"
#include "stations/recentstations.h"
#include "stations/stationdirectory.h"
#include "tools/youtubeservice.h"

#include <QtConcurrent/QtConcurrentRun>

Application::Application(ApplicationOptions options, QObject *parent)
    : QObject(parent)
    , m_directoryBase(options.directoryBase.isEmpty() ? DirectoryApi::baseUrl() : options.directoryBase)
{
    LibraryOpenResult opened =
        LibraryStore::open(options.libraryPath.isEmpty() ? LibraryStore::defaultPath() : options.libraryPath);
    m_library = std::move(opened.store);
    m_libraryError = opened.message;

    if (options.recoverSegments) {
        // Leftovers of a crash: blocking file work, and no session of ours runs yet.
        (void)QtConcurrent::run([] { SegmentRecovery::recoverOrphans(); });
    }

    m_stats = std::make_unique<RecordingStats>();
    m_context = std::make_unique<RecordingContext>(m_http, m_stats.get());
    m_context->storeBase = options.storeBase.isEmpty() ? TrackInfoLookup::storeBase() : options.storeBase;
    m_context->ffmpegPath = YouTubeService::ffmpegDir() + QStringLiteral("/ffmpeg");
    m_engineSettings = std::make_unique<EngineSettingsStore>();
    m_favorites = std::make_unique<FavoriteStations>(FavoriteStations::defaultFileUrl());
    m_recents = std::make_unique<RecentStations>();
    m_directory = std::make_unique<StationDirectory>(m_http, m_directoryBase);
    m_recorder = std::make_unique<RadioRecorder>(*m_context);
    // Every saved song, whoever started its recording, enters the library.
    connect(m_recorder.get(), &RadioRecorder::trackSaved, this,
            [this](const QString &, const Track &track) { fileIntoLibrary(track); });
    m_tools = std::make_unique<YouTubeService>(m_http);
    if (options.checkForToolUpdate)
        m_tools->updateYtDlpIfNeeded(false);
}

Application::~Application()
{
    shutDown();
}

void Application::fileIntoLibrary(const Track &track)
{
    if (m_library)
        (void)RadioRecorder::upsertIntoLibrary(track, *m_library);
}

void Application::shutDown()
{
    if (m_shutDown)
        return;
    m_shutDown = true;
    m_recorder->stop();
    m_recorder->waitForSaves();
    m_context->waitForSaves();
    m_recorder.reset();
    m_directory.reset();
    m_tools.reset();
    m_library.reset();
}
