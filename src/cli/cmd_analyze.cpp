#include "cli/cli.h"

#include "library/transitionmode.h"
#include "library/transitionplan.h"
#include "library/transitionsettings.h"
#include "playback/crossfadeplanner.h"
#include "playback/automixplanner.h"
#include "playback/beatanalysis.h"
#include "playback/gaplessplanner.h"
#include "playback/loudness.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>

namespace {

const char kAnalyzeUsage[] = "analyze FILE [--json]";
const char kPlanUsage[] = "plan OUTGOING INCOMING --mode gapless|crossfade|automix [--seconds S] [--json]";

QString curveName(FadeCurve curve)
{
    switch (curve) {
    case FadeCurve::linear:
        return QStringLiteral("linear");
    case FadeCurve::equalPower:
        return QStringLiteral("equalPower");
    case FadeCurve::sCurve:
        return QStringLiteral("sCurve");
    case FadeCurve::hold:
        break;
    }
    return QStringLiteral("hold");
}

// One JSON object, or one "key<TAB>value" line per field with numbers in full precision.
void printFields(const QList<std::pair<QString, QJsonValue>> &fields, bool json)
{
    if (json) {
        QJsonObject o;
        for (const auto &[key, value] : fields)
            o.insert(key, value);
        Cli::printJson(o);
        return;
    }
    for (const auto &[key, value] : fields) {
        const QString text = value.isDouble() ? QString::number(value.toDouble(), 'g', 17) : value.toString();
        Cli::out(key + QLatin1Char('\t') + text);
    }
}

int analyzeCommand(CliServices &, const QStringList &args)
{
    QString error;
    const auto parsed = Cli::parse(args, {}, true, 1, 1, &error);
    if (!parsed)
        return Cli::usageError(QString::fromLatin1(kAnalyzeUsage), error);
    const QString path = QFileInfo(parsed->positional.first()).absoluteFilePath();
    // Straight from the file: a command run once gains nothing from the cache.
    const auto bounds = GaplessPlanner::analyze(path);
    if (!bounds)
        return Cli::fail(
            QStringLiteral("no gapless bounds for %1: not a readable audio file of known length").arg(path));
    QList<std::pair<QString, QJsonValue>> fields = {
        { QStringLiteral("startFrame"), double(bounds->startFrame) },
        { QStringLiteral("endFrame"), double(bounds->endFrame) },
        { QStringLiteral("length"), double(bounds->length) },
        { QStringLiteral("sampleRate"), bounds->sampleRate },
        { QStringLiteral("source"), GaplessPlanner::rawValue(bounds->source) },
    };
    // Integrated LUFS and dBTP; null for a silent file, which has neither.
    const auto loudness = Loudness::analyse(path, &error);
    if (!loudness)
        return Cli::fail(QStringLiteral("cannot measure the loudness of %1: %2").arg(path, error));
    const auto orNull = [](const std::optional<double> &v) { return v ? QJsonValue(*v) : QJsonValue(); };
    fields.append({ QStringLiteral("loudness"), orNull(loudness->integratedLufs) });
    fields.append({ QStringLiteral("truePeak"), orNull(loudness->truePeakDb) });
    // Tempo 0 and no beats when the file has no steady beat.
    if (const std::optional<BeatAnalysis::Grid> grid = BeatAnalysis::analyse(path)) {
        QJsonArray beats;
        for (double b : grid->beats())
            beats.append(b);
        fields.append({ QStringLiteral("tempo"), grid->bpm });
        fields.append({ QStringLiteral("downbeat"), grid->hasTempo() ? grid->beatTime(grid->downbeat) : 0.0 });
        // The list is for JSON readers; text output gives the grid it is made from.
        if (parsed->json)
            fields.append({ QStringLiteral("beats"), beats });
        else
            fields.append({ QStringLiteral("firstBeat"), grid->firstBeat });
    }
    printFields(fields, parsed->json);
    return kExitOk;
}

int planCommand(CliServices &, const QStringList &args)
{
    QString error;
    const auto parsed = Cli::parse(args, { QStringLiteral("mode"), QStringLiteral("seconds") }, true, 2, 2, &error);
    if (!parsed)
        return Cli::usageError(QString::fromLatin1(kPlanUsage), error);
    const auto mode = TransitionModes::fromRawValue(parsed->value(QStringLiteral("mode")));
    if (!mode || *mode == TransitionMode::off)
        return Cli::usageError(
            QString::fromLatin1(kPlanUsage), QStringLiteral("--mode must be gapless, crossfade or automix"));
    std::optional<double> seconds;
    if (parsed->has(QStringLiteral("seconds"))) {
        bool ok = false;
        seconds = parsed->value(QStringLiteral("seconds")).toDouble(&ok);
        if (!ok || !(*seconds > 0))
            return Cli::usageError(
                QString::fromLatin1(kPlanUsage), QStringLiteral("--seconds must be a positive number"));
    }
    const QString outgoing = QFileInfo(parsed->positional.at(0)).absoluteFilePath();
    const QString incoming = QFileInfo(parsed->positional.at(1)).absoluteFilePath();
    std::optional<TransitionPlan> plan;
    if (*mode == TransitionMode::gapless)
        plan = GaplessPlanner::planNow(outgoing, incoming);
    if (*mode == TransitionMode::crossfade) {
        // Without --seconds, the length the user chose for the player.
        const double length = seconds ? *seconds : double(TransitionSettings().crossfadeSeconds());
        plan = CrossfadePlanner::planNow(outgoing, incoming, length);
    }
    if (*mode == TransitionMode::automix) {
        const double length = seconds ? *seconds : double(TransitionSettings::readAutomixSeconds());
        plan = AutoMixPlanner::plan(outgoing, incoming, length).result();
    }
    if (!plan)
        return Cli::fail(QStringLiteral("no plan"));
    const TransitionPlan p = sanitized(*plan);
    QList<std::pair<QString, QJsonValue>> fields = {
        { QStringLiteral("outgoingStart"), p.outgoingStart },
        { QStringLiteral("outgoingEnd"), p.outgoingEnd },
        { QStringLiteral("incomingStart"), p.incomingStart },
        { QStringLiteral("fadeDuration"), p.fadeDuration },
        { QStringLiteral("fadeOut"), curveName(p.fadeOut) },
        { QStringLiteral("fadeIn"), curveName(p.fadeIn) },
        { QStringLiteral("incomingRate"), p.incomingRate },
        { QStringLiteral("rateReturnDuration"), p.rateReturnDuration },
    };
    if (p.bassSwapAt)
        fields.append({ QStringLiteral("bassSwapAt"), *p.bassSwapAt });
    printFields(fields, parsed->json);
    return kExitOk;
}

const Cli::Registration analyzeRegistration("analyze", kAnalyzeUsage, analyzeCommand);
const Cli::Registration planRegistration("plan", kPlanUsage, planCommand);

} // namespace
