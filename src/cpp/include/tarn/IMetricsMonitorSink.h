#pragma once

#include "tarn/Export.h"

#include "cvlcoreplatform/TLogEvent.h"

/// Receives the finished activity events of a monitor, in order, on the threads that deliver
/// metrics events and never two at once. The event may be kept by copying it. What the sink
/// throws drops the event and nothing else.
class TARN_EXPORT IMetricsMonitorSink {
public:
    IMetricsMonitorSink() = default;
    IMetricsMonitorSink(const IMetricsMonitorSink&) = delete;
    IMetricsMonitorSink& operator=(const IMetricsMonitorSink&) = delete;
    virtual ~IMetricsMonitorSink();

    virtual void Log(const TLog::Event& event) = 0;
};
