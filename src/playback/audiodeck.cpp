#include "playback/audiodeck.h"

#include "playback/transitionmath.h"

#include "playback/audiodecoder.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>
#include <thread>

namespace {
// The most frames the stretcher takes or gives at once; its input scratch is this large.
constexpr int kStretchFrames = 4096;
// Offline rendering waits for a decoder at most this long (in polls of kWaitPoll) before
// it gives up on the block and lets it run dry, so a stuck worker cannot hang a render.
constexpr auto kWaitPoll = std::chrono::microseconds(50);
constexpr int kMaxWaitPolls = 200'000; // 10 s
} // namespace

AudioDeck::AudioDeck(int sampleRate)
    : m_rate(sampleRate)
    , m_equaliser(sampleRate)
    , m_stretch(sampleRate, kStretchFrames)
    , m_streamStartFrames(std::min<size_t>(size_t(kStreamBufferSec * sampleRate), DeckFeed::kFrames / 4 * 3))
    , m_scratch(size_t(2 * kStretchFrames))
    , m_history(size_t(2 * kStretchFrames))
{
}

AudioDeck::~AudioDeck() = default;

bool AudioDeck::load(const QString &path, double fromSec, QString *error)
{
    std::unique_ptr<AudioDecoder> decoder = AudioDecoder::open(path, m_rate, error);
    const int64_t from = TransitionMath::frameAt(std::max(0.0, fromSec), m_rate);
    if (decoder && from > 0 && !decoder->seek(from)) {
        if (error)
            *error = QStringLiteral("Cannot start %1 at %2 s: %3").arg(path).arg(fromSec).arg(decoder->lastError());
        decoder.reset();
    }
    if (!decoder) {
        unload();
        return false;
    }
    ++m_generation;
    setState(State::ready);
    m_volume = 1;
    m_rateWanted = 1;
    m_stopFrame = -1;
    m_equaliser.setFlat();
    m_lengthFrames = decoder->length();
    m_seekTargetSec = double(from) / m_rate;
    m_worker.setSource(std::move(decoder), m_generation, from);
    return true;
}

void AudioDeck::loadStream(std::unique_ptr<AudioDecoder> decoder)
{
    if (!decoder) {
        unload();
        return;
    }
    m_trackGain = 1;
    ++m_generation;
    m_streamGeneration.store(m_generation, std::memory_order_relaxed); // released by setState
    setState(State::ready);
    m_volume = 1;
    m_rateWanted = 1;
    m_stopFrame = -1;
    m_equaliser.setFlat();
    m_lengthFrames = -1;
    m_seekTargetSec = 0;
    m_worker.setSource(std::move(decoder), m_generation, 0);
}

void AudioDeck::unload()
{
    ++m_generation;
    setState(State::empty);
    m_lengthFrames = 0;
    m_worker.setSource(nullptr, m_generation, 0);
}

bool AudioDeck::seek(double sec)
{
    const State now = state();
    // A stream cannot seek, and asking its worker would wait for its read from the network.
    if (now == State::empty || now == State::failed
        || m_streamGeneration.load(std::memory_order_relaxed) == m_generation)
        return false;
    int64_t frame = TransitionMath::frameAt(std::max(0.0, sec), m_rate);
    const int64_t length = m_lengthFrames >= 0 ? m_lengthFrames : m_worker.knownLength();
    if (length >= 0)
        frame = std::min(frame, length);
    if (!m_worker.seek(frame, m_generation + 1))
        return false;
    ++m_generation;
    m_seekTargetSec = double(frame) / m_rate;
    setState(now == State::playing ? State::playing : State::ready);
    return true;
}

void AudioDeck::play(uint64_t atHostFrame)
{
    if (state() != State::ready)
        return;
    m_startAt.store(atHostFrame, std::memory_order_relaxed);
    setState(State::playing); // releases m_startAt to the render thread
}

void AudioDeck::setStopAt(std::optional<double> sec)
{
    m_stopFrame = sec ? TransitionMath::frameAt(std::max(0.0, *sec), m_rate) : -1;
}

void AudioDeck::setVolume(float gain)
{
    m_volume = std::clamp(gain, 0.0f, 1.0f);
}

