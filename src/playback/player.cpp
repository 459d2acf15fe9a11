#include "playback/player.h"

#include "library/librarystore.h"
#include "library/transitionsettings.h"
#include "platform/preferences.h"
#include "playback/audioengine.h"
#include "playback/gaplessplanner.h"
#include "playback/playerimpl.h"
#include "playback/transitionmath.h"
#include "playback/wavwriter.h"

#include <QFileInfo>
#include <QThread>

#include <vector>

namespace {

const QString kAlbumGaplessKey = QStringLiteral("ov.player.albumGapless");

bool readAlbumGapless()
{
    const QVariant stored = Preferences::value(kAlbumGaplessKey);
    return stored.isValid() ? stored.toBool() : true;
}

} // namespace

Player::Impl::Impl(Player &owner, AudioEngine &audio, TransitionSettings &transitionSettings, LibraryStore *store)
    : q(owner)
    , engine(audio)
    , settings(transitionSettings)
    , library(store)
    , decks { EngineDeck(audio, 0), EngineDeck(audio, 1) }
    , albumGapless(readAlbumGapless())
{
    initNormalisation();
}

int Player::Impl::sampleRate() const
{
    return engine.sampleRate();
}

std::optional<Track> Player::Impl::currentTrack() const
{
    if (!hasCurrent)
        return std::nullopt;
    return decks[size_t(cur)].track;
}

void Player::Impl::setStatus(Status s)
{
    if (s == status)
        return;
    status = s;
    updateTimer();
    Q_EMIT q.statusChanged(s);
}

void Player::Impl::updateTimer()
{
    const bool run = (status == Status::playing || livePhase == LivePhase::connecting)
        && engine.output() != AudioEngine::Output::offline;
    // A stream has no transitions to time: the tick only looks out for its start and end.
    timer.setInterval(live() ? kLiveTickIntervalMs : Player::kTickIntervalMs);
    if (run && !timer.isActive())
        timer.start();
    else if (!run)
        timer.stop();
}

void Player::Impl::skipNotice(int index, const QString &reason)
{
    queue.markUnplayable(index);
    Q_EMIT q.trackSkipped(queue.tracks()[index], reason);
}

void Player::Impl::startFrom(std::optional<int> index, const QList<int> &passedOver)
{
    resetTransitions();
    other().unload();
    for (int skipped : passedOver)
        skipNotice(skipped, QStringLiteral("no file"));
    // Every entry is tried at most once, so a queue of broken files ends instead of
    // going round for ever under repeat all.
    for (qsizetype attempts = queue.tracks().size(); index && attempts > 0; --attempts) {
        queue.setCurrent(*index);
        const Track track = queue.tracks()[*index];
        QString error;
        if (!PlayQueue::hasFile(track)) {
            skipNotice(*index, QStringLiteral("no file"));
        } else if (current().load(track, 0, &error)) {
            current().play(engine.hostFrame());
            engine.setPaused(false);
            hasCurrent = true;
            queueFinished = false;
            counted = false;
            setStatus(Status::playing);
            Q_EMIT q.currentTrackChanged(track, *index);
            Q_EMIT q.queueChanged();
            return;
        } else {
            skipNotice(*index, error);
        }
        QList<int> more;
        index = queue.next(true, &more);
        for (int skipped : more)
            skipNotice(skipped, QStringLiteral("no file"));
    }
    endQueue();
}

void Player::Impl::endQueue()
{
    queueFinished = true;
    resetTransitions();
    decks[0].unload();
    decks[1].unload();
    const bool had = hasCurrent;
    hasCurrent = false;
    setStatus(Status::stopped);
    if (had)
        Q_EMIT q.currentTrackChanged(std::nullopt, -1);
    Q_EMIT q.queueEnded();
}

void Player::Impl::countPlay()
{
    if (counted || !hasCurrent || !current().track)
        return;
    const std::optional<double> pos = current().position();
    const double length = engine.duration(cur) > 0 ? engine.duration(cur) : current().track->duration;
    if (!pos || !(length > 0) || *pos <= length / 2)
        return;
    counted = true;
    Track &track = *current().track;
    track.playCount += 1;
    if (library && track.id > 0) {
        // The stored count may have moved on (another window, orvida-cli): raise that one.
        std::optional<Track> stored = library->track(track.id);
        if (stored) {
            stored->playCount += 1;
            track.playCount = stored->playCount;
            if (!library->save(*stored))
                qWarning("Player: the play count of track %lld was not saved: %s", track.id,
                    qPrintable(library->lastError()));
        }
    }
    Q_EMIT q.trackPlayed(track);
}

Player::Player(AudioEngine &engine, TransitionSettings &settings, LibraryStore *library, QObject *parent)
    : QObject(parent)
    , d(std::make_unique<Impl>(*this, engine, settings, library))
{
    d->timer.setInterval(kTickIntervalMs);
    d->timer.setTimerType(Qt::PreciseTimer);
    connect(&d->timer, &QTimer::timeout, this, &Player::transitionTick);
    engine.setMasterVolume(float(d->volume));
    d->planners[TransitionMode::gapless] = [](const Track &from, const Track &to) {
        return GaplessPlanner::plan(from.filePath.value_or(QString()), to.filePath.value_or(QString()));
    };
}

