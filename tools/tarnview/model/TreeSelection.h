#pragma once

#include "activity/Activity.h"
#include "model/Filter.h"

#include <algorithm>
#include <cstddef>
#include <limits>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace tarnview {

enum class TreeOrder { AsBegun, Slowest, Last };

/// Chooses trees in a first pass over the log, so that a second one holds nothing else. Knows of
/// each tree its root's id and a few numbers. Used by one thread.
class TreeSelection {
public:
    /// `count` trees at most; 0: all. Wanted are trees in which at least one activity passes;
    /// the slowest are those in which such activities took longest, without a filter the roots.
    TreeSelection(Filter filter, TreeOrder order, std::size_t count);

    void Take(const Activity& activity);

    /// The log goes on until then, whatever has been taken of it.
    void NoteTime(Microseconds time) { m_lastTime = std::max(m_lastTime, time); }

    /// Ids of the roots of the chosen trees, in their order.
    std::vector<std::string> Chosen() const;

private:
    static constexpr Microseconds never = std::numeric_limits<Microseconds>::max();

    struct Tree {
        Microseconds begin = 0;
        // Of the longest activity that passes; without a filter of the root, or of the longest
        // activity while it is not seen.
        Microseconds duration = -1;
        Microseconds openSince = never;  // of the same; never: they have ended
        bool hasRoot = false;
        bool isWanted = false;
    };

    static void Rank(const Activity& activity, Tree& tree);

    using Trees = std::unordered_map<std::string, Tree>;

    Microseconds DurationOf(const Tree& tree) const;

    Filter m_filter;
    bool m_hasFilter;
    TreeOrder m_order;
    std::size_t m_count;
    Trees m_trees;
    Microseconds m_lastTime = 0;
};

}  // namespace tarnview
