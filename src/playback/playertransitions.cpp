// The transition executor: the player's periodic tick keeps the plan for the upcoming
// track current, schedules the incoming deck on the host clock ahead of the plan's start,
// moves the faders and the low band along the overlap, hands the current track over and
// ends the transition. Everything here runs on the player's thread.

#include "library/transitionsettings.h"
#include "playback/audioengine.h"
#include "playback/playerimpl.h"
#include "playback/transitionmath.h"

#include <QFileInfo>

namespace {

bool sameAlbum(const Track &a, const Track &b)
{
    return !a.album.isEmpty() && !a.artist.isEmpty() && a.album == b.album && a.artist == b.artist;
}

} // namespace

void Player::Impl::transitionTick()
{
    if (status != Status::playing || !hasCurrent)
        return;
    collectPlan();
    if (mix.active) {
        runActiveTransition();
        if (mix.active)
            return;
    }
    runRateReturn();
    countPlay();

    const AudioEngine::DeckState state = engine.state(cur);
    if (state == AudioEngine::DeckState::ended || state == AudioEngine::DeckState::failed
        || state == AudioEngine::DeckState::empty || currentAtEnd()) {
        if (state == AudioEngine::DeckState::failed && current().track)
            Q_EMIT q.trackSkipped(*current().track, engine.deckError(cur));
        // The ordinary change: the next entry starts on the deck that just fell silent.
        QList<int> passedOver;
        const std::optional<int> following = queue.next(false, &passedOver);
        if (mix.shuffleNext && shuffleNextIndex >= 0 && queue.shuffle() && following)
            startFrom(shuffleNextIndex, passedOver);
        else if (following)
            startFrom(following, passedOver);
        else
            endQueue();
        return;
    }

    refreshPlanIfNeeded();
    collectPlan();
    if (mix.plan && !mix.nextTrack) {
        if (current().stopAt != mix.plan->outgoingEnd && mix.plan->outgoingEnd < engine.duration(cur))
            current().setStopAt(mix.plan->outgoingEnd);
        return;
    }
    if (!mix.plan || !mix.nextTrack)
        return;
    // The engine answers from one snapshot of the render thread's clock and the deck's
    // place, so the frame is exact however far the output ran between two calls here.
    const std::optional<double> pos = current().position();
    const std::optional<quint64> startHost = engine.hostFrameAt(cur, mix.plan->outgoingStart);
    if (!pos || !startHost)
        return;
    if (*startHost > engine.hostFrame() + quint64(Player::kLookaheadSec * sampleRate()))
        return;
    // A start that has already passed (a plan that came late, a seek past it) still runs
    // when it has an overlap; a join without one would only cut the end off.
    if (mix.plan->fadeDuration <= 0 && *pos > mix.plan->outgoingStart + 0.05)
        return;
    startTransition(*mix.plan, *mix.nextTrack, *startHost);
}

void Player::Impl::collectPlan()
{
    if (!mix.planTask || !mix.planTask->isFinished())
        return;
    QFuture<std::optional<TransitionPlan>> task = *mix.planTask;
    mix.planTask.reset();
    if (!task.isCanceled() && task.resultCount() > 0) {
        if (const std::optional<TransitionPlan> plan = task.result())
            mix.plan = sanitized(*plan);
    }
}

TransitionMode Player::Impl::effectiveMode(const Track &from, const Track &to) const
{
    const TransitionMode mode = modeOverride.value_or(settings.mode());
    if (albumGapless && (mode == TransitionMode::crossfade || mode == TransitionMode::automix) && sameAlbum(from, to))
        return TransitionMode::gapless;
    return mode;
}

std::optional<std::pair<int, Track>> Player::Impl::upcomingTrack()
{
    const std::optional<Track> playing = currentTrack();
    if (!playing)
        return std::nullopt;
    if (queue.shuffle() && mix.shuffleNext && mix.shuffleNext->first == playing->id && shuffleNextIndex >= 0)
        return std::pair(shuffleNextIndex, mix.shuffleNext->second);
    QList<int> passedOver;
    const std::optional<int> following = queue.next(false, &passedOver);
    if (!following)
        return std::nullopt;
    nextPassedOver = passedOver;
    const Track track = queue.tracks()[*following];
    if (queue.shuffle()) {
        mix.shuffleNext = std::pair(playing->id, track);
        shuffleNextIndex = *following;
    }
    return std::pair(*following, track);
}

