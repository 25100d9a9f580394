#include "output/DisplayWidth.h"

#include <algorithm>
#include <clocale>
#include <cstdint>
#include <cwchar>
#include <locale.h>

namespace tarnview {

namespace {

// The C library knows the widths of characters, in a locale that has them all. The program itself
// stays in the locale "C", in which numbers look alike everywhere.
std::size_t ColumnsOf(char32_t character) {
    static const locale_t allCharacters = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    if (allCharacters == nullptr) {
        return 1;
    }
    const locale_t before = uselocale(allCharacters);
    const int columns = wcwidth(static_cast<wchar_t>(character));
    uselocale(before);
    return columns < 0 ? 1 : static_cast<std::size_t>(columns);
}

std::size_t BytesOf(unsigned char first) {
    return first < 0x80   ? 1
           : first < 0xC2 ? 1
           : first < 0xE0 ? 2
           : first < 0xF0 ? 3
           : first < 0xF5 ? 4
                          : 1;
}

}  // namespace

DisplayedCharacter FirstCharacterOf(std::string_view text) {
    const auto byte = [&](std::size_t index) { return static_cast<unsigned char>(text[index]); };
    const std::size_t bytes = BytesOf(byte(0));
    if (bytes == 1 || bytes > text.size()) {
        return {};
    }
    constexpr unsigned firstBits[] = {0, 0, 0x1F, 0x0F, 0x07};
    std::uint32_t character = byte(0) & firstBits[bytes];
    for (std::size_t index = 1; index < bytes; ++index) {
        if ((byte(index) & 0xC0U) != 0x80U) {
            return {};
        }
        character = character << 6U | (byte(index) & 0x3FU);
    }
    return {bytes, ColumnsOf(character)};
}

}  // namespace tarnview
