// What does a scope cost that is on, gets its identity and its place on the thread's stack, but
// has no monitor to tell?

#include "support/AllocationCounter.h"
#include "support/TracingUnderTest.h"

#include "tarn/ActivityScope.h"

#include "cvlmetrics/MetricsManager.h"
#include "cvlsys/IntegerTypes.h"

#include <utility>

#include <benchmark/benchmark.h>

namespace benchmarks {
namespace {

template <class MakeScope>
void MeasureUnheardScope(benchmark::State& state, MakeScope makeScope) {
    TracingUnderTest& tracing = TracingUnderTest::Get();
    const OpenParents parents(state.range(0));
    Expect(state, "listeners", 0, Metrics::MetricsManager::GetInstance().GetConsumerCount());
    const uint64 allocationsBefore = AllocationsOfThisThread();
    uint64 withContext = 0;

    for ([[maybe_unused]] auto iteration : state) {
        withContext += makeScope();
    }

    ReportAllocations(state, allocationsBefore);
    state.SetItemsProcessed(state.iterations());
    Expect(state, "scopes with a context", static_cast<uint64>(state.iterations()), withContext);
    Expect(state, "scopes opened in a monitor", 0, tracing.ScopesOpened());
}

bool IsOn(const tarn::ActivityScope& scope) {
    return scope.GetActivityContext() != nullptr;
}

void ScopeNobodyListensNameOnly(benchmark::State& state) {
    MeasureUnheardScope(state, [] { return IsOn(tarn::ActivityScope("measured")); });
}

void ScopeNobodyListensThreeAttributes(benchmark::State& state) {
    MeasureUnheardScope(state,
                        [] { return IsOn(tarn::ActivityScope("measured", ThreeAttributes())); });
}

void WithDepthsAndThreads(benchmark::internal::Benchmark* benchmark) {
    benchmark->Setup(TracingUnderTest::Start<Receiver::Nobody>)
        ->Teardown(TracingUnderTest::Stop)
        ->ArgName("depth")
        ->Arg(1)
        ->Arg(8)
        ->Arg(64)
        ->Threads(1)
        ->Threads(2)
        ->UseRealTime();
}

BENCHMARK(ScopeNobodyListensNameOnly)->Apply(WithDepthsAndThreads);
BENCHMARK(ScopeNobodyListensThreeAttributes)->Apply(WithDepthsAndThreads);

}  // namespace
}  // namespace benchmarks
