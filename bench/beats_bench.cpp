// Tempo and beat analysis of a 4-minute MP3, from the file: decode (downsampled to
// 11,025 Hz), onsets, beat tracking, grid fit and bar phase. It runs once per file in the
// library's background analysis and whenever automix meets a file without a stored grid.
// Target: < 1.5 s CPU on one core. The file is made by ffmpeg at the start: 126 BPM, a
// kick with a falling pitch, noise hats on the eighths, a bass note and a noise floor.
//
//   build/bench/beats_bench --benchmark_repetitions=3 --benchmark_report_aggregates_only=true
//
// The "bpm" counter is the tempo found (126 expected).

#include "playback/beatanalysis.h"

#include "testenv.h"

#include <QTemporaryDir>

#include <benchmark/benchmark.h>

namespace {

const QString &bandTrack()
{
    static QTemporaryDir dir;
    static QString path;
    if (path.isEmpty()) {
        const double period = 60.0 / 126;
        const QString beat = QStringLiteral("mod(t\\,%1)").arg(period);
        const QString eighth = QStringLiteral("mod(t\\,%1)").arg(period / 2);
        const QString expr = QStringLiteral("0.7*sin(2*PI*(50+60*exp(-%1*40))*%1)*exp(-%1*12)"
                                            "+0.08*(2*random(0)-1)*exp(-%2*150)"
                                            "+0.15*sin(2*PI*55*t)+0.01*(2*random(1)-1)")
                                 .arg(beat, eighth);
        const QString target = dir.filePath(QStringLiteral("band.mp3"));
        QString error;
        const auto out = runProgram(QStringLiteral("/usr/bin/ffmpeg"),
            { "-v", "error", "-y", "-f", "lavfi", "-i", QStringLiteral("aevalsrc=%1|%1:s=44100:d=240").arg(expr),
                "-c:a", "libmp3lame", "-b:a", "192k", target },
            &error);
        if (!out)
            qFatal("cannot make the benchmark track: %s", qPrintable(error));
        path = target;
    }
    return path;
}

void BM_AnalyseBeats4Min(benchmark::State &state)
{
    const QString &path = bandTrack();
    double bpm = 0;
    for (auto _ : state) {
        const std::optional<BeatAnalysis::Grid> grid = BeatAnalysis::analyse(path);
        if (!grid)
            state.SkipWithError("analysis failed");
        bpm = grid ? grid->bpm : 0;
        benchmark::DoNotOptimize(bpm);
    }
    state.counters["bpm"] = bpm;
}
BENCHMARK(BM_AnalyseBeats4Min)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();

} // namespace
