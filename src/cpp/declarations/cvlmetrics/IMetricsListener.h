#pragma once

#include "cvlmetrics/Export.h"
#include "cvlmetrics/MetricsEvent.h"
#include "cvlsys/RefCntObject.h"

namespace Metrics {

/// Receives the events of the bus. The bus never runs two calls of one listener at once and
/// delivers the events of a context in the order in which they were emitted. An event that the
/// listener's own work emits is delivered after the call has returned. A listener must not throw;
/// what it throws all the same is counted and logged by the bus and reaches nobody else.
class CVLMETRICS_API IMetricsListener : public RefCntObject {
public:
    ~IMetricsListener() override;
    virtual void OnMetricsEvent(const MetricsEvent& event) = 0;
};

}  // namespace Metrics
