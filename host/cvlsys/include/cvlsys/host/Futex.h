#pragma once

#include "cvlsys/IntegerTypes.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <ctime>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

/// Sleeping until a word changes. Unlike a condition variable a word has no state that a forked
/// child would have to repair, and waking costs nothing when nobody sleeps.
namespace cvlsys::Futex {

static_assert(sizeof(std::atomic<uint32>) == sizeof(uint32));

/// Sleeps for as long as `word` holds `expected`, and no longer than `time`. It may return early.
inline void Wait(const std::atomic<uint32>& word,
                 uint32 expected,
                 std::chrono::nanoseconds time) noexcept {
    constexpr int64 nanosPerSecond = 1'000'000'000;
    const timespec limit{time.count() / nanosPerSecond, time.count() % nanosPerSecond};
    const int hostErrno = errno;
    syscall(SYS_futex, &word, FUTEX_WAIT_PRIVATE, expected, &limit, nullptr, 0);
    errno = hostErrno;
}

inline void WakeAll(const std::atomic<uint32>& word) noexcept {
    const int hostErrno = errno;
    syscall(SYS_futex, &word, FUTEX_WAKE_PRIVATE, INT_MAX, nullptr, nullptr, 0);
    errno = hostErrno;
}

}  // namespace cvlsys::Futex
