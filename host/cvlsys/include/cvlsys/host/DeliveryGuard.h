#pragma once

#include "cvlsys/host/HostState.h"
#include "cvlsys/host/MemoryCharging.h"

namespace cvlsys {

/// A guard around tracing's own work on a thread of the host: delivering events, writing the log.
/// While one exists, the thread's allocations are charged to nobody, and the thread is not
/// cancelled; `errno` is restored at its end. Guards nest; construct and destroy one on the same
/// thread.
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
