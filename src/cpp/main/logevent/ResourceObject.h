#pragma once

#include "ScopeState.h"

#include "cvlcoreplatform/TLogEventBuilder.h"

namespace tarn {

/// Fills the group "res" of an end event: what the scope allocated and freed, its processor times,
/// and on how many threads it ran, as far as these are tracked.
void AddResources(TLog::EventBuilder& event,
                  TLog::EventBuilder::ObjectId object,
                  const MetricsMonitor::ScopeState& scope);

}  // namespace tarn
