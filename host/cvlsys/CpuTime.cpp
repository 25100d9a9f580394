#include "cvlsys/CpuTime.h"

#include <algorithm>
#include <atomic>
#include <limits>
#include <sys/resource.h>

namespace corvala::cputime {

namespace {

constinit std::atomic<bool> s_enabled{false};

int64 Microseconds(const timeval& time) noexcept {
    return int64{time.tv_sec} * 1'000'000 + time.tv_usec;
}

// A scope that is open across a fork ends in a child whose clocks started again from 0.
uint32 Saturate(int64 microseconds) noexcept {
    return static_cast<uint32>(
        std::clamp<int64>(microseconds, 0, std::numeric_limits<uint32>::max()));
}

}  // namespace

bool GetCpuTrackingEnabled() noexcept {
    return s_enabled.load(std::memory_order_relaxed);
}

void SetCpuTrackingEnabled(bool enabled) noexcept {
    s_enabled.store(enabled, std::memory_order_relaxed);
}

ThreadTimeScope::ThreadTimeScope(ThreadTimeValue& value) noexcept : m_value(value) {
    rusage usage{};
    if (GetCpuTrackingEnabled() && getrusage(RUSAGE_THREAD, &usage) == 0) {
        m_kernelAtStart = Microseconds(usage.ru_stime);
        m_userAtStart = Microseconds(usage.ru_utime);
        m_running = true;
    }
}

ThreadTimeScope::~ThreadTimeScope() {
    rusage usage{};
    if (m_running && getrusage(RUSAGE_THREAD, &usage) == 0) {
        m_value.kernel = Saturate(Microseconds(usage.ru_stime) - m_kernelAtStart);
        m_value.user = Saturate(Microseconds(usage.ru_utime) - m_userAtStart);
    }
}

}  // namespace corvala::cputime
