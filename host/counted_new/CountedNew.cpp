// Global operator new and delete that charge what they allocate and release to the calling
// thread's memory frame. A block is charged with its usable size at both ends, so that the two
// always agree, whatever size a sized delete is told.
#include "cvlsys/host/MemoryCharging.h"

#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

void* TryAllocate(std::size_t bytes) noexcept {
    return std::malloc(bytes != 0 ? bytes : 1);
}

void* TryAllocate(std::size_t bytes, std::align_val_t alignment) noexcept {
    void* block = nullptr;
    const auto boundary = static_cast<std::size_t>(alignment);
    const std::size_t least = boundary < sizeof(void*) ? sizeof(void*) : boundary;
    return posix_memalign(&block, least, bytes != 0 ? bytes : 1) == 0 ? block : nullptr;
}

/// Asks the new-handler for memory until there is some or there is no handler.
template <class... Alignment>
void* Allocate(std::size_t bytes, Alignment... alignment) {
    for (;;) {
        if (void* const block = TryAllocate(bytes, alignment...)) {
            corvala::memory::ChargeAllocatedBlock(block);
            return block;
        }
        const std::new_handler handler = std::get_new_handler();
        if (handler == nullptr) {
            throw std::bad_alloc();
        }
        handler();
    }
}

template <class... Alignment>
void* AllocateOrNull(std::size_t bytes, Alignment... alignment) noexcept {
    try {
        return Allocate(bytes, alignment...);
    } catch (...) {
        return nullptr;
    }
}

void Release(void* block) noexcept {
    corvala::memory::ChargeReleasedBlock(block);
    std::free(block);
}

}  // namespace

void* operator new(std::size_t bytes) {
    return Allocate(bytes);
}

void* operator new[](std::size_t bytes) {
    return Allocate(bytes);
}

void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept {
    return AllocateOrNull(bytes);
}

void* operator new[](std::size_t bytes, const std::nothrow_t&) noexcept {
    return AllocateOrNull(bytes);
}

void* operator new(std::size_t bytes, std::align_val_t alignment) {
    return Allocate(bytes, alignment);
}

void* operator new[](std::size_t bytes, std::align_val_t alignment) {
    return Allocate(bytes, alignment);
}

void* operator new(std::size_t bytes, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    return AllocateOrNull(bytes, alignment);
}

void* operator new[](std::size_t bytes,
                     std::align_val_t alignment,
                     const std::nothrow_t&) noexcept {
    return AllocateOrNull(bytes, alignment);
}

void operator delete(void* block) noexcept {
    Release(block);
}

void operator delete[](void* block) noexcept {
    Release(block);
}

void operator delete(void* block, std::size_t) noexcept {
    Release(block);
}

void operator delete[](void* block, std::size_t) noexcept {
    Release(block);
}

void operator delete(void* block, const std::nothrow_t&) noexcept {
    Release(block);
}

void operator delete[](void* block, const std::nothrow_t&) noexcept {
    Release(block);
}

void operator delete(void* block, std::align_val_t) noexcept {
    Release(block);
}

void operator delete[](void* block, std::align_val_t) noexcept {
    Release(block);
}

void operator delete(void* block, std::size_t, std::align_val_t) noexcept {
    Release(block);
}

void operator delete[](void* block, std::size_t, std::align_val_t) noexcept {
    Release(block);
}

void operator delete(void* block, std::align_val_t, const std::nothrow_t&) noexcept {
    Release(block);
}

void operator delete[](void* block, std::align_val_t, const std::nothrow_t&) noexcept {
    Release(block);
}
