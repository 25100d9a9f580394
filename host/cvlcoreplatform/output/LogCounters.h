#pragma once

#include "cvlsys/IntegerTypes.h"

#include <atomic>

namespace cvlcoreplatform {

/// The figures behind `TLog::GetLogStatistics`; one set for the process.
struct LogCounters {
    std::atomic<uint64> lines{0};
    std::atomic<uint64> bytes{0};
    std::atomic<uint64> writeErrors{0};
    std::atomic<uint64> rotations{0};
    std::atomic<uint64> reopenings{0};
    std::atomic<uint64> rotationErrors{0};
    std::atomic<uint64> backEndExceptions{0};
    std::atomic<uint64> nestedCalls{0};
};

extern constinit LogCounters logCounters;

inline void Count(std::atomic<uint64>& counter, uint64 amount = 1) noexcept {
    counter.fetch_add(amount, std::memory_order_relaxed);
}

}  // namespace cvlcoreplatform
