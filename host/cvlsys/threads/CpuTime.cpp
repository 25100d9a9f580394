#include "cvlsys/CpuTime.h"

#include <algorithm>
#include <atomic>
#include <limits>
#include <sys/resource.h>
#include <time.h>

namespace corvala::cputime {

namespace {

constinit std::atomic<bool> s_enabled{false};

int64 Microseconds(const timeval& time) noexcept {
    return int64{time.tv_sec} * 1'000'000 + time.tv_usec;
}

/// In microseconds; false, with the figures as they were, when they cannot be had.
bool ReadTimes(int64& kernel, int64& user) noexcept {
    // A kernel that accounts by ticks brings a running thread's totals up to date when they are due
    // or when this clock is asked. `getrusage` alone says what they were up to some milliseconds
    // ago: nothing at all for nearly every short scope, and the time of many for the rest.
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    rusage usage{};
    if (getrusage(RUSAGE_THREAD, &usage) != 0) {
        return false;
    }
    kernel = Microseconds(usage.ru_stime);
    user = Microseconds(usage.ru_utime);
    return true;
}

// A scope that is open across a fork ends in a child whose clocks started again from 0.
uint32 Saturate(int64 microseconds) noexcept {
    return static_cast<uint32>(
        std::clamp<int64>(microseconds, 0, std::numeric_limits<uint32>::max()));
}

// Apart, as nearly every process has no use for the times.

[[gnu::noinline]] void Begin(int64& kernel, int64& user) noexcept {
    static_cast<void>(ReadTimes(kernel, user));
}

[[gnu::noinline]] void End(int64 kernelAtStart,
                           int64 userAtStart,
                           ThreadTimeValue& value) noexcept {
    int64 kernel = 0;
    int64 user = 0;
    if (ReadTimes(kernel, user)) {
        value.kernel = Saturate(kernel - kernelAtStart);
        value.user = Saturate(user - userAtStart);
    }
}

}  // namespace

bool GetCpuTrackingEnabled() noexcept {
    return s_enabled.load(std::memory_order_relaxed);
}

void SetCpuTrackingEnabled(bool enabled) noexcept {
    s_enabled.store(enabled, std::memory_order_relaxed);
}

ThreadTimeScope::ThreadTimeScope(ThreadTimeValue& value) noexcept : m_value(value) {
    if (GetCpuTrackingEnabled()) {
        Begin(m_kernelAtStart, m_userAtStart);
    }
}

ThreadTimeScope::~ThreadTimeScope() {
    if (m_kernelAtStart != notMeasured) {
        End(m_kernelAtStart, m_userAtStart, m_value);
    }
}

}  // namespace corvala::cputime
