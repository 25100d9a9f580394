#pragma once

#include <string>
#include <string_view>

namespace tarnview {

/// UTF-8 text without what could move a terminal's cursor or turn the text around: control
/// characters, C1 ones too, line separators, marks of direction, and bytes that are no UTF-8. Each
/// of these reads as "?".
std::string Printable(std::string_view text);

}  // namespace tarnview
