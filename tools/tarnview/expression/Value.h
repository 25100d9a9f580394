#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tarnview {

/// What a field holds as far as is known before an activity is there. Durations, sizes and times
/// are numbers of microseconds, bytes and microseconds since 1970 when they are compared.
enum class ValueType {
    Text,
    Number,
    Duration,
    Size,
    Time,
    Boolean,
    Any,  ///< an attribute, which may hold anything
};

/// What a field of one activity holds, or a constant. A value.
struct Value {
    enum class Kind { Missing, Boolean, Number, Text };

    Kind kind = Kind::Missing;
    bool boolean = false;
    long double number = 0;  ///< wide enough for every 64-bit integer
    std::string text{};

    static Value Of(bool boolean) { return {.kind = Kind::Boolean, .boolean = boolean}; }

    static Value Of(long double number) { return {.kind = Kind::Number, .number = number}; }

    static Value Of(std::int64_t number) { return Of(static_cast<long double>(number)); }

    static Value Of(std::string_view text) {
        return {.kind = Kind::Text, .text = std::string(text)};
    }

    bool IsMissing() const { return kind == Kind::Missing; }
};

/// As people write it: numbers without a unit; empty if it is missing.
std::string PlainText(const Value& value);

}  // namespace tarnview
