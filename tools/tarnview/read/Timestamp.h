#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tarnview {

/// Microseconds since 1970-01-01 UTC.
using Microseconds = std::int64_t;

/// Reads a time of the log, "2026-11-21T06:02:25.181892Z": RFC 3339 in UTC or with an offset, with
/// any number of decimals, of which those beyond the sixth are cut off. `nullopt` if it is no time.
std::optional<Microseconds> ParseTimestamp(std::string_view text);

/// Reads what people write: the above, and shorter forms ("2026-11-21", "2026-11-21T06:02",
/// "2026-11-21 06:02:25"), which are UTC and stand for their earliest moment.
std::optional<Microseconds> ParseLooseTimestamp(std::string_view text);

/// "2026-11-21T06:02:25.181892Z"
std::string FormatTimestamp(Microseconds time);

}  // namespace tarnview
