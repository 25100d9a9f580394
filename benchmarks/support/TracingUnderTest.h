#pragma once

#include "tarn/ActivityScope.h"
#include "tarn/MetricsMonitor.h"

#include "cvlcoreplatform/TLogger.h"
#include "cvlcoreplatform/host/LogBackEnd.h"
#include "cvlmetrics/Context.h"
#include "cvlsys/IntegerTypes.h"
#include "cvlsys/RefCntObject.h"

#include <atomic>
#include <barrier>
#include <deque>
#include <filesystem>
#include <memory>
#include <string>

#include <benchmark/benchmark.h>

namespace benchmarks {

/// Who receives the events of scopes.
enum class Receiver {
    Nobody,    ///< tracing is enabled, no monitor is registered
    NullSink,  ///< a monitor builds all log events and drops them
    File,      ///< a monitor builds them, and each becomes a line in a log file
};

/// Tracing with foreground thread contexts, set up for one run of a benchmark on all its threads.
/// There is one at a time: `Start` and `Stop` are what a benchmark names as set-up and tear-down.
class TracingUnderTest {
public:
    template <Receiver receiver>
    static void Start(const benchmark::State& state) {
        Start(receiver, state.threads());
    }

    static void Stop(const benchmark::State& state);

    /// The one that runs.
    static TracingUnderTest& Get() { return *s_current; }

    TracingUnderTest(const TracingUnderTest&) = delete;
    TracingUnderTest& operator=(const TracingUnderTest&) = delete;
    ~TracingUnderTest();

    /// Log events that have come to the end of the road: into the sink, or into the file as whole
    /// lines. Call it while no thread traces.
    uint64 Events() const;

    /// Scopes that the monitor has seen open.
    uint64 ScopesOpened() const noexcept {
        return static_cast<uint64>(m_scopesOpened.load(std::memory_order_relaxed));
    }

    /// Traces one more activity of this name and returns the log line of its begin event; empty
    /// when none came. Call it on one thread, while no other traces.
    std::string LineOfProbe(const char* name, Metrics::NameValueList&& attributes);

    /// Waits until all threads of the benchmark are here.
    void Rendezvous() { m_rendezvous.arrive_and_wait(); }

private:
    class NullSink;

    TracingUnderTest(Receiver receiver, int threads);

    static void Start(Receiver receiver, int threads);

    static std::unique_ptr<TracingUnderTest> s_current;

    Receiver m_receiver;
    std::barrier<> m_rendezvous;
    std::filesystem::path m_logFile;
    std::shared_ptr<TLog::LogBackEnd> m_formerBackEnd;
    std::atomic<int64> m_scopesOpened{0};
    RefCntPtr<MetricsMonitor> m_monitor;
    NullSink* m_nullSink = nullptr;  // the monitor owns it
};

/// What a benchmark's thread traces in: a metrics context of its own, and `depth` open scopes in
/// it, each inside the one before. Belongs to the thread that made it.
class OpenParents {
public:
    explicit OpenParents(int64 depth);
    ~OpenParents();
    OpenParents(const OpenParents&) = delete;
    OpenParents& operator=(const OpenParents&) = delete;

private:
    Metrics::Context m_context;
    std::deque<tarn::ActivityScope> m_scopes;
};

/// Puts the calling thread's allocations for each iteration since `allocationsBefore` into the
/// benchmark's results.
void ReportAllocations(benchmark::State& state, uint64 allocationsBefore);

/// Makes the benchmark fail, with what was expected and what was found, unless they are equal.
void Expect(benchmark::State& state, const char* what, uint64 expected, uint64 found);

/// Makes the benchmark fail unless `line` holds `part`.
void ExpectPart(benchmark::State& state, const std::string& line, const std::string& part);

/// Three short texts, as a host would give them to a scope.
inline Metrics::NameValueList ThreeAttributes() {
    return {{"table", "packages"}, {"order", "by name"}, {"client", "browser"}};
}

}  // namespace benchmarks
