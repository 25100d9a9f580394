#pragma once

#include "tarn/Export.h"
#include "tarn/MetricsMonitor.h"

#include "cvlmetrics/Context.h"
#include "cvlsys/RefCntObject.h"

#include <memory>

namespace tarn {

/// What happens to the log when the process crashes.
enum class OnCrash {
    Nothing,
    /// What is queued is delivered, and a message names the open scopes. From the session's
    /// beginning on, to the end of the process. The host must offer it (`Metrics::SaveOnCrash`, as
    /// the embedded one does); otherwise it is as `Nothing`.
    SaveLog,
};

/// Traces for as long as it lives. It enables tracing, makes a root metrics context current on the
/// calling thread, and registers a monitor. Construct one at the beginning of main, after the
/// options are set:
///
///     int main() {
///         const tarn::TracingSession session;
///         ...
///     }
///
/// One at a time: each monitor logs every scope, and the log warns of a second one. Scopes on all
/// threads must have ended before the session does, and it ends on the thread that made it.
class TARN_EXPORT TracingSession {
public:
    TracingSession();

    /// Throws what `Metrics::SaveOnCrash` throws. Set the host's own signal handlers before.
    explicit TracingSession(OnCrash onCrash);

    /// Unregisters the monitor, even if tracing is disabled by now, and puts the option
    /// IsTarnEnabled back.
    ~TracingSession();

    TracingSession(const TracingSession&) = delete;
    TracingSession& operator=(const TracingSession&) = delete;

    /// To set a sink, additional fields or limits.
    MetricsMonitor& GetMonitor() const noexcept { return *m_monitor; }

private:
    bool m_wasEnabled;
    uint64 m_contextId;
    RefCntPtr<MetricsMonitor> m_monitor;
    std::unique_ptr<Metrics::Context> m_context;
};

}  // namespace tarn
