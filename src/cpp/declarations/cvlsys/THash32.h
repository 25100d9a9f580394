#pragma once

#include "cvlsys/Export.h"
#include "cvlsys/IntegerTypes.h"

#include <cstddef>

/// 32-bit hash of `bytes` bytes at `data` (which may be null when `bytes` is 0). The same bytes
/// and seed give the same hash in every process. Not for untrusted keys at scale.
CVLSYS_API uint32 THash32(const void* data, std::size_t bytes, uint32 seed) noexcept;
