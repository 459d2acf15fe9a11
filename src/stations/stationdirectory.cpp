#include "stations/stationdirectory.h"

#include <QSet>

#include <algorithm>
#include <memory>
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
    for (HttpTransfer &transfer : m_moreTransfers)
        transfer.cancel();
    m_popularTransfer.cancel();
    m_countriesTransfer.cancel();
    m_languagesTransfer.cancel();
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
    search(query, DirectoryApi::SearchFilter{});
}

void StationDirectory::search(const QString &query, const DirectoryApi::SearchFilter &filter)
{
    Q_ASSERT(QThread::currentThread() == thread());
    cancelSearch();
    cancelProbe();

    const QString trimmed = StationJson::trimBlanks(query);
    if (trimmed.isEmpty() && filter.narrowsNothing()) {
        setResults({});
        setHasMore(false);
        setCurrentQuery(QString());
        m_currentFilter = filter;
        m_lanes.clear();
        return;
    }
    m_pendingQuery = trimmed;
    m_pendingFilter = filter;
    m_debounce.start();
}

void StationDirectory::fetchRound(const QString &text, const DirectoryApi::SearchFilter &filter,
                                  const QList<Lane> &lanes, QList<HttpTransfer> &transfers,
                                  std::function<void(QList<Page>)> done)
{
    struct Round {
        QList<Page> answers;
        qsizetype pending = 0;
        std::function<void(QList<Page>)> done;
    };
    auto round = std::make_shared<Round>();
    round->answers.resize(lanes.size());
    round->pending = lanes.size();
    round->done = std::move(done);
    for (qsizetype i = 0; i < lanes.size(); ++i) {
        transfers.append(DirectoryApi::fetchSearchPage(
            m_http, m_baseUrl, lanes[i].key, text, filter, lanes[i].offset, this,
            [round, i](Page page) {
                round->answers[i] = std::move(page);
                if (--round->pending == 0)
                    round->done(std::move(round->answers));
            },
            m_requestTimeoutSec));
    }
}

namespace {

// Appends the stations of `page` whose id is not yet in `shown`, in page order.
void appendNew(QList<Station> &list, QSet<QString> &shown, QList<Station> &page)
{
    for (Station &station : page) {
        if (!shown.contains(station.id)) {
            shown.insert(station.id);
            list.append(std::move(station));
        }
    }
}

} // namespace

void StationDirectory::startSearch()
{
    const QString query = m_pendingQuery;
    const DirectoryApi::SearchFilter filter = m_pendingFilter;
    const quint64 generation = m_searchGeneration;
    setSearching(true);
    m_currentFilter = filter;
    setCurrentQuery(query);
    m_offset = 0;
    // A blank text is the filter alone: one list, no second key to merge.
    m_lanes = {Lane{DirectoryApi::SearchKey::Name}};
    if (!query.isEmpty())
        m_lanes.append(Lane{DirectoryApi::SearchKey::Tag});
    fetchRound(query, filter, m_lanes, m_searchTransfers, [this, generation](QList<Page> answers) {
        if (generation != m_searchGeneration)
            return;
        m_searchTransfers.clear();
        QList<Station> merged;
        QSet<QString> shown;
        bool answered = false;
        for (qsizetype i = 0; i < answers.size(); ++i) {
            if (!answers[i])
                continue;
            answered = true;
            m_lanes[i].hasMore = answers[i]->size() == kPageSize;
            appendNew(merged, shown, *answers[i]);
        }
        // A lane that failed while another answered has nothing more to give this list.
        if (answered) {
            for (qsizetype i = 0; i < answers.size(); ++i) {
                if (!answers[i])
                    m_lanes[i].hasMore = false;
            }
            const bool more = std::any_of(m_lanes.cbegin(), m_lanes.cend(), [](const Lane &l) { return l.hasMore; });
            setResults(std::move(merged));
            setHasMore(more);
            probeIcyStatus();
        }
        setSearching(false);
    });
}

void StationDirectory::cancelSearch()
{
    m_debounce.stop();
    for (HttpTransfer &transfer : m_searchTransfers)
        transfer.cancel();
    m_searchTransfers.clear();
    ++m_searchGeneration;
    // The cancelled search will never come back to clear its own busy state.
    setSearching(false);
}

