#include "ResourceTracking.h"

#include "tarn/OptTarn.h"

#include "cvlsys/CpuTime.h"

#include <atomic>

namespace tarn {
namespace {

using corvala::memory::MemoryTrackingMode;

constinit std::atomic<MemoryTrackingMode> s_testMemoryTrackingMode{
    corvala::memory::MemoryTrackingOff};
constinit std::atomic<bool> s_testCpuTracking{true};

}  // namespace

MemoryTrackingMode GetLoggedMemoryTrackingMode() {
    if (OptTarn::GetIsUnitTest()) {
        return s_testMemoryTrackingMode.load(std::memory_order_relaxed);
    }
    static const MemoryTrackingMode mode = corvala::memory::GetMemoryTrackingMode();
    return mode;
}

bool IsCpuTimeLogged() {
    if (OptTarn::GetIsUnitTest()) {
        return s_testCpuTracking.load(std::memory_order_relaxed);
    }
    static const bool enabled = corvala::cputime::GetCpuTrackingEnabled();
    return enabled;
}

void OverrideLoggedMemoryTrackingModeForTest(MemoryTrackingMode mode) {
    s_testMemoryTrackingMode.store(mode, std::memory_order_relaxed);
}

}  // namespace tarn
