#include "cli/cli.h"
#include "cli/signalwatcher.h"

#include "engine/recordingcontext.h"
#include "engine/recordingsession.h"
#include "engine/recordingstats.h"
#include "engine/segmentrecovery.h"
#include "engine/trackinfolookup.h"
#include "library/librarystore.h"
#include "tools/youtubeservice.h"

#include <QCoreApplication>
#include <QTimer>

namespace {

const char kUsage[] = "record URL [--name NAME] [--bitrate KBPS] [--full-show TITLE] [--for SECONDS]";

// A saved song whose path is already in the library updates that entry instead of
// adding a second one (a longer take replaced the file under the same name).
void enterIntoLibrary(LibraryStore &library, const Track &track)
{
    const QList<Track> existing = track.filePath ? library.tracksByFilePath(*track.filePath) : QList<Track>();
    if (existing.isEmpty()) {
        if (!library.insert(track))
            Cli::out(QStringLiteral("error\t") + library.lastError());
        return;
    }
    Track updated = track;
    updated.id = existing.first().id;
    updated.playCount = existing.first().playCount;
    updated.isFavorite = existing.first().isFavorite;
    if (!library.save(updated))
        Cli::out(QStringLiteral("error\t") + library.lastError());
}

int recordCommand(CliServices &services, const QStringList &args)
{
    const QString usage = QString::fromLatin1(kUsage);
    QString error;
    const auto parsed = Cli::parse(
        args, {QStringLiteral("name"), QStringLiteral("bitrate"), QStringLiteral("full-show"), QStringLiteral("for")},
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

    LibraryOpenResult opened = LibraryStore::open(LibraryStore::defaultPath());
    if (!opened)
        return Cli::fail(opened.message);
    LibraryStore &library = *opened.store;

    SegmentRecovery::recoverOrphans();

    auto &stats = services.make<RecordingStats>();
    auto &context = services.make<RecordingContext>(services.http(), &stats);
    context.storeBase = TrackInfoLookup::storeBase();
    context.ffmpegPath = YouTubeService::ffmpegDir() + QStringLiteral("/ffmpeg");

    SignalWatcher signals;
    bool finished = false;
    int exitCode = kExitOk;

    auto *session = new RecordingSession(station, fullShow, context);
    auto stopAndFinish = [&, session](int code) {
        if (finished)
            return;
        finished = true; // before stop(): it calls onStopped, which lands here again
        exitCode = code;
        session->stop();
    };
    session->onTrackSaved = [&library](const Track &track) {
        enterIntoLibrary(library, track);
        Cli::out(QStringLiteral("saved\t") + track.filePath.value_or(QString()));
    };
    session->onStopped = [&] { stopAndFinish(kExitGaveUp); };
    QObject::connect(session, &RecordingSession::currentStreamTitleChanged,
                     [](const QString &title) { Cli::out(QStringLiteral("title\t") + title); });
    QObject::connect(session, &RecordingSession::errorMessageChanged, [&](const QString &message) {
        Cli::out(QStringLiteral("error\t") + message);
        if (message == QStringLiteral("Ungültige Stream-URL"))
            stopAndFinish(kExitGaveUp);
    });
    QObject::connect(&signals, &SignalWatcher::terminationRequested, [&] { stopAndFinish(kExitOk); });
    QTimer limit;
    if (forSec) {
        limit.setSingleShot(true);
        limit.callOnTimeout([&] { stopAndFinish(kExitOk); });
        limit.start(int(*forSec * 1000));
    }

    Cli::out(QStringLiteral("started\t") + station.id);
    Cli::waitUntilDone(finished);
    // The last song is finalised and saved after the stop; wait for it and every other save.
    while (!session->isIdle())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
    Cli::out(QStringLiteral("stopped\t") + station.id);
    delete session;
    return exitCode;
}

const Cli::Registration registration("record", kUsage, recordCommand);

} // namespace
