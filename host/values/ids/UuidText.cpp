#include "UuidText.h"

#include "HexDigits.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <stdexcept>
#include <string_view>

namespace {

using host::digitsInId;
using Digits = host::HexDigits;

// In groups of 8, 4, 4, 4 and 12.
void WriteHyphenated(const Digits& digits, char* to) noexcept {
    std::memcpy(to, &digits[0], 8);
    to[8] = '-';
    std::memcpy(to + 9, &digits[8], 4);
    to[13] = '-';
    std::memcpy(to + 14, &digits[12], 4);
    to[18] = '-';
    std::memcpy(to + 19, &digits[16], 4);
    to[23] = '-';
    std::memcpy(to + 24, &digits[20], 12);
}

constexpr bool HasHyphenBefore(std::size_t byte) noexcept {
    return byte == 4 || byte == 6 || byte == 8 || byte == 10;
}

// -1 for what is no hexadecimal digit.
int HexValue(char16_t unit) noexcept {
    if (unit >= u'0' && unit <= u'9') {
        return unit - u'0';
    }
    if (unit >= u'a' && unit <= u'f') {
        return unit - u'a' + 10;
    }
    if (unit >= u'A' && unit <= u'F') {
        return unit - u'A' + 10;
    }
    return -1;
}

[[noreturn]] void ThrowMalformed(const TString& text) {
    throw std::invalid_argument("not an id: \"" + text.ToUtf8() + "\"");
}

}  // namespace

TUUID::TUUID(const TString& text) {
    std::u16string_view rest = text.View();
    const bool hyphenated = rest.size() != digitsInId;
    if (rest.size() > 2 && rest.front() == u'{' && rest.back() == u'}') {
        rest = rest.substr(1, rest.size() - 2);
    }
    constexpr std::size_t hyphens = 4;
    if (rest.size() != digitsInId + (hyphenated ? hyphens : 0)) {
        ThrowMalformed(text);
    }
    for (std::size_t byte = 0; byte < m_bytes.size(); ++byte) {
        if (hyphenated && HasHyphenBefore(byte)) {
            if (rest.front() != u'-') {
                ThrowMalformed(text);
            }
            rest.remove_prefix(1);
        }
        const int high = HexValue(rest[0]);
        const int low = HexValue(rest[1]);
        if (high < 0 || low < 0) {
            ThrowMalformed(text);
        }
        m_bytes[byte] = static_cast<unsigned char>(high * 16 + low);
        rest.remove_prefix(2);
    }
}

TString TUUID::ToString(TUUIDFormatOption option) const {
    const Digits digits = host::HexDigitsOf(m_bytes, option == TUUIDFormatOption::UpperHyphenated);
    std::array<char, 40> text{};
    std::size_t first = 0;
    std::size_t length = cvlcoreplatform::uuidTextLength;
    if (option == TUUIDFormatOption::Digits) {
        std::copy(digits.begin(), digits.end(), text.begin());
        length = digits.size();
    } else {
        text[0] = '{';
        WriteHyphenated(digits, &text[1]);
        text[1 + cvlcoreplatform::uuidTextLength] = '}';
        first = option == TUUIDFormatOption::Braces ? 0 : 1;
        length += option == TUUIDFormatOption::Braces ? 2 : 0;
    }
    // All of it, as a loop of known length is done by blocks.
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): written below
    std::array<char16_t, text.size()> units;
    for (std::size_t i = 0; i < text.size(); ++i) {
        units[i] = static_cast<unsigned char>(text[i]);
    }
    return TString(std::u16string_view(&units[first], length));
}

void cvlcoreplatform::WriteUuid(const TUUID& id, char* to) noexcept {
    WriteHyphenated(host::HexDigitsOf(id.Bytes(), true), to);
}
