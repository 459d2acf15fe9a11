#pragma once

#include <cstdint>
#include <memory>
#include <vector>

namespace RubberBand {
class RubberBandStretcher;
}

// Tempo change without pitch change for one deck: librubberband in real-time mode on
// interleaved stereo frames.
//
// Everything that allocates happens in the constructor; afterwards every call is made on
// the render thread and is real-time safe (the library promises that in real-time mode as
// long as no call passes more than maxFrames at once, which the class guarantees).
//
// The stretcher's own delay is compensated: restart() pads its input with the silence it
// asks for and retrieve() drops the matching start of the output, so the first frame
// retrieved after restart() is the first frame fed after it.
class TimeStretch {
public:
    TimeStretch(int sampleRate, int maxFrames);
    ~TimeStretch();
    TimeStretch(const TimeStretch &) = delete;
    TimeStretch &operator=(const TimeStretch &) = delete;

    // Forgets all audio and starts a new stream at `rate` (output runs 1/rate as long).
    // `before` (interleaved, `beforeFrames` long) is what preceded the stream, if anything:
    // it fills the stretcher's start pad instead of silence, so that a stream taken over
    // from plain playback continues without a step.
    void restart(double rate, const float *before = nullptr, int beforeFrames = 0);
    // How much of what came before restart() can use.
    [[nodiscard]] int padFrames() const;
    void setRate(double rate);
    [[nodiscard]] double rate() const { return m_rate; }

    // How many input frames the stretcher wants before it can give more output (at most
    // maxFrames).
    [[nodiscard]] int framesWanted() const;
    // Feeds up to maxFrames frames.
    void feed(const float *stereo, int frames);
    // The stream has ended: what the stretcher still holds comes out.
    void finish();
    // Frames ready to retrieve; -1 once everything after finish() has been retrieved.
    [[nodiscard]] int available() const;
    // Copies up to `frames` frames out; returns how many.
    int retrieve(float *stereo, int frames);

private:
    std::unique_ptr<RubberBand::RubberBandStretcher> m_stretcher;
    int m_maxFrames;
    double m_rate = 1;
    int m_discard = 0; // output frames still to drop after restart()
    // Output the input fed since restart() accounts for (sum of frames / rate), and what
    // was retrieved: the flush after the last frame pads beyond it, and that is cut off.
    double m_expectedOutput = 0;
    int64_t m_retrieved = 0;
    bool m_last = false;
    std::vector<float> m_left, m_right;
};
