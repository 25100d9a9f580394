#pragma once

#include "cvlmetrics/Export.h"

#include <chrono>
#include <cstddef>

/// How events get from the threads that emit them to the consumers. A host chooses once, when it
/// starts; without a choice delivery is synchronous. Any thread may call these operations, also
/// while others emit.
namespace Metrics {

enum class DeliveryMode {
    /// On the emitting thread, before the emitting call returns: an event is in the log when its
    /// scope's destructor has returned. Threads that emit at the same time wait for each other.
    Synchronous,

    /// On a thread of the bus's own. The emitting thread only writes the event into a queue, and
    /// waits for nobody as long as there is room.
    Asynchronous,
};

/// What happens when an emitting thread's queue is full.
enum class WhenQueueIsFull {
    /// The thread waits until there is room. Nothing is lost; the waits are counted.
    Wait,

    /// A scope that is to be opened while half of the queue is in use is not opened: it stays
    /// silent to its end and is counted. Whole scopes are missing then, never one end of them. So
    /// are metrics contexts that are made while three quarters are in use: a root with all its
    /// scopes
    /// until there is room again, a child context with all its scopes to its end. What belongs to
    /// scopes that are open finds room in the other
    /// half; should that be full as well, it waits.
    Refuse,
};

struct DeliveryOptions {
    DeliveryMode mode = DeliveryMode::Synchronous;
    WhenQueueIsFull whenFull = WhenQueueIsFull::Wait;

    /// The room of each emitting thread's queue, rounded up to a power of two, 16 KiB at least. A
    /// scope with three short attributes takes about one KiB. Queues that exist keep their size.
    std::size_t queueBytes = std::size_t{256} << 10;

    /// How long the end of the process waits until everything is delivered.
    std::chrono::milliseconds exitDeadline{5000};
};

/// Chooses the way of delivery. What was emitted before is still delivered before what follows.
CVLMETRICS_API void SetDelivery(const DeliveryOptions& options);

CVLMETRICS_API DeliveryOptions GetDelivery() noexcept;

/// Waits until all that was emitted before the call is delivered and handed on by the log's back
/// end, for `deadline` at the most, also if a consumer hangs. Whether it has come to that. Always
/// false when it is called by a consumer during a delivery, which it cannot wait for.
CVLMETRICS_API bool Flush(std::chrono::milliseconds deadline) noexcept;

/// As `Flush`, and ends the delivering thread. What is emitted afterwards is delivered
/// synchronously. If it returns false, the delivering thread goes on as long as the process lives;
/// what is emitted afterwards is lost and counted, so that nobody waits for a consumer that hangs.
/// The end of the process (return from main, `exit`, `quick_exit`) calls it with the chosen
/// deadline. `SetDelivery` begins anew.
CVLMETRICS_API bool Shutdown(std::chrono::milliseconds deadline) noexcept;

}  // namespace Metrics
