#include "engine/radioenginesettings.h"

#include "platform/preferences.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonValue>
#include <QVariant>

#include <algorithm>

namespace {

// Qt's parser keeps every whole number that fits 64 bits as an integer ("45", "45.0" and
// "4.5e1" alike) and the rest as doubles; only the former count, so 4.5 or 1e19 fail.
bool isJsonInteger(const QJsonValue &value)
{
    return value.isDouble() && value.toVariant().typeId() == QMetaType::LongLong;
}

// Each reader leaves `out` alone when the key is missing or null and returns false only
// when the key holds a value of another type.
bool readInteger(const QJsonObject &object, QLatin1String key, qint64 &out)
{
    const QJsonValue value = object.value(key);
    if (value.isUndefined() || value.isNull())
        return true;
    if (!isJsonInteger(value))
        return false;
    out = value.toInteger();
    return true;
}

bool readFlag(const QJsonObject &object, QLatin1String key, bool &out)
{
    const QJsonValue value = object.value(key);
    if (value.isUndefined() || value.isNull())
        return true;
    if (!value.isBool())
        return false;
    out = value.toBool();
    return true;
}

std::optional<QJsonObject> parseObject(const QByteArray &bytes)
{
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(bytes, &error);
    if (error.error != QJsonParseError::NoError || !doc.isObject())
        return std::nullopt;
    return doc.object();
}

// A JSON string literal for `text`, escaped the way Qt writes strings.
QByteArray jsonString(const QString &text)
{
    const QByteArray array = QJsonDocument(QJsonArray { text }).toJson(QJsonDocument::Compact);
    return array.mid(1, array.size() - 2);
}

QByteArray jsonFlag(bool flag)
{
    return flag ? QByteArrayLiteral("true") : QByteArrayLiteral("false");
}

} // namespace

std::optional<RadioEngineSettings> RadioEngineSettings::fromJson(const QJsonObject &object)
{
    RadioEngineSettings s;
    const bool ok = readInteger(object, QLatin1String("leadInSec"), s.leadInSec)
        && readInteger(object, QLatin1String("leadOutSec"), s.leadOutSec)
        && readInteger(object, QLatin1String("minDurationSec"), s.minDurationSec)
        && readFlag(object, QLatin1String("skipJingles"), s.skipJingles)
        && readFlag(object, QLatin1String("lossless"), s.lossless);
    if (!ok)
        return std::nullopt;
    return s;
}

std::optional<RadioEngineSettings> RadioEngineSettings::fromJson(const QByteArray &bytes)
{
    const auto object = parseObject(bytes);
    if (!object)
        return std::nullopt;
    return fromJson(*object);
}

QByteArray RadioEngineSettings::toJson() const
{
    return QByteArrayLiteral("{\"leadInSec\":") + QByteArray::number(leadInSec) + QByteArrayLiteral(",\"leadOutSec\":")
        + QByteArray::number(leadOutSec) + QByteArrayLiteral(",\"minDurationSec\":")
        + QByteArray::number(minDurationSec) + QByteArrayLiteral(",\"skipJingles\":") + jsonFlag(skipJingles)
        + QByteArrayLiteral(",\"lossless\":") + jsonFlag(lossless) + '}';
}

RadioEngineSettings RadioEngineSettings::clamped() const
{
    RadioEngineSettings s = *this;
    s.leadInSec = std::clamp<qint64>(leadInSec, 0, kMaxLeadSec);
    s.leadOutSec = std::clamp<qint64>(leadOutSec, 0, kMaxLeadSec);
    s.minDurationSec = std::clamp<qint64>(minDurationSec, 0, kMaxMinDurationSec);
    return s;
}

RadioEngineSettings RadioEngineSettings::loadGlobal()
{
    if (const auto bytes = Preferences::bytes(EnginePreferenceKeys::kGlobal)) {
        if (const auto decoded = fromJson(*bytes))
            return decoded->clamped();
    }
    RadioEngineSettings fallback = standard();
    const auto legacyMinSec = Preferences::integer(EnginePreferenceKeys::kMinRecordingDuration);
    if (legacyMinSec && *legacyMinSec >= 1)
        fallback.minDurationSec = *legacyMinSec;
    return fallback;
}

std::optional<QMap<QString, RadioEngineSettings>> RadioEngineSettings::decodeOverrides(const QByteArray &bytes)
{
    const auto object = parseObject(bytes);
    if (!object)
        return std::nullopt;
    QMap<QString, RadioEngineSettings> overrides;
    for (auto it = object->begin(); it != object->end(); ++it) {
        if (!it.value().isObject())
            return std::nullopt;
        const auto record = fromJson(it.value().toObject());
        if (!record)
            return std::nullopt;
        overrides.insert(it.key(), record->clamped());
    }
    return overrides;
}

QMap<QString, RadioEngineSettings> RadioEngineSettings::loadStationOverrides()
{
    const auto bytes = Preferences::bytes(EnginePreferenceKeys::kStations);
    if (!bytes)
        return {};
    return decodeOverrides(*bytes).value_or(QMap<QString, RadioEngineSettings>());
}

RadioEngineSettings RadioEngineSettings::effective(const QString &stationId)
{
    const QMap<QString, RadioEngineSettings> overrides = loadStationOverrides();
    if (const auto it = overrides.constFind(stationId); it != overrides.constEnd())
        return it.value();
    return loadGlobal();
}

QByteArray RadioEngineSettings::encodeOverrides(const QMap<QString, RadioEngineSettings> &overrides)
{
    QByteArray out = "{";
    for (auto it = overrides.constBegin(); it != overrides.constEnd(); ++it) {
        if (it != overrides.constBegin())
            out += ',';
        out += jsonString(it.key()) + ':' + it.value().toJson();
    }
    out += '}';
    return out;
}
