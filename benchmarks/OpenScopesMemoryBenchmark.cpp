// How much memory does an open scope take while a hundred thousand are open? With a monitor and
// without: the difference is what the monitor keeps, its records of their contexts included.

#include "support/Measure.h"
#include "support/TracingUnderTest.h"

#include "cvlsys/IntegerTypes.h"

#include <cstddef>
#include <malloc.h>

#include <benchmark/benchmark.h>

namespace benchmarks {
namespace {

std::size_t BytesInUse() {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

void MeasureOpenScopes(benchmark::State& state, int64 openScopes, uint64 expectedInMonitor) {
    // Caches of the threads and what is made once are there before it counts.
    { const OpenParents parents(1); }
    const uint64 openedBefore = TracingUnderTest::Get().ScopesOpened();
    const std::size_t bytesBefore = BytesInUse();
    std::size_t bytes = 0;

    for ([[maybe_unused]] auto iteration : state) {
        const OpenElsewhere scopes(openScopes, 0);
        bytes = BytesInUse() - bytesBefore;
    }

    state.counters["bytes_per_open_scope"] =
        static_cast<double>(bytes) / static_cast<double>(openScopes);
    Expect(state,
           "scopes opened in the monitor",
           expectedInMonitor,
           TracingUnderTest::Get().ScopesOpened() - openedBefore);
}

void MemoryOfOpenScopesNobodyListens(benchmark::State& state) {
    MeasureOpenScopes(state, state.range(0), 0);
}

void MemoryOfOpenScopesInMonitor(benchmark::State& state) {
    MeasureOpenScopes(state, state.range(0), static_cast<uint64>(state.range(0)));
}

void StartUnheard(const benchmark::State& state) {
    TracingUnderTest::Start(state, {});
}

void StartReceived(const benchmark::State& state) {
    TracingUnderTest::Start(state, {.receiver = Receiver::NullSink});
}

BENCHMARK(MemoryOfOpenScopesNobodyListens)
    ->Setup(StartUnheard)
    ->Teardown(TracingUnderTest::Stop)
    ->ArgName("scopes")
    ->Arg(1000)
    ->Arg(100000)
    ->Iterations(1);
BENCHMARK(MemoryOfOpenScopesInMonitor)
    ->Setup(StartReceived)
    ->Teardown(TracingUnderTest::Stop)
    ->ArgName("scopes")
    ->Arg(1000)
    ->Arg(100000)
    ->Iterations(1);

}  // namespace
}  // namespace benchmarks
