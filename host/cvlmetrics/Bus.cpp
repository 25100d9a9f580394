#include "Bus.h"

#include "Admission.h"
#include "Consumers.h"
#include "DeliveringThread.h"
#include "EventQueues.h"
#include "EventRecord.h"
#include "LossReport.h"
#include "PendingContexts.h"
#include "ReceivedEvents.h"
#include "ThreadSide.h"

#include "cvlcoreplatform/host/LineBatch.h"
#include "cvlmetrics/MetricsManager.h"
#include "cvlmetrics/host/Clock.h"
#include "cvlmetrics/host/Statistics.h"
#include "cvlsys/host/AdaptiveMutex.h"
#include "cvlsys/host/MemoryCharging.h"

#include <atomic>
#include <cerrno>
#include <mutex>
#include <new>
#include <optional>
#include <pthread.h>
#include <thread>
#include <utility>
#include <vector>

namespace Metrics::Bus {

using cvlsys::AdaptiveMutex;
using std::chrono::milliseconds;

/// What one thread's delivery gathers until it is over.
struct Delivery {
    std::vector<MetricsEvent> waiting;  ///< emitted on this thread in the meantime, in order
    Consumers::List retired;            ///< unsubscribed in the meantime
};

namespace {

constinit Admission s_admission;

constinit std::atomic<bool> s_isAsynchronous{false};
constinit std::atomic<bool> s_isRefusing{false};
constinit std::atomic<bool> s_isGivenUp{false};
constinit std::atomic<milliseconds> s_patience{milliseconds{5000}};

constinit std::atomic<uint64> s_waits{0};
constinit std::atomic<uint64> s_waitedNanos{0};

// Around deliveries. The host's errno is nobody else's business, and a thread that is cancelled
// must not unwind out of a destructor.
class HostState {
public:
    HostState() noexcept { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &m_cancelState); }

    ~HostState() {
        pthread_setcancelstate(m_cancelState, nullptr);
        errno = m_errno;
    }

    HostState(const HostState&) = delete;
    HostState& operator=(const HostState&) = delete;

private:
    int m_errno = errno;
    int m_cancelState = PTHREAD_CANCEL_ENABLE;
};

// Around the calls of the consumers.
class CurrentDelivery {
public:
    explicit CurrentDelivery(Delivery& delivery) noexcept { t_side.delivery = &delivery; }

    ~CurrentDelivery() { t_side.delivery = nullptr; }

    CurrentDelivery(const CurrentDelivery&) = delete;
    CurrentDelivery& operator=(const CurrentDelivery&) = delete;
};

void Wait(Delivery& delivery, const EventView& event) {
    try {
        MetricsEvent waiting;
        event.CopyTo(waiting);
        delivery.waiting.push_back(std::move(waiting));
    } catch (const std::bad_alloc&) {
        LossReport::CountLostEvent();
        throw;
    }
}

/// The delivering role: the lock under which the consumers are read, changed and called and the
/// queues are emptied. There is one, made at first use and never destroyed.
class Dispatcher {
public:
    static Dispatcher& Get() {
        static Dispatcher& dispatcher = *new Dispatcher;
        return dispatcher;
    }

    Consumers& GetConsumers() noexcept { return m_consumers; }

    void Deliver(const EventView& event);
    void DeliverBurst(void (*body)(const void*) noexcept, const void* context) noexcept;
    void DeliverQueued() noexcept;
    bool DeliverSome() noexcept;

    void AddConsumer(const RefCntPtr<IMetricsListener>& listener, uint64 bits, bool everything);
    bool RemoveConsumer(const IMetricsListener& listener);
    bool RemoveConsumerWithin(const RefCntPtr<IMetricsListener>& listener, milliseconds patience);

private:
    Dispatcher();
    ~Dispatcher() = default;

    // A thread that is delivering holds the mutex already.
    std::unique_lock<AdaptiveMutex> Lock() noexcept {
        return t_side.delivery == nullptr ? std::unique_lock(m_mutex)
                                          : std::unique_lock<AdaptiveMutex>();
    }

    void LockForFork() noexcept;
    void UnlockAfterFork() noexcept;
    void StartAnewInChild() noexcept;

    friend OwnDelivery;

