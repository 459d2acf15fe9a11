// Side by side: orvida-cli record and streamripper record the same icecast2 mount at the
// same time, each into a folder of its own, and every file either of them writes is
// decoded and scored against what was broadcast (see scoring.h). The cost of each
// recorder (CPU time with its child processes, peak resident memory) is measured from
// outside. Everything runs on 127.0.0.1.
//
//   bench/compare/run.sh [--minutes 10] [--codec mp3|aac|both] [--out DIR]
//
// Four recorders per codec: orvida-cli with its default settings and with 2 s of lead-in
// and lead-out, streamripper with its defaults and with --xs-none (no silence search).
// The album and cover look-up of orvida-cli goes to a loopback server that knows no song.

#include "measuredprocess.h"
#include "programme.h"
#include "report.h"
#include "scoring.h"

#include "audiocheck.h"
#include "fixtureserver.h"
#include "icecastfixture.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QThread>

#include <cstdio>
#include <memory>
#include <optional>

namespace {

constexpr double kWindowSec = 0.1;
// Our default minimum song length: songs not longer than this are not kept.
constexpr double kDefaultMinSongSec = 45;
// The programme runs this much past the recording, so no recorder sees the source end,
// however long it takes to stop.
constexpr double kProgrammeTailSec = 120;
// A recorder still running this long after its time is ended.
constexpr double kOvertimeSec = 90;
constexpr int kSampleMs = 200;

enum class Kind { Ours, Streamripper };

struct RecorderVariant {
    QString label;
    QString slug; // its folder
    Kind kind = Kind::Ours;
    int leadSec = 0; // ours: lead-in and lead-out
    QStringList extraArgs; // streamripper
};

struct Setup {
    QString cliPath;
    QString streamripperPath;
    QString storeUrl;
    QString outDir;
    double recordSec = 600;
    int leadSec = 2;
};

QString codecName(BroadcastCodec codec)
{
    return codec == BroadcastCodec::Mp3 ? QStringLiteral("mp3") : QStringLiteral("aac");
}

void say(const QString &text)
{
    std::fprintf(stderr, "%s\n", qPrintable(text));
    std::fflush(stderr);
}

QList<RecorderVariant> recorderVariants(int leadSec)
{
    return {
        { QStringLiteral("orvida-cli, defaults"), QStringLiteral("orvida-default"), Kind::Ours, 0, {} },
        { QStringLiteral("orvida-cli, lead-in/out %1 s").arg(leadSec), QStringLiteral("orvida-lead"), Kind::Ours,
            leadSec, {} },
        { QStringLiteral("streamripper, defaults"), QStringLiteral("streamripper-default"), Kind::Streamripper, 0, {} },
        { QStringLiteral("streamripper --xs-none"), QStringLiteral("streamripper-xs-none"), Kind::Streamripper, 0,
            { QStringLiteral("--xs-none") } },
    };
}

// One recorder of one run: its folders, environment and process.
struct Recorder {
    RecorderVariant variant;
    QString root;
    QString filesDir;
    QStringList environment;
    QString program;
    QStringList args;
    MeasuredProcess process;
};

QProcessEnvironment homeEnvironment(const QString &home, const QString &storeUrl)
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("HOME"), home);
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), home + QStringLiteral("/config"));
    env.insert(QStringLiteral("XDG_DATA_HOME"), home + QStringLiteral("/data"));
    env.insert(QStringLiteral("XDG_CACHE_HOME"), home + QStringLiteral("/cache"));
    env.insert(QStringLiteral("XDG_MUSIC_DIR"), home + QStringLiteral("/Music"));
    env.insert(QStringLiteral("ORVIDA_STORE_URL"), storeUrl);
    return env;
}

// Runs one orvida-cli command to its end; empty on success, else its complaint.
QString runCli(const QString &cliPath, const QProcessEnvironment &env, const QStringList &args)
{
    QProcess process;
    process.setProcessEnvironment(env);
    process.setStandardInputFile(QProcess::nullDevice());
    process.start(cliPath, args);
    if (!process.waitForFinished(30000) || process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0)
        return QStringLiteral("orvida-cli %1: %2")
            .arg(args.join(QLatin1Char(' ')), QString::fromUtf8(process.readAllStandardError()));
    return {};
}

