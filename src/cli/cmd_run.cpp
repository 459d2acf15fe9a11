#include "cli/cli.h"
#include "cli/recordercli.h"
#include "platform/signalwatcher.h"

#include "engine/recorderservices.h"
#include "engine/sniperscheduler.h"
#include "playback/analysisqueue.h"
#include "playback/beatanalysis.h"
#include "playback/loudness.h"
#include "playback/crossfadeplanner.h"

#include <chrono>
#include <cmath>
#include <optional>
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
    SniperScheduler &scheduler = setup->services.startScheduler(options);
    Cli::note(scheduler.loadProblem());
    QObject::connect(&scheduler, &SniperScheduler::storageProblem, [](const QString &line) { Cli::note(line); });
    // Said once: the tick keeps trying and takes over quietly when the other one ends.
    // The scheduler's first tick ran inside startScheduler(), so its answer is read here.
    bool toldWaiting = false;
    auto tellWaiting = [&toldWaiting](bool runs) {
        if (runs || std::exchange(toldWaiting, true))
            return;
        Cli::note(QStringLiteral("another Orvida runs the plans of this data folder; this one records none "
                                 "until it stops"));
    };
    QObject::connect(&scheduler, &SniperScheduler::runsPlansChanged, tellWaiting);
    tellWaiting(scheduler.runsPlans());

    // The library's files, and songs right after they are saved, are analysed for the
    // player's planners at idle priority.
    std::optional<AnalysisQueue> analysis;
    analysis.emplace(setup->library);
    analysis->addAnalyser(QString::fromLatin1(CrossfadePlanner::kAnalysisKind), CrossfadePlanner::analyseForLibrary);
    analysis->addAnalyser(Loudness::kKind, analyseLoudnessJson);
    analysis->addAnalyser(QStringLiteral("beats"), analyseBeatsJson);
    analysis->start();

    SignalWatcher signals;
    bool finished = false;
    QObject::connect(&signals, &SignalWatcher::terminationRequested, [&] { finished = true; });
    Cli::waitUntilDone(finished);

    // The analysis first (it finishes the file it is on), the scheduler, then the last
    // songs saved, then the library closed.
    analysis.reset();
    setup->services.shutDown();
    return kExitOk;
}

const Cli::Registration registration("run", kUsage, runCommand);

} // namespace
