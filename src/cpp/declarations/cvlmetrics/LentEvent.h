#pragma once

#include "cvlmetrics/Export.h"
#include "cvlmetrics/MetricsEvent.h"
#include "cvlmetrics/ValueView.h"
#include "cvlsys/IntegerTypes.h"

namespace Metrics {

/// An event, lent for the time of a call: nothing is made of its texts until somebody asks for it.
/// The members are those of `MetricsEvent`.
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
};

/// What a listener may be besides: one that reads events where they lie. Optional for a host: it
/// asks once, when the listener is added (`dynamic_cast`), and then calls this in place of
/// `OnMetricsEvent` wherever it has not made the event anyway. All else that holds for
/// `OnMetricsEvent` holds for this. A host that does not ask calls `OnMetricsEvent`.
class CVLMETRICS_API ILentListener {
public:
    virtual void OnLentEvent(const EventView& event) = 0;

protected:
    ~ILentListener() = default;
};

}  // namespace Metrics
