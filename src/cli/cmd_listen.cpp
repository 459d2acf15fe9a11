#include "cli/audiooutput.h"
#include "cli/cli.h"
#include "cli/recordercli.h"

#include "engine/radiorecorder.h"
#include "engine/recorderservices.h"
#include "engine/stationlistener.h"
#include "library/librarystore.h"
#include "library/transitionsettings.h"
#include "platform/longtimer.h"
#include "platform/signalwatcher.h"
#include "playback/audioengine.h"
#include "playback/player.h"

#include <QCoreApplication>
#include <QEventLoop>

#include <chrono>
#include <cmath>
#include <memory>

// `listen`: the station through the relay into the player's live mode, with the titles
// and an optional save of the song playing at --save-at.
//
// The player and the capture are separate connections. When the player cannot play the
// stream but the capture still reads it, listening goes on: the titles keep coming and
// a save asked for is still made, since that is often what a headless listener is for.
// The failure is an error line at once and exit status 1 at the end, because playing was
// what the command was asked to do. No audio device is no failure: the null output plays.
//
// Exit: 0 after --for or a signal; 3 when the station's stream is lost ("Stream
// unterbrochen") or the address is none; 1 when the song asked for was not saved or the
// player could not play.
namespace {

const char kUsage[] = "listen URL [--name NAME] [--for SECONDS] [--save-at SECONDS]";

std::optional<double> seconds(const CliArgs &args, const QString &name, bool allowZero)
{
    bool ok = false;
    const double value = args.value(name).toDouble(&ok);
    if (!ok || !std::isfinite(value) || value < 0 || (!allowZero && value == 0))
        return std::nullopt;
    return value;
}

std::chrono::milliseconds toMs(double sec)
{
    return std::chrono::milliseconds(qint64(std::min(sec * 1000, 1e15)));
}

int listenCommand(CliServices &services, const QStringList &args)
{
    const QString usage = QString::fromLatin1(kUsage);
    QString error;
    const auto parsed = Cli::parse(
        args, { QStringLiteral("name"), QStringLiteral("for"), QStringLiteral("save-at") }, false, 1, 1, &error);
    if (!parsed)
        return Cli::usageError(usage, error);
    std::optional<double> forSec;
    if (parsed->has(QStringLiteral("for")) && !(forSec = seconds(*parsed, QStringLiteral("for"), false)))
        return Cli::usageError(usage, QStringLiteral("--for takes a positive number of seconds"));
    std::optional<double> saveAt;
    if (parsed->has(QStringLiteral("save-at")) && !(saveAt = seconds(*parsed, QStringLiteral("save-at"), true)))
        return Cli::usageError(usage, QStringLiteral("--save-at takes a number of seconds"));
    if (saveAt && forSec && *saveAt >= *forSec)
        return Cli::usageError(usage, QStringLiteral("--save-at must come before --for ends"));
    const Station station = Station::custom(parsed->positional[0], parsed->value(QStringLiteral("name")));

    const auto setup = RecorderCli::setUp(services, &error);
    if (!setup)
        return Cli::fail(error);

    AudioEngine::Options options;
    const auto engine = startAudioOutput(options, &error);
    if (!engine)
        return Cli::fail(error);
    TransitionSettings settings;
    Player player(*engine, settings, nullptr);
    StationListener listener(setup->services.context(), &setup->library);

    bool finished = false;
    int exitCode = kExitOk;
    auto finish = [&](int code) {
        if (finished)
            return;
        finished = true;
        exitCode = code;
    };
    bool saveAsked = false;
    int saved = 0;
    QString playerFailure;

    QObject::connect(&listener, &StationListener::titleChanged, [](const QString &title) {
        if (!title.isEmpty())
            Cli::out(QStringLiteral("title\t") + title);
    });
    QObject::connect(
        &listener, &StationListener::streamReady, &player, [&player](const QUrl &url) { player.playLive(url); });
    QObject::connect(&listener, &StationListener::streamFailed, [&](const QString &message) {
        Cli::out(QStringLiteral("error\t") + message);
        finish(kExitGaveUp);
    });
    QObject::connect(&player, &Player::liveFailed, [&](const QString &reason) {
        if (finished)
            return;
        playerFailure = reason;
        Cli::out(QStringLiteral("error\tthe player cannot play the stream: ") + reason);
    });
    QObject::connect(&listener, &StationListener::songSaved, [&](const Track &track) {
        ++saved;
        Cli::out(QStringLiteral("saved\t") + track.filePath.value_or(QString()));
    });
    QObject::connect(&listener, &StationListener::songSkipped, [](const QString &title, const QString &reason) {
        Cli::out(QStringLiteral("error\t\"%1\" not saved: %2").arg(title, reason));
    });
    QObject::connect(&listener, &StationListener::saveFailed,
        [](const QString &message) { Cli::out(QStringLiteral("error\t") + message); });

    SignalWatcher signals;
    QObject::connect(&signals, &SignalWatcher::terminationRequested, [&] { finish(kExitOk); });

    // After --for, an armed song is waited for until its save is back (it ends at the next
    // title), but no longer than a song is ever kept while listening.
    bool timeUp = false;
    LongTimer grace;
    auto endIfIdle = [&] {
        const auto state = listener.saveState();
        if (timeUp && state != StationListener::SaveState::armed && state != StationListener::SaveState::saving)
            finish(kExitOk);
    };
    QObject::connect(&listener, &StationListener::saveStateChanged, endIfIdle);
    QObject::connect(&grace, &LongTimer::timeout, [&] { finish(kExitOk); });
    LongTimer limit;
    QObject::connect(&limit, &LongTimer::timeout, [&] {
        timeUp = true;
        grace.start(toMs(StationListener::kMaxSongSeconds));
        endIfIdle();
    });
    if (forSec)
        limit.start(toMs(*forSec));
    LongTimer saveTimer;
    QObject::connect(&saveTimer, &LongTimer::timeout, [&] {
        saveAsked = true;
        QString why;
        if (!listener.saveCurrentSong(&why))
            Cli::out(QStringLiteral("error\t\"%1\" not saved: %2").arg(listener.title(), why));
    });
    if (saveAt)
        saveTimer.start(toMs(*saveAt));

    listener.start(station);
    Cli::waitUntilDone(finished);
    player.stopLive();
    listener.stop();
    // The armed song's outcome and a save still running come back on this thread.
    while (listener.hasPendingSaves() || setup->recorder.hasPendingSaves())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
    engine->stop();

    if (exitCode != kExitOk)
        return exitCode;
    if (saveAsked && saved == 0)
        return Cli::fail(QStringLiteral("the song playing at %1 s was not saved (see the error lines)")
                             .arg(parsed->value(QStringLiteral("save-at"))));
    if (!playerFailure.isEmpty())
        return Cli::fail(QStringLiteral("the player could not play the stream: ") + playerFailure);
    return kExitOk;
}

const Cli::Registration registration("listen", kUsage, listenCommand);

} // namespace
