#pragma once

#include "cvlsys/IntegerTypes.h"

#include <atomic>

namespace cvlsys {

/// A thread's source of unique ids. It reserves a batch of them at a time, so that threads seldom
/// touch the shared counter. The ids begin with 1 and grow within a thread.
struct IdBatch {
    uint64 last = 0;         ///< that was taken
    uint64 lastOfBatch = 0;  ///< that was set aside

    /// `setAside` counts the ids that all threads have reserved.
    uint64 Next(std::atomic<uint64>& setAside) noexcept {
        constexpr uint64 batch = 256;
        if (last == lastOfBatch) {
            last = setAside.fetch_add(batch, std::memory_order_relaxed);
            lastOfBatch = last + batch;
        }
        return ++last;
    }
};

}  // namespace cvlsys
