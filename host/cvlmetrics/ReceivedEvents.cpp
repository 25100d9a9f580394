#include "ReceivedEvents.h"

#include "cvlmetrics/MetricsValue.h"

#include <cstddef>

namespace Metrics {

namespace {

void LetGo(MetricsEvent& event) noexcept {
    event.name = MetricsValue();
    event.value = MetricsValue();
    event.pairs = {};
}

/// Whether it is an ordinary value whose text, if it has one, nobody else holds.
bool IsOwn(const MetricsValue& value) noexcept {
    return (value.utf8 != nullptr) == (value.type == MetricsValue::MV_Utf8String) &&
           (value.utf16 != nullptr) == (value.type == MetricsValue::MV_Utf16String) &&
           value.utf8.use_count() <= 1 && value.utf16.use_count() <= 1;
}

void LetGoOfShared(MetricsValue& value) noexcept {
    if (!IsOwn(value)) {
        value = MetricsValue();
    }
}

}  // namespace

const MetricsEvent& ReceivedEvents::Take(EventRecord& record) {
    m_taken = record.IsBoxed() ? &m_boxed : &Last(record.GetType());
    m_isShared = false;
    record.Read(*m_taken);
    return *m_taken;
}

const MetricsEvent& ReceivedEvents::Take(const EventView& event) {
    m_taken = &Last(event.type);
    m_isShared = true;
    try {
        event.CopyTo(*m_taken);
    } catch (...) {
        LetGo(*m_taken);
        throw;
    }
    return *m_taken;
}

// A list of ordinary length keeps its memory.
void ReceivedEvents::Release() noexcept {
    constexpr std::size_t most = 64;
    MetricsEvent& event = *m_taken;
    if (m_taken == &m_boxed || event.pairs.capacity() > most) {
        LetGo(event);
    }
    if (m_isShared) {
        LetGoOfShared(event.name);
        LetGoOfShared(event.value);
        for (NameValuePair& pair : event.pairs) {
            LetGoOfShared(pair.first);
            LetGoOfShared(pair.second);
        }
    }
}

MetricsEvent& ReceivedEvents::Last(MetricsEventType type) noexcept {
    const auto index = static_cast<std::size_t>(type);
    return m_last[index < types ? index : 0];
}

}  // namespace Metrics
