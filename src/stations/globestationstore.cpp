#include "stations/globestationstore.h"

#include "platform/atomicfile.h"
#include "platform/paths.h"

#include <QDateTime>
#include <QFuture>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLocale>
#include <QStandardPaths>
#include <QThread>
#include <QtConcurrent/QtConcurrentRun>

#include <cmath>

namespace {

const QString kCacheFileName = QStringLiteral("globe_stations.json");

double nowSec()
{
    return double(QDateTime::currentMSecsSinceEpoch()) / 1000.0;
}

void appendJsonNumber(QByteArray &out, double value)
{
    // Whole numbers as integers, as the directory sends bitrates and votes.
    if (value == std::trunc(value) && std::fabs(value) < 9.0e15)
        out += QByteArray::number(qint64(value));
    else
        out += QByteArray::number(value, 'g', QLocale::FloatingPointShortest);
}

void appendJsonString(QByteArray &out, const QString &text)
{
    static constexpr char kHex[] = "0123456789abcdef";
    const QByteArray utf8 = text.toUtf8();
    out += '"';
    const bool plain = std::none_of(utf8.cbegin(), utf8.cend(), [](char c) {
        return c == '"' || c == '\\' || static_cast<unsigned char>(c) < 0x20;
    });
    if (plain) {
        out += utf8;
        out += '"';
        return;
    }
    for (const char c : utf8) {
        switch (c) {
        case '"': out += "\\\""; break;
        case '\\': out += "\\\\"; break;
        case '\n': out += "\\n"; break;
        case '\r': out += "\\r"; break;
        case '\t': out += "\\t"; break;
        default:
            if (static_cast<unsigned char>(c) < 0x20) {
                out += "\\u00";
                out += kHex[c >> 4];
                out += kHex[c & 0xF];
            } else {
                out += c;
            }
        }
    }
    out += '"';
}

void appendJsonValue(QByteArray &out, const QJsonValue &value)
{
    switch (value.type()) {
    case QJsonValue::String: appendJsonString(out, value.toString()); break;
    case QJsonValue::Double: appendJsonNumber(out, value.toDouble()); break;
    case QJsonValue::Bool: out += value.toBool() ? "true" : "false"; break;
    case QJsonValue::Array: out += QJsonDocument(value.toArray()).toJson(QJsonDocument::Compact); break;
    case QJsonValue::Object: out += QJsonDocument(value.toObject()).toJson(QJsonDocument::Compact); break;
    case QJsonValue::Null:
    case QJsonValue::Undefined: out += "null"; break;
    }
}

// The cache file, written directly rather than through QJsonObject/QJsonDocument:
// building 3,000 small objects that way costs more than parsing the whole catalogue.
class CacheWriter {
public:
    CacheWriter(double fetchedAtSec, qsizetype expectedObjects)
    {
        m_out.reserve(expectedObjects * 320 + 64);
        m_out += "{\"fetchedAt\":";
        appendJsonNumber(m_out, fetchedAtSec);
        m_out += ",\"stations\":[";
    }

    // The keys a station is built from, values as the directory gave them; objects
    // without "stationuuid" or "name" are left out.
    void add(const StationFields &fields)
    {
        if (fields[StationFields::StationUuid].isUndefined() || fields[StationFields::Name].isUndefined())
            return;
        m_out += m_empty ? "{" : ",{";
        m_empty = false;
        bool firstKey = true;
        for (int key = 0; key < StationFields::KeyCount; ++key) {
            const QJsonValue &value = fields.values[key];
            if (value.isUndefined())
                continue;
            m_out += firstKey ? "\"" : ",\"";
            firstKey = false;
            m_out += QByteArrayView(StationFields::kKeys[key].data(), StationFields::kKeys[key].size());
            m_out += "\":";
            appendJsonValue(m_out, value);
        }
        m_out += '}';
    }

    QByteArray finish()
    {
        m_out += "]}";
        return std::move(m_out);
    }

private:
    QByteArray m_out;
    bool m_empty = true;
};

QList<Station> stationsWithPosition(const QList<QJsonObject> &objects)
{
    QList<Station> stations;
    stations.reserve(objects.size());
    for (const QJsonObject &object : objects) {
        auto station = Station::json(object);
        if (station && GlobeStationStore::hasPosition(*station))
            stations.append(std::move(*station));
    }
    return stations;
}

} // namespace

GlobeStationStore::GlobeStationStore(HttpClient &http, QString baseUrl, QObject *parent)
    : QObject(parent)
    , m_http(http)
    , m_endpoint(baseUrl
                 + QStringLiteral("/json/stations/search?has_geo_info=true&hidebroken=true&order=clickcount"
                                  "&reverse=true&limit=3000"))
{
}

std::optional<QString> GlobeStationStore::cacheUrl()
{
    if (QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation).isEmpty())
        return std::nullopt;
    return Paths::supportFile(kCacheFileName);
}

void GlobeStationStore::setRequestTimeouts(double idleTimeoutSec, double totalTimeoutSec)
{
    m_idleTimeoutSec = idleTimeoutSec;
    m_totalTimeoutSec = totalTimeoutSec;
}

