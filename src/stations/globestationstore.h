#pragma once

#include "platform/httpclient.h"
#include "stations/directoryapi.h"
#include "stations/station.h"

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QObject>
#include <QString>
#include <QVariant>

#include <optional>

// The geolocated stations shown on the globe: the directory's 3,000 most clicked
// stations with a position, cached for a week in "globe_stations.json" so the globe
// opens without network.
//
// Lives on the GUI thread, where its fields change and are announced. Reading and
// decoding the cache, parsing the catalogue, encoding and writing the cache run on the
// global thread pool; their results come back as continuations on this object's thread
// and are dropped if the store is gone by then.
class GlobeStationStore : public QObject {
    Q_OBJECT
public:
    static constexpr double kMaxAgeSec = 604800; // 7 days
    // The real catalogue is about 1.5 MB; this leaves room without trusting any size.
    static constexpr qint64 kMaxCatalogueBytes = qint64(32) << 20;
    static constexpr double kCatalogueTimeoutSec = 60;

    struct CachedStations {
        QList<Station> stations;
        bool fresh = false;
    };
    struct Catalogue {
        QList<Station> stations; // with a position, in the directory's order
        QByteArray cacheData;    // the file to keep for next time
    };

    explicit GlobeStationStore(HttpClient &http, QString baseUrl = DirectoryApi::baseUrl(), QObject *parent = nullptr);

    [[nodiscard]] const QList<Station> &stations() const { return m_stations; }
    // A fetch runs while nothing is shown; a stale list on screen is not "loading".
    [[nodiscard]] bool isLoading() const { return m_isLoading; }
    [[nodiscard]] const std::optional<QString> &errorMessage() const { return m_errorMessage; }
    [[nodiscard]] bool didStart() const { return m_didStart; }
    [[nodiscard]] const QString &endpoint() const { return m_endpoint; }
    // "globe_stations.json" in the support folder; absent when there is no data folder.
    [[nodiscard]] static std::optional<QString> cacheUrl();

    // The globe view's last camera, opaque here; kept so a rebuilt view starts where the
    // user left it.
    [[nodiscard]] const QVariant &savedCamera() const { return m_savedCamera; }
    void setSavedCamera(const QVariant &camera) { m_savedCamera = camera; }

    // First call shows the cache and fetches when it is missing, bad or stale; later
    // calls do nothing.
    void loadIfNeeded();
    // Fetches the whole catalogue. While one fetch runs, further calls join it.
    void refresh();

    // The globe's notion of a position: both coordinates, in range, and not the 0/0
    // point that stands for "unknown".
    [[nodiscard]] static bool hasPosition(const Station &station);
    // Stations of a cache file and whether it is younger than `maxAgeSec` at `nowSec`
    // (seconds since 1970). Absent for a file of the wrong shape or without a single
    // station with a position.
    [[nodiscard]] static std::optional<CachedStations> decodeCache(const QByteArray &data, double maxAgeSec,
                                                                   double nowSec);
    // The cache file for the directory's raw objects: only the keys we read back, their
    // values unchanged; objects without "stationuuid" or "name" are left out.
    [[nodiscard]] static QByteArray makeCacheData(const QList<QJsonObject> &objects, double nowSec);
    // A catalogue answer into stations with a position and the cache file. Absent when
    // the body is not an array of objects or no station has a position.
    [[nodiscard]] static std::optional<Catalogue> decodeCatalogue(const QByteArray &body, double nowSec);

    // Seam for tests: the catalogue request's idle and total time-outs.
    void setRequestTimeouts(double idleTimeoutSec, double totalTimeoutSec);

Q_SIGNALS:
    void stationsChanged();
    void isLoadingChanged(bool loading);
    void errorMessageChanged();

private:
    void applyCatalogue(std::optional<QList<Station>> stations);
    void setStations(QList<Station> stations);
    void setLoading(bool loading);
    void setErrorMessage(std::optional<QString> message);

    HttpClient &m_http;
    const QString m_endpoint;

    QList<Station> m_stations;
    bool m_isLoading = false;
    std::optional<QString> m_errorMessage;
    QVariant m_savedCamera;
    bool m_didStart = false;

    bool m_refreshing = false;
    // Once the network has answered, a late cache read must not replace its stations.
    bool m_hasNetworkStations = false;
    HttpTransfer m_catalogueTransfer;
    double m_idleTimeoutSec = DirectoryApi::kDefaultRequestTimeoutSec;
    double m_totalTimeoutSec = kCatalogueTimeoutSec;
};