void Player::Impl::refreshPlanIfNeeded()
{
    const auto upcoming = upcomingTrack();
    const std::optional<Track> playing = currentTrack();
    if (playing && !upcoming && modeOverride.value_or(settings.mode()) == TransitionMode::gapless) {
        // The last track ends where its music does, not after the encoder's padding: the
        // gapless plan from it into itself says where that is.
        const QString key = QStringLiteral("end|%1|%2").arg(playing->filePath.value_or(QString())).arg(queue.current());
        if (mix.key == key)
            return;
        settleTransition();
        mix.key = key;
        planMode = TransitionMode::gapless;
        if (const auto planner = planners.find(TransitionMode::gapless); planner != planners.end())
            mix.planTask = planner->second(*playing, *playing);
        return;
    }
    if (!upcoming || !playing) {
        settleTransition();
        return;
    }
    const auto &[index, next] = *upcoming;
    const TransitionMode mode = effectiveMode(*playing, next);
    const QString key = QStringLiteral("%1|%2|%3|%4|%5")
                            .arg(TransitionModes::rawValue(mode), playing->filePath.value_or(QString()),
                                next.filePath.value_or(QString()))
                            .arg(queue.current())
                            .arg(index);
    if (mix.key == key)
        return;
    mix.key = key;
    mix.nextTrack = next;
    mix.plan.reset();
    mix.planTask.reset();
    nextIndex = index;
    planMode = mode;
    const auto planner = planners.find(mode);
    if (mode == TransitionMode::off || planner == planners.end())
        return;
    mix.planTask = planner->second(*playing, next);
}

bool Player::Impl::startTransition(const TransitionPlan &plan, const Track &next, quint64 startHost)
{
    EngineDeck &outgoing = current();
    EngineDeck &incoming = other();
    QString error;
    if (!incoming.load(next, plan.incomingStart, &error)) {
        // The outgoing track plays on; the next tick plans for the entry after this one.
        skipNotice(nextIndex, error);
        settleTransition();
        return false;
    }
    if (plan.incomingRate != 1)
        engine.setRate(incoming.index(), plan.incomingRate);
    if (plan.fadeDuration > 0)
        engine.setVolume(incoming.index(), TransitionMath::fadeGains(plan, 0).incoming);
    if (plan.bassSwapAt) {
        const TransitionMath::BandGains bands = TransitionMath::bassSwapGains(*plan.bassSwapAt, 0);
        for (EngineDeck *deck : { &outgoing, &incoming })
            engine.setBandBypass(deck->index(), AudioEngine::kBassSwapBand, false);
        engine.setBandGain(outgoing.index(), AudioEngine::kBassSwapBand, bands.outgoingDb);
        engine.setBandGain(incoming.index(), AudioEngine::kBassSwapBand, bands.incomingDb);
    }
    outgoing.setStopAt(plan.outgoingEnd);
    incoming.play(startHost);
    mix.active = ActiveTransition { plan, outgoing.index(), incoming.index(), next, startHost, false };
    Q_EMIT q.transitionStarted(planMode, plan);
    return true;
}

void Player::Impl::runActiveTransition()
{
    ActiveTransition &active = *mix.active;
    const quint64 now = engine.hostFrame();
    if (now < active.startHost)
        return;
    const double elapsed = double(now - active.startHost) / sampleRate();
    if (!active.adopted)
        adoptIncoming(active);
    const TransitionPlan &plan = active.plan;
    const double p = TransitionMath::progress(plan, elapsed);
    if (plan.fadeDuration > 0) {
        const TransitionMath::DeckGains gains = TransitionMath::fadeGains(plan, p);
        engine.setVolume(active.outgoing, gains.outgoing);
        engine.setVolume(active.incoming, gains.incoming);
    }
    if (plan.bassSwapAt) {
        const TransitionMath::BandGains bands = TransitionMath::bassSwapGains(*plan.bassSwapAt, p);
        engine.setBandGain(active.outgoing, AudioEngine::kBassSwapBand, bands.outgoingDb);
        engine.setBandGain(active.incoming, AudioEngine::kBassSwapBand, bands.incomingDb);
    }
    const bool incomingBroke = engine.state(active.incoming) == AudioEngine::DeckState::failed;
    if (incomingBroke || TransitionMath::finished(plan, p, elapsed, engine.position(active.outgoing)))
        finishTransition(active);
}

