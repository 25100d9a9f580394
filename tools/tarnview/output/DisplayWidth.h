#pragma once

#include <cstddef>
#include <string_view>

namespace tarnview {

/// A character at the beginning of UTF-8 text.
struct DisplayedCharacter {
    std::size_t bytes = 1;
    std::size_t columns =
        1;  ///< of a terminal: 0 for what is put on the one before, 2 for wide ones
};

/// The first character of a text that is not empty. A byte that begins no character counts as one.
DisplayedCharacter FirstCharacterOf(std::string_view text);

}  // namespace tarnview
