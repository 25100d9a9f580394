#pragma once

#include <cstdint>

namespace benchmarks {

/// Calls of operator new, and the bytes that were asked for. Linking this replaces the global
/// operators new and delete of the whole program, shared libraries included; what is allocated in
/// other ways is not counted.
struct Allocations {
    std::uint64_t calls = 0;
    std::uint64_t bytes = 0;
};

Allocations AllocationsOfThisThread() noexcept;

/// Of all threads so far. Figures of threads that allocate meanwhile may be in it or not.
Allocations AllocationsOfProcess() noexcept;

inline Allocations operator-(const Allocations& later, const Allocations& earlier) noexcept {
    return {later.calls - earlier.calls, later.bytes - earlier.bytes};
}

inline Allocations& operator+=(Allocations& sum, const Allocations& more) noexcept {
    sum.calls += more.calls;
    sum.bytes += more.bytes;
    return sum;
}

}  // namespace benchmarks
