#pragma once

#include "read/Timestamp.h"

#include <cstdint>
#include <string_view>

namespace tarnview {

/// The event by which a program says how many lines its keep rules have left out.
inline constexpr std::string_view leftOutEvent = "tarn-left-out";

/// The event by which it says what the rules are.
inline constexpr std::string_view keepRulesEvent = "tarn-keep-rules";

// Both take the text of such a line, behind which at least `simdjson::SIMDJSON_PADDING` bytes must
// be readable. What it does not say is 0.

/// How many lines were left out.
std::int64_t CountLeftOut(std::string_view text);

/// How much later than their times lines may be written.
Microseconds ReadLateness(std::string_view text);

}  // namespace tarnview
