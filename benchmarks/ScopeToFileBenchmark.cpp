// What does a scope cost on the thread that opens it, until both of its lines are in a log file?

#include "support/ReceivedScope.h"
#include "support/TracingUnderTest.h"

#include <benchmark/benchmark.h>

namespace benchmarks {
namespace {

void ScopeToFile(benchmark::State& state) {
    MeasureReceivedScope(state);
}

BENCHMARK(ScopeToFile)
    ->Setup(TracingUnderTest::Start<Receiver::File>)
    ->Teardown(TracingUnderTest::Stop)
    ->ArgName("depth")
    ->Arg(1)
    ->Arg(8)
    ->Arg(64)
    ->Threads(1)
    ->Threads(2)
    ->UseRealTime();

}  // namespace
}  // namespace benchmarks
