#pragma once

#include "cvlsys/host/HostState.h"
#include "cvlsys/host/MemoryCharging.h"

namespace cvlsys {

/// Around whatever tracing does on a thread of the host's for other threads as well: delivering
/// events, writing the log. While one exists, the thread's `errno` and its cancellation are not
/// touched, and what it allocates is charged to nobody. They nest; construct and destroy one on the
/// same thread.
class DeliveryGuard {
public:
    DeliveryGuard() noexcept = default;
    ~DeliveryGuard() = default;
    DeliveryGuard(const DeliveryGuard&) = delete;
    DeliveryGuard& operator=(const DeliveryGuard&) = delete;

private:
    const HostState m_hostState;
    const corvala::memory::UnchargedAllocations m_uncharged;
};

}  // namespace cvlsys
