#pragma once

#include <QHash>
#include <QJsonObject>
#include <QJsonValue>
#include <QMetaType>
#include <QString>

#include <optional>

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
