#include "cvlsys/TAllocate.h"

#include "MemoryState.h"

#include <cstdlib>

void* TMalloc(std::size_t bytes) noexcept {
    void* const block = std::malloc(bytes);
    corvala::memory::ChargeAllocatedBlockHere(block);
    return block;
}

void TFree(void* block) noexcept {
    corvala::memory::ChargeReleasedBlockHere(block);
    std::free(block);
}
