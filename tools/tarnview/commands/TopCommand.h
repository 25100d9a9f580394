#pragma once

#include "commands/Context.h"
#include "commands/Following.h"
#include "model/Filter.h"
#include "model/Grouping.h"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace tarnview {

enum class TopFormat { Table, Csv, Json };

struct TopOptions {
    InputOptions input;
    Filter filter;
    std::vector<std::string> groupBy{"name"};
    std::string sortBy = "total";
    bool isReversed = false;
    std::size_t limit = 0;  ///< rows; 0: all
    TopFormat format = TopFormat::Table;
    FollowOptions follow{};
    std::optional<Microseconds> over{};  ///< a table of intervals of this length instead
    bool isGroupedOverTime = false;      ///< these by group as well
};

/// The names of the columns that can be sorted by, beside the names that are grouped by.
std::vector<std::string> TopColumnNames();

/// Prints figures of all activities of each group. Throws `std::system_error` if a file cannot be
/// read. The options must be sound: known groups, a known column.
int RunTop(const TopOptions& options, Context& context);

}  // namespace tarnview
