#pragma once

#include "CrashedThreads.h"

#include "cvlsys/IntegerTypes.h"

#include <chrono>

/// What is saved when the process crashes. For the thread that is there for it.
namespace Metrics::Rescue {

struct Crash {
    int signal = 0;  ///< 0: `std::terminate`
    uint64 threadId = 0;
    std::chrono::steady_clock::time_point end;  ///< nobody waits for it any longer
};

/// Sets memory aside that there will be some, and gives it back.
void Prepare() noexcept;
void Unprepare() noexcept;

/// Delivers what is queued, logs the last words, and flushes the log. From here on events are
/// delivered before the emitting call returns, so that nothing more is queued; if the crash has
/// left the bus locked for good, they are lost and counted.
void Run(const Crash& crash, CrashedThreads& crashed) noexcept;

/// Chooses the delivery again that the host has chosen.
void GoOn() noexcept;

}  // namespace Metrics::Rescue
