#pragma once

#include "cvlsys/IntegerTypes.h"

#include <cstddef>
#include <cstring>
#include <string_view>

// What most texts in lookups are is a few words: looking at them in place is quicker than a call.
namespace tarn {

/// The bytes at a place, as a number.
template <class Word>
inline Word WordAt(const char* from) noexcept {
    Word word = 0;
    std::memcpy(&word, from, sizeof word);
    return word;
}

/// A quick hash of short texts, for tables within the process. Its upper half is the better one.
inline uint64 HashText(std::string_view bytes) noexcept {
    constexpr uint64 multiplier = 0x9E3779B97F4A7C15;
    constexpr std::size_t word = sizeof(uint64);
    uint64 mixed = bytes.size();
    const auto mix = [&mixed](const char* from) {
        mixed = (mixed ^ WordAt<uint64>(from)) * multiplier;
        mixed ^= mixed >> 32;
    };
    if (bytes.size() < word) {
        uint64 part = 0;
        if (bytes.size() >= sizeof(uint32)) {
            part = WordAt<uint32>(bytes.data() + bytes.size() - sizeof(uint32));
            part = part << 32 | WordAt<uint32>(bytes.data());
        } else {
            for (const char byte : bytes) {
                part = part << 8 | static_cast<unsigned char>(byte);
            }
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

/// Whether the texts are the same.
inline bool IsSameText(std::string_view one, std::string_view other) noexcept {
    if (one.size() != other.size()) {
        return false;
    }
    const std::size_t bytes = one.size();
    const auto sameAt = [one, other](auto word, std::size_t place) {
        using Word = decltype(word);
        return WordAt<Word>(one.data() + place) == WordAt<Word>(other.data() + place);
    };
    if (bytes >= sizeof(uint64)) {
        const std::size_t last = bytes - sizeof(uint64);
        for (std::size_t i = 0; i < last; i += sizeof(uint64)) {
            if (!sameAt(uint64{}, i)) {
                return false;
            }
        }
        return sameAt(uint64{}, last);
    }
    if (bytes >= sizeof(uint32)) {
        return sameAt(uint32{}, 0) && sameAt(uint32{}, bytes - sizeof(uint32));
    }
    for (std::size_t i = 0; i < bytes; ++i) {
        if (one[i] != other[i]) {
            return false;
        }
    }
    return true;
}

}  // namespace tarn
