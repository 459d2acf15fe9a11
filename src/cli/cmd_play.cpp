#include "cli/audiooutput.h"
#include "cli/cli.h"

#include "library/transitionmode.h"
#include "library/transitionsettings.h"
#include "platform/signalwatcher.h"
#include "playback/audioengine.h"
#include "playback/crossfadeplanner.h"
#include "playback/loudness.h"
#include "playback/normalisation.h"
#include "playback/automixplanner.h"
#include "playback/player.h"

#include <QtConcurrent>

#include <QFileInfo>

#include <memory>

namespace {

const char kUsage[]
    = "play FILE... [--mode off|gapless|crossfade|automix] [--seconds S] [--render OUT.wav] [--rate HZ] "
      "[--normalise off|track|album]";

QString seconds(double value)
{
    return QString::number(value, 'f', 6);
}

// Files from the command line are tracks outside the library: no id, no play count kept.
QList<Track> tracksOf(const QStringList &paths)
{
    QList<Track> tracks;
    for (const QString &path : paths) {
        const QFileInfo info(path);
        tracks << Track(info.completeBaseName(), QString(), QString(), 0, QDateTime::currentDateTimeUtc(), QString(),
            false, 0, QStringLiteral("file"), std::nullopt, info.absoluteFilePath());
    }
    return tracks;
}

// The event lines of the contract, printed as the player announces them.
void printEvents(Player &player)
{
    QObject::connect(&player, &Player::currentTrackChanged, [](const std::optional<Track> &track, int index) {
        if (track)
            Cli::out(QStringLiteral("track\t%1\t%2").arg(index).arg(track->filePath.value_or(QString())));
    });
    QObject::connect(&player, &Player::transitionStarted, [](TransitionMode mode, const TransitionPlan &plan) {
        Cli::out(QStringLiteral("transition\t%1\t%2\t%3\t%4")
                     .arg(TransitionModes::rawValue(mode), seconds(plan.outgoingStart), seconds(plan.incomingStart),
                         seconds(plan.fadeDuration)));
    });
    QObject::connect(&player, &Player::trackSkipped, [](const Track &track, const QString &reason) {
        Cli::out(QStringLiteral("error\t%1: %2").arg(track.filePath.value_or(track.title), reason));
    });
    QObject::connect(&player, &Player::queueEnded, [] { Cli::out(QStringLiteral("ended")); });
}

int playCommand(CliServices &, const QStringList &args)
{
    QString error;
    const auto parsed = Cli::parse(args, { "mode", "seconds", "render", "rate", "normalise" }, false, 1, 100000, &error);
    if (!parsed)
        return Cli::usageError(QString::fromLatin1(kUsage), error);
    std::optional<TransitionMode> mode;
    if (parsed->has(QStringLiteral("mode"))) {
        mode = TransitionModes::fromRawValue(parsed->value(QStringLiteral("mode")));
        if (!mode)
            return Cli::usageError(QString::fromLatin1(kUsage), QStringLiteral("unknown mode"));
    }
    bool ok = true;
    std::optional<double> seconds;
    std::optional<double> planSeconds;
    if (parsed->has(QStringLiteral("seconds"))) {
        // The length the crossfade and automix planners are asked for.
        const double s = parsed->value(QStringLiteral("seconds")).toDouble(&ok);
        seconds = s;
        if (!ok || !(s > 0))
            return Cli::usageError(QString::fromLatin1(kUsage), QStringLiteral("--seconds needs a positive number"));
        planSeconds = s;
    }
    int rate = 44100;
    if (parsed->has(QStringLiteral("rate"))) {
        rate = parsed->value(QStringLiteral("rate")).toInt(&ok);
        if (!ok || rate < 8000 || rate > 384000)
            return Cli::usageError(QString::fromLatin1(kUsage), QStringLiteral("--rate needs a sample rate in Hz"));
    }
    const bool render = parsed->has(QStringLiteral("render"));
    NormalisationMode normalise = Normalisation::storedMode();
    if (parsed->has(QStringLiteral("normalise"))) {
        const auto chosen = Normalisation::fromRawValue(parsed->value(QStringLiteral("normalise")));
        if (!chosen)
            return Cli::usageError(QString::fromLatin1(kUsage), QStringLiteral("--normalise must be off, track or album"));
        normalise = *chosen;
    }

    AudioEngine::Options options;
    options.sampleRate = rate;
    options.output = render ? AudioEngine::Output::offline : AudioEngine::Output::device;
    const auto engine = startAudioOutput(options, &error);
    if (!engine)
        return Cli::fail(error);
    TransitionSettings settings;
    Player player(*engine, settings, nullptr);
    player.setModeOverride(mode.value_or(settings.mode()));
    player.setPlanner(TransitionMode::crossfade,
        CrossfadePlanner::playerPlanner(nullptr, [seconds, &settings] {
            return seconds ? *seconds : double(settings.crossfadeSeconds());
        }));
    player.setNormalisation(normalise);
    const QList<Track> tracks = tracksOf(parsed->positional);
    if (normalise != NormalisationMode::off) {
        // Files from the command line have no stored analysis: measured here, all at once
        // on the thread pool, before the first one plays. One that cannot be measured
        // plays at its own level (and fails to play anyway when it cannot be decoded).
        const QList<std::pair<QString, std::optional<LoudnessAnalysis>>> measured
            = QtConcurrent::blockingMapped(parsed->positional, [](const QString &path) {
                  const QString absolute = QFileInfo(path).absoluteFilePath();
                  return std::pair { absolute, Loudness::analyse(absolute) };
              });
        auto known = std::make_shared<QHash<QString, LoudnessAnalysis>>();
        for (const auto &[path, analysis] : measured) {
            if (analysis)
                known->insert(path, *analysis);
        }
        player.setLoudnessLookup([known](const QString &path) -> std::optional<LoudnessAnalysis> {
            const auto it = known->constFind(path);
            return it == known->cend() ? std::nullopt : std::optional(*it);
        });
    }
    const double automixSeconds = planSeconds.value_or(double(settings.automixSeconds()));
    player.setPlanner(TransitionMode::automix, [automixSeconds](const Track &from, const Track &to) {
        return AutoMixPlanner::plan(from.filePath.value_or(QString()), to.filePath.value_or(QString()), automixSeconds);
    });
    printEvents(player);
    int played = 0;
    QObject::connect(&player, &Player::currentTrackChanged, [&](const std::optional<Track> &track) {
        if (track)
            ++played;
    });

    int exitCode = kExitOk;
    if (render) {
        player.setQueue(tracks);
        if (!player.renderQueue(parsed->value(QStringLiteral("render")), &error))
            return Cli::fail(QStringLiteral("cannot render: %1").arg(error));
    } else {
        bool done = false;
        SignalWatcher signals;
        QObject::connect(&signals, &SignalWatcher::terminationRequested, [&] {
            player.stop();
            done = true;
        });
        QObject::connect(&player, &Player::queueEnded, [&] { done = true; });
        player.playQueue(tracks);
        if (player.status() == Player::Status::playing)
            Cli::waitUntilDone(done);
        engine->stop();
    }
    if (played == 0)
        exitCode = Cli::fail(QStringLiteral("none of the files could be played"));
    return exitCode;
}

const Cli::Registration registration("play", kUsage, playCommand);

} // namespace
