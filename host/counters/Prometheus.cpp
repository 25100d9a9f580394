#include "tarn/Prometheus.h"

#include "Counting.h"
#include "Exposition.h"

#include "tarn/ActivityTracer.h"
#include "tarn/LibraryCounters.h"

#include "cvlcoreplatform/host/LoggerControl.h"
#include "cvlmetrics/host/Statistics.h"
#include "cvlsys/CpuTime.h"
#include "cvlsys/MemoryTracking.h"

#include <string>
#include <utility>

namespace tarn {
namespace {

using Activities = CountedFigures::Activities;

constexpr int nanoseconds = 9;
constexpr int microseconds = 6;

std::string NameLabel(const Activities& activities) {
    return "name=\"" + *activities.label + "\"";
}

/// A counter of each name.
void WriteByName(Exposition& text,
                 const CountedFigures& figures,
                 const char* name,
                 const char* help,
                 uint64 ActivityFigures::*member) {
    text.Family(name, "counter", help);
    for (const Activities& activities : figures.activities) {
        text.Sample({}, NameLabel(activities), activities.figures.*member);
    }
}

void WriteDurations(Exposition& text, const CountedFigures& figures) {
    text.Family("tarn_activity_duration_seconds",
                "histogram",
                "Elapsed time of the activities that have ended.");
    for (const Activities& activities : figures.activities) {
        const std::string name = NameLabel(activities);
        uint64 count = 0;
        for (std::size_t index = 0; index < durationLimits.size(); ++index) {
            count += activities.figures.durations[index];
            text.Sample("_bucket", name + ",le=\"" + durationLimits[index].seconds + "\"", count);
        }
        count += activities.figures.durations.back();
        text.Sample("_bucket", name + ",le=\"+Inf\"", count);
        text.Seconds("_sum", name, activities.figures.nanoseconds, nanoseconds);
        text.Sample("_count", name, count);
    }
}

void WriteProcessorTime(Exposition& text, const CountedFigures& figures) {
    text.Family("tarn_activity_cpu_seconds_total",
                "counter",
                "Processor time of the activities, without that of activities within them.");
    for (const Activities& activities : figures.activities) {
        const std::string name = NameLabel(activities);
        text.Seconds({}, name + ",mode=\"user\"", activities.figures.userTime, microseconds);
        text.Seconds({}, name + ",mode=\"kernel\"", activities.figures.kernelTime, microseconds);
    }
}

void WriteActivities(Exposition& text, const CountedFigures& figures) {
    WriteDurations(text, figures);
    WriteByName(text,
                figures,
                "tarn_activity_failures_total",
                "Activities that ended with a failure.",
                &ActivityFigures::failures);
    WriteByName(text,
                figures,
                "tarn_activity_early_terminations_total",
                "Activities that were canceled, or left by an exception.",
                &ActivityFigures::earlyTerminations);
    if (corvala::cputime::GetCpuTrackingEnabled()) {
        WriteProcessorTime(text, figures);
    }
    if (corvala::memory::GetMemoryTrackingMode() != corvala::memory::MemoryTrackingOff) {
        WriteByName(text,
                    figures,
                    "tarn_activity_allocated_bytes_total",
                    "Memory that the activities allocated, without activities within them.",
                    &ActivityFigures::allocatedBytes);
        WriteByName(text,
                    figures,
                    "tarn_activity_allocations_total",
                    "Allocations of the activities, without activities within them.",
                    &ActivityFigures::allocations);
    }
    text.Gauge("tarn_activity_names",
               "Names of activities that have figures of their own.",
               figures.activities.size() - 1);
    text.Gauge("tarn_activity_names_limit",
               "How many names can have figures of their own; others are counted as (other).",
               figures.mostNames);
}

void WriteLibrary(Exposition& text) {
    const LibraryCounters counters = GetLibraryCounters();
    text.Counter("tarn_contexts_created_total",
                 "Metrics contexts that the monitor has begun to follow.",
                 counters.contextsCreated);
    text.Counter(
        "tarn_contexts_closed_total", "Metrics contexts that ended.", counters.contextsClosed);
    text.Counter("tarn_request_contexts_created_total",
                 "Requests that began.",
                 counters.requestContextsCreated);
    text.Counter("tarn_request_contexts_closed_total",
                 "Requests that ended.",
                 counters.requestContextsClosed);
    text.Counter("tarn_scopes_opened_total", "Scopes that began.", counters.scopesOpened);
    text.Counter("tarn_scopes_closed_total", "Scopes that ended.", counters.scopesClosed);
}

void WriteLeftOut(Exposition& text, const MetricsMonitor::Statistics& monitor) {
    text.Family("tarn_left_out_total", "counter", "What the log lacks because of the limits.");
    text.Sample({}, "what=\"attributes\"", monitor.attributesLeftOut);
    text.Sample({}, "what=\"scopes\"", monitor.scopesLeftOut);
    text.Sample({}, "what=\"pending_attributes\"", monitor.pendingAttributesLeftOut);
    text.Counter("tarn_refused_headers_total",
                 "Headers of requests that were refused.",
                 ActivityTracer::GetRefusedHeaders());
}

void WriteBus(Exposition& text) {
    const Metrics::BusStatistics bus = Metrics::GetBusStatistics();
    text.Counter("tarn_bus_delivered_events_total",
                 "Events that reached at least one consumer.",
                 bus.deliveredEvents);
    text.Counter("tarn_bus_consumer_exceptions_total",
                 "Calls of a consumer that ended with an exception.",
                 bus.consumerExceptions);
    text.Counter("tarn_bus_lost_events_total",
                 "Events that found no memory, or came after the end of the delivery.",
                 bus.lostEvents);
    text.Family("tarn_bus_refused_total", "counter", "What found no room in a queue.");
    text.Sample({}, "what=\"attributes\"", bus.refusedAttributes);
    text.Sample({}, "what=\"scopes\"", bus.refusedScopes);
    text.Sample({}, "what=\"pending_attributes\"", bus.refusedPendingAttributes);
    text.Counter("tarn_bus_waits_total", "Waits of threads for room in their queues.", bus.waits);
    text.Family("tarn_bus_wait_seconds_total",
                "counter",
                "How long threads waited for room in their queues.");
    text.Seconds({}, {}, bus.waitedNanoseconds, nanoseconds);
    text.Gauge("tarn_bus_highest_queue_fill_bytes",
               "Bytes in use in the fullest queue, at the fullest moment.",
               bus.highestQueueFill);
    text.Gauge("tarn_bus_queues", "Queues of threads.", bus.queues);
}

void WriteLog(Exposition& text) {
    const TLog::LogStatistics log = TLog::GetLogStatistics();
    text.Counter("tarn_log_lines_total", "Lines that were handed to the log.", log.lines);
    text.Counter("tarn_log_bytes_total", "Bytes of these lines.", log.bytes);
    text.Counter(
        "tarn_log_write_errors_total", "Lines that could not be written.", log.writeErrors);
    text.Counter("tarn_log_rotations_total",
                 "Log files that were begun because one was full, or on request.",
                 log.rotations);
    text.Counter("tarn_log_reopenings_total", "Log files that were opened again.", log.reopenings);
    text.Counter("tarn_log_rotation_errors_total",
                 "Attempts to begin or open a log file that failed.",
                 log.rotationErrors);
    text.Counter("tarn_log_back_end_exceptions_total",
                 "Exceptions out of a back end of the log.",
                 log.backEndExceptions);
    text.Counter("tarn_log_nested_calls_total",
                 "Lines and scopes from inside a back end, which are dropped.",
                 log.nestedCalls);
}

}  // namespace

inline namespace enabled {

std::string PrometheusText() {
    const CountedFigures figures = ReadCountedFigures();
    Exposition text;
    if (figures.isCounting) {
        WriteActivities(text, figures);
        WriteLibrary(text);
    }
    WriteLeftOut(text, figures.monitor);
    WriteBus(text);
    WriteLog(text);
    return std::move(text).Take();
}

}  // namespace enabled

}  // namespace tarn
