#include "ReceivedEvents.h"

#include "cvlmetrics/MetricsValue.h"

#include <cstddef>

namespace Metrics {

const MetricsEvent& ReceivedEvents::Take(EventRecord& record) {
    m_taken = record.IsBoxed() ? &m_boxed : &Last(record.GetType());
    record.Read(*m_taken);
    return *m_taken;
}

const MetricsEvent& ReceivedEvents::Take(const EventView& event) {
    m_taken = &Last(event.type);
    try {
        event.CopyTo(*m_taken, m_shared);
    } catch (...) {
        m_shared.clear();
        Clear(*m_taken);
        throw;
    }
    return *m_taken;
}

void ReceivedEvents::ReleaseShared() noexcept {
    for (MetricsValue* const value : m_shared) {
        *value = MetricsValue();
    }
    m_shared.clear();
}

void ReceivedEvents::Clear(MetricsEvent& event) noexcept {
    event.name = MetricsValue();
    event.value = MetricsValue();
    event.pairs = {};
}

MetricsEvent& ReceivedEvents::Last(MetricsEventType type) noexcept {
    const auto index = static_cast<std::size_t>(type);
    return m_last[index < types ? index : 0];
}

}  // namespace Metrics
