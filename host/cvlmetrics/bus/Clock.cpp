#include "cvlmetrics/host/Clock.h"

#include <algorithm>
#include <atomic>
#include <ctime>
#include <limits>

namespace Metrics {

namespace {

constinit std::atomic<ClockFunction> s_clock{&ReadDefaultClock};

constexpr int64 nanosPerSecond = 1'000'000'000;
constexpr uint32 nanosPerMicro = 1'000;

// Both clocks run at the same rate. Only when the wall clock is set does their distance change, and
// it is enough to notice that soon.
constexpr int64 wallIsGoodFor = 1'000'000;

/// What the wall clock showed when the thread looked last, at `readAt` by the monotonic clock.
struct WallTime {
    int64 readAt = 0;
    int64 goodUntil = std::numeric_limits<int64>::min();
    uint64 seconds = 0;
    int64 nanos = 0;
};

[[gnu::tls_model("initial-exec")]] constinit thread_local WallTime t_wall;

timespec Read(clockid_t clock) noexcept {
    timespec time{};
    clock_gettime(clock, &time);
    return time;
}

int64 Nanoseconds(const timespec& time) noexcept {
    return int64{time.tv_sec} * nanosPerSecond + int64{time.tv_nsec};
}

// The two clocks are to be read at the same moment: the wall clock in the middle between two looks
// at the other. A thread that was held up in between tries again, but not for ever.
[[gnu::noinline]] void ReadWallClock() noexcept {
    constexpr int attempts = 3;
    constexpr int64 soon = 200;
    constexpr int64 tooLong = 10'000;
    int64 shortest = std::numeric_limits<int64>::max();
    for (int left = attempts; left != 0 && shortest > soon; --left) {
        const int64 before = Nanoseconds(Read(CLOCK_MONOTONIC));
        const timespec wall = Read(CLOCK_REALTIME);
        const int64 between = Nanoseconds(Read(CLOCK_MONOTONIC)) - before;
        if (between < shortest) {
            shortest = between;
            t_wall = {.readAt = before + between / 2,
                      .goodUntil = before + (between < tooLong ? wallIsGoodFor : 0),
                      .seconds = static_cast<uint64>(wall.tv_sec),
                      .nanos = int64{wall.tv_nsec}};
        }
    }
}

}  // namespace

ClockReading ReadDefaultClock() noexcept {
    int64 time = Nanoseconds(Read(CLOCK_MONOTONIC));
    if (time >= t_wall.goodUntil) {
        ReadWallClock();
        time = std::max(time, t_wall.readAt);
    }
    int64 nanos = t_wall.nanos + (time - t_wall.readAt);
    uint64 seconds = t_wall.seconds;
    if (nanos >= nanosPerSecond) {
        nanos -= nanosPerSecond;
        ++seconds;
    }
    return {.time = time,
            .wallSeconds = seconds,
            .wallMicros = static_cast<uint32>(nanos) / nanosPerMicro};
}

ClockReading ReadClock() noexcept {
    return s_clock.load(std::memory_order_acquire)();
}

ClockFunction SetClock(ClockFunction clock) noexcept {
    return s_clock.exchange(clock != nullptr ? clock : &ReadDefaultClock,
                            std::memory_order_acq_rel);
}

}  // namespace Metrics
