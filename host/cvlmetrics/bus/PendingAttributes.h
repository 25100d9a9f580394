#pragma once

#include "cvlmetrics/MetricsValue.h"

#include <atomic>
#include <cstddef>

namespace Metrics {

/// The attributes that were set on one context since its last scope. Consumers keep them until
/// there is a scope, so what they take is limited. Any thread may call these functions.
class PendingAttributes {
public:
    /// How many bytes the pending attributes of one context may take.
    static void SetLimit(std::size_t bytes) noexcept;

    /// Whether there is room for another one. One that finds none is counted.
    bool TryToAdd(const MetricsValue& name, const MetricsValue& value) noexcept;

    /// A scope was opened, to which they belong from here on.
    void AreTaken() noexcept {
        if (m_bytes.load(std::memory_order_relaxed) != 0) {
            m_bytes.store(0, std::memory_order_relaxed);
        }
    }

private:
    std::atomic<std::size_t> m_bytes{0};
};

}  // namespace Metrics
