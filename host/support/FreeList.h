#pragma once

#include <cstdint>
#include <utility>

namespace host {

/// Blocks that wait for their next use, linked by their member `next`. Trivially destructible:
/// the owner of the blocks takes them out.
template <class Block>
struct FreeList {
    Block* first = nullptr;
    std::uint32_t count = 0;

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

    /// Takes all of them out, and gives each to `release`.
    template <class Release>
    void Empty(const Release& release) noexcept {
        while (Block* const block = Take()) {
            release(block);
        }
    }
};

}  // namespace host
