#pragma once

#include "cvlsys/Export.h"
#include "cvlsys/IntegerTypes.h"
#include "cvlsys/THash32.h"

#include <cstddef>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

/// UTF-16 text whose characters never change and are shared: copying a string copies a pointer.
/// Strings are compared and ordered by code units; texts may hold NUL characters and lone
/// surrogates. A moved-from string is empty. One string object belongs to one thread at a time,
/// the characters may be shared by many. Constructors throw `std::bad_alloc` and nothing else.
class CVLSYS_API TStringCore {
public:
    using Characters = std::shared_ptr<const std::u16string>;

    enum class CaseSensitivity : int { Insensitive = 0, Sensitive = 1 };

    static constexpr std::size_t npos = static_cast<std::size_t>(-1);

    /// The empty string; allocates nothing.
    TStringCore() noexcept = default;

    /// NUL-terminated UTF-16; null gives the empty string. Implicit, as a literal is a string.
    // NOLINTNEXTLINE(google-explicit-constructor): see above
    TStringCore(const char16_t* text);

    /// NUL-terminated wide text in the platform's encoding (UTF-32 where `wchar_t` has 32 bits);
    /// what is no Unicode scalar value becomes U+FFFD, except that surrogates are kept.
    // NOLINTNEXTLINE(google-explicit-constructor): see above
    TStringCore(const wchar_t* text);

    explicit TStringCore(std::u16string_view text);
    explicit TStringCore(std::u16string&& text);

    /// UTF-8; each ill-formed sequence becomes U+FFFD.
    explicit TStringCore(const char* utf8);
    explicit TStringCore(const std::string& utf8);

    /// Shares characters that somebody else made; null gives the empty string. A pointer that owns
    /// nothing (`use_count()` 0) must point to characters that live as long as the process.
    explicit TStringCore(Characters characters) noexcept;

    static TStringCore FromUtf8(std::string_view utf8);

    /// Refers to characters that live as long as the process: copying the string counts no owners.
    static TStringCore ReferTo(const std::u16string& staticText) noexcept {
        return TStringCore(Characters(Characters(), &staticText));
    }

    bool IsEmpty() const noexcept { return m_characters == nullptr || m_characters->empty(); }

    /// In UTF-16 code units.
    std::size_t Length() const noexcept { return m_characters ? m_characters->size() : 0; }

    /// NUL-terminated, never null, valid as long as some string shares the characters.
    const char16_t* Data() const noexcept { return m_characters ? m_characters->c_str() : u""; }

    std::u16string_view View() const noexcept {
        return m_characters ? std::u16string_view(*m_characters) : std::u16string_view();
    }

    /// The shared characters themselves; null when this string has never held any.
    const Characters& SharedCharacters() const noexcept { return m_characters; }

    /// A lone surrogate becomes U+FFFD.
    std::string ToUtf8() const;

    bool startsWith(const TStringCore& prefix, CaseSensitivity sensitivity) const noexcept;

    /// The text from `position` up to the next separator or the end; moves `position` behind that
    /// separator, or to `npos` at the end. Adjacent separators give empty tokens; at `npos` the
    /// token is empty. `separator` is one text, not a set of characters.
    TStringCore tokenize(const TStringCore& separator, std::size_t& position) const;

    /// Without the white space at both ends.
    TStringCore Trimmed() const;

    /// The whole text as a number, with an optional sign; 0 when it is anything else or does not
    /// fit.
    int32 toInt(int base = 10) const noexcept;

    /// A whole number in `base` (2 to 36, lower-case digits), padded on the left with `fill` to
    /// `fieldWidth` units. The same text in every locale.
    template <
        class Integer,
        std::enable_if_t<std::is_integral_v<Integer> && !std::is_same_v<Integer, bool>, int> = 0>
    static TStringCore number(Integer value,
                              int base = 10,
                              int fieldWidth = 0,
                              char16_t fill = u' ') {
        if constexpr (std::is_signed_v<Integer>) {
            return FormatSigned(static_cast<int64>(value), base, fieldWidth, fill);
        } else {
            return FormatUnsigned(static_cast<uint64>(value), base, fieldWidth, fill);
        }
    }

    /// `format` is 'g' (general, `precision` significant digits) or 'f' (`precision` decimals).
    /// The same text in every locale.
    static TStringCore number(double value, char format = 'g', int precision = 6);

    friend TStringCore operator+(const TStringCore& a, const TStringCore& b) { return Join(a, b); }

    friend bool operator==(const TStringCore& a, const TStringCore& b) noexcept {
        return a.m_characters == b.m_characters ||
               (a.Length() == b.Length() &&
                std::memcmp(a.Data(), b.Data(), a.Length() * sizeof(char16_t)) == 0);
    }

    friend bool operator!=(const TStringCore& a, const TStringCore& b) noexcept {
        return !(a == b);
    }

    friend bool operator<(const TStringCore& a, const TStringCore& b) noexcept {
        return a.View() < b.View();
    }

    friend bool operator>(const TStringCore& a, const TStringCore& b) noexcept { return b < a; }

    friend bool operator<=(const TStringCore& a, const TStringCore& b) noexcept { return !(b < a); }

    friend bool operator>=(const TStringCore& a, const TStringCore& b) noexcept { return !(a < b); }

private:
    static TStringCore Join(const TStringCore& a, const TStringCore& b);
    static TStringCore FormatSigned(int64 value, int base, int fieldWidth, char16_t fill);
    static TStringCore FormatUnsigned(uint64 value, int base, int fieldWidth, char16_t fill);

    Characters m_characters;
};

/// Over the UTF-16 bytes, so that every table keyed by text hashes alike.
template <>
struct std::hash<TStringCore> {
    std::size_t operator()(const TStringCore& text) const noexcept {
        constexpr uint32 seed = 0xDEADBEEF;
        const std::u16string_view units = text.View();
        return THash32(units.data(), units.size() * sizeof(char16_t), seed);
    }
};
