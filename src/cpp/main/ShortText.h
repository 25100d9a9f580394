#pragma once

#include "cvlsys/IntegerTypes.h"

#include <cstddef>
#include <cstring>
#include <string_view>

namespace tarn {

/// A quick hash of short texts, for tables within the process. Its upper half is the better one.
inline uint64 HashText(std::string_view bytes) noexcept {
    constexpr uint64 multiplier = 0x9E3779B97F4A7C15;
    constexpr std::size_t word = sizeof(uint64);
    uint64 mixed = bytes.size();
    const auto mix = [&mixed](const char* from) {
        uint64 part = 0;
        std::memcpy(&part, from, word);
        mixed = (mixed ^ part) * multiplier;
        mixed ^= mixed >> 32;
    };
    if (bytes.size() < word) {
        uint64 part = 0;
        for (const char byte : bytes) {
            part = part << 8 | static_cast<unsigned char>(byte);
        }
        return (mixed ^ part) * multiplier;
    }
    const char* const last = bytes.data() + bytes.size() - word;
    for (const char* from = bytes.data(); from < last; from += word) {
        mix(from);
    }
    // The last word may overlap the one before.
    mix(last);
    return mixed * multiplier;
}

}  // namespace tarn