Player::~Player()
{
    d->timer.stop();
    d->closeLive();
    d->resetTransitions();
    d->decks[0].unload();
    d->decks[1].unload();
}

void Player::playQueue(const QList<Track> &tracks, int startIndex)
{
    setQueue(tracks, startIndex);
    if (!tracks.isEmpty())
        d->startFrom(d->queue.current());
}

void Player::setQueue(const QList<Track> &tracks, int startIndex)
{
    Q_ASSERT(QThread::currentThread() == thread());
    stop();
    d->queue.setTracks(tracks, startIndex);
    Q_EMIT queueChanged();
}

void Player::play()
{
    Q_ASSERT(QThread::currentThread() == thread());
    if (d->livePhase == Impl::LivePhase::closed) {
        // Live again: the stream from now on, not from where it was paused.
        d->liveHeardSec = 0;
        d->connectLive();
        d->setStatus(Status::stopped);
        return;
    }
    if (d->live())
        return;
    if (d->status == Status::paused) {
        d->engine.setPaused(false);
        d->setStatus(Status::playing);
    } else if (d->status == Status::stopped && !d->queue.isEmpty()) {
        // After the end of the queue, play starts it over; after a stop, where it stood.
        d->startFrom(d->queueFinished || d->queue.current() < 0 ? d->queue.firstInOrder() : d->queue.current());
    }
}

void Player::pause()
{
    Q_ASSERT(QThread::currentThread() == thread());
    if (d->live()) {
        // A paused stream would only pile up in the relay: the connection closes.
        if (d->livePhase == Impl::LivePhase::closed)
            return;
        d->liveHeardSec = position().value_or(0);
        d->closeLive();
        d->livePhase = Impl::LivePhase::closed;
        d->updateTimer();
        d->setStatus(Status::paused);
        return;
    }
    if (d->status != Status::playing)
        return;
    // The host clock stands still while paused, so a scheduled start keeps its frame.
    d->engine.setPaused(true);
    d->setStatus(Status::paused);
}

void Player::playPause()
{
    if (d->status == Status::playing || d->livePhase == Impl::LivePhase::connecting)
        pause();
    else
        play();
}

void Player::stop()
{
    Q_ASSERT(QThread::currentThread() == thread());
    d->leaveLive();
    d->resetTransitions();
    d->decks[0].unload();
    d->decks[1].unload();
    d->engine.setPaused(false);
    const bool had = d->hasCurrent;
    d->hasCurrent = false;
    d->setStatus(Status::stopped);
    if (had)
        Q_EMIT currentTrackChanged(std::nullopt, -1);
}

void Player::next()
{
    Q_ASSERT(QThread::currentThread() == thread());
    if (d->queue.isEmpty())
        return;
    d->leaveLive();
    QList<int> passedOver;
    const std::optional<int> following = d->queue.next(true, &passedOver);
    if (!following) {
        d->endQueue();
        return;
    }
    d->startFrom(following, passedOver);
}

void Player::previous()
{
    Q_ASSERT(QThread::currentThread() == thread());
    if (d->live()) {
        if (d->queue.isEmpty())
            return;
        d->leaveLive();
        const int current = d->queue.current() >= 0 ? d->queue.current() : d->queue.firstInOrder();
        d->startFrom(d->queue.previous().value_or(current));
        return;
    }
    const std::optional<double> pos = position();
    const std::optional<int> before = d->queue.previous();
    if (d->hasCurrent && ((pos && *pos > kRestartAfterSec) || !before)) {
        seek(0);
        return;
    }
    if (before)
        d->startFrom(before);
}

void Player::seek(double seconds)
{
    Q_ASSERT(QThread::currentThread() == thread());
    if (!d->hasCurrent)
        return;
    // A seek abandons a running transition: the deck that is current stays, the other goes.
    d->resetTransitions();
    const double target = std::clamp(seconds, 0.0, std::max(0.0, d->engine.duration(d->cur)));
    if (d->engine.state(d->cur) == AudioEngine::DeckState::ended) {
        // A deck that reached its end cannot be moved; it is opened again at the target.
        const Track track = *d->current().track;
        QString error;
        if (!d->current().load(track, target, &error)) {
            d->skipNotice(d->queue.current(), error);
            next();
            return;
        }
        d->current().play(d->engine.hostFrame());
    } else if (!d->engine.seek(d->cur, target)) {
        return;
    }
    d->current().startOffset = target;
    d->current().startHost = d->engine.hostFrame();
    d->settleTransition();
    Q_EMIT seeked(target);
}

void Player::setShuffle(bool on)
{
    if (on == d->queue.shuffle())
        return;
    d->queue.setShuffle(on);
    Q_EMIT shuffleChanged(on);
    Q_EMIT queueChanged();
}

void Player::setRepeat(Repeat repeat)
{
    if (repeat == this->repeat())
        return;
    d->queue.setRepeat(PlayQueue::Repeat(int(repeat)));
    Q_EMIT repeatChanged(repeat);
    Q_EMIT queueChanged();
}

