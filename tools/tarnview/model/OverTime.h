#pragma once

#include "activity/Activity.h"
#include "model/DurationHistogram.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace tarnview {

/// What ended within one interval of time.
struct Interval {
    std::uint64_t count = 0;
    std::uint64_t failed = 0;
    std::uint64_t terminated = 0;
    Microseconds maximum = 0;
    DurationHistogram durations{};
};

/// Counts ended activities by the interval in which they ended, and by a text, as their name.
/// Intervals begin at multiples of their length since 1970. Used by one thread.
class OverTime {
public:
    /// `length` is more than 0.
    explicit OverTime(Microseconds length) : m_length(length) {}

    void Take(const Activity& activity, const std::string& key);

    Microseconds Length() const { return m_length; }

    using Keys = std::map<std::string, Interval>;

    /// By the time at which they begin; without those in which nothing ended.
    const std::map<Microseconds, Keys>& Intervals() const { return m_intervals; }

private:
    Microseconds m_length;
    std::map<Microseconds, Keys> m_intervals;
};

/// A length of intervals that people count in (1, 2, 5, 10, 15 or 30 of a unit), of which at most
/// `most` cover the span.
Microseconds IntervalFor(Microseconds span, std::size_t most);

}  // namespace tarnview
