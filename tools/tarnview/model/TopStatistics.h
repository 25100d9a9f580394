#pragma once

#include "model/DurationHistogram.h"
#include "model/Filter.h"
#include "model/Grouping.h"
#include "read/LogLine.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace tarnview {

/// Figures of all activities of one group that have ended. Times are whole milliseconds, as the
/// log has them, so that sums are exact.
struct TopRow {
    std::vector<std::string> key;
    std::uint64_t count = 0;
    std::uint64_t failed = 0;
    std::uint64_t terminated = 0;  ///< early
    std::uint64_t begun = 0;       ///< only if begins are counted
    std::int64_t total = 0;
    std::int64_t maximum = 0;
    std::int64_t exclusive = 0;
    double cpu = 0;     ///< exclusive, microseconds
    double memory = 0;  ///< allocated, exclusive, bytes
    DurationHistogram durations;

    /// Begun and not ended.
    std::uint64_t Open() const { return begun > count ? begun - count : 0; }

    double Mean() const {
        return count == 0 ? 0 : static_cast<double>(total) / static_cast<double>(count);
    }
};

/// Adds up end lines group by group. Memory is bounded by the number of groups. Used by one thread.
class TopStatistics {
public:
    TopStatistics(Grouping grouping, Filter filter);

    void Take(const LogLine& line);

    /// Begins say what never ended; a begin line does not say enough for all filters and groups.
    bool CountsBegins() const { return m_countsBegins; }

    const Grouping& GroupedBy() const { return m_grouping; }

    /// In no particular order. The rows are empty from then on.
    std::vector<TopRow> TakeRows();

private:
    struct TextHash {
        // The name is the standard library's.
        // NOLINTNEXTLINE(readability-identifier-naming): named by the language
        using is_transparent = void;

        std::size_t operator()(std::string_view text) const {
            return std::hash<std::string_view>()(text);
        }
    };

    TopRow& RowOf(const LogLine& line);

    Grouping m_grouping;
    Filter m_filter;
    bool m_hasFilter;
    bool m_countsBegins;
    std::unordered_map<std::string, TopRow, TextHash, std::equal_to<>> m_rows;
};

}  // namespace tarnview
