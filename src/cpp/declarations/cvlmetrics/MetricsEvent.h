#pragma once

#include "cvlmetrics/MetricsValue.h"
#include "cvlsys/IntegerTypes.h"

namespace Metrics {

/// What an event says. Kinds that are not listed may arrive and are to be ignored.
enum class MetricsEventType : uint32 {
    CreateContext = 2,
    OpenContext = 3,
    CloseContext = 4,
    OpenScope = 5,
    CloseScope = 6,
    NameValue = 7,
    Attribute = 8,
    NameValuePairs = 9,
    AttributePairs = 10,
    SupplementalPairs = 11,
    PostCloseScope = 12,
};

/// Delivered after a scope has closed, in the order given to the scope.
enum class MetricsCloseScopeActions : uint32 {
    PopRequestContextAttributes = 0,
};

// Bits of a flag word that this library gives a meaning.
inline constexpr uint64 flagTransparent = uint64{1} << 51;
inline constexpr uint64 flagTracing = uint64{1} << 53;
inline constexpr uint64 flagUntracked = uint64{1} << 54;

/// One event as a listener receives it, for the time of the call.
struct MetricsEvent {
    uint64 id = 0;           ///< the scope, or for context events the context
    uint64 contextId = 0;    ///< the scope's context, or the context's parent (0 for none)
    uint64 flags = 0;        ///< of the emitting scope
    int64 time = 0;          ///< nanoseconds, never running backwards within a process
    uint64 wallSeconds = 0;  ///< since the epoch
    uint32 wallMicros = 0;   ///< within the second
    MetricsValue name;       ///< of the scope, the value or the list
    MetricsValue value;      ///< of a single value; the action of a post-close event
    NameValueList pairs;     ///< of a list; a scope's opening attributes
    MetricsEventType type = MetricsEventType{0};
};

}  // namespace Metrics
