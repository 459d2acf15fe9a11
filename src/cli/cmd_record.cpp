#include "cli/cli.h"
#include "cli/recordercli.h"
#include "cli/signalwatcher.h"

#include "engine/radiorecorder.h"
#include "library/librarystore.h"

#include <QTimer>

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
        if (!ok || *forSec <= 0)
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
    // Any end we did not ask for is the session giving up.
    QObject::connect(&recorder, &RadioRecorder::sessionEnded, [&] { finish(kExitGaveUp); });
    QObject::connect(&recorder, &RadioRecorder::sessionErrorChanged, [&](const QString &, const QString &message) {
        if (message == QStringLiteral("Ungültige Stream-URL"))
            finish(kExitGaveUp);
    });
    QObject::connect(&signals, &SignalWatcher::terminationRequested, [&] { finish(kExitOk); });
    QTimer limit;
    if (forSec) {
        limit.setSingleShot(true);
        limit.callOnTimeout([&] { finish(kExitOk); });
        limit.start(int(*forSec * 1000));
    }

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
