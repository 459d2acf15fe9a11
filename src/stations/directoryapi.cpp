#include "stations/directoryapi.h"

#include <QJsonDocument>
#include <QMetaObject>
#include <QObject>
#include <QUrl>

#include <algorithm>
#include <memory>
#include <utility>

namespace {

const QString kPublicDirectory = QStringLiteral("https://all.api.radio-browser.info");

bool isQueryAllowed(char c)
{
    if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'))
        return true;
    static constexpr QByteArrayView kMarks = "-._~!$&'()*+,;=:@/?";
    return kMarks.contains(c);
}

bool isValidUtf16(const QString &text)
{
    const qsizetype n = text.size();
    for (qsizetype i = 0; i < n; ++i) {
        const QChar c = text[i];
        if (c.isHighSurrogate()) {
            if (i + 1 >= n || !text[i + 1].isLowSurrogate())
                return false;
            ++i;
        } else if (c.isLowSurrogate()) {
            return false;
        }
    }
    return true;
}

// Runs `done` with the failure value on the context's thread after the caller has
// returned, so callers see one delivery path whether or not a request went out.
template<typename T>
HttpTransfer failLater(QObject *context, std::function<void(T)> done, T failure)
{
    QMetaObject::invokeMethod(
        context, [done = std::move(done), failure] { done(failure); }, Qt::QueuedConnection);
    return {};
}

// The query-allowed set keeps '&', '=' and '+', which would end or alter a value.
QString escapeQuerySeparators(QString encoded)
{
    encoded.replace(QLatin1Char('&'), QStringLiteral("%26"));
    encoded.replace(QLatin1Char('='), QStringLiteral("%3D"));
    encoded.replace(QLatin1Char('+'), QStringLiteral("%2B"));
    return encoded;
}

HttpRequest directoryRequest(const QString &url, double requestTimeoutSec)
{
    HttpRequest request;
    request.url = url.toUtf8();
    request.idleTimeoutSec = requestTimeoutSec;
    // A directory that trickles its answer a byte at a time never trips the idle limit.
    request.totalTimeoutSec = std::min(requestTimeoutSec, DirectoryApi::kMaxRequestSec);
    request.maxBodyBytes = DirectoryApi::kMaxPageBytes;
    return request;
}

} // namespace

namespace DirectoryApi {

QString baseUrl()
{
    QString base = qEnvironmentVariable("ORVIDA_DIRECTORY_URL");
    if (base.isEmpty())
        return kPublicDirectory;
    while (base.endsWith(QLatin1Char('/')))
        base.chop(1);
    return base;
}

std::optional<QString> percentEncodeQuery(const QString &text)
{
    if (!isValidUtf16(text))
        return std::nullopt;
    static constexpr char kHex[] = "0123456789ABCDEF";
    const QByteArray utf8 = text.toUtf8();
    QByteArray out;
    out.reserve(utf8.size() * 3);
    for (const char c : utf8) {
        if (isQueryAllowed(c)) {
            out += c;
        } else {
            const auto byte = static_cast<unsigned char>(c);
            out += '%';
            out += kHex[byte >> 4];
            out += kHex[byte & 0xF];
        }
    }
    return QString::fromLatin1(out);
}

std::optional<QList<QJsonObject>> parseObjects(const QByteArray &body)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(body, &error);
    if (error.error != QJsonParseError::NoError || !document.isArray())
        return std::nullopt;
    return objectsOf(document.array());
}

std::optional<QList<QJsonObject>> objectsOf(const QJsonArray &array)
{
    QList<QJsonObject> objects;
    objects.reserve(array.size());
    for (const QJsonValue &value : array) {
        if (!value.isObject())
            return std::nullopt;
        objects.append(value.toObject());
    }
    return objects;
}

std::optional<QList<Station>> parseStations(const QByteArray &body)
{
    const auto objects = parseObjects(body);
    if (!objects)
        return std::nullopt;
    QList<Station> stations;
    stations.reserve(objects->size());
    for (const QJsonObject &object : *objects) {
        if (auto station = Station::json(object))
            stations.append(std::move(*station));
    }
    return stations;
}

