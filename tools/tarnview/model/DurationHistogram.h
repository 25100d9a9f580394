#pragma once

#include <cstdint>
#include <vector>

namespace tarnview {

/// Counts durations in whole milliseconds, for quantiles. Exact below 2.048 s; beyond, a value is
/// off by less than a thousandth. Memory depends on the largest value only, and stays below 300 KB.
class DurationHistogram {
public:
    void Add(std::uint64_t milliseconds);

    /// The smallest duration that at least `share` of all (0 to 1) do not exceed; the lower edge of
    /// its class. 0 if there are none.
    std::uint64_t Quantile(double share) const;

    std::uint64_t Count() const { return m_count; }

private:
    std::vector<std::uint64_t> m_counts;
    std::uint64_t m_count = 0;
};

}  // namespace tarnview
