#include "cli/cli.h"
#include "cli/stationjson.h"

#include "stations/favoritestations.h"

#include <QJsonArray>

namespace {

const char kUsage[] = "favorites list [--json] | favorites add URL --name NAME | favorites remove ID";

int favoritesCommand(CliServices &, const QStringList &args)
{
    const QString usage = QString::fromLatin1(kUsage);
    if (args.isEmpty())
        return Cli::usageError(usage, QStringLiteral("missing sub-command"));
    const QString sub = args.first();
    QString error;
    FavoriteStations favorites(FavoriteStations::defaultFilePath());
    Cli::note(favorites.loadProblem());

    if (sub == QLatin1String("list")) {
        const auto parsed = Cli::parse(args.mid(1), {}, true, 0, 0, &error);
        if (!parsed)
            return Cli::usageError(usage, error);
        if (parsed->json) {
            QJsonArray array;
            for (const Station &s : favorites.list())
                array.append(StationJson::toRecord(s));
            Cli::printJson(array);
        } else {
            for (const Station &s : favorites.list())
                Cli::out(s.id + QLatin1Char('\t') + s.name + QLatin1Char('\t') + s.streamUrl);
        }
        return kExitOk;
    }
    if (sub == QLatin1String("add")) {
        const auto parsed = Cli::parse(args.mid(1), {QStringLiteral("name")}, false, 1, 1, &error);
        if (!parsed)
            return Cli::usageError(usage, error);
        if (!parsed->has(QStringLiteral("name")))
            return Cli::usageError(usage, QStringLiteral("add needs --name"));
        const Station station = Station::custom(parsed->positional[0], parsed->value(QStringLiteral("name")));
        const StateResult added = favorites.add(station);
        Cli::note(added.notice);
        if (!added)
            return Cli::fail(added.error);
        Cli::out(station.id);
        return kExitOk;
    }
    if (sub == QLatin1String("remove")) {
        const auto parsed = Cli::parse(args.mid(1), {}, false, 1, 1, &error);
        if (!parsed)
            return Cli::usageError(usage, error);
        const QString id = parsed->positional[0];
        if (!favorites.isFavorite(id))
            return Cli::fail(QStringLiteral("no favourite has the id %1").arg(id));
        const StateResult removed = favorites.remove(id);
        Cli::note(removed.notice);
        if (!removed)
            return Cli::fail(removed.error);
        return kExitOk;
    }
    return Cli::usageError(usage, QStringLiteral("unknown sub-command '%1'").arg(sub));
}

const Cli::Registration registration("favorites", kUsage, favoritesCommand);

} // namespace
