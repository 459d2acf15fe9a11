#include "engine/icecaststatus.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace IcecastStatus {

std::optional<QUrl> statusUrl(const QString &streamUrl)
{
    const QUrl url(streamUrl, QUrl::StrictMode);
    if (!url.isValid() || url.host().isEmpty())
        return std::nullopt;
    QUrl status;
    status.setScheme(url.scheme().isEmpty() ? QStringLiteral("http") : url.scheme());
    status.setHost(url.host());
    status.setPath(QStringLiteral("/status-json.xsl"));
    return status;
}

QString mountPath(const QString &streamUrl)
{
    return QUrl(streamUrl).path();
}

std::optional<QString> titleFor(const QByteArray &statusJson, const QString &mount)
{
    const QJsonDocument doc = QJsonDocument::fromJson(statusJson);
    if (!doc.isObject())
        return std::nullopt;
    const QJsonValue icestats = doc.object().value(QLatin1String("icestats"));
    if (!icestats.isObject())
        return std::nullopt;
    const QJsonValue source = icestats.toObject().value(QLatin1String("source"));
    QJsonArray sources;
    if (source.isObject())
        sources.append(source);
    else if (source.isArray())
        sources = source.toArray();

    for (const QJsonValue &value : sources) {
        const QJsonObject s = value.toObject();
        const QString listenUrl = s.value(QLatin1String("listenurl")).toString();
        const QString sourceMount = s.value(QLatin1String("mount")).toString();
        const bool matches = sourceMount == mount
            || (mount.size() >= 2 && (listenUrl.endsWith(mount) || sourceMount.endsWith(mount)));
        if (!matches && sources.size() != 1)
            continue;
        // The first source taken ends the search, with or without a title.
        const QJsonValue title = s.value(QLatin1String("title"));
        if (title.isString() && !title.toString().isEmpty())
            return title.toString();
        return std::nullopt;
    }
    return std::nullopt;
}

} // namespace IcecastStatus
