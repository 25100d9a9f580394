// What does a scope cost on the thread that opens it, until both of its lines are in a log file, or
// in the journal of one?

#include "support/ReceivedScope.h"
#include "support/TracingUnderTest.h"

#include <benchmark/benchmark.h>

namespace benchmarks {
namespace {

void Start(const benchmark::State& state) {
    TracingUnderTest::Start(
        state, {.receiver = Receiver::File, .tracksCpu = state.range(cpuArgument) != 0});
}

void StartWithJournal(const benchmark::State& state) {
    TracingUnderTest::Start(state,
                            {.receiver = Receiver::File,
                             .useJournal = true,
                             .tracksCpu = state.range(cpuArgument) != 0});
}

void ScopeToFile(benchmark::State& state) {
    MeasureReceivedScope(state, state.range(depthArgument));
}

void ScopeToJournal(benchmark::State& state) {
    MeasureReceivedScope(state, state.range(depthArgument));
}

BENCHMARK(ScopeToFile)->Setup(Start)->Apply(WithDepthsThreadsAndCpu);
BENCHMARK(ScopeToJournal)->Setup(StartWithJournal)->Apply(WithDepthsThreadsAndCpu);

}  // namespace
}  // namespace benchmarks
