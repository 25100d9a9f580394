#include "RecordingListener.h"

#include <algorithm>
#include <utility>

#include <gtest/gtest.h>

namespace tarn::test {

namespace {

bool IsOfContext(const Metrics::MetricsEvent& event, uint64 contextId) {
    const bool isContextEvent = event.type >= Metrics::MetricsEventType::CreateContext &&
                                event.type <= Metrics::MetricsEventType::CloseContext;
    return (isContextEvent ? event.id : event.contextId) == contextId;
}

}  // namespace

class RecordingListener::Call {
public:
    explicit Call(RecordingListener& listener) : m_listener(listener) {
        if (++m_listener.m_callsAtOnce != 1) {
            ADD_FAILURE() << "the listener was called while it was being called";
        }
    }

    ~Call() { --m_listener.m_callsAtOnce; }

    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

private:
    RecordingListener& m_listener;
};

RecordingListener::~RecordingListener() = default;

void RecordingListener::OnMetricsEvent(const Metrics::MetricsEvent& event) {
    const Call call(*this);
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

std::vector<EventContent> RecordingListener::Contents() const {
    const std::lock_guard<std::mutex> guard(m_lock);
    std::vector<EventContent> contents;
    contents.reserve(m_events.size());
    for (const Metrics::MetricsEvent& event : m_events) {
        contents.push_back(ContentOf(event));
    }
    return contents;
}

std::vector<EventContent> RecordingListener::ContentsOf(uint64 contextId) const {
    const std::lock_guard<std::mutex> guard(m_lock);
    std::vector<EventContent> contents;
    for (const Metrics::MetricsEvent& event : m_events) {
        if (IsOfContext(event, contextId)) {
            contents.push_back(ContentOf(event));
        }
    }
    return contents;
}

Metrics::MetricsEvent RecordingListener::First(Metrics::MetricsEventType type) const {
    const std::lock_guard<std::mutex> guard(m_lock);
    for (const Metrics::MetricsEvent& event : m_events) {
        if (event.type == type) {
            return event;
        }
    }
    ADD_FAILURE() << "no event of type " << static_cast<uint32>(type) << " was delivered";
    return {};
}

Metrics::MetricsEvent RecordingListener::Last() const {
    const std::lock_guard<std::mutex> guard(m_lock);
    if (m_events.empty()) {
        ADD_FAILURE() << "no event was delivered";
        return {};
    }
    return m_events.back();
}

std::size_t RecordingListener::Count() const {
    const std::lock_guard<std::mutex> guard(m_lock);
    return m_events.size();
}

std::size_t RecordingListener::Count(Metrics::MetricsEventType type) const {
    const std::lock_guard<std::mutex> guard(m_lock);
    return static_cast<std::size_t>(
        std::count_if(m_events.begin(), m_events.end(), [type](const Metrics::MetricsEvent& event) {
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
