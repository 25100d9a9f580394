#pragma once

#include "tarn/Export.h"

#include <cstdint>

namespace tarn {

/// What kind of trace a scope is. Any other value counts as `Normal`.
enum class TraceType : std::int32_t {
    Normal = 0,
    Transparent = 1,  ///< not logged and not counted in depths unless the option says so
    Untracked = 2,    ///< logged, but its memory and processor time are not measured
};

/// How unimportant a scope is (`TarnSettings::SetRankOn`). Any value may be used by a cast.
enum class TraceRank : std::int32_t { Default = 0 };

/// How a scope is to be traced. A value; what is not given is zero.
struct Traits {
    TraceType type = TraceType::Normal;
    TraceRank rank = TraceRank::Default;
    std::uint64_t flags = 0;  ///< extra bits of the metrics scope, added to those of the type

    constexpr Traits() noexcept = default;

    // Implicit: a scope may be given a type, a rank or flags alone.
    // NOLINTBEGIN(google-explicit-constructor): see above
    constexpr Traits(TraceRank rankValue) noexcept : rank(rankValue) {}

    constexpr Traits(TraceRank rankValue, std::uint64_t flagBits) noexcept
        : rank(rankValue),
          flags(flagBits) {}

    constexpr Traits(TraceType typeValue) noexcept : type(typeValue) {}

    constexpr Traits(TraceType typeValue, TraceRank rankValue) noexcept
        : type(typeValue),
          rank(rankValue) {}

    constexpr Traits(TraceType typeValue, TraceRank rankValue, std::uint64_t flagBits) noexcept
        : type(typeValue),
          rank(rankValue),
          flags(flagBits) {}

    constexpr Traits(TraceType typeValue, std::uint64_t flagBits) noexcept
        : type(typeValue),
          flags(flagBits) {}

    constexpr Traits(std::uint64_t flagBits) noexcept : flags(flagBits) {}

    // NOLINTEND(google-explicit-constructor)
};

/// The bits of the metrics scope: always 53, for transparent scopes also 51, for untracked ones 54.
TARN_EXPORT std::uint64_t GetFlagsForTraceType(TraceType type) noexcept;

}  // namespace tarn
