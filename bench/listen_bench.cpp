// What listening to a station costs.
//
// SongBound: a listening capture (the second connection that keeps the song playing)
// reads 30 minutes of a 128 kbit/s stream that never names a song, served from loopback
// as fast as it goes. The hidden folder the capture writes to is measured every
// millisecond; "peak_kept_bytes" must stay within "bound_bytes" (the song bound of
// StationListener at the station's byte rate), or the benchmark fails.
//
// Cpu: `orvida-cli listen` plays one 128 kbit/s MP3 station for 60 s in real time (the
// relay's ffmpeg, the player on the null output, the capture), the station a loopback
// fixture changing titles every 20 s. "cpu_percent" is the user and system time of
// orvida-cli and every process under it (ffmpeg), read from /proc at 10 s and just before
// the end, per wall second between the two, in per cent of one core; "cpu_percent_cli"
// and "cpu_percent_ffmpeg" split it. "cpu_percent_with_start" counts from the launch, and
// "cpu_percent_rusage" is the whole run from the waited children's rusage after the exit.
// Target: under 3 %.
//
//   build/bench/listen_bench
//   build/bench/listen_bench --benchmark_filter=SongBound

#include "engine/apppaths.h"
#include "engine/recordingcontext.h"
#include "engine/recordingsession.h"
#include "engine/stationlistener.h"
#include "engine/tracksegmenter.h"
#include "platform/httpclient.h"

#include "fixtureserver.h"
#include "icystream.h"
#include "testenv.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QThread>

#include <benchmark/benchmark.h>

#include <csignal>
#include <sys/resource.h>
#include <unistd.h>

namespace {

qint64 bytesInTmp()
{
    qint64 total = 0;
    for (const QFileInfo &file : QDir(AppPaths::tmpDir()).entryInfoList(QDir::Files | QDir::Hidden))
        total += file.size();
    return total;
}

void SongBound(benchmark::State &state)
{
    for (auto _ : state) {
        TestHome home;
        FixtureServer server;
        // 16 blocks of 1000 bytes a millisecond: a second of stream each, 30 minutes in
        // about two seconds, so the millisecond samples see every step of the buffer.
        server.route("/untitled", [](const FixtureServer::Request &) {
            auto block = std::make_shared<int>(0);
            return FixtureServer::Script::head("ICY 200 OK", {{"icy-metaint", "1000"}, {"Content-Type", "audio/mpeg"}})
                .produce(1, [block] {
                    QByteArray piece;
                    for (int i = 0; i < 16; ++i)
                        piece += IcyStream::audioBlock((*block)++) + IcyStream::metaBlock({});
                    return piece;
                });
        });
        HttpClient http;
        RecordingContext context(http, nullptr);
        context.timings.statusPolling = false;
        Station station = Station::custom(QString::fromLatin1(server.url("/untitled")), "Nameless FM");
        station.bitrate = 128;
        const qint64 bytesPerSec = TrackSegmenter::bytesPerSecForBitrate(station.bitrate);
        const qint64 bound = qint64(StationListener::kMaxSongSeconds) * bytesPerSec;
        const qint64 streamBytes = 30 * 60 * bytesPerSec;

        RecordingSession capture(station, RecordingSession::Listening{StationListener::kMaxSongSeconds}, context);
        QElapsedTimer clock;
        clock.start();
        qint64 peak = 0;
        // Body bytes include one metadata length byte per 1000 audio bytes.
        while (capture.status().bytesReceived < streamBytes / 1000 * 1001 && clock.elapsed() < 600'000) {
            QCoreApplication::processEvents(QEventLoop::AllEvents, 1);
            peak = std::max(peak, bytesInTmp());
            QThread::usleep(500);
        }
        const double wallSec = clock.elapsed() / 1000.0;
        const qint64 received = capture.status().bytesReceived;
        capture.stop();
        waitUntil([&] { return capture.isIdle(); }, 10000);
        state.counters["peak_kept_bytes"] = double(peak);
        state.counters["bound_bytes"] = double(bound);
        state.counters["stream_s"] = double(received) / 1001 * 1000 / double(bytesPerSec);
        state.counters["wall_s"] = wallSec;
        if (peak > bound)
            state.SkipWithError("the song buffer outgrew its bound");
        else if (received < streamBytes)
            state.SkipWithError("the stream did not reach 30 minutes in 10 minutes");
    }
}
BENCHMARK(SongBound)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();

// utime + stime of `pid` and of every live process under it, in clock ticks; `ownTicks`
// gets those of `pid` alone.
qint64 treeTicks(qint64 pid, qint64 *ownTicks)
{
    qint64 ticks = 0;
    QList<qint64> pending{pid};
    QHash<qint64, QList<qint64>> children;
    QHash<qint64, qint64> own;
    for (const QString &entry : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs)) {
        bool ok = false;
        const qint64 p = entry.toLongLong(&ok);
        if (!ok)
            continue;
        QFile stat(QStringLiteral("/proc/%1/stat").arg(p));
        if (!stat.open(QIODevice::ReadOnly))
            continue;
        const QByteArray line = stat.readAll();
        // Fields after the command name, which may hold spaces: state ppid ... utime(14) stime(15).
        const QList<QByteArray> f = line.mid(line.lastIndexOf(')') + 2).split(' ');
        if (f.size() < 13)
            continue;
        children[f[1].toLongLong()] << p;
        own[p] = f[11].toLongLong() + f[12].toLongLong();
    }
    *ownTicks = own.value(pid);
    while (!pending.isEmpty()) {
        const qint64 p = pending.takeFirst();
        ticks += own.value(p);
        pending << children.value(p);
    }
    return ticks;
}

