#pragma once

#include "cvlcoreplatform/TString.h"
#include "cvlmetrics/Export.h"
#include "cvlsys/IntegerTypes.h"

#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace Metrics {

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

    template <class T, std::enable_if_t<std::is_integral_v<T> && !std::is_same_v<T, bool>, int> = 0>
    MetricsValue(T value) noexcept : type(MV_Int64),
                                     integer(static_cast<int64>(value)) {}

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
