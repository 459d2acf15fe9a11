// What playing costs: process CPU time (every thread: decode workers, stretchers, the
// render thread) per second of audio played, as "cpu_ms_per_audio_s" (20 = 2 % of one
// core). Targets: one deck at rate 1 playing an MP3 < 20; two decks with time-stretch
// active < 150.
//
// The Null benchmarks play in real time through the null output (the machine's playback
// path without a sound card) for ten seconds each; the Offline ones render as fast as the
// CPU allows, which also counts the render thread's polls while it waits for a decoder.
//
//   build/bench/playback_bench
//   build/bench/playback_bench --benchmark_filter=Offline

#include "playback/audioengine.h"

#include <QProcess>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <chrono>
#include <ctime>
#include <thread>
#include <vector>

namespace {

constexpr int kRate = 44100;

double processCpuSec()
{
    timespec t {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return double(t.tv_sec) + double(t.tv_nsec) * 1e-9;
}

// Two MP3s of a minute each, 192 kbit/s stereo with a LAME tag: a sweep and a chord
// over noise, so that the decoder and the stretcher have real work.
struct Files {
    Files()
    {
        make(a, "aevalsrc=0.4*sin(2*PI*(60*t+90*t*t))|0.3*sin(2*PI*(200*t+50*t*t)):s=44100:d=60");
        make(b,
            "aevalsrc=0.2*sin(2*PI*220*t)+0.2*sin(2*PI*277*t)+0.1*(random(0)-0.5)|0.2*sin(2*PI*330*t)+0.1*(random(1)-0."
            "5):s=44100:d=60");
    }
    void make(QString &path, const char *source)
    {
        path = dir.filePath(QStringLiteral("%1.mp3").arg(a.isEmpty() ? "a" : "b"));
        QProcess::execute(QStringLiteral("/usr/bin/ffmpeg"),
            { "-v", "error", "-y", "-f", "lavfi", "-i", QString::fromLatin1(source), "-c:a", "libmp3lame", "-b:a",
                "192k", path });
    }
    QTemporaryDir dir;
    QString a, b;
};

const Files &files()
{
    static const Files f;
    return f;
}

bool loadDecks(benchmark::State &state, AudioEngine &engine, int decks, double rate)
{
    const QString paths[2] = { files().a, files().b };
    for (int deck = 0; deck < decks; ++deck) {
        QString error;
        if (!engine.load(deck, paths[deck], 0, &error)) {
            state.SkipWithError(error.toUtf8().constData());
            return false;
        }
        engine.setRate(deck, rate);
    }
    return true;
}

void report(benchmark::State &state, double cpuSec, double audioSec, quint64 underruns)
{
    state.counters["cpu_ms_per_audio_s"] = 1000 * cpuSec / audioSec;
    state.counters["audio_s"] = audioSec;
    state.counters["underruns"] = double(underruns);
}

void playNull(benchmark::State &state, int decks, double rate)
{
    for (auto _ : state) {
        AudioEngine engine({ AudioEngine::Output::null, kRate, 512 });
        QString error;
        if (!engine.start(&error) || !loadDecks(state, engine, decks, rate))
            return;
        // Start after the decoders have had a moment to fill their rings, as the player does.
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        for (int deck = 0; deck < decks; ++deck)
            engine.play(deck, engine.hostFrame() + 1024);
        const quint64 host0 = engine.hostFrame();
        const double cpu0 = processCpuSec();
        std::this_thread::sleep_for(std::chrono::seconds(10));
        const double cpu = processCpuSec() - cpu0;
        const double audio = double(engine.hostFrame() - host0) / kRate;
        engine.stop();
        report(state, cpu, audio, engine.underruns());
    }
}

void renderOffline(benchmark::State &state, int decks, double rate)
{
    for (auto _ : state) {
        AudioEngine engine({ AudioEngine::Output::offline, kRate, 512 });
        if (!loadDecks(state, engine, decks, rate))
            return;
        for (int deck = 0; deck < decks; ++deck)
            engine.play(deck);
        std::vector<float> block(2 * 4096);
        const double cpu0 = processCpuSec();
        qint64 frames = 0;
        while (frames < 50 * kRate) // inside the minute at any rate of the benchmark
            frames += engine.renderOffline(block.data(), 4096);
        report(state, processCpuSec() - cpu0, double(frames) / kRate, engine.underruns());
    }
}

void NullOneDeckMp3(benchmark::State &state)
{
    playNull(state, 1, 1.0);
}
void NullTwoDecksStretched(benchmark::State &state)
{
    playNull(state, 2, 1.04);
}
void OfflineOneDeckMp3(benchmark::State &state)
{
    renderOffline(state, 1, 1.0);
}
void OfflineTwoDecksStretched(benchmark::State &state)
{
    renderOffline(state, 2, 1.04);
}

} // namespace

BENCHMARK(NullOneDeckMp3)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();
BENCHMARK(NullTwoDecksStretched)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();
BENCHMARK(OfflineOneDeckMp3)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(OfflineTwoDecksStretched)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();
