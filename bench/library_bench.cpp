// The library at the size of a heavy recorder user: 100,000 tracks in a file on disk
// (next to this program, so on the build's file system, not in memory).
// Targets: open and load every track for display < 400 ms; look-up by filePath < 0.2 ms;
// insert one saved track < 2 ms.
//
//   build/bench/library_bench --benchmark_repetitions=5 --benchmark_report_aggregates_only=true

#include "library/librarystore.h"

#include "benchtracks.h"

#include <QFileInfo>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

namespace {

constexpr int kTracks = 100'000;

class Library {
public:
    // Beside the executable: /tmp may be a RAM file system, and the targets are for a disk.
    Library() : m_dir(QFileInfo(QStringLiteral("/proc/self/exe")).canonicalPath() + QStringLiteral("/library_bench.XXXXXX"))
    {
        filledBenchLibrary(path(), kTracks);
    }

    QString path() const { return m_dir.filePath(QStringLiteral("library.sqlite")); }

    static Library &instance()
    {
        static Library library;
        return library;
    }

private:
    QTemporaryDir m_dir;
};

std::unique_ptr<LibraryStore> openStore()
{
    LibraryOpenResult opened = LibraryStore::open(Library::instance().path());
    if (!opened)
        qFatal("%s", qPrintable(opened.message));
    return std::move(opened.store);
}

void BM_OpenAndLoadAllTracks(benchmark::State &state)
{
    Library::instance();
    qsizetype loaded = 0;
    for (auto _ : state) {
        std::unique_ptr<LibraryStore> store = openStore();
        QList<Track> tracks = store->allTracks();
        loaded = tracks.size();
        benchmark::DoNotOptimize(tracks.constData());
        // Closing and freeing the list are not part of showing it: both go before the
        // timer runs again, not at the end of the scope.
        state.PauseTiming();
        tracks = QList<Track>();
        store.reset();
        state.ResumeTiming();
    }
    state.counters["tracks"] = double(loaded);
}
BENCHMARK(BM_OpenAndLoadAllTracks)->Unit(benchmark::kMillisecond);

void BM_TrackByFilePath(benchmark::State &state)
{
    std::unique_ptr<LibraryStore> store = openStore();
    QStringList paths;
    for (int i = 0; i < 1000; ++i)
        paths << *benchTrack((i * 7919) % kTracks).filePath;
    qsizetype i = 0;
    qsizetype found = 0;
    for (auto _ : state) {
        found += store->tracksByFilePath(paths[i++ % paths.size()]).size();
    }
    if (found != qsizetype(state.iterations()))
        state.SkipWithError("a look-up missed its track");
}
BENCHMARK(BM_TrackByFilePath)->Unit(benchmark::kMicrosecond);

void BM_InsertOneSavedTrack(benchmark::State &state)
{
    std::unique_ptr<LibraryStore> store = openStore();
    int i = kTracks;
    for (auto _ : state) {
        if (!store->insert(benchTrack(i++)))
            state.SkipWithError("insert failed");
    }
}
BENCHMARK(BM_InsertOneSavedTrack)->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
