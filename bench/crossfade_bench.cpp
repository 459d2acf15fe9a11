// Crossfade analysis of one file, cache bypassed: the last 16 s, the first 10 s and 8 s of
// the middle decoded and measured in 50 ms windows. The player asks for it before a track
// change and the background analysis runs it over the whole library. Target: < 50 ms for
// a 4-minute track (MP3 and FLAC). The files are made by ffmpeg at the start.
//
// Before the benchmarks, the loudness of a crossfade: two tracks of uncorrelated pink noise
// at the same loudness are rendered through the offline output with a 6 s crossfade, and
// the short-term loudness (EBU R128, 3 s) of every window that overlaps the crossfade must
// stay within 1.5 LU of the loudness before it. The program prints the figure and exits 1
// when it is out of bounds.
//
//   build/bench/crossfade_bench --benchmark_repetitions=5 --benchmark_report_aggregates_only=true

#include "../tests/playback/playbackaudio.h"

#include "library/transitionsettings.h"
#include "playback/audioengine.h"
#include "playback/crossfadeplanner.h"
#include "playback/player.h"

#include "testenv.h"

#include <QCoreApplication>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>
#include <ebur128.h>

#include <cmath>
#include <cstdio>

namespace {

constexpr int kRate = 44100;

QString makeFile(const QTemporaryDir &dir, const QString &name, const QString &source, const QStringList &codec)
{
    const QString path = dir.filePath(name);
    QString error;
    if (!PlaybackAudio::encode(path, QStringList { "-f", "lavfi", "-i", source, "-ac", "2" } + codec, &error))
        qFatal("ffmpeg failed: %s", qPrintable(error));
    return path;
}

const QString &track(const QString &suffix)
{
    static QTemporaryDir dir;
    static QHash<QString, QString> made;
    if (!made.contains(suffix)) {
        const QStringList codec = suffix == QLatin1String("mp3") ? QStringList { "-c:a", "libmp3lame", "-b:a", "192k" }
                                                                 : QStringList { "-c:a", "flac" };
        // Four minutes of noise that fades out over its last 8 s.
        made.insert(suffix,
            makeFile(dir, QStringLiteral("track.") + suffix,
                QStringLiteral("anoisesrc=d=240:c=pink:a=0.3:seed=7,afade=t=out:st=232:d=8"), codec));
    }
    return made[suffix];
}

void analyse(benchmark::State &state, const QString &suffix)
{
    const QString path = track(suffix);
    for (auto _ : state) {
        const auto analysis = CrossfadePlanner::analyzeFile(path);
        if (!analysis || !analysis->tail.fades) {
            state.SkipWithError("the fade-out was not found");
            break;
        }
        benchmark::DoNotOptimize(analysis);
    }
    state.SetLabel(QStringLiteral("240 s %1").arg(suffix).toStdString());
}

void BM_AnalyseMp3(benchmark::State &state)
{
    analyse(state, QStringLiteral("mp3"));
}
void BM_AnalyseFlac(benchmark::State &state)
{
    analyse(state, QStringLiteral("flac"));
}
BENCHMARK(BM_AnalyseMp3)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_AnalyseFlac)->Unit(benchmark::kMillisecond);

// The largest distance (LU) of the short-term loudness from the loudness before the
// crossfade, over every 3 s window that overlaps it; NaN when the render failed.
double crossfadeLoudnessDeviation()
{
    TestHome home;
    QTemporaryDir dir;
    const QStringList codec { "-c:a", "pcm_f32le" };
    const QString a = makeFile(dir, "a.wav", QStringLiteral("anoisesrc=d=20:c=pink:a=0.25:seed=1"), codec);
    const QString b = makeFile(dir, "b.wav", QStringLiteral("anoisesrc=d=20:c=pink:a=0.25:seed=2"), codec);

    AudioEngine engine(AudioEngine::Options { AudioEngine::Output::offline, kRate, 512 });
    TransitionSettings settings;
    Player player(engine, settings, nullptr);
    player.setModeOverride(TransitionMode::crossfade);
    player.setPlanner(TransitionMode::crossfade, CrossfadePlanner::playerPlanner(nullptr, [] { return 6.0; }));
    std::optional<TransitionPlan> ran;
    QObject::connect(&player, &Player::transitionStarted, [&](TransitionMode, const TransitionPlan &p) { ran = p; });
    Track ta, tb;
    ta.filePath = a;
    tb.filePath = b;
    player.setQueue({ ta, tb });
    QString error;
    if (!player.renderQueue(dir.filePath("render.wav"), &error) || !ran) {
        std::fprintf(stderr, "render failed: %s\n", qPrintable(error));
        return std::nan("");
    }
    const std::vector<float> samples = PlaybackAudio::readFloatWav(dir.filePath("render.wav"));

    ebur128_state *meter = ebur128_init(2, kRate, EBUR128_MODE_S);
    const size_t step = kRate / 10;
    const double start = ran->outgoingStart;
    const double end = start + ran->fadeDuration;
    double before = std::nan("");
    double worst = 0;
    for (size_t frame = 0; (frame + step) * 2 <= samples.size(); frame += step) {
        ebur128_add_frames_float(meter, samples.data() + 2 * frame, step);
        const double t = double(frame + step) / kRate; // the end of the window
        double loudness = 0;
        if (ebur128_loudness_shortterm(meter, &loudness) != EBUR128_SUCCESS)
            continue;
        if (t >= 3 && t <= start)
            before = loudness;
        else if (t > start && t - 3 < end && !std::isnan(before))
            worst = std::max(worst, std::abs(loudness - before));
    }
    ebur128_destroy(&meter);
    std::printf("crossfade %.1f s from %.2f s: short-term loudness before %.2f LUFS, largest deviation %.2f LU\n",
        ran->fadeDuration, start, before, worst);
    return std::isnan(before) ? before : worst;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    const double deviation = crossfadeLoudnessDeviation();
    const bool dips = !(deviation <= 1.5);
    if (dips)
        std::fprintf(stderr, "the crossfade's loudness leaves the 1.5 LU band\n");
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return dips ? 1 : 0;
}
