#pragma once

#include "library/track.h"
#include "library/transitionplan.h"

#include <QFuture>
#include <QString>

#include <optional>
#include <utility>

// A transition the player is running: the sanitised plan and the two decks it moves
// between. Owned by the player on the GUI thread.
struct ActiveTransition {
    TransitionPlan plan;
    int outgoing = 0; // deck index playing the ending track
    int incoming = 1; // deck index playing the next track
    Track next;       // the incoming track
    quint64 startHost = 0; // audio host clock at which the overlap was scheduled to begin
    // Set once the incoming deck became the player's current deck: from then on the
    // player's track, position and duration are the incoming track's.
    bool adopted = false;
};

// A running return of the incoming deck's rate to 1 after an overlap.
struct RateReturn {
    int deck = 0;
    double startRate = 1;
    quint64 startHost = 0;
    double durationSec = 0;
};

// The player's transition bookkeeping between two ticks. Owned by the player on the GUI
// thread; the plan task runs on the thread pool and delivers into `plan` there.
struct MixState {
    std::optional<QString> key; // the pair of tracks `plan` was made for
    std::optional<Track> nextTrack; // the track the plan leads into
    std::optional<TransitionPlan> plan;
    // The background computation of `plan`; "no plan" is a valid result (the player then
    // changes tracks the ordinary way).
    std::optional<QFuture<std::optional<TransitionPlan>>> planTask;
    // The current track's id and the track shuffle play chose to follow it, fixed while
    // the plan for that pair is prepared.
    std::optional<std::pair<qint64, Track>> shuffleNext;
    std::optional<ActiveTransition> active;
    std::optional<RateReturn> rateReturn;
};