void GlobeStationStore::loadIfNeeded()
{
    Q_ASSERT(QThread::currentThread() == thread());
    if (m_didStart)
        return;
    m_didStart = true;

    const auto path = cacheUrl();
    if (!path) {
        refresh();
        return;
    }
    QtConcurrent::run([path = *path]() -> std::optional<CachedStations> {
        const auto data = AtomicFile::read(path, kMaxCatalogueBytes);
        if (!data)
            return std::nullopt;
        return decodeCache(*data, kMaxAgeSec, nowSec());
    }).then(this, [this](std::optional<CachedStations> cached) {
        if (cached && !m_hasNetworkStations)
            setStations(std::move(cached->stations));
        if (cached && cached->fresh)
            return;
        refresh();
    });
}

void GlobeStationStore::refresh()
{
    Q_ASSERT(QThread::currentThread() == thread());
    if (m_refreshing)
        return;
    m_refreshing = true;
    if (m_stations.isEmpty())
        setLoading(true);

    HttpRequest request;
    request.url = m_endpoint.toUtf8();
    request.idleTimeoutSec = m_idleTimeoutSec;
    request.totalTimeoutSec = m_totalTimeoutSec;
    request.maxBodyBytes = kMaxCatalogueBytes;
    m_catalogueTransfer = m_http.get(request, this, [this](const HttpResult &result, const HttpResponseHead &,
                                                           const QByteArray &body) {
        m_catalogueTransfer = {};
        if (!result.ok()) {
            m_refreshing = false;
            setErrorMessage(result.message.isEmpty() ? describe(result.error) : result.message);
            setLoading(false);
            return;
        }
        QtConcurrent::run([body, path = cacheUrl()]() -> std::optional<QList<Station>> {
            auto catalogue = decodeCatalogue(body, nowSec());
            if (!catalogue)
                return std::nullopt;
            // A failed write leaves the previous file, which is still a valid cache.
            if (path)
                (void)AtomicFile::write(*path, catalogue->cacheData);
            return std::move(catalogue->stations);
        }).then(this, [this](std::optional<QList<Station>> stations) { applyCatalogue(std::move(stations)); });
    });
}

void GlobeStationStore::applyCatalogue(std::optional<QList<Station>> stations)
{
    m_refreshing = false;
    if (stations) {
        m_hasNetworkStations = true;
        setStations(std::move(*stations));
        setErrorMessage(std::nullopt);
    }
    setLoading(false);
}

bool GlobeStationStore::hasPosition(const Station &station)
{
    if (!station.geoLat || !station.geoLong)
        return false;
    const double lat = *station.geoLat;
    const double lon = *station.geoLong;
    if (std::fabs(lat) < 0.0001 && std::fabs(lon) < 0.0001)
        return false;
    return std::fabs(lat) <= 90 && std::fabs(lon) <= 180;
}

std::optional<GlobeStationStore::CachedStations> GlobeStationStore::decodeCache(const QByteArray &data,
                                                                                double maxAgeSec, double nowSec)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(data, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        return std::nullopt;
    const QJsonObject root = document.object();
    const QJsonValue fetchedAt = root.value(QLatin1StringView("fetchedAt"));
    const QJsonValue list = root.value(QLatin1StringView("stations"));
    if (!fetchedAt.isDouble() || !list.isArray())
        return std::nullopt;

    const auto objects = DirectoryApi::objectsOf(list.toArray());
    if (!objects)
        return std::nullopt;
    CachedStations cached;
    cached.stations = stationsWithPosition(*objects);
    if (cached.stations.isEmpty())
        return std::nullopt;
    cached.fresh = nowSec - fetchedAt.toDouble() < maxAgeSec;
    return cached;
}

QByteArray GlobeStationStore::makeCacheData(const QList<QJsonObject> &objects, double nowSec)
{
    CacheWriter writer(nowSec, objects.size());
    for (const QJsonObject &object : objects)
        writer.add(StationFields::of(object));
    return writer.finish();
}

std::optional<GlobeStationStore::Catalogue> GlobeStationStore::decodeCatalogue(const QByteArray &body, double nowSec)
{
    const auto objects = DirectoryApi::parseObjects(body);
    if (!objects)
        return std::nullopt;
    // One look-up of each key serves both the station and its cache entry.
    Catalogue catalogue;
    catalogue.stations.reserve(objects->size());
    CacheWriter writer(nowSec, objects->size());
    for (const QJsonObject &object : *objects) {
        const StationFields fields = StationFields::of(object);
        auto station = Station::fromFields(fields);
        if (station && hasPosition(*station))
            catalogue.stations.append(std::move(*station));
        writer.add(fields);
    }
    // An answer without a single usable station is treated like a broken one: what is
    // on screen and on disk stays.
    if (catalogue.stations.isEmpty())
        return std::nullopt;
    catalogue.cacheData = writer.finish();
    return catalogue;
}

void GlobeStationStore::setStations(QList<Station> stations)
{
    if (stations == m_stations)
        return;
    m_stations = std::move(stations);
    Q_EMIT stationsChanged();
}

void GlobeStationStore::setLoading(bool loading)
{
    if (loading == m_isLoading)
        return;
    m_isLoading = loading;
    Q_EMIT isLoadingChanged(loading);
}

void GlobeStationStore::setErrorMessage(std::optional<QString> message)
{
    if (message == m_errorMessage)
        return;
    m_errorMessage = std::move(message);
    Q_EMIT errorMessageChanged();
}
