#pragma once

#include "cvlmetrics/Export.h"
#include "cvlsys/IntegerTypes.h"

namespace Metrics {

/// A reading of the clocks, as events carry it.
struct ClockReading {
    int64 time = 0;          ///< nanoseconds, never running backwards
    uint64 wallSeconds = 0;  ///< since the epoch
    uint32 wallMicros = 0;   ///< within the second
};

/// The source of the bus's times. Any number of emitting threads call it at once; it must not emit
/// anything itself.
using ClockFunction = ClockReading (*)() noexcept;

/// The system's monotonic clock and its wall clock. A wall clock that is set shows a millisecond
/// later at most.
CVLMETRICS_API ClockReading ReadDefaultClock() noexcept;

/// The clock that stamps the events: the default one, or what `SetClock` has put in its place.
CVLMETRICS_API ClockReading ReadClock() noexcept;

/// Puts another clock in place, null the default one; returns the one that was in place. Any
/// thread may call it; an event that is just being stamped may still get the old clock's time.
/// Meant for tests: a clock that runs backwards makes durations negative.
CVLMETRICS_API ClockFunction SetClock(ClockFunction clock) noexcept;

}  // namespace Metrics
