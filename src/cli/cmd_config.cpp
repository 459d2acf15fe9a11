#include "cli/cli.h"

#include "platform/preferences.h"

namespace {

const char kUsage[] = "config get KEY | config set KEY VALUE";

int configCommand(CliServices &, const QStringList &args)
{
    const QString usage = QString::fromLatin1(kUsage);
    if (args.isEmpty())
        return Cli::usageError(usage, QStringLiteral("missing sub-command"));
    const QString sub = args.first();
    QString error;
    if (sub == QLatin1String("get")) {
        const auto parsed = Cli::parse(args.mid(1), {}, false, 1, 1, &error);
        if (!parsed)
            return Cli::usageError(usage, error);
        const QString key = parsed->positional[0];
        const auto value = Preferences::string(key);
        if (!value)
            return Cli::fail(QStringLiteral("%1 is not set").arg(key));
        Cli::out(*value);
        return kExitOk;
    }
    if (sub == QLatin1String("set")) {
        const auto parsed = Cli::parse(args.mid(1), {}, false, 2, 2, &error);
        if (!parsed)
            return Cli::usageError(usage, error);
        const QString key = parsed->positional[0];
        if (!key.startsWith(QLatin1String("ov.")))
            return Cli::usageError(usage, QStringLiteral("preference keys start with \"ov.\""));
        const StateResult written = Preferences::store(key, parsed->positional[1]);
        Cli::note(written.notice);
        if (!written)
            return Cli::fail(written.error);
        return kExitOk;
    }
    return Cli::usageError(usage, QStringLiteral("unknown sub-command '%1'").arg(sub));
}

const Cli::Registration registration("config", kUsage, configCommand);

} // namespace
