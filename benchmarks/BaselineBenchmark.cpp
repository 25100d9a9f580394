// What do the things cost that a scope is made of, on this machine at this moment?

#include "support/AllocationCounter.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <new>
#include <sys/resource.h>
#include <time.h>

#include <benchmark/benchmark.h>

namespace benchmarks {
namespace {

void BaselineClockRead(benchmark::State& state) {
    auto last = std::chrono::steady_clock::now();
    bool isMonotonic = true;

    for ([[maybe_unused]] auto iteration : state) {
        const auto now = std::chrono::steady_clock::now();
        isMonotonic = isMonotonic && now >= last;
        last = now;
    }

    if (!isMonotonic) {
        state.SkipWithError("the clock ran backwards");
    }
}

std::atomic<std::uint64_t> g_sharedCounter{0};

void ResetSharedCounter(const benchmark::State& /*state*/) {
    g_sharedCounter = 0;
}

void BaselineAtomicAdd(benchmark::State& state) {
    for ([[maybe_unused]] auto iteration : state) {
        g_sharedCounter.fetch_add(1, std::memory_order_relaxed);
    }

    // The loop has ended on all threads when it has ended on one.
    const auto expected = static_cast<std::uint64_t>(state.iterations()) *
                          static_cast<std::uint64_t>(state.threads());
    if (g_sharedCounter.load() != expected) {
        state.SkipWithError("additions were lost");
    }
}

thread_local std::uint64_t t_ownValue = 0;

void BaselineThreadLocalRead(benchmark::State& state) {
    t_ownValue = 3;
    std::uint64_t sum = 0;

    for ([[maybe_unused]] auto iteration : state) {
        // Nothing may be remembered from the iteration before.
        benchmark::ClobberMemory();
        sum += t_ownValue;
        benchmark::DoNotOptimize(sum);
    }

    if (sum != 3 * static_cast<std::uint64_t>(state.iterations())) {
        state.SkipWithError("another value was read");
    }
}

void BaselineGetrusage(benchmark::State& state) {
    rusage usage{};
    std::int64_t failures = 0;

    for ([[maybe_unused]] auto iteration : state) {
        failures += getrusage(RUSAGE_THREAD, &usage);
        benchmark::DoNotOptimize(usage);
    }

    if (failures != 0 || usage.ru_maxrss == 0) {
        state.SkipWithError("getrusage failed");
    }
}

// A thread's processor time as it is now; docs/benchmarks.md says why it takes both calls.
void BaselineThreadTimes(benchmark::State& state) {
    timespec now{};
    rusage usage{};
    std::int64_t failures = 0;

    for ([[maybe_unused]] auto iteration : state) {
        failures += clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
        failures += getrusage(RUSAGE_THREAD, &usage);
        benchmark::DoNotOptimize(now);
        benchmark::DoNotOptimize(usage);
    }

    if (failures != 0 || now.tv_nsec == 0 || usage.ru_maxrss == 0) {
        state.SkipWithError("the thread's times could not be read");
    }
}

// Also shows that the allocations of the other benchmarks are counted right.
void BaselineNewDelete(benchmark::State& state) {
    constexpr std::size_t bytes = 64;
    const Allocations before = AllocationsOfThisThread();

    for ([[maybe_unused]] auto iteration : state) {
        void* const block = ::operator new(bytes);
        benchmark::DoNotOptimize(block);
        ::operator delete(block);
    }

    const Allocations counted = AllocationsOfThisThread() - before;
    const auto calls = static_cast<std::uint64_t>(state.iterations());
    if (counted.calls != calls || counted.bytes != bytes * calls) {
        state.SkipWithError("allocations were not counted");
    }
}

BENCHMARK(BaselineClockRead);
BENCHMARK(BaselineAtomicAdd)->Setup(ResetSharedCounter)->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK(BaselineThreadLocalRead);
BENCHMARK(BaselineGetrusage);
BENCHMARK(BaselineThreadTimes);
BENCHMARK(BaselineNewDelete);

}  // namespace
}  // namespace benchmarks
