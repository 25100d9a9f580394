#pragma once

#include "support/Measure.h"
#include "support/OutputFile.h"

#include "tarn/ActivityScope.h"
#include "tarn/MetricsMonitor.h"

#include "cvlcoreplatform/host/LogBackEnd.h"
#include "cvlmetrics/Context.h"
#include "cvlsys/IntegerTypes.h"
#include "cvlsys/RefCntObject.h"

#include <atomic>
#include <deque>
#include <latch>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <benchmark/benchmark.h>

namespace benchmarks {

/// Who receives the events of scopes.
enum class Receiver {
    Nobody,    ///< tracing is enabled, no monitor is registered
    NullSink,  ///< a monitor builds all log events and drops them
    File,      ///< a monitor builds them, and each becomes a line in a log file
};

/// How tracing is set up. Foreground thread contexts are on and allocations are tracked in all of
/// them.
struct Setup {
    Receiver receiver = Receiver::Nobody;
    bool isAsynchronous = false;
    bool useJournal = false;  ///< the file is written through a journal
    bool tracksCpu = false;
    int64 namesOff = 0;          ///< other names that are switched off
    bool isMeasuredOff = false;  ///< so is the name of the scopes that are measured
    bool canHoldDelivery = false;
    int64 otherOpenScopes = 0;  ///< on threads that do nothing meanwhile
    int64 otherContexts = 0;    ///< root contexts that are open there
};

/// The scope that all benchmarks measure: three short texts, as a host would give them.
inline constexpr const char* measuredName = "measured";

class MeasuredScope {
public:
    explicit MeasuredScope(const char* name = measuredName)
        : m_scope(name, {{"table", "packages"}, {"order", "by name"}, {"client", "browser"}}) {}

    const tarn::ActivityScope& Get() const noexcept { return m_scope; }

private:
    const tarn::ActivityScope m_scope;
};

inline void TraceMeasuredScope() {
    const MeasuredScope scope;
}

/// The two lines of one scope.
struct ScopeLines {
    std::string begin;
    std::string end;
};

/// Open scopes, a few in each of many root contexts, as the requests of a busy process would have
/// them, and root contexts without scopes. They are spread over threads that wait; opening and
/// closing them is the constructor's and the destructor's work.
class OpenElsewhere {
public:
    OpenElsewhere(int64 scopes, int64 contexts);
    ~OpenElsewhere();
    OpenElsewhere(const OpenElsewhere&) = delete;
    OpenElsewhere& operator=(const OpenElsewhere&) = delete;

private:
    void Run(int64 scopes, int64 contexts);

    std::latch m_isComplete;
    std::latch m_mayGo{1};
    std::vector<std::thread> m_threads;
};

/// Tracing as a benchmark needs it, for one run on all its threads. There is one at a time: a
/// benchmark starts it in its set-up, and names `Stop` as its tear-down.
class TracingUnderTest {
public:
    static void Start(const benchmark::State& state, const Setup& setup);
    static void Stop(const benchmark::State& state);

    /// The one that runs.
    static TracingUnderTest& Get() { return *s_current; }

    TracingUnderTest(const Setup& setup, int threads);
    TracingUnderTest(const TracingUnderTest&) = delete;
    TracingUnderTest& operator=(const TracingUnderTest&) = delete;
    ~TracingUnderTest();

    /// Waits until what was emitted before has come to the end of the road. Fails the process if
    /// that takes minutes.
    void Deliver();

    /// Log events that have come to the end of the road: into the sink, or into the file as whole
    /// lines. Call it after `Deliver`, while no thread traces.
    uint64 Events() const;

    /// Bytes in the file; 0 without one.
    uint64 FileBytes() const;

    /// Scopes that the monitor has seen open.
    uint64 ScopesOpened() const noexcept {
        return static_cast<uint64>(m_scopesOpened.load(std::memory_order_relaxed));
    }

    /// Traces one more scope, with the three attributes, and returns its log lines; empty texts
    /// when none came. Call it on one thread, while no other traces.
    ScopeLines LinesOfProbe(const char* name);

    /// Makes the delivering thread wait at the next event until `ReleaseDelivery`, so that it takes
    /// no processor away from those that emit. What is emitted meanwhile must fit into the queues.
    void HoldDelivery() noexcept;
    void ReleaseDelivery() noexcept;

    EmittingThreads& Threads() noexcept { return m_threads; }

private:
    class NullSink;
    class Gate;

    void SetUpLog();
    void SetUpMonitor();

    static std::unique_ptr<TracingUnderTest> s_current;

    Setup m_setup;
    EmittingThreads m_threads;
    std::optional<OutputFile> m_logFile;
    std::shared_ptr<TLog::LogBackEnd> m_formerBackEnd;
    std::shared_ptr<Gate> m_gate;
    std::atomic<int64> m_scopesOpened{0};
    RefCntPtr<MetricsMonitor> m_monitor;
    NullSink* m_nullSink = nullptr;  // the monitor owns it
    std::optional<OpenElsewhere> m_elsewhere;
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

}  // namespace benchmarks
