#pragma once

#include "Deadline.h"

#include <chrono>

/// How long the process waits for consumers that do not return, when listeners come and go and when
/// it ends. It waits that long once: after somebody has waited in vain, nobody else waits until the
/// bus has caught up. So the end of a process takes one such time, however many sessions, listeners
/// and exit handlers it goes through. Any thread may call these functions.
namespace Metrics::ExitDeadline {

/// Chooses the time, and forgets what was waited for in vain.
void Set(std::chrono::milliseconds length) noexcept;

/// For a wait that begins now.
Deadline Begin() noexcept;

/// Somebody has waited in vain.
void Miss() noexcept;

/// All that was queued has been through all consumers.
void Meet() noexcept;

}  // namespace Metrics::ExitDeadline
