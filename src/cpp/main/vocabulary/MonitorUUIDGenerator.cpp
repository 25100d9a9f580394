#include "tarn/MonitorUUIDGenerator.h"

IMetricsMonitorUUID::~IMetricsMonitorUUID() = default;

MonitorUUIDGenerator::~MonitorUUIDGenerator() = default;

TUUID MonitorUUIDGenerator::CreateUUID() {
    return TUUID::CreateUUID();
}
