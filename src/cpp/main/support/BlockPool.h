#pragma once

#include <cstddef>
#include <new>

namespace tarn {

/// Memory for objects of one size that come and go: keeps at most `most` of the released blocks for
/// the next ones. One thread at a time; a block may come out of another pool of the same kind, or
/// from `operator new`, and may be deleted instead of released.
template <std::size_t size, std::size_t most>
class BlockPool {
    static_assert(size >= sizeof(void*));

public:
    BlockPool() noexcept = default;

    ~BlockPool() {
        while (Block* const block = m_first) {
            m_first = block->next;
            ::operator delete(block);
        }
    }

    BlockPool(const BlockPool&) = delete;
    BlockPool& operator=(const BlockPool&) = delete;

    /// Throws `std::bad_alloc`.
    void* Take() {
        Block* const block = m_first;
        if (block == nullptr) {
            return ::operator new(size);
        }
        m_first = block->next;
        --m_count;
        return block;
    }

    void Release(void* block) noexcept {
        if (m_count == most) {
            ::operator delete(block);
            return;
        }
        m_first = new (block) Block{m_first};
        ++m_count;
    }

private:
    // A block that waits for its next use begins with the address of the next one.
    struct Block {
        Block* next;
    };

    Block* m_first = nullptr;
    std::size_t m_count = 0;
};

}  // namespace tarn
