#pragma once

#include "cvlmetrics/Export.h"

#include <chrono>
#include <cstddef>
#include <functional>

/// How events get from the threads that emit them to the consumers. A host chooses once, when it
/// starts; the default is synchronous delivery. Any thread may call these operations, also
/// while others emit.
namespace Metrics {

enum class DeliveryMode {
    /// On the emitting thread, before the emitting call returns: an event is in the log when its
    /// scope's destructor has returned. Threads that emit at the same time wait for each other.
    Synchronous,

    /// On a delivering thread. The emitting thread only writes the event into a queue, and waits
    /// only if there is no room.
    Asynchronous,
};

/// What happens when an emitting thread's queue is full.
enum class WhenQueueIsFull {
    /// The thread waits until there is room. Nothing is lost; the waits are counted.
    Wait,

    /// While half of the queue is in use, new scopes are not opened: each is counted and emits
    /// nothing to its end, so whole scopes are missing, never one end. The same applies to metrics
    /// contexts made while three quarters are in use: a root with all its scopes until there is
    /// room again, a child context with all its scopes to its end. Values and attributes of what is
    /// open are refused and counted one by one when only the last quarter is free: that is reserved
    /// for what must not be missing, the ends of scopes and contexts, and the custom context
    /// attributes that an end removes. If it is full as well, these wait, and nothing else does.
    Refuse,
};

struct DeliveryOptions {
    DeliveryMode mode = DeliveryMode::Synchronous;
    WhenQueueIsFull whenFull = WhenQueueIsFull::Wait;

    /// The room of each emitting thread's queue, rounded up to a power of two, 16 KiB at least and
    /// 256 MiB at most. A scope with three short attributes takes about one KiB. An event of more
    /// than 4 KiB takes its memory elsewhere, which counts as well; one that is larger than the
    /// whole queue has to wait until there is no other such event in it. Queues that exist keep
    /// their size.
    std::size_t queueBytes = std::size_t{256} << 10;

    /// How many queues of threads that have ended are kept for the next threads. The others' memory
    /// is given back once they are empty.
    std::size_t keptQueues = 4;

    /// How many bytes the attributes may take that are set on a metrics context by `AttributeImpl`
    /// before its next scope. What is beyond is refused and counted, in every mode.
    std::size_t pendingAttributeBytes = std::size_t{64} << 10;

    /// How long the end of the process waits until everything is delivered, and how long adding or
    /// removing a listener waits for one that is busy. Too long a time means no limit, a negative
    /// one no wait. After one wait in vain there is no other until the queues are delivered: the
    /// end of a process waits once in all.
    std::chrono::milliseconds exitDeadline{5000};
};

/// Sets the delivery. What was emitted before is still delivered before what follows.
CVLMETRICS_API void SetDelivery(const DeliveryOptions& options);

CVLMETRICS_API DeliveryOptions GetDelivery() noexcept;

/// Waits until everything emitted before the call has been through all consumers and the log's back
/// end has flushed it, for at most `deadline`, even if a consumer hangs. Returns whether that
/// happened. Too long a deadline means no limit, a negative one no wait. With synchronous delivery
/// the calling thread does it itself, and a back end that hangs in its own flush blocks it. Always
/// false when a consumer calls it during a delivery, which it cannot wait for.
CVLMETRICS_API bool Flush(std::chrono::milliseconds deadline) noexcept;

/// Calls `body`, which must not throw, while no consumer is called: at once if the calling thread
/// is inside a delivery, else as soon as other threads have ended theirs. What `body` emits is
/// delivered after it. Returns false, without having called it, if that takes longer than
/// `deadline`.
CVLMETRICS_API bool CallBetweenDeliveries(std::chrono::milliseconds deadline,
                                          const std::function<void()>& body) noexcept;

/// As `Flush`, and ends the delivering thread. What is emitted afterwards is delivered
/// synchronously. If it returns false, the delivering thread runs as long as the process does; what
/// is emitted afterwards is lost and counted, so that nobody waits for a hanging consumer. The end
/// of the process (return from main, `exit`, `quick_exit`) calls it with the exit deadline, unless
/// one has given up already. `SetDelivery` starts over.
CVLMETRICS_API bool Shutdown(std::chrono::milliseconds deadline) noexcept;

}  // namespace Metrics
