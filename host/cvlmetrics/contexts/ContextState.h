#pragma once

#include "PendingAttributes.h"

#include "cvlsys/IntegerTypes.h"

#include <atomic>

namespace Metrics {

/// What a `Context` shares with the threads on which it is current. It outlives the context there:
/// a thread that still has it on its stack finds it ended and drops it. Any thread may read it.
struct ContextState {
    ContextState(uint64 contextId, uint64 contextFlags, uint64 contextParentId) noexcept
        : id(contextId),
          flags(contextFlags),
          parentId(contextParentId) {}

    const uint64 id;
    const uint64 flags;
    const uint64 parentId;

    // None orders other memory: the hand-over of a context between threads does that.
    std::atomic<bool> ended{false};
    std::atomic<uint64> announcedThread{0};

    // A context that found no room when it was made or opened is not known to any consumer; it is
    // announced as soon as there is room, unless something that was said of it in the meantime is
    // lost.
    std::atomic<bool> isUnannounced{false};
    std::atomic<bool> hasLostAttributes{false};

    // What found no room to be said, and is to be said before its next scope: that it was opened,
    // and that it is on this thread.
    static constexpr uint32 openingIsUnsaid = 1;
    static constexpr uint32 threadIsUnsaid = 2;
    std::atomic<uint32> unsaid{0};

    PendingAttributes pendingAttributes;
};

}  // namespace Metrics
