#include "tarn/TracingSession.h"

#include "tarn/OptTarn.h"

#include "cvlmetrics/LastWords.h"

namespace tarn {
namespace {

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
    m_monitor->Register(true);
    m_context->OpenScope();
}

TracingSession::TracingSession(OnCrash onCrash) : TracingSession() {
    if (onCrash == OnCrash::SaveLog && Metrics::SaveOnCrash != nullptr) {
        Metrics::SaveOnCrash();
    }
}

TracingSession::~TracingSession() {
    // While the monitor still listens.
    m_context.reset();
    m_monitor->Unregister();
    OptTarn::SetIsTarnEnabled(m_wasEnabled);
}

}  // namespace tarn
