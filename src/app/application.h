#pragma once

#include "platform/httpclient.h"

#include <QObject>
#include <QString>

#include <memory>

class EngineSettingsStore;
class FavoriteStations;
class LibraryStore;
class RadioRecorder;
class RecentStations;
class RecordingContext;
class RecordingStats;
class StationDirectory;
class YouTubeService;
struct Track;

// Where the window's services reach the outside world. The defaults are the real ones;
// tests point them at loopback fixtures and temporary files.
struct ApplicationOptions {
    QString directoryBase;   // empty: DirectoryApi::baseUrl()
    QString storeBase;       // empty: TrackInfoLookup::storeBase()
    QString libraryPath;     // empty: LibraryStore::defaultPath()
    bool recoverSegments = true;
    bool checkForToolUpdate = true;
};

// The composition root of the window: one instance of every long-lived service, created
// at start in dependency order and kept for the life of the process. shutDown() ends
// them in order: recordings stopped and their saves finished before the library closes.
//
// Lives on the GUI thread, like every service it owns.
class Application : public QObject {
    Q_OBJECT

public:
    explicit Application(ApplicationOptions options = {}, QObject *parent = nullptr);
    ~Application() override;

    HttpClient &http() { return m_http; }
    RecordingStats &stats() { return *m_stats; }
    RecordingContext &recordingContext() { return *m_context; }
    EngineSettingsStore &engineSettings() { return *m_engineSettings; }
    FavoriteStations &favorites() { return *m_favorites; }
    RecentStations &recents() { return *m_recents; }
    StationDirectory &directory() { return *m_directory; }
    RadioRecorder &recorder() { return *m_recorder; }
    YouTubeService &tools() { return *m_tools; }
    // Absent when the library file could not be opened; libraryError() says why.
    LibraryStore *library() { return m_library.get(); }
    [[nodiscard]] const QString &libraryError() const { return m_libraryError; }
    [[nodiscard]] const QString &directoryBase() const { return m_directoryBase; }

    // A saved song enters the library; a file already listed updates its entry.
    void fileIntoLibrary(const Track &track);

    // Stops every recording, waits for its last songs and closes the library. Idempotent;
    // also run by the destructor.
    void shutDown();

private:
    HttpClient m_http;
    QString m_directoryBase;
    std::unique_ptr<RecordingStats> m_stats;
    std::unique_ptr<RecordingContext> m_context;
    std::unique_ptr<EngineSettingsStore> m_engineSettings;
    std::unique_ptr<FavoriteStations> m_favorites;
    std::unique_ptr<RecentStations> m_recents;
    std::unique_ptr<StationDirectory> m_directory;
    std::unique_ptr<RadioRecorder> m_recorder;
    std::unique_ptr<YouTubeService> m_tools;
    std::unique_ptr<LibraryStore> m_library;
    QString m_libraryError;
    bool m_shutDown = false;
};
