// Gapless analysis of one file, cache bypassed: open, headers, two edge windows of 3,200
// frames. The player asks for it before every track change and the queue view may ask for
// many files at once, so it must stay far below a decode of the file. Target: < 5 ms per
// file for a few minutes of MP3 (LAME tag), AAC in M4A and FLAC. The files are made by
// ffmpeg at the start (a 4-minute sweep each) and are in the page cache while measured.
//
//   build/bench/gapless_bench --benchmark_repetitions=5 --benchmark_report_aggregates_only=true
//
// BM_DecodeWhole* decode the same files whole at 44.1 kHz: CPU time / 240 s is the share of
// a core one deck's decoding costs.

#include "playback/audiodecoder.h"
#include "playback/gaplessplanner.h"

#include "testenv.h"

#include <QTemporaryDir>

#include <benchmark/benchmark.h>

namespace {

constexpr int kSeconds = 240;

// The benchmark files, made once per run.
const QString &file(const QString &suffix)
{
    static QTemporaryDir dir;
    static QHash<QString, QString> made;
    if (!made.contains(suffix)) {
        const QString path = dir.filePath(QStringLiteral("sweep.") + suffix);
        QStringList codec;
        if (suffix == QLatin1String("mp3"))
            codec = { "-c:a", "libmp3lame", "-b:a", "192k" };
        else if (suffix == QLatin1String("m4a"))
            codec = { "-c:a", "aac", "-b:a", "192k" };
        else
            codec = { "-c:a", "flac" };
        QString error;
        const auto out = runProgram(QStringLiteral("/usr/bin/ffmpeg"),
            QStringList { "-v", "error", "-y", "-f", "lavfi", "-i",
                QStringLiteral("aevalsrc=0.5*sin(2*PI*(60*t+20*t*t))|0.4*sin(2*PI*(200*t+9*t*t)):s=44100:d=%1")
                    .arg(kSeconds) }
                + codec + QStringList { path },
            &error);
        if (!out)
            qFatal("ffmpeg failed: %s", qPrintable(error));
        made.insert(suffix, path);
    }
    return made[suffix];
}

void analyzeFile(benchmark::State &state, const QString &suffix, GaplessPlanner::Source expected)
{
    const QString path = file(suffix);
    for (auto _ : state) {
        const auto bounds = GaplessPlanner::analyze(path);
        if (!bounds || bounds->source != expected) {
            state.SkipWithError("unexpected bounds");
            break;
        }
        benchmark::DoNotOptimize(bounds);
    }
    state.SetLabel(QStringLiteral("%1 s %2").arg(kSeconds).arg(suffix).toStdString());
}

void BM_AnalyzeMp3LameTag(benchmark::State &state)
{
    analyzeFile(state, QStringLiteral("mp3"), GaplessPlanner::Source::coreAudio);
}
void BM_AnalyzeM4a(benchmark::State &state)
{
    analyzeFile(state, QStringLiteral("m4a"), GaplessPlanner::Source::packetTable);
}
void BM_AnalyzeFlac(benchmark::State &state)
{
    analyzeFile(state, QStringLiteral("flac"), GaplessPlanner::Source::none);
}

// For comparison, and for the player's budget: a whole decode of the same files (what the
// analysis must never do), as the deck's decode worker runs it, at the engine's 44.1 kHz.
void decodeFile(benchmark::State &state, const QString &suffix)
{
    const QString path = file(suffix);
    std::vector<float> block(2 * 4096);
    for (auto _ : state) {
        auto decoder = AudioDecoder::open(path, 44100);
        qint64 frames = 0;
        for (qint64 n; decoder && (n = decoder->read(block.data(), 4096)) > 0;)
            frames += n;
        // AAC keeps its end padding: the length is the decoder's, not the sweep's.
        if (!decoder || frames != decoder->length() || frames < qint64(kSeconds) * 44100) {
            state.SkipWithError("decode incomplete");
            break;
        }
    }
    state.SetLabel(QStringLiteral("%1 s %2").arg(kSeconds).arg(suffix).toStdString());
}

void BM_DecodeWholeMp3(benchmark::State &state)
{
    decodeFile(state, QStringLiteral("mp3"));
}
void BM_DecodeWholeM4a(benchmark::State &state)
{
    decodeFile(state, QStringLiteral("m4a"));
}

} // namespace

BENCHMARK(BM_AnalyzeMp3LameTag)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_AnalyzeM4a)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_AnalyzeFlac)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DecodeWholeMp3)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DecodeWholeM4a)->Unit(benchmark::kMillisecond);
