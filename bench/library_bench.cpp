// The library at the size of a heavy recorder user: 100,000 tracks in a file on disk
// (next to this program, so on the build's file system, not in memory).
// Targets: open and load every track for display < 400 ms; look-up by filePath < 0.2 ms;
// insert one saved track < 2 ms.
//
//   build/bench/library_bench --benchmark_repetitions=5 --benchmark_report_aggregates_only=true

#include "library/librarystore.h"

#include <QFileInfo>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

namespace {

constexpr int kTracks = 100'000;

// What the recorder writes: German and English names, the radio folder's layout.
Track makeTrack(int i)
{
    static const char *const kStations[] = {"Bayern 1", "Radio Eins", "FM4", "SWR3", "Deutschlandfunk Kultur"};
    const QString station = QString::fromLatin1(kStations[i % std::size(kStations)]);
    const QString artist = QStringLiteral("Künstlerin %1").arg(i % 3000);
    const QString title = QStringLiteral("Ein ziemlich langer Liedtitel Nummer %1").arg(i);
    return Track(title, artist, QStringLiteral("Album %1").arg(i % 9000), 120.0 + i % 300,
                 QDateTime::fromSecsSinceEpoch(1'600'000'000 + qint64(i) * 97, Qt::UTC),
                 i % 4 ? QStringLiteral("Pop") : QString(), i % 50 == 0, i % 13, QStringLiteral("radio"), station,
                 QStringLiteral("/home/nutzer/Musik/Orvida/Radio/%1/%2 - %3.mp3").arg(station, artist, title));
}

class Library {
public:
    // Beside the executable: /tmp may be a RAM file system, and the targets are for a disk.
    Library() : m_dir(QFileInfo(QStringLiteral("/proc/self/exe")).canonicalPath() + QStringLiteral("/library_bench.XXXXXX"))
    {
        LibraryOpenResult opened = LibraryStore::open(path());
        if (!opened)
            qFatal("%s", qPrintable(opened.message));
        QList<Track> tracks;
        tracks.reserve(kTracks);
        for (int i = 0; i < kTracks; ++i)
            tracks << makeTrack(i);
        if (opened.store->insertTracks(tracks).size() != kTracks)
            qFatal("filling the library failed: %s", qPrintable(opened.store->lastError()));
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
        paths << *makeTrack((i * 7919) % kTracks).filePath;
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
        if (!store->insert(makeTrack(i++)))
            state.SkipWithError("insert failed");
    }
}
BENCHMARK(BM_InsertOneSavedTrack)->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
