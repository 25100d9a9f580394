#include "cvlsys/MemoryTracking.h"

#include "MemoryState.h"
#include "ThreadNumber.h"

#include "cvlsys/host/MemoryCharging.h"

#include <algorithm>
#include <atomic>
#include <limits>

namespace corvala::memory {

constinit std::atomic<MemoryTrackingMode> trackingMode{MemoryTrackingOff};
CVLSYS_FAST_THREAD_LOCAL ThreadMemory t_memory;

namespace {

constinit std::atomic<uint64> s_orderingIdsSetAside{0};

uint32 AddSaturating(uint32 sum, uint64 count) noexcept {
    constexpr uint64 largest = std::numeric_limits<uint32>::max();
    return static_cast<uint32>(std::min(largest, sum + std::min(count, largest)));
}

}  // namespace

MemoryTrackingMode GetMemoryTrackingMode() noexcept {
    return trackingMode.load(std::memory_order_relaxed);
}

void SetMemoryTrackingMode(MemoryTrackingMode mode) noexcept {
    trackingMode.store(mode, std::memory_order_relaxed);
}

void ChargeAllocation(std::size_t bytes) noexcept {
    if (ThreadMemoryCounters* const frame = FrameToCharge()) {
        AddAllocation(*frame, bytes);
    }
}

void ChargeRelease(std::size_t bytes) noexcept {
    if (ThreadMemoryCounters* const frame = FrameToChargeReleases()) {
        AddRelease(*frame, bytes);
    }
}

void ChargeAllocatedBlock(void* block) noexcept {
    ChargeAllocatedBlockHere(block);
}

void ChargeReleasedBlock(void* block) noexcept {
    ChargeReleasedBlockHere(block);
}

UnchargedAllocations::UnchargedAllocations() noexcept {
    ++t_memory.uncharged;
    t_memory.charged = nullptr;
}

UnchargedAllocations::~UnchargedAllocations() {
    --t_memory.uncharged;
    MakeCurrent(t_memory.current);
}

ThreadMemoryCounters* SwapPushMemoryCounters(ThreadMemoryCounters* frame) noexcept {
    ThreadMemoryCounters* const previous = t_memory.current;
    MakeCurrent(frame);
    return previous;
}

ThreadMemoryCounters* SwapPopMemoryCounters(ThreadMemoryCounters* frame) noexcept {
    ThreadMemoryCounters* const popped = t_memory.current;
    MakeCurrent(frame);
    // The sums stay behind: folding has given them to every enclosing counter already. The net
    // goes on, because the next frame above starts from it.
    if (popped != nullptr && frame != nullptr && popped != frame) {
        frame->inUse += popped->inUse;
        RaisePeak(*frame);
    }
    return popped;
}

uint64 GetNextOrderingId() noexcept {
    return t_memory.orderingIds.Next(s_orderingIdsSetAside);
}

MemoryCounter::~MemoryCounter() = default;

void MemoryCounter::Fold(const ThreadMemoryCounters& frame, uint64 base) noexcept {
    const uint64 anything =
        frame.allocated | frame.allocatedCount | frame.deallocated | frame.deallocatedCount;
    if (anything != 0) {
        m_allocated += frame.allocated;
        m_allocatedCount = AddSaturating(m_allocatedCount, frame.allocatedCount);
        m_deallocated += frame.deallocated;
        m_deallocatedCount = AddSaturating(m_deallocatedCount, frame.deallocatedCount);
    }
    m_peakUsed =
        std::max(m_peakUsed, static_cast<int64>(base + static_cast<uint64>(frame.peakInUse)));
}

// Not the kernel's id: a frame that is open across a fork still belongs to the thread that forked,
// and may be popped in the child.
uint64 MemoryScope::GetCurrentThreadId() noexcept {
    return cvlsys::ThreadNumber();
}

}  // namespace corvala::memory
