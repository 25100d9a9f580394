#include "PlainText.h"

#include <cstddef>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace host {

namespace {

constexpr bool IsPlain(char16_t unit) noexcept {
    return unit >= u' ' && unit <= u'~' && unit != u'"' && unit != u'\\';
}

constexpr bool IsPlain(char byte) noexcept {
    return byte >= ' ' && byte <= '~' && byte != '"' && byte != '\\';
}

template <class Character>
bool CopyOneByOne(const Character* from, std::size_t count, char* to) noexcept {
    for (; count != 0; --count) {
        if (!IsPlain(*from)) {
            return false;
        }
        *to++ = static_cast<char>(*from++);
    }
    return true;
}

#ifdef __SSE2__

__m128i Load(const void* from) noexcept {
    return _mm_loadu_si128(static_cast<const __m128i*>(from));
}

__m128i LoadHalf(const void* from) noexcept {
    return _mm_loadl_epi64(static_cast<const __m128i*>(from));
}

void Store(char* to, __m128i bytes) noexcept {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to), bytes);
}

void StoreHalf(char* to, __m128i bytes) noexcept {
    _mm_storel_epi64(reinterpret_cast<__m128i*>(to), bytes);
}

/// Gathers what was seen of a text, to be asked once at its end.
class Plainness {
public:
    void See(__m128i bytes) noexcept {
        // With one added, and compared as signed numbers, what is no ASCII is too small, as is the
        // control character at the end of ASCII.
        const __m128i inside =
            _mm_cmpgt_epi8(_mm_add_epi8(bytes, _mm_set1_epi8(1)), _mm_set1_epi8(' '));
        const __m128i escaped = _mm_or_si128(_mm_cmpeq_epi8(bytes, _mm_set1_epi8('"')),
                                             _mm_cmpeq_epi8(bytes, _mm_set1_epi8('\\')));
        m_good = _mm_and_si128(m_good, _mm_andnot_si128(escaped, inside));
    }

    bool IsPlain() const noexcept { return _mm_movemask_epi8(m_good) == 0xFFFF; }

private:
    __m128i m_good = _mm_set1_epi8(-1);
};

// To bytes. What does not fit becomes 0 or 255, neither of which is plain.
__m128i Narrow(__m128i first, __m128i last) noexcept {
    return _mm_packus_epi16(first, last);
}

__m128i LoadSixteen(const char* from) noexcept {
    return Load(from);
}

__m128i LoadSixteen(const char16_t* from) noexcept {
    return Narrow(Load(from), Load(from + 8));
}

// Eight to fifteen, as the first and the last eight.
bool CopyEightToFifteen(const char* from, std::size_t count, char* to) noexcept {
    const __m128i first = LoadHalf(from);
    const __m128i last = LoadHalf(from + count - 8);
    StoreHalf(to, first);
    StoreHalf(to + count - 8, last);
    Plainness plainness;
    plainness.See(_mm_unpacklo_epi64(first, last));
    return plainness.IsPlain();
}

bool CopyEightToFifteen(const char16_t* from, std::size_t count, char* to) noexcept {
    const __m128i bytes = Narrow(Load(from), Load(from + count - 8));
    StoreHalf(to, bytes);
    StoreHalf(to + count - 8, _mm_unpackhi_epi64(bytes, bytes));
    Plainness plainness;
    plainness.See(bytes);
    return plainness.IsPlain();
}

template <class Character>
bool Copy(const Character* from, std::size_t count, char* to) noexcept {
    constexpr std::size_t block = 16;
    if (count < block) {
        return count < block / 2 ? CopyOneByOne(from, count, to)
                                 : CopyEightToFifteen(from, count, to);
    }
    Plainness plainness;
    const std::size_t last = count - block;
    for (std::size_t i = 0; i < last; i += block) {
        const __m128i bytes = LoadSixteen(from + i);
        Store(to + i, bytes);
        plainness.See(bytes);
    }
    // The last block may overlap what is done already.
    const __m128i bytes = LoadSixteen(from + last);
    Store(to + last, bytes);
    plainness.See(bytes);
    return plainness.IsPlain();
}

#else

template <class Character>
bool Copy(const Character* from, std::size_t count, char* to) noexcept {
    return CopyOneByOne(from, count, to);
}

#endif

}  // namespace

bool CopyPlain(std::u16string_view text, char* to) noexcept {
    return Copy(text.data(), text.size(), to);
}

bool CopyPlain(std::string_view text, char* to) noexcept {
    return Copy(text.data(), text.size(), to);
}

bool CopyPlainOneByOne(std::u16string_view text, char* to) noexcept {
    return CopyOneByOne(text.data(), text.size(), to);
}

bool CopyPlainOneByOne(std::string_view text, char* to) noexcept {
    return CopyOneByOne(text.data(), text.size(), to);
}

}  // namespace host
