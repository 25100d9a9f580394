#pragma once

#include "CapturingSink.h"
#include "HostCounters.h"
#include "TarnTest.h"

#include "tarn/IMetricsMonitorSink.h"
#include "tarn/MetricsMonitor.h"

#include "cvlmetrics/host/Delivery.h"
#include "cvlsys/IntegerTypes.h"
#include "cvlsys/RefCntObject.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tarn::test {

/// A sink that does something with every event before it keeps it. What it throws goes on, and
/// the event is not kept. The test fails when the event's line says otherwise than the event.
class FaultySink : public IMetricsMonitorSink {
public:
    using Fault = std::function<void(const TLog::Event&)>;

    FaultySink(std::shared_ptr<CapturedEvents> events, Fault fault);
    ~FaultySink() override;

    void Log(const TLog::Event& event) override;

private:
    std::shared_ptr<CapturedEvents> m_events;
    Fault m_fault;
};

/// What the log says about the scopes of one name.
struct LoggedLines {
    int begins = 0;
    int ends = 0;
    std::string id;
    std::string sponsor;               ///< its id; empty for a scope without one
    std::optional<std::string> layer;  ///< the attribute "layer" of the last line
    std::string elapsed;               ///< as text, of the last end
};

/// A host with a monitor, whose parts misbehave, in one of the two ways of delivery.
class FaultTest : public TarnTest {
protected:
    FaultTest();
    ~FaultTest() override;

    /// Puts the monitor on the bus, behind the listeners that are there.
    void Start(Metrics::DeliveryMode mode, FaultySink::Fault fault = {});

    /// Waits until all is delivered. Fails the test when that does not come.
    static void Deliver();

    LoggedLines Lines(const std::string& scopeName) const;

    /// Nothing but the monitor's own root is open, and what was counted as opened was closed.
    void ExpectNothingOpen() const;

    std::shared_ptr<CapturedEvents> m_lines = std::make_shared<CapturedEvents>();
    HostCounters m_counters;
    RefCntPtr<MetricsMonitor> m_monitor;
};

}  // namespace tarn::test
