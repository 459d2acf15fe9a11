#pragma once

#include "platform/dbuslink.h"
#include "platform/httpclient.h"
#include "playback/audioengine.h"
#include "stations/station.h"

#include <QDateTime>
#include <QObject>
#include <QString>
#include <QStringList>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

class DesktopAppearance;
class AnalysisQueue;
class DesktopNotifier;
class EngineSettingsStore;
class FavoriteStations;
class GlobeStationStore;
class LibraryStore;
class MprisService;
class Player;
class RadioRecorder;
class RecentStations;
class RecorderServices;
class RecordingContext;
class RecordingStats;
class SleepGuard;
class SniperScheduler;
class StationListener;
class StationLogoCache;
class StationDirectory;
class TransitionSettings;
class YouTubeService;
struct ScheduledRecording;
struct Track;

// Where the window's services reach the outside world. The defaults are the real ones;
// tests point them at loopback fixtures and temporary files.
struct ApplicationOptions {
    QString directoryBase;   // empty: DirectoryApi::baseUrl()
    QString storeBase;       // empty: TrackInfoLookup::storeBase()
    QString libraryPath;     // empty: LibraryStore::defaultPath()
    bool recoverSegments = true;
    bool checkForToolUpdate = true;
    // The buses the sleep guard, the lid keeper and the notifications use; absent: none.
    std::optional<QString> systemBusAddress = DBusLink::systemBusAddress();
    std::optional<QString> sessionBusAddress = DBusLink::sessionBusAddress();
    // "Now" for the scheduler and the scheduling dialog.
    std::function<QDateTime()> clock = [] { return QDateTime::currentDateTimeUtc(); };
    // The scheduler's periodic check.
    std::chrono::milliseconds scheduleTickInterval{20000};
    // Where the player sounds. A device that cannot be opened falls back to the null
    // output (paced silence), with a notice among the startup problems.
    AudioEngine::Output audioOutput = AudioEngine::Output::device;
};

// The composition root of the window: one instance of every long-lived service, created
// at start in dependency order and kept for the life of the process. The recorder, the
// library and the scheduler are built by RecorderServices, as for orvida-cli, and end in
// its order: the scheduler first, then recordings stopped and their saves finished
// before the library closes. The scheduler holds the sleep guard while anything records
// or is planned, keeps the lid switch when the user asked for that, and every window it
// records is announced on the desktop when it starts and when it ends, and so is a
// recording that gives up. The player comes last, on the audio engine and the library,
// and ends first: its play counts still reach the library. The station listener comes
// after the player and ends before it: listening is the player's live mode fed by the
// listener's relay, and the songs it saves are filed into the library like recorded ones.
//
// Lives on the GUI thread, like every service it owns.
class Application : public QObject {
    Q_OBJECT

public:
    explicit Application(ApplicationOptions options = {}, QObject *parent = nullptr);
    ~Application() override;

    HttpClient &http() { return m_http; }
    RecordingStats &stats();
    RecordingContext &recordingContext();
    EngineSettingsStore &engineSettings() { return *m_engineSettings; }
    FavoriteStations &favorites() { return *m_favorites; }
    RecentStations &recents() { return *m_recents; }
    StationDirectory &directory() { return *m_directory; }
    GlobeStationStore &globe() { return *m_globe; }
    // Station logos for every table and the player bar, cached under $XDG_CACHE_HOME.
    StationLogoCache &stationLogos() { return *m_logos; }
    RadioRecorder &recorder();
    SniperScheduler &scheduler();
    SleepGuard &sleepGuard();
    RecorderServices &recorderServices() { return *m_recording; }
    DesktopNotifier &notifier() { return *m_notifier; }
    // The desktop's light or dark preference, applied to the window's palette.
    DesktopAppearance &appearance() { return *m_appearance; }
    [[nodiscard]] QDateTime now() const { return m_clock(); }
    YouTubeService &tools() { return *m_tools; }
    // Absent when the library file could not be opened; libraryError() says why.
    LibraryStore *library();
    [[nodiscard]] const QString &libraryError() const { return m_libraryError; }
    [[nodiscard]] const QString &directoryBase() const { return m_directoryBase; }
    TransitionSettings &transitionSettings() { return *m_transitions; }
    AudioEngine &audioEngine() { return *m_audio; }
    // Until shutDown().
    Player &player() { return *m_player; }
    // The library's files analysed in the background for the planners; null without a
    // library, and after shutDown().
    AnalysisQueue *analysisQueue() { return m_analysis.get(); }
    // The player on the session bus for media keys and the desktop's media controls.
    MprisService &mediaControls() { return *m_mediaControls; }

