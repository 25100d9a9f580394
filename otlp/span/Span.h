#pragma once

#include "span/SpanIds.h"

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace tarn::otlp {

struct Value {
    enum class Kind { Text, Integer, Double, Boolean };

    Kind kind = Kind::Text;
    std::string_view text{};
    std::int64_t integer = 0;  ///< of a boolean, too
    double real = 0;
};

/// The key is `prefix` and `name` in one.
struct Attribute {
    std::string_view prefix;
    std::string_view name;
    Value value;
};

using Attributes = std::vector<Attribute>;

struct SpanEvent {
    Microseconds time = 0;
    std::string_view name;
    Attributes attributes;
};

/// To another span that is not the parent.
struct SpanLink {
    TraceId trace{};
    SpanId span = 0;
    Attributes attributes;
};

enum class StatusCode { Unset = 0, Ok = 1, Error = 2 };

/// A span, independent of how it is encoded. The texts belong to the code that filled it.
struct Span {
    SpanIdentity identity;
    std::string_view name;
    SpanKind kind = SpanKind::Internal;
    Microseconds begin = 0;
    Microseconds end = 0;
    Attributes attributes;
    std::vector<SpanEvent> events;
    std::vector<SpanLink> links;
    StatusCode status = StatusCode::Unset;
    std::string_view message;
};

}  // namespace tarn::otlp