std::optional<QString> pageUrl(const QString &base, const QString &query, int offset)
{
    return searchUrl(base, SearchKey::Name, query, SearchFilter{}, offset);
}

std::optional<QString> searchUrl(const QString &base, SearchKey key, const QString &text, const SearchFilter &filter,
                                 int offset, int limit)
{
    QString url = base + QStringLiteral("/json/stations/search?");
    if (!text.isEmpty()) {
        const auto encoded = percentEncodeQuery(text);
        if (!encoded)
            return std::nullopt;
        // The name key keeps the designed encoding; a tag like "drum & bass" must reach
        // the directory whole, so the newer keys escape what splits a query.
        url += (key == SearchKey::Name ? QStringLiteral("name=") + *encoded
                                       : QStringLiteral("tag=") + escapeQuerySeparators(*encoded))
            + QLatin1Char('&');
    }
    url += QStringLiteral("limit=") + QString::number(limit) + QStringLiteral("&offset=") + QString::number(offset)
        + QStringLiteral("&hidebroken=true&order=")
        + (filter.order == SearchOrder::Votes ? QStringLiteral("votes") : QStringLiteral("clickcount"))
        + QStringLiteral("&reverse=true");
    // Filter values come from the directory's own lists or the locale; anything that
    // cannot be encoded narrows nothing rather than failing the search.
    if (!filter.countryCode.isEmpty()) {
        if (const auto code = percentEncodeQuery(filter.countryCode))
            url += QStringLiteral("&countrycode=") + escapeQuerySeparators(*code);
    }
    if (!filter.language.isEmpty()) {
        if (const auto language = percentEncodeQuery(filter.language))
            url += QStringLiteral("&language=") + escapeQuerySeparators(*language);
    }
    return url;
}

QString facetUrl(const QString &base, FacetKind kind)
{
    return base + (kind == FacetKind::Countries ? QStringLiteral("/json/countries") : QStringLiteral("/json/languages"))
        + QStringLiteral("?hidebroken=true&order=name");
}

std::optional<QList<Facet>> parseFacets(const QByteArray &body, FacetKind kind)
{
    const auto objects = parseObjects(body);
    if (!objects)
        return std::nullopt;
    QList<Facet> facets;
    facets.reserve(objects->size());
    for (const QJsonObject &object : *objects) {
        Facet facet;
        facet.name = StationJson::trimBlanks(object.value(QLatin1StringView("name")).toString());
        if (kind == FacetKind::Countries)
            facet.code = object.value(QLatin1StringView("iso_3166_1")).toString().trimmed().toUpper();
        facet.stationCount = object.value(QLatin1StringView("stationcount")).toInteger();
        // A country is only chosen by its code; a code that is not two letters was not
        // meant as one.
        if (facet.name.isEmpty() || (kind == FacetKind::Countries && facet.code.size() != 2))
            continue;
        facets.append(std::move(facet));
    }
    return facets;
}

std::optional<QString> recommendationUrl(const QString &base, const QString &name)
{
    const auto encoded = percentEncodeQuery(name);
    if (!encoded)
        return std::nullopt;
    return base + QStringLiteral("/json/stations/search?name=") + *encoded
        + QStringLiteral("&limit=1&hidebroken=true&order=clickcount&reverse=true");
}

QString randomUrl(const QString &base, const QString &genre)
{
    QString url = base + QStringLiteral("/json/stations/search?order=random&limit=1&hidebroken=true");
    if (!genre.isEmpty()) {
        if (const auto encoded = percentEncodeQuery(genre))
            url += QStringLiteral("&tag=") + *encoded;
    }
    return url;
}

HttpTransfer fetchPage(HttpClient &http, const QString &base, const QString &query, int offset, QObject *context,
                       std::function<void(std::optional<QList<Station>>)> done, double requestTimeoutSec)
{
    return fetchSearchPage(http, base, SearchKey::Name, query, SearchFilter{}, offset, context, std::move(done),
                           requestTimeoutSec);
}

