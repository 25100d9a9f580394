#pragma once

#include "ScopeState.h"

#include "cvlcoreplatform/TString.h"

namespace tarn {

/// Whether a dump would be written at all; ask before gathering anything for one.
bool IsScopeStateDumpEnabled();

/// Writes the monitor's record of one scope as event "scope-state", at Info severity, with the
/// reason for it. Never raises for whatever the record holds.
void WriteScopeStateDump(const MetricsMonitor::ScopeState& state,
                         const TString& reason,
                         MetricsMonitor::ScopeState::DumpType type);

}  // namespace tarn
