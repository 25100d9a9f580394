#include "Dispatcher.h"

#include "Backoff.h"
#include "DeliverySide.h"
#include "EventQueues.h"
#include "ExitDeadline.h"
#include "LossReport.h"

#include "cvlcoreplatform/host/Silence.h"
#include "cvlsys/host/ForkOrder.h"
#include "cvlsys/host/HostState.h"

#include <algorithm>
#include <new>
#include <optional>
#include <thread>
#include <utility>

namespace Metrics {

constinit thread_local DeliverySide t_deliverySide;

}  // namespace Metrics

namespace Metrics::Bus {

using std::chrono::milliseconds;

constinit Admission admission;

namespace {

// For so long a fork goes on delivering what is queued.
constexpr milliseconds forkDelivers{200};

// Around the calls of the consumers.
class CurrentDelivery {
public:
    explicit CurrentDelivery(Delivery& delivery) noexcept { t_deliverySide.delivery = &delivery; }

    ~CurrentDelivery() { t_deliverySide.delivery = nullptr; }

    CurrentDelivery(const CurrentDelivery&) = delete;
    CurrentDelivery& operator=(const CurrentDelivery&) = delete;
};

/// Tells the delivering thread that somebody else waits for the lock. Not for longer than that: a
/// child that is forked while this thread holds the lock begins without any.
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

// A child that is forked while another thread delivers would find a listener in the middle of its
// work and a lock that is locked for ever. So the forking thread takes the delivering role before,
// unless it has it already. Where a listener does not let it go in time, the fork goes on: the
// child leaves the listeners alone then.
class Dispatcher::Fork final : private cvlsys::ForkParticipant {
public:
    Fork() noexcept : ForkParticipant(cvlsys::ForkRank::Bus) {}

    ~Fork() = default;
    Fork(const Fork&) = delete;
    Fork& operator=(const Fork&) = delete;

private:
    void BeforeFork(ForkClock::time_point end) noexcept override {
        if (t_deliverySide.delivery == nullptr) {
            t_deliverySide.hasLockedToFork = Get().LockForFork(end);
        }
    }

    void AfterForkInParent() noexcept override {
        if (std::exchange(t_deliverySide.hasLockedToFork, false)) {
            Get().m_mutex.unlock();
        }
    }

