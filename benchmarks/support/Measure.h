#pragma once

#include "support/AllocationCounter.h"

#include <barrier>
#include <cstddef>
#include <cstdint>
#include <string>

#include <benchmark/benchmark.h>

/// How all benchmarks of whole scopes take their figures, those of the library and those of its
/// peers alike. Scopes come in bursts; the clocks are read around a burst, so that reading them
/// costs little for each scope.
///
/// What a benchmark reports, each for one scope:
///
///     emit_ns                      processor time of the emitting thread (mean over the threads)
///     wall_ns                      time that has passed for the emitting thread
///     allocs, alloc_bytes          operator new on the emitting thread
///     process_ns                   processor time of the whole process until all is delivered
///     process_allocs, process_alloc_bytes     operator new on all threads until then
///
/// and scopes_per_s, of all emitting threads together. Those of the process are only there where
/// other threads have a part in the work.
namespace benchmarks {

/// Enough scopes in a burst that reading the clocks costs less than a hundredth.
inline constexpr std::int64_t scopesInBurst = 1000;
inline constexpr std::int64_t cheapScopesInBurst = 10000;

/// The figures of one emitting thread, summed over its bursts.
class EmittingMeter {
public:
    void Begin() noexcept;
    void End(std::int64_t scopes) noexcept;

    /// Passed time of the last burst.
    double LastSeconds() const noexcept { return static_cast<double>(m_lastWall) / 1e9; }

    std::uint64_t Scopes() const noexcept { return m_scopes; }

    void Report(benchmark::State& state) const;

private:
    std::int64_t m_cpuAtBegin = 0;
    std::int64_t m_wallAtBegin = 0;
    Allocations m_allocationsAtBegin;
    std::int64_t m_lastWall = 0;
    std::int64_t m_cpu = 0;
    std::int64_t m_wall = 0;
    Allocations m_allocations;
    std::uint64_t m_scopes = 0;
};

/// The figures of the whole process. One thread reads them for all.
class ProcessMeter {
public:
    void Begin() noexcept;
    void End() noexcept;
    void Report(benchmark::State& state, std::uint64_t scopes) const;

private:
    std::int64_t m_cpuAtBegin = 0;
    Allocations m_allocationsAtBegin;
    std::int64_t m_cpu = 0;
    Allocations m_allocations;
};

/// For work that is done when the emitting call returns. `finish` is called after each burst and
/// belongs to the measured work: it hands on what is still buffered. Returns the scopes of the
/// calling thread.
template <class Emit, class Finish>
std::uint64_t MeasureDirect(benchmark::State& state, std::int64_t burst, Emit emit, Finish finish) {
    EmittingMeter meter;
    for ([[maybe_unused]] auto iteration : state) {
        meter.Begin();
        for (std::int64_t i = 0; i < burst; ++i) {
            emit();
        }
        finish();
        meter.End(burst);
        state.SetIterationTime(meter.LastSeconds());
    }
    meter.Report(state);
    return meter.Scopes();
}

/// For work that other threads complete. All emitting threads begin a burst together; then
/// `deliver` is called on one of them and returns when all is done. Returns the scopes of the
/// calling thread.
template <class Prepare, class Emit, class Deliver>
std::uint64_t MeasureHandedOver(benchmark::State& state,
                                std::barrier<>& rendezvous,
                                std::int64_t burst,
                                Prepare prepare,
                                Emit emit,
                                Deliver deliver) {
    EmittingMeter meter;
    ProcessMeter process;
    const bool isFirst = state.thread_index() == 0;
    for ([[maybe_unused]] auto iteration : state) {
        if (isFirst) {
            prepare();
            process.Begin();
        }
        rendezvous.arrive_and_wait();
        meter.Begin();
        for (std::int64_t i = 0; i < burst; ++i) {
            emit();
        }
        meter.End(burst);
        rendezvous.arrive_and_wait();
        if (isFirst) {
            deliver();
            process.End();
        }
        state.SetIterationTime(meter.LastSeconds());
    }
    meter.Report(state);
    if (isFirst) {
        process.Report(state, meter.Scopes() * static_cast<std::uint64_t>(state.threads()));
    }
    return meter.Scopes();
}

/// What one thread has counted once for all.
void ReportForAll(benchmark::State& state, const char* name, double value);

/// Makes the benchmark fail, with what was expected and what was found, unless they are equal.
void Expect(benchmark::State& state,
            const std::string& what,
            std::uint64_t expected,
            std::uint64_t found);

/// Makes the benchmark fail unless `line` holds `part`.
void ExpectPart(benchmark::State& state, const std::string& line, const std::string& part);

}  // namespace benchmarks
