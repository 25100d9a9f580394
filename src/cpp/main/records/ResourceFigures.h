#pragma once

#include "cvlsys/IntegerTypes.h"

namespace tarn {

/// Sum in two's complement: figures come from outside and must not overflow into undefined
/// behaviour.
constexpr int64 AddFigures(int64 a, int64 b) noexcept {
    return static_cast<int64>(static_cast<uint64>(a) + static_cast<uint64>(b));
}

constexpr int64 SubtractFigures(int64 a, int64 b) noexcept {
    return static_cast<int64>(static_cast<uint64>(a) - static_cast<uint64>(b));
}

/// One counted resource of one scope. The exclusive figure may be negative in between.
struct ResourceFigure {
    int64 exclusive = 0;
    int64 sameThread = 0;    ///< inclusive, on the scope's own thread
    int64 otherThreads = 0;  ///< inclusive, on other threads

    int64 Inclusive() const noexcept { return AddFigures(sameThread, otherThreads); }

    /// Counts what the scope measured itself.
    void AddMeasured(int64 amount) noexcept {
        exclusive = AddFigures(exclusive, amount);
        sameThread = AddFigures(sameThread, amount);
    }
};

/// What one scope used. Times are in microseconds.
struct ResourceFigures {
    ResourceFigure allocatedBytes;
    ResourceFigure allocationCount;
    ResourceFigure deallocatedBytes;
    ResourceFigure deallocationCount;
    ResourceFigure userTime;
    ResourceFigure kernelTime;
    int64 allocatedPeak = 0;

    /// The six that are passed on to parents; the peak is not.
    static constexpr ResourceFigure ResourceFigures::*folded[] = {
        &ResourceFigures::allocatedBytes,
        &ResourceFigures::allocationCount,
        &ResourceFigures::deallocatedBytes,
        &ResourceFigures::deallocationCount,
        &ResourceFigures::userTime,
        &ResourceFigures::kernelTime,
    };
};

}  // namespace tarn