    void AfterForkInChild() noexcept override {
        Get().StartAnewInChild(t_deliverySide.delivery != nullptr ||
                               t_deliverySide.hasLockedToFork);
        AfterForkInParent();
    }
};

Dispatcher::Dispatcher() {
    // Locks are made now; a fork is no time to find that there is no memory for them.
    EventQueues::Initialize();
    new Fork;  // as every participant, it stays
}

namespace {

// While the library is loaded, so that no first use can meet a fork.
[[maybe_unused]] const Dispatcher& madeAtLoad = Dispatcher::Get();

}  // namespace

bool Dispatcher::LockForFork(std::chrono::steady_clock::time_point end) noexcept {
    const Claim claim(m_othersWait);
    // The child forgets what is queued, and its consumers are to know the contexts and scopes that
    // are open on the thread that forks.
    const cvlsys::DeliveryGuard guard;
    DeliverQueuedWithin(Deadline(std::min(end, std::chrono::steady_clock::now() + forkDelivers)));
    const Deadline deadline(end);
    return m_mutex.LockNextUnless([&deadline] { return deadline.IsOver(); });
}

void Dispatcher::StartAnewInChild(bool isLocked) noexcept {
    EventQueues::StartAnewInChild(isLocked);
    m_othersWait.store(0, std::memory_order_relaxed);
    m_mutex.ForgetOtherThreads(isLocked);
    if (!isLocked) {
        m_consumers.ForgetAll();
        new (&m_received) ReceivedEvents;
        m_end.reset();
    }
}

Dispatcher::Lock Dispatcher::LockAhead() {
    const Claim claim(m_othersWait);
    return std::unique_lock(m_mutex);
}

Dispatcher::Lock Dispatcher::LockWithin(const Deadline& deadline) {
    const cvlsys::HostState hostState;
    const Claim claim(m_othersWait);
    if (!m_mutex.LockNextUnless([&deadline] { return deadline.IsOver(); })) {
        return {};
    }
    if (EventQueues::GetTakenCount() == EventQueues::GetQueuedCount()) {
        ExitDeadline::Meet();
    }
    return {m_mutex, std::adopt_lock};
}

OwnDelivery::OwnDelivery(Dispatcher& dispatcher)
    : m_dispatcher(dispatcher),
      m_lock(dispatcher.LockAhead()) {
    // The lines of what others have queued come first, for these may go on with something else.
    const CurrentDelivery current(m_delivery);
    dispatcher.DeliverQueued(m_delivery);
    m_lines.emplace(TLog::LineBatch::Holds::Events);
}

void OwnDelivery::Deliver(const EventView& event) {
    const CurrentDelivery current(m_delivery);
    m_dispatcher.DeliverWithFollowers(
        event, m_dispatcher.MakeIfWanted(event, m_delivery), m_delivery);
}

bool OwnDelivery::TryToLend(EndEvents& events) noexcept {
    const CurrentDelivery current(m_delivery);
    return m_dispatcher.TryToLend(events, m_delivery);
}

void OwnDelivery::Deliver(std::vector<MetricsEvent>&& events) noexcept {
    const CurrentDelivery current(m_delivery);
    m_delivery.waiting = std::move(events);
    m_dispatcher.DeliverWaiting(m_delivery);
}

void Dispatcher::Deliver(const EventView& event) {
    OwnDelivery(*this).Deliver(event);
}

void Dispatcher::Deliver(std::vector<MetricsEvent>&& events) noexcept {
    OwnDelivery(*this).Deliver(std::move(events));
}

void Dispatcher::DeliverBatch(void (*body)(const void*) noexcept, const void* context) noexcept {
    OwnDelivery delivery(*this);
    t_deliverySide.ownDelivery = &delivery;
    t_deliverySide.neverQueues = true;
    body(context);
    t_deliverySide.neverQueues = t_deliverySide.isDeliveringThread;
    t_deliverySide.ownDelivery = nullptr;
}

void Dispatcher::DeliverQueued() noexcept {
    const cvlsys::DeliveryGuard guard;
    Delivery delivery;

    const auto lock = LockAhead();
    const CurrentDelivery current(delivery);
    const TLog::LineBatch batch(TLog::LineBatch::Holds::Lines);

    DeliverQueued(delivery);
}

bool Dispatcher::DeliverQueuedWithin(const Deadline& deadline) noexcept {
    const uint64 queued = EventQueues::GetQueuedCount();
    Delivery delivery;

    const Lock lock = LockWithin(deadline);
    if (!lock) {
        return false;
    }
    const CurrentDelivery current(delivery);
    const TLog::LineBatch batch(TLog::LineBatch::Holds::Lines);

    return DeliverQueued(queued, delivery, deadline);
}

void Dispatcher::AwaitDelivery() noexcept {
    m_mutex.LockNext();
    m_mutex.unlock();
}

bool Dispatcher::AwaitDeliveryWithin(const Deadline& deadline) noexcept {
    return static_cast<bool>(LockWithin(deadline));
}

void Dispatcher::TidyUp() noexcept {
    if (EventQueues::HasUnused()) {
        m_mutex.LockNext();
        const std::lock_guard lock(m_mutex, std::adopt_lock);
        EventQueues::DropUnused();
    }
}

bool Dispatcher::DeliverQueuedBatch() noexcept {
    constexpr std::size_t atMost = 64;
    const cvlsys::DeliveryGuard guard;
    Delivery delivery;

    for (std::size_t i = 0; i < atMost && m_othersWait.load(std::memory_order_relaxed) != 0; ++i) {
        std::this_thread::yield();
    }
    m_mutex.LockNext();
    const std::lock_guard lock(m_mutex, std::adopt_lock);
    const CurrentDelivery current(delivery);
    const TLog::LineBatch batch(TLog::LineBatch::Holds::Lines);

    std::size_t delivered = 0;
    while (delivered + EventRecord::mostEvents <= atMost) {
        const std::size_t count = DeliverNext(delivery);
        if (count == 0) {
            break;
        }
        delivered += count;
        if (m_othersWait.load(std::memory_order_relaxed) != 0) {
            break;
        }
    }
    EventQueues::WakeWriters();
    return delivered != 0;
}

void Dispatcher::DeliverQueued(Delivery& delivery) noexcept {
    const uint64 queued = EventQueues::GetQueuedCount();
    if (EventQueues::GetTakenCount() < queued) {
        DeliverQueued(queued, delivery, Deadline(milliseconds::max()));
    }
}

// Whether so many events have been taken off the queues when the deadline has come.
bool Dispatcher::DeliverQueued(uint64 queued,
                               Delivery& delivery,
                               const Deadline& deadline) noexcept {
    Backoff backoff;
    bool isDone = false;
    while (!(isDone = EventQueues::GetTakenCount() >= queued) && !deadline.IsOver()) {
        if (DeliverNext(delivery) != 0) {
            backoff = {};
        } else {
            backoff.Pause();  // its thread is just about to show it
        }
    }
    EventQueues::WakeWriters();
    return isDone;
}

// How many events there were.
std::size_t Dispatcher::DeliverNext(Delivery& delivery) noexcept {
    EventRecord* const record = EventQueues::Next();
    if (record == nullptr) {
        return 0;
    }
    if (record->GetForm() == EventRecord::Form::End) {
        return DeliverEnd(*record, delivery);
    }
    std::optional<TLog::Silence> silence;
    if (EventQueues::IsFromBeforeFork(record->GetTicket())) {
        silence.emplace();  // its lines are the parent's
    }
    if (record->GetForm() == EventRecord::Form::Boxed) {
        DeliverBoxed(*record, delivery);
    } else {
        DeliverLent(*record, delivery);
    }
    return 1;
}

void Dispatcher::DeliverBoxed(EventRecord& record, Delivery& delivery) noexcept {
    const MetricsEvent& event = m_received.TakeBoxed(record);
    EventQueues::Pop();
    m_consumers.CarryOutNotes(delivery.retired);
    m_consumers.Deliver(event, delivery.retired);
    DeliverWaiting(delivery);
    m_received.Release();
}

void Dispatcher::DeliverLent(const EventRecord& record, Delivery& delivery) noexcept {
    const EventView event = m_received.Lend(record);
    EventQueues::Pop();
    DeliverLent(event, delivery);
}

void Dispatcher::DeliverLent(const EventView& event, Delivery& delivery) noexcept {
    const MetricsEvent* made = nullptr;
    if (TryToMake(event, delivery, made)) {
        DeliverWithFollowers(event, made, delivery);
    } else {
        LossReport::Count(LossReport::Loss::LostEvent);
    }
}

std::size_t Dispatcher::DeliverEnd(const EventRecord& record, Delivery& delivery) noexcept {
    m_end.emplace(m_received.LendEnd(record));
    m_ticketOfEnd = record.GetTicket();
    EventQueues::Pop();
    return DeliverRestOfEnd(delivery);
}

// A consumer may fork in the middle, or crash, and then the rescue goes on.
std::size_t Dispatcher::DeliverRestOfEnd(Delivery& delivery) noexcept {
    if (!m_end) {
        return 0;
    }
    const std::size_t count = m_end->CountLeft();
    std::optional<TLog::Silence> silence;
    while (!m_end->AreOver()) {
        if (!silence && EventQueues::IsFromBeforeFork(m_ticketOfEnd)) {
            silence.emplace();  // its lines are the parent's
        }
        if (!TryToLend(*m_end, delivery)) {
            DeliverLent(m_end->Take(), delivery);
        }
    }
    m_end.reset();
    return count;
}

// False if there are others than one who reads them: each event goes to all before the next.
bool Dispatcher::TryToLend(EndEvents& events, Delivery& delivery) noexcept {
    m_consumers.CarryOutNotes(delivery.retired);
    if (!m_consumers.IsOneReader()) {
        return false;
    }
    m_consumers.Deliver(events, delivery.retired);
    DeliverWaiting(delivery);
    return true;
}

// The event for those consumers that do not read it where it lies. Throws `std::bad_alloc`.
const MetricsEvent* Dispatcher::MakeIfWanted(const EventView& event, Delivery& delivery) {
    m_consumers.CarryOutNotes(delivery.retired);
    return m_consumers.WantEvents() ? &m_received.Make(event) : nullptr;
}

// What was accepted is worth waiting a second for memory.
bool Dispatcher::TryToMake(const EventView& event,
                           Delivery& delivery,
                           const MetricsEvent*& made) noexcept {
    constexpr int attempts = 1000;
    constexpr milliseconds pause{1};
    for (int left = attempts; left != 0; --left) {
        try {
            made = MakeIfWanted(event, delivery);
            return true;
        } catch (const std::bad_alloc&) {
            std::this_thread::sleep_for(pause);
        }
    }
    return false;
}

void Dispatcher::DeliverWithFollowers(const EventView& event,
                                      const MetricsEvent* made,
                                      Delivery& delivery) noexcept {
    m_consumers.Deliver(event, made, delivery.retired);
    if (!delivery.waiting.empty()) {
        DeliverWaiting(delivery);
    }
    m_received.Release();
}

void Dispatcher::DeliverWaiting(Delivery& delivery) noexcept {
    while (!delivery.waiting.empty()) {
        // What is emitted from here on waits behind the whole batch.
        const std::vector<MetricsEvent> batch = std::exchange(delivery.waiting, {});
        for (const MetricsEvent& waiting : batch) {
            m_consumers.CarryOutNotes(delivery.retired);
            m_consumers.Deliver(waiting, delivery.retired);
        }
    }
}

bool Dispatcher::CallWithin(const Deadline& deadline, const std::function<void()>& body) noexcept {
    Delivery delivery;

    const Lock lock = LockWithin(deadline);
    if (!lock) {
        return false;
    }
    const CurrentDelivery current(delivery);
    const TLog::LineBatch batch(TLog::LineBatch::Holds::Lines);

    body();
    DeliverWaiting(delivery);
    return true;
}

// A thread that delivers holds the lock already, and is inside of a listener.
void Dispatcher::AddConsumer(Consumer newcomer, const Deadline& deadline) {
    if (t_deliverySide.delivery != nullptr) {
        return m_consumers.Add(std::move(newcomer), t_deliverySide.delivery->retired);
    }
    Consumers::List retired;  // outlives the lock, as in a delivery

    if (const Lock lock = LockWithin(deadline)) {
        m_consumers.Add(std::move(newcomer), retired);
    } else {
        ExitDeadline::Miss();
        m_consumers.AddLater(std::move(newcomer));
    }
}

bool Dispatcher::RemoveConsumer(const RefCntPtr<IMetricsListener>& listener,
                                const Deadline& deadline) {
    if (t_deliverySide.delivery != nullptr) {
        return m_consumers.Remove(*listener, t_deliverySide.delivery->retired);
    }
    Consumers::List retired;

    if (const Lock lock = LockWithin(deadline)) {
        return m_consumers.Remove(*listener, retired);
    }
    ExitDeadline::Miss();
    m_consumers.RemoveLater(listener);
    return true;
}

}  // namespace Metrics::Bus