    // Until shutDown().
    StationListener &listener() { return *m_listener; }
    // Plays `station` live: the listener starts its relay, the player plays it once ready,
    // and the station goes to the front of the recents. Listening ends when the player
    // leaves live mode (the user played library tracks, stopped, or the stream was lost).
    void listen(const Station &station);
    void stopListening();

    // Records a station by hand, its saved songs filed into the library. False when it
    // records already.
    bool startRecording(const Station &station);
    // A saved song enters the library; a file already listed updates its entry.
    void fileIntoLibrary(const Track &track);

    // What the services had to report while they started (a damaged state file set
    // aside, a library that did not open); later problems come as problem().
    [[nodiscard]] const QStringList &startupProblems() const { return m_startupProblems; }
    // A failed write or a lost song, for the window to show: what the services send as
    // storage problems and what a view could not save.
    void reportProblem(const QString &message);

    // What the desktop notification of a scheduled recording says about its plan.
    [[nodiscard]] static QString notificationBody(const ScheduledRecording &plan);

    // Stops the player and its output, then every recording, waits for its last songs and
    // closes the library. Idempotent; also run by the destructor.
    void shutDown();

Q_SIGNALS:
    // One line naming the file or song; see reportProblem().
    void problem(const QString &message);
    // Listening to `station` ended against the user's will; `message` is an engine text
    // ("Stream unterbrochen"), to be shown through Texts::engineMessage().
    void listeningFailed(const Station &station, const QString &message);

private:
    void planAutomixWithTheLibrary();
    void announce(const char *summaryKey, const ScheduledRecording &plan);
    void startPlayer(AudioEngine::Output output);
    void startListener();

    HttpClient m_http;
    QString m_directoryBase;
    std::function<QDateTime()> m_clock;
    // The buses outlive everything that talks over them.
    DBusLink m_systemBus;
    DBusLink m_sessionBus;
    std::unique_ptr<EngineSettingsStore> m_engineSettings;
    std::unique_ptr<FavoriteStations> m_favorites;
    std::unique_ptr<RecentStations> m_recents;
    std::unique_ptr<StationDirectory> m_directory;
    std::unique_ptr<GlobeStationStore> m_globe;
    std::unique_ptr<StationLogoCache> m_logos;
    std::unique_ptr<YouTubeService> m_tools;
    std::unique_ptr<DesktopNotifier> m_notifier;
    std::unique_ptr<DesktopAppearance> m_appearance;
    std::unique_ptr<RecorderServices> m_recording;
    std::unique_ptr<TransitionSettings> m_transitions;
    std::unique_ptr<AudioEngine> m_audio;
    std::unique_ptr<Player> m_player;
    // Where planner threads leave analyses for the library; emptied before the library
    // closes, so a late one is dropped instead of reaching a closed store.
    std::shared_ptr<struct AnalysisDropBox> m_analysisDropBox;
    std::unique_ptr<StationListener> m_listener;
    // The station last asked for until the user stops listening or its failure is said:
    // what a failure names once the player has left live mode and the listener let go.
    std::optional<Station> m_heard;
    // Set while the player switches from one live stream to the next, when its leaving
    // live mode for a moment is not the user's doing.
    bool m_switchingLive = false;
    std::unique_ptr<MprisService> m_mediaControls;
    std::unique_ptr<AnalysisQueue> m_analysis;
    QString m_libraryError;
    QStringList m_startupProblems;
    bool m_shutDown = false;
};
