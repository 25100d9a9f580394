#pragma once

#include "tarn/Export.h"
#include "tarn/IMetricsMonitorUUID.h"

/// Random ids from the host. Stateless.
class TARN_EXPORT MonitorUUIDGenerator : public IMetricsMonitorUUID {
public:
    MonitorUUIDGenerator() = default;
    MonitorUUIDGenerator(const MonitorUUIDGenerator&) = default;
    MonitorUUIDGenerator& operator=(const MonitorUUIDGenerator&) = default;
    ~MonitorUUIDGenerator() override;

    TUUID CreateUUID() override;
};
