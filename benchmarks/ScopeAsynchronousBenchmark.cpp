// With asynchronous delivery: what does a scope cost the thread that opens it, and what does it
// cost the process until both of its lines are in a log file? Batches that fit into the queue, so
// that nobody waits for room.

#include "support/Measure.h"
#include "support/ReceivedScope.h"
#include "support/TracingUnderTest.h"

#include <cstdint>

#include <benchmark/benchmark.h>

namespace benchmarks {
namespace {

void Start(const benchmark::State& state) {
    TracingUnderTest::Start(state,
                            {.receiver = Receiver::File,
                             .isAsynchronous = true,
                             .tracksCpu = state.range(cpuArgument) != 0});
}

void StartHeld(const benchmark::State& state) {
    TracingUnderTest::Start(state,
                            {.receiver = Receiver::File,
                             .isAsynchronous = true,
                             .tracksCpu = state.range(cpuArgument) != 0,
                             .canHoldDelivery = true});
}

template <class Prepare>
void MeasureAsynchronousScope(benchmark::State& state, Prepare prepare) {
    TracingUnderTest& tracing = TracingUnderTest::Get();
    const int64 depth = state.range(depthArgument);
    const OpenParents parents(depth);
    ReceivedSoFar received(state);

    const std::uint64_t scopes = MeasureHandedOver(
        state, tracing.Threads(), scopesInBatch, prepare, TraceMeasuredScope, [&] {
            tracing.Deliver();
        });

    received.ExpectScopes(scopes, depth);
}

void ScopeAsynchronous(benchmark::State& state) {
    MeasureAsynchronousScope(state, [] {});
}

// On a machine with two processors the delivering thread would take one of them away from two
// emitting threads. Here it waits until they are through, which shows what they do to each other.
void ScopeAsynchronousHeld(benchmark::State& state) {
    MeasureAsynchronousScope(state, [] { TracingUnderTest::Get().HoldDelivery(); });
}

BENCHMARK(ScopeAsynchronous)->Setup(Start)->Apply(WithDepthsThreadsAndCpu);
BENCHMARK(ScopeAsynchronousHeld)->Setup(StartHeld)->Apply(WithDepthsThreadsAndCpu);

}  // namespace
}  // namespace benchmarks
