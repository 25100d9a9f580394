#include "read/Printable.h"

#include <cstddef>
#include <cstdint>

namespace tarnview {

Utf8Character FirstCharacter(std::string_view text) {
    const auto byte = [&](std::size_t index) { return static_cast<unsigned char>(text[index]); };
    const unsigned first = byte(0);
    if (first < 0x80) {
        return {static_cast<char32_t>(first), 1};
    }
    const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    constexpr std::uint32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
    if (first < 0xC2 || first > 0xF4 || text.size() < length) {
        return {};
    }
    std::uint32_t code = first & (0x7FU >> length);
    for (std::size_t index = 1; index < length; ++index) {
        if ((byte(index) & 0xC0U) != 0x80U) {
            return {};
        }
        code = code << 6U | (byte(index) & 0x3FU);
    }
    return code < smallest[length] ? Utf8Character{}
                                   : Utf8Character{static_cast<char32_t>(code), length};
}

bool IsHarmful(char32_t code) {
    const auto isIn = [code](char32_t first, char32_t last) {
        return code >= first && code <= last;
    };
    return isIn(0, 0x1F) || isIn(0x7F, 0x9F) || code == 0x061C || isIn(0x200E, 0x200F) ||
           isIn(0x2028, 0x202E) || isIn(0x2066, 0x2069);
}

std::string Printable(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    while (!text.empty()) {
        const Utf8Character character = FirstCharacter(text);
        if (character.length == 0 || IsHarmful(character.code)) {
            result.push_back('?');
        } else {
            result.append(text.substr(0, character.length));
        }
        text.remove_prefix(character.length == 0 ? 1 : character.length);
    }
    return result;
}

}  // namespace tarnview
