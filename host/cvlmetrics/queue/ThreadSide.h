#pragma once

#include "EventQueue.h"

#include "cvlsys/IntegerTypes.h"
#include "cvlsys/host/IdBatch.h"

#include <vector>

namespace Metrics {

struct MetricsEvent;

namespace Bus {
struct Delivery;
class OwnDelivery;
}  // namespace Bus

/// What the bus keeps for each thread. It lies at a fixed distance from the thread pointer: every
/// emission reads it, and nothing of it is made or allocated. Trivially destructible, so that it
/// can be asked for as long as the thread runs any code.
struct ThreadSide {
    /// The thread's own queue, once there is one.
    EventQueue* queue = nullptr;
    /// Set exactly while this thread delivers: empties the queues, or calls the consumers.
    Bus::Delivery* delivery = nullptr;
    /// Set while this thread keeps the bus's mutex to deliver what it emits itself.
    Bus::OwnDelivery* ownDelivery = nullptr;
    /// What was emitted inside a log back end that this thread is still in.
    std::vector<MetricsEvent>* postponed = nullptr;
    /// How many bursts this thread is inside of (`Bus::InBurst`).
    uint32 bursts = 0;
    /// What this thread emits is not queued, whatever else is: it is the delivering thread, or has
    /// an own delivery.
    bool neverQueues = false;
    bool isDeliveringThread = false;
    bool hasTornDownQueue = false;
    /// Set while this thread forks and has taken the bus's mutex for that.
    bool hasLockedToFork = false;
    cvlsys::IdBatch scopeIds;
};

[[gnu::tls_model("initial-exec")]] extern constinit thread_local ThreadSide t_side;

}  // namespace Metrics
