#include "playback/loudness.h"

#include "playback/audiodecoder.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <ebur128.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <vector>

namespace {

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
        ebur128_init(2, unsigned(rate), EBUR128_MODE_I | EBUR128_MODE_TRUE_PEAK));
    if (!state) {
        if (error)
            *error = QStringLiteral("cannot measure loudness at %1 Hz").arg(rate);
        return std::nullopt;
    }
    // A second of audio per call: large enough that the per-call overhead vanishes,
    // small enough to stay in cache.
    std::vector<float> block(size_t(2 * rate));
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
        frames += got;
    }
    LoudnessAnalysis result;
    result.durationSec = double(frames) / rate;
    double lufs = -HUGE_VAL;
    if (ebur128_loudness_global(state.get(), &lufs) == EBUR128_SUCCESS)
        result.integratedLufs = finiteOrNone(lufs);
    double peak = 0;
    for (unsigned ch = 0; ch < 2; ++ch) {
        double channelPeak = 0;
        if (ebur128_true_peak(state.get(), ch, &channelPeak) == EBUR128_SUCCESS)
            peak = std::max(peak, channelPeak);
    }
    if (peak > 0)
        result.truePeakDb = 20.0 * std::log10(peak);
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
