#pragma once

#include "BusEvents.h"

#include "cvlmetrics/IMetricsListener.h"
#include "cvlmetrics/MetricsEvent.h"
#include "cvlsys/IntegerTypes.h"

#include <cstddef>
#include <functional>
#include <mutex>
#include <vector>

namespace tarn::test {

/// Keeps a copy of every event that the bus delivers to it. Any thread may read it at any time.
/// That its calls never overlap is the bus's promise: the test fails when they do, and thread
/// sanitizer sees it when nothing orders them.
class RecordingListener : public Metrics::IMetricsListener {
public:
    ~RecordingListener() override;

    void OnMetricsEvent(const Metrics::MetricsEvent& event) override;

    std::vector<Metrics::MetricsEvent> Events() const;

    /// What the events say, in order.
    std::vector<EventContent> Contents() const;

    /// The same of those of one context, its own events included.
    std::vector<EventContent> ContentsOf(uint64 contextId) const;

    /// The first event of this kind; fails the test and returns an empty event when there is none.
    Metrics::MetricsEvent First(Metrics::MetricsEventType type) const;

    /// The last event; fails the test and returns an empty event when there is none.
    Metrics::MetricsEvent Last() const;

    std::size_t Count() const;
    std::size_t Count(Metrics::MetricsEventType type) const;

    void Clear();

    /// Runs with each event, after the event was recorded, on the delivering thread; what it throws
    /// goes to the bus. Set it while nothing is delivered.
    void CallOnEach(std::function<void(const Metrics::MetricsEvent&)> action);

private:
    class Call;

    mutable std::mutex m_lock;
    std::vector<Metrics::MetricsEvent> m_events;
    std::function<void(const Metrics::MetricsEvent&)> m_action;
    int m_callsAtOnce = 0;  // neither locked nor atomic, see above
};

}  // namespace tarn::test
