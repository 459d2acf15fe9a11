#include "cli/recordercli.h"

#include "cli/cli.h"

#include "engine/radiorecorder.h"
#include "engine/recorderservices.h"
#include "engine/recordingstats.h"
#include "engine/trackinfolookup.h"
#include "library/librarystore.h"
#include "platform/dbuslink.h"
#include "tools/youtubeservice.h"

#include <QHash>

#include <memory>

namespace RecorderCli {

std::optional<Recorder> setUp(CliServices &services, QString *error)
{
    LibraryOpenResult opened = LibraryStore::open(LibraryStore::defaultPath());
    if (!opened) {
        *error = opened.message;
        return std::nullopt;
    }

    // A laptop recording headless must not doze off in a window; on a server without
    // buses nothing is held and nothing waits.
    auto &systemBus = services.make<DBusLink>(DBusLink::systemBusAddress(), QStringLiteral("system"));
    auto &sessionBus = services.make<DBusLink>(DBusLink::sessionBusAddress(), QStringLiteral("session"));
    RecorderServices::Options options;
    options.ffmpegPath = YouTubeService::ffmpegDir() + QStringLiteral("/ffmpeg");
    options.storeBase = TrackInfoLookup::storeBase();
    auto &recording = services.make<RecorderServices>(services.http(), systemBus, sessionBus,
                                                      std::move(opened.store), std::move(options));
    RadioRecorder &recorder = recording.recorder();

    QObject::connect(&recording, &RecorderServices::segmentsRecovered, [](const SegmentRecovery::Result &result) {
        for (const SegmentRecovery::DroppedSegment &dropped : result.dropped)
            Cli::out(QStringLiteral("skipped\t") + dropped.filePath + QLatin1Char('\t') + dropped.reason);
    });
    QObject::connect(&recording, &RecorderServices::libraryProblem,
        [](const QString &line) { Cli::out(QStringLiteral("error\t") + line); });
    QObject::connect(&recording.stats(), &RecordingStats::storageProblem,
        [](const QString &line) { Cli::out(QStringLiteral("error\t") + line); });

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
    return Recorder { *recording.library(), recorder, recording };
}

} // namespace RecorderCli
