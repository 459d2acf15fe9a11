#include "stations/stationdirectory.h"

#include <QSet>
#include <QThread>

const QStringList &StationDirectory::recommendedNames()
{
    static const QStringList names{QStringLiteral("i love radio - hip hop turnup")};
    return names;
}

const QList<Station> &StationDirectory::curatedStations()
{
    static const QList<Station> stations{
        Station::custom(QStringLiteral("https://stream.laut.fm/steelradio"), QStringLiteral("Steel Radio")),
    };
    return stations;
}

StationDirectory::StationDirectory(HttpClient &http, QString baseUrl, QObject *parent)
    : QObject(parent)
    , m_http(http)
    , m_baseUrl(std::move(baseUrl))
{
    m_debounce.setSingleShot(true);
    m_debounce.setInterval(kDefaultDebounce);
    connect(&m_debounce, &QTimer::timeout, this, &StationDirectory::startSearch);
}

StationDirectory::~StationDirectory()
{
    cancelSearch();
    cancelProbe();
    m_moreTransfer.cancel();
}

void StationDirectory::setDebounceInterval(std::chrono::milliseconds interval)
{
    m_debounce.setInterval(interval);
}

void StationDirectory::setProbeTimeouts(double requestTimeoutSec, double resourceTimeoutSec)
{
    m_probeRequestTimeoutSec = requestTimeoutSec;
    m_probeResourceTimeoutSec = resourceTimeoutSec;
}

void StationDirectory::search(const QString &query)
{
    Q_ASSERT(QThread::currentThread() == thread());
    cancelSearch();
    cancelProbe();

    const QString trimmed = StationJson::trimBlanks(query);
    if (trimmed.isEmpty()) {
        setResults({});
        setHasMore(false);
        setCurrentQuery(QString());
        return;
    }
    m_pendingQuery = trimmed;
    m_debounce.start();
}

void StationDirectory::startSearch()
{
    const QString query = m_pendingQuery;
    const quint64 generation = m_searchGeneration;
    setSearching(true);
    setCurrentQuery(query);
    m_offset = 0;
    m_searchTransfer = DirectoryApi::fetchPage(
        m_http, m_baseUrl, query, 0, this,
        [this, generation](std::optional<QList<Station>> page) {
            if (generation != m_searchGeneration)
                return;
            m_searchTransfer = {};
            if (page) {
                const bool full = page->size() == kPageSize;
                setResults(std::move(*page));
                setHasMore(full);
                probeIcyStatus();
            }
            setSearching(false);
        },
        m_requestTimeoutSec);
}

void StationDirectory::cancelSearch()
{
    m_debounce.stop();
    m_searchTransfer.cancel();
    m_searchTransfer = {};
    ++m_searchGeneration;
    // The cancelled search will never come back to clear its own busy state.
    setSearching(false);
}

void StationDirectory::loadMore()
{
    Q_ASSERT(QThread::currentThread() == thread());
    if (!m_hasMore || m_isLoadingMore || m_isSearching || m_currentQuery.isEmpty())
        return;
    setLoadingMore(true);
    const int nextOffset = m_offset + kPageSize;
    const QString sentQuery = m_currentQuery;
    m_moreTransfer = DirectoryApi::fetchPage(
        m_http, m_baseUrl, sentQuery, nextOffset, this,
        [this, nextOffset, sentQuery](std::optional<QList<Station>> page) {
            m_moreTransfer = {};
            if (page && m_currentQuery == sentQuery) {
                m_offset = nextOffset;
                setHasMore(page->size() == kPageSize);
                QSet<QString> shown;
                for (const Station &station : std::as_const(m_results))
                    shown.insert(station.id);
                QList<Station> grown = m_results;
                for (Station &station : *page) {
                    if (!shown.contains(station.id)) {
                        shown.insert(station.id);
                        grown.append(std::move(station));
                    }
                }
                setResults(std::move(grown));
                probeIcyStatus();
            }
            setLoadingMore(false);
        },
        m_requestTimeoutSec);
}

void StationDirectory::loadRecommendations()
{
    Q_ASSERT(QThread::currentThread() == thread());
    if (!m_recommendations.isEmpty())
        return;
    for (const Station &curated : curatedStations()) {
        const bool present = std::any_of(m_recommendations.cbegin(), m_recommendations.cend(),
                                         [&](const Station &s) { return s.id == curated.id; });
        if (!present)
            m_recommendations.append(curated);
    }
    Q_EMIT recommendationsChanged();
    lookUpRecommendation(0);
}

void StationDirectory::lookUpRecommendation(qsizetype nameIndex)
{
    // One name after the other, so the start page keeps the order of the list.
    for (; nameIndex < recommendedNames().size(); ++nameIndex) {
        const auto url = DirectoryApi::recommendationUrl(m_baseUrl, recommendedNames()[nameIndex]);
        if (!url)
            continue;
        DirectoryApi::fetchFirstStation(
            m_http, *url, this,
            [this, nameIndex](std::optional<Station> found) {
                if (found) {
                    const bool present = std::any_of(m_recommendations.cbegin(), m_recommendations.cend(),
                                                     [&](const Station &s) { return s.id == found->id; });
                    if (!present) {
                        m_recommendations.append(std::move(*found));
                        Q_EMIT recommendationsChanged();
                    }
                }
                lookUpRecommendation(nameIndex + 1);
            },
            m_requestTimeoutSec);
        return;
    }
}

void StationDirectory::cancelProbe()
{
    for (HttpTransfer &transfer : m_probeTransfers)
        transfer.cancel();
    m_probeTransfers.clear();
    ++m_probeGeneration;
}

void StationDirectory::probeIcyStatus()
{
    cancelProbe();
    const quint64 generation = m_probeGeneration;
    QSet<QString> collected;
    for (const Station &station : std::as_const(m_results)) {
        if (m_icyStatus.contains(station.id) || collected.contains(station.id))
            continue;
        collected.insert(station.id);
        m_probeTransfers.append(DirectoryApi::checkIcy(
            m_http, station.streamUrl, this,
            [this, generation, id = station.id](bool icy) {
                if (generation != m_probeGeneration)
                    return;
                m_icyStatus.insert(id, icy);
                Q_EMIT icyStatusChanged(id, icy);
            },
            m_probeRequestTimeoutSec, m_probeResourceTimeoutSec));
    }
}

void StationDirectory::setResults(QList<Station> results)
{
    if (results == m_results)
        return;
    m_results = std::move(results);
    Q_EMIT resultsChanged();
}

void StationDirectory::setSearching(bool searching)
{
    if (searching == m_isSearching)
        return;
    m_isSearching = searching;
    Q_EMIT isSearchingChanged(searching);
}

void StationDirectory::setLoadingMore(bool loading)
{
    if (loading == m_isLoadingMore)
        return;
    m_isLoadingMore = loading;
    Q_EMIT isLoadingMoreChanged(loading);
}

void StationDirectory::setHasMore(bool hasMore)
{
    if (hasMore == m_hasMore)
        return;
    m_hasMore = hasMore;
    Q_EMIT hasMoreChanged(hasMore);
}

void StationDirectory::setCurrentQuery(const QString &query)
{
    if (query == m_currentQuery)
        return;
    m_currentQuery = query;
    Q_EMIT currentQueryChanged(query);
}
