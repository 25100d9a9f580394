#pragma once

#include "StaticCharacters.h"

#include "cvlmetrics/MetricsValue.h"
#include "cvlsys/IntegerTypes.h"
#include "cvlsys/host/RecycledTexts.h"

#include <memory>
#include <string>
#include <string_view>

/// Writing into a value that is there already. It must be of a known kind and hold what goes with
/// it, and its text must come from `cvlsys::MakeText` or live as long as the process. Events of one
/// type mostly have the same names and kinds of values in the same places, which leaves little to
/// do.
namespace Metrics::RewrittenValue {

template <class Unit>
using SharedText = std::shared_ptr<const std::basic_string<Unit>>;

template <class Unit>
SharedText<Unit>& TextOf(MetricsValue& value) noexcept {
    if constexpr (sizeof(Unit) == 1) {
        return value.utf8;
    } else {
        return value.utf16;
    }
}

/// The number is the caller's to write.
[[gnu::noinline]] inline void BecomeOtherScalar(MetricsValue& value, uint32 type) noexcept {
    value.utf8 = nullptr;
    value.utf16 = nullptr;
    value.type = type;
}

inline void SetInteger(MetricsValue& value, int64 integer) noexcept {
    if (value.type != MetricsValue::MV_Int64) {
        BecomeOtherScalar(value, MetricsValue::MV_Int64);
    }
    value.integer = integer;
}

/// The kind of the value becomes that of its text, which is there.
template <class Unit>
void ResetToText(MetricsValue& value) noexcept {
    constexpr bool isUtf8 = sizeof(Unit) == 1;
    constexpr uint32 type = isUtf8 ? MetricsValue::MV_Utf8String : MetricsValue::MV_Utf16String;
    if (value.type == type) {
        return;
    }
    if constexpr (isUtf8) {
        value.utf16 = nullptr;
    } else {
        value.utf8 = nullptr;
    }
    value.type = type;
    value.integer = 0;
}

/// Throws `std::bad_alloc`; nothing has happened then.
template <class Unit>
void SetText(MetricsValue& value, std::basic_string_view<Unit> text) {
    cvlsys::Rewrite(TextOf<Unit>(value), text);
    ResetToText<Unit>(value);
}

template <class Unit>
[[gnu::noinline]] void BecomeStatic(MetricsValue& value,
                                    const std::basic_string<Unit>* text) noexcept {
    TextOf<Unit>(value) = host::ReferToStatic(text);
    ResetToText<Unit>(value);
}

/// A text that lives as long as the process.
template <class Unit>
void SetStatic(MetricsValue& value, const std::basic_string<Unit>* text) noexcept {
    if (!host::IsStatic(TextOf<Unit>(value), text)) {
        BecomeStatic(value, text);
    }
}

}  // namespace Metrics::RewrittenValue
