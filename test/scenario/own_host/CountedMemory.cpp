// Memory that is counted, which the example does without: what a scenario allocates with TMalloc
// appears in its figures.
#include "cvlsys/MemoryTracking.h"
#include "cvlsys/TAllocate.h"
#include "cvlsys/TSystem.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <limits>
#include <utility>

namespace corvala::memory {

namespace {

std::atomic<MemoryTrackingMode> s_mode{MemoryTrackingOff};

thread_local ThreadMemoryCounters* t_frame = nullptr;

// In front of each block: how large it was asked for. The allocator may give more than that, which
// differs from run to run.
struct alignas(std::max_align_t) Header {
    uint64 bytes;
};

// One block more or less in use.
void Charge(uint64 bytes, bool isAllocated) noexcept {
    const MemoryTrackingMode mode = s_mode.load(std::memory_order_relaxed);
    if (t_frame == nullptr || mode == MemoryTrackingOff) {
        return;
    }
    if (isAllocated) {
        t_frame->allocated += bytes;
        ++t_frame->allocatedCount;
    }
    if (mode != MemoryTrackingAll) {
        return;
    }
    if (isAllocated) {
        t_frame->inUse += bytes;
        t_frame->peakInUse = std::max(t_frame->peakInUse, static_cast<int64>(t_frame->inUse));
    } else {
        t_frame->deallocated += bytes;
        ++t_frame->deallocatedCount;
        t_frame->inUse -= bytes;
    }
}

void AddCalls(uint32& sum, uint64 calls) noexcept {
    sum += static_cast<uint32>(std::min<uint64>(calls, std::numeric_limits<uint32>::max() - sum));
}

}  // namespace

MemoryTrackingMode GetMemoryTrackingMode() noexcept {
    return s_mode;
}

void SetMemoryTrackingMode(MemoryTrackingMode mode) noexcept {
    s_mode = mode;
}

ThreadMemoryCounters* SwapPushMemoryCounters(ThreadMemoryCounters* frame) noexcept {
    return std::exchange(t_frame, frame);
}

ThreadMemoryCounters* SwapPopMemoryCounters(ThreadMemoryCounters* frame) noexcept {
    ThreadMemoryCounters* const popped = std::exchange(t_frame, frame);
    if (frame != nullptr && popped != nullptr && frame != popped) {
        frame->inUse += popped->inUse;
        frame->peakInUse = std::max(frame->peakInUse, static_cast<int64>(frame->inUse));
    }
    return popped;
}

uint64 GetNextOrderingId() noexcept {
    static std::atomic<uint64> last{0};
    return ++last;
}

uint64 MemoryScope::GetCurrentThreadId() noexcept {
    return TSystem::ThreadID();
}

MemoryCounter::~MemoryCounter() = default;

void MemoryCounter::Fold(const ThreadMemoryCounters& frame, uint64 base) noexcept {
    m_allocated += frame.allocated;
    AddCalls(m_allocatedCount, frame.allocatedCount);
    m_deallocated += frame.deallocated;
    AddCalls(m_deallocatedCount, frame.deallocatedCount);
    m_peakUsed = std::max(m_peakUsed, static_cast<int64>(base) + frame.peakInUse);
}

}  // namespace corvala::memory

void* TMalloc(std::size_t bytes) noexcept {
    using corvala::memory::Header;
    auto* const header = static_cast<Header*>(std::malloc(sizeof(Header) + bytes));
    if (header == nullptr) {
        return nullptr;
    }
    header->bytes = bytes;
    corvala::memory::Charge(bytes, true);
    return header + 1;
}

void TFree(void* block) noexcept {
    if (block != nullptr) {
        auto* const header = static_cast<corvala::memory::Header*>(block) - 1;
        corvala::memory::Charge(header->bytes, false);
        std::free(header);
    }
}
