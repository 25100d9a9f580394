#pragma once

#include "cvlsys/IntegerTypes.h"

#include <atomic>

namespace cvlsys {

/// One thread's share of ids that many threads take: it sets a batch of them aside at a time, so
/// that threads do not wait for each other's. The ids begin with 1, are unique, and grow within a
/// thread.
struct IdBatch {
    uint64 last = 0;         ///< that was taken
    uint64 lastOfBatch = 0;  ///< that was set aside

    /// `setAside` counts what all threads have set aside.
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
