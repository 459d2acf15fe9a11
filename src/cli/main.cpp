#include "cli/cli.h"

#include <QCoreApplication>

#include <csignal>
#include <cstdio>

namespace Cli {
// Defined next to the registry.
int dispatch(CliServices &services, const QString &name, const QStringList &args);
} // namespace Cli

namespace {

void printUsage(FILE *to)
{
    std::fprintf(to, "usage: orvida-cli COMMAND [ARGS]\n\ncommands:\n");
    for (const QString &line : Cli::usageLines())
        std::fprintf(to, "  %s\n", qPrintable(line));
}

} // namespace

int main(int argc, char **argv)
{
    // A reader that goes away (`record ... | head`) must not kill a recording: writes to
    // stdout then fail quietly and the work goes on.
    std::signal(SIGPIPE, SIG_IGN);
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("Orvida"));
    QCoreApplication::setOrganizationName(QStringLiteral("Orvida"));

    QStringList args = app.arguments().mid(1);
    if (args.isEmpty()) {
        printUsage(stderr);
        return kExitUsage;
    }
    const QString command = args.takeFirst();
    if (command == QLatin1String("--help") || command == QLatin1String("-h") || command == QLatin1String("help")) {
        printUsage(stdout);
        return kExitOk;
    }
    CliServices services;
    const int code = Cli::dispatch(services, command, args);
    if (code == -1) {
        std::fprintf(stderr, "orvida-cli: unknown command '%s'\n", qPrintable(command));
        printUsage(stderr);
        return kExitUsage;
    }
    return code;
}
