#include "engine/StoredId.h"

#include <xxhash.h>

namespace tarnview {

namespace {

constexpr std::size_t uuidLength = 36;

bool IsHyphen(std::size_t place) {
    return place == 8 || place == 13 || place == 18 || place == 23;
}

int DigitOf(char letter) {
    return letter >= '0' && letter <= '9'   ? letter - '0'
           : letter >= 'A' && letter <= 'F' ? letter - 'A' + 10
                                            : -1;
}

std::string TextOf(const std::uint64_t (&halves)[2], const char* digits) {
    std::string text;
    text.reserve(uuidLength);
    for (unsigned digit = 0; digit < 32; ++digit) {
        if (IsHyphen(text.size())) {
            text.push_back('-');
        }
        text.push_back(digits[(halves[digit / 16] >> (60 - 4 * (digit % 16))) & 0xFU]);
    }
    return text;
}

bool ReadUuid(std::string_view id, std::uint64_t (&halves)[2]) {
    if (id.size() != uuidLength) {
        return false;
    }
    unsigned digits = 0;
    for (std::size_t place = 0; place < uuidLength; ++place) {
        if (IsHyphen(place)) {
            if (id[place] != '-') {
                return false;
            }
            continue;
        }
        const int digit = DigitOf(id[place]);
        if (digit < 0) {
            return false;
        }
        std::uint64_t& half = halves[digits++ / 16];
        half = half << 4U | static_cast<std::uint64_t>(digit);
    }
    return halves[0] != 0 || halves[1] != 0;  // all zeros stands for no id
}

}  // namespace

StoredId StoredId::Of(std::string_view id) {
    StoredId stored;
    if (!id.empty() && !ReadUuid(id, stored.halves)) {
        const XXH128_hash_t hash = XXH3_128bits(id.data(), id.size());
        stored.halves[0] = hash.high64;
        stored.halves[1] = hash.low64;
        stored.text = id;
    }
    return stored;
}

std::string StoredId::Id() const {
    if (!text.empty()) {
        return std::string(text);
    }
    return halves[0] == 0 && halves[1] == 0 ? "" : TextOf(halves, "0123456789ABCDEF");
}

std::string UuidText(const std::uint64_t (&halves)[2]) {
    return TextOf(halves, "0123456789abcdef");
}

}  // namespace tarnview
