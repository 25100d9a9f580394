#include "cvlsys/MemoryTracking.h"

#include "ThreadNumber.h"

#include "cvlsys/host/MemoryCharging.h"

#include <algorithm>
#include <atomic>
#include <limits>
#include <malloc.h>

namespace corvala::memory {

namespace {

constinit std::atomic<MemoryTrackingMode> s_mode{MemoryTrackingOff};
// Threads take ids in batches, so that they do not wait for each other's.
constexpr uint64 idBatch = 256;
constinit std::atomic<uint64> s_orderingIdsTaken{0};

struct ThreadState {
    ThreadMemoryCounters* current = nullptr;
    uint32 uncharged = 0;
    uint64 lastOrderingId = 0;
    uint64 lastOrderingIdOfBatch = 0;
};

CVLSYS_FAST_THREAD_LOCAL ThreadState t_state;

ThreadMemoryCounters* FrameToCharge() noexcept {
    return t_state.uncharged == 0 ? t_state.current : nullptr;
}

int64 Signed(uint64 bytes) noexcept {
    return static_cast<int64>(bytes);
}

void RaisePeak(ThreadMemoryCounters& frame) noexcept {
    frame.peakInUse = std::max(frame.peakInUse, Signed(frame.inUse));
}

uint32 AddSaturating(uint32 sum, uint64 count) noexcept {
    constexpr uint64 largest = std::numeric_limits<uint32>::max();
    return static_cast<uint32>(std::min(largest, sum + std::min(count, largest)));
}

}  // namespace

MemoryTrackingMode GetMemoryTrackingMode() noexcept {
    return s_mode.load(std::memory_order_relaxed);
}

void SetMemoryTrackingMode(MemoryTrackingMode mode) noexcept {
    s_mode.store(mode, std::memory_order_relaxed);
}

void ChargeAllocation(std::size_t bytes) noexcept {
    const MemoryTrackingMode mode = GetMemoryTrackingMode();
    if (mode == MemoryTrackingOff) {
        return;
    }
    ThreadMemoryCounters* const frame = FrameToCharge();
    if (frame == nullptr) {
        return;
    }
    frame->allocated += bytes;
    ++frame->allocatedCount;
    // Without the releases a net would only grow.
    if (mode == MemoryTrackingAll) {
        frame->inUse += bytes;
        RaisePeak(*frame);
    }
}

void ChargeAllocatedBlock(void* block) noexcept {
    if (GetMemoryTrackingMode() != MemoryTrackingOff && FrameToCharge() != nullptr &&
        block != nullptr) {
        ChargeAllocation(malloc_usable_size(block));
    }
}

void ChargeReleasedBlock(void* block) noexcept {
    if (GetMemoryTrackingMode() == MemoryTrackingAll && FrameToCharge() != nullptr &&
        block != nullptr) {
        ChargeRelease(malloc_usable_size(block));
    }
}

void ChargeRelease(std::size_t bytes) noexcept {
    if (GetMemoryTrackingMode() != MemoryTrackingAll) {
        return;
    }
    ThreadMemoryCounters* const frame = FrameToCharge();
    if (frame == nullptr) {
        return;
    }
    frame->deallocated += bytes;
    ++frame->deallocatedCount;
    frame->inUse -= bytes;
}

UnchargedAllocations::UnchargedAllocations() noexcept {
    ++t_state.uncharged;
}

UnchargedAllocations::~UnchargedAllocations() {
    --t_state.uncharged;
}

ThreadMemoryCounters* SwapPushMemoryCounters(ThreadMemoryCounters* frame) noexcept {
    ThreadMemoryCounters* const previous = t_state.current;
    t_state.current = frame;
    return previous;
}

ThreadMemoryCounters* SwapPopMemoryCounters(ThreadMemoryCounters* frame) noexcept {
    ThreadMemoryCounters* const popped = t_state.current;
    t_state.current = frame;
    // The sums stay behind: folding has given them to every enclosing counter already. The net
    // goes on, because the next frame above starts from it.
    if (popped != nullptr && frame != nullptr && popped != frame) {
        frame->inUse += popped->inUse;
        RaisePeak(*frame);
    }
    return popped;
}

uint64 GetNextOrderingId() noexcept {
    ThreadState& state = t_state;
    if (state.lastOrderingId == state.lastOrderingIdOfBatch) {
        state.lastOrderingId = s_orderingIdsTaken.fetch_add(idBatch, std::memory_order_relaxed);
        state.lastOrderingIdOfBatch = state.lastOrderingId + idBatch;
    }
    return ++state.lastOrderingId;
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
    m_peakUsed = std::max(m_peakUsed, Signed(base + static_cast<uint64>(frame.peakInUse)));
}

// Not the kernel's id: a frame that is open across a fork still belongs to the thread that forked,
// and may be popped in the child.
uint64 MemoryScope::GetCurrentThreadId() noexcept {
    return cvlsys::ThreadNumber();
}

}  // namespace corvala::memory
