#include "playback/loudness.h"

#include "playback/audiodecoder.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <ebur128.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <vector>

namespace {

// The true peak: the largest magnitude of the signal oversampled 4x with the interpolation
// filter of ITU-R BS.1770 (four phases of twelve taps). libebur128 can measure it too, but
// its generic interpolator takes four fifths of the analysis time; this one does the
// same filter in float and skips every stretch of signal that cannot beat the peak found
// so far: an output of a phase is at most the sum of the phase's absolute taps times the
// largest input under the filter, so a stretch whose inputs stay below the peak divided by
// that sum holds no new peak. Music spends most of its time well under its peak.
class TruePeakMeter {
public:
    explicit TruePeakMeter(int rate)
        : m_oversample(rate < 96000)
    {
        for (auto &channel : m_buffer)
            channel.assign(kTaps - 1, 0.0f);
    }

    void add(const float *stereo, qint64 frames)
    {
        for (int ch = 0; ch < 2; ++ch) {
            std::vector<float> &x = m_buffer[size_t(ch)];
            // x holds the last kTaps - 1 inputs, then this block's, then room for a whole
            // stretch past the end (read, never counted: see scan()).
            x.resize(size_t(kTaps - 1 + frames + kStretch), 0.0f);
            for (qint64 i = 0; i < frames; ++i)
                x[size_t(kTaps - 1 + i)] = stereo[2 * i + ch];
            if (m_oversample) {
                scan(x);
            } else {
                // At 96 kHz and above the samples are close enough to the waveform's peaks.
                for (qint64 i = 0; i < frames; ++i)
                    m_peak = std::max(m_peak, std::abs(x[size_t(kTaps - 1 + i)]));
            }
            std::copy(x.end() - kStretch - (kTaps - 1), x.end() - kStretch, x.begin());
            x.resize(kTaps - 1);
        }
    }

    [[nodiscard]] float peak() const { return m_peak; }

private:
    static constexpr int kTaps = 12;
    static constexpr int kStretch = 8; // frames judged together for skipping (8 measured fastest)
    // Phases 1 to 3 (a quarter, half and three quarters of a sample on). Phase 0 lands on
    // the samples themselves, whose values are known exactly: the samples stand in for it.
    static constexpr float kPhases[3][kTaps] = {
        { -0.0291748046875f, 0.0292968750000f, -0.0517578125000f, 0.0891113281250f, -0.1665039062500f,
            0.4650878906250f, 0.7797851562500f, -0.2003173828125f, 0.1015625000000f, -0.0582275390625f,
            0.0330810546875f, -0.0189208984375f },
        { -0.0189208984375f, 0.0330810546875f, -0.0582275390625f, 0.1015625000000f, -0.2003173828125f,
            0.7797851562500f, 0.4650878906250f, -0.1665039062500f, 0.0891113281250f, -0.0517578125000f,
            0.0292968750000f, -0.0291748046875f },
        { -0.0083007812500f, 0.0148925781250f, -0.0266113281250f, 0.0476074218750f, -0.1022949218750f,
            0.9721679687500f, 0.1373291015625f, -0.0594482421875f, 0.0332031250000f, -0.0196533203125f,
            0.0109863281250f, 0.0017089843750f },
    };
    // The largest sum of absolute taps of a phase (phases 1 and 2).
    static constexpr float kGainBound = 2.0229f;

    void scan(const std::vector<float> &x)
    {
        const size_t end = x.size() - kStretch;
        for (size_t from = kTaps - 1; from < end; from += kStretch) {
            const size_t to = std::min(end, from + kStretch);
            float local = 0;
            for (size_t i = from + 1 - kTaps; i < to; ++i)
                local = std::max(local, std::abs(x[i]));
            if (local * kGainBound <= m_peak)
                continue;
            // Tap k weighs input n - k. The loop over n is innermost and always a whole
            // stretch long, so that the compiler vectorises it; outputs past the block's
            // end are computed from the padding and ignored.
            const size_t count = to - from;
            for (size_t j = 0; j < count; ++j)
                m_peak = std::max(m_peak, std::abs(x[from + j]));
            for (const auto &phase : kPhases) {
                std::array<float, kStretch> y {};
                for (int k = 0; k < kTaps; ++k) {
                    const float *in = x.data() + from - size_t(k);
                    for (size_t j = 0; j < size_t(kStretch); ++j)
                        y[j] += phase[k] * in[j];
                }
                for (size_t j = 0; j < count; ++j)
                    m_peak = std::max(m_peak, std::abs(y[j]));
            }
        }
    }

    bool m_oversample;
    float m_peak = 0;
    std::array<std::vector<float>, 2> m_buffer;
};

struct StateDeleter {
    void operator()(ebur128_state *state) const { ebur128_destroy(&state); }
};

std::optional<double> finiteOrNone(double value)
{
    return std::isfinite(value) ? std::optional<double>(value) : std::nullopt;
}

QJsonValue orNull(const std::optional<double> &value)
{
    return value ? QJsonValue(*value) : QJsonValue(QJsonValue::Null);
}

} // namespace

