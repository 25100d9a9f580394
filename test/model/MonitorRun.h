#pragma once

#include "Observation.h"
#include "StreamOptions.h"

#include "tarn/MetricsMonitor.h"

#include "cvlcoreplatform/TLogger.h"
#include "cvlmetrics/MetricsEvent.h"
#include "cvlsys/IntegerTypes.h"
#include "cvlsys/MemoryTracking.h"
#include "cvlsys/RefCntObject.h"

#include <array>
#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace TLog {
class Event;
class LogBackEnd;
}  // namespace TLog

namespace model {

/// A monitor of the library, made to order and watched: it has a known id generator, a sink, a log
/// back end and counters that write down what happens. Sets process-wide options, the logger's
/// back end and its threshold, and restores none but the back end and the threshold; so there is
/// one at a time, on one thread.
class MonitorRun {
public:
    MonitorRun(const StreamOptions& options,
               uint64 rootContextId,
               std::vector<uint64> contextIds,
               bool throughDefaultSink,
               bool repeatingIds);
    ~MonitorRun();
    MonitorRun(const MonitorRun&) = delete;
    MonitorRun& operator=(const MonitorRun&) = delete;

    Observation Construct();
    void SetOptions(const StreamOptions& options);
    Observation Handle(const Metrics::MetricsEvent& event, bool sinkThrows);
    Observation Destroy();

    /// For events that come by the bus.
    void Register();
    void Unregister();

    void LetSinkThrow(bool sinkThrows) { m_sinkThrows = sinkThrows; }

    /// What has happened since the last call of any of the above that returns what it saw.
    Observation Look();

private:
    class Sink;
    class KnownIds;
    class BackEnd;

    Observation Observe(const std::function<void()>& call);

    std::vector<uint64> m_contextIds;
    uint64 m_rootContextId;
    bool m_throughDefaultSink;
    bool m_repeatingIds;
    bool m_sinkThrows = false;
    int32 m_memoryModeOverride = 0;
    std::vector<Entry> m_journal;
    std::array<std::atomic<int64>, numberOfCounters> m_counters{};
    std::shared_ptr<TLog::LogBackEnd> m_formerBackEnd;
    int32 m_formerThreshold;
    RefCntPtr<MetricsMonitor> m_monitor;
};

/// An event as plain data, with what its line says otherwise.
Entry PlainEntry(const TLog::Event& event, TLog::Severity severity);

/// What a process measures of its scopes outside unit-test mode.
struct ProcessTracking {
    corvala::memory::MemoryTrackingMode memoryMode = corvala::memory::MemoryTrackingAll;
    bool cpuTime = false;
};

/// The facts that the model of this process's monitors needs to know. The first call sets the
/// host name and the process's own memory and CPU tracking, makes the library read them and then
/// changes them, so that every later event shows whether the first reading was kept. Later calls
/// change nothing, whatever they ask for.
const ProcessFacts& PrepareProcess(ProcessTracking tracking = {});

}  // namespace model