    void DeliverQueued(Delivery& delivery) noexcept;
    bool DeliverNext(Delivery& delivery) noexcept;
    const MetricsEvent* Read(EventRecord& record) noexcept;
    void DeliverWithFollowers(const MetricsEvent& event, Delivery& delivery) noexcept;

    AdaptiveMutex m_mutex;
    // How many other threads want the mutex: the delivering thread lets them go first.
    std::atomic<uint32> m_othersWait{0};
    Consumers m_consumers{s_admission};
    ReceivedEvents m_received;
};

/// Tells the delivering thread that somebody else wants the lock.
class Claim {
public:
    explicit Claim(std::atomic<uint32>& claims) noexcept : m_claims(claims) {
        m_claims.fetch_add(1, std::memory_order_relaxed);
    }

    ~Claim() { m_claims.fetch_sub(1, std::memory_order_relaxed); }

    Claim(const Claim&) = delete;
    Claim& operator=(const Claim&) = delete;

private:
    std::atomic<uint32>& m_claims;
};

}  // namespace

/// While it exists, its thread has the delivering role and delivers what it emits.
class OwnDelivery {
public:
    explicit OwnDelivery(Dispatcher& dispatcher);
    ~OwnDelivery() = default;
    OwnDelivery(const OwnDelivery&) = delete;
    OwnDelivery& operator=(const OwnDelivery&) = delete;

    /// Throws `std::bad_alloc`; the event is lost then.
    void Deliver(const EventView& event);

private:
    Dispatcher& m_dispatcher;
    // Outlives the lock: the destructor of a listener that goes with its last reference here may do
    // anything, waiting for other threads included.
    Delivery m_delivery;
    // So do the lines of the events: others deliver while this thread writes them.
    std::optional<TLog::LineBatch> m_lines;
    Claim m_claim;
    std::lock_guard<AdaptiveMutex> m_lock;
    HostState m_hostState;
    corvala::memory::UnchargedAllocations m_uncharged;
};

namespace {

// A child that is forked while another thread delivers, queues its first event or starts the
// delivering thread would find a mutex locked for ever and records half written. So the forking
// thread takes all locks first, unless it is itself the one that delivers.
//
// The logger has registered handlers of its own when it was loaded, before these. So it is locked
// after the bus, as in a delivery that logs.
Dispatcher::Dispatcher() {
    // Locks are made at first use; a fork is no time to find that there is no memory for them.
    EventQueues::Initialize();
    DeliveringThread::LockForFork();
    DeliveringThread::UnlockAfterFork();
    PendingContexts::LockForFork();
    PendingContexts::UnlockAfterFork();
    const int result = pthread_atfork([] { Get().LockForFork(); },
                                      [] { Get().UnlockAfterFork(); },
                                      [] { Get().StartAnewInChild(); });
    if (result != 0) {
        throw std::bad_alloc();
    }
}

void Dispatcher::LockForFork() noexcept {
    if (t_side.delivery == nullptr) {
        // The child forgets what is queued, and its consumers are to know the contexts and scopes
        // that are open on the thread that forks.
        DeliverQueued();
        const Claim claim(m_othersWait);
        m_mutex.LockNext();
    }
    DeliveringThread::LockForFork();
    EventQueues::LockForFork();
    PendingContexts::LockForFork();
}

void Dispatcher::UnlockAfterFork() noexcept {
    PendingContexts::UnlockAfterFork();
    EventQueues::UnlockAfterFork();
    DeliveringThread::UnlockAfterFork();
    if (t_side.delivery == nullptr) {
        m_mutex.unlock();
    }
}

void Dispatcher::StartAnewInChild() noexcept {
    EventQueues::StartAnewInChild();
    DeliveringThread::StartAnewInChild();
    m_othersWait.store(0, std::memory_order_relaxed);
    m_mutex.ForgetWaitingThreads();
    UnlockAfterFork();
}

}  // namespace

OwnDelivery::OwnDelivery(Dispatcher& dispatcher)
    : m_dispatcher(dispatcher),
      m_claim(dispatcher.m_othersWait),
      m_lock(dispatcher.m_mutex) {
    // The lines of what others have queued come first, for these may go on with something else.
    const CurrentDelivery current(m_delivery);
    dispatcher.DeliverQueued(m_delivery);
    m_lines.emplace(TLog::LineBatch::Holds::Events);
}

