// The player calls FadeCurve gain for both decks and sanitises plans on its tick, so both
// must stay far below a microsecond and never allocate. Target: < 50 ns per call and an
// "allocations" counter of 0 (every operator new in the process is counted).
//
//   build/bench/transition_bench --benchmark_repetitions=5 --benchmark_report_aggregates_only=true

#include "library/fadecurve.h"
#include "library/transitionplan.h"

#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdlib>
#include <limits>
#include <new>

namespace {
std::atomic<long long> g_allocations{0};
} // namespace

void *operator new(std::size_t size)
{
    g_allocations.fetch_add(1, std::memory_order_relaxed);
    if (void *p = std::malloc(size ? size : 1))
        return p;
    throw std::bad_alloc();
}

void operator delete(void *p) noexcept
{
    std::free(p);
}

void operator delete(void *p, std::size_t) noexcept
{
    std::free(p);
}

namespace {

// Counts the allocations made between construction and report(), which fails the run
// when there were any.
class AllocationWatch {
public:
    AllocationWatch() : m_start(g_allocations.load()) {}
    void report(benchmark::State &state) const
    {
        const long long count = g_allocations.load() - m_start;
        state.counters["allocations"] = double(count);
        if (count != 0)
            state.SkipWithError("allocated on the hot path");
    }

private:
    long long m_start;
};

void BM_FadeGain(benchmark::State &state)
{
    const auto curve = FadeCurve(state.range(0));
    double progress = -0.25;
    float sum = 0;
    const AllocationWatch watch;
    for (auto _ : state) {
        sum += gain(curve, progress, true) + gain(curve, progress, false);
        progress = progress > 1.25 ? -0.25 : progress + 0.001;
    }
    watch.report(state);
    benchmark::DoNotOptimize(sum);
    state.SetItemsProcessed(state.iterations() * 2);
}
BENCHMARK(BM_FadeGain)
    ->ArgName("curve")
    ->Arg(int(FadeCurve::linear))
    ->Arg(int(FadeCurve::equalPower))
    ->Arg(int(FadeCurve::sCurve))
    ->Arg(int(FadeCurve::hold));

void BM_Sanitize(benchmark::State &state)
{
    constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
    // A plan that needs no repair and one that needs every repair.
    const TransitionPlan plans[] = {
        {180, 186, 0.5, 6, FadeCurve::equalPower, FadeCurve::sCurve, 1.02, 8, 0.5},
        {kNaN, -5, -1, 99, FadeCurve::hold, FadeCurve::linear, 1.5, 120, 1.3},
    };
    size_t i = 0;
    const AllocationWatch watch;
    for (auto _ : state) {
        TransitionPlan plan = sanitized(plans[i++ & 1]);
        benchmark::DoNotOptimize(plan);
    }
    watch.report(state);
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Sanitize);

} // namespace

BENCHMARK_MAIN();
