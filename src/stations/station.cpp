#include "stations/station.h"

#include <QUrl>

#include <cmath>

namespace {

std::optional<QString> textOf(const QJsonValue &v)
{
    if (!v.isString())
        return std::nullopt;
    return v.toString();
}

std::optional<qint64> integerOf(const QJsonValue &v)
{
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

StationFields StationFields::of(const QJsonObject &object)
{
    StationFields fields;
    for (int key = 0; key < KeyCount; ++key)
        fields.values[key] = object.value(kKeys[key]);
    return fields;
}

std::optional<Station> Station::json(const QJsonObject &object)
{
    return fromFields(StationFields::of(object));
}

std::optional<Station> Station::fromFields(const StationFields &fields)
{
    using Key = StationFields::Key;
    const auto uuid = textOf(fields[Key::StationUuid]);
    if (!uuid || uuid->isEmpty())
        return std::nullopt;

    const auto rawName = textOf(fields[Key::Name]);
    if (!rawName)
        return std::nullopt;
    const QString name = StationJson::trimBlanks(*rawName);
    if (name.isEmpty())
        return std::nullopt;

    // "url_resolved" wins whenever it is a text, even an empty one (which rejects the
    // station instead of falling back to "url").
    auto url = textOf(fields[Key::UrlResolved]);
    if (!url)
        url = textOf(fields[Key::Url]);
    if (!url || url->isEmpty())
        return std::nullopt;

    Station s;
    s.id = *uuid;
    s.name = name;
    s.streamUrl = *url;
    s.country = textOf(fields[Key::Country]).value_or(QString());
    s.bitrate = integerOf(fields[Key::Bitrate]).value_or(0);
    s.codec = textOf(fields[Key::Codec]).value_or(QString());
    if (auto favicon = textOf(fields[Key::Favicon]); favicon && !favicon->isEmpty())
        s.favicon = *favicon;
    s.geoLat = StationJson::parseCoord(fields[Key::GeoLat]);
    s.geoLong = StationJson::parseCoord(fields[Key::GeoLong]);
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
