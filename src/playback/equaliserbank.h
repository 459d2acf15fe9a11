#pragma once

#include "playback/biquad.h"

#include <array>
#include <atomic>

// One deck's equaliser: ten peaking bands (31 Hz .. 16 kHz, an octave apart) for the user's
// equaliser and, at index kBassBand, a low shelf that the bass swap turns down.
//
// Threads: setGain()/setBypass() come from the owner thread and only store atomics;
// process() runs on the render thread, reads them once per call and never locks or
// allocates. A band at 0 dB or bypassed is skipped entirely, so a flat bank leaves the
// samples bit for bit as they were. A change of a band is not applied abruptly (that
// clicks): for kRampFrames the old and the new filter run side by side and the output
// crossfades from one to the other.
class EqualiserBank {
public:
    static constexpr int kBands = 11;
    static constexpr int kBassBand = 10;
    static constexpr int kRampFrames = 256;
    // The shelf's half-gain point. At -24 dB it takes 21 dB or more off everything below
    // 100 Hz (kick drum, bass line) and 16 dB at 150 Hz, while 400 Hz (low voices, snare
    // body) loses only 3 dB and nothing above 1 kHz is touched: the outgoing track's bass is
    // gone without hollowing out the rest of it.
    static constexpr double kBassCornerHz = 200.0;
    static constexpr std::array<double, 10> kPeakHz { 31, 62, 125, 250, 500, 1000, 2000, 4000, 8000, 16000 };
    static constexpr double kPeakQ = 1.41421356; // one octave wide

    explicit EqualiserBank(int sampleRate);

    // Owner thread.
    void setGain(int band, float dB);
    void setBypass(int band, bool bypassed);
    void setFlat(); // every band at 0 dB and not bypassed
    [[nodiscard]] float gain(int band) const;

    // Render thread. `stereo` holds `frames` interleaved frames and is filtered in place.
    void process(float *stereo, int frames);
    // Render thread: forget the filters' history and any ramp (a new track starts), taking
    // the current settings as they are.
    void reset();

private:
    struct Setting {
        bool active = false;
        float gainDb = 0;
        friend bool operator==(const Setting &, const Setting &) = default;
    };
    struct Filter {
        Setting setting;
        Biquad::Coefficients coefficients;
        std::array<Biquad::State, 2> state;
    };
    struct Band {
        std::atomic<float> gainDb { 0 };
        std::atomic<bool> bypassed { false };
        // Render thread only.
        Filter current;
        Filter previous; // what `current` replaced, while the ramp runs
        int rampDone = kRampFrames;
        // The last two frames that entered this band (newest first), to prime a filter that
        // starts as if it had always been running as a unity filter.
        std::array<float, 4> history {};
    };

    [[nodiscard]] Setting wanted(const Band &band) const;
    [[nodiscard]] Biquad::Coefficients design(int index, float gainDb) const;
    void processBand(Band &band, float *stereo, int frames);

    double m_rate;
    std::array<Band, kBands> m_bands;
};
