#include "AllocationCounter.h"

#include "cvlsys/host/MemoryCharging.h"

#include <cstdlib>
#include <malloc.h>
#include <new>

namespace tarn::test {
namespace {

// Trivial, so that it serves at any time of a thread's life.
struct ThreadAllocations {
    uint64 allocations;
    uint64 releases;
    uint64 bytes;
    uint64 untilFailure;
    std::size_t failedBytes;
    int pauses;
    bool armed;
    bool failsOn;
    bool failed;
    bool charging;
};

thread_local constinit ThreadAllocations s_thread{};

bool FailsNow(std::size_t bytes) noexcept {
    if (!s_thread.armed || s_thread.pauses > 0) {
        return false;
    }
    if (s_thread.untilFailure-- > 0) {
        return false;
    }
    if (s_thread.failsOn) {
        s_thread.untilFailure = 0;
    } else {
        s_thread.armed = false;
    }
    s_thread.failed = true;
    s_thread.failedBytes = bytes;
    return true;
}

void* Allocate(std::size_t bytes, std::size_t alignment) noexcept {
    if (FailsNow(bytes)) {
        return nullptr;
    }
    const std::size_t size = bytes == 0 ? 1 : bytes;
    void* block = nullptr;
    if (alignment <= __STDCPP_DEFAULT_NEW_ALIGNMENT__) {
        block = std::malloc(size);
    } else if (::posix_memalign(&block, alignment, size) != 0) {
        block = nullptr;
    }
    if (block != nullptr) {
        ++s_thread.allocations;
        s_thread.bytes += bytes;
        if (s_thread.charging) {
            corvala::memory::ChargeAllocation(::malloc_usable_size(block));
        }
    }
    return block;
}

void* AllocateOrThrow(std::size_t bytes, std::size_t alignment) {
    void* block = Allocate(bytes, alignment);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

void Free(void* block) noexcept {
    if (block == nullptr) {
        return;
    }
    ++s_thread.releases;
    if (s_thread.charging) {
        corvala::memory::ChargeRelease(::malloc_usable_size(block));
    }
    std::free(block);
}

}  // namespace

AllocationCounter::AllocationCounter() noexcept
    : m_allocationsAtStart(s_thread.allocations),
      m_releasesAtStart(s_thread.releases),
      m_bytesAtStart(s_thread.bytes) {}

uint64 AllocationCounter::Allocations() const noexcept {
    return s_thread.allocations - m_allocationsAtStart;
}

uint64 AllocationCounter::Releases() const noexcept {
    return s_thread.releases - m_releasesAtStart;
}

uint64 AllocationCounter::AllocatedBytes() const noexcept {
    return s_thread.bytes - m_bytesAtStart;
}

FailingAllocation::FailingAllocation(uint64 number) noexcept {
    s_thread.untilFailure = number;
    s_thread.failed = false;
    s_thread.armed = true;
}

FailingAllocation::~FailingAllocation() {
    s_thread.armed = false;
}

bool FailingAllocation::HasFailed() const noexcept {
    return s_thread.failed;
}

std::size_t FailingAllocation::FailedBytes() const noexcept {
    return s_thread.failed ? s_thread.failedBytes : 0;
}

MemoryThatRunsOut::MemoryThatRunsOut(uint64 allocationsLeft) noexcept {
    s_thread.untilFailure = allocationsLeft;
    s_thread.failsOn = true;
    s_thread.armed = true;
}

MemoryThatRunsOut::~MemoryThatRunsOut() {
    s_thread.armed = false;
    s_thread.failsOn = false;
}

UnfailingAllocations::UnfailingAllocations() noexcept {
    ++s_thread.pauses;
}

UnfailingAllocations::~UnfailingAllocations() {
    --s_thread.pauses;
}

ChargedAllocations::ChargedAllocations() noexcept {
    s_thread.charging = true;
}

ChargedAllocations::~ChargedAllocations() {
    s_thread.charging = false;
}

}  // namespace tarn::test

// The whole family, so that sanitizers' own versions are never mixed with these.

void* operator new(std::size_t bytes) {
    return tarn::test::AllocateOrThrow(bytes, __STDCPP_DEFAULT_NEW_ALIGNMENT__);
}

void* operator new[](std::size_t bytes) {
    return tarn::test::AllocateOrThrow(bytes, __STDCPP_DEFAULT_NEW_ALIGNMENT__);
}

void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept {
    return tarn::test::Allocate(bytes, __STDCPP_DEFAULT_NEW_ALIGNMENT__);
}

void* operator new[](std::size_t bytes, const std::nothrow_t&) noexcept {
    return tarn::test::Allocate(bytes, __STDCPP_DEFAULT_NEW_ALIGNMENT__);
}

void* operator new(std::size_t bytes, std::align_val_t alignment) {
    return tarn::test::AllocateOrThrow(bytes, static_cast<std::size_t>(alignment));
}

void* operator new[](std::size_t bytes, std::align_val_t alignment) {
    return tarn::test::AllocateOrThrow(bytes, static_cast<std::size_t>(alignment));
}

void* operator new(std::size_t bytes, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    return tarn::test::Allocate(bytes, static_cast<std::size_t>(alignment));
}

void* operator new[](std::size_t bytes,
                     std::align_val_t alignment,
                     const std::nothrow_t&) noexcept {
    return tarn::test::Allocate(bytes, static_cast<std::size_t>(alignment));
}

void operator delete(void* block) noexcept {
    tarn::test::Free(block);
}

void operator delete[](void* block) noexcept {
    tarn::test::Free(block);
}

void operator delete(void* block, std::size_t) noexcept {
    tarn::test::Free(block);
}

void operator delete[](void* block, std::size_t) noexcept {
    tarn::test::Free(block);
}

void operator delete(void* block, const std::nothrow_t&) noexcept {
    tarn::test::Free(block);
}

void operator delete[](void* block, const std::nothrow_t&) noexcept {
    tarn::test::Free(block);
}

void operator delete(void* block, std::align_val_t) noexcept {
    tarn::test::Free(block);
}

void operator delete[](void* block, std::align_val_t) noexcept {
    tarn::test::Free(block);
}

void operator delete(void* block, std::size_t, std::align_val_t) noexcept {
    tarn::test::Free(block);
}

void operator delete[](void* block, std::size_t, std::align_val_t) noexcept {
    tarn::test::Free(block);
}

void operator delete(void* block, std::align_val_t, const std::nothrow_t&) noexcept {
    tarn::test::Free(block);
}

void operator delete[](void* block, std::align_val_t, const std::nothrow_t&) noexcept {
    tarn::test::Free(block);
}
