#include "cvlmetrics/host/Clock.h"

#include <atomic>
#include <ctime>

namespace Metrics {

namespace {

constinit std::atomic<ClockFunction> s_clock{&ReadDefaultClock};

}  // namespace

ClockReading ReadDefaultClock() noexcept {
    constexpr int64 nanosPerSecond = 1'000'000'000;
    constexpr int64 nanosPerMicro = 1'000;
    timespec monotonic{};
    timespec wall{};

    clock_gettime(CLOCK_MONOTONIC, &monotonic);
    clock_gettime(CLOCK_REALTIME, &wall);

    return {.time = int64{monotonic.tv_sec} * nanosPerSecond + int64{monotonic.tv_nsec},
            .wallSeconds = static_cast<uint64>(wall.tv_sec),
            .wallMicros = static_cast<uint32>(wall.tv_nsec / nanosPerMicro)};
}

ClockReading ReadClock() noexcept {
    return s_clock.load(std::memory_order_acquire)();
}

ClockFunction SetClock(ClockFunction clock) noexcept {
    return s_clock.exchange(clock != nullptr ? clock : &ReadDefaultClock,
                            std::memory_order_acq_rel);
}

}  // namespace Metrics
