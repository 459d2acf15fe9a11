#include "cli/cli.h"
#include "cli/recordercli.h"
#include "cli/signalwatcher.h"

#include "engine/radiorecorder.h"
#include "library/librarystore.h"

#include "platform/longtimer.h"

#include <chrono>
#include <cmath>

namespace {

const char kUsage[] = "record URL [--name NAME] [--bitrate KBPS] [--full-show TITLE] [--for SECONDS]";

int recordCommand(CliServices &services, const QStringList &args)
{
    const QString usage = QString::fromLatin1(kUsage);
    QString error;
    const auto parsed = Cli::parse(args,
        { QStringLiteral("name"), QStringLiteral("bitrate"), QStringLiteral("full-show"), QStringLiteral("for") },
        false, 1, 1, &error);
    if (!parsed)
        return Cli::usageError(usage, error);

    Station station = Station::custom(parsed->positional[0], parsed->value(QStringLiteral("name")));
    if (parsed->has(QStringLiteral("bitrate"))) {
        bool ok = false;
        station.bitrate = parsed->value(QStringLiteral("bitrate")).toLongLong(&ok);
        if (!ok || station.bitrate < 0)
            return Cli::usageError(usage, QStringLiteral("--bitrate takes a whole number of kbit/s"));
    }
    std::optional<double> forSec;
    if (parsed->has(QStringLiteral("for"))) {
        bool ok = false;
        forSec = parsed->value(QStringLiteral("for")).toDouble(&ok);
        if (!ok || !std::isfinite(*forSec) || *forSec <= 0)
            return Cli::usageError(usage, QStringLiteral("--for takes a positive number of seconds"));
    }
    std::optional<QString> fullShow;
    if (parsed->has(QStringLiteral("full-show")))
        fullShow = parsed->value(QStringLiteral("full-show"));

    const auto setup = RecorderCli::setUp(services, &error);
    if (!setup)
        return Cli::fail(error);
    RadioRecorder &recorder = setup->recorder;
    LibraryStore &library = setup->library;

    SignalWatcher signals;
    bool finished = false;
    int exitCode = kExitOk;
    auto finish = [&](int code) {
        if (finished)
            return;
        finished = true; // before stop(): the session's end lands here again
        exitCode = code;
        recorder.stop();
    };
    QObject::connect(&recorder, &RadioRecorder::sessionEnded, [&](const Station &, SessionOutcome outcome) {
        finish(outcome == SessionOutcome::Stopped ? kExitOk : kExitGaveUp);
    });
    QObject::connect(&signals, &SignalWatcher::terminationRequested, [&] { finish(kExitOk); });
    // Each failure has had its own error line; the exit code must not claim the recording
    // went well when a song of it never reached the disk.
    int failedSaves = 0;
    QObject::connect(&recorder, &RadioRecorder::saveFailed, [&failedSaves] { ++failedSaves; });
    LongTimer limit;
    QObject::connect(&limit, &LongTimer::timeout, [&] { finish(kExitOk); });
    if (forSec)
        limit.start(std::chrono::milliseconds(qint64(std::min(*forSec * 1000, 1e15))));

    recorder.start(station, fullShow, [&library](const Track &track) {
        if (!RadioRecorder::upsertIntoLibrary(track, library))
            Cli::out(QStringLiteral("error\t") + library.lastError());
    });
    Cli::waitUntilDone(finished);
    // The last song is finalised and saved after the stop.
    recorder.waitForSaves();
    if (exitCode == kExitOk && failedSaves > 0)
        return Cli::fail(QStringLiteral("%1 of the recorded songs could not be saved (see the error lines)")
                             .arg(failedSaves));
    return exitCode;
}

const Cli::Registration registration("record", kUsage, recordCommand);

} // namespace
