#include "cli/cli.h"

#include "engine/powerassertion.h"
#include "engine/scheduledrecording.h"
#include "engine/sniperscheduler.h"

namespace {

using Mode = ScheduledRecording::Mode;
using RepeatRule = ScheduledRecording::RepeatRule;

const char kUsage[] = "schedule add URL --name NAME --start TIME --end TIME [--mode splitTracks|fullShow] "
                      "[--repeat none|daily|weekly]\n"
                      "schedule list [--json]\n"
                      "schedule remove ID";

// ISO 8601 with a time of day; without an offset it is local time.
std::optional<QDateTime> timeFrom(const QString &text)
{
    if (text.size() < 16) // a date alone is no window edge
        return std::nullopt;
    const QDateTime time = QDateTime::fromString(text, Qt::ISODateWithMs);
    if (!time.isValid())
        return std::nullopt;
    return time.toUTC();
}

QString localText(const QDateTime &time)
{
    return time.toLocalTime().toOffsetFromUtc(time.toLocalTime().offsetFromUtc()).toString(Qt::ISODate);
}

int add(SniperScheduler &scheduler, const CliArgs &args, const QString &usage)
{
    if (!args.has(QStringLiteral("name")) || !args.has(QStringLiteral("start")) || !args.has(QStringLiteral("end")))
        return Cli::usageError(usage, QStringLiteral("add needs --name, --start and --end"));
    const auto start = timeFrom(args.value(QStringLiteral("start")));
    const auto end = timeFrom(args.value(QStringLiteral("end")));
    if (!start || !end)
        return Cli::usageError(
            usage, QStringLiteral("times are ISO 8601, e.g. 2025-01-05T20:00 or 2025-01-05T20:00+01:00"));
    if (*end <= *start)
        return Cli::usageError(usage, QStringLiteral("--end must be later than --start"));
    Mode mode = Mode::SplitTracks;
    if (args.has(QStringLiteral("mode"))) {
        const auto named = Schedule::modeNamed(args.value(QStringLiteral("mode")));
        if (!named)
            return Cli::usageError(usage, QStringLiteral("--mode is splitTracks or fullShow"));
        mode = *named;
    }
    std::optional<RepeatRule> repeat;
    if (args.has(QStringLiteral("repeat"))) {
        repeat = Schedule::repeatRuleNamed(args.value(QStringLiteral("repeat")));
        if (!repeat)
            return Cli::usageError(usage, QStringLiteral("--repeat is none, daily or weekly"));
    }

    const Station station = Station::custom(args.positional[0], args.value(QStringLiteral("name")));
    ScheduledRecording plan = ScheduledRecording::make(station, *start, *end, mode, repeat);
    if (!plan.station())
        return Cli::usageError(usage, QStringLiteral("the station needs an address and a name"));
    // A repeating plan whose first window is over starts with its next one.
    const auto current = Schedule::advanced(plan, QDateTime::currentDateTimeUtc());
    if (plan.end <= QDateTime::currentDateTimeUtc() && !current)
        return Cli::fail(QStringLiteral("the window ended at %1").arg(localText(plan.end)));
    if (current)
        plan = *current;
    const StateResult added = scheduler.add(plan);
    Cli::note(added.notice);
    if (!added)
        return Cli::fail(added.error);
    Cli::out(plan.id.toString(QUuid::WithoutBraces).toUpper());
    return kExitOk;
}

int list(const SniperScheduler &scheduler, bool json)
{
    if (json) {
        Cli::out(QString::fromUtf8(Schedule::encode(scheduler.items()))); // the file's own objects
        return kExitOk;
    }
    for (const ScheduledRecording &p : scheduler.items()) {
        const QStringList fields {
            p.id.toString(QUuid::WithoutBraces).toUpper(),
            p.stationName,
            localText(p.start),
            localText(p.end),
            Schedule::modeName(p.mode),
            Schedule::repeatRuleName(p.repeatRule.value_or(RepeatRule::None)),
            p.streamUrl,
        };
        Cli::out(fields.join(QLatin1Char('\t')));
    }
    return kExitOk;
}

int scheduleCommand(CliServices &, const QStringList &args)
{
    const QString usage = QString::fromLatin1(kUsage);
    if (args.isEmpty())
        return Cli::usageError(usage, QStringLiteral("missing sub-command"));
    const QString sub = args.first();
    QString error;
    std::optional<CliArgs> parsed;
    if (sub == QLatin1String("add")) {
        parsed = Cli::parse(args.mid(1),
            { QStringLiteral("name"), QStringLiteral("start"), QStringLiteral("end"), QStringLiteral("mode"),
                QStringLiteral("repeat") },
            false, 1, 1, &error);
    } else if (sub == QLatin1String("list")) {
        parsed = Cli::parse(args.mid(1), {}, true, 0, 0, &error);
    } else if (sub == QLatin1String("remove")) {
        parsed = Cli::parse(args.mid(1), {}, false, 1, 1, &error);
    } else {
        return Cli::usageError(usage, QStringLiteral("unknown sub-command '%1'").arg(sub));
    }
    if (!parsed)
        return Cli::usageError(usage, error);

    // Not configured: it reads and writes the file, and records nothing.
    NullPowerAssertion power;
    SniperScheduler scheduler(power);
    Cli::note(scheduler.loadProblem());
    if (sub == QLatin1String("add"))
        return add(scheduler, *parsed, usage);
    if (sub == QLatin1String("list"))
        return list(scheduler, parsed->json);

    const QString idText = parsed->positional[0];
    const QUuid id = QUuid::fromString(idText);
    const bool known = !id.isNull()
        && std::any_of(scheduler.items().cbegin(), scheduler.items().cend(),
            [&](const ScheduledRecording &p) { return p.id == id; });
    if (!known)
        return Cli::fail(QStringLiteral("no plan has the id %1").arg(idText));
    const StateResult removed = scheduler.remove(id);
    Cli::note(removed.notice);
    if (!removed)
        return Cli::fail(removed.error);
    return kExitOk;
}

const Cli::Registration registration("schedule", kUsage, scheduleCommand);

} // namespace