// Prepares a recorder's folders and settings; the process starts later.
std::unique_ptr<Recorder> prepare(const RecorderVariant &variant, const Setup &setup, const QString &runDir,
    const QString &streamUrl, QString *error)
{
    auto r = std::make_unique<Recorder>();
    r->variant = variant;
    r->root = runDir + QLatin1Char('/') + variant.slug;
    r->filesDir = r->root + QStringLiteral("/files");
    QDir(r->root).removeRecursively();
    if (!QDir().mkpath(r->filesDir) || !QDir().mkpath(r->root + QStringLiteral("/home/Music"))) {
        *error = QStringLiteral("cannot create %1").arg(r->filesDir);
        return nullptr;
    }
    const QString seconds = QString::number(std::lround(setup.recordSec));
    const QProcessEnvironment env = homeEnvironment(r->root + QStringLiteral("/home"), setup.storeUrl);
    r->environment = env.toStringList();
    if (variant.kind == Kind::Streamripper) {
        r->program = setup.streamripperPath;
        r->args = QStringList { streamUrl, QStringLiteral("-d"), r->filesDir, QStringLiteral("-s"), QStringLiteral("-l"),
                      seconds, QStringLiteral("--quiet") }
            + variant.extraArgs;
        return r;
    }
    *error = runCli(setup.cliPath, env, { QStringLiteral("config"), QStringLiteral("set"),
                                            QStringLiteral("ov.radioSaveDir"), r->filesDir });
    if (error->isEmpty() && variant.leadSec > 0) {
        *error = runCli(setup.cliPath, env,
            { QStringLiteral("engine"), QStringLiteral("set"), QStringLiteral("--lead-in"), QString::number(variant.leadSec),
                QStringLiteral("--lead-out"), QString::number(variant.leadSec) });
    }
    if (!error->isEmpty())
        return nullptr;
    r->program = setup.cliPath;
    r->args = { QStringLiteral("record"), streamUrl, QStringLiteral("--name"), Programme::kStationName,
        QStringLiteral("--bitrate"), QStringLiteral("128"), QStringLiteral("--for"), seconds };
    return r;
}

// The audio files a recorder left, oldest first; streamripper's "incomplete" folder holds
// the tracks it did not see from start to end.
QList<std::pair<QString, bool>> outputFiles(const QString &filesDir)
{
    QList<QFileInfo> found;
    QDirIterator it(filesDir, { QStringLiteral("*.mp3"), QStringLiteral("*.aac") }, QDir::Files,
        QDirIterator::Subdirectories);
    while (it.hasNext())
        found << QFileInfo(it.next());
    std::sort(found.begin(), found.end(), [](const QFileInfo &a, const QFileInfo &b) {
        return a.lastModified() != b.lastModified() ? a.lastModified() < b.lastModified()
                                                    : a.filePath() < b.filePath();
    });
    QList<std::pair<QString, bool>> out;
    for (const QFileInfo &info : std::as_const(found)) {
        const QString relative = QDir(filesDir).relativeFilePath(info.filePath());
        if (relative.startsWith(QLatin1String("tmp/")))
            continue; // work files of a save
        out.append({ relative, !relative.startsWith(QLatin1String("incomplete/")) });
    }
    return out;
}

// Scores the files in `result.folder`, below `runDir`; the rest of `result` is filled in.
void score(Report::RecorderResult &result, const QString &runDir, const QList<PlayedSong> &played,
    double windowStartSec, double windowEndSec)
{
    const QString filesDir = runDir + QLatin1Char('/') + result.folder + QStringLiteral("/files");
    QList<double> tones;
    for (const PlayedSong &p : played)
        tones << p.song.toneHz;
    result.files.clear();
    for (const auto &[relative, complete] : outputFiles(filesDir)) {
        QString error;
        const auto pcm = AudioCheck::decode(filesDir + QLatin1Char('/') + relative, &error);
        if (!pcm)
            say(QStringLiteral("  cannot decode %1: %2").arg(relative, error));
        const std::vector<int> labels = pcm ? AudioCheck::toneLabels(*pcm, tones, kWindowSec) : std::vector<int>();
        result.files << Scoring::scoreFile(
            relative, complete, labels, kWindowSec, played, windowStartSec, windowEndSec);
    }
    Scoring::markDuplicates(result.files);
    result.summary = Scoring::summarise(result.files, played, windowStartSec, windowEndSec, kDefaultMinSongSec);
}

