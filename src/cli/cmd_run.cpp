#include "cli/cli.h"
#include "cli/recordercli.h"
#include "cli/signalwatcher.h"

#include "engine/closedlidkeeper.h"
#include "engine/radiorecorder.h"
#include "engine/sleepguard.h"
#include "engine/sniperscheduler.h"
#include "platform/dbuslink.h"

#include <chrono>
#include <cmath>
#include <utility>

namespace {

const char kUsage[] = "run [--tick SECONDS]";

int runCommand(CliServices &services, const QStringList &args)
{
    const QString usage = QString::fromLatin1(kUsage);
    QString error;
    const auto parsed = Cli::parse(args, { QStringLiteral("tick") }, false, 0, 0, &error);
    if (!parsed)
        return Cli::usageError(usage, error);
    SniperScheduler::Options options;
    if (parsed->has(QStringLiteral("tick"))) {
        bool ok = false;
        const double tickSec = parsed->value(QStringLiteral("tick")).toDouble(&ok);
        if (!ok || !std::isfinite(tickSec) || tickSec < 0.01 || tickSec > 3600)
            return Cli::usageError(usage, QStringLiteral("--tick takes 0.01 to 3600 seconds"));
        options.tickInterval = std::chrono::milliseconds(std::llround(tickSec * 1000));
    }

    const auto setup = RecorderCli::setUp(services, &error);
    if (!setup)
        return Cli::fail(error);
    RadioRecorder &recorder = setup->recorder;

    // A laptop recording headless must not doze off in a window; on a server without
    // buses nothing is held and nothing waits.
    DBusLink systemBus(DBusLink::systemBusAddress(), QStringLiteral("system"));
    DBusLink sessionBus(DBusLink::sessionBusAddress(), QStringLiteral("session"));
    SleepGuard sleepGuard(systemBus, sessionBus,
        [&recorder](std::function<void()> done) { SleepGuard::flushSessions(recorder.sessions(), std::move(done)); });
    QObject::connect(&recorder, &RadioRecorder::sessionsChanged, &sleepGuard,
        [&] { sleepGuard.setRecording(!recorder.sessions().isEmpty()); });
    ClosedLidKeeper lidKeeper(systemBus);
    options.closedLidKeeper = &lidKeeper;
    auto scheduler = std::make_unique<SniperScheduler>(sleepGuard, options);
    Cli::note(scheduler->loadProblem());
    QObject::connect(scheduler.get(), &SniperScheduler::storageProblem, [](const QString &line) { Cli::note(line); });
    // Said once: the tick keeps trying and takes over quietly when the other one ends.
    bool toldWaiting = false;
    QObject::connect(scheduler.get(), &SniperScheduler::runsPlansChanged, [&toldWaiting](bool runs) {
        if (runs || std::exchange(toldWaiting, true))
            return;
        Cli::note(QStringLiteral("another Orvida runs the plans of this data folder; this one records none "
                                 "until it stops"));
    });
    scheduler->configure(recorder, setup->library);

    SignalWatcher signals;
    bool finished = false;
    QObject::connect(&signals, &SignalWatcher::terminationRequested, [&] { finished = true; });
    Cli::waitUntilDone(finished);

    // No tick may start anything while the last songs are being saved.
    scheduler.reset();
    recorder.stop();
    recorder.waitForSaves();
    return kExitOk;
}

const Cli::Registration registration("run", kUsage, runCommand);

} // namespace
