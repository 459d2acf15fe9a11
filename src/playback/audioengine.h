#pragma once

#include <QString>

#include <array>
#include <atomic>
#include <memory>
#include <optional>

class AudioDecoder;
class AudioSink;

// The sound-producing half of the player: two decks mixed into one output.
//
//   decoder -> ring -> time-stretch -> equaliser bank -> fader -> mixer -> master eq -> master -> sink
//
// Each deck decodes on its own worker thread ahead of the output into a lock-free ring;
// the output side (render()) runs on the sink's thread, or, for offline rendering, on the
// caller's thread. render() never locks, allocates, logs or touches a file: every control
// call below reaches it through atomics or a preallocated single-producer queue.
//
// The host clock is the number of frames render() has produced while not paused. It is
// the only clock of the player: deck positions are derived from it, and a deck started
// with play(deck, atHostFrame) sounds its first frame exactly at that output frame.
//
// Control calls come from one thread, the owner (the GUI thread in the window, the main
// thread in orvida-cli).
class AudioEngine {
public:
    static constexpr int kDecks = 2;
    // Ten graphic bands (31 Hz .. 16 kHz) and, at index 10, the low shelf that the bass
    // swap turns down.
    static constexpr int kBands = 11;
    static constexpr int kBassSwapBand = 10;

    enum class Output {
        device,  // PortAudio's default output device
        null,    // no device: a timer paces render() in real time and the frames are dropped
        offline, // nothing runs by itself: the owner calls renderOffline() as fast as it likes
    };

    enum class DeckState {
        empty,   // nothing loaded
        ready,   // loaded and positioned, waiting for play()
        playing, // sounding (or scheduled to sound at a future host frame)
        ended,   // reached its stop point or the end of the file
        failed,  // the file could not be read any more; see deckError()
    };

    struct Options {
        Output output = Output::device;
        int sampleRate = 44100;
        int blockFrames = 512; // frames per render() call of the real-time outputs
    };

    explicit AudioEngine(const Options &options);
    ~AudioEngine();
    AudioEngine(const AudioEngine &) = delete;
    AudioEngine &operator=(const AudioEngine &) = delete;

    // Starts the output (device or null pacing). False with `error` set when the device
    // cannot be opened; the player then reports it and stays stopped.
    [[nodiscard]] bool start(QString *error);
    void stop();

    [[nodiscard]] int sampleRate() const;
    [[nodiscard]] Output output() const;
    [[nodiscard]] quint64 hostFrame() const; // frames rendered so far (while not paused)
    [[nodiscard]] double hostSeconds() const { return double(hostFrame()) / sampleRate(); }

    // Paused: render() outputs silence and neither the decks nor the host clock advance.
    void setPaused(bool paused);
    [[nodiscard]] bool paused() const;
    void setMasterVolume(float gain); // 0..1

    // Opens `path` on `deck` (dropping whatever it had), positions it at `fromSec` of the
    // file and starts decoding ahead. The deck is neutral afterwards (fader 1, rate 1,
    // equaliser flat). False with `error` set when the file cannot be opened or positioned.
    [[nodiscard]] bool load(int deck, const QString &path, double fromSec, QString *error);
    // Puts an opened network stream (AudioDecoder::openStream) on `deck`, neutral like a
    // file, with no length and no seeking. Once played it sounds when about a second is
    // buffered, and a feed that runs dry plays silence until it has that again; a stream
    // that ends or fails ends the deck like a file.
    void loadStream(int deck, std::unique_ptr<AudioDecoder> decoder);
    // Starts a ready deck so that its first frame is output frame `atHostFrame` (at once
    // when that frame has passed).
    void play(int deck, quint64 atHostFrame = 0);
    // The deck falls silent and ends exactly at file position `sec` (absent: the file's end).
    void setStopAt(int deck, std::optional<double> sec);
    // Silent and empty at once.
    void unload(int deck);
    // Repositions a ready or playing deck; the next frame it outputs is the one at `sec`.
    [[nodiscard]] bool seek(int deck, double sec);

    void setVolume(int deck, float gain);     // the deck's fader
    // The deck's loudness normalisation (linear gain, with the fader). Kept across load(),
    // so set it before loading the track it belongs to; a stream resets it to 1.
    void setTrackGain(int deck, float gain);
    [[nodiscard]] float trackGain(int deck) const;
    void setBandGain(int deck, int band, float dB);
    void setBandBypass(int deck, int band, bool bypassed);
    // Playback rate without pitch change (0.5..2). At exactly 1 on a deck that never left
    // it the stretcher is bypassed and the output is the decoded frames bit for bit.
    void setRate(int deck, double rate);

    // The user's equaliser on the mix of both decks: ten bands (EqualiserBank's 0..9) and a
    // preamp. One set of filters for the output rather than the same settings on each
    // deck: half the work, no filter restart when a deck loads a track, and each deck's
    // bank keeps its bass-swap band for the transitions alone. All bands and the preamp at
    // 0 dB leave the output bit for bit as it was.
    void setMasterBandGain(int band, float dB); // band 0..9
    void setPreamp(float dB);
    [[nodiscard]] float masterBandGain(int band) const;
    [[nodiscard]] float preamp() const;

    [[nodiscard]] DeckState state(int deck) const;
    [[nodiscard]] QString deckError(int deck) const;
    // File position of the frame the deck outputs next, in seconds; absent when the deck
    // is not playing or has not started yet.
    [[nodiscard]] std::optional<double> position(int deck) const;
    // The output frame on which a playing (or scheduled) deck, at its present rate, will
    // sound file position `sec`: exact at rate 1, so the next track of a gapless join is
    // started with play(other, hostFrameAt(deck, duration(deck))). Absent when not playing.
    [[nodiscard]] std::optional<quint64> hostFrameAt(int deck, double sec) const;
    [[nodiscard]] double duration(int deck) const; // exact, seconds; 0 when empty
    [[nodiscard]] double rate(int deck) const;
    // The settings last made (the render thread reaches them within a block).
    [[nodiscard]] float volume(int deck) const;
    [[nodiscard]] float bandGain(int deck, int band) const;
    [[nodiscard]] float masterVolume() const;

    // Offline output only: renders `frames` stereo frames into `out` on the calling thread.
    // Waits for the decoders instead of letting a deck run dry, so the result does not
    // depend on the machine's speed. Returns the frames rendered (always `frames`).
    qint64 renderOffline(float *out, qint64 frames);

    // Output underruns of the real-time outputs (a deck's ring ran dry), for diagnostics.
    [[nodiscard]] quint64 underruns() const;

private:
    struct Impl;
    std::unique_ptr<Impl> d;
};
