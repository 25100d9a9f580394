#include "support/Measure.h"

#include <algorithm>
#include <ctime>
#include <limits>
#include <thread>

namespace benchmarks {

namespace {

std::int64_t Nanoseconds(clockid_t clock) noexcept {
    timespec time{};
    clock_gettime(clock, &time);
    return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

double Each(std::uint64_t sum, std::uint64_t scopes) {
    return scopes == 0 ? 0 : static_cast<double>(sum) / static_cast<double>(scopes);
}

double Each(std::int64_t sum, std::uint64_t scopes) {
    return Each(static_cast<std::uint64_t>(sum), scopes);
}

}  // namespace

EmittingThreads::EmittingThreads(int threads)
    : m_meeting(threads),
      m_spans(static_cast<std::size_t>(threads)) {}

void EmittingThreads::StartTogether() noexcept {
    Meet();
    const std::size_t threads = m_spans.size();
    // Each round adds as many as there are threads.
    const std::size_t round = m_started.fetch_add(1) / threads;
    while (m_started.load() < (round + 1) * threads) {
        // There may be more threads than processors.
        std::this_thread::yield();
    }
}

void EmittingThreads::SetSpan(int thread, const Span& span) noexcept {
    m_spans[static_cast<std::size_t>(thread)].span = span;
}

std::int64_t EmittingThreads::WholeSpan() const noexcept {
    Span whole{std::numeric_limits<std::int64_t>::max(), 0};
    for (const OwnSpan& own : m_spans) {
        whole.begin = std::min(whole.begin, own.span.begin);
        whole.end = std::max(whole.end, own.span.end);
    }
    return whole.end - whole.begin;
}

// The clock that takes longest to read is read outermost at the beginning and the end: the others
// do not count it.
void EmittingMeter::Begin() noexcept {
    m_allocationsAtBegin = AllocationsOfThisThread();
    m_cpuAtBegin = Nanoseconds(CLOCK_THREAD_CPUTIME_ID);
    m_last.begin = Nanoseconds(CLOCK_MONOTONIC);
    if (m_scopes == 0) {
        m_firstBegin = m_last.begin;
    }
}

void EmittingMeter::End(std::int64_t scopes) noexcept {
    m_last.end = Nanoseconds(CLOCK_MONOTONIC);
    m_wall += m_last.end - m_last.begin;
    m_cpu += Nanoseconds(CLOCK_THREAD_CPUTIME_ID) - m_cpuAtBegin;
    m_allocations += AllocationsOfThisThread() - m_allocationsAtBegin;
    m_scopes += static_cast<std::uint64_t>(scopes);
}

void EmittingMeter::Report(benchmark::State& state) const {
    const auto mean = [&](double value) {
        return benchmark::Counter(value, benchmark::Counter::kAvgThreads);
    };
    state.counters["emit_ns"] = mean(Each(m_cpu, m_scopes));
    state.counters["wall_ns"] = mean(Each(m_wall, m_scopes));
    state.counters["allocs"] = mean(Each(m_allocations.calls, m_scopes));
    state.counters["alloc_bytes"] = mean(Each(m_allocations.bytes, m_scopes));
}

void ProcessMeter::Begin() noexcept {
    m_allocationsAtBegin = AllocationsOfProcess();
    m_cpuAtBegin = Nanoseconds(CLOCK_PROCESS_CPUTIME_ID);
}

void ProcessMeter::End() noexcept {
    m_cpu += Nanoseconds(CLOCK_PROCESS_CPUTIME_ID) - m_cpuAtBegin;
    m_allocations += AllocationsOfProcess() - m_allocationsAtBegin;
}

void ProcessMeter::Report(benchmark::State& state, std::uint64_t scopes) const {
    ReportForAll(state, "process_ns", Each(m_cpu, scopes));
    ReportForAll(state, "process_allocs", Each(m_allocations.calls, scopes));
    ReportForAll(state, "process_alloc_bytes", Each(m_allocations.bytes, scopes));
}

void ReportThroughput(benchmark::State& state, std::uint64_t scopes, std::int64_t nanoseconds) {
    const double all = static_cast<double>(scopes) * state.threads();
    ReportForAll(state,
                 "scopes_per_s",
                 all * 1e9 / static_cast<double>(std::max<std::int64_t>(nanoseconds, 1)));
}

// Counters of the threads are summed up; the others have none of this name.
void ReportForAll(benchmark::State& state, const char* name, double value) {
    state.counters[name] = value;
}

void Expect(benchmark::State& state,
            const std::string& what,
            std::uint64_t expected,
            std::uint64_t found) {
    if (found != expected) {
        state.SkipWithError(
            (what + ": " + std::to_string(found) + " instead of " + std::to_string(expected))
                .c_str());
    }
}

void ExpectPart(benchmark::State& state, const std::string& line, const std::string& part) {
    if (line.find(part) == std::string::npos) {
        state.SkipWithError(("no " + part + " in: " + line).c_str());
    }
}

}  // namespace benchmarks