HttpTransfer fetchSearchPage(HttpClient &http, const QString &base, SearchKey key, const QString &text,
                             const SearchFilter &filter, int offset, QObject *context,
                             std::function<void(std::optional<QList<Station>>)> done, double requestTimeoutSec)
{
    const auto url = searchUrl(base, key, text, filter, offset);
    if (!url)
        return failLater<std::optional<QList<Station>>>(context, std::move(done), std::nullopt);
    return http.get(directoryRequest(*url, requestTimeoutSec), context,
                    [done = std::move(done)](const HttpResult &result, const HttpResponseHead &, const QByteArray &body) {
                        if (!result.ok()) {
                            done(std::nullopt);
                            return;
                        }
                        auto stations = parseStations(body);
                        if (stations && stations->size() > kPageSize)
                            stations.reset();
                        done(std::move(stations));
                    });
}

HttpTransfer fetchFacets(HttpClient &http, const QString &base, FacetKind kind, QObject *context,
                         std::function<void(std::optional<QList<Facet>>)> done, double requestTimeoutSec)
{
    return http.get(directoryRequest(facetUrl(base, kind), requestTimeoutSec), context,
                    [done = std::move(done), kind](const HttpResult &result, const HttpResponseHead &,
                                                   const QByteArray &body) {
                        done(result.ok() ? parseFacets(body, kind) : std::nullopt);
                    });
}

HttpTransfer fetchFirstStation(HttpClient &http, const QString &url, QObject *context,
                               std::function<void(std::optional<Station>)> done, double requestTimeoutSec)
{
    return http.get(directoryRequest(url, requestTimeoutSec), context,
                    [done = std::move(done)](const HttpResult &result, const HttpResponseHead &, const QByteArray &body) {
                        std::optional<Station> first;
                        if (result.ok()) {
                            if (const auto stations = parseStations(body); stations && !stations->isEmpty())
                                first = stations->first();
                        }
                        done(std::move(first));
                    });
}

HttpTransfer randomStation(HttpClient &http, const QString &base, const QString &genre, QObject *context,
                           std::function<void(std::optional<Station>)> done, double requestTimeoutSec)
{
    return fetchFirstStation(http, randomUrl(base, genre), context, std::move(done), requestTimeoutSec);
}

HttpTransfer checkIcy(HttpClient &http, const QString &url, QObject *context, std::function<void(bool)> done,
                      double requestTimeoutSec, double resourceTimeoutSec)
{
    const QUrl parsed(url, QUrl::StrictMode);
    if (url.isEmpty() || !parsed.isValid())
        return failLater<bool>(context, std::move(done), false);

    HttpRequest request;
    request.url = url.toUtf8();
    request.headers = {
        {"User-Agent", "Orvida/1.0"},
        {"Icy-MetaData", "1"},
        {"Accept-Encoding", "identity"},
    };
    request.idleTimeoutSec = requestTimeoutSec;
    request.totalTimeoutSec = resourceTimeoutSec;
    // The head decides: the answer is given as soon as it is complete and the stream is
    // dropped, whether or not (or how slowly) a body follows.
    struct Probe {
        bool answered = false;
        HttpTransfer transfer;
    };
    auto probe = std::make_shared<Probe>();
    auto answer = [probe, done = std::move(done)](bool icy) {
        if (probe->answered)
            return;
        probe->answered = true;
        // Dropping the handle too breaks the cycle through these callbacks.
        std::exchange(probe->transfer, {}).cancel();
        done(icy);
    };
    probe->transfer = http.stream(request, context,
                                  {[answer](const HttpResponseHead &head) { answer(head.hasHeader("icy-metaint")); },
                                   {},
                                   [answer](const HttpResult &) { answer(false); }});
    return probe->transfer;
}

} // namespace DirectoryApi
