#include "playback/equaliserbank.h"

#include <algorithm>

EqualiserBank::EqualiserBank(int sampleRate)
    : m_rate(sampleRate)
{
}

void EqualiserBank::setGain(int band, float dB)
{
    if (band >= 0 && band < kBands)
        m_bands[band].gainDb.store(std::clamp(dB, -60.0f, 24.0f), std::memory_order_relaxed);
}

void EqualiserBank::setBypass(int band, bool bypassed)
{
    if (band >= 0 && band < kBands)
        m_bands[band].bypassed.store(bypassed, std::memory_order_relaxed);
}

void EqualiserBank::setFlat()
{
    for (Band &band : m_bands) {
        band.gainDb.store(0, std::memory_order_relaxed);
        band.bypassed.store(false, std::memory_order_relaxed);
    }
}

float EqualiserBank::gain(int band) const
{
    return band >= 0 && band < kBands ? m_bands[band].gainDb.load(std::memory_order_relaxed) : 0.0f;
}

EqualiserBank::Setting EqualiserBank::wanted(const Band &band) const
{
    const float dB = band.gainDb.load(std::memory_order_relaxed);
    if (band.bypassed.load(std::memory_order_relaxed) || dB == 0.0f)
        return {};
    return Setting { true, dB };
}

Biquad::Coefficients EqualiserBank::design(int index, float gainDb) const
{
    if (index == kBassBand)
        return Biquad::lowShelf(m_rate, kBassCornerHz, gainDb);
    // Keep the top band clear of Nyquist at low output rates.
    return Biquad::peaking(m_rate, std::min(kPeakHz[size_t(index)], 0.45 * m_rate), kPeakQ, gainDb);
}

void EqualiserBank::reset()
{
    for (int i = 0; i < kBands; ++i) {
        Band &band = m_bands[size_t(i)];
        const Setting s = wanted(band);
        band.current = Filter { s, s.active ? design(i, s.gainDb) : Biquad::Coefficients {}, {} };
        band.previous = {};
        band.rampDone = kRampFrames;
        band.history = {};
    }
}

void EqualiserBank::process(float *stereo, int frames)
{
    if (frames <= 0)
        return;
    for (int i = 0; i < kBands; ++i) {
        Band &band = m_bands[size_t(i)];
        if (band.rampDone >= kRampFrames) {
            const Setting s = wanted(band);
            if (!(s == band.current.setting)) {
                band.previous = band.current;
                Filter next { s, s.active ? design(i, s.gainDb) : Biquad::Coefficients {}, band.current.state };
                if (s.active && !band.previous.setting.active) {
                    // Continue from what a unity filter would remember: its input as its output.
                    for (int ch = 0; ch < 2; ++ch) {
                        Biquad::State &st = next.state[size_t(ch)];
                        st.x1 = st.y1 = band.history[size_t(ch)];
                        st.x2 = st.y2 = band.history[size_t(2 + ch)];
                    }
                }
                band.current = next;
                band.rampDone = 0;
            }
        }
        // What enters this band now (the buffer holds the output of the bands before it),
        // kept for priming after this block.
        const std::array<float, 4> entering = frames >= 2
            ? std::array<float, 4> { stereo[2 * frames - 2], stereo[2 * frames - 1], stereo[2 * frames - 4],
                  stereo[2 * frames - 3] }
            : std::array<float, 4> { stereo[0], stereo[1], band.history[0], band.history[1] };
        if (band.current.setting.active || band.rampDone < kRampFrames)
            processBand(band, stereo, frames);
        band.history = entering;
    }
}

void EqualiserBank::processBand(Band &band, float *stereo, int frames)
{
    Filter &cur = band.current;
    int i = 0;
    if (band.rampDone < kRampFrames) {
        Filter &prev = band.previous;
        const int rampFrames = std::min(frames, kRampFrames - band.rampDone);
        for (; i < rampFrames; ++i) {
            const float t = float(band.rampDone + i + 1) / float(kRampFrames);
            for (int ch = 0; ch < 2; ++ch) {
                const float in = stereo[2 * i + ch];
                const float a
                    = prev.setting.active ? Biquad::process(prev.coefficients, prev.state[size_t(ch)], in) : in;
                const float b = cur.setting.active ? Biquad::process(cur.coefficients, cur.state[size_t(ch)], in) : in;
                stereo[2 * i + ch] = a + (b - a) * t;
            }
        }
        band.rampDone += rampFrames;
    }
    if (!cur.setting.active)
        return;
    for (; i < frames; ++i) {
        stereo[2 * i] = Biquad::process(cur.coefficients, cur.state[0], stereo[2 * i]);
        stereo[2 * i + 1] = Biquad::process(cur.coefficients, cur.state[1], stereo[2 * i + 1]);
    }
}
