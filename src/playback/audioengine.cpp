#include "playback/audioengine.h"

#include "playback/audiodeck.h"
#include "playback/audiodecoder.h"
#include "playback/equaliserbank.h"
#include "playback/nullsink.h"
#include "playback/portaudiosink.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#if defined(__SSE2__)
#include <xmmintrin.h>
#endif

namespace {

// Filters ringing out in silence reach denormal numbers, which x86 computes a hundred
// times slower: flushed to zero for the time of a render call (and restored, because the
// offline caller's thread is not ours).
class DenormalsToZero {
public:
#if defined(__SSE2__)
    DenormalsToZero()
        : m_saved(_mm_getcsr())
    {
        _mm_setcsr(m_saved | 0x8040); // flush-to-zero and denormals-are-zero
    }
    ~DenormalsToZero()
    {
        _mm_setcsr(m_saved);
    }

private:
    unsigned m_saved;
#endif
};

} // namespace

struct AudioEngine::Impl {
    explicit Impl(const Options &o)
        : options(o)
        , blockFrames(std::clamp(o.blockFrames, 16, 8192))
        , masterEq(o.sampleRate)
        , deckBuffer(size_t(2 * blockFrames))
    {
        for (auto &deck : decks)
            deck = std::make_unique<AudioDeck>(o.sampleRate);
    }

    AudioDeck *deck(int index) const
    {
        Q_ASSERT(index >= 0 && index < kDecks);
        return index >= 0 && index < kDecks ? decks[size_t(index)].get() : nullptr;
    }

    // Render thread (the sink's, or the owner's when offline). `frames` may be any count:
    // the graph runs in blocks of at most blockFrames.
    void render(float *out, qint64 frames, bool wait)
    {
        const DenormalsToZero denormalsToZero;
        while (frames > 0) {
            const int n = int(std::min<qint64>(frames, blockFrames));
            renderBlock(out, n, wait);
            out += 2 * n;
            frames -= n;
        }
    }

    void renderBlock(float *out, int frames, bool wait)
    {
        if (paused.load(std::memory_order_relaxed)) {
            std::memset(out, 0, sizeof(float) * size_t(2 * frames));
            return;
        }
        const quint64 host = hostFrame.load(std::memory_order_relaxed);
        // Where one deck sounds alone its frames are copied, not added to zeros: adding
        // would turn a decoded -0.0f into +0.0f, and a lone deck, or the two sides of a
        // gapless join, would no longer be bit-exact.
        AudioDeck::Span mixed;
        for (auto &deck : decks) {
            float *target = mixed.empty() ? out : deckBuffer.data();
            const AudioDeck::Span span = deck->render(target, frames, host, wait);
            if (span.empty())
                continue;
            if (mixed.empty()) {
                mixed = span;
                continue;
            }
            for (int i = span.begin; i < span.end; ++i) {
                const bool overlap = i >= mixed.begin && i < mixed.end;
                out[2 * i] = overlap ? out[2 * i] + deckBuffer[size_t(2 * i)] : deckBuffer[size_t(2 * i)];
                out[2 * i + 1]
                    = overlap ? out[2 * i + 1] + deckBuffer[size_t(2 * i + 1)] : deckBuffer[size_t(2 * i + 1)];
            }
            mixed = { std::min(mixed.begin, span.begin), std::max(mixed.end, span.end) };
        }
        if (mixed.empty())
            std::memset(out, 0, sizeof(float) * size_t(2 * frames));
        masterEq.process(out, frames);
        const float target
            = masterVolume.load(std::memory_order_relaxed) * preampGain.load(std::memory_order_relaxed);
        if (target != master || master != 1.0f) {
            const float step = (target - master) / float(frames);
            for (int i = 0; i < frames; ++i) {
                const float g = master + step * float(i + 1);
                out[2 * i] *= g;
                out[2 * i + 1] *= g;
            }
            master = target;
        }
        hostFrame.store(host + quint64(frames), std::memory_order_relaxed);
    }

    static void renderCallback(void *context, float *out, int frames)
    {
        static_cast<Impl *>(context)->render(out, frames, false);
    }

    const Options options;
    const int blockFrames;
    std::array<std::unique_ptr<AudioDeck>, kDecks> decks;
    std::unique_ptr<AudioSink> sink;
    bool running = false;

    std::atomic<quint64> hostFrame { 0 };
    std::atomic<bool> paused { false };
    std::atomic<float> masterVolume { 1 };
    std::atomic<float> preampGain { 1 }; // linear
    std::atomic<float> preampDb { 0 };
    EqualiserBank masterEq; // band kBassSwapBand stays flat: the bass swap is the decks'
    // Render thread only.
    float master = 1; // master volume times preamp, as applied to the last frame
    std::vector<float> deckBuffer;
};

AudioEngine::AudioEngine(const Options &options)
    : d(std::make_unique<Impl>(options))
{
    switch (options.output) {
    case Output::device:
        d->sink = std::make_unique<PortAudioSink>(options.sampleRate, d->blockFrames, &Impl::renderCallback, d.get());
        break;
    case Output::null:
        d->sink = std::make_unique<NullSink>(options.sampleRate, d->blockFrames, &Impl::renderCallback, d.get());
        break;
    case Output::offline:
        break;
    }
}

AudioEngine::~AudioEngine()
{
    stop();
}

bool AudioEngine::start(QString *error)
{
    if (!d->sink || d->running)
        return true;
    d->running = d->sink->start(error);
    return d->running;
}

void AudioEngine::stop()
{
    if (d->sink && d->running)
        d->sink->stop();
    d->running = false;
}

