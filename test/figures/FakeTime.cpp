#include "FakeTime.h"

#include "cvlmetrics/host/Clock.h"

#include <atomic>
#include <sys/resource.h>
#include <sys/time.h>

namespace figures::fake_time {
namespace {

constinit std::atomic<bool> s_isPerThread{false};
constinit std::atomic<int64> s_now{0};
constinit std::atomic<uint64> s_questions{0};

thread_local int64 t_now = 0;
thread_local int64 t_kernel = 0;
thread_local int64 t_program = 0;

Metrics::ClockReading Read() noexcept {
    constexpr uint64 start = 1'700'000'000;
    const int64 now = s_isPerThread ? t_now : s_now.load();
    const auto passed = static_cast<uint64>(now) / 1000;
    return {.time = now,
            .wallSeconds = start + passed / 1'000'000,
            .wallMicros = static_cast<uint32>(passed % 1'000'000)};
}

timeval TimeOf(int64 microseconds) {
    timeval time{};
    time.tv_sec = microseconds / 1'000'000;
    time.tv_usec = microseconds % 1'000'000;
    return time;
}

}  // namespace

void Install(bool perThread) {
    s_isPerThread = perThread;
    Metrics::SetClock(Read);
}

void Pass(int64 nanoseconds) {
    if (s_isPerThread) {
        t_now += nanoseconds;
    } else {
        s_now += nanoseconds;
    }
}

void UseProcessor(int64 kernel, int64 program) {
    t_kernel += kernel;
    t_program += program;
}

uint64 Questions() {
    return s_questions;
}

}  // namespace figures::fake_time

// The program's own definition is found before the system's, by the host's libraries too.
extern "C" __attribute__((visibility("default"))) int getrusage(__rusage_who_t who,
                                                                rusage* usage) noexcept {
    using namespace figures::fake_time;
    if (who != RUSAGE_THREAD) {
        return -1;
    }
    ++s_questions;
    *usage = rusage{};
    usage->ru_stime = TimeOf(t_kernel);
    usage->ru_utime = TimeOf(t_program);
    return 0;
}
