#pragma once

#include "library/track.h"
#include "library/transitionmode.h"
#include "library/transitionplan.h"
#include "playback/equalisersettings.h"
#include "playback/loudness.h"
#include "playback/normalisation.h"

#include <QFuture>
#include <QList>
#include <QObject>
#include <QString>
#include <QUrl>

#include <functional>
#include <memory>
#include <optional>

class AudioEngine;
class LibraryStore;
class TransitionSettings;
struct MixState;

// The player state: a queue of library tracks played on the engine's two decks, with the
// transition of the chosen mode between them (planned in the background, run by a
// periodic tick on the owner's thread).
//
// Lives on the GUI thread (in orvida-cli: the main thread). Every call and signal is on
// that thread; plans are computed and live streams opened on the thread pool, and the
// tick picks their results up.
class Player : public QObject {
    Q_OBJECT
public:
    enum class Status { stopped, playing, paused };
    enum class Repeat { off, all, one };

    // Computes the plan from one track into the next, off the owner's thread; "no plan"
    // (an empty optional) makes the player change tracks the ordinary way.
    using Planner = std::function<QFuture<std::optional<TransitionPlan>>(const Track &from, const Track &to)>;

    // How long before a transition's start the incoming deck is loaded and scheduled on
    // the host clock. Longer than any tick period, so the start is never late.
    static constexpr double kLookaheadSec = 1.0;
    static constexpr int kTickIntervalMs = 20;
    // previous() restarts the current track once this much of it has played.
    static constexpr double kRestartAfterSec = 3.0;

    // `library` may be null (then play counts are not stored). The engine and the settings
    // must outlive the player.
    Player(AudioEngine &engine, TransitionSettings &settings, LibraryStore *library, QObject *parent = nullptr);
    ~Player() override;

    // Replaces the queue and plays it from `startIndex`. Tracks without a file stay in the
    // queue and are skipped with a notice when their turn comes.
    void playQueue(const QList<Track> &tracks, int startIndex = 0);
    // Replaces the queue without playing it (what played stops); play() starts it.
    void setQueue(const QList<Track> &tracks, int startIndex = 0);
    void play();  // resumes, or starts the queue at its current entry
    void pause();
    void playPause();
    void stop();
    void next();
    // Restarts the current track when more than 3 s of it have played, else goes back one.
    void previous();
    void seek(double seconds); // in the current track
    void setShuffle(bool on);
    void setRepeat(Repeat repeat);
    void setVolume(double volume); // 0..1

    // Plays a live stream (the relay's local address) instead of the queue, which is kept
    // for later. Opening and the first seconds of buffering happen off this thread; status
    // becomes playing when sound starts. A live stream has no length, no seeking and no
    // transitions: pause() closes the connection and play() opens it again, which is live
    // again rather than where it was left. Playing the queue (playQueue, play after
    // stopLive, next, previous) leaves live mode.
    //
    // While the stream connects and buffers, status() is stopped, isLive() true and
    // position() 0. A stream that ends, or delivers nothing for the live time-out, ends
    // live mode: liveChanged(false), status stopped, then liveFailed.
    void playLive(const QUrl &url);
    void stopLive();
    [[nodiscard]] bool isLive() const;
    [[nodiscard]] std::optional<QUrl> liveUrl() const;
    // How long a live stream may deliver nothing (while opening or playing) before it counts
    // as lost; applies from the next connection.
    static constexpr double kLiveTimeoutSec = 10.0;
    void setLiveTimeout(double seconds);

    [[nodiscard]] Status status() const;
    [[nodiscard]] const QList<Track> &queue() const;
    [[nodiscard]] int currentIndex() const; // -1 when nothing is current
    [[nodiscard]] std::optional<Track> currentTrack() const;
    [[nodiscard]] QList<Track> upNext() const; // the tracks that will follow, in play order
    [[nodiscard]] std::optional<double> position() const; // seconds into the current track (live: since sound began)
    [[nodiscard]] double duration() const; // of the current track, seconds
    [[nodiscard]] bool shuffle() const;
    [[nodiscard]] Repeat repeat() const;
    [[nodiscard]] double volume() const;

