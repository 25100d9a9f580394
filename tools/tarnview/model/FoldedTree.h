#pragma once

#include "model/ActivityForest.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace tarnview {

/// What the members of a group of siblings take together. Times are microseconds.
struct SiblingGroup {
    std::vector<ActivityForest::Index> members;  ///< in the order in which they began
    ActivityForest::Index slowest = ActivityForest::none;
    std::uint64_t ended = 0;  ///< of which the following sums and percentiles are
    Microseconds total = 0;
    Microseconds exclusive = 0;
    Microseconds self = 0;
    Microseconds median = 0;  ///< a value that occurred
    Microseconds begin = 0;   ///< of the first
    Microseconds end = 0;     ///< of the last
    std::uint64_t cpuCount = 0;
    double cpu = 0;  ///< inclusive, microseconds
    std::uint64_t memoryCount = 0;
    double memory = 0;  ///< inclusive, bytes
};

/// A row of a tree in which siblings that are alike are folded: an activity, or a group of them.
struct FoldedRow {
    ActivityForest::Index index = ActivityForest::none;  ///< of a group its first member
    std::size_t level = 0;
    bool isGroup = false;
    SiblingGroup group{};
};

/// The tree below `top`, each row before what is below it. More than `most` siblings of one name
/// and with the same outcome (of themselves, and whether all below them is ok) become one row,
/// where the first of them would be; 0 folds nothing. If there is more to see of them than figures,
/// as children or a failure, the slowest follows the row as an example. Rows are of `depth` levels
/// at most; 0: all.
std::vector<FoldedRow> FoldSiblings(const ActivityForest& forest,
                                    ActivityForest::Index top,
                                    std::size_t most,
                                    std::size_t depth);

}  // namespace tarnview
