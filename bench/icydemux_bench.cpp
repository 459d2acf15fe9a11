// The ICY demultiplexer on what a 128 kbit/s station sends: a body with metaint 16000,
// read in 16 KiB chunks (libcurl's largest delivery), a title every fourth block and the
// length byte 0 in between, as icecast does.
// Target: at least 2 GB/s on one core, and no allocation per chunk for the audio.
//
//   build/bench/icydemux_bench --benchmark_repetitions=5 --benchmark_report_aggregates_only=true
//
// Counters: allocs_per_chunk counts every heap allocation (operator new, malloc, realloc)
// during feed(), titles included; the audio-only case must show 0. allocs_per_title is
// what one metadata block costs. The demultiplexer hands audio on as views of the chunk,
// so its cost is per chunk, not per byte; BM_FeedAndCopy adds the one copy a writer makes
// (into a 32 KiB buffer, as the segment file does) for a figure per byte.

#include "engine/icydemux.h"

#include <benchmark/benchmark.h>

#include <atomic>
#include <cstddef>
#include <cstring>

namespace {

std::atomic<qint64> g_allocations { 0 };

} // namespace

// Every heap allocation of the process is counted, Qt's included: its containers call
// malloc and realloc directly, and operator new ends in malloc too. The benchmarks read
// the count around their timed loops only, where nothing but feed() and the callbacks run.
extern "C" {
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *p, size_t size);

void *malloc(size_t size)
{
    g_allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_malloc(size);
}

void *calloc(size_t count, size_t size)
{
    g_allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_calloc(count, size);
}

void *realloc(void *p, size_t size)
{
    g_allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_realloc(p, size);
}
}

namespace {

constexpr qint64 kMetaint = 16000;
constexpr qsizetype kChunkBytes = 16 * 1024;
constexpr int kBlocks = 64; // about a megabyte of stream, four seconds of audio per title

QByteArray metaBlock(const QByteArray &text)
{
    const qsizetype blocks = (text.size() + 15) / 16;
    QByteArray padded = text;
    padded.resize(blocks * 16, '\0');
    return char(blocks) + padded;
}

// `titleEvery` 0: no titles at all, every length byte is 0.
QByteArray streamBody(int titleEvery)
{
    QByteArray body;
    quint32 state = 0x2545F491;
    for (int b = 0; b < kBlocks; ++b) {
        QByteArray audio(kMetaint, Qt::Uninitialized);
        for (char &c : audio) {
            state ^= state << 13;
            state ^= state >> 17;
            state ^= state << 5;
            c = char(state);
        }
        body += audio;
        if (titleEvery > 0 && b % titleEvery == 0)
            body += metaBlock("StreamTitle='Künstlerin " + QByteArray::number(b)
                + " - Ein Lied über den Fluss';"
                  "StreamUrl='http://example.invalid/now';");
        else
            body += '\0';
    }
    return body;
}

void runFeed(benchmark::State &state, int titleEvery, bool copy)
{
    const QByteArray body = streamBody(titleEvery);
    IcyDemux demux(kMetaint);
    qint64 audioBytes = 0;
    qint64 titles = 0;
    std::vector<char> buffer(32 * 1024);
    qsizetype buffered = 0;
    demux.onAudio = [&](QByteArrayView run) {
        audioBytes += run.size();
        if (!copy) {
            benchmark::DoNotOptimize(run.data());
            return;
        }
        for (qsizetype at = 0; at < run.size();) {
            if (buffered == qsizetype(buffer.size()))
                buffered = 0; // where the segment file would write the buffer out
            const qsizetype n = std::min(run.size() - at, qsizetype(buffer.size()) - buffered);
            std::memcpy(buffer.data() + buffered, run.data() + at, size_t(n));
            buffered += n;
            at += n;
        }
        benchmark::ClobberMemory();
    };
    demux.onTitle = [&](const QString &title) {
        ++titles;
        benchmark::DoNotOptimize(title.constData());
    };

    qint64 chunks = 0;
    const qint64 allocationsBefore = g_allocations.load();
    for (auto _ : state) {
        for (qsizetype at = 0; at < body.size(); at += kChunkBytes) {
            demux.feed(QByteArrayView(body).sliced(at, std::min(kChunkBytes, body.size() - at)));
            ++chunks;
        }
    }
    const qint64 allocations = g_allocations.load() - allocationsBefore;
    state.SetBytesProcessed(state.iterations() * body.size());
    state.counters["allocs_per_chunk"] = double(allocations) / double(std::max<qint64>(1, chunks));
    if (titleEvery > 0)
        state.counters["allocs_per_title"] = double(allocations) / double(std::max<qint64>(1, titles));
    benchmark::DoNotOptimize(audioBytes);
}

void BM_FeedWithTitles(benchmark::State &state)
{
    runFeed(state, 4, false);
}
BENCHMARK(BM_FeedWithTitles);

void BM_FeedAudioOnly(benchmark::State &state)
{
    runFeed(state, 0, false);
}
BENCHMARK(BM_FeedAudioOnly);

void BM_FeedAndCopy(benchmark::State &state)
{
    runFeed(state, 4, true);
}
BENCHMARK(BM_FeedAndCopy);

} // namespace
