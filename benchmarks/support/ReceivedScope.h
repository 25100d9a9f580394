#pragma once

#include "support/Measure.h"
#include "support/TracingUnderTest.h"

#include <string>

#include <benchmark/benchmark.h>

namespace benchmarks {

/// The arguments of the benchmarks of one mode: how deep the measured scope is nested, and whether
/// CPU tracking is on.
inline constexpr int depthArgument = 0;
inline constexpr int cpuArgument = 1;

inline void WithDepthsThreadsAndCpu(benchmark::internal::Benchmark* benchmark) {
    benchmark->Teardown(TracingUnderTest::Stop)
        ->ArgNames({"depth", "cpu"})
        ->ArgsProduct({{1, 8, 64}, {0, 1}})
        ->Threads(1)
        ->Threads(2)
        ->Threads(4)
        ->UseManualTime();
}

/// What has come to the receiver when a benchmark begins. All threads make one together, with their
/// parents open, and check it together at the end.
class ReceivedSoFar {
public:
    explicit ReceivedSoFar(benchmark::State& state) : m_state(state) {
        TracingUnderTest& tracing = TracingUnderTest::Get();
        tracing.Threads().Meet();
        if (IsFirst()) {
            tracing.Deliver();
            m_events = tracing.Events();
            m_bytes = tracing.FileBytes();
            m_opened = tracing.ScopesOpened();
        }
        tracing.Threads().Meet();
    }

    ReceivedSoFar(const ReceivedSoFar&) = delete;
    ReceivedSoFar& operator=(const ReceivedSoFar&) = delete;

    /// Fails the benchmark unless each of `scopes` on every thread brought its begin and its end
    /// event, with the attributes in them.
    void ExpectScopes(std::uint64_t scopes, int64 depth) {
        Together([&](TracingUnderTest& tracing, uint64 threads) {
            Expect(m_state, "log events", 2 * scopes * threads, tracing.Events() - m_events);
            Expect(m_state, "scopes opened", scopes * threads, tracing.ScopesOpened() - m_opened);
            ReportForAll(m_state,
                         "file_bytes",
                         static_cast<double>(tracing.FileBytes() - m_bytes) /
                             static_cast<double>(scopes * threads));
            const std::string line = tracing.LinesOfProbe(measuredName).begin;
            ExpectPart(m_state, line, "\"depth\":" + std::to_string(depth));
            for (const char* attribute :
                 {R"("table":"packages")", R"("order":"by name")", R"("client":"browser")"}) {
                ExpectPart(m_state, line, attribute);
            }
        });
    }

    /// Fails the benchmark if anything came, and unless another name is received.
    void ExpectNothing() {
        Together([&](TracingUnderTest& tracing, uint64 /*threads*/) {
            Expect(m_state, "log events", 0, tracing.Events() - m_events);
            Expect(m_state, "scopes opened", 0, tracing.ScopesOpened() - m_opened);
            ExpectPart(m_state, tracing.LinesOfProbe("probe").begin, "begin-probe");
        });
    }

private:
    bool IsFirst() const noexcept { return m_state.thread_index() == 0; }

    template <class Check>
    void Together(Check check) {
        TracingUnderTest& tracing = TracingUnderTest::Get();
        tracing.Threads().Meet();
        if (IsFirst()) {
            tracing.Deliver();
            check(tracing, static_cast<uint64>(m_state.threads()));
        }
        tracing.Threads().Meet();
    }

    benchmark::State& m_state;
    uint64 m_events = 0;
    uint64 m_bytes = 0;
    uint64 m_opened = 0;
};

/// Measures a scope that somebody receives synchronously, inside `depth` open parents on every
/// thread.
inline void MeasureReceivedScope(benchmark::State& state, int64 depth) {
    TracingUnderTest& tracing = TracingUnderTest::Get();
    const OpenParents parents(depth);
    ReceivedSoFar received(state);

    const std::uint64_t scopes = MeasureDirect(
        state, tracing.Threads(), scopesInBatch, TraceMeasuredScope, [&] { tracing.Deliver(); });

    received.ExpectScopes(scopes, depth);
}

}  // namespace benchmarks
