#pragma once

#include "playback/audioengine.h"
#include "playback/decodeworker.h"
#include "playback/equaliserbank.h"
#include "playback/timestretch.h"

#include <QString>

#include <atomic>
#include <cstdint>
#include <optional>
#include <vector>

// One of the engine's decks: a file decoded ahead on the deck's DecodeWorker, then
// time-stretch (only once the rate has left 1), equaliser and fader on the render thread.
//
// Threads: the owner thread makes every call above "Render thread"; render() runs on the
// render thread. They meet only in atomics and the lock-free feed:
// - m_control packs the generation and the DeckState. Every load, seek and unload starts
//   a new generation; the render thread discards feed frames of older generations and
//   moves a deck to ended/failed only with a compare-and-swap on the generation it
//   played, so it never overrides a newer command.
// - Fader, rate, stop point and equaliser settings are plain atomics read once per block.
//
// A network stream (loadStream) arrives at the rate it plays: the deck holds back its sound
// until about kStreamBufferSec are buffered, so a hiccup of the network does not reach the
// output, and when the feed runs dry anyway it plays silence and buffers again.
class AudioDeck {
public:
    using State = AudioEngine::DeckState;
    static constexpr double kStreamBufferSec = 1.0;

    explicit AudioDeck(int sampleRate);
    ~AudioDeck();
    AudioDeck(const AudioDeck &) = delete;
    AudioDeck &operator=(const AudioDeck &) = delete;

    [[nodiscard]] bool load(const QString &path, double fromSec, QString *error);
    // An opened stream (AudioDecoder::openStream): no length, no seeking.
    void loadStream(std::unique_ptr<AudioDecoder> decoder);
    void unload();
    [[nodiscard]] bool seek(double sec);
    void play(uint64_t atHostFrame);
    void setStopAt(std::optional<double> sec);
    void setVolume(float gain);
    // The loudness normalisation's gain (linear, any positive value), applied with the
    // fader. A load keeps it, so that it can be set before the load and the track's first
    // frame already has it; a stream resets it to 1.
    void setTrackGain(float gain);
    void setRate(double rate);
    EqualiserBank &equaliser() { return m_equaliser; }

    [[nodiscard]] State state() const;
    [[nodiscard]] QString error() const;
    [[nodiscard]] std::optional<double> position(uint64_t hostFrame) const;
    [[nodiscard]] std::optional<uint64_t> hostFrameAt(double fileSec, uint64_t hostFrame) const;
    [[nodiscard]] double duration() const;
    [[nodiscard]] double rate() const { return m_rateWanted.load(std::memory_order_relaxed); }
    [[nodiscard]] float volume() const { return m_volume.load(std::memory_order_relaxed); }
    [[nodiscard]] float trackGain() const { return m_trackGain.load(std::memory_order_relaxed); }
    [[nodiscard]] uint64_t underruns() const { return m_underruns.load(std::memory_order_relaxed); }

    // The frames of a block that the deck sounded, [begin, end).
    struct Span {
        int begin = 0;
        int end = 0;
        [[nodiscard]] bool empty() const { return begin >= end; }
    };
    // Render thread. Fills `frames` stereo frames of `stereo` with the deck's output for the
    // output frames starting at `hostFrame` (zeros outside the returned span); an empty
    // span leaves `stereo` alone. `wait`: offline, wait for the decoder instead of
    // running dry.
    Span render(float *stereo, int frames, uint64_t hostFrame, bool wait);

private:
    enum class Pull { more, ended, failed, starved };

    static uint64_t pack(uint32_t generation, State state) { return uint64_t(generation) << 8 | uint64_t(state); }
    void setState(State state) { m_control.store(pack(m_generation, state), std::memory_order_release); }
    void finish(uint32_t generation, Pull why);
    struct Published {
        uint32_t generation;
        uint64_t hostFrame;
        double fileFrame;
    };
    [[nodiscard]] Published published() const;

    // Render thread.
    bool adopt(uint32_t generation, bool wait);
    void takeMarker(const FeedMarker &marker);
    int pull(float *stereo, int frames, bool wait, Pull *why);
    int produceStretched(float *stereo, int frames, bool wait, Pull *why);
    bool waitForFeed();
    [[nodiscard]] bool bufferedEnough() const;

    const int m_rate;
    DeckFeed m_feed;
    EqualiserBank m_equaliser;
    TimeStretch m_stretch;

    // Owner thread only.
    uint32_t m_generation = 0;
    int64_t m_lengthFrames = 0;
    double m_seekTargetSec = 0;

    // Shared.
    std::atomic<uint64_t> m_control { pack(0, State::empty) };
    std::atomic<uint64_t> m_startAt { 0 };
    std::atomic<int64_t> m_stopFrame { -1 }; // -1: the end of the file
    std::atomic<float> m_volume { 1 };
    std::atomic<float> m_trackGain { 1 };
    std::atomic<double> m_rateWanted { 1 };
    // Where the deck was after the last block it rendered: file position of its next
    // output frame and the host frame that frame goes out on. Written by the render thread
    // under a sequence counter (odd while writing) so the owner reads the three together.
    std::atomic<uint32_t> m_publishSequence { 0 };
    std::atomic<uint32_t> m_publishedGeneration { 0 };
    std::atomic<uint64_t> m_publishedHostFrame { 0 };
    std::atomic<double> m_publishedFrame { 0 };
    std::atomic<uint64_t> m_underruns { 0 };
    std::atomic<uint32_t> m_streamGeneration { 0 }; // the generation of the last loadStream

    // Render thread only.
    uint32_t m_feedGeneration = 0; // the generation the feed's frames belong to now
    bool m_adopted = false; // m_feedGeneration has had its start marker
    std::optional<Pull> m_feedEnd; // the current generation's end marker was reached
    int64_t m_fileFrame = 0; // file position of the next frame taken from the feed
    bool m_stretching = false; // the rate left 1 since the last load
    bool m_lastFed = false; // the stretcher has been told the stream ended
    std::optional<Pull> m_stretchEnd;
    double m_outputFrame = 0; // file position of the next stretched output frame
    float m_fader = 1; // fader times track gain, as applied to the last frame
    bool m_feedStream = false; // m_feedGeneration is a network stream
    bool m_buffering = false; // a stream holding back its sound until enough is buffered
    const size_t m_streamStartFrames;
    int m_waitPolls = 0;
    std::vector<float> m_scratch;
    // The latest decoded frames played without the stretcher (a ring), to prime it when
    // the rate first leaves 1 mid-play.
    std::vector<float> m_history;
    uint64_t m_historyFrames = 0; // written since the last load or seek
    void remember(const float *stereo, int frames);
    void enterStretch(double rate);

    DecodeWorker m_worker { m_feed }; // last: its thread stops before the feed goes away
};
