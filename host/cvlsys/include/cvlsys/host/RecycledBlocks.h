#pragma once

#include "cvlsys/Export.h"

#include <cstddef>
#include <memory>
#include <new>
#include <utility>

/// Memory for small objects that come and go with every scope. A thread keeps a few blocks that it
/// has released and takes them again, without a lock; nothing of this is charged to the host's
/// memory frames. A block may be released on another thread than the one that took it, and at any
/// time of a thread's life.
namespace cvlsys {

inline constexpr std::size_t smallBlock = 64;
inline constexpr std::size_t largeBlock = 128;
inline constexpr std::size_t hugeBlock = 2048;

/// A block of `smallBlock`, `largeBlock` or `hugeBlock` bytes, aligned for every fundamental type.
/// Throws `std::bad_alloc`.
CVLSYS_API void* TakeSmallBlock();
CVLSYS_API void* TakeLargeBlock();
CVLSYS_API void* TakeHugeBlock();

CVLSYS_API void ReleaseSmallBlock(void* block) noexcept;
CVLSYS_API void ReleaseLargeBlock(void* block) noexcept;
CVLSYS_API void ReleaseHugeBlock(void* block) noexcept;

/// For `std::allocate_shared`: single objects that fit come from blocks, everything else from the
/// heap.
template <class T>
struct RecyclingAllocator {
    // NOLINTBEGIN(readability-identifier-naming): named by the language

    using value_type = T;

    RecyclingAllocator() noexcept = default;

    template <class U>
    // NOLINTNEXTLINE(google-explicit-constructor): allocators convert to each other
    RecyclingAllocator(const RecyclingAllocator<U>&) noexcept {}

    T* allocate(std::size_t count) {
        static_assert(alignof(T) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__);
        if (count == 1 && sizeof(T) <= smallBlock) {
            return static_cast<T*>(TakeSmallBlock());
        }
        if (count == 1 && sizeof(T) <= largeBlock) {
            return static_cast<T*>(TakeLargeBlock());
        }
        if (count == 1 && sizeof(T) <= hugeBlock) {
            return static_cast<T*>(TakeHugeBlock());
        }
        return std::allocator<T>().allocate(count);
    }

    void deallocate(T* objects, std::size_t count) noexcept {
        if (count == 1 && sizeof(T) <= smallBlock) {
            ReleaseSmallBlock(objects);
        } else if (count == 1 && sizeof(T) <= largeBlock) {
            ReleaseLargeBlock(objects);
        } else if (count == 1 && sizeof(T) <= hugeBlock) {
            ReleaseHugeBlock(objects);
        } else {
            std::allocator<T>().deallocate(objects, count);
        }
    }

    // NOLINTEND(readability-identifier-naming)

    template <class U>
    friend bool operator==(const RecyclingAllocator&, const RecyclingAllocator<U>&) noexcept {
        return true;
    }

    template <class U>
    friend bool operator!=(const RecyclingAllocator&, const RecyclingAllocator<U>&) noexcept {
        return false;
    }
};

/// As `std::make_shared`, with memory from the calling thread's blocks.
template <class T, class... Arguments>
std::shared_ptr<T> MakeRecycled(Arguments&&... arguments) {
    return std::allocate_shared<T>(RecyclingAllocator<T>(), std::forward<Arguments>(arguments)...);
}

}  // namespace cvlsys
