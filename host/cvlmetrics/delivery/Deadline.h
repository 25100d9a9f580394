#pragma once

#include <algorithm>
#include <chrono>

namespace Metrics {

/// Until when somebody waits at the most. Every length is allowed: one that reaches beyond the end
/// of the clock means without limit, a negative one is as good as none.
class Deadline {
public:
    using Clock = std::chrono::steady_clock;

    /// `length` from now.
    explicit Deadline(std::chrono::milliseconds length) noexcept : m_end(After(length)) {}

    explicit Deadline(Clock::time_point end) noexcept : m_end(end) {}

    /// How long there is left to wait; never negative.
    std::chrono::nanoseconds Left() const noexcept {
        return m_end == Clock::time_point::max()
                   ? Clock::duration::max()
                   : std::max(Clock::duration::zero(), m_end - Clock::now());
    }

    bool IsOver() const noexcept { return Left() == Clock::duration::zero(); }

private:
    static Clock::time_point After(std::chrono::milliseconds length) noexcept {
        const Clock::time_point now = Clock::now();
        const auto longest =
            std::chrono::duration_cast<std::chrono::milliseconds>(Clock::time_point::max() - now);
        if (length >= longest) {
            return Clock::time_point::max();
        }
        return now + std::max(length, std::chrono::milliseconds::zero());
    }

    Clock::time_point m_end;
};

}  // namespace Metrics