std::optional<Report::Comparison> compare(
    IcecastFixture &icecast, const Setup &setup, BroadcastCodec codec, QString *error)
{
    const bool mp3 = codec == BroadcastCodec::Mp3;
    const QString name = codecName(codec);
    const QString runDir = setup.outDir + QLatin1Char('/') + name;
    Broadcast::Options options;
    options.codec = codec;
    options.mount = QStringLiteral("/compare.") + name;

    const QList<BroadcastSong> programme = Programme::make(setup.recordSec + kProgrammeTailSec);
    if (programme.isEmpty()) {
        *error = QStringLiteral("the programme lasts at most %1 min").arg((Programme::maxSec() - kProgrammeTailSec) / 60);
        return std::nullopt;
    }
    std::vector<std::unique_ptr<Recorder>> recorders;
    for (const RecorderVariant &variant : recorderVariants(setup.leadSec)) {
        recorders.push_back(prepare(variant, setup, runDir, icecast.streamUrl(options.mount), error));
        if (!recorders.back())
            return std::nullopt;
    }

    Broadcast broadcast(icecast, programme, options);
    if (!broadcast.start(error))
        return std::nullopt;
    Report::Comparison c;
    c.codec = mp3 ? QStringLiteral("MP3 128 kbit/s") : QStringLiteral("AAC 128 kbit/s");
    c.recordSec = setup.recordSec;
    c.shortSongSec = kDefaultMinSongSec;
    c.windowStartSec = broadcast.sourceTimeSec();
    c.windowEndSec = c.windowStartSec + setup.recordSec;
    for (const auto &r : recorders) {
        if (!r->process.start(r->program, r->args, r->environment, r->root, r->root + QStringLiteral("/log.txt"), error))
            return std::nullopt;
    }
    say(QStringLiteral("%1: recording %2 s with %3 recorders ...").arg(c.codec).arg(setup.recordSec).arg(recorders.size()));

    const auto allDone = [&] {
        return std::all_of(recorders.begin(), recorders.end(), [](const auto &r) { return r->process.isFinished(); });
    };
    bool overtime = false;
    while (!allDone()) {
        for (const auto &r : recorders)
            r->process.sample();
        if (!overtime && broadcast.sourceTimeSec() > c.windowEndSec + kOvertimeSec) {
            overtime = true;
            for (const auto &r : recorders) {
                if (!r->process.isFinished()) {
                    say(QStringLiteral("  %1 is still running; ending it").arg(r->variant.label));
                    r->process.terminate();
                }
            }
        }
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        QThread::msleep(kSampleMs);
    }
    broadcast.stop();
    c.played = broadcast.log();
    for (const PlayedSong &p : std::as_const(c.played)) {
        if (p.startSec < c.windowEndSec && p.titleSetSec < 0)
            say(QStringLiteral("  warning: the title of #%1 was never set").arg(p.index));
    }

    say(QStringLiteral("  scoring ..."));
    for (const auto &r : recorders) {
        Report::RecorderResult result;
        result.label = r->variant.label;
        result.folder = r->variant.slug;
        result.command = QFileInfo(r->program).fileName() + QLatin1Char(' ') + r->args.join(QLatin1Char(' '));
        result.usage = r->process.usage();
        score(result, runDir, c.played, c.windowStartSec, c.windowEndSec);
        c.recorders << result;
    }
    return c;
}

// Scores the recordings of an earlier run again, from its JSON report and its folders.
std::optional<Report::Comparison> rescore(const QString &reportPath, const QString &runDir, QString *error)
{
    QFile file(reportPath);
    auto c = file.open(QIODevice::ReadOnly) ? Report::fromJson(file.readAll()) : std::nullopt;
    if (!c) {
        *error = QStringLiteral("no report of an earlier run in %1").arg(reportPath);
        return std::nullopt;
    }
    say(QStringLiteral("%1: scoring the recordings in %2 again ...").arg(c->codec, runDir));
    for (Report::RecorderResult &result : c->recorders)
        score(result, runDir, c->played, c->windowStartSec, c->windowEndSec);
    return c;
}

