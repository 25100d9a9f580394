#pragma once

#include "model/DurationHistogram.h"
#include "model/Filter.h"
#include "model/Grouping.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace tarnview {

/// Figures of all activities of one group. Times are microseconds.
struct TopRow {
    std::vector<std::string> key;
    std::uint64_t count = 0;  ///< that have ended; all figures are of these
    std::uint64_t failed = 0;
    std::uint64_t terminated = 0;  ///< early
    std::uint64_t open = 0;        ///< begun and not ended
    Microseconds total = 0;
    Microseconds maximum = 0;
    Microseconds exclusive = 0;
    std::uint64_t cpuCount = 0;  ///< activities whose processor time was measured
    double cpu = 0;              ///< exclusive, microseconds
    std::uint64_t memoryCount = 0;
    double memory = 0;  ///< allocated, exclusive, bytes
    DurationHistogram durations;

    double Mean() const {
        return count == 0 ? 0 : static_cast<double>(total) / static_cast<double>(count);
    }
};

/// Adds up activities group by group. Memory is bounded by the number of groups. Used by one
/// thread.
class TopStatistics {
public:
    TopStatistics(Grouping grouping, Filter filter);

    void Take(const Activity& activity);

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

    TopRow& RowOf(const Activity& activity);

    Grouping m_grouping;
    Filter m_filter;
    bool m_hasFilter;
    std::unordered_map<std::string, TopRow, TextHash, std::equal_to<>> m_rows;
};

}  // namespace tarnview
