// For a host that does not count memory: all figures are 0. Frames nest all the same, because
// scopes check that they do.
#include "cvlsys/MemoryTracking.h"
#include "cvlsys/TSystem.h"

#include <atomic>
#include <utility>

namespace corvala::memory {

namespace {

constinit thread_local ThreadMemoryCounters* t_frame = nullptr;

constinit std::atomic<uint64> s_lastOrderingId{0};

}  // namespace

MemoryTrackingMode GetMemoryTrackingMode() noexcept {
    return MemoryTrackingOff;
}

ThreadMemoryCounters* SwapPushMemoryCounters(ThreadMemoryCounters* frame) noexcept {
    return std::exchange(t_frame, frame);
}

ThreadMemoryCounters* SwapPopMemoryCounters(ThreadMemoryCounters* frame) noexcept {
    return std::exchange(t_frame, frame);
}

uint64 GetNextOrderingId() noexcept {
    return s_lastOrderingId.fetch_add(1, std::memory_order_relaxed) + 1;
}

uint64 MemoryScope::GetCurrentThreadId() noexcept {
    return TSystem::ThreadID();
}

MemoryCounter::~MemoryCounter() = default;

void MemoryCounter::Fold(const ThreadMemoryCounters& /*frame*/, uint64 /*base*/) noexcept {}

}  // namespace corvala::memory