void AudioDeck::setTrackGain(float gain)
{
    m_trackGain = std::isfinite(gain) && gain > 0 ? gain : 1.0f;
}

void AudioDeck::setRate(double rate)
{
    m_rateWanted = std::clamp(rate, 0.5, 2.0);
}

AudioDeck::State AudioDeck::state() const
{
    return State(m_control.load(std::memory_order_acquire) & 0xff);
}

QString AudioDeck::error() const
{
    return state() == State::failed ? m_worker.error() : QString();
}

AudioDeck::Published AudioDeck::published() const
{
    for (;;) {
        const uint32_t before = m_publishSequence.load(std::memory_order_acquire);
        const Published p { m_publishedGeneration.load(std::memory_order_relaxed),
            m_publishedHostFrame.load(std::memory_order_relaxed), m_publishedFrame.load(std::memory_order_relaxed) };
        std::atomic_thread_fence(std::memory_order_acquire);
        if (!(before & 1) && m_publishSequence.load(std::memory_order_relaxed) == before)
            return p;
    }
}

std::optional<double> AudioDeck::position(uint64_t hostFrame) const
{
    const uint64_t control = m_control.load(std::memory_order_acquire);
    if (State(control & 0xff) != State::playing || m_startAt.load(std::memory_order_relaxed) > hostFrame)
        return std::nullopt;
    const Published p = published();
    if (p.generation != uint32_t(control >> 8))
        return m_seekTargetSec; // the render thread has not reached the new place yet
    return p.fileFrame / m_rate;
}

std::optional<uint64_t> AudioDeck::hostFrameAt(double fileSec, uint64_t hostFrame) const
{
    const uint64_t control = m_control.load(std::memory_order_acquire);
    if (State(control & 0xff) != State::playing)
        return std::nullopt;
    const Published p = published();
    uint64_t baseHost = p.hostFrame;
    double baseFrame = p.fileFrame;
    if (p.generation != uint32_t(control >> 8)) {
        // Not started yet, or a seek not yet taken up: it sounds from its start frame or
        // from the next block on.
        baseHost = std::max(m_startAt.load(std::memory_order_relaxed), hostFrame);
        baseFrame = m_seekTargetSec * m_rate;
    }
    const double frames = (fileSec * m_rate - baseFrame) / rate();
    return frames <= 0 ? baseHost : baseHost + uint64_t(std::llround(frames));
}

double AudioDeck::duration() const
{
    if (state() == State::empty)
        return 0;
    const int64_t length = m_lengthFrames >= 0 ? m_lengthFrames : m_worker.knownLength();
    return length > 0 ? double(length) / m_rate : 0.0;
}

void AudioDeck::finish(uint32_t generation, Pull why)
{
    uint64_t expected = pack(generation, State::playing);
    m_control.compare_exchange_strong(
        expected, pack(generation, why == Pull::failed ? State::failed : State::ended), std::memory_order_acq_rel);
}

// ---- render thread ----

