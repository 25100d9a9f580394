// With asynchronous delivery: what does a scope cost the thread that opens it, and what does it
// cost the process until both of its lines are in a log file?

#include "support/AllocationCounter.h"
#include "support/TracingUnderTest.h"

#include "tarn/ActivityScope.h"

#include "cvlmetrics/host/Delivery.h"
#include "cvlsys/CpuTime.h"
#include "cvlsys/IntegerTypes.h"

#include <chrono>
#include <cstddef>
#include <ctime>

#include <benchmark/benchmark.h>

namespace benchmarks {
namespace {

constexpr std::chrono::minutes patience{5};

// As many as fit into the queue, so that nobody waits for room within the measured time.
constexpr int64 scopesInBurst = 1000;
constexpr std::size_t roomForBurst = std::size_t{4} << 20;

double ProcessorSecondsOf(clockid_t clock) {
    timespec time{};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

/// Bursts of scopes; the clock is read around each burst, or around the burst and its delivery. The
/// time that is shown is that of a burst: microseconds for a thousand scopes are nanoseconds for
/// one.
void MeasureBursts(benchmark::State& state, clockid_t clock, bool withDelivery) {
    TracingUnderTest& tracing = TracingUnderTest::Get();
    const OpenParents parents(state.range(0));
    Metrics::Flush(patience);
    const uint64 eventsBefore = tracing.Events();
    uint64 allocations = 0;

    for ([[maybe_unused]] auto iteration : state) {
        const uint64 allocationsBefore = AllocationsOfThisThread();
        const double begin = ProcessorSecondsOf(clock);
        for (int64 i = 0; i < scopesInBurst; ++i) {
            const tarn::ActivityScope scope("measured", ThreeAttributes());
        }
        const double emitted = ProcessorSecondsOf(clock);
        allocations += AllocationsOfThisThread() - allocationsBefore;
        Metrics::Flush(patience);
        const double delivered = ProcessorSecondsOf(clock);
        state.SetIterationTime((withDelivery ? delivered : emitted) - begin);
    }

    state.SetItemsProcessed(state.iterations() * scopesInBurst);
    const auto scopes = static_cast<uint64>(state.iterations() * scopesInBurst);
    state.counters["allocs/scope"] = static_cast<double>(allocations) / static_cast<double>(scopes);
    Expect(state, "log events", 2 * scopes, tracing.Events() - eventsBefore);
}

void StartAsynchronously(const benchmark::State& state, bool tracksCpu) {
    Metrics::SetDelivery({.mode = Metrics::DeliveryMode::Asynchronous, .queueBytes = roomForBurst});
    corvala::cputime::SetCpuTrackingEnabled(tracksCpu);
    TracingUnderTest::Start<Receiver::File>(state);
}

void StartPlain(const benchmark::State& state) {
    StartAsynchronously(state, false);
}

void StartWithCpu(const benchmark::State& state) {
    StartAsynchronously(state, true);
}

void Stop(const benchmark::State& state) {
    TracingUnderTest::Stop(state);
    corvala::cputime::SetCpuTrackingEnabled(false);
    Metrics::Shutdown(patience);
    Metrics::SetDelivery({});
}

void ScopeAsynchronousEmitting(benchmark::State& state) {
    MeasureBursts(state, CLOCK_THREAD_CPUTIME_ID, false);
}

void ScopeAsynchronousInAll(benchmark::State& state) {
    MeasureBursts(state, CLOCK_PROCESS_CPUTIME_ID, true);
}

void WithDepths(benchmark::internal::Benchmark* benchmark) {
    benchmark->Teardown(Stop)->ArgName("depth")->Arg(1)->Arg(8)->Arg(64)->UseManualTime()->Unit(
        benchmark::kMicrosecond);
}

BENCHMARK(ScopeAsynchronousEmitting)->Setup(StartPlain)->Apply(WithDepths);
BENCHMARK(ScopeAsynchronousEmitting)
    ->Name("ScopeAsynchronousEmittingWithCpu")
    ->Setup(StartWithCpu)
    ->Apply(WithDepths);
BENCHMARK(ScopeAsynchronousInAll)->Setup(StartPlain)->Apply(WithDepths);

}  // namespace
}  // namespace benchmarks
