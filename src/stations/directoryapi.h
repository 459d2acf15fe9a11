#pragma once

#include "platform/httpclient.h"
#include "stations/station.h"

#include <QByteArray>
#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QString>

#include <functional>
#include <optional>

class QObject;

// The public station directory's JSON API: URLs, parsing of its answers, and the few
// requests the station search makes. Parsing is kept apart from fetching so that the
// parsers are tested on bytes and the requests against a loopback server.
//
// Every fetch function calls `done` exactly once on the thread of `context` (never
// from inside the call), unless the returned transfer is cancelled first or `context`
// is destroyed. When no request could even be built the returned transfer is invalid
// and `done` still runs, with the failure value.
namespace DirectoryApi {

inline constexpr int kPageSize = 40;

// A page or a single-station answer is a few dozen kilobytes; a body far beyond that is
// not an answer to our query and is refused instead of parsed on the GUI thread.
inline constexpr qint64 kMaxPageBytes = qint64(2) << 20;

// The directory's idle time-out for searches when the caller does not set one, as the
// platform's default session has it.
inline constexpr double kDefaultRequestTimeoutSec = 60;
// No directory request runs longer than this in all, however steadily bytes arrive.
inline constexpr double kMaxRequestSec = 20;

// ORVIDA_DIRECTORY_URL when set and non-empty, else the public directory's API host;
// never with a trailing slash.
[[nodiscard]] QString baseUrl();

// Percent-encodes with the URL-query-allowed set: ASCII letters and digits and
// -._~!$&'()*+,;=:@/? stay as they are (so '&' and '=' are NOT escaped), everything
// else becomes %XX of its UTF-8 bytes. Absent for text that is not valid UTF-16
// (a lone surrogate).
[[nodiscard]] std::optional<QString> percentEncodeQuery(const QString &text);

// The body as a JSON array whose every element is an object; absent for anything else
// (not JSON, invalid UTF-8, an object, an array holding a non-object).
[[nodiscard]] std::optional<QList<QJsonObject>> parseObjects(const QByteArray &body);
// The same check for an array already parsed.
[[nodiscard]] std::optional<QList<QJsonObject>> objectsOf(const QJsonArray &array);

// parseObjects, each object through Station::json; unusable objects are skipped and the
// server's order is kept.
[[nodiscard]] std::optional<QList<Station>> parseStations(const QByteArray &body);

// Which of a station's fields the searched text is matched against: its name or its
// tags (both "contains", letter case ignored by the directory).
enum class SearchKey { Name, Tag };
// The directory's own order of a result list, most first.
enum class SearchOrder { ClickCount, Votes };

// What narrows a search besides its text. Empty members narrow nothing.
struct SearchFilter {
    QString countryCode; // ISO 3166-1 alpha-2, as the directory's "countrycode" key takes it
    QString language;    // a language name as the directory lists it ("german")
    SearchOrder order = SearchOrder::ClickCount;

    // True when only the order is set: a blank text then searches nothing.
    [[nodiscard]] bool narrowsNothing() const { return countryCode.isEmpty() && language.isEmpty(); }
    friend bool operator==(const SearchFilter &, const SearchFilter &) = default;
};

// DIR + "/json/stations/search?name=" ... ; absent when the query cannot be encoded.
[[nodiscard]] std::optional<QString> pageUrl(const QString &base, const QString &query, int offset);
// One page of `key` matching `text`, narrowed by `filter`. A blank text leaves the key
// out, so the filter alone chooses. With the default filter and the name key this is
// pageUrl(); the filter's keys come after the designed ones.
[[nodiscard]] std::optional<QString> searchUrl(const QString &base, SearchKey key, const QString &text,
                                               const SearchFilter &filter, int offset, int limit = kPageSize);
[[nodiscard]] std::optional<QString> recommendationUrl(const QString &base, const QString &name);
// The genre is left out when it is empty or cannot be encoded.
[[nodiscard]] QString randomUrl(const QString &base, const QString &genre);

// The facets the directory lists for its filters: "/json/countries" (name and ISO code)
// and "/json/languages" (name). Entries without a usable name (or, for countries, code)
// are skipped; the directory's order is kept.
struct Facet {
    QString name;
    QString code; // countries: ISO 3166-1 alpha-2; languages: ""
    qint64 stationCount = 0;
    friend bool operator==(const Facet &, const Facet &) = default;
};
enum class FacetKind { Countries, Languages };
[[nodiscard]] QString facetUrl(const QString &base, FacetKind kind);
[[nodiscard]] std::optional<QList<Facet>> parseFacets(const QByteArray &body, FacetKind kind);

// One page of a name search (page size 40). Absent on any transport failure, a body
// that is not an array of objects, or an answer longer than the page asked for (a
// directory that ignores the limit is not one whose list we show and probe).
// The HTTP status is not examined.
HttpTransfer fetchPage(HttpClient &http, const QString &base, const QString &query, int offset, QObject *context,
                       std::function<void(std::optional<QList<Station>>)> done,
                       double requestTimeoutSec = kDefaultRequestTimeoutSec);

// One page of `key` matching `text` under `filter`; failures as fetchPage.
HttpTransfer fetchSearchPage(HttpClient &http, const QString &base, SearchKey key, const QString &text,
                             const SearchFilter &filter, int offset, QObject *context,
                             std::function<void(std::optional<QList<Station>>)> done,
                             double requestTimeoutSec = kDefaultRequestTimeoutSec);

// A country or language list; absent on any failure.
HttpTransfer fetchFacets(HttpClient &http, const QString &base, FacetKind kind, QObject *context,
                         std::function<void(std::optional<QList<Facet>>)> done,
                         double requestTimeoutSec = kDefaultRequestTimeoutSec);

// The first usable station of `url`'s answer; absent when there is none or on failure.
HttpTransfer fetchFirstStation(HttpClient &http, const QString &url, QObject *context,
                               std::function<void(std::optional<Station>)> done,
                               double requestTimeoutSec = kDefaultRequestTimeoutSec);

// One random working station, with the genre as its tag when one is given.
HttpTransfer randomStation(HttpClient &http, const QString &base, const QString &genre, QObject *context,
                           std::function<void(std::optional<Station>)> done,
                           double requestTimeoutSec = kDefaultRequestTimeoutSec);

// Whether the stream at `url` announces an ICY metadata interval: true when the final
// response head carries "icy-metaint" in any letter case. Only the head is read: the
// answer comes as soon as it is complete and the stream is dropped then, so no audio is
// downloaded and a server that sends no body is not waited for. Unparsable URLs,
// errors and time-outs before the head give false.
HttpTransfer checkIcy(HttpClient &http, const QString &url, QObject *context, std::function<void(bool)> done,
                      double requestTimeoutSec = 6, double resourceTimeoutSec = 8);

} // namespace DirectoryApi