AudioDeck::Span AudioDeck::render(float *stereo, int frames, uint64_t hostFrame, bool wait)
{
    const uint64_t control = m_control.load(std::memory_order_acquire);
    if (State(control & 0xff) != State::playing)
        return {};
    const uint32_t generation = uint32_t(control >> 8);
    const uint64_t startAt = m_startAt.load(std::memory_order_relaxed);
    if (startAt >= hostFrame + uint64_t(frames))
        return {};
    m_waitPolls = 0;
    if (!adopt(generation, wait)) {
        // Due to sound, but its decoder has not delivered the first frames of the load or
        // seek yet: a dropout like any other. (A stream is still buffering: no dropout.)
        if (generation != m_streamGeneration.load(std::memory_order_relaxed))
            m_underruns.fetch_add(1, std::memory_order_relaxed);
        return {};
    }
    if (m_buffering && !wait) {
        if (!bufferedEnough())
            return {};
        m_buffering = false;
        m_fader = 0; // fades in over the block instead of starting mid-wave
    }

    const int offset = startAt > hostFrame ? int(startAt - hostFrame) : 0;
    float *out = stereo + 2 * offset;
    const int wanted = frames - offset;
    const double rate = m_rateWanted.load(std::memory_order_relaxed);
    if (!m_stretching && rate != 1.0)
        enterStretch(rate);
    Pull why = Pull::more;
    int got = 0;
    if (m_stretching) {
        got = produceStretched(out, wanted, wait, &why);
    } else {
        got = pull(out, wanted, wait, &why);
        remember(out, got);
    }

    std::memset(stereo, 0, sizeof(float) * size_t(2 * offset));
    std::memset(out + 2 * got, 0, sizeof(float) * size_t(2 * (wanted - got)));
    if (got > 0) {
        m_equaliser.process(out, got);
        const float target
            = m_volume.load(std::memory_order_relaxed) * m_trackGain.load(std::memory_order_relaxed);
        if (target != m_fader || m_fader != 1.0f) {
            // A linear ramp to the new gain over the block: a jump would click.
            const float step = (target - m_fader) / float(got);
            for (int i = 0; i < got; ++i) {
                const float g = m_fader + step * float(i + 1);
                out[2 * i] *= g;
                out[2 * i + 1] *= g;
            }
            m_fader = target;
        }
    }
    const uint32_t sequence = m_publishSequence.load(std::memory_order_relaxed);
    m_publishSequence.store(sequence + 1, std::memory_order_relaxed);
    std::atomic_thread_fence(std::memory_order_release);
    m_publishedGeneration.store(generation, std::memory_order_relaxed);
    m_publishedHostFrame.store(hostFrame + uint64_t(frames), std::memory_order_relaxed);
    m_publishedFrame.store(m_stretching ? m_outputFrame : double(m_fileFrame), std::memory_order_relaxed);
    m_publishSequence.store(sequence + 2, std::memory_order_release);
    if (why == Pull::ended || why == Pull::failed)
        finish(generation, why);
    else if (why == Pull::starved && !wait) {
        m_underruns.fetch_add(1, std::memory_order_relaxed);
        m_buffering = m_feedStream;
    }
    m_worker.consumed();
    return Span { offset, offset + got };
}

void AudioDeck::remember(const float *stereo, int frames)
{
    const size_t capacity = m_history.size() / 2;
    const size_t keep = std::min(size_t(frames), capacity);
    const float *from = stereo + 2 * (size_t(frames) - keep);
    const size_t at = size_t((m_historyFrames + uint64_t(frames - int(keep))) % capacity);
    const size_t first = std::min(keep, capacity - at);
    std::memcpy(m_history.data() + 2 * at, from, 2 * first * sizeof(float));
    std::memcpy(m_history.data(), from + 2 * first, 2 * (keep - first) * sizeof(float));
    m_historyFrames += uint64_t(frames);
}

void AudioDeck::enterStretch(double rate)
{
    // From here until the next load the deck stays in the stretcher, even back at rate 1:
    // leaving it would jump by the stretcher's latency, an audible click. Entering it is
    // seamless because the stretcher is primed with the frames just played.
    const size_t capacity = m_history.size() / 2;
    const int known = int(std::min<uint64_t>(m_historyFrames, capacity));
    for (int i = 0; i < known; ++i) {
        const size_t at = size_t((m_historyFrames - uint64_t(known) + uint64_t(i)) % capacity);
        m_scratch[size_t(2 * i)] = m_history[2 * at];
        m_scratch[size_t(2 * i + 1)] = m_history[2 * at + 1];
    }
    m_stretching = true;
    m_stretch.restart(rate, m_scratch.data(), known);
    m_outputFrame = double(m_fileFrame);
    m_lastFed = false;
    m_stretchEnd.reset();
}

bool AudioDeck::waitForFeed()
{
    if (++m_waitPolls > kMaxWaitPolls)
        return false;
    m_worker.consumed();
    std::this_thread::sleep_for(kWaitPoll);
    return true;
}

bool AudioDeck::bufferedEnough() const
{
    // A marker after the frames is the stream's end: what is there plays out at once.
    return m_feed.frames.readable() / 2 >= m_streamStartFrames || m_feed.markers.readable() > 0;
}

