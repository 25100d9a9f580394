#pragma once

#include <cstddef>
#include <memory>
#include <new>

namespace tarn {

/// The size of the blocks below: room for an activity context and what counts its owners.
inline constexpr std::size_t contextBlock = 144;

/// Blocks for the contexts of scopes, which come and go with them: a thread keeps a few that it has
/// released and takes them again, without a lock. (A host may have something like it; the library
/// cannot count on that.) A block may be released on another thread than
/// the one that took it, and at any time of a thread's life. Throws `std::bad_alloc`.
void* TakeContextBlock();
void ReleaseContextBlock(void* block) noexcept;

/// For `std::allocate_shared`.
template <class T>
struct ContextAllocator {
    // NOLINTBEGIN(readability-identifier-naming): named by the language

    using value_type = T;

    ContextAllocator() noexcept = default;

    template <class U>
    // NOLINTNEXTLINE(google-explicit-constructor): allocators convert to each other
    ContextAllocator(const ContextAllocator<U>&) noexcept {}

    T* allocate(std::size_t /*one*/) {
        static_assert(sizeof(T) <= contextBlock && alignof(T) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__);
        return static_cast<T*>(TakeContextBlock());
    }

    void deallocate(T* object, std::size_t /*one*/) noexcept { ReleaseContextBlock(object); }

    // NOLINTEND(readability-identifier-naming)

    template <class U>
    friend bool operator==(const ContextAllocator&, const ContextAllocator<U>&) noexcept {
        return true;
    }

    template <class U>
    friend bool operator!=(const ContextAllocator&, const ContextAllocator<U>&) noexcept {
        return false;
    }
};

}  // namespace tarn
