#include "cli/recordercli.h"

#include "cli/cli.h"

#include "engine/radiorecorder.h"
#include "engine/recordingcontext.h"
#include "engine/recordingstats.h"
#include "engine/segmentrecovery.h"
#include "engine/trackinfolookup.h"
#include "library/librarystore.h"
#include "tools/youtubeservice.h"

namespace RecorderCli {

namespace {

// What recovery salvaged is filed like a saved song, so the user finds it in the library.
void fileRecovered(const SegmentRecovery::Result &result, LibraryStore &library)
{
    for (const SegmentRecovery::RecoveredSong &song : result.recovered) {
        if (!RadioRecorder::upsertIntoLibrary(SegmentRecovery::toTrack(song), library))
            Cli::out(QStringLiteral("error\t") + song.filePath + QStringLiteral(": not filed into the library: ")
                     + library.lastError());
    }
    for (const SegmentRecovery::DroppedSegment &dropped : result.dropped)
        Cli::out(QStringLiteral("skipped\t") + dropped.filePath + QLatin1Char('\t') + dropped.reason);
}

} // namespace

std::optional<Recorder> setUp(CliServices &services, QString *error)
{
    LibraryOpenResult opened = LibraryStore::open(LibraryStore::defaultPath());
    if (!opened) {
        *error = opened.message;
        return std::nullopt;
    }
    LibraryStore &library = *services.make<std::unique_ptr<LibraryStore>>(std::move(opened.store));

    fileRecovered(SegmentRecovery::recoverOrphans(), library);

    auto &stats = services.make<RecordingStats>();
    auto &context = services.make<RecordingContext>(services.http(), &stats);
    context.storeBase = TrackInfoLookup::storeBase();
    context.ffmpegPath = YouTubeService::ffmpegDir() + QStringLiteral("/ffmpeg");
    // Hidden and for tests only (the soak test stalls streams): ORVIDA_IDLE_TIMEOUT_SEC
    // shortens how long a connected but silent stream is waited for before a reconnect.
    bool ok = false;
    const double idleTimeoutSec = qEnvironmentVariable("ORVIDA_IDLE_TIMEOUT_SEC").toDouble(&ok);
    if (ok && idleTimeoutSec >= 1)
        context.timings.idleTimeoutSec = idleTimeoutSec;
    auto &recorder = services.make<RadioRecorder>(context);

    QObject::connect(&recorder, &RadioRecorder::sessionStarted,
        [](const Station &station) { Cli::out(QStringLiteral("started\t") + station.id); });
    QObject::connect(&recorder, &RadioRecorder::sessionEnded,
        [](const Station &station) { Cli::out(QStringLiteral("stopped\t") + station.id); });
    QObject::connect(&recorder, &RadioRecorder::streamTitleChanged,
        [](const QString &, const QString &title) { Cli::out(QStringLiteral("title\t") + title); });
    QObject::connect(&recorder, &RadioRecorder::sessionErrorChanged,
        [](const QString &, const QString &message) { Cli::out(QStringLiteral("error\t") + message); });
    QObject::connect(&recorder, &RadioRecorder::saveFailed,
        [](const QString &, const QString &message) { Cli::out(QStringLiteral("error\t") + message); });
    QObject::connect(&recorder, &RadioRecorder::saveNotice,
        [](const QString &, const QString &message) { Cli::out(QStringLiteral("error\t") + message); });
    QObject::connect(&recorder, &RadioRecorder::songSkipped, [](const QString &, const QString &title, const QString &why) {
        Cli::out(QStringLiteral("skipped\t") + title + QLatin1Char('\t') + why);
    });
    QObject::connect(&recorder, &RadioRecorder::trackSaved, [](const QString &, const Track &track) {
        Cli::out(QStringLiteral("saved\t") + track.filePath.value_or(QString()));
    });
    return Recorder { library, recorder };
}

} // namespace RecorderCli
