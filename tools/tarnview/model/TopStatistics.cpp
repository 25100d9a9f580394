#include "model/TopStatistics.h"

#include "read/Rounding.h"

#include <algorithm>
#include <utility>

namespace tarnview {

TopStatistics::TopStatistics(Grouping grouping, Filter filter)
    : m_grouping(std::move(grouping)),
      m_filter(std::move(filter)),
      m_hasFilter(!m_filter.IsEmpty()),
      m_countsBegins(!m_hasFilter && m_grouping.IsByNameOnly()) {}

void TopStatistics::Take(const LogLine& line) {
    if (line.kind == LineKind::Begin && m_countsBegins) {
        ++RowOf(line).begun;
    }
    if (line.kind != LineKind::End || (m_hasFilter && !m_filter.Passes(line))) {
        return;
    }
    TopRow& row = RowOf(line);
    const std::int64_t elapsed = Rounded(line.elapsed * 1e3);
    ++row.count;
    if (line.result == "early-termination") {
        ++row.terminated;
    } else if (line.result != "ok") {
        ++row.failed;
    }
    row.total += elapsed;
    row.maximum = std::max(row.maximum, elapsed);
    row.exclusive += Rounded(line.exclusive * 1e3);
    row.cpu += line.figures.CpuExclusive();
    row.memory += line.figures.ae;
    row.durations.Add(static_cast<std::uint64_t>(std::max<std::int64_t>(elapsed, 0)));
}

TopRow& TopStatistics::RowOf(const LogLine& line) {
    const std::string_view key = m_grouping.KeyOf(line);
    const auto found = m_rows.find(key);
    if (found != m_rows.end()) {
        return found->second;
    }
    TopRow& row = m_rows[std::string(key)];
    row.key = Grouping::ValuesOf(key);
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
