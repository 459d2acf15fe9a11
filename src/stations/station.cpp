#include "stations/station.h"

#include <QUrl>

#include <cmath>

namespace {

std::optional<QString> textOf(const QJsonObject &object, QLatin1StringView key)
{
    const QJsonValue v = object.value(key);
    if (!v.isString())
        return std::nullopt;
    return v.toString();
}

std::optional<qint64> integerOf(const QJsonObject &object, QLatin1StringView key)
{
    const QJsonValue v = object.value(key);
    if (!v.isDouble())
        return std::nullopt;
    const double d = v.toDouble();
    // A fractional or out-of-range number is not an integer.
    if (!std::isfinite(d) || d != std::floor(d) || std::fabs(d) > 9.0e15)
        return std::nullopt;
    return qint64(d);
}

} // namespace

namespace StationJson {

QString trimBlanks(const QString &text)
{
    qsizetype begin = 0;
    qsizetype end = text.size();
    auto blank = [](QChar c) { return c == QLatin1Char(' ') || c == QLatin1Char('\t'); };
    while (begin < end && blank(text[begin]))
        ++begin;
    while (end > begin && blank(text[end - 1]))
        --end;
    return text.mid(begin, end - begin);
}

std::optional<double> parseCoord(const QJsonValue &value)
{
    if (value.isDouble()) {
        const double d = value.toDouble();
        return std::isfinite(d) ? std::optional<double>(d) : std::nullopt;
    }
    if (value.isString()) {
        const QString text = value.toString();
        // toDouble() would skip surrounding white space; the whole text must be the number.
        if (text.isEmpty() || text.front().isSpace() || text.back().isSpace())
            return std::nullopt;
        bool ok = false;
        const double d = text.toDouble(&ok);
        if (ok && std::isfinite(d))
            return d;
    }
    return std::nullopt;
}

} // namespace StationJson

std::optional<Station> Station::json(const QJsonObject &object)
{
    const auto uuid = textOf(object, QLatin1StringView("stationuuid"));
    if (!uuid || uuid->isEmpty())
        return std::nullopt;

    const auto rawName = textOf(object, QLatin1StringView("name"));
    if (!rawName)
        return std::nullopt;
    const QString name = StationJson::trimBlanks(*rawName);
    if (name.isEmpty())
        return std::nullopt;

    // "url_resolved" wins whenever it is a text, even an empty one (which rejects the
    // station instead of falling back to "url").
    auto url = textOf(object, QLatin1StringView("url_resolved"));
    if (!url)
        url = textOf(object, QLatin1StringView("url"));
    if (!url || url->isEmpty())
        return std::nullopt;

    Station s;
    s.id = *uuid;
    s.name = name;
    s.streamUrl = *url;
    s.country = textOf(object, QLatin1StringView("country")).value_or(QString());
    s.bitrate = integerOf(object, QLatin1StringView("bitrate")).value_or(0);
    s.codec = textOf(object, QLatin1StringView("codec")).value_or(QString());
    if (auto favicon = textOf(object, QLatin1StringView("favicon")); favicon && !favicon->isEmpty())
        s.favicon = *favicon;
    s.geoLat = StationJson::parseCoord(object.value(QLatin1StringView("geo_lat")));
    s.geoLong = StationJson::parseCoord(object.value(QLatin1StringView("geo_long")));
    return s;
}

Station Station::custom(const QString &customUrl, const QString &name)
{
    Station s;
    s.id = QStringLiteral("custom:") + customUrl;
    s.streamUrl = customUrl;
    s.name = name;
    if (s.name.isEmpty()) {
        const QUrl url(customUrl, QUrl::StrictMode);
        const QString host = url.isValid() ? url.host() : QString();
        s.name = host.isEmpty() ? QStringLiteral("Eigener Sender") : host;
    }
    return s;
}

QJsonObject Station::storedObject() const
{
    QJsonObject o{
        {QStringLiteral("stationuuid"), id},
        {QStringLiteral("name"), name},
        {QStringLiteral("url_resolved"), streamUrl},
        {QStringLiteral("country"), country},
        {QStringLiteral("bitrate"), double(bitrate)},
        {QStringLiteral("codec"), codec},
    };
    if (favicon)
        o.insert(QStringLiteral("favicon"), *favicon);
    if (geoLat)
        o.insert(QStringLiteral("geo_lat"), *geoLat);
    if (geoLong)
        o.insert(QStringLiteral("geo_long"), *geoLong);
    return o;
}

size_t qHash(const Station &s, size_t seed)
{
    return qHashMulti(seed, s.id, s.name, s.streamUrl, s.country, s.bitrate, s.codec, s.favicon.value_or(QString()),
                      s.geoLat.value_or(0.0), s.geoLong.value_or(0.0));
}
