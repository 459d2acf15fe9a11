#pragma once

#include <QHash>
#include <QJsonObject>
#include <QJsonValue>
#include <QMetaType>
#include <QString>

#include <array>
#include <optional>

// The keys of a directory object that a station is built from, each looked up once
// (lookups dominate the cost of decoding the 3,000-station catalogue). The globe cache
// keeps exactly these keys.
struct StationFields {
    enum Key { StationUuid, Name, UrlResolved, Url, Country, Bitrate, Codec, Favicon, GeoLat, GeoLong, KeyCount };
    static constexpr std::array<QLatin1StringView, KeyCount> kKeys{
        QLatin1StringView("stationuuid"), QLatin1StringView("name"),    QLatin1StringView("url_resolved"),
        QLatin1StringView("url"),         QLatin1StringView("country"), QLatin1StringView("bitrate"),
        QLatin1StringView("codec"),       QLatin1StringView("favicon"), QLatin1StringView("geo_lat"),
        QLatin1StringView("geo_long"),
    };

    // Missing keys are Undefined.
    std::array<QJsonValue, KeyCount> values;

    [[nodiscard]] static StationFields of(const QJsonObject &object);
    [[nodiscard]] const QJsonValue &operator[](Key key) const { return values[key]; }
};

// A radio station as the whole application knows it: search hits, recommendations,
// globe dots, favourites, recents and scheduled recordings all hold this value.
// Identity is `id`: the directory's station UUID, or "custom:" + stream URL for a
// station the user typed in.
struct Station {
    QString id;
    QString name;      // never empty
    QString streamUrl; // never empty
    QString country;   // "" when unknown
    qint64 bitrate = 0; // kbit/s as the directory announces it; 0 when unknown
    QString codec;     // "" when unknown
    std::optional<QString> favicon;
    std::optional<double> geoLat;
    std::optional<double> geoLong;

    // Builds a station from one directory object; absent when the object is unusable.
    // Keys are read with exact types: a key of the wrong type counts as missing.
    [[nodiscard]] static std::optional<Station> json(const QJsonObject &object);
    [[nodiscard]] static std::optional<Station> fromFields(const StationFields &fields);

    // A station the user entered by its stream address. An empty name falls back to the
    // URL's host, then to "Eigener Sender".
    [[nodiscard]] static Station custom(const QString &customUrl, const QString &name);

    // The object favourites and recents store: the directory's key names, so json()
    // reads it back. Optional fields appear only when present.
    [[nodiscard]] QJsonObject storedObject() const;

    [[nodiscard]] bool isCustom() const { return id.startsWith(QStringLiteral("custom:")); }

    friend bool operator==(const Station &, const Station &) = default;
};

namespace StationJson {
// A coordinate from a JSON value: a number, or a text that is a whole decimal float.
[[nodiscard]] std::optional<double> parseCoord(const QJsonValue &value);

// Strips spaces and tabs at both ends, the only blanks station names and search
// queries lose; other white space is kept.
[[nodiscard]] QString trimBlanks(const QString &text);
} // namespace StationJson

size_t qHash(const Station &station, size_t seed = 0);

Q_DECLARE_METATYPE(Station)
