#include "ExitDeadline.h"

#include <atomic>

namespace Metrics::ExitDeadline {

namespace {

using std::chrono::milliseconds;

constinit std::atomic<milliseconds> s_length{milliseconds{5000}};
constinit std::atomic<bool> s_isMissed{false};

}  // namespace

void Set(milliseconds length) noexcept {
    s_length.store(length, std::memory_order_relaxed);
    s_isMissed.store(false, std::memory_order_relaxed);
}

Deadline Begin() noexcept {
    return Deadline(s_isMissed.load(std::memory_order_relaxed)
                        ? milliseconds::zero()
                        : s_length.load(std::memory_order_relaxed));
}

void Miss() noexcept {
    s_isMissed.store(true, std::memory_order_relaxed);
}

void Meet() noexcept {
    if (s_isMissed.load(std::memory_order_relaxed)) {
        s_isMissed.store(false, std::memory_order_relaxed);
    }
}

}  // namespace Metrics::ExitDeadline
