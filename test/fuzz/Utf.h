#pragma once

#include <string>
#include <string_view>

// The transcoding rules once more, written for reading and not for speed, to compare with.
namespace fuzz {

/// A lone surrogate becomes U+FFFD.
inline std::string ReferenceUtf8(std::u16string_view text) {
    std::string utf8;
    for (std::size_t i = 0; i < text.size(); ++i) {
        char32_t point = text[i];
        const bool isHigh = point >= 0xD800 && point <= 0xDBFF;
        const bool isLow = point >= 0xDC00 && point <= 0xDFFF;
        const bool hasLow = i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF;
        if (isHigh && hasLow) {
            point = 0x10000 + ((point - 0xD800) << 10) + (text[i + 1] - 0xDC00U);
            ++i;
        } else if (isHigh || isLow) {
            point = 0xFFFD;
        }
        const auto add = [&utf8](char32_t byte) { utf8.push_back(static_cast<char>(byte)); };
        if (point < 0x80) {
            add(point);
        } else if (point < 0x800) {
            add(0xC0 | point >> 6);
            add(0x80 | (point & 0x3F));
        } else if (point < 0x10000) {
            add(0xE0 | point >> 12);
            add(0x80 | (point >> 6 & 0x3F));
            add(0x80 | (point & 0x3F));
        } else {
            add(0xF0 | point >> 18);
            add(0x80 | (point >> 12 & 0x3F));
            add(0x80 | (point >> 6 & 0x3F));
            add(0x80 | (point & 0x3F));
        }
    }
    return utf8;
}

}  // namespace fuzz
