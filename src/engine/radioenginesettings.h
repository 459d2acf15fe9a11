#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QLatin1String>
#include <QMap>
#include <QString>

#include <optional>

// How one station is recorded: padding around a title change, the shortest song worth
// keeping, jingle skipping and the save quality. There is one global record and optionally
// one override per station, both kept as JSON in the preferences ("ov.engine.global",
// "ov.engine.stations").
//
// A plain value; the static loaders only read the preferences and decode, so a recording
// session calls effective() from its own thread, fresh before every song, and a change
// made in the settings screen reaches the next song of a running recording.
struct RadioEngineSettings {
    static constexpr qint64 kMaxLeadSec = 30;
    static constexpr qint64 kMaxMinDurationSec = 600;

    qint64 leadInSec = 0; // audio kept before a title change, at the start of the next song
    qint64 leadOutSec = 0; // audio kept after a title change, at the end of the previous song
    qint64 minDurationSec = 45; // songs not longer than this are dropped
    bool skipJingles = true; // drop titles that look like station IDs, jingles or ads
    bool lossless = false; // save in the lossless quality instead of the normal one

    [[nodiscard]] static RadioEngineSettings standard() { return {}; }

    // Lenient decoding: every key may be missing (or null) and then takes its default;
    // a present key of the wrong type, including a fractional number or one beyond 64 bits
    // where an integer belongs, fails the whole record. Unknown keys are ignored.
    [[nodiscard]] static std::optional<RadioEngineSettings> fromJson(const QJsonObject &object);
    [[nodiscard]] static std::optional<RadioEngineSettings> fromJson(const QByteArray &bytes);

    // Compact JSON with the keys in field order (QJsonObject would sort them).
    [[nodiscard]] QByteArray toJson() const;

    // Lead times to 0..30 s, the minimum duration to 0..600 s; flags as they are.
    [[nodiscard]] RadioEngineSettings clamped() const;

    // The global record from the preferences, clamped. Missing or undecodable: the
    // standard record, with the legacy "ov.minRecordingDuration" as its minimum when that
    // is 1 or more (taken unclamped, as older versions stored it).
    [[nodiscard]] static RadioEngineSettings loadGlobal();

    // Station id -> override, every record clamped. Missing or undecodable bytes, or a
    // single bad record, give an empty map.
    [[nodiscard]] static QMap<QString, RadioEngineSettings> loadStationOverrides();

    // The record in force for one station: its override as a whole, else the global one.
    // Reads the preferences fresh on every call; safe from any thread.
    [[nodiscard]] static RadioEngineSettings effective(const QString &stationId);

    // The map in "ov.engine.stations" bytes, every record clamped; absent when the bytes
    // or a single record do not decode.
    [[nodiscard]] static std::optional<QMap<QString, RadioEngineSettings>> decodeOverrides(const QByteArray &bytes);

    // The "ov.engine.stations" bytes for a map of overrides (ids in sorted order).
    [[nodiscard]] static QByteArray encodeOverrides(const QMap<QString, RadioEngineSettings> &overrides);

    friend bool operator==(const RadioEngineSettings &, const RadioEngineSettings &) = default;
};

namespace EnginePreferenceKeys {
inline constexpr QLatin1String kGlobal { "ov.engine.global" };
inline constexpr QLatin1String kStations { "ov.engine.stations" };
inline constexpr QLatin1String kMinRecordingDuration { "ov.minRecordingDuration" };
} // namespace EnginePreferenceKeys
