#include "cvlmetrics/MetricsManager.h"

#include "Bus.h"

namespace Metrics {

bool MetricsManager::AddConsumer(const RefCntPtr<IMetricsListener>& listener,
                                 uint64 bits,
                                 bool flag) {
    if (!listener) {
        return false;
    }
    Bus::AddConsumer(listener, bits, flag);
    return true;
}

bool MetricsManager::RemoveConsumer(const RefCntPtr<IMetricsListener>& listener) {
    return listener && Bus::RemoveConsumer(listener);
}

bool TestBits(uint64 bits) noexcept {
    return Bus::Admits(bits);
}

}  // namespace Metrics
