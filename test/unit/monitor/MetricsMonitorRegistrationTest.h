#pragma once

#include "CapturingSink.h"
#include "KnownIds.h"
#include "TarnTest.h"

#include "tarn/MetricsMonitor.h"
#include "tarn/OptTarn.h"

#include "cvlsys/IntegerTypes.h"
#include "cvlsys/RefCntObject.h"

#include <memory>

namespace tarn::test {

/// Monitors that the test builds itself, with tracing enabled.
class MetricsMonitorRegistrationTest : public TarnTest {
protected:
    using Monitor = RefCntPtr<MetricsMonitor>;

    static constexpr uint64 rootContext = 17;

    MetricsMonitorRegistrationTest() { OptTarn::SetIsTarnEnabled(true); }

    /// With a capturing sink and known ids.
    Monitor MakeMonitor(uint64 contextId = rootContext) {
        Monitor monitor(new MetricsMonitor(contextId));
        monitor->EnableTest(new CapturingSink(m_events), new KnownIds);
        return monitor;
    }

    std::shared_ptr<CapturedEvents> m_events = std::make_shared<CapturedEvents>();
};

}  // namespace tarn::test
