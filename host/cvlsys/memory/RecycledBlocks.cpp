#include "cvlsys/host/RecycledBlocks.h"

#include "FreeList.h"
#include "ThreadEnd.h"
#include "ThreadNumber.h"

#include "cvlsys/IntegerTypes.h"
#include "cvlsys/host/MemoryCharging.h"
#include "cvlsys/host/Recycling.h"

namespace cvlsys {

namespace {

// What a thread keeps of a size at most: enough for the attributes of a few scopes, and for the
// events that wait while a lock is held.
constexpr uint32 mostBlocks = 64;
constexpr uint32 mostHugeBlocks = 8;

// A block that waits for its next use begins with the address of the next one.
struct FreeBlock {
    FreeBlock* next;
};

using FreeBlocks = host::FreeList<FreeBlock>;

// Trivially destructible, so that it can be asked for as long as the thread runs any code.
struct ThreadBlocks {
    FreeBlocks small;
    FreeBlocks large;
    FreeBlocks huge;

    // Gives them back.
    static void AtThreadEnd() noexcept;
};

CVLSYS_FAST_THREAD_LOCAL ThreadBlocks t_blocks;

void* Allocate(std::size_t bytes) {
    const corvala::memory::UnchargedAllocations uncharged;
    return operator new(bytes);
}

void Free(void* block) noexcept {
    const corvala::memory::UnchargedAllocations uncharged;
    operator delete(block);
}

void ThreadBlocks::AtThreadEnd() noexcept {
    t_blocks.small.Empty(Free);
    t_blocks.large.Empty(Free);
    t_blocks.huge.Empty(Free);
}

void* Take(FreeBlocks& blocks, std::size_t bytes) {
    FreeBlock* const block = blocks.Take();
    return block != nullptr ? block : Allocate(bytes);
}

void Release(FreeBlocks& blocks, uint32 most, void* memory) noexcept {
    if (!isRecycling || blocks.count == most || !host::ThreadEnd<ThreadBlocks>::Watch()) {
        Free(memory);
        return;
    }
    blocks.Keep(new (memory) FreeBlock);
}

}  // namespace

void* TakeSmallBlock() {
    return Take(t_blocks.small, smallBlock);
}

void* TakeLargeBlock() {
    return Take(t_blocks.large, largeBlock);
}

void* TakeHugeBlock() {
    return Take(t_blocks.huge, hugeBlock);
}

void ReleaseSmallBlock(void* block) noexcept {
    Release(t_blocks.small, mostBlocks, block);
}

void ReleaseLargeBlock(void* block) noexcept {
    Release(t_blocks.large, mostBlocks, block);
}

void ReleaseHugeBlock(void* block) noexcept {
    Release(t_blocks.huge, mostHugeBlocks, block);
}

}  // namespace cvlsys
