// Loudness analysis of a 4-minute track (MP3, 192 kbit/s, 44.1 kHz stereo): the whole of
// Loudness::analyse (decode and measure), and its two halves apart, to see which one the
// time goes to. Target: under 0.5 s per track on one core. The track is made by ffmpeg once
// per run (not measured).
//
//   build/bench/loudness_bench

#include "playback/audiodecoder.h"
#include "playback/loudness.h"

#include <QProcess>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>
#include <ebur128.h>

#include <vector>

namespace {

constexpr int kSeconds = 240;

QString makeTrack(const QTemporaryDir &dir)
{
    const QString path = dir.filePath(QStringLiteral("track.mp3"));
    // Pink noise under a sweep: broadband like music, so the decoder has every band to do.
    const QString source = QStringLiteral("anoisesrc=color=pink:amplitude=0.3:d=%1:r=44100").arg(kSeconds);
    QProcess ffmpeg;
    ffmpeg.start(QStringLiteral("/usr/bin/ffmpeg"),
        { "-v", "error", "-y", "-f", "lavfi", "-i", source, "-f", "lavfi", "-i",
            QStringLiteral("aevalsrc=0.3*sin(2*PI*(80*t+4*t*t)):s=44100:d=%1").arg(kSeconds), "-filter_complex",
            "amix=inputs=2,aformat=channel_layouts=stereo", "-c:a", "libmp3lame", "-b:a", "192k", path });
    if (!ffmpeg.waitForFinished(600'000) || ffmpeg.exitCode() != 0)
        return {};
    return path;
}

const QString &track()
{
    static QTemporaryDir dir;
    static const QString path = makeTrack(dir);
    return path;
}

std::vector<float> decodeAll(const QString &path)
{
    std::vector<float> all;
    const auto decoder = AudioDecoder::open(path, 0);
    if (!decoder)
        return all;
    std::vector<float> block(2 * 44100);
    qint64 got = 0;
    while ((got = decoder->read(block.data(), 44100)) > 0)
        all.insert(all.end(), block.begin(), block.begin() + 2 * got);
    return all;
}

void BM_LoudnessAnalyse(benchmark::State &state)
{
    if (track().isEmpty()) {
        state.SkipWithError("ffmpeg could not make the track");
        return;
    }
    for (auto _ : state) {
        const auto analysis = Loudness::analyse(track());
        if (!analysis)
            state.SkipWithError("analysis failed");
        benchmark::DoNotOptimize(analysis);
    }
}

void BM_LoudnessDecodeOnly(benchmark::State &state)
{
    if (track().isEmpty()) {
        state.SkipWithError("ffmpeg could not make the track");
        return;
    }
    std::vector<float> block(2 * 44100);
    for (auto _ : state) {
        const auto decoder = AudioDecoder::open(track(), 0);
        qint64 frames = 0, got = 0;
        while (decoder && (got = decoder->read(block.data(), 44100)) > 0)
            frames += got;
        benchmark::DoNotOptimize(frames);
    }
}

void BM_LoudnessMeasureOnly(benchmark::State &state)
{
    const std::vector<float> frames = decodeAll(track());
    if (frames.empty()) {
        state.SkipWithError("no decoded frames");
        return;
    }
    for (auto _ : state) {
        ebur128_state *meter = ebur128_init(2, 44100, int(state.range(0)));
        for (size_t at = 0; at < frames.size(); at += 2 * 44100)
            ebur128_add_frames_float(meter, frames.data() + at, std::min<size_t>(44100, (frames.size() - at) / 2));
        double lufs = 0;
        ebur128_loudness_global(meter, &lufs);
        benchmark::DoNotOptimize(lufs);
        ebur128_destroy(&meter);
    }
}

} // namespace

BENCHMARK(BM_LoudnessAnalyse)->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(BM_LoudnessDecodeOnly)->Unit(benchmark::kMillisecond)->Iterations(5);
// libebur128 alone: integrated loudness, and with its own true peak (what Loudness::analyse
// replaces with a faster one).
BENCHMARK(BM_LoudnessMeasureOnly)
    ->Arg(EBUR128_MODE_I)
    ->Arg(EBUR128_MODE_I | EBUR128_MODE_TRUE_PEAK)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(5);
