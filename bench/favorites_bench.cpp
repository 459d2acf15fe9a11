// Favourites at the size of a collector: 1,000 stations in "favorites.json" on disk
// (beside this program, so on the build's file system, not in memory). Every operation
// includes its atomic save, which is what the user waits for after a click or a drop.
// Target: add, remove and move each < 10 ms.
//
//   build/bench/favorites_bench --benchmark_repetitions=5 --benchmark_report_aggregates_only=true

#include "stations/favoritestations.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSaveFile>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <memory>

namespace {

constexpr int kFavorites = 1000;

// Directory stations as the search returns them; every third has a logo and a position.
Station makeStation(int i)
{
    Station s;
    s.id = QStringLiteral("5a1b%1-0601-11e8-ae97-52543be04c81").arg(i, 4, 16, QLatin1Char('0'));
    s.name = QStringLiteral("Radio Beispiel %1 – Hits & Oldies").arg(i);
    s.streamUrl = QStringLiteral("https://stream%1.example/live/mp3-128").arg(i);
    s.country = i % 2 ? QStringLiteral("Germany") : QStringLiteral("Österreich");
    s.bitrate = 128;
    s.codec = QStringLiteral("MP3");
    if (i % 3 == 0) {
        s.favicon = QStringLiteral("https://radio%1.example/favicon.png").arg(i);
        s.geoLat = 48.0 + i / 1000.0;
        s.geoLong = 11.0 + i / 1000.0;
    }
    return s;
}

// 1,000 favourites loaded from their file.
struct Favorites {
    // Beside the executable: /tmp may be a RAM file system, and the target is for a disk.
    QTemporaryDir dir { QFileInfo(QStringLiteral("/proc/self/exe")).canonicalPath()
        + QStringLiteral("/favorites_bench.XXXXXX") };
    std::unique_ptr<FavoriteStations> stations;

    Favorites()
    {
        QJsonArray array;
        for (int i = 0; i < kFavorites; ++i)
            array.append(FavoriteStations::record(makeStation(i)));
        QSaveFile file(path());
        if (!file.open(QIODevice::WriteOnly) || file.write(QJsonDocument(array).toJson()) < 0 || !file.commit())
            qFatal("cannot write %s", qPrintable(path()));
        stations = std::make_unique<FavoriteStations>(path());
        if (stations->list().size() != kFavorites)
            qFatal("the favourites did not load");
    }

    QString path() const { return dir.filePath(QStringLiteral("favorites.json")); }
};

void BM_Load(benchmark::State &state)
{
    Favorites favorites;
    for (auto _ : state) {
        FavoriteStations loaded(favorites.path());
        benchmark::DoNotOptimize(loaded.list().size());
    }
    state.counters["fileBytes"] = double(QFileInfo(favorites.path()).size());
}
BENCHMARK(BM_Load)->Unit(benchmark::kMillisecond);

// A new station goes to the end; taking it out again is not timed.
void BM_AddNew(benchmark::State &state)
{
    Favorites favorites;
    const Station extra = makeStation(kFavorites);
    for (auto _ : state) {
        (void)favorites.stations->add(extra);
        state.PauseTiming();
        (void)favorites.stations->remove(extra.id);
        state.ResumeTiming();
    }
}
BENCHMARK(BM_AddNew)->Unit(benchmark::kMillisecond);

// The first change after start, with the list just loaded from its file.
void BM_FirstAddAfterLoad(benchmark::State &state)
{
    Favorites favorites;
    const Station extra = makeStation(kFavorites);
    for (auto _ : state) {
        state.PauseTiming();
        auto fresh = std::make_unique<FavoriteStations>(favorites.path());
        state.ResumeTiming();
        (void)fresh->add(extra);
        state.PauseTiming();
        (void)fresh->remove(extra.id);
        fresh.reset();
        state.ResumeTiming();
    }
}
BENCHMARK(BM_FirstAddAfterLoad)->Unit(benchmark::kMillisecond);

// A favourite whose directory record changed is refreshed in place.
void BM_AddRefresh(benchmark::State &state)
{
    Favorites favorites;
    Station changed = makeStation(kFavorites / 2);
    int round = 0;
    for (auto _ : state) {
        changed.bitrate = 128 + (++round % 2);
        (void)favorites.stations->add(changed);
    }
}
BENCHMARK(BM_AddRefresh)->Unit(benchmark::kMillisecond);

// Removing from the middle; putting it back (at the end) is not timed.
void BM_Remove(benchmark::State &state)
{
    Favorites favorites;
    int i = 0;
    for (auto _ : state) {
        const Station victim = favorites.stations->list().at(kFavorites / 2 + i++ % 100);
        (void)favorites.stations->remove(victim.id);
        state.PauseTiming();
        (void)favorites.stations->add(victim);
        state.ResumeTiming();
    }
}
BENCHMARK(BM_Remove)->Unit(benchmark::kMillisecond);

// Dragging the first favourite to the end, as a list view reports it.
void BM_MoveOffsets(benchmark::State &state)
{
    Favorites favorites;
    for (auto _ : state)
        (void)favorites.stations->move(QList<int> { 0 }, kFavorites);
}
BENCHMARK(BM_MoveOffsets)->Unit(benchmark::kMillisecond);

// Dropping ten dragged ids at the top.
void BM_MoveIds(benchmark::State &state)
{
    Favorites favorites;
    QStringList dragged;
    for (int i = 0; i < 10; ++i)
        dragged << makeStation(kFavorites - 1 - i * 37).id;
    for (auto _ : state)
        (void)favorites.stations->move(dragged, 0);
}
BENCHMARK(BM_MoveIds)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
