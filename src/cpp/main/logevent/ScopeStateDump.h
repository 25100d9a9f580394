#pragma once

#include "ScopeState.h"

#include "cvlcoreplatform/TString.h"

namespace tarn {

/// Whether a dump would be written at all; ask before gathering anything for one.
bool IsScopeStateDumpEnabled();

/// Whether the figures of scopes are to be dumped as they change. Asked before anything is made for
/// it, its reason included.
bool AreDumpsWanted();

/// Writes the monitor's record of one scope as event "scope-state", at Info severity, with the
/// reason for it. Never raises for whatever the record holds.
void WriteScopeStateDump(const MetricsMonitor::ScopeState& state,
                         const TString& reason,
                         MetricsMonitor::ScopeState::DumpType type);

}  // namespace tarn
