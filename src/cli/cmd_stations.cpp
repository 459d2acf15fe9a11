#include "cli/cli.h"
#include "cli/stationjson.h"

#include "engine/streamtitlepoller.h"
#include "engine/tracktitle.h"
#include "stations/directoryapi.h"

#include <QJsonArray>

namespace {

// Directory fields are the directory's text: a tab or a line break in one would forge
// fields and lines of our output.
void printStationLine(const Station &s)
{
    QStringList fields{s.name, s.country, s.codec, QString::number(s.bitrate), s.streamUrl, s.id};
    for (QString &field : fields)
        field = TrackTitle::withoutControlCharacters(field);
    Cli::out(fields.join(QLatin1Char('\t')));
}

const char kSearchUsage[] = "search QUERY [--json]";

int searchCommand(CliServices &services, const QStringList &args)
{
    QString error;
    const auto parsed = Cli::parse(args, {}, true, 1, 1, &error);
    if (!parsed)
        return Cli::usageError(QString::fromLatin1(kSearchUsage), error);
    const QString query = parsed->positional[0].trimmed();
    if (query.isEmpty())
        return Cli::usageError(QString::fromLatin1(kSearchUsage), QStringLiteral("the query is empty"));

    const auto page = Cli::await<std::optional<QList<Station>>>([&](QObject *context, auto deliver) {
        DirectoryApi::fetchPage(services.http(), DirectoryApi::baseUrl(), query, 0, context, deliver);
    });
    if (!page)
        return Cli::fail(QStringLiteral("the station directory did not answer with a station list"));
    if (parsed->json) {
        QJsonArray array;
        for (const Station &s : *page)
            array.append(StationJson::toRecord(s));
        Cli::printJson(array);
    } else {
        for (const Station &s : *page)
            printStationLine(s);
    }
    return kExitOk;
}

const char kRandomUsage[] = "random [--tag GENRE] [--json]";

int randomCommand(CliServices &services, const QStringList &args)
{
    QString error;
    const auto parsed = Cli::parse(args, {QStringLiteral("tag")}, true, 0, 0, &error);
    if (!parsed)
        return Cli::usageError(QString::fromLatin1(kRandomUsage), error);
    const auto station = Cli::await<std::optional<Station>>([&](QObject *context, auto deliver) {
        DirectoryApi::randomStation(services.http(), DirectoryApi::baseUrl(), parsed->value(QStringLiteral("tag")),
                                    context, deliver);
    });
    if (!station)
        return Cli::fail(QStringLiteral("the station directory returned no station"));
    if (parsed->json)
        Cli::printJson(StationJson::toRecord(*station));
    else
        printStationLine(*station);
    return kExitOk;
}

const char kProbeUsage[] = "probe URL";

int probeCommand(CliServices &services, const QStringList &args)
{
    QString error;
    const auto parsed = Cli::parse(args, {}, false, 1, 1, &error);
    if (!parsed)
        return Cli::usageError(QString::fromLatin1(kProbeUsage), error);
    const bool icy = Cli::await<bool>([&](QObject *context, auto deliver) {
        DirectoryApi::checkIcy(services.http(), parsed->positional[0], context, deliver);
    });
    Cli::out(icy ? QStringLiteral("icy") : QStringLiteral("no-icy"));
    return kExitOk;
}

const char kTitleUsage[] = "title URL";

int titleCommand(CliServices &services, const QStringList &args)
{
    QString error;
    const auto parsed = Cli::parse(args, {}, false, 1, 1, &error);
    if (!parsed)
        return Cli::usageError(QString::fromLatin1(kTitleUsage), error);
    const auto title = Cli::await<std::optional<QString>>([&](QObject *context, auto deliver) {
        StreamTitlePoller::fetchTitle(services.http(), parsed->positional[0], context, deliver);
    });
    if (!title || title->isEmpty())
        return Cli::fail(QStringLiteral("the stream announced no title"));
    Cli::out(TrackTitle::withoutControlCharacters(*title));
    return kExitOk;
}

const Cli::Registration searchRegistration("search", kSearchUsage, searchCommand);
const Cli::Registration randomRegistration("random", kRandomUsage, randomCommand);
const Cli::Registration probeRegistration("probe", kProbeUsage, probeCommand);
const Cli::Registration titleRegistration("title", kTitleUsage, titleCommand);

} // namespace
