// What does a scope cost whose name is switched off, together with a thousand other names, while a
// monitor listens to all others?

#include "support/Measure.h"
#include "support/ReceivedScope.h"
#include "support/TracingUnderTest.h"

#include <benchmark/benchmark.h>

namespace benchmarks {
namespace {

void SwitchOff(const benchmark::State& state) {
    TracingUnderTest::Start(state,
                            {.receiver = Receiver::NullSink,
                             .tracksCpu = state.range(cpuArgument) != 0,
                             .namesOff = 1000,
                             .isMeasuredOff = true});
}

void ScopeOff(benchmark::State& state) {
    const OpenParents parents(state.range(depthArgument));
    ReceivedSoFar received(state);

    MeasureDirect(
        state, TracingUnderTest::Get().Threads(), cheapScopesInBatch, TraceMeasuredScope, [] {});

    received.ExpectNothing();
}

BENCHMARK(ScopeOff)->Setup(SwitchOff)->Apply(WithDepthsThreadsAndCpu);

}  // namespace
}  // namespace benchmarks
