#include "cli/cli.h"

#include "engine/enginesettingsstore.h"


namespace {

const char kUsage[] =
    "engine show [--station ID] [--json]\n"
    "engine set [--station ID] [--lead-in N] [--lead-out N] [--min-duration N] [--skip-jingles on|off] [--lossless on|off]\n"
    "engine reset --station ID";

std::optional<bool> onOff(const QString &value)
{
    if (value == QLatin1String("on"))
        return true;
    if (value == QLatin1String("off"))
        return false;
    return std::nullopt;
}

int engineCommand(CliServices &, const QStringList &args)
{
    const QString usage = QString::fromLatin1(kUsage);
    if (args.isEmpty())
        return Cli::usageError(usage, QStringLiteral("missing sub-command"));
    const QString sub = args.first();
    const QString station = QStringLiteral("station");
    QString error;
    EngineSettingsStore store;

    if (sub == QLatin1String("show")) {
        const auto parsed = Cli::parse(args.mid(1), {station}, true, 0, 0, &error);
        if (!parsed)
            return Cli::usageError(usage, error);
        const RadioEngineSettings s = parsed->has(station) ? store.settings(parsed->value(station)) : store.global();
        if (parsed->json) {
            Cli::out(QString::fromUtf8(s.toJson())); // the record's own key order
        } else {
            Cli::out(QStringLiteral("leadInSec\t%1").arg(s.leadInSec));
            Cli::out(QStringLiteral("leadOutSec\t%1").arg(s.leadOutSec));
            Cli::out(QStringLiteral("minDurationSec\t%1").arg(s.minDurationSec));
            Cli::out(QStringLiteral("skipJingles\t%1").arg(s.skipJingles ? "on" : "off"));
            Cli::out(QStringLiteral("lossless\t%1").arg(s.lossless ? "on" : "off"));
            if (parsed->has(station))
                Cli::out(QStringLiteral("override\t%1").arg(store.hasOverride(parsed->value(station)) ? "yes" : "no"));
        }
        return kExitOk;
    }

    if (sub == QLatin1String("set")) {
        const QStringList valued{station, QStringLiteral("lead-in"), QStringLiteral("lead-out"), QStringLiteral("min-duration"),
                                 QStringLiteral("skip-jingles"), QStringLiteral("lossless")};
        const auto parsed = Cli::parse(args.mid(1), valued, false, 0, 0, &error);
        if (!parsed)
            return Cli::usageError(usage, error);
        // Unnamed fields keep the value of the record in force for that scope.
        RadioEngineSettings s = parsed->has(station) ? store.settings(parsed->value(station)) : store.global();
        for (const auto &[option, field] : {std::pair{QStringLiteral("lead-in"), &s.leadInSec},
                                           std::pair{QStringLiteral("lead-out"), &s.leadOutSec},
                                           std::pair{QStringLiteral("min-duration"), &s.minDurationSec}}) {
            if (!parsed->has(option))
                continue;
            bool ok = false;
            *field = parsed->value(option).toLongLong(&ok);
            if (!ok)
                return Cli::usageError(usage, QStringLiteral("--%1 takes a whole number of seconds").arg(option));
        }
        for (const auto &[option, field] : {std::pair{QStringLiteral("skip-jingles"), &s.skipJingles},
                                           std::pair{QStringLiteral("lossless"), &s.lossless}}) {
            if (!parsed->has(option))
                continue;
            const auto value = onOff(parsed->value(option));
            if (!value)
                return Cli::usageError(usage, QStringLiteral("--%1 takes on or off").arg(option));
            *field = *value;
        }
        const StateResult written
            = parsed->has(station) ? store.setStation(parsed->value(station), s) : store.setGlobal(s);
        Cli::note(written.notice);
        if (!written)
            return Cli::fail(written.error);
        return kExitOk;
    }

    if (sub == QLatin1String("reset")) {
        const auto parsed = Cli::parse(args.mid(1), {station}, false, 0, 0, &error);
        if (!parsed)
            return Cli::usageError(usage, error);
        if (!parsed->has(station))
            return Cli::usageError(usage, QStringLiteral("reset needs --station"));
        const StateResult written = store.resetStation(parsed->value(station));
        Cli::note(written.notice);
        if (!written)
            return Cli::fail(written.error);
        return kExitOk;
    }
    return Cli::usageError(usage, QStringLiteral("unknown sub-command '%1'").arg(sub));
}

const Cli::Registration registration("engine", kUsage, engineCommand);

} // namespace
