#include "playback/timestretch.h"

#include <rubberband/RubberBandStretcher.h>

#include <algorithm>
#include <cmath>

using RubberBand::RubberBandStretcher;

TimeStretch::TimeStretch(int sampleRate, int maxFrames)
    : m_maxFrames(maxFrames)
    , m_left(size_t(maxFrames))
    , m_right(size_t(maxFrames))
{
    // The finer (R3) engine with its short window: the faster R2 engine lowers a steady
    // tone by about 1 % at rate 1.05 (440 Hz comes out at 435 Hz), an audible detune, while
    // R3's standard window costs about four times the CPU of the short one.
    m_stretcher = std::make_unique<RubberBandStretcher>(size_t(sampleRate), 2,
        RubberBandStretcher::OptionProcessRealTime | RubberBandStretcher::OptionEngineFiner
            | RubberBandStretcher::OptionWindowShort | RubberBandStretcher::OptionChannelsTogether);
    m_stretcher->setMaxProcessSize(size_t(maxFrames));
    restart(1.0);
}

TimeStretch::~TimeStretch() = default;

void TimeStretch::restart(double rate, const float *before, int beforeFrames)
{
    m_stretcher->reset();
    m_rate = rate;
    m_stretcher->setTimeRatio(1.0 / rate);
    // The pad, right-aligned: silence, then the end of `before`.
    const int pad = padFrames();
    const int known = std::min(beforeFrames, pad);
    const float *tail = before ? before + 2 * (beforeFrames - known) : nullptr;
    float *channels[2] = { m_left.data(), m_right.data() };
    for (int done = 0; done < pad;) {
        const int n = std::min(pad - done, m_maxFrames);
        for (int i = 0; i < n; ++i) {
            const int fromTail = done + i - (pad - known);
            m_left[size_t(i)] = fromTail >= 0 && tail ? tail[2 * fromTail] : 0.0f;
            m_right[size_t(i)] = fromTail >= 0 && tail ? tail[2 * fromTail + 1] : 0.0f;
        }
        m_stretcher->process(channels, size_t(n), false);
        done += n;
    }
    m_discard = int(m_stretcher->getStartDelay());
    m_expectedOutput = 0;
    m_retrieved = 0;
    m_last = false;
}

int TimeStretch::padFrames() const
{
    return int(m_stretcher->getPreferredStartPad());
}

void TimeStretch::setRate(double rate)
{
    if (rate == m_rate)
        return;
    m_rate = rate;
    m_stretcher->setTimeRatio(1.0 / rate);
}

int TimeStretch::framesWanted() const
{
    return int(std::clamp<size_t>(m_stretcher->getSamplesRequired(), 1, size_t(m_maxFrames)));
}

void TimeStretch::feed(const float *stereo, int frames)
{
    frames = std::min(frames, m_maxFrames);
    for (int i = 0; i < frames; ++i) {
        m_left[size_t(i)] = stereo[2 * i];
        m_right[size_t(i)] = stereo[2 * i + 1];
    }
    const float *channels[2] = { m_left.data(), m_right.data() };
    m_stretcher->process(channels, size_t(frames), false);
    m_expectedOutput += frames / m_rate;
}

void TimeStretch::finish()
{
    if (m_last)
        return;
    // The R3 engine drops the input it still holds when the final call brings no frames,
    // so the end goes in with a start pad's worth of silence behind it; retrieve() cuts
    // the output where the real frames end.
    std::fill(m_left.begin(), m_left.end(), 0.0f);
    std::fill(m_right.begin(), m_right.end(), 0.0f);
    const float *channels[2] = { m_left.data(), m_right.data() };
    size_t pad = std::max<size_t>(m_stretcher->getPreferredStartPad(), 1);
    while (pad > 0) {
        const size_t n = std::min(pad, size_t(m_maxFrames));
        pad -= n;
        m_stretcher->process(channels, n, pad == 0);
    }
    m_last = true;
}

int TimeStretch::available() const
{
    const int raw = m_stretcher->available();
    if (raw < 0)
        return -1;
    const int ready = std::max(0, raw - m_discard);
    if (!m_last)
        return ready;
    const int64_t remaining = std::llround(m_expectedOutput) - m_retrieved;
    return remaining <= 0 ? -1 : int(std::min<int64_t>(ready, remaining));
}

int TimeStretch::retrieve(float *stereo, int frames)
{
    float *channels[2] = { m_left.data(), m_right.data() };
    while (m_discard > 0) {
        const int ready = m_stretcher->available();
        if (ready <= 0)
            return 0;
        const int n = std::min({ ready, m_discard, m_maxFrames });
        m_stretcher->retrieve(channels, size_t(n));
        m_discard -= n;
    }
    int wanted = std::min(frames, m_maxFrames);
    if (m_last) // the flush ends with padding beyond the stream's true length
        wanted = int(std::clamp<int64_t>(std::llround(m_expectedOutput) - m_retrieved, 0, wanted));
    const int n = int(m_stretcher->retrieve(channels, size_t(wanted)));
    m_retrieved += n;
    for (int i = 0; i < n; ++i) {
        stereo[2 * i] = m_left[size_t(i)];
        stereo[2 * i + 1] = m_right[size_t(i)];
    }
    return n;
}
