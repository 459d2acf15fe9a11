// Live mode: a network stream (the relay's local address) played on the current deck in
// place of the queue. Opening waits for the network, so it runs on the thread pool; the
// player's periodic tick picks up its result, notices when sound begins and when the
// stream is lost. Everything here runs on the player's thread.

#include "playback/audiodecoder.h"
#include "playback/audioengine.h"
#include "playback/playerimpl.h"

#include <QThread>
#include <QtConcurrent/QtConcurrentRun>

// What an open on the thread pool shares with the player. The player may give up on it at
// any time (abort) and forget it; the task's copy then closes whatever it opened.
struct LiveOpening {
    std::shared_ptr<std::atomic<bool>> abort = std::make_shared<std::atomic<bool>>(false);
    std::atomic<bool> done { false };
    // Written by the task before `done`, read by the player after it.
    std::unique_ptr<AudioDecoder> decoder;
    QString error;
};

void Player::Impl::connectLive()
{
    auto opening = std::make_shared<LiveOpening>();
    liveOpening = opening;
    livePhase = LivePhase::connecting;
    updateTimer();
    const QString url = liveUrl.toString(QUrl::FullyEncoded);
    const int rate = sampleRate();
    const int timeoutMs = liveTimeoutMs;
    // The tick polls for the result, so the task never calls into a player that may be gone.
    (void)QtConcurrent::run([opening, url, rate, timeoutMs] {
        opening->decoder = AudioDecoder::openStream(url, rate, opening->abort, timeoutMs, &opening->error);
        opening->done.store(true, std::memory_order_release);
    });
}

void Player::Impl::closeLive()
{
    if (liveOpening) {
        liveOpening->abort->store(true);
        liveOpening.reset();
    }
    // A stream blocked in a read is interrupted before the deck's worker is asked to let go.
    current().unload();
}

bool Player::Impl::leaveLive()
{
    if (!live())
        return false;
    closeLive();
    livePhase = LivePhase::off;
    liveUrl.clear();
    liveHeardSec = 0;
    updateTimer();
    Q_EMIT q.liveChanged(false);
    return true;
}

void Player::Impl::failLive(const QString &reason)
{
    leaveLive();
    setStatus(Status::stopped);
    Q_EMIT q.liveFailed(reason.isEmpty() ? QStringLiteral("the stream failed") : reason);
}

void Player::Impl::liveTick()
{
    if (livePhase == LivePhase::connecting && liveOpening) {
        if (!liveOpening->done.load(std::memory_order_acquire))
            return;
        const std::shared_ptr<LiveOpening> opened = std::move(liveOpening);
        if (!opened->decoder) {
            failLive(opened->error);
            return;
        }
        engine.loadStream(cur, std::move(opened->decoder));
        current().neutralize();
        // The deck holds its sound back until it has buffered enough.
        current().play(engine.hostFrame());
        return;
    }
    if (livePhase != LivePhase::connecting && livePhase != LivePhase::sounding)
        return;
    switch (engine.state(cur)) {
    case AudioEngine::DeckState::failed:
        failLive(engine.deckError(cur));
        return;
    case AudioEngine::DeckState::ended:
    case AudioEngine::DeckState::empty:
        failLive(QStringLiteral("the stream ended"));
        return;
    case AudioEngine::DeckState::ready:
    case AudioEngine::DeckState::playing:
        break;
    }
    if (livePhase == LivePhase::connecting && engine.position(cur).value_or(0) > 0) {
        livePhase = LivePhase::sounding;
        setStatus(Status::playing);
    }
}

void Player::playLive(const QUrl &url)
{
    Q_ASSERT(QThread::currentThread() == thread());
    const bool wasLive = d->live();
    d->closeLive();
    d->resetTransitions();
    d->decks[0].unload();
    d->decks[1].unload();
    d->engine.setPaused(false);
    d->hasCurrent = false;
    d->liveUrl = url;
    d->liveHeardSec = 0;
    d->connectLive();
    d->setStatus(Status::stopped);
    Q_EMIT currentTrackChanged(std::nullopt, -1);
    if (!wasLive)
        Q_EMIT liveChanged(true);
}

void Player::stopLive()
{
    Q_ASSERT(QThread::currentThread() == thread());
    if (d->live())
        stop();
}

bool Player::isLive() const
{
    return d->live();
}

std::optional<QUrl> Player::liveUrl() const
{
    if (!d->live())
        return std::nullopt;
    return d->liveUrl;
}

void Player::setLiveTimeout(double seconds)
{
    d->liveTimeoutMs = int(std::clamp(seconds, 0.1, 3600.0) * 1000);
}
