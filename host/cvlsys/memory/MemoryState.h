#pragma once

#include "cvlsys/IntegerTypes.h"
#include "cvlsys/MemoryTracking.h"
#include "cvlsys/host/IdBatch.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <malloc.h>

/// What counting an allocation reads and writes, for the functions of this library that do it: they
/// are called around every `malloc` and must not cost more than a few loads.
namespace corvala::memory {

[[gnu::visibility("hidden")]] extern std::atomic<MemoryTrackingMode> trackingMode;

/// The calling thread's.
struct ThreadMemory {
    ThreadMemoryCounters* current = nullptr;
    ThreadMemoryCounters* charged = nullptr;  ///< `current`, or null while nothing is charged
    uint32 uncharged = 0;                     ///< how often nothing is to be charged
    cvlsys::IdBatch orderingIds;
};

[[gnu::visibility("hidden"),
  gnu::tls_model("initial-exec")]] extern constinit thread_local ThreadMemory t_memory;

inline void MakeCurrent(ThreadMemoryCounters* frame) noexcept {
    t_memory.current = frame;
    t_memory.charged = t_memory.uncharged == 0 ? frame : nullptr;
}

/// Null if nothing is to be counted.
inline ThreadMemoryCounters* FrameToCharge() noexcept {
    return trackingMode.load(std::memory_order_relaxed) != MemoryTrackingOff ? t_memory.charged
                                                                             : nullptr;
}

inline ThreadMemoryCounters* FrameToChargeReleases() noexcept {
    return trackingMode.load(std::memory_order_relaxed) == MemoryTrackingAll ? t_memory.charged
                                                                             : nullptr;
}

inline void RaisePeak(ThreadMemoryCounters& frame) noexcept {
    frame.peakInUse = std::max(frame.peakInUse, static_cast<int64>(frame.inUse));
}

inline void AddAllocation(ThreadMemoryCounters& frame, std::size_t bytes) noexcept {
    frame.allocated += bytes;
    ++frame.allocatedCount;
    // Without the releases a net would only grow.
    if (trackingMode.load(std::memory_order_relaxed) == MemoryTrackingAll) {
        frame.inUse += bytes;
        RaisePeak(frame);
    }
}

inline void AddRelease(ThreadMemoryCounters& frame, std::size_t bytes) noexcept {
    frame.deallocated += bytes;
    ++frame.deallocatedCount;
    frame.inUse -= bytes;
}

// As the functions that are exported for it.

inline void ChargeAllocatedBlockHere(void* block) noexcept {
    ThreadMemoryCounters* const frame = FrameToCharge();
    if (frame != nullptr && block != nullptr) {
        AddAllocation(*frame, malloc_usable_size(block));
    }
}

inline void ChargeReleasedBlockHere(void* block) noexcept {
    ThreadMemoryCounters* const frame = FrameToChargeReleases();
    if (frame != nullptr && block != nullptr) {
        AddRelease(*frame, malloc_usable_size(block));
    }
}

}  // namespace corvala::memory
