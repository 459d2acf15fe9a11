#pragma once

#include "playback/spscring.h"

#include <QString>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

class AudioDecoder;

// A note in a deck's feed telling the render thread what the frames from `atFrame` on are.
struct FeedMarker {
    enum class Kind : uint8_t {
        start, // frames of `generation` begin here, at file frame `fileFrame`
        end, // `generation` has no more frames: the file ended
        failed, // `generation` has no more frames: the file could not be read
    };
    Kind kind = Kind::start;
    bool newSource = false; // start of a freshly loaded file rather than a seek
    uint32_t generation = 0;
    uint64_t atFrame = 0; // counted in frames ever pushed into the feed
    int64_t fileFrame = 0;
};

// What the decode worker produces and the render thread consumes: interleaved stereo
// frames and, beside them, the markers that delimit loads and seeks.
struct DeckFeed {
    static constexpr size_t kFrames = 65536; // about 1.5 s at 44.1 kHz ahead of the output
    SpscRing<float> frames { 2 * kFrames };
    SpscRing<FeedMarker> markers { 64 };
};

// A deck's decode worker: a thread of its own that reads the deck's AudioDecoder into the
// feed, staying up to DeckFeed::kFrames ahead of the render thread, and sleeps while the
// feed is full or the file has ended.
//
// The owner thread hands it decoders and seeks (those calls take m_mutex, which the worker
// holds only around one decoder read); the render thread only calls consumed(), which is
// lock-free and wakes the worker without a system call unless the worker is asleep with
// room to fill. A read from a network stream can wait for data: replacing the decoder
// interrupts the old one before taking m_mutex, so the owner never waits on the network.
class DecodeWorker {
public:
    explicit DecodeWorker(DeckFeed &feed);
    ~DecodeWorker();
    DecodeWorker(const DecodeWorker &) = delete;
    DecodeWorker &operator=(const DecodeWorker &) = delete;

    // Owner thread. Replaces the decoder (null: nothing to decode); it is already
    // positioned at `fileFrame`, and its frames start `generation` in the feed.
    void setSource(std::unique_ptr<AudioDecoder> decoder, uint32_t generation, int64_t fileFrame);
    // Owner thread. Positions the decoder; its frames then start `generation`. False (and
    // nothing changed) when the decoder cannot seek there.
    [[nodiscard]] bool seek(int64_t fileFrame, uint32_t generation);
    // Owner thread: why the feed ended with a `failed` marker.
    [[nodiscard]] QString error() const;
    // Any thread: the file's length in frames once known (-1 before).
    [[nodiscard]] int64_t knownLength() const { return m_knownLength.load(std::memory_order_relaxed); }

    // Render thread: frames were taken out of the feed.
    void consumed();

private:
    static constexpr int kChunkFrames = 4096;
    void run();
    void interruptSource(); // owner thread
    bool step(); // one unit of work under m_mutex; false when there is nothing to do
    void wake();

    DeckFeed &m_feed;
    mutable std::mutex m_mutex; // guards the members down to m_error
    std::unique_ptr<AudioDecoder> m_decoder;
    bool m_markPending = false;
    bool m_newSource = false;
    uint32_t m_generation = 0;
    int64_t m_startFrame = 0;
    bool m_atEnd = true;
    QString m_error;
    std::vector<float> m_scratch; // worker thread only

    std::atomic<int64_t> m_knownLength { -1 };
    std::atomic<bool> m_canFill { false }; // there is a file left to decode
    std::atomic<uint32_t> m_wakeups { 0 };
    std::atomic<bool> m_sleeping { false };
    std::atomic<bool> m_quit { false };
    std::thread m_thread;
};
