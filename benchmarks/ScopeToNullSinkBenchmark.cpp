// What does a scope cost on the thread that opens it, when a monitor turns it into a begin and an
// end event and nobody writes them?

#include "support/ReceivedScope.h"
#include "support/TracingUnderTest.h"

#include <benchmark/benchmark.h>

namespace benchmarks {
namespace {

void ScopeToNullSink(benchmark::State& state) {
    MeasureReceivedScope(state);
}

BENCHMARK(ScopeToNullSink)
    ->Setup(TracingUnderTest::Start<Receiver::NullSink>)
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