bool writeText(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(bytes) == bytes.size();
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Records one icecast2 mount with orvida-cli and with streamripper "
                                                    "at once and scores both."));
    parser.addHelpOption();
    const QCommandLineOption minutes(QStringLiteral("minutes"), QStringLiteral("Recording length."), QStringLiteral("M"),
        QStringLiteral("10"));
    const QCommandLineOption codecOption(
        QStringLiteral("codec"), QStringLiteral("mp3, aac or both (one after the other)."), QStringLiteral("CODEC"),
        QStringLiteral("mp3"));
    const QCommandLineOption out(
        QStringLiteral("out"), QStringLiteral("Folder for recordings and reports."), QStringLiteral("DIR"),
        QStringLiteral("compare-results"));
    const QCommandLineOption lead(
        QStringLiteral("lead"), QStringLiteral("Lead-in and lead-out of the padded run, s."), QStringLiteral("S"),
        QStringLiteral("2"));
    const QCommandLineOption cli(
        QStringLiteral("cli"), QStringLiteral("The orvida-cli to run."), QStringLiteral("PATH"), QStringLiteral(ORVIDA_CLI_PATH));
    const QCommandLineOption streamripper(QStringLiteral("streamripper"), QStringLiteral("The streamripper to run."),
        QStringLiteral("PATH"), QStandardPaths::findExecutable(QStringLiteral("streamripper")));
    const QCommandLineOption again(QStringLiteral("rescore"),
        QStringLiteral("Record nothing; score the recordings of the last run in --out again."));
    parser.addOptions({ minutes, codecOption, out, lead, cli, streamripper, again });
    parser.process(app);

    Setup setup;
    setup.cliPath = parser.value(cli);
    setup.streamripperPath = parser.value(streamripper);
    setup.outDir = QDir(parser.value(out)).absolutePath();
    bool minutesOk = false;
    setup.recordSec = parser.value(minutes).toDouble(&minutesOk) * 60;
    setup.leadSec = parser.value(lead).toInt();
    const QString codecs = parser.value(codecOption);
    QList<BroadcastCodec> runs;
    if (codecs == QLatin1String("mp3") || codecs == QLatin1String("both"))
        runs << BroadcastCodec::Mp3;
    if (codecs == QLatin1String("aac") || codecs == QLatin1String("both"))
        runs << BroadcastCodec::Aac;
    if (!minutesOk || setup.recordSec < 60 || runs.isEmpty() || setup.leadSec < 0 || setup.leadSec > 30) {
        say(QStringLiteral("usage: --minutes M (at least 1) --codec mp3|aac|both --lead 0..30"));
        return 2;
    }
    if (const QString missing = IcecastFixture::missingTools(); !missing.isEmpty() || setup.streamripperPath.isEmpty()
        || !QFileInfo(setup.cliPath).isExecutable()) {
        say(QStringLiteral("cannot run: %1").arg(missing.isEmpty() ? QStringLiteral("no streamripper or orvida-cli")
                                                                    : missing));
        return 2;
    }
    QDir().mkpath(setup.outDir);
    const bool rescoring = parser.isSet(again);

    // The album and cover look-up finds nothing, here and not on the internet.
    FixtureServer store;
    store.route("/search",
        FixtureServer::Script::response(200, "application/json", R"({"resultCount":0,"results":[]})"));
    setup.storeUrl = QString::fromUtf8(store.url("/search"));

    IcecastFixture icecast;
    QString error;
    if (!rescoring && !icecast.start(&error)) {
        say(QStringLiteral("icecast2 did not start: ") + error);
        return 1;
    }
    for (BroadcastCodec codec : std::as_const(runs)) {
        const QString name = codecName(codec);
        const QString base = setup.outDir + QStringLiteral("/compare-") + name;
        const auto comparison = rescoring
            ? rescore(base + QStringLiteral(".json"), setup.outDir + QLatin1Char('/') + name, &error)
            : compare(icecast, setup, codec, &error);
        if (!comparison) {
            say(error);
            return 1;
        }
        if (!writeText(base + QStringLiteral(".md"), Report::markdown(*comparison, true).toUtf8())
            || !writeText(base + QStringLiteral(".json"), Report::json(*comparison))) {
            say(QStringLiteral("cannot write %1.md/.json").arg(base));
            return 1;
        }
        std::printf("%s\n(files and details: %s.md, %s.json)\n\n", qPrintable(Report::markdown(*comparison, false)),
            qPrintable(base), qPrintable(base));
        std::fflush(stdout);
    }
    return 0;
}
