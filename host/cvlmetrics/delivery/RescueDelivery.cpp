#include "RescueDelivery.h"

#include "DeliverySide.h"
#include "EventQueues.h"

#include <thread>

namespace Metrics::Bus {

namespace {

constexpr std::chrono::microseconds pause{50};

}  // namespace

RescueDelivery::RescueDelivery(Dispatcher& dispatcher,
                               const std::atomic<bool>& isOrphaned,
                               Clock::time_point end)
    : m_dispatcher(dispatcher),
      m_lock(dispatcher.m_mutex, std::defer_lock),
      m_hasRole(TakeRole(isOrphaned, end)) {
    if (m_hasRole) {
        t_deliverySide.delivery = &m_delivery;
    }
}

RescueDelivery::~RescueDelivery() {
    t_deliverySide.delivery = nullptr;
}

// The thread that has the role may crash while this one waits for it.
bool RescueDelivery::TakeRole(const std::atomic<bool>& isOrphaned, Clock::time_point end) {
    m_dispatcher.m_othersWait.fetch_add(1, std::memory_order_relaxed);
    bool hasRole = false;
    while (!hasRole && Clock::now() < end) {
        hasRole = isOrphaned.load(std::memory_order_acquire) || m_lock.try_lock();
        if (!hasRole) {
            std::this_thread::sleep_for(pause);
        }
    }
    m_dispatcher.m_othersWait.fetch_sub(1, std::memory_order_relaxed);
    return hasRole;
}

// A thread that crashed between drawing a ticket and showing its event never will show it. Others
// that are at this point may need a while to get a processor.
void RescueDelivery::DeliverQueued(Clock::time_point end) noexcept {
    m_dispatcher.DeliverRestOfEnd(m_delivery);
    const uint64 queued = EventQueues::GetQueuedCount();
    const Clock::time_point start = Clock::now();
    const Clock::time_point waitsUntil = start + (end - start) / 4;
    for (auto now = start; EventQueues::GetTakenCount() < queued && now < end; now = Clock::now()) {
        if (m_dispatcher.DeliverNext(m_delivery) != 0) {
            continue;
        }
        if (now < waitsUntil) {
            std::this_thread::sleep_for(pause);
        } else {
            EventQueues::PassOverMissing();
        }
    }
    EventQueues::WakeWriters();
}

}  // namespace Metrics::Bus
