// For a host that charges no allocations, or does it without asking what for.
#include "cvlsys/host/MemoryCharging.h"

namespace corvala::memory {

UnchargedAllocations::UnchargedAllocations() noexcept = default;

UnchargedAllocations::~UnchargedAllocations() = default;

}  // namespace corvala::memory
