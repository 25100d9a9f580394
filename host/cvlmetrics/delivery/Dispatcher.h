#pragma once

#include "Admission.h"
#include "Consumers.h"
#include "Deadline.h"
#include "EventRecord.h"
#include "ReceivedEvents.h"

#include "cvlcoreplatform/host/LineBatch.h"
#include "cvlmetrics/IMetricsListener.h"
#include "cvlmetrics/LentEvent.h"
#include "cvlsys/IntegerTypes.h"
#include "cvlsys/RefCntObject.h"
#include "cvlsys/host/AdaptiveMutex.h"
#include "cvlsys/host/DeliveryGuard.h"

#include <atomic>
#include <cstddef>
#include <functional>
#include <mutex>
#include <optional>
#include <vector>

namespace Metrics::Bus {

/// What the consumers would receive; changes with them.
extern constinit Admission admission;

/// What one thread's delivery gathers until it is over.
struct Delivery {
    std::vector<MetricsEvent> waiting;  ///< emitted on this thread in the meantime, in order
    Consumers::List retired;            ///< unsubscribed in the meantime
};

class OwnDelivery;

/// The delivering role: the lock under which the consumers are read, changed and called and the
/// queues are emptied. There is one, made when the library is loaded and never destroyed.
class Dispatcher {
public:
    static Dispatcher& Get() {
        static Dispatcher& dispatcher = *new Dispatcher;
        return dispatcher;
    }

    Consumers& GetConsumers() noexcept { return m_consumers; }

    /// What the calling thread emits, behind what is queued. Throws `std::bad_alloc`; the event is
    /// lost then.
    void Deliver(const EventView& event);

    /// What the calling thread has emitted earlier, behind what is queued.
    void Deliver(std::vector<MetricsEvent>&& events) noexcept;

    /// What the calling thread emits in `body`: others do not deliver in between.
    void DeliverBatch(void (*body)(const void*) noexcept, const void* context) noexcept;

    /// All that is queued.
    void DeliverQueued() noexcept;

    /// Some of what is queued, for the delivering thread. Whether there was anything.
    bool DeliverQueuedBatch() noexcept;

    /// Waits until what other threads are just delivering has been through all consumers.
    void AwaitDelivery() noexcept;

    /// The same until the deadline. False when it has passed.
    bool AwaitDeliveryWithin(const Deadline& deadline) noexcept;

    /// Gives back what the queues of threads that have ended take.
    void TidyUp() noexcept;

    /// All that was queued before the call, and what is just being delivered. False if that is not
    /// done in time.
    bool DeliverQueuedWithin(const Deadline& deadline) noexcept;

    /// Calls `body`, which must not throw, with the role. False if that is not to be had in time.
    bool CallWithin(const Deadline& deadline, const std::function<void()>& body) noexcept;

    // When the lock is not to be had in time, the next delivery makes the change.

    void AddConsumer(Consumer newcomer, const Deadline& deadline);
    bool RemoveConsumer(const RefCntPtr<IMetricsListener>& listener, const Deadline& deadline);

private:
    friend OwnDelivery;
    friend class RescueDelivery;

    using Lock = std::unique_lock<cvlsys::AdaptiveMutex>;

    Dispatcher();
    ~Dispatcher() = default;

    // Ahead of the delivering thread.
    Lock LockAhead();

    // Before other threads. Owns nothing if the lock is not to be had in time.
    Lock LockWithin(const Deadline& deadline);

    class Fork;
    bool LockForFork(std::chrono::steady_clock::time_point end) noexcept;
    void StartAnewInChild(bool isLocked) noexcept;

    void DeliverQueued(Delivery& delivery) noexcept;
    bool DeliverQueued(uint64 queued, Delivery& delivery, const Deadline& deadline) noexcept;
    std::size_t DeliverNext(Delivery& delivery) noexcept;
    const MetricsEvent* MakeIfWanted(const EventView& event, Delivery& delivery);
    bool TryToMake(const EventView& event, Delivery& delivery, const MetricsEvent*& made) noexcept;
    void DeliverBoxed(EventRecord& record, Delivery& delivery) noexcept;
    void DeliverLent(const EventRecord& record, Delivery& delivery) noexcept;
    void DeliverLent(const EventView& event, Delivery& delivery) noexcept;
    std::size_t DeliverEnd(const EventRecord& record, Delivery& delivery) noexcept;
    std::size_t DeliverRestOfEnd(Delivery& delivery) noexcept;
    bool TryToLend(EndEvents& events, Delivery& delivery) noexcept;
    void DeliverWithFollowers(const EventView& event,
                              const MetricsEvent* made,
                              Delivery& delivery) noexcept;
    void DeliverWaiting(Delivery& delivery) noexcept;

    cvlsys::AdaptiveMutex m_mutex;
    // How many other threads want the mutex: the delivering thread lets them go first.
    std::atomic<uint32> m_othersWait{0};
    Consumers m_consumers{admission};
    ReceivedEvents m_received;
    // What is still to be delivered of an end, which is not in a queue any more.
    std::optional<EndEvents> m_end;
    uint64 m_ticketOfEnd = 0;
};

/// While it exists, its thread has the delivering role and delivers what it emits.
class OwnDelivery {
public:
    explicit OwnDelivery(Dispatcher& dispatcher);
    ~OwnDelivery() = default;
    OwnDelivery(const OwnDelivery&) = delete;
    OwnDelivery& operator=(const OwnDelivery&) = delete;

    /// Throws `std::bad_alloc`; the event is lost then.
    void Deliver(const EventView& event);

    /// Some of the events at least, if there is nobody for whom they go out one by one.
    bool TryToLend(EndEvents& events) noexcept;

    void Deliver(std::vector<MetricsEvent>&& events) noexcept;

private:
    Dispatcher& m_dispatcher;
    // Outlives all that follows: lines are still written when the lock is free.
    cvlsys::DeliveryGuard m_guard;
    // Outlives the lock: the destructor of a listener that goes with its last reference here may do
    // anything, waiting for other threads included.
    Delivery m_delivery;
    // So do the lines of the events: others deliver while this thread writes them.
    std::optional<TLog::LineBatch> m_lines;
    std::unique_lock<cvlsys::AdaptiveMutex> m_lock;
};

}  // namespace Metrics::Bus
