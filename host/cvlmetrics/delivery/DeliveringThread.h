#pragma once

#include "Deadline.h"

#include <atomic>
#include <optional>

/// The thread that delivers what is queued. It starts with the first event that needs it, also in a
/// forked child, and sleeps while there is nothing to do. Any thread may call these functions.
namespace Metrics::DeliveringThread {

extern constinit std::atomic<bool> isWanted;

/// Whether events are to be queued for it: only then it is started.
inline bool IsWanted() noexcept {
    return isWanted.load(std::memory_order_acquire);
}

void SetWanted(bool wanted) noexcept;

/// To be called after each event that was queued. Costs one load while the thread is awake. False
/// if there is no such thread and none is to be had, or a shutdown has ended it: the caller has to
/// deliver by itself then.
bool WakeIfIdle() noexcept;

/// Has the thread deliver all that was emitted before the call and flush the log; while delivery is
/// asynchronous a thread is started for that. Whether it was done in time; nothing if there is no
/// thread. Not for the delivering thread.
std::optional<bool> Flush(const Deadline& deadline) noexcept;

/// Ends the thread, after it has delivered what is queued. Whether it has ended in time. What is
/// queued later starts another one only while delivery is asynchronous. Not for the delivering
/// thread.
bool Stop(const Deadline& deadline) noexcept;

/// Whether there is such a thread.
bool IsRunning() noexcept;

/// Whether the calling thread is the delivering one.
bool IsCurrent() noexcept;

}  // namespace Metrics::DeliveringThread
