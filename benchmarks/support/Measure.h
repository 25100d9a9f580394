#pragma once

#include "support/AllocationCounter.h"

#include <atomic>
#include <barrier>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

/// How all benchmarks of whole scopes take their figures, those of the library and those of its
/// peers alike. Scopes come in batches; the clocks are read around a batch, so that reading them
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
/// and scopes_per_s: the scopes of all emitting threads, by the time from the first of them that
/// begins to the last one that ends. The figures of the process are only there where other threads
/// have a part in the work.
namespace benchmarks {

/// Enough scopes in a batch that reading the clocks costs less than a hundredth.
inline constexpr std::int64_t scopesInBatch = 1000;
inline constexpr std::int64_t cheapScopesInBatch = 10000;

/// From when to when a thread emitted, by the monotonic clock.
struct Span {
    std::int64_t begin = 0;
    std::int64_t end = 0;
};

/// The threads of a benchmark that emit at the same time.
class EmittingThreads {
public:
    explicit EmittingThreads(int threads);

    /// Waits until all of them are here.
    void Meet() { m_meeting.arrive_and_wait(); }

    /// The same, and lets them go on within less than a microsecond, which waking threads up does
    /// not.
    void StartTogether() noexcept;

    /// What `thread` has done. Read when all threads have met after that.
    void SetSpan(int thread, const Span& span) noexcept;

    /// From the first begin to the last end.
    std::int64_t WholeSpan() const noexcept;

private:
    struct alignas(64) OwnSpan {
        Span span;
    };

    std::barrier<> m_meeting;
    std::atomic<std::size_t> m_started{0};
    std::vector<OwnSpan> m_spans;
};

/// The figures of one emitting thread, summed over its batches.
class EmittingMeter {
public:
    void Begin() noexcept;
    void End(std::int64_t scopes) noexcept;

    /// The last batch alone, and all from the first to the last.
    const Span& LastBatch() const noexcept { return m_last; }

    Span AllBatches() const noexcept { return {m_firstBegin, m_last.end}; }

    double LastSeconds() const noexcept {
        return static_cast<double>(m_last.end - m_last.begin) / 1e9;
    }

    std::uint64_t Scopes() const noexcept { return m_scopes; }

    void Report(benchmark::State& state) const;

private:
    std::int64_t m_cpuAtBegin = 0;
    Allocations m_allocationsAtBegin;
    std::int64_t m_firstBegin = 0;
    Span m_last;
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

/// Of all emitting threads, by `nanoseconds` that have passed for all of them together.
void ReportThroughput(benchmark::State& state, std::uint64_t scopes, std::int64_t nanoseconds);

/// For work that is done when the emitting call returns. `finish` is called after each batch and
/// belongs to the measured work: it hands on what is still buffered. Returns the scopes of the
/// calling thread.
template <class Emit, class Finish>
std::uint64_t MeasureDirect(benchmark::State& state,
                            EmittingThreads& threads,
                            std::int64_t batch,
                            Emit emit,
                            Finish finish) {
    EmittingMeter meter;
    for ([[maybe_unused]] auto iteration : state) {
        meter.Begin();
        for (std::int64_t i = 0; i < batch; ++i) {
            emit();
        }
        finish();
        meter.End(batch);
        state.SetIterationTime(meter.LastSeconds());
    }
    threads.SetSpan(state.thread_index(), meter.AllBatches());
    threads.Meet();
    if (state.thread_index() == 0) {
        ReportThroughput(state, meter.Scopes(), threads.WholeSpan());
    }
    threads.Meet();
    meter.Report(state);
    return meter.Scopes();
}

/// For work that other threads complete. `prepare` is called on one thread; then all emitting
/// threads begin a batch together; then `deliver` is called on one of them and returns when all is
/// done. Returns the scopes of the calling thread.
template <class Prepare, class Emit, class Deliver>
std::uint64_t MeasureHandedOver(benchmark::State& state,
                                EmittingThreads& threads,
                                std::int64_t batch,
                                Prepare prepare,
                                Emit emit,
                                Deliver deliver) {
    EmittingMeter meter;
    ProcessMeter process;
    std::int64_t together = 0;
    const bool isFirst = state.thread_index() == 0;
    for ([[maybe_unused]] auto iteration : state) {
        if (isFirst) {
            prepare();
            process.Begin();
        }
        threads.StartTogether();
        meter.Begin();
        for (std::int64_t i = 0; i < batch; ++i) {
            emit();
        }
        meter.End(batch);
        threads.SetSpan(state.thread_index(), meter.LastBatch());
        threads.Meet();
        if (isFirst) {
            together += threads.WholeSpan();
            deliver();
            process.End();
        }
        state.SetIterationTime(meter.LastSeconds());
    }
    meter.Report(state);
    if (isFirst) {
        ReportThroughput(state, meter.Scopes(), together);
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
