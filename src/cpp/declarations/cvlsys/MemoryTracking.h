#pragma once

#include "cvlsys/CorvalaError.h"
#include "cvlsys/CorvalaException.h"
#include "cvlsys/Export.h"
#include "cvlsys/IntegerTypes.h"

/// Memory that the calling thread allocates and frees, counted in frames that nest like the
/// scopes that push them.
namespace corvala::memory {

enum MemoryTrackingMode : int {
    MemoryTrackingOff = 0,          ///< nothing is counted
    MemoryTrackingAllocations = 1,  ///< allocations are counted
    MemoryTrackingAll = 2,          ///< allocations, releases and the peak are counted
};

CVLSYS_API MemoryTrackingMode GetMemoryTrackingMode() noexcept;

/// Takes effect at once on every thread; meant for start-up (blocks that were allocated before a
/// change are released under the new mode). Any thread may call it.
CVLSYS_API void SetMemoryTrackingMode(MemoryTrackingMode mode) noexcept;

class MemoryCounter;

/// One frame on a thread's stack of memory frames. The thread that pushed it owns it; only that
/// thread touches it.
struct ThreadMemoryCounters {
    ThreadMemoryCounters* parentThreadMemoryCounters = nullptr;
    MemoryCounter* counter = nullptr;
    uint64 allocated = 0;         ///< bytes
    uint64 allocatedCount = 0;    ///< calls
    uint64 deallocated = 0;       ///< bytes
    uint64 deallocatedCount = 0;  ///< calls
    /// Bytes allocated less bytes released in this frame and in the frames popped above it,
    /// signed in two's complement: releasing an older block makes it negative.
    uint64 inUse = 0;
    uint64 orderingId = 0;
    uint64 threadId = 0;
    /// The largest `inUse` (signed) so far, never below 0.
    int64 peakInUse = 0;
};

/// Makes `frame` the calling thread's current frame and returns the one that was (null for the
/// outermost).
CVLSYS_API ThreadMemoryCounters* SwapPushMemoryCounters(ThreadMemoryCounters* frame) noexcept;

/// Takes the calling thread's current frame off and makes `frame` current again. The net of the
/// popped frame is added to `frame`. Returns the frame that was taken off.
CVLSYS_API ThreadMemoryCounters* SwapPopMemoryCounters(ThreadMemoryCounters* frame) noexcept;

/// A number that is larger at every call of a thread, and that no other thread of the process gets.
CVLSYS_API uint64 GetNextOrderingId() noexcept;

/// Sums of finished frames. One thread at a time.
class CVLSYS_API MemoryCounter {
public:
    MemoryCounter() noexcept = default;

    /// Adds the frame's four sums; the peak becomes the larger of itself and `base` plus the
    /// frame's peak, where `base` is the net that was in use below the frame (signed in two's
    /// complement).
    virtual void Fold(const ThreadMemoryCounters& frame, uint64 base) noexcept;

    virtual ~MemoryCounter();
    MemoryCounter(const MemoryCounter&) = default;
    MemoryCounter& operator=(const MemoryCounter&) = default;

    uint64 Allocated() const noexcept { return m_allocated; }

    uint32 AllocatedCount() const noexcept { return m_allocatedCount; }

    uint64 Deallocated() const noexcept { return m_deallocated; }

    uint32 DeallocatedCount() const noexcept { return m_deallocatedCount; }

    uint64 AllocatedPeakUsed() const noexcept { return static_cast<uint64>(m_peakUsed); }

private:
    uint64 m_allocated = 0;
    uint64 m_deallocated = 0;
    int64 m_peakUsed = 0;
    uint32 m_allocatedCount = 0;
    uint32 m_deallocatedCount = 0;
};

/// A memory frame on the calling thread from construction to destruction. Scopes end in the
/// reverse order of their beginnings, on the thread that they began on; anything else raises
/// `LogicException` out of the destructor.
class CVLSYS_API MemoryScope {
public:
    /// `counter` receives the frame's figures and those of all frames within; it must outlive the
    /// scope. It may be null when there is an enclosing frame.
    explicit MemoryScope(MemoryCounter* counter) {
        m_frame.counter = counter;
        m_frame.orderingId = GetNextOrderingId();
        m_frame.threadId = GetCurrentThreadId();
        m_frame.parentThreadMemoryCounters = SwapPushMemoryCounters(&m_frame);
        if (counter == nullptr && m_frame.parentThreadMemoryCounters == nullptr) {
            SwapPopMemoryCounters(nullptr);
            ThrowLogicException(sourceFile,
                                149,
                                "counter != nullptr || "
                                "m_threadMemoryCounters.parentThreadMemoryCounters != nullptr",
                                CorvalaError(0x3E1A7C42, L"LogicException_LogicAssert_0x3E1A7C42"));
        }
    }

    ~MemoryScope() noexcept(false) {
        if (GetCurrentThreadId() != m_frame.threadId) {
            RaiseOtherThread();
        }
        FoldIntoCounters();
        if (SwapPopMemoryCounters(m_frame.parentThreadMemoryCounters) != &m_frame) {
            RaiseOutOfOrder();
        }
    }

    MemoryScope(const MemoryScope&) = delete;
    MemoryScope& operator=(const MemoryScope&) = delete;

    static uint64 GetCurrentThreadId() noexcept;

private:
    static constexpr const char* sourceFile = "cvlsys/MemoryTracking";

    // Apart: nearly every scope ends well.

    [[noreturn, gnu::noinline]] static void RaiseOtherThread() {
        ThrowLogicException(sourceFile,
                            162,
                            "MemoryScope can only be used on single thread",
                            CorvalaError(0x4A90166D, L"LogicException_LogicAssert_0x4A90166D"));
    }

    [[noreturn, gnu::noinline]] static void RaiseOutOfOrder() {
        ThrowLogicException(sourceFile,
                            185,
                            "counters == &this->m_threadMemoryCounters",
                            CorvalaError(0xB05D80FE, L"LogicException_LogicAssert_0xB05D80FE"));
    }

    // Figures are inclusive: every enclosing counter receives them too, with what was in use
    // below this frame as the base of its peak. Without tracking there is nothing to give on, and
    // an end must not cost more the deeper it lies.
    void FoldIntoCounters() const {
        if (m_frame.counter != nullptr) {
            m_frame.counter->Fold(m_frame, 0);
        }
        if (HasCountedNothing() && GetMemoryTrackingMode() == MemoryTrackingOff) {
            return;
        }
        uint64 base = 0;
        for (const ThreadMemoryCounters* enclosing = m_frame.parentThreadMemoryCounters;
             enclosing != nullptr;
             enclosing = enclosing->parentThreadMemoryCounters) {
            base += enclosing->inUse;
            if (enclosing->counter != nullptr && enclosing->counter != m_frame.counter) {
                enclosing->counter->Fold(m_frame, base);
            }
        }
    }

    // Figures from before tracking was switched off still count.
    bool HasCountedNothing() const noexcept {
        return (m_frame.allocated | m_frame.allocatedCount | m_frame.deallocated |
                m_frame.deallocatedCount | m_frame.inUse) == 0 &&
               m_frame.peakInUse == 0;
    }

    ThreadMemoryCounters m_frame;
};

}  // namespace corvala::memory
