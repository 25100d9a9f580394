#pragma once

#include "cvlcoreplatform/TLogger.h"

/// What is logged at all: severities from a threshold on, while there is a back end. Any thread may
/// call these functions.
namespace cvlcoreplatform::EnabledSeverities {

/// Costs one load.
bool Contain(TLog::Severity severity) noexcept;

void SetThreshold(TLog::Severity threshold) noexcept;
TLog::Severity GetThreshold() noexcept;

/// Without a back end no severity is enabled.
void SetBackEndIsThere(bool isThere) noexcept;

}  // namespace cvlcoreplatform::EnabledSeverities
