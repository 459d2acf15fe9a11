#include "cli/cli.h"

#include "engine/recordingstats.h"

#include <QJsonDocument>
#include <QJsonObject>

namespace {

const char kUsage[] = "stats [--json]";

int statsCommand(CliServices &, const QStringList &args)
{
    QString error;
    const auto parsed = Cli::parse(args, {}, true, 0, 0, &error);
    if (!parsed)
        return Cli::usageError(QString::fromLatin1(kUsage), error);
    RecordingStats stats;
    Cli::note(stats.loadProblem());
    if (parsed->json) {
        QJsonObject o = QJsonDocument::fromJson(stats.toJson()).object();
        o.insert(QStringLiteral("today"), double(stats.todayCount()));
        Cli::printJson(o);
        return kExitOk;
    }
    Cli::out(QStringLiteral("total\t%1").arg(stats.total()));
    Cli::out(QStringLiteral("today\t%1").arg(stats.todayCount()));
    for (auto it = stats.byDay().cbegin(); it != stats.byDay().cend(); ++it)
        Cli::out(QStringLiteral("day\t%1\t%2").arg(it.key()).arg(it.value()));
    for (auto it = stats.byStation().cbegin(); it != stats.byStation().cend(); ++it)
        Cli::out(QStringLiteral("station\t%1\t%2").arg(it.key()).arg(it.value()));
    return kExitOk;
}

const Cli::Registration registration("stats", kUsage, statsCommand);

} // namespace
