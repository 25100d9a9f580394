#pragma once

#include "cvlsys/IntegerTypes.h"

/// What the log says about scopes and events that are missing in it. Any thread may count; the
/// delivering thread writes.
namespace Metrics::LossReport {

void CountRefusedScope() noexcept;
void CountLostEvent() noexcept;

uint64 GetRefusedScopes() noexcept;
uint64 GetLostEvents() noexcept;

/// Logs a message at warning severity if there were losses since the last one.
void Write() noexcept;

/// As `Write`, but not more often than once a minute.
void WriteIfDue() noexcept;

}  // namespace Metrics::LossReport