    // Offline output: plays the whole queue from its first entry into `wavPath` (32-bit
    // float stereo WAV at the engine's rate) as fast as the CPU allows, running the same
    // ticks and transitions as real-time play; returns when the queue has ended. False with
    // `error` set when the file cannot be written.
    [[nodiscard]] bool renderQueue(const QString &wavPath, QString *error);

    // The planner of a transition mode (none for `off`). Gapless has GaplessPlanner from
    // the start; a mode without a planner changes tracks the ordinary way.
    void setPlanner(TransitionMode mode, Planner planner);
    // A transition mode for this player alone instead of the settings' (orvida-cli play
    // --mode, which must not change the user's choice); absent follows the settings.
    void setModeOverride(std::optional<TransitionMode> mode);
    // Consecutive tracks of one album (same non-empty album and artist) join gapless in
    // the crossfade and automix modes too. Preference "ov.player.albumGapless", default on.
    void setAlbumGapless(bool on);
    [[nodiscard]] bool albumGapless() const;
    // Loudness normalisation, read from the preferences at construction (the window
    // stores the user's choice itself; orvida-cli's option must not). A change applies to
    // the tracks on the decks at once, ramped like a fader move.
    void setNormalisation(NormalisationMode mode);
    [[nodiscard]] NormalisationMode normalisation() const;
    void setNormalisationTarget(double lufs);
    [[nodiscard]] double normalisationTarget() const;
    // Where a file's loudness comes from when a deck loads it (owner thread). The default
    // reads the library's stored analysis; a file without one plays at unity gain.
    using LoudnessLookup = std::function<std::optional<LoudnessAnalysis>(const QString &path)>;
    void setLoudnessLookup(LoudnessLookup lookup);
    // Told (owner thread) of each file loaded while normalising that had no analysis, so
    // that it can be queued for one.
    void setLoudnessMissing(std::function<void(const QString &path)> hook);
    // The linear gain normalisation gives `track` now (1 when off or unknown).
    [[nodiscard]] float loudnessGain(const Track &track);

    // The user's equaliser on the output, applied at once (stored by the caller with
    // Equaliser::store). The player starts with the stored one.
    void setEqualiser(const EqualiserSettings &settings);
    [[nodiscard]] const EqualiserSettings &equaliser() const;

    // Seeds the shuffle order, so that a test or a render can repeat a run.
    void setShuffleSeed(quint32 seed);

    // One step of the transition executor. A timer calls it while the real-time outputs
    // play; with the offline output, whoever drives renderOffline() calls it between
    // blocks (renderQueue() does).
    void transitionTick();
    // The executor's bookkeeping, for diagnostics and tests.
    [[nodiscard]] const MixState &mixState() const;
    // The engine deck that plays the current track.
    [[nodiscard]] int currentDeck() const;

Q_SIGNALS:
    void statusChanged(Player::Status status);
    // An ordinary change or the incoming deck of a transition adopted; index -1 and no
    // track when the queue ended or was stopped.
    void currentTrackChanged(const std::optional<Track> &track, int index);
    void queueChanged();
    void seeked(double seconds); // the position jumped (seek, previous restarting a track)
    void shuffleChanged(bool on);
    void repeatChanged(Player::Repeat repeat);
    void volumeChanged(double volume);
    // A transition began: the sanitised plan, in the mode that made it.
    void transitionStarted(TransitionMode mode, const TransitionPlan &plan);
    // A track could not be played (missing or undecodable file) and was passed over.
    void trackSkipped(const Track &track, const QString &reason);
    void queueEnded();
    // The track was heard past half its length; its play count has been raised.
    void trackPlayed(const Track &track);
    // Live mode began (playLive) or ended (stopLive, the queue played, the stream lost).
    void liveChanged(bool live);
    // The live stream could not be opened or stopped delivering; the player has stopped.
    void liveFailed(const QString &reason);

private:
    struct Impl;
    std::unique_ptr<Impl> d;
};
