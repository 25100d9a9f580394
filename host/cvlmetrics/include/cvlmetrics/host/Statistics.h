#pragma once

#include "cvlmetrics/Export.h"
#include "cvlsys/IntegerTypes.h"

namespace Metrics {

/// What the bus has done since the process started. Every figure but the last only grows; they are
/// read one after the other, so a reading taken while events flow is no snapshot of one moment.
struct BusStatistics {
    uint64 deliveredEvents = 0;     ///< events that reached at least one consumer
    uint64 consumerExceptions = 0;  ///< calls of a consumer that ended with an exception
    uint64 lostEvents = 0;     ///< events that found no memory, or came after a shutdown gave up
    uint64 refusedScopes = 0;  ///< scopes that found too little room and were not opened
    uint64 refusedAttributes = 0;         ///< values and attributes that found too little room
    uint64 refusedPendingAttributes = 0;  ///< context attributes beyond `pendingAttributeBytes`
    uint64 waits = 0;                     ///< how often a thread waited for room in its queue
    uint64 waitedNanoseconds = 0;         ///< how long, in sum
    uint64 highestQueueFill = 0;  ///< bytes in use in the fullest queue, at the fullest moment
    uint64 queues = 0;            ///< queues there are now, those that are kept included
};

/// Any thread may call it at any time.
CVLMETRICS_API BusStatistics GetBusStatistics() noexcept;

}  // namespace Metrics
