#pragma once

#include "cvlsys/IntegerTypes.h"

#include <cstddef>
#include <cstring>

namespace cvlsys {

/// As `std::memcpy`, faster for short texts: it copies a few pieces of fixed size, of which the
/// last may overlap the one before.
inline void CopyShort(void* to, const void* from, std::size_t bytes) noexcept {
    constexpr std::size_t piece = 16;
    constexpr std::size_t mostBytes = 8 * piece;
    auto* const target = static_cast<char*>(to);
    const auto* const source = static_cast<const char*>(from);
    const auto copyEnds = [&](auto first) {
        auto last = first;
        std::memcpy(&first, source, sizeof first);
        std::memcpy(&last, source + bytes - sizeof last, sizeof last);
        std::memcpy(target, &first, sizeof first);
        std::memcpy(target + bytes - sizeof last, &last, sizeof last);
    };
    if (bytes <= piece) {
        if (bytes >= sizeof(uint64)) {
            copyEnds(uint64{});
        } else if (bytes >= sizeof(uint32)) {
            copyEnds(uint32{});
        } else {
            for (std::size_t i = 0; i < bytes; ++i) {
                target[i] = source[i];
            }
        }
    } else if (bytes <= mostBytes) {
        for (std::size_t done = 0; done + piece < bytes; done += piece) {
            std::memcpy(target + done, source + done, piece);
        }
        std::memcpy(target + bytes - piece, source + bytes - piece, piece);
    } else {
        std::memcpy(to, from, bytes);
    }
}

}  // namespace cvlsys
