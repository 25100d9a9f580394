#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tarnview {

/// For people: "850 us", "12.3 ms", "4.21 s", "3 min 20 s", "2 h 5 min".
std::string FormatDuration(double seconds);

/// For people: "512 B", "12.3 kB", "4.21 MB"; in steps of 1000.
std::string FormatBytes(double bytes);

/// "1,234,567"
std::string FormatCount(std::uint64_t count);

/// How many columns of a terminal UTF-8 text takes: two for a wide character, as Chinese ones.
std::size_t TextWidth(std::string_view text);

/// Filled up with blanks to `width` columns, or cut to it with "~" as its last column.
std::string FitLeft(std::string_view text, std::size_t width);
std::string FitRight(std::string_view text, std::size_t width);

/// Without characters that would confuse a terminal: each reads as "?".
std::string OnOneLine(std::string_view text);

}  // namespace tarnview
