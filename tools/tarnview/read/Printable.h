#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tarnview {

/// UTF-8 text without what could move a terminal's cursor or turn the text around: control
/// characters, C1 ones too, line separators, marks of direction, and bytes that are no UTF-8. Each
/// of these reads as "?".
std::string Printable(std::string_view text);

/// Whether a character is such a one.
bool IsHarmful(char32_t character);

/// The first character of a text that is not empty, and its bytes; without bytes it is no UTF-8.
struct Utf8Character {
    char32_t code = 0;
    std::size_t length = 0;
};

Utf8Character FirstCharacter(std::string_view text);

}  // namespace tarnview
