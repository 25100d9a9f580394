#pragma once

#include "ActivityTokenText.h"
#include "ContextInfo.h"
#include "OpeningAttributes.h"
#include "RequestContextAttributes.h"
#include "ScopeState.h"

#include "cvlcoreplatform/TString.h"
#include "cvlcoreplatform/TUUID.h"
#include "cvlsys/IntegerTypes.h"

namespace tarn {

/// What one log event is built from; lives as long as that takes.
struct ActivityEventInput {
    const MetricsMonitor::ScopeState& scope;
    const TString* sponsorText = &NoText();  ///< with foreground thread contexts
    TUUID sponsorActivityId;                 ///< without them
    TUUID requestActivityId;

    /// Layers of context attributes; null when the scope's context is unknown or has none.
    const MetricsMonitor::ContextInfo::Layers* layers = nullptr;

    /// Attributes of the request; empty when there is none.
    const RequestContextAttributes::Table& attributes;

    uint64 timeInMicroseconds = 0;  ///< since the epoch

    uint64 lineNumber = 0;  ///< with additional fields, else 0

    /// In place of the attributes that the scope's state has; else null.
    const OpeningAttributes* opening = nullptr;
};

}  // namespace tarn