std::optional<LoudnessAnalysis> Loudness::analyse(const QString &path, QString *error)
{
    const std::unique_ptr<AudioDecoder> decoder = AudioDecoder::open(path, 0, error);
    if (!decoder)
        return std::nullopt;
    const int rate = decoder->outputRate();
    std::unique_ptr<ebur128_state, StateDeleter> state(
        ebur128_init(2, unsigned(rate), EBUR128_MODE_I));
    if (!state) {
        if (error)
            *error = QStringLiteral("cannot measure loudness at %1 Hz").arg(rate);
        return std::nullopt;
    }
    // A second of audio per call: large enough that the per-call overhead vanishes,
    // small enough to stay in cache.
    std::vector<float> block(size_t(2 * rate));
    TruePeakMeter truePeak(rate);
    qint64 frames = 0;
    for (;;) {
        const qint64 got = decoder->read(block.data(), rate);
        if (got < 0) {
            if (error)
                *error = decoder->lastError();
            return std::nullopt;
        }
        if (got == 0)
            break;
        if (ebur128_add_frames_float(state.get(), block.data(), size_t(got)) != EBUR128_SUCCESS) {
            if (error)
                *error = QStringLiteral("loudness measurement failed");
            return std::nullopt;
        }
        truePeak.add(block.data(), got);
        frames += got;
    }
    LoudnessAnalysis result;
    result.durationSec = double(frames) / rate;
    double lufs = -HUGE_VAL;
    if (ebur128_loudness_global(state.get(), &lufs) == EBUR128_SUCCESS)
        result.integratedLufs = finiteOrNone(lufs);
    if (truePeak.peak() > 0)
        result.truePeakDb = 20.0 * std::log10(double(truePeak.peak()));
    return result;
}

QByteArray Loudness::toJson(const LoudnessAnalysis &analysis)
{
    QJsonObject o;
    o.insert(QStringLiteral("version"), LoudnessAnalysis::kVersion);
    o.insert(QStringLiteral("integratedLufs"), orNull(analysis.integratedLufs));
    o.insert(QStringLiteral("truePeakDb"), orNull(analysis.truePeakDb));
    o.insert(QStringLiteral("durationSec"), analysis.durationSec);
    return QJsonDocument(o).toJson(QJsonDocument::Compact);
}

std::optional<LoudnessAnalysis> Loudness::fromJson(const QByteArray &json)
{
    const QJsonDocument doc = QJsonDocument::fromJson(json);
    if (!doc.isObject())
        return std::nullopt;
    const QJsonObject o = doc.object();
    if (o.value(QStringLiteral("version")).toInt() != LoudnessAnalysis::kVersion)
        return std::nullopt;
    const auto number = [&o](const char *key, std::optional<double> *out) {
        const QJsonValue v = o.value(QLatin1String(key));
        if (v.isNull())
            return true;
        if (!v.isDouble())
            return false;
        *out = finiteOrNone(v.toDouble());
        return out->has_value();
    };
    LoudnessAnalysis a;
    std::optional<double> duration;
    if (!number("integratedLufs", &a.integratedLufs) || !number("truePeakDb", &a.truePeakDb)
        || !number("durationSec", &duration) || !duration || *duration < 0)
        return std::nullopt;
    a.durationSec = *duration;
    return a;
}

std::optional<LoudnessAnalysis> Loudness::album(std::span<const LoudnessAnalysis> tracks)
{
    double energy = 0;
    double weight = 0;
    double duration = 0;
    std::optional<double> peak;
    for (const LoudnessAnalysis &t : tracks) {
        duration += t.durationSec;
        if (t.truePeakDb)
            peak = std::max(peak.value_or(-HUGE_VAL), *t.truePeakDb);
        if (!t.integratedLufs)
            continue;
        // A track of unknown length still counts, as much as a second.
        const double w = t.durationSec > 0 ? t.durationSec : 1.0;
        energy += w * std::pow(10.0, *t.integratedLufs / 10.0);
        weight += w;
    }
    if (!(weight > 0) || !(energy > 0))
        return std::nullopt;
    return LoudnessAnalysis { 10.0 * std::log10(energy / weight), peak, duration };
}

double Loudness::gainDb(const LoudnessAnalysis &analysis, double targetLufs)
{
    if (!analysis.integratedLufs)
        return 0;
    double gain = targetLufs - *analysis.integratedLufs;
    // The true-peak limit: whatever the target asks, the loudest inter-sample peak ends at
    // the ceiling at most, so normalisation never clips.
    if (analysis.truePeakDb)
        gain = std::min(gain, kPeakCeilingDb - *analysis.truePeakDb);
    return gain;
}

std::optional<QByteArray> analyseLoudnessJson(const QString &path)
{
    const auto analysis = Loudness::analyse(path);
    if (!analysis)
        return std::nullopt;
    return Loudness::toJson(*analysis);
}