void OwnDelivery::Deliver(const EventView& event) {
    const CurrentDelivery current(m_delivery);
    m_dispatcher.DeliverWithFollowers(m_dispatcher.m_received.Take(event), m_delivery);
    m_dispatcher.m_received.Release();
}

namespace {

void Dispatcher::Deliver(const EventView& event) {
    OwnDelivery(*this).Deliver(event);
}

void Dispatcher::DeliverBurst(void (*body)(const void*) noexcept, const void* context) noexcept {
    OwnDelivery delivery(*this);
    t_side.ownDelivery = &delivery;
    t_side.neverQueues = true;
    body(context);
    t_side.neverQueues = t_side.isDeliveringThread;
    t_side.ownDelivery = nullptr;
}

void Dispatcher::DeliverQueued() noexcept {
    Delivery delivery;

    const Claim claim(m_othersWait);
    const std::lock_guard lock(m_mutex);
    const HostState hostState;
    const CurrentDelivery current(delivery);
    const corvala::memory::UnchargedAllocations uncharged;
    const TLog::LineBatch batch(TLog::LineBatch::Holds::Lines);

    DeliverQueued(delivery);
}

bool Dispatcher::DeliverSome() noexcept {
    constexpr int atMost = 64;
    Delivery delivery;

    for (int i = 0; i < atMost && m_othersWait.load(std::memory_order_relaxed) != 0; ++i) {
        std::this_thread::yield();
    }
    m_mutex.LockNext();
    const std::lock_guard lock(m_mutex, std::adopt_lock);
    const HostState hostState;
    const CurrentDelivery current(delivery);
    const corvala::memory::UnchargedAllocations uncharged;

    const TLog::LineBatch batch(TLog::LineBatch::Holds::Lines);

    int delivered = 0;
    while (delivered < atMost && DeliverNext(delivery)) {
        ++delivered;
        if (m_othersWait.load(std::memory_order_relaxed) != 0) {
            break;
        }
    }
    EventQueues::WakeWriters();
    return delivered != 0;
}

void Dispatcher::DeliverQueued(Delivery& delivery) noexcept {
    const uint64 queued = EventQueues::GetQueuedCount();
    if (EventQueues::GetTakenCount() >= queued) {
        return;
    }
    while (EventQueues::GetTakenCount() < queued) {
        if (!DeliverNext(delivery)) {
            std::this_thread::yield();  // its thread is just about to show it
        }
    }
    EventQueues::WakeWriters();
}

bool Dispatcher::DeliverNext(Delivery& delivery) noexcept {
    EventRecord* const record = EventQueues::Next();
    if (record == nullptr) {
        return false;
    }
    const MetricsEvent* const event = Read(*record);
    EventQueues::Pop();
    if (event != nullptr) {
        DeliverWithFollowers(*event, delivery);
        m_received.Release();
    }
    return true;
}

// What was accepted is worth waiting a second for memory. Null when there is none.
const MetricsEvent* Dispatcher::Read(EventRecord& record) noexcept {
    constexpr int attempts = 1000;
    constexpr milliseconds pause{1};
    for (int left = attempts; left != 0; --left) {
        try {
            return &m_received.Take(record);
        } catch (const std::bad_alloc&) {
            std::this_thread::sleep_for(pause);
        }
    }
    record.Discard();
    LossReport::CountLostEvent();
    return nullptr;
}

void Dispatcher::DeliverWithFollowers(const MetricsEvent& event, Delivery& delivery) noexcept {
    m_consumers.Deliver(event, delivery.retired);
    while (!delivery.waiting.empty()) {
        // What is emitted from here on waits behind the whole batch.
        const std::vector<MetricsEvent> batch = std::exchange(delivery.waiting, {});
        for (const MetricsEvent& waiting : batch) {
            m_consumers.Deliver(waiting, delivery.retired);
        }
    }
}

void Dispatcher::AddConsumer(const RefCntPtr<IMetricsListener>& listener,
                             uint64 bits,
                             bool everything) {
    Consumers::List retired;  // outlives the lock, as in a delivery

    const Claim claim(m_othersWait);
    const auto lock = Lock();
    m_consumers.Add(listener, bits, everything, retired);
}

bool Dispatcher::RemoveConsumer(const IMetricsListener& listener) {
    Consumers::List retired;

    const Claim claim(m_othersWait);
    const auto lock = Lock();
    return m_consumers.Remove(listener, t_side.delivery != nullptr, retired);
}

// The lock is not to be had while a consumer hangs. Then the removal is left to whoever delivers
// next.
bool Dispatcher::RemoveConsumerWithin(const RefCntPtr<IMetricsListener>& listener,
                                      milliseconds patience) {
    constexpr milliseconds pause{1};
    const auto end = std::chrono::steady_clock::now() + patience;
    Consumers::List retired;

    const Claim claim(m_othersWait);
    std::unique_lock lock(m_mutex, std::try_to_lock);
    while (!lock.owns_lock()) {
        if (std::chrono::steady_clock::now() >= end) {
            m_consumers.RemoveLater(listener);
            return true;
        }
        std::this_thread::sleep_for(pause);
        lock.try_lock();
    }
    return m_consumers.Remove(*listener, false, retired);
}

void CountWait(std::chrono::steady_clock::duration time) noexcept {
    s_waits.fetch_add(1, std::memory_order_relaxed);
    s_waitedNanos.fetch_add(static_cast<uint64>(std::chrono::nanoseconds(time).count()),
                            std::memory_order_relaxed);
}

/// Sleeps until the event has found room. False if that is given up.
bool WaitForRoom(const EventView& event) {
    const auto begin = std::chrono::steady_clock::now();
    bool isQueued = false;
    EventQueues::Show();  // lest the delivering thread has nothing to make room of
    while (!isQueued && !s_isGivenUp.load(std::memory_order_acquire)) {
        if (!DeliveringThread::Notice()) {
            Dispatcher::Get().DeliverQueued();
        }
        EventQueues::WaitForRoom();
        isQueued = EventQueues::Append(event) == EventQueues::Outcome::Queued;
    }
    CountWait(std::chrono::steady_clock::now() - begin);
    return isQueued;
}

/// Whether the event has found a queue. If not, there is no memory for one.
bool TryToQueue(const EventView& event) {
    try {
        if (EventQueues::Append(event) == EventQueues::Outcome::NoRoom && !WaitForRoom(event)) {
            LossReport::CountLostEvent();
        }
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

// Somebody has to deliver what was shown.
void NoticeQueued() noexcept {
    if (!DeliveringThread::Notice()) {
        Dispatcher::Get().DeliverQueued();
    }
}

void DeliverAtOnce(const EventView& event) {
    EventQueues::Show();  // what this thread has emitted before comes first
    Dispatcher::Get().Deliver(event);
}

[[gnu::noinline]] void QueueOrDeliver(const EventView& event) {
    if (!TryToQueue(event)) {
        // To deliver it at once, behind what is queued, needs less memory.
        DeliverAtOnce(event);
    } else if (t_side.bursts == 0) {
        NoticeQueued();
    }
}

[[gnu::noinline]] void EmitDirectly(const EventView& event) {
    if (t_side.delivery != nullptr) {
        Wait(*t_side.delivery, event);
    } else if (t_side.ownDelivery != nullptr) {
        t_side.ownDelivery->Deliver(event);
    } else if (s_isGivenUp.load(std::memory_order_relaxed)) {
        LossReport::CountLostEvent();
    } else {
        DeliverAtOnce(event);
    }
}

bool IsQueuing(const ThreadSide& side) noexcept {
    return IsAsynchronous() && !s_isGivenUp.load(std::memory_order_relaxed) &&
           side.delivery == nullptr && !side.neverQueues;
}

/// Sends a stamped event on its way.
void Send(const EventView& event) {
    const ThreadSide& side = t_side;
    if (!IsQueuing(side)) {
        EmitDirectly(event);
    } else if (!EventQueues::TryToAppend(event)) {
        QueueOrDeliver(event);
    } else if (side.bursts == 0) {
        NoticeQueued();
    }
}

/// Whether nothing is to be refused, or so many quarters of the thread's queue are free.
bool HasFreeQuarters(unsigned quarters) noexcept {
    return !s_isRefusing.load(std::memory_order_relaxed) || t_side.delivery != nullptr ||
           EventQueues::HasFreeQuarters(quarters);
}

/// Delivers what is queued before the consumers change. False if a consumer hangs.
bool FlushQueues() noexcept {
    return EventQueues::GetQueuedCount() == EventQueues::GetTakenCount() ||
           DeliveringThread::Flush(s_patience.load(std::memory_order_relaxed));
}

}  // namespace

bool IsAsynchronous() noexcept {
    return s_isAsynchronous.load(std::memory_order_acquire);
}

bool Admits(uint64 flags) noexcept {
    return s_admission.Admits(flags);
}

bool AdmitsContextEvents() noexcept {
    return MetricsManager::GetInstance().GetConsumerCount() != 0;
}

bool HasRoomForScope() noexcept {
    return HasFreeQuarters(2);
}

bool HasRoomForContext() noexcept {
    return HasFreeQuarters(1);
}

void CountRefusedScope() noexcept {
    LossReport::CountRefusedScope();
}

void Emit(EventView& event) {
    event.Stamp(ReadClock());
    Send(event);
}

bool BeginBurst() noexcept {
    ThreadSide& side = t_side;
    if (!IsQueuing(side) && side.delivery == nullptr && side.ownDelivery == nullptr &&
        !s_isGivenUp.load(std::memory_order_relaxed)) {
        return false;
    }
    ++side.bursts;
    return true;
}

void EndBurst() noexcept {
    if (--t_side.bursts == 0 && EventQueues::Show()) {
        NoticeQueued();
    }
}

void DeliverBurst(void (*body)(const void*) noexcept, const void* context) noexcept {
    Dispatcher::Get().DeliverBurst(body, context);
}

// A destructor has nobody to tell, and a scope whose end is missing stays open for the consumers: a
// moment's wait for memory is better.
void EmitFromDestructor(EventView& event, const ClockReading& now) noexcept {
    event.Stamp(now);
    constexpr int attempts = 20;
    constexpr milliseconds pause{1};
    for (int left = attempts; left != 0; --left) {
        try {
            return Send(event);
        } catch (const std::bad_alloc&) {
            if (IsDelivering()) {
                return;  // it is counted, and a wait here would hold up everybody
            }
            std::this_thread::sleep_for(pause);
        }
    }
    LossReport::CountLostEvent();
}

void AddConsumer(const RefCntPtr<IMetricsListener>& listener, uint64 bits, bool everything) {
    if (!IsDelivering()) {
        FlushQueues();
    }
    Dispatcher::Get().AddConsumer(listener, bits, everything);
}

bool RemoveConsumer(const RefCntPtr<IMetricsListener>& listener) {
    if (IsDelivering() || (!IsAsynchronous() && !s_isGivenUp.load(std::memory_order_relaxed))) {
        return Dispatcher::Get().RemoveConsumer(*listener);
    }
    const milliseconds patience =
        FlushQueues() ? s_patience.load(std::memory_order_relaxed) : milliseconds{0};
    return Dispatcher::Get().RemoveConsumerWithin(listener, patience);
}

bool DeliverSome() noexcept {
    return Dispatcher::Get().DeliverSome();
}

bool IsDelivering() noexcept {
    return t_side.delivery != nullptr;
}

void SetGivenUp(bool givenUp) noexcept {
    s_isGivenUp.store(givenUp, std::memory_order_release);
}

void SetAsynchronous(bool asynchronous) noexcept {
    s_isAsynchronous.store(asynchronous, std::memory_order_release);
}

void SetRefusing(bool refusing) noexcept {
    s_isRefusing.store(refusing, std::memory_order_relaxed);
}

void SetPatience(milliseconds patience) noexcept {
    s_patience.store(patience, std::memory_order_relaxed);
}

}  // namespace Metrics::Bus

namespace Metrics {

BusStatistics GetBusStatistics() noexcept {
    const Consumers& consumers = Bus::Dispatcher::Get().GetConsumers();
    return {.deliveredEvents = consumers.deliveredEvents.load(std::memory_order_relaxed),
            .consumerExceptions = consumers.exceptions.load(std::memory_order_relaxed),
            .lostEvents = LossReport::GetLostEvents(),
            .refusedScopes = LossReport::GetRefusedScopes(),
            .waits = Bus::s_waits.load(std::memory_order_relaxed),
            .waitedNanoseconds = Bus::s_waitedNanos.load(std::memory_order_relaxed),
            .highestQueueFill = EventQueues::GetHighestFill()};
}

}  // namespace Metrics
