#pragma once

#include "engine/streamtitlepoller.h"
#include "library/track.h"
#include "stations/station.h"

#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QUrl>

#include <memory>
#include <optional>

class LibraryStore;
class RadioPlayback;
class RecordingContext;
class RecordingSession;

// The station being listened to: the relay the player plays from, the station's live
// title, and the song that is playing, kept since its title change so that "Save this
// song" records it from its beginning.
//
// The song is kept by a second connection to the station through the recording engine
// (a RecordingSession in listening mode): it reads the in-band titles from the first
// byte and keeps the current song's bytes in hidden segment files in the radio folder's
// tmp folder, at most kMaxSongSeconds of them, dropping each song at its end unless a
// save was asked for. A save turns that one song into an ordinary recording: lead-in
// before its title change, lead-out after the next one, saved, tagged, named and filed
// into the library like a recorded song; then listening goes on as before. With the
// preference "ov.listen.keepSong" off there is no second connection: the title comes from
// `liveTitle` (a StreamTitlePoller, every 15 s) and nothing can be saved.
//
// The capture's in-band titles come at once and the capture is already connected, so
// while it runs the title poller stays idle: a third connection every 15 s would only
// cost the station bandwidth. The poller takes over when keepSong is off and when the
// capture gives up (the relay may still play; only saving is lost then).
//
// The relay's end is what the listener hears, so it is what ends listening
// (streamFailed); a capture that gives up only makes saving unavailable.
//
// Lives on the GUI thread (orvida-cli: the main thread); every signal comes there.
class StationListener : public QObject {
    Q_OBJECT

public:
    static constexpr double kMaxSongSeconds = 20 * 60;
    static constexpr QLatin1String kKeepSongKey { "ov.listen.keepSong" };

    enum class SaveState {
        unavailable, // not listening, keepSong off, or the capture has no title yet
        ready,       // the song playing can be saved
        armed,       // it will be saved when the next title comes
        saving,      // the song ended and is being saved
    };

    // `library` may be null (saved songs are then not filed). It must stay open until
    // the context's saves are done, as the composition root's shutdown keeps it.
    StationListener(RecordingContext &context, LibraryStore *library, QObject *parent = nullptr);
    ~StationListener() override; // stops; a song being saved is still finished by the context

    // Stops what was heard before, then starts the relay (and the capture) for `station`.
    // streamReady or streamFailed follows.
    void start(const Station &station);
    // Stops relay, capture and title poll. An armed song is abandoned (songSkipped says
    // so); one already saving is finished.
    void stop();

    [[nodiscard]] const std::optional<Station> &station() const { return m_station; }
    // The relay's URL once streamReady has come; absent otherwise.
    [[nodiscard]] std::optional<QUrl> streamUrl() const;
    // What the station plays now: the capture's in-band title, else the poller's.
    [[nodiscard]] QString title() const;
    [[nodiscard]] SaveState saveState() const { return m_saveState; }
    // The title of the song that is armed or saving; empty otherwise.
    [[nodiscard]] const QString &savingTitle() const { return m_savingTitle; }

    // Arms the save of the song playing now. False with `why` set (a user-facing text) when
    // nothing can be saved (see SaveState::unavailable, or the song began more than
    // kMaxSongSeconds ago). Asking again for the same song is not an error.
    bool saveCurrentSong(QString *why = nullptr);

    [[nodiscard]] bool keepsSong() const;
    void setKeepSong(bool on); // stored; takes effect at the next start()

    // Saves of songs armed here that are running or still to come, also of captures
    // already stopped. Shutdown paths run the event loop until it is false (the saves'
    // outcomes are filed and announced on this thread).
    [[nodiscard]] bool hasPendingSaves() const;

    // The parts, for the wiring and tests.
    RadioPlayback &relay() { return *m_relay; }
    StreamTitlePoller &liveTitle() { return *m_liveTitle; }
    RecordingSession *capture() const { return m_capture; }

Q_SIGNALS:
    void stationChanged(const std::optional<Station> &station);
    // The player can open `url` (the relay's local address).
    void streamReady(const QUrl &url);
    // The relay could not start or its stream ended: "Stream unterbrochen" or
    // "Ungültige Stream-URL". Listening has stopped.
    void streamFailed(const QString &message);
    void titleChanged(const QString &title);
    void saveStateChanged(StationListener::SaveState state);
    // Outcomes of a save, like a recording's: exactly one per armed song.
    void songSaved(const Track &track);
    void songSkipped(const QString &title, const QString &reason);
    void saveFailed(const QString &message);

private:
    void stopParts();
    void fail(const QString &message);
    void startCapture(const Station &station);
    void captureEnded(RecordingSession *capture);
    void captureTitle(const QString &title);
    void setTitle(const QString &title);
    void updateSaveState();
    void connectOutcomes(RecordingSession *capture);
    // An outcome for `title` arrived: it answers the armed song or one that is saving.
    void settle(const QString &title, bool mayBeArmed);
    void retire(RecordingSession *capture);

    RecordingContext &m_context;
    LibraryStore *m_library;
    std::unique_ptr<RadioPlayback> m_relay;
    std::unique_ptr<StreamTitlePoller> m_liveTitle;
    RecordingSession *m_capture = nullptr;
    std::optional<Station> m_station;
    SaveState m_saveState = SaveState::unavailable;
    QString m_savingTitle;

    quint64 m_generation = 0; // a relay start answered after a newer start() or stop() is stale
    std::optional<QUrl> m_streamUrl;
    QString m_title;
    std::optional<QString> m_armedTitle;
    // Armed songs that ended and are being saved; each gets exactly one outcome.
    int m_savesInFlight = 0;
    QString m_lastSavingTitle;
    // Armed songs dropped by a stop whose abandonment is still on its way.
    int m_abandoning = 0;
    QList<QPointer<RecordingSession>> m_retired;
};