void Player::setVolume(double volume)
{
    const double v = std::clamp(volume, 0.0, 1.0);
    if (v == d->volume)
        return;
    d->volume = v;
    d->engine.setMasterVolume(float(v));
    Q_EMIT volumeChanged(v);
}

Player::Status Player::status() const
{
    return d->status;
}
const QList<Track> &Player::queue() const
{
    return d->queue.tracks();
}
int Player::currentIndex() const
{
    return d->hasCurrent ? d->queue.current() : -1;
}
std::optional<Track> Player::currentTrack() const
{
    return d->currentTrack();
}
bool Player::shuffle() const
{
    return d->queue.shuffle();
}
Player::Repeat Player::repeat() const
{
    return Repeat(int(d->queue.repeat()));
}
double Player::volume() const
{
    return d->volume;
}
const MixState &Player::mixState() const
{
    return d->mix;
}
int Player::currentDeck() const
{
    return d->cur;
}
bool Player::albumGapless() const
{
    return d->albumGapless;
}

QList<Track> Player::upNext() const
{
    QList<Track> result;
    for (int index : d->queue.upNext()) {
        if (d->queue.playable(index))
            result << d->queue.tracks()[index];
    }
    // The track shuffle already chose plays next whatever the order says now.
    if (d->shuffleNextIndex >= 0 && d->mix.shuffleNext) {
        result.removeIf([&](const Track &t) { return t == d->mix.shuffleNext->second; });
        result.prepend(d->mix.shuffleNext->second);
    }
    return result;
}

std::optional<double> Player::position() const
{
    switch (d->livePhase) {
    case Impl::LivePhase::off:
        break;
    case Impl::LivePhase::connecting:
        return 0.0;
    case Impl::LivePhase::sounding:
        return d->engine.position(d->cur).value_or(0);
    case Impl::LivePhase::closed:
        return d->liveHeardSec;
    }
    if (!d->hasCurrent)
        return std::nullopt;
    if (const std::optional<double> pos = d->decks[size_t(d->cur)].position())
        return pos;
    // Loaded and scheduled, or paused before the first frame: where it will begin.
    return d->decks[size_t(d->cur)].startOffset;
}

double Player::duration() const
{
    if (!d->hasCurrent)
        return 0;
    const double exact = d->engine.duration(d->cur);
    return exact > 0 ? exact : d->decks[size_t(d->cur)].track->duration;
}

void Player::setPlanner(TransitionMode mode, Planner planner)
{
    if (planner)
        d->planners[mode] = std::move(planner);
    else
        d->planners.erase(mode);
    d->settleTransitionIfIdle();
}

void Player::setModeOverride(std::optional<TransitionMode> mode)
{
    d->modeOverride = mode;
    d->settleTransitionIfIdle();
}

void Player::setAlbumGapless(bool on)
{
    if (on == d->albumGapless)
        return;
    d->albumGapless = on;
    Preferences::setValue(kAlbumGaplessKey, on);
    d->settleTransitionIfIdle();
}

void Player::setShuffleSeed(quint32 seed)
{
    d->queue.seed(seed);
}

void Player::transitionTick()
{
    Q_ASSERT(QThread::currentThread() == thread());
    if (d->live())
        d->liveTick();
    else
        d->transitionTick();
}

bool Player::renderQueue(const QString &wavPath, QString *error)
{
    Q_ASSERT(QThread::currentThread() == thread());
    auto failWith = [&](const QString &message) {
        if (error)
            *error = message;
        return false;
    };
    if (d->engine.output() != AudioEngine::Output::offline)
        return failWith(QStringLiteral("rendering needs the offline output"));
    if (d->queue.isEmpty())
        return failWith(QStringLiteral("the queue is empty"));
    WavWriter wav;
    if (!wav.open(wavPath, d->sampleRate()))
        return failWith(wav.errorString());

    // A render has an end: repeat would play for ever.
    const Repeat repeatBefore = repeat();
    d->queue.setRepeat(PlayQueue::Repeat::off);
    d->rendering = true;
    stop();
    d->startFrom(d->queue.firstInOrder());

    // Blocks of about 15 ms: the tick's resolution for fades, as the timer's in real time.
    const qint64 block = std::max(64, d->sampleRate() / 64);
    std::vector<float> buffer(size_t(block) * 2);
    bool written = true;
    while (d->status == Status::playing && written) {
        d->transitionTick();
        if (d->mix.planTask && !d->mix.planTask->isFinished()) {
            // The render is the same whatever the machine's speed: the plan is there
            // before a frame it could change is rendered.
            d->mix.planTask->waitForFinished();
            d->transitionTick();
        }
        if (d->status != Status::playing)
            break;
        const qint64 frames = d->framesToNextEvent(block);
        d->engine.renderOffline(buffer.data(), frames);
        written = wav.write(buffer.data(), frames);
    }
    d->rendering = false;
    d->queue.setRepeat(PlayQueue::Repeat(int(repeatBefore)));
    if (!written)
        return failWith(wav.errorString());
    if (!wav.finish())
        return failWith(wav.errorString());
    return true;
}
