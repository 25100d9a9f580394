#pragma once

#include "CapturingSink.h"
#include "KnownIds.h"

#include "tarn/MetricsMonitor.h"
#include "tarn/OptTarn.h"

#include "cvlmetrics/Context.h"
#include "cvlsys/IntegerTypes.h"
#include "cvlsys/RefCntObject.h"

#include <memory>
#include <optional>

namespace tarn::test {

/// What a host sets up at its start: tracing enabled, a monitor on the bus, and a root context
/// that is current on this thread. From construction to destruction; the options are the
/// fixture's to restore.
class MonitoredHost {
public:
    MonitoredHost() {
        OptTarn::SetIsTarnEnabled(true);
        const uint64 root = Metrics::Context::Create(true);
        m_monitor = RefCntPtr<MetricsMonitor>(new MetricsMonitor(root));
        m_monitor->EnableTest(new CapturingSink(m_events), new KnownIds);
        m_monitor->Register(true);
        m_root.emplace(0, root);
        m_root->OpenScope();
    }

    ~MonitoredHost() {
        m_root.reset();
        m_monitor->Unregister();
    }

    MonitoredHost(const MonitoredHost&) = delete;
    MonitoredHost& operator=(const MonitoredHost&) = delete;

    MetricsMonitor& Monitor() const { return *m_monitor; }

    /// What has reached the log.
    const CapturedEvents& Events() const { return *m_events; }

private:
    std::shared_ptr<CapturedEvents> m_events = std::make_shared<CapturedEvents>();
    RefCntPtr<MetricsMonitor> m_monitor;
    std::optional<Metrics::Context> m_root;
};

}  // namespace tarn::test
