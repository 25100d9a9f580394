#pragma once

#include "span/ActivityFacts.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tarn::otlp {

using TraceId = std::array<std::uint8_t, 16>;
/// 0 stands for no span.
using SpanId = std::uint64_t;

/// The ids of a span within all others.
struct SpanIdentity {
    TraceId trace{};
    SpanId span = 0;
    SpanId parent = 0;
};

/// The trace of a tree: the 32 hexadecimal digits of its root's id. Of an id that has another form,
/// 128 bits that stand for it.
TraceId TraceIdOf(std::string_view root);

/// The span of an activity: the last 16 digits of its id.
SpanId SpanIdOf(std::string_view id);

/// Another one for an activity whose id has a span already; another for each `attempt`.
SpanId FurtherSpanIdOf(std::string_view id,
                       std::int64_t process,
                       Microseconds begin,
                       std::uint64_t attempt);

/// The ids of an activity of which nothing is known but itself. Its parent is who called it; else
/// its sponsor; of what names itself as its sponsor, as work from another process does, the root.
/// What a forked process has taken over from its parent is a child of what it was there.
SpanIdentity IdentityOf(const ActivityFacts& activity);

}  // namespace tarn::otlp
