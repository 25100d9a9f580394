#pragma once

#include "ContextState.h"

#include "cvlmetrics/MetricsValue.h"

#include <atomic>
#include <cstddef>

/// The attributes that are set on a context before its next scope. Consumers keep them until there
/// is one, so what they take is limited. Any thread may call these functions.
namespace Metrics::PendingAttributes {

/// How many bytes the pending attributes of one context may take.
void SetLimit(std::size_t bytes) noexcept;

/// Whether there is room for another one. One that finds none is counted.
bool TryToAdd(ContextState& context, const MetricsValue& name, const MetricsValue& value) noexcept;

/// A scope was opened, to which they belong from here on.
inline void AreTaken(ContextState& context) noexcept {
    if (context.pendingAttributeBytes.load(std::memory_order_relaxed) != 0) {
        context.pendingAttributeBytes.store(0, std::memory_order_relaxed);
    }
}

}  // namespace Metrics::PendingAttributes
