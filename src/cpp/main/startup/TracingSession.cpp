#include "tarn/TracingSession.h"

#include "tarn/OptTarn.h"

#include "cvlcoreplatform/TLogger.h"
#include "cvlmetrics/LastWords.h"
#include "cvlmetrics/MetricsManager.h"

#include <atomic>

namespace tarn {
namespace {

constinit std::atomic<int> s_sessions{0};

void WarnOfSecondSession() {
    TLog::Logger& logger = TLog::Logger::Get();
    if (logger.IsEnabled(TLog::Warn)) {
        logger.LogMessage(TLog::Warn,
                          u"A tracing session begins beside another tracing session: each of them "
                          u"logs every scope.");
    }
}

/// The monitor knows its context only if tracing is enabled before it is made.
uint64 EnableAndCreateContext() {
    OptTarn::SetIsTarnEnabled(true);
    return Metrics::Context::Create(true);
}

}  // namespace

TracingSession::TracingSession()
    : m_wasEnabled(OptTarn::GetIsTarnEnabled()),
      m_contextId(EnableAndCreateContext()),
      m_monitor(new MetricsMonitor(m_contextId)),
      m_context(std::make_unique<Metrics::Context>(0, m_contextId)) {
    if (s_sessions.load(std::memory_order_relaxed) > 0) {
        WarnOfSecondSession();
    }
    m_monitor->Register(true);
    m_context->OpenScope();
    s_sessions.fetch_add(1, std::memory_order_relaxed);
}

TracingSession::TracingSession(OnCrash onCrash) : TracingSession() {
    if (onCrash == OnCrash::SaveLog && Metrics::SaveOnCrash != nullptr) {
        Metrics::SaveOnCrash();
    }
}

TracingSession::~TracingSession() {
    s_sessions.fetch_sub(1, std::memory_order_relaxed);
    // While the monitor still listens.
    m_context.reset();
    // Directly: `MetricsMonitor::Unregister` does nothing while tracing is disabled.
    Metrics::MetricsManager::GetInstance().RemoveConsumer(
        RefCntPtr<Metrics::IMetricsListener>(m_monitor.Get()));
    OptTarn::SetIsTarnEnabled(m_wasEnabled);
}

}  // namespace tarn
