#include "model/TopStatistics.h"

#include <algorithm>
#include <utility>

namespace tarnview {

TopStatistics::TopStatistics(Grouping grouping, Filter filter)
    : m_grouping(std::move(grouping)),
      m_filter(std::move(filter)),
      m_hasFilter(!m_filter.IsEmpty()) {}

void TopStatistics::Take(const Activity& activity) {
    if (m_hasFilter && !m_filter.Passes(activity)) {
        return;
    }
    TopRow& row = RowOf(activity);
    if (!activity.hasEnd) {
        ++row.open;
        return;
    }
    const Microseconds duration = activity.Duration();
    ++row.count;
    row.failed += activity.IsFailure() ? 1U : 0U;
    row.terminated += activity.IsEarlyTermination() ? 1U : 0U;
    row.total += duration;
    row.maximum = std::max(row.maximum, duration);
    row.exclusive += activity.ExclusiveTime();
    if (activity.figures.hasCpu) {
        ++row.cpuCount;
        row.cpu += activity.figures.CpuExclusive();
    }
    if (activity.figures.hasAllocated) {
        ++row.memoryCount;
        row.memory += activity.figures.ae;
    }
    row.durations.Add(static_cast<std::uint64_t>(std::max<Microseconds>(duration, 0)));
}

TopRow& TopStatistics::RowOf(const Activity& activity) {
    const std::string_view key = m_grouping.KeyOf(activity);
    const auto found = m_rows.find(key);
    if (found != m_rows.end()) {
        return found->second;
    }
    TopRow& row = m_rows[std::string(key)];
    row.key = m_grouping.ValuesOf(key);
    return row;
}

std::vector<TopRow> TopStatistics::TakeRows() {
    std::vector<TopRow> rows;
    for (auto& [key, row] : m_rows) {
        rows.push_back(std::move(row));
    }
    m_rows.clear();
    return rows;
}

}  // namespace tarnview
