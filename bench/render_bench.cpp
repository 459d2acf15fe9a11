// Offline render of a 60-minute queue in gapless mode through the player (decode, mix,
// the executor's tick every 15 ms of audio, WAV output). Target: under 20 s of wall time
// for the hour. The queue is twelve five-minute MP3 files (LAME tag, 192 kbit/s), made by
// ffmpeg once per run in a temporary folder (which takes a while: that is not measured).
//
//   build/bench/render_bench
//
// Reports the wall time of one render and the speed as a multiple of real time.

#include "library/transitionsettings.h"
#include "playback/audioengine.h"
#include "playback/player.h"

#include <QDir>
#include <QProcess>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

namespace {

constexpr int kTracks = 12;
constexpr int kTrackSeconds = 300;
constexpr int kRate = 44100;

QList<Track> makeQueue(const QTemporaryDir &dir)
{
    QList<Track> queue;
    for (int i = 0; i < kTracks; ++i) {
        const QString path = dir.filePath(QStringLiteral("track%1.mp3").arg(i));
        // A sweep per track, so every part of the decoder has work to do.
        const QString source
            = QStringLiteral("aevalsrc=0.4*sin(2*PI*(%1*t+3*t*t))|0.4*sin(2*PI*(%2*t+2*t*t)):s=%3:d=%4")
                  .arg(60 + 10 * i)
                  .arg(90 + 7 * i)
                  .arg(kRate)
                  .arg(kTrackSeconds);
        QProcess ffmpeg;
        ffmpeg.start(QStringLiteral("/usr/bin/ffmpeg"),
            { "-v", "error", "-y", "-f", "lavfi", "-i", source, "-c:a", "libmp3lame", "-b:a", "192k", path });
        if (!ffmpeg.waitForFinished(600'000) || ffmpeg.exitCode() != 0)
            return {};
        Track t;
        t.title = QStringLiteral("Track %1").arg(i);
        t.album = QStringLiteral("Bench");
        t.artist = QStringLiteral("Bench");
        t.filePath = path;
        queue << t;
    }
    return queue;
}

void BM_RenderHourGapless(benchmark::State &state)
{
    QTemporaryDir dir;
    const QList<Track> queue = makeQueue(dir);
    if (queue.size() != kTracks) {
        state.SkipWithError("ffmpeg could not make the queue");
        return;
    }
    int transitions = 0;
    for (auto _ : state) {
        AudioEngine engine(AudioEngine::Options { AudioEngine::Output::offline, kRate, 512 });
        TransitionSettings settings;
        Player player(engine, settings, nullptr);
        player.setModeOverride(TransitionMode::gapless);
        QObject::connect(&player, &Player::transitionStarted, [&] { ++transitions; });
        player.setQueue(queue);
        QString error;
        if (!player.renderQueue(dir.filePath(QStringLiteral("render.wav")), &error)) {
            state.SkipWithError(qPrintable(error));
            return;
        }
    }
    state.counters["xRealTime"]
        = benchmark::Counter(double(kTracks * kTrackSeconds) * double(state.iterations()), benchmark::Counter::kIsRate);
    state.counters["transitions"] = double(transitions) / double(state.iterations());
}

} // namespace

BENCHMARK(BM_RenderHourGapless)->Unit(benchmark::kSecond)->Iterations(1)->UseRealTime();
