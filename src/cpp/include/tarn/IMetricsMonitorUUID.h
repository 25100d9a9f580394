#pragma once

#include "tarn/Export.h"

#include "cvlcoreplatform/TUUID.h"

/// The source of a monitor's ids. Called once for each tracing scope that
/// opens, on the thread that delivers the event.
class TARN_EXPORT IMetricsMonitorUUID {
public:
    virtual ~IMetricsMonitorUUID();
    virtual TUUID CreateUUID() = 0;

protected:
    IMetricsMonitorUUID() = default;
    IMetricsMonitorUUID(const IMetricsMonitorUUID&) = default;
    IMetricsMonitorUUID& operator=(const IMetricsMonitorUUID&) = default;
};
