#pragma once

#include <cstdint>

// The host libraries spell their integers this way, in the global namespace.
using int32 = std::int32_t;
using uint32 = std::uint32_t;
using int64 = std::int64_t;
using uint64 = std::uint64_t;
