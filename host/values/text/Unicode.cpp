#include "Unicode.h"

#include "cvlsys/host/Transcoding.h"

#include <cstddef>
#include <iterator>
#include <type_traits>

#include <boost/locale/utf.hpp>

namespace cvlsys {

namespace {

namespace utf = boost::locale::utf;

constexpr utf::code_point replacement = 0xFFFD;

bool IsWellFormed(utf::code_point point) noexcept {
    return point != utf::illegal && point != utf::incomplete;
}

// Behind the lead byte at `start` and those bytes after it that can only have been meant for it.
const char* EndOfIllFormed(const char* start, const char* end) noexcept {
    using Utf8 = utf::utf_traits<char>;
    const int claimed = Utf8::trail_length(*start);
    const char* next = start + 1;
    for (int i = 0; i < claimed && next != end && Utf8::is_trail(*next); ++i) {
        ++next;
    }
    return next;
}

// Behind the lone surrogate at `start`.
const char16_t* EndOfIllFormed(const char16_t* start, const char16_t* /*end*/) noexcept {
    return start + 1;
}

// Most texts are ASCII from end to end, so units are looked at and copied in blocks of a size that
// the compiler turns into vector instructions.
constexpr std::ptrdiff_t block = 8;

template <class Unit>
bool IsAsciiBlock(const Unit* units) noexcept {
    unsigned all = 0;
    for (std::ptrdiff_t i = 0; i < block; ++i) {
        all |= static_cast<std::make_unsigned_t<Unit>>(units[i]);
    }
    return all < 0x80;
}

// Writes to `out`, which has room for the longest result, and returns its end.
template <class In, class Out>
Out* Transcode(const In* next, const In* end, Out* out) {
    while (next != end) {
        if (end - next >= block && IsAsciiBlock(next)) {
            for (std::ptrdiff_t i = 0; i < block; ++i) {
                out[i] = static_cast<Out>(next[i]);
            }
            next += block;
            out += block;
            continue;
        }
        const In* const blockEnd = end - next >= block ? next + block : end;
        while (next < blockEnd) {
            const In* const start = next;
            utf::code_point point = utf::utf_traits<In>::decode(next, end);
            if (!IsWellFormed(point)) {
                point = replacement;
                next = EndOfIllFormed(start, end);
            }
            out = utf::utf_traits<Out>::encode(point, out);
        }
    }
    return out;
}

}  // namespace

std::u16string Utf16FromUtf8(std::string_view text) {
    // No byte gives more than one unit.
    std::u16string out(text.size(), u'\0');
    const char16_t* const end = Transcode(text.data(), text.data() + text.size(), out.data());
    out.resize(static_cast<std::size_t>(end - out.data()));
    return out;
}

std::u16string Utf16FromWide(std::wstring_view text) {
    std::u16string out;
    out.reserve(text.size());
    for (const wchar_t unit : text) {
        // A negative wide value is no code point, and is replaced as such.
        // NOLINTNEXTLINE(bugprone-signed-char-misuse): what is negative is replaced below
        const auto point = static_cast<utf::code_point>(unit);
        // A single 16-bit unit stands for itself, surrogate or not.
        const bool representable = point <= 0xFFFF || utf::is_valid_codepoint(point);
        utf::utf_traits<char16_t>::encode(representable ? point : replacement,
                                          std::back_inserter(out));
    }
    return out;
}

void AppendUtf8(std::u16string_view text, std::string& out) {
    constexpr std::size_t mostBytesForUnit = 3;
    const std::size_t before = out.size();
    out.resize(before + mostBytesForUnit * text.size());
    const char* const end = Transcode(text.data(), text.data() + text.size(), out.data() + before);
    out.resize(static_cast<std::size_t>(end - out.data()));
}

}  // namespace cvlsys