void AudioDeck::takeMarker(const FeedMarker &marker)
{
    if (marker.kind != FeedMarker::Kind::start) {
        if (m_adopted && marker.generation == m_feedGeneration)
            m_feedEnd = marker.kind == FeedMarker::Kind::end ? Pull::ended : Pull::failed;
        return;
    }
    m_feedGeneration = marker.generation;
    m_adopted = true;
    m_fileFrame = marker.fileFrame;
    m_feedEnd.reset();
    m_historyFrames = 0;
    if (marker.newSource) {
        m_feedStream = marker.generation == m_streamGeneration.load(std::memory_order_acquire);
        m_buffering = m_feedStream;
        m_stretching = false;
        m_fader = m_volume.load(std::memory_order_relaxed) * m_trackGain.load(std::memory_order_relaxed);
        m_equaliser.reset();
    } else if (m_stretching) {
        // A seek: the stretcher's buffered audio belongs to the old place.
        m_stretch.restart(m_rateWanted.load(std::memory_order_relaxed));
        m_outputFrame = double(m_fileFrame);
        m_lastFed = false;
        m_stretchEnd.reset();
    }
}

bool AudioDeck::adopt(uint32_t generation, bool wait)
{
    for (;;) {
        if (m_adopted && m_feedGeneration == generation)
            return true;
        // Frames first, then markers: every marker for frames already visible is visible.
        const size_t available = m_feed.frames.readable() / 2;
        const uint64_t here = m_feed.frames.totalRead() / 2;
        if (m_feed.markers.readable() > 0 && m_feed.markers.peek().atFrame <= here) {
            FeedMarker marker = m_feed.markers.peek();
            m_feed.markers.drop(1);
            takeMarker(marker);
            continue;
        }
        // Frames of an older load or seek: of no use any more.
        size_t stale = available;
        if (m_feed.markers.readable() > 0)
            stale = std::min<size_t>(stale, m_feed.markers.peek().atFrame - here);
        if (stale > 0) {
            m_feed.frames.drop(2 * stale);
            m_worker.consumed();
            continue;
        }
        if (!wait || !waitForFeed())
            return false;
    }
}

int AudioDeck::pull(float *stereo, int frames, bool wait, Pull *why)
{
    int got = 0;
    while (got < frames) {
        const size_t available = m_feed.frames.readable() / 2;
        const uint64_t here = m_feed.frames.totalRead() / 2;
        size_t room = size_t(frames - got);
        if (m_feed.markers.readable() > 0) {
            const FeedMarker &next = m_feed.markers.peek();
            if (next.atFrame <= here) {
                if (next.kind == FeedMarker::Kind::start)
                    break; // a newer load or seek follows: the next block takes it up
                FeedMarker marker = next;
                m_feed.markers.drop(1);
                takeMarker(marker);
                continue;
            }
            room = std::min<size_t>(room, next.atFrame - here);
        }
        if (m_feedEnd) {
            *why = *m_feedEnd;
            break;
        }
        if (const int64_t stop = m_stopFrame.load(std::memory_order_relaxed); stop >= 0) {
            if (m_fileFrame >= stop) {
                *why = Pull::ended;
                break;
            }
            room = std::min<size_t>(room, size_t(stop - m_fileFrame));
        }
        const size_t take = std::min(room, available);
        if (take == 0) {
            if (wait && waitForFeed())
                continue;
            *why = Pull::starved;
            break;
        }
        m_feed.frames.pop(stereo + 2 * got, 2 * take);
        got += int(take);
        m_fileFrame += int64_t(take);
    }
    return got;
}

int AudioDeck::produceStretched(float *stereo, int frames, bool wait, Pull *why)
{
    const double rate = m_rateWanted.load(std::memory_order_relaxed);
    m_stretch.setRate(rate);
    int got = 0;
    while (got < frames) {
        const int available = m_stretch.available();
        if (available > 0) {
            const int n = m_stretch.retrieve(stereo + 2 * got, std::min(available, frames - got));
            got += n;
            m_outputFrame += n * rate;
            continue;
        }
        if (available < 0 || m_lastFed) {
            *why = m_stretchEnd.value_or(Pull::ended);
            break;
        }
        Pull fed = Pull::more;
        const int n = pull(m_scratch.data(), m_stretch.framesWanted(), wait, &fed);
        if (n > 0)
            m_stretch.feed(m_scratch.data(), n);
        if (fed == Pull::ended || fed == Pull::failed) {
            m_stretch.finish();
            m_lastFed = true;
            m_stretchEnd = fed;
        } else if (n == 0) {
            *why = fed;
            break;
        }
    }
    return got;
}
