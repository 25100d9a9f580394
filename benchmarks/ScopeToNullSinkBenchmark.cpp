// What does a scope cost on the thread that opens it, when a monitor turns it into a begin and an
// end event and nobody writes them?

#include "support/ReceivedScope.h"
#include "support/TracingUnderTest.h"

#include <benchmark/benchmark.h>

namespace benchmarks {
namespace {

void Start(const benchmark::State& state) {
    TracingUnderTest::Start(
        state, {.receiver = Receiver::NullSink, .tracksCpu = state.range(cpuArgument) != 0});
}

void ScopeToNullSink(benchmark::State& state) {
    MeasureReceivedScope(state, state.range(depthArgument));
}

BENCHMARK(ScopeToNullSink)->Setup(Start)->Apply(WithDepthsThreadsAndCpu);

}  // namespace
}  // namespace benchmarks
