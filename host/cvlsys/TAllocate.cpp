#include "cvlsys/TAllocate.h"

#include "cvlsys/host/MemoryCharging.h"

#include <cstdlib>

void* TMalloc(std::size_t bytes) noexcept {
    void* const block = std::malloc(bytes);
    corvala::memory::ChargeAllocatedBlock(block);
    return block;
}

void TFree(void* block) noexcept {
    corvala::memory::ChargeReleasedBlock(block);
    std::free(block);
}
