#include "LineText.h"

#include "cvlsys/host/Transcoding.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>
#include <new>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace cvlcoreplatform {

namespace {

// Whether a unit stands in JSON as it is.
constexpr bool IsPlain(char16_t unit) noexcept {
    return unit >= u' ' && unit <= u'~' && unit != u'"' && unit != u'\\';
}

#ifdef __SSE2__

// Whether eight units are plain.
bool ArePlain(__m128i units) noexcept {
    // Compared as signed numbers, what is above 0x7FFF counts as too small.
    const __m128i outside = _mm_or_si128(_mm_cmplt_epi16(units, _mm_set1_epi16(u' ')),
                                         _mm_cmpgt_epi16(units, _mm_set1_epi16(u'~')));
    const __m128i escaped = _mm_or_si128(_mm_cmpeq_epi16(units, _mm_set1_epi16(u'"')),
                                         _mm_cmpeq_epi16(units, _mm_set1_epi16(u'\\')));
    return _mm_movemask_epi8(_mm_or_si128(outside, escaped)) == 0;
}

// Eight units at once: checked, and narrowed to bytes. False if one of them is not plain.
bool CopyEightPlain(const char16_t* from, char* to) noexcept {
    const __m128i units = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
    if (!ArePlain(units)) {
        return false;
    }
    _mm_storel_epi64(reinterpret_cast<__m128i*>(to), _mm_packus_epi16(units, units));
    return true;
}

// Four to seven units, as their first and their last four.
bool CopyFourToSevenPlain(const char16_t* from, std::size_t count, char* to) noexcept {
    const __m128i first = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(from));
    const __m128i last = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(from + count - 4));
    const __m128i units = _mm_unpacklo_epi64(first, last);
    if (!ArePlain(units)) {
        return false;
    }
    const auto bytes = static_cast<uint64>(_mm_cvtsi128_si64(_mm_packus_epi16(units, units)));
    const auto firstBytes = static_cast<uint32>(bytes);
    const auto lastBytes = static_cast<uint32>(bytes >> 32);
    std::memcpy(to, &firstBytes, sizeof firstBytes);
    std::memcpy(to + count - 4, &lastBytes, sizeof lastBytes);
    return true;
}

#else

bool CopyEightPlain(const char16_t* from, char* to) noexcept {
    for (std::size_t i = 0; i < 8; ++i) {
        if (!IsPlain(from[i])) {
            return false;
        }
        to[i] = static_cast<char>(from[i]);
    }
    return true;
}

bool CopyFourToSevenPlain(const char16_t* from, std::size_t count, char* to) noexcept {
    for (std::size_t i = 0; i < count; ++i) {
        if (!IsPlain(from[i])) {
            return false;
        }
        to[i] = static_cast<char>(from[i]);
    }
    return true;
}

#endif

/// Copies a text of plain units. False if there is another one; part of the text may be copied
/// then.
bool CopyPlain(std::u16string_view text, char* to) noexcept {
    constexpr std::size_t block = 8;
    const char16_t* from = text.data();
    std::size_t left = text.size();
    if (left >= block) {
        for (; left >= block; left -= block, from += block, to += block) {
            if (!CopyEightPlain(from, to)) {
                return false;
            }
        }
        // The last block overlaps what is done already.
        return left == 0 || CopyEightPlain(from + left - block, to + left - block);
    }
    if (left >= block / 2) {
        return CopyFourToSevenPlain(from, left, to);
    }
    for (; left != 0; --left) {
        if (!IsPlain(*from)) {
            return false;
        }
        *to++ = static_cast<char>(*from++);
    }
    return true;
}

}  // namespace

void* LineAllocator::Malloc(std::size_t bytes) {
    return bytes != 0 ? ::operator new(bytes) : nullptr;
}

void* LineAllocator::Realloc(void* block, std::size_t oldBytes, std::size_t newBytes) {
    void* const larger = Malloc(newBytes);
    if (larger != nullptr && block != nullptr) {
        std::memcpy(larger, block, std::min(oldBytes, newBytes));
    }
    Free(block);
    return larger;
}

void LineAllocator::Free(void* block) noexcept {
    ::operator delete(block);
}

void LineText::Release() noexcept {
    m_characters.reset();
    m_length = 0;
    m_capacity = 0;
    m_escaper.reset();
}

void LineText::Grow(std::size_t bytes) {
    constexpr std::size_t least = 1024;
    if (bytes > std::numeric_limits<std::size_t>::max() / 2 - m_length) {
        throw std::bad_alloc();
    }
    const std::size_t capacity = std::max({least, 2 * m_capacity, m_length + bytes});
    std::unique_ptr<char[]> larger(new char[capacity]);
    if (m_length != 0) {
        std::memcpy(larger.get(), m_characters.get(), m_length);
    }
    m_characters = std::move(larger);
    m_capacity = capacity;
}

void LineText::AppendText(std::u16string_view text) {
    constexpr std::size_t quotationMarks = 2;
    char* const to = Room(text.size() + quotationMarks);
    if (!CopyPlain(text, to + 1)) {
        AppendEscaped(text);
        return;
    }
    to[0] = '"';
    to[text.size() + 1] = '"';
    m_length += text.size() + quotationMarks;
}

void LineText::AppendEscaped(std::u16string_view text) {
    if (m_escaper == nullptr) {
        m_escaper = std::make_unique<Escaper>();
    }
    m_escaper->utf8.clear();
    cvlsys::AppendUtf8(text, m_escaper->utf8);
    m_escaper->escaped.Clear();
    m_escaper->writer.Reset(m_escaper->escaped);
    m_escaper->writer.String(m_escaper->utf8.data(), m_escaper->utf8.size());
    Append(std::string_view(m_escaper->escaped.GetString(), m_escaper->escaped.GetSize()));
}

void LineText::AppendNumber(int64 value) {
    constexpr std::size_t most = 20;
    char* const to = Room(most);
    m_length += static_cast<std::size_t>(std::to_chars(to, to + most, value).ptr - to);
}

void LineText::AppendNumber(uint64 value) {
    constexpr std::size_t most = 20;
    char* const to = Room(most);
    m_length += static_cast<std::size_t>(std::to_chars(to, to + most, value).ptr - to);
}

void LineText::AppendReal(double value, bool fixed) {
    if (!std::isfinite(value)) {
        Append("null");
        return;
    }
    if (value == 0) {
        Append(std::signbit(value) ? "-0.0" : "0.0");
        return;
    }
    // The smallest numbers in fixed notation are the longest.
    constexpr std::size_t most = 1100;
    char* const to = Room(most);
    char* const room = to + most - 2;
    char* end = fixed ? std::to_chars(to, room, value, std::chars_format::fixed).ptr
                      : std::to_chars(to, room, value).ptr;
    const std::string_view digits(to, static_cast<std::size_t>(end - to));
    if (digits.find_first_of(".e") == std::string_view::npos) {
        *end++ = '.';
        *end++ = '0';
    }
    m_length += static_cast<std::size_t>(end - to);
}

}  // namespace cvlcoreplatform
