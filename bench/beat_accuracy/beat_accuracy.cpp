// Measures two beat trackers against signals of known tempo: qm-dsp (complex spectral
// difference onsets, TempoTrackV2) and aubio's tempo object. It decided which one the
// player uses; kept so the choice can be checked again. Not part of the build (it links
// aubio, which the program does not use); build and run by hand:
//
//   g++ -O2 -std=c++20 bench/beat_accuracy/beat_accuracy.cpp -o /tmp/beat_accuracy \
//       -I/usr/include/qm-dsp -lqm-dsp $(pkg-config --cflags --libs aubio)
//   /tmp/beat_accuracy
//
// Signals are synthesised at 44.1 kHz: a click track (a 2 ms 1 kHz tick per beat) and a
// "band" (a kick with an accented first beat of the bar, a noise snare on 2 and 4, hi-hat
// noise on the eighths, a bass line moving every bar, and a noise floor), each 60 s at
// 90, 120, 126, 150 and 174 BPM, plus one 4-minute band track for the CPU time.
#include <aubio/aubio.h>
#include <dsp/onsets/DetectionFunction.h>
#include <dsp/tempotracking/TempoTrackV2.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <numeric>
#include <random>
#include <vector>

namespace {

constexpr int kRate = 44100;
constexpr double kPi = 3.14159265358979323846;

std::vector<float> clickTrack(double bpm, double seconds, double offset)
{
    std::vector<float> out(static_cast<size_t>(seconds * kRate), 0.0f);
    const double period = 60.0 / bpm;
    for (double t = offset; t < seconds; t += period) {
        const auto start = static_cast<size_t>(std::lround(t * kRate));
        for (size_t i = 0; i < size_t(0.002 * kRate) && start + i < out.size(); ++i)
            out[start + i] = 0.8f * float(std::sin(2 * kPi * 1000 * double(i) / kRate));
    }
    return out;
}

std::vector<float> bandTrack(double bpm, double seconds, double offset, unsigned seed)
{
    std::mt19937 rng(seed);
    std::normal_distribution<float> noise(0.0f, 1.0f);
    std::vector<float> out(static_cast<size_t>(seconds * kRate), 0.0f);
    for (auto &s : out)
        s = 0.02f * noise(rng);
    const double period = 60.0 / bpm;
    const double bassNotes[] = {55.0, 65.4, 49.0, 73.4};
    int beat = 0;
    for (double t = offset; t < seconds; t += period / 2, ++beat) {
        const auto start = static_cast<size_t>(std::lround(t * kRate));
        const bool onBeat = beat % 2 == 0;
        const int beatInBar = (beat / 2) % 4;
        // hi-hat: 30 ms of decaying noise
        for (size_t i = 0; i < size_t(0.03 * kRate) && start + i < out.size(); ++i)
            out[start + i] += 0.08f * noise(rng) * float(std::exp(-double(i) / (0.006 * kRate)));
        if (!onBeat)
            continue;
        // kick: a falling sine, louder on the bar's first beat
        const float kickGain = beatInBar == 0 ? 0.9f : 0.6f;
        double phase = 0;
        for (size_t i = 0; i < size_t(0.15 * kRate) && start + i < out.size(); ++i) {
            const double f = 50 + 100 * std::exp(-double(i) / (0.02 * kRate));
            phase += 2 * kPi * f / kRate;
            out[start + i] += kickGain * float(std::sin(phase) * std::exp(-double(i) / (0.05 * kRate)));
        }
        if (beatInBar == 1 || beatInBar == 3) {
            for (size_t i = 0; i < size_t(0.12 * kRate) && start + i < out.size(); ++i)
                out[start + i] += 0.3f * noise(rng) * float(std::exp(-double(i) / (0.03 * kRate)));
        }
        // bass: a held note per beat, the note changing per bar
        const double f = bassNotes[(beat / 8) % 4];
        for (size_t i = 0; i < size_t(period * 0.9 * kRate) && start + i < out.size(); ++i)
            out[start + i] += 0.2f * float(std::sin(2 * kPi * f * double(i) / kRate));
    }
    for (auto &s : out)
        s = std::clamp(s, -1.0f, 1.0f);
    return out;
}

struct Result {
    std::vector<double> beats; // seconds
    double bpm = 0;
};

// Beat period from the median inter-beat interval; tempo reported as 60/period.
double medianBpm(const std::vector<double> &beats)
{
    if (beats.size() < 2)
        return 0;
    std::vector<double> d;
    for (size_t i = 1; i < beats.size(); ++i)
        d.push_back(beats[i] - beats[i - 1]);
    std::nth_element(d.begin(), d.begin() + long(d.size() / 2), d.end());
    return 60.0 / d[d.size() / 2];
}

// Least-squares line through beats numbered by the median period: the tempo of a steady grid.
double fittedBpm(const std::vector<double> &beats)
{
    const double med = medianBpm(beats);
    if (med <= 0)
        return 0;
    const double period = 60.0 / med;
    double sx = 0, sy = 0, sxx = 0, sxy = 0;
    const double n = double(beats.size());
    double k = 0;
    for (size_t i = 0; i < beats.size(); ++i) {
        const double b = beats[i];
        // Numbered from the previous beat, so a slightly wrong median period cannot drift
        // a whole beat over a long track.
        if (i > 0)
            k += std::max(1.0, std::round((b - beats[i - 1]) / period));
        sx += k;
        sy += b;
        sxx += k * k;
        sxy += k * b;
    }
    const double slope = (n * sxy - sx * sy) / (n * sxx - sx * sx);
    return 60.0 / slope;
}

Result qmdsp(const std::vector<float> &audio)
{
    const int step = 512;
    const int window = 1024;
    DFConfig config {};
    config.stepSize = step;
    config.frameLength = window;
    config.DFType = DF_COMPLEXSD;
    config.dbRise = 3;
    config.adaptiveWhitening = false;
    config.whiteningRelaxCoeff = -1;
    config.whiteningFloor = -1;
    DetectionFunction df(config);
    std::vector<double> frame(window);
    std::vector<double> values;
    for (size_t pos = 0; pos + window <= audio.size(); pos += step) {
        for (int i = 0; i < window; ++i)
            frame[size_t(i)] = audio[pos + size_t(i)];
        values.push_back(df.processTimeDomain(frame.data()));
    }
    std::vector<double> dfv(values.begin() + std::min<long>(2, long(values.size())), values.end());
    std::vector<double> periods(dfv.size(), 0.0), tempi, beats;
    TempoTrackV2 tracker(kRate, step);
    tracker.calculateBeatPeriod(dfv, periods, tempi);
    tracker.calculateBeats(dfv, periods, beats);
    Result r;
    // Frame k of the function covers the window starting at (k + 2) * step; its onset
    // lies at the window's centre.
    for (double b : beats)
        r.beats.push_back(((b + 2) * step + window / 2.0) / kRate);
    r.bpm = fittedBpm(r.beats);
    return r;
}

Result aubio(const std::vector<float> &audio)
{
    const uint_t hop = 512;
    aubio_tempo_t *tempo = new_aubio_tempo("default", 1024, hop, kRate);
    fvec_t *in = new_fvec(hop);
    fvec_t *out = new_fvec(1);
    Result r;
    for (size_t pos = 0; pos + hop <= audio.size(); pos += hop) {
        for (uint_t i = 0; i < hop; ++i)
            in->data[i] = audio[pos + i];
        aubio_tempo_do(tempo, in, out);
        if (out->data[0] != 0)
            r.beats.push_back(aubio_tempo_get_last_s(tempo));
    }
    r.bpm = fittedBpm(r.beats);
    del_fvec(in);
    del_fvec(out);
    del_aubio_tempo(tempo);
    return r;
}

// Mean absolute distance (ms) from each true beat after the first 5 s (trackers settle)
// to the nearest detected beat, and the share of true beats with a detection within 70 ms.
void beatError(const std::vector<double> &detected, double bpm, double offset, double seconds,
               double *meanMs, double *hitShare)
{
    double sum = 0;
    int n = 0, hits = 0;
    double signedSum = 0;
    for (double t = offset; t < seconds - 1; t += 60.0 / bpm) {
        if (t < 5)
            continue;
        double best = 1e9, bestSigned = 0;
        for (double d : detected)
            if (std::abs(d - t) < best) {
                best = std::abs(d - t);
                bestSigned = d - t;
            }
        signedSum += bestSigned;
        sum += std::min(best, 60.0 / bpm / 2);
        hits += best < 0.07;
        ++n;
    }
    *meanMs = n ? 1000 * sum / n : 0;
    if (std::getenv("BEAT_SIGNED"))
        std::printf("signed mean %.1f ms\n", n ? 1000 * signedSum / n : 0);
    *hitShare = n ? double(hits) / n : 0;
}

} // namespace

