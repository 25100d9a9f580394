#include "PendingAttributes.h"

#include "LossReport.h"

#include "cvlmetrics/MetricsEvent.h"

namespace Metrics {

namespace {

constinit std::atomic<std::size_t> s_limit{std::size_t{64} << 10};

std::size_t TextBytes(const MetricsValue& value) noexcept {
    return (value.utf8 != nullptr ? value.utf8->size() : 0) +
           (value.utf16 != nullptr ? value.utf16->size() * sizeof(char16_t) : 0);
}

}  // namespace

void PendingAttributes::SetLimit(std::size_t bytes) noexcept {
    s_limit.store(bytes, std::memory_order_relaxed);
}

bool PendingAttributes::TryToAdd(const MetricsValue& name, const MetricsValue& value) noexcept {
    const std::size_t bytes = sizeof(NameValuePair) + TextBytes(name) + TextBytes(value);
    const std::size_t before = m_bytes.load(std::memory_order_relaxed);
    const std::size_t limit = s_limit.load(std::memory_order_relaxed);
    if (before > limit || bytes > limit - before) {
        LossReport::Count(LossReport::Loss::PendingAttribute);
        return false;
    }
    m_bytes.fetch_add(bytes, std::memory_order_relaxed);
    return true;
}

}  // namespace Metrics
