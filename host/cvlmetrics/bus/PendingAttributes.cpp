#include "PendingAttributes.h"

#include "LossReport.h"

#include "cvlmetrics/MetricsEvent.h"

namespace Metrics::PendingAttributes {

namespace {

constinit std::atomic<std::size_t> s_limit{std::size_t{64} << 10};

std::size_t TextBytes(const MetricsValue& value) noexcept {
    return (value.utf8 != nullptr ? value.utf8->size() : 0) +
           (value.utf16 != nullptr ? value.utf16->size() * sizeof(char16_t) : 0);
}

}  // namespace

void SetLimit(std::size_t bytes) noexcept {
    s_limit.store(bytes, std::memory_order_relaxed);
}

bool TryToAdd(ContextState& context, const MetricsValue& name, const MetricsValue& value) noexcept {
    const std::size_t bytes = sizeof(NameValuePair) + TextBytes(name) + TextBytes(value);
    const std::size_t before = context.pendingAttributeBytes.load(std::memory_order_relaxed);
    const std::size_t limit = s_limit.load(std::memory_order_relaxed);
    if (before > limit || bytes > limit - before) {
        LossReport::Count(LossReport::Loss::PendingAttribute);
        return false;
    }
    context.pendingAttributeBytes.fetch_add(bytes, std::memory_order_relaxed);
    return true;
}

}  // namespace Metrics::PendingAttributes
