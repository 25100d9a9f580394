#pragma once

#include <cstdint>

namespace benchmarks {

/// How often the calling thread has called operator new so far. Linking this replaces the global
/// operators new and delete of the whole program, shared libraries included; what is allocated in
/// other ways is not counted.
std::uint64_t AllocationsOfThisThread() noexcept;

}  // namespace benchmarks
