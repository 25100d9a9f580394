#pragma once

#include "cvlsys/IntegerTypes.h"

#include <chrono>

/// The thread that saves what can be saved while another one waits in a signal handler. It is made
/// beforehand and sleeps until it is called; a forked child gets one of its own.
namespace Metrics::RescueThread {

/// Starts it if it does not run; waits until it is ready. Throws `std::system_error`.
void Start();

/// Ends it, unless it is at work.
void Stop() noexcept;

void SetDeadline(std::chrono::milliseconds deadline) noexcept;

// For signal handlers.

/// Whether the calling thread is the rescue's.
bool IsCurrent() noexcept;

/// Whether the process is the one that the thread was started in.
bool IsOfThisProcess() noexcept;

/// Has the rescue done for the calling thread, which crashes with `signal` (0: `std::terminate`),
/// and waits for it until the deadline. Does nothing if there is no such thread, or one that is
/// still at work; one that has not begun yet is waited for. For one thread at a time.
void Rescue(int signal, uint64 threadId) noexcept;

/// The calling thread has crashed as well, and waits for its turn.
void NoteCrashMeanwhile(uint64 threadId) noexcept;

/// After a rescue, when the process goes on after all. A thread that has crashed in the middle of a
/// delivery or of logging waits for a rescue that is still at work, for as long as that takes.
void GoOn() noexcept;

/// For the rescue's own thread, when it crashes: nobody waits for it any longer.
[[noreturn]] void GiveUp() noexcept;

// For a fork, in the child.
void StartAnewInChild() noexcept;

}  // namespace Metrics::RescueThread
