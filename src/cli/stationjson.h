#pragma once

#include "stations/station.h"

#include <QJsonObject>

namespace StationJson {

// A station as the command line prints it: the record's own field names.
[[nodiscard]] inline QJsonObject toRecord(const Station &s)
{
    QJsonObject o{
        {QStringLiteral("id"), s.id},
        {QStringLiteral("name"), s.name},
        {QStringLiteral("streamURL"), s.streamUrl},
        {QStringLiteral("country"), s.country},
        {QStringLiteral("bitrate"), double(s.bitrate)},
        {QStringLiteral("codec"), s.codec},
    };
    o.insert(QStringLiteral("favicon"), s.favicon ? QJsonValue(*s.favicon) : QJsonValue());
    o.insert(QStringLiteral("geoLat"), s.geoLat ? QJsonValue(*s.geoLat) : QJsonValue());
    o.insert(QStringLiteral("geoLong"), s.geoLong ? QJsonValue(*s.geoLong) : QJsonValue());
    return o;
}

} // namespace StationJson
