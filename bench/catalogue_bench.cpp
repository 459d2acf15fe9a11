// Decoding the globe catalogue: the directory's 3,000 most clicked stations, about
// 1.5 MB in the directory's own object shape. Everything the store does with it off the
// GUI thread (parse, build, filter, encode the cache) sits next to a bare
// QJsonDocument::fromJson of the same bytes, so the cost above plain parsing is visible.
//
//   build/bench/catalogue_bench --benchmark_repetitions=5 --benchmark_report_aggregates_only=true

#include "stations/directoryapi.h"
#include "stations/globestationstore.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QRandomGenerator>
#include <QUuid>

#include <benchmark/benchmark.h>

#include <cmath>

namespace {

constexpr int kStations = 3000;
constexpr double kNowSec = 1'700'000'000;

QString uuid(QRandomGenerator &random)
{
    // Deterministic UUID-looking text; QUuid::createUuid would differ between runs.
    return QUuid(random.generate(), quint16(random.generate()), quint16(random.generate()), quint8(random.generate()),
                 quint8(random.generate()), quint8(random.generate()), quint8(random.generate()),
                 quint8(random.generate()), quint8(random.generate()), quint8(random.generate()),
                 quint8(random.generate()))
        .toString(QUuid::WithoutBraces);
}

QByteArray makeCatalogue()
{
    static const char *const kCountries[][3] = {
        {"Germany", "DE", "Berlin"},   {"The United States Of America", "US", "California"},
        {"France", "FR", "Île-de-France"}, {"Brazil", "BR", "São Paulo"}, {"Japan", "JP", "Tokyo"},
        {"Austria", "AT", "Wien"},
    };
    static const char *const kCodecs[] = {"MP3", "AAC", "AAC+", "OGG"};
    QRandomGenerator random(20240611);
    QJsonArray catalogue;
    for (int i = 0; i < kStations; ++i) {
        const auto &country = kCountries[i % std::size(kCountries)];
        const QString host = QStringLiteral("s%1.example").arg(i);
        const QString time = QStringLiteral("2024-05-%1 1%2:2%3:4%4").arg(1 + i % 28, 2, 10, QLatin1Char('0')).arg(i % 10).arg(i % 7).arg(i % 9);
        const QString iso = QString(time).replace(QLatin1Char(' '), QLatin1Char('T')) + QLatin1Char('Z');
        QJsonObject o{
            {"changeuuid", uuid(random)},
            {"stationuuid", uuid(random)},
            {"serveruuid", i % 3 ? QJsonValue(uuid(random)) : QJsonValue(QJsonValue::Null)},
            {"name", QStringLiteral(" Radio Example %1 ").arg(i)},
            {"url", QStringLiteral("http://%1/listen.pls").arg(host)},
            {"url_resolved", QStringLiteral("https://%1/live.mp3").arg(host)},
            {"homepage", QStringLiteral("https://radio%1.example/").arg(i)},
            {"favicon", i % 5 ? QStringLiteral("https://radio%1.example/logo.png").arg(i) : QString()},
            {"tags", i % 3 ? "pop,rock,80s" : ""},
            {"country", country[0]},
            {"countrycode", country[1]},
            {"iso_3166_2", i % 4 ? QJsonValue(QJsonValue::Null) : QJsonValue(QStringLiteral("%1-%2").arg(country[1]).arg(i % 16))},
            {"state", i % 2 ? country[2] : ""},
            {"language", i % 2 ? "german" : ""},
            {"languagecodes", i % 2 ? "de" : ""},
            {"votes", int(random.bounded(100000))},
            {"lastchangetime", time},
            {"lastchangetime_iso8601", iso},
            {"codec", kCodecs[i % std::size(kCodecs)]},
            {"bitrate", (i % 4 + 1) * 64},
            {"hls", 0},
            {"lastcheckok", 1},
            {"lastchecktime", time},
            {"lastchecktime_iso8601", iso},
            {"lastcheckoktime", time},
            {"lastcheckoktime_iso8601", iso},
            {"lastlocalchecktime", time},
            {"lastlocalchecktime_iso8601", iso},
            {"clicktimestamp", time},
            {"clicktimestamp_iso8601", iso},
            {"clickcount", int(random.bounded(50000))},
            {"clicktrend", int(random.bounded(200)) - 100},
            {"ssl_error", 0},
            // Mostly real positions, some "unknown" 0/0 points and a few out of range.
            // The directory gives positions with a handful of decimals.
            {"geo_lat", i % 50 == 0 ? 0.0 : std::round((random.bounded(180.0) - 90.0) * 1e4) / 1e4 + (i % 97 == 0 ? 100 : 0)},
            {"geo_long", i % 50 == 0 ? 0.0 : std::round((random.bounded(360.0) - 180.0) * 1e4) / 1e4},
            {"has_extended_info", i % 2 == 0},
        };
        catalogue.append(o);
    }
    return QJsonDocument(catalogue).toJson(QJsonDocument::Compact);
}

const QByteArray &catalogue()
{
    static const QByteArray bytes = makeCatalogue();
    return bytes;
}

void BM_PlainFromJson(benchmark::State &state)
{
    const QByteArray &bytes = catalogue();
    for (auto _ : state)
        benchmark::DoNotOptimize(QJsonDocument::fromJson(bytes));
    state.SetBytesProcessed(state.iterations() * bytes.size());
}
BENCHMARK(BM_PlainFromJson)->Unit(benchmark::kMillisecond);

// Parse, build and filter: what the globe shows.
void BM_DecodeToPlacedStations(benchmark::State &state)
{
    const QByteArray &bytes = catalogue();
    qsizetype placed = 0;
    for (auto _ : state) {
        const auto objects = DirectoryApi::parseObjects(bytes);
        QList<Station> stations;
        for (const QJsonObject &object : *objects) {
            auto station = Station::json(object);
            if (station && GlobeStationStore::hasPosition(*station))
                stations.append(std::move(*station));
        }
        placed = stations.size();
        benchmark::DoNotOptimize(stations);
    }
    state.counters["placed"] = double(placed);
    state.SetBytesProcessed(state.iterations() * bytes.size());
}
BENCHMARK(BM_DecodeToPlacedStations)->Unit(benchmark::kMillisecond);

// The cache encoding alone, from objects already parsed.
void BM_MakeCacheData(benchmark::State &state)
{
    const auto objects = *DirectoryApi::parseObjects(catalogue());
    qsizetype cacheBytes = 0;
    for (auto _ : state) {
        const QByteArray data = GlobeStationStore::makeCacheData(objects, kNowSec);
        cacheBytes = data.size();
        benchmark::DoNotOptimize(data);
    }
    state.counters["cacheBytes"] = double(cacheBytes);
}
BENCHMARK(BM_MakeCacheData)->Unit(benchmark::kMillisecond);

// The whole background step of a refresh: parse + build + filter + makeCacheData.
void BM_DecodeCatalogue(benchmark::State &state)
{
    const QByteArray &bytes = catalogue();
    for (auto _ : state)
        benchmark::DoNotOptimize(GlobeStationStore::decodeCatalogue(bytes, kNowSec));
    state.counters["catalogueBytes"] = double(bytes.size());
    state.SetBytesProcessed(state.iterations() * bytes.size());
}
BENCHMARK(BM_DecodeCatalogue)->Unit(benchmark::kMillisecond);

// Opening the globe from disk: decoding the slim cache file.
void BM_DecodeCache(benchmark::State &state)
{
    const QByteArray file = GlobeStationStore::decodeCatalogue(catalogue(), kNowSec)->cacheData;
    for (auto _ : state)
        benchmark::DoNotOptimize(GlobeStationStore::decodeCache(file, GlobeStationStore::kMaxAgeSec, kNowSec));
    state.SetBytesProcessed(state.iterations() * file.size());
}
BENCHMARK(BM_DecodeCache)->Unit(benchmark::kMillisecond);

} // namespace
