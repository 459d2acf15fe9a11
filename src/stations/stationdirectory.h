#pragma once

#include "platform/httpclient.h"
#include "stations/directoryapi.h"
#include "stations/station.h"

#include <QHash>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QTimer>

#include <chrono>
#include <functional>
#include <optional>

// The interactive station search: debounced queries matched against names and tags,
// narrowed by country and language, paging, the start page (recommendations and the
// popular stations of a country), the directory's country and language lists, and the
// ICY probe that marks which results send in-band titles.
//
// A text is looked up twice, by name and by tag, and the two answers are merged (names
// first, each station once). Both requests of a page go out together, so a search shows
// its first page after one round trip to the directory, as a name-only search did.
//
// Lives on the GUI thread; every observable field changes there and is announced by
// the matching signal. Network work runs on the HttpClient's worker; answers come back
// as queued calls with this object as context, so nothing arrives after it is gone.
// Directory failures are silent by design: the old results stay and the busy flags
// drop back.
class StationDirectory : public QObject {
    Q_OBJECT
public:
    static constexpr int kPageSize = DirectoryApi::kPageSize;
    static constexpr std::chrono::milliseconds kDefaultDebounce{450};
    static constexpr double kProbeRequestTimeoutSec = 6;
    static constexpr double kProbeResourceTimeoutSec = 8;

    // Names looked up for the start page, in this order.
    static const QStringList &recommendedNames();
    // Hand-picked custom stations shown first on the start page.
    static const QList<Station> &curatedStations();

    explicit StationDirectory(HttpClient &http, QString baseUrl = DirectoryApi::baseUrl(), QObject *parent = nullptr);
    ~StationDirectory() override;

    [[nodiscard]] const QList<Station> &results() const { return m_results; }
    [[nodiscard]] const QList<Station> &recommendations() const { return m_recommendations; }
    [[nodiscard]] bool isSearching() const { return m_isSearching; }
    [[nodiscard]] bool isLoadingMore() const { return m_isLoadingMore; }
    [[nodiscard]] bool hasMore() const { return m_hasMore; }
    // Search failures never reach the user, so nothing sets this; the field exists so a
    // view binds to the directory and the globe store alike.
    [[nodiscard]] const std::optional<QString> &errorMessage() const { return m_errorMessage; }
    // Station id -> whether its stream announces an ICY metadata interval. Only grows.
    [[nodiscard]] const QHash<QString, bool> &icyStatus() const { return m_icyStatus; }
    [[nodiscard]] const QString &currentQuery() const { return m_currentQuery; }
    // The filter of the shown results.
    [[nodiscard]] const DirectoryApi::SearchFilter &currentFilter() const { return m_currentFilter; }
    // Popular stations of the country asked for by loadPopular(), most votes first.
    [[nodiscard]] const QList<Station> &popular() const { return m_popular; }
    [[nodiscard]] const QString &popularCountryCode() const { return m_popularCountryCode; }
    [[nodiscard]] const QList<DirectoryApi::Facet> &countries() const { return m_countries; }
    [[nodiscard]] const QList<DirectoryApi::Facet> &languages() const { return m_languages; }
    [[nodiscard]] int offset() const { return m_offset; }
    [[nodiscard]] int pageSize() const { return kPageSize; }
    [[nodiscard]] const QString &baseUrl() const { return m_baseUrl; }

    // Starts a new search after the debounce; a further call within it replaces this one.
    // Cancels the running search and probe at once. Blank queries clear the results.
    void search(const QString &query);
    // The same, narrowed by `filter`. A blank query with a filter that narrows lists the
    // stations the filter alone chooses; a blank query without one clears the results.
    void search(const QString &query, const DirectoryApi::SearchFilter &filter);
    // Appends the next page of the current query; ignored unless a full page was last
    // fetched and nothing else is loading.
    void loadMore();
    // Fills the start page once: curated stations first, then the named look-ups.
    void loadRecommendations();
    // Fills popular() with the stations of `countryCode` (ISO 3166-1 alpha-2; "" for the
    // whole directory) that have the most votes. A country the directory has no
    // stations for falls back to the whole directory. Asks again only for another code.
    void loadPopular(const QString &countryCode);
    // Fetches the country and language lists once; a failed list is asked for again on
    // the next call.
    void loadFacets();

    // Seams for tests and benchmarks; the defaults are the designed values.
    void setDebounceInterval(std::chrono::milliseconds interval);
    void setRequestTimeout(double requestTimeoutSec) { m_requestTimeoutSec = requestTimeoutSec; }
    void setProbeTimeouts(double requestTimeoutSec, double resourceTimeoutSec);

Q_SIGNALS:
    void resultsChanged();
    void recommendationsChanged();
    void isSearchingChanged(bool searching);
    void isLoadingMoreChanged(bool loading);
    void hasMoreChanged(bool hasMore);
    void icyStatusChanged(const QString &stationId, bool icy);
    void currentQueryChanged(const QString &query);
    void popularChanged();
    void facetsChanged();

private:
    // One of the keys a text is matched by, with its own paging.
    struct Lane {
        DirectoryApi::SearchKey key = DirectoryApi::SearchKey::Name;
        int offset = 0;
        bool hasMore = true;
    };
    using Page = std::optional<QList<Station>>;

    // Asks for one page of each lane in `lanes` at `offsets` at once; `done` gets the
    // answers in the same order after the last has come in.
    void fetchRound(const QString &text, const DirectoryApi::SearchFilter &filter, const QList<Lane> &lanes,
                    QList<HttpTransfer> &transfers, std::function<void(QList<Page>)> done);
    void startSearch();
    void cancelSearch();
    void cancelProbe();
    void probeIcyStatus();
    void lookUpRecommendation(qsizetype nameIndex);

    void setResults(QList<Station> results);
    void setSearching(bool searching);
    void setLoadingMore(bool loading);
    void setHasMore(bool hasMore);
    void setCurrentQuery(const QString &query);

    HttpClient &m_http;
    const QString m_baseUrl;

    QList<Station> m_results;
    QList<Station> m_recommendations;
    bool m_isSearching = false;
    bool m_isLoadingMore = false;
    bool m_hasMore = false;
    std::optional<QString> m_errorMessage;
    QHash<QString, bool> m_icyStatus;
    QString m_currentQuery;
    DirectoryApi::SearchFilter m_currentFilter;
    int m_offset = 0;
    QList<Lane> m_lanes;

    QList<Station> m_popular;
    QString m_popularCountryCode;
    bool m_popularAsked = false;
    HttpTransfer m_popularTransfer;

    QList<DirectoryApi::Facet> m_countries;
    QList<DirectoryApi::Facet> m_languages;
    HttpTransfer m_countriesTransfer;
    HttpTransfer m_languagesTransfer;

    // The running search: its debounce, then its page request. A generation bump makes
    // any answer already on its way stale.
    QTimer m_debounce;
    QString m_pendingQuery;
    DirectoryApi::SearchFilter m_pendingFilter;
    QList<HttpTransfer> m_searchTransfers;
    quint64 m_searchGeneration = 0;

    QList<HttpTransfer> m_moreTransfers;

    // The running probe round: all its checks at once, cancelled together.
    QList<HttpTransfer> m_probeTransfers;
    quint64 m_probeGeneration = 0;

    double m_requestTimeoutSec = DirectoryApi::kDefaultRequestTimeoutSec;
    double m_probeRequestTimeoutSec = kProbeRequestTimeoutSec;
    double m_probeResourceTimeoutSec = kProbeResourceTimeoutSec;
};