double childrenCpuSec()
{
    rusage usage{};
    getrusage(RUSAGE_CHILDREN, &usage);
    return double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec)
        + double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) * 1e-6;
}

void Cpu(benchmark::State &state)
{
    constexpr int kSeconds = 60;
    constexpr double kSteadyFromSec = 10;
    for (auto _ : state) {
        TestHome home;
        FixtureServer server;
        IcyStream::Mp3Programme programme;
        QString error;
        const auto mp3 = runProgram(QStringLiteral("/usr/bin/ffmpeg"),
                                    {"-v", "error", "-f", "lavfi", "-i",
                                     "aevalsrc=0.3*sin(2*PI*(220+40*sin(t))*t)|0.3*sin(2*PI*330*t):s=44100:d=30", "-c:a",
                                     "libmp3lame", "-b:a", "128k", "-f", "mp3", "pipe:1"},
                                    &error);
        if (!mp3 || mp3->isEmpty()) {
            state.SkipWithError(("ffmpeg: " + error).toUtf8().constData());
            return;
        }
        programme.mp3 = *mp3;
        programme.metaint = 16000; // one second of a 128 kbit/s stream per block
        for (int song = 0; song < 10; ++song)
            programme.songs.append({QByteArray("Artist - Song ") + QByteArray::number(song), 20});
        server.route("/live", programme.handler(1000));

        QProcess cli;
        cli.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        const double rusage0 = childrenCpuSec();
        QElapsedTimer clock;
        clock.start();
        cli.start(QStringLiteral(ORVIDA_CLI_PATH),
                  {"listen", QString::fromLatin1(server.url("/live")), "--for", QString::number(kSeconds + 2)});
        if (!cli.waitForStarted()) {
            state.SkipWithError("orvida-cli did not start");
            return;
        }
        // Once at 10 s, when start-up (library, recovery, ffmpeg probing the stream) is
        // over, and once at the end: the difference is what listening itself costs.
        const auto sampleAt = [&](double sec, qint64 *cliTicks, double *atSec) {
            waitUntil([&] { return cli.state() == QProcess::NotRunning; }, int(sec * 1000 - clock.elapsed()));
            *atSec = clock.elapsed() / 1000.0;
            return treeTicks(cli.processId(), cliTicks);
        };
        qint64 cliTicks0 = 0, cliTicks = 0;
        double steadySec = 0, sampledSec = 0;
        const qint64 ticks0 = sampleAt(kSteadyFromSec, &cliTicks0, &steadySec);
        const qint64 ticks = sampleAt(kSeconds, &cliTicks, &sampledSec);
        if (!waitUntil([&] { return cli.state() == QProcess::NotRunning; }, 30000)) {
            ::kill(pid_t(cli.processId()), SIGTERM);
            cli.waitForFinished(10000);
        }
        const double wallSec = clock.elapsed() / 1000.0;
        const QByteArray out = cli.readAllStandardOutput();
        const double percentPerTick = 100.0 / double(sysconf(_SC_CLK_TCK)) / (sampledSec - steadySec);
        state.counters["cpu_percent"] = percentPerTick * double(ticks - ticks0);
        // orvida-cli alone (player, capture, relay server) and its ffmpeg.
        state.counters["cpu_percent_cli"] = percentPerTick * double(cliTicks - cliTicks0);
        state.counters["cpu_percent_ffmpeg"] = percentPerTick * double((ticks - cliTicks) - (ticks0 - cliTicks0));
        state.counters["cpu_percent_with_start"] = 100.0 * double(ticks) / double(sysconf(_SC_CLK_TCK)) / sampledSec;
        state.counters["cpu_percent_rusage"] = 100.0 * (childrenCpuSec() - rusage0) / wallSec;
        state.counters["titles"] = double(out.count("title\t"));
        if (cli.exitStatus() != QProcess::NormalExit || cli.exitCode() != 0) {
            // Not a measurement of listening then, but the figure helps to see what ran.
            state.SkipWithError(QStringLiteral("orvida-cli listen failed (%1 %% CPU): %2")
                                    .arg(state.counters["cpu_percent"].value, 0, 'f', 2)
                                    .arg(QString::fromUtf8(out.right(300)))
                                    .toUtf8()
                                    .constData());
        }
    }
}
BENCHMARK(Cpu)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();

} // namespace
