// How recording scales with the number of stations: N recording sessions in this one
// process, each taking a 128 kbit/s ICY stream from a loopback server that runs as a
// separate process (bench/scale/icyserver.py), so the server's cost is not counted here.
//
// Measured over the steady part of the run (after a warm-up in which every session
// connects and gets its first title): the CPU time of this process (user + system, as %
// of one core), the CPU time of its finished children (the ffmpeg duration probes of the
// saves) on its own, and the resident memory. Afterwards every saved song is compared
// byte for byte with what the server logged it sent.
// Targets at 200 sessions: this process at most 10 % of one core and at most 150 KiB
// resident per session beyond the first, both growing linearly with N.
//
//   bench/scale/run.sh [--quick]      runs 1, 50, 100 and 200 sessions and prints the table
//   build/bench/scale_bench --server http://127.0.0.1:PORT --log-dir DIR --sessions N --seconds S
//
// Settings as the targets assume them: no lead-in or lead-out, byte-exact saves (so files
// can be compared), no minimum duration, no store look-up. The status-document poll of
// every session runs as in the application (the server answers it 404);
// --no-status-poll leaves it out.

#include "engine/enginesettingsstore.h"
#include "engine/recordingcontext.h"
#include "engine/recordingsession.h"
#include "engine/recordingstats.h"
#include "platform/httpclient.h"

#include "icecastfixture.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTimer>

#include <cstdio>
#include <map>

#include <sys/resource.h>

namespace {

struct CpuTimes {
    double selfSec = 0;
    double childrenSec = 0;
};

double seconds(const timeval &tv)
{
    return double(tv.tv_sec) + double(tv.tv_usec) / 1e6;
}

CpuTimes cpuTimes()
{
    rusage self {};
    rusage children {};
    getrusage(RUSAGE_SELF, &self);
    getrusage(RUSAGE_CHILDREN, &children);
    return { seconds(self.ru_utime) + seconds(self.ru_stime), seconds(children.ru_utime) + seconds(children.ru_stime) };
}

// A "VmRSS:" or "VmHWM:" line of /proc/self/status, in KiB.
qint64 procStatusKib(const QByteArray &key)
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith(key))
            return line.mid(key.size()).trimmed().split(' ').first().toLongLong();
    }
    return -1;
}

void runFor(qint64 ms)
{
    QEventLoop loop;
    QTimer::singleShot(ms, &loop, &QEventLoop::quit);
    loop.exec();
}

// What the server logged about the connections of one stream name.
struct Connection {
    qint64 blobStart = 0;
    int opens = 0;
    QList<std::pair<qint64, QString>> titles; // audio offset before the block, title
};

std::map<QString, Connection> readServerLog(const QString &logDir)
{
    std::map<QString, Connection> byName;
    QFile file(logDir + QStringLiteral("/connections.jsonl"));
    if (!file.open(QIODevice::ReadOnly))
        return byName;
    for (const QByteArray &line : file.readAll().split('\n')) {
        const QJsonObject e = QJsonDocument::fromJson(line).object();
        const QString name = e.value(QLatin1String("name")).toString();
        const QString event = e.value(QLatin1String("event")).toString();
        Connection &c = byName[name];
        if (event == QLatin1String("open")) {
            ++c.opens;
            c.blobStart = e.value(QLatin1String("blobStart")).toInteger();
        } else if (event == QLatin1String("title")) {
            c.titles.append(
                { e.value(QLatin1String("audioOffset")).toInteger(), e.value(QLatin1String("title")).toString() });
        }
    }
    return byName;
}

// `length` bytes of what a connection sent, from audio offset `from`.
QByteArray sentAudio(const QByteArray &blob, qint64 blobStart, qint64 from, qint64 length)
{
    QByteArray out;
    out.reserve(length);
    qint64 at = (blobStart + from) % blob.size();
    while (out.size() < length) {
        const qint64 n = std::min<qint64>(length - out.size(), blob.size() - at);
        out.append(blob.constData() + at, n);
        at = 0;
    }
    return out;
}

struct RecordedFile {
    int session = 0;
    QString path;
};

struct Verification {
    int verified = 0;
    int mismatched = 0;
    int missing = 0; // a song between two titles the recorder saw, without a file
    int reconnects = 0;
    QStringList problems;
};

