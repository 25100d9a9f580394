#pragma once

#include "cvlmetrics/Export.h"
#include "cvlsys/IntegerTypes.h"

namespace Metrics {

/// What the bus has done since the process started. Every figure only grows; the three are read
/// one after the other, so a reading taken while events flow is no snapshot of one moment.
struct BusStatistics {
    uint64 deliveredEvents = 0;     ///< events that reached at least one consumer
    uint64 consumerExceptions = 0;  ///< calls of a consumer that ended with an exception
    uint64 lostEvents = 0;          ///< events that found no memory to wait in
};

/// Any thread may call it at any time.
CVLMETRICS_API BusStatistics GetBusStatistics() noexcept;

}  // namespace Metrics
