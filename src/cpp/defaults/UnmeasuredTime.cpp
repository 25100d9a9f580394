// For a host that does not measure processor time.
#include "cvlsys/CpuTime.h"

namespace corvala::cputime {

bool GetCpuTrackingEnabled() noexcept {
    return false;
}

ThreadTimeScope::ThreadTimeScope(ThreadTimeValue& value) noexcept : m_value(value) {}

ThreadTimeScope::~ThreadTimeScope() = default;

}  // namespace corvala::cputime