// Each saved song must be exactly the audio between its title's block and the next
// title's block (the last one, cut by the stop, a prefix of that), and every song the
// recorder saw whole must have been saved.
Verification verify(const QList<RecordedFile> &saved, const QStringList &names, const QString &logDir)
{
    Verification v;
    QFile blobFile(logDir + QStringLiteral("/audio.bin"));
    if (!blobFile.open(QIODevice::ReadOnly)) {
        v.problems << QStringLiteral("no audio.bin in %1").arg(logDir);
        return v;
    }
    const QByteArray blob = blobFile.readAll();
    const std::map<QString, Connection> log = readServerLog(logDir);

    std::map<int, std::map<QString, QString>> filesBySession; // session -> title -> path
    for (const RecordedFile &s : saved) {
        const QString title = QFileInfo(s.path).completeBaseName();
        filesBySession[s.session][title] = s.path;
    }
    for (int i = 0; i < names.size(); ++i) {
        const auto it = log.find(names[i]);
        if (it == log.end()) {
            v.problems << QStringLiteral("%1: never connected").arg(names[i]);
            continue;
        }
        const Connection &c = it->second;
        v.reconnects += std::max(0, c.opens - 1);
        const auto &files = filesBySession[i];
        for (int t = 0; t < c.titles.size(); ++t) {
            const auto file = files.find(c.titles[t].second);
            const bool seenNext = t + 1 < c.titles.size() && files.count(c.titles[t + 1].second);
            if (file == files.end()) {
                if (seenNext) {
                    ++v.missing;
                    v.problems << QStringLiteral("%1: no file for %2").arg(names[i], c.titles[t].second);
                }
                continue;
            }
            QFile f(file->second);
            const QByteArray audio = f.open(QIODevice::ReadOnly) ? withoutId3v2Tag(f.readAll()) : QByteArray();
            const qint64 from = c.titles[t].first;
            const qint64 whole = t + 1 < c.titles.size() ? c.titles[t + 1].first - from : audio.size();
            const bool lengthOk = seenNext ? audio.size() == whole : audio.size() <= whole;
            if (lengthOk && !audio.isEmpty() && audio == sentAudio(blob, c.blobStart, from, audio.size())) {
                ++v.verified;
            } else {
                ++v.mismatched;
                v.problems << QStringLiteral("%1: %2 differs (%3 bytes, expected %4%5)")
                                  .arg(names[i], c.titles[t].second)
                                  .arg(audio.size())
                                  .arg(seenNext ? QString() : QStringLiteral("at most "))
                                  .arg(whole);
            }
        }
    }
    return v;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Records N loopback streams at once and measures the cost."));
    parser.addHelpOption();
    const QCommandLineOption serverOption(
        QStringLiteral("server"), QStringLiteral("ICY server base URL"), QStringLiteral("url"));
    const QCommandLineOption logOption(
        QStringLiteral("log-dir"), QStringLiteral("the server's log folder"), QStringLiteral("dir"));
    const QCommandLineOption sessionsOption(
        QStringLiteral("sessions"), QStringLiteral("sessions at once"), QStringLiteral("n"), QStringLiteral("1"));
    const QCommandLineOption secondsOption(
        QStringLiteral("seconds"), QStringLiteral("measured seconds"), QStringLiteral("s"), QStringLiteral("60"));
    const QCommandLineOption warmupOption(
        QStringLiteral("warmup"), QStringLiteral("seconds before measuring"), QStringLiteral("s"), QStringLiteral("5"));
    const QCommandLineOption dirOption(QStringLiteral("dir"),
        QStringLiteral("where the radio folder goes (default: beside this program, on disk)"), QStringLiteral("dir"));
    const QCommandLineOption noPollOption(
        QStringLiteral("no-status-poll"), QStringLiteral("no status-document polling"));
    parser.addOptions(
        { serverOption, logOption, sessionsOption, secondsOption, warmupOption, dirOption, noPollOption });
    parser.process(app);
    if (!parser.isSet(serverOption) || !parser.isSet(logOption)) {
        std::fprintf(stderr, "scale_bench: --server and --log-dir are required (bench/scale/run.sh sets them)\n");
        return 2;
    }
    const int sessions = parser.value(sessionsOption).toInt();
    const double measureSec = parser.value(secondsOption).toDouble();
    const double warmupSec = parser.value(warmupOption).toDouble();

    // A home of our own, on disk: the recording writes 16 kB/s per session.
    const QString base = parser.isSet(dirOption) ? parser.value(dirOption) : QCoreApplication::applicationDirPath();
    QTemporaryDir home(base + QStringLiteral("/scale_bench.XXXXXX"));
    if (!home.isValid()) {
        std::fprintf(stderr, "scale_bench: cannot create a folder in %s\n", qPrintable(base));
        return 1;
    }
    qputenv("HOME", home.path().toUtf8());
    qputenv("XDG_CONFIG_HOME", (home.path() + QStringLiteral("/config")).toUtf8());
    qputenv("XDG_DATA_HOME", (home.path() + QStringLiteral("/data")).toUtf8());
    qputenv("XDG_CACHE_HOME", (home.path() + QStringLiteral("/cache")).toUtf8());
    QDir(home.path()).mkpath(QStringLiteral("Music"));

    RadioEngineSettings settings;
    settings.leadInSec = 0;
    settings.leadOutSec = 0;
    settings.minDurationSec = 0;
    settings.lossless = true;
    if (const StateResult written = EngineSettingsStore().setGlobal(settings); !written.ok) {
        std::fprintf(stderr, "scale_bench: %s\n", qPrintable(written.error));
        return 1;
    }

    HttpClient http;
    RecordingStats stats;
    RecordingContext context(http, &stats);
    context.ffmpegPath = QStandardPaths::findExecutable(QStringLiteral("ffmpeg"));
    context.timings.statusPolling = !parser.isSet(noPollOption);

    const qint64 rssBeforeKib = procStatusKib("VmRSS:");
    QList<RecordedFile> saved;
    QStringList names;
    std::vector<RecordingSession *> recording;
    for (int i = 0; i < sessions; ++i) {
        names << QString::number(i);
        Station station = Station::custom(
            parser.value(serverOption) + QStringLiteral("/s/") + names.last(), QStringLiteral("Bench ") + names.last());
        station.bitrate = 128;
        auto *session = new RecordingSession(station, std::nullopt, context);
        session->onTrackSaved = [&saved, i](const Track &track) {
            saved.append({ i, track.filePath.value_or(QString()) });
        };
        recording.push_back(session);
    }

    runFor(qint64(warmupSec * 1000));
    const int titled = int(std::count_if(
        recording.begin(), recording.end(), [](RecordingSession *s) { return !s->currentStreamTitle().isEmpty(); }));
    const CpuTimes cpu0 = cpuTimes();
    QElapsedTimer wall;
    wall.start();
    runFor(qint64(measureSec * 1000));
    const CpuTimes cpu1 = cpuTimes();
    const double wallSec = double(wall.nsecsElapsed()) / 1e9;
    const qint64 rssKib = procStatusKib("VmRSS:");
    const qint64 peakKib = procStatusKib("VmHWM:");
    const int savedWhileMeasuring = int(saved.size());

    for (RecordingSession *session : recording)
        session->stop();
    QElapsedTimer drain;
    drain.start();
    while (drain.elapsed() < 120'000
        && !std::all_of(recording.begin(), recording.end(), [](RecordingSession *s) { return s->isIdle(); }))
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
    for (RecordingSession *session : recording)
        delete session;

    const Verification v = verify(saved, names, parser.value(logOption));
    for (const QString &problem : v.problems.mid(0, 20))
        std::fprintf(stderr, "scale_bench: %s\n", qPrintable(problem));

    const double selfPct = 100.0 * (cpu1.selfSec - cpu0.selfSec) / wallSec;
    const double childrenPct = 100.0 * (cpu1.childrenSec - cpu0.childrenSec) / wallSec;
    std::printf("sessions=%d titled=%d seconds=%.1f cpu_self_pct=%.2f cpu_children_pct=%.2f rss_before_kib=%lld "
                "rss_kib=%lld peak_kib=%lld rss_per_session_kib=%.1f songs_while_measuring=%d songs=%lld "
                "verified=%d mismatched=%d missing=%d reconnects=%d\n",
        sessions, titled, wallSec, selfPct, childrenPct, rssBeforeKib, rssKib, peakKib,
        double(rssKib - rssBeforeKib) / std::max(1, sessions), savedWhileMeasuring, qint64(saved.size()), v.verified,
        v.mismatched, v.missing, v.reconnects);
    const bool ok = titled == sessions && v.mismatched == 0 && v.missing == 0 && v.reconnects == 0
        && v.verified == saved.size() && !saved.isEmpty();
    return ok ? 0 : 1;
}
