#pragma once

#include "cvlsys/Export.h"

#include <cstddef>

/// For host programs that count allocations of their own, for example a replaced operator new.
namespace corvala::memory {

/// Charges an allocation of `bytes` to the calling thread's current frame, if memory tracking is
/// on and there is one. Never allocates, never fails; may be called from inside an allocator, at
/// any time of a thread's life.
CVLSYS_API void ChargeAllocation(std::size_t bytes) noexcept;

/// Charges a release; pass the number of bytes that the allocation was charged with. Counts in
/// mode `MemoryTrackingAll` only.
CVLSYS_API void ChargeRelease(std::size_t bytes) noexcept;

/// The same for a block of `malloc`, with the size that the C library gives it, which is asked only
/// when it counts: what is released then equals what was allocated, whichever thread does it. Null
/// charges nothing.
CVLSYS_API void ChargeAllocatedBlock(void* block) noexcept;

/// Call it before the block is released.
CVLSYS_API void ChargeReleasedBlock(void* block) noexcept;

/// While one exists, nothing that its thread allocates or releases is charged to any frame. The
/// event bus holds one while it delivers events, so that tracing does not show up in the figures
/// of the work that is traced. They nest; construct and destroy one on the same thread.
class CVLSYS_API UnchargedAllocations {
public:
    UnchargedAllocations() noexcept;
    ~UnchargedAllocations();
    UnchargedAllocations(const UnchargedAllocations&) = delete;
    UnchargedAllocations& operator=(const UnchargedAllocations&) = delete;
};

}  // namespace corvala::memory
