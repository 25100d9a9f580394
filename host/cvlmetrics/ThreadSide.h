#pragma once

#include "EventQueue.h"

#include "cvlsys/IntegerTypes.h"

namespace Metrics {

namespace Bus {
struct Delivery;
}

/// What the bus keeps for each thread. It lies at a fixed distance from the thread pointer: every
/// emission reads it, and nothing of it is made or allocated. Trivially destructible, so that it
/// can be asked for as long as the thread runs any code.
struct ThreadSide {
    /// The thread's own queue, once there is one.
    EventQueue* queue = nullptr;
    /// Set exactly while this thread holds the bus's mutex for a delivery.
    Bus::Delivery* delivery = nullptr;
    /// How many bursts this thread is inside of (`Bus::Burst`).
    uint32 bursts = 0;
    bool isDeliveringThread = false;
    bool hasTornDownQueue = false;
    /// The id of the thread's last scope, and the last one that was set aside for the thread.
    uint64 lastScopeId = 0;
    uint64 lastScopeIdOfBatch = 0;
};

[[gnu::tls_model("initial-exec")]] extern constinit thread_local ThreadSide t_side;

}  // namespace Metrics