int AudioEngine::sampleRate() const
{
    return d->options.sampleRate;
}

AudioEngine::Output AudioEngine::output() const
{
    return d->options.output;
}

quint64 AudioEngine::hostFrame() const
{
    return d->hostFrame.load(std::memory_order_relaxed);
}

void AudioEngine::setPaused(bool paused)
{
    d->paused = paused;
}

bool AudioEngine::paused() const
{
    return d->paused;
}

void AudioEngine::setMasterVolume(float gain)
{
    d->masterVolume = std::clamp(gain, 0.0f, 1.0f);
}

bool AudioEngine::load(int deck, const QString &path, double fromSec, QString *error)
{
    AudioDeck *dk = d->deck(deck);
    if (!dk) {
        if (error)
            *error = QStringLiteral("No deck %1").arg(deck);
        return false;
    }
    return dk->load(path, fromSec, error);
}

void AudioEngine::loadStream(int deck, std::unique_ptr<AudioDecoder> decoder)
{
    if (AudioDeck *dk = d->deck(deck))
        dk->loadStream(std::move(decoder));
}

void AudioEngine::play(int deck, quint64 atHostFrame)
{
    if (AudioDeck *dk = d->deck(deck))
        dk->play(atHostFrame);
}

void AudioEngine::setStopAt(int deck, std::optional<double> sec)
{
    if (AudioDeck *dk = d->deck(deck))
        dk->setStopAt(sec);
}

void AudioEngine::unload(int deck)
{
    if (AudioDeck *dk = d->deck(deck))
        dk->unload();
}

bool AudioEngine::seek(int deck, double sec)
{
    AudioDeck *dk = d->deck(deck);
    return dk && dk->seek(sec);
}

void AudioEngine::setVolume(int deck, float gain)
{
    if (AudioDeck *dk = d->deck(deck))
        dk->setVolume(gain);
}

void AudioEngine::setBandGain(int deck, int band, float dB)
{
    if (AudioDeck *dk = d->deck(deck))
        dk->equaliser().setGain(band, dB);
}

void AudioEngine::setTrackGain(int deck, float gain)
{
    if (AudioDeck *dk = d->deck(deck))
        dk->setTrackGain(gain);
}

float AudioEngine::trackGain(int deck) const
{
    const AudioDeck *dk = d->deck(deck);
    return dk ? dk->trackGain() : 1.0f;
}

void AudioEngine::setMasterBandGain(int band, float dB)
{
    if (band >= 0 && band < kBassSwapBand)
        d->masterEq.setGain(band, dB);
}

void AudioEngine::setPreamp(float dB)
{
    const float clamped = std::isfinite(dB) ? std::clamp(dB, -24.0f, 24.0f) : 0.0f;
    d->preampDb = clamped;
    // Exactly 1 at 0 dB, so that a flat equaliser is bit-exact.
    d->preampGain = clamped == 0.0f ? 1.0f : float(std::pow(10.0, clamped / 20.0));
}

float AudioEngine::masterBandGain(int band) const
{
    return band >= 0 && band < kBassSwapBand ? d->masterEq.gain(band) : 0.0f;
}

float AudioEngine::preamp() const
{
    return d->preampDb.load(std::memory_order_relaxed);
}

void AudioEngine::setBandBypass(int deck, int band, bool bypassed)
{
    if (AudioDeck *dk = d->deck(deck))
        dk->equaliser().setBypass(band, bypassed);
}

void AudioEngine::setRate(int deck, double rate)
{
    if (AudioDeck *dk = d->deck(deck))
        dk->setRate(rate);
}

AudioEngine::DeckState AudioEngine::state(int deck) const
{
    const AudioDeck *dk = d->deck(deck);
    return dk ? dk->state() : DeckState::empty;
}

QString AudioEngine::deckError(int deck) const
{
    const AudioDeck *dk = d->deck(deck);
    return dk ? dk->error() : QString();
}

std::optional<double> AudioEngine::position(int deck) const
{
    const AudioDeck *dk = d->deck(deck);
    return dk ? dk->position(hostFrame()) : std::nullopt;
}

std::optional<quint64> AudioEngine::hostFrameAt(int deck, double sec) const
{
    const AudioDeck *dk = d->deck(deck);
    return dk ? dk->hostFrameAt(sec, hostFrame()) : std::nullopt;
}

double AudioEngine::duration(int deck) const
{
    const AudioDeck *dk = d->deck(deck);
    return dk ? dk->duration() : 0.0;
}

double AudioEngine::rate(int deck) const
{
    const AudioDeck *dk = d->deck(deck);
    return dk ? dk->rate() : 1.0;
}

float AudioEngine::volume(int deck) const
{
    const AudioDeck *dk = d->deck(deck);
    return dk ? dk->volume() : 0.0f;
}

float AudioEngine::bandGain(int deck, int band) const
{
    AudioDeck *dk = d->deck(deck);
    return dk ? dk->equaliser().gain(band) : 0.0f;
}

float AudioEngine::masterVolume() const
{
    return d->masterVolume.load(std::memory_order_relaxed);
}

qint64 AudioEngine::renderOffline(float *out, qint64 frames)
{
    Q_ASSERT(d->options.output == Output::offline);
    if (d->options.output != Output::offline || frames <= 0)
        return 0;
    d->render(out, frames, true);
    return frames;
}

quint64 AudioEngine::underruns() const
{
    quint64 total = 0;
    for (const auto &deck : d->decks)
        total += deck->underruns();
    return total;
}
