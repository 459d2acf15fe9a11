#include "cli/cli.h"

#include "engine/radioplayback.h"
#include "platform/signalwatcher.h"
#include "stations/station.h"
#include "tools/youtubeservice.h"

namespace {

const char kUsage[] = "relay URL";

int relayCommand(CliServices &, const QStringList &args)
{
    const QString usage = QString::fromLatin1(kUsage);
    QString error;
    const auto parsed = Cli::parse(args, {}, false, 1, 1, &error);
    if (!parsed)
        return Cli::usageError(usage, error);
    const QString address = parsed->positional[0];
    if (!RadioPlayback::isRelayableAddress(address))
        return Cli::fail(QStringLiteral("only http and https stream addresses can be relayed: ") + address);

    SignalWatcher signals;
    RadioPlayback relay(YouTubeService::ffmpegDir() + QStringLiteral("/ffmpeg"));
    bool finished = false;
    int exitCode = kExitOk;
    auto finish = [&](int code) {
        if (finished)
            return;
        finished = true;
        exitCode = code;
    };
    QObject::connect(&signals, &SignalWatcher::terminationRequested, [&] { finish(kExitOk); });
    QObject::connect(&relay, &RadioPlayback::ended, [&](const QString &reason) {
        Cli::note(reason.isEmpty() ? QString() : QStringLiteral("ffmpeg: ") + reason);
        Cli::out(QStringLiteral("error\tStream unterbrochen"));
        finish(kExitGaveUp);
    });
    relay.start(Station::custom(address, {}), [&](std::optional<QUrl> url) {
        if (!url) {
            Cli::note(QStringLiteral("the relay could not be started (ffmpeg missing or no local port)"));
            finish(kExitFailure);
            return;
        }
        Cli::out(QStringLiteral("url\t") + url->toString());
    });
    Cli::waitUntilDone(finished);
    return exitCode;
}

const Cli::Registration registration("relay", kUsage, relayCommand);

} // namespace
