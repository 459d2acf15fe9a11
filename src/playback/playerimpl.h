#pragma once

// The player's private state, shared by its two source files: player.cpp (queue and
// controls) and playertransitions.cpp (the transition executor). Not for other units.

#include "playback/enginedeck.h"
#include "playback/mixstate.h"
#include "playback/player.h"
#include "playback/playqueue.h"

#include <QTimer>
#include <QUrl>

#include <array>
#include <map>
#include <memory>

struct LiveOpening;

struct Player::Impl {
    Impl(Player &owner, AudioEngine &audio, TransitionSettings &transitionSettings, LibraryStore *store);

    Player &q;
    AudioEngine &engine;
    TransitionSettings &settings;
    LibraryStore *library;
    std::array<EngineDeck, 2> decks;
    int cur = 0; // index of the deck that plays the current track
    PlayQueue queue;
    Status status = Status::stopped;
    bool hasCurrent = false; // queue.current() is loaded on decks[cur]
    bool counted = false; // the current play was counted
    bool queueFinished = false; // the queue played to its end (play() starts it over)
    double volume = 1;
    MixState mix;
    TransitionMode planMode = TransitionMode::off; // the mode that made mix.plan
    int nextIndex = -1; // queue index of mix.nextTrack
    QList<int> nextPassedOver; // entries without a file between the current one and it
    int shuffleNextIndex = -1; // queue index of mix.shuffleNext's track
    std::map<TransitionMode, Planner> planners;
    bool albumGapless = true;
    std::optional<TransitionMode> modeOverride;
    bool rendering = false;
    NormalisationMode normalisation = NormalisationMode::off;
    double normalisationTarget = Normalisation::kDefaultTargetLufs;
    LoudnessLookup loudnessLookup;
    std::function<void(const QString &)> loudnessMissing;
    EqualiserSettings equaliser;
    QTimer timer;

    // Live mode: the stream plays on decks[cur]; the queue stays as it was.
    enum class LivePhase {
        off,
        connecting, // opening on the thread pool, then buffering on the deck (status stopped)
        sounding, // status playing
        closed, // paused: no connection until play()
    };
    LivePhase livePhase = LivePhase::off;
    QUrl liveUrl;
    std::shared_ptr<LiveOpening> liveOpening; // the open running on the thread pool
    double liveHeardSec = 0; // position() while closed
    int liveTimeoutMs = int(Player::kLiveTimeoutSec * 1000);
    static constexpr int kLiveTickIntervalMs = 100;

    [[nodiscard]] EngineDeck &current() { return decks[size_t(cur)]; }
    [[nodiscard]] EngineDeck &other() { return decks[size_t(1 - cur)]; }
    [[nodiscard]] int sampleRate() const;
    [[nodiscard]] std::optional<Track> currentTrack() const;

    // Queue and controls (player.cpp).
    void setStatus(Status s);
    // Plays entry `index`, or the first entry after it that opens; ends the queue when
    // none does. `passedOver`: entries without a file skipped on the way to it.
    void startFrom(std::optional<int> index, const QList<int> &passedOver = {});
    void endQueue();
    void skipNotice(int index, const QString &reason);
    void countPlay();
    void updateTimer();

    // Live mode (playerlive.cpp).
    [[nodiscard]] bool live() const { return livePhase != LivePhase::off; }
    void connectLive(); // opens liveUrl again
    void closeLive(); // gives up the open, or the stream on the deck
    // Ends live mode and announces it; false when it was not on.
    bool leaveLive();
    void failLive(const QString &reason);
    void liveTick();

    // Loudness normalisation (playernormalisation.cpp).
    void initNormalisation();
    [[nodiscard]] std::optional<LoudnessAnalysis> loudnessOf(const QString &path);
    [[nodiscard]] float loudnessGain(const Track &track);
    void reapplyLoudness(); // to the tracks on the decks, after a change of mode or target

    // Transition executor (playertransitions.cpp).
    void transitionTick();
    void collectPlan();
    void refreshPlanIfNeeded();
    [[nodiscard]] std::optional<std::pair<int, Track>> upcomingTrack();
    [[nodiscard]] TransitionMode effectiveMode(const Track &from, const Track &to) const;
    // Loads the incoming deck and schedules its first frame on output frame `startHost`,
    // the one on which the outgoing deck reaches the plan's start.
    bool startTransition(const TransitionPlan &plan, const Track &next, quint64 startHost);
    void runActiveTransition();
    void adoptIncoming(ActiveTransition &active);
    void finishTransition(const ActiveTransition &active);
    void runRateReturn();
    void settleTransition();
    // Drops a plan that a changed setting made stale, unless its transition already runs.
    void settleTransitionIfIdle();
    void resetTransitions();
    [[nodiscard]] bool currentAtEnd();
    // Frames the offline render may produce before the executor must look again.
    [[nodiscard]] qint64 framesToNextEvent(qint64 block);
};
