#pragma once

#include "cvlsys/IntegerTypes.h"

/// Time that passes only when a test says so: the clock of the event bus, and the processor times
/// of each thread, which this program answers in the operating system's place.
namespace figures::fake_time {

/// Installs the clock. With `perThread` each thread has a clock of its own.
void Install(bool perThread);

/// Moves the calling thread's clock, or that of all.
void Pass(int64 nanoseconds);

/// Adds to the calling thread's processor times, in microseconds.
void UseProcessor(int64 kernel, int64 program);

/// How often the system was asked for processor times since the program began.
uint64 Questions();

}  // namespace figures::fake_time
