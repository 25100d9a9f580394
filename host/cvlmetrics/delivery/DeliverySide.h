#pragma once

namespace Metrics {

namespace Bus {
struct Delivery;
class OwnDelivery;
}  // namespace Bus

/// What the delivering role keeps for each thread, as `QueueSide` does: every emission reads it, at
/// any time of the thread's life.
struct DeliverySide {
    /// Set exactly while this thread delivers: empties the queues, or calls the consumers.
    Bus::Delivery* delivery = nullptr;
    /// Set while this thread keeps the bus's mutex to deliver what it emits itself.
    Bus::OwnDelivery* ownDelivery = nullptr;
    /// What this thread emits is not queued, whatever else is: it is the delivering thread, or has
    /// an own delivery.
    bool neverQueues = false;
    bool isDeliveringThread = false;
    /// Set while this thread forks and has taken the bus's mutex for that.
    bool hasLockedToFork = false;

    /// Whether the thread has the delivering role, lock included.
    bool HasRole() const noexcept { return delivery != nullptr || ownDelivery != nullptr; }
};

[[gnu::tls_model("initial-exec")]] extern constinit thread_local DeliverySide t_deliverySide;

}  // namespace Metrics
