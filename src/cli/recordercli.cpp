#include "cli/recordercli.h"

#include "cli/cli.h"

#include "engine/radiorecorder.h"
#include "engine/recordingcontext.h"
#include "engine/recordingstats.h"
#include "engine/segmentrecovery.h"
#include "engine/trackinfolookup.h"
#include "library/librarystore.h"

#include <QHash>

#include <memory>
#include "tools/youtubeservice.h"

namespace RecorderCli {

std::optional<Recorder> setUp(CliServices &services, QString *error)
{
    LibraryOpenResult opened = LibraryStore::open(LibraryStore::defaultPath());
    if (!opened) {
        *error = opened.message;
        return std::nullopt;
    }
    LibraryStore &library = *services.make<std::unique_ptr<LibraryStore>>(std::move(opened.store));

    SegmentRecovery::recoverOrphans();

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
    // Each failed attempt says why, so a dead station is not silent until it gives up.
    auto lastAttempt = std::make_shared<QHash<QString, qint64>>();
    QObject::connect(&recorder, &RadioRecorder::sessionStatusChanged,
        [lastAttempt](const QString &stationId, const SessionStatus &status) {
            qint64 &shown = (*lastAttempt)[stationId];
            if (status.state != SessionStatus::State::Reconnecting || status.attempt == shown) {
                if (status.state == SessionStatus::State::Recording)
                    shown = 0;
                return;
            }
            shown = status.attempt;
            Cli::out(QStringLiteral("error\t%1; reconnecting in %2 s (attempt %3 of %4)")
                         .arg(status.reason)
                         .arg(status.reconnectInSec())
                         .arg(status.attempt)
                         .arg(status.maxAttempts));
        });
    QObject::connect(&recorder, &RadioRecorder::trackSaved, [](const QString &, const Track &track) {
        Cli::out(QStringLiteral("saved\t") + track.filePath.value_or(QString()));
    });
    return Recorder { library, recorder };
}

} // namespace RecorderCli
