#pragma once

#include "EventRecord.h"
#include "EventView.h"

#include "cvlmetrics/MetricsEvent.h"
#include "cvlmetrics/MetricsValue.h"

#include <array>
#include <cstddef>
#include <vector>

namespace Metrics {

/// The events that the consumers receive, one at a time. Reuses the previous event of the same type
/// as storage: events of one type mostly hold texts in the same places, and a text that no consumer
/// has kept is overwritten. For the thread that delivers.
class ReceivedEvents {
public:
    /// Throws `std::bad_alloc`.
    ReceivedEvents() { m_shared.reserve(fewShared); }

    ~ReceivedEvents() = default;
    ReceivedEvents(const ReceivedEvents&) = delete;
    ReceivedEvents& operator=(const ReceivedEvents&) = delete;

    /// The event of a record, until `Release`; the record is not read again. Throws
    /// `std::bad_alloc`, and the record can be read again then.
    const MetricsEvent& Take(EventRecord& record);

    /// The event that somebody is just emitting, until `Release`. Throws `std::bad_alloc`.
    const MetricsEvent& Take(const EventView& event);

    /// Releases what was taken last, except for memory to use again. The event's emitter still
    /// holds its values.
    void Release() noexcept {
        if (!m_shared.empty()) {
            ReleaseShared();
        }
        if (m_taken == &m_boxed || m_taken->pairs.capacity() > mostPairsKept) {
            Clear(*m_taken);
        }
    }

private:
    static constexpr std::size_t types = 13;
    static constexpr std::size_t mostPairsKept = 64;
    static constexpr std::size_t fewShared = 64;

    void ReleaseShared() noexcept;
    static void Clear(MetricsEvent& event) noexcept;

    MetricsEvent& Last(MetricsEventType type) noexcept;

    // By type; unknown types share the first one, which no known type has.
    std::array<MetricsEvent, types> m_last;
    MetricsEvent m_boxed;
    MetricsEvent* m_taken = &m_boxed;
    // Values of the taken event that its emitter holds, too.
    std::vector<MetricsValue*> m_shared;
};

}  // namespace Metrics
