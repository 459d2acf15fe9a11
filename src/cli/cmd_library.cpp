#include "cli/cli.h"

#include "library/librarystore.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>

namespace {

const char kUsage[] = "library list [--json]";

QJsonValue optionalText(const std::optional<QString> &text)
{
    return text ? QJsonValue(*text) : QJsonValue(QJsonValue::Null);
}

QJsonObject trackObject(const Track &t)
{
    return QJsonObject{
        {QStringLiteral("id"), t.id},
        {QStringLiteral("title"), t.title},
        {QStringLiteral("artist"), t.artist},
        {QStringLiteral("album"), t.album},
        {QStringLiteral("duration"), t.duration},
        {QStringLiteral("source"), t.source},
        {QStringLiteral("station"), optionalText(t.station)},
        {QStringLiteral("filePath"), optionalText(t.filePath)},
        {QStringLiteral("dateAdded"),
         t.dateAdded.isValid() ? QJsonValue(t.dateAdded.toString(Qt::ISODateWithMs)) : QJsonValue(QJsonValue::Null)},
        {QStringLiteral("genre"), t.genre},
        {QStringLiteral("playCount"), t.playCount},
        {QStringLiteral("isFavorite"), t.isFavorite},
    };
}

// One field of a tab-separated line: a tab or line break inside a title must not split it.
QString field(const QString &text)
{
    QString flat = text;
    for (QChar &c : flat) {
        if (c == u'\t' || c == u'\n' || c == u'\r')
            c = u' ';
    }
    return flat;
}

int list(const CliArgs &args)
{
    const QString path = LibraryStore::defaultPath();
    QList<Track> tracks;
    // Listing must not create a library where there is none.
    if (QFileInfo::exists(path)) {
        LibraryOpenResult opened = LibraryStore::open(path);
        if (!opened)
            return Cli::fail(opened.message);
        tracks = opened.store->allTracks();
        if (!opened.store->lastError().isEmpty())
            return Cli::fail(QStringLiteral("cannot read %1: %2").arg(path, opened.store->lastError()));
    }
    if (args.json) {
        QJsonArray array;
        for (const Track &t : std::as_const(tracks))
            array.append(trackObject(t));
        Cli::printJson(array);
        return kExitOk;
    }
    for (const Track &t : std::as_const(tracks)) {
        Cli::out(QStringList{field(t.title), field(t.artist), field(t.album), t.formattedDuration(), field(t.source),
                             field(t.station.value_or(QString())), field(t.filePath.value_or(QString()))}
                     .join(u'\t'));
    }
    return kExitOk;
}

int libraryCommand(CliServices &, const QStringList &args)
{
    const QString usage = QString::fromLatin1(kUsage);
    if (args.isEmpty())
        return Cli::usageError(usage, QStringLiteral("missing sub-command"));
    const QString sub = args.first();
    if (sub == QLatin1String("list")) {
        QString error;
        const std::optional<CliArgs> parsed = Cli::parse(args.mid(1), {}, true, 0, 0, &error);
        if (!parsed)
            return Cli::usageError(usage, error);
        return list(*parsed);
    }
    return Cli::usageError(usage, QStringLiteral("unknown sub-command '%1'").arg(sub));
}

const Cli::Registration registration("library", kUsage, libraryCommand);

} // namespace
