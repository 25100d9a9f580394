#include "model/OverTime.h"

#include "model/HeatMap.h"

#include <algorithm>
#include <iterator>

namespace tarnview {

void OverTime::Take(const Activity& activity, const std::string& key) {
    if (!activity.hasEnd) {
        return;
    }
    Interval& interval = m_intervals[BeginOfInterval(activity.end, m_length)][key];
    const Microseconds duration = activity.Duration();
    ++interval.count;
    interval.failed += activity.IsFailure() ? 1U : 0U;
    interval.terminated += activity.IsEarlyTermination() ? 1U : 0U;
    interval.maximum = std::max(interval.maximum, duration);
    interval.durations.Add(static_cast<std::uint64_t>(std::max<Microseconds>(duration, 0)));
}

Microseconds IntervalFor(Microseconds span, std::size_t most) {
    constexpr Microseconds second = 1'000'000;
    constexpr Microseconds minute = 60 * second;
    constexpr Microseconds hour = 60 * minute;
    constexpr Microseconds lengths[] = {
        1,           2,           5,           10,       20,         50,         100,
        200,         500,         1'000,       2'000,    5'000,      10'000,     20'000,
        50'000,      100'000,     200'000,     500'000,  second,     2 * second, 5 * second,
        10 * second, 15 * second, 30 * second, minute,   2 * minute, 5 * minute, 10 * minute,
        15 * minute, 30 * minute, hour,        2 * hour, 6 * hour,   12 * hour,  24 * hour};
    const auto wanted = static_cast<Microseconds>(std::max<std::size_t>(most, 2) - 1);
    for (const Microseconds length : lengths) {
        if (span / length < wanted) {
            return length;
        }
    }
    const Microseconds day = *std::rbegin(lengths);
    return day * (span / day / wanted + 1);
}

}  // namespace tarnview
