#include "stations/globestationstore.h"

#include "platform/atomicfile.h"
#include "platform/paths.h"

#include <QDateTime>
#include <QFuture>
#include <QJsonArray>
#include <QJsonDocument>
#include <QStandardPaths>
#include <QThread>
#include <QtConcurrent/QtConcurrentRun>

#include <cmath>

namespace {

const QString kCacheFileName = QStringLiteral("globe_stations.json");

// The keys of a directory object that Station::json reads; everything else the
// directory sends is left out of the cache.
const QLatin1StringView kCachedKeys[] = {
    QLatin1StringView("stationuuid"), QLatin1StringView("name"),    QLatin1StringView("url_resolved"),
    QLatin1StringView("url"),         QLatin1StringView("country"), QLatin1StringView("bitrate"),
    QLatin1StringView("codec"),       QLatin1StringView("favicon"), QLatin1StringView("geo_lat"),
    QLatin1StringView("geo_long"),
};

double nowSec()
{
    return double(QDateTime::currentMSecsSinceEpoch()) / 1000.0;
}

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
    QJsonArray slimObjects;
    for (const QJsonObject &object : objects) {
        if (!object.contains(kCachedKeys[0]) || !object.contains(kCachedKeys[1]))
            continue;
        QJsonObject slim;
        for (const QLatin1StringView key : kCachedKeys) {
            const auto it = object.constFind(key);
            if (it != object.constEnd())
                slim.insert(key, it.value());
        }
        slimObjects.append(slim);
    }
    const QJsonObject root{
        {QStringLiteral("fetchedAt"), nowSec},
        {QStringLiteral("stations"), slimObjects},
    };
    return QJsonDocument(root).toJson(QJsonDocument::Compact);
}

std::optional<GlobeStationStore::Catalogue> GlobeStationStore::decodeCatalogue(const QByteArray &body, double nowSec)
{
    const auto objects = DirectoryApi::parseObjects(body);
    if (!objects)
        return std::nullopt;
    Catalogue catalogue;
    catalogue.stations = stationsWithPosition(*objects);
    // An answer without a single usable station is treated like a broken one: what is
    // on screen and on disk stays.
    if (catalogue.stations.isEmpty())
        return std::nullopt;
    catalogue.cacheData = makeCacheData(*objects, nowSec);
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
