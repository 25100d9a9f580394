#pragma once

#include "cvlsys/Export.h"

#include <cstddef>

/// Allocates like malloc, and charges the block to the calling thread's memory frame when memory
/// tracking is on. Returns null when there is no memory. Release with `TFree` only.
CVLSYS_API void* TMalloc(std::size_t bytes) noexcept;

/// Releases a block of `TMalloc`; null is allowed. The release is charged to the frame that is
/// current on the calling thread, whichever thread allocated the block.
CVLSYS_API void TFree(void* block) noexcept;
