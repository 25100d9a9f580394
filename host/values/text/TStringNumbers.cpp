#include "cvlsys/TStringCore.h"

#include <array>
#include <charconv>
#include <limits>
#include <string>
#include <string_view>

// std::to_chars and its like, because nothing here may depend on the locale.

namespace {

constexpr int smallestBase = 2;
constexpr int largestBase = 36;

bool IsBase(int base) noexcept {
    return base >= smallestBase && base <= largestBase;
}

std::u16string Widen(std::string_view ascii) {
    return std::u16string(ascii.begin(), ascii.end());
}

template <class Integer>
TStringCore FormatInteger(Integer value, int base, int fieldWidth, char16_t fill) {
    // The longest text is a sign and 64 binary digits.
    std::array<char, 65> digits{};
    const auto result =
        std::to_chars(digits.begin(), digits.end(), value, IsBase(base) ? base : 10);
    const auto length = static_cast<std::size_t>(result.ptr - digits.begin());
    std::u16string text = Widen(std::string_view(digits.data(), length));
    if (fieldWidth > 0 && static_cast<std::size_t>(fieldWidth) > length) {
        text.insert(0, static_cast<std::size_t>(fieldWidth) - length, fill);
    }
    return TStringCore(std::move(text));
}

// -1 for what is no digit in any base.
int DigitValue(char16_t unit) noexcept {
    if (unit >= u'0' && unit <= u'9') {
        return unit - u'0';
    }
    if (unit >= u'a' && unit <= u'z') {
        return unit - u'a' + 10;
    }
    if (unit >= u'A' && unit <= u'Z') {
        return unit - u'A' + 10;
    }
    return -1;
}

}  // namespace

int32 TStringCore::toInt(int base) const noexcept {
    std::u16string_view digits = View();
    const bool negative = !digits.empty() && digits.front() == u'-';
    if (negative || (!digits.empty() && digits.front() == u'+')) {
        digits.remove_prefix(1);
    }
    if (digits.empty() || !IsBase(base)) {
        return 0;
    }
    const int64 largest = int64{std::numeric_limits<int32>::max()} + (negative ? 1 : 0);
    int64 magnitude = 0;
    for (const char16_t unit : digits) {
        const int digit = DigitValue(unit);
        if (digit < 0 || digit >= base) {
            return 0;
        }
        magnitude = magnitude * base + digit;
        if (magnitude > largest) {
            return 0;
        }
    }
    return static_cast<int32>(negative ? -magnitude : magnitude);
}

TStringCore TStringCore::number(double value, char format, int precision) {
    constexpr std::size_t mostDigitsBeforePoint = std::numeric_limits<double>::max_exponent10 + 1;
    constexpr std::size_t signPointAndExponent = 8;
    const int decimals = precision < 0 ? 6 : precision;
    std::string text(
        mostDigitsBeforePoint + signPointAndExponent + static_cast<std::size_t>(decimals), '\0');
    const auto notation = format == 'f' ? std::chars_format::fixed : std::chars_format::general;
    const auto result =
        std::to_chars(text.data(), text.data() + text.size(), value, notation, decimals);
    return TStringCore(
        Widen(std::string_view(text.data(), static_cast<std::size_t>(result.ptr - text.data()))));
}

TStringCore TStringCore::FormatSigned(int64 value, int base, int fieldWidth, char16_t fill) {
    return FormatInteger(value, base, fieldWidth, fill);
}

TStringCore TStringCore::FormatUnsigned(uint64 value, int base, int fieldWidth, char16_t fill) {
    return FormatInteger(value, base, fieldWidth, fill);
}
