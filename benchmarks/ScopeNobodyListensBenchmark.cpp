// What does a scope cost that is on, gets its identity and its place on the thread's stack, but has
// no monitor to tell?

#include "support/Measure.h"
#include "support/ReceivedScope.h"
#include "support/TracingUnderTest.h"

#include "tarn/ActivityScope.h"

#include "cvlmetrics/MetricsManager.h"

#include <cstdint>

#include <benchmark/benchmark.h>

namespace benchmarks {
namespace {

void Start(const benchmark::State& state) {
    TracingUnderTest::Start(state, {.tracksCpu = state.range(cpuArgument) != 0});
}

void ScopeNobodyListens(benchmark::State& state) {
    const OpenParents parents(state.range(depthArgument));
    Expect(state, "listeners", 0, Metrics::MetricsManager::GetInstance().GetConsumerCount());
    std::uint64_t withContext = 0;

    const std::uint64_t scopes = MeasureDirect(
        state,
        TracingUnderTest::Get().Threads(),
        cheapScopesInBatch,
        [&] {
            const MeasuredScope scope;
            withContext += scope.Get().GetActivityContext() != nullptr ? 1U : 0U;
        },
        [] {});

    Expect(state, "scopes with a context", scopes, withContext);
    Expect(state, "scopes opened in a monitor", 0, TracingUnderTest::Get().ScopesOpened());
}

BENCHMARK(ScopeNobodyListens)->Setup(Start)->Apply(WithDepthsThreadsAndCpu);

}  // namespace
}  // namespace benchmarks
