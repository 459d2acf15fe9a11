#include "playback/beatanalysis.h"

#include "playback/audiodecoder.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <dsp/onsets/DetectionFunction.h>
#include <dsp/tempotracking/TempoTrackV2.h>

#include <algorithm>
#include <cmath>
#include <numbers>

namespace BeatAnalysis {

namespace {

// The onset function's hop, as Mixxx runs the same tracker: about 11.6 ms whatever the rate,
// because TempoTrackV2's comb filters are tuned in hops.
constexpr double kStepSec = 0.01161;
// The tracker reports a beat late by about this much on sharp clicks (the onset lies early
// in the frame that detects it); measured on click tracks and taken off every grid.
constexpr double kLatencySec = 0.006;
constexpr int kMinBeats = 8;
// The tracker always returns beats, even in silence or noise; a beat counts as heard when
// the onset function on the tracked beats stands this far above its average.
constexpr double kMinBeatSalience = 1.3;

struct Line {
    double slope = 0;
    double intercept = 0;
};

Line leastSquares(std::span<const double> k, std::span<const double> t)
{
    double sx = 0, sy = 0, sxx = 0, sxy = 0;
    const double n = double(k.size());
    for (size_t i = 0; i < k.size(); ++i) {
        sx += k[i];
        sy += t[i];
        sxx += k[i] * k[i];
        sxy += k[i] * t[i];
    }
    const double den = n * sxx - sx * sx;
    if (den <= 0)
        return {};
    const double slope = (n * sxy - sx * sy) / den;
    return { slope, (sy - slope * sx) / n };
}

// Beat phase (0..3) whose beats carry the most energy below about 150 Hz.
int lowBandDownbeat(std::span<const float> mono, int rate, const Grid &grid)
{
    // One-pole low-pass: enough to let the kick speak over hats and snares.
    const double a = std::exp(-2 * std::numbers::pi * 150.0 / rate);
    std::vector<float> low(mono.size());
    double y = 0;
    for (size_t i = 0; i < mono.size(); ++i) {
        y = (1 - a) * mono[i] + a * y;
        low[i] = float(y);
    }
    const auto span = qint64(std::min(0.1, grid.beatPeriod() / 2) * rate);
    double energy[4] = { 0, 0, 0, 0 };
    for (qint64 k = 0;; ++k) {
        const auto start = qint64(std::llround(grid.beatTime(k) * rate));
        if (start + span > qint64(low.size()))
            break;
        double e = 0;
        for (qint64 i = start; i < start + span; ++i)
            e += double(low[size_t(i)]) * low[size_t(i)];
        energy[k % 4] += e;
    }
    return int(std::max_element(std::begin(energy), std::end(energy)) - std::begin(energy));
}

// The tracker places beats on whole frames of the onset function (11.6 ms); the peak of the
// function within two frames, interpolated through its neighbours, places them closer,
// which the tempo of a short track needs (30 s of clicks: within 0.015 BPM).
double refinedPeak(const std::vector<double> &df, double frame)
{
    const auto n = qint64(df.size());
    const auto at = qint64(std::llround(frame));
    if (at < 0 || at >= n)
        return frame;
    qint64 best = at;
    for (qint64 i = std::max<qint64>(1, at - 2); i <= std::min(n - 2, at + 2); ++i) {
        if (df[size_t(i)] > df[size_t(best)])
            best = i;
    }
    if (best < 1 || best > n - 2)
        return double(best);
    const double a = df[size_t(best - 1)], b = df[size_t(best)], c = df[size_t(best + 1)];
    const double den = a - 2 * b + c;
    const double shift = den < 0 ? 0.5 * (a - c) / den : 0.0;
    return double(best) + std::clamp(shift, -0.5, 0.5);
}

} // namespace

std::vector<double> Grid::beats() const
{
    std::vector<double> out;
    if (!hasTempo())
        return out;
    for (qint64 k = 0; beatTime(k) < duration; ++k)
        out.push_back(beatTime(k));
    return out;
}

Grid fitGrid(std::span<const double> beats)
{
    Grid grid;
    if (beats.size() < size_t(kMinBeats))
        return grid;
    std::vector<double> gaps;
    for (size_t i = 1; i < beats.size(); ++i)
        gaps.push_back(beats[i] - beats[i - 1]);
    std::nth_element(gaps.begin(), gaps.begin() + qsizetype(gaps.size() / 2), gaps.end());
    const double median = gaps[gaps.size() / 2];
    if (median <= 0)
        return grid;
    // Numbered from the previous beat, so that a slightly wrong median cannot drift a whole
    // beat over a long track, and a beat the tracker skipped keeps its number.
    std::vector<double> k(beats.size()), t(beats.begin(), beats.end());
    for (size_t i = 1; i < beats.size(); ++i)
        k[i] = k[i - 1] + std::max(1.0, std::round((beats[i] - beats[i - 1]) / median));
    Line line = leastSquares(k, t);
    for (int pass = 0; pass < 2 && line.slope > 0; ++pass) {
        std::vector<double> keptK, keptT;
        for (size_t i = 0; i < k.size(); ++i) {
            if (std::abs(t[i] - (line.intercept + line.slope * k[i])) < line.slope / 4) {
                keptK.push_back(k[i]);
                keptT.push_back(t[i]);
            }
        }
        if (keptK.size() < size_t(kMinBeats))
            break;
        k.swap(keptK);
        t.swap(keptT);
        line = leastSquares(k, t);
    }
    if (line.slope <= 0)
        return grid;
    double bpm = 60.0 / line.slope;
    while (bpm < kMinBpm)
        bpm *= 2;
    while (bpm >= kMaxBpm)
        bpm /= 2;
    grid.bpm = bpm;
    const double period = 60.0 / bpm;
    grid.firstBeat = line.intercept - std::floor(line.intercept / period) * period;
    return grid;
}

Grid analyseSamples(std::span<const float> mono, int rate)
{
    Grid grid;
    grid.duration = double(mono.size()) / rate;
    const auto step = unsigned(std::lround(rate * kStepSec));
    const unsigned window = 2 * step;
    if (step == 0 || mono.size() < window)
        return grid;
    DFConfig config {};
    config.stepSize = step;
    config.frameLength = window;
    config.DFType = DF_COMPLEXSD;
    config.dbRise = 3;
    config.adaptiveWhitening = false;
    config.whiteningRelaxCoeff = -1;
    config.whiteningFloor = -1;
    DetectionFunction detection(config);
    std::vector<double> frame(window);
    std::vector<double> df;
    df.reserve(mono.size() / step);
    for (size_t pos = 0; pos + window <= mono.size(); pos += step) {
        std::copy(mono.begin() + qsizetype(pos), mono.begin() + qsizetype(pos + window), frame.begin());
        df.push_back(detection.processTimeDomain(frame.data()));
    }
    // The first frames see the signal switch on and read it as an onset.
    constexpr size_t kSkipped = 2;
    if (df.size() <= kSkipped + size_t(kMinBeats))
        return grid;
    df.erase(df.begin(), df.begin() + kSkipped);
    std::vector<double> periods(df.size(), 0.0), tempi, frames;
    TempoTrackV2 tracker(float(rate), step);
    tracker.calculateBeatPeriod(df, periods, tempi);
    tracker.calculateBeats(df, periods, frames);
    double onBeats = 0, overall = 0;
    for (double f : frames)
        onBeats += df[std::min(df.size() - 1, size_t(std::max(0.0, f)))];
    for (double v : df)
        overall += v;
    onBeats /= double(std::max<size_t>(1, frames.size()));
    overall /= double(df.size());
    if (!(overall > 1e-9) || onBeats < kMinBeatSalience * overall)
        return grid;
    std::vector<double> beats;
    beats.reserve(frames.size());
    for (double f : frames)
        beats.push_back(((refinedPeak(df, f) + kSkipped) * step + window / 2.0) / rate - kLatencySec);
    const Grid fitted = fitGrid(beats);
    if (!fitted.hasTempo())
        return grid;
    grid.bpm = fitted.bpm;
    grid.firstBeat = fitted.firstBeat;
    grid.downbeat = lowBandDownbeat(mono, rate, grid);
    return grid;
}

std::optional<Grid> analyse(const QString &path, QString *error)
{
    std::unique_ptr<AudioDecoder> decoder = AudioDecoder::open(path, kAnalysisRate, error);
    if (!decoder)
        return std::nullopt;
    constexpr qint64 kChunk = 8192;
    std::vector<float> stereo(size_t(2 * kChunk));
    std::vector<float> mono;
    if (decoder->length() > 0)
        mono.reserve(size_t(decoder->length()));
    for (;;) {
        const qint64 got = decoder->read(stereo.data(), kChunk);
        if (got < 0) {
            if (error)
                *error = decoder->lastError();
            return std::nullopt;
        }
        if (got == 0)
            break;
        for (qint64 i = 0; i < got; ++i)
            mono.push_back(0.5f * (stereo[size_t(2 * i)] + stereo[size_t(2 * i + 1)]));
    }
    return analyseSamples(mono, kAnalysisRate);
}

QByteArray toJson(const Grid &grid)
{
    QJsonArray beats;
    for (double b : grid.beats())
        beats.append(std::round(b * 1000) / 1000);
    const QJsonObject object { { "bpm", grid.bpm }, { "firstBeat", grid.firstBeat }, { "downbeat", grid.downbeat },
        { "duration", grid.duration }, { "beats", beats } };
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

std::optional<Grid> fromJson(const QByteArray &json)
{
    const QJsonObject object = QJsonDocument::fromJson(json).object();
    for (const char *key : { "bpm", "firstBeat", "downbeat", "duration" }) {
        if (!object.value(QLatin1String(key)).isDouble())
            return std::nullopt;
    }
    Grid grid;
    grid.bpm = object.value("bpm").toDouble();
    grid.firstBeat = object.value("firstBeat").toDouble();
    grid.downbeat = object.value("downbeat").toInt(-1);
    grid.duration = object.value("duration").toDouble();
    const bool sane = std::isfinite(grid.bpm) && grid.bpm >= 0 && grid.bpm < 1000 && std::isfinite(grid.firstBeat)
        && grid.firstBeat >= 0 && grid.downbeat >= 0 && grid.downbeat < 4 && std::isfinite(grid.duration)
        && grid.duration >= 0;
    if (!sane)
        return std::nullopt;
    return grid;
}

} // namespace BeatAnalysis

std::optional<QByteArray> analyseBeatsJson(const QString &path)
{
    const std::optional<BeatAnalysis::Grid> grid = BeatAnalysis::analyse(path);
    if (!grid)
        return std::nullopt;
    return BeatAnalysis::toJson(*grid);
}
