#pragma once

/// The thread that the bus has of its own: what it takes from the host, and what not.
namespace Metrics::OwnThread {

/// Starts a detached thread. False if there is no thread to be had. `errno` stays as it is.
///
/// The thread runs with the normal policy, on the processors that the process had when the library
/// was loaded, whatever holds for the thread that happens to start it. The host's signals are for
/// the host's threads, except those that a fault of the thread itself raises, the profiler's, and
/// those that end the process and that the starting thread does not block.
bool Start(void (*body)() noexcept) noexcept;

/// Whether the calling thread is the only one that the process still has, because the main thread
/// has left by `pthread_exit` and the others are gone. False where that cannot be found out. Costs
/// some system calls.
bool IsLastOfProcess() noexcept;

}  // namespace Metrics::OwnThread
