// Does a scope cost more because of what is open elsewhere in the process, or because many names
// are switched off?

#include "support/Measure.h"
#include "support/ReceivedScope.h"
#include "support/TracingUnderTest.h"

#include "cvlsys/IntegerTypes.h"

#include <cstdint>

#include <benchmark/benchmark.h>

namespace benchmarks {
namespace {

constexpr int64 depth = 1;

// The argument counts the measured scope's own parent or context too.
int64 Others(const benchmark::State& state) {
    return state.range(0) - 1;
}

void WithNumbers(benchmark::internal::Benchmark* benchmark) {
    benchmark->Teardown(TracingUnderTest::Stop)
        ->ArgName("number")
        ->Arg(1)
        ->Arg(1000)
        ->Arg(100000)
        ->UseManualTime();
}

void Unheard(benchmark::State& state) {
    const OpenParents parents(depth);
    MeasureDirect(
        state, TracingUnderTest::Get().Threads(), cheapScopesInBatch, TraceMeasuredScope, [] {});
    Expect(state, "scopes opened in a monitor", 0, TracingUnderTest::Get().ScopesOpened());
}

void Received(benchmark::State& state) {
    MeasureReceivedScope(state, depth);
}

void ReceivedAmongScopes(benchmark::State& state) {
    Expect(state,
           "other scopes that are open",
           static_cast<std::uint64_t>(Others(state)),
           TracingUnderTest::Get().ScopesOpened());
    Received(state);
}

void Off(benchmark::State& state) {
    const OpenParents parents(depth);
    ReceivedSoFar received(state);
    MeasureDirect(
        state, TracingUnderTest::Get().Threads(), cheapScopesInBatch, TraceMeasuredScope, [] {});
    received.ExpectNothing();
}

void StartUnheardAmongScopes(const benchmark::State& state) {
    TracingUnderTest::Start(state, {.otherOpenScopes = Others(state)});
}

void StartReceivedAmongScopes(const benchmark::State& state) {
    TracingUnderTest::Start(state,
                            {.receiver = Receiver::NullSink, .otherOpenScopes = Others(state)});
}

void StartUnheardAmongContexts(const benchmark::State& state) {
    TracingUnderTest::Start(state, {.otherContexts = Others(state)});
}

void StartReceivedAmongContexts(const benchmark::State& state) {
    TracingUnderTest::Start(state,
                            {.receiver = Receiver::NullSink, .otherContexts = Others(state)});
}

void StartOffAmongNames(const benchmark::State& state) {
    TracingUnderTest::Start(
        state, {.receiver = Receiver::NullSink, .namesOff = Others(state), .isMeasuredOff = true});
}

void StartUnheardAmongNames(const benchmark::State& state) {
    TracingUnderTest::Start(state, {.namesOff = state.range(0)});
}

BENCHMARK(Unheard)
    ->Name("AmongOpenScopes/NobodyListens")
    ->Setup(StartUnheardAmongScopes)
    ->Apply(WithNumbers);
BENCHMARK(ReceivedAmongScopes)
    ->Name("AmongOpenScopes/ToNullSink")
    ->Setup(StartReceivedAmongScopes)
    ->Apply(WithNumbers);
BENCHMARK(Unheard)
    ->Name("AmongContexts/NobodyListens")
    ->Setup(StartUnheardAmongContexts)
    ->Apply(WithNumbers);
BENCHMARK(Received)
    ->Name("AmongContexts/ToNullSink")
    ->Setup(StartReceivedAmongContexts)
    ->Apply(WithNumbers);
BENCHMARK(Off)->Name("AmongNamesOff/Off")->Setup(StartOffAmongNames)->Apply(WithNumbers);
BENCHMARK(Unheard)
    ->Name("AmongNamesOff/NobodyListens")
    ->Setup(StartUnheardAmongNames)
    ->Apply(WithNumbers);

}  // namespace
}  // namespace benchmarks
