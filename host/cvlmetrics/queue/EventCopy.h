#pragma once

#include "cvlmetrics/LentEvent.h"
#include "cvlmetrics/MetricsEvent.h"
#include "cvlmetrics/ValueView.h"

#include <vector>

namespace Metrics {

/// Makes an event of what is lent, with the memory that the event has: its texts must come from
/// `cvlsys::MakeText`, or live as long as the process. What the view holds as shared texts is
/// shared with the event. Throws `std::bad_alloc`.
void Copy(const EventView& view, MetricsEvent& event);

/// The same, and appends the event's values that share something with the view.
void Copy(const EventView& view, MetricsEvent& event, std::vector<MetricsValue*>& shared);

/// As `ValueView::ToValue`, into a value that is there, whose texts are as `Copy` demands. Throws
/// `std::bad_alloc`; the value is some value then.
void Assign(MetricsValue& to, const ValueView& view);

}  // namespace Metrics
