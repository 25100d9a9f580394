#pragma once

#include "cvlmetrics/IMetricsListener.h"
#include "cvlmetrics/MetricsEvent.h"

#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace tarn::test {

/// Keeps a copy of every event that the bus delivers to it. Any thread may read it at any time.
class RecordingListener : public Metrics::IMetricsListener {
public:
    ~RecordingListener() override;

    void OnMetricsEvent(const Metrics::MetricsEvent& event) override;

    std::vector<Metrics::MetricsEvent> Events() const;

    /// Each event as `Text` writes it.
    std::vector<std::string> Texts() const;

    /// The first event of this kind; fails the test and returns an empty event when there is none.
    Metrics::MetricsEvent First(Metrics::MetricsEventType type) const;

    std::size_t Count(Metrics::MetricsEventType type) const;

    void Clear();

    /// Runs with each event, after the event was recorded, on the delivering thread. Set it while
    /// nothing is delivered.
    void CallOnEach(std::function<void(const Metrics::MetricsEvent&)> action);

private:
    mutable std::mutex m_lock;
    std::vector<Metrics::MetricsEvent> m_events;
    std::function<void(const Metrics::MetricsEvent&)> m_action;
};

}  // namespace tarn::test