void StationDirectory::loadMore()
{
    Q_ASSERT(QThread::currentThread() == thread());
    if (!m_hasMore || m_isLoadingMore || m_isSearching || (m_currentQuery.isEmpty() && m_currentFilter.narrowsNothing()))
        return;
    QList<Lane> asked;
    QList<qsizetype> laneIndexes;
    for (qsizetype i = 0; i < m_lanes.size(); ++i) {
        if (m_lanes[i].hasMore) {
            asked.append(Lane{m_lanes[i].key, m_lanes[i].offset + kPageSize, true});
            laneIndexes.append(i);
        }
    }
    if (asked.isEmpty())
        return;
    setLoadingMore(true);
    const int nextOffset = m_offset + kPageSize;
    const QString sentQuery = m_currentQuery;
    const DirectoryApi::SearchFilter sentFilter = m_currentFilter;
    fetchRound(sentQuery, sentFilter, asked, m_moreTransfers,
               [this, nextOffset, sentQuery, sentFilter, laneIndexes](QList<Page> answers) {
                   m_moreTransfers.clear();
                   const bool answered = std::any_of(answers.cbegin(), answers.cend(), [](const Page &p) { return p.has_value(); });
                   if (answered && m_currentQuery == sentQuery && m_currentFilter == sentFilter &&
                       laneIndexes.last() < m_lanes.size()) {
                       m_offset = nextOffset;
                       QSet<QString> shown;
                       for (const Station &station : std::as_const(m_results))
                           shown.insert(station.id);
                       QList<Station> grown = m_results;
                       for (qsizetype i = 0; i < answers.size(); ++i) {
                           if (!answers[i])
                               continue; // asked again with the next page
                           Lane &lane = m_lanes[laneIndexes[i]];
                           lane.offset += kPageSize;
                           lane.hasMore = answers[i]->size() == kPageSize;
                           appendNew(grown, shown, *answers[i]);
                       }
                       setHasMore(std::any_of(m_lanes.cbegin(), m_lanes.cend(), [](const Lane &l) { return l.hasMore; }));
                       setResults(std::move(grown));
                       probeIcyStatus();
                   }
                   setLoadingMore(false);
               });
}

void StationDirectory::loadPopular(const QString &countryCode)
{
    Q_ASSERT(QThread::currentThread() == thread());
    const QString code = countryCode.trimmed().toUpper();
    if (m_popularAsked && code == m_popularCountryCode)
        return;
    m_popularAsked = true;
    m_popularCountryCode = code;
    m_popularTransfer.cancel();
    DirectoryApi::SearchFilter filter;
    filter.countryCode = code;
    filter.order = DirectoryApi::SearchOrder::Votes;
    m_popularTransfer = DirectoryApi::fetchSearchPage(
        m_http, m_baseUrl, DirectoryApi::SearchKey::Name, QString(), filter, 0, this,
        [this, code](Page page) {
            m_popularTransfer = {};
            if (!page) {
                m_popularAsked = false; // asked again when the start page is next shown
                return;
            }
            if (page->isEmpty() && !code.isEmpty()) {
                m_popularAsked = false;
                loadPopular(QString());
                return;
            }
            if (*page != m_popular) {
                m_popular = std::move(*page);
                Q_EMIT popularChanged();
            }
        },
        m_requestTimeoutSec);
}

void StationDirectory::loadFacets()
{
    Q_ASSERT(QThread::currentThread() == thread());
    using DirectoryApi::FacetKind;
    const auto ask = [this](FacetKind kind, QList<DirectoryApi::Facet> &list, HttpTransfer &transfer) {
        if (!list.isEmpty() || transfer.isValid())
            return;
        transfer = DirectoryApi::fetchFacets(
            m_http, m_baseUrl, kind, this,
            [this, &list, &transfer](std::optional<QList<DirectoryApi::Facet>> facets) {
                transfer = {};
                if (facets && !facets->isEmpty()) {
                    list = std::move(*facets);
                    Q_EMIT facetsChanged();
                }
            },
            m_requestTimeoutSec);
    };
    ask(FacetKind::Countries, m_countries, m_countriesTransfer);
    ask(FacetKind::Languages, m_languages, m_languagesTransfer);
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
