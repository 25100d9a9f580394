#pragma once

#include <array>
#include <cstddef>

#ifdef __SSE2__
#include <cstring>
#include <emmintrin.h>
#endif

namespace host {

inline constexpr std::size_t digitsInId = 32;

using HexDigits = std::array<char, digitsInId>;

/// The digits of an id, one byte after the other: for processors without SSE2.
inline HexDigits HexDigitsOneByOne(const std::array<unsigned char, 16>& bytes,
                                   bool upper) noexcept {
    const char* const digits = upper ? "0123456789ABCDEF" : "0123456789abcdef";
    HexDigits result{};
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        result[2 * i] = digits[bytes[i] / 16];
        result[2 * i + 1] = digits[bytes[i] % 16];
    }
    return result;
}

#ifdef __SSE2__

/// All digits of an id at once.
inline HexDigits HexDigitsOf(const std::array<unsigned char, 16>& bytes, bool upper) noexcept {
    const __m128i all = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes.data()));
    const __m128i low = _mm_set1_epi8(0x0F);
    const __m128i first = _mm_and_si128(_mm_srli_epi16(all, 4), low);
    const __m128i second = _mm_and_si128(all, low);
    const __m128i nine = _mm_set1_epi8(9);
    const __m128i zero = _mm_set1_epi8('0');
    // How much farther than the digit 9 the letter A is.
    const __m128i letters = _mm_set1_epi8(static_cast<char>((upper ? 'A' : 'a') - '9' - 1));
    const auto digits = [&](__m128i values) {
        const __m128i gap = _mm_and_si128(_mm_cmpgt_epi8(values, nine), letters);
        return _mm_add_epi8(_mm_add_epi8(values, zero), gap);
    };
    const __m128i both[2] = {digits(_mm_unpacklo_epi8(first, second)),
                             digits(_mm_unpackhi_epi8(first, second))};
    HexDigits result;
    static_assert(sizeof result == sizeof both);
    std::memcpy(result.data(), both, sizeof result);
    return result;
}

#else

inline HexDigits HexDigitsOf(const std::array<unsigned char, 16>& bytes, bool upper) noexcept {
    return HexDigitsOneByOne(bytes, upper);
}

#endif

}  // namespace host
