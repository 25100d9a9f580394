#pragma once

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <string>

namespace packagesearch {

/// The moment at which somebody stops waiting for an answer. A value.
class Deadline {
public:
    using Clock = std::chrono::steady_clock;

    static Deadline Never() noexcept { return Deadline(Clock::time_point::max()); }

    static Deadline In(std::chrono::milliseconds time) { return Deadline(Clock::now() + time); }

    bool IsNever() const noexcept { return m_when == Clock::time_point::max(); }

    bool HasPassed() const { return !IsNever() && Clock::now() >= m_when; }

    Clock::time_point When() const noexcept { return m_when; }

    /// Not below 0, and rounded up: with a remainder there is time left. Not for `Never`.
    std::chrono::milliseconds Remaining() const {
        return std::max(std::chrono::ceil<std::chrono::milliseconds>(m_when - Clock::now()),
                        std::chrono::milliseconds(0));
    }

private:
    explicit Deadline(Clock::time_point when) noexcept : m_when(when) {}

    Clock::time_point m_when;
};

/// Work was given up because its deadline had passed. `what()` says where it was then.
class DeadlineExceeded : public std::runtime_error {
public:
    explicit DeadlineExceeded(const std::string& where)
        : std::runtime_error("the deadline has passed " + where) {}
};

/// What a piece of work may take.
struct WorkLimits {
    Deadline deadline = Deadline::Never();

    /// A step that takes longer says so in the log.
    std::chrono::milliseconds slowAfter = std::chrono::milliseconds::max();
};

}  // namespace packagesearch
