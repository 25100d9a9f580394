#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace tarn::otlp {

/// Microseconds since 1970-01-01 UTC.
using Microseconds = std::int64_t;

/// Reads a time as the log has them, "2026-11-21T06:02:25.181892Z" or with an offset ("+01:00")
/// instead of the Z. Decimals beyond the sixth are cut off. `nullopt` if it is no time.
std::optional<Microseconds> ParseTimestamp(std::string_view text);

}  // namespace tarn::otlp
