#include "support/AllocationCounter.h"

#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

thread_local std::uint64_t t_allocations = 0;

void* Allocate(std::size_t bytes) noexcept {
    ++t_allocations;
    // malloc(0) may give null, operator new must not.
    return std::malloc(bytes == 0 ? 1 : bytes);
}

void* AllocateAligned(std::size_t bytes, std::align_val_t alignment) noexcept {
    ++t_allocations;
    const auto boundary = static_cast<std::size_t>(alignment);
    // aligned_alloc wants a multiple of the alignment.
    const std::size_t rounded = (bytes + boundary - 1) / boundary * boundary;
    return std::aligned_alloc(boundary, rounded == 0 ? boundary : rounded);
}

}  // namespace

namespace benchmarks {

std::uint64_t AllocationsOfThisThread() noexcept {
    return t_allocations;
}

}  // namespace benchmarks

// The operators for arrays and those that do not throw end up here by default.

void* operator new(std::size_t bytes) {
    void* const block = Allocate(bytes);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

void* operator new(std::size_t bytes, std::align_val_t alignment) {
    void* const block = AllocateAligned(bytes, alignment);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

void operator delete(void* block) noexcept {
    std::free(block);
}

void operator delete(void* block, std::size_t) noexcept {
    std::free(block);
}

void operator delete(void* block, std::align_val_t) noexcept {
    std::free(block);
}

void operator delete(void* block, std::size_t, std::align_val_t) noexcept {
    std::free(block);
}
