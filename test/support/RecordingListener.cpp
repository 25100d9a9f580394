#include "RecordingListener.h"

#include "MetricsText.h"

#include <algorithm>
#include <utility>

#include <gtest/gtest.h>

namespace tarn::test {

RecordingListener::~RecordingListener() = default;

void RecordingListener::OnMetricsEvent(const Metrics::MetricsEvent& event) {
    {
        const std::lock_guard<std::mutex> guard(m_lock);
        m_events.push_back(event);
    }
    if (m_action) {
        m_action(event);
    }
}

std::vector<Metrics::MetricsEvent> RecordingListener::Events() const {
    const std::lock_guard<std::mutex> guard(m_lock);
    return m_events;
}

std::vector<std::string> RecordingListener::Texts() const {
    std::vector<std::string> texts;
    for (const Metrics::MetricsEvent& event : Events()) {
        texts.push_back(Text(event));
    }
    return texts;
}

Metrics::MetricsEvent RecordingListener::First(Metrics::MetricsEventType type) const {
    for (const Metrics::MetricsEvent& event : Events()) {
        if (event.type == type) {
            return event;
        }
    }
    ADD_FAILURE() << "no event of type " << static_cast<uint32>(type) << " was delivered";
    return {};
}

std::size_t RecordingListener::Count(Metrics::MetricsEventType type) const {
    const std::vector<Metrics::MetricsEvent> events = Events();
    return static_cast<std::size_t>(
        std::count_if(events.begin(), events.end(), [type](const Metrics::MetricsEvent& event) {
            return event.type == type;
        }));
}

void RecordingListener::Clear() {
    const std::lock_guard<std::mutex> guard(m_lock);
    m_events.clear();
}

void RecordingListener::CallOnEach(std::function<void(const Metrics::MetricsEvent&)> action) {
    m_action = std::move(action);
}

}  // namespace tarn::test