int main()
{
    const double tempos[] = {90, 120, 126, 150, 174};
    const double seconds = 60;
    const double offset = 0.25;
    std::printf("%-8s %-6s %6s | %9s %9s %6s | %9s %9s %6s\n", "signal", "bpm", "", "qm err", "qm ms", "qm hit",
                "aubio err", "aubio ms", "hit");
    double worst[2][2] = {{0, 0}, {0, 0}};
    for (int kind = 0; kind < 2; ++kind) {
        for (double bpm : tempos) {
            const auto audio = kind == 0 ? clickTrack(bpm, seconds, offset) : bandTrack(bpm, seconds, offset, 7);
            const Result q = qmdsp(audio);
            const Result a = aubio(audio);
            double qms, qhit, ams, ahit;
            beatError(q.beats, bpm, offset, seconds, &qms, &qhit);
            beatError(a.beats, bpm, offset, seconds, &ams, &ahit);
            std::printf("%-8s %-6.0f %6s | %9.3f %9.1f %6.2f | %9.3f %9.1f %6.2f\n", kind == 0 ? "click" : "band",
                        bpm, "", q.bpm - bpm, qms, qhit, a.bpm - bpm, ams, ahit);
            worst[0][0] = std::max(worst[0][0], std::abs(q.bpm - bpm));
            worst[0][1] = std::max(worst[0][1], qms);
            worst[1][0] = std::max(worst[1][0], std::abs(a.bpm - bpm));
            worst[1][1] = std::max(worst[1][1], ams);
        }
    }
    std::printf("worst: qm-dsp %.3f BPM %.1f ms; aubio %.3f BPM %.1f ms\n", worst[0][0], worst[0][1], worst[1][0],
                worst[1][1]);

    const auto longTrack = bandTrack(126, 240, offset, 11);
    for (int which = 0; which < 2; ++which) {
        const auto t0 = std::chrono::steady_clock::now();
        const Result r = which == 0 ? qmdsp(longTrack) : aubio(longTrack);
        const double s = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
        std::printf("%s: 4-minute track at 44.1 kHz: %.3f s CPU, %.3f BPM\n", which == 0 ? "qm-dsp" : "aubio", s,
                    r.bpm);
    }
    return 0;
}
