#pragma once

#include "cvlsys/IntegerTypes.h"

/// What the log says about what is missing in it. Any thread may call these functions.
namespace Metrics::LossReport {

enum class Loss { RefusedScope, RefusedAttribute, PendingAttribute, LostEvent };

void Count(Loss loss) noexcept;

/// How many there have been since the process started.
uint64 Get(Loss loss) noexcept;

/// Logs a message at warning severity if there were losses since the last one.
void Write() noexcept;

/// As `Write`, but not more often than once a minute; for the delivering thread.
void WriteIfDue() noexcept;

}  // namespace Metrics::LossReport
