#pragma once

#include "CapturingSink.h"
#include "EventBuilder.h"
#include "KnownIds.h"
#include "Matchers.h"
#include "TarnTest.h"

#include "tarn/MetricsMonitor.h"

#include "cvlmetrics/MetricsEvent.h"
#include "cvlmetrics/MetricsValue.h"
#include "cvlsys/IntegerTypes.h"
#include "cvlsys/RefCntObject.h"

#include <memory>
#include <string>
#include <vector>

namespace tarn::test {

/// A monitor that the test drives by hand, without the bus: built for the root context, which is
/// open, with tracing enabled, known ids and a capturing sink.
class MonitorTest : public TarnTest {
protected:
    static constexpr uint64 rootContext = 1;

    void SetUp() override;
    void TearDown() override;

    void Send(const Metrics::MetricsEvent& event);

    /// Tracing scopes in the root context.
    void Open(uint64 id, const std::string& name, const Metrics::NameValueList& pairs = {});
    void Close(uint64 id);

    /// The same in another context.
    void OpenIn(uint64 contextId,
                uint64 id,
                const std::string& name,
                const Metrics::NameValueList& pairs = {});
    void CloseIn(uint64 contextId, uint64 id);

    /// A context that is created and opened.
    void OpenContext(uint64 id, uint64 parent = 0);

    void EnableForegroundContexts();

    /// The memory mode that events go by, and a host that wants the figures.
    void ReportResources(corvala::memory::MemoryTrackingMode mode);

    /// The last event that reached the sink; fails when there is none.
    const TLog::Event& LastEvent() const;
    std::vector<std::string> EventNames() const;

    RefCntPtr<MetricsMonitor> monitor;
    std::shared_ptr<CapturedEvents> events = std::make_shared<CapturedEvents>();
    std::shared_ptr<int> idsMade = std::make_shared<int>(0);
};

/// The pairs with which a scope opens while foreground contexts are enabled.
struct ForegroundPairs {
    int traceDepth = 0;
    int serviceDepth = 0;
    std::string root = "ROOT";
    std::string own = "OWN";
    std::string sponsor = "SPONSOR";
    std::string request = "-";

    // They are accepted as a list of pairs.
    // NOLINTNEXTLINE(google-explicit-constructor): stands for itself in lists
    operator Metrics::NameValueList() const;
};

}  // namespace tarn::test
