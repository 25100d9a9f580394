#include "ReceivedEvents.h"

#include "EventCopy.h"

#include <cstring>
#include <new>

namespace Metrics {

const EventRecord& ReceivedEvents::CopyOf(const EventRecord& record) noexcept {
    std::memcpy(m_record.data(), static_cast<const void*>(&record), record.GetBytes());
    return *std::launder(reinterpret_cast<const EventRecord*>(m_record.data()));
}

const MetricsEvent& ReceivedEvents::TakeBoxed(EventRecord& record) noexcept {
    m_boxed = record.TakeBoxed();
    m_made = &m_boxed;
    return m_boxed;
}

const MetricsEvent& ReceivedEvents::Make(const EventView& event) {
    MetricsEvent& made = Last(event.type);
    try {
        Copy(event, made, m_shared);
    } catch (...) {
        m_shared.clear();
        Clear(made);
        throw;
    }
    m_made = &made;
    return made;
}

void ReceivedEvents::ReleaseMade() noexcept {
    if (!m_shared.empty()) {
        ReleaseShared();
    }
    if (m_made == &m_boxed || m_made->pairs.capacity() > mostPairsKept) {
        Clear(*m_made);
    }
    m_made = nullptr;
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
