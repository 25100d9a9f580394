#pragma once

#include "ScopeState.h"

#include "cvlcoreplatform/TLogValue.h"

#include <memory>

namespace tarn {

/// The group "res" of an end event: what the scope allocated and freed, its processor times, and
/// on how many threads it ran, as far as these are tracked.
std::shared_ptr<TLog::Object> MakeResourceObject(const MetricsMonitor::ScopeState& scope);

}  // namespace tarn