void Player::Impl::adoptIncoming(ActiveTransition &active)
{
    active.adopted = true;
    cur = active.incoming;
    for (int skipped : nextPassedOver)
        skipNotice(skipped, QStringLiteral("no file"));
    nextPassedOver.clear();
    queue.setCurrent(nextIndex);
    counted = false;
    mix.shuffleNext.reset();
    shuffleNextIndex = -1;
    Q_EMIT q.currentTrackChanged(active.next, nextIndex);
    Q_EMIT q.queueChanged();
}

void Player::Impl::finishTransition(const ActiveTransition &active)
{
    decks[size_t(active.outgoing)].unload();
    engine.setVolume(active.incoming, 1);
    engine.setBandGain(active.incoming, AudioEngine::kBassSwapBand, 0);
    engine.setBandBypass(active.incoming, AudioEngine::kBassSwapBand, true);
    const double rate = engine.rate(active.incoming);
    if (rate != 1) {
        if (active.plan.rateReturnDuration > 0)
            mix.rateReturn = RateReturn { active.incoming, rate, engine.hostFrame(), active.plan.rateReturnDuration };
        else
            engine.setRate(active.incoming, 1);
    }
    mix.active.reset();
    settleTransition();
}

void Player::Impl::runRateReturn()
{
    if (!mix.rateReturn)
        return;
    const RateReturn &ret = *mix.rateReturn;
    const quint64 now = engine.hostFrame();
    const double elapsed = now > ret.startHost ? double(now - ret.startHost) / sampleRate() : 0.0;
    const double rate = TransitionMath::returningRate(ret.startRate, ret.durationSec, elapsed);
    engine.setRate(ret.deck, rate);
    if (rate == 1)
        mix.rateReturn.reset();
}

void Player::Impl::settleTransition()
{
    mix.key.reset();
    mix.nextTrack.reset();
    mix.plan.reset();
    mix.planTask.reset();
    mix.shuffleNext.reset();
    shuffleNextIndex = -1;
    nextIndex = -1;
    nextPassedOver.clear();
}

void Player::Impl::settleTransitionIfIdle()
{
    if (!mix.active)
        settleTransition();
}

void Player::Impl::resetTransitions()
{
    if (mix.active) {
        const ActiveTransition active = *mix.active;
        if (active.adopted) {
            decks[size_t(active.outgoing)].unload();
        } else {
            decks[size_t(active.incoming)].unload();
            decks[size_t(active.outgoing)].setStopAt(std::nullopt);
        }
        const int staying = active.adopted ? active.incoming : active.outgoing;
        decks[size_t(staying)].neutralize();
        mix.active.reset();
    }
    if (mix.rateReturn) {
        engine.setRate(mix.rateReturn->deck, 1);
        mix.rateReturn.reset();
    }
    settleTransition();
}

bool Player::Impl::currentAtEnd()
{
    // A deck whose last frame went out on the last frame of a block still says it plays
    // until the next block finds nothing more; the next track starts on that frame instead.
    const std::optional<double> pos = current().position();
    return pos && engine.duration(cur) > 0 && engine.rate(cur) == 1
        && TransitionMath::framesUntil(*pos, current().endSec(), engine.rate(cur), sampleRate()) == 0;
}

qint64 Player::Impl::framesToNextEvent(qint64 block)
{
    const quint64 now = engine.hostFrame();
    if (mix.active) {
        // The adoption tick lands on the incoming deck's first frame.
        if (!mix.active->adopted && mix.active->startHost > now)
            return std::min<qint64>(block, qint64(mix.active->startHost - now));
        return block;
    }
    // Without a transition the block ends where the current deck does, so an ordinary
    // change starts on the next frame and the render ends with the last track.
    const EngineDeck &deck = current();
    std::optional<double> pos = deck.position();
    if (!pos && engine.state(cur) == AudioEngine::DeckState::playing && now >= deck.startHost)
        pos = deck.startOffset;
    if (!pos)
        return block;
    const qint64 left = TransitionMath::framesUntil(*pos, deck.endSec(), engine.rate(cur), sampleRate());
    return left > 0 ? std::min(block, left) : block;
}
