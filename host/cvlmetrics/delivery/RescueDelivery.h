#pragma once

#include "Dispatcher.h"

#include <atomic>
#include <chrono>
#include <mutex>

namespace Metrics::Bus {

/// The delivering role after a crash. It is taken as any thread takes it, or, if the thread that
/// has it will not go on, in that thread's place: what that one was delivering is left as it is,
/// and the lock stays locked.
///
/// No lines are held back meanwhile: what is delivered is in the log, even if the next event comes
/// to no end.
class RescueDelivery {
public:
    using Clock = std::chrono::steady_clock;

    /// Waits for the role until then. Keeps it until the object ends. `isOrphaned` is set as soon
    /// as the thread that has the role will not go on.
    RescueDelivery(Dispatcher& dispatcher,
                   const std::atomic<bool>& isOrphaned,
                   Clock::time_point end);
    ~RescueDelivery();
    RescueDelivery(const RescueDelivery&) = delete;
    RescueDelivery& operator=(const RescueDelivery&) = delete;

    bool HasRole() const noexcept { return m_hasRole; }

    /// Whether it is in a crashed thread's place.
    bool IsSuccessor() const noexcept { return m_hasRole && !m_lock.owns_lock(); }

    /// All that was emitted before the call and can be had until then.
    void DeliverQueued(Clock::time_point end) noexcept;

private:
    bool TakeRole(const std::atomic<bool>& isOrphaned, Clock::time_point end);

    Dispatcher& m_dispatcher;
    Delivery m_delivery;
    std::unique_lock<cvlsys::AdaptiveMutex> m_lock;
    bool m_hasRole;
};

}  // namespace Metrics::Bus
