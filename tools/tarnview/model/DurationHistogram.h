#pragma once

#include <cstdint>
#include <vector>

namespace tarnview {

/// Counts durations in whole microseconds, for quantiles. The first 16,384 are kept as they are, so
/// that quantiles are exact. Beyond that they are counted in classes: exact below 2.048 ms, above
/// that off by less than a thousandth. Memory stays below 500 KB, and is 8 bytes for each duration
/// while these are few. Used by one thread, also to read: it sorts what it keeps.
class DurationHistogram {
public:
    void Add(std::uint64_t microseconds) { Add(microseconds, 1); }

    /// As many that are equal.
    void Add(std::uint64_t microseconds, std::uint64_t count);

    /// The smallest duration that at least `share` of all (0 to 1) do not exceed; once classes are
    /// counted, the lower edge of its class. 0 if there are none.
    std::uint64_t Quantile(double share) const;

    std::uint64_t Count() const { return m_count; }

    /// Whether of as many durations only the classes count.
    static constexpr bool CountsInClasses(std::uint64_t count) { return count > mostValues; }

private:
    static constexpr std::uint64_t mostValues = 16'384;

    void Classify(std::uint64_t microseconds, std::uint64_t count);

    mutable std::vector<std::uint64_t> m_values;  // empty once classes are counted
    mutable bool m_isSorted = true;
    std::vector<std::uint64_t> m_counts;
    std::uint64_t m_count = 0;
};

}  // namespace tarnview
