#include "cvlsys/TAllocate.h"

#include "cvlsys/MemoryTracking.h"
#include "cvlsys/host/MemoryCharging.h"

#include <cstdlib>
#include <malloc.h>

// Both ends ask the allocator for the block's size, so that what is released equals what was
// allocated, whichever thread does it.

void* TMalloc(std::size_t bytes) noexcept {
    void* const block = std::malloc(bytes);
    if (block != nullptr &&
        corvala::memory::GetMemoryTrackingMode() != corvala::memory::MemoryTrackingOff) {
        corvala::memory::ChargeAllocation(malloc_usable_size(block));
    }
    return block;
}

void TFree(void* block) noexcept {
    if (block != nullptr &&
        corvala::memory::GetMemoryTrackingMode() == corvala::memory::MemoryTrackingAll) {
        corvala::memory::ChargeRelease(malloc_usable_size(block));
    }
    std::free(block);
}
