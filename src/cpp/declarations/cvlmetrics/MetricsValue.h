#pragma once

#include "cvlcoreplatform/TString.h"
#include "cvlmetrics/Export.h"
#include "cvlsys/IntegerTypes.h"

#include <limits>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace Metrics {

/// The types of single characters, which are neither numbers nor texts.
template <class T>
inline constexpr bool isCharacter =
    std::is_same_v<T, char> || std::is_same_v<T, wchar_t> || std::is_same_v<T, char16_t> ||
#ifdef __cpp_char8_t
    std::is_same_v<T, char8_t> ||
#endif
    std::is_same_v<T, char32_t>;

/// The types that make an integer.
template <class T>
inline constexpr bool isInteger =
    std::is_integral_v<T> && !std::is_same_v<T, bool> && !isCharacter<T>;

/// Whether an integer is too large for `int64`.
template <class T>
constexpr bool ExceedsInt64(T value) noexcept {
    if constexpr (std::is_unsigned_v<T> && sizeof(T) >= sizeof(int64)) {
        return value > static_cast<T>(std::numeric_limits<int64>::max());
    } else {
        return false;
    }
}

/// A tagged value. Texts are immutable and shared: copying a value never copies characters. The
/// members are public as in any record of the bus; `type` says which of them counts, and kinds
/// that are not listed may arrive from newer senders.
struct CVLMETRICS_API MetricsValue {
    enum Type : uint32 {
        MV_Int64 = 0,
        MV_Bool = 1,
        MV_Double = 2,
        MV_Utf8String = 3,
        MV_Utf16String = 4,
    };

    uint32 type = MV_Int64;

    union {
        int64 integer = 0;
        bool boolean;
        double real;
    };

    // A pointer that owns nothing (`use_count()` 0) points to a text that lives as long as the
    // process.
    std::shared_ptr<const std::string> utf8;      ///< set for `MV_Utf8String` only
    std::shared_ptr<const std::u16string> utf16;  ///< set for `MV_Utf16String` only

    /// The integer 0.
    MetricsValue() noexcept {}  // NOLINT(modernize-use-equals-default): the union has a default

    // Values stand for themselves in attribute lists, hence the implicit constructors below. Only
    // bool itself makes a bool: no pointer turns into one.
    // NOLINTBEGIN(google-explicit-constructor): see above

    template <class T, std::enable_if_t<std::is_same_v<T, bool>, int> = 0>
    MetricsValue(T value) noexcept : type(MV_Bool),
                                     integer(0) {
        boolean = value;
    }

    /// An integer. One that is too large for `int64` becomes the text of its digits, and may throw
    /// `std::bad_alloc`.
    template <class T, std::enable_if_t<isInteger<T>, int> = 0>
    MetricsValue(T value) noexcept(sizeof(T) < sizeof(int64) || std::is_signed_v<T>)
        : type(MV_Int64),
          integer(static_cast<int64>(value)) {
        if (ExceedsInt64(value)) {
            *this = MetricsValue(std::to_string(static_cast<uint64>(value)));
        }
    }

    /// Does not compile: write "c" for the text, or `int('c')` for the number.
    template <class T, std::enable_if_t<isCharacter<T>, int> = 0>
    MetricsValue(T character) = delete;

    template <class T, std::enable_if_t<std::is_floating_point_v<T>, int> = 0>
    MetricsValue(T value) noexcept : type(MV_Double),
                                     real(static_cast<double>(value)) {}

    /// UTF-8; a null pointer gives the empty text.
    MetricsValue(const char* text);
    MetricsValue(const std::string& text);
    MetricsValue(std::string&& text);

    /// UTF-16; wide text is transcoded from the platform's encoding, a null pointer gives the
    /// empty text. A `TString` shares its characters with the value.
    MetricsValue(const wchar_t* text);
    MetricsValue(const char16_t* text);
    MetricsValue(const TString& text);

    // NOLINTEND(google-explicit-constructor)

    uint32 GetType() const noexcept { return type; }
};

/// Name and value, in the order in which they were given.
using NameValuePair = std::pair<MetricsValue, MetricsValue>;
using NameValueList = std::vector<NameValuePair>;

}  // namespace Metrics
