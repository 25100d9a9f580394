#pragma once

#include "cvlmetrics/IMetricsListener.h"
#include "cvlmetrics/MetricsEvent.h"

#include <array>
#include <cstddef>
#include <numeric>

namespace tarn::test {

/// Counts the events that it hears, by kind, and allocates nothing: where memory is made to fail,
/// is counted, or had better not be asked for, as in a forked child. Unsynchronised, as a monitor's
/// state is: read it while nothing is delivered.
class CountingListener : public Metrics::IMetricsListener {
public:
    void OnMetricsEvent(const Metrics::MetricsEvent& event) override {
        ++m_counts[PlaceOf(event.type)];
    }

    int Count() const { return std::accumulate(m_counts.begin(), m_counts.end(), 0); }

    int Count(Metrics::MetricsEventType type) const { return m_counts[PlaceOf(type)]; }

    void Clear() { m_counts = {}; }

private:
    // The last place is that of the kinds that are not known.
    static constexpr std::size_t places =
        static_cast<std::size_t>(Metrics::MetricsEventType::PostCloseScope) + 2;

    static std::size_t PlaceOf(Metrics::MetricsEventType type) {
        const auto number = static_cast<std::size_t>(type);
        return number < places ? number : places - 1;
    }

    std::array<int, places> m_counts{};
};

}  // namespace tarn::test
