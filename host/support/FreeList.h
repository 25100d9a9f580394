#pragma once

#include "cvlsys/IntegerTypes.h"

#include <utility>

namespace cvlsys {

/// Blocks that wait for their next use, linked by their member `next`. Trivially destructible:
/// whoever owns the blocks takes them out.
template <class Block>
struct FreeList {
    Block* first = nullptr;
    uint32 count = 0;

    /// Null when there is none.
    Block* Take() noexcept {
        Block* const block = first;
        if (block != nullptr) {
            first = block->next;
            --count;
        }
        return block;
    }

    void Keep(Block* block) noexcept {
        block->next = std::exchange(first, block);
        ++count;
    }
};

}  // namespace cvlsys
