#pragma once

#include "cvlmetrics/MetricsEvent.h"
#include "cvlmetrics/ValueView.h"
#include "cvlmetrics/host/Clock.h"
#include "cvlsys/IntegerTypes.h"

#include <vector>

namespace Metrics {

/// An event on its way through the bus, as long as all that it holds is lent: it becomes a record
/// in a queue, or the event that the consumers receive. The members are those of `MetricsEvent`.
struct EventView {
    uint64 id = 0;
    uint64 contextId = 0;
    uint64 flags = 0;
    int64 time = 0;
    uint64 wallSeconds = 0;
    uint32 wallMicros = 0;
    MetricsEventType type = MetricsEventType{0};
    ValueView name = 0;
    ValueView value = 0;
    PairSpan pairs;

    /// Says when it happened.
    void Stamp(const ClockReading& now) noexcept {
        time = now.time;
        wallSeconds = now.wallSeconds;
        wallMicros = now.wallMicros;
    }

    /// Makes the event of it, with the memory that the event has: its texts must come from
    /// `cvlsys::MakeText`, or live as long as the process. What the view holds as shared texts is
    /// shared with the event. Throws `std::bad_alloc`.
    void CopyTo(MetricsEvent& event) const;

    /// The same, and appends the event's values that share something with the view.
    void CopyTo(MetricsEvent& event, std::vector<MetricsValue*>& shared) const;
};

/// As `ValueView::ToValue`, into a value that is there, whose texts are as `EventView::CopyTo`
/// demands. Throws `std::bad_alloc`; the value is some value then.
void Assign(MetricsValue& to, const ValueView& view);

/// Views of a list's pairs.
class PairViews {
public:
    explicit PairViews(const NameValueList& list) : m_views(list.begin(), list.end()) {}

    PairSpan Span() const noexcept { return {m_views.data(), m_views.size()}; }

private:
    std::vector<PairView> m_views;
};

}  // namespace Metrics
