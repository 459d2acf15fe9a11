// What listening live costs the player: CPU time per second of audio heard while a
// 128 kbit/s MP3 station plays through the null output (the machine's playback path without
// a sound card), as "cpu_ms_per_audio_s" (30 = 3 % of one core). It counts every thread of
// the process (the decoding worker, the render thread, the player's tick on the event loop)
// except the loopback fixture that serves the stream in real time; the relay's ffmpeg,
// which feeds the player in the application, is measured with the relay.
// Target: listening with the relay < 30 together.
//
//   build/bench/liveplayer_bench

#include "library/transitionsettings.h"
#include "playback/audioengine.h"
#include "playback/player.h"

#include "fixtureserver.h"
#include "livestream.h"
#include "testenv.h"

#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QTimer>

#include <benchmark/benchmark.h>

#include <ctime>
#include <unistd.h>

namespace {

constexpr int kRate = 44100;
constexpr double kStationSec = 60;
constexpr double kMeasuredSec = 20;

double processCpuSec()
{
    timespec t {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return double(t.tv_sec) + double(t.tv_nsec) * 1e-9;
}

// CPU seconds of the process's threads of that name (Qt names a QThread after its object).
double threadCpuSec(const QByteArray &name)
{
    double total = 0;
    const QDir tasks(QStringLiteral("/proc/self/task"));
    for (const QString &tid : tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        QFile comm(tasks.filePath(tid + QStringLiteral("/comm")));
        if (!comm.open(QIODevice::ReadOnly) || comm.readAll().trimmed() != name)
            continue;
        QFile stat(tasks.filePath(tid + QStringLiteral("/stat")));
        if (!stat.open(QIODevice::ReadOnly))
            continue;
        // The fields after the command's closing parenthesis; utime and stime are the
        // 12th and 13th of them, in clock ticks.
        const QByteArray line = stat.readAll();
        const QList<QByteArray> fields = line.mid(line.lastIndexOf(')') + 2).split(' ');
        total += (fields.value(11).toDouble() + fields.value(12).toDouble()) / double(sysconf(_SC_CLK_TCK));
    }
    return total;
}

double playerCpuSec()
{
    return processCpuSec() - threadCpuSec("fixture-server");
}

// Runs the event loop (the player's tick needs it) for `ms`, or until `done` holds.
void runFor(int ms, const std::function<bool()> &done = {})
{
    QEventLoop loop;
    QTimer deadline;
    deadline.setSingleShot(true);
    QObject::connect(&deadline, &QTimer::timeout, &loop, &QEventLoop::quit);
    deadline.start(ms);
    QTimer poll;
    if (done) {
        QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
            if (done())
                loop.quit();
        });
        poll.start(50);
    }
    loop.exec();
}

void LiveNullMp3At128k(benchmark::State &state)
{
    const TestHome home;
    QString error;
    // A chord over noise: the decoder meets the spread of a music signal, not a lone tone.
    const auto mp3 = LiveStream::makeMp3(QStringLiteral("aevalsrc=0.2*sin(2*PI*220*t)+0.2*sin(2*PI*277*t)+0.1*(random(0)-"
                                                        "0.5)|0.2*sin(2*PI*330*t)+0.1*(random(1)-0.5):s=44100:d=%1")
                                             .arg(kStationSec),
        &error, { "-b:a", "128k" });
    if (mp3->isEmpty()) {
        state.SkipWithError(error.toUtf8().constData());
        return;
    }
    for (auto _ : state) {
        FixtureServer server;
        server.route("/stream.mp3", [&](const FixtureServer::Request &) {
            FixtureServer::Script script = LiveStream::head();
            script.produce(LiveStream::kPieceMs, LiveStream::paced(mp3, kStationSec, 0, kStationSec, 1.0));
            return script;
        });
        AudioEngine engine({ AudioEngine::Output::null, kRate, 512 });
        if (!engine.start(&error)) {
            state.SkipWithError(error.toUtf8().constData());
            return;
        }
        TransitionSettings settings;
        Player player(engine, settings, nullptr);
        player.playLive(QUrl(QString::fromUtf8(server.url("/stream.mp3"))));
        runFor(10000, [&] { return player.position().value_or(0) > 1.0; });
        if (player.status() != Player::Status::playing) {
            state.SkipWithError("the stream did not start");
            return;
        }
        const double cpu0 = playerCpuSec();
        const double heard0 = player.position().value_or(0);
        const quint64 underruns0 = engine.underruns();
        runFor(int(kMeasuredSec * 1000));
        const double cpu = playerCpuSec() - cpu0;
        const double audio = player.position().value_or(0) - heard0;
        state.counters["cpu_ms_per_audio_s"] = 1000 * cpu / audio;
        state.counters["audio_s"] = audio;
        state.counters["underruns"] = double(engine.underruns() - underruns0);
        player.stop();
    }
}

} // namespace

BENCHMARK(LiveNullMp3At128k)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();
