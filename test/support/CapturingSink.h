#pragma once

#include "tarn/IMetricsMonitorSink.h"

#include "cvlcoreplatform/TLogEvent.h"

#include <memory>
#include <vector>

namespace tarn::test {

/// The events that a sink was given, in order. The test keeps it; the sink, which the monitor owns,
/// only writes to it. No lock: read it while nothing is delivered.
using CapturedEvents = std::vector<TLog::Event>;

/// Keeps a copy of every event in storage that outlives it. The test fails when the event's line
/// says otherwise than the event.
class CapturingSink : public IMetricsMonitorSink {
public:
    explicit CapturingSink(std::shared_ptr<CapturedEvents> events);
    ~CapturingSink() override;

    void Log(const TLog::Event& event) override;

private:
    std::shared_ptr<CapturedEvents> m_events;
};

}  // namespace tarn::test
