#include "cli/cli.h"
#include "cli/recordercli.h"
#include "platform/signalwatcher.h"

#include "engine/radiorecorder.h"
#include "engine/sleepguard.h"
#include "platform/dbuslink.h"
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

    // A recording must not be cut short by idle sleep; without buses nothing is held.
    DBusLink systemBus(DBusLink::systemBusAddress(), QStringLiteral("system"));
    DBusLink sessionBus(DBusLink::sessionBusAddress(), QStringLiteral("session"));
    SleepGuard sleepGuard(systemBus, sessionBus,
        [&recorder](std::function<void()> done) { SleepGuard::flushSessions(recorder.sessions(), std::move(done)); });
    auto holdWhileRecording = [&] {
        const bool recording = !recorder.sessions().isEmpty();
        sleepGuard.setRecording(recording);
        if (recording)
            sleepGuard.acquire(QString(PowerAssertion::kRecordingReason));
        else
            sleepGuard.release();
    };
    QObject::connect(&recorder, &RadioRecorder::sessionsChanged, &sleepGuard, holdWhileRecording);

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
    return exitCode;
}

const Cli::Registration registration("record", kUsage, recordCommand);

} // namespace
