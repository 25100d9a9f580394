#pragma once

#include "PaddedText.h"

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>
#include <vector>

namespace cvlcoreplatform {

/// Memory that is handed out piece by piece and released as a whole: the first pieces from a block
/// of its own, the others from the heap. Behind every piece at least `slack` bytes may be read,
/// whatever is in there.
template <std::size_t bytes>
class Arena {
public:
    static constexpr std::size_t slack = host::PaddedText::slack;

    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): pieces belong to those who take them
    Arena() noexcept : m_next(m_block) {}

    ~Arena() = default;
    Arena(const Arena&) = delete;
    Arena& operator=(const Arena&) = delete;

    /// Room for `count` objects that need no construction. Throws `std::bad_alloc`.
    template <class T>
    T* Take(std::size_t count) {
        static_assert(std::is_trivial_v<T>);
        const std::size_t padding = -reinterpret_cast<std::uintptr_t>(m_next) % alignof(T);
        const auto left = static_cast<std::size_t>(m_block + bytes - m_next);
        if (count > left / sizeof(T) || padding + count * sizeof(T) > left) {
            return static_cast<T*>(TakeFromHeap(count, sizeof(T)));
        }
        char* const piece = m_next + padding;
        m_next = piece + count * sizeof(T);
        return reinterpret_cast<T*>(piece);
    }

    /// Of the pieces that are not in the block.
    std::size_t CountHeapBytes() const noexcept {
        std::size_t sum = 0;
        for (const Piece& piece : m_heap) {
            sum += piece.size;
        }
        return sum;
    }

private:
    struct Piece {
        std::unique_ptr<char[]> memory;
        std::size_t size;
    };

    void* TakeFromHeap(std::size_t count, std::size_t size) {
        if (count > std::numeric_limits<std::size_t>::max() / 2 / size) {
            throw std::bad_alloc();
        }
        const std::size_t taken = count * size + slack;
        Piece piece{std::unique_ptr<char[]>(new char[taken]), taken};
        m_heap.push_back(std::move(piece));
        return m_heap.back().memory.get();
    }

    alignas(std::max_align_t) char m_block[bytes + slack];
    char* m_next;
    std::vector<Piece> m_heap;
};

}  // namespace cvlcoreplatform
