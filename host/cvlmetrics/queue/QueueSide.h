#pragma once

#include "cvlsys/IntegerTypes.h"

namespace Metrics {

class EventQueue;

/// What the queues keep for each thread. It lies at a fixed distance from the thread pointer: every
/// emission reads it, and nothing of it is made or allocated. Trivially destructible, so that it
/// can be asked for as long as the thread runs any code.
struct QueueSide {
    /// The thread's own queue, once there is one.
    EventQueue* queue = nullptr;
    /// How many batches this thread is inside of: what it appends is published at the end of the
    /// outermost one (`EventQueues::Publish`).
    uint32 batches = 0;
};

[[gnu::tls_model("initial-exec")]] extern constinit thread_local QueueSide t_queueSide;

}  // namespace Metrics
